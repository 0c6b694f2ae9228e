#include "backend_link/event_intake.h"
#include "common/notification_server.h"
#include "common/recording_commands.h"
#include "common/test_util.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QImage>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace test_util;

// Notifications of incoming messages, with the controller in this process on
// the private session bus the test runs on (its notification server is the
// test's). Links: test_links; `vexa --open-chat` against a running vexa:
// test_startup.
class TestOpenRequests : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    RecordingCommands m_commands;
    std::unique_ptr<UiTdlibSpike> m_spike;

    void feed(const QByteArray &json)
    {
        QVERIFY(writeFile(m_dir.filePath("data/backend_events.jsonl"), json + '\n', true));
        m_spike->eventIntake()->onPoll();
    }

private Q_SLOTS:
    void notificationsOfIncomingMessages();
};

void TestOpenRequests::notificationsOfIncomingMessages()
{
    NotificationServer server;
    QVERIFY(server.start());
    const QList<RecordedNotification> &calls = server.calls();
    QVERIFY(QDir().mkpath(m_dir.filePath("app")));
    const QStringList env = cleanEnvironment()
                            << "VEXA_DATA_DIR=" + m_dir.filePath("data")
                            << "VEXA_SHARED_DIR=" + m_dir.filePath("shared") << "VEXA_ZOOM=1"
                            << "UI_USE_SERVICE_BACKEND=1";
    m_spike = std::make_unique<UiTdlibSpike>(m_dir.filePath("app"), env, &m_commands);
    feed(R"({"type":"auth_state","state":"Ready"})");
    feed(R"({"type":"chats_begin"})");
    feed(R"({"type":"chat","id":1,"title":"Ann","order":"2","photo_small_id":500})");
    feed(R"({"type":"chat","id":2,"title":"Club","order":"1","muted_known":true,"muted":true})");
    feed(R"({"type":"chats_end"})");
    // The chat's photo arrives: its round avatar becomes the icon.
    QImage photo(64, 64, QImage::Format_RGB32);
    photo.fill(Qt::red);
    QVERIFY(photo.save(m_dir.filePath("photo.png")));
    feed(QStringLiteral(R"({"type":"file","id":500,"path":"%1"})")
             .arg(m_dir.filePath("photo.png"))
             .toUtf8());
    const auto incoming = [this](int chat, int id, const char *text) {
        feed(QStringLiteral(R"({"type":"message_new","chat_id":%1,"id":%2,"outgoing":false,)"
                            R"("sender_name":"Sender %1","text":"%3"})")
                 .arg(chat)
                 .arg(id)
                 .arg(text)
                 .toUtf8());
    };

    // Two at once: the second replaces the first as soon as its id is known.
    incoming(1, 10, "hello");
    incoming(1, 11, "again");
    QTRY_COMPARE(calls.size(), 2);
    QCOMPARE(calls[0].summary, QStringLiteral("Sender 1"));
    QCOMPARE(calls[0].body, QStringLiteral("hello"));
    QVERIFY(QFileInfo(calls[0].hints.value("image-path").toString()).isFile());
    QCOMPARE(calls[1].replacesId, calls[0].id);
    incoming(2, 20, "muted");
    QTRY_COMPARE(calls.size(), 3);
    QVERIFY(calls[2].hints.value("suppress-sound").toBool());

    // Never: one's own messages, history pages, the chat on screen in the
    // active window. The next notification shows that none came before it.
    feed(R"({"type":"message_new","chat_id":2,"id":21,"outgoing":true,"text":"mine"})");
    feed(R"({"type":"message","chat_id":2,"gen":1,"id":5,"outgoing":false,"text":"old"})");
    m_spike->openChatFromRow({{"id", "1"}, {"title", "Ann"}});
    QTRY_COMPARE(m_spike->visibleChatId(), 1);
    incoming(1, 12, "seen");
    incoming(2, 22, "next");
    QTRY_COMPARE(calls.size(), 4);
    QCOMPARE(calls[3].body, QStringLiteral("next"));
    // In the background the open chat notifies too.
    m_spike->onAppThumbnailed();
    incoming(1, 13, "away");
    QTRY_COMPARE(calls.size(), 5);

    server.click(calls[3].id);
    QTRY_COMPARE(m_commands.count("open 2 22"), 1);
}

QTEST_MAIN(TestOpenRequests)
#include "test_open_requests.moc"
