#include "conversation/composer.h"

#include "backend_link/text_cut.h"
#include "chats/chat_list_model.h"
#include "conversation/chat_session.h"
#include "conversation/message_row_model.h"

#include <QFileInfo>
#include <QTimer>

#include <utility>

Composer::Composer(ChatSession *session, ChatInfoLookup chatInfo, QObject *parent)
    : QObject(parent), m_session(session), m_messages(session->messages()),
      m_chatInfo(std::move(chatInfo))
{
    connect(m_session, &ChatSession::chatOpened, this, &Composer::onChatOpened);
    connect(m_session, &ChatSession::chatClosed, this, &Composer::onChatClosed);
    connect(m_messages, &MessageRowModel::messagesRemoved, this, &Composer::onMessagesRemoved);
    connect(m_messages, &MessageRowModel::messagePropertiesArrived, this,
            &Composer::onPropertiesArrived);
    connect(m_messages, &MessageRowModel::messagePropertiesFailed, this,
            [this](qint64 id, int, const QString &) { onPropertiesFailed(id); });
    updateComposerActionIcon();
}

bool Composer::hasOpenChat() const
{
    return m_session->chatId() != 0;
}

// ---------------------------------------------------------------- rules

QString Composer::barText(const QString &prefix, const QString &text)
{
    if (code_point_count(text) <= kBarTextMaxChars) {
        return prefix + text;
    }
    return prefix + left_graphemes(text, kBarTextMaxChars) + QChar(0x2026);
}

QString Composer::encodeText64(const QString &text)
{
    QByteArray b64 = text.toUtf8().toBase64();
    b64.replace('\r', QByteArray());
    b64.replace('\n', QByteArray());
    return QString::fromLatin1(b64);
}

QString Composer::actionIconFor(bool voiceRecording, bool videoNoteRecording, bool editing,
                                bool hasText, bool videoNoteMode)
{
    if (voiceRecording) {
        return QStringLiteral("assets/osicons/ic_microphone_mute.png");
    }
    if (videoNoteRecording) {
        return QStringLiteral("assets/osicons/ic_video.png");
    }
    if (editing || hasText) {
        return QStringLiteral("assets/osicons/send.png");
    }
    if (!videoNoteMode) {
        return QStringLiteral("assets/osicons/ic_microphone_unmute.png");
    }
    return QStringLiteral("assets/osicons/ic_video.png");
}

bool Composer::composerVisibleFor(const QString &chatType, bool inChatList,
                                  const QVariantMap &chatInfo)
{
    if (chatInfo.contains(QStringLiteral("can_send"))) {
        return chatInfo.value(QStringLiteral("can_send")).toBool();
    }
    if (chatType == QLatin1String("channel")) {
        return false;
    }
    if (chatType == QLatin1String("basic_group") || chatType == QLatin1String("supergroup")) {
        return inChatList;
    }
    return true;
}

// ---------------------------------------------------------------- state

void Composer::setText(const QString &text)
{
    if (text == m_text) {
        return;
    }
    const bool hadText = !m_text.isEmpty();
    m_text = text;
    if (hadText != !m_text.isEmpty()) {
        updateComposerActionIcon();
    }
}

void Composer::replaceText(const QString &text)
{
    setText(text);
    Q_EMIT textReplaced(text);
}

void Composer::queueFocus()
{
    QTimer::singleShot(0, this, [this] { Q_EMIT focusRequested(); });
}

void Composer::updateComposerActionIcon()
{
    const QString path = actionIconFor(m_voiceRecording, m_videoNoteRecording, m_editing != 0,
                                       !m_text.isEmpty(), m_videoNoteMode);
    if (path == m_iconPath) {
        return;
    }
    m_iconPath = path;
    Q_EMIT actionIconChanged(path);
}

void Composer::updateComposerVisibilityForCurrentChat()
{
    const qint64 chatId = m_session->chatId();
    bool visible = false;
    if (chatId != 0) {
        ChatListModel *chats = m_session->chats();
        const bool inList = chats && chats->containsChat(chatId);
        visible = composerVisibleFor(m_session->chatType(), inList,
                                     m_chatInfo ? m_chatInfo(chatId) : QVariantMap());
    }
    if (visible == m_visible) {
        return;
    }
    m_visible = visible;
    Q_EMIT composerVisibleChanged(visible);
}

