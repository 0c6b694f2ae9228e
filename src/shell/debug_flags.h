#pragma once

#include <QString>

// UI_DISABLE_BUBBLES: trimmed and lower-cased, "1", "true", "yes" or "on"
// switch message bubbles off.
bool disable_bubbles_value(const QString &value);

// Reads the developer env file (td_debug.env) and applies the rule above to
// its UI_DISABLE_BUBBLES; a missing file or key leaves bubbles on. This is
// the only key the UI reads for itself from an env file.
bool read_disable_bubbles(const QString &tdDebugEnvPath);

// The developer env file that carries the UI's own switch.
QString td_debug_env_path(const QString &miscDir);
