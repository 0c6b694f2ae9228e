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

    // What the screen shows right after each state has been handled.
    struct Seen
    {
        QString state;
        bool authorised;
        QString title;
    };
    QList<Seen> seen;
    connect(spike.dispatcher(), &EventDispatcher::connectionStateChanged, this,
            [&](const QString &state) {
                seen.append({state, main->isAuthorised(), title->text()});
            });

    const auto enter = [&](int field, const QString &text) {
        QLineEdit *f = main->findChildren<QLineEdit *>().value(field);
        QVERIFY(f);
        QTest::keyClicks(f, text);
        QTest::keyClick(f, Qt::Key_Return);
    };
    QVERIFY(waitFor([&] { return main->findChildren<QLineEdit *>().value(0)->isVisible(); }));
    enter(0, QStringLiteral("+15550100"));
    QVERIFY(waitFor([&] { return main->statusText().contains("code", Qt::CaseInsensitive); }));
    enter(1, QStringLiteral("22222"));
    QVERIFY(waitFor([&] { return main->isAuthorised(); }, 15000));
    const auto readyAfterOthers = [&] {
        int others = 0;
        for (const Seen &s : seen) {
            if (s.state != QLatin1String("Ready") && s.authorised)
                ++others;
            else if (others >= 2)
                return true;
        }
        return false;
    };
    QVERIFY(waitFor(readyAfterOthers, 15000));

    for (const Seen &s : seen) {
        if (!s.authorised)
            continue;
        const bool ready = s.state == QLatin1String("Ready");
        QVERIFY2(ready ? s.title == name : s.title.startsWith(s.state) && s.title != name,
                 qPrintable(s.state + " -> " + s.title));
    }
}

QTEST_MAIN(TestConnectionState)
#include "test_connection_state.moc"
