#include "chats/avatar_download_queue.h"
#include "chats/chat_list_model.h"
#include "common/test_util.h"
#include "conversation/message_row_model.h"
#include "conversation_test_util.h"
#include "platform/array_data_model.h"

#include <QFile>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

constexpr qint64 kChat = 5;

// Runs steps against the model: the message events themselves ("new" for
// "message_new"), plus "begin replace=0|1", "msg ..." and "end" for a history
// batch and "chattype t=..." when the chat's type becomes known.
void run(MessageRowModel *m, const QString &steps)
{
    for (QVariantMap e : evs(steps)) {
        if (e.value(QStringLiteral("type")) == QLatin1String("new"))
            e.insert(QStringLiteral("type"), QStringLiteral("message_new"));
        const QString type = e.value(QStringLiteral("type")).toString();
        if (!e.contains(QStringLiteral("chat_id")))
            e.insert(QStringLiteral("chat_id"), kChat);
        if (type == QLatin1String("begin"))
            m->beginHistoryBatch(e.value(QStringLiteral("replace")).toBool());
        else if (type == QLatin1String("msg"))
            m->addHistoryMessage(e);
        else if (type == QLatin1String("end"))
            m->endHistoryBatch();
        else if (type == QLatin1String("chattype"))
            m->setChatType(e.value(QStringLiteral("t")).toString());
        else
            QVERIFY2(m->handleMessageEvent(e), qPrintable(type));
    }
}

QString ids(const MessageRowModel &m)
{
    QStringList out;
    for (int i = 0; i < m.size(); ++i)
        out.append(m.rowAt(i).value(QStringLiteral("id")).toString());
    return out.join(QLatin1Char(','));
}

// A row's value as the checks write it: "-" when absent.
QString valueOf(const QVariantMap &row, const QString &key)
{
    if (!row.contains(key))
        return QStringLiteral("-");
    return row.value(key).toString().replace(QLatin1Char(' '), QLatin1Char('~'));
}

} // namespace

class TestMessageRowModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void events_data()
    {
        QTest::addColumn<QString>("chatType");
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("expectedIds");
        // "ID.key=value" checks, "-" for an absent key; ID 0 is the chat's row.
        QTest::addColumn<QString>("checks");
        auto row = [](const char *name, const char *type, const char *steps, const char *ids,
                      const char *checks) {
            QTest::newRow(name) << type << steps << ids << checks;
        };

        row("new rows append; a known id merges in place; other chats change nothing", "private",
            "new id=1 text=a date=10; new id=2 text=b; new id=1 text=c; new chat_id=6 id=3; "
            "message_update chat_id=6 id=1 text=x",
            "1,2", "1.text=c 1.date=10 2.text=b");
        row("sends acknowledged, then succeeded (date 0 keeps the date) or failed, in place",
            "private",
            "new id=1; new id=2 outgoing=true sending_state=pending date=50; new id=3 "
            "sending_state=pending date=50; new id=4 sending_state=pending; message_send_acked "
            "id=2; message_send_acked id=2; message_send_acked id=4; message_send_succeeded "
            "old_id=2 new_id=20 date=99; message_send_succeeded old_id=3 new_id=30 date=0; "
            "message_send_failed old_id=4",
            "1,20,30,4",
            "20.date=99 20.sending_state=- 20.send_acked=- 20.outgoing=true 30.date=50 "
            "4.sending_state=failed 4.send_acked=-");
        row("reactions removed", "private",
            "new id=1; message_reactions id=1 reactions=A:2:1; message_reactions id=1", "1",
            "1.reactions=-");
        row("edited text reaches the answers", "private",
            "new id=1 text=hello; new id=2 reply_to_message_id=1; message_update id=1 text=bye",
            "1,2", "1.text=bye 2.reply_preview=bye");
        row("author runs in a supergroup; an outgoing message breaks them", "supergroup",
            "new id=1 sender_user_id=7; new id=2 sender_user_id=7; new id=3 sender_user_id=9 "
            "outgoing=true; new id=4 sender_user_id=7; new id=5 sender_user_id=8",
            "1,2,3,4,5",
            "1.sender_show=true 2.sender_show=false 2.sender_indent=true 3.sender_show=false "
            "3.sender_indent=false 4.sender_show=true 5.sender_show=true");
        row("private and secret chats show no sender", "secret",
            "new id=1 sender_user_id=7; new id=2 sender_user_id=7", "1,2",
            "1.sender_indent=false 1.sender_show=false 2.sender_show=false");
        row("type unknown, then known", "",
            "new id=1 sender_user_id=7; new id=2 sender_user_id=7; new id=3 sender_user_id=0; "
            "chattype t=basic_group",
            "1,2,3",
            "1.sender_indent=true 1.sender_show=true 2.sender_show=false 3.sender_indent=false");
        row("older page goes in front, shown rows merged, regrouped and answered", "supergroup",
            "new id=10 sender_user_id=7 reply_to_message_id=5; begin replace=0; msg id=4 "
            "sender_user_id=8 text=older; msg id=5 sender_user_id=7 text=old; msg id=6 "
            "sender_user_id=7 reply_to_message_id=4; msg id=10 sender_user_id=7 "
            "reply_to_message_id=5 text=b; end",
            "4,5,6,10",
            "10.sender_show=false 10.reply_preview=old 10.text=b 5.sender_show=true "
            "6.sender_show=false 6.reply_preview=older");
        row("a replacing batch drops the rows shown", "private",
            "new id=1; new id=2 text=gone; begin replace=1; msg id=2 text=x; msg id=3 "
            "reply_to_message_id=2; end",
            "2,3", "2.text=x 3.reply_preview=x");
        row("deleting regroups the follower and empties its preview", "supergroup",
            "new id=1 sender_user_id=7 text=a; new id=2 sender_user_id=8; new id=3 "
            "sender_user_id=8 reply_to_message_id=1; messages_deleted message_ids=2,1,99,0",
            "3", "3.sender_show=true 3.reply_preview=");
        row("previews of messages without text", "private",
            "new id=1 text=~~ media_type=photo; new id=2 media_type=file; new id=3 media_type=file "
            "media_name=~a.pdf~; new id=4 text=~a\rb~; new id=5 media_type=video_note; new id=11 "
            "reply_to_message_id=1; new id=12 reply_to_message_id=2; new id=13 "
            "reply_to_message_id=3; new id=14 reply_to_message_id=4; new id=15 "
            "reply_to_message_id=5",
            "1,2,3,4,5,11,12,13,14,15",
            "11.reply_preview=[Photo] 12.reply_preview=[File] 13.reply_preview=[File]~a.pdf "
            "14.reply_preview=a\nb 15.reply_preview=\u2026");
        row("deleting the last message puts the one before into the chat list", "private",
            "new id=1 text=one; new id=2 text=two~\nlines outgoing=true; new id=3 text=three; "
            "messages_deleted message_ids=1; messages_deleted message_ids=3",
            "2", "0.last_message_id=2 0.last_text=two~~lines 0.last_outgoing=true");
        row("a deleted row leaves the open batch too", "private",
            "new id=9; begin replace=0; msg id=7; msg id=8; messages_deleted message_ids=8; end",
            "7,9", "");
    }
    void events()
    {
        QFETCH(QString, chatType);
        QFETCH(QString, steps);
        QFETCH(QString, expectedIds);
        QFETCH(QString, checks);
        OpenChatModels o;
        o.addChat(QStringLiteral("id=5|order=1|last_message_id=3|last_text=three"));
        MessageRowModel &m = o.messages;
        m.setOpenChat(kChat, chatType);
        run(&m, steps);
        QCOMPARE(ids(m), expectedIds);
        for (const QString &check : checks.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            const int dot = check.indexOf(QLatin1Char('.'));
            const int eq = check.indexOf(QLatin1Char('='));
            const qint64 id = check.left(dot).toLongLong();
            const QString key = check.mid(dot + 1, eq - dot - 1);
            // Previews of edited targets are rebuilt on the next turn.
            QTRY_COMPARE(
                valueOf(id ? m.rowAt(m.findMessageRowIndexById(id)) : o.chats.chatRowById(kChat),
                        key),
                check.mid(eq + 1));
        }
    }
    void redrawTouches_data()
    {
        QTest::addColumn<QString>("steps"); // "read PREVIOUS NEW", "pending", or message events
        QTest::addColumn<QString>("touched");
        for (const char *r : {"read 2 5=3,4,5", "read 5 1=1,3,4,5", "read 5 5=", "pending=4",
                              "message_send_succeeded old_id=4 new_id=40;pending;read 39 40=40"})
            QTest::newRow(r) << QString(r).section('=', 0, -2) << QString(r).section('=', -1);
    }
    void redrawTouches()
    {
        QFETCH(QString, steps);
        QFETCH(QString, touched);
        ArrayDataModel rows;
        MessageRowModel m(&rows, nullptr, nullptr);
        m.setOpenChat(kChat, QStringLiteral("private"));
        run(&m, QStringLiteral("message_new id=1 outgoing=true; message_new id=2; "
                               "message_new id=3 outgoing=true; message_new id=4 outgoing=true "
                               "sending_state=pending; message_new id=5 outgoing=true"));
        QStringList seen;
        connect(&rows, &QAbstractItemModel::dataChanged, this, [&](const QModelIndex &i) {
            seen.append(m.rowAt(i.row()).value(QStringLiteral("id")).toString());
        });
        for (const QString &step : steps.split(QLatin1Char(';'))) {
            const QStringList w = step.split(QLatin1Char(' '));
            if (w.first() == QLatin1String("read")) {
                m.touchOutgoingRowsForReadOutbox(w.value(1).toLongLong(), w.value(2).toLongLong());
            } else if (w.first() == QLatin1String("pending")) {
                m.touchPendingOutgoingRows();
            } else {
                run(&m, step);
                seen.clear();
            }
        }
        seen.sort();
        QCOMPARE(seen.join(QLatin1Char(',')), touched);
    }
    // Pages in front, new rows at the end, removals, id replacements and writes
    // by others in any order: every id is found where a plain scan finds it.
    void indexFollowsEveryChange()
    {
        for (quint32 seed : {1u, 2u}) {
            QRandomGenerator rng(seed);
            ArrayDataModel rows;
            MessageRowModel m(&rows, nullptr, nullptr);
            m.setOpenChat(kChat, QStringLiteral("supergroup"));
            qint64 oldest = 100000;
            qint64 newest = 100000;
            qint64 pendingIds = 1000000;
            run(&m, QStringLiteral("message_new id=100000 sender_user_id=1"));
            for (int round = 0; round < 60; ++round) {
                QString steps;
                switch (rng.bounded(5)) {
                case 0:
                    steps = QStringLiteral("begin replace=0");
                    for (qint64 id = oldest - 50; id < oldest; ++id)
                        steps += QStringLiteral("; msg id=%1 sender_user_id=%2")
                                     .arg(id)
                                     .arg(rng.bounded(3));
                    steps += QStringLiteral("; end");
                    oldest -= 50;
                    break;
                case 1:
                    steps = QStringLiteral("new id=%1 sender_user_id=2; new id=%2 outgoing=true "
                                           "sending_state=pending")
                                .arg(++newest)
                                .arg(++pendingIds);
                    break;
                case 2:
                    steps = QStringLiteral("messages_deleted message_ids=");
                    for (int i = 0; i < 5 && m.size() > 0; ++i)
                        steps += QStringLiteral("%1,").arg(m.messageIdAt(rng.bounded(m.size())));
                    break;
                case 3:
                    steps = QStringLiteral("message_send_succeeded old_id=%1 new_id=%2")
                                .arg(pendingIds)
                                .arg(++newest);
                    break;
                default: {
                    rows.insert(0, QVariantMap{{QStringLiteral("id"), QString::number(--oldest)}});
                    const int at = rng.bounded(rows.size());
                    QVariantMap row = rows.value(at);
                    row.insert(QStringLiteral("id"), QString::number(++newest));
                    rows.replace(at, row);
                }
                }
                run(&m, steps);
                for (int i = 0; i < m.size(); ++i) {
                    const qint64 id = m.rowAt(i).value(QStringLiteral("id")).toLongLong();
                    QCOMPARE(m.messageIdAt(i), id);
                    QCOMPARE(m.findMessageRowIndexById(id), i);
                }
                QCOMPARE(m.findMessageRowIndexById(oldest - 1), -1);
            }
        }
    }
    void filePathsAndAvatars()
    {
        QTemporaryDir dir;
        const QString media = dir.filePath(QStringLiteral("photo.jpg"));
        const QString shared = dir.filePath(QStringLiteral("shared.jpg"));
        QVERIFY(test_util::writeFile(media, "x") && test_util::writeFile(shared, "x"));
        ArrayDataModel rows;
        AvatarDownloadQueue avatars(nullptr, nullptr);
        MessageRowModel m(&rows, nullptr, &avatars);
        m.setOpenChat(kChat, QStringLiteral("supergroup"));
        QSignalSpy downloads(&m, &MessageRowModel::mediaDownloadRequested);
        const QString photo = QStringLiteral(
            " sender_user_id=7 sender_photo_small_id=70 media_file_id=40 media_thumb_file_id=41");
        run(&m, "new id=1 media_type=photo" + photo +
                    "; new id=2 media_type=video_note media_file_id=50");
        QVERIFY(avatars.wasRequested(70));
        QCOMPARE(downloads, (QList<QVariantList>{{qint64(50)}}));

        QSignalSpy changed(&rows, &QAbstractItemModel::dataChanged);
        m.setMediaPathForFile(40, media);
        m.setMediaThumbPathForFile(41, QStringLiteral("thumb.jpg"));
        m.setFileSharedPathForFile(40, shared);
        m.setSenderAvatarPathForFile(70, QStringLiteral("avatar.png"));
        m.setSenderAvatarPathForFile(70, QStringLiteral("avatar.png")); // unchanged: no write
        m.touchMessageRowsForMediaFileId(40);
        QCOMPARE(changed.count(), 5);
        // New rows take the cached paths; a missing shared copy is not shown,
        // a deleted file is forgotten.
        QVERIFY(QFile::remove(shared));
        run(&m, "new id=3" + photo);
        QVERIFY(QFile::remove(media));
        run(&m, QStringLiteral("new id=4 media_file_id=40"));
        QStringList got;
        for (qint64 id : {1, 3, 4}) {
            for (const char *key :
                 {"media_path", "media_thumb_path", "file_shared_path", "sender_avatar_path"})
                got << valueOf(m.rowAt(m.findMessageRowIndexById(id)), QLatin1String(key));
        }
        QCOMPARE(got, (QStringList{media, "thumb.jpg", shared, "avatar.png", media, "thumb.jpg",
                                   "-", "avatar.png", "-", "-", "-", "-"}));
    }
};

QTEST_GUILESS_MAIN(TestMessageRowModel)
#include "test_message_row_model.moc"
