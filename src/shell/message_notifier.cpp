#include "shell/message_notifier.h"

#include "chats/chat_list_model.h"
#include "platform/desktop_notifications.h"

MessageNotifier::MessageNotifier(DesktopNotifications *notifications, ChatListModel *chats,
                                 std::function<qint64()> watchedChatId, QObject *parent)
    : QObject(parent), m_notifications(notifications), m_chats(chats),
      m_watchedChatId(std::move(watchedChatId))
{
    connect(m_notifications, &DesktopNotifications::activated, this, &MessageNotifier::onActivated);
}

void MessageNotifier::onMessageEvent(const QVariantMap &e)
{
    // History pages come as "message"; a sent message comes back as
    // "message_new" too, outgoing and usually with a sending state.
    if (e.value(QStringLiteral("type")).toString() != QLatin1String("message_new") ||
        e.value(QStringLiteral("outgoing")).toBool() || e.contains(QStringLiteral("sending_state")))
        return;
    const qint64 chatId = e.value(QStringLiteral("chat_id")).toLongLong();
    const qint64 messageId = e.value(QStringLiteral("id")).toLongLong();
    if (chatId == 0 || messageId < 1 || chatId == m_watchedChatId())
        return;
    const QVariantMap chat = m_chats->chatRowById(chatId);
    const QString title = chat.value(QStringLiteral("title")).toString();
    QString summary = e.value(QStringLiteral("sender_name")).toString().trimmed();
    if (summary.isEmpty())
        summary = title.isEmpty() ? QStringLiteral("Vexa") : title;
    QString body = chat_list_preview_text(e.value(QStringLiteral("text")).toString());
    if (body.isEmpty())
        body = chat_list_content_label(e.value(QStringLiteral("content_type")).toString());
    const bool muted = chat.value(QStringLiteral("muted")).toString() == QLatin1String("true");
    m_lastMessage.insert(chatId, messageId);
    m_notifications->show(chatId, summary, body,
                          chat.value(QStringLiteral("avatar_path")).toString(), muted);
}

void MessageNotifier::onChatShown(qint64 chatId)
{
    if (chatId == 0 || !m_lastMessage.contains(chatId))
        return;
    m_lastMessage.remove(chatId);
    m_notifications->close(chatId);
}

void MessageNotifier::onActivated(qint64 chatId)
{
    Q_EMIT openChatRequested(chatId, m_lastMessage.value(chatId));
}
