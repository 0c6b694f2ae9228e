#include "conversation/message_search.h"

#include "platform/array_data_model.h"

MessageSearch::MessageSearch(ArrayDataModel *rows, QObject *parent) : QObject(parent), m_rows(rows)
{
    follow_model_changes(
        rows, this, [this] { recompute(); }, [this](int, int) { recompute(); });
}

qint64 MessageSearch::currentMessageId() const
{
    return m_current >= 0 ? m_matches.value(m_current) : 0;
}

QString MessageSearch::statusText() const
{
    if (m_query.isEmpty())
        return QString();
    if (m_matches.isEmpty())
        return QStringLiteral("No results");
    const QString count = QStringLiteral("%1 of %2").arg(m_current + 1).arg(m_matches.size());
    // Past the oldest match with the whole history loaded: nothing further back.
    if (m_offered && !m_olderAvailable && m_current == m_matches.size() - 1)
        return count + QStringLiteral(" · start of chat");
    return count;
}

void MessageSearch::setOlderAvailable(bool available)
{
    if (m_olderAvailable == available)
        return;
    m_olderAvailable = available;
    if (!available)
        m_waiting = false;
    Q_EMIT stateChanged();
}

void MessageSearch::open()
{
    m_active = true;
    Q_EMIT stateChanged();
}

void MessageSearch::close()
{
    m_active = false;
    m_query.clear();
    m_matches.clear();
    m_current = -1;
    m_offered = false;
    m_waiting = false;
    Q_EMIT stateChanged();
}

void MessageSearch::setQuery(const QString &query)
{
    const QString q = query.left(kMaxQueryLength).trimmed();
    if (q == m_query)
        return;
    m_query = q;
    m_matches.clear();
    m_current = -1;
    m_waiting = false;
    recompute();
    // Nothing loaded matches: the one way on is further back.
    m_offered = !m_query.isEmpty() && m_matches.isEmpty();
    setCurrent(m_matches.isEmpty() ? -1 : 0);
}

void MessageSearch::next()
{
    if (m_current + 1 < m_matches.size()) {
        setCurrent(m_current + 1);
        return;
    }
    if (m_query.isEmpty())
        return;
    m_offered = true;
    Q_EMIT stateChanged();
}

void MessageSearch::previous()
{
    if (m_current > 0) {
        m_offered = false;
        setCurrent(m_current - 1);
    }
}

void MessageSearch::searchOlder()
{
    if (!isOlderOffered() || m_waiting)
        return;
    m_waiting = true;
    m_pagesLeft = kPagesPerLook - 1;
    Q_EMIT stateChanged();
    Q_EMIT loadOlderRequested();
}

void MessageSearch::onOlderPageLoaded()
{
    if (!m_waiting)
        return;
    // Nothing in that page: keep looking a little, then leave it to the user.
    if (m_pagesLeft > 0 && m_olderAvailable) {
        --m_pagesLeft;
        Q_EMIT loadOlderRequested();
        return;
    }
    m_waiting = false;
    Q_EMIT stateChanged();
}

void MessageSearch::recompute()
{
    if (m_query.isEmpty())
        return;
    const qint64 keep = currentMessageId();
    const int olderBefore = m_matches.size() - m_current - 1;
    QList<qint64> found;
    const QList<QVariantMap> &rows = m_rows->rows();
    for (int i = rows.size() - 1; i >= 0; --i) {
        const QVariantMap &row = rows.at(i);
        const qint64 id = row.value(QStringLiteral("id")).toString().toLongLong();
        if (id >= 1 &&
            row.value(QStringLiteral("text")).toString().contains(m_query, Qt::CaseInsensitive))
            found.append(id);
    }
    const bool changed = found != m_matches;
    m_matches = found;
    int index = keep > 0 ? m_matches.indexOf(keep) : -1;
    if (index < 0 && !m_matches.isEmpty() && keep > 0)
        index = 0;
    if (m_waiting) {
        // An older page came in: go on to its newest match, if it has one.
        const int olderNow = index >= 0 ? m_matches.size() - index - 1 : m_matches.size();
        if (olderNow > qMax(0, olderBefore)) {
            m_waiting = false;
            m_offered = false;
            setCurrent(index + 1);
            return;
        }
    }
    if (index != m_current) {
        m_current = index;
        Q_EMIT stateChanged();
    } else if (changed) {
        Q_EMIT stateChanged();
    }
}

void MessageSearch::setCurrent(int index)
{
    m_current = index;
    if (index >= 0)
        Q_EMIT currentChanged(m_matches.at(index));
    Q_EMIT stateChanged();
}
