#include "platform/folders.h"
#include "platform/gl_integration.h"
#include "platform/ui/app_font.h"
#include "platform/instance_channel.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QApplication>
#include <QProcess>
#include <QProcessEnvironment>
#include <cstdio>

namespace {

// A URL on the command line ("tg:..." from the desktop), or an empty request
// to come forward, goes to a vexa that already runs on the same data folder;
// true when that one answered.
bool handedToRunningInstance(const QString &url)
{
    const AppFolders folders = resolve_app_folders(QCoreApplication::applicationDirPath(),
                                                   QProcessEnvironment::systemEnvironment());
    InstanceChannel channel(InstanceChannel::server_name_for(folders.dataDir));
    QString error;
    return channel.sendToRunning(url, 2000, &error);
}

} // namespace

int main(int argc, char *argv[])
{
    std::fputs("Vexa: starting\n", stderr);
    std::fflush(stderr);

    // The backend gets the environment as the user gave it.
    const QStringList environment = QProcess::systemEnvironment();
    // No screen draws with OpenGL (lists, bubbles and video frames are
    // painted on the raster backing store), so no GL driver is loaded.
    avoid_gl_integration(false);

    auto *app = new QApplication(argc, argv);
    QApplication::setApplicationName(QStringLiteral("vexa"));
    prefer_colour_emoji();

    const QStringList args = QCoreApplication::arguments();
    const QString url = args.size() > 1 ? args.at(1) : QString();
    // One vexa per data folder: a later start hands over its link (or just
    // brings the running window forward) and ends.
    if (handedToRunningInstance(url)) {
        delete app;
        return 0;
    }

    auto *spike = new UiTdlibSpike(QCoreApplication::applicationDirPath(), environment);
    if (!url.isEmpty())
        spike->onInvoked(url);
    const int rc = QApplication::exec();
    delete spike;
    delete app;
    return rc;
}
