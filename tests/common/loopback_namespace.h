#pragma once

// Moves the calling process (and every child it starts later) into a private
// network namespace whose only device is loopback, brought up. Tests that
// load TDLib call it first thing in main(), before any thread exists: from
// then on nothing they start can reach beyond 127.0.0.1.

#include <QByteArray>
#include <QFile>
#include <QString>

#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace test_netns {

inline bool writeProcFile(const char *path, const QByteArray &text)
{
    QFile f(QString::fromLatin1(path));
    return f.open(QIODevice::WriteOnly) && f.write(text) == text.size();
}

inline bool bringLoopbackUp(QString *why)
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *why = QStringLiteral("socket: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    struct ifreq ifr = {};
    std::strncpy(ifr.ifr_name, "lo", IFNAMSIZ - 1);
    bool ok = ::ioctl(fd, SIOCGIFFLAGS, &ifr) == 0;
    if (ok) {
        ifr.ifr_flags |= IFF_UP | IFF_RUNNING;
        ok = ::ioctl(fd, SIOCSIFFLAGS, &ifr) == 0;
    }
    if (!ok)
        *why =
            QStringLiteral("cannot bring lo up: %1").arg(QString::fromLocal8Bit(strerror(errno)));
    ::close(fd);
    return ok;
}

// Unshares `flags` (CLONE_NEW*) as root; unprivileged, inside a user namespace of its own that
// makes it root there. Must run while the process is one thread.
inline bool unshareAsRoot(int flags, QString *why)
{
    const uid_t uid = ::geteuid();
    const gid_t gid = ::getegid();
    const QByteArray uidMap = QByteArray::number(uid) + ' ' + QByteArray::number(uid) + " 1";
    const QByteArray gidMap = QByteArray::number(gid) + ' ' + QByteArray::number(gid) + " 1";
    const bool ok = uid == 0 ? ::unshare(flags) == 0
                             : (::unshare(CLONE_NEWUSER | flags) == 0 &&
                                writeProcFile("/proc/self/setgroups", "deny") &&
                                writeProcFile("/proc/self/uid_map", uidMap) &&
                                writeProcFile("/proc/self/gid_map", gidMap));
    if (!ok && why)
        *why = QStringLiteral("unshare: %1").arg(QString::fromLocal8Bit(strerror(errno)));
    return ok;
}

// False with the reason when namespaces are unavailable here; the caller's
// tests then skip rather than run with the machine's network.
inline bool enterLoopbackOnlyNamespace(QString *why)
{
    return unshareAsRoot(CLONE_NEWNET, why) && bringLoopbackUp(why);
}

} // namespace test_netns
