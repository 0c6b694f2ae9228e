#include "chats/chat_list_model.h"
#include "common/recording_toaster.h"
#include "common/test_util.h"
#include "platform/array_data_model.h"
#include "platform/invoker.h"
#include "shell/links.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace test_util;

// Links with the real desktop invoker: the browser is a stand-in xdg-open,
// first on PATH, that appends the URL it was given to a file.
class TestLinks : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        const QString bin = m_dir.filePath("bin");
        QVERIFY(writeFile(bin + "/xdg-open", "#!/bin/sh\nprintf '%s\\n' \"$1\" >> \"" +
                                                 m_dir.filePath("browser.txt").toUtf8() + "\"\n"));
        QVERIFY(QFile::setPermissions(bin + "/xdg-open", QFile::ReadOwner | QFile::ExeOwner));
        qputenv("PATH", bin.toUtf8() + ':' + qgetenv("PATH"));
        for (const char *var :
             {"XDG_CURRENT_DESKTOP", "DESKTOP_SESSION", "BROWSER", "DEFAULT_BROWSER"})
            qunsetenv(var);
    }

    void init()
    {
        m_sent.clear();
        m_log.clear();
        m_toasts.clear();
        m_signedIn = true;
        m_chats.clear();
        LinksDeps deps;
        deps.sendLine = [this](const QString &line) { m_sent << line; };
        deps.log = [this](const QString &text) { m_log << text; };
        deps.isSignedIn = [this] { return m_signedIn; };
        deps.visibleChatId = [this] { return m_visibleChat; };
        deps.toaster = &m_toasts;
        deps.invoker = &m_invoker;
        deps.chats = &m_chats;
        deps.dataDir = m_dir.path();
        m_links = std::make_unique<Links>(deps);
    }

    void links_data()
    {
        // door (invoke: handed in from outside, tap: tapped in a message) | link |
        // what the browser gets | command sent | toast | message the chat opens at
        QTest::addColumn<QStringList>("c");
        for (const char *row : {
                 "invoke|tg://resolve?domain=@durov||resolve durov||0",
                 "tap| TG:resolve?domain=news ||resolve news||0",
                 "invoke|tg://join?invite=abc|||Unsupported tg link|0",
                 "tap|tg://resolve?domain=%20@|||Invalid tg link|0",
                 "invoke|tg://resolve?domain=a%0Aresolve%20b|||Invalid tg link|0",
                 "tap|www.example.org/a|http://www.example.org/a|||0",
                 "tap| HTTPS://T.ME/vexa_archive/123 ||resolve vexa_archive||123",
                 "tap|t.me/joinchat/AbC|https://t.me/joinchat/AbC|||0",
                 "tap|example.org||||0",
                 "tap|file:///etc/passwd||||0",
             })
            QTest::newRow(row) << QString::fromUtf8(row).split('|');
    }

    void links()
    {
        QFETCH(QStringList, c);
        const QString link = c[1], browser = c[2], sent = c[3], toast = c[4];
        QSignalSpy opened(m_links.get(), &Links::openChatRequested);
        if (c[0] == "tap")
            m_links->onWebLinkActivated(link);
        else
            m_links->onInvoked(link);
        QCOMPARE(browserLines(browser), browser.isEmpty() ? QStringList() : QStringList{browser});
        QCOMPARE(m_sent, sent.isEmpty() ? QStringList() : QStringList{sent});
        QCOMPARE(m_toasts.shown(), toast.isEmpty() ? QStringList() : QStringList{toast});
        if (!sent.isEmpty()) {
            m_links->onResolvedChat(kv("id=5 title=Archive"));
            QCOMPARE(opened.size(), 1);
            QCOMPARE(opened.at(0).at(1).toLongLong(), c[5].toLongLong());
        }
        // A refused link shows nothing; the log says why.
        if (browser.isEmpty() && sent.isEmpty() && toast.isEmpty())
            QVERIFY(m_log.join("").contains(link));
    }

    void resolveWaitsForSignIn()
    {
        m_signedIn = false;
        m_links->onInvoked("tg://resolve?domain=vexa_archive");
        QCOMPARE(m_toasts.shown(), QStringList{"Open @vexa_archive after login"});
        m_links->tryResolvePendingTg();
        QCOMPARE(m_sent, QStringList());
        m_signedIn = true;
        m_links->tryResolvePendingTg();
        m_links->tryResolvePendingTg();
        QCOMPARE(m_sent, QStringList{"resolve vexa_archive"});
    }

    void hubRequests_data()
    {
        // request file ("/" for line breaks) | chat on screen | outcome
        QTest::addColumn<QStringList>("c");
        for (const char *row : {
                 "HUB_OPEN= Chat /HUB_CHAT_ID=2/HUB_MESSAGE_ID=77/HUB_REASON=test|0|open 2 77",
                 "HUB_OPEN=chat/HUB_CHAT_ID=2/HUB_MESSAGE_ID=9|2|jump 9",
                 "HUB_OPEN=chats|2|chats",
                 "HUB_OPEN=chat/HUB_CHAT_ID=9/HUB_MESSAGE_ID=4|0|open 9 4",
             })
            QTest::newRow(row) << QString::fromUtf8(row).split('|');
    }

    void hubRequests()
    {
        QFETCH(QStringList, c);
        const QByteArray file = c[0].toUtf8().replace('/', '\n');
        const QString outcome = c[2];
        m_chats.upsertChatRow(kv("id=2 title=Two order=5"));
        m_visibleChat = c[1].toLongLong();
        QStringList seen;
        connect(
            m_links.get(), &Links::openChatRequested, this,
            [&](const QVariantMap &row, qint64 message) {
                seen << QStringLiteral("open %1 %2").arg(row.value("id").toString()).arg(message);
            });
        connect(m_links.get(), &Links::jumpRequested, this,
                [&](qint64 message) { seen << QStringLiteral("jump %1").arg(message); });
        connect(m_links.get(), &Links::backToChatsRequested, this, [&] { seen << "chats"; });

        const QString path = hub_open_file_path(m_dir.path());
        QVERIFY(writeFile(path, file));
        m_signedIn = false;
        m_links->loadHubOpenRequest();
        QVERIFY(!QFile::exists(path));
        m_links->tryApplyHubOpenRequest();
        m_signedIn = true;
        m_links->tryApplyHubOpenRequest();
        m_links->tryApplyHubOpenRequest();
        // A missing row asks for the list once and waits for the row.
        if (seen.isEmpty()) {
            QCOMPARE(m_sent, QStringList{"chats 60"});
            m_chats.upsertChatRow(kv("id=9 title=Nine order=3"));
            m_links->tryApplyHubOpenRequest();
        }
        QCOMPARE(seen, QStringList{outcome});
    }

