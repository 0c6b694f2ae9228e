#include "events/event_dispatcher.h"

#include "backend_link/app_log.h"
#include "backend_link/json_keys.h"
#include "backend_link/text_cut.h"
#include "chats/avatar_download_queue.h"
#include "chats/avatars.h"
#include "chats/chat_list_model.h"
#include "platform/toaster.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

qint64 i64(const QVariantMap &e, const char *key)
{
    return e.value(QLatin1String(key)).toLongLong();
}

int i32(const QVariantMap &e, const char *key)
{
    return e.value(QLatin1String(key)).toInt();
}

QString str(const QVariantMap &e, const char *key)
{
    return e.value(QLatin1String(key)).toString();
}

bool flag(const QVariantMap &e, const char *key)
{
    return e.value(QLatin1String(key)).toBool();
}

QString boolText(bool b)
{
    return b ? QStringLiteral("true") : QStringLiteral("false");
}

QString num(qint64 v)
{
    return QString::number(v);
}

// A word that goes into a command line as it is: no blanks, no line breaks,
// no control characters.
bool isSafeCommandWord(const QString &word)
{
    if (word.isEmpty()) {
        return false;
    }
    for (const QChar c : word) {
        if (c.isSpace() || c.category() == QChar::Other_Control) {
            return false;
        }
    }
    return true;
}

} // namespace

const EventDispatcher::Entry EventDispatcher::kTable[] = {
    {"backend_ready", &EventDispatcher::onBackendReady},
    {"auth_state", &EventDispatcher::onAuthState},
    {"need", &EventDispatcher::onNeed},
    {"code_info", &EventDispatcher::onCodeInfo},
    {"td_error", &EventDispatcher::onTdError},
    {"reaction_ok", &EventDispatcher::onReactionOk},
    {"reaction_error", &EventDispatcher::onReactionError},
    {"call_update", &EventDispatcher::onCallUpdate},
    {"call_signaling", &EventDispatcher::onCallSignaling},
    {"message_properties", &EventDispatcher::onMessageEvent},
    {"message_properties_error", &EventDispatcher::onMessageEvent},
    {"edit_error", &EventDispatcher::onEditError},
    {"delete_error", &EventDispatcher::onDeleteError},
    {"me", &EventDispatcher::onMe},
    {"user", &EventDispatcher::onUser},
    {"chats_begin", &EventDispatcher::onChatsBegin},
    {"chat", &EventDispatcher::onChat},
    {"tg_resolve_error", &EventDispatcher::onTgResolveError},
    {"tg_resolve", &EventDispatcher::onTgResolve},
    {"file_progress", &EventDispatcher::onFileEvent},
    {"file", &EventDispatcher::onFile},
    {"hub_notify_message", &EventDispatcher::onIgnored},
    {"chat_title", &EventDispatcher::onChatTitle},
    {"chat_last_message", &EventDispatcher::onChatLastMessage},
    {"chat_position", &EventDispatcher::onChatPosition},
    {"chat_unread", &EventDispatcher::onChatUnread},
    {"chat_online_count", &EventDispatcher::onChatOnlineCount},
    {"chat_read_outbox", &EventDispatcher::onChatReadOutbox},
    {"chat_notify", &EventDispatcher::onChatNotify},
    {"chat_info", &EventDispatcher::onChatInfo},
    {"chat_info_error", &EventDispatcher::onChatInfoError},
    {"chat_mute_toggled", &EventDispatcher::onChatMuteToggled},
    {"history_cleared", &EventDispatcher::onHistoryCleared},
    {"chat_left", &EventDispatcher::onChatLeft},
    {"chat_joined", &EventDispatcher::onChatJoined},
    {"chat_deleted", &EventDispatcher::onChatDeleted},
    {"action_error", &EventDispatcher::onActionError},
    {"search_begin", &EventDispatcher::onSearchBegin},
    {"search_chat", &EventDispatcher::onSearchChat},
    {"search_end", &EventDispatcher::onSearchEnd},
    {"connection_state", &EventDispatcher::onConnectionState},
    {"pinned_message", &EventDispatcher::onPinnedEvent},
    {"pinned_none", &EventDispatcher::onPinnedEvent},
    {"pinned_list_begin", &EventDispatcher::onPinnedEvent},
    {"pinned_list_item", &EventDispatcher::onPinnedEvent},
    {"pinned_list_end", &EventDispatcher::onPinnedEvent},
    {"chats_end", &EventDispatcher::onChatsEnd},
    {"history_begin", &EventDispatcher::onMessageEvent},
    {"history_clear", &EventDispatcher::onMessageEvent},
    {"message", &EventDispatcher::onMessageEvent},
    {"message_update", &EventDispatcher::onMessageUpdate},
    {"message_reactions", &EventDispatcher::onMessageEvent},
    {"messages_deleted", &EventDispatcher::onMessageEvent},
    {"message_send_acked", &EventDispatcher::onMessageEvent},
    {"message_send_failed", &EventDispatcher::onMessageEvent},
    {"message_send_succeeded", &EventDispatcher::onMessageEvent},
    {"message_new", &EventDispatcher::onMessageNew},
    {"history_end", &EventDispatcher::onMessageEvent},
    {"send_ok", &EventDispatcher::onSendOk},
    {"td_closed", &EventDispatcher::onTdClosed},
};

