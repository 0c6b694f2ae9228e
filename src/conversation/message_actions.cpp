#include "conversation/message_actions.h"

#include "chats/chat_list_model.h"
#include "conversation/chat_session.h"
#include "conversation/composer.h"
#include "conversation/message_row_model.h"
#include "platform/array_data_model.h"
#include "platform/clipboard.h"

#include <utility>

namespace {

const QString kTrue = QStringLiteral("true");
const QString kFalse = QStringLiteral("false");

QString flagText(bool on)
{
    return on ? kTrue : kFalse;
}

bool isTrue(const QVariantMap &map, const char *key)
{
    return map.value(QLatin1String(key)).toString() == QLatin1String("true");
}

QString joinIds(const QList<qint64> &ids)
{
    QStringList words;
    for (qint64 id : ids) {
        words.append(QString::number(id));
    }
    return words.join(QLatin1Char(' '));
}

QList<qint64> splitIds(const QVariant &value)
{
    QList<qint64> ids;
    for (const QString &word : value.toString().split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        bool ok = false;
        const qint64 id = word.toLongLong(&ok);
        if (ok && id >= 1) {
            ids.append(id);
        }
    }
    return ids;
}

// A word fit for a command line: no blank, no line break, nothing invisible.
bool isCommandWord(const QString &word)
{
    if (word.isEmpty() || word.size() > 64) {
        return false;
    }
    for (const QChar c : word) {
        if (c.isSpace() || c.category() == QChar::Other_Control) {
            return false;
        }
    }
    return true;
}

struct ReactionName
{
    const char *emoji;
    const char *name;
};

const ReactionName kReactionNames[] = {
    {"👍", "Like"},  {"❤", "Heart"},    {"🔥", "Fire"},      {"🥰", "Love"}, {"👏", "Clap"},
    {"😁", "Smile"}, {"🤔", "Think"}, {"😮", "Surprised"}, {"😱", "Scream"},  {"😡", "Angry"},
    {"😢", "Sad"},   {"🎉", "Party"},    {"😂", "Laugh"},     {"🤩", "Wow"},
};

// The backend may send the heart with or without its emoji presentation
// selector; both are the same reaction.
QString withoutVariationSelector(const QString &emoji)
{
    QString bare = emoji;
    bare.remove(QChar(0xFE0F));
    return bare;
}

const char *const kMenuLabels[][2] = {
    {"reply", "Reply"},     {"reactions", "Reactions…"},
    {"forward", "Forward"}, {"delete", "Delete"},
    {"edit", "Edit"},       {"copy", "Copy"},
    {"select", "Select"},
};

QString menuLabel(const QString &action)
{
    for (const auto &pair : kMenuLabels) {
        if (action == QLatin1String(pair[0])) {
            return QString::fromUtf8(pair[1]);
        }
    }
    return action;
}

bool isTextContent(const QVariantMap &row)
{
    const QString type = row.value(QStringLiteral("content_type")).toString();
    return type.isEmpty() || type == QLatin1String("messageText");
}

} // namespace

MessageActions::MessageActions(ChatSession *session, Composer *composer, Clipboard *clipboard,
                               ChatInfoLookup chatInfo, UserNameLookup userName, QObject *parent)
    : QObject(parent), m_session(session), m_messages(session->messages()), m_composer(composer),
      m_clipboard(clipboard), m_chatInfo(std::move(chatInfo)), m_userName(std::move(userName))
{
    qRegisterMetaType<MessageActions::DialogRequest>();
    m_pendingMenuTimer.setSingleShot(true);
    m_pendingMenuTimer.setInterval(kPendingMenuMs);
    connect(&m_pendingMenuTimer, &QTimer::timeout, this, &MessageActions::onPendingMenuTimeout);
    connect(m_messages, &MessageRowModel::messagePropertiesArrived, this,
            &MessageActions::onPropertiesArrived);
    connect(m_messages, &MessageRowModel::messagePropertiesFailed, this,
            [this](qint64 id, int, const QString &) { onPropertiesFailed(id); });
    connect(m_messages, &MessageRowModel::messagesRemoved, this,
            &MessageActions::onMessagesRemoved);
    connect(m_messages, &MessageRowModel::messageIdChanged, this,
            [this](qint64 oldId, qint64 newId) {
                const int at = m_selected.indexOf(oldId);
                if (at >= 0) {
                    m_selected[at] = newId;
                }
            });
    connect(m_session, &ChatSession::chatOpened, this, &MessageActions::onChatChanged);
    connect(m_session, &ChatSession::chatClosed, this, &MessageActions::onChatChanged);
}

// ---------------------------------------------------------------- helpers

void MessageActions::send(const QString &line)
{
    Q_EMIT sendLineRequested(line);
}

