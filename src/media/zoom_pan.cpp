#include "media/zoom_pan.h"

#include <QtGlobal>

namespace {

bool usable(const QSizeF &s)
{
    return s.width() > 0 && s.height() > 0;
}

} // namespace

void ZoomPan::setSizes(const QSizeF &image, const QSizeF &view)
{
    const QPointF centre(m_view.width() / 2, m_view.height() / 2);
    const QPointF at = m_scale > 0 ? (centre - m_offset) / m_scale : QPointF();
    const bool sameImage = image == m_image;
    m_image = image;
    m_view = view;
    if (m_fitted || !sameImage || !usable(m_image) || !usable(m_view)) {
        fit();
        return;
    }
    m_scale = qBound(fitScale(), m_scale, maxScale());
    m_offset = QPointF(m_view.width() / 2, m_view.height() / 2) - at * m_scale;
    clamp();
}

void ZoomPan::fit()
{
    m_fitted = true;
    m_scale = fitScale();
    m_offset = QPointF();
    clamp();
}

double ZoomPan::fitScale() const
{
    if (!usable(m_image) || !usable(m_view))
        return 1.0;
    return qMin(m_view.width() / m_image.width(), m_view.height() / m_image.height());
}

double ZoomPan::maxScale() const
{
    // Four picture pixels to a screen pixel, or four times the fit for a
    // picture smaller than the view.
    return qMax(4.0, fitScale() * 4);
}

bool ZoomPan::isFitted() const
{
    return m_fitted;
}

void ZoomPan::zoomAt(double factor, const QPointF &viewPoint)
{
    if (!usable(m_image) || !usable(m_view) || factor <= 0)
        return;
    const double next = qBound(fitScale(), m_scale * factor, maxScale());
    const QPointF at = (viewPoint - m_offset) / m_scale;
    m_scale = next;
    m_offset = viewPoint - at * m_scale;
    m_fitted = qFuzzyCompare(m_scale, fitScale());
    clamp();
}

void ZoomPan::toggleAt(const QPointF &viewPoint)
{
    if (!m_fitted) {
        fit();
        return;
    }
    // One picture pixel to a screen pixel, at least two and a half times
    // the fit so that a small picture still comes closer.
    const double target = qMin(maxScale(), qMax(1.0, fitScale() * 2.5));
    zoomAt(target / m_scale, viewPoint);
}

void ZoomPan::panBy(const QPointF &delta)
{
    m_offset += delta;
    clamp();
}

QRectF ZoomPan::imageRect() const
{
    return QRectF(m_offset, m_image * m_scale);
}

QRectF ZoomPan::visibleSource() const
{
    if (m_scale <= 0)
        return QRectF();
    const QRectF inView = imageRect().intersected(QRectF(QPointF(), m_view));
    return QRectF((inView.topLeft() - m_offset) / m_scale, inView.size() / m_scale);
}

void ZoomPan::clamp()
{
    const QSizeF shown = m_image * m_scale;
    const auto axis = [](double offset, double shownLen, double viewLen) {
        if (shownLen <= viewLen)
            return (viewLen - shownLen) / 2;
        return qBound(viewLen - shownLen, offset, 0.0);
    };
    m_offset = QPointF(axis(m_offset.x(), shown.width(), m_view.width()),
                       axis(m_offset.y(), shown.height(), m_view.height()));
}
