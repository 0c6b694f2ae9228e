#include "chats/chat_list_model.h"
#include "linear_chat_list.h"
#include "platform/array_data_model.h"

#include <QRandomGenerator>
#include <QSignalSpy>
#include <QtTest>

namespace {

QVariantMap chatRow(const QString &text)
{
    // "id=1 order=5 date=10 title=x unread=3 photo=7"
    QVariantMap row;
    const QStringList parts = text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const QString &part : parts) {
        const int eq = part.indexOf(QLatin1Char('='));
        QString key = part.left(eq);
        const QString value = part.mid(eq + 1);
        if (key == QLatin1String("date")) {
            key = QStringLiteral("last_date");
        } else if (key == QLatin1String("unread")) {
            key = QStringLiteral("unread_count");
        } else if (key == QLatin1String("photo")) {
            key = QStringLiteral("photo_small_id");
        }
        row.insert(key, value);
    }
    return row;
}

QString idsOf(const ChatListModel &m)
{
    QStringList ids;
    for (int i = 0; i < m.size(); ++i) {
        ids.append(m.rowAt(i).value(QStringLiteral("id")).toString());
    }
    return ids.join(QLatin1Char(','));
}

} // namespace

class TestChatListModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void precedes_data();
    void precedes();
    void operations_data();
    void operations();
    void matchesLinearRule_data();
    void matchesLinearRule();
    void unchangedMergeLeavesModelAlone_data();
    void unchangedMergeLeavesModelAlone();
    void scrollToBeginning_data();
    void scrollToBeginning();
    void previewText_data();
    void previewText();
    void avatarPaths();
    void lastMessageTable();
    void loadChats();
    void nullModel();
};

void TestChatListModel::precedes_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<bool>("expected");

    QTest::newRow("greater order first") << "id=1 order=20"
                                         << "id=2 order=10" << true;
    QTest::newRow("smaller order after") << "id=9 order=10"
                                         << "id=2 order=20" << false;
    QTest::newRow("order beats date") << "id=1 order=20 date=1"
                                      << "id=2 order=10 date=99" << true;
    QTest::newRow("equal order: greater id") << "id=5 order=7"
                                             << "id=4 order=7" << true;
    QTest::newRow("equal order: smaller id") << "id=4 order=7"
                                             << "id=5 order=7" << false;
    QTest::newRow("equal order ignores date") << "id=4 order=7 date=99"
                                              << "id=5 order=7 date=1" << false;
    QTest::newRow("positive over zero despite date") << "id=1 order=1 date=1"
                                                     << "id=2 date=1000" << true;
    QTest::newRow("zero below positive") << "id=2 date=1000"
                                         << "id=1 order=1 date=1" << false;
    QTest::newRow("zero orders: newer date") << "id=1 date=30"
                                             << "id=2 date=20" << true;
    QTest::newRow("zero orders: older date") << "id=3 date=10"
                                             << "id=2 date=20" << false;
    QTest::newRow("zero orders equal date: greater id") << "id=3 date=10"
                                                        << "id=2 date=10" << true;
    QTest::newRow("negative date reads 0, id decides") << "id=3 date=-50"
                                                       << "id=2 date=0" << true;
    QTest::newRow("negative date reads 0, smaller id") << "id=1 date=-50"
                                                       << "id=2 date=0" << false;
    QTest::newRow("negative order below zero") << "id=1 order=-5"
                                               << "id=2" << false;
    QTest::newRow("unparsable order reads 0") << "id=1 order=abc date=5"
                                              << "id=2 date=4" << true;
    QTest::newRow("same row does not precede itself") << "id=1 order=3"
                                                      << "id=1 order=3" << false;
}

void TestChatListModel::precedes()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(bool, expected);
    QCOMPARE(ChatListModel::chatRowPrecedes(chatRow(a), chatRow(b)), expected);
}

