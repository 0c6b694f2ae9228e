#pragma once

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>

class ChatSession;
class MessageRowModel;

// The composer without its widgets: the text to send, the reply and edit
// targets with their bar texts, the action button's icon and whether the
// composer shows at all. Text travels as Base64 of its UTF-8 bytes, so no
// line break typed into the field can reach a command line.
//
// The screen reports what the user typed (setText) and taps; the composer
// answers through signals: the bars' texts, the icon, the field's new text,
// toasts, command lines.
class Composer : public QObject
{
    Q_OBJECT
public:
    // The chat's info record ("chat_info" event), empty when unknown.
    using ChatInfoLookup = std::function<QVariantMap(qint64 chatId)>;

    static constexpr int kBarTextMaxChars = 90;

    // session must outlive this object; chatInfo may be empty.
    Composer(ChatSession *session, ChatInfoLookup chatInfo, QObject *parent = nullptr);

    QString text() const { return m_text; }
    qint64 replyToMessageId() const { return m_replyTo; }
    qint64 editingMessageId() const { return m_editing; }
    QString savedText() const { return m_savedText; }
    QString replyBarText() const { return m_replyBarText; }
    bool isReplyBarVisible() const { return m_replyTo != 0; }
    QString editBarText() const { return m_editBarText; }
    bool isEditBarVisible() const { return m_editing != 0; }
    QString actionIconPath() const { return m_iconPath; }
    bool isComposerVisible() const { return m_visible; }
    bool isVideoNoteMode() const { return m_videoNoteMode; }

    // prefix followed by text, the text cut to 90 characters (between
    // grapheme clusters) and "…" when longer.
    static QString barText(const QString &prefix, const QString &text);
    // Base64 of the UTF-8 bytes, one unbroken token.
    static QString encodeText64(const QString &text);
    static QString actionIconFor(bool voiceRecording, bool videoNoteRecording, bool editing,
                                 bool hasText, bool videoNoteMode);
    // Channels are read-only, groups writable while the user is in them,
    // other chats writable; the chat's own "can_send" overrides all of it.
    static bool composerVisibleFor(const QString &chatType, bool inChatList,
                                   const QVariantMap &chatInfo);

public Q_SLOTS:
    // The field's text as the user typed it.
    void setText(const QString &text);
    void onSendMessage();
    void startEditMessage(qint64 messageId);
    void clearEdit(bool restoreSavedText);
    void setReplyToMessageId(qint64 messageId);
    void clearReply();
    // The reply action of selection mode, with the selected ids.
    void onSelectionReplyTapped(const QList<qint64> &selectedIds);
    void updateComposerActionIcon();
    void updateComposerVisibilityForCurrentChat();
    void toggleComposerVideoNoteMode();
    void setVoiceRecording(bool running);
    void setVideoNoteRecording(bool running);
    void onAttach();
    void onAttachTap();
    void onAttachFileSelected(const QStringList &paths);

Q_SIGNALS:
    void sendLineRequested(const QString &line);
    void logLine(const QString &line);
    void toastRequested(const QString &text);
    // The field must show this text (edit started or ended, message sent).
    void textReplaced(const QString &text);
    void replyBarChanged(bool visible, const QString &text);
    void editBarChanged(bool visible, const QString &text);
    void actionIconChanged(const QString &path);
    void composerVisibleChanged(bool visible);
    // Queued on the next turn of the event loop: the field takes the focus.
    void focusRequested();
    void selectionModeExitRequested();
    // The system file picker should open with this title.
    void filePickerRequested(const QString &title);

private:
    void replaceText(const QString &text);
    void queueFocus();
    void onChatOpened();
    void onChatClosed();
    void onMessagesRemoved(const QList<qint64> &ids);
    void onPropertiesArrived(qint64 messageId);
    void onPropertiesFailed(qint64 messageId);
    bool hasOpenChat() const;

    ChatSession *m_session = nullptr;
    MessageRowModel *m_messages = nullptr;
    ChatInfoLookup m_chatInfo;

    QString m_text;
    qint64 m_replyTo = 0;
    qint64 m_editing = 0;
    QString m_savedText;
    QString m_replyBarText;
    QString m_editBarText;
    QString m_iconPath;
    bool m_visible = false;
    bool m_videoNoteMode = false;
    bool m_voiceRecording = false;
    bool m_videoNoteRecording = false;
    qint64 m_replyWaitingForProperties = 0;
};
