// Runs one long write the way the program does, until SIGTERM ends it the way the program ends:
//   fault_helper update MANIFEST_BASE_URL DOWNLOADS_DIR   download an update package
//   fault_helper record DATA_DIR                          record a voice note
//   fault_helper wav VOICE_OGG CACHE_DIR                  convert a voice note to WAV
//   fault_helper copy FILE SHARED_DIR                     copy a download to the shared folder
// Prints "midway" once part of the write is done (for "copy", which runs within one turn of the
// event loop, just before it starts). All but "update" then wait for a line on standard input,
// so that a signal sent before that line is already pending while the write goes on.

#include "media/audio_libs.h"
#include "media/media_downloads.h"
#include "media/voice_player.h"
#include "media/voice_recorder.h"
#include "platform/app_lifecycle.h"
#include "shell/update_checker.h"

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>

namespace {

void tellMidway()
{
    std::puts("midway");
    std::fflush(stdout);
}

void tellMidwayAndWait()
{
    tellMidway();
    char line[16];
    if (!std::fgets(line, sizeof line, stdin))
        std::exit(4);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    if (args.size() < 2)
        return 2;
    const QString mode = args.at(0);
    AppLifecycle lifecycle;
    if (!lifecycle.installSignalHandlers(nullptr))
        return 3;
    OpusLib opus;
    OpenAlLib openal;
    const MediaServices services;

    if (mode == QLatin1String("update") && args.size() == 3) {
        UpdateCheckerConfig config;
        config.host = QStringLiteral("127.0.0.1");
        config.httpsBaseUrl = config.httpBaseUrl = args.at(1);
        config.downloadsDir = args.at(2);
        UpdateChecker checker(config, nullptr, nullptr);
        QObject::connect(&checker, &UpdateChecker::updateQuestionAsked, &checker,
                         [&checker] { checker.onUpdateDialogFinished(2); });
        bool told = false;
        QObject::connect(&checker, &UpdateChecker::downloadProgress, &checker, [&told](qint64 got) {
            if (got > 0 && !told) {
                told = true;
                tellMidway();
            }
        });
        checker.onCheckUpdates();
        return QCoreApplication::exec();
    }
    if (mode == QLatin1String("record") && args.size() == 2) {
        VoiceRecorder recorder(opus, openal, args.at(1), services);
        recorder.setChatId(1);
        bool told = false;
        QObject::connect(&recorder, &VoiceRecorder::inputLevelChanged, &recorder,
                         [&told](qreal level) {
                             if (level > 0 && !told) {
                                 told = true;
                                 tellMidwayAndWait();
                             }
                         });
        recorder.startVoiceRecording();
        if (!recorder.voiceRecording())
            return 5;
        return QCoreApplication::exec();
    }
    if (mode == QLatin1String("wav") && args.size() == 3) {
        VoicePlayer player(opus, nullptr, args.at(2), services, nullptr);
        // The head is written at once, the rest a slice per turn of the event loop.
        if (!player.startWavForVoiceFile(5, args.at(1)).endsWith(QLatin1String(".part")))
            return 5;
        tellMidwayAndWait();
        return QCoreApplication::exec();
    }
    if (mode == QLatin1String("copy") && args.size() == 3) {
        MediaDownloads downloads(services, args.at(2), args.at(2) + QLatin1Char('/'), nullptr);
        // The copy runs within one turn of the event loop: the signal is pending all along.
        QTimer::singleShot(0, &downloads, [&downloads, &args] {
            tellMidwayAndWait();
            downloads.onFileTapped(args.at(1), 7);
        });
        return QCoreApplication::exec();
    }
    return 2;
}
