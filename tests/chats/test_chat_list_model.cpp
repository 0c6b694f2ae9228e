#include "backend_link/text_cut.h"
#include "chats/avatars.h"
#include "chats/chat_list_model.h"
#include "common/test_util.h"
#include "linear_chat_list.h"
#include "platform/array_data_model.h"

#include <QRandomGenerator>
#include <QtTest>

using namespace test_util;

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
        // Upserts separated by ';'.
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("expected");
        auto row = [](const char *name, const char *steps, const char *e) {
            QTest::newRow(name) << steps << e;
        };
        // The order rule pinned down; how merges, bulk loads, removals and scroll requests keep
        // to it is matchesLinearRule's walk against the plain reference, that an unchanged merge
        // redraws nothing a dispatcher case.
        row("zero orders by date, then id",
            "id=1 last_date=10; id=2 last_date=30; id=3 last_date=10", "2,3,1");
        row("unparsable order and negative order",
            "id=1 order=abc last_date=5; id=2 order=-5; id=3 last_date=4", "1,3,2");
        row("date change under order stays",
            "id=1 order=10 last_date=1; id=2 order=10 last_date=2; id=1 last_date=100", "2,1");
        row("order to zero falls below positives",
            "id=1 order=9 last_date=5; id=2 order=3; id=1 order=0", "2,1");
    }
    void operations()
    {
        QFETCH(QString, steps);
        QFETCH(QString, expected);
        ArrayDataModel rows;
        ChatListModel model(&rows);
        for (const QString &step : steps.split(QLatin1Char(';')))
            model.upsertChatRow(kv(step.trimmed()));
        QCOMPARE(idsOf(model), expected);
    }
    void matchesLinearRule_data()
    {
        QTest::addColumn<quint32>("seed");
        QTest::addColumn<int>("idSpace");
        QTest::addColumn<bool>("withBulk");
        QTest::newRow("crowded ids") << 1u << 12 << false;
        QTest::newRow("wide ids with bulk loads") << 4u << 400 << true;
    }
    void matchesLinearRule()
    {
        QFETCH(quint32, seed);
        QFETCH(int, idSpace);
        QFETCH(bool, withBulk);
        const int steps = 4000;
        QRandomGenerator rng(seed);
        ArrayDataModel rows;
        ChatListModel model(&rows);
        LinearChatList ref;
        int scrolls = 0;
        connect(&model, &ChatListModel::scrollToBeginningRequested, this,
                [&scrolls] { ++scrolls; });
        // Few distinct values so that ties and unchanged merges are common.
        auto some = [&rng](int n) { return QString::number(rng.bounded(n)); };

        for (int step = 0; step < steps; ++step) {
            const int what = rng.bounded(100);
            ref.atBeginning = rng.bounded(4) != 0;
            model.onChatsAtBeginningChanged(ref.atBeginning);
            if (withBulk && what < 2) {
                ref.bulk = !model.isBulkLoading();
                if (ref.bulk) {
                    model.beginBulkLoad();
                    ref.rows.clear();
                } else {
                    model.endBulkLoad();
                    ref.sort();
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
                model.upsertChatRow(row);
                ref.upsert(row);
            }
            if (rows.rows() != ref.rows) {
                QFAIL(qPrintable(
                    QStringLiteral("diverged at step %1: %2").arg(step).arg(idsOf(model))));
            }
        }
        QCOMPARE(scrolls, ref.scrollRequests);
        for (qint64 id = 0; id <= idSpace; ++id)
            QCOMPARE(model.findChatIndexById(id), ref.find(id));
    }
    void previewText()
    {
        // Line breaks become blanks (a CR LF two of them) and count before the cut.
        const QString x238(238, QLatin1Char('x'));
        QCOMPARE(chat_list_preview_text(x238 + "\r\nz"), QString(x238 + "  ..."));
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
};

QTEST_GUILESS_MAIN(TestChatListModel)
#include "test_chat_list_model.moc"