const int EventDispatcher::kTableSize = int(sizeof(kTable) / sizeof(kTable[0]));

EventDispatcher::EventDispatcher(const EventDispatcherDeps &deps, QObject *parent)
    : QObject(parent), m_deps(deps)
{
}

QStringList EventDispatcher::eventTypes()
{
    QStringList types;
    for (int i = 0; i < kTableSize; ++i) {
        types.append(QString::fromLatin1(kTable[i].type));
    }
    return types;
}

void EventDispatcher::handleEventMap(const QVariantMap &event)
{
    if (event.isEmpty()) {
        return;
    }
    const QString type = event.value(QStringLiteral("type")).toString();
    for (const Entry &entry : kTable) {
        if (type == QLatin1String(entry.type)) {
            const Handler handler = entry.handler;
            (this->*handler)(event);
            return;
        }
    }
}

void EventDispatcher::setCurrentChat(qint64 chatId, const QString &chatType)
{
    m_currentChatId = chatId;
    m_currentChatType = chatType;
}

void EventDispatcher::setMessageRows(ArrayDataModel *messages, QList<QVariantMap> *buffered)
{
    m_messages = messages;
    m_buffered = buffered;
}

// --- helpers ---

void EventDispatcher::setStatus(const QString &text)
{
    m_statusText = text;
    Q_EMIT statusTextChanged(text);
}

void EventDispatcher::log(const QString &text)
{
    if (m_deps.log) {
        m_deps.log->appendLog(text);
    }
}

void EventDispatcher::fileLog(const QString &text)
{
    if (m_deps.log) {
        m_deps.log->appendUiFileLog(text);
    }
}

void EventDispatcher::toast(const QString &text)
{
    if (m_deps.toaster) {
        m_deps.toaster->showToast(text);
    }
}

void EventDispatcher::send(const QString &line)
{
    if (m_deps.sendLine) {
        m_deps.sendLine(line);
    }
}

void EventDispatcher::enqueueAvatar(qint64 fileId)
{
    if (m_deps.avatars) {
        m_deps.avatars->enqueueAvatarDownload(fileId);
    }
}

QString EventDispatcher::currentChatType() const
{
    if (!m_currentChatType.isEmpty()) {
        return m_currentChatType;
    }
    if (m_deps.chats) {
        return m_deps.chats->chatRowById(m_currentChatId)
            .value(QStringLiteral("chat_type"))
            .toString();
    }
    return QString();
}

void EventDispatcher::updateChatHeaderSubtitleForCurrentChat()
{
    QString text;
    if (m_currentChatId != 0) {
        text = m_presence.chatHeaderSubtitle(currentChatType(), m_chatInfo.value(m_currentChatId));
    }
    Q_EMIT chatHeaderSubtitleChanged(text);
}

int EventDispatcher::updateSenderInfoForUser(qint64 userId, const QString &name,
                                             qint64 photoSmallId)
{
    return m_presence.updateSenderInfoForUser(m_messages, m_buffered, userId, name, photoSmallId);
}

