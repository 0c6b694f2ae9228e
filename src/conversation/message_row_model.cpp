#include "conversation/message_row_model.h"

#include "chats/avatar_download_queue.h"
#include "chats/chat_list_model.h"
#include "platform/array_data_model.h"

#include <QFileInfo>
#include <QTimer>

#include <algorithm>
#include <vector>

namespace {

qint64 i64(const QVariantMap &m, const QString &key)
{
    return m.value(key).toLongLong();
}

QString flagText(bool on)
{
    return on ? QStringLiteral("true") : QStringLiteral("false");
}

bool isTrue(const QVariantMap &row, const QString &key)
{
    return row.value(key).toString() == QLatin1String("true");
}

} // namespace

MessageRowModel::MessageRowModel(ArrayDataModel *rows, ChatListModel *chats,
                                 AvatarDownloadQueue *avatars, QObject *parent)
    : QObject(parent), m_rows(rows), m_chats(chats), m_avatars(avatars)
{
    Q_ASSERT(m_rows);
    follow_model_changes(
        m_rows, this,
        [this] {
            if (m_writing == 0) {
                rebuildIndex();
            }
        },
        [this](int first, int last) {
            if (m_writing == 0) {
                onForeignDataChanged(first, last);
            }
        });
    rebuildIndex();
}

int MessageRowModel::size() const
{
    return m_rows->size();
}

QVariantMap MessageRowModel::rowAt(int index) const
{
    return m_rows->value(index);
}

qint64 MessageRowModel::messageIdAt(int index) const
{
    if (index < 0 || index >= int(m_meta.size())) {
        return 0;
    }
    return m_meta[size_t(index)]->id;
}

// ---------------------------------------------------------------- chat

void MessageRowModel::setOpenChat(qint64 chatId, const QString &chatType)
{
    clearPerChat();
    m_chatId = chatId;
    m_chatType = chatType;
}

void MessageRowModel::setChatType(const QString &chatType)
{
    if (chatType == m_chatType) {
        return;
    }
    m_chatType = chatType;
    recomputeMessageSenderGroupingAll();
}

void MessageRowModel::clearMessages()
{
    const qint64 chatId = m_chatId;
    const QString chatType = m_chatType;
    clearPerChat();
    m_chatId = chatId;
    m_chatType = chatType;
}

void MessageRowModel::clearPerChat()
{
    ++m_writing;
    m_rows->clear();
    --m_writing;
    clearIndex();
    m_nextBack = 0;
    m_nextFront = -1;
    m_strings.clear();
    m_numbers.clear();
    m_batchOpen = false;
    m_batchReplace = false;
    m_batch.clear();
    m_batchIndex.clear();
    m_dirtyReplyTargets.clear();
    m_replyRebuildAll = false;
    m_properties.clear();
    m_propertiesPending.clear();
}

// ---------------------------------------------------------------- index

MessageRowModel::RowMeta MessageRowModel::metaOf(const QVariantMap &row) const
{
    RowMeta m;
    m.id = i64(row, QStringLiteral("id"));
    m.senderPhoto = qMax<qint64>(0, i64(row, QStringLiteral("sender_photo_small_id")));
    m.mediaFile = i64(row, QStringLiteral("media_file_id"));
    m.thumbFile = i64(row, QStringLiteral("media_thumb_file_id"));
    m.replyTo = qMax<qint64>(0, i64(row, QStringLiteral("reply_to_message_id")));
    m.outgoing = isTrue(row, QStringLiteral("outgoing"));
    m.pending = m.outgoing &&
                row.value(QStringLiteral("sending_state")).toString() == QLatin1String("pending");
    return m;
}

void MessageRowModel::indexAdd(const RowMeta &m)
{
    if (m.id == 0) {
        return;
    }
    m_index.insert(m.id, m.ordinal);
    if (m.senderPhoto > 0) {
        m_rowsBySenderPhoto[m.senderPhoto].insert(m.id);
    }
    if (m.mediaFile != 0) {
        m_rowsByMediaFile.insert(m.mediaFile, m.id);
    }
    if (m.thumbFile != 0) {
        m_rowsByThumbFile.insert(m.thumbFile, m.id);
    }
    if (m.replyTo > 0) {
        m_repliesByTarget.insert(m.replyTo, m.id);
    }
    if (m.outgoing && m.id >= 1) {
        m_outgoingIds.insert(m.id);
    }
    if (m.pending) {
        m_pendingIds.insert(m.id);
    }
}

