#include "platform/folders.h"
#include "platform/gl_integration.h"
#include "platform/instance_channel.h"
#include "platform/ui/app_font.h"
#include "shell/links.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QApplication>
#include <QProcess>
#include <QProcessEnvironment>
#include <cstdio>

namespace {

QString dataDir()
{
    return resolve_app_folders(QCoreApplication::applicationDirPath(),
                               QProcessEnvironment::systemEnvironment())
        .dataDir;
}

// A URL on the command line ("tg:..." from the desktop), or an empty request
// to come forward, goes to a vexa that already runs on the same data folder;
// true when that one answered.
bool handedToRunningInstance(const QString &url)
{
    InstanceChannel channel(InstanceChannel::server_name_for(dataDir()));
    QString error;
    return channel.sendToRunning(url, 2000, &error);
}

// A chat id is any non-zero number (groups and channels are negative), a
// message id a positive one; 0 for anything else.
qint64 idFrom(const QString &text, bool positive)
{
    bool ok = false;
    const qint64 id = text.toLongLong(&ok);
    return ok && (positive ? id >= 1 : id != 0) ? id : 0;
}

// "--open-chat CHAT_ID [--message MESSAGE_ID]" or "--open-chats": leaves a
// request to open that chat (or the chat list) for the window to pick up.
// 1: not such a request; 0: written; 2: a bad request (said on stderr).
int writeOpenRequest(const QStringList &args)
{
    const QString what = args.value(1);
    if (what != QLatin1String("--open-chat") && what != QLatin1String("--open-chats"))
        return 1;
    qint64 chatId = 0;
    qint64 messageId = 0;
    bool ok = what == QLatin1String("--open-chats") ? args.size() == 2 : false;
    if (what == QLatin1String("--open-chat")) {
        chatId = idFrom(args.value(2), false);
        ok = chatId != 0 &&
             (args.size() == 3 || (args.size() == 5 && args.at(3) == QLatin1String("--message") &&
                                   (messageId = idFrom(args.at(4), true)) != 0));
    }
    if (!ok) {
        std::fputs("usage: vexa [tg-link] | --open-chat CHAT_ID [--message MESSAGE_ID] | "
                   "--open-chats\n",
                   stderr);
        return 2;
    }
    QString error;
    if (!write_hub_open_request(dataDir(), chatId, messageId, QStringLiteral("command line"),
                                &error)) {
        std::fprintf(stderr, "vexa: open request not written: %s\n", qPrintable(error));
        return 2;
    }
    return 0;
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

    // Icons are drawn from their large PNGs at the screen's pixel ratio, so a
    // fractional scale factor (QT_SCALE_FACTOR=1.5) keeps them sharp.
    QCoreApplication::setAttribute(Qt::AA_UseHighDpiPixmaps);
    auto *app = new QApplication(argc, argv);
    QApplication::setApplicationName(QStringLiteral("vexa"));
    prefer_colour_emoji();

    const QStringList args = QCoreApplication::arguments();
    // An open request travels as a file; the running window (or this one,
    // at start-up) reads it when woken.
    const int request = writeOpenRequest(args);
    if (request == 2) {
        delete app;
        return 2;
    }
    const QString url = request == 1 && args.size() > 1 ? args.at(1) : QString();
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
