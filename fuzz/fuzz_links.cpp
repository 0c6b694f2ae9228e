// Links: a "tg" link handed over from outside, a link tapped in a message
// (web-link rules, "t.me" names) and the open request file. Properties: every
// command is one line, and "resolve" carries exactly one word; only web
// addresses reach the browser; a request written with text from outside
// reads back as the same chat and message.

#include "chats/chat_list_model.h"
#include "fuzz_common.h"
#include "platform/array_data_model.h"
#include "platform/invoker.h"
#include "shell/links.h"

#include <QFile>
#include <QUrl>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::ensureApp();
    const QString dir = fuzz::processTempDir("links");
    const QString input = fuzz::text(data, size);

    ArrayDataModel rows;
    ChatListModel chats(&rows);
    RecordingInvoker invoker;
    QStringList sent;
    LinksDeps deps;
    deps.sendLine = [&sent](const QString &line) {
        fuzz::checkCommandLine(line);
        sent.append(line);
    };
    deps.isSignedIn = [] { return true; };
    deps.chatListRequested = [] { return true; };
    deps.visibleChatId = [] { return qint64(0); };
    deps.invoker = &invoker;
    deps.chats = &chats;
    deps.dataDir = dir;
    Links links(deps);

    links.onInvoked(input);
    links.onResolveAnswered(links.pendingUsername());
    links.onWebLinkActivated(input);
    links.handleTgUrl(QUrl(input), QStringLiteral("web"));

    for (const QString &line : sent) {
        if (line.startsWith(QLatin1String("resolve ")))
            fuzz::check(line.split(QLatin1Char(' ')).size() == 2 &&
                            !line.contains(QLatin1Char('\t')),
                        "resolve carries more than one word", line);
    }
    for (const RecordingInvoker::Request &r : invoker.requests()) {
        const QString scheme = r.url.scheme().toLower();
        fuzz::check(scheme == QLatin1String("http") || scheme == QLatin1String("https"),
                    "a link that is not a web address was opened", r.url.toString());
    }

    // The request file: the reason is free text from outside.
    QString error;
    fuzz::check(write_hub_open_request(dir, -1001234, 77, input, &error), "request not written",
                error);
    links.loadHubOpenRequest();
    fuzz::check(links.hubOpenMode() == QLatin1String("chat") && links.hubChatId() == -1001234 &&
                    links.hubMessageId() == 77,
                "the reason changed the request");
    // The request file itself may be anything.
    {
        QFile file(hub_open_file_path(dir));
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            fuzz::violated("setup", file.fileName());
        file.write(fuzz::bytes(data, size));
    }
    links.loadHubOpenRequest();
    links.tryApplyHubOpenRequest();
    for (const QString &line : sent)
        fuzz::checkCommandLine(line);
    fuzz::checkFilesUnder(dir, {QStringLiteral("hub_open.env")});
    return 0;
}
