// Messages on the single-instance channel, over a real local socket to a
// listening channel, and the link they carry on to the links. Properties: a
// message is the first line of what was sent, never longer than the
// channel's limit and never holding a line break; the link's commands are
// one line each.

#include "chats/chat_list_model.h"
#include "fuzz_common.h"
#include "platform/array_data_model.h"
#include "platform/instance_channel.h"
#include "platform/invoker.h"
#include "shell/links.h"

#include <QEventLoop>
#include <QLocalSocket>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::ensureApp();
    static InstanceChannel *channel = [] {
        auto *c =
            new InstanceChannel(InstanceChannel::server_name_for(fuzz::processTempDir("instance")));
        QString error;
        if (!c->listen(&error))
            fuzz::violated("setup", error);
        return c;
    }();
    static ArrayDataModel rows;
    static ChatListModel chats(&rows);
    static RecordingInvoker invoker;
    static Links *links = [] {
        LinksDeps deps;
        deps.sendLine = [](const QString &line) { fuzz::checkCommandLine(line); };
        deps.isSignedIn = [] { return true; };
        deps.invoker = &invoker;
        deps.chats = &chats;
        deps.dataDir = fuzz::processTempDir("instance");
        return new Links(deps);
    }();

    // Ended by a line feed, so that the channel always answers and closes: the
    // client then waits for that and not for time.
    QByteArray sent = fuzz::bytes(data, size);
    if (!sent.contains('\n'))
        sent.append('\n');
    int received = 0;
    QString url;
    QObject context;
    QObject::connect(channel, &InstanceChannel::urlReceived, &context, [&](const QString &u) {
        ++received;
        url = u;
        links->onInvoked(u);
    });
    QObject::connect(channel, &InstanceChannel::activationRequested, &context, [&] {
        ++received;
        url.clear();
    });

    QLocalSocket client;
    client.connectToServer(channel->serverName());
    client.write(sent);
    // The channel answers and closes, or drops a message that runs too long;
    // either way it has emitted what it will before the close reaches here.
    QEventLoop loop;
    QObject::connect(&client, &QLocalSocket::disconnected, &loop, &QEventLoop::quit);
    if (client.state() != QLocalSocket::UnconnectedState)
        loop.exec();

    const int nl = sent.indexOf('\n');
    const bool oneMessage =
        nl >= 0 && nl <= InstanceChannel::MaxMessageBytes && !sent.left(nl).contains('\r');
    fuzz::check(received == (oneMessage ? 1 : 0), "message count differs",
                QString::number(received));
    if (received == 1) {
        fuzz::check(!url.contains(QLatin1Char('\n')) && !url.contains(QLatin1Char('\r')),
                    "message holds a line break", url);
        fuzz::check(url == QString::fromUtf8(sent.left(nl)), "message is not the first line", url);
    }
    invoker.clear();
    return 0;
}