private:
    // What the browser was given, once it has expected (or nothing, when
    // expected is empty: a marker opened after the link then arrives alone).
    QStringList browserLines(const QString &expected)
    {
        static int markers = 0;
        const QString awaited = expected.isEmpty()
                                    ? QStringLiteral("http://marker.invalid/%1").arg(++markers)
                                    : expected;
        if (expected.isEmpty())
            m_links->onWebLinkActivated(awaited);
        const QString path = m_dir.filePath("browser.txt");
        if (!waitFor([&] { return readAll(path).contains(awaited.toUtf8()); }))
            return {"browser never answered"};
        QStringList lines = QString::fromUtf8(readAll(path)).split('\n', Qt::SkipEmptyParts);
        QFile::remove(path);
        if (expected.isEmpty())
            lines.removeAll(awaited);
        return lines;
    }

    QTemporaryDir m_dir;
    QStringList m_sent;
    QStringList m_log;
    RecordingToaster m_toasts;
    DesktopInvoker m_invoker;
    bool m_signedIn = true;
    qint64 m_visibleChat = 0;
    ArrayDataModel m_rows;
    ChatListModel m_chats{&m_rows};
    std::unique_ptr<Links> m_links;
};

QTEST_MAIN(TestLinks)
#include "test_links.moc"
