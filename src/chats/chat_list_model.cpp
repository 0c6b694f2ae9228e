#include "chats/chat_list_model.h"

#include "backend_link/text_cut.h"
#include "platform/array_data_model.h"

#include <QFileInfo>

#include <algorithm>
#include <utility>
#include <vector>

QString chat_list_preview_text(const QString &text)
{
    QString out = text;
    out.replace(QChar(13), QChar(' '));
    out.replace(QChar(10), QChar(' '));
    // Counted in code points and cut between grapheme clusters, so that no emoji or accented
    // letter is cut in half.
    if (code_point_count(out) > 240) {
        out = left_graphemes(out, 240) + QStringLiteral("...");
    }
    return out;
}

QString chat_list_content_label(const QString &contentType)
{
    static const struct
    {
        const char *type;
        const char *label;
    } labels[] = {
        {"messagePhoto", "Photo"},
        {"messageVideo", "Video"},
        {"messageVoiceNote", "Voice message"},
        {"messageVideoNote", "Video message"},
        {"messageDocument", "File"},
        {"messageAudio", "Audio"},
        {"messageSticker", "Sticker"},
        {"messageAnimation", "GIF"},
        {"messageLocation", "Location"},
        {"messageContact", "Contact"},
        {"messagePoll", "Poll"},
    };
    for (const auto &entry : labels) {
        if (contentType == QLatin1String(entry.type)) {
            return QString::fromLatin1(entry.label);
        }
    }
    return QString();
}

namespace {

qint64 photoIdOf(const QVariantMap &row)
{
    return row.value(QStringLiteral("photo_small_id")).toLongLong();
}

} // namespace

ChatListModel::ChatListModel(ArrayDataModel *rows, QObject *parent) : QObject(parent), m_rows(rows)
{
    if (!m_rows) {
        return;
    }
    // Someone else writing the rows must not leave the index stale.
    follow_model_changes(
        m_rows, this,
        [this] {
            if (m_writing == 0) {
                resyncAll();
            }
        },
        [this](int first, int last) {
            if (m_writing == 0) {
                resyncRows(first, last);
            }
        });
    resyncAll();
}

bool ChatListModel::rowsAreSorted() const
{
    for (int i = 1; i < m_rowKeys.size(); ++i) {
        if (!keyPrecedes(m_rowKeys.at(i - 1), m_rowKeys.at(i))) {
            return false;
        }
    }
    return true;
}

void ChatListModel::resyncAll()
{
    // Index in hash mode first, then see whether binary search may be used.
    m_sorted = false;
    rebuildIndex();
    if (!m_bulk && m_rowKeys.size() == m_keys.size() && rowsAreSorted()) {
        m_sorted = true;
        m_rowById.clear();
    }
}

void ChatListModel::resyncRows(int first, int last)
{
    // A row put back unchanged (a redraw) needs nothing; anything that moves
    // a row's place or photo makes the index start again.
    for (int i = qMax(first, 0); i <= last && i < m_rowKeys.size(); ++i) {
        const SortKey k = keyOf(m_rows->value(i));
        const SortKey old = m_rowKeys.at(i);
        if (k.id != m_rowKeys.at(i).id || k.order != old.order || k.date != old.date ||
            k.photo != old.photo) {
            resyncAll();
            return;
        }
    }
}

int ChatListModel::size() const
{
    return m_rows ? m_rows->size() : 0;
}

QVariantMap ChatListModel::rowAt(int index) const
{
    return m_rows ? m_rows->value(index) : QVariantMap();
}

qint64 ChatListModel::chatRowId(const QVariantMap &row)
{
    return row.value(QStringLiteral("id")).toLongLong();
}

qint64 ChatListModel::chatRowLastDate(const QVariantMap &row)
{
    const qint64 d = row.value(QStringLiteral("last_date")).toLongLong();
    return d < 0 ? 0 : d;
}

ChatListModel::SortKey ChatListModel::keyOf(const QVariantMap &row)
{
    SortKey k;
    k.order = row.value(QStringLiteral("order")).toLongLong();
    k.date = chatRowLastDate(row);
    k.id = chatRowId(row);
    k.photo = photoIdOf(row);
    return k;
}

bool ChatListModel::keyPrecedes(const SortKey &a, const SortKey &b)
{
    if (a.order != b.order) {
        return a.order > b.order;
    }
    if (a.order != 0) {
        return a.id > b.id;
    }
    if (a.date != b.date) {
        return a.date > b.date;
    }
    return a.id > b.id;
}

bool ChatListModel::chatRowPrecedes(const QVariantMap &a, const QVariantMap &b)
{
    return keyPrecedes(keyOf(a), keyOf(b));
}

// First row that key precedes; rows are sorted, so the rows key precedes form
// a suffix and this is where the linear "first row it precedes" scan stops.
int ChatListModel::lowerBoundFor(const SortKey &key) const
{
    int lo = 0;
    int hi = m_rowKeys.size();
    while (lo < hi) {
        const int mid = lo + (hi - lo) / 2;
        const SortKey other = m_rowKeys.at(mid);
        if (keyPrecedes(key, other)) {
            hi = mid;
        } else {
            lo = mid + 1;
        }
    }
    return lo;
}