void MessageActions::log(const QString &line)
{
    Q_EMIT logLine(line);
}

void MessageActions::toast(const QString &text)
{
    Q_EMIT toastRequested(text);
}

qint64 MessageActions::chatId() const
{
    return m_session->chatId();
}

QVariantMap MessageActions::rowById(qint64 messageId) const
{
    const int index = m_messages->findMessageRowIndexById(messageId);
    return index >= 0 ? m_messages->rowAt(index) : QVariantMap();
}

void MessageActions::writeRow(qint64 messageId, const QVariantMap &row)
{
    const int index = m_messages->findMessageRowIndexById(messageId);
    if (index >= 0) {
        m_messages->model()->replace(index, row);
    }
}

bool MessageActions::setRowSelected(qint64 messageId, bool selected)
{
    QVariantMap row = rowById(messageId);
    if (row.isEmpty()) {
        return false;
    }
    if (isTrue(row, "selected") != selected) {
        row.insert(QStringLiteral("selected"), flagText(selected));
        writeRow(messageId, row);
    }
    return true;
}

QList<qint64> MessageActions::missingProperties(const QList<qint64> &ids) const
{
    QList<qint64> missing;
    for (qint64 id : ids) {
        if (m_messages->messagePropertiesForId(id).isEmpty()) {
            missing.append(id);
        }
    }
    return missing;
}

QString MessageActions::selectionTitle() const
{
    return QStringLiteral("%1 selected").arg(m_selected.size());
}

// ---------------------------------------------------------------- menu

void MessageActions::showMessageMenu(qint64 messageId)
{
    if (messageId < 1 || chatId() == 0 || !m_messages->containsMessage(messageId)) {
        return;
    }
    const QVariantMap props = m_messages->messagePropertiesForId(messageId);
    if (props.isEmpty()) {
        m_pendingMenuId = messageId;
        m_messages->requestMessageProperties(messageId);
        m_pendingMenuTimer.start();
        return;
    }
    if (m_pendingMenuId == messageId) {
        m_pendingMenuId = 0;
        m_pendingMenuTimer.stop();
    }
    const QVariantMap row = rowById(messageId);
    QStringList actions;
    if (isTrue(props, "can_be_replied")) {
        actions << QStringLiteral("reply");
    }
    // The backend knows the message: the reactions dialog says itself when
    // the chat allows none.
    actions << QStringLiteral("reactions");
    if (isTrue(props, "can_be_forwarded")) {
        actions << QStringLiteral("forward");
    }
    if (isTrue(props, "can_be_deleted_only_for_self") ||
        isTrue(props, "can_be_deleted_for_all_users")) {
        actions << QStringLiteral("delete");
    }
    if (isTrue(props, "can_be_edited") && isTextContent(row)) {
        actions << QStringLiteral("edit");
    }
    if (isTrue(props, "can_be_copied")) {
        actions << QStringLiteral("copy");
    }
    actions << QStringLiteral("select");
    openMenu(messageId, actions);
}

void MessageActions::showMessageMenuHeuristic(qint64 messageId)
{
    if (m_pendingMenuId == messageId) {
        m_pendingMenuId = 0;
        m_pendingMenuTimer.stop();
    }
    const QVariantMap row = rowById(messageId);
    if (row.isEmpty() || chatId() == 0) {
        return;
    }
    // Without the backend's word: a message still on its way can only be
    // selected or deleted; the user's own sent text can be edited.
    const bool sent = row.value(QStringLiteral("sending_state")).toString().isEmpty();
    const bool outgoing = isTrue(row, "outgoing");
    bool known = false;
    bool all = false;
    QStringList actions;
    if (sent) {
        actions << QStringLiteral("reply");
        if (!availableEmojis(chatId(), &known, &all).isEmpty()) {
            actions << QStringLiteral("reactions");
        }
        actions << QStringLiteral("forward");
    }
    actions << QStringLiteral("delete");
    if (sent && outgoing && isTextContent(row)) {
        actions << QStringLiteral("edit");
    }
    if (!row.value(QStringLiteral("text")).toString().isEmpty()) {
        actions << QStringLiteral("copy");
    }
    actions << QStringLiteral("select");
    openMenu(messageId, actions);
}

void MessageActions::openMenu(qint64 messageId, const QStringList &actions)
{
    DialogRequest request;
    request.kind = DialogRequest::MessageMenu;
    request.title = QStringLiteral("Message");
    request.cancelLabel = QStringLiteral("Cancel");
    for (const QString &action : actions) {
        request.items << menuLabel(action);
    }
    request.properties.insert(QStringLiteral("menu_message_id"), QString::number(messageId));
    request.properties.insert(QStringLiteral("menu_actions"), actions.join(QLatin1Char(' ')));
    Q_EMIT dialogRequested(request);
}

