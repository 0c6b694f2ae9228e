#pragma once

#include <QHash>
#include <QList>
#include <QMultiHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QVariantMap>

#include <deque>
#include <memory>
#include <set>

class ArrayDataModel;
class AvatarDownloadQueue;
class ChatListModel;

// The open chat's message rows: one QVariantMap per message in an
// ArrayDataModel, oldest first, with string values ("true"/"false" flags,
// decimal ids) and the list "reactions".
//
// This class is meant to be the rows' only writer. It keeps an id index that
// never scans the rows: every row carries an ordinal that grows from the
// front (older pages get smaller ones) and from the back (new messages get
// larger ones), so ordinals ascend along the list; an id finds its ordinal in
// a hash and its row by binary search over the ordinals. Rows written by
// anyone else are noticed through the model's signals and indexed again.
//
// Derived keys: "sender_indent", "sender_show" and "sender_avatar_path"
// (grouping of runs of one sender in group chats) and "reply_preview". Both
// are kept right incrementally: a row's grouping depends only on the row
// before it, and a preview only on its target, found through a reverse index
// from target id to the rows that answer it.
class MessageRowModel : public QObject
{
    Q_OBJECT
public:
    // rows must outlive this object; chats and avatars may be null.
    MessageRowModel(ArrayDataModel *rows, ChatListModel *chats, AvatarDownloadQueue *avatars,
                    QObject *parent = nullptr);

    ArrayDataModel *model() const { return m_rows; }
    ChatListModel *chats() const { return m_chats; }
    int size() const;
    bool isEmpty() const { return size() == 0; }
    QVariantMap rowAt(int index) const;
    // The id of the row at index (0 when out of range).
    qint64 messageIdAt(int index) const;

    // --- the open chat ---
    // Opening a chat (or none, 0) empties the rows, the index, the properties
    // cache and its pending set, and the batch buffer.
    void setOpenChat(qint64 chatId, const QString &chatType);
    // The chat's type became known or changed: the grouping is redone.
    void setChatType(const QString &chatType);
    qint64 chatId() const { return m_chatId; }
    QString chatType() const { return m_chatType; }
    // Empties the rows and the per-chat caches but keeps the open chat.
    void clearMessages();

    // --- lookups ---
    int findMessageRowIndexById(qint64 messageId) const;
    int findMessageIndexById(qint64 messageId) const { return findMessageRowIndexById(messageId); }
    bool containsMessage(qint64 messageId) const { return m_index.contains(messageId); }
    // The id of the newest row that is not the user's own and has an id of
    // 1 or more; 0 when there is none.
    qint64 newestIncomingMessageId() const;

    // --- derived keys ---
    // Sets "sender_indent", "sender_show" and, for a sender photo, the
    // avatar path (queueing the photo's download when it is unknown).
    void annotateMessageSenderGrouping(QVariantMap *row, const QVariantMap *previous);
    void recomputeMessageSenderGroupingAll();
    static QString replyPreviewTextFromMessageRow(const QVariantMap &row);
    QString makeReplyPreviewForMessageId(qint64 messageId) const;
    // Every answering row gets its target's current preview.
    void updateReplyPreviewsInModel();
    // One full rebuild on the next turn of the event loop, however often
    // this is called before it.
    void scheduleReplyPreviewsRebuild();
    bool isReplyPreviewsRebuildPending() const { return m_replyRebuildPending; }

    // --- events ---
    // "message_new", "message_update", "message_reactions", "messages_deleted",
    // "message_send_acked", "message_send_failed", "message_send_succeeded",
    // "message_properties", "message_properties_error". Returns false for
    // any other type. Events of other chats change no row.
    bool handleMessageEvent(const QVariantMap &event);

    // --- history batches ---
    // A batch of "message" events: rows of messages already shown are
    // merged in place at once, the others are kept until endHistoryBatch().
    void beginHistoryBatch(bool replace);
    void addHistoryMessage(const QVariantMap &event);
    // Puts the buffered rows in: all rows replaced, or in front of the
    // list. Returns how many rows were put in.
    int endHistoryBatch();
    bool isHistoryBatchOpen() const { return m_batchOpen; }
    bool isHistoryBatchReplacing() const { return m_batchReplace; }
    // The rows buffered so far (for sender updates while a batch runs).
    QList<QVariantMap> *historyBatchRows() { return &m_batch; }

    // --- removal ---
    void removeMessagesFromModel(const QList<qint64> &messageIds);

    // --- message properties ---
    // The "message_properties" map of a message, or an empty map.
    QVariantMap messagePropertiesForId(qint64 messageId) const;
    bool isMessagePropertiesPending(qint64 messageId) const;
    void requestMessageProperties(qint64 messageId);
    void ensureMessagePropertiesForIds(const QList<qint64> &messageIds);

