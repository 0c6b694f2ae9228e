#include "platform/height_index.h"

#include <QRandomGenerator>
#include <QtTest>

// Compares the tree against plain sums after random edits.

class TestHeightIndex : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void matchesLinearSums_data()
    {
        QTest::addColumn<int>("rows");
        QTest::addColumn<quint32>("seed");
        QTest::newRow("one") << 1 << 1u;
        QTest::newRow("odd size") << 1001 << 3u;
    }

    void matchesLinearSums()
    {
        QFETCH(int, rows);
        QFETCH(quint32, seed);
        QRandomGenerator rng(seed);
        QVector<int> ref(rows);
        for (int &h : ref)
            h = int(rng.bounded(0, 200));
        HeightIndex idx;
        idx.assign(ref);
        for (int step = 0; step < 300; ++step) {
            const int op = int(rng.bounded(4));
            if (op == 0 && !ref.isEmpty()) {
                const int r = int(rng.bounded(ref.size()));
                const int h = int(rng.bounded(0, 300));
                ref[r] = h;
                idx.setHeight(r, h);
            } else if (op == 1) {
                const int r = int(rng.bounded(ref.size() + 1));
                const int c = int(rng.bounded(1, 5));
                ref.insert(r, c, 42);
                idx.insert(r, c, 42);
            } else if (op == 2 && ref.size() > 1) {
                const int r = int(rng.bounded(ref.size()));
                ref.remove(r);
                idx.remove(r, 1);
            } else if (op == 3 && ref.size() > 1) {
                const int a = int(rng.bounded(ref.size())), b = int(rng.bounded(ref.size()));
                ref.move(a, b);
                idx.move(a, b);
            }
            QCOMPARE(idx.size(), ref.size());
            qint64 sum = 0;
            for (int r = 0; r < ref.size(); ++r) {
                QCOMPARE(idx.offsetOf(r), sum);
                if (ref[r] > 0) {
                    QCOMPARE(idx.rowAt(sum), r);
                    QCOMPARE(idx.rowAt(sum + ref[r] - 1), r);
                }
                sum += ref[r];
            }
            QCOMPARE(idx.total(), sum);
        }
    }

    void rowAtEdges()
    {
        HeightIndex idx;
        QCOMPARE(idx.rowAt(0), -1);
        idx.assign({10, 0, 20}); // the empty row is never hit
        const QList<QPair<qint64, int>> yToRow{{-5, 0}, {0, 0}, {9, 0}, {10, 2}, {1000, 2}};
        for (const auto &c : yToRow)
            QCOMPARE(idx.rowAt(c.first), c.second);
    }
};

QTEST_APPLESS_MAIN(TestHeightIndex)
#include "test_height_index.moc"
