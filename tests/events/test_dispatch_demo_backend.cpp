// The dispatcher driving the chat list from the real demo backend: its
// follow-up commands go to the child's standard input, the child's events
// come back through the events file.
#include "demo_process.h"

#include "backend_link/app_log.h"
#include "chats/avatar_download_queue.h"
#include "chats/chat_list_model.h"
#include "common/recording_toaster.h"
#include "events/event_dispatcher.h"
#include "platform/array_data_model.h"

#include <QImage>
#include <QTemporaryDir>
#include <QtTest>

class TestDispatchDemoBackend : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void signInLoadsSortedChatListWithAvatars();
};

void TestDispatchDemoBackend::signInLoadsSortedChatListWithAvatars()
{
    QTemporaryDir tmp;
    QVERIFY(tmp.isValid());
    DemoProcess backend(tmp.path());
    QVERIFY(backend.start());

    AppLog log;
    RecordingToaster toaster;
    ArrayDataModel rows;
    ChatListModel chats(&rows);
    QStringList sent;
    auto send = [&](const QString &line) {
        sent.append(line);
        backend.send(line.toUtf8());
    };
    AvatarDownloadQueue avatars(send, [&log](const QString &t) { log.appendLog(t); });
    EventDispatcherDeps deps;
    deps.chats = &chats;
    deps.avatars = &avatars;
    deps.toaster = &toaster;
    deps.log = &log;
    deps.sendLine = send;
    deps.dataDir = tmp.path();
    EventDispatcher dispatcher(deps);

    QString authState;
    connect(&dispatcher, &EventDispatcher::authStateChanged, this,
            [&authState](const QString &state) { authState = state; });
    int fed = 0;
    auto pumpUntil = [&](const std::function<bool()> &done, int timeoutMs) {
        QElapsedTimer t;
        t.start();
        while (t.elapsed() < timeoutMs) {
            backend.poll();
            while (fed < backend.events().size()) {
                dispatcher.handleEventMap(backend.events().at(fed++).toVariantMap());
            }
            if (done()) {
                return true;
            }
            QTest::qWait(5);
        }
        return false;
    };

    QVERIFY(pumpUntil([&] { return authState == QLatin1String("WaitPhoneNumber"); }, 10000));
    send(QStringLiteral("phone +15550101"));
    QVERIFY(pumpUntil([&] { return authState == QLatin1String("WaitCode"); }, 10000));
    send(QStringLiteral("code 22222"));

    // Ready asks for the chat list by itself; the answer fills the model.
    int chatsEnd = -1;
    QVERIFY(pumpUntil(
        [&] {
            for (int i = 0; i < fed; ++i) {
                if (ev_type(backend.events().at(i)) == QLatin1String("chats_end")) {
                    chatsEnd = i;
                    return true;
                }
            }
            return false;
        },
        15000));
    QVERIFY(dispatcher.isAuthorized());
    QCOMPARE(sent.count(QStringLiteral("chats 60")), 1);

    QSet<qint64> announced;
    for (int i = chatsEnd; i >= 0; --i) {
        const QJsonObject e = backend.events().at(i);
        if (ev_type(e) == QLatin1String("chats_begin")) {
            break;
        }
        if (ev_type(e) == QLatin1String("chat")) {
            announced.insert(ev_i64(e, "id"));
        }
    }
    QVERIFY(announced.size() >= 2);
    QCOMPARE(chats.size(), announced.size());
    for (int i = 1; i < chats.size(); ++i) {
        QVERIFY2(ChatListModel::chatRowPrecedes(chats.rowAt(i - 1), chats.rowAt(i)),
                 qPrintable(QStringLiteral("rows %1 and %2 out of order").arg(i - 1).arg(i)));
    }

    // Photos are asked for one by one and arrive as round PNGs on the rows.
    int withPhoto = -1;
    for (int i = 0; i < chats.size(); ++i) {
        if (chats.rowAt(i).value(QStringLiteral("photo_small_id")).toLongLong() > 0) {
            withPhoto = i;
            break;
        }
    }
    QVERIFY2(withPhoto >= 0, "the demo account has chats with photos");
    const qint64 photoChat = ChatListModel::chatRowId(chats.rowAt(withPhoto));
    QVERIFY(pumpUntil(
        [&] {
            return !chats.chatRowById(photoChat)
                        .value(QStringLiteral("avatar_path"))
                        .toString()
                        .isEmpty();
        },
        30000));
    const QString round =
        chats.chatRowById(photoChat).value(QStringLiteral("avatar_path")).toString();
    QVERIFY2(round.startsWith(tmp.path() + QStringLiteral("/avatar-cache/")), qPrintable(round));
    const QImage img(round);
    QCOMPARE(img.size(), QSize(144, 144));
    QCOMPARE(qAlpha(img.pixel(0, 0)), 0);
    QVERIFY(log.buffer().contains(QStringLiteral("ui: download avatar file_id=")));

    // A message sent to the last chat moves it up, and its row follows every
    // later event of that chat (the demo's partner answers at once).
    const int lastIndex = chats.size() - 1;
    const qint64 lastChat = ChatListModel::chatRowId(chats.rowAt(lastIndex));
    const int before = fed;
    const QString text = QStringLiteral("line one\nline two");
    send(QStringLiteral("send64 %1 %2")
             .arg(lastChat)
             .arg(QString::fromLatin1(text.toUtf8().toBase64())));
    auto positionSeen = [&] {
        for (int i = before; i < fed; ++i) {
            const QJsonObject e = backend.events().at(i);
            if (ev_type(e) == QLatin1String("chat_position") && ev_i64(e, "chat_id") == lastChat) {
                return true;
            }
        }
        return false;
    };
    QVERIFY(pumpUntil(positionSeen, 10000));
    pumpUntil([] { return false; }, 500);

    QString expectedText;
    qint64 expectedOrder = 0;
    bool sawOwnText = false;
    for (int i = before; i < fed; ++i) {
        const QJsonObject e = backend.events().at(i);
        if (ev_i64(e, "chat_id") != lastChat) {
            continue;
        }
        if (ev_type(e) == QLatin1String("message_new") ||
            ev_type(e) == QLatin1String("chat_last_message")) {
            expectedText = chat_list_preview_text(e.value(QStringLiteral("text")).toString());
            sawOwnText = sawOwnText || expectedText == QLatin1String("line one line two");
        } else if (ev_type(e) == QLatin1String("chat_position")) {
            expectedOrder = ev_i64(e, "order");
        }
    }
    QVERIFY(sawOwnText);
    const QVariantMap row = chats.chatRowById(lastChat);
    QCOMPARE(row.value(QStringLiteral("last_text")).toString(), expectedText);
    QCOMPARE(row.value(QStringLiteral("order")).toLongLong(), expectedOrder);
    QVERIFY(chats.findChatIndexById(lastChat) < lastIndex);
    for (int i = 1; i < chats.size(); ++i) {
        QVERIFY(ChatListModel::chatRowPrecedes(chats.rowAt(i - 1), chats.rowAt(i)));
    }
    QVERIFY(toaster.shown().isEmpty());
    QCOMPARE(backend.badLines(), 0);
}

QTEST_MAIN(TestDispatchDemoBackend)
#include "test_dispatch_demo_backend.moc"