    // --- file paths ---
    void touchMessageRowsForMediaFileId(qint64 fileId);
    // The chat's last read outgoing id went from previousId to newId: own rows
    // whose read mark changes are put back (all of them when it went down).
    void touchOutgoingRowsForReadOutbox(qint64 previousId, qint64 newId);
    // The connection state changed: own rows still pending are put back.
    void touchPendingOutgoingRows();
    void setMediaPathForFile(qint64 fileId, const QString &path);
    void setMediaThumbPathForFile(qint64 fileId, const QString &path);
    void setFileSharedPathForFile(qint64 fileId, const QString &path);
    // Also the avatar cache that new rows take their sender photo from: feed
    // it every avatar that becomes ready, not only the open chat's.
    void setSenderAvatarPathForFile(qint64 fileId, const QString &path);
    QString mediaPathForFile(qint64 fileId) const { return m_mediaPaths.value(fileId); }
    // Files deleted behind the rows' back (a cleared cache): every known path
    // that no longer exists is forgotten and leaves the rows that show it, so
    // they offer the download again. Returns the number of rows rewritten.
    int forgetMissingFiles();
    QString senderAvatarPathForFile(qint64 fileId) const { return m_avatarPaths.value(fileId); }

    // The row map a "message" or "message_new" event describes, before
    // grouping and reply preview.
    QVariantMap buildMessageRow(const QVariantMap &event);

Q_SIGNALS:
    void sendLineRequested(const QString &line);
    void logLine(const QString &line);
    // A "message_new" row went to the end of the list.
    void messageAppended(qint64 messageId);
    // Rows left the list (ids that were really there).
    void messagesRemoved(const QList<qint64> &messageIds);
    // A sent message got its final id; its row kept its place.
    void messageIdChanged(qint64 oldId, qint64 newId);
    void messagePropertiesArrived(qint64 messageId);
    void messagePropertiesFailed(qint64 messageId, int code, const QString &message);
    // A video note's file should be fetched.
    void mediaDownloadRequested(qint64 fileId);

private Q_SLOTS:
    void onReplyPreviewsRebuildTimeout();

private:
    // What the index keeps of each row, parallel to the model.
    struct RowMeta
    {
        qint64 id = 0;
        qint64 ordinal = 0;
        qint64 senderPhoto = 0;
        qint64 mediaFile = 0;
        qint64 thumbFile = 0;
        qint64 replyTo = 0;
        bool outgoing = false;
        bool pending = false; // "sending_state" is "pending"
    };
    RowMeta metaOf(const QVariantMap &row) const;
    void indexAdd(const RowMeta &meta);
    void indexRemove(const RowMeta &meta);
    void clearIndex();
    void rebuildIndex();
    void onForeignDataChanged(int first, int last);
    int indexOfOrdinal(qint64 ordinal) const;

    void writeRow(int index, const QVariantMap &row);
    void appendRow(const QVariantMap &row);
    void insertFront(const QList<QVariantMap> &rows);
    void replaceAll(const QList<QVariantMap> &rows);
    void regroupAt(int index);
    void refreshRepliesTo(qint64 targetId);
    void markReplyTargetDirty(qint64 targetId);
    void mergeIntoRow(int index, const QVariantMap &fresh);
    void setPathForFile(QHash<qint64, QString> *cache, const QMultiHash<qint64, qint64> *rowsByFile,
                        qint64 fileId, const QString &key, const QString &path);
    void clearPerChat();

    QString intern(const QString &text);
    QString internNumber(qint64 value);

    void onMessageNew(const QVariantMap &e);
    void onMessageUpdate(const QVariantMap &e);
    void onMessageReactions(const QVariantMap &e);
    void onMessagesDeleted(const QVariantMap &e);
    void onSendAcked(const QVariantMap &e);
    void onSendFailed(const QVariantMap &e);
    void onSendSucceeded(const QVariantMap &e);
    void onProperties(const QVariantMap &e);
    void onPropertiesError(const QVariantMap &e);

    ArrayDataModel *m_rows = nullptr;
    ChatListModel *m_chats = nullptr;
    AvatarDownloadQueue *m_avatars = nullptr;
    int m_writing = 0; // > 0 while this class writes the rows itself

    qint64 m_chatId = 0;
    QString m_chatType;

    // The id index.
    std::deque<std::unique_ptr<RowMeta>> m_meta; // parallel to the rows, ordinals ascending;
    // held by pointer so that a removal moves little
    QHash<qint64, qint64> m_index;                   // message id -> ordinal
    qint64 m_nextBack = 0;                           // ordinal of the next appended row
    qint64 m_nextFront = -1;                         // ordinal of the next row put in front
    QHash<qint64, QSet<qint64>> m_rowsBySenderPhoto; // photo file id -> message ids
    QMultiHash<qint64, qint64> m_rowsByMediaFile;    // file id -> message ids
    QMultiHash<qint64, qint64> m_rowsByThumbFile;
    QMultiHash<qint64, qint64> m_repliesByTarget; // replied-to id -> answering ids
    std::set<qint64> m_outgoingIds;               // own rows, for their read marks
    QSet<qint64> m_pendingIds;                    // own rows still waiting to be sent

    // Values many rows share are stored once.
    QSet<QString> m_strings;
    QHash<qint64, QString> m_numbers;

    bool m_batchOpen = false;
    bool m_batchReplace = false;
    QList<QVariantMap> m_batch;
    QHash<qint64, int> m_batchIndex; // message id -> position in m_batch

    bool m_replyRebuildPending = false;
    bool m_replyRebuildAll = false;
    QSet<qint64> m_dirtyReplyTargets;

    QHash<qint64, QVariantMap> m_properties;
    QSet<qint64> m_propertiesPending;

    QHash<qint64, QString> m_mediaPaths;
    QHash<qint64, QString> m_thumbPaths;
    QHash<qint64, QString> m_sharedPaths;
    QHash<qint64, QString> m_avatarPaths;
};
