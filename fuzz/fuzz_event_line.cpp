// Event lines as the backend appends them to the events file, read by the
// real intake (line assembly, the line cap, JSON) and handed to the
// dispatcher, with the models the controller wires to it: the chat list,
// avatars, the open chat's rows and session, composer, message actions (each
// reaction chip is tapped afterwards), pinned messages, the search in the
// loaded messages, downloads and links. As the controller does
// when told to open the first chat, the first chat row that arrives is
// opened, so later events meet an open conversation.
//
// Properties: every command is one line; files stay in their folders; the
// intake's unterminated rest and the in-app log stay within their caps.

#include "backend_link/app_log.h"
#include "backend_link/event_intake.h"
#include "backend_link/file_tail.h"
#include "chats/avatar_download_queue.h"
#include "chats/chat_list_model.h"
#include "conversation/chat_session.h"
#include "conversation/composer.h"
#include "conversation/message_actions.h"
#include "conversation/message_row_model.h"
#include "conversation/message_search.h"
#include "conversation/pinned_messages.h"
#include "events/event_dispatcher.h"
#include "fuzz_common.h"
#include "media/media_downloads.h"
#include "platform/array_data_model.h"
#include "platform/clipboard.h"
#include "platform/invoker.h"
#include "platform/toaster.h"
#include "shell/links.h"

#include <QFile>

