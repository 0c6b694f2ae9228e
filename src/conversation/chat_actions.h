#pragma once

#include "shell/chat_details.h"

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>

class ChatListModel;
class ChatSession;
class Clipboard;

// The open chat's information page without its widgets: what the page shows,
// copying the chat's link and id, switching its notifications, and clearing,
// joining, leaving or deleting it after the user confirms.
//
// A confirmation leaves as ConfirmRequest through dialogRequested(); the
// screen copies the request's properties onto the dialog and hands them back
// to onChatActionDialogFinished(). The chat id travels with the dialog, so a
// late answer acts on the chat it was asked for.
class ChatActions : public QObject
{
    Q_OBJECT
public:
    // The chat's info record ("chat_info" event), empty when unknown.
    using ChatInfoLookup = std::function<QVariantMap(qint64 chatId)>;

    // The page is filled from the shell's record of it.
    using Page = ChatDetails;

    struct ConfirmRequest
    {
        QString title;
        QString body;
        QString confirmLabel;
        QString cancelLabel;
        // Dynamic properties for the dialog object.
        QVariantMap properties;
    };

    // session and chats must outlive this object; clipboard may be null.
    ChatActions(ChatSession *session, ChatListModel *chats, Clipboard *clipboard,
                ChatInfoLookup chatInfo, QObject *parent = nullptr);

    // What the page shows for the open chat.
    Page updateChatInfoFromModel() const;
    static QString chatTypeText(const QString &chatType);
    static QString notificationText(const QVariantMap &chatRow);
    static QString noPublicLinkText();

    // The chat screen's overflow menu: action words in the order shown
    // ("search", "mute_toggle", "clear_history", "leave", "delete_chat"),
    // each offered where the information page offers it.
    QStringList overflowActions() const;
    // The menu's text for an action word ("Mute" or "Unmute" by the state).
    QString overflowActionText(const QString &action) const;

public Q_SLOTS:
    void confirmChatAction(const QString &action);
    void onChatInfoClearHistory();
    void onChatInfoJoin();
    void onChatInfoLeave();
    void onChatInfoDeleteChat();
    void onChatActionDialogFinished(const QVariantMap &dialogProperties, int result);
    void onChatInfoToggleNotifications();
    void onChatInfoCopyLink();
    void onChatInfoCopyId();
    void onChatInfoMembersTapped();
    // A menu entry was chosen: the same step as the page's button.
    void onOverflowActionChosen(const QString &action);

Q_SIGNALS:
    void sendLineRequested(const QString &line);
    void toastRequested(const QString &text);
    // Replaces any confirmation still open.
    void dialogRequested(const ChatActions::ConfirmRequest &request);
    // "Search" in the overflow menu: search the open chat's messages.
    void searchRequested();

private:
    QVariantMap currentRow() const;
    void copy(const QString &text);

    ChatSession *m_session = nullptr;
    ChatListModel *m_chats = nullptr;
    Clipboard *m_clipboard = nullptr;
    ChatInfoLookup m_chatInfo;
};

Q_DECLARE_METATYPE(ChatActions::ConfirmRequest)
