#pragma once

#include "media/zoom_pan.h"

#include <QImage>
#include <QPoint>
#include <QWidget>

class QThread;

// A picture that fills the view fitted and can be zoomed (wheel, double
// click) and dragged. A large picture is first decoded at the size it is
// shown at, which is quick; the full resolution follows from a worker thread
// for zooming in.
class PhotoView : public QWidget
{
    Q_OBJECT
public:
    explicit PhotoView(QWidget *parent = nullptr);
    ~PhotoView() override;

    // Shows the picture in path, fitted. fullSize is the size of the real
    // picture when path holds only a smaller stand-in (its thumbnail), so the
    // stand-in takes the real one's place; empty for the file's own size.
    // False when the file does not load.
    bool showFile(const QString &path, const QSize &fullSize = QSize());
    void clear();
    QString path() const { return m_path; }
    // The size the picture is laid out at (the real picture's).
    QSize pictureSize() const { return m_pictureSize; }
    bool hasFullResolution() const { return !m_full.isNull(); }

    const ZoomPan &zoomPan() const { return m_zoom; }
    void zoomAt(double factor, const QPointF &viewPoint);
    void toggleZoomAt(const QPointF &viewPoint);
    void panBy(const QPointF &delta);

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void mouseDoubleClickEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;

private:
    void decodeQuick();
    void decodeFullInBackground(const QString &path);
    const QImage &bestImage(double shownWidth) const;

    QString m_path;
    QSize m_pictureSize;
    // What is decoded: a quick one at the fitted size, and the full one.
    QImage m_quick;
    QImage m_full;
    ZoomPan m_zoom;
    QThread *m_decoder = nullptr;
    int m_generation = 0;
    bool m_dragging = false;
    QPoint m_lastPos;
};
