#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <functional>

class ChatListModel;
class Invoker;
class Toaster;

// The service's public link domain: "https://t.me/NAME" is a chat.
inline constexpr char kPublicLinkDomain[] = "t.me";

struct LinksDeps
{
    std::function<void(const QString &)> sendLine;
    std::function<void(const QString &)> log;
    // Lines that also go to standard error, for whoever started the process.
    std::function<void(const QString &)> errorLine;
    std::function<bool()> isSignedIn;
    // "chats 60" already went out for this sign-in (the list is on its way).
    std::function<bool()> chatListRequested;
    // The chat whose conversation page is on screen; 0 when none is.
    std::function<qint64()> visibleChatId;
    Toaster *toaster = nullptr;
    Invoker *invoker = nullptr;
    ChatListModel *chats = nullptr;
    QString dataDir;
};

// Writes the request file that asks the application to open a chat (and a
// message in it) at its next load; the file is replaced whole, so a reader
// never sees half of it. chatId 0 asks for the chat list; messageId 0
// for the newest messages.
bool write_hub_open_request(const QString &dataDir, qint64 chatId, qint64 messageId,
                            const QString &reason, QString *error);
QString hub_open_file_path(const QString &dataDir);

// Ways into the application from outside and out of it: "tg" links, links
// tapped in messages, and requests to open a chat (the request file written
// by `vexa --open-chat`, a clicked desktop notification). A resolve link
// waits for sign-in; an open request waits for sign-in and for the chat's
// row in the list.
class Links : public QObject
{
    Q_OBJECT
public:
    explicit Links(const LinksDeps &deps, QObject *parent = nullptr);

    // A "tg" link or other URL handed to this instance from outside.
    void onInvoked(const QString &url);
    // false when url is not a valid "tg" URL; reason ("invoke", "web") is
    // only logged.
    bool handleTgUrl(const QUrl &url, const QString &reason);
    void tryResolvePendingTg();
    // A link tapped in a message.
    void onWebLinkActivated(const QString &text);
    // The backend answered a resolve for username (found or not).
    void onResolveAnswered(const QString &username);
    // The chat a resolve found, to be opened: at the message the link
    // named, if it named one.
    void onResolvedChat(const QVariantMap &chatRow);

    void loadHubOpenRequest();
    void tryApplyHubOpenRequest();
    // The same request as the file's, from inside the process.
    void requestOpenChat(qint64 chatId, qint64 messageId, const QString &reason);

    QString pendingUsername() const { return m_pendingUsername; }
    bool resolveSent() const { return m_resolveSent; }
    QString hubOpenMode() const { return m_hubOpenMode; }
    qint64 hubChatId() const { return m_hubChatId; }
    qint64 hubMessageId() const { return m_hubMessageId; }
    bool chatsRequested() const { return m_chatsRequested; }

Q_SIGNALS:
    void backToChatsRequested();
    // messageId 0: the newest messages.
    void openChatRequested(const QVariantMap &chatRow, qint64 messageId);
    // The chat on screen should scroll to messageId.
    void jumpRequested(qint64 messageId);

private:
    void log(const QString &text);
    void toast(const QString &text);
    void clearHubOpenRequest();
    // "https://t.me/NAME" or "https://t.me/NAME/123": resolved here rather
    // than sent to the browser.
    bool openPublicLink(const QUrl &url);

    LinksDeps m_deps;
    QString m_pendingUsername;
    bool m_resolveSent = false;
    // The message a "t.me/NAME/123" link named, for the chat its resolve opens.
    qint64 m_pendingMessageId = 0;
    QString m_hubOpenMode;
    qint64 m_hubChatId = 0;
    qint64 m_hubMessageId = 0;
    bool m_chatsRequested = false;
};
