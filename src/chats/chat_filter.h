#pragma once

#include <QHash>
#include <QSortFilterProxyModel>
#include <QString>
#include <QStringList>

// Text as the chat search compares it: compatibility-decomposed, combining
// marks (accents, Arabic harakat, Hebrew points) dropped, case-folded, and a
// few letters that do not decompose spelled out ("ß" -> "ss", "ø" -> "o").
QString chat_search_fold(const QString &text);

// The words a query asks for, folded; a leading "@" (a public name) is
// dropped. Empty for a blank query.
QStringList chat_search_words(const QString &query);

// What a chat is found by: each word of its title, its public name as a
// whole and each part of it, folded and each preceded by a blank, so that
// " word" found in it means a word starting with "word".
QString chat_search_haystack(const QString &title, const QString &username);

// True when every word is the beginning of a word of the haystack.
bool chat_search_matches(const QString &haystack, const QStringList &words);

// The chat list as the search field filters it: rows (maps under
// Qt::UserRole) whose "title" or "username" has every word of the query
// at the start of one of its words. Source order and the source's own
// changes pass through as they happen; each chat's folded text is kept until
// its title or name changes, so a keystroke costs one look per row.
class ChatFilterModel : public QSortFilterProxyModel
{
    Q_OBJECT
public:
    explicit ChatFilterModel(QObject *parent = nullptr);

    void setQuery(const QString &query);
    QString query() const { return m_query; }
    // The row map of a shown row (empty when out of range).
    QVariantMap rowAt(int row) const;

protected:
    bool filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const override;

private:
    struct Entry
    {
        QString title;
        QString username;
        QString haystack;
        bool ready = false;
    };
    const QString &haystackFor(const QVariantMap &row) const;

    QString m_query;
    QStringList m_words;
    mutable QHash<QString, Entry> m_entries; // by chat id text
};
