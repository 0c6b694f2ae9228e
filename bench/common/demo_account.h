#pragma once

// A data folder signed in to the demo account, as a user's later starts find
// it, for the benchmarks that run the controller or the vexa program on it.

#include "events/event_dispatcher.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>

#include <functional>
#include <memory>

namespace bench {

// Runs the event loop until pred holds; false after capMs. Each turn waits
// for the next event (the intake's poll timer always brings one).
inline bool waitFor(const std::function<bool()> &pred, int capMs)
{
    QElapsedTimer t;
    t.start();
    while (!pred()) {
        if (t.elapsed() > capMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}

// The caller's environment without Vexa's, the backend's and the demo's own
// switches, on the given folders, with the demo answering at once.
inline QStringList demoEnvironment(const QString &dataDir, const QString &sharedDir)
{
    QStringList env;
    const QRegularExpression own(QStringLiteral("^(UI_USE_|VEXA_|TG_|DEMO_|QUILLO_)"));
    for (const QString &e : QProcess::systemEnvironment()) {
        if (!own.match(e).hasMatch())
            env << e;
    }
    env << QStringLiteral("VEXA_DATA_DIR=") + dataDir;
    env << QStringLiteral("VEXA_SHARED_DIR=") + sharedDir;
    env << QStringLiteral("VEXA_ZOOM=1") << QStringLiteral("DEMO_SPEED=0");
    return env;
}

// Copies an executable into appDir under its own name.
inline bool installExecutable(const QString &from, const QString &appDir)
{
    const QString to = appDir + QLatin1Char('/') + QFileInfo(from).fileName();
    QDir().mkpath(appDir);
    QFile::remove(to);
    return QFile::copy(from, to) &&
           QFile::setPermissions(to, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// The chat list's row whose title is title, or -1.
inline int chatRowWithTitle(UiTdlibSpike *spike, const QString &title)
{
    QAbstractItemModel *model = spike->chatListView()->dataModel();
    for (int i = 0; model && i < model->rowCount(); ++i) {
        if (model->index(i, 0).data(Qt::UserRole).toMap().value(QStringLiteral("title")) == title)
            return i;
    }
    return -1;
}

// Signs in through the controller's slots (phone, then the demo's code) as
// the backend asks for them, and waits for the chat list's first rows.
inline bool signIn(UiTdlibSpike *spike, QString *error)
{
    MainScreen *main = spike->screens()->mainScreen();
    QString state;
    const QMetaObject::Connection watch =
        QObject::connect(spike->dispatcher(), &EventDispatcher::authStateChanged,
                         [&](const QString &s, bool) { state = s; });
    auto fail = [&](const char *what) {
        QObject::disconnect(watch);
        if (error)
            *error = QString::fromLatin1(what) + QStringLiteral(" (state: ") + state +
                     QStringLiteral(", status: ") + main->statusText() + QLatin1Char(')');
        return false;
    };
    // A folder signed in before reports so; a new one asks for the phone.
    if (!waitFor([&] { return main->isAuthorised() || state.contains(QLatin1String("Phone")); },
                 20000))
        return fail("backend did not start");
    if (!main->isAuthorised()) {
        spike->onSendPhone(QStringLiteral("+1 555 0100"));
        if (!waitFor([&] { return state.contains(QLatin1String("Code")); }, 20000))
            return fail("no code asked for");
        spike->onSendCode(QStringLiteral("22222"));
    }
    if (!waitFor([&] { return main->isAuthorised(); }, 20000))
        return fail("not signed in");
    QObject::disconnect(watch);
    QAbstractItemModel *model = spike->chatListView()->dataModel();
    if (!waitFor([&] { return model->rowCount() > 0; }, 20000))
        return fail("no chats");
    return true;
}

// A fresh data folder signed in, by a controller that is gone afterwards.
inline bool prepareSignedInFolder(const QString &appDir, const QStringList &env, QString *error)
{
    auto spike = std::make_unique<UiTdlibSpike>(appDir, env);
    return signIn(spike.get(), error);
}

// The demo backend installed into appDir, its folder signed in, and a later
// start on it, as a user who signed in before sees it; null with error set.
inline std::unique_ptr<UiTdlibSpike> startSignedIn(const QString &backendPath,
                                                   const QString &appDir, const QStringList &env,
                                                   QString *error)
{
    if (!installExecutable(backendPath, appDir)) {
        *error = QStringLiteral("cannot install the demo backend");
        return nullptr;
    }
    if (!prepareSignedInFolder(appDir, env, error))
        return nullptr;
    auto spike = std::make_unique<UiTdlibSpike>(appDir, env);
    if (!signIn(spike.get(), error))
        return nullptr;
    return spike;
}

} // namespace bench
