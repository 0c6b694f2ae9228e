#include "chats/chat_filter.h"

#include <QVariantMap>

namespace {

// Letters that stay themselves under decomposition but that people type
// without their stroke or as two letters.
QString spelledOut(QChar c)
{
    switch (c.unicode()) {
    case 0x00DF: // ß
        return QStringLiteral("ss");
    case 0x00E6: // æ
        return QStringLiteral("ae");
    case 0x0153: // œ
        return QStringLiteral("oe");
    case 0x00F8: // ø
        return QStringLiteral("o");
    case 0x0111: // đ
        return QStringLiteral("d");
    case 0x0142: // ł
        return QStringLiteral("l");
    case 0x0131: // dotless ı
        return QStringLiteral("i");
    case 0x00FE: // þ
        return QStringLiteral("th");
    default:
        return QString();
    }
}

bool isMark(QChar c)
{
    const QChar::Category cat = c.category();
    return cat == QChar::Mark_NonSpacing || cat == QChar::Mark_SpacingCombining ||
           cat == QChar::Mark_Enclosing;
}

bool isWordChar(QChar c)
{
    return c.isLetterOrNumber() || c.isSurrogate();
}

// Appends " word" for each word of folded text.
void appendWords(const QString &folded, QString *out)
{
    bool inWord = false;
    for (QChar c : folded) {
        if (isWordChar(c)) {
            if (!inWord)
                out->append(QLatin1Char(' '));
            out->append(c);
            inWord = true;
        } else {
            inWord = false;
        }
    }
}

} // namespace

QString chat_search_fold(const QString &text)
{
    const QString lower = text.toCaseFolded();
    // Plain ASCII needs none of the work below.
    bool ascii = true;
    for (QChar c : lower) {
        if (c.unicode() >= 0x80) {
            ascii = false;
            break;
        }
    }
    if (ascii)
        return lower;
    const QString decomposed = lower.normalized(QString::NormalizationForm_KD);
    QString out;
    out.reserve(decomposed.size());
    for (QChar c : decomposed) {
        if (isMark(c))
            continue;
        const QString spelled = spelledOut(c);
        if (spelled.isEmpty())
            out.append(c);
        else
            out.append(spelled);
    }
    // Decomposition can uncover capitals (compatibility forms).
    return out.toCaseFolded();
}

QStringList chat_search_words(const QString &query)
{
    QString words;
    appendWords(chat_search_fold(query), &words);
    return words.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

QString chat_search_haystack(const QString &title, const QString &username)
{
    QString hay;
    appendWords(chat_search_fold(title), &hay);
    QString name = username.trimmed();
    while (name.startsWith(QLatin1Char('@')))
        name.remove(0, 1);
    if (!name.isEmpty()) {
        const QString folded = chat_search_fold(name);
        // The whole name ("ada_lovelace") and its parts ("lovelace").
        hay.append(QLatin1Char(' '));
        hay.append(folded);
        appendWords(folded, &hay);
    }
    return hay;
}

bool chat_search_matches(const QString &haystack, const QStringList &words)
{
    QString needle;
    for (const QString &w : words) {
        needle.resize(0);
        needle.append(QLatin1Char(' '));
        needle.append(w);
        if (!haystack.contains(needle))
            return false;
    }
    return true;
}

ChatFilterModel::ChatFilterModel(QObject *parent) : QSortFilterProxyModel(parent)
{
    // A row whose title changes is shown or hidden as it changes.
    setDynamicSortFilter(true);
}

void ChatFilterModel::setQuery(const QString &query)
{
    const QStringList words = chat_search_words(query);
    m_query = query;
    if (words == m_words)
        return;
    m_words = words;
    // One layout change, not a removal or insertion per run of rows: a
    // keystroke may change thousands of scattered rows at once.
    invalidate();
}

QVariantMap ChatFilterModel::rowAt(int row) const
{
    if (row < 0 || row >= rowCount())
        return QVariantMap();
    return index(row, 0).data(Qt::UserRole).toMap();
}

const QString &ChatFilterModel::haystackFor(const QVariantMap &row) const
{
    const QString id = row.value(QStringLiteral("id")).toString();
    const QString title = row.value(QStringLiteral("title")).toString();
    const QString username = row.value(QStringLiteral("username")).toString();
    Entry &e = m_entries[id];
    if (!e.ready || e.title != title || e.username != username) {
        e.title = title;
        e.username = username;
        e.haystack = chat_search_haystack(title, username);
        e.ready = true;
    }
    return e.haystack;
}

bool ChatFilterModel::filterAcceptsRow(int sourceRow, const QModelIndex &sourceParent) const
{
    if (m_words.isEmpty())
        return true;
    const QModelIndex i = sourceModel()->index(sourceRow, 0, sourceParent);
    return chat_search_matches(haystackFor(i.data(Qt::UserRole).toMap()), m_words);
}
