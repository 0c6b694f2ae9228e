#pragma once

// Shared by the fuzz targets: one headless application per process, the
// property checks (a violation aborts, which libFuzzer reports as a crash),
// and the recording doubles for what would leave the process.

#include <QByteArray>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QGuiApplication>
#include <QString>
#include <QStringList>

#include <cstdio>
#include <cstdlib>

namespace fuzz {

// Fonts and images need a GUI application; offscreen keeps it headless.
inline void ensureApp()
{
    static QGuiApplication *app = [] {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "fuzz";
        static char *argv[] = {name, nullptr};
        return new QGuiApplication(argc, argv);
    }();
    (void)app;
}

[[noreturn]] inline void violated(const char *what, const QString &detail)
{
    std::fprintf(stderr, "PROPERTY VIOLATED: %s: %s\n", what,
                 detail.left(400).toUtf8().constData());
    std::fflush(stderr);
    std::abort();
}

inline void check(bool ok, const char *what, const QString &detail = QString())
{
    if (!ok)
        violated(what, detail);
}

// A command line for the backend is one line: a break inside would let input
// text become a second command.
inline void checkCommandLine(const QString &line)
{
    check(!line.trimmed().contains(QLatin1Char('\n')) &&
              !line.trimmed().contains(QLatin1Char('\r')),
          "command holds a line break", line);
}

// Every file under root is inside one of the allowed folders (relative to
// root); nothing was created beside them or above root.
inline void checkFilesUnder(const QString &root, const QStringList &allowedTop)
{
    const QStringList top =
        QDir(root).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    for (const QString &name : top)
        check(allowedTop.contains(name), "file outside its folder", root + QLatin1Char('/') + name);
}

// The temporary folder of one process, removed at exit.
inline QString processTempDir(const char *tag)
{
    static QString path;
    if (path.isEmpty()) {
        const QByteArray tmpl = QDir::tempPath().toUtf8() + "/vexa-" + tag + "-XXXXXX";
        QByteArray buf = tmpl;
        char *made = ::mkdtemp(buf.data());
        if (!made)
            violated("setup", QStringLiteral("mkdtemp failed"));
        path = QString::fromUtf8(made);
        std::atexit([] { QDir(path).removeRecursively(); });
    }
    return path;
}

inline QString text(const uint8_t *data, size_t size)
{
    return QString::fromUtf8(reinterpret_cast<const char *>(data), int(size));
}

inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), int(size));
}

} // namespace fuzz
