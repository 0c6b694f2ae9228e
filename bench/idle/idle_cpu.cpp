// Measures the user + system CPU time of an idle vexa over a window of time,
// once in the foreground and once in the background regime, with the backend
// that lies beside the executable (the demo backend) left idle.
//
// Usage: bench_idle_cpu [seconds=60] [path to vexa]
// Runs vexa offscreen on fresh temporary data and shared folders; the
// background run sets VEXA_START_IN_BACKGROUND=1. Figures come from
// /proc/<pid>/stat (utime, stime) of vexa and of its child.

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>
#include <unistd.h>

namespace {

// utime + stime in clock ticks; -1 when the process is gone.
long long cpuTicks(qint64 pid)
{
    QFile f(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray line = f.readAll();
    // The command name may hold blanks; fields are counted after its ')'.
    const int close = line.lastIndexOf(')');
    if (close < 0)
        return -1;
    const QList<QByteArray> fields = line.mid(close + 2).split(' ');
    // After ')': field 3 (state) is index 0, so utime (14) is 11, stime (15) 12.
    if (fields.size() < 13)
        return -1;
    return fields.at(11).toLongLong() + fields.at(12).toLongLong();
}

// Nanoseconds on the CPU summed over all threads (/proc/<pid>/task/*/schedstat,
// first field); finer than the clock ticks of stat. -1 when gone.
long long cpuNanos(qint64 pid)
{
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    if (!tasks.exists())
        return -1;
    long long sum = 0;
    for (const QString &tid : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile f(tasks.filePath(tid + QStringLiteral("/schedstat")));
        if (!f.open(QIODevice::ReadOnly))
            continue;
        sum += f.readAll().split(' ').value(0).toLongLong();
    }
    return sum;
}

QList<qint64> children(qint64 pid)
{
    QList<qint64> out;
    QFile f(QStringLiteral("/proc/%1/task/%1/children").arg(pid));
    if (!f.open(QIODevice::ReadOnly))
        return out;
    for (const QByteArray &p : f.readAll().split(' ')) {
        bool ok = false;
        const qint64 v = p.trimmed().toLongLong(&ok);
        if (ok)
            out << v;
    }
    return out;
}

struct Result
{
    double vexaSeconds = -1;
    double backendSeconds = -1;
    double vexaSchedMs = -1;
};

Result measure(const QString &vexa, int seconds, bool background)
{
    Result r;
    QTemporaryDir dir;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("VEXA_DATA_DIR"), dir.filePath(QStringLiteral("data")));
    env.insert(QStringLiteral("VEXA_SHARED_DIR"), dir.filePath(QStringLiteral("shared")));
    env.remove(QStringLiteral("UI_USE_SERVICE_BACKEND"));
    env.remove(QStringLiteral("UI_USE_LOCAL_BACKEND"));
    if (background)
        env.insert(QStringLiteral("VEXA_START_IN_BACKGROUND"), QStringLiteral("1"));
    QProcess proc;
    proc.setProcessEnvironment(env);
    proc.setProcessChannelMode(QProcess::ForwardedOutputChannel);
    proc.setStandardErrorFile(QProcess::nullDevice());
    proc.start(vexa, QStringList());
    if (!proc.waitForStarted(5000)) {
        std::fprintf(stderr, "cannot start %s\n", qPrintable(vexa));
        return r;
    }
    const qint64 pid = proc.processId();
    // Let start-up and the first fast polls settle.
    QThread::sleep(5);
    const QList<qint64> kids = children(pid);
    const qint64 backend = kids.isEmpty() ? -1 : kids.first();
    const long long v0 = cpuTicks(pid);
    const long long b0 = backend > 0 ? cpuTicks(backend) : -1;
    const long long n0 = cpuNanos(pid);
    QThread::sleep(unsigned(seconds));
    const long long n1 = cpuNanos(pid);
    const long long v1 = cpuTicks(pid);
    const long long b1 = backend > 0 ? cpuTicks(backend) : -1;
    const double tick = double(sysconf(_SC_CLK_TCK));
    if (v0 >= 0 && v1 >= 0)
        r.vexaSeconds = double(v1 - v0) / tick;
    if (n0 >= 0 && n1 >= 0)
        r.vexaSchedMs = double(n1 - n0) / 1e6;
    if (b0 >= 0 && b1 >= 0)
        r.backendSeconds = double(b1 - b0) / tick;
    proc.terminate();
    if (!proc.waitForFinished(10000)) {
        proc.kill();
        proc.waitForFinished(3000);
    }
    return r;
}

void print(const char *regime, const Result &r, int seconds)
{
    std::printf("%-10s vexa: %.2f s CPU in %d s (%.3f %% of one core)", regime, r.vexaSeconds,
                seconds, 100.0 * r.vexaSeconds / seconds);
    if (r.vexaSchedMs >= 0)
        std::printf(" [scheduler: %.1f ms, %.2f ms/s]", r.vexaSchedMs, r.vexaSchedMs / seconds);
    if (r.backendSeconds >= 0)
        std::printf("; backend: %.2f s", r.backendSeconds);
    std::printf("\n");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int seconds = argc > 1 ? QByteArray(argv[1]).toInt() : 60;
    const QString vexa = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QStringLiteral(VEXA_PATH);
    if (seconds <= 0) {
        std::fprintf(stderr, "usage: bench_idle_cpu [seconds] [vexa]\n");
        return 2;
    }
    print("foreground", measure(vexa, seconds, false), seconds);
    print("background", measure(vexa, seconds, true), seconds);
    return 0;
}
