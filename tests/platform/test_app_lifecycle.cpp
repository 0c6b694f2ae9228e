#include "platform/app_lifecycle.h"

#include <QCoreApplication>
#include <QProcess>
#include <QtTest>

#include <csignal>

class TestAppLifecycle : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // A default signal disposition would kill the child (CrashExit) without
    // running the quit handlers. SIGTERM is sent to the client itself in its
    // startup test; here SIGINT, and the order of what happens.
    void terminationQuitsInOrder()
    {
        QProcess child;
        child.start(QCoreApplication::applicationDirPath() + "/platform_helper", {"lifecycle"});
        // QTRY re-evaluates its condition, so the output is collected, not read once.
        QByteArray out;
        QTRY_VERIFY_WITH_TIMEOUT((out += child.readAllStandardOutput()).contains("ready\n") ||
                                     child.state() == QProcess::NotRunning,
                                 10000);
        QCOMPARE(child.state(), QProcess::Running); // never kill(0, ...)
        QCOMPARE(::kill(static_cast<pid_t>(child.processId()), SIGINT), 0);
        QVERIFY(child.waitForFinished(10000));
        out += child.readAllStandardOutput();
        QCOMPARE(out, "ready\naboutToQuit signal=" + QByteArray::number(SIGINT) + "\nloop left\n");
    }
};

QTEST_MAIN(TestAppLifecycle)
#include "test_app_lifecycle.moc"
