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
    void initTestCase();
    void init();

    void tgLinks_data();
    void tgLinks();
    void resolveWaitsForSignIn();
    void webLinks_data();
    void webLinks();
    void hubRequests_data();
    void hubRequests();
    void hubRequestWaitsForItsRow();

private:
    // What the browser was given, once it has expected (or nothing, when
    // expected is empty).
    QStringList browserLines(const QString &expected = QString());

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
    int m_marker = 0;
};

void TestLinks::initTestCase()
{
    const QString bin = m_dir.filePath("bin");
    QVERIFY(writeFile(bin + "/xdg-open", "#!/bin/sh\nprintf '%s\\n' \"$1\" >> \"" +
                                             m_dir.filePath("browser.txt").toUtf8() + "\"\n"));
    QVERIFY(QFile::setPermissions(bin + "/xdg-open", QFile::ReadOwner | QFile::ExeOwner));
    qputenv("PATH", bin.toUtf8() + ':' + qgetenv("PATH"));
    // The desktop services pick xdg-open only outside a known desktop.
    qunsetenv("XDG_CURRENT_DESKTOP");
    qunsetenv("KDE_FULL_SESSION");
    qunsetenv("GNOME_DESKTOP_SESSION_ID");
    qunsetenv("DESKTOP_SESSION");
    qunsetenv("BROWSER");
    qunsetenv("DEFAULT_BROWSER");
}

void TestLinks::init()
{
    m_sent.clear();
    m_log.clear();
    m_toasts.clear();
    m_signedIn = true;
    m_visibleChat = 0;
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

QStringList TestLinks::browserLines(const QString &expected)
{
    // Without an expected URL a marker is opened: had anything gone to the
    // browser before it, it would be in the file by the time the marker is.
    const QString awaited =
        expected.isEmpty() ? QStringLiteral("http://marker.invalid/%1").arg(++m_marker) : expected;
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

void TestLinks::tgLinks_data()
{
    QTest::addColumn<bool>("tapped");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("sent");
    QTest::addColumn<QString>("toast");
    QTest::newRow("resolve, @ dropped") << false << "tg://resolve?domain=@durov"
                                        << "resolve durov"
                                        << "";
    QTest::newRow("username key") << false << "tg://resolve?username=alice"
                                  << "resolve alice"
                                  << "";
    QTest::newRow("tapped, command in the path") << true << " TG:resolve?domain=news "
                                                 << "resolve news"
                                                 << "";
    QTest::newRow("other command") << false << "tg://join?invite=abc"
                                   << ""
                                   << "Unsupported tg link";
    QTest::newRow("no name") << true << "tg://resolve?domain=%20@"
                             << ""
                             << "Invalid tg link";
    QTest::newRow("line break never sent") << false << "tg://resolve?domain=a%0Aresolve%20b"
                                           << ""
                                           << "Invalid tg link";
}

void TestLinks::tgLinks()
{
    QFETCH(bool, tapped);
    QFETCH(QString, url);
    QFETCH(QString, sent);
    QFETCH(QString, toast);
    if (tapped)
        m_links->onWebLinkActivated(url);
    else
        m_links->onInvoked(url);
    QCOMPARE(m_sent, sent.isEmpty() ? QStringList() : QStringList{sent});
    QCOMPARE(m_toasts.shown(), toast.isEmpty() ? QStringList() : QStringList{toast});
    QCOMPARE(browserLines(), QStringList());
}

void TestLinks::resolveWaitsForSignIn()
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
    m_links->onResolveAnswered("VEXA_ARCHIVE");
    QCOMPARE(m_links->pendingUsername(), QString());
}

void TestLinks::webLinks_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("browser");
    QTest::addColumn<QString>("sent");
    QTest::addColumn<qint64>("messageId");
    QTest::newRow("www") << "www.example.org/a"
                         << "http://www.example.org/a"
                         << "" << 0ll;
    QTest::newRow("https") << " https://example.org/x?y=1 "
                           << "https://example.org/x?y=1"
                           << "" << 0ll;
    QTest::newRow("public chat") << "T.ME/vexa_archive"
                                 << ""
                                 << "resolve vexa_archive" << 0ll;
    QTest::newRow("public chat at a message") << "https://t.me/vexa_archive/123"
                                              << ""
                                              << "resolve vexa_archive" << 123ll;
    QTest::newRow("invitation stays with the browser") << "t.me/joinchat/AbC"
                                                       << "https://t.me/joinchat/AbC"
                                                       << "" << 0ll;
    QTest::newRow("no scheme") << "example.org"
                               << ""
                               << "" << 0ll;
    QTest::newRow("other scheme") << "ftp://example.org/f"
                                  << ""
                                  << "" << 0ll;
    QTest::newRow("file") << "file:///etc/passwd"
                          << ""
                          << "" << 0ll;
}