void MessageRowModel::indexRemove(const RowMeta &m)
{
    if (m.id == 0) {
        return;
    }
    const auto it = m_index.constFind(m.id);
    if (it != m_index.constEnd() && it.value() == m.ordinal) {
        m_index.erase(it);
    }
    if (m.senderPhoto > 0) {
        auto s = m_rowsBySenderPhoto.find(m.senderPhoto);
        if (s != m_rowsBySenderPhoto.end()) {
            s->remove(m.id);
            if (s->isEmpty()) {
                m_rowsBySenderPhoto.erase(s);
            }
        }
    }
    if (m.mediaFile != 0) {
        m_rowsByMediaFile.remove(m.mediaFile, m.id);
    }
    if (m.thumbFile != 0) {
        m_rowsByThumbFile.remove(m.thumbFile, m.id);
    }
    if (m.replyTo > 0) {
        m_repliesByTarget.remove(m.replyTo, m.id);
    }
    if (m.outgoing) {
        m_outgoingIds.erase(m.id);
    }
    m_pendingIds.remove(m.id);
}

void MessageRowModel::clearIndex()
{
    m_meta.clear();
    m_index.clear();
    m_rowsBySenderPhoto.clear();
    m_outgoingIds.clear();
    m_pendingIds.clear();
    m_rowsByMediaFile.clear();
    m_rowsByThumbFile.clear();
    m_repliesByTarget.clear();
}

void MessageRowModel::rebuildIndex()
{
    clearIndex();
    const QList<QVariantMap> &rows = m_rows->rows();
    for (int i = 0; i < rows.size(); ++i) {
        RowMeta m = metaOf(rows.at(i));
        m.ordinal = i;
        if (m_index.contains(m.id)) {
            m.id = 0; // a second row with a known id stays out of the index
        }
        m_meta.push_back(std::make_unique<RowMeta>(m));
        indexAdd(m);
    }
    m_nextBack = rows.size();
    m_nextFront = -1;
}

void MessageRowModel::onForeignDataChanged(int first, int last)
{
    for (int i = qMax(first, 0); i <= last && i < int(m_meta.size()); ++i) {
        RowMeta &old = *m_meta[size_t(i)];
        RowMeta fresh = metaOf(m_rows->rows().at(i));
        fresh.ordinal = old.ordinal;
        if (fresh.id != old.id || fresh.senderPhoto != old.senderPhoto ||
            fresh.mediaFile != old.mediaFile || fresh.thumbFile != old.thumbFile ||
            fresh.replyTo != old.replyTo || fresh.outgoing != old.outgoing ||
            fresh.pending != old.pending) {
            indexRemove(old);
            if (fresh.id != old.id && m_index.contains(fresh.id)) {
                fresh.id = 0;
            }
            old = fresh;
            indexAdd(fresh);
        }
    }
}

int MessageRowModel::indexOfOrdinal(qint64 ordinal) const
{
    const auto it = std::lower_bound(
        m_meta.begin(), m_meta.end(), ordinal,
        [](const std::unique_ptr<RowMeta> &m, qint64 value) { return m->ordinal < value; });
    if (it == m_meta.end() || (*it)->ordinal != ordinal) {
        return -1;
    }
    return int(it - m_meta.begin());
}

qint64 MessageRowModel::newestIncomingMessageId() const
{
    for (auto it = m_meta.rbegin(); it != m_meta.rend(); ++it) {
        if (!(*it)->outgoing && (*it)->id >= 1) {
            return (*it)->id;
        }
    }
    return 0;
}

int MessageRowModel::findMessageRowIndexById(qint64 messageId) const
{
    if (messageId == 0) {
        return -1;
    }
    const auto it = m_index.constFind(messageId);
    if (it == m_index.constEnd()) {
        return -1;
    }
    return indexOfOrdinal(it.value());
}

// ---------------------------------------------------------------- writing

void MessageRowModel::writeRow(int index, const QVariantMap &row)
{
    ++m_writing;
    m_rows->replace(index, row);
    --m_writing;
    onForeignDataChanged(index, index);
}

void MessageRowModel::appendRow(const QVariantMap &row)
{
    ++m_writing;
    m_rows->append(row);
    --m_writing;
    RowMeta m = metaOf(row);
    m.ordinal = m_nextBack++;
    m_meta.push_back(std::make_unique<RowMeta>(m));
    indexAdd(m);
}

void MessageRowModel::insertFront(const QList<QVariantMap> &rows)
{
    ++m_writing;
    m_rows->insert(0, rows);
    --m_writing;
    for (int i = rows.size() - 1; i >= 0; --i) {
        RowMeta m = metaOf(rows.at(i));
        m.ordinal = m_nextFront--;
        m_meta.push_front(std::make_unique<RowMeta>(m));
        indexAdd(m);
    }
}

void MessageRowModel::replaceAll(const QList<QVariantMap> &rows)
{
    ++m_writing;
    m_rows->setRows(rows);
    --m_writing;
    rebuildIndex();
}

QString MessageRowModel::intern(const QString &text)
{
    const auto it = m_strings.constFind(text);
    if (it != m_strings.constEnd()) {
        return *it;
    }
    m_strings.insert(text);
    return text;
}

QString MessageRowModel::internNumber(qint64 value)
{
    const auto it = m_numbers.constFind(value);
    if (it != m_numbers.constEnd()) {
        return it.value();
    }
    const QString text = QString::number(value);
    m_numbers.insert(value, text);
    return text;
}

