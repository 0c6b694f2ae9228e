#include "shell/debug_flags.h"
#include "shell/theme.h"

#include "common/test_util.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using test_util::writeFile;

class TestTheme : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void readThemeFile_data()
    {
        QTest::addColumn<QByteArray>("content"); // "<missing>": no file at all
        QTest::addColumn<bool>("dark");
        for (const char *d : {"<missing>", "  Dark \r\n", "True", "1\n"})
            QTest::newRow(d) << QByteArray(d) << true;
        for (const char *b : {"bright\n", "night", "", "dark dark"})
            QTest::newRow(b) << QByteArray(b) << false;
    }
    void readThemeFile()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, dark);
        const QString path = theme_file_path(m_dir.path());
        QFile::remove(path);
        QVERIFY(content == "<missing>" || writeFile(path, content));
        QCOMPARE(read_theme_file(path), dark);
    }
    void disableBubbles_data()
    {
        QTest::addColumn<QByteArray>("fileText");
        QTest::addColumn<bool>("disabled");
        // The file's own rules (comments, blanks, repeated keys): test_env_file;
        // "yes": the controller's test.
        QTest::newRow("TRUE") << QByteArray("UI_DISABLE_BUBBLES=TRUE\n") << true;
        QTest::newRow("on, no line end") << QByteArray("UI_DISABLE_BUBBLES=on") << true;
        QTest::newRow("quoted") << QByteArray("UI_DISABLE_BUBBLES=\"1\"\n") << false;
    }
    void disableBubbles()
    {
        QFETCH(QByteArray, fileText);
        QFETCH(bool, disabled);
        const QString path = td_debug_env_path(m_dir.path());
        QVERIFY(writeFile(path, fileText));
        QCOMPARE(read_disable_bubbles(path), disabled);
        QVERIFY(!read_disable_bubbles(m_dir.path() + "/missing.env"));
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestTheme)
#include "test_theme.moc"
