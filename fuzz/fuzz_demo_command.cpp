// The demo backend's command lines, each verb with whatever words follow,
// on a signed-in account (DEMO_SPEED=0: answers at once, no background life).
// One database folder per process; without ffmpeg on PATH videos fail fast
// instead of rendering for seconds. Properties: every event is one JSON
// object on one line; every status line on standard output is one of the
// status kinds; files stay in the files folder; the stdin line cap and the
// events file hold what they should.

#include "demo_backend.h"
#include "demo_store.h"
#include "fuzz_common.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>

#include <fcntl.h>
#include <unistd.h>

namespace {

struct Demo
{
    QString root;
    QString events;
    DemoStore store;
    DemoBackend *backend = nullptr;
    int stdoutRead = -1;
};

Demo &demo()
{
    static Demo *d = [] {
        fuzz::ensureApp();
        auto *demo = new Demo;
        demo->root = fuzz::processTempDir("demo");
        const QString emptyBin = demo->root + QStringLiteral("/bin");
        QDir().mkpath(emptyBin);
        qputenv("PATH", QFile::encodeName(emptyBin));
        // Status lines go to standard output: read them back through a pipe.
        int fds[2];
        if (::pipe2(fds, O_NONBLOCK | O_CLOEXEC) != 0 || ::dup2(fds[1], STDOUT_FILENO) < 0)
            fuzz::violated("setup", QStringLiteral("stdout pipe"));
        demo->stdoutRead = fds[0];
        DemoConfig cfg;
        cfg.dbDir = demo->root + QStringLiteral("/db");
        cfg.filesDir = demo->root + QStringLiteral("/files");
        cfg.eventsPath = demo->root + QStringLiteral("/backend_events.jsonl");
        cfg.logPath = demo->root + QStringLiteral("/tdlib.log");
        cfg.logMaxSize = 256 * 1024;
        cfg.speed = 0;
        demo->events = cfg.eventsPath;
        QDir().mkpath(cfg.dbDir);
        QDir().mkpath(cfg.filesDir);
        QString error;
        if (!demo->store.open(cfg.dbDir + QStringLiteral("/demo.sqlite"), &error))
            fuzz::violated("setup", error);
        demo->backend = new DemoBackend(cfg, &demo->store);
        if (!demo->backend->start(&error))
            fuzz::violated("setup", error);
        return demo;
    }();
    return *d;
}

void checkStatusLines(int fd)
{
    static QByteArray pending;
    char buf[65536];
    ssize_t n;
    while ((n = ::read(fd, buf, sizeof(buf))) > 0)
        pending.append(buf, int(n));
    int nl;
    while ((nl = pending.indexOf('\n')) >= 0) {
        const QByteArray line = pending.left(nl);
        pending.remove(0, nl + 1);
        const bool known = line.startsWith("AUTH_STATE ") || line.startsWith("NEED ") ||
                           line.startsWith("ME ") || line.startsWith("BACKEND_READY") ||
                           line.startsWith("FATAL ");
        fuzz::check(known, "status line of no kind", QString::fromUtf8(line));
    }
}

void checkEvents(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite))
        return;
    const QByteArray all = file.readAll();
    fuzz::check(all.isEmpty() || all.endsWith('\n'), "event file ends inside a line");
    for (const QByteArray &line : all.split('\n')) {
        if (line.isEmpty())
            continue;
        QJsonParseError error;
        const QJsonDocument doc = QJsonDocument::fromJson(line, &error);
        fuzz::check(error.error == QJsonParseError::NoError && doc.isObject() &&
                        doc.object().contains(QStringLiteral("type")),
                    "event is not one JSON object line", QString::fromUtf8(line));
    }
    // The backend appends; emptied here, its next event starts the file anew.
    file.resize(0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Demo &d = demo();
    // Signed in for every input, so that every verb is reached (an input may
    // log out).
    d.backend->handleLine("phone +15550100");
    d.backend->handleLine("code 22222");
    for (const QByteArray &line : fuzz::bytes(data, size).split('\n'))
        d.backend->handleLine(line);
    d.backend->drainPending();
    checkEvents(d.events);
    checkStatusLines(d.stdoutRead);
    fuzz::checkFilesUnder(d.root, {QStringLiteral("bin"), QStringLiteral("db"),
                                   QStringLiteral("files"), QStringLiteral("backend_events.jsonl"),
                                   QStringLiteral("tdlib.log"), QStringLiteral("tdlib.log.old")});
    return 0;
}