void MessageActions::onPendingMenuTimeout()
{
    const qint64 menuId = m_pendingMenuId;
    if (menuId != 0) {
        showMessageMenuHeuristic(menuId);
    }
    if (m_waiting == Waiting::Forward) {
        const QList<qint64> ids = m_waitingIds;
        const bool exit = m_waitingExitSelection;
        clearWaiting();
        showForwardDialogHeuristic(ids, exit);
    }
}

void MessageActions::onMessageMenuDialogFinished(const QVariantMap &dialogProperties, int result,
                                                 int index)
{
    if (result != 2) {
        return;
    }
    const qint64 messageId =
        dialogProperties.value(QStringLiteral("menu_message_id")).toString().toLongLong();
    const QStringList actions = dialogProperties.value(QStringLiteral("menu_actions"))
                                    .toString()
                                    .split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (messageId < 1 || index < 0 || index >= actions.size()) {
        return;
    }
    const QString action = actions.at(index);
    if (action == QLatin1String("reply")) {
        m_composer->setReplyToMessageId(messageId);
        QTimer::singleShot(0, this, [this] { Q_EMIT focusComposerRequested(); });
    } else if (action == QLatin1String("reactions")) {
        showReactionsDialog(messageId);
    } else if (action == QLatin1String("forward")) {
        showForwardDialog({messageId}, false);
    } else if (action == QLatin1String("delete")) {
        showDeleteDialog({messageId}, false);
    } else if (action == QLatin1String("edit")) {
        m_composer->startEditMessage(messageId);
    } else if (action == QLatin1String("copy")) {
        if (m_clipboard) {
            m_clipboard->insert(
                QStringLiteral("text/plain"),
                rowById(messageId).value(QStringLiteral("text")).toString().toUtf8());
        }
        toast(QStringLiteral("Copied"));
    } else if (action == QLatin1String("select")) {
        setSelectionMode(true);
        if (!m_selected.contains(messageId)) {
            toggleMessageSelection(messageId);
        }
    }
}

// ---------------------------------------------------------------- selection

void MessageActions::setSelectionMode(bool on)
{
    if (on == m_selectionMode) {
        return;
    }
    m_selectionMode = on;
    m_selectAnchor = 0;
    if (!on) {
        const QList<qint64> selected = m_selected;
        m_selected.clear();
        for (qint64 id : selected) {
            setRowSelected(id, false);
        }
    }
    log(QStringLiteral("ui: selection_mode=%1\n").arg(flagText(on)));
    Q_EMIT selectionModeChanged(on);
    Q_EMIT selectionCountChanged(int(m_selected.size()));
    updateSelectionHeaderActions();
}

void MessageActions::toggleMessageSelection(qint64 messageId)
{
    const QVariantMap row = rowById(messageId);
    if (messageId < 1 || row.isEmpty()) {
        return;
    }
    const bool selected = !m_selected.contains(messageId);
    if (selected) {
        m_selected.append(messageId);
    } else {
        m_selected.removeAll(messageId);
    }
    setRowSelected(messageId, selected);
    m_messages->requestMessageProperties(messageId);
    Q_EMIT selectionCountChanged(int(m_selected.size()));
    log(QStringLiteral("ui: selection toggle message_id=%1 selected=%2 count=%3\n")
            .arg(messageId)
            .arg(flagText(selected))
            .arg(m_selected.size()));
    updateSelectionHeaderActions();
}

void MessageActions::onMessageSelectionToggleRequested(qint64 messageId)
{
    if (m_selectionMode) {
        toggleMessageSelection(messageId);
    }
}

void MessageActions::onMessageSelectClicked(qint64 messageId, bool range)
{
    const int to = m_messages->findMessageRowIndexById(messageId);
    if (messageId < 1 || to < 0) {
        return;
    }
    const int from = m_selectAnchor >= 1 ? m_messages->findMessageRowIndexById(m_selectAnchor) : -1;
    if (!m_selectionMode) {
        setSelectionMode(true);
    }
    if (!range || from < 0) {
        toggleMessageSelection(messageId);
        m_selectAnchor = messageId;
        return;
    }
    // A range only adds: rows already ticked inside it stay ticked.
    QList<qint64> added;
    for (int i = qMin(from, to); i <= qMax(from, to); ++i) {
        const qint64 id = m_messages->messageIdAt(i);
        if (id >= 1 && !m_selected.contains(id)) {
            m_selected.append(id);
            setRowSelected(id, true);
            added.append(id);
        }
    }
    m_messages->ensureMessagePropertiesForIds(added);
    log(QStringLiteral("ui: selection range from=%1 to=%2 added=%3 count=%4\n")
            .arg(m_selectAnchor)
            .arg(messageId)
            .arg(added.size())
            .arg(m_selected.size()));
    Q_EMIT selectionCountChanged(int(m_selected.size()));
    updateSelectionHeaderActions();
}

