#include "conversation/chat_session.h"

#include "chats/chat_list_model.h"
#include "conversation/message_row_model.h"

namespace {

qint64 i64(const QVariantMap &m, const char *key)
{
    return m.value(QLatin1String(key)).toLongLong();
}

} // namespace

ChatSession::ChatSession(MessageRowModel *messages, ChatListModel *chats, QObject *parent)
    : QObject(parent), m_messages(messages), m_chats(chats)
{
    Q_ASSERT(m_messages);
    for (QTimer *timer : {&m_openTimer, &m_historyMoreTimer, &m_restoreTimer}) {
        timer->setSingleShot(true);
    }
    m_openTimer.setInterval(kOpenDelayMs);
    m_historyMoreTimer.setInterval(kHistoryMoreDelayMs);
    connect(&m_openTimer, &QTimer::timeout, this, &ChatSession::onOpenChatTimeout);
    connect(&m_historyMoreTimer, &QTimer::timeout, this, &ChatSession::onHistoryMoreTimeout);
    connect(&m_restoreTimer, &QTimer::timeout, this, &ChatSession::onHistoryRestoreTimeout);
}

void ChatSession::send(const QString &line)
{
    Q_EMIT sendLineRequested(line);
}

void ChatSession::log(const QString &line)
{
    Q_EMIT logLine(line);
}

QString ChatSession::headerTitleForChatRow(const QVariantMap &chatRow)
{
    const QString title = chatRow.value(QStringLiteral("title")).toString();
    return title.isEmpty() ? QStringLiteral("Chat") : title;
}

void ChatSession::stopPerChatTimers()
{
    m_openTimer.stop();
    m_historyMoreTimer.stop();
    m_restoreTimer.stop();
}

void ChatSession::resetRequestFlags()
{
    m_loadingOlder = false;
    m_historyLoading = true;
    m_olderRequests = 0;
    m_historyMoreFromId = 0;
    m_noMoreHistory = false;
}

// ---------------------------------------------------------------- opening

void ChatSession::openChatFromRow(const QVariantMap &chatRow)
{
    clearJump();
    openChat(chatRow);
}

void ChatSession::openChat(const QVariantMap &chatRow)
{
    const qint64 chatId = i64(chatRow, "id");
    if (chatId == 0) {
        return;
    }
    if (m_chatId != 0 && !m_messages->isEmpty()) {
        const int first = m_firstVisibleIndex >= 0 && m_firstVisibleIndex < m_messages->size()
                              ? m_firstVisibleIndex
                              : 0;
        m_leftChatId = m_chatId;
        m_leftChatFirstVisibleId = m_messages->messageIdAt(first);
    }

    stopPerChatTimers();
    m_restoreAnchorId = 0;
    m_restoreTicks = 0;
    m_firstVisibleIndex = -1;
    m_historyLoading = true;
    m_atBeginning = false;
    m_atEnd = false;
    m_loadingOlder = false;
    m_noMoreHistory = false;
    m_olderRequests = 0;
    m_historyMoreFromId = 0;
    m_lastReadSent = 0;
    m_generation = 0;

    m_chatId = chatId;
    m_chatRow = chatRow;
    m_chatType = chatRow.value(QStringLiteral("chat_type")).toString();
    m_mutedKnown = chatRow.value(QStringLiteral("muted_known")).toString() == QLatin1String("true");
    m_muted = chatRow.value(QStringLiteral("muted")).toString() == QLatin1String("true");
    m_messages->setOpenChat(chatId, m_chatType);

    qint64 readOutbox = i64(chatRow, "last_read_outbox_message_id");
    if (!chatRow.contains(QStringLiteral("last_read_outbox_message_id")) && m_chats) {
        readOutbox = m_chats->lastReadOutboxForChat(chatId); // a row made from a link
    }
    Q_EMIT lastReadOutboxChanged(readOutbox);
    Q_EMIT chatOpened(chatId, headerTitleForChatRow(chatRow), chatRow);

    send(QStringLiteral("chat_info %1").arg(chatId));
    // Two quick taps open only the second chat.
    m_openRequestChatId = chatId;
    m_openTimer.start();
}

void ChatSession::setChatType(const QString &chatType)
{
    if (m_chatId == 0) {
        return;
    }
    m_chatType = chatType;
    m_messages->setChatType(chatType);
}

void ChatSession::openChatAtMessage(const QVariantMap &chatRow, qint64 messageId)
{
    const qint64 chatId = i64(chatRow, "id");
    if (chatId != 0 && chatId == m_chatId) {
        jumpToMessage(messageId);
        return;
    }
    clearJump();
    if (messageId >= 1) {
        m_jumpTarget = messageId;
        m_jumpAttempts = kJumpPages;
    }
    openChat(chatRow);
}

