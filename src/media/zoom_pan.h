#pragma once

#include <QPointF>
#include <QRectF>
#include <QSizeF>

// Where a picture lies in a view that can be zoomed and dragged. The scale
// runs from "fitted" (the whole picture in view) to maxScale(); along an axis
// where the picture is narrower than the view it stays centred, along the
// others its edges never come inside the view.
class ZoomPan
{
public:
    // Keeps the picture fitted when it was; otherwise keeps the scale and
    // the picture point at the view's centre, within the limits.
    void setSizes(const QSizeF &image, const QSizeF &view);
    void fit();

    double fitScale() const;
    double maxScale() const;
    double scale() const { return m_scale; }
    QSizeF viewSize() const { return m_view; }
    bool isFitted() const;

    // Scales by factor about viewPoint: the picture point under it stays put.
    void zoomAt(double factor, const QPointF &viewPoint);
    // Double-click: from fitted to the closer look at viewPoint, else back.
    void toggleAt(const QPointF &viewPoint);
    void panBy(const QPointF &delta);

    // The whole picture's rectangle in view coordinates.
    QRectF imageRect() const;
    // The picture's part that is in view, in picture coordinates.
    QRectF visibleSource() const;

private:
    void clamp();

    QSizeF m_image;
    QSizeF m_view;
    double m_scale = 1.0;
    QPointF m_offset;
    bool m_fitted = true;
};
