#pragma once

// Small file systems for fault tests: tmpfs mounts in a mount namespace of this process's own
// (inside a user namespace too when not root), seen by nothing outside and gone when it ends.

#include "common/loopback_namespace.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QString>

#include <cerrno>
#include <cstring>
#include <sys/mount.h>
#include <unistd.h>

namespace small_fs {

inline bool enterPrivateMounts(QString *why)
{
    // Mounts made here must not travel back to the namespace we came from.
    static const bool in = test_netns::unshareAsRoot(CLONE_NEWNS, nullptr) &&
                           ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    if (!in && why)
        *why = QStringLiteral("no private mount namespace here");
    return in;
}

// A tmpfs of `bytes` over dir (created when missing), readOnly mounted so.
inline bool mountTmpfs(const QString &dir, qint64 bytes, bool readOnly, QString *why)
{
    if (!enterPrivateMounts(why))
        return false;
    QDir().mkpath(dir);
    const QByteArray options = "size=" + QByteArray::number(bytes) + ",mode=0755";
    if (::mount("tmpfs", QFile::encodeName(dir).constData(), "tmpfs", readOnly ? MS_RDONLY : 0,
                options.constData()) != 0) {
        if (why)
            *why = QStringLiteral("tmpfs not mounted: %1")
                       .arg(QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    return true;
}

inline void unmount(const QString &dir)
{
    ::umount2(QFile::encodeName(dir).constData(), MNT_DETACH);
}

// Fills the file system that holds dir until at most `leave` bytes are free; the filler is
// dir/.filler. Writes go in whole pages, as tmpfs counts them.
inline bool fill(const QString &dir, qint64 leave)
{
    QFile filler(QDir(dir).filePath(QStringLiteral(".filler")));
    if (!filler.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Unbuffered))
        return false;
    const QByteArray page(4096, 'f');
    qint64 total = 0;
    while (filler.write(page) == page.size())
        total += page.size();
    // A file that ends mid-page already holds its whole last page.
    return filler.resize(qMax<qint64>(0, total - ((leave + 4095) / 4096) * 4096));
}

} // namespace small_fs
