#include "backend_link/text_cut.h"
#include "chats/avatars.h"
#include "chats/chat_list_model.h"
#include "common/test_util.h"

using namespace test_util;
#include "linear_chat_list.h"
#include "platform/array_data_model.h"

#include <QRandomGenerator>
#include <QSignalSpy>
#include <QtTest>

namespace {

QString idsOf(const ChatListModel &m)
{
    QStringList ids;
    for (int i = 0; i < m.size(); ++i)
        ids.append(m.rowAt(i).value(QStringLiteral("id")).toString());
    return ids.join(QLatin1Char(','));
}

} // namespace

class TestChatListModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void operations_data()
    {
        // Steps separated by ';': "u <row>" upsert, "r <id>" remove, "b" begin
        // bulk load, "e" end it, "s" full sort, "c <ids>" check the order,
        // "t <0|1>" whether the model's rows were touched since the last "t",
        // "a <0|1>" list at its beginning, "S <n>" scroll requests so far.
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("expected");
        auto row = [](const char *name, const char *steps, const char *e) {
            QTest::newRow(name) << steps << e;
        };
        // The order rule pinned down; how merges, bulk loads, removals and scroll requests keep
        // to it is matchesLinearRule's walk against the plain reference.
        row("zero orders by date, then id",
            "u id=1 last_date=10; u id=2 last_date=30; u id=3 last_date=10", "2,3,1");
        row("unparsable order and negative order",
            "u id=1 order=abc last_date=5; u id=2 order=-5; u id=3 last_date=4", "1,3,2");
        row("date change under order stays",
            "u id=1 order=10 last_date=1; u id=2 order=10 last_date=2; u id=1 last_date=100",
            "2,1");
        row("order to zero falls below positives",
            "u id=1 order=9 last_date=5; u id=2 order=3; u id=1 order=0", "2,1");
        row("unchanged merge leaves rows alone",
            "u id=1 order=5 unread_count=3 title=A; u id=2 order=4; t 1; u id=1 unread_count=3; "
            "t 0; u id=1 order=5 title=A; t 0; u id=1 unread_count=4; t 1; u id=1 muted=true; t 1",
            "1,2");
        row("remove; unknown and zero ids ignored",
            "u id=1 order=1; u id=2 order=2; r 1; r 99; r 0; u id=0 order=5; u order=6", "2");
        row("stable full sort after bulk with merges",
            "b; u id=1 last_date=5; u id=2 last_date=5; u id=3 order=1; u id=2 last_date=6; e; s",
            "3,2,1");
    }
    void operations()
    {
        QFETCH(QString, steps);
        QFETCH(QString, expected);
        ArrayDataModel rows;
        ChatListModel model(&rows);
        QSignalSpy scrolls(&model, &ChatListModel::scrollToBeginningRequested);
        int touched = 0;
        auto touch = [&touched] { ++touched; };
        connect(&rows, &QAbstractItemModel::dataChanged, this, touch);
        connect(&rows, &QAbstractItemModel::rowsInserted, this, touch);
        connect(&rows, &QAbstractItemModel::rowsRemoved, this, touch);
        for (const QString &raw : steps.split(QLatin1Char(';'))) {
            const QString step = raw.trimmed();
            const QString arg = step.mid(1).trimmed();
            switch (step.at(0).toLatin1()) {
            case 'u':
                model.upsertChatRow(kv(arg));
                break;
            case 'r':
                model.removeChatById(arg.toLongLong());
                break;
            case 'b':
                model.beginBulkLoad();
                break;
            case 'e':
                model.endBulkLoad();
                break;
            case 's':
                model.sortChatsModelByOrder();
                break;
            case 'c':
                QCOMPARE(idsOf(model), arg);
                break;
            case 't':
                QVERIFY2((touched > 0) == (arg == QLatin1String("1")), qPrintable(step));
                touched = 0;
                break;
            case 'a':
                model.onChatsAtBeginningChanged(arg == QLatin1String("1"));
                break;
            case 'S':
                QCOMPARE(scrolls.count(), arg.toInt());
                break;
            default:
                QFAIL(qPrintable(QStringLiteral("bad step ") + step));
            }
        }
        QCOMPARE(idsOf(model), expected);
        QCOMPARE(rows.size(), model.size());
        // The order is the ordering rule's, under which no row precedes itself.
        for (int i = 0; i < model.size(); ++i) {
            QCOMPARE(model.findChatIndexById(ChatListModel::chatRowId(model.rowAt(i))), i);
            QVERIFY(!ChatListModel::chatRowPrecedes(model.rowAt(i), model.rowAt(i)));
            QVERIFY(i == 0 || ChatListModel::chatRowPrecedes(model.rowAt(i - 1), model.rowAt(i)));
        }
    }
    void matchesLinearRule_data()
    {
        QTest::addColumn<quint32>("seed");
        QTest::addColumn<int>("idSpace");
        QTest::addColumn<bool>("withBulk");
        QTest::addColumn<bool>("withForeignWrites");
        QTest::newRow("crowded ids") << 1u << 12 << false << false;
        QTest::newRow("wide ids with bulk loads") << 4u << 400 << true << false;
        QTest::newRow("other writers and bulk loads") << 7u << 40 << true << true;
    }
    void matchesLinearRule()
    {
        QFETCH(quint32, seed);
        QFETCH(int, idSpace);
        QFETCH(bool, withBulk);
        QFETCH(bool, withForeignWrites);
        const int steps = 4000;
        QRandomGenerator rng(seed);
        ArrayDataModel rows;
        ChatListModel model(&rows);
        LinearChatList ref;
        int scrolls = 0;
        connect(&model, &ChatListModel::scrollToBeginningRequested, this,
                [&scrolls] { ++scrolls; });
        // Few distinct values so that ties and unchanged merges are common.
        auto some = [&rng](int n, int scale = 1) {
            return QString::number(rng.bounded(n) * scale);
        };

        for (int step = 0; step < steps; ++step) {
            const int what = rng.bounded(100);
            ref.atBeginning = rng.bounded(4) != 0;
            model.onChatsAtBeginningChanged(ref.atBeginning);
            const int i = ref.rows.isEmpty() ? 0 : rng.bounded(ref.rows.size());
            if (withBulk && what < 2) {
                ref.bulk = !model.isBulkLoading();
                if (ref.bulk) {
                    model.beginBulkLoad();
                    ref.rows.clear();
                } else {
                    model.endBulkLoad();
                    ref.sort();
                }
            } else if (withForeignWrites && what < 6 && !ref.rows.isEmpty()) {
                // Someone else writes the rows directly.
                const int kind = rng.bounded(5);
                if (kind == 0) {
                    ref.rows[i].insert(QStringLiteral("order"), some(8, 100));
                    ref.rows[i].insert(QStringLiteral("photo_small_id"), some(5));
                    rows.replace(i, ref.rows.at(i));
                } else if (kind == 1) {
                    rows.removeAt(i);
                    ref.rows.removeAt(i);
                } else if (kind == 2) {
                    const int to = rng.bounded(ref.rows.size());
                    rows.move(i, to);
                    ref.rows.move(i, to);
                } else if (kind == 3) {
                    const QVariantMap r{{"id", QString::number(idSpace + 1000 + step)},
                                        {"order", some(8, 100)}};
                    rows.append(r);
                    ref.rows.append(r);
                } else {
                    rows.replace(i, ref.rows.at(i)); // a redraw
                }
            } else if (what < 10) {
                const qint64 id = qint64(rng.bounded(idSpace + 1));
                model.removeChatById(id);
                ref.remove(id);
            } else {
                QVariantMap row{{"id", some(idSpace + 1)}};
                if (rng.bounded(2)) {
                    row.insert(QStringLiteral("order"),
                               QString::number(qMax(0, rng.bounded(8) - 1) * 100));
                }
                if (rng.bounded(2))
                    row.insert(QStringLiteral("last_date"), QString::number(rng.bounded(7) - 2));
                if (rng.bounded(3) == 0)
                    row.insert(QStringLiteral("unread_count"), some(3));
                if (rng.bounded(5) == 0)
                    row.insert(QStringLiteral("photo_small_id"), some(5));
                model.upsertChatRow(row);
                ref.upsert(row);
            }
            if (rows.rows() != ref.rows) {
                QFAIL(qPrintable(
                    QStringLiteral("diverged at step %1: %2").arg(step).arg(idsOf(model))));
            }
        }
        QCOMPARE(scrolls, ref.scrollRequests);
        for (qint64 id = 0; id <= idSpace + 1000 + steps; ++id)
            QCOMPARE(model.findChatIndexById(id), ref.find(id));
        for (qint64 photo = 1; photo < 5; ++photo) {
            bool used = false;
            for (const QVariantMap &r : ref.rows)
                used = used || r.value(QStringLiteral("photo_small_id")).toLongLong() == photo;
            QCOMPARE(model.isAvatarFileIdUsed(photo), used);
        }
    }
    void previewText()
    {
        const QString x239(239, QLatin1Char('x'));
        QCOMPARE(chat_list_preview_text("  x\t "), QStringLiteral("  x\t "));
        QCOMPARE(chat_list_preview_text("a\r\nb\rc\nd"), QStringLiteral("a  b c d"));
        // Line breaks count before the cut.
        QCOMPARE(chat_list_preview_text(x239 + "\n\nz"), QString(x239 + " ..."));
    }
    void textCuts_data()
    {
        // cut3: the longest start of whole clusters with at most three code points; the preview of
        // the text after 237 other characters keeps the same.
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("cut3");
        QTest::addColumn<QString>("initial");
        const auto row = [](const char *name, const char *text, const char *cut3,
                            const char *initial) {
            QTest::newRow(name) << QString::fromUtf8(text) << QString::fromUtf8(cut3)
                                << QString::fromUtf8(initial);
        };
        row("latin", "zoë z", "zoë", "Z");
        row("combining acute", "e\u0301cole", "e\u0301c", "E\u0301");
        row("flags", "🇩🇪🇫🇷 x", "🇩🇪", "🇩🇪");
        row("family longer than the limit", "👨‍👩‍👧 Family", "", "👨‍👩‍👧");
        row("hebrew after blanks", "  שלום", "  ש", "ש");
        row("blank title, 240 kept", "   ", "   ", "?");
        row("short", "ab", "ab", "A");
    }
    void textCuts()
    {
        QFETCH(QString, text);
        QFETCH(QString, cut3);
        QFETCH(QString, initial);
        QCOMPARE(left_graphemes(text, 3), cut3);
        QCOMPARE(avatar_initial(text), initial);
        const QString pad(237, QLatin1Char('x'));
        const int n = code_point_count(text);
        QCOMPARE(chat_list_preview_text(pad + text),
                 n > 3 ? QString(pad + cut3 + "...") : QString(pad + text));
        // Plain cuts never leave half a pair, and the two ends add up to the whole.
        for (int i = 0; i <= n; ++i) {
            const QString head = left_code_points(text, i);
            QCOMPARE(code_point_count(head), i);
            QCOMPARE(head + right_code_points(text, n - i), text);
        }
    }
    void avatarPathsAndLastMessage()
    {
        ArrayDataModel rows;
        ChatListModel model(&rows);
        for (const char *r : {"id=1 order=3 photo_small_id=70", "id=2 order=2 photo_small_id=70",
                              "id=3 order=1 photo_small_id=80"})
            model.upsertChatRow(kv(QLatin1String(r)));
        auto avatar = [&model](qint64 id) {
            return model.chatRowById(id).value(QStringLiteral("avatar_path"), "-").toString();
        };
        QCOMPARE(model.setAvatarPathForFile(70, QStringLiteral("/x/a.png")), 2);
        QCOMPARE(avatar(1) + avatar(2) + avatar(3), QStringLiteral("/x/a.png/x/a.png-"));
        // Same path again: nothing to redraw.
        QCOMPARE(model.setAvatarPathForFile(70, QStringLiteral("/x/a.png")), 0);

        // Which photo ids are in use: matchesLinearRule. A row merged during a bulk load
        // takes its path.
        model.beginBulkLoad();
        model.upsertChatRow(kv(QStringLiteral("id=3 photo_small_id=80 last_message_id=50")));
        QCOMPARE(model.setAvatarPathForFile(80, QStringLiteral("/y.png")), 1);
        model.endBulkLoad();
        QCOMPARE(avatar(3), QStringLiteral("/y.png"));

        // The last message id only moves on with a real id.
        QCOMPARE(model.lastMessageIdForChat(3), 50);
        model.upsertChatRow(kv(QStringLiteral("id=3 last_message_id=0")));
        QCOMPARE(model.lastMessageIdForChat(3), 50);
        model.upsertChatRow(kv(QStringLiteral("id=3 last_message_id=60")));
        QCOMPARE(model.lastMessageIdForChat(3), 60);
        QCOMPARE(model.lastMessageIdForChat(2), 0);
    }
};

QTEST_GUILESS_MAIN(TestChatListModel)
#include "test_chat_list_model.moc"
