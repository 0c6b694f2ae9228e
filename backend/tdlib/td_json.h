#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

// Small readers and builders for TDLib's JSON objects and for events.
namespace td_json {

inline QJsonObject typed(const char *tdType)
{
    QJsonObject o;
    o.insert(QStringLiteral("@type"), QLatin1String(tdType));
    return o;
}

inline QJsonObject event(const char *type)
{
    QJsonObject o;
    o.insert(QStringLiteral("type"), QLatin1String(type));
    return o;
}

inline QJsonObject withChat(const char *type, qint64 chatId)
{
    QJsonObject o = event(type);
    o.insert(QStringLiteral("chat_id"), chatId);
    return o;
}

inline QJsonValue val(const QJsonObject &o, const char *key)
{
    return o.value(QLatin1String(key));
}

inline QString str(const QJsonObject &o, const char *key)
{
    return val(o, key).toString();
}

// TDLib writes 64-bit values as strings and smaller ones as numbers.
inline qint64 i64(const QJsonObject &o, const char *key)
{
    const QJsonValue v = val(o, key);
    if (v.isString())
        return v.toString().toLongLong();
    return qint64(v.toDouble());
}

inline bool flag(const QJsonObject &o, const char *key)
{
    return val(o, key).toBool();
}

inline QJsonObject obj(const QJsonObject &o, const char *key)
{
    return val(o, key).toObject();
}

inline QJsonArray arr(const QJsonObject &o, const char *key)
{
    return val(o, key).toArray();
}

inline QString type(const QJsonObject &o)
{
    return str(o, "@type");
}

} // namespace td_json
