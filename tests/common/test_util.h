#pragma once

// File, process and waiting helpers shared by the tests.

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QStringList>
#include <QTest>
#include <QVariantMap>

#include <functional>

namespace test_util {

inline QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// Creates the folder when needed.
inline bool writeFile(const QString &path, const QByteArray &bytes, bool append = false)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    return f.open(QIODevice::WriteOnly | (append ? QIODevice::Append : QIODevice::Truncate)) &&
           f.write(bytes) == bytes.size();
}

// Copies an executable into place under a temporary name first, so that a starter never sees a
// half-written file.
inline bool installExecutable(const QString &from, const QString &to)
{
    const QString tmp = to + QStringLiteral(".part");
    QFile::remove(tmp);
    return QFile::copy(from, tmp) &&
           QFile::setPermissions(tmp, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner) &&
           QFile::rename(tmp, to);
}

// Spins the event loop until pred holds; false when it still does not after timeoutMs.
inline bool waitFor(const std::function<bool()> &pred, int timeoutMs = 10000)
{
    QElapsedTimer t;
    t.start();
    while (!pred()) {
        if (t.elapsed() > timeoutMs)
            return false;
        QTest::qWait(10);
    }
    return true;
}

// The "type" of each event, or the text of each string, a spy saw (first argument).
inline QStringList texts(const QSignalSpy &spy)
{
    QStringList out;
    for (const QList<QVariant> &args : spy)
        out << (args.at(0).type() == QVariant::Map ? args.at(0).toMap().value("type").toString()
                                                   : args.at(0).toString());
    return out;
}

// "id=1 order=5 title=x" -> a row map; "|" separates instead of blanks when a value holds blanks
// ("title=see you|id=2").
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

// The process environment without the variables that steer the programs under test.
inline QStringList cleanEnvironment()
{
    return QProcessEnvironment::systemEnvironment().toStringList().filter(QRegularExpression(
        QStringLiteral("^(?!UI_USE_|QUILLO_|VEXA_|TG_|DEMO_|TDLIB_|FAKE_BACKEND_)")));
}

} // namespace test_util
