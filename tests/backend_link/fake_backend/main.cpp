// fake_td_backend: a stand-in for td_backend in tests. It speaks no protocol; it records what
// it is given and does what the test asks, so that tests can drive the UI side against a real
// child process.
//
// Records, beside $BACKEND_EVENTS_FILE (nothing when it is unset):
//   <events>.env       appended at start: "#cwd=<working folder>", then one KEY=VALUE line per
//                      entry of the environment.
//   <events>.starts    one line "start <pid>" appended per start.
//   <events>.received  every byte read from standard input, appended as received.
//
// Environment: FAKE_BACKEND_STDERR is written at start to standard error (the two characters
// "\n" stand for a line feed); FAKE_BACKEND_EXIT_CODE makes it exit with that code right after
// start.
//
// Commands, one per line on standard input: "emit <base64>" appends the decoded bytes to the
// events file, plus "\n" if missing; "say <base64>" writes them to standard output; "exit <n>".
// Anything else is only recorded. End of input: exit 0.

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>
#include <QProcessEnvironment>

#include <cstdio>
#include <unistd.h>

namespace {

void append_file(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    if (!path.isEmpty() && f.open(QIODevice::WriteOnly | QIODevice::Append))
        f.write(bytes);
}

void write_out(FILE *out, const QByteArray &bytes)
{
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), out);
    std::fflush(out);
}

} // namespace

int main()
{
    const QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    const QString events = env.value(QStringLiteral("BACKEND_EVENTS_FILE"));
    if (!events.isEmpty()) {
        QByteArray dump = "#cwd=" + QDir::currentPath().toUtf8() + "\n";
        for (const QString &entry : env.toStringList())
            dump += entry.toUtf8() + "\n";
        append_file(events + ".env", dump);
        append_file(events + ".starts", "start " + QByteArray::number(qint64(getpid())) + "\n");
    }
    write_out(stderr,
              env.value(QStringLiteral("FAKE_BACKEND_STDERR")).toUtf8().replace("\\n", "\n"));
    if (env.contains(QStringLiteral("FAKE_BACKEND_EXIT_CODE")))
        return env.value(QStringLiteral("FAKE_BACKEND_EXIT_CODE")).toInt();

    const QString received = events.isEmpty() ? QString() : events + ".received";
    char *buf = nullptr;
    size_t cap = 0;
    ssize_t n;
    while ((n = getline(&buf, &cap, stdin)) > 0) {
        const QByteArray line(buf, int(n));
        append_file(received, line);
        const QList<QByteArray> words = line.trimmed().split(' ');
        const QByteArray arg = QByteArray::fromBase64(words.value(1));
        if (words.at(0) == "emit")
            append_file(events, arg.endsWith('\n') ? arg : arg + '\n');
        else if (words.at(0) == "say")
            write_out(stdout, arg);
        else if (words.at(0) == "exit")
            return words.value(1).toInt();
    }
    return 0;
}
