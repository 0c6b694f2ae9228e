#include "platform/array_data_model.h"

#include <QtTest>

namespace {
QVariantMap row(QChar id)
{
    return {{QStringLiteral("id"), QString(id)}};
}
} // namespace

class TestArrayDataModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // Each operation runs on the model a,b,c,d: the ids and notifications
    // after it. Plain edits: the list view's and the chat list's tests.
    void operations_data()
    {
        QTest::addColumn<QString>("op");
        QTest::addColumn<int>("a");
        QTest::addColumn<QString>("expected"); // ids|notifications
        QTest::newRow("batch append notifies once") << "batch" << 0 << "abcdxyz|ins 4-6;";
        QTest::newRow("empty batch is silent") << "empty batch" << 0 << "abcd|";
        QTest::newRow("insert at size appends") << "insert" << 4 << "abcdx|ins 4-4;";
        QTest::newRow("insert past end") << "insert" << 5 << "abcd|";
        // Replacing a row with its own map still tells views to redraw it.
        QTest::newRow("replace identical") << "touch" << 1 << "abcd|chg 1-1;chg 1-1;";
        QTest::newRow("removeRange clipped") << "removeRange" << 2 << "ab|rem 2-3;";
        QTest::newRow("move up") << "move" << 30 << "dabc|mov 3>0;";
        QTest::newRow("move to last") << "move" << 3 << "bcda|mov 0>4;";
        QTest::newRow("move onto itself") << "move" << 0 << "abcd|";
        QTest::newRow("clear resets once") << "clear" << 0 << "|reset;";
    }

    void operations()
    {
        QFETCH(QString, op);
        QFETCH(int, a);
        QFETCH(QString, expected);
        ArrayDataModel m;
        for (QChar c : QStringLiteral("abcd"))
            m.append(row(c));
        QString got;
        auto range = [&](const char *what) {
            return [&got, what](const QModelIndex &, int first, int last) {
                got += QStringLiteral("%1 %2-%3;").arg(what).arg(first).arg(last);
            };
        };
        connect(&m, &QAbstractItemModel::rowsInserted, this, range("ins"));
        connect(&m, &QAbstractItemModel::rowsRemoved, this, range("rem"));
        connect(&m, &QAbstractItemModel::dataChanged, this,
                [&](const QModelIndex &f, const QModelIndex &l) {
                    got += QStringLiteral("chg %1-%2;").arg(f.row()).arg(l.row());
                });
        connect(&m, &QAbstractItemModel::rowsMoved, this,
                [&](const QModelIndex &, int from, int, const QModelIndex &, int to) {
                    got += QStringLiteral("mov %1>%2;").arg(from).arg(to);
                });
        connect(&m, &QAbstractItemModel::modelReset, this, [&] { got += "reset;"; });

        if (op == "batch")
            m.append(QList<QVariantMap>{row('x'), row('y'), row('z')});
        else if (op == "empty batch")
            m.append(QList<QVariantMap>());
        else if (op == "insert")
            m.insert(a, row('x'));
        else if (op == "touch") {
            m.replace(a, m.value(a));
            m.replace(a, m.value(a));
        } else if (op == "removeRange")
            m.removeRange(a, 10);
        else if (op == "move")
            m.move(a / 10, a % 10); // from, to as two digits
        else if (op == "clear") {
            m.clear();
            m.clear();
        }

        QString gotIds;
        for (int i = 0; i < m.size(); ++i)
            gotIds += m.value(i).value("id").toString();
        QCOMPARE(m.rowCount(), gotIds.size());
        QVERIFY(m.value(-1).isEmpty() && m.value(m.size()).isEmpty());
        QCOMPARE(gotIds + '|' + got, expected);
    }
};

QTEST_GUILESS_MAIN(TestArrayDataModel)
#include "test_array_data_model.moc"