void Composer::toggleComposerVideoNoteMode()
{
    m_videoNoteMode = !m_videoNoteMode;
    updateComposerActionIcon();
}

void Composer::setVoiceRecording(bool running)
{
    m_voiceRecording = running;
    updateComposerActionIcon();
}

void Composer::setVideoNoteRecording(bool running)
{
    m_videoNoteRecording = running;
    updateComposerActionIcon();
}

// ---------------------------------------------------------------- sending

void Composer::onSendMessage()
{
    const qint64 chatId = m_session->chatId();
    if (chatId == 0) {
        Q_EMIT logLine(QStringLiteral("ui: select chat first\n"));
        return;
    }
    const QString text = m_text.trimmed();
    if (m_editing >= 1) {
        if (text.isEmpty()) {
            Q_EMIT toastRequested(QStringLiteral("Message can't be empty"));
            return;
        }
        const qint64 id = m_editing;
        Q_EMIT logLine(QStringLiteral("ui: edit message chat=%1 id=%2\n").arg(chatId).arg(id));
        Q_EMIT sendLineRequested(
            QStringLiteral("edit64 %1 %2 %3").arg(chatId).arg(id).arg(encodeText64(text)));
        clearEdit(true);
        Q_EMIT toastRequested(QStringLiteral("Editing\u2026"));
        return;
    }
    if (text.isEmpty()) {
        return;
    }
    Q_EMIT logLine(QStringLiteral("ui: send message chat=%1\n").arg(chatId));
    if (m_replyTo >= 1) {
        Q_EMIT sendLineRequested(
            QStringLiteral("send64 %1 %2 %3").arg(chatId).arg(m_replyTo).arg(encodeText64(text)));
    } else {
        Q_EMIT sendLineRequested(
            QStringLiteral("send64 %1 %2").arg(chatId).arg(encodeText64(text)));
    }
    clearReply();
    replaceText(QString());
    m_session->onMessageSent();
}

// ---------------------------------------------------------------- edit

void Composer::startEditMessage(qint64 messageId)
{
    if (messageId < 1 || !hasOpenChat() || m_voiceRecording || m_videoNoteRecording) {
        return;
    }
    const int index = m_messages->findMessageRowIndexById(messageId);
    if (index < 0) {
        return;
    }
    const QVariantMap row = m_messages->rowAt(index);
    const QString contentType = row.value(QStringLiteral("content_type")).toString();
    const bool editable =
        row.value(QStringLiteral("outgoing")).toString() == QLatin1String("true") &&
        !row.contains(QStringLiteral("sending_state")) &&
        (contentType.isEmpty() || contentType == QLatin1String("messageText"));
    if (!editable) {
        Q_EMIT toastRequested(QStringLiteral("Can't edit this message"));
        return;
    }
    if (m_editing == 0) {
        m_savedText = m_text;
    }
    m_editing = messageId;
    clearReply();
    Q_EMIT selectionModeExitRequested();
    const QString text = row.value(QStringLiteral("text")).toString();
    m_editBarText = barText(QStringLiteral("Edit: "), text.trimmed());
    Q_EMIT editBarChanged(true, m_editBarText);
    replaceText(text);
    queueFocus();
    updateComposerActionIcon();
}

void Composer::clearEdit(bool restoreSavedText)
{
    const bool wasEditing = m_editing != 0;
    m_editing = 0;
    m_editBarText.clear();
    if (wasEditing) {
        Q_EMIT editBarChanged(false, QString());
        if (restoreSavedText) {
            replaceText(m_savedText);
        }
    }
    m_savedText.clear();
    updateComposerActionIcon();
}

// ---------------------------------------------------------------- reply

void Composer::setReplyToMessageId(qint64 messageId)
{
    if (messageId < 1) {
        clearReply();
        return;
    }
    m_replyTo = messageId;
    m_replyBarText =
        barText(QStringLiteral("Reply: "), m_messages->makeReplyPreviewForMessageId(messageId));
    Q_EMIT replyBarChanged(true, m_replyBarText);
    updateComposerActionIcon();
}

void Composer::clearReply()
{
    const bool had = m_replyTo != 0;
    m_replyTo = 0;
    m_replyBarText.clear();
    if (had) {
        Q_EMIT replyBarChanged(false, QString());
    }
}