void MessageActions::onMessageLongPressed(qint64 messageId)
{
    if (!m_messages->containsMessage(messageId)) {
        return;
    }
    if (!m_selectionMode) {
        setSelectionMode(true);
        toggleMessageSelection(messageId);
        return;
    }
    toggleMessageSelection(messageId);
}

void MessageActions::updateSelectionHeaderActions()
{
    bool forward = !m_selected.isEmpty();
    bool remove = !m_selected.isEmpty();
    bool reply = m_selected.size() == 1;
    for (qint64 id : m_selected) {
        const QVariantMap props = m_messages->messagePropertiesForId(id);
        forward = forward && isTrue(props, "can_be_forwarded");
        remove = remove && (isTrue(props, "can_be_deleted_only_for_self") ||
                            isTrue(props, "can_be_deleted_for_all_users"));
        reply = reply && isTrue(props, "can_be_replied");
    }
    Q_EMIT selectionActionsChanged(reply, forward, remove);
}

// ---------------------------------------------------------------- waiting for properties

void MessageActions::waitFor(Waiting what, const QList<qint64> &ids, bool exitSelection)
{
    m_waiting = what;
    m_waitingIds = ids;
    m_waitingExitSelection = exitSelection;
    m_messages->ensureMessagePropertiesForIds(ids);
    if (what == Waiting::Forward) {
        m_pendingMenuTimer.start();
    }
    toast(QStringLiteral("Loading message permissions…"));
}

void MessageActions::clearWaiting()
{
    m_waiting = Waiting::None;
    m_waitingIds.clear();
    m_waitingExitSelection = false;
}

void MessageActions::editNewestOwnMessage()
{
    m_pendingEditId = 0;
    for (int i = m_messages->size() - 1; i >= 0; --i) {
        const QVariantMap row = m_messages->rowAt(i);
        const QString type = row.value(QStringLiteral("content_type")).toString();
        const qint64 id = row.value(QStringLiteral("id")).toLongLong();
        // Voice notes and files in between are passed over; a message still
        // being sent has no id of its own yet.
        if (!isTrue(row, "outgoing") || row.contains(QStringLiteral("sending_state")) || id < 1 ||
            !(type.isEmpty() || type == QLatin1String("messageText"))) {
            continue;
        }
        const QVariantMap props = m_messages->messagePropertiesForId(id);
        if (props.isEmpty()) {
            m_pendingEditId = id;
            m_messages->requestMessageProperties(id);
        } else if (isTrue(props, "can_be_edited")) {
            m_composer->startEditMessage(id);
        } else {
            log(QStringLiteral("ui: edit newest skipped message_id=%1 (not editable)\n").arg(id));
        }
        return;
    }
}

void MessageActions::onPropertiesArrived(qint64 messageId)
{
    if (m_pendingEditId == messageId) {
        m_pendingEditId = 0;
        if (isTrue(m_messages->messagePropertiesForId(messageId), "can_be_edited")) {
            m_composer->startEditMessage(messageId);
        }
    }
    if (m_pendingMenuId == messageId) {
        showMessageMenu(messageId);
    }
    if (m_waiting != Waiting::None && m_waitingIds.contains(messageId) &&
        missingProperties(m_waitingIds).isEmpty()) {
        const Waiting what = m_waiting;
        const QList<qint64> ids = m_waitingIds;
        const bool exit = m_waitingExitSelection;
        clearWaiting();
        if (what == Waiting::Forward) {
            showForwardDialog(ids, exit);
        } else {
            showDeleteDialog(ids, exit);
        }
    }
    updateSelectionHeaderActions();
}

void MessageActions::onPropertiesFailed(qint64 messageId)
{
    if (m_pendingMenuId == messageId) {
        showMessageMenuHeuristic(messageId);
    }
    if (m_waiting == Waiting::None || !m_waitingIds.contains(messageId)) {
        return;
    }
    const bool forward = m_waiting == Waiting::Forward;
    m_waitingIds.removeAll(messageId);
    toast(forward ? QStringLiteral("Some messages can't be forwarded")
                  : QStringLiteral("Some messages can't be deleted"));
    if (m_waitingIds.isEmpty()) {
        clearWaiting();
        toast(forward ? QStringLiteral("Cannot forward selected messages")
                      : QStringLiteral("Cannot delete selected messages"));
        return;
    }
    if (missingProperties(m_waitingIds).isEmpty()) {
        const QList<qint64> ids = m_waitingIds;
        const bool exit = m_waitingExitSelection;
        clearWaiting();
        if (forward) {
            showForwardDialog(ids, exit);
        } else {
            showDeleteDialog(ids, exit);
        }
    }
}

