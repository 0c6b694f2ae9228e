#include "media/ui/photo_view.h"

#include <QImageReader>
#include <QMouseEvent>
#include <QPainter>
#include <QThread>
#include <QWheelEvent>
#include <QtMath>

namespace {

// A picture this many times the view's pixels or more is shown from a
// decode at its fitted size first.
constexpr qint64 kQuickDecodeFactor = 2;

QImage readImage(const QString &path, const QSize &scaledTo)
{
    QImageReader reader(path);
    reader.setAutoTransform(true);
    if (scaledTo.isValid())
        reader.setScaledSize(scaledTo);
    QImage image = reader.read();
    // One format for every paint: no conversion while dragging.
    if (!image.isNull() && image.format() != QImage::Format_RGB32 &&
        image.format() != QImage::Format_ARGB32_Premultiplied)
        image = image.convertToFormat(image.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied
                                                              : QImage::Format_RGB32);
    return image;
}

} // namespace

PhotoView::PhotoView(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("photo_view"));
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(1, 1);
}

PhotoView::~PhotoView()
{
    if (m_decoder)
        m_decoder->wait();
}

bool PhotoView::showFile(const QString &path, const QSize &fullSize)
{
    clear();
    QImageReader probe(path);
    probe.setAutoTransform(true);
    QSize own = probe.size();
    if (!own.isValid())
        return false;
    if (probe.transformation() & QImageIOHandler::TransformationRotate90)
        own.transpose();
    const bool standIn = fullSize.isValid() && !fullSize.isEmpty();
    m_path = path;
    m_pictureSize = standIn ? fullSize : own;
    m_zoom.setSizes(m_pictureSize, size());

    const qint64 viewPixels = qint64(qMax(1, width())) * qMax(1, height());
    const bool large = qint64(own.width()) * own.height() >= kQuickDecodeFactor * viewPixels;
    if (!standIn && large) {
        decodeQuick();
        decodeFullInBackground(path);
    } else {
        m_full = readImage(path, QSize());
    }
    update();
    if (m_quick.isNull() && m_full.isNull()) {
        clear();
        return false;
    }
    return true;
}

void PhotoView::clear()
{
    ++m_generation; // a decode still running is for a picture no longer shown
    m_path.clear();
    m_pictureSize = QSize();
    m_quick = QImage();
    m_full = QImage();
    m_dragging = false;
    m_zoom.setSizes(QSizeF(), size());
    update();
}

void PhotoView::decodeQuick()
{
    // Decoders such as JPEG's scale while decoding, which is far quicker
    // than reading every pixel.
    const QSize fitted = m_pictureSize.scaled(size(), Qt::KeepAspectRatio).expandedTo(QSize(1, 1));
    m_quick = readImage(m_path, fitted);
}

void PhotoView::decodeFullInBackground(const QString &path)
{
    if (m_decoder)
        m_decoder->wait();
    const int generation = m_generation;
    m_decoder = QThread::create([this, path, generation] {
        const QImage image = readImage(path, QSize());
        // Delivered only while this view exists: a queued call dies with it.
        QMetaObject::invokeMethod(
            this,
            [this, image, generation] {
                if (generation != m_generation || image.isNull())
                    return;
                // The quick decode stays: it is the sharper picture when fitted.
                m_full = image;
                update();
            },
            Qt::QueuedConnection);
    });
    QThread *thread = m_decoder;
    connect(thread, &QThread::finished, this, [this, thread] {
        if (m_decoder == thread)
            m_decoder = nullptr;
        thread->deleteLater();
    });
    m_decoder->start();
}

void PhotoView::zoomAt(double factor, const QPointF &viewPoint)
{
    m_zoom.zoomAt(factor, viewPoint);
    update();
}

void PhotoView::toggleZoomAt(const QPointF &viewPoint)
{
    m_zoom.toggleAt(viewPoint);
    update();
}

void PhotoView::panBy(const QPointF &delta)
{
    m_zoom.panBy(delta);
    update();
}

const QImage &PhotoView::bestImage(double shownWidth) const
{
    // The quick decode while it is sharp enough, then the full one.
    if (!m_quick.isNull() && (m_full.isNull() || m_quick.width() >= shownWidth * 0.98))
        return m_quick;
    return m_full;
}

void PhotoView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), Qt::black);
    if (m_pictureSize.isEmpty())
        return;
    const QRectF shown = m_zoom.imageRect();
    const QImage &image = bestImage(shown.width());
    if (image.isNull())
        return;
    const QRectF visible = m_zoom.visibleSource();
    const double k = double(image.width()) / m_pictureSize.width();
    const QRectF source(visible.topLeft() * k, visible.size() * k);
    const QRectF target = shown.intersected(QRectF(rect()));
    // Smooth scaling except for a one-to-one copy, which needs none.
    const bool oneToOne = qFuzzyCompare(source.width(), target.width()) &&
                          qFuzzyCompare(source.height(), target.height());
    p.setRenderHint(QPainter::SmoothPixmapTransform, !oneToOne);
    p.drawImage(target, image, source);
}

void PhotoView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    m_zoom.setSizes(m_pictureSize, size());
    // Shown before it was laid out: the quick picture is made again for the
    // real size while the full one is still being decoded.
    if (!m_quick.isNull() && m_full.isNull() && m_quick.width() < m_zoom.imageRect().width() * 0.98)
        decodeQuick();
}

void PhotoView::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return QWidget::mousePressEvent(event);
    m_dragging = true;
    m_lastPos = event->pos();
}

void PhotoView::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_dragging)
        return QWidget::mouseMoveEvent(event);
    panBy(event->pos() - m_lastPos);
    m_lastPos = event->pos();
}

void PhotoView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        m_dragging = false;
    QWidget::mouseReleaseEvent(event);
}

void PhotoView::mouseDoubleClickEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        toggleZoomAt(event->pos());
}

void PhotoView::wheelEvent(QWheelEvent *event)
{
    // One notch (120) zooms by about a fifth.
    const double notches = event->angleDelta().y() / 120.0;
    if (notches != 0)
        zoomAt(qPow(1.2, notches), event->position());
    event->accept();
}
