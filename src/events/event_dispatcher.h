#pragma once

#include "events/presence.h"

#include <QHash>
#include <QList>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>

class AppLog;
class ArrayDataModel;
class AvatarDownloadQueue;
class ChatListModel;
class Toaster;

// The signed-in account's own profile, from "me" and "user" events.
struct OwnProfile
{
    qint64 id = 0;
    QString firstName;
    QString lastName;
    QString username;
    QString phone;
    QString displayName;
    qint64 photoSmallId = 0;
    QString avatarPath; // round PNG once downloaded
};
Q_DECLARE_METATYPE(OwnProfile)

struct EventDispatcherDeps
{
    ChatListModel *chats = nullptr;
    AvatarDownloadQueue *avatars = nullptr;
    Toaster *toaster = nullptr;
    AppLog *log = nullptr;
    std::function<void(const QString &)> sendLine;
    QString dataDir; // round avatars go to dataDir + "/avatar-cache"
};

// Turns each backend event into changes of the chat list, the account's
// caches, toasts, logs and follow-up commands. Effects on screens and on the
// open chat's messages leave as signals; the conversation, pinned messages and
// file subsystems receive their events whole through messageEvent(),
// pinnedEvent() and fileEvent().
class EventDispatcher : public QObject
{
    Q_OBJECT
public:
    explicit EventDispatcher(const EventDispatcherDeps &deps, QObject *parent = nullptr);

    // Every recognised "type", in the order they are compared.
    static QStringList eventTypes();

    void handleEventMap(const QVariantMap &event);

    // --- state set by the other subsystems ---
    // The chat shown in the conversation screen (0: none) and its type.
    void setCurrentChat(qint64 chatId, const QString &chatType);
    qint64 currentChatId() const { return m_currentChatId; }
    // A "tg" link's user name waiting for the account to be ready.
    void setPendingResolveUsername(const QString &username) { m_pendingResolve = username; }
    QString pendingResolveUsername() const { return m_pendingResolve; }
    // Number of the chat search last sent; its answers are the only ones kept.
    void setChatSearchRequest(qint64 req) { m_searchReq = req; }
    // The open chat's message rows and the rows buffered for a history batch,
    // for sender name and photo updates; either may be null.
    void setMessageRows(ArrayDataModel *messages, QList<QVariantMap> *buffered);

    // --- state read by the other subsystems ---
    bool isAuthorized() const { return m_authorized; }
    bool chatListRequested() const { return m_chatsRequested; }
    const OwnProfile &me() const { return m_me; }
    QString userDisplayName(qint64 userId) const { return m_userNames.value(userId); }
    QVariantMap chatInfo(qint64 chatId) const { return m_chatInfo.value(chatId); }
    QString connectionState() const { return m_connectionState; }
    QString statusText() const { return m_statusText; }
    QList<QVariantMap> chatSearchRows() const { return m_searchRows; }
    QString avatarPathForFile(qint64 fileId) const { return m_presence.avatarPath(fileId); }
    Presence &presence() { return m_presence; }
    const Presence &presence() const { return m_presence; }

    QString formatUserStatusText(const QString &statusType, qint64 wasOnline, qint64 expires) const
    {
        return Presence::formatUserStatusText(statusType, wasOnline, expires);
    }
    // Recomputes the open chat's subtitle and emits chatHeaderSubtitleChanged.
    void updateChatHeaderSubtitleForCurrentChat();
    int updateSenderInfoForUser(qint64 userId, const QString &name, qint64 photoSmallId);
    // After a cleared cache: forgets round avatars whose files went away
    // (the own one included, announced by meChanged) and queues their photos
    // again, with every photo of the chat list that lost its avatar.
    void refetchMissingAvatars();

Q_SIGNALS:
    void statusTextChanged(const QString &text);
    // Every "auth_state": the screens follow authorized (sign-in form or list).
    void authStateChanged(const QString &state, bool authorized);
    // A state other than "Ready": selection, composer edit, pending lists,
    // message list and media viewer go back to their signed-out state.
    void signedInViewResetRequested();
    void meDebugTextChanged(const QString &text);
    // The menu's own-profile header should be redrawn.
    void meChanged(const OwnProfile &me);
    // A hub open request may now be applicable.
    void hubOpenRequestCheckRequested();
    void openChatRequested(const QVariantMap &chatRow);
    void backToChatsRequested();
    // The open chat's title changed (header title and avatar).
    void currentChatTitleChanged(const QString &title);
    void chatHeaderSubtitleChanged(const QString &text);
    // New last-read outgoing id of the open chat; with redrawRows the read
    // marks of outgoing rows between previousId and newId need redrawing.
    void currentChatReadOutboxChanged(qint64 previousId, qint64 newId, bool redrawRows);
    // The chat's info record or mute state changed (chat info screen, composer).
    void chatInfoChanged(qint64 chatId);
    void chatSearchResultsReady(const QList<QVariantMap> &rows);
    void connectionStateChanged(const QString &state);
    // A round avatar PNG is ready for a photo file id.
    void avatarReady(qint64 fileId, const QString &path);
    // Events handled by the conversation: history, messages, properties,
    // sends.
    void messageEvent(const QVariantMap &event);
    void fileEvent(const QVariantMap &event);
    void pinnedEvent(const QVariantMap &event);

private:
    using Handler = void (EventDispatcher::*)(const QVariantMap &);
    struct Entry
    {
        const char *type;
        Handler handler;
    };
    static const Entry kTable[];
    static const int kTableSize;