void ChatSession::onOpenChatTimeout()
{
    if (m_openRequestChatId == 0) {
        return;
    }
    resetRequestFlags();
    if (m_jumpTarget == 0) {
        log(QStringLiteral("ui: open chat %1\n").arg(m_openRequestChatId));
        send(QStringLiteral("open %1").arg(m_openRequestChatId));
    } else {
        log(QStringLiteral("ui: open chat %1 anchor=%2\n")
                .arg(m_openRequestChatId)
                .arg(m_jumpTarget));
        send(QStringLiteral("open %1 %2").arg(m_openRequestChatId).arg(m_jumpTarget));
    }
    m_openRequestChatId = 0;
}

void ChatSession::onRefreshHistory()
{
    if (m_chatId == 0) {
        log(QStringLiteral("ui: select chat first\n"));
        return;
    }
    resetRequestFlags();
    log(QStringLiteral("ui: refresh history chat=%1\n").arg(m_chatId));
    send(QStringLiteral("history %1 60").arg(m_chatId));
}

// ---------------------------------------------------------------- events

void ChatSession::handleMessageEvent(const QVariantMap &event)
{
    const QString type = event.value(QStringLiteral("type")).toString();
    if (type == QLatin1String("history_begin")) {
        onHistoryBegin(event);
    } else if (type == QLatin1String("message")) {
        onHistoryMessage(event);
    } else if (type == QLatin1String("history_end")) {
        onHistoryEnd(event);
    } else if (type == QLatin1String("history_clear")) {
        onHistoryClear(event);
    } else {
        const bool ours = m_chatId != 0 && i64(event, "chat_id") == m_chatId;
        const int before = m_messages->size();
        m_messages->handleMessageEvent(event);
        if (ours && type == QLatin1String("message_new")) {
            // The list follows a new message when the user is at its end or
            // sent it; someone reading older messages stays where they are.
            const bool appended = m_messages->size() > before;
            if (appended && (m_atEnd || event.value(QStringLiteral("outgoing")).toBool())) {
                Q_EMIT scrollToEndRequested(ScrollAnimation::Smooth);
            }
            maybeSendReadForCurrentChatAtEnd();
        }
    }
}

void ChatSession::onHistoryBegin(const QVariantMap &e)
{
    if (m_chatId == 0 || i64(e, "chat_id") != m_chatId) {
        return;
    }
    const int gen = e.value(QStringLiteral("gen")).toInt();
    const bool replace = e.value(QStringLiteral("clear")).toBool();
    if (replace) {
        if (gen < m_generation) {
            return; // an answer to a request of an earlier load
        }
        m_generation = gen;
    } else if (gen != m_generation) {
        return;
    }
    m_messages->beginHistoryBatch(replace);
}

void ChatSession::onHistoryMessage(const QVariantMap &e)
{
    if (m_chatId == 0 || i64(e, "chat_id") != m_chatId ||
        e.value(QStringLiteral("gen")).toInt() != m_generation) {
        return;
    }
    m_messages->addHistoryMessage(e);
}

void ChatSession::onHistoryEnd(const QVariantMap &e)
{
    if (m_chatId == 0 || i64(e, "chat_id") != m_chatId ||
        e.value(QStringLiteral("gen")).toInt() != m_generation ||
        !m_messages->isHistoryBatchOpen()) {
        return;
    }
    log(QStringLiteral("[event] history_end\n"));
    const bool replace = m_messages->isHistoryBatchReplacing();
    m_historyLoading = false;
    m_loadingOlder = false;
    m_olderRequests = 0;
    const int count = m_messages->endHistoryBatch();
    if (replace) {
        Q_EMIT scrollToEndRequested(ScrollAnimation::Default);
        m_atBeginning = false;
        m_atEnd = true;
        Q_EMIT jumpToBottomVisibleChanged(false);
        maybeSendReadForCurrentChatAtEnd();
    } else if (count > 0) {
        Q_EMIT olderPageInserted(count, m_restoreAnchorId);
        m_restoreTicks = kRestoreTicks;
        m_restoreTimer.start(kRestoreFirstTickMs);
    } else {
        m_noMoreHistory = true;
        log(QStringLiteral("[event] history_no_more\n"));
        onHistoryRestoreTimeout();
        Q_EMIT noMoreHistoryReached();
    }
    attemptScrollToPendingMessage();
}

