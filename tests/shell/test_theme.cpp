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
    void writeThenRead_data();
    void writeThenRead();
    void brightSharesBlueBetweenMainAndHighlight();
    void disableBubbles_data();
    void disableBubbles();

private:
    bool put(const QString &path, const QByteArray &bytes)
    {
        QFile f(path);
        return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
    }
    QTemporaryDir m_dir;
};

void TestTheme::readThemeFile_data()
{
    QTest::addColumn<QByteArray>("content"); // "<missing>": no file at all
    QTest::addColumn<bool>("dark");
    for (const char *d : {"<missing>", "DARK", "  Dark \r\n", "True", "1\n"}) {
        QTest::newRow(d) << QByteArray(d) << true;
    }
    for (const char *b : {"bright\n", "0", "night", "", "dark dark"}) {
        QTest::newRow(b) << QByteArray(b) << false;
    }
}

void TestTheme::readThemeFile()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, dark);
    const QString path = theme_file_path(m_dir.path());
    QFile::remove(path);
    QVERIFY(content == "<missing>" || put(path, content));
    QCOMPARE(read_theme_file(path), dark);
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
    QVERIFY(put(path, "something much longer than a theme word\n"));
    QString error;
    QVERIFY2(write_theme_file(path, dark, &error), qPrintable(error));
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    QCOMPARE(f.readAll(), bytes);
    QCOMPARE(read_theme_file(path), dark);
    QCOMPARE(theme_button_text(dark), buttonText);
    QVERIFY(!write_theme_file(m_dir.path() + "/no/such/folder/ui_theme.txt", dark, &error));
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
    QTest::newRow("TRUE") << QByteArray("UI_DISABLE_BUBBLES=TRUE\n") << true;
    QTest::newRow("Yes spaced") << QByteArray("  UI_DISABLE_BUBBLES =  Yes \n") << true;
    QTest::newRow("on, no line end") << QByteArray("UI_DISABLE_BUBBLES=on") << true;
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
    QVERIFY(put(path, fileText));
    QCOMPARE(read_disable_bubbles(path), disabled);
    QVERIFY(!read_disable_bubbles(m_dir.path() + "/missing.env"));
}

QTEST_GUILESS_MAIN(TestTheme)
#include "test_theme.moc"
