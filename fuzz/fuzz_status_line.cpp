// The status lines on the backend child's standard output and error, through
// the intake's line assembly. The input is cut into reads at each 0xff byte.
// Properties: the kept unterminated rest stays within the line cap, and every
// status text is one line.

#include "backend_link/app_log.h"
#include "backend_link/event_intake.h"
#include "fuzz_common.h"

#include <QFile>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::ensureApp();
    static QFile *sink = [] {
        auto *f = new QFile(QStringLiteral("/dev/null"));
        f->open(QIODevice::WriteOnly);
        return f;
    }();
    AppLog log;
    log.setConsoleDevice(sink);
    EventIntake intake(&log);
    QObject::connect(&intake, &EventIntake::statusTextChanged, [](const QString &status) {
        fuzz::check(!status.contains(QLatin1Char('\n')), "status text holds a line break", status);
    });
    const QList<QByteArray> reads = fuzz::bytes(data, size).split('\xff');
    for (const QByteArray &read : reads) {
        intake.handleOutput(QString::fromUtf8(read));
        fuzz::check(intake.outputLineBuffer().size() <= EventIntake::kMaxOutputLineChars,
                    "output line buffer beyond its cap");
    }
    return 0;
}
