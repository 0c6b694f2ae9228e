#pragma once

#include <QString>
#include <QVariantMap>

// Text helpers of the message bubbles. None of them touches a widget.

// "&" first, so the entities made for "<", ">", '"' and "'" are escaped once.
QString escape_html(const QString &text);
// escape_html, then every line end (CRLF, CR or LF) becomes "<br/>".
QString escape_html_with_br(const QString &text);

// "m:ss" with whole minutes unpadded (3600 gives "60:00"); empty below 1 s;
// clamped to a day.
QString format_duration_mmss(qint64 seconds);

// Reaction emoji as the bubble draws them: without variation selectors, and
// the few newer faces replaced by older look-alikes that every emoji font has.
QString bb10EmojiForReactionDisplay(const QString &emoji);

// One link found in a message text: where it starts, how long it is.
struct TextLink
{
    int start = 0;
    int length = 0;
};

// Links in a message: "http://", "https://", "www." or the public link domain
// followed by "/", each running up to the next white space.
QList<TextLink> find_text_links(const QString &text);

// Rich text of a message: escaped, line breaks kept, each link an anchor
// whose href is the link's text exactly as written.
QString message_rich_text(const QString &text);
// The same with every case-insensitive occurrence of query outside the links
// marked with a background of the colour given as "#rrggbb".
QString message_rich_text_marked(const QString &text, const QString &query,
                                 const QString &markColor);

// Wraps each run of emoji in rich text (outside its tags) in a span of the
// given font family, so that a colour emoji font draws them rather than the
// first font that happens to have the glyph.
QString wrap_emoji_runs(const QString &html, const QString &family);

// "HH:mm" in local time of a unix date; empty for 0.
QString message_time_text(qint64 unixSeconds);

// Delivery icon ("assets/osicons/ii_bbm_*.png") of an outgoing row, given the
// chat's last read outgoing message id; empty for incoming rows.
QString message_status_icon(const QVariantMap &row, qint64 lastReadOutboxId);

// "12 KB" style size of a file; empty for sizes below 1.
QString format_file_size(qint64 bytes);

// True when the row's "forwarded" marks a forwarded message.
bool message_is_forwarded(const QVariantMap &row);