// ---------------------------------------------------------------- rows

QVariantMap MessageRowModel::buildMessageRow(const QVariantMap &e)
{
    QVariantMap row;
    auto has = [&e](const char *key) { return e.contains(QLatin1String(key)); };
    auto str = [&e](const char *key) { return e.value(QLatin1String(key)).toString(); };
    auto num = [&e](const char *key) { return e.value(QLatin1String(key)).toLongLong(); };

    row.insert(QStringLiteral("id"), QString::number(num("id")));
    if (has("date")) {
        row.insert(QStringLiteral("date"), QString::number(num("date")));
    }
    row.insert(QStringLiteral("content_type"), intern(str("content_type")));
    row.insert(QStringLiteral("text"), str("text"));
    row.insert(QStringLiteral("outgoing"), flagText(e.value(QStringLiteral("outgoing")).toBool()));
    if (has("sending_state")) {
        row.insert(QStringLiteral("sending_state"), intern(str("sending_state")));
    }
    if (has("sender_user_id")) {
        row.insert(QStringLiteral("sender_user_id"), internNumber(num("sender_user_id")));
    }
    if (has("sender_name")) {
        row.insert(QStringLiteral("sender_name"), intern(str("sender_name")));
    }
    if (has("sender_photo_small_id")) {
        row.insert(QStringLiteral("sender_photo_small_id"),
                   internNumber(num("sender_photo_small_id")));
    }
    if (has("reply_to_message_id")) {
        row.insert(QStringLiteral("reply_to_message_id"),
                   QString::number(num("reply_to_message_id")));
    }
    if (has("forwarded")) {
        row.insert(QStringLiteral("forwarded"), intern(str("forwarded")));
    }
    if (has("media_type")) {
        row.insert(QStringLiteral("media_type"), intern(str("media_type")));
    }
    if (has("media_name")) {
        row.insert(QStringLiteral("media_name"), str("media_name"));
    }
    if (has("media_size")) {
        row.insert(QStringLiteral("media_size"), QString::number(num("media_size")));
    }
    // Keys are literals so that every row shares their text.
    if (has("media_w")) {
        row.insert(QStringLiteral("media_w"), internNumber(num("media_w")));
    }
    if (has("media_h")) {
        row.insert(QStringLiteral("media_h"), internNumber(num("media_h")));
    }
    if (has("media_duration")) {
        row.insert(QStringLiteral("media_duration"), internNumber(num("media_duration")));
    }
    const qint64 mediaFile = num("media_file_id");
    if (has("media_file_id")) {
        row.insert(QStringLiteral("media_file_id"), QString::number(mediaFile));
    }
    const qint64 thumbFile = num("media_thumb_file_id");
    if (has("media_thumb_file_id")) {
        row.insert(QStringLiteral("media_thumb_file_id"), QString::number(thumbFile));
    }
    const QVariantList reactions = e.value(QStringLiteral("reactions")).toList();
    if (!reactions.isEmpty()) {
        row.insert(QStringLiteral("reactions"), reactions);
    }

    if (mediaFile != 0) {
        const auto path = m_mediaPaths.find(mediaFile);
        if (path != m_mediaPaths.end()) {
            // A file deleted behind our back must be fetched again.
            if (QFileInfo::exists(path.value())) {
                row.insert(QStringLiteral("media_path"), path.value());
            } else {
                m_mediaPaths.erase(path);
            }
        }
        const QString shared = m_sharedPaths.value(mediaFile);
        if (!shared.isEmpty() && QFileInfo(shared).isFile()) {
            row.insert(QStringLiteral("file_shared_path"), shared);
        }
        if (str("media_type") == QLatin1String("video_note")) {
            Q_EMIT mediaDownloadRequested(mediaFile);
        }
    }
    if (thumbFile != 0) {
        const auto thumb = m_thumbPaths.constFind(thumbFile);
        if (thumb != m_thumbPaths.constEnd()) {
            row.insert(QStringLiteral("media_thumb_path"), thumb.value());
        }
    }
    return row;
}

void MessageRowModel::annotateMessageSenderGrouping(QVariantMap *row, const QVariantMap *previous)
{
    const QString type = m_chatType;
    const qint64 sender = i64(*row, QStringLiteral("sender_user_id"));
    const bool indent = !isTrue(*row, QStringLiteral("outgoing")) && !type.isEmpty() &&
                        type != QLatin1String("private") && type != QLatin1String("secret") &&
                        sender >= 1;
    bool show = false;
    if (indent) {
        show = !previous || !(!isTrue(*previous, QStringLiteral("outgoing")) &&
                              isTrue(*previous, QStringLiteral("sender_indent")) &&
                              i64(*previous, QStringLiteral("sender_user_id")) == sender);
    }
    row->insert(QStringLiteral("sender_indent"), flagText(indent));
    row->insert(QStringLiteral("sender_show"), flagText(show));

    const qint64 photo = i64(*row, QStringLiteral("sender_photo_small_id"));
    if (photo >= 1) {
        const auto path = m_avatarPaths.constFind(photo);
        if (path != m_avatarPaths.constEnd()) {
            row->insert(QStringLiteral("sender_avatar_path"), path.value());
        } else if (m_avatars) {
            m_avatars->enqueueAvatarDownload(photo); // asks only once per photo
        }
    }
}

