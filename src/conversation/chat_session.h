#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantList>
#include <QVariantMap>

class ChatListModel;
class MessageRowModel;

// The open chat without its widgets: opening and closing, the history pages
// (the newest page, then older pages while the user scrolls up), the jump to
// a given message, read receipts and the jump to the bottom.
//
// The screen feeds it the list view's state (first visible row, at beginning,
// at end) and the backend's message events; it answers with command lines
// and with what the list should do (scroll to its end or to a row, show the
// jump-to-bottom button). Every command line leaves through
// sendLineRequested(), every diagnostic line through logLine().
class ChatSession : public QObject
{
    Q_OBJECT
public:
    static constexpr int kOpenDelayMs = 250;
    static constexpr int kHistoryMoreDelayMs = 150;
    static constexpr int kRestoreFirstTickMs = 30;
    static constexpr int kRestoreTickMs = 120;
    static constexpr int kRestoreTicks = 4;
    static constexpr int kJumpPages = 8;
    // Rows from the top at which the next older page is asked for.
    static constexpr int kOlderPageTriggerRow = 6;

    // How a scroll should look: the list's default animation, or a smooth one.
    enum class ScrollAnimation
    {
        Default,
        Smooth
    };
    Q_ENUM(ScrollAnimation)

    // messages must outlive this object; chats may be null.
    ChatSession(MessageRowModel *messages, ChatListModel *chats, QObject *parent = nullptr);

    MessageRowModel *messages() const { return m_messages; }
    ChatListModel *chats() const { return m_chats; }

    qint64 chatId() const { return m_chatId; }
    QString chatType() const { return m_chatType; }
    QVariantMap chatRow() const { return m_chatRow; }
    bool isMuted() const { return m_muted; }
    bool isMutedKnown() const { return m_mutedKnown; }

    // --- state, for the screen and for tests ---
    qint64 openRequestChatId() const { return m_openRequestChatId; }
    bool isHistoryLoading() const { return m_historyLoading; }
    bool isLoadingOlder() const { return m_loadingOlder; }
    bool noMoreHistory() const { return m_noMoreHistory; }
    int olderPageRequestCounter() const { return m_olderRequests; }
    qint64 historyMoreFromId() const { return m_historyMoreFromId; }
    bool isAtBeginning() const { return m_atBeginning; }
    bool isAtEnd() const { return m_atEnd; }
    int firstVisibleIndex() const { return m_firstVisibleIndex; }
    // The row that should stay where it is while an older page goes in above
    // it; 0 when none.
    qint64 restoreAnchorId() const { return m_restoreAnchorId; }
    int restoreTicksLeft() const { return m_restoreTicks; }
    qint64 pendingJumpTarget() const { return m_jumpTarget; }
    int jumpAttemptsLeft() const { return m_jumpAttempts; }
    bool jumpFallbackUsed() const { return m_jumpFallbackUsed; }
    qint64 lastReadIdSent() const { return m_lastReadSent; }
    int historyGeneration() const { return m_generation; }
    bool isOpenTimerActive() const { return m_openTimer.isActive(); }
    bool isHistoryMoreTimerActive() const { return m_historyMoreTimer.isActive(); }
    bool isRestoreTimerActive() const { return m_restoreTimer.isActive(); }
    // The first visible row of the chat that was left last, and that chat.
    qint64 leftChatId() const { return m_leftChatId; }
    qint64 leftChatFirstVisibleId() const { return m_leftChatFirstVisibleId; }

    // The header's title for a chat row.
    static QString headerTitleForChatRow(const QVariantMap &chatRow);

public Q_SLOTS:
    void openChatFromRow(const QVariantMap &chatRow);
    // The open chat's type became known or changed (sender grouping follows).
    void setChatType(const QString &chatType);
    // Opens a chat anchored at a message (a link, a search result of another
    // chat); within the open chat it is a plain jump.
    void openChatAtMessage(const QVariantMap &chatRow, qint64 messageId);
    void onOpenChatTimeout();
    void onRefreshHistory();
    // Every event that the dispatcher hands to the conversation.
    void handleMessageEvent(const QVariantMap &event);

