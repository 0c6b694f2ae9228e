#include "conversation/chat_actions.h"

#include "chats/chat_list_model.h"
#include "conversation/chat_session.h"
#include "platform/clipboard.h"

namespace {

// Where public usernames live.
const QLatin1String kPublicLinkDomain("t.me");

bool isGroupLike(const QString &chatType)
{
    return chatType == QLatin1String("basic_group") || chatType == QLatin1String("supergroup") ||
           chatType == QLatin1String("channel");
}

// The record's username without the one "@" it may carry.
QString publicUsername(const QVariantMap &info)
{
    QString username = info.value(QStringLiteral("username")).toString().trimmed();
    if (username.startsWith(QLatin1Char('@')))
        username.remove(0, 1);
    return username;
}

} // namespace

QString ChatActions::noPublicLinkText()
{
    return QStringLiteral("This chat has no public link");
}

ChatActions::ChatActions(ChatSession *session, ChatListModel *chats, Clipboard *clipboard,
                         ChatInfoLookup chatInfo, QObject *parent)
    : QObject(parent), m_session(session), m_chats(chats), m_clipboard(clipboard),
      m_chatInfo(std::move(chatInfo))
{
    qRegisterMetaType<ChatActions::ConfirmRequest>();
}

QString ChatActions::chatTypeText(const QString &chatType)
{
    if (chatType == QLatin1String("private"))
        return QStringLiteral("Private chat");
    if (chatType == QLatin1String("secret"))
        return QStringLiteral("Secret chat");
    if (chatType == QLatin1String("basic_group"))
        return QStringLiteral("Group");
    if (chatType == QLatin1String("supergroup"))
        return QStringLiteral("Supergroup");
    if (chatType == QLatin1String("channel"))
        return QStringLiteral("Channel");
    return QString();
}

QString ChatActions::notificationText(const QVariantMap &chatRow)
{
    if (chatRow.value(QStringLiteral("muted_known")).toString() != QLatin1String("true"))
        return QStringLiteral("Unknown");
    return chatRow.value(QStringLiteral("muted")).toString() == QLatin1String("true")
               ? QStringLiteral("Muted")
               : QStringLiteral("On");
}

QVariantMap ChatActions::currentRow() const
{
    // The list's row is the freshest (mute changes land there); the session
    // keeps the row it opened for chats not in the list.
    const QVariantMap row = m_chats->chatRowById(m_session->chatId());
    return row.isEmpty() ? m_session->chatRow() : row;
}

ChatActions::Page ChatActions::updateChatInfoFromModel() const
{
    Page page;
    page.id = m_session->chatId();
    if (page.id == 0)
        return page;
    const QVariantMap row = currentRow();
    const QVariantMap info = m_chatInfo ? m_chatInfo(page.id) : QVariantMap();
    QString type = row.value(QStringLiteral("chat_type")).toString();
    if (type.isEmpty())
        type = m_session->chatType();
    page.title = ChatSession::headerTitleForChatRow(row).trimmed();
    page.kind = chatTypeText(type);
    page.avatarPath = row.value(QStringLiteral("avatar_path")).toString();
    page.canClearHistory = type != QLatin1String("channel");
    page.about = info.value(QStringLiteral("about")).toString().trimmed();
    const QString username = publicUsername(info);
    if (!username.isEmpty()) {
        page.username = QLatin1Char('@') + username;
        page.link = kPublicLinkDomain + QLatin1Char('/') + username;
        page.canCopyLink = true;
    } else {
        page.link = noPublicLinkText();
        page.inviteLink = info.value(QStringLiteral("link")).toString().trimmed();
    }
    if (type == QLatin1String("private") || type == QLatin1String("secret")) {
        page.phone = info.value(QStringLiteral("phone")).toString().trimmed();
        if (!page.phone.isEmpty() && !page.phone.startsWith(QLatin1Char('+')))
            page.phone.prepend(QLatin1Char('+'));
    } else {
        const qint64 members = info.value(QStringLiteral("member_count")).toLongLong();
        const qint64 online = info.value(QStringLiteral("online_count")).toLongLong();
        page.membersCaption = type == QLatin1String("channel") ? QStringLiteral("Subscribers")
                                                               : QStringLiteral("Members");
        if (members >= 1)
            page.members = QString::number(members);
        if (online >= 1 && type != QLatin1String("channel"))
            page.online = QString::number(online);
    }
    page.notifications = notificationText(row);
    // Only a known membership offers joining or leaving.
    if (isGroupLike(type) && info.contains(QStringLiteral("is_member"))) {
        const bool member = info.value(QStringLiteral("is_member")).toBool();
        page.canJoin = !member;
        page.canLeave = member;
    }
    return page;
}