void MessageRowModel::regroupAt(int index)
{
    if (index < 0 || index >= size()) {
        return;
    }
    const QVariantMap before = m_rows->rows().at(index);
    QVariantMap row = before;
    if (index > 0) {
        const QVariantMap &previous = m_rows->rows().at(index - 1);
        annotateMessageSenderGrouping(&row, &previous);
    } else {
        annotateMessageSenderGrouping(&row, nullptr);
    }
    static const char *const keys[] = {"sender_indent", "sender_show", "sender_avatar_path"};
    for (const char *key : keys) {
        if (row.value(QLatin1String(key)) != before.value(QLatin1String(key))) {
            writeRow(index, row);
            return;
        }
    }
}

void MessageRowModel::recomputeMessageSenderGroupingAll()
{
    for (int i = 0; i < size(); ++i) {
        regroupAt(i);
    }
}

QString MessageRowModel::replyPreviewTextFromMessageRow(const QVariantMap &row)
{
    QString text = row.value(QStringLiteral("text")).toString().trimmed();
    text.replace(QChar(13), QChar(10));
    if (!text.isEmpty()) {
        return text;
    }
    const QString media = row.value(QStringLiteral("media_type")).toString();
    if (media == QLatin1String("photo")) {
        return QStringLiteral("[Photo]");
    }
    if (media == QLatin1String("video")) {
        return QStringLiteral("[Video]");
    }
    if (media == QLatin1String("voice")) {
        return QStringLiteral("[Voice message]");
    }
    if (media == QLatin1String("file")) {
        const QString name = row.value(QStringLiteral("media_name")).toString().trimmed();
        return name.isEmpty() ? QStringLiteral("[File]") : QStringLiteral("[File] ") + name;
    }
    return QString(QChar(0x2026));
}

QString MessageRowModel::makeReplyPreviewForMessageId(qint64 messageId) const
{
    const int index = findMessageRowIndexById(messageId);
    if (index < 0) {
        return QString();
    }
    return replyPreviewTextFromMessageRow(m_rows->rows().at(index));
}

void MessageRowModel::refreshRepliesTo(qint64 targetId)
{
    const auto first = m_repliesByTarget.constFind(targetId);
    if (first == m_repliesByTarget.constEnd()) {
        return;
    }
    const QList<qint64> answering = m_repliesByTarget.values(targetId);
    const QString preview = makeReplyPreviewForMessageId(targetId);
    for (qint64 id : answering) {
        const int index = findMessageRowIndexById(id);
        if (index < 0) {
            continue;
        }
        const QVariantMap &current = m_rows->rows().at(index);
        if (current.value(QStringLiteral("reply_preview")).toString() != preview) {
            QVariantMap row = current;
            row.insert(QStringLiteral("reply_preview"), preview);
            writeRow(index, row);
        }
    }
}

void MessageRowModel::updateReplyPreviewsInModel()
{
    const QList<qint64> targets = m_repliesByTarget.uniqueKeys();
    for (qint64 target : targets) {
        refreshRepliesTo(target);
    }
}

void MessageRowModel::scheduleReplyPreviewsRebuild()
{
    m_replyRebuildAll = true;
    if (m_replyRebuildPending) {
        return;
    }
    m_replyRebuildPending = true;
    QTimer::singleShot(0, this, &MessageRowModel::onReplyPreviewsRebuildTimeout);
}

// The events name the messages whose text changed; only the rows answering
// those need a new preview, still coalesced into one pass per turn.
void MessageRowModel::markReplyTargetDirty(qint64 targetId)
{
    if (!m_repliesByTarget.contains(targetId)) {
        return;
    }
    m_dirtyReplyTargets.insert(targetId);
    if (m_replyRebuildPending) {
        return;
    }
    m_replyRebuildPending = true;
    QTimer::singleShot(0, this, &MessageRowModel::onReplyPreviewsRebuildTimeout);
}

void MessageRowModel::onReplyPreviewsRebuildTimeout()
{
    m_replyRebuildPending = false;
    const QSet<qint64> dirty = m_dirtyReplyTargets;
    m_dirtyReplyTargets.clear();
    if (m_replyRebuildAll) {
        m_replyRebuildAll = false;
        updateReplyPreviewsInModel();
        return;
    }
    for (qint64 target : dirty) {
        refreshRepliesTo(target);
    }
}

