#pragma once

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include <functional>

namespace test_util {

inline QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

inline bool writeFile(const QString &path, const QByteArray &bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
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

// Spins the event loop until pred holds or timeoutMs passes.
inline bool waitFor(const std::function<bool()> &pred, int timeoutMs)
{
    QElapsedTimer t;
    t.start();
    while (!pred()) {
        if (t.elapsed() > timeoutMs)
            return false;
        QTest::qWait(20);
    }
    return true;
}

} // namespace test_util