void TestLinks::webLinks()
{
    QFETCH(QString, text);
    QFETCH(QString, browser);
    QFETCH(QString, sent);
    QFETCH(qint64, messageId);
    QSignalSpy opened(m_links.get(), &Links::openChatRequested);
    m_links->onWebLinkActivated(text);
    QCOMPARE(browserLines(browser), browser.isEmpty() ? QStringList() : QStringList{browser});
    QCOMPARE(m_sent, sent.isEmpty() ? QStringList() : QStringList{sent});
    if (!sent.isEmpty()) {
        m_links->onResolvedChat(kv("id=5 title=Archive"));
        QCOMPARE(opened.size(), 1);
        QCOMPARE(opened.at(0).at(1).toLongLong(), messageId);
    }
    // Nothing the user sees for a refused link; the log says why.
    QCOMPARE(m_toasts.shown(), QStringList());
    if (browser.isEmpty() && sent.isEmpty())
        QVERIFY(m_log.join("").contains(text));
}

void TestLinks::hubRequests_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<qint64>("visibleChat");
    QTest::addColumn<QString>("outcome");
    QTest::newRow("chat at a message") << QByteArray("HUB_OPEN= Chat \nHUB_CHAT_ID=2\n"
                                                     "HUB_MESSAGE_ID=77\nHUB_REASON=test\n")
                                       << 0ll << "open 2 77";
    QTest::newRow("later keys win, a group, bad message id")
        << QByteArray(
               "# request\nHUB_OPEN=chat\nHUB_CHAT_ID=2\nHUB_CHAT_ID=-2\nHUB_MESSAGE_ID=-4\n")
        << 0ll << "open -2 0";
    QTest::newRow("chat on screen jumps") << QByteArray("HUB_OPEN=chat\nHUB_CHAT_ID=2\n"
                                                        "HUB_MESSAGE_ID=9\n")
                                          << 2ll << "jump 9";
    QTest::newRow("chat list") << QByteArray("HUB_OPEN=chats\n") << 2ll << "chats";
    QTest::newRow("no chat id") << QByteArray("HUB_OPEN=chat\nHUB_CHAT_ID=0\n") << 0ll << "chats";
}

void TestLinks::hubRequests()
{
    QFETCH(QByteArray, file);
    QFETCH(qint64, visibleChat);
    QFETCH(QString, outcome);
    m_chats.upsertChatRow(kv("id=2 title=Two order=5"));
    m_chats.upsertChatRow(kv("id=-2 title=Group order=4"));
    m_visibleChat = visibleChat;
    QStringList seen;
    connect(m_links.get(), &Links::openChatRequested, this,
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
    QCOMPARE(seen, QStringList());
    m_signedIn = true;
    m_links->tryApplyHubOpenRequest();
    m_links->tryApplyHubOpenRequest();
    QCOMPARE(seen, QStringList{outcome});
    QCOMPARE(m_sent, QStringList());

    // Every load starts afresh: without a new file nothing is pending.
    QVERIFY(writeFile(path, file));
    m_links->loadHubOpenRequest();
    m_links->loadHubOpenRequest();
    m_links->tryApplyHubOpenRequest();
    QCOMPARE(seen.size(), 1);
}

void TestLinks::hubRequestWaitsForItsRow()
{
    QVERIFY(write_hub_open_request(m_dir.path(), 9, 4, "notification\nHUB_CHAT_ID=1", nullptr));
    m_links->loadHubOpenRequest();
    QCOMPARE(m_links->hubChatId(), 9);
    QSignalSpy opened(m_links.get(), &Links::openChatRequested);
    m_links->tryApplyHubOpenRequest();
    m_links->tryApplyHubOpenRequest();
    QCOMPARE(m_sent, QStringList{"chats 60"});
    m_chats.upsertChatRow(kv("id=9 title=Nine order=5"));
    m_links->tryApplyHubOpenRequest();
    QCOMPARE(opened.size(), 1);
    QCOMPARE(opened.at(0).at(1).toLongLong(), 4);
    QCOMPARE(m_links->hubOpenMode(), QString());
}

QTEST_MAIN(TestLinks)
#include "test_links.moc"
