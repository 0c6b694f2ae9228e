#include "backend_link/app_log.h"
#include "common/test_util.h"

#include <QBuffer>
#include <QFile>
#include <QRegularExpression>
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
        QTest::newRow("below limit") << 100 << 200;
        QTest::newRow("exactly at limit") << 11000 << 1000;
        QTest::newRow("full buffer plus 500") << 12000 << 500;
        QTest::newRow("one chunk larger than limit") << 10 << 20000;
    }
    void appendLog_bounded()
    {
        QFETCH(int, before);
        QFETCH(int, appended);
        const auto text = [](int n, char first) {
            QString s;
            for (int i = 0; i < n; ++i)
                s += QChar(first + i % 26);
            return s;
        };
        AppLog log;
        log.appendLog(text(before, 'a'));
        log.appendLog(text(appended, 'A'));
        QCOMPARE(log.buffer(), QString(text(before, 'a') + text(appended, 'A')).right(12000));
    }
    void view_visibleHiddenStaleAndClear()
    {
        AppLog log;
        QBuffer console;
        console.open(QIODevice::WriteOnly);
        log.setConsoleDevice(&console);
        QSignalSpy view(&log, &AppLog::viewTextChanged);
        QSignalSpy shown(&log, &AppLog::viewVisibleChanged);
        // Hidden: nothing shown, nothing copied, the buffer turns stale.
        log.appendLog(QStringLiteral("a\n"));
        QCOMPARE(view.count(), 0);
        QVERIFY(log.isStale());
        // Showing hands over the stale buffer once.
        log.setViewVisible(true);
        QCOMPARE(shown.count(), 1);
        log.setViewVisible(false);
        log.setViewVisible(true);
        QCOMPARE(test_util::texts(view), QStringList{"a\n"});
        // Visible: each append shows the whole buffer and copies the new text to the console.
        log.appendLog(QStringLiteral("backend: state=2\n"));
        QCOMPARE(console.data(), QByteArray("backend: state=2\n"));
        QVERIFY(!log.isStale());
        log.clear();
        QCOMPARE(log.buffer(), QString());
        QCOMPARE(test_util::texts(view), (QStringList{"a\n", "a\nbackend: state=2\n", ""}));
    }
    void uiFileLog()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath("ui_debug.log");
        AppLog log;
        log.appendUiFileLog(QStringLiteral("nowhere\n")); // no path yet: no file
        QVERIFY(!QFile::exists(path));
        log.setUiDebugLogPath(path);
        log.appendUiFileLog(QStringLiteral("old\n"));
        log.truncateUiDebugLog();
        QCOMPARE(QFileInfo(path).size(), qint64(0));
        const QString before = QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddTHH:mm:ss.zzzZ");
        log.appendUiFileLog(QStringLiteral("react: x")); // unterminated gets a line feed
        log.appendUiFileLog(QStringLiteral("ui: Привет\n"));
        const QString after = QDateTime::currentDateTimeUtc().toString("yyyy-MM-ddTHH:mm:ss.zzzZ");
        const QStringList lines = QString::fromUtf8(test_util::readAll(path)).split('\n');
        QVERIFY(lines.size() == 3 && lines.at(2).isEmpty());
        const QRegularExpression stamp("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z ");
        for (int i = 0; i < 2; ++i) {
            QVERIFY2(stamp.match(lines.at(i)).hasMatch(), qPrintable(lines.at(i)));
            QVERIFY(lines.at(i).left(24) >= before && lines.at(i).left(24) <= after);
        }
        QCOMPARE(lines.at(0).mid(25), QStringLiteral("react: x"));
        QCOMPARE(lines.at(1).mid(25), QStringLiteral("ui: Привет"));
    }
};

QTEST_GUILESS_MAIN(TestAppLog)
#include "test_app_log.moc"