QVariantMap EventDispatcher::chatRowFromEvent(const QVariantMap &e) const
{
    QVariantMap row;
    row.insert(QStringLiteral("id"), num(i64(e, "id")));
    if (e.contains(QStringLiteral("title"))) {
        row.insert(QStringLiteral("title"), str(e, "title"));
    }
    if (e.contains(QStringLiteral("chat_type"))) {
        row.insert(QStringLiteral("chat_type"), str(e, "chat_type"));
    }
    // The public name, when the backend tells it, lets the chat search find
    // the chat by it.
    if (e.contains(QStringLiteral("username"))) {
        row.insert(QStringLiteral("username"), str(e, "username"));
    }
    if (e.contains(QStringLiteral("muted_known"))) {
        row.insert(QStringLiteral("muted_known"), boolText(flag(e, "muted_known")));
    }
    if (e.contains(QStringLiteral("muted"))) {
        row.insert(QStringLiteral("muted"), boolText(flag(e, "muted")));
    }
    const qint64 photo = i64(e, "photo_small_id");
    if (photo != 0) {
        row.insert(QStringLiteral("photo_small_id"), num(photo));
        const QString avatar = m_presence.avatarPath(photo);
        if (!avatar.isEmpty()) {
            row.insert(QStringLiteral("avatar_path"), avatar);
        }
    }
    const qint64 order = i64(e, "order");
    if (order != 0) {
        row.insert(QStringLiteral("order"), num(order));
    }
    if (e.contains(QStringLiteral("pinned"))) {
        row.insert(QStringLiteral("pinned"), boolText(flag(e, "pinned")));
    }
    if (e.contains(QStringLiteral("unread_count"))) {
        row.insert(QStringLiteral("unread_count"), num(i32(e, "unread_count")));
    }
    if (e.contains(QStringLiteral("last_text"))) {
        row.insert(QStringLiteral("last_text"), chat_list_preview_text(str(e, "last_text")));
    }
    if (e.contains(QStringLiteral("last_content_type"))) {
        row.insert(QStringLiteral("last_content_type"), str(e, "last_content_type"));
    }
    if (e.contains(QStringLiteral("last_date"))) {
        row.insert(QStringLiteral("last_date"), num(i64(e, "last_date")));
    }
    if (e.contains(QStringLiteral("last_message_id"))) {
        row.insert(QStringLiteral("last_message_id"), num(i64(e, "last_message_id")));
    }
    if (e.contains(QStringLiteral("last_outgoing"))) {
        row.insert(QStringLiteral("last_outgoing"), boolText(flag(e, "last_outgoing")));
    }
    if (e.contains(QStringLiteral("last_read_outbox_message_id"))) {
        row.insert(QStringLiteral("last_read_outbox_message_id"),
                   num(i64(e, "last_read_outbox_message_id")));
    }
    return row;
}

void EventDispatcher::toastResolveFailure(const QString &username, const QString &message)
{
    if (username.isEmpty()) {
        toast(QStringLiteral("Can't open Telegram link"));
        return;
    }
    QString text = QStringLiteral("Can't open @%1").arg(username);
    if (!message.isEmpty()) {
        text += QStringLiteral(": %1").arg(message);
    }
    toast(text);
}

void EventDispatcher::clearPendingIfAnswered(const QString &username)
{
    if (!m_pendingResolve.isEmpty() &&
        m_pendingResolve.compare(username, Qt::CaseInsensitive) == 0) {
        m_pendingResolve.clear();
    }
}

// --- handlers, in table order ---

void EventDispatcher::onBackendReady(const QVariantMap &)
{
    setStatus(QStringLiteral("Backend ready"));
}

void EventDispatcher::onAuthState(const QVariantMap &e)
{
    const QString state = str(e, "state");
    setStatus(QStringLiteral("Auth: ") + state);
    const bool ready = state == QLatin1String("Ready");
    if (!ready) {
        m_me = OwnProfile();
        Q_EMIT meChanged(m_me);
        Q_EMIT signedInViewResetRequested();
    }
    m_authorized = ready;
    Q_EMIT authStateChanged(state, ready);
    if (ready) {
        if (!m_chatsRequested) {
            m_chatsRequested = true;
            send(QStringLiteral("chats 60"));
        }
    }
    const QString pending = m_pendingResolve.trimmed();
    if (!pending.isEmpty() && isSafeCommandWord(pending)) {
        log(QStringLiteral("ui: tg resolve send username=%1\n").arg(pending));
        send(QStringLiteral("resolve %1").arg(pending));
    }
    Q_EMIT hubOpenRequestCheckRequested();
}

void EventDispatcher::onNeed(const QVariantMap &e)
{
    const QString what = str(e, "what");
    setStatus(QStringLiteral("Need: ") + what);
}

void EventDispatcher::onCodeInfo(const QVariantMap &e)
{
    const QString delivery = str(e, "delivery");
    log(QStringLiteral("[event] code_info delivery=%1\n").arg(delivery));
}

