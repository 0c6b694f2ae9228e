#include "conversation/message_text.h"

#include <QDateTime>
#include <QRegularExpression>

QString escape_html(const QString &text)
{
    QString out;
    out.reserve(text.size() + text.size() / 8);
    for (const QChar c : text) {
        switch (c.unicode()) {
        case '&':
            out += QLatin1String("&amp;");
            break;
        case '<':
            out += QLatin1String("&lt;");
            break;
        case '>':
            out += QLatin1String("&gt;");
            break;
        case '"':
            out += QLatin1String("&quot;");
            break;
        case '\'':
            out += QLatin1String("&#39;");
            break;
        default:
            out += c;
        }
    }
    return out;
}

QString escape_html_with_br(const QString &text)
{
    QString s = escape_html(text);
    s.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    s.replace(QLatin1Char('\r'), QLatin1Char('\n'));
    s.replace(QLatin1Char('\n'), QLatin1String("<br/>"));
    return s;
}

QString format_duration_mmss(qint64 seconds)
{
    if (seconds < 1)
        return QString();
    seconds = qMin<qint64>(seconds, 86400);
    return QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

QString bb10EmojiForReactionDisplay(const QString &emoji)
{
    QString s = emoji;
    s.remove(QChar(0xFE0F));
    s.remove(QChar(0xFE0E));
    struct Swap
    {
        char32_t from;
        char32_t to;
    };
    static const Swap swaps[] = {{0x1F923, 0x1F602}, {0x1F92F, 0x1F62E}, {0x1F92C, 0x1F621}};
    for (const Swap &w : swaps) {
        s.replace(QString::fromUcs4(&w.from, 1), QString::fromUcs4(&w.to, 1));
    }
    return s;
}

QList<TextLink> find_text_links(const QString &text)
{
    static const QRegularExpression re(QStringLiteral("(?:https?://|www\\.|t\\.me/)\\S+"),
                                       QRegularExpression::CaseInsensitiveOption);
    QList<TextLink> links;
    auto it = re.globalMatch(text);
    while (it.hasNext()) {
        const QRegularExpressionMatch m = it.next();
        links.append({int(m.capturedStart()), int(m.capturedLength())});
    }
    return links;
}

namespace {

QString markedPlain(const QString &text, const QString &query, const QString &markColor)
{
    QString html;
    int pos = 0;
    for (int at = text.indexOf(query, 0, Qt::CaseInsensitive); at >= 0;
         at = text.indexOf(query, pos, Qt::CaseInsensitive)) {
        html += escape_html_with_br(text.mid(pos, at - pos));
        html += QStringLiteral("<span style=\"background-color:%1;color:#000000\">%2</span>")
                    .arg(markColor, escape_html_with_br(text.mid(at, query.size())));
        pos = at + query.size();
    }
    html += escape_html_with_br(text.mid(pos));
    return html;
}

} // namespace

QString message_rich_text_marked(const QString &text, const QString &query,
                                 const QString &markColor)
{
    if (query.isEmpty())
        return message_rich_text(text);
    QString html;
    int pos = 0;
    for (const TextLink &l : find_text_links(text)) {
        html += markedPlain(text.mid(pos, l.start - pos), query, markColor);
        const QString link = escape_html(text.mid(l.start, l.length));
        html += QStringLiteral("<a href=\"%1\">%1</a>").arg(link);
        pos = l.start + l.length;
    }
    html += markedPlain(text.mid(pos), query, markColor);
    return html;
}

QString message_rich_text(const QString &text)
{
    QString html;
    int pos = 0;
    for (const TextLink &l : find_text_links(text)) {
        html += escape_html_with_br(text.mid(pos, l.start - pos));
        const QString link = escape_html(text.mid(l.start, l.length));
        html += QStringLiteral("<a href=\"%1\">%1</a>").arg(link);
        pos = l.start + l.length;
    }
    html += escape_html_with_br(text.mid(pos));
    return html;
}

namespace {

bool isEmojiCodePoint(uint c)
{
    return (c >= 0x1F000 && c <= 0x1FAFF) || (c >= 0x2600 && c <= 0x27BF) ||
           (c >= 0x2300 && c <= 0x23FF) || (c >= 0x2B00 && c <= 0x2BFF);
}

// Joiners and selectors that belong to the emoji before them.
bool isEmojiJoiner(uint c)
{
    return c == 0x200D || c == 0xFE0F || c == 0xFE0E || c == 0x20E3;
}

} // namespace

QString wrap_emoji_runs(const QString &html, const QString &family)
{
    const QString open = QStringLiteral("<span style=\"font-family:'%1'\">").arg(family);
    QString out;
    out.reserve(html.size() + 32);
    bool inTag = false;
    bool inRun = false;
    for (int i = 0; i < html.size();) {
        const QChar c = html.at(i);
        uint cp = c.unicode();
        int len = 1;
        if (c.isHighSurrogate() && i + 1 < html.size() && html.at(i + 1).isLowSurrogate()) {
            cp = QChar::surrogateToUcs4(c, html.at(i + 1));
            len = 2;
        }
        const bool emoji = !inTag && (isEmojiCodePoint(cp) || (inRun && isEmojiJoiner(cp)));
        if (emoji != inRun) {
            out += emoji ? open : QStringLiteral("</span>");
            inRun = emoji;
        }
        if (c == QLatin1Char('<'))
            inTag = true;
        else if (c == QLatin1Char('>'))
            inTag = false;
        out += html.midRef(i, len);
        i += len;
    }
    if (inRun)
        out += QLatin1String("</span>");
    return out;
}

QString message_time_text(qint64 unixSeconds)
{
    if (unixSeconds <= 0)
        return QString();
    return QDateTime::fromSecsSinceEpoch(unixSeconds).toString(QStringLiteral("HH:mm"));
}

QString message_status_icon(const QVariantMap &row, qint64 lastReadOutboxId)
{
    if (row.value(QStringLiteral("outgoing")).toString() != QLatin1String("true"))
        return QString();
    const QString state = row.value(QStringLiteral("sending_state")).toString();
    const auto icon = [](const char *name) -> QString {
        return QStringLiteral("assets/osicons/") + QLatin1String(name);
    };
    if (state == QLatin1String("waiting_for_network"))
        return icon("ii_bbm_ping.png");
    if (state == QLatin1String("failed"))
        return icon("ii_bbm_out_failed.png");
    if (!state.isEmpty()) {
        if (row.value(QStringLiteral("send_acked")).toString() == QLatin1String("true"))
            return icon("ii_bbm_out_sent.png");
        return icon(state == QLatin1String("pending") ? "ii_bbm_out_pending.png"
                                                      : "ii_bbm_out_sending.png");
    }
    const qint64 id = row.value(QStringLiteral("id")).toString().toLongLong();
    return icon(id <= lastReadOutboxId ? "ii_bbm_out_read.png" : "ii_bbm_out_delivered.png");
}

QString format_file_size(qint64 bytes)
{
    if (bytes < 1)
        return QString();
    if (bytes < 1024)
        return QStringLiteral("%1 B").arg(bytes);
    if (bytes < 1024 * 1024)
        return QStringLiteral("%1 KB").arg(double(bytes) / 1024, 0, 'f', bytes < 10 * 1024 ? 1 : 0);
    if (bytes < 1024LL * 1024 * 1024)
        return QStringLiteral("%1 MB").arg(double(bytes) / (1024 * 1024), 0, 'f', 1);
    return QStringLiteral("%1 GB").arg(double(bytes) / (1024.0 * 1024 * 1024), 0, 'f', 2);
}

bool message_is_forwarded(const QVariantMap &row)
{
    const QString f = row.value(QStringLiteral("forwarded")).toString();
    return !f.isEmpty() && f != QLatin1String("false");
}
