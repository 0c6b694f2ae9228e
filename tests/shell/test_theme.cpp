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

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestTheme)
#include "test_theme.moc"
