#pragma once

#include <QList>
#include <QObject>
#include <QString>

class ArrayDataModel;

// Search in the open chat's loaded messages, without its widgets. Matches
// (case-insensitive, in the message text) run newest first; next() steps to
// an older match and previous() to a newer one. Stepping past the oldest
// loaded match offers to look further back: searchOlder() asks for older
// pages, and the first older match that arrives becomes the current one.
// Rows that come, go or change keep the current match where it is.
class MessageSearch : public QObject
{
    Q_OBJECT
public:
    // Longer queries are cut: the field is one line of what a person types.
    static constexpr int kMaxQueryLength = 200;
    // Older pages one look further back may load while none matches.
    static constexpr int kPagesPerLook = 5;

    // rows (the message model) must outlive this object.
    explicit MessageSearch(ArrayDataModel *rows, QObject *parent = nullptr);

    QString query() const { return m_query; }
    bool isActive() const { return m_active; }
    // Message ids of the matches, newest first.
    QList<qint64> matchIds() const { return m_matches; }
    // Index into matchIds(), -1 when there is no match.
    int currentIndex() const { return m_current; }
    qint64 currentMessageId() const;
    // "3 of 17", "No results", or empty without a query; "3 of 3 · start of
    // chat" once the user went past the oldest match of the whole history.
    QString statusText() const;
    // The user went past the oldest loaded match and older pages may hold more.
    bool isOlderOffered() const { return m_offered && m_olderAvailable; }
    bool isWaitingForOlder() const { return m_waiting; }

    // Whether older pages exist (false once the history has no more).
    void setOlderAvailable(bool available);

public Q_SLOTS:
    void open();
    // Closes the search and forgets the query.
    void close();
    void setQuery(const QString &query);
    void next();
    void previous();
    void searchOlder();
    // An older page was put in front (after the rows arrived).
    void onOlderPageLoaded();

Q_SIGNALS:
    // Show this message (the new current match).
    void currentChanged(qint64 messageId);
    // The status, the offer or the highlight changed.
    void stateChanged();
    // Load one older page of history.
    void loadOlderRequested();

private:
    void recompute();
    void setCurrent(int index);

    ArrayDataModel *m_rows = nullptr;
    QString m_query;
    bool m_active = false;
    QList<qint64> m_matches;
    int m_current = -1;
    bool m_offered = false;
    bool m_waiting = false;
    bool m_olderAvailable = true;
    int m_pagesLeft = 0;
};