void EventDispatcher::onTdError(const QVariantMap &e)
{
    const QByteArray json = str(e, "json").toUtf8();
    QJsonDocument doc;
    if (!json_repeats_key(json))
        doc = QJsonDocument::fromJson(json);
    if (!doc.isObject()) {
        log(QStringLiteral("[event] td_error\n"));
        return;
    }
    const QVariantMap obj = doc.object().toVariantMap();
    const QString message = obj.value(QStringLiteral("message")).toString();
    const QString extra = obj.value(QStringLiteral("@extra")).toString();
    if (extra.isEmpty()) {
        log(QStringLiteral("[event] td_error\n"));
        return;
    }
    static const char *const userFacing[] = {
        "sendvideonote:", "sendvoice:", "sendfile:", "send:", "react:"};
    for (const char *prefix : userFacing) {
        if (extra.startsWith(QLatin1String(prefix))) {
            toast(message);
            break;
        }
    }
    log(QStringLiteral("[event] td_error extra=%1 message=%2\n").arg(extra, message));
}

void EventDispatcher::onReactionOk(const QVariantMap &e)
{
    const QString chat = num(i64(e, "chat_id"));
    const QString id = num(i64(e, "id"));
    const QString mode = str(e, "mode");
    fileLog(QStringLiteral("react: ok chat_id=%1 msg_id=%2 mode=%3\n").arg(chat, id, mode));
    log(QStringLiteral("[event] reaction_ok chat_id=%1 msg_id=%2 mode=%3\n").arg(chat, id, mode));
}

void EventDispatcher::onReactionError(const QVariantMap &e)
{
    const QString chat = num(i64(e, "chat_id"));
    const QString id = num(i64(e, "id"));
    const QString mode = str(e, "mode");
    const QString code = num(i32(e, "code"));
    const QString message = str(e, "message");
    fileLog(QStringLiteral("react: error chat_id=%1 msg_id=%2 mode=%3 code=%4 msg=%5\n")
                .arg(chat, id, mode, code, left_code_points(message, 200)));
    log(QStringLiteral("[event] reaction_error chat_id=%1 msg_id=%2 mode=%3 code=%4 message=%5\n")
            .arg(chat, id, mode, code, message));
    toast(message.isEmpty() ? QStringLiteral("Reaction failed") : message);
}

void EventDispatcher::onCallUpdate(const QVariantMap &e)
{
    log(QStringLiteral("[event] call_update call_id=%1 user_id=%2 outgoing=%3 state=%4\n")
            .arg(num(i64(e, "call_id")), num(i64(e, "user_id")), boolText(flag(e, "outgoing")),
                 str(e, "state")));
}

void EventDispatcher::onCallSignaling(const QVariantMap &e)
{
    log(QStringLiteral("[event] call_signaling call_id=%1 b64_len=%2\n")
            .arg(num(i64(e, "call_id")), num(i32(e, "b64_len"))));
}

void EventDispatcher::onMessageEvent(const QVariantMap &e)
{
    Q_EMIT messageEvent(e);
}

void EventDispatcher::onEditError(const QVariantMap &e)
{
    const QString message = str(e, "message");
    log(QStringLiteral("[event] edit_error code=%1 msg=%2\n").arg(num(i32(e, "code")), message));
    toast(message.isEmpty() ? QStringLiteral("Edit failed")
                            : QStringLiteral("Edit failed: ") + message);
}

void EventDispatcher::onDeleteError(const QVariantMap &e)
{
    const QString message = str(e, "message");
    log(QStringLiteral("[event] delete_error code=%1 msg=%2\n").arg(num(i32(e, "code")), message));
    toast(message.isEmpty() ? QStringLiteral("Delete failed")
                            : QStringLiteral("Delete failed: ") + message);
}

void EventDispatcher::onMe(const QVariantMap &e)
{
    OwnProfile me;
    me.id = str(e, "id").trimmed().toLongLong();
    me.firstName = str(e, "first_name").trimmed();
    me.lastName = str(e, "last_name").trimmed();
    me.username = str(e, "username").trimmed();
    me.phone = str(e, "phone").trimmed();
    me.photoSmallId = i64(e, "photo_small_id");
    me.displayName = QString(me.firstName + QLatin1Char(' ') + me.lastName).trimmed();
    if (me.photoSmallId > 0) {
        me.avatarPath = m_presence.avatarPath(me.photoSmallId);
    }
    m_me = me;
    Q_EMIT meDebugTextChanged(QStringLiteral("ME id=%1").arg(me.id));
    Q_EMIT meChanged(m_me);
    if (me.id != 0) {
        m_userNames.insert(me.id, me.displayName);
    }
    enqueueAvatar(me.photoSmallId);
}