void MessageActions::onMessagesRemoved(const QList<qint64> &ids)
{
    bool changed = false;
    for (qint64 id : ids) {
        changed = m_selected.removeAll(id) > 0 || changed;
        m_waitingIds.removeAll(id);
    }
    if (m_pendingMenuId != 0 && ids.contains(m_pendingMenuId)) {
        m_pendingMenuId = 0;
        m_pendingMenuTimer.stop();
    }
    if (!m_selectionMode || !changed) {
        return;
    }
    Q_EMIT selectionCountChanged(int(m_selected.size()));
    if (m_selected.isEmpty()) {
        setSelectionMode(false);
        return;
    }
    updateSelectionHeaderActions();
}

void MessageActions::onChatChanged()
{
    m_pendingMenuId = 0;
    m_pendingEditId = 0;
    m_pendingMenuTimer.stop();
    clearWaiting();
    setSelectionMode(false);
    m_selected.clear();
}

// ---------------------------------------------------------------- forwarding

bool MessageActions::selectionMayDo(const QString &emptyText, const QString &refusedText,
                                    const std::function<bool(const QVariantMap &)> &allowed)
{
    if (m_selected.isEmpty()) {
        toast(emptyText);
        return false;
    }
    // With every message's properties known, a selection none of which may
    // do it is refused here; otherwise the dialog waits for them.
    if (missingProperties(m_selected).isEmpty()) {
        for (qint64 id : m_selected) {
            if (allowed(m_messages->messagePropertiesForId(id))) {
                return true;
            }
        }
        toast(refusedText);
        return false;
    }
    return true;
}

void MessageActions::onSelectionForwardTapped()
{
    if (selectionMayDo(
            QStringLiteral("Select messages to forward"),
            QStringLiteral("Cannot forward selected messages"),
            [](const QVariantMap &props) { return isTrue(props, "can_be_forwarded"); })) {
        showForwardDialog(m_selected, true);
    }
}

void MessageActions::showForwardDialog(const QList<qint64> &messageIds, bool exitSelection)
{
    if (messageIds.isEmpty() || chatId() == 0) {
        return;
    }
    if (!missingProperties(messageIds).isEmpty()) {
        waitFor(Waiting::Forward, messageIds, exitSelection);
        return;
    }
    QList<qint64> ids;
    for (qint64 id : messageIds) {
        if (isTrue(m_messages->messagePropertiesForId(id), "can_be_forwarded")) {
            ids.append(id);
        }
    }
    forwardAllowed(ids, messageIds.size(), exitSelection);
}

void MessageActions::showForwardDialogHeuristic(const QList<qint64> &messageIds, bool exitSelection)
{
    // Without the backend's word: whatever has been sent may go.
    QList<qint64> ids;
    for (qint64 id : messageIds) {
        const QVariantMap row = rowById(id);
        if (!row.isEmpty() && row.value(QStringLiteral("sending_state")).toString().isEmpty()) {
            ids.append(id);
        }
    }
    forwardAllowed(ids, messageIds.size(), exitSelection);
}

void MessageActions::forwardAllowed(const QList<qint64> &ids, int asked, bool exitSelection)
{
    if (ids.isEmpty()) {
        toast(QStringLiteral("Cannot forward selected messages"));
        return;
    }
    if (ids.size() < asked) {
        toast(QStringLiteral("Some messages can't be forwarded"));
    }
    openForwardPicker(ids, exitSelection);
}

void MessageActions::openForwardPicker(const QList<qint64> &ids, bool exitSelection)
{
    ChatListModel *chats = m_messages->chats();
    const int count = chats ? chats->size() : 0;
    if (count == 0) {
        toast(QStringLiteral("No chats"));
        return;
    }
    DialogRequest request;
    request.kind = DialogRequest::Forward;
    request.title = QStringLiteral("Forward to");
    request.cancelLabel = QStringLiteral("Cancel");
    QList<qint64> chatIds;
    for (int i = 0; i < count; ++i) {
        const QVariantMap chat = chats->rowAt(i);
        const qint64 id = ChatListModel::chatRowId(chat);
        const QString title = chat.value(QStringLiteral("title")).toString();
        chatIds.append(id);
        request.items << (title.isEmpty() ? QStringLiteral("Chat %1").arg(id) : title);
    }
    request.properties.insert(QStringLiteral("fwd_chat_ids"), joinIds(chatIds));
    request.properties.insert(QStringLiteral("fwd_message_ids"), joinIds(ids));
    request.properties.insert(QStringLiteral("fwd_from_chat_id"), QString::number(chatId()));
    request.properties.insert(QStringLiteral("fwd_exit_selection"), flagText(exitSelection));
    Q_EMIT dialogRequested(request);
}

