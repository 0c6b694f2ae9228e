#pragma once
// Arguments of command lines, read the same way by both engines.
#include <QtGlobal>

class QByteArray;
class QString;

// A decimal id within the range JSON numbers carry exactly.
bool backend_parse_id(const QString &text, qint64 *out);
// Standard Base64 with padding; anything else is refused.
bool backend_decode_base64(const QString &text, QByteArray *out);
