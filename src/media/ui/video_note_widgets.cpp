#include "media/ui/video_note_widgets.h"

#include <QLabel>
#include <QPainter>
#include <QPainterPath>

void paint_video_note_ring(QPainter &p, const QRectF &rect, qreal penWidth, qreal progress,
                           const QColor &track, const QColor &ring)
{
    const QRectF r = rect.adjusted(penWidth / 2, penWidth / 2, -penWidth / 2, -penWidth / 2);
    p.setRenderHint(QPainter::Antialiasing);
    p.setBrush(Qt::NoBrush);
    if (track.alpha() > 0) {
        p.setPen(QPen(track, penWidth));
        p.drawEllipse(r);
    }
    const qreal share = qBound<qreal>(0, progress, 1);
    if (share > 0 && ring.alpha() > 0) {
        p.setPen(QPen(ring, penWidth, Qt::SolidLine, Qt::RoundCap));
        // Qt's angles are in sixteenths of a degree, counter-clockwise.
        p.drawArc(r, 90 * 16, -int(share * 360 * 16));
    }
}

VideoNoteCircle::VideoNoteCircle(QWidget *parent) : QWidget(parent)
{
    setAttribute(Qt::WA_NoSystemBackground);
}

void VideoNoteCircle::setImage(const QImage &image)
{
    m_image = image;
    // Scaled to device pixels, so a fractional scale factor does not stretch it.
    const qreal dpr = devicePixelRatioF();
    m_scaled =
        image.isNull() || size().isEmpty()
            ? QImage()
            : image.scaled(size() * dpr, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    // The brush maps it to the widget itself (dpr kept aside), so a texture ratio never
    // scales it a second time.
    m_scaled.setDevicePixelRatio(1.0);
    m_scaledRatio = dpr;
    update();
}

void VideoNoteCircle::setPlaceholderColor(const QColor &color)
{
    if (color == m_placeholder)
        return;
    m_placeholder = color;
    update();
}

void VideoNoteCircle::resizeEvent(QResizeEvent *)
{
    if (!m_image.isNull())
        setImage(m_image);
}

void VideoNoteCircle::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    if (m_scaled.isNull()) {
        p.setBrush(m_placeholder);
    } else {
        // The picture as the circle's fill, centred.
        const qreal dpr = m_scaledRatio;
        const QSizeF logical = QSizeF(m_scaled.size()) / dpr;
        QBrush brush(m_scaled);
        brush.setTransform(QTransform::fromScale(1 / dpr, 1 / dpr) *
                           QTransform::fromTranslate((width() - logical.width()) / 2,
                                                     (height() - logical.height()) / 2));
        p.setBrush(brush);
    }
    p.drawEllipse(rect());
}

VideoNoteRing::VideoNoteRing(Kind kind, QWidget *parent) : QWidget(parent), m_kind(kind)
{
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setAttribute(Qt::WA_NoSystemBackground);
}

void VideoNoteRing::setProgress(qreal progress)
{
    progress = qBound<qreal>(0, progress, 1);
    if (qFuzzyCompare(progress + 1, m_progress + 1))
        return;
    m_progress = progress;
    update();
}

void VideoNoteRing::setColor(const QColor &color)
{
    if (color == m_color)
        return;
    m_color = color;
    update();
}

void VideoNoteRing::setPenWidth(qreal width)
{
    m_penWidth = width;
    update();
}

void VideoNoteRing::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    if (m_kind == Kind::Track)
        paint_video_note_ring(p, rect(), m_penWidth, 0, m_color, Qt::transparent);
    else
        paint_video_note_ring(p, rect(), m_penWidth, m_progress, Qt::transparent, m_color);
}

VideoNoteRecordPreview::VideoNoteRecordPreview(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("video_note_record_preview"));
    setAttribute(Qt::WA_TransparentForMouseEvents);
    m_circle = new VideoNoteCircle(this);
    m_circle->setObjectName(QStringLiteral("video_note_preview_circle"));
    m_circle->setPlaceholderColor(QColor(0x20, 0x20, 0x20));
    m_track = new VideoNoteRing(VideoNoteRing::Kind::Track, this);
    m_track->setObjectName(QStringLiteral("video_note_preview_ring_track"));
    m_track->setColor(QColor(255, 255, 255, 90));
    m_ring = new VideoNoteRing(VideoNoteRing::Kind::Progress, this);
    m_ring->setObjectName(QStringLiteral("video_note_preview_ring"));
    m_ring->setColor(QColor(0xe5, 0x39, 0x35));
    m_time = new QLabel(this);
    m_time->setObjectName(QStringLiteral("video_note_preview_time"));
    m_time->setAlignment(Qt::AlignCenter);
    m_time->setStyleSheet(QStringLiteral("QLabel { color: white; background: rgba(0,0,0,150); "
                                         "border-radius: 12px; padding: 4px 12px; }"));
    QFont f = m_time->font();
    f.setPixelSize(24);
    m_time->setFont(f);
    setElapsed(0, 60000);
    layoutChildren();
}

void VideoNoteRecordPreview::setDiameter(int px)
{
    m_diameter = qMax(32, px);
    layoutChildren();
}

void VideoNoteRecordPreview::layoutChildren()
{
    const int ringPx = qMax(4, m_diameter / 40);
    m_track->setPenWidth(ringPx);
    m_ring->setPenWidth(ringPx);
    const int gap = ringPx + 2;
    m_track->setGeometry(0, 0, m_diameter, m_diameter);
    m_ring->setGeometry(0, 0, m_diameter, m_diameter);
    m_circle->setGeometry(gap, gap, m_diameter - 2 * gap, m_diameter - 2 * gap);
    m_time->adjustSize();
    const int timeH = m_time->sizeHint().height();
    const int timeW = qMax(m_time->sizeHint().width(), 96);
    m_time->setGeometry((m_diameter - timeW) / 2, m_diameter + 12, timeW, timeH);
    setFixedSize(m_diameter, m_diameter + 12 + timeH);
}

void VideoNoteRecordPreview::setFrame(const QImage &frame)
{
    m_circle->setImage(frame);
}

void VideoNoteRecordPreview::setElapsed(qint64 ms, qint64 limitMs)
{
    const qint64 s = qMax<qint64>(0, ms) / 1000;
    const QString text = QStringLiteral("%1:%2").arg(s / 60).arg(s % 60, 2, 10, QLatin1Char('0'));
    if (m_time->text() != text)
        m_time->setText(text);
    m_ring->setProgress(limitMs > 0 ? qreal(ms) / qreal(limitMs) : 0);
}

void VideoNoteRecordPreview::clear()
{
    m_circle->setImage(QImage());
    setElapsed(0, 1);
}

QString VideoNoteRecordPreview::elapsedText() const
{
    return m_time->text();
}

qreal VideoNoteRecordPreview::progress() const
{
    return m_ring->progress();
}
