#include "backend_link/env_file.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

class TestEnvFile : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void parseEnvText_data();
    void parseEnvText();
    void getEnvValue_data();
    void getEnvValue();
    void upsertEnv_data();
    void upsertEnv();
    void loadEnvFile_laterFileWins();
    void loadEnvFile_missingFileLeavesListAlone();
    void loadEnvFile_utf8Value();
    void chooseServiceBackend_data();
    void chooseServiceBackend();
};

void TestEnvFile::parseEnvText_data()
{
    QTest::addColumn<QStringList>("start");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("blanks around key, equals and value")
        << QStringList() << QStringLiteral("   KEY  =  value  \n") << QStringList{"KEY=value"};
    QTest::newRow("line starting with equals is ignored")
        << QStringList() << QStringLiteral("=value\n  =x\n") << QStringList();
    QTest::newRow("comment is ignored")
        << QStringList() << QStringLiteral("# KEY=1\n   #OTHER=2\n") << QStringList();
    QTest::newRow("line without equals is ignored")
        << QStringList() << QStringLiteral("JUSTAWORD\n\n   \n") << QStringList();
    QTest::newRow("empty value kept")
        << QStringList() << QStringLiteral("KEY=\n") << QStringList{"KEY="};
    QTest::newRow("split at first equals")
        << QStringList() << QStringLiteral("URL=a=b=c\n") << QStringList{"URL=a=b=c"};
    QTest::newRow("quotes are kept")
        << QStringList() << QStringLiteral("NAME=\"Ann Lee\"\n") << QStringList{"NAME=\"Ann Lee\""};
    QTest::newRow("later key in the file wins, in place")
        << QStringList{"A=0", "B=0"} << QStringLiteral("B=1\nC=2\nB=3\n")
        << QStringList{"A=0", "B=3", "C=2"};
    QTest::newRow("hash inside a value is not a comment")
        << QStringList() << QStringLiteral("K=a#b\n") << QStringList{"K=a#b"};
    QTest::newRow("CRLF lines") << QStringList() << QStringLiteral("A=1\r\nB=2\r\n")
                                << QStringList{"A=1", "B=2"};
    QTest::newRow("key with blanks inside kept as written")
        << QStringList() << QStringLiteral("MY KEY = v\n") << QStringList{"MY KEY=v"};
    QTest::newRow("no final line feed")
        << QStringList() << QStringLiteral("LAST=yes") << QStringList{"LAST=yes"};
}

void TestEnvFile::parseEnvText()
{
    QFETCH(QStringList, start);
    QFETCH(QString, text);
    QFETCH(QStringList, expected);
    QStringList env = start;
    apply_env_text(env, text);
    QCOMPARE(env, expected);
}

void TestEnvFile::getEnvValue_data()
{
    QTest::addColumn<QStringList>("env");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");

    QTest::newRow("present") << QStringList{"A=1", "B=two"} << "B"
                             << "two";
    QTest::newRow("absent") << QStringList{"A=1"} << "B"
                            << "";
    QTest::newRow("prefix of a longer key does not match") << QStringList{"KEYS=1"} << "KEY"
                                                           << "";
    QTest::newRow("case-sensitive") << QStringList{"key=1"} << "KEY"
                                    << "";
    QTest::newRow("first entry wins") << QStringList{"K=1", "K=2"} << "K"
                                      << "1";
    QTest::newRow("value containing equals") << QStringList{"K=a=b"} << "K"
                                             << "a=b";
    QTest::newRow("entry without equals is no match") << QStringList{"K"} << "K"
                                                      << "";
}

void TestEnvFile::getEnvValue()
{
    QFETCH(QStringList, env);
    QFETCH(QString, key);
    QFETCH(QString, expected);
    QCOMPARE(get_env_value(env, key), expected);
}

