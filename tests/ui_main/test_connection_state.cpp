// The connection state on screen, against the real demo backend as a child
// process: signing in brings "Connecting" and "Updating" before "Ready", and
// the chat list's title says so until the connection is ready.
#include "common/test_util.h"
#include "events/event_dispatcher.h"
#include "platform/ui/phone_window.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QLabel>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace test_util;

class TestConnectionState : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void titleFollowsTheConnection();
};

void TestConnectionState::titleFollowsTheConnection()
{
    QTemporaryDir dir;
    const QString appDir = dir.filePath("app");
    QVERIFY(QDir().mkpath(appDir) && installExecutable(DEMO_BACKEND_PATH, appDir + "/td_backend"));
    QStringList env = cleanEnvironment();
    env << "VEXA_DATA_DIR=" + dir.filePath("data") << "VEXA_SHARED_DIR=" + dir.filePath("shared");
    UiTdlibSpike spike(appDir, env);
    spike.window()->show();
    MainScreen *main = spike.screens()->mainScreen();
    QLabel *title = main->findChild<QLabel *>(QStringLiteral("main_title"));
    QVERIFY(title);
    const QString name = title->text();

    // The title right after each state has been handled, once signed in.
    QList<QPair<QString, QString>> seen;
    connect(spike.dispatcher(), &EventDispatcher::connectionStateChanged, this,
            [&](const QString &state) {
                if (main->isAuthorised())
                    seen.append({state, title->text()});
            });
    const auto enter = [&](int field, const QString &text) {
        QLineEdit *f = main->findChildren<QLineEdit *>().value(field);
        QTest::keyClicks(f, text);
        QTest::keyClick(f, Qt::Key_Return);
    };
    QVERIFY(waitFor([&] { return main->findChildren<QLineEdit *>().value(0)->isVisible(); }));
    enter(0, QStringLiteral("+15550100"));
    QVERIFY(waitFor([&] { return main->statusText().contains("code", Qt::CaseInsensitive); }));
    enter(1, QStringLiteral("22222"));
    // Signing in brings at least two states before the connection is ready.
    QVERIFY(waitFor([&] { return seen.size() >= 3 && seen.last().first == "Ready"; }, 15000));
    for (const auto &s : qAsConst(seen))
        QVERIFY2(s.first == "Ready" ? s.second == name : s.second.startsWith(s.first),
                 qPrintable(s.first + " -> " + s.second));
}

QTEST_MAIN(TestConnectionState)
#include "test_connection_state.moc"
