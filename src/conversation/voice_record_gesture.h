#pragma once

#include <QObject>
#include <QPointF>
#include <QTimer>

#include <functional>

// The composer's action button as a hold-to-record control: pressing it on
// an empty composer arms a 200 ms hold timer whose timeout starts a voice
// note (or a video note in video-note mode); sliding up more than 80 scaled
// pixels locks the recording; releasing sends an unlocked recording, a
// cancelled touch discards it; a tap on a locked recording sends it. A press
// released before the timer toggles voice and video-note mode, and a tap on a
// composer with text (or an edit) sends the message.
class VoiceRecordGesture : public QObject
{
    Q_OBJECT
public:
    static constexpr int kHoldMs = 200;

    enum class Touch
    {
        Down,
        Move,
        Up,
        Cancel
    };
    Q_ENUM(Touch)

    // What the gesture asks of the recorders and reads from the composer.
    struct Hooks
    {
        std::function<bool()> voiceRecording;
        std::function<bool()> videoRecording;
        // The video note's camera really runs (an up before that discards).
        std::function<bool()> videoCaptureStarted;
        std::function<bool()> editing;
        std::function<bool()> composerEmpty; // trimmed text is empty
        std::function<bool()> videoNoteMode;
        // Start a recording; false when it did not start.
        std::function<bool()> startVoice;
        std::function<bool()> startVideo;
        std::function<void(bool send)> stopVoice;
        std::function<void(bool send)> stopVideo;
        std::function<void()> toggleVideoNoteMode;
        std::function<void()> sendMessage;
    };

    VoiceRecordGesture(const Hooks &hooks, float scale, QObject *parent = nullptr);

    // One touch on the action button, in window coordinates.
    void onComposerActionTouch(Touch touch, const QPointF &windowPos);
    void onVoiceRecordHoldTimeout();
    // A recording stopped for its own reasons: the gesture starts afresh.
    void reset();

    bool holdPending() const { return m_holdPending; }
    bool holdActive() const { return m_holdActive; }
    bool locked() const { return m_locked; }
    bool isHoldTimerActive() const { return m_holdTimer.isActive(); }

Q_SIGNALS:
    // The record panel must show the current state (updateVoiceRecordPanel).
    void panelUpdateRequested();

private:
    void stop(bool send, bool video);
    bool recordingAny() const { return m_hooks.voiceRecording() || m_hooks.videoRecording(); }

    Hooks m_hooks;
    float m_scale;
    QTimer m_holdTimer;
    bool m_holdPending = false;
    bool m_holdActive = false;
    bool m_locked = false;
    bool m_touchActive = false;
    QPointF m_down;
    qreal m_startY = 0;
};

// The record panel's label for the recording state ("" when idle).
QString voice_record_panel_text(bool voiceRecording, bool videoRecording, bool cameraRunning,
                                bool locked);
