#pragma once

// The chat list placed by plain linear scans over a list of rows, exactly
// as the ordering and merge rules read. Used as the reference the indexed
// ChatListModel is measured and checked against.

#include <QList>
#include <QVariantMap>

#include <algorithm>

struct LinearChatList
{
    QList<QVariantMap> rows;
    bool bulk = false;
    bool atBeginning = true;
    int scrollRequests = 0;

    static qint64 rowId(const QVariantMap &r) { return r.value(QStringLiteral("id")).toLongLong(); }
    static qint64 lastDate(const QVariantMap &r)
    {
        const qint64 d = r.value(QStringLiteral("last_date")).toLongLong();
        return d < 0 ? 0 : d;
    }
    static qint64 order(const QVariantMap &r)
    {
        return r.value(QStringLiteral("order")).toLongLong();
    }

    static bool precedes(const QVariantMap &a, const QVariantMap &b)
    {
        const qint64 oa = order(a);
        const qint64 ob = order(b);
        if (oa != ob) {
            return oa > ob;
        }
        if (oa != 0) {
            return rowId(a) > rowId(b);
        }
        const qint64 da = lastDate(a);
        const qint64 db = lastDate(b);
        if (da != db) {
            return da > db;
        }
        return rowId(a) > rowId(b);
    }

    int find(qint64 id) const
    {
        for (int i = 0; i < rows.size(); ++i) {
            if (rowId(rows.at(i)) == id) {
                return i;
            }
        }
        return -1;
    }

    void placeByScan(const QVariantMap &row)
    {
        int at = rows.size();
        for (int i = 0; i < rows.size(); ++i) {
            if (precedes(row, rows.at(i))) {
                at = i;
                break;
            }
        }
        rows.insert(at, row);
        if (at == 0 && atBeginning) {
            ++scrollRequests;
        }
    }

    void upsert(const QVariantMap &row)
    {
        const qint64 id = rowId(row);
        if (id == 0) {
            return;
        }
        const int index = find(id);
        if (index < 0) {
            if (bulk) {
                rows.append(row);
                return;
            }
            placeByScan(row);
            return;
        }
        QVariantMap stored = rows.at(index);
        const qint64 oldOrder = order(stored);
        const qint64 oldDate = lastDate(stored);
        bool changed = false;
        for (auto it = row.constBegin(); it != row.constEnd(); ++it) {
            if (!stored.contains(it.key()) || stored.value(it.key()) != it.value()) {
                stored.insert(it.key(), it.value());
                changed = true;
            }
        }
        if (!changed) {
            return;
        }
        const qint64 newOrder = order(stored);
        const bool affected =
            newOrder != oldOrder || (newOrder == 0 && oldOrder == 0 && lastDate(stored) != oldDate);
        if (!affected || bulk) {
            rows[index] = stored;
            return;
        }
        rows.removeAt(index);
        placeByScan(stored);
    }

    void sort()
    {
        if (rows.size() < 2) {
            return;
        }
        std::stable_sort(rows.begin(), rows.end(), precedes);
    }

    void remove(qint64 id)
    {
        if (id == 0) {
            return;
        }
        const int index = find(id);
        if (index >= 0) {
            rows.removeAt(index);
        }
    }
};
