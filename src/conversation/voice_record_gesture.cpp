#include "conversation/voice_record_gesture.h"

#include <QString>

VoiceRecordGesture::VoiceRecordGesture(const Hooks &hooks, float scale, QObject *parent)
    : QObject(parent), m_hooks(hooks), m_scale(scale)
{
    m_holdTimer.setSingleShot(true);
    m_holdTimer.setInterval(kHoldMs);
    connect(&m_holdTimer, &QTimer::timeout, this, &VoiceRecordGesture::onVoiceRecordHoldTimeout);
}

void VoiceRecordGesture::onComposerActionTouch(Touch touch, const QPointF &windowPos)
{
    if (touch == Touch::Down) {
        m_down = windowPos;
        m_touchActive = true;
        if (recordingAny() || m_hooks.editing())
            return;
        if (m_hooks.composerEmpty()) {
            m_startY = windowPos.y();
            m_holdActive = false;
            m_locked = false;
            m_holdPending = true;
            m_holdTimer.start();
        }
        return;
    }
    if (!m_touchActive)
        return;
    if (touch == Touch::Move) {
        if (m_holdActive && recordingAny() && !m_locked &&
            windowPos.y() - m_startY < -80.0 * m_scale) {
            m_locked = true;
            Q_EMIT panelUpdateRequested();
        }
        return;
    }

    // Up or cancel.
    m_touchActive = false;
    m_holdTimer.stop();
    const qreal slack = 2.0 * m_scale;
    const bool tap = touch == Touch::Up && qAbs(windowPos.x() - m_down.x()) <= slack &&
                     qAbs(windowPos.y() - m_down.y()) <= slack;
    const bool send = touch == Touch::Up;
    if (m_holdPending) {
        m_holdPending = false;
        if (!m_holdActive) {
            // Released before the hold timer: a tap switches voice and video.
            if (tap)
                m_hooks.toggleVideoNoteMode();
            return;
        }
        m_holdActive = false;
        if (m_hooks.voiceRecording()) {
            if (m_locked)
                Q_EMIT panelUpdateRequested();
            else
                stop(send, false);
        } else if (m_hooks.videoRecording()) {
            if (m_locked)
                Q_EMIT panelUpdateRequested();
            else
                stop(send && m_hooks.videoCaptureStarted(), true);
        }
        return;
    }
    if (m_hooks.voiceRecording()) {
        if (tap || m_locked)
            stop(true, false);
        return;
    }
    if (m_hooks.videoRecording()) {
        if (tap || m_locked)
            stop(true, true);
        return;
    }
    if (tap && (m_hooks.editing() || !m_hooks.composerEmpty()))
        m_hooks.sendMessage();
}

void VoiceRecordGesture::onVoiceRecordHoldTimeout()
{
    if (!m_holdPending || recordingAny() || !m_hooks.composerEmpty())
        return;
    m_locked = false;
    const bool started = m_hooks.videoNoteMode() ? m_hooks.startVideo() : m_hooks.startVoice();
    if (started) {
        m_holdActive = true;
        Q_EMIT panelUpdateRequested();
    }
}

void VoiceRecordGesture::stop(bool send, bool video)
{
    // Stopping ends the gesture, whatever the recorder reports afterwards.
    m_holdTimer.stop();
    m_holdPending = false;
    m_holdActive = false;
    m_locked = false;
    if (video)
        m_hooks.stopVideo(send);
    else
        m_hooks.stopVoice(send);
}

void VoiceRecordGesture::reset()
{
    m_holdTimer.stop();
    m_holdPending = false;
    m_holdActive = false;
    m_locked = false;
    Q_EMIT panelUpdateRequested();
}

QString voice_record_panel_text(bool voiceRecording, bool videoRecording, bool cameraRunning,
                                bool locked)
{
    if (voiceRecording) {
        return locked ? QStringLiteral("Recording… locked (tap to send)")
                      : QStringLiteral("Recording… swipe up to lock");
    }
    if (videoRecording) {
        if (!cameraRunning)
            return QStringLiteral("Opening camera…");
        return locked ? QStringLiteral("Recording video… locked (tap to send)")
                      : QStringLiteral("Recording video… swipe up to lock");
    }
    return QString();
}
