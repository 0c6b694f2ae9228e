#pragma once

#include <QList>
#include <QMetaType>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>

#include <functional>

class ChatSession;
class Clipboard;
class Composer;
class MessageRowModel;

// What the user does with messages already in the open chat, without its
// widgets: the per-message menu, selection mode, forwarding, deleting,
// reactions and copying.
//
// Menus and dialogs leave as DialogRequest through dialogRequested(); the
// screen shows them, copies the request's properties onto the dialog object
// and, when the dialog ends, hands those properties back to the matching
// finish handler. So a dialog carries everything its answer needs, and an
// answer that comes after the chat changed acts on the chat it was asked
// for. Availability comes from the message properties the backend reports
// ("props"); a menu that waits too long for them is built from the row.
class MessageActions : public QObject
{
    Q_OBJECT
public:
    // The chat's info record ("chat_info" event), empty when unknown.
    using ChatInfoLookup = std::function<QVariantMap(qint64 chatId)>;
    // A user's display name, empty when unknown.
    using UserNameLookup = std::function<QString(qint64 userId)>;

    static constexpr int kPendingMenuMs = 1500;

    struct DialogRequest
    {
        enum Kind
        {
            MessageMenu, // list
            Forward,     // list of chats
            Delete,      // confirmation with an optional check box
            Reactions    // list
        };
        Kind kind = MessageMenu;
        QString title;
        QString body;
        QStringList items;
        QString confirmLabel;
        QString cancelLabel;
        // Delete: the "for everybody" check box; hidden when empty, and then
        // optionChecked says whether the messages go for everybody anyway.
        QString optionText;
        bool optionChecked = false;
        // Dynamic properties for the dialog object.
        QVariantMap properties;
    };

    // session and composer must outlive this object; clipboard may be null.
    MessageActions(ChatSession *session, Composer *composer, Clipboard *clipboard,
                   ChatInfoLookup chatInfo, UserNameLookup userName, QObject *parent = nullptr);

    bool isSelectionMode() const { return m_selectionMode; }
    // Selected ids in the order they were picked.
    QList<qint64> selectedIds() const { return m_selected; }
    QString selectionTitle() const;
    qint64 pendingMenuMessageId() const { return m_pendingMenuId; }
    bool isPendingMenuTimerActive() const { return m_pendingMenuTimer.isActive(); }

    // The name shown for a reaction emoji ("👍 Like"); the emoji itself when
    // it has none.
    static QString reactionLabel(const QString &emoji);
    // The reactions offered when a chat allows all or says nothing.
    static QStringList defaultReactionEmojis();
    // The emojis the chat allows; known: the chat said, all: it allows all.
    QStringList chatAvailableReactionEmojis(qint64 chatId, bool *known, bool *all);
    bool messageHasChosenReaction(qint64 messageId, const QString &emoji) const;

public Q_SLOTS:
    void showMessageMenu(qint64 messageId);
    void showMessageMenuHeuristic(qint64 messageId);
    void onPendingMenuTimeout();
    void onMessageMenuDialogFinished(const QVariantMap &dialogProperties, int result, int index);

    void setSelectionMode(bool on);
    void toggleMessageSelection(qint64 messageId);
    void onMessageSelectionToggleRequested(qint64 messageId);
    void onMessageLongPressed(qint64 messageId);
    // A click with Ctrl (toggle) or Shift (range from the last clicked row);
    // either enters selection mode.
    void onMessageSelectClicked(qint64 messageId, bool range);
    void updateSelectionHeaderActions();

    void onSelectionForwardTapped();
    void showForwardDialog(const QList<qint64> &messageIds, bool exitSelection);
    void showForwardDialogHeuristic(const QList<qint64> &messageIds, bool exitSelection);
    void onForwardDialogFinished(const QVariantMap &dialogProperties, int result, int index);

    void onSelectionDeleteTapped();
    void showDeleteDialog(const QList<qint64> &messageIds, bool exitSelection);
    // forEverybody: the dialog's check box (see DialogRequest::optionChecked).
    void onDeleteDialogFinished(const QVariantMap &dialogProperties, int result, bool forEverybody);

    void showReactionsDialog(qint64 messageId);
    // Acts once per dialog: marks dialogProperties "react_handled", which
    // the caller writes back onto the dialog. which names the signal.
    void handleReactionsDialogFinishedCommon(QVariantMap *dialogProperties, const QString &which,
                                             int result, int index);
    void applyOptimisticReactionToMessage(qint64 messageId, const QString &emoji, bool add);
    // A tap on a reaction under a bubble: the user's own is taken back,
    // another is added.
    void onReactionChipTapped(qint64 messageId, const QString &emoji);
    // Up in the empty composer: the newest own text message is edited once
    // its properties say it may be (they are asked for when unknown).
    void editNewestOwnMessage();

Q_SIGNALS:
    void sendLineRequested(const QString &line);
    void logLine(const QString &line);
    void toastRequested(const QString &text);
    void dialogRequested(const MessageActions::DialogRequest &request);
    // The list view property "ui_selection_mode" and the selection bar.
    void selectionModeChanged(bool on);
    void selectionCountChanged(int count);
    void selectionActionsChanged(bool reply, bool forward, bool remove);
    // Queued on the next turn of the event loop after a reply was chosen.
    void focusComposerRequested();

private:
    enum class Waiting
    {
        None,
        Forward,
        Delete
    };
    void send(const QString &line);
    void log(const QString &line);
    void toast(const QString &text);
    qint64 chatId() const;
    QVariantMap rowById(qint64 messageId) const;
    void writeRow(qint64 messageId, const QVariantMap &row);
    bool setRowSelected(qint64 messageId, bool selected);
    QList<qint64> missingProperties(const QList<qint64> &ids) const;
    // The selection's common refusals: nothing selected, or nothing in it
    // that allowed() accepts.
    bool selectionMayDo(const QString &emptyText, const QString &refusedText,
                        const std::function<bool(const QVariantMap &)> &allowed);
    void waitFor(Waiting what, const QList<qint64> &ids, bool exitSelection);
    void clearWaiting();
    void onPropertiesArrived(qint64 messageId);
    void onPropertiesFailed(qint64 messageId);
    void onMessagesRemoved(const QList<qint64> &ids);
    void onChatChanged();
    // ids: those of the asked ones that may go; refuses or warns about the rest.
    void forwardAllowed(const QList<qint64> &ids, int asked, bool exitSelection);
    void openForwardPicker(const QList<qint64> &ids, bool exitSelection);
    void openMenu(qint64 messageId, const QStringList &actions);
    // chatAvailableReactionEmojis without its log line.
    QStringList availableEmojis(qint64 chatId, bool *known, bool *all) const;
    void sendReaction(qint64 chat, qint64 messageId, const QString &emoji);

    ChatSession *m_session = nullptr;
    MessageRowModel *m_messages = nullptr;
    Composer *m_composer = nullptr;
    Clipboard *m_clipboard = nullptr;
    ChatInfoLookup m_chatInfo;
    UserNameLookup m_userName;

    bool m_selectionMode = false;
    QList<qint64> m_selected;
    // Where a Shift+click range starts.
    qint64 m_selectAnchor = 0;
    qint64 m_pendingMenuId = 0;
    qint64 m_pendingEditId = 0;
    QTimer m_pendingMenuTimer;
    Waiting m_waiting = Waiting::None;
    QList<qint64> m_waitingIds;
    bool m_waitingExitSelection = false;
};

Q_DECLARE_METATYPE(MessageActions::DialogRequest)