void MessageRowModel::mergeIntoRow(int index, const QVariantMap &fresh)
{
    const QVariantMap &current = m_rows->rows().at(index);
    QVariantMap row = current;
    bool changed = false;
    bool textChanged = false;
    for (auto it = fresh.constBegin(); it != fresh.constEnd(); ++it) {
        if (current.value(it.key()) != it.value()) {
            row.insert(it.key(), it.value());
            changed = true;
            if (it.key() == QLatin1String("text") || it.key() == QLatin1String("media_type") ||
                it.key() == QLatin1String("media_name")) {
                textChanged = true;
            }
        }
    }
    if (!changed) {
        return;
    }
    const qint64 replyTo = i64(row, QStringLiteral("reply_to_message_id"));
    if (replyTo >= 1) {
        row.insert(QStringLiteral("reply_preview"), makeReplyPreviewForMessageId(replyTo));
    }
    writeRow(index, row);
    regroupAt(index);
    regroupAt(index + 1);
    if (textChanged) {
        markReplyTargetDirty(i64(row, QStringLiteral("id")));
    }
}

// ---------------------------------------------------------------- events

bool MessageRowModel::handleMessageEvent(const QVariantMap &event)
{
    using Handler = void (MessageRowModel::*)(const QVariantMap &);
    static const struct
    {
        const char *type;
        Handler handler;
    } table[] = {
        {"message_properties", &MessageRowModel::onProperties},
        {"message_properties_error", &MessageRowModel::onPropertiesError},
        {"message_update", &MessageRowModel::onMessageUpdate},
        {"message_reactions", &MessageRowModel::onMessageReactions},
        {"messages_deleted", &MessageRowModel::onMessagesDeleted},
        {"message_send_acked", &MessageRowModel::onSendAcked},
        {"message_send_failed", &MessageRowModel::onSendFailed},
        {"message_send_succeeded", &MessageRowModel::onSendSucceeded},
        {"message_new", &MessageRowModel::onMessageNew},
    };
    const QString type = event.value(QStringLiteral("type")).toString();
    for (const auto &entry : table) {
        if (type == QLatin1String(entry.type)) {
            if (m_chatId != 0 && i64(event, QStringLiteral("chat_id")) == m_chatId) {
                (this->*entry.handler)(event);
            }
            return true;
        }
    }
    return false;
}

void MessageRowModel::onMessageNew(const QVariantMap &e)
{
    const qint64 id = i64(e, QStringLiteral("id"));
    if (id == 0) {
        return;
    }
    QVariantMap row = buildMessageRow(e);
    const int existing = findMessageRowIndexById(id);
    if (existing >= 0) {
        mergeIntoRow(existing, row);
        return;
    }
    const qint64 replyTo = i64(row, QStringLiteral("reply_to_message_id"));
    if (row.contains(QStringLiteral("reply_to_message_id"))) {
        row.insert(QStringLiteral("reply_preview"), makeReplyPreviewForMessageId(replyTo));
    }
    if (isEmpty()) {
        annotateMessageSenderGrouping(&row, nullptr);
    } else {
        const QVariantMap last = m_rows->rows().last();
        annotateMessageSenderGrouping(&row, &last);
    }
    appendRow(row);
    refreshRepliesTo(id);
    Q_EMIT messageAppended(id);
}

void MessageRowModel::onMessageUpdate(const QVariantMap &e)
{
    const qint64 id = i64(e, QStringLiteral("id"));
    const int index = findMessageRowIndexById(id);
    if (index < 0) {
        return;
    }
    const QString text = e.value(QStringLiteral("text")).toString();
    if (m_rows->rows().at(index).value(QStringLiteral("text")).toString() != text) {
        QVariantMap row = m_rows->rows().at(index);
        row.insert(QStringLiteral("text"), text);
        writeRow(index, row);
    }
    markReplyTargetDirty(id);
}

void MessageRowModel::onMessageReactions(const QVariantMap &e)
{
    const int index = findMessageRowIndexById(i64(e, QStringLiteral("id")));
    if (index < 0) {
        return;
    }
    const QVariantList reactions = e.value(QStringLiteral("reactions")).toList();
    QVariantMap row = m_rows->rows().at(index);
    if (reactions.isEmpty()) {
        if (row.remove(QStringLiteral("reactions")) > 0) {
            writeRow(index, row);
        }
        return;
    }
    if (row.value(QStringLiteral("reactions")).toList() != reactions) {
        row.insert(QStringLiteral("reactions"), reactions);
        writeRow(index, row);
    }
}

