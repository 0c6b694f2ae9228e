// Resident memory of vexa showing the chat list of the demo account, and of
// its backend, with a breakdown from /proc/<pid>/smaps: heap, all anonymous
// memory and the five largest mappings (a file's mappings counted together).
//
// Usage: bench_memory [path to vexa]
// Each round starts a private Xvfb, signs a fresh data folder in with the
// demo backend that lies beside vexa (any phone, code 22222), starts vexa
// on it with DEMO_SPEED=0, waits for ui_debug.log to say the chat list was
// drawn and for the resident size to settle, then reads the figures. The
// rounds: as vexa starts by itself, and with QT_XCB_GL_INTEGRATION=xcb_glx
// (a user's own choice of GL integration, which vexa honours).

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <cstdio>

namespace {

struct Usage
{
    qint64 rssKb = -1;
    qint64 heapKb = 0;
    qint64 anonKb = 0;
    QList<QPair<qint64, QString>> largest; // kB, mapping
};

qint64 rssKb(qint64 pid)
{
    QFile f(QStringLiteral("/proc/%1/status").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : f.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

Usage usageOf(qint64 pid)
{
    Usage u;
    u.rssKb = rssKb(pid);
    QFile f(QStringLiteral("/proc/%1/smaps").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return u;
    QMap<QString, qint64> byName;
    QString name;
    for (const QByteArray &raw : f.readAll().split('\n')) {
        const QByteArray line = raw.simplified();
        if (line.isEmpty())
            continue;
        const QList<QByteArray> parts = line.split(' ');
        if (!parts.first().endsWith(':')) {
            // "start-end perms offset dev inode [name]": a new mapping.
            name = parts.size() > 5 ? QString::fromLocal8Bit(parts.mid(5).join(' '))
                                    : QStringLiteral("[anonymous]");
            continue;
        }
        const qint64 kb = parts.value(1).toLongLong();
        if (parts.first() == "Rss:") {
            byName[name] += kb;
            if (name == QLatin1String("[heap]"))
                u.heapKb += kb;
        } else if (parts.first() == "Anonymous:") {
            u.anonKb += kb;
        }
    }
    for (auto it = byName.cbegin(); it != byName.cend(); ++it)
        u.largest << qMakePair(it.value(), it.key());
    std::sort(u.largest.begin(), u.largest.end(),
              [](const auto &a, const auto &b) { return a.first > b.first; });
    u.largest = u.largest.mid(0, 5);
    return u;
}

qint64 childNamed(qint64 pid, const QByteArray &comm)
{
    QFile f(QStringLiteral("/proc/%1/task/%1/children").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &p : f.readAll().split(' ')) {
        const qint64 child = p.trimmed().toLongLong();
        QFile c(QStringLiteral("/proc/%1/comm").arg(child));
        if (child > 0 && c.open(QIODevice::ReadOnly) && c.readAll().trimmed() == comm)
            return child;
    }
    return -1;
}

void stop(QProcess &p)
{
    if (p.state() == QProcess::NotRunning)
        return;
    p.terminate();
    if (!p.waitForFinished(10000)) {
        p.kill();
        p.waitForFinished(3000);
    }
}

// Signs the demo account in on dataDir, as a first vexa session would.
bool signIn(const QString &backend, const QString &dataDir)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TDLIB_DB_DIR"), dataDir + QStringLiteral("/tdlib-db"));
    env.insert(QStringLiteral("BACKEND_EVENTS_FILE"), dataDir + QStringLiteral("/sign-in.jsonl"));
    env.insert(QStringLiteral("DEMO_SPEED"), QStringLiteral("0"));
    p.setProcessEnvironment(env);
    p.setWorkingDirectory(dataDir);
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(backend, QStringList());
    if (!p.waitForStarted(5000))
        return false;
    p.write("phone +15550100\ncode 22222\n");
    QByteArray out;
    QElapsedTimer t;
    t.start();
    while (!out.contains("AUTH_STATE Ready") && t.elapsed() < 30000 && p.waitForReadyRead(1000))
        out += p.readAll();
    p.closeWriteChannel();
    if (!p.waitForFinished(10000))
        stop(p);
    QFile::remove(dataDir + QStringLiteral("/sign-in.jsonl"));
    return out.contains("AUTH_STATE Ready");
}

// A private X server; returns its display (":N") or an empty string.
QString startXvfb(QProcess &x)
{
    x.start(QStringLiteral("Xvfb"),
            {"-displayfd", "1", "-screen", "0", "1280x1400x24", "-nolisten", "tcp"});
    if (!x.waitForStarted(5000))
        return QString();
    QByteArray out;
    while (!out.contains('\n') && x.waitForReadyRead(10000))
        out += x.readAllStandardOutput();
    bool ok = false;
    const int n = out.trimmed().toInt(&ok);
    return ok ? QStringLiteral(":%1").arg(n) : QString();
}

bool waitForLogLine(const QString &path, const QByteArray &text, QProcess &vexa, int capMs)
{
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < capMs && vexa.state() == QProcess::Running) {
        QFile f(path);
        if (f.open(QIODevice::ReadOnly) && f.readAll().contains(text))
            return true;
        QThread::msleep(50);
    }
    return false;
}

// Waits until the resident size has stayed within 64 kB for quietMs
// (avatars of the rows in view arrive one per download tick), at most capMs.
void waitSettled(qint64 pid, int quietMs, int capMs)
{
    QElapsedTimer total;
    total.start();
    QElapsedTimer quiet;
    quiet.start();
    qint64 last = rssKb(pid);
    while (total.elapsed() < capMs && quiet.elapsed() < quietMs) {
        QThread::msleep(200);
        const qint64 now = rssKb(pid);
        if (now < 0)
            return;
        if (qAbs(now - last) > 64) {
            last = now;
            quiet.restart();
        }
    }
}

void print(const char *who, const Usage &u)
{
    std::printf("  %-10s RSS %6.1f MB   heap %5.1f MB   anonymous %5.1f MB\n", who,
                double(u.rssKb) / 1024.0, double(u.heapKb) / 1024.0, double(u.anonKb) / 1024.0);
    for (const auto &m : u.largest)
        std::printf("  %10s %6.1f MB  %s\n", "", double(m.first) / 1024.0, qPrintable(m.second));
}

// openChat: a chat id opened at start (through UI_AUTO_OPEN_CHAT_ID); 0 for the chat list.
bool round(const QString &vexaPath, const QString &glIntegration, qint64 openChat = 0)
{
    QTemporaryDir dir;
    const QString dataDir = dir.filePath(QStringLiteral("data"));
    const QString sharedDir = dir.filePath(QStringLiteral("shared"));
    const QString backend = QFileInfo(vexaPath).absolutePath() + QStringLiteral("/td_backend");
    if (!dir.isValid() || !QDir().mkpath(dataDir) || !QDir().mkpath(sharedDir))
        return false;
    if (openChat != 0) {
        const QString misc = sharedDir + QStringLiteral("/misc/marlinde");
        QFile env(misc + QStringLiteral("/td_debug.env"));
        if (!QDir().mkpath(misc) || !env.open(QIODevice::WriteOnly) ||
            env.write(QByteArray("UI_AUTO_OPEN_CHAT_ID=") + QByteArray::number(openChat) + "\n") <
                0)
            return false;
    }
    if (!signIn(backend, dataDir)) {
        std::fprintf(stderr, "the demo backend %s did not sign in\n", qPrintable(backend));
        return false;
    }
    QProcess xvfb;
    const QString display = startXvfb(xvfb);
    if (display.isEmpty()) {
        std::fprintf(stderr, "cannot start Xvfb\n");
        return false;
    }

    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const QString &key : env.keys()) {
        if (key.startsWith(QLatin1String("UI_USE_")) || key.startsWith(QLatin1String("VEXA_")) ||
            key.startsWith(QLatin1String("DEMO_")) || key.startsWith(QLatin1String("QT_")))
            env.remove(key);
    }
    env.insert(QStringLiteral("DISPLAY"), display);
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    env.insert(QStringLiteral("VEXA_DATA_DIR"), dataDir);
    env.insert(QStringLiteral("VEXA_SHARED_DIR"), sharedDir);
    env.insert(QStringLiteral("DEMO_SPEED"), QStringLiteral("0"));
    if (!glIntegration.isEmpty())
        env.insert(QStringLiteral("QT_XCB_GL_INTEGRATION"), glIntegration);
    QProcess vexa;
    vexa.setProcessEnvironment(env);
    vexa.setStandardOutputFile(QProcess::nullDevice());
    vexa.setStandardErrorFile(QProcess::nullDevice());
    vexa.start(vexaPath, QStringList());
    bool ok = vexa.waitForStarted(5000) &&
              waitForLogLine(dataDir + QStringLiteral("/ui_debug.log"),
                             openChat != 0 ? "ui: chat drawn" : "ui: chat list drawn", vexa, 60000);
    if (ok) {
        waitSettled(vexa.processId(), 3000, 30000);
        const qint64 backendPid = childNamed(vexa.processId(), "td_backend");
        std::printf("%s:\n",
                    openChat != 0 ? "the 20,000-message chat open at its first page"
                    : glIntegration.isEmpty()
                        ? "vexa as it starts"
                        : qPrintable(QStringLiteral("QT_XCB_GL_INTEGRATION=") + glIntegration));
        print("vexa", usageOf(vexa.processId()));
        if (backendPid > 0)
            print("td_backend", usageOf(backendPid));
        std::fflush(stdout);
    } else {
        std::fprintf(stderr, "the chat list was not drawn\n");
    }
    stop(vexa);
    stop(xvfb);
    return ok;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QString vexa = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QStringLiteral(VEXA_PATH);
    // The demo's "Vexa Archive" group, 20,000 messages.
    const qint64 archive = -Q_INT64_C(1001000000001);
    const bool ok = round(vexa, QString()) && round(vexa, QString(), archive) &&
                    round(vexa, QStringLiteral("xcb_glx"));
    return ok ? 0 : 1;
}
