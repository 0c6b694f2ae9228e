#pragma once

#include <QProcessEnvironment>
#include <QString>

// The folders Vexa reads and writes. With VEXA_SHARED_DIR set, the shared
// folders follow the phone's layout below it; otherwise they are the
// user's XDG folders.
struct AppFolders
{
    QString appDir;       // folder of the vexa executable; td_backend lies beside it
    QString dataDir;      // logs, events file, state files, caches, backend database
    QString downloadsDir; // saved files ("downloads/quillo")
    QString miscDir;      // developer env files ("misc/marlinde")
    QString documentsDir;
    QString photosDir;
    QString musicDir;
    QString videosDir;
    QString sharedPrefix; // root of the shared area, for file transfers
};

// Pure: reads only the given environment (VEXA_DATA_DIR, VEXA_SHARED_DIR,
// HOME, XDG_DATA_HOME, XDG_CONFIG_HOME) and the XDG user-dirs file
// ($XDG_CONFIG_HOME/user-dirs.dirs) for the user's media folders.
// Paths come back cleaned and absolute; nothing is created.
AppFolders resolve_app_folders(const QString &appDir, const QProcessEnvironment &env);

// Parses the text of an XDG user-dirs file and returns the folder for key
// (for example "XDG_DOWNLOAD_DIR"), with $HOME expanded; empty when the
// key is absent or malformed.
QString xdg_user_dir_from_text(const QString &text, const QString &key, const QString &home);

// Creates every folder of f that does not exist yet.
bool ensure_app_folders(const AppFolders &f, QString *error);

// Creates dir when missing and tries a file in it: false, with the reason, when nothing can be
// written there (a read-only or full file system, no permission).
bool folder_writable(const QString &dir, QString *error);