void MessageRowModel::onMessagesDeleted(const QVariantMap &e)
{
    QList<qint64> ids;
    const QVariantList list = e.value(QStringLiteral("message_ids")).toList();
    ids.reserve(list.size());
    for (const QVariant &v : list) {
        ids.append(v.toLongLong());
    }
    const qint64 lastId = m_chats ? m_chats->lastMessageIdForChat(m_chatId) : 0;
    removeMessagesFromModel(ids);
    if (lastId == 0 || !ids.contains(lastId) || !m_chats || !m_chats->containsChat(m_chatId)) {
        return;
    }
    // The chat list showed the deleted message: it shows the newest one left.
    QVariantMap chatRow;
    chatRow.insert(QStringLiteral("id"), QString::number(m_chatId));
    if (isEmpty()) {
        chatRow.insert(QStringLiteral("last_text"), QString());
    } else {
        const QVariantMap &last = m_rows->rows().last();
        chatRow.insert(QStringLiteral("last_message_id"), last.value(QStringLiteral("id")));
        chatRow.insert(QStringLiteral("last_content_type"),
                       last.value(QStringLiteral("content_type")));
        chatRow.insert(QStringLiteral("last_text"),
                       chat_list_preview_text(last.value(QStringLiteral("text")).toString()));
        chatRow.insert(QStringLiteral("last_outgoing"), last.value(QStringLiteral("outgoing")));
    }
    m_chats->upsertChatRow(chatRow);
    scheduleReplyPreviewsRebuild();
}

void MessageRowModel::onSendAcked(const QVariantMap &e)
{
    const int index = findMessageRowIndexById(i64(e, QStringLiteral("id")));
    if (index < 0 || isTrue(m_rows->rows().at(index), QStringLiteral("send_acked"))) {
        return;
    }
    QVariantMap row = m_rows->rows().at(index);
    row.insert(QStringLiteral("send_acked"), QStringLiteral("true"));
    writeRow(index, row);
}

void MessageRowModel::onSendFailed(const QVariantMap &e)
{
    const int index = findMessageRowIndexById(i64(e, QStringLiteral("old_id")));
    if (index < 0) {
        return;
    }
    QVariantMap row = m_rows->rows().at(index);
    row.insert(QStringLiteral("sending_state"), QStringLiteral("failed"));
    row.remove(QStringLiteral("send_acked"));
    if (row != m_rows->rows().at(index)) {
        writeRow(index, row);
    }
}

void MessageRowModel::onSendSucceeded(const QVariantMap &e)
{
    const qint64 oldId = i64(e, QStringLiteral("old_id"));
    const qint64 newId = i64(e, QStringLiteral("new_id"));
    const int index = findMessageRowIndexById(oldId);
    if (index < 0 || newId == 0) {
        return;
    }
    if (newId != oldId && containsMessage(newId)) {
        // The final message arrived first: the pending row has no more use.
        removeMessagesFromModel({oldId});
        return;
    }
    QVariantMap row = m_rows->rows().at(index);
    row.insert(QStringLiteral("id"), QString::number(newId));
    const qint64 date = i64(e, QStringLiteral("date"));
    if (date >= 1) {
        row.insert(QStringLiteral("date"), QString::number(date));
    }
    row.remove(QStringLiteral("sending_state"));
    row.remove(QStringLiteral("send_acked"));
    writeRow(index, row); // the index follows the new id; the row keeps its place
    m_properties.remove(oldId);
    m_propertiesPending.remove(oldId);
    if (newId != oldId) {
        refreshRepliesTo(newId);
        Q_EMIT messageIdChanged(oldId, newId);
    }
}

void MessageRowModel::onProperties(const QVariantMap &e)
{
    const qint64 id = i64(e, QStringLiteral("id"));
    if (id < 1) {
        return;
    }
    static const char *const keys[] = {"can_be_deleted_only_for_self",
                                       "can_be_deleted_for_all_users",
                                       "can_be_edited",
                                       "can_be_forwarded",
                                       "can_be_replied",
                                       "can_be_copied"};
    QVariantMap props;
    for (const char *key : keys) {
        props.insert(QLatin1String(key), flagText(e.value(QLatin1String(key)).toBool()));
    }
    m_properties.insert(id, props);
    m_propertiesPending.remove(id);
    Q_EMIT messagePropertiesArrived(id);
}

void MessageRowModel::onPropertiesError(const QVariantMap &e)
{
    const qint64 id = i64(e, QStringLiteral("id"));
    const int code = e.value(QStringLiteral("code")).toInt();
    const QString message = e.value(QStringLiteral("message")).toString();
    Q_EMIT logLine(QStringLiteral("[event] message_properties_error id=%1 code=%2 msg=%3\n")
                       .arg(id)
                       .arg(code)
                       .arg(message));
    m_propertiesPending.remove(id);
    Q_EMIT messagePropertiesFailed(id, code, message);
}

// ---------------------------------------------------------------- batches

void MessageRowModel::beginHistoryBatch(bool replace)
{
    m_batchOpen = true;
    m_batchReplace = replace;
    m_batch.clear();
    m_batchIndex.clear();
}

