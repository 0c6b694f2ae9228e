#include "platform/app_lifecycle.h"

#include <QGuiApplication>
#include <QProcess>
#include <QtTest>

#include <csignal>

class TestAppLifecycle : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // A sequence of application states and the lifecycle signals it must give.
    void stateChanges_data()
    {
        QTest::addColumn<QList<int>>("states");
        QTest::addColumn<QString>("expected"); // T = thumbnailed, F = fullscreen

        const int act = Qt::ApplicationActive, ina = Qt::ApplicationInactive,
                  hid = Qt::ApplicationHidden, sus = Qt::ApplicationSuspended;
        QTest::newRow("active at start is no change") << QList<int>{act} << "";
        QTest::newRow("no repeats") << QList<int>{ina, hid, act, act} << "TF";
        QTest::newRow("suspended counts as thumbnailed") << QList<int>{sus, ina, act, hid} << "TFT";
    }

    void stateChanges()
    {
        QFETCH(QList<int>, states);
        QFETCH(QString, expected);
        AppLifecycle life;
        QString got;
        connect(&life, &AppLifecycle::thumbnailed, this, [&] { got += 'T'; });
        connect(&life, &AppLifecycle::fullscreen, this, [&] { got += 'F'; });
        // Through the application's own signal, as the platform plugin sends it.
        for (int s : states)
            Q_EMIT qGuiApp->applicationStateChanged(static_cast<Qt::ApplicationState>(s));
        QCOMPARE(got, expected);
        QCOMPARE(life.isThumbnailed(), expected.endsWith('T'));
    }

    // A default signal disposition would kill the child (CrashExit) without
    // running the quit handlers. SIGTERM is sent to the client itself in its
    // startup test; here SIGINT, and the order of what happens.
    void terminationQuitsInOrder()
    {
        const int sig = SIGINT;
        QProcess child;
        child.start(QCoreApplication::applicationDirPath() + "/platform_helper", {"lifecycle"});
        // QTRY re-evaluates its condition, so the output is collected, not read once.
        QByteArray out;
        QTRY_VERIFY_WITH_TIMEOUT((out += child.readAllStandardOutput()).contains("ready\n") ||
                                     child.state() == QProcess::NotRunning,
                                 10000);
        QCOMPARE(child.state(), QProcess::Running); // never kill(0, ...)
        QCOMPARE(::kill(static_cast<pid_t>(child.processId()), sig), 0);
        QVERIFY(child.waitForFinished(10000));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 0);
        out += child.readAllStandardOutput();
        QCOMPARE(out, "ready\naboutToQuit signal=" + QByteArray::number(sig) + "\nloop left\n");
    }
};

QTEST_MAIN(TestAppLifecycle)
#include "test_app_lifecycle.moc"
