#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QString>
#include <QVariantMap>

class ArrayDataModel;

// One-line preview of a last message: CR and LF become blanks, and text
// longer than 240 characters (code points) is cut to at most 240, between
// grapheme clusters, plus "...".
QString chat_list_preview_text(const QString &text);

// What a row shows for a last message without text, from the backend's
// content type word ("messagePhoto" -> "Photo"); empty for text and for
// types it does not know.
QString chat_list_content_label(const QString &contentType);

// The ordered chat list. Rows are QVariantMaps with string values stored in
// an ArrayDataModel. This class is meant to be its only writer; rows written
// by anyone else are noticed through the model's signals and indexed again.
//
// Placement follows the linear rule "insert before the first row that the new
// row precedes". Outside a bulk load the rows are always sorted by
// chatRowPrecedes, which is a strict total order (ids are unique), so that
// first row is found by binary search and a chat's current row by binary
// search on its cached sort key. During a bulk load rows are only appended,
// and an id -> row hash locates them; the same hash and plain scans serve a
// list that another writer has left out of order, until the next full sort.
class ChatListModel : public QObject
{
    Q_OBJECT
public:
    // rows may be null: every operation then does nothing.
    explicit ChatListModel(ArrayDataModel *rows, QObject *parent = nullptr);

    ArrayDataModel *model() const { return m_rows; }
    int size() const;
    QVariantMap rowAt(int index) const;

    static bool chatRowPrecedes(const QVariantMap &a, const QVariantMap &b);
    static qint64 chatRowId(const QVariantMap &row);
    static qint64 chatRowLastDate(const QVariantMap &row);

    void upsertChatRow(const QVariantMap &row);
    void sortChatsModelByOrder();
    int findChatIndexById(qint64 chatId) const;
    QVariantMap chatRowById(qint64 chatId) const;
    bool containsChat(qint64 chatId) const { return findChatIndexById(chatId) >= 0; }
    void removeChatById(qint64 chatId);
    void clear();

    // Bulk load between "chats_begin" and "chats_end": new chats are appended,
    // known ones merged in place; ending it sorts once.
    void beginBulkLoad();
    void endBulkLoad();
    bool isBulkLoading() const { return m_bulk; }

    bool isAvatarFileIdUsed(qint64 fileId) const;
    // Stores "avatar_path" on every row showing that photo; returns the number
    // of rows written back.
    int setAvatarPathForFile(qint64 fileId, const QString &path);
    // Rows whose round avatar file went away (a cleared cache) lose
    // "avatar_path" and show their tile; returns the photo file ids to fetch
    // again.
    QList<qint64> forgetMissingAvatars();

    // Side tables kept with the rows.
    qint64 lastMessageIdForChat(qint64 chatId) const { return m_lastMessageId.value(chatId); }
    QString titleForChat(qint64 chatId) const { return m_titles.value(chatId); }
    void setTitleForChat(qint64 chatId, const QString &title) { m_titles.insert(chatId, title); }
    qint64 lastReadOutboxForChat(qint64 chatId) const { return m_lastReadOutbox.value(chatId); }
    void setLastReadOutboxForChat(qint64 chatId, qint64 messageId)
    {
        m_lastReadOutbox.insert(chatId, messageId);
    }

    bool isAtBeginning() const { return m_atBeginning; }

public Q_SLOTS:
    void onChatsAtBeginningChanged(bool atBeginning) { m_atBeginning = atBeginning; }
    // The chat list's reload action.
    void onLoadChats();

Q_SIGNALS:
    // A row arrived at index 0 while the list showed its beginning.
    void scrollToBeginningRequested();
    void sendLineRequested(const QString &line);
    void logLine(const QString &line);

private:
    struct SortKey
    {
        qint64 order = 0;
        qint64 date = 0; // already clamped to >= 0
        qint64 id = 0;
        qint64 photo = 0; // not part of the order
    };
    static SortKey keyOf(const QVariantMap &row);
    static bool keyPrecedes(const SortKey &a, const SortKey &b);

    int lowerBoundFor(const SortKey &key) const;
    void insertAt(int index, const QVariantMap &row, const SortKey &key);
    void removeAt(int index);
    void rebuildIndex();
    void resyncAll();
    void resyncRows(int first, int last);
    bool rowsAreSorted() const;
    void placeNewRow(const QVariantMap &row, const SortKey &key);

    ArrayDataModel *m_rows = nullptr;
    bool m_bulk = false;
    bool m_sorted = true; // rows are in chatRowPrecedes order
    bool m_atBeginning = true;
    int m_writing = 0;                          // > 0 while this class writes the rows itself
    QList<SortKey> m_rowKeys;                   // row -> its sort key, parallel to the model
    QHash<qint64, SortKey> m_keys;              // chat id -> sort key of its row
    QHash<qint64, int> m_rowById;               // chat id -> row, valid while !m_sorted
    QHash<qint64, QSet<qint64>> m_chatsByPhoto; // photo file id -> chat ids
    QHash<qint64, qint64> m_lastMessageId;
    QHash<qint64, QString> m_titles;
    QHash<qint64, qint64> m_lastReadOutbox;
};