int ChatListModel::findChatIndexById(qint64 chatId) const
{
    if (!m_rows || chatId == 0) {
        return -1;
    }
    if (!m_sorted) {
        return m_rowById.value(chatId, -1);
    }
    const auto it = m_keys.constFind(chatId);
    if (it == m_keys.constEnd()) {
        return -1;
    }
    // Rows preceding the chat's own key lie above it; its row is the first
    // one that does not.
    int lo = 0;
    int hi = m_rowKeys.size();
    while (lo < hi) {
        const int mid = lo + (hi - lo) / 2;
        if (keyPrecedes(m_rowKeys.at(mid), it.value())) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    if (lo < m_rowKeys.size() && m_rowKeys.at(lo).id == chatId) {
        return lo;
    }
    for (int i = 0; i < m_rowKeys.size(); ++i) { // unreachable while the invariant holds
        if (m_rowKeys.at(i).id == chatId) {
            return i;
        }
    }
    return -1;
}

QVariantMap ChatListModel::chatRowById(qint64 chatId) const
{
    const int idx = findChatIndexById(chatId);
    return idx < 0 ? QVariantMap() : m_rows->value(idx);
}

void ChatListModel::insertAt(int index, const QVariantMap &row, const SortKey &key)
{
    if (index >= m_rows->size()) {
        index = m_rows->size();
        ++m_writing;
        m_rows->append(row);
        --m_writing;
    } else {
        ++m_writing;
        m_rows->insert(index, row);
        --m_writing;
    }
    m_rowKeys.insert(index, key);
    m_keys.insert(key.id, key);
    const qint64 photo = photoIdOf(row);
    if (photo != 0) {
        m_chatsByPhoto[photo].insert(key.id);
    }
    if (!m_sorted) {
        for (int i = index; i < m_rowKeys.size(); ++i) {
            m_rowById.insert(m_rowKeys.at(i).id, i);
        }
    }
}

void ChatListModel::removeAt(int index)
{
    const qint64 id = m_rowKeys.at(index).id;
    const qint64 photo = m_rowKeys.at(index).photo;
    if (photo != 0) {
        auto it = m_chatsByPhoto.find(photo);
        if (it != m_chatsByPhoto.end()) {
            it->remove(id);
            if (it->isEmpty()) {
                m_chatsByPhoto.erase(it);
            }
        }
    }
    ++m_writing;
    m_rows->removeAt(index);
    --m_writing;
    m_rowKeys.removeAt(index);
    m_keys.remove(id);
    if (!m_sorted) {
        m_rowById.remove(id);
        for (int i = index; i < m_rowKeys.size(); ++i) {
            m_rowById.insert(m_rowKeys.at(i).id, i);
        }
    }
}

void ChatListModel::rebuildIndex()
{
    m_rowKeys.clear();
    m_keys.clear();
    m_rowById.clear();
    m_chatsByPhoto.clear();
    if (!m_rows) {
        return;
    }
    const QList<QVariantMap> &rows = m_rows->rows();
    m_rowKeys.reserve(rows.size());
    for (int i = 0; i < rows.size(); ++i) {
        const SortKey k = keyOf(rows.at(i));
        m_rowKeys.append(k);
        if (m_keys.contains(k.id)) {
            continue; // a repeated id: the first row is the one found
        }
        m_keys.insert(k.id, k);
        if (!m_sorted) {
            m_rowById.insert(k.id, i);
        }
        const qint64 photo = photoIdOf(rows.at(i));
        if (photo != 0) {
            m_chatsByPhoto[photo].insert(k.id);
        }
    }
}

void ChatListModel::placeNewRow(const QVariantMap &row, const SortKey &key)
{
    int index = 0;
    if (m_sorted) {
        index = lowerBoundFor(key);
    } else {
        // Rows written by someone else out of order: scan as the rule reads.
        index = m_rowKeys.size();
        for (int i = 0; i < m_rowKeys.size(); ++i) {
            if (keyPrecedes(key, m_rowKeys.at(i))) {
                index = i;
                break;
            }
        }
    }
    insertAt(index, row, key);
    if (index == 0 && m_atBeginning) {
        Q_EMIT scrollToBeginningRequested();
    }
}

void ChatListModel::upsertChatRow(const QVariantMap &row)
{
    const qint64 chatId = chatRowId(row);
    if (chatId == 0 || !m_rows) {
        return;
    }
    const auto lastIt = row.constFind(QStringLiteral("last_message_id"));
    if (lastIt != row.constEnd() && lastIt.value().toLongLong() >= 1) {
        m_lastMessageId.insert(chatId, lastIt.value().toLongLong());
    }

    const int index = findChatIndexById(chatId);
    if (index < 0) {
        if (m_bulk) {
            insertAt(m_rows->size(), row, keyOf(row));
            return;
        }
        placeNewRow(row, keyOf(row));
        return;
    }

    QVariantMap stored = m_rows->value(index);
    const SortKey oldKey = m_keys.value(chatId);
    const qint64 oldPhoto = photoIdOf(stored);
    bool changed = false;
    for (auto it = row.constBegin(); it != row.constEnd(); ++it) {
        const auto found = stored.constFind(it.key());
        if (found == stored.constEnd() || found.value() != it.value()) {
            stored.insert(it.key(), it.value());
            changed = true;
        }
    }
    if (!changed) {
        return;
    }
    const SortKey newKey = keyOf(stored);
    const bool affected = newKey.order != oldKey.order ||
                          (newKey.order == 0 && oldKey.order == 0 && newKey.date != oldKey.date);
    if (!affected || m_bulk) {
        ++m_writing;
        m_rows->replace(index, stored);
        --m_writing;
        m_keys.insert(chatId, newKey);
        m_rowKeys[index] = newKey;
        const qint64 newPhoto = photoIdOf(stored);
        if (newPhoto != oldPhoto) {
            auto it = m_chatsByPhoto.find(oldPhoto);
            if (it != m_chatsByPhoto.end()) {
                it->remove(chatId);
                if (it->isEmpty()) {
                    m_chatsByPhoto.erase(it);
                }
            }
            if (newPhoto != 0) {
                m_chatsByPhoto[newPhoto].insert(chatId);
            }
        }
        return;
    }
    removeAt(index);
    placeNewRow(stored, newKey);
}

void ChatListModel::sortChatsModelByOrder()
{
    if (!m_rows) {
        return;
    }
    if (m_rows->size() < 2) {
        m_sorted = true;
        rebuildIndex();
        return;
    }
    std::vector<std::pair<SortKey, QVariantMap>> items;
    items.reserve(static_cast<size_t>(m_rows->size()));
    for (const QVariantMap &r : m_rows->rows()) {
        items.emplace_back(keyOf(r), r);
    }
    std::stable_sort(items.begin(), items.end(),
                     [](const auto &a, const auto &b) { return keyPrecedes(a.first, b.first); });
    QList<QVariantMap> sorted;
    sorted.reserve(static_cast<int>(items.size()));
    for (auto &item : items) {
        sorted.append(std::move(item.second));
    }
    ++m_writing;
    m_rows->clear();
    m_rows->append(sorted);
    --m_writing;
    m_sorted = true;
    rebuildIndex();
}

void ChatListModel::removeChatById(qint64 chatId)
{
    if (chatId == 0 || !m_rows) {
        return;
    }
    const int index = findChatIndexById(chatId);
    if (index >= 0) {
        removeAt(index);
    }
}

void ChatListModel::clear()
{
    if (!m_rows) {
        return;
    }
    ++m_writing;
    m_rows->clear();
    --m_writing;
    rebuildIndex();
}

void ChatListModel::beginBulkLoad()
{
    m_bulk = true;
    m_sorted = false;
    clear();
}

void ChatListModel::endBulkLoad()
{
    m_bulk = false;
    sortChatsModelByOrder();
    if (!m_rows) {
        m_sorted = true;
    }
}

bool ChatListModel::isAvatarFileIdUsed(qint64 fileId) const
{
    return fileId != 0 && m_chatsByPhoto.contains(fileId);
}

int ChatListModel::setAvatarPathForFile(qint64 fileId, const QString &path)
{
    if (!m_rows || fileId == 0) {
        return 0;
    }
    const QSet<qint64> chats = m_chatsByPhoto.value(fileId);
    int written = 0;
    for (const qint64 chatId : chats) {
        const int index = findChatIndexById(chatId);
        if (index < 0) {
            continue;
        }
        QVariantMap row = m_rows->value(index);
        if (row.value(QStringLiteral("avatar_path")).toString() == path &&
            row.contains(QStringLiteral("avatar_path"))) {
            continue;
        }
        row.insert(QStringLiteral("avatar_path"), path);
        ++m_writing;
        m_rows->replace(index, row);
        --m_writing;
        ++written;
    }
    return written;
}

QList<qint64> ChatListModel::forgetMissingAvatars()
{
    QList<qint64> photos;
    if (!m_rows) {
        return photos;
    }
    const QString key = QStringLiteral("avatar_path");
    for (int i = 0; i < m_rows->size(); ++i) {
        const QVariantMap &current = m_rows->rows().at(i);
        const QString path = current.value(key).toString();
        if (path.isEmpty() || QFileInfo::exists(path)) {
            continue;
        }
        QVariantMap row = current;
        row.remove(key);
        ++m_writing;
        m_rows->replace(i, row);
        --m_writing;
        const qint64 photo = row.value(QStringLiteral("photo_small_id")).toLongLong();
        if (photo != 0 && !photos.contains(photo)) {
            photos.append(photo);
        }
    }
    return photos;
}

void ChatListModel::onLoadChats()
{
    Q_EMIT logLine(QStringLiteral("ui: load chats\n"));
    Q_EMIT sendLineRequested(QStringLiteral("chats 60"));
}