void MessageActions::onForwardDialogFinished(const QVariantMap &dialogProperties, int result,
                                             int index)
{
    if (result != 2) {
        return;
    }
    const QList<qint64> chatIds = splitIds(dialogProperties.value(QStringLiteral("fwd_chat_ids")));
    const QList<qint64> ids = splitIds(dialogProperties.value(QStringLiteral("fwd_message_ids")));
    const qint64 from =
        dialogProperties.value(QStringLiteral("fwd_from_chat_id")).toString().toLongLong();
    if (index < 0 || index >= chatIds.size() || ids.isEmpty() || from == 0) {
        return;
    }
    QString line = QStringLiteral("forward %1 %2").arg(chatIds.at(index)).arg(from);
    for (qint64 id : ids) {
        line += QStringLiteral(" %1").arg(id);
    }
    send(line);
    toast(QStringLiteral("Forwarded"));
    if (isTrue(dialogProperties, "fwd_exit_selection")) {
        setSelectionMode(false);
    }
}

// ---------------------------------------------------------------- deleting

void MessageActions::onSelectionDeleteTapped()
{
    if (selectionMayDo(QStringLiteral("Select messages to delete"),
                       QStringLiteral("Cannot delete selected messages"),
                       [](const QVariantMap &props) {
                           return isTrue(props, "can_be_deleted_only_for_self") ||
                                  isTrue(props, "can_be_deleted_for_all_users");
                       })) {
        showDeleteDialog(m_selected, true);
    }
}

void MessageActions::showDeleteDialog(const QList<qint64> &messageIds, bool exitSelection)
{
    if (messageIds.isEmpty() || chatId() == 0) {
        return;
    }
    if (!missingProperties(messageIds).isEmpty()) {
        waitFor(Waiting::Delete, messageIds, exitSelection);
        return;
    }
    // Split by how each message may go; a message that may go for everybody
    // but not for the user alone leaves no choice.
    QList<qint64> all, self, ids;
    bool choice = true;
    bool othersOnlyForSelf = false;
    bool allOwn = true;
    for (qint64 id : messageIds) {
        const QVariantMap props = m_messages->messagePropertiesForId(id);
        const bool forAll = isTrue(props, "can_be_deleted_for_all_users");
        const bool forSelf = isTrue(props, "can_be_deleted_only_for_self");
        if (forAll) {
            all.append(id);
            choice = choice && forSelf;
            allOwn = allOwn && isTrue(rowById(id), "outgoing");
        } else if (forSelf) {
            self.append(id);
            othersOnlyForSelf = true;
        } else {
            continue;
        }
        ids.append(id);
    }
    if (ids.isEmpty()) {
        toast(QStringLiteral("Cannot delete selected messages"));
        return;
    }
    if (ids.size() < messageIds.size()) {
        toast(QStringLiteral("Some messages can't be deleted"));
    }
    DialogRequest request;
    request.kind = DialogRequest::Delete;
    request.title = QStringLiteral("Delete");
    request.body = ids.size() == 1 ? QStringLiteral("Delete this message?")
                                   : QStringLiteral("%1 messages will be deleted.").arg(ids.size());
    request.confirmLabel = QStringLiteral("Delete");
    request.cancelLabel = QStringLiteral("Cancel");
    if (!all.isEmpty() && choice) {
        const QString type = m_session->chatType();
        if (type == QLatin1String("private") || type == QLatin1String("secret")) {
            const QVariantMap info = m_chatInfo ? m_chatInfo(chatId()) : QVariantMap();
            const qint64 peer = info.value(QStringLiteral("peer_user_id")).toLongLong();
            QString name = (peer != 0 && m_userName) ? m_userName(peer).trimmed() : QString();
            if (name.isEmpty()) {
                name = m_session->chatRow().value(QStringLiteral("title")).toString().trimmed();
            }
            if (name.isEmpty()) {
                name = QStringLiteral("the other side");
            }
            request.optionText = QStringLiteral("Delete for %1").arg(name);
        } else if (othersOnlyForSelf && allOwn) {
            request.optionText = QStringLiteral("Delete my messages for everyone");
        } else {
            request.optionText = QStringLiteral("Delete for everyone");
        }
    } else {
        request.optionChecked = !all.isEmpty();
    }
    request.properties.insert(QStringLiteral("del_chat_id"), QString::number(chatId()));
    request.properties.insert(QStringLiteral("del_message_ids"), joinIds(ids));
    request.properties.insert(QStringLiteral("del_message_ids_all"), joinIds(all));
    request.properties.insert(QStringLiteral("del_message_ids_self"), joinIds(self));
    request.properties.insert(QStringLiteral("del_exit_selection"), flagText(exitSelection));
    Q_EMIT dialogRequested(request);
}