namespace {

class NullToaster : public Toaster
{
public:
    void showToast(const QString &) override {}
};

// Nested, so that a name climbing out of its folder lands in one that is
// checked.
QString worldRoot()
{
    static const QString root = [] {
        const QString r = fuzz::processTempDir("events") + QStringLiteral("/a/b/c/root");
        QDir().mkpath(r);
        return r;
    }();
    return root;
}

void checkNothingAbove(const QString &root)
{
    QDir dir(root);
    const QString top = fuzz::processTempDir("events");
    while (dir.cdUp() && dir.absolutePath().startsWith(top)) {
        const QStringList names =
            dir.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
        fuzz::check(names.size() == 1, "file beside the data folders", dir.absolutePath());
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::ensureApp();
    const QString root = worldRoot();
    const QString dataDir = root + QStringLiteral("/data");
    const QString eventsPath = dataDir + QStringLiteral("/backend_events.jsonl");
    QDir().mkpath(dataDir);
    {
        QFile file(eventsPath);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            fuzz::violated("setup", eventsPath);
        file.write(reinterpret_cast<const char *>(data), qint64(size));
    }

    const auto send = [](const QString &line) { fuzz::checkCommandLine(line); };
    const auto log = [](const QString &) {};
    QObject world;
    NullToaster toaster;
    RecordingInvoker invoker;
    auto *appLog = new AppLog(&world);
    auto *intake = new EventIntake(appLog, &world);
    intake->setEventsFilePath(eventsPath);

    auto *chatRows = new ArrayDataModel(&world);
    auto *chats = new ChatListModel(chatRows, &world);
    auto *avatars = new AvatarDownloadQueue(send, log, &world);
    EventDispatcherDeps deps;
    deps.chats = chats;
    deps.avatars = avatars;
    deps.toaster = &toaster;
    deps.log = appLog;
    deps.sendLine = send;
    deps.dataDir = dataDir;
    auto *dispatcher = new EventDispatcher(deps, &world);
    QObject::connect(intake, &EventIntake::eventReceived, dispatcher,
                     &EventDispatcher::handleEventMap);
    QObject::connect(chats, &ChatListModel::sendLineRequested, &world, send);

    MediaServices media;
    media.sendLine = send;
    media.appendLog = log;
    media.toaster = &toaster;
    media.invoker = &invoker;
    auto *downloads = new MediaDownloads(media, root + QStringLiteral("/shared/downloads/quillo"),
                                         root + QStringLiteral("/shared"), nullptr, &world);

    auto *messageRows = new ArrayDataModel(&world);
    auto *messages = new MessageRowModel(messageRows, chats, avatars, &world);
    auto *session = new ChatSession(messages, chats, &world);
    const auto chatInfo = [dispatcher](qint64 chatId) { return dispatcher->chatInfo(chatId); };
    auto *composer = new Composer(session, chatInfo, &world);
    auto *pinnedRows = new ArrayDataModel(&world);
    auto *pinned = new PinnedMessages(pinnedRows, &world);
    auto *search = new MessageSearch(messageRows, &world);
    RecordingClipboard clipboard;
    auto *actions = new MessageActions(
        session, composer, &clipboard, chatInfo,
        [dispatcher](qint64 userId) { return dispatcher->userDisplayName(userId); }, &world);
    QObject::connect(actions, &MessageActions::sendLineRequested, &world, send);

    QObject::connect(session, &ChatSession::sendLineRequested, &world, send);
    QObject::connect(messages, &MessageRowModel::sendLineRequested, &world, send);
    QObject::connect(composer, &Composer::sendLineRequested, &world, send);
    QObject::connect(pinned, &PinnedMessages::sendLineRequested, &world, send);
    QObject::connect(messages, &MessageRowModel::messageAppended, session,
                     [session] { session->maybeSendReadForCurrentChatAtEnd(); });
    QObject::connect(
        messages, &MessageRowModel::mediaDownloadRequested, downloads,
        [downloads](qint64 fileId) { downloads->enqueueMediaDownload(fileId, false); });
    QObject::connect(dispatcher, &EventDispatcher::messageEvent, session,
                     &ChatSession::handleMessageEvent);
    QObject::connect(dispatcher, &EventDispatcher::currentChatReadOutboxChanged, messages,
                     [messages](qint64 previousId, qint64 newId, bool redrawRows) {
                         if (redrawRows)
                             messages->touchOutgoingRowsForReadOutbox(previousId, newId);
                     });
    QObject::connect(dispatcher, &EventDispatcher::connectionStateChanged, messages,
                     [messages] { messages->touchPendingOutgoingRows(); });
    QObject::connect(dispatcher, &EventDispatcher::avatarReady, messages,
                     [messages](qint64 fileId, const QString &path) {
                         messages->setSenderAvatarPathForFile(fileId, path);
                     });
    QObject::connect(dispatcher, &EventDispatcher::chatInfoChanged, composer,
                     [session, composer](qint64 chatId) {
                         if (chatId == session->chatId())
                             composer->updateComposerVisibilityForCurrentChat();
                     });
    QObject::connect(dispatcher, &EventDispatcher::signedInViewResetRequested, session, [=] {
        composer->clearEdit(false);
        composer->clearReply();
        if (session->chatId() != 0)
            session->onBackToChats();
    });
    dispatcher->setMessageRows(messageRows, messages->historyBatchRows());
    QObject::connect(dispatcher, &EventDispatcher::fileEvent, downloads, [=](const QVariantMap &e) {
        const qint64 fileId = e.value(QStringLiteral("id")).toLongLong();
        if (fileId < 1)
            return;
        if (e.value(QStringLiteral("type")).toString() == QLatin1String("file_progress")) {
            downloads->onFileProgress(fileId, e.value(QStringLiteral("downloaded")).toLongLong(),
                                      e.value(QStringLiteral("total")).toLongLong());
            messages->touchMessageRowsForMediaFileId(fileId);
            return;
        }
        const QString path = e.value(QStringLiteral("path")).toString();
        messages->setMediaPathForFile(fileId, path);
        messages->setMediaThumbPathForFile(fileId, path);
        downloads->onPendingFileDownloaded(fileId, path, QString());
    });
    QObject::connect(
        downloads, &MediaDownloads::mediaRowsNeedRefresh, messages,
        [messages](long long fileId) { messages->touchMessageRowsForMediaFileId(fileId); });
    QObject::connect(downloads, &MediaDownloads::fileSharedPathChanged, messages,
                     [messages](long long fileId, const QString &path) {
                         messages->setFileSharedPathForFile(fileId, path);
                     });
    QObject::connect(dispatcher, &EventDispatcher::pinnedEvent, pinned,
                     &PinnedMessages::handleEvent);
    QObject::connect(pinned, &PinnedMessages::jumpRequested, session, &ChatSession::jumpToMessage);
    QObject::connect(session, &ChatSession::olderPageInserted, search,
                     [search] { search->onOlderPageLoaded(); });
    QObject::connect(session, &ChatSession::chatOpened, dispatcher,
                     [=](qint64 chatId, const QString &, const QVariantMap &row) {
                         dispatcher->setCurrentChat(
                             chatId, row.value(QStringLiteral("chat_type")).toString());
                         dispatcher->updateChatHeaderSubtitleForCurrentChat();
                         pinned->setChatId(chatId);
                         search->close();
                     });
    QObject::connect(session, &ChatSession::chatClosed, dispatcher, [=] {
        dispatcher->setCurrentChat(0, QString());
        pinned->setChatId(0);
        search->close();
    });

    LinksDeps linkDeps;
    linkDeps.sendLine = send;
    linkDeps.isSignedIn = [dispatcher] { return dispatcher->isAuthorized(); };
    linkDeps.chatListRequested = [dispatcher] { return dispatcher->chatListRequested(); };
    linkDeps.visibleChatId = [session] { return session->chatId(); };
    linkDeps.toaster = &toaster;
    linkDeps.invoker = &invoker;
    linkDeps.chats = chats;
    linkDeps.dataDir = dataDir;
    auto *links = new Links(linkDeps, &world);
    QObject::connect(dispatcher, &EventDispatcher::openChatRequested, links,
                     &Links::onResolvedChat);
    QObject::connect(intake, &EventIntake::eventReceived, links, [links](const QVariantMap &e) {
        const QString type = e.value(QStringLiteral("type")).toString();
        if (type == QLatin1String("tg_resolve") || type == QLatin1String("tg_resolve_error"))
            links->onResolveAnswered(e.value(QStringLiteral("username")).toString());
    });
    QObject::connect(dispatcher, &EventDispatcher::authStateChanged, links,
                     [links](const QString &, bool authorized) {
                         if (authorized)
                             links->tryResolvePendingTg();
                     });
    QObject::connect(dispatcher, &EventDispatcher::hubOpenRequestCheckRequested, links,
                     &Links::tryApplyHubOpenRequest);
    QObject::connect(links, &Links::openChatRequested, session,
                     [session](const QVariantMap &row, qint64 messageId) {
                         if (messageId >= 1)
                             session->openChatAtMessage(row, messageId);
                         else
                             session->openChatFromRow(row);
                     });
    QObject::connect(links, &Links::jumpRequested, session, &ChatSession::jumpToMessage);
    // Open the first chat once the list has one, as the controller does.
    QObject::connect(dispatcher, &EventDispatcher::hubOpenRequestCheckRequested, session, [=] {
        if (session->chatId() == 0 && !chats->isBulkLoading() && chats->size() > 0)
            session->openChatFromRow(chats->rowAt(0));
    });

    intake->onPoll();
    // A tap on each reaction chip the events put under a message.
    for (int i = 0; i < messageRows->size(); ++i) {
        const QVariantMap row = messageRows->value(i);
        const qint64 id = row.value(QStringLiteral("id")).toLongLong();
        const QVariantList chips = row.value(QStringLiteral("reactions")).toList();
        for (const QVariant &chip : chips)
            actions->onReactionChipTapped(id,
                                          chip.toMap().value(QStringLiteral("emoji")).toString());
    }

    fuzz::check(intake->eventsPartialLineBytes() <= FileTail::kMaxLineBytes,
                "events rest beyond the line cap");
    fuzz::check(appLog->buffer().size() <= AppLog::kMaxBufferChars, "in-app log beyond its cap");
    const QStringList top = QDir(root).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    for (const QString &name : top)
        fuzz::check(name == QLatin1String("data") || name == QLatin1String("shared"),
                    "file outside the data folders", name);
    checkNothingAbove(root);
    return 0;
}
