// A child process for the platform tests.
//   platform_helper lifecycle FILE   runs an event loop with AppLifecycle;
//                                    its aboutToQuit handler writes FILE.
//   platform_helper send NAME URL    hands URL to the instance on NAME.
//   platform_helper listen NAME      becomes the instance on NAME and prints
//                                    each received URL on a line of its own.
#include "platform/app_lifecycle.h"
#include "platform/instance_channel.h"

#include <QFile>
#include <QGuiApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() < 3)
        return 2;
    const QString mode = args.at(1);

    if (mode == QLatin1String("lifecycle")) {
        AppLifecycle life;
        QString error;
        if (!life.installSignalHandlers(&error)) {
            std::fprintf(stderr, "%s\n", qPrintable(error));
            return 3;
        }
        int signalNumber = 0;
        QObject::connect(&life, &AppLifecycle::terminationRequested,
                         [&signalNumber](int sig) { signalNumber = sig; });
        const QString path = args.at(2);
        QObject::connect(&life, &AppLifecycle::aboutToQuit, [&] {
            QFile f(path);
            if (f.open(QIODevice::WriteOnly))
                f.write(QByteArray("aboutToQuit signal=") + QByteArray::number(signalNumber) +
                        "\n");
        });
        std::printf("ready\n");
        std::fflush(stdout);
        const int rc = app.exec();
        std::printf("loop left\n");
        return rc;
    }
    if (mode == QLatin1String("send") && args.size() >= 4) {
        InstanceChannel channel(args.at(2));
        QString error;
        if (!channel.sendToRunning(args.at(3), 3000, &error)) {
            std::fprintf(stderr, "%s\n", qPrintable(error));
            return 1;
        }
        return 0;
    }
    if (mode == QLatin1String("listen")) {
        InstanceChannel channel(args.at(2));
        QString error;
        if (!channel.listen(&error)) {
            std::fprintf(stderr, "%s\n", qPrintable(error));
            return 1;
        }
        QObject::connect(&channel, &InstanceChannel::urlReceived, [](const QString &url) {
            std::printf("url %s\n", qPrintable(url));
            std::fflush(stdout);
        });
        std::printf("ready\n");
        std::fflush(stdout);
        return app.exec();
    }
    return 2;
}
