#include "shell/debug_flags.h"

#include "backend_link/env_file.h"

#include <QStringList>

bool disable_bubbles_value(const QString &value)
{
    const QString v = value.trimmed().toLower();
    return v == QLatin1String("1") || v == QLatin1String("true") || v == QLatin1String("yes") ||
           v == QLatin1String("on");
}

bool read_disable_bubbles(const QString &tdDebugEnvPath)
{
    QStringList env;
    load_env_file(env, tdDebugEnvPath);
    return disable_bubbles_value(get_env_value(env, QStringLiteral("UI_DISABLE_BUBBLES")));
}

QString td_debug_env_path(const QString &miscDir)
{
    return miscDir + QStringLiteral("/td_debug.env");
}