void MessageRowModel::addHistoryMessage(const QVariantMap &event)
{
    if (!m_batchOpen) {
        return;
    }
    const qint64 id = i64(event, QStringLiteral("id"));
    if (id == 0) {
        return;
    }
    const QVariantMap row = buildMessageRow(event);
    const auto buffered = m_batchIndex.constFind(id);
    if (buffered != m_batchIndex.constEnd()) {
        QVariantMap &target = m_batch[buffered.value()];
        for (auto it = row.constBegin(); it != row.constEnd(); ++it) {
            target.insert(it.key(), it.value());
        }
        return;
    }
    // A replacing batch drops the rows shown now, so it keeps its own copy.
    if (!m_batchReplace) {
        const int existing = findMessageRowIndexById(id);
        if (existing >= 0) {
            mergeIntoRow(existing, row);
            return;
        }
    }
    m_batchIndex.insert(id, m_batch.size());
    m_batch.append(row);
}

int MessageRowModel::endHistoryBatch()
{
    if (!m_batchOpen) {
        return 0;
    }
    m_batchOpen = false;
    QList<QVariantMap> rows;
    rows.swap(m_batch);
    const QHash<qint64, int> batchIndex = m_batchIndex;
    m_batchIndex.clear();
    if (rows.isEmpty() && !m_batchReplace) {
        return 0;
    }
    // Previews first: a target may sit in the same batch.
    for (QVariantMap &row : rows) {
        if (!row.contains(QStringLiteral("reply_to_message_id"))) {
            continue;
        }
        const qint64 target = i64(row, QStringLiteral("reply_to_message_id"));
        const auto inBatch = batchIndex.constFind(target);
        QString preview;
        if (inBatch != batchIndex.constEnd()) {
            preview = replyPreviewTextFromMessageRow(rows.at(inBatch.value()));
        } else if (!m_batchReplace) {
            preview = makeReplyPreviewForMessageId(target);
        }
        row.insert(QStringLiteral("reply_preview"), preview);
    }
    for (int i = 0; i < rows.size(); ++i) {
        annotateMessageSenderGrouping(&rows[i], i > 0 ? &rows.at(i - 1) : nullptr);
    }
    const int count = rows.size();
    if (m_batchReplace) {
        replaceAll(rows);
        return count;
    }
    insertFront(rows);
    regroupAt(count);
    // Older rows can only be answered by the rows shown below them.
    for (auto it = batchIndex.constBegin(); it != batchIndex.constEnd(); ++it) {
        refreshRepliesTo(it.key());
    }
    return count;
}

// ---------------------------------------------------------------- removal

void MessageRowModel::removeMessagesFromModel(const QList<qint64> &messageIds)
{
    if (messageIds.isEmpty()) {
        return;
    }
    QSet<qint64> wanted;
    for (qint64 id : messageIds) {
        if (id >= 1) {
            wanted.insert(id);
        }
    }
    if (m_batchOpen) {
        bool dropped = false;
        for (int i = m_batch.size() - 1; i >= 0; --i) {
            if (wanted.contains(i64(m_batch.at(i), QStringLiteral("id")))) {
                m_batch.removeAt(i);
                dropped = true;
            }
        }
        if (dropped) {
            m_batchIndex.clear();
            for (int i = 0; i < m_batch.size(); ++i) {
                m_batchIndex.insert(i64(m_batch.at(i), QStringLiteral("id")), i);
            }
        }
    }
    QVector<int> indexes;
    for (qint64 id : wanted) {
        const int index = findMessageRowIndexById(id);
        if (index >= 0) {
            indexes.append(index);
        }
    }
    if (indexes.isEmpty()) {
        return;
    }
    std::sort(indexes.begin(), indexes.end(), std::greater<int>());
    QList<qint64> removed;
    QVector<qint64> followers; // ordinals of the rows that lost their predecessor
    for (int index : indexes) {
        const RowMeta meta = *m_meta[size_t(index)];
        if (index + 1 < int(m_meta.size())) {
            followers.append(m_meta[size_t(index + 1)]->ordinal);
        }
        indexRemove(meta);
        m_meta.erase(m_meta.begin() + index);
        ++m_writing;
        m_rows->removeAt(index);
        --m_writing;
        removed.append(meta.id);
        m_properties.remove(meta.id);
        m_propertiesPending.remove(meta.id);
    }
    Q_EMIT messagesRemoved(removed);
    for (qint64 ordinal : followers) {
        regroupAt(indexOfOrdinal(ordinal));
    }
    for (qint64 id : removed) {
        refreshRepliesTo(id);
    }
}

// ---------------------------------------------------------------- properties

QVariantMap MessageRowModel::messagePropertiesForId(qint64 messageId) const
{
    if (messageId < 1) {
        return QVariantMap();
    }
    return m_properties.value(messageId);
}

bool MessageRowModel::isMessagePropertiesPending(qint64 messageId) const
{
    return m_propertiesPending.contains(messageId);
}

void MessageRowModel::requestMessageProperties(qint64 messageId)
{
    if (messageId < 1 || m_chatId == 0 || m_properties.contains(messageId) ||
        m_propertiesPending.contains(messageId)) {
        return;
    }
    m_propertiesPending.insert(messageId);
    Q_EMIT sendLineRequested(QStringLiteral("props %1 %2").arg(m_chatId).arg(messageId));
}

