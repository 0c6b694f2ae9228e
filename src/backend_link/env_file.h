#pragma once

#include <QString>
#include <QStringList>

// Environment lists hold "KEY=VALUE" entries, the form QProcess uses for a child's environment.
// Keys compare case-sensitively.

// Text after "KEY=" of the first entry for key; empty when there is none.
QString get_env_value(const QStringList &env, const QString &key);

// Replaces the first entry for key with KEY=VALUE, or appends KEY=VALUE at the end.
void upsert_env(QStringList &env, const QString &key, const QString &value);

// Applies the assignments of an env file to env, in file order. Lines are trimmed; empty lines,
// "#" comments and lines without a key before the first "=" are skipped; key and value are
// trimmed, quotes are kept as written. A file that cannot be opened is skipped silently.
void load_env_file(QStringList &env, const QString &path);

// Parses env file text the same way; load_env_file uses it after reading the file.
void apply_env_text(QStringList &env, const QString &text);

// Service mode (commands as datagrams to the headless service) versus local mode (a child
// process), chosen from the UI's own environment: UI_USE_SERVICE_BACKEND, when set and non-empty,
// decides alone ("1" = service); otherwise UI_USE_LOCAL_BACKEND equal to "0" selects service
// mode. Comparisons are byte-exact.
bool choose_service_backend(const QStringList &uiEnv);
