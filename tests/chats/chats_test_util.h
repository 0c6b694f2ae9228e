#pragma once

#include <QDateTime>
#include <QStringList>
#include <QVariantMap>

// "id=1 order=5 title=x" -> a row map; "|" separates instead of blanks when
// a value holds blanks ("title=see you|id=2").
inline QVariantMap kv(const QString &text)
{
    const QChar sep = text.contains(QLatin1Char('|')) ? QLatin1Char('|') : QLatin1Char(' ');
    QVariantMap row;
    for (const QString &part : text.split(sep, Qt::SkipEmptyParts)) {
        const int eq = part.indexOf(QLatin1Char('='));
        row.insert(part.left(eq), part.mid(eq + 1));
    }
    return row;
}

inline qint64 localSecs(int y, int m, int d, int hh = 8, int mm = 0)
{
    return QDateTime(QDate(y, m, d), QTime(hh, mm), Qt::LocalTime).toSecsSinceEpoch();
}