    void setStatus(const QString &text);
    void log(const QString &text);
    void fileLog(const QString &text);
    void toast(const QString &text);
    void send(const QString &line);
    void enqueueAvatar(qint64 fileId);
    QVariantMap chatRowFromEvent(const QVariantMap &e) const;
    bool isCurrentChat(qint64 chatId) const { return chatId != 0 && chatId == m_currentChatId; }
    QString currentChatType() const;
    void toastResolveFailure(const QString &username, const QString &message);
    void clearPendingIfAnswered(const QString &username);

    void onBackendReady(const QVariantMap &e);
    void onAuthState(const QVariantMap &e);
    void onNeed(const QVariantMap &e);
    void onCodeInfo(const QVariantMap &e);
    void onTdError(const QVariantMap &e);
    void onReactionOk(const QVariantMap &e);
    void onReactionError(const QVariantMap &e);
    void onCallUpdate(const QVariantMap &e);
    void onCallSignaling(const QVariantMap &e);
    void onMessageEvent(const QVariantMap &e);
    void onEditError(const QVariantMap &e);
    void onDeleteError(const QVariantMap &e);
    void onMe(const QVariantMap &e);
    void onUser(const QVariantMap &e);
    void onChatsBegin(const QVariantMap &e);
    void onChat(const QVariantMap &e);
    void onTgResolveError(const QVariantMap &e);
    void onTgResolve(const QVariantMap &e);
    void onFileEvent(const QVariantMap &e);
    void onFile(const QVariantMap &e);
    void onIgnored(const QVariantMap &e);
    void onChatTitle(const QVariantMap &e);
    void onChatLastMessage(const QVariantMap &e);
    void onChatPosition(const QVariantMap &e);
    void onChatUnread(const QVariantMap &e);
    void onChatOnlineCount(const QVariantMap &e);
    void onChatReadOutbox(const QVariantMap &e);
    void onChatNotify(const QVariantMap &e);
    void onChatInfo(const QVariantMap &e);
    void onChatInfoError(const QVariantMap &e);
    void onChatMuteToggled(const QVariantMap &e);
    void onHistoryCleared(const QVariantMap &e);
    void onChatLeft(const QVariantMap &e);
    void onChatJoined(const QVariantMap &e);
    void onChatDeleted(const QVariantMap &e);
    void dropChat(qint64 chatId, const QString &toastText);
    void onActionError(const QVariantMap &e);
    void onSearchBegin(const QVariantMap &e);
    void onSearchChat(const QVariantMap &e);
    void onSearchEnd(const QVariantMap &e);
    void onConnectionState(const QVariantMap &e);
    void onPinnedEvent(const QVariantMap &e);
    void onChatsEnd(const QVariantMap &e);
    void onMessageUpdate(const QVariantMap &e);
    void onMessageNew(const QVariantMap &e);
    void onSendOk(const QVariantMap &e);
    void onTdClosed(const QVariantMap &e);

    EventDispatcherDeps m_deps;
    Presence m_presence;
    ArrayDataModel *m_messages = nullptr;
    QList<QVariantMap> *m_buffered = nullptr;

    QString m_statusText;
    bool m_authorized = false;
    bool m_chatsRequested = false;
    OwnProfile m_me;
    QHash<qint64, QString> m_userNames;
    QHash<qint64, QVariantMap> m_chatInfo;
    qint64 m_currentChatId = 0;
    QString m_currentChatType;
    QString m_pendingResolve;
    qint64 m_searchReq = 0;
    QList<QVariantMap> m_searchRows;
    QString m_connectionState;
};