void TestChatListModel::operations_data()
{
    // Steps separated by ';': "u <row>" upsert, "r <id>" remove, "b" begin
    // bulk load, "e" end it, "s" full sort, "c <ids>" check the order.
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QString>("expected");

    QTest::newRow("insert by order") << "u id=1 order=10; u id=2 order=30; u id=3 order=20"
                                     << "2,3,1";
    QTest::newRow("equal orders by id") << "u id=1 order=5; u id=3 order=5; u id=2 order=5"
                                        << "3,2,1";
    QTest::newRow("zero order after positive") << "u id=1 date=999; u id=2 order=1 date=1"
                                               << "2,1";
    QTest::newRow("zero orders by date") << "u id=1 date=10; u id=2 date=30; u id=3 date=20"
                                         << "2,3,1";
    QTest::newRow("zero orders equal dates by id")
        << "u id=5 date=10; u id=7 date=10; u id=6 date=10"
        << "7,6,5";
    QTest::newRow("negative date like zero") << "u id=1 date=-5; u id=2 date=0; u id=3 date=-9"
                                             << "3,2,1";
    QTest::newRow("merge moves up") << "u id=1 order=10; u id=2 order=20; u id=1 order=30"
                                    << "1,2";
    QTest::newRow("merge moves down") << "u id=1 order=10; u id=2 order=20; u id=3 order=15; "
                                         "u id=2 order=5"
                                      << "3,1,2";
    QTest::newRow("date change under order stays")
        << "u id=1 order=10 date=1; u id=2 order=10 date=2; c 2,1; u id=1 date=100"
        << "2,1";
    QTest::newRow("date change without order moves") << "u id=1 date=1; u id=2 date=2; c 2,1; "
                                                        "u id=1 date=3"
                                                     << "1,2";
    QTest::newRow("new date negative to zero does not move")
        << "u id=3 date=-4; u id=2 date=0; c 3,2; u id=3 date=0"
        << "3,2";
    QTest::newRow("title merge keeps place") << "u id=1 order=2; u id=2 order=1; u id=1 title=x"
                                             << "1,2";
    QTest::newRow("order to zero falls below positives")
        << "u id=1 order=9 date=5; u id=2 order=3; u id=1 order=0"
        << "2,1";
    QTest::newRow("bulk appends then sorts")
        << "b; u id=1 order=10; u id=2 order=30; u id=3 order=20; c 1,2,3; e"
        << "2,3,1";
    QTest::newRow("bulk merges in place")
        << "b; u id=1 order=10; u id=2 order=30; u id=1 order=50; "
           "c 1,2; e"
        << "1,2";
    QTest::newRow("bulk begin empties") << "u id=1 order=1; u id=2 order=2; b; c ; u id=3; e"
                                        << "3";
    QTest::newRow("new chat during bulk appended, sort places it")
        << "b; u id=1 order=10; u id=2 order=5; e; b; u id=1 order=10; u id=2 order=5; "
           "u id=3 order=7; c 1,2,3; e"
        << "1,3,2";
    QTest::newRow("removal during bulk") << "b; u id=1 order=1; u id=2 order=2; u id=3 order=3; "
                                            "r 2; u id=3 order=9; c 1,3; u id=4; c 1,3,4; e"
                                         << "3,1,4";
    QTest::newRow("remove") << "u id=1 order=1; u id=2 order=2; r 1"
                            << "2";
    QTest::newRow("remove unknown leaves model") << "u id=1 order=1; u id=2 order=2; r 99"
                                                 << "2,1";
    QTest::newRow("remove zero id") << "u id=1 order=1; r 0"
                                    << "1";
    QTest::newRow("zero id ignored") << "u id=0 order=5; u order=6"
                                     << "";
    QTest::newRow("sort of a single row") << "u id=4; s"
                                          << "4";
    QTest::newRow("stable full sort after bulk with merges")
        << "b; u id=1 date=5; u id=2 date=5; u id=3 order=1; u id=2 date=6; e"
        << "3,2,1";
}

void TestChatListModel::operations()
{
    QFETCH(QString, steps);
    QFETCH(QString, expected);
    ArrayDataModel rows;
    ChatListModel model(&rows);
    for (const QString &raw : steps.split(QLatin1Char(';'))) {
        const QString step = raw.trimmed();
        const QString arg = step.mid(1).trimmed();
        switch (step.at(0).toLatin1()) {
        case 'u':
            model.upsertChatRow(chatRow(arg));
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
        default:
            QFAIL(qPrintable(QStringLiteral("bad step ") + step));
        }
    }
    QCOMPARE(idsOf(model), expected);
    QCOMPARE(rows.size(), model.size());
    for (int i = 0; i < model.size(); ++i) {
        QCOMPARE(model.findChatIndexById(ChatListModel::chatRowId(model.rowAt(i))), i);
    }
}

