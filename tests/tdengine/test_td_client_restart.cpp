// The TDLib engine in this process with the real TDLib and no network: a
// client that closes without the engine asking (a log-out) is followed by a
// fresh one that asks for a number again, and only a close asked for ends
// the engine. Every object TDLib sends reaches the translator though the
// hand-off to the main thread has room for one object at a time.
#include "backend_output.h"
#include "common/test_util.h"
#include "td_engine.h"
#include "td_isolation.h"
#include "td_json_library.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace test_util;

class TestTdClientRestart : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { TD_REQUIRE_ISOLATION(); }
    void logOutBringsTheFormBack();
};

void TestTdClientRestart::logOutBringsTheFormBack()
{
    TD_REQUIRE_LIBRARY();
    TdJsonLibrary library;
    QString error;
    QVERIFY2(library.load(td_isolation::library(), &error), qPrintable(error));
    QTemporaryDir dir;
    const QString eventsPath = dir.filePath("events.jsonl");
    BackendOutput out(eventsPath, dir.filePath("backend.log"), 0, 2);
    QVERIFY2(out.open(&error), qPrintable(error));

    TdEngineSettings settings;
    settings.td.apiId = 1;
    settings.td.apiHash = QStringLiteral("0123456789abcdef0123456789abcdef");
    settings.td.databaseDir = dir.filePath("db");
    settings.td.filesDir = dir.filePath("files");
    settings.td.networkNone = true;
    settings.logPath = dir.filePath("tdlib.log");
    settings.queueCapacity = 1; // the narrowest hand-off: nothing may be lost waiting for room
    TdEngine engine(settings, &library, &out);
    QSignalSpy finished(&engine, &TdEngine::finished);

    // The events so far, as "type" or "type:value" of the field that matters.
    const auto events = [&] {
        QStringList seen;
        for (const QByteArray &line : readAll(eventsPath).split('\n')) {
            const QJsonObject e = QJsonDocument::fromJson(line).object();
            const QString type = e.value("type").toString();
            const QString what = e.value(type == "need" ? "what" : "state").toString();
            if (!type.isEmpty())
                seen << (what.isEmpty() ? type : type + ':' + what);
        }
        return seen;
    };
    engine.start();
    QVERIFY(waitFor([&] { return events().contains("need:phone"); }, 30000));
    const int first = engine.clientId();

    // Logged out while the form is shown: TDLib closes the client unasked.
    library.send(first, R"({"@type":"logOut"})");
    QVERIFY2(waitFor([&] { return events().count("need:phone") == 2; }, 30000),
             qPrintable(events().join(' ')));
    const QStringList afterLogOut = events();
    const int closed = afterLogOut.indexOf("td_closed");
    QVERIFY(closed > 0 && afterLogOut.indexOf("need:phone", closed) > closed);
    QVERIFY(afterLogOut.indexOf("backend_ready", closed) > closed);
    QVERIFY(finished.isEmpty());
    QVERIFY(engine.clientId() != first);

    // Asked to close, the engine ends once TDLib is closed.
    engine.handleLine("close");
    QVERIFY(finished.wait(30000));
    QCOMPARE(finished.first().first().toInt(), 0);
    QCOMPARE(events().last(), QStringLiteral("td_closed"));
}

TD_ISOLATED_TEST_MAIN(QCoreApplication, TestTdClientRestart)
#include "test_td_client_restart.moc"
