#include "backend_link/json_keys.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>
#include <QString>
#include <QVarLengthArray>

#include <cstring>

namespace {

// Qt's reader stops at this depth too.
constexpr int kMaxDepth = 1024;

// A key's bytes between its quotes, as a place in the text.
struct Span
{
    int at;
    int len;
};

template<typename Key>
struct Frame
{
    bool object = false;
    bool expectKey = false;
    QVarLengthArray<Key, 8> keys;
};

// The key as the reader will see it: escapes decoded.
QString decoded_key(const char *quoted, int len)
{
    const QByteArray token(quoted, len);
    if (!token.contains('\\'))
        return QString::fromUtf8(token.mid(1, len - 2));
    return QJsonDocument::fromJson('[' + token + ']').array().at(0).toString();
}

// Walks the text's objects; seen(frame, quoted key, its length) answers
// whether the frame had the key and records it. -1: escape in a key (only
// the decoding walk takes those), else 1 or 0.
template<typename Key, typename Seen>
int walk(const QByteArray &text, bool decodeEscapes, Seen seen)
{
    QVarLengthArray<Frame<Key>, 16> stack;
    const char *p = text.constData();
    const int n = text.size();
    for (int i = 0; i < n; ++i) {
        const char c = p[i];
        if (c == '{' || c == '[') {
            if (stack.size() >= kMaxDepth)
                return 0;
            stack.append(Frame<Key>());
            stack.last().object = c == '{';
            stack.last().expectKey = c == '{';
        } else if (c == '}' || c == ']') {
            if (!stack.isEmpty())
                stack.removeLast();
        } else if (c == ',') {
            if (!stack.isEmpty() && stack.last().object)
                stack.last().expectKey = true;
        } else if (c == '"') {
            int end = i + 1;
            bool escaped = false;
            while (end < n && p[end] != '"') {
                escaped = escaped || p[end] == '\\';
                end += p[end] == '\\' ? 2 : 1;
            }
            if (end >= n)
                return 0;
            if (!stack.isEmpty() && stack.last().expectKey) {
                if (escaped && !decodeEscapes)
                    return -1;
                stack.last().expectKey = false;
                if (seen(stack.last().keys, p, i, end - i + 1))
                    return 1;
            }
            i = end;
        }
    }
    return 0;
}

} // namespace

bool json_repeats_key(const QByteArray &text)
{
    // Keys compared where they stand, which is all the backend writes.
    const int plain =
        walk<Span>(text, false, [](QVarLengthArray<Span, 8> &keys, const char *p, int at, int len) {
            for (const Span &k : keys) {
                if (k.len == len && std::memcmp(p + k.at, p + at, len) == 0)
                    return true;
            }
            keys.append(Span{at, len});
            return false;
        });
    if (plain >= 0)
        return plain == 1;
    // "\u0061" and "a" are one key to the reader.
    return walk<QString>(text, true,
                         [](QVarLengthArray<QString, 8> &keys, const char *p, int at, int len) {
                             const QString key = decoded_key(p + at, len);
                             for (const QString &k : keys) {
                                 if (k == key)
                                     return true;
                             }
                             keys.append(key);
                             return false;
                         }) == 1;
}
