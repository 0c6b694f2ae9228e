#include "backend_link/env_file.h"

#include <QFile>

namespace {

int find_env_entry(const QStringList &env, const QString &key)
{
    const QString prefix = key + QLatin1Char('=');
    for (int i = 0; i < env.size(); ++i) {
        if (env.at(i).startsWith(prefix))
            return i;
    }
    return -1;
}

} // namespace

QString get_env_value(const QStringList &env, const QString &key)
{
    const int i = find_env_entry(env, key);
    if (i < 0)
        return QString();
    return env.at(i).mid(key.size() + 1);
}

void upsert_env(QStringList &env, const QString &key, const QString &value)
{
    const QString entry = key + QLatin1Char('=') + value;
    const int i = find_env_entry(env, key);
    if (i >= 0)
        env[i] = entry;
    else
        env.append(entry);
}

void apply_env_text(QStringList &env, const QString &text)
{
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString &raw : lines) {
        const QString line = raw.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')))
            continue;
        const int eq = line.indexOf(QLatin1Char('='));
        if (eq <= 0)
            continue;
        const QString key = line.left(eq).trimmed();
        if (key.isEmpty())
            continue;
        upsert_env(env, key, line.mid(eq + 1).trimmed());
    }
}

void load_env_file(QStringList &env, const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return;
    // Developer env files are a few lines; a runaway file is cut rather than read whole.
    constexpr qint64 kMaxEnvFileBytes = 1024 * 1024;
    apply_env_text(env, QString::fromUtf8(file.read(kMaxEnvFileBytes)));
}

bool choose_service_backend(const QStringList &uiEnv)
{
    const QString service = get_env_value(uiEnv, QStringLiteral("UI_USE_SERVICE_BACKEND"));
    if (!service.isEmpty())
        return service == QLatin1String("1");
    return get_env_value(uiEnv, QStringLiteral("UI_USE_LOCAL_BACKEND")) == QLatin1String("0");
}