void TestChatListModel::matchesLinearRule_data()
{
    QTest::addColumn<quint32>("seed");
    QTest::addColumn<int>("idSpace");
    QTest::addColumn<int>("steps");
    QTest::addColumn<bool>("withBulk");
    QTest::addColumn<bool>("withForeignWrites");

    QTest::newRow("crowded ids") << 1u << 12 << 3000 << false << false;
    QTest::newRow("crowded ids with bulk loads") << 2u << 12 << 3000 << true << false;
    QTest::newRow("wide ids") << 3u << 400 << 4000 << false << false;
    QTest::newRow("wide ids with bulk loads") << 4u << 400 << 4000 << true << false;
    QTest::newRow("many ties") << 5u << 60 << 4000 << true << false;
    QTest::newRow("other writers") << 6u << 40 << 4000 << false << true;
    QTest::newRow("other writers and bulk loads") << 7u << 40 << 4000 << true << true;
}

void TestChatListModel::matchesLinearRule()
{
    QFETCH(quint32, seed);
    QFETCH(int, idSpace);
    QFETCH(int, steps);
    QFETCH(bool, withBulk);
    QFETCH(bool, withForeignWrites);

    QRandomGenerator rng(seed);
    ArrayDataModel rows;
    ChatListModel model(&rows);
    LinearChatList reference;
    int scrolls = 0;
    connect(&model, &ChatListModel::scrollToBeginningRequested, this, [&scrolls] { ++scrolls; });

    for (int step = 0; step < steps; ++step) {
        const int what = rng.bounded(100);
        const bool atBeginning = rng.bounded(4) != 0;
        model.onChatsAtBeginningChanged(atBeginning);
        reference.atBeginning = atBeginning;
        if (withBulk && what < 2) {
            if (model.isBulkLoading()) {
                model.endBulkLoad();
                reference.bulk = false;
                reference.sort();
            } else {
                model.beginBulkLoad();
                reference.bulk = true;
                reference.rows.clear();
            }
        } else if (withForeignWrites && what < 6 && !reference.rows.isEmpty()) {
            // Someone else writes the rows directly.
            const int i = rng.bounded(reference.rows.size());
            switch (rng.bounded(5)) {
            case 0: {
                QVariantMap r = reference.rows.at(i);
                r.insert(QStringLiteral("order"), QString::number(rng.bounded(8) * 100));
                r.insert(QStringLiteral("photo_small_id"), QString::number(rng.bounded(5)));
                rows.replace(i, r);
                reference.rows[i] = r;
                break;
            }
            case 1:
                rows.removeAt(i);
                reference.rows.removeAt(i);
                break;
            case 2: {
                const int to = rng.bounded(reference.rows.size());
                rows.move(i, to);
                reference.rows.move(i, to);
                break;
            }
            case 3: {
                const QVariantMap r{{"id", QString::number(idSpace + 1000 + step)},
                                    {"order", QString::number(rng.bounded(8) * 100)}};
                rows.append(r);
                reference.rows.append(r);
                break;
            }
            default:
                rows.replace(i, reference.rows.at(i)); // a redraw
                break;
            }
        } else if (what < 10) {
            const qint64 id = qint64(rng.bounded(idSpace + 1));
            model.removeChatById(id);
            reference.remove(id);
        } else {
            QVariantMap row;
            row.insert(QStringLiteral("id"), QString::number(rng.bounded(idSpace + 1)));
            // Few distinct values so that ties and unchanged merges are common.
            if (rng.bounded(2)) {
                const int o = rng.bounded(8) - 1;
                row.insert(QStringLiteral("order"), QString::number(o < 0 ? 0 : o * 100));
            }
            if (rng.bounded(2)) {
                row.insert(QStringLiteral("last_date"), QString::number(rng.bounded(7) - 2));
            }
            if (rng.bounded(3) == 0) {
                row.insert(QStringLiteral("unread_count"), QString::number(rng.bounded(3)));
            }
            if (rng.bounded(5) == 0) {
                row.insert(QStringLiteral("photo_small_id"), QString::number(rng.bounded(5)));
            }
            model.upsertChatRow(row);
            reference.upsert(row);
        }
        if (rows.rows() != reference.rows) {
            QFAIL(
                qPrintable(QStringLiteral("diverged at step %1: %2").arg(step).arg(idsOf(model))));
        }
    }
    QCOMPARE(scrolls, reference.scrollRequests);
    for (qint64 id = 0; id <= idSpace + 1000 + steps; ++id) {
        QCOMPARE(model.findChatIndexById(id), reference.find(id));
    }
    for (qint64 photo = 1; photo < 5; ++photo) {
        bool used = false;
        for (const QVariantMap &r : reference.rows) {
            used = used || r.value(QStringLiteral("photo_small_id")).toLongLong() == photo;
        }
        QCOMPARE(model.isAvatarFileIdUsed(photo), used);
    }
}