void MessageActions::onDeleteDialogFinished(const QVariantMap &dialogProperties, int result,
                                            bool forEverybody)
{
    if (result != 2) {
        return;
    }
    const qint64 chat =
        dialogProperties.value(QStringLiteral("del_chat_id")).toString().toLongLong();
    QList<qint64> all = splitIds(dialogProperties.value(QStringLiteral("del_message_ids_all")));
    QList<qint64> self = splitIds(dialogProperties.value(QStringLiteral("del_message_ids_self")));
    if (!forEverybody) {
        self = splitIds(dialogProperties.value(QStringLiteral("del_message_ids")));
        all.clear();
    }
    if (chat == 0 || (all.isEmpty() && self.isEmpty())) {
        return;
    }
    toast(QStringLiteral("Deleting…"));
    const auto line = [chat](const QString &how, const QList<qint64> &ids) -> QString {
        QString text = QStringLiteral("delete %1 %2").arg(chat).arg(how);
        for (qint64 id : ids) {
            text += QStringLiteral(" %1").arg(id);
        }
        return text;
    };
    if (!all.isEmpty()) {
        send(line(QStringLiteral("all"), all));
    }
    if (!self.isEmpty()) {
        send(line(QStringLiteral("self"), self));
    }
    if (isTrue(dialogProperties, "del_exit_selection")) {
        setSelectionMode(false);
    }
}

// ---------------------------------------------------------------- reactions

QString MessageActions::reactionLabel(const QString &emoji)
{
    const QString bare = withoutVariationSelector(emoji);
    for (const ReactionName &r : kReactionNames) {
        if (bare == QString::fromUtf8(r.emoji)) {
            return emoji + QLatin1Char(' ') + QLatin1String(r.name);
        }
    }
    return emoji;
}

QStringList MessageActions::defaultReactionEmojis()
{
    QStringList emojis;
    for (const ReactionName &r : kReactionNames) {
        emojis << QString::fromUtf8(r.emoji);
    }
    return emojis;
}

QStringList MessageActions::chatAvailableReactionEmojis(qint64 chatId, bool *known, bool *all)
{
    const QStringList emojis = availableEmojis(chatId, known, all);
    log(QStringLiteral("react: chat available known=%1 all=%2 count=%3\n")
            .arg(flagText(*known), flagText(*all))
            .arg(emojis.size()));
    return emojis;
}

QStringList MessageActions::availableEmojis(qint64 chatId, bool *known, bool *all) const
{
    const QVariantMap info = m_chatInfo ? m_chatInfo(chatId) : QVariantMap();
    *known = info.contains(QStringLiteral("available_reactions_all"));
    *all = info.value(QStringLiteral("available_reactions_all")).toBool();
    QStringList emojis;
    if (!*known || *all) {
        emojis = defaultReactionEmojis();
    } else {
        const QVariant listed = info.value(QStringLiteral("available_reactions"));
        const QStringList given = listed.type() == QVariant::String
                                      ? listed.toString().split(QLatin1Char(','))
                                      : listed.toStringList();
        for (const QString &emoji : given) {
            const QString word = emoji.trimmed();
            if (isCommandWord(word) && !emojis.contains(word)) {
                emojis << word;
            }
        }
    }
    return emojis;
}

bool MessageActions::messageHasChosenReaction(qint64 messageId, const QString &emoji) const
{
    const QString bare = withoutVariationSelector(emoji);
    for (const QVariant &chip : rowById(messageId).value(QStringLiteral("reactions")).toList()) {
        const QVariantMap map = chip.toMap();
        if (withoutVariationSelector(map.value(QStringLiteral("emoji")).toString()) == bare) {
            return map.value(QStringLiteral("chosen")).toBool();
        }
    }
    return false;
}

void MessageActions::showReactionsDialog(qint64 messageId)
{
    const qint64 chat = chatId();
    log(QStringLiteral("showReactionsDialog chat_id=%1 msg_id=%2\n").arg(chat).arg(messageId));
    bool known = false;
    bool all = false;
    const QStringList emojis = chatAvailableReactionEmojis(chat, &known, &all);
    if (emojis.isEmpty()) {
        toast(QStringLiteral("Reactions are disabled in this chat"));
        return;
    }
    DialogRequest request;
    request.kind = DialogRequest::Reactions;
    request.title = QStringLiteral("Reactions");
    request.cancelLabel = QStringLiteral("Cancel");
    for (const QString &emoji : emojis) {
        QString label = reactionLabel(emoji);
        if (messageHasChosenReaction(messageId, emoji)) {
            label += QStringLiteral(" \u2713");
        }
        request.items << label;
    }
    request.properties.insert(QStringLiteral("react_chat_id"), QString::number(chat));
    request.properties.insert(QStringLiteral("react_message_id"), QString::number(messageId));
    request.properties.insert(QStringLiteral("react_emojis"), emojis);
    Q_EMIT dialogRequested(request);
}

