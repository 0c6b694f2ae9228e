#include "command_args.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QString>

bool backend_parse_id(const QString &text, qint64 *out)
{
    if (text.isEmpty() || text.size() > 20)
        return false;
    int i = 0;
    bool neg = false;
    if (text.at(0) == QLatin1Char('-')) {
        neg = true;
        i = 1;
        if (text.size() == 1)
            return false;
    }
    quint64 v = 0;
    for (; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
        v = v * 10 + quint64(c.unicode() - '0');
        if (v > quint64(Q_INT64_C(9007199254740992))) // beyond exact JSON numbers
            return false;
    }
    *out = neg ? -qint64(v) : qint64(v);
    return true;
}

bool backend_decode_base64(const QString &text, QByteArray *out)
{
    if (text.isEmpty() || text.size() % 4 != 0)
        return false;
    for (const QChar c : text) {
        const ushort u = c.unicode();
        const bool ok = (u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z') ||
                        (u >= '0' && u <= '9') || u == '+' || u == '/' || u == '=';
        if (!ok)
            return false;
    }
    const QByteArray::FromBase64Result r =
        QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (!r)
        return false;
    *out = r.decoded;
    return true;
}

QJsonObject backend_td_error_event(const QString &extra, int code, const QString &message)
{
    QJsonObject err;
    err.insert(QStringLiteral("@type"), QStringLiteral("error"));
    err.insert(QStringLiteral("code"), code);
    err.insert(QStringLiteral("message"), message);
    if (!extra.isEmpty())
        err.insert(QStringLiteral("@extra"), extra);
    QJsonObject o;
    o.insert(QStringLiteral("type"), QStringLiteral("td_error"));
    o.insert(QStringLiteral("json"),
             QString::fromUtf8(QJsonDocument(err).toJson(QJsonDocument::Compact)));
    return o;
}
