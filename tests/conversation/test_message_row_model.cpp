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

// A row's value as the checks write it: "-" when absent, reactions as
// "emoji:count:chosen" chips.
QString valueOf(const MessageRowModel &m, qint64 id, const QString &key)
{
    const int index = m.findMessageRowIndexById(id);
    if (index < 0)
        return QStringLiteral("<no row>");
    const QVariantMap row = m.rowAt(index);
    if (!row.contains(key))
        return QStringLiteral("-");
    const QVariant v = row.value(key);
    if (v.type() == QVariant::List) {
        QStringList chips;
        for (const QVariant &c : v.toList()) {
            const QVariantMap chip = c.toMap();
            chips.append(QStringLiteral("%1:%2:%3")
                             .arg(chip.value(QStringLiteral("emoji")).toString())
                             .arg(chip.value(QStringLiteral("count")).toInt())
                             .arg(chip.value(QStringLiteral("chosen")).toBool() ? 1 : 0));
        }
        return chips.join(QLatin1Char(','));
    }
    return v.toString().replace(QLatin1Char(' '), QLatin1Char('~'));
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
        // "ID.key=value" checks, "-" for an absent key.
        QTest::addColumn<QString>("checks");
        auto row = [](const char *name, const char *type, const char *steps, const char *ids,
                      const char *checks) {
            QTest::newRow(name) << type << steps << ids << checks;
        };

        row("new rows append; a known id merges in place", "private",
            "new id=1 text=a date=10; new id=2 text=b; new id=1 text=c", "1,2",
            "1.text=c 1.date=10 2.text=b 1.outgoing=false");
        row("events of another chat change nothing", "private",
            "new id=1 text=a; new chat_id=6 id=2; message_update chat_id=6 id=1 text=x", "1",
            "1.text=a");
        row("send acknowledged, then succeeded in place", "private",
            "new id=1; new id=2 outgoing=true sending_state=pending date=50; new id=3; "
            "message_send_acked id=2; message_send_acked id=2; message_send_succeeded old_id=2 "
            "new_id=20 date=99",
            "1,20,3", "20.date=99 20.sending_state=- 20.send_acked=- 20.outgoing=true");
        row("succeeded with date 0 keeps the date", "private",
            "new id=2 sending_state=pending date=50; message_send_succeeded old_id=2 new_id=21 "
            "date=0",
            "21", "21.date=50");
        row("failed send", "private",
            "new id=2 sending_state=pending; message_send_acked id=2; message_send_failed old_id=2",
            "2", "2.sending_state=failed 2.send_acked=-");
        row("reactions replaced, then removed", "private",
            "new id=1; message_reactions id=1 reactions=A:2:1,B:1:0; new id=2; message_reactions "
            "id=2 reactions=C:1:0; message_reactions id=2",
            "1,2", "1.reactions=A:2:1,B:1:0 2.reactions=-");
        row("edited text reaches the answers", "private",
            "new id=1 text=hello; new id=2 reply_to_message_id=1; message_update id=1 text=bye",
            "1,2", "1.text=bye 2.reply_preview=bye");
        row("one author's run in a supergroup", "supergroup",
            "new id=1 sender_user_id=7; new id=2 sender_user_id=7; new id=3 sender_user_id=7; new "
            "id=4 sender_user_id=8",
            "1,2,3,4",
            "1.sender_show=true 2.sender_show=false 3.sender_show=false 4.sender_show=true "
            "2.sender_indent=true");
        row("an outgoing message breaks the run", "supergroup",
            "new id=1 sender_user_id=7; new id=2 sender_user_id=9 outgoing=true; new id=3 "
            "sender_user_id=7",
            "1,2,3",
            "1.sender_show=true 2.sender_indent=false 2.sender_show=false 3.sender_show=true");
        row("private and secret chats show no sender", "secret",
            "new id=1 sender_user_id=7; new id=2 sender_user_id=7", "1,2",
            "1.sender_indent=false 1.sender_show=false 2.sender_show=false");
        row("type unknown, then known", "",
            "new id=1 sender_user_id=7; new id=2 sender_user_id=7; new id=3 sender_user_id=0; "
            "chattype t=basic_group",
            "1,2,3",
            "1.sender_indent=true 1.sender_show=true 2.sender_show=false 3.sender_indent=false");
        row("older page goes in front, old rows regrouped and answered", "supergroup",
            "new id=10 sender_user_id=7 reply_to_message_id=5; begin replace=0; msg id=4 "
            "sender_user_id=8 text=older; msg id=5 sender_user_id=7 text=old; msg id=6 "
            "sender_user_id=7 reply_to_message_id=4; end",
            "4,5,6,10",
            "10.sender_show=false 10.reply_preview=old 5.sender_show=true 6.sender_show=false "
            "6.reply_preview=older");
        row("a replacing batch drops the rows shown", "private",
            "new id=1; new id=2 text=gone; begin replace=1; msg id=2 text=x; msg id=3 "
            "reply_to_message_id=2; end",
            "2,3", "2.text=x 3.reply_preview=x");
        row("an older page merges a row already shown", "private",
            "new id=5 text=a; begin replace=0; msg id=4 text=z; msg id=5 text=b; end", "4,5",
            "5.text=b");
        row("an empty older page changes nothing", "private", "new id=5; begin replace=0; end", "5",
            "5.text=");
        row("deleting regroups the follower and empties its preview", "supergroup",
            "new id=1 sender_user_id=7 text=a; new id=2 sender_user_id=8; new id=3 "
            "sender_user_id=8 reply_to_message_id=1; messages_deleted message_ids=2,1,99,0",
            "3", "3.sender_show=true 3.reply_preview=");
        row("a missing target fills in when its page arrives", "private",
            "new id=9 reply_to_message_id=3; begin replace=0; msg id=3 media_type=photo; end",
            "3,9", "9.reply_preview=[Photo]");
        row("previews of messages without text", "private",
            "new id=1 text=~~ media_type=photo; new id=2 media_type=file; new id=3 media_type=file "
            "media_name=~a.pdf~; new id=4 text=~a\rb~; new id=5 media_type=video_note; new id=11 "
            "reply_to_message_id=1; new id=12 reply_to_message_id=2; new id=13 "
            "reply_to_message_id=3; new id=14 reply_to_message_id=4; new id=15 "
            "reply_to_message_id=5",
            "1,2,3,4,5,11,12,13,14,15",
            "11.reply_preview=[Photo] 12.reply_preview=[File] 13.reply_preview=[File]~a.pdf "
            "14.reply_preview=a\nb 15.reply_preview=\u2026");
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
        ArrayDataModel rows;
        MessageRowModel m(&rows, nullptr, nullptr);
        m.setOpenChat(kChat, chatType);
        run(&m, steps);
        QCOMPARE(ids(m), expectedIds);
        for (const QString &check : checks.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            const int dot = check.indexOf(QLatin1Char('.'));
            const int eq = check.indexOf(QLatin1Char('='));
            const qint64 id = check.left(dot).toLongLong();
            const QString key = check.mid(dot + 1, eq - dot - 1);
            // Previews of edited targets are rebuilt on the next turn.
            QTRY_COMPARE(valueOf(m, id, key), check.mid(eq + 1));
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
    void indexFollowsEveryChange_data()
    {
        QTest::addColumn<quint32>("seed");
        QTest::newRow("seed 1") << 1u;
        QTest::newRow("seed 2") << 2u;
    }
    // Pages in front, new rows at the end, removals and id replacements in any
    // order: every id is found where a plain scan finds it.
    void indexFollowsEveryChange()
    {
        QFETCH(quint32, seed);
        QRandomGenerator rng(seed);
        ArrayDataModel rows;
        MessageRowModel m(&rows, nullptr, nullptr);
        m.setOpenChat(kChat, QStringLiteral("supergroup"));
        qint64 oldest = 100000;
        qint64 newest = 100000;
        qint64 pendingIds = 1000000;
        run(&m, QStringLiteral("message_new id=100000 sender_user_id=1"));
        for (int round = 0; round < 60; ++round) {
            switch (rng.bounded(4)) {
            case 0: {
                m.beginHistoryBatch(false);
                for (int i = 50; i >= 1; --i) {
                    m.addHistoryMessage(ev(QStringLiteral("message id=%1 sender_user_id=%2")
                                               .arg(oldest - i)
                                               .arg(rng.bounded(3))));
                }
                oldest -= 50;
                QCOMPARE(m.endHistoryBatch(), 50);
                break;
            }
            case 1:
                run(&m, QStringLiteral("message_new id=%1 sender_user_id=2").arg(++newest));
                run(&m, QStringLiteral("message_new id=%1 outgoing=true sending_state=pending")
                            .arg(++pendingIds));
                break;
            case 2: {
                QStringList gone;
                for (int i = 0; i < 5; ++i)
                    gone.append(QString::number(m.messageIdAt(rng.bounded(m.size()))));
                run(&m,
                    QStringLiteral("messages_deleted message_ids=") + gone.join(QLatin1Char(',')));
                break;
            }
            case 3:
                run(&m, QStringLiteral("message_send_succeeded old_id=%1 new_id=%2")
                            .arg(pendingIds)
                            .arg(++newest));
                break;
            }
            for (int i = 0; i < m.size(); ++i) {
                const qint64 id = m.rowAt(i).value(QStringLiteral("id")).toLongLong();
                QCOMPARE(m.messageIdAt(i), id);
                QCOMPARE(m.findMessageRowIndexById(id), i);
            }
            QCOMPARE(m.findMessageRowIndexById(oldest - 1), -1);
        }
    }
    void foreignWritesAreIndexed()
    {
        ArrayDataModel rows;
        MessageRowModel m(&rows, nullptr, nullptr);
        m.setOpenChat(kChat, QStringLiteral("private"));
        run(&m, QStringLiteral("message_new id=1; message_new id=2; message_new id=3"));
        QVariantMap row = rows.value(1);
        row.insert(QStringLiteral("id"), QStringLiteral("22"));
        rows.replace(1, row);
        rows.insert(0, QVariantMap{{QStringLiteral("id"), QStringLiteral("0")}});
        rows.insert(0, QVariantMap{{QStringLiteral("id"), QStringLiteral("-4")}});
        QCOMPARE(m.findMessageRowIndexById(2), -1);
        QCOMPARE(m.findMessageRowIndexById(22), 3);
        QCOMPARE(m.findMessageRowIndexById(-4), 0);
        QCOMPARE(m.findMessageRowIndexById(3), 4);
        run(&m, QStringLiteral("message_send_succeeded old_id=22 new_id=30; messages_deleted "
                               "message_ids=1"));
        QCOMPARE(ids(m), QStringLiteral("-4,0,30,3"));
    }
    void filePathsAndAvatars()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString media = dir.filePath(QStringLiteral("photo.jpg"));
        const QString shared = dir.filePath(QStringLiteral("shared.jpg"));
        for (const QString &p : {media, shared})
            QVERIFY(test_util::writeFile(p, "x"));
        ArrayDataModel rows;
        AvatarDownloadQueue avatars(nullptr, nullptr);
        MessageRowModel m(&rows, nullptr, &avatars);
        m.setOpenChat(kChat, QStringLiteral("supergroup"));
        QSignalSpy downloads(&m, &MessageRowModel::mediaDownloadRequested);
        run(&m, QStringLiteral("message_new id=1 sender_user_id=7 sender_photo_small_id=70 "
                               "media_type=photo media_file_id=40 media_thumb_file_id=41; "
                               "message_new id=2 media_type=video_note media_file_id=50"));
        QVERIFY(avatars.wasRequested(70));
        QCOMPARE(downloads.count(), 1);
        QCOMPARE(downloads.at(0).at(0).toLongLong(), 50);

        QSignalSpy changed(&rows, &QAbstractItemModel::dataChanged);
        m.setMediaPathForFile(40, media);
        m.setMediaThumbPathForFile(41, QStringLiteral("thumb.jpg"));
        m.setFileSharedPathForFile(40, shared);
        m.setSenderAvatarPathForFile(70, QStringLiteral("avatar.png"));
        m.setSenderAvatarPathForFile(70, QStringLiteral("avatar.png")); // unchanged: no write
        QCOMPARE(changed.count(), 4);
        QCOMPARE(valueOf(m, 1, QStringLiteral("media_path")), media);
        QCOMPARE(valueOf(m, 1, QStringLiteral("media_thumb_path")), QStringLiteral("thumb.jpg"));
        QCOMPARE(valueOf(m, 1, QStringLiteral("file_shared_path")), shared);
        QCOMPARE(valueOf(m, 1, QStringLiteral("sender_avatar_path")), QStringLiteral("avatar.png"));
        m.touchMessageRowsForMediaFileId(40);
        QCOMPARE(changed.count(), 5);

        // New rows take the cached paths; a deleted file is forgotten, a missing
        // shared copy is not shown.
        QVERIFY(QFile::remove(shared));
        run(&m, QStringLiteral("message_new id=3 sender_user_id=7 sender_photo_small_id=70 "
                               "media_file_id=40 media_thumb_file_id=41"));
        QCOMPARE(valueOf(m, 3, QStringLiteral("media_path")), media);
        QCOMPARE(valueOf(m, 3, QStringLiteral("file_shared_path")), QStringLiteral("-"));
        QCOMPARE(valueOf(m, 3, QStringLiteral("sender_avatar_path")), QStringLiteral("avatar.png"));
        QVERIFY(QFile::remove(media));
        run(&m, QStringLiteral("message_new id=4 media_file_id=40"));
        QCOMPARE(valueOf(m, 4, QStringLiteral("media_path")), QStringLiteral("-"));
        QCOMPARE(m.mediaPathForFile(40), QString());
    }
    void deletingTheLastMessageUpdatesTheChatRow()
    {
        ArrayDataModel chatRows;
        ChatListModel chats(&chatRows);
        chats.upsertChatRow({{QStringLiteral("id"), QStringLiteral("5")},
                             {QStringLiteral("order"), QStringLiteral("1")},
                             {QStringLiteral("last_message_id"), QStringLiteral("3")},
                             {QStringLiteral("last_text"), QStringLiteral("three")}});
        ArrayDataModel rows;
        MessageRowModel m(&rows, &chats, nullptr);
        m.setOpenChat(kChat, QStringLiteral("private"));
        run(&m, QStringLiteral("message_new id=1 text=one; message_new id=2 text=two~\nlines "
                               "outgoing=true; message_new id=3 text=three"));
        run(&m, QStringLiteral("messages_deleted message_ids=1"));
        QCOMPARE(chats.chatRowById(kChat).value(QStringLiteral("last_text")).toString(),
                 QStringLiteral("three"));
        run(&m, QStringLiteral("messages_deleted message_ids=3"));
        const QVariantMap chat = chats.chatRowById(kChat);
        QCOMPARE(chat.value(QStringLiteral("last_text")).toString(), QStringLiteral("two  lines"));
        QCOMPARE(chat.value(QStringLiteral("last_message_id")).toString(), QStringLiteral("2"));
        QCOMPARE(chat.value(QStringLiteral("last_outgoing")).toString(), QStringLiteral("true"));
    }
};

QTEST_GUILESS_MAIN(TestMessageRowModel)
#include "test_message_row_model.moc"
