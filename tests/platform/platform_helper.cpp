// A child process for the platform tests.
//   platform_helper lifecycle        runs an event loop with AppLifecycle and
//                                    reports its aboutToQuit on stdout.
//   platform_helper send NAME URL    hands URL to the instance on NAME.
#include "platform/app_lifecycle.h"
#include "platform/instance_channel.h"

#include <QGuiApplication>

#include <cstdio>

namespace {
void say(const QByteArray &line)
{
    std::fputs(line.constData(), stdout);
    std::fflush(stdout);
}
} // namespace

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    const QString mode = args.value(1);
    QString error;
    if (mode == QLatin1String("lifecycle")) {
        AppLifecycle life;
        if (!life.installSignalHandlers(&error))
            return 3;
        int signalNumber = 0;
        QObject::connect(&life, &AppLifecycle::terminationRequested,
                         [&signalNumber](int sig) { signalNumber = sig; });
        QObject::connect(&life, &AppLifecycle::aboutToQuit, [&signalNumber] {
            say("aboutToQuit signal=" + QByteArray::number(signalNumber) + "\n");
        });
        say("ready\n");
        const int rc = app.exec();
        say("loop left\n");
        return rc;
    }
    InstanceChannel channel(args.value(2));
    const bool sent =
        mode == QLatin1String("send") && channel.sendToRunning(args.value(3), 3000, &error);
    return sent ? 0 : 1;
}