void EventDispatcher::onUser(const QVariantMap &e)
{
    const qint64 id = i64(e, "id");
    const QString name = str(e, "name");
    const qint64 photo = i64(e, "photo_small_id");
    const QString presence = Presence::formatUserStatusText(
        str(e, "status_type"), i64(e, "was_online"), i64(e, "expires"));
    m_presence.setStatusText(id, presence);
    if (id != 0 && !name.trimmed().isEmpty()) {
        m_userNames.insert(id, name.trimmed());
    }
    updateSenderInfoForUser(id, name, photo);
    if (id != 0 && id == m_me.id) {
        if (!name.trimmed().isEmpty()) {
            m_me.displayName = name.trimmed();
        }
        if (photo > 0) {
            m_me.photoSmallId = photo;
            m_me.avatarPath = m_presence.avatarPath(photo);
            enqueueAvatar(photo);
        }
        Q_EMIT meChanged(m_me);
    }
    if (m_currentChatId != 0) {
        const QString type = currentChatType();
        if ((type == QLatin1String("private") || type == QLatin1String("secret")) &&
            m_chatInfo.value(m_currentChatId).value(QStringLiteral("peer_user_id")).toLongLong() ==
                id) {
            updateChatHeaderSubtitleForCurrentChat();
        }
    }
}

void EventDispatcher::onChatsBegin(const QVariantMap &)
{
    if (m_deps.chats) {
        m_deps.chats->beginBulkLoad();
    }
    if (m_deps.avatars) {
        m_deps.avatars->clear();
        // "me" arrives before the list: its photo must not be lost with the queue.
        if (m_me.photoSmallId > 0 && m_me.avatarPath.isEmpty()) {
            m_deps.avatars->enqueueAvatarDownload(m_me.photoSmallId);
        }
    }
    log(QStringLiteral("[event] chats_begin\n"));
}

void EventDispatcher::onChat(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "id");
    const QVariantMap row = chatRowFromEvent(e);
    const bool hasReadOutbox = e.contains(QStringLiteral("last_read_outbox_message_id"));
    const qint64 readOutbox = i64(e, "last_read_outbox_message_id");
    qint64 previousReadOutbox = 0;
    if (m_deps.chats && chatId != 0) {
        if (e.contains(QStringLiteral("title"))) {
            m_deps.chats->setTitleForChat(chatId, str(e, "title"));
        }
        previousReadOutbox = m_deps.chats->lastReadOutboxForChat(chatId);
        if (hasReadOutbox) {
            m_deps.chats->setLastReadOutboxForChat(chatId, readOutbox);
        }
        m_deps.chats->upsertChatRow(row);
    }
    enqueueAvatar(i64(e, "photo_small_id"));
    Q_EMIT hubOpenRequestCheckRequested();
    if (isCurrentChat(chatId) && hasReadOutbox) {
        Q_EMIT currentChatReadOutboxChanged(previousReadOutbox, readOutbox, false);
    }
}

void EventDispatcher::onTgResolveError(const QVariantMap &e)
{
    const QString username = str(e, "username");
    const QString message = str(e, "message");
    log(QStringLiteral("ui: tg_resolve_error username=%1 code=%2 msg=%3\n")
            .arg(username, num(i32(e, "code")), message));
    toastResolveFailure(username, message);
    clearPendingIfAnswered(username);
}

void EventDispatcher::onTgResolve(const QVariantMap &e)
{
    const QString username = str(e, "username");
    const qint64 chatId = i64(e, "chat_id");
    log(QStringLiteral("ui: tg_resolve username=%1 chat_id=%2\n").arg(username, num(chatId)));
    clearPendingIfAnswered(username);
    if (chatId == 0) {
        toastResolveFailure(username, str(e, "message"));
        return;
    }
    QString title = str(e, "title");
    if (title.isEmpty()) {
        title = username.isEmpty() ? QStringLiteral("Chat") : QStringLiteral("@") + username;
    }
    QVariantMap row;
    row.insert(QStringLiteral("id"), num(chatId));
    row.insert(QStringLiteral("title"), title);
    row.insert(QStringLiteral("chat_type"), str(e, "chat_type"));
    const qint64 photo = i64(e, "photo_small_id");
    row.insert(QStringLiteral("photo_small_id"), num(photo));
    enqueueAvatar(photo);
    Q_EMIT openChatRequested(row);
}

