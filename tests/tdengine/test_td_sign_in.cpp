// The client with application credentials in "tg_api.env": the backend it
// starts runs TDLib, and the sign-in form follows TDLib's state. In a
// loopback-only network namespace, with made-up credentials and TDLib sent to
// a SOCKS5 proxy on 127.0.0.1 that refuses everything.
#include "backend_link/event_intake.h"
#include "common/refusing_socks5_proxy.h"
#include "common/test_util.h"
#include "platform/ui/phone_window.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "td_isolation.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace test_util;

class TestTdSignIn : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { TD_REQUIRE_ISOLATION(); }
    void credentialsBringTheTdlibSignInForm();
};

void TestTdSignIn::credentialsBringTheTdlibSignInForm()
{
    TD_REQUIRE_LIBRARY();
    RefusingSocks5Proxy proxy;
    QVERIFY(proxy.listen());
    QTemporaryDir dir;
    const QString appDir = dir.filePath("app");
    const QString dataDir = dir.filePath("data");
    QVERIFY(QDir().mkpath(appDir) &&
            installExecutable(QStringLiteral(TD_BACKEND_PATH), appDir + "/td_backend") &&
            QFile::link(td_isolation::library(), appDir + "/libtdjson.so"));
    QStringList api = td_isolation::fakeCredentials();
    api << "TG_PROXY_TYPE=socks5"
        << "TG_PROXY_HOST=127.0.0.1" << QStringLiteral("TG_PROXY_PORT=%1").arg(proxy.port());
    QVERIFY(writeFile(dir.filePath("shared/misc/marlinde/tg_api.env"), api.join('\n').toUtf8()));

    QStringList env = cleanEnvironment();
    env << "VEXA_DATA_DIR=" + dataDir << "VEXA_SHARED_DIR=" + dir.filePath("shared");
    auto spike = std::make_unique<UiTdlibSpike>(appDir, env);
    QSignalSpy events(spike->eventIntake(), &EventIntake::eventReceived);
    spike->window()->show();
    MainScreen *main = spike->screens()->mainScreen();
    const auto seen = [&](const QString &type, const QString &key, const QString &value) {
        for (const QList<QVariant> &e : events) {
            const QVariantMap m = e.at(0).toMap();
            if (m.value("type") == type && (key.isEmpty() || m.value(key) == value))
                return true;
        }
        return false;
    };

    // TDLib, not the demo, answers; it wants a phone number and the form is there for it.
    QVERIFY(waitFor([&] { return seen("backend_ready", "name", "tdlib"); }, 30000));
    QVERIFY(waitFor([&] { return seen("need", "what", "phone"); }, 30000));
    QVERIFY(!main->isAuthorised());
    QLineEdit *phone = main->findChildren<QLineEdit *>().value(0);
    QVERIFY(phone && phone->isVisible());

    // A typed (fictional) number goes to TDLib, which cannot get past the proxy.
    QTest::keyClicks(phone, QStringLiteral("+15550100"));
    QTest::keyClick(phone, Qt::Key_Return);
    QVERIFY(waitFor([&] { return proxy.attempts() > 0; }, 60000));
    QVERIFY(waitFor([&] { return seen("connection_state", QString(), QString()); }, 30000));
    QVERIFY(!main->isAuthorised());
    // The form says that TDLib is still trying to connect.
    QLabel *line = main->findChild<QLabel *>(QStringLiteral("connection_label"));
    QVERIFY(line);
    QTRY_VERIFY_WITH_TIMEOUT(line->isVisible() && line->text().startsWith("Connecting"), 30000);

    // Closing the window ends the backend in order: TDLib reports itself closed.
    spike.reset();
    QVERIFY2(readAll(dataDir + "/backend_events.jsonl").contains("\"td_closed\""),
             readAll(dataDir + "/backend_events.jsonl").right(600).constData());
}

TD_ISOLATED_TEST_MAIN(QApplication, TestTdSignIn)
#include "test_td_sign_in.moc"
