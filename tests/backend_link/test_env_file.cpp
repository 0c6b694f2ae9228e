#include "backend_link/env_file.h"

#include <QtTest>

class TestEnvFile : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void parseEnvText_data()
    {
        QTest::addColumn<QStringList>("start");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("expected");
        const auto row = [](const char *name, const QString &text, const QStringList &expected,
                            const QStringList &start = {}) {
            QTest::newRow(name) << start << text << expected;
        };
        row("blanks and CR trimmed, split at the first equals", "   KEY  =  value  \r\nE=\nU=a=b",
            {"KEY=value", "E=", "U=a=b"});
        row("no key, comment, no equals skipped", "=value\n  =x\n   #K=2\nWORD\n\n  \n", {});
        row("quotes, hash and inner blanks of key kept", "N=\"A B\"\nK=a#b\nMY KEY = v",
            {"N=\"A B\"", "K=a#b", "MY KEY=v"});
        row("later key wins, in place", "B=1\nC=2\nB=3\n", {"A=0", "B=3", "C=2"}, {"A=0", "B=0"});
    }
    void parseEnvText()
    {
        QFETCH(QStringList, start);
        QFETCH(QString, text);
        QFETCH(QStringList, expected);
        apply_env_text(start, text);
        QCOMPARE(start, expected);
    }
    void getAndUpsert_data()
    {
        // get_env_value(env, key) before, then upsert_env(env, key, "9").
        QTest::addColumn<QStringList>("env");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QStringList>("after");
        const auto row = [](const char *name, const QStringList &env, const char *key,
                            const char *value, const QStringList &after) {
            QTest::newRow(name) << env << key << value << after;
        };
        row("present: replaced", {"A=1", "B=a=b", "C=3"}, "B", "a=b", {"A=1", "B=9", "C=3"});
        row("first duplicate", {"K=1", "K=2"}, "K", "1", {"K=9", "K=2"});
        row("longer key is another key", {"KEYS=1"}, "KEY", "", {"KEYS=1", "KEY=9"});
        row("entry without equals", {"K"}, "K", "", {"K", "K=9"});
    }
    void getAndUpsert()
    {
        QFETCH(QStringList, env);
        QFETCH(QString, key);
        QFETCH(QString, value);
        QFETCH(QStringList, after);
        QCOMPARE(get_env_value(env, key), value);
        upsert_env(env, key, QStringLiteral("9"));
        QCOMPARE(env, after);
    }
    void chooseServiceBackend_data()
    {
        QTest::addColumn<QStringList>("env");
        QTest::addColumn<bool>("service");
        const auto row = [](const char *name, const QStringList &env, bool service) {
            QTest::newRow(name) << env << service;
        };
        row("neither set", {"HOME=/h"}, false);
        row("service=1 beats local=1", {"UI_USE_LOCAL_BACKEND=1", "UI_USE_SERVICE_BACKEND=1"},
            true);
        row("service=0 beats local=0", {"UI_USE_SERVICE_BACKEND=0", "UI_USE_LOCAL_BACKEND=0"},
            false);
        row("service=' 1' is local", {"UI_USE_SERVICE_BACKEND= 1"}, false);
        row("empty service falls to local=0", {"UI_USE_SERVICE_BACKEND=", "UI_USE_LOCAL_BACKEND=0"},
            true);
        row("local=00", {"UI_USE_LOCAL_BACKEND=00"}, false);
    }
    void chooseServiceBackend()
    {
        QFETCH(QStringList, env);
        QFETCH(bool, service);
        QCOMPARE(choose_service_backend(env), service);
    }
};

QTEST_GUILESS_MAIN(TestEnvFile)
#include "test_env_file.moc"