void TestChatListModel::unchangedMergeLeavesModelAlone_data()
{
    QTest::addColumn<QString>("merge");
    QTest::addColumn<bool>("touched");

    QTest::newRow("same unread count") << "id=1 unread=3" << false;
    QTest::newRow("same order") << "id=1 order=5" << false;
    QTest::newRow("same everything") << "id=1 order=5 unread=3 title=A" << false;
    QTest::newRow("new unread count") << "id=1 unread=4" << true;
    QTest::newRow("new key") << "id=1 muted=true" << true;
    QTest::newRow("new title") << "id=1 title=B" << true;
}

void TestChatListModel::unchangedMergeLeavesModelAlone()
{
    QFETCH(QString, merge);
    QFETCH(bool, touched);
    ArrayDataModel rows;
    ChatListModel model(&rows);
    model.upsertChatRow(chatRow(QStringLiteral("id=1 order=5 unread=3 title=A")));
    model.upsertChatRow(chatRow(QStringLiteral("id=2 order=4")));
    QSignalSpy changed(&rows, &QAbstractItemModel::dataChanged);
    QSignalSpy inserted(&rows, &QAbstractItemModel::rowsInserted);
    QSignalSpy removed(&rows, &QAbstractItemModel::rowsRemoved);
    model.upsertChatRow(chatRow(merge));
    QCOMPARE(changed.count() + inserted.count() + removed.count() > 0, touched);
}

void TestChatListModel::scrollToBeginning_data()
{
    QTest::addColumn<bool>("atBeginning");
    QTest::addColumn<QString>("row");
    QTest::addColumn<bool>("expected");

    QTest::newRow("new top row at beginning") << true << "id=9 order=100" << true;
    QTest::newRow("new top row scrolled away") << false << "id=9 order=100" << false;
    QTest::newRow("new lower row") << true << "id=9 order=1" << false;
    QTest::newRow("moved to top") << true << "id=1 order=100" << true;
    QTest::newRow("stays second") << true << "id=1 order=15" << false;
}

void TestChatListModel::scrollToBeginning()
{
    QFETCH(bool, atBeginning);
    QFETCH(QString, row);
    QFETCH(bool, expected);
    ArrayDataModel rows;
    ChatListModel model(&rows);
    model.upsertChatRow(chatRow(QStringLiteral("id=1 order=10")));
    model.upsertChatRow(chatRow(QStringLiteral("id=2 order=20")));
    model.onChatsAtBeginningChanged(atBeginning);
    QSignalSpy spy(&model, &ChatListModel::scrollToBeginningRequested);
    model.upsertChatRow(chatRow(row));
    QCOMPARE(spy.count(), expected ? 1 : 0);
}

void TestChatListModel::previewText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");

    QTest::newRow("empty") << ""
                           << "";
    QTest::newRow("plain") << "hello"
                           << "hello";
    QTest::newRow("crlf") << "a\r\nb"
                          << "a  b";
    QTest::newRow("lone cr and lf") << "a\rb\nc"
                                    << "a b c";
    QTest::newRow("blanks kept") << "  x  "
                                 << "  x  ";
    QTest::newRow("tab kept") << "a\tb"
                              << "a\tb";
    QTest::newRow("exactly 240") << QString(240, QLatin1Char('x'))
                                 << QString(240, QLatin1Char('x'));
    QTest::newRow("241 cut") << QString(241, QLatin1Char('x'))
                             << QString(240, QLatin1Char('x')) + QStringLiteral("...");
    QTest::newRow("line breaks count before cut")
        << QString(239, QLatin1Char('y')) + QStringLiteral("\n\nz")
        << QString(239, QLatin1Char('y')) + QStringLiteral(" ...");
}