void ChatSession::onHistoryClear(const QVariantMap &e)
{
    if (m_chatId == 0 || i64(e, "chat_id") != m_chatId) {
        return;
    }
    const int gen = e.value(QStringLiteral("gen")).toInt();
    if (gen < m_generation) {
        return;
    }
    m_generation = gen;
    m_messages->clearMessages();
    stopPerChatTimers();
    m_restoreAnchorId = 0;
    m_restoreTicks = 0;
    log(QStringLiteral("[event] history_clear\n"));
    Q_EMIT historyCleared(m_chatId);
}

// ---------------------------------------------------------------- paging

bool ChatSession::canPageOlder() const
{
    return m_chatId != 0 && !m_messages->isEmpty() && !m_historyLoading && !m_noMoreHistory;
}

void ChatSession::maybeStartHistoryMoreTimer()
{
    if (m_firstVisibleIndex <= kOlderPageTriggerRow && !m_historyMoreTimer.isActive()) {
        m_historyMoreTimer.start();
    }
}

void ChatSession::onMessagesFirstVisibleItemChanged(const QVariantList &indexPath)
{
    if (indexPath.isEmpty() || !canPageOlder() || m_atEnd) {
        return;
    }
    m_firstVisibleIndex = indexPath.first().toInt();
    maybeStartHistoryMoreTimer();
}

void ChatSession::onMessagesAtBeginningChanged(bool atBeginning)
{
    m_atBeginning = atBeginning;
    if (!atBeginning) {
        return;
    }
    m_firstVisibleIndex = 0;
    if (canPageOlder() && !m_atEnd) {
        maybeStartHistoryMoreTimer();
    }
}

void ChatSession::onMessagesAtEndChanged(bool atEnd)
{
    m_atEnd = atEnd;
    if (atEnd && m_restoreAnchorId > 0 && !m_restoreTimer.isActive()) {
        m_restoreTimer.start(0);
    }
    Q_EMIT jumpToBottomVisibleChanged(!atEnd);
    if (atEnd) {
        maybeSendReadForCurrentChatAtEnd();
    }
}

void ChatSession::onHistoryMoreTimeout()
{
    const qint64 oldest = m_messages->messageIdAt(0);
    m_historyMoreFromId = 0;
    if (m_jumpTarget == 0 && !m_messages->isEmpty()) {
        const int first = m_firstVisibleIndex >= 0 && m_firstVisibleIndex < m_messages->size()
                              ? m_firstVisibleIndex
                              : 0;
        m_restoreAnchorId = m_messages->messageIdAt(first);
    }
    if (!canPageOlder() || oldest < 1) {
        return;
    }
    requestOlderPage(oldest);
}

bool ChatSession::loadOlderPage()
{
    if (!canPageOlder())
        return false;
    const qint64 oldest = m_messages->messageIdAt(0);
    if (oldest < 1)
        return false;
    requestOlderPage(oldest);
    return true;
}

void ChatSession::requestOlderPage(qint64 oldestId)
{
    m_historyLoading = true;
    m_loadingOlder = true;
    m_olderRequests = 0;
    m_historyMoreFromId = oldestId;
    log(QStringLiteral("ui: history_more chat=%1 from=%2\n").arg(m_chatId).arg(oldestId));
    send(QStringLiteral("history_more %1 %2 50").arg(m_chatId).arg(oldestId));
}

void ChatSession::onHistoryRestoreTimeout()
{
    if (m_restoreAnchorId < 1) {
        return;
    }
    if (m_atBeginning || m_atEnd) {
        const qint64 anchor = m_restoreAnchorId;
        m_restoreAnchorId = 0;
        m_restoreTicks = 0;
        const int row = m_messages->findMessageRowIndexById(anchor);
        if (row >= 0) {
            Q_EMIT scrollToMessageRequested(anchor, row, ScrollAnimation::Default);
        }
        return;
    }
    if (m_restoreTicks > 0) {
        --m_restoreTicks;
        if (m_restoreTicks > 0) {
            m_restoreTimer.start(kRestoreTickMs);
            return;
        }
    }
    m_restoreAnchorId = 0;
    m_restoreTicks = 0;
}

// ---------------------------------------------------------------- jumps

void ChatSession::onReplyPreviewTapped(qint64 messageId)
{
    if (messageId < 1 || m_chatId == 0) {
        return;
    }
    jumpToMessage(messageId);
}

void ChatSession::jumpToMessage(qint64 messageId)
{
    if (messageId < 1) {
        return;
    }
    m_jumpTarget = messageId;
    m_jumpAttempts = kJumpPages;
    m_jumpFallbackUsed = false;
    attemptScrollToPendingMessage();
}