void MessageRowModel::ensureMessagePropertiesForIds(const QList<qint64> &messageIds)
{
    for (qint64 id : messageIds) {
        requestMessageProperties(id);
    }
}

// ---------------------------------------------------------------- paths

void MessageRowModel::touchMessageRowsForMediaFileId(qint64 fileId)
{
    if (fileId == 0) {
        return;
    }
    const QList<qint64> ids = m_rowsByMediaFile.values(fileId);
    for (qint64 id : ids) {
        const int index = findMessageRowIndexById(id);
        if (index >= 0) {
            writeRow(index, m_rows->rows().at(index));
        }
    }
}

void MessageRowModel::touchOutgoingRowsForReadOutbox(qint64 previousId, qint64 newId)
{
    auto first = m_outgoingIds.cbegin();
    auto last = m_outgoingIds.cend();
    if (newId >= previousId) {
        first = m_outgoingIds.upper_bound(previousId);
        last = m_outgoingIds.upper_bound(newId);
    }
    const std::vector<qint64> ids(first, last);
    for (qint64 id : ids) {
        const int index = findMessageRowIndexById(id);
        if (index >= 0) {
            writeRow(index, m_rows->rows().at(index));
        }
    }
}

void MessageRowModel::touchPendingOutgoingRows()
{
    const QList<qint64> ids = m_pendingIds.values();
    for (qint64 id : ids) {
        const int index = findMessageRowIndexById(id);
        if (index >= 0) {
            writeRow(index, m_rows->rows().at(index));
        }
    }
}

void MessageRowModel::setPathForFile(QHash<qint64, QString> *cache,
                                     const QMultiHash<qint64, qint64> *rowsByFile, qint64 fileId,
                                     const QString &key, const QString &path)
{
    if (fileId == 0) {
        return;
    }
    cache->insert(fileId, path);
    const QList<qint64> ids = rowsByFile->values(fileId);
    for (qint64 id : ids) {
        const int index = findMessageRowIndexById(id);
        if (index < 0) {
            continue;
        }
        const QVariantMap &current = m_rows->rows().at(index);
        if (current.value(key).toString() != path || !current.contains(key)) {
            QVariantMap row = current;
            row.insert(key, path);
            writeRow(index, row);
        }
    }
}

void MessageRowModel::setMediaPathForFile(qint64 fileId, const QString &path)
{
    setPathForFile(&m_mediaPaths, &m_rowsByMediaFile, fileId, QStringLiteral("media_path"), path);
}

void MessageRowModel::setMediaThumbPathForFile(qint64 fileId, const QString &path)
{
    setPathForFile(&m_thumbPaths, &m_rowsByThumbFile, fileId, QStringLiteral("media_thumb_path"),
                   path);
}

void MessageRowModel::setFileSharedPathForFile(qint64 fileId, const QString &path)
{
    setPathForFile(&m_sharedPaths, &m_rowsByMediaFile, fileId, QStringLiteral("file_shared_path"),
                   path);
}

int MessageRowModel::forgetMissingFiles()
{
    for (QHash<qint64, QString> *cache :
         {&m_mediaPaths, &m_thumbPaths, &m_sharedPaths, &m_avatarPaths}) {
        for (auto it = cache->begin(); it != cache->end();) {
            if (it.value().isEmpty() || QFileInfo::exists(it.value()))
                ++it;
            else
                it = cache->erase(it);
        }
    }
    static const char *const keys[] = {"media_path", "media_thumb_path", "file_shared_path",
                                       "sender_avatar_path"};
    int written = 0;
    for (int i = 0; i < m_rows->size(); ++i) {
        const QVariantMap &current = m_rows->rows().at(i);
        QVariantMap row;
        bool changed = false;
        for (const char *k : keys) {
            const QString key = QLatin1String(k);
            const QString path = current.value(key).toString();
            if (path.isEmpty() || QFileInfo::exists(path))
                continue;
            if (!changed)
                row = current;
            row.remove(key);
            changed = true;
        }
        if (changed) {
            writeRow(i, row);
            ++written;
        }
    }
    return written;
}

void MessageRowModel::setSenderAvatarPathForFile(qint64 fileId, const QString &path)
{
    if (fileId == 0) {
        return;
    }
    m_avatarPaths.insert(fileId, path);
    const auto senders = m_rowsBySenderPhoto.constFind(fileId);
    if (senders == m_rowsBySenderPhoto.constEnd()) {
        return;
    }
    const QList<qint64> ids = senders.value().values();
    const QString key = QStringLiteral("sender_avatar_path");
    for (qint64 id : ids) {
        const int index = findMessageRowIndexById(id);
        if (index < 0) {
            continue;
        }
        const QVariantMap &current = m_rows->rows().at(index);
        if (!current.contains(key) || current.value(key).toString() != path) {
            QVariantMap row = current;
            row.insert(key, path);
            writeRow(index, row);
        }
    }
}
