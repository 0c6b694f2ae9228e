#pragma once

#include <QHash>
#include <QObject>
#include <QVariantMap>

#include <functional>

class ChatListModel;
class DesktopNotifications;

// Decides which new messages become desktop notifications: messages from
// others ("message_new" that is not outgoing), never history pages, never
// the chat the user is looking at. One notification per chat, replaced by
// the chat's next message; a muted chat's come without sound. A click asks
// for the chat at that message.
class MessageNotifier : public QObject
{
    Q_OBJECT
public:
    // watchedChatId: the chat on screen in the active window, 0 when the
    // window is in the background or shows no chat.
    MessageNotifier(DesktopNotifications *notifications, ChatListModel *chats,
                    std::function<qint64()> watchedChatId, QObject *parent = nullptr);

    // Every event the dispatcher hands to the conversation.
    void onMessageEvent(const QVariantMap &event);
    // The user has the chat on screen now: its notification goes.
    void onChatShown(qint64 chatId);

Q_SIGNALS:
    void openChatRequested(qint64 chatId, qint64 messageId);

private:
    void onActivated(qint64 chatId);

    DesktopNotifications *m_notifications;
    ChatListModel *m_chats;
    std::function<qint64()> m_watchedChatId;
    // The newest notified message of each chat.
    QHash<qint64, qint64> m_lastMessage;
};
