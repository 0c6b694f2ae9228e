#pragma once

#include <QColor>
#include <QImage>
#include <QWidget>

class QLabel;

// Draws a progress ring inside rect: the whole circle in track colour,
// then the played share clockwise from the top.
void paint_video_note_ring(QPainter &p, const QRectF &rect, qreal penWidth, qreal progress,
                           const QColor &track, const QColor &ring);

// A picture cut to a circle: a video note's thumbnail or its frames.
class VideoNoteCircle : public QWidget
{
    Q_OBJECT
public:
    explicit VideoNoteCircle(QWidget *parent = nullptr);
    // Scaled once to the widget's size here, so a paint only fills a circle.
    void setImage(const QImage &image);
    void setPlaceholderColor(const QColor &color);
    bool hasImage() const { return !m_scaled.isNull(); }
    // Where the image came from (a path, or "frame" while playing).
    QString source() const { return m_source; }
    void setSource(const QString &source) { m_source = source; }

protected:
    void paintEvent(QPaintEvent *) override;
    void resizeEvent(QResizeEvent *) override;

private:
    QImage m_image;
    QImage m_scaled;
    qreal m_scaledRatio = 1.0;
    QColor m_placeholder = QColor(0x80, 0x80, 0x80);
    QString m_source;
};

// The ring around a video note: a track, or the played share over it.
class VideoNoteRing : public QWidget
{
    Q_OBJECT
public:
    enum class Kind
    {
        Track,
        Progress
    };
    VideoNoteRing(Kind kind, QWidget *parent = nullptr);
    void setProgress(qreal progress);
    qreal progress() const { return m_progress; }
    void setColor(const QColor &color);
    void setPenWidth(qreal width);

protected:
    void paintEvent(QPaintEvent *) override;

private:
    Kind m_kind;
    qreal m_progress = 0;
    QColor m_color = Qt::white;
    qreal m_penWidth = 4;
};

// The live round preview over the chat while a video note records: the
// camera picture in a circle, a ring that fills towards the length limit
// and the elapsed time under it.
class VideoNoteRecordPreview : public QWidget
{
    Q_OBJECT
public:
    explicit VideoNoteRecordPreview(QWidget *parent = nullptr);
    void setFrame(const QImage &frame);
    // Elapsed time against the limit; both in milliseconds.
    void setElapsed(qint64 ms, qint64 limitMs);
    // Side of the circle in pixels.
    void setDiameter(int px);
    void clear();
    QString elapsedText() const;
    qreal progress() const;

private:
    void layoutChildren();

    VideoNoteCircle *m_circle = nullptr;
    VideoNoteRing *m_track = nullptr;
    VideoNoteRing *m_ring = nullptr;
    QLabel *m_time = nullptr;
    int m_diameter = 300;
};
