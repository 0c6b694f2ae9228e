#include "platform/folders.h"

#include <QDir>
#include <QFile>
#include <QTemporaryFile>

namespace {

QString clean(const QString &path)
{
    return QDir::cleanPath(QDir(path).absolutePath());
}

QString homeOf(const QProcessEnvironment &env)
{
    const QString home = env.value(QStringLiteral("HOME"));
    if (!home.isEmpty() && QDir::isAbsolutePath(home))
        return clean(home);
    return clean(QDir::homePath());
}

// XDG base folders must be absolute; a relative value is ignored.
QString xdgBase(const QProcessEnvironment &env, const QString &var, const QString &fallback)
{
    const QString v = env.value(var);
    if (!v.isEmpty() && QDir::isAbsolutePath(v))
        return clean(v);
    return fallback;
}

} // namespace

QString xdg_user_dir_from_text(const QString &text, const QString &key, const QString &home)
{
    // Lines look like: XDG_DOWNLOAD_DIR="$HOME/Downloads"
    const QStringList lines = text.split(QLatin1Char('\n'));
    QString found;
    for (const QString &raw : lines) {
        const QString line = raw.trimmed();
        if (line.startsWith(QLatin1Char('#')) || !line.startsWith(key))
            continue;
        QString rest = line.mid(key.size()).trimmed();
        if (!rest.startsWith(QLatin1Char('=')))
            continue;
        rest = rest.mid(1).trimmed();
        if (rest.size() < 2 || !rest.startsWith(QLatin1Char('"')) ||
            !rest.endsWith(QLatin1Char('"')))
            continue;
        QString value = rest.mid(1, rest.size() - 2);
        if (value.startsWith(QLatin1String("$HOME")))
            value = home + value.mid(5);
        if (!QDir::isAbsolutePath(value))
            continue;
        found = clean(value);
    }
    return found;
}

AppFolders resolve_app_folders(const QString &appDir, const QProcessEnvironment &env)
{
    AppFolders f;
    f.appDir = appDir.isEmpty() ? QString() : clean(appDir);
    const QString home = homeOf(env);

    const QString dataOverride = env.value(QStringLiteral("VEXA_DATA_DIR"));
    if (!dataOverride.isEmpty()) {
        f.dataDir = clean(dataOverride);
    } else {
        const QString dataHome =
            xdgBase(env, QStringLiteral("XDG_DATA_HOME"), home + QStringLiteral("/.local/share"));
        f.dataDir = dataHome + QStringLiteral("/vexa");
    }

    const QString shared = env.value(QStringLiteral("VEXA_SHARED_DIR"));
    if (!shared.isEmpty()) {
        const QString root = clean(shared);
        f.sharedPrefix = root;
        f.downloadsDir = root + QStringLiteral("/downloads/quillo");
        f.miscDir = root + QStringLiteral("/misc/marlinde");
        f.documentsDir = root + QStringLiteral("/documents");
        f.photosDir = root + QStringLiteral("/photos");
        f.musicDir = root + QStringLiteral("/music");
        f.videosDir = root + QStringLiteral("/videos");
        return f;
    }

    const QString configHome =
        xdgBase(env, QStringLiteral("XDG_CONFIG_HOME"), home + QStringLiteral("/.config"));
    QString userDirs;
    QFile file(configHome + QStringLiteral("/user-dirs.dirs"));
    // The file is a handful of lines; anything beyond 64 KiB is not one.
    if (file.open(QIODevice::ReadOnly))
        userDirs = QString::fromUtf8(file.read(64 * 1024));

    auto userDir = [&](const char *key, const char *fallback) {
        const QString v = xdg_user_dir_from_text(userDirs, QLatin1String(key), home);
        return v.isEmpty() ? home + QLatin1Char('/') + QLatin1String(fallback) : v;
    };
    f.sharedPrefix = home;
    f.downloadsDir = userDir("XDG_DOWNLOAD_DIR", "Downloads") + QStringLiteral("/quillo");
    f.miscDir = configHome + QStringLiteral("/marlinde");
    f.documentsDir = userDir("XDG_DOCUMENTS_DIR", "Documents");
    f.photosDir = userDir("XDG_PICTURES_DIR", "Pictures");
    f.musicDir = userDir("XDG_MUSIC_DIR", "Music");
    f.videosDir = userDir("XDG_VIDEOS_DIR", "Videos");
    return f;
}

bool ensure_app_folders(const AppFolders &f, QString *error)
{
    const QStringList dirs = {f.dataDir,   f.downloadsDir, f.miscDir,  f.documentsDir,
                              f.photosDir, f.musicDir,     f.videosDir};
    for (const QString &d : dirs) {
        if (d.isEmpty())
            continue;
        if (!QDir().mkpath(d)) {
            if (error)
                *error = QStringLiteral("cannot create folder %1").arg(d);
            return false;
        }
    }
    return true;
}

bool folder_writable(const QString &dir, QString *error)
{
    if (!QDir().mkpath(dir)) {
        if (error)
            *error = QStringLiteral("cannot create folder %1").arg(dir);
        return false;
    }
    QTemporaryFile probe(QDir(dir).filePath(QStringLiteral(".vexa-write-test-XXXXXX")));
    if (!probe.open() || probe.write("x", 1) != 1 || !probe.flush()) {
        if (error)
            *error = QStringLiteral("cannot write in %1: %2").arg(dir, probe.errorString());
        return false;
    }
    return true;
}
