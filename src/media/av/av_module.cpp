// The media module's entry points, looked up by name when the client first
// plays or records (see platform/av_module.h). It links QtMultimedia and
// GStreamer; the classes it makes derive from interfaces that the program
// itself defines and exports.

#include "media/av/gst_video_note_capture.h"
#include "media/av/qt_av_player.h"

#include <type_traits>

extern "C" {

Q_DECL_EXPORT AvPlayer *vexa_av_create_player(QObject *parent)
{
    return new QtAvPlayer(parent);
}

Q_DECL_EXPORT VideoNoteCapture *
vexa_av_create_video_note_capture(const QString &dataDir, const QString &cameraSource,
                                  const VideoNoteCapture::Services &services, QObject *parent)
{
    return new GstVideoNoteCapture(dataDir, cameraSource, services, parent);
}

} // extern "C"

// The program calls these through its own pointer types.
static_assert(std::is_same_v<decltype(&vexa_av_create_player), AvPlayer::Factory>);
static_assert(
    std::is_same_v<decltype(&vexa_av_create_video_note_capture), VideoNoteCapture::Factory>);