void EventDispatcher::onFileEvent(const QVariantMap &e)
{
    Q_EMIT fileEvent(e);
}

void EventDispatcher::onFile(const QVariantMap &e)
{
    const qint64 fileId = i64(e, "id");
    const QString path = str(e, "path");
    const bool isAvatar =
        fileId > 0 &&
        ((m_deps.chats && m_deps.chats->isAvatarFileIdUsed(fileId)) ||
         (m_deps.avatars && m_deps.avatars->wasRequested(fileId)) || fileId == m_me.photoSmallId);
    if (isAvatar) {
        const QString round = ensureRoundedAvatarPng(fileId, path, m_deps.dataDir);
        m_presence.setAvatarPath(fileId, round);
        if (m_deps.chats) {
            m_deps.chats->setAvatarPathForFile(fileId, round);
        }
        if (fileId == m_me.photoSmallId && m_me.avatarPath != round) {
            m_me.avatarPath = round;
            Q_EMIT meChanged(m_me);
        }
        Q_EMIT avatarReady(fileId, round);
    }
    Q_EMIT fileEvent(e);
}

void EventDispatcher::refetchMissingAvatars()
{
    m_presence.forgetMissingAvatarPaths();
    // The queue asks for each photo once; these must be asked for again.
    if (m_deps.avatars) {
        m_deps.avatars->clear();
    }
    if (!m_me.avatarPath.isEmpty() && !QFileInfo::exists(m_me.avatarPath)) {
        m_me.avatarPath.clear();
        Q_EMIT meChanged(m_me);
    }
    if (m_me.photoSmallId > 0 && m_me.avatarPath.isEmpty()) {
        enqueueAvatar(m_me.photoSmallId);
    }
    if (m_deps.chats) {
        for (qint64 photo : m_deps.chats->forgetMissingAvatars()) {
            enqueueAvatar(photo);
        }
    }
}

void EventDispatcher::onIgnored(const QVariantMap &) {}

void EventDispatcher::onChatTitle(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "chat_id");
    const QString title = str(e, "title");
    if (m_deps.chats && m_deps.chats->containsChat(chatId)) {
        m_deps.chats->setTitleForChat(chatId, title);
        QVariantMap row;
        row.insert(QStringLiteral("id"), num(chatId));
        row.insert(QStringLiteral("title"), title);
        m_deps.chats->upsertChatRow(row);
    }
    if (isCurrentChat(chatId)) {
        Q_EMIT currentChatTitleChanged(title);
    }
}

void EventDispatcher::onChatLastMessage(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "chat_id");
    if (!m_deps.chats || !m_deps.chats->containsChat(chatId)) {
        return;
    }
    QVariantMap row;
    row.insert(QStringLiteral("id"), num(chatId));
    row.insert(QStringLiteral("last_message_id"), num(i64(e, "message_id")));
    const qint64 date = i64(e, "date");
    if (date > 0) {
        row.insert(QStringLiteral("last_date"), num(date));
    }
    row.insert(QStringLiteral("last_content_type"), str(e, "content_type"));
    row.insert(QStringLiteral("last_text"), chat_list_preview_text(str(e, "text")));
    row.insert(QStringLiteral("last_outgoing"), boolText(flag(e, "outgoing")));
    m_deps.chats->upsertChatRow(row);
}

void EventDispatcher::onChatPosition(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "chat_id");
    if (chatId == 0 || !m_deps.chats) {
        return;
    }
    const qint64 order = i64(e, "order");
    if (order == 0) {
        m_deps.chats->removeChatById(chatId);
        return;
    }
    if (!m_deps.chats->containsChat(chatId)) {
        return;
    }
    QVariantMap row;
    row.insert(QStringLiteral("id"), num(chatId));
    row.insert(QStringLiteral("order"), num(order));
    row.insert(QStringLiteral("pinned"), boolText(flag(e, "pinned")));
    m_deps.chats->upsertChatRow(row);
}

void EventDispatcher::onChatUnread(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "chat_id");
    if (!m_deps.chats || !m_deps.chats->containsChat(chatId)) {
        return;
    }
    QVariantMap row;
    row.insert(QStringLiteral("id"), num(chatId));
    row.insert(QStringLiteral("unread_count"), num(i32(e, "unread_count")));
    m_deps.chats->upsertChatRow(row);
}

