// Runs one long write the way the program does (update MANIFEST_BASE_URL DOWNLOADS_DIR,
// record DATA_DIR, wav VOICE_OGG CACHE_DIR, copy FILE SHARED_DIR) until SIGTERM ends it the way
// the program ends. Prints "midway" once part of the write is done; all but "update" then wait
// for a line on standard input, so that a signal sent before it is pending while the write goes on.

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

// Says "midway" the first time only; with wait, then waits for a line.
void tellMidway(bool wait)
{
    static bool told = false;
    if (told)
        return;
    told = true;
    std::puts("midway");
    std::fflush(stdout);
    char line[16];
    if (wait && !std::fgets(line, sizeof line, stdin))
        std::exit(4);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    const QString mode = args.value(0);
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
        QObject::connect(&checker, &UpdateChecker::downloadProgress, &checker, [](qint64 got) {
            if (got > 0)
                tellMidway(false);
        });
        checker.onCheckUpdates();
        return QCoreApplication::exec();
    }
    if (mode == QLatin1String("record") && args.size() == 2) {
        VoiceRecorder recorder(opus, openal, args.at(1), services);
        recorder.setChatId(1);
        QObject::connect(&recorder, &VoiceRecorder::inputLevelChanged, &recorder, [](qreal level) {
            if (level > 0)
                tellMidway(true);
        });
        recorder.startVoiceRecording();
        if (!recorder.voiceRecording())
            return 5;
        return QCoreApplication::exec();
    }
    if (mode == QLatin1String("wav") && args.size() == 3) {
        VoicePlayer player(opus, nullptr, args.at(2), services, nullptr);
        if (!player.startWavForVoiceFile(5, args.at(1)).endsWith(QLatin1String(".part")))
            return 5;
        tellMidway(true);
        return QCoreApplication::exec();
    }
    if (mode == QLatin1String("copy") && args.size() == 3) {
        MediaDownloads downloads(services, args.at(2), args.at(2) + QLatin1Char('/'), nullptr);
        // The copy runs within one turn of the event loop: tell before it starts.
        QTimer::singleShot(0, &downloads, [&downloads, &args] {
            tellMidway(true);
            downloads.onFileTapped(args.at(1), 7);
        });
        return QCoreApplication::exec();
    }
    return 2;
}
