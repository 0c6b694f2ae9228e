#include "shell/debug_flags.h"
#include "shell/theme.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

class TestTheme : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void readThemeFile_data();
    void readThemeFile();
    void missingFileIsDark();
    void writeThenRead_data();
    void writeThenRead();
    void writeFailsIntoMissingFolder();
    void brightSharesBlueBetweenMainAndHighlight();
    void disableBubbles_data();
    void disableBubbles();

private:
    QTemporaryDir m_dir;
};

void TestTheme::readThemeFile_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("dark");
    QTest::newRow("dark") << QByteArray("dark") << true;
    QTest::newRow("DARK") << QByteArray("DARK") << true;
    QTest::newRow("dark+lf") << QByteArray("dark\n") << true;
    QTest::newRow("blanks around") << QByteArray("  Dark \r\n") << true;
    QTest::newRow("True") << QByteArray("True") << true;
    QTest::newRow("1") << QByteArray("1\n") << true;
    QTest::newRow("bright") << QByteArray("bright\n") << false;
    QTest::newRow("0") << QByteArray("0") << false;
    QTest::newRow("other word") << QByteArray("night") << false;
    QTest::newRow("empty") << QByteArray("") << false;
    QTest::newRow("two words") << QByteArray("dark dark") << false;
}

void TestTheme::readThemeFile()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, dark);
    const QString path = theme_file_path(m_dir.path());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(content);
    f.close();
    QCOMPARE(read_theme_file(path), dark);
}

void TestTheme::missingFileIsDark()
{
    QTemporaryDir empty;
    const QString path = theme_file_path(empty.path());
    QVERIFY(!QFile::exists(path));
    QCOMPARE(read_theme_file(path), true);
}

void TestTheme::writeThenRead_data()
{
    QTest::addColumn<bool>("dark");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("buttonText");
    QTest::newRow("dark") << true << QByteArray("dark\n") << QStringLiteral("Theme: Dark");
    QTest::newRow("bright") << false << QByteArray("bright\n") << QStringLiteral("Theme: Bright");
}

void TestTheme::writeThenRead()
{
    QFETCH(bool, dark);
    QFETCH(QByteArray, bytes);
    QFETCH(QString, buttonText);
    const QString path = theme_file_path(m_dir.path());
    // A longer previous content must not survive the rewrite.
    QFile old(path);
    QVERIFY(old.open(QIODevice::WriteOnly | QIODevice::Truncate));
    old.write("something much longer than a theme word\n");
    old.close();
    QString error;
    QVERIFY2(write_theme_file(path, dark, &error), qPrintable(error));
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), bytes);
    QCOMPARE(read_theme_file(path), dark);
    QCOMPARE(theme_button_text(dark), buttonText);
}

void TestTheme::writeFailsIntoMissingFolder()
{
    QString error;
    QVERIFY(!write_theme_file(m_dir.path() + "/no/such/folder/ui_theme.txt", true, &error));
    QVERIFY(!error.isEmpty());
}

void TestTheme::brightSharesBlueBetweenMainAndHighlight()
{
    QCOMPARE(theme_color(ThemeGroup::A, false), theme_color(ThemeGroup::H, false));
    QCOMPARE(theme_color(ThemeGroup::A, false), QRgb(0xFF2B7CFF));
    QVERIFY(theme_color(ThemeGroup::A, true) != theme_color(ThemeGroup::H, true));
    // The dimming layer is the only translucent group.
    QCOMPARE(qAlpha(theme_color(ThemeGroup::G, true)), 0xBB);
    QCOMPARE(qAlpha(theme_color(ThemeGroup::G, false)), 0x22);
    QCOMPARE(theme_color_css(ThemeGroup::G, true), QStringLiteral("rgba(0,0,0,187)"));
}

void TestTheme::disableBubbles_data()
{
    QTest::addColumn<QByteArray>("fileText");
    QTest::addColumn<bool>("disabled");
    QTest::newRow("no key") << QByteArray("OTHER=1\n") << false;
    QTest::newRow("1") << QByteArray("UI_DISABLE_BUBBLES=1\n") << true;
    QTest::newRow("TRUE") << QByteArray("UI_DISABLE_BUBBLES=TRUE\n") << true;
    QTest::newRow("Yes spaced") << QByteArray("  UI_DISABLE_BUBBLES =  Yes \n") << true;
    QTest::newRow("on") << QByteArray("UI_DISABLE_BUBBLES=on") << true;
    QTest::newRow("0") << QByteArray("UI_DISABLE_BUBBLES=0\n") << false;
    QTest::newRow("quoted") << QByteArray("UI_DISABLE_BUBBLES=\"1\"\n") << false;
    QTest::newRow("later wins") << QByteArray("UI_DISABLE_BUBBLES=1\nUI_DISABLE_BUBBLES=off\n")
                                << false;
    QTest::newRow("comment") << QByteArray("#UI_DISABLE_BUBBLES=1\n") << false;
}

void TestTheme::disableBubbles()
{
    QFETCH(QByteArray, fileText);
    QFETCH(bool, disabled);
    const QString path = td_debug_env_path(m_dir.path());
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(fileText);
    f.close();
    QCOMPARE(read_disable_bubbles(path), disabled);
    QVERIFY(!read_disable_bubbles(m_dir.path() + "/missing.env"));
}

QTEST_GUILESS_MAIN(TestTheme)
#include "test_theme.moc"
