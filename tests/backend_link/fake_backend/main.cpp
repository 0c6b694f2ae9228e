// fake_td_backend: a stand-in for td_backend in tests. It speaks no protocol; it records what
// it is given and does what the test asks, so that tests can drive the UI side against a real
// child process.
//
// Records (prefix = $FAKE_BACKEND_RECORD, else $BACKEND_EVENTS_FILE; nothing when both unset):
//   <prefix>.env       written at start: "#cwd=<working folder>", then one KEY=VALUE line per
//                      entry of the environment.
//   <prefix>.starts    one line "start <pid>" appended per start (a start counter).
//   <prefix>.received  every byte read from standard input (or, with --service, every datagram
//                      followed by "\n"), appended as received.
//
// Environment:
//   FAKE_BACKEND_STDOUT, FAKE_BACKEND_STDERR  written at start to standard output / error; the
//                      two characters "\n" stand for a line feed.
//   FAKE_BACKEND_EXIT_CODE  exit with this code, right after start, or after
//   FAKE_BACKEND_EXIT_AFTER lines of input when that is set (> 0).
//   FAKE_BACKEND_EXIT_TIMES only the first N starts (counted in <prefix>.starts) exit early;
//                      later starts run normally.
//   FAKE_BACKEND_START_DELAY_MS  sleep this long before doing anything.
//
// Commands, one per line on standard input (each is recorded first):
//   emit <base64>      append the decoded bytes to $BACKEND_EVENTS_FILE, plus "\n" if missing.
//   emitraw <base64>   append the decoded bytes as they are.
//   say <base64>       write the decoded bytes to standard output; err <base64>: standard error.
//   exit <n>           exit with code n.
//   crash              die from SIGKILL.
// Anything else is only recorded. End of input: exit 0.
//
// --service: no standard input; receive datagrams on 127.0.0.1:$FAKE_BACKEND_PORT (default
// 47010), record them, and obey the same commands (one per datagram). Ends on "exit <n>".

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QProcessEnvironment>
#include <QThread>
#include <QUdpSocket>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <unistd.h>

namespace {

QString g_prefix;
QString g_eventsFile;

void append_file(const QString &path, const QByteArray &bytes)
{
    if (path.isEmpty())
        return;
    QFile f(path);
    if (f.open(QIODevice::WriteOnly | QIODevice::Append)) {
        f.write(bytes);
        f.close();
    }
}

QByteArray unescape(QByteArray text)
{
    return text.replace("\\n", "\n");
}

void write_fd(FILE *out, const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), out);
    std::fflush(out);
}

// Returns -1 to go on, or an exit code.
int run_command(const QByteArray &rawLine)
{
    const QByteArray line = rawLine.trimmed();
    const int sp = line.indexOf(' ');
    const QByteArray verb = sp < 0 ? line : line.left(sp);
    const QByteArray arg = sp < 0 ? QByteArray() : line.mid(sp + 1);
    if (verb == "emit") {
        QByteArray bytes = QByteArray::fromBase64(arg);
        if (!bytes.endsWith('\n'))
            bytes += '\n';
        append_file(g_eventsFile, bytes);
    } else if (verb == "emitraw") {
        append_file(g_eventsFile, QByteArray::fromBase64(arg));
    } else if (verb == "say") {
        write_fd(stdout, QByteArray::fromBase64(arg));
    } else if (verb == "err") {
        write_fd(stderr, QByteArray::fromBase64(arg));
    } else if (verb == "exit") {
        return arg.toInt();
    } else if (verb == "crash") {
        ::kill(::getpid(), SIGKILL);
    }
    return -1;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    const int startDelay = env.value(QStringLiteral("FAKE_BACKEND_START_DELAY_MS")).toInt();
    if (startDelay > 0)
        QThread::msleep(ulong(startDelay));

    g_eventsFile = env.value(QStringLiteral("BACKEND_EVENTS_FILE"));
    g_prefix = env.value(QStringLiteral("FAKE_BACKEND_RECORD"), g_eventsFile);
    const QString receivedPath = g_prefix.isEmpty() ? QString() : g_prefix + ".received";
    const QString startsPath = g_prefix.isEmpty() ? QString() : g_prefix + ".starts";

    int startNumber = 1;
    if (!g_prefix.isEmpty()) {
        QFile envFile(g_prefix + ".env");
        if (envFile.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            envFile.write("#cwd=" + QDir::currentPath().toUtf8() + "\n");
            for (const QString &entry : env.toStringList())
                envFile.write(entry.toUtf8() + "\n");
        }
        QFile starts(startsPath);
        if (starts.open(QIODevice::ReadOnly))
            startNumber = starts.readAll().count('\n') + 1;
        append_file(startsPath, "start " + QByteArray::number(qint64(getpid())) + "\n");
    }

    write_fd(stdout, unescape(env.value(QStringLiteral("FAKE_BACKEND_STDOUT")).toUtf8()));
    write_fd(stderr, unescape(env.value(QStringLiteral("FAKE_BACKEND_STDERR")).toUtf8()));

    bool exitEarly = env.contains(QStringLiteral("FAKE_BACKEND_EXIT_CODE"));
    const QString times = env.value(QStringLiteral("FAKE_BACKEND_EXIT_TIMES"));
    if (exitEarly && !times.isEmpty() && startNumber > times.toInt())
        exitEarly = false;
    const int exitCode = env.value(QStringLiteral("FAKE_BACKEND_EXIT_CODE")).toInt();
    const int exitAfter = env.value(QStringLiteral("FAKE_BACKEND_EXIT_AFTER")).toInt();
    if (exitEarly && exitAfter <= 0)
        return exitCode;

    if (app.arguments().contains(QStringLiteral("--service"))) {
        QUdpSocket socket;
        const quint16 port =
            quint16(env.value(QStringLiteral("FAKE_BACKEND_PORT"), "47010").toUInt());
        if (!socket.bind(QHostAddress(QHostAddress::LocalHost), port)) {
            write_fd(stderr, "FATAL cannot bind command port\n");
            return 3;
        }
        int lines = 0;
        QObject::connect(&socket, &QUdpSocket::readyRead, &app, [&]() {
            while (socket.hasPendingDatagrams()) {
                QByteArray datagram(int(socket.pendingDatagramSize()), '\0');
                socket.readDatagram(datagram.data(), datagram.size());
                append_file(receivedPath, datagram + "\n");
                ++lines;
                const int code = run_command(datagram);
                if (code >= 0)
                    app.exit(code);
                else if (exitEarly && lines >= exitAfter)
                    app.exit(exitCode);
            }
        });
        return app.exec();
    }

    QByteArray pending;
    int lines = 0;
    char buf[65536];
    for (;;) {
        const ssize_t n = ::read(STDIN_FILENO, buf, sizeof(buf));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        append_file(receivedPath, QByteArray(buf, int(n)));
        pending.append(buf, int(n));
        int nl;
        while ((nl = pending.indexOf('\n')) >= 0) {
            const QByteArray line = pending.left(nl);
            pending.remove(0, nl + 1);
            ++lines;
            const int code = run_command(line);
            if (code >= 0)
                return code;
            if (exitEarly && lines >= exitAfter)
                return exitCode;
        }
    }
    return 0;
}
