#pragma once
// Arguments of command lines, read the same way by both engines, and the
// error event both write back.
#include <QJsonObject>
#include <QtGlobal>

class QByteArray;
class QString;

// A decimal id within the range JSON numbers carry exactly.
bool backend_parse_id(const QString &text, qint64 *out);
// Standard Base64 with padding; anything else is refused.
bool backend_decode_base64(const QString &text, QByteArray *out);
// The "td_error" event: a TDLib-shaped error, its tag in "@extra", as JSON text.
QJsonObject backend_td_error_event(const QString &extra, int code, const QString &message);
