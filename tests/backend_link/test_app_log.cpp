#include "backend_link/app_log.h"
#include "common/test_util.h"

#include <QBuffer>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

class TestAppLog : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void appendLog_bounded_data()
    {
        QTest::addColumn<int>("before");
        QTest::addColumn<int>("appended");
        QTest::newRow("full buffer plus 500") << 12000 << 500;
        QTest::newRow("one chunk larger than limit") << 10 << 20000;
    }
    void appendLog_bounded()
    {
        QFETCH(int, before);
        QFETCH(int, appended);
        const auto text = [](int n, const char *abc) { return QString(abc).repeated(n).left(n); };
        AppLog log;
        const QString a = text(before, "abcdefghijklmnopqrstuvwxyz");
        const QString b = text(appended, "ABCDEFGHIJKLMNOPQRSTUVWXYZ");
        log.appendLog(a);
        log.appendLog(b);
        QCOMPARE(log.buffer(), QString(a + b).right(12000));
    }
    void view_visibleHiddenStaleAndClear()
    {
        AppLog log;
        QBuffer console;
        console.open(QIODevice::WriteOnly);
        log.setConsoleDevice(&console);
        QSignalSpy view(&log, &AppLog::viewTextChanged);
        // Hidden: nothing shown or copied, and showing hands the stale buffer over once. Visible:
        // each append shows the whole buffer and copies the new text to the console.
        log.appendLog(QStringLiteral("a\n"));
        log.setViewVisible(true);
        log.setViewVisible(false);
        log.setViewVisible(true);
        log.appendLog(QStringLiteral("b\n"));
        log.clear();
        QCOMPARE(console.data(), QByteArray("b\n"));
        QCOMPARE(log.buffer(), QString());
        QCOMPARE(test_util::texts(view), (QStringList{"a\n", "a\nb\n", ""}));
    }
    void uiFileLog()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("ui_debug.log");
        AppLog log;
        log.setUiDebugLogPath(path);
        log.appendUiFileLog(QStringLiteral("old\n"));
        log.truncateUiDebugLog();
        const auto now = [] {
            return QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddTHH:mm:ss.zzzZ");
        };
        const QString before = now();
        log.appendUiFileLog(QStringLiteral("react: x")); // unterminated gets a line feed
        log.appendUiFileLog(QStringLiteral("ui: Привет\n"));
        const QString after = now();
        const QStringList lines = QString::fromUtf8(test_util::readAll(path)).split('\n');
        QCOMPARE(lines.size(), 3);
        for (int i = 0; i < 2; ++i) {
            const QString stamp = lines.at(i).left(24);
            QVERIFY2(stamp >= before && stamp <= after, qPrintable(lines.at(i)));
        }
        QCOMPARE(lines.at(0).mid(24), QStringLiteral(" react: x"));
        QCOMPARE(lines.at(1).mid(24), QStringLiteral(" ui: Привет"));
    }
};

QTEST_GUILESS_MAIN(TestAppLog)
#include "test_app_log.moc"
