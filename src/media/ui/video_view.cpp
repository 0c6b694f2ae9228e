#include "media/ui/video_view.h"

#include "platform/av_player.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QSlider>
#include <QToolButton>
#include <QUrl>
#include <QVBoxLayout>
#include <QVariant>

#include <climits>

namespace {

QString clockText(qint64 ms)
{
    const qint64 s = qMax<qint64>(0, ms) / 1000;
    return QStringLiteral("%1:%2").arg(s / 60).arg(s % 60, 2, 10, QLatin1Char('0'));
}

} // namespace

// The picture area: the frame fitted, black around it.
class VideoView::Picture : public QWidget
{
public:
    explicit Picture(VideoView *view) : QWidget(view), m_view(view)
    {
        setObjectName(QStringLiteral("video_picture"));
        setAttribute(Qt::WA_OpaquePaintEvent);
        setMinimumSize(1, 1);
        setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter p(this);
        p.fillRect(rect(), Qt::black);
        const QImage &frame = m_view->m_frame;
        if (frame.isNull())
            return;
        const QSize fitted = frame.size().scaled(size(), Qt::KeepAspectRatio);
        const QRect target(QPoint((width() - fitted.width()) / 2, (height() - fitted.height()) / 2),
                           fitted);
        p.setRenderHint(QPainter::SmoothPixmapTransform);
        p.drawImage(target, frame);
    }

private:
    VideoView *m_view;
};

VideoView::VideoView(QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("video_view"));
    auto *v = new QVBoxLayout(this);
    v->setContentsMargins(0, 0, 0, 0);
    v->setSpacing(0);
    m_picture = new Picture(this);
    v->addWidget(m_picture, 1);

    auto *controls = new QWidget(this);
    controls->setObjectName(QStringLiteral("video_controls"));
    auto *h = new QHBoxLayout(controls);
    m_play = new QToolButton(controls);
    m_play->setObjectName(QStringLiteral("video_play_button"));
    m_play->setAutoRaise(true);
    m_seek = new QSlider(Qt::Horizontal, controls);
    m_seek->setObjectName(QStringLiteral("video_seek"));
    m_seek->setRange(0, 0);
    m_time = new QLabel(controls);
    m_time->setObjectName(QStringLiteral("video_time"));
    h->addWidget(m_play);
    h->addWidget(m_seek, 1);
    h->addWidget(m_time);
    v->addWidget(controls);

    connect(m_play, &QToolButton::clicked, this, &VideoView::togglePlay);
    // While the knob is held the position follows the hand, not the player.
    connect(m_seek, &QSlider::sliderPressed, this, [this] { m_seeking = true; });
    connect(m_seek, &QSlider::sliderReleased, this, [this] {
        m_seeking = false;
        seek(m_seek->value());
    });
    connect(m_seek, &QSlider::actionTriggered, this, [this](int action) {
        // Clicks on the groove and keys move the knob without a drag.
        if (action != QAbstractSlider::SliderMove && !m_seeking)
            seek(m_seek->sliderPosition());
    });
    updateControls();
}

VideoView::~VideoView()
{
    if (!m_player)
        return;
    m_player->stop();
    m_player->setFrameHandler({});
}

// The player loads the whole multimedia framework; the viewer exists from the start, so it is
// made on the first video and not before. False (the viewer told why) when there is none.
bool VideoView::ensurePlayer()
{
    if (m_player)
        return true;
    QString error;
    m_player = AvPlayer::create(this, &error);
    if (!m_player) {
        Q_EMIT failed(error);
        return false;
    }
    m_player->setFrameHandler([this](const QImage &frame) { showFrame(frame); });
    m_player->setNotifyInterval(200);
    connect(m_player, &AvPlayer::stateChanged, this, &VideoView::updateControls);
    connect(m_player, &AvPlayer::durationChanged, this, [this](qint64 ms) {
        m_seek->setRange(0, int(qMin<qint64>(ms, INT_MAX)));
        updateControls();
    });
    connect(m_player, &AvPlayer::positionChanged, this, [this](qint64 ms) {
        if (!m_seeking && !m_atEnd)
            m_seek->setValue(int(qMin<qint64>(ms, INT_MAX)));
        updateControls();
    });
    connect(m_player, &AvPlayer::mediaStatusChanged, this, [this](int s) {
        // At the end the bar goes back to the start: play starts again
        // from there.
        m_atEnd = s == AvPlayer::EndOfMedia;
        if (m_atEnd) {
            m_seek->setValue(0);
            updateControls();
        }
    });
    connect(m_player, &AvPlayer::errorOccurred, this,
            [this] { Q_EMIT failed(m_player->errorString()); });
    return true;
}

void VideoView::open(const QString &path)
{
    m_path = path;
    m_atEnd = false;
    m_frame = QImage();
    m_picture->update();
    m_seek->setRange(0, 0);
    if (!ensurePlayer())
        return;
    m_player->setSource(QUrl::fromLocalFile(path));
    m_player->play();
    updateControls();
}

void VideoView::stop()
{
    if (m_player) {
        m_player->stop();
        m_player->setSource(QUrl());
    }
    m_path.clear();
    updateControls();
}

void VideoView::togglePlay()
{
    if (m_path.isEmpty() || !m_player)
        return;
    if (m_player->state() == AvPlayer::PlayingState) {
        m_player->pause();
        return;
    }
    if (m_atEnd)
        m_player->setPosition(0);
    m_player->play();
}

void VideoView::seek(qint64 ms)
{
    if (!m_player)
        return;
    m_atEnd = false;
    m_player->setPosition(qBound<qint64>(0, ms, qMax<qint64>(0, m_player->duration())));
}

bool VideoView::isPlaying() const
{
    return m_player && m_player->state() == AvPlayer::PlayingState;
}

void VideoView::setControlSizes(int buttonPx, int iconPx)
{
    m_play->setFixedSize(buttonPx, buttonPx);
    m_play->setIconSize(QSize(iconPx, iconPx));
}

qint64 VideoView::position() const
{
    return m_atEnd || !m_player ? 0 : m_player->position();
}

qint64 VideoView::duration() const
{
    return m_player ? m_player->duration() : 0;
}

void VideoView::showFrame(const QImage &frame)
{
    m_frame = frame;
    m_picture->update();
}

void VideoView::updateControls()
{
    const bool playing = isPlaying();
    m_play->setIcon(QIcon(playing ? QStringLiteral(":/assets/osicons/ic_pause.png")
                                  : QStringLiteral(":/assets/osicons/ic_play.png")));
    m_play->setProperty("playing", playing);
    m_play->setEnabled(!m_path.isEmpty());
    m_time->setText(QStringLiteral("%1 / %2").arg(clockText(position()), clockText(duration())));
}