void EventDispatcher::onChatOnlineCount(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "chat_id");
    if (chatId == 0) {
        return;
    }
    m_chatInfo[chatId].insert(QStringLiteral("online_count"), i64(e, "count"));
    if (isCurrentChat(chatId)) {
        updateChatHeaderSubtitleForCurrentChat();
    }
    Q_EMIT chatInfoChanged(chatId);
}

void EventDispatcher::onChatReadOutbox(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "chat_id");
    if (chatId == 0 || !m_deps.chats) {
        return;
    }
    const qint64 readId = i64(e, "last_read_outbox_message_id");
    const qint64 previous = m_deps.chats->lastReadOutboxForChat(chatId);
    m_deps.chats->setLastReadOutboxForChat(chatId, readId);
    if (m_deps.chats->containsChat(chatId)) {
        QVariantMap row;
        row.insert(QStringLiteral("id"), num(chatId));
        row.insert(QStringLiteral("last_read_outbox_message_id"), num(readId));
        m_deps.chats->upsertChatRow(row);
    }
    if (isCurrentChat(chatId)) {
        Q_EMIT currentChatReadOutboxChanged(previous, readId, true);
    }
}

void EventDispatcher::onChatNotify(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "chat_id");
    if (m_deps.chats && m_deps.chats->containsChat(chatId)) {
        QVariantMap row;
        row.insert(QStringLiteral("id"), num(chatId));
        row.insert(QStringLiteral("muted_known"), boolText(flag(e, "muted_known")));
        row.insert(QStringLiteral("muted"), boolText(flag(e, "muted")));
        m_deps.chats->upsertChatRow(row);
    }
    if (chatId != 0) {
        Q_EMIT chatInfoChanged(chatId);
    }
}

void EventDispatcher::onChatInfo(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "chat_id");
    if (chatId == 0) {
        return;
    }
    QVariantMap &info = m_chatInfo[chatId];
    info.insert(QStringLiteral("about"), str(e, "about"));
    info.insert(QStringLiteral("username"), str(e, "username"));
    info.insert(QStringLiteral("link"), str(e, "link"));
    info.insert(QStringLiteral("phone"), str(e, "phone"));
    info.insert(QStringLiteral("member_count"), i64(e, "member_count"));
    info.insert(QStringLiteral("peer_user_id"), i64(e, "user_id"));
    info.insert(QStringLiteral("is_member"), flag(e, "is_member"));
    info.insert(QStringLiteral("can_send"), flag(e, "can_send"));
    info.insert(QStringLiteral("available_reactions_all"), flag(e, "available_reactions_all"));
    info.insert(QStringLiteral("available_reactions"),
                e.value(QStringLiteral("available_reactions")));
    if (isCurrentChat(chatId)) {
        updateChatHeaderSubtitleForCurrentChat();
    }
    Q_EMIT chatInfoChanged(chatId);
}

void EventDispatcher::onChatInfoError(const QVariantMap &e)
{
    const QString message = str(e, "message");
    toast(message.isEmpty() ? QStringLiteral("Chat info failed (%1)").arg(i32(e, "code"))
                            : message);
}

void EventDispatcher::onChatMuteToggled(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "chat_id");
    const bool muted = flag(e, "muted");
    toast(muted ? QStringLiteral("Muted") : QStringLiteral("Unmuted"));
    if (m_deps.chats && m_deps.chats->containsChat(chatId)) {
        QVariantMap row;
        row.insert(QStringLiteral("id"), num(chatId));
        row.insert(QStringLiteral("muted_known"), QStringLiteral("true"));
        row.insert(QStringLiteral("muted"), boolText(muted));
        m_deps.chats->upsertChatRow(row);
    }
    if (chatId != 0) {
        Q_EMIT chatInfoChanged(chatId);
    }
}

void EventDispatcher::onHistoryCleared(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "chat_id");
    if (chatId == 0) {
        return;
    }
    toast(QStringLiteral("History cleared"));
    if (isCurrentChat(chatId)) {
        send(QStringLiteral("history %1 30").arg(chatId));
    }
}

void EventDispatcher::onChatLeft(const QVariantMap &e)
{
    dropChat(i64(e, "chat_id"), QStringLiteral("Left"));
}

// Leaving and deleting both take the chat off the list and out of view.
void EventDispatcher::dropChat(qint64 chatId, const QString &toastText)
{
    toast(toastText);
    if (m_deps.chats) {
        m_deps.chats->removeChatById(chatId);
    }
    if (isCurrentChat(chatId)) {
        Q_EMIT backToChatsRequested();
    }
}