void ChatActions::confirmChatAction(const QString &action)
{
    const qint64 chatId = m_session->chatId();
    if (chatId == 0)
        return;
    const QString t = ChatSession::headerTitleForChatRow(currentRow()).trimmed();
    QString type = currentRow().value(QStringLiteral("chat_type")).toString();
    if (type.isEmpty())
        type = m_session->chatType();
    const bool channel = type == QLatin1String("channel");
    ConfirmRequest r;
    if (action == QLatin1String("clear_history")) {
        r.title = QStringLiteral("Clear history");
        r.body = t.isEmpty() ? QStringLiteral("Clear history?")
                             : QStringLiteral("Clear history in \"%1\"?").arg(t);
        r.confirmLabel = QStringLiteral("Clear");
    } else if (action == QLatin1String("join")) {
        r.title = QStringLiteral("Join");
        r.body = !t.isEmpty() ? QStringLiteral("Join \"%1\"?").arg(t)
                 : channel    ? QStringLiteral("Join channel?")
                              : QStringLiteral("Join group?");
        r.confirmLabel = QStringLiteral("Join");
    } else if (action == QLatin1String("delete_chat")) {
        r.title = QStringLiteral("Delete chat");
        r.body = t.isEmpty()
                     ? QStringLiteral("Delete chat and remove it from the chat list?")
                     : QStringLiteral("Delete \"%1\" and remove it from the chat list?").arg(t);
        r.confirmLabel = QStringLiteral("Delete");
    } else if (action == QLatin1String("leave")) {
        r.title = QStringLiteral("Leave");
        r.body = !t.isEmpty() ? QStringLiteral("Leave \"%1\"?").arg(t)
                 : channel    ? QStringLiteral("Leave channel?")
                              : QStringLiteral("Leave group?");
        r.confirmLabel = QStringLiteral("Leave");
    } else {
        return;
    }
    r.cancelLabel = QStringLiteral("Cancel");
    r.properties.insert(QStringLiteral("chat_action"), action);
    r.properties.insert(QStringLiteral("chat_id"), chatId);
    Q_EMIT dialogRequested(r);
}

void ChatActions::onChatInfoClearHistory()
{
    confirmChatAction(QStringLiteral("clear_history"));
}

void ChatActions::onChatInfoJoin()
{
    confirmChatAction(QStringLiteral("join"));
}

void ChatActions::onChatInfoLeave()
{
    confirmChatAction(QStringLiteral("leave"));
}

void ChatActions::onChatInfoDeleteChat()
{
    confirmChatAction(QStringLiteral("delete_chat"));
}

void ChatActions::onChatActionDialogFinished(const QVariantMap &dialogProperties, int result)
{
    if (result != 2)
        return;
    const QString action = dialogProperties.value(QStringLiteral("chat_action")).toString();
    const qint64 chatId = dialogProperties.value(QStringLiteral("chat_id")).toLongLong();
    if (chatId == 0)
        return;
    // Only the known words: the property may have been written by anyone.
    if (action == QLatin1String("clear_history") || action == QLatin1String("join") ||
        action == QLatin1String("delete_chat") || action == QLatin1String("leave"))
        Q_EMIT sendLineRequested(action + QLatin1Char(' ') + QString::number(chatId));
}

void ChatActions::onChatInfoToggleNotifications()
{
    if (m_session->chatId() != 0)
        Q_EMIT sendLineRequested(QStringLiteral("mute_toggle %1").arg(m_session->chatId()));
}

void ChatActions::copy(const QString &text)
{
    if (m_clipboard)
        m_clipboard->insert(QStringLiteral("text/plain"), text.toUtf8());
    Q_EMIT toastRequested(QStringLiteral("Copied"));
}

void ChatActions::onChatInfoCopyLink()
{
    const qint64 chatId = m_session->chatId();
    if (chatId == 0)
        return;
    const QString username = publicUsername(m_chatInfo ? m_chatInfo(chatId) : QVariantMap());
    // A link without a name would open nothing; say so instead of copying it.
    if (username.isEmpty()) {
        Q_EMIT toastRequested(noPublicLinkText());
        return;
    }
    copy(kPublicLinkDomain + QLatin1Char('/') + username);
}

void ChatActions::onChatInfoCopyId()
{
    if (m_session->chatId() != 0)
        copy(QString::number(m_session->chatId()));
}

void ChatActions::onChatInfoMembersTapped()
{
    Q_EMIT toastRequested(QStringLiteral("Members list is not implemented yet"));
}

QStringList ChatActions::overflowActions() const
{
    if (m_session->chatId() == 0)
        return {};
    const Page page = updateChatInfoFromModel();
    QStringList actions = {QStringLiteral("search"), QStringLiteral("mute_toggle")};
    if (page.canClearHistory)
        actions << QStringLiteral("clear_history");
    if (page.canLeave)
        actions << QStringLiteral("leave");
    actions << QStringLiteral("delete_chat");
    return actions;
}

QString ChatActions::overflowActionText(const QString &action) const
{
    if (action == QLatin1String("search"))
        return QStringLiteral("Search");
    if (action == QLatin1String("mute_toggle"))
        return currentRow().value(QStringLiteral("muted")).toString() == QLatin1String("true")
                   ? QStringLiteral("Unmute")
                   : QStringLiteral("Mute");
    if (action == QLatin1String("clear_history"))
        return QStringLiteral("Clear history");
    if (action == QLatin1String("leave"))
        return QStringLiteral("Leave");
    if (action == QLatin1String("delete_chat"))
        return QStringLiteral("Delete chat");
    return QString();
}

void ChatActions::onOverflowActionChosen(const QString &action)
{
    if (m_session->chatId() == 0)
        return;
    if (action == QLatin1String("search"))
        Q_EMIT searchRequested();
    else if (action == QLatin1String("mute_toggle"))
        onChatInfoToggleNotifications();
    else if (action == QLatin1String("clear_history"))
        onChatInfoClearHistory();
    else if (action == QLatin1String("leave"))
        onChatInfoLeave();
    else if (action == QLatin1String("delete_chat"))
        onChatInfoDeleteChat();
}
