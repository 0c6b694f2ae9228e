#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

class ArrayDataModel;

// What a pin says: its preview, led by the kind for media ("Photo: …"),
// or the kind alone.
QString pinned_preview_text(const QVariantMap &row);

// The open chat's pinned messages without their widgets: the bar under the
// header (the pinned message the next tap goes to), the list of all pinned
// messages and the walk through them.
//
// The bar starts at the newest pin; each tap jumps to the message it shows
// and moves the bar on to the next older pin, and after the oldest back to
// the newest. A tap in the list jumps to that message and carries on the
// walk from there. Events of other chats are ignored.
class PinnedMessages : public QObject
{
    Q_OBJECT
public:
    static constexpr int kListLimit = 100;

    // rows (the list's model) must outlive this object.
    explicit PinnedMessages(ArrayDataModel *rows, QObject *parent = nullptr);

    ArrayDataModel *rows() const { return m_rows; }
    qint64 chatId() const { return m_chatId; }
    bool isBarVisible() const { return m_barVisible; }
    // The bar's preview (pinned_preview_text).
    QString barText() const;
    // "Pinned message", or "Pinned message 2 of 3" once the list is known.
    QString barCaption() const;
    // The message the next tap on the bar goes to; 0 while the list is not known.
    qint64 barMessageId() const;
    bool isExpanded() const { return m_expanded; }

public Q_SLOTS:
    // A chat was opened (0: closed): the bar and the list start empty.
    void setChatId(qint64 chatId);
    // "pinned_message", "pinned_none" and "pinned_list_*".
    void handleEvent(const QVariantMap &event);
    void onPinnedBarTapped();
    void onTogglePinnedExpand();
    void onPinnedItemTapped(int row);

Q_SIGNALS:
    void sendLineRequested(const QString &line);
    // Scroll the conversation to this message (loading history as needed).
    void jumpRequested(qint64 messageId);
    // The bar, the list or the expansion changed: lay the panel out again.
    void layoutChanged();

private:
    void requestList();
    void setExpanded(bool expanded);

    ArrayDataModel *m_rows = nullptr;
    qint64 m_chatId = 0;
    bool m_barVisible = false;
    QVariantMap m_eventRow;
    bool m_expanded = false;
    // The list row the bar shows; rows run newest first.
    int m_cursor = 0;
};