void EventDispatcher::onChatJoined(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "chat_id");
    toast(QStringLiteral("Joined"));
    if (chatId != 0) {
        m_chatInfo[chatId].insert(QStringLiteral("is_member"), true);
    }
    send(QStringLiteral("chats 60"));
    if (chatId != 0) {
        Q_EMIT chatInfoChanged(chatId);
    }
}

void EventDispatcher::onChatDeleted(const QVariantMap &e)
{
    dropChat(i64(e, "chat_id"), QStringLiteral("Deleted"));
}

void EventDispatcher::onActionError(const QVariantMap &e)
{
    const QString message = str(e, "message");
    toast(message.isEmpty() ? QStringLiteral("Action failed")
                            : QStringLiteral("Action failed: %1").arg(message));
}

void EventDispatcher::onSearchBegin(const QVariantMap &e)
{
    const qint64 req = i64(e, "req");
    if (req == 0 || req != m_searchReq) {
        return;
    }
    m_searchRows.clear();
}

void EventDispatcher::onSearchChat(const QVariantMap &e)
{
    const qint64 req = i64(e, "req");
    if (req == 0 || req != m_searchReq) {
        return;
    }
    QVariantMap row;
    row.insert(QStringLiteral("id"), num(i64(e, "id")));
    row.insert(QStringLiteral("title"), str(e, "title"));
    row.insert(QStringLiteral("chat_type"), str(e, "chat_type"));
    const qint64 photo = i64(e, "photo_small_id");
    row.insert(QStringLiteral("photo_small_id"), num(photo));
    m_searchRows.append(row);
    enqueueAvatar(photo);
}

void EventDispatcher::onSearchEnd(const QVariantMap &e)
{
    const qint64 req = i64(e, "req");
    if (req == 0 || req != m_searchReq) {
        return;
    }
    if (m_searchRows.isEmpty()) {
        toast(QStringLiteral("No matches"));
        return;
    }
    Q_EMIT chatSearchResultsReady(m_searchRows);
}

void EventDispatcher::onConnectionState(const QVariantMap &e)
{
    QString state = str(e, "state");
    if (state.isEmpty()) {
        state = QStringLiteral("unknown");
    }
    m_connectionState = state;
    Q_EMIT connectionStateChanged(state);
}

void EventDispatcher::onPinnedEvent(const QVariantMap &e)
{
    Q_EMIT pinnedEvent(e);
}

void EventDispatcher::onChatsEnd(const QVariantMap &)
{
    log(QStringLiteral("[event] chats_end\n"));
    if (m_deps.chats) {
        m_deps.chats->endBulkLoad();
    }
    Q_EMIT hubOpenRequestCheckRequested();
}

void EventDispatcher::onMessageUpdate(const QVariantMap &e)
{
    const qint64 chatId = i64(e, "chat_id");
    const qint64 id = i64(e, "id");
    if (m_deps.chats && id != 0 && m_deps.chats->lastMessageIdForChat(chatId) == id &&
        m_deps.chats->containsChat(chatId)) {
        QVariantMap row;
        row.insert(QStringLiteral("id"), num(chatId));
        row.insert(QStringLiteral("last_text"), chat_list_preview_text(str(e, "text")));
        m_deps.chats->upsertChatRow(row);
    }
    Q_EMIT messageEvent(e);
}

void EventDispatcher::onMessageNew(const QVariantMap &e)
{
    Q_EMIT messageEvent(e);
    const qint64 chatId = i64(e, "chat_id");
    if (!m_deps.chats || chatId == 0) {
        return;
    }
    QVariantMap row;
    row.insert(QStringLiteral("id"), num(chatId));
    row.insert(QStringLiteral("last_message_id"), num(i64(e, "id")));
    row.insert(QStringLiteral("last_date"), num(i64(e, "date")));
    row.insert(QStringLiteral("last_content_type"), str(e, "content_type"));
    row.insert(QStringLiteral("last_text"), chat_list_preview_text(str(e, "text")));
    row.insert(QStringLiteral("last_outgoing"), boolText(flag(e, "outgoing")));
    m_deps.chats->upsertChatRow(row);
}

void EventDispatcher::onSendOk(const QVariantMap &)
{
    log(QStringLiteral("[event] send_ok\n"));
}

void EventDispatcher::onTdClosed(const QVariantMap &)
{
    setStatus(QStringLiteral("TDLib closed"));
}