void ChatSession::clearJump()
{
    m_jumpTarget = 0;
    m_jumpAttempts = 0;
    m_jumpFallbackUsed = false;
}

void ChatSession::sendHistoryJump(bool fallback)
{
    m_jumpFallbackUsed = true;
    log((fallback ? QStringLiteral("ui: jump-to-message: fallback history_jump chat=%1 msg=%2\n")
                  : QStringLiteral("ui: jump-to-message: history_jump chat=%1 msg=%2\n"))
            .arg(m_chatId)
            .arg(m_jumpTarget));
    // The answer replaces the list; no page may be asked for meanwhile.
    m_historyLoading = true;
    m_loadingOlder = false;
    send(QStringLiteral("history_jump %1 %2 40 40").arg(m_chatId).arg(m_jumpTarget));
}

void ChatSession::attemptScrollToPendingMessage()
{
    if (m_jumpTarget < 1) {
        return;
    }
    const int row = m_messages->findMessageRowIndexById(m_jumpTarget);
    if (row >= 0) {
        const qint64 target = m_jumpTarget;
        m_jumpTarget = 0;
        m_jumpAttempts = 0;
        Q_EMIT scrollToMessageRequested(target, row, ScrollAnimation::Default);
        return;
    }
    if (m_historyLoading) {
        return; // tried again when the batch ends
    }
    if (m_noMoreHistory) {
        log(QStringLiteral("ui: jump-to-message: not found (no more history)\n"));
        clearJump();
        return;
    }
    const qint64 oldest = m_messages->messageIdAt(0);
    if (m_messages->isEmpty() || oldest < 1) {
        return;
    }
    if (m_jumpTarget >= oldest) {
        // Inside the loaded range but missing: one slice around it, then give up.
        if (m_jumpFallbackUsed) {
            log(QStringLiteral("ui: jump-to-message: not in loaded history range (give up)\n"));
            clearJump();
        } else {
            sendHistoryJump(false);
        }
        return;
    }
    if (m_jumpAttempts > 0) {
        --m_jumpAttempts;
        if (canPageOlder()) {
            requestOlderPage(oldest);
        }
        return;
    }
    if (m_jumpFallbackUsed) {
        log(QStringLiteral("ui: jump-to-message: not found (give up)\n"));
        clearJump();
    } else {
        sendHistoryJump(true);
    }
}

// ---------------------------------------------------------------- reading

void ChatSession::setChatInView(bool inView)
{
    if (inView == m_inView)
        return;
    m_inView = inView;
    if (m_inView)
        maybeSendReadForCurrentChatAtEnd();
}

void ChatSession::maybeSendReadForCurrentChatAtEnd()
{
    if (!m_inView || !m_atEnd || m_chatId == 0 || m_messages->isEmpty()) {
        return;
    }
    // Only incoming messages are reported.
    const qint64 newest = m_messages->newestIncomingMessageId();
    if (newest == 0 || newest == m_lastReadSent) {
        return;
    }
    send(QStringLiteral("read %1 %2").arg(m_chatId).arg(newest));
    m_lastReadSent = newest;
}

void ChatSession::onJumpToBottom()
{
    const qint64 lastShown = m_messages->messageIdAt(m_messages->size() - 1);
    if (m_chatId != 0 && m_chats && m_chats->lastMessageIdForChat(m_chatId) > lastShown &&
        !m_historyLoading) {
        // The list holds an older slice after a jump: load the newest page.
        clearJump();
        m_historyLoading = true;
        m_loadingOlder = false;
        send(QStringLiteral("open %1").arg(m_chatId));
    }
    Q_EMIT scrollToEndRequested(ScrollAnimation::Smooth);
}

void ChatSession::onMessageSent()
{
    m_atBeginning = false;
    m_atEnd = true;
    Q_EMIT scrollToEndRequested(ScrollAnimation::Default);
}

void ChatSession::onBackToChats()
{
    log(QStringLiteral("ui: back to chats\n"));
    const qint64 chatId = m_chatId;
    if (chatId != 0) {
        log(QStringLiteral("ui: close chat %1\n").arg(chatId));
        send(QStringLiteral("close %1").arg(chatId));
    }
    m_chatId = 0;
    m_openRequestChatId = 0;
    stopPerChatTimers();
    m_restoreAnchorId = 0;
    m_restoreTicks = 0;
    clearJump();
    m_messages->setOpenChat(0, QString());
    Q_EMIT chatClosed(chatId);
}
