// Downloads an update package the way the program does, until SIGTERM ends it the way the
// program ends: "fault_helper MANIFEST_BASE_URL DOWNLOADS_DIR". Prints "midway" once the first
// bytes of the package are written.

#include "platform/app_lifecycle.h"
#include "shell/update_checker.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (argc != 3)
        return 2;
    AppLifecycle lifecycle;
    if (!lifecycle.installSignalHandlers(nullptr))
        return 3;
    UpdateCheckerConfig config;
    config.host = QStringLiteral("127.0.0.1");
    config.httpsBaseUrl = config.httpBaseUrl = QString::fromLocal8Bit(argv[1]);
    config.downloadsDir = QString::fromLocal8Bit(argv[2]);
    UpdateChecker checker(config, nullptr, nullptr);
    QObject::connect(&checker, &UpdateChecker::updateQuestionAsked, &checker,
                     [&checker] { checker.onUpdateDialogFinished(2); });
    bool told = false;
    QObject::connect(&checker, &UpdateChecker::downloadProgress, &checker, [&told](qint64 got) {
        if (got > 0 && !told) {
            told = true;
            std::puts("midway");
            std::fflush(stdout);
        }
    });
    checker.onCheckUpdates();
    return QCoreApplication::exec();
}
