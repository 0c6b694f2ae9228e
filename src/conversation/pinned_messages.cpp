#include "conversation/pinned_messages.h"

#include "chats/chat_list_model.h"
#include "platform/array_data_model.h"

#include <QHash>

#include <algorithm>

namespace {

QString kindText(const QString &contentType)
{
    static const QHash<QString, QString> kinds = {
        {QStringLiteral("messagePhoto"), QStringLiteral("Photo")},
        {QStringLiteral("messageVideo"), QStringLiteral("Video")},
        {QStringLiteral("messageAnimation"), QStringLiteral("GIF")},
        {QStringLiteral("messageVoiceNote"), QStringLiteral("Voice message")},
        {QStringLiteral("messageVideoNote"), QStringLiteral("Video message")},
        {QStringLiteral("messageDocument"), QStringLiteral("File")},
        {QStringLiteral("messageAudio"), QStringLiteral("Audio")},
        {QStringLiteral("messageSticker"), QStringLiteral("Sticker")}};
    return kinds.value(contentType);
}

qint64 rowId(const QVariantMap &row)
{
    return row.value(QStringLiteral("id")).toString().toLongLong();
}

} // namespace

QString pinned_preview_text(const QVariantMap &row)
{
    const QString text = row.value(QStringLiteral("text")).toString().trimmed();
    const QString kind = kindText(row.value(QStringLiteral("content_type")).toString());
    if (kind.isEmpty())
        return text.isEmpty() ? QStringLiteral("Message") : text;
    return text.isEmpty() ? kind : kind + QStringLiteral(": ") + text;
}

PinnedMessages::PinnedMessages(ArrayDataModel *rows, QObject *parent)
    : QObject(parent), m_rows(rows)
{
}

QString PinnedMessages::barText() const
{
    if (!m_barVisible)
        return QString();
    if (m_cursor > 0 && m_cursor < m_rows->size())
        return pinned_preview_text(m_rows->value(m_cursor));
    return pinned_preview_text(m_eventRow);
}

QString PinnedMessages::barCaption() const
{
    if (m_rows->size() < 2)
        return QStringLiteral("Pinned message");
    return QStringLiteral("Pinned message %1 of %2").arg(m_cursor + 1).arg(m_rows->size());
}

qint64 PinnedMessages::barMessageId() const
{
    return m_cursor < m_rows->size() ? rowId(m_rows->value(m_cursor)) : 0;
}

void PinnedMessages::setChatId(qint64 chatId)
{
    m_chatId = chatId;
    m_barVisible = false;
    m_eventRow.clear();
    m_expanded = false;
    m_cursor = 0;
    m_rows->clear();
    Q_EMIT layoutChanged();
}

void PinnedMessages::handleEvent(const QVariantMap &e)
{
    const qint64 chatId = e.value(QStringLiteral("chat_id")).toLongLong();
    if (m_chatId == 0 || chatId != m_chatId)
        return;
    const QString type = e.value(QStringLiteral("type")).toString();
    if (type == QLatin1String("pinned_message")) {
        // A new or changed pin: the bar starts the walk again from the newest.
        m_eventRow = {{QStringLiteral("text"),
                       chat_list_preview_text(e.value(QStringLiteral("text")).toString())},
                      {QStringLiteral("content_type"), e.value(QStringLiteral("content_type"))}};
        m_barVisible = true;
        m_cursor = 0;
        Q_EMIT layoutChanged();
        requestList();
    } else if (type == QLatin1String("pinned_none")) {
        m_barVisible = false;
        m_eventRow.clear();
        m_cursor = 0;
        m_expanded = false;
        m_rows->clear();
        Q_EMIT layoutChanged();
    } else if (type == QLatin1String("pinned_list_begin")) {
        m_rows->clear();
    } else if (type == QLatin1String("pinned_list_item")) {
        // The backend's list is bounded by the request; this bounds a stray one.
        if (m_rows->size() >= kListLimit)
            return;
        const qint64 id = e.value(QStringLiteral("id")).toLongLong();
        if (id < 1)
            return;
        QVariantMap row;
        row.insert(QStringLiteral("id"), QString::number(id));
        row.insert(QStringLiteral("content_type"),
                   e.value(QStringLiteral("content_type")).toString());
        row.insert(QStringLiteral("text"),
                   chat_list_preview_text(e.value(QStringLiteral("text")).toString()));
        // Newest first, whatever order the items come in.
        const QList<QVariantMap> &rows = m_rows->rows();
        const auto at = std::find_if(rows.cbegin(), rows.cend(),
                                     [id](const QVariantMap &r) { return rowId(r) <= id; });
        if (at != rows.cend() && rowId(*at) == id)
            return;
        m_rows->insert(int(at - rows.cbegin()), row);
    } else if (type == QLatin1String("pinned_list_end")) {
        if (m_cursor >= m_rows->size())
            m_cursor = 0;
        if (m_rows->isEmpty())
            m_expanded = false;
        Q_EMIT layoutChanged();
    }
}

void PinnedMessages::onPinnedBarTapped()
{
    const qint64 id = barMessageId();
    if (id < 1)
        return;
    m_cursor = (m_cursor + 1) % m_rows->size();
    Q_EMIT jumpRequested(id);
    Q_EMIT layoutChanged();
}

void PinnedMessages::onTogglePinnedExpand()
{
    if (m_chatId == 0 || !m_barVisible)
        return;
    // Opening asks again: pins may have changed since the bar was filled.
    if (!m_expanded)
        requestList();
    setExpanded(!m_expanded);
}

void PinnedMessages::onPinnedItemTapped(int row)
{
    const qint64 id = rowId(m_rows->value(row));
    if (id < 1)
        return;
    m_cursor = (row + 1) % m_rows->size();
    setExpanded(false);
    Q_EMIT jumpRequested(id);
}

void PinnedMessages::requestList()
{
    Q_EMIT sendLineRequested(
        QStringLiteral("pinned_list %1 %2").arg(m_chatId).arg(PinnedMessages::kListLimit));
}

void PinnedMessages::setExpanded(bool expanded)
{
    m_expanded = expanded;
    Q_EMIT layoutChanged();
}
