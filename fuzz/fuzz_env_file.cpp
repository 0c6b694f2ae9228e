// Env files ("tg_api.env", "tg_login.env", "td_debug.env") as read into the
// backend's environment. Properties: the file read from disk and the same
// text applied directly give the same environment; every key the text assigns
// reads back as its last value, with no line break; the list grows by at most
// one entry per line.

#include "backend_link/env_file.h"
#include "fuzz_common.h"

#include <QFile>
#include <QHash>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString dir = fuzz::processTempDir("env");
    const QString path = dir + QStringLiteral("/td_debug.env");
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            fuzz::violated("setup", path);
        file.write(reinterpret_cast<const char *>(data), qint64(size));
    }
    const QStringList base{QStringLiteral("PATH=/usr/bin"), QStringLiteral("HOME=/home/u")};
    QStringList fromFile = base;
    load_env_file(fromFile, path);

    // The text the file reader sees: its text mode drops every "\r".
    QByteArray raw = fuzz::bytes(data, size);
    raw.replace('\r', QByteArray());
    const QString text = QString::fromUtf8(raw);
    QStringList direct = base;
    apply_env_text(direct, text);
    fuzz::check(direct == fromFile, "file and text differ");

    // Reference: the last assignment of each key in the text.
    QHash<QString, QString> last;
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString &raw : lines) {
        const QString line = raw.trimmed();
        const int eq = line.indexOf(QLatin1Char('='));
        if (line.startsWith(QLatin1Char('#')) || eq <= 0 || line.left(eq).trimmed().isEmpty())
            continue;
        last.insert(line.left(eq).trimmed(), line.mid(eq + 1).trimmed());
    }
    for (auto it = last.cbegin(); it != last.cend(); ++it)
        fuzz::check(get_env_value(direct, it.key()) == it.value(), "last value does not win",
                    it.key());
    fuzz::check(direct.size() <= base.size() + lines.size(), "environment grew beyond the lines");
    for (const QString &entry : direct)
        fuzz::check(!entry.contains(QLatin1Char('\n')), "env entry holds a line break", entry);
    (void)choose_service_backend(direct);
    return 0;
}
