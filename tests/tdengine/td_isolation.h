#pragma once

// What every test that may load TDLib shares: the loopback-only network
// namespace (entered in main, before anything else runs), made-up
// credentials, and the library beside the built td_backend.

#include "common/loopback_namespace.h"

#include <QDir>
#include <QFileInfo>
#include <QString>
#include <QTest>

namespace td_isolation {

// Why the namespace could not be had; empty once inside it.
inline QString &problem()
{
    static QString text = QStringLiteral("not entered");
    return text;
}

// Not a real application's: TDLib only checks that they are set.
inline QStringList fakeCredentials()
{
    return {QStringLiteral("TG_API_ID=1"),
            QStringLiteral("TG_API_HASH=0123456789abcdef0123456789abcdef")};
}

// The libtdjson.so the build linked beside td_backend; empty when there is none.
inline QString library()
{
    const QString dir =
        qEnvironmentVariable("VEXA_BIN_DIR", QFileInfo(QStringLiteral(TD_BACKEND_PATH)).path());
    const QFileInfo lib(QDir(dir).filePath(QStringLiteral("libtdjson.so")));
    return lib.exists() ? lib.canonicalFilePath() : QString();
}

} // namespace td_isolation

#define TD_REQUIRE_ISOLATION()                                                                     \
    do {                                                                                           \
        if (!td_isolation::problem().isEmpty())                                                    \
            QSKIP(qPrintable(QStringLiteral("no loopback-only network namespace here (%1); "       \
                                            "TDLib is never run outside one")                      \
                                 .arg(td_isolation::problem())));                                  \
    } while (false)

#define TD_REQUIRE_LIBRARY()                                                                       \
    do {                                                                                           \
        if (td_isolation::library().isEmpty())                                                     \
            QSKIP("no libtdjson.so beside td_backend: scripts/fetch_tdlib.sh fetches it");         \
    } while (false)

// main() for a test that loads TDLib: into the namespace first, then QtTest.
#define TD_ISOLATED_TEST_MAIN(AppClass, TestClass)                                                 \
    int main(int argc, char **argv)                                                                \
    {                                                                                              \
        if (test_netns::enterLoopbackOnlyNamespace(&td_isolation::problem()))                      \
            td_isolation::problem().clear();                                                       \
        AppClass app(argc, argv);                                                                  \
        TestClass test;                                                                            \
        QTEST_SET_MAIN_SOURCE_PATH                                                                 \
        return QTest::qExec(&test, argc, argv);                                                    \
    }
