#include "backend_link/app_log.h"

#include <QBuffer>
#include <QFile>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

class TestAppLog : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void appendLog_bounded_data();
    void appendLog_bounded();
    void appendLog_viewVisibility_data();
    void appendLog_viewVisibility();
    void appendLog_hiddenViewWritesNothingToRealStderr();
    void showingStaleView_handsOverBuffer();
    void clear_emptiesVisibleView();
    void uiFileLog_lines_data();
    void uiFileLog_lines();
    void uiFileLog_truncateAndNoPath();
};

void TestAppLog::appendLog_bounded_data()
{
    QTest::addColumn<int>("before");
    QTest::addColumn<int>("appended");

    QTest::newRow("below limit") << 100 << 200;
    QTest::newRow("exactly at limit") << 11000 << 1000;
    QTest::newRow("full buffer plus 500") << 12000 << 500;
    QTest::newRow("one chunk larger than limit") << 10 << 20000;
}

void TestAppLog::appendLog_bounded()
{
    QFETCH(int, before);
    QFETCH(int, appended);
    AppLog log;
    QString all;
    for (int i = 0; i < before; ++i)
        all += QChar('a' + i % 26);
    log.appendLog(all);
    QString more;
    for (int i = 0; i < appended; ++i)
        more += QChar('A' + i % 26);
    log.appendLog(more);
    all += more;
    QCOMPARE(log.buffer(), all.right(AppLog::kMaxBufferChars));
    QVERIFY(log.buffer().size() <= AppLog::kMaxBufferChars);
}

void TestAppLog::appendLog_viewVisibility_data()
{
    QTest::addColumn<bool>("visible");
    QTest::newRow("view visible") << true;
    QTest::newRow("view hidden") << false;
}

void TestAppLog::appendLog_viewVisibility()
{
    QFETCH(bool, visible);
    AppLog log;
    QBuffer console;
    console.open(QIODevice::WriteOnly);
    log.setConsoleDevice(&console);
    log.appendLog(QStringLiteral("first\n"));
    log.setViewVisible(visible);
    QSignalSpy view(&log, &AppLog::viewTextChanged);
    console.buffer().clear();
    console.seek(0);

    log.appendLog(QStringLiteral("backend: state=2\n"));

    if (visible) {
        QCOMPARE(view.count(), 1);
        QCOMPARE(view.at(0).at(0).toString(), QStringLiteral("first\nbackend: state=2\n"));
        QCOMPARE(console.data(), QByteArray("backend: state=2\n"));
        QVERIFY(!log.isStale());
    } else {
        QCOMPARE(view.count(), 0);
        QCOMPARE(console.data(), QByteArray());
        QVERIFY(log.isStale());
    }
}

void TestAppLog::appendLog_hiddenViewWritesNothingToRealStderr()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("stderr.txt");
    std::fflush(stderr);
    const int saved = ::dup(STDERR_FILENO);
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    QVERIFY(saved >= 0 && fd >= 0);
    ::dup2(fd, STDERR_FILENO);
    ::close(fd);

    AppLog log;
    log.appendLog(QStringLiteral("hidden line\n"));
    log.setViewVisible(true);
    log.appendLog(QStringLiteral("visible line ü\n"));
    log.setViewVisible(false);
    log.appendLog(QStringLiteral("hidden again\n"));

    std::fflush(stderr);
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), QStringLiteral("visible line ü\n").toUtf8());
}

void TestAppLog::showingStaleView_handsOverBuffer()
{
    AppLog log;
    QSignalSpy view(&log, &AppLog::viewTextChanged);
    QSignalSpy shown(&log, &AppLog::viewVisibleChanged);
    log.appendLog(QStringLiteral("a\n"));
    log.appendLog(QStringLiteral("b\n"));
    QCOMPARE(view.count(), 0);
    log.setViewVisible(true);
    QCOMPARE(shown.count(), 1);
    QCOMPARE(view.count(), 1);
    QCOMPARE(view.at(0).at(0).toString(), QStringLiteral("a\nb\n"));
    // Hiding and showing again without changes hands over nothing new.
    log.setViewVisible(false);
    log.setViewVisible(true);
    QCOMPARE(view.count(), 1);
}

void TestAppLog::clear_emptiesVisibleView()
{
    AppLog log;
    QBuffer console;
    console.open(QIODevice::WriteOnly);
    log.setConsoleDevice(&console);
    log.setViewVisible(true);
    log.appendLog(QStringLiteral("x\n"));
    QSignalSpy view(&log, &AppLog::viewTextChanged);
    log.clear();
    QCOMPARE(log.buffer(), QString());
    QCOMPARE(view.count(), 1);
    QCOMPARE(view.at(0).at(0).toString(), QString());
}

void TestAppLog::uiFileLog_lines_data()
{
    QTest::addColumn<QStringList>("texts");
    QTest::addColumn<QStringList>("bodies");

    QTest::newRow("terminated") << QStringList{"backend: service\n"}
                                << QStringList{"backend: service"};
    QTest::newRow("unterminated gets a line feed")
        << QStringList{"react: x", "second\n"} << QStringList{"react: x", "second"};
    QTest::newRow("utf-8") << QStringList{"ui: Привет\n"} << QStringList{"ui: Привет"};
}

void TestAppLog::uiFileLog_lines()
{
    QFETCH(QStringList, texts);
    QFETCH(QStringList, bodies);
    QTemporaryDir dir;
    AppLog log;
    log.setUiDebugLogPath(dir.filePath("ui_debug.log"));
    const QDateTime before = QDateTime::currentDateTimeUtc().addMSecs(-1);
    for (const QString &t : texts)
        log.appendUiFileLog(t);
    const QDateTime after = QDateTime::currentDateTimeUtc().addMSecs(1);

    QFile f(dir.filePath("ui_debug.log"));
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QString content = QString::fromUtf8(f.readAll());
    QVERIFY(content.endsWith('\n'));
    const QStringList lines = content.left(content.size() - 1).split('\n');
    QCOMPARE(lines.size(), bodies.size());
    const QRegularExpression re(
        QStringLiteral("^(\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z) (.*)$"));
    for (int i = 0; i < lines.size(); ++i) {
        const QRegularExpressionMatch m = re.match(lines.at(i));
        QVERIFY2(m.hasMatch(), qPrintable(lines.at(i)));
        QCOMPARE(m.captured(2), bodies.at(i));
        QDateTime stamp =
            QDateTime::fromString(m.captured(1), QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzzZ"));
        stamp.setTimeSpec(Qt::UTC);
        QVERIFY(stamp >= before && stamp <= after);
    }
}

void TestAppLog::uiFileLog_truncateAndNoPath()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("ui_debug.log");
    AppLog log;
    log.appendUiFileLog(QStringLiteral("nowhere\n"));
    QVERIFY(!QFile::exists(path));
    log.setUiDebugLogPath(path);
    log.appendUiFileLog(QStringLiteral("one\n"));
    log.appendUiFileLog(QStringLiteral("two\n"));
    QVERIFY(QFileInfo(path).size() > 0);
    log.truncateUiDebugLog();
    QCOMPARE(QFileInfo(path).size(), qint64(0));
    log.appendUiFileLog(QStringLiteral("three\n"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QByteArray content = f.readAll();
    QVERIFY(content.endsWith(" three\n"));
    QCOMPARE(content.count('\n'), 1);
}

QTEST_GUILESS_MAIN(TestAppLog)
#include "test_app_log.moc"