void TestChatListModel::previewText()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(chat_list_preview_text(text), expected);
}

void TestChatListModel::avatarPaths()
{
    ArrayDataModel rows;
    ChatListModel model(&rows);
    model.upsertChatRow(chatRow(QStringLiteral("id=1 order=3 photo=70")));
    model.upsertChatRow(chatRow(QStringLiteral("id=2 order=2 photo=70")));
    model.upsertChatRow(chatRow(QStringLiteral("id=3 order=1 photo=80")));
    QVERIFY(model.isAvatarFileIdUsed(70));
    QVERIFY(model.isAvatarFileIdUsed(80));
    QVERIFY(!model.isAvatarFileIdUsed(90));
    QVERIFY(!model.isAvatarFileIdUsed(0));

    QCOMPARE(model.setAvatarPathForFile(70, QStringLiteral("/x/a.png")), 2);
    QCOMPARE(model.chatRowById(1).value(QStringLiteral("avatar_path")).toString(),
             QStringLiteral("/x/a.png"));
    QCOMPARE(model.chatRowById(2).value(QStringLiteral("avatar_path")).toString(),
             QStringLiteral("/x/a.png"));
    QVERIFY(!model.chatRowById(3).contains(QStringLiteral("avatar_path")));
    // Same path again: nothing to redraw.
    QCOMPARE(model.setAvatarPathForFile(70, QStringLiteral("/x/a.png")), 0);

    // A new photo id replaces the old one in the index; removal forgets it.
    model.upsertChatRow(chatRow(QStringLiteral("id=1 photo=71")));
    model.upsertChatRow(chatRow(QStringLiteral("id=3 order=9")));
    QVERIFY(model.isAvatarFileIdUsed(71));
    QVERIFY(model.isAvatarFileIdUsed(70));
    model.removeChatById(2);
    QVERIFY(!model.isAvatarFileIdUsed(70));
    QVERIFY(model.isAvatarFileIdUsed(80));
    model.beginBulkLoad();
    QVERIFY(!model.isAvatarFileIdUsed(80));
    model.upsertChatRow(chatRow(QStringLiteral("id=3 photo=80")));
    QVERIFY(model.isAvatarFileIdUsed(80));
    QCOMPARE(model.setAvatarPathForFile(80, QStringLiteral("/y.png")), 1);
    model.endBulkLoad();
    QCOMPARE(model.chatRowById(3).value(QStringLiteral("avatar_path")).toString(),
             QStringLiteral("/y.png"));
}

void TestChatListModel::lastMessageTable()
{
    ArrayDataModel rows;
    ChatListModel model(&rows);
    model.upsertChatRow(chatRow(QStringLiteral("id=1 last_message_id=50")));
    QCOMPARE(model.lastMessageIdForChat(1), 50);
    model.upsertChatRow(chatRow(QStringLiteral("id=1 last_message_id=0")));
    QCOMPARE(model.lastMessageIdForChat(1), 50);
    model.upsertChatRow(chatRow(QStringLiteral("id=1 last_message_id=60")));
    QCOMPARE(model.lastMessageIdForChat(1), 60);
    QCOMPARE(model.lastMessageIdForChat(2), 0);
}

void TestChatListModel::loadChats()
{
    ChatListModel model(nullptr);
    QSignalSpy sent(&model, &ChatListModel::sendLineRequested);
    QSignalSpy logged(&model, &ChatListModel::logLine);
    model.onLoadChats();
    QCOMPARE(sent.count(), 1);
    QCOMPARE(sent.at(0).at(0).toString(), QStringLiteral("chats 60"));
    QCOMPARE(logged.at(0).at(0).toString(), QStringLiteral("ui: load chats\n"));
}

void TestChatListModel::nullModel()
{
    ChatListModel model(nullptr);
    model.upsertChatRow(chatRow(QStringLiteral("id=1 order=1")));
    model.removeChatById(1);
    model.sortChatsModelByOrder();
    QCOMPARE(model.size(), 0);
    QCOMPARE(model.findChatIndexById(1), -1);
}

QTEST_GUILESS_MAIN(TestChatListModel)
#include "test_chat_list_model.moc"