void Composer::onSelectionReplyTapped(const QList<qint64> &selectedIds)
{
    if (selectedIds.isEmpty()) {
        Q_EMIT toastRequested(QStringLiteral("Select a message to reply"));
        return;
    }
    if (selectedIds.size() > 1) {
        Q_EMIT toastRequested(QStringLiteral("Select a single message to reply"));
        return;
    }
    const qint64 id = selectedIds.first();
    const QVariantMap props = m_messages->messagePropertiesForId(id);
    if (props.isEmpty()) {
        Q_EMIT toastRequested(QStringLiteral("Loading message permissions\u2026"));
        m_replyWaitingForProperties = id;
        m_messages->requestMessageProperties(id);
        return;
    }
    if (props.value(QStringLiteral("can_be_replied")).toString() != QLatin1String("true")) {
        Q_EMIT toastRequested(QStringLiteral("Cannot reply to selected message"));
        return;
    }
    Q_EMIT selectionModeExitRequested();
    setReplyToMessageId(id);
    queueFocus();
}

void Composer::onPropertiesArrived(qint64 messageId)
{
    if (messageId == 0 || messageId != m_replyWaitingForProperties) {
        return;
    }
    m_replyWaitingForProperties = 0;
    onSelectionReplyTapped({messageId});
}

void Composer::onPropertiesFailed(qint64 messageId)
{
    if (messageId == 0 || messageId != m_replyWaitingForProperties) {
        return;
    }
    m_replyWaitingForProperties = 0;
    Q_EMIT toastRequested(QStringLiteral("Cannot reply to selected message"));
}

// ---------------------------------------------------------------- chat

void Composer::onChatOpened()
{
    m_replyWaitingForProperties = 0;
    clearReply();
    clearEdit(true);
    updateComposerVisibilityForCurrentChat();
    updateComposerActionIcon();
}

void Composer::onChatClosed()
{
    m_replyWaitingForProperties = 0;
    clearReply();
    clearEdit(true);
    updateComposerVisibilityForCurrentChat();
    updateComposerActionIcon();
}

void Composer::onMessagesRemoved(const QList<qint64> &ids)
{
    if (m_replyTo != 0 && ids.contains(m_replyTo)) {
        clearReply();
    }
    if (m_editing != 0 && ids.contains(m_editing)) {
        clearEdit(true);
    }
}

// ---------------------------------------------------------------- files

void Composer::onAttach()
{
    if (!hasOpenChat()) {
        Q_EMIT logLine(QStringLiteral("ui: select chat first\n"));
        return;
    }
    Q_EMIT filePickerRequested(QStringLiteral("Select file"));
}

void Composer::onAttachTap()
{
    if (!hasOpenChat()) {
        Q_EMIT logLine(QStringLiteral("ui: select chat first\n"));
        return;
    }
    if (m_editing != 0) {
        Q_EMIT toastRequested(QStringLiteral("Finish editing first"));
        return;
    }
    Q_EMIT filePickerRequested(QStringLiteral("Select file"));
}

void Composer::onAttachFileSelected(const QStringList &paths)
{
    const qint64 chatId = m_session->chatId();
    if (chatId == 0) {
        Q_EMIT logLine(QStringLiteral("ui: select chat first\n"));
        return;
    }
    if (paths.isEmpty()) {
        Q_EMIT logLine(QStringLiteral("ui: attach selectedFiles empty\n"));
        return;
    }
    QString path = paths.first();
    if (path.startsWith(QLatin1String("file://"))) {
        path = path.mid(7);
    }
    const QFileInfo info(path);
    if (path.isEmpty() || !info.isFile()) {
        Q_EMIT logLine(QStringLiteral("ui: attach selected invalid file\n"));
        return;
    }
    Q_EMIT logLine(
        QStringLiteral("ui: send file chat=%1 name=%2\n").arg(chatId).arg(info.fileName()));
    if (m_replyTo >= 1) {
        Q_EMIT sendLineRequested(QStringLiteral("sendfile64 %1 %2 %3")
                                     .arg(chatId)
                                     .arg(m_replyTo)
                                     .arg(encodeText64(path)));
    } else {
        Q_EMIT sendLineRequested(
            QStringLiteral("sendfile64 %1 %2").arg(chatId).arg(encodeText64(path)));
    }
}
