#pragma once

#include <QFile>
#include <QSignalSpy>
#include <QStringList>
#include <QVariantMap>

namespace link_test {

inline QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

inline bool writeFile(const QString &path, const QByteArray &bytes, bool append = false)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | (append ? QIODevice::Append : QIODevice::Truncate)) &&
           f.write(bytes) == bytes.size();
}

// The "type" of each event, or the text of each status line, a spy saw.
inline QStringList texts(const QSignalSpy &spy)
{
    QStringList out;
    for (const QList<QVariant> &args : spy)
        out << (args.at(0).type() == QVariant::Map ? args.at(0).toMap().value("type").toString()
                                                   : args.at(0).toString());
    return out;
}

} // namespace link_test