void TestEnvFile::upsertEnv_data()
{
    QTest::addColumn<QStringList>("env");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QStringList>("expected");

    QTest::newRow("append new") << QStringList{"A=1"} << "B"
                                << "2" << QStringList{"A=1", "B=2"};
    QTest::newRow("replace in place") << QStringList{"A=1", "B=2", "C=3"} << "B"
                                      << "x" << QStringList{"A=1", "B=x", "C=3"};
    QTest::newRow("only the first duplicate replaced") << QStringList{"K=1", "K=2"} << "K"
                                                       << "9" << QStringList{"K=9", "K=2"};
    QTest::newRow("longer key untouched") << QStringList{"KEYS=1"} << "KEY"
                                          << "2" << QStringList{"KEYS=1", "KEY=2"};
    QTest::newRow("empty value") << QStringList{"K=1"} << "K"
                                 << "" << QStringList{"K="};
}

void TestEnvFile::upsertEnv()
{
    QFETCH(QStringList, env);
    QFETCH(QString, key);
    QFETCH(QString, value);
    QFETCH(QStringList, expected);
    upsert_env(env, key, value);
    QCOMPARE(env, expected);
}

static void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
}

void TestEnvFile::loadEnvFile_laterFileWins()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    writeFile(dir.filePath("a.env"), "X=from_a\nONLY_A=1\n");
    writeFile(dir.filePath("b.env"), "# comment\nX = from_b\n");
    QStringList env{"X=inherited", "PATH=/bin"};
    load_env_file(env, dir.filePath("a.env"));
    load_env_file(env, dir.filePath("b.env"));
    QCOMPARE(env, (QStringList{"X=from_b", "PATH=/bin", "ONLY_A=1"}));
}

void TestEnvFile::loadEnvFile_missingFileLeavesListAlone()
{
    QTemporaryDir dir;
    QStringList env{"A=1"};
    load_env_file(env, dir.filePath("does-not-exist.env"));
    load_env_file(env, dir.path()); // a folder cannot be read as a file
    QCOMPARE(env, QStringList{"A=1"});
}

void TestEnvFile::loadEnvFile_utf8Value()
{
    QTemporaryDir dir;
    writeFile(dir.filePath("u.env"), QStringLiteral("NAME=Zoë Ђорђе\n").toUtf8());
    QStringList env;
    load_env_file(env, dir.filePath("u.env"));
    QCOMPARE(get_env_value(env, "NAME"), QStringLiteral("Zoë Ђорђе"));
}

void TestEnvFile::chooseServiceBackend_data()
{
    QTest::addColumn<QStringList>("env");
    QTest::addColumn<bool>("service");

    QTest::newRow("neither set") << QStringList{"HOME=/h"} << false;
    QTest::newRow("service=1") << QStringList{"UI_USE_SERVICE_BACKEND=1"} << true;
    QTest::newRow("service=1 beats local=1")
        << QStringList{"UI_USE_LOCAL_BACKEND=1", "UI_USE_SERVICE_BACKEND=1"} << true;
    QTest::newRow("service=0 beats local=0")
        << QStringList{"UI_USE_SERVICE_BACKEND=0", "UI_USE_LOCAL_BACKEND=0"} << false;
    QTest::newRow("service=true is local") << QStringList{"UI_USE_SERVICE_BACKEND=true"} << false;
    QTest::newRow("service=' 1' is local") << QStringList{"UI_USE_SERVICE_BACKEND= 1"} << false;
    QTest::newRow("service=01 is local") << QStringList{"UI_USE_SERVICE_BACKEND=01"} << false;
    QTest::newRow("service empty falls to local=0")
        << QStringList{"UI_USE_SERVICE_BACKEND=", "UI_USE_LOCAL_BACKEND=0"} << true;
    QTest::newRow("local=0") << QStringList{"UI_USE_LOCAL_BACKEND=0"} << true;
    QTest::newRow("local=1") << QStringList{"UI_USE_LOCAL_BACKEND=1"} << false;
    QTest::newRow("local=false") << QStringList{"UI_USE_LOCAL_BACKEND=false"} << false;
    QTest::newRow("local=00") << QStringList{"UI_USE_LOCAL_BACKEND=00"} << false;
}

void TestEnvFile::chooseServiceBackend()
{
    QFETCH(QStringList, env);
    QFETCH(bool, service);
    QCOMPARE(choose_service_backend(env), service);
}

QTEST_GUILESS_MAIN(TestEnvFile)
#include "test_env_file.moc"