void MessageActions::handleReactionsDialogFinishedCommon(QVariantMap *dialogProperties,
                                                         const QString &which, int result,
                                                         int index)
{
    if (isTrue(*dialogProperties, "react_handled")) {
        log(QStringLiteral("react: finished dup which=%1 value=%2\n").arg(which).arg(index));
        return;
    }
    dialogProperties->insert(QStringLiteral("react_handled"), kTrue);
    const qint64 chat =
        dialogProperties->value(QStringLiteral("react_chat_id")).toString().toLongLong();
    const qint64 messageId =
        dialogProperties->value(QStringLiteral("react_message_id")).toString().toLongLong();
    const QStringList emojis =
        dialogProperties->value(QStringLiteral("react_emojis")).toStringList();
    if (chat == 0 || messageId < 1 || result != 2 || index < 0) {
        log(QStringLiteral("react: skip (missing ids/selection)\n"));
        return;
    }
    if (index >= emojis.size() || !isCommandWord(emojis.at(index))) {
        log(QStringLiteral("react: skip invalid index=%1 emojis=%2\n")
                .arg(index)
                .arg(emojis.size()));
        return;
    }
    sendReaction(chat, messageId, emojis.at(index));
}

void MessageActions::sendReaction(qint64 chat, qint64 messageId, const QString &emoji)
{
    const bool wasChosen = chat == chatId() && messageHasChosenReaction(messageId, emoji);
    log(QStringLiteral("react: pick emoji=%1 was_chosen=%2\n").arg(emoji, flagText(wasChosen)));
    if (chat == chatId()) {
        applyOptimisticReactionToMessage(messageId, emoji, !wasChosen);
    }
    const QString mode = wasChosen ? QStringLiteral("remove") : QStringLiteral("add");
    log(QStringLiteral("react: send %1 emoji=%2\n").arg(mode, emoji));
    send(QStringLiteral("react %1 %2 %3 %4").arg(chat).arg(messageId).arg(emoji, mode));
}

void MessageActions::onReactionChipTapped(qint64 messageId, const QString &emoji)
{
    const qint64 chat = chatId();
    if (chat == 0 || !m_messages->containsMessage(messageId) || !isCommandWord(emoji)) {
        return;
    }
    bool known = false;
    bool all = false;
    const QStringList allowed = availableEmojis(chat, &known, &all);
    if (allowed.isEmpty()) {
        toast(QStringLiteral("Reactions are disabled in this chat"));
        return;
    }
    // Taking one's own reaction back is always possible; adding one needs
    // the chat to allow it. Chips and the chat's list may differ in
    // variation selectors.
    const QString bare = withoutVariationSelector(emoji);
    QString pick;
    for (const QString &e : allowed) {
        if (withoutVariationSelector(e) == bare) {
            pick = e;
        }
    }
    if (messageHasChosenReaction(messageId, emoji) || all) {
        pick = emoji;
    }
    if (pick.isEmpty()) {
        toast(QStringLiteral("This reaction is not available in this chat"));
        return;
    }
    sendReaction(chat, messageId, pick);
}

void MessageActions::applyOptimisticReactionToMessage(qint64 messageId, const QString &emoji,
                                                      bool add)
{
    QVariantMap row = rowById(messageId);
    if (row.isEmpty()) {
        return;
    }
    const QString bare = withoutVariationSelector(emoji);
    QVariantList chips = row.value(QStringLiteral("reactions")).toList();
    bool found = false;
    for (int i = 0; i < chips.size(); ++i) {
        QVariantMap chip = chips.at(i).toMap();
        if (withoutVariationSelector(chip.value(QStringLiteral("emoji")).toString()) != bare) {
            continue;
        }
        found = true;
        const int count = chip.value(QStringLiteral("count")).toInt() + (add ? 1 : -1);
        if (count <= 0) {
            chips.removeAt(i);
        } else {
            chip.insert(QStringLiteral("count"), count);
            chip.insert(QStringLiteral("chosen"), add);
            chips[i] = chip;
        }
        break;
    }
    if (!found) {
        if (!add) {
            return;
        }
        chips.append(QVariantMap{{QStringLiteral("emoji"), emoji},
                                 {QStringLiteral("count"), 1},
                                 {QStringLiteral("chosen"), true}});
    }
    if (chips.isEmpty()) {
        row.remove(QStringLiteral("reactions"));
    } else {
        row.insert(QStringLiteral("reactions"), chips);
    }
    writeRow(messageId, row);
}