    void onMessagesAtBeginningChanged(bool atBeginning);
    void onMessagesAtEndChanged(bool atEnd);
    void onMessagesFirstVisibleItemChanged(const QVariantList &indexPath);
    void onHistoryMoreTimeout();
    void onHistoryRestoreTimeout();

    void onReplyPreviewTapped(qint64 messageId);
    // A pinned message, a search result or an outside request in this chat.
    void jumpToMessage(qint64 messageId);
    void attemptScrollToPendingMessage();
    void maybeSendReadForCurrentChatAtEnd();
    // Whether the user sees the open chat (the layout shows it); messages
    // are reported read only then, and at once when it comes into view.
    void setChatInView(bool inView);
    bool isChatInView() const { return m_inView; }
    void onJumpToBottom();
    // The composer sent a message: the list goes to its end.
    void onMessageSent();
    // Asks for one older page now (a search looking further back); false
    // when none can be asked for (no chat, nothing loaded, a page on its
    // way, or no more history).
    bool loadOlderPage();
    void onBackToChats();

Q_SIGNALS:
    void sendLineRequested(const QString &line);
    void logLine(const QString &line);
    // A chat was opened: show the chat screen with this header title, stop
    // voice playback, leave selection mode, forget the running download.
    void chatOpened(qint64 chatId, const QString &title, const QVariantMap &chatRow);
    // The chat was closed: back to the chat list.
    void chatClosed(qint64 chatId);
    // The list view property "chat_last_read_outbox_message_id".
    void lastReadOutboxChanged(qint64 messageId);
    void scrollToEndRequested(ChatSession::ScrollAnimation animation);
    void scrollToMessageRequested(qint64 messageId, int row,
                                  ChatSession::ScrollAnimation animation);
    void jumpToBottomVisibleChanged(bool visible);
    // An older page of count rows went in front; anchorId (0: none) is the
    // row the user was looking at.
    void olderPageInserted(int count, qint64 anchorId);
    // "history_clear" emptied the open chat: forget its pending file.
    void historyCleared(qint64 chatId);
    // An older page came back empty: the chat's history is all loaded.
    void noMoreHistoryReached();

private:
    void openChat(const QVariantMap &chatRow);
    void send(const QString &line);
    void log(const QString &line);
    void stopPerChatTimers();
    void resetRequestFlags();
    bool canPageOlder() const;
    void maybeStartHistoryMoreTimer();
    void requestOlderPage(qint64 oldestId);
    void sendHistoryJump(bool fallback);
    void clearJump();
    void onHistoryBegin(const QVariantMap &e);
    void onHistoryMessage(const QVariantMap &e);
    void onHistoryEnd(const QVariantMap &e);
    void onHistoryClear(const QVariantMap &e);

    MessageRowModel *m_messages = nullptr;
    ChatListModel *m_chats = nullptr;

    qint64 m_chatId = 0;
    QString m_chatType;
    QVariantMap m_chatRow;
    bool m_muted = false;
    bool m_mutedKnown = false;
    qint64 m_openRequestChatId = 0;
    bool m_historyLoading = false;
    bool m_loadingOlder = false;
    bool m_noMoreHistory = false;
    int m_olderRequests = 0;
    qint64 m_historyMoreFromId = 0;
    bool m_atBeginning = false;
    bool m_atEnd = false;
    int m_firstVisibleIndex = -1;
    qint64 m_restoreAnchorId = 0;
    int m_restoreTicks = 0;
    qint64 m_jumpTarget = 0;
    int m_jumpAttempts = 0;
    bool m_jumpFallbackUsed = false;
    qint64 m_lastReadSent = 0;
    bool m_inView = true;
    int m_generation = 0;
    qint64 m_leftChatId = 0;
    qint64 m_leftChatFirstVisibleId = 0;

    QTimer m_openTimer;
    QTimer m_historyMoreTimer;
    QTimer m_restoreTimer;
};
