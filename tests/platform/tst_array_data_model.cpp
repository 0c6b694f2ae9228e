#include "platform/array_data_model.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

QVariantMap row(const QString &id)
{
    return {{QStringLiteral("id"), id}};
}

QStringList ids(const ArrayDataModel &m)
{
    QStringList out;
    for (int i = 0; i < m.size(); ++i)
        out << m.value(i).value(QStringLiteral("id")).toString();
    return out;
}

ArrayDataModel *filled(const QStringList &initial, QObject *parent)
{
    auto *m = new ArrayDataModel(parent);
    for (const QString &id : initial)
        m->append(row(id));
    return m;
}

} // namespace

class TestArrayDataModel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void operations_data();
    void operations();
    void bulkAppendNotifiesOnce();
    void replaceWithSameMapStillNotifies();
    void dataRoles();
    void outOfRangeReadsAreEmpty_data();
    void outOfRangeReadsAreEmpty();
    void moveKeepsOtherRowsAndNotifies_data();
    void moveKeepsOtherRowsAndNotifies();
    void clearResets();
};

// Each operation is applied to the model a,b,c,d; the resulting ids and the
// number of insert/remove/change notifications are checked.
void TestArrayDataModel::operations_data()
{
    QTest::addColumn<QString>("op");
    QTest::addColumn<int>("index");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<int>("inserts");
    QTest::addColumn<int>("removes");
    QTest::addColumn<int>("changes");

    const QStringList abcd = {"a", "b", "c", "d"};
    QTest::newRow("append") << "append" << -1 << QStringList{"a", "b", "c", "d", "x"} << 1 << 0
                            << 0;
    QTest::newRow("insert front") << "insert" << 0 << QStringList{"x", "a", "b", "c", "d"} << 1 << 0
                                  << 0;
    QTest::newRow("insert middle")
        << "insert" << 2 << QStringList{"a", "b", "x", "c", "d"} << 1 << 0 << 0;
    QTest::newRow("insert at size appends")
        << "insert" << 4 << QStringList{"a", "b", "c", "d", "x"} << 1 << 0 << 0;
    QTest::newRow("insert past end ignored") << "insert" << 5 << abcd << 0 << 0 << 0;
    QTest::newRow("insert negative ignored") << "insert" << -1 << abcd << 0 << 0 << 0;
    QTest::newRow("replace") << "replace" << 1 << QStringList{"a", "x", "c", "d"} << 0 << 0 << 1;
    QTest::newRow("replace past end ignored") << "replace" << 4 << abcd << 0 << 0 << 0;
    QTest::newRow("removeAt first") << "removeAt" << 0 << QStringList{"b", "c", "d"} << 0 << 1 << 0;
    QTest::newRow("removeAt last") << "removeAt" << 3 << QStringList{"a", "b", "c"} << 0 << 1 << 0;
    QTest::newRow("removeAt past end ignored") << "removeAt" << 4 << abcd << 0 << 0 << 0;
    QTest::newRow("removeAt negative ignored") << "removeAt" << -1 << abcd << 0 << 0 << 0;
    QTest::newRow("removeRange clipped")
        << "removeRange" << 2 << QStringList{"a", "b"} << 0 << 1 << 0;
}

void TestArrayDataModel::operations()
{
    QFETCH(QString, op);
    QFETCH(int, index);
    QFETCH(QStringList, expected);
    QFETCH(int, inserts);
    QFETCH(int, removes);
    QFETCH(int, changes);

    ArrayDataModel *m = filled({"a", "b", "c", "d"}, this);
    QSignalSpy ins(m, &QAbstractItemModel::rowsInserted);
    QSignalSpy rem(m, &QAbstractItemModel::rowsRemoved);
    QSignalSpy chg(m, &QAbstractItemModel::dataChanged);

    if (op == "append")
        m->append(row("x"));
    else if (op == "insert")
        m->insert(index, row("x"));
    else if (op == "replace")
        m->replace(index, row("x"));
    else if (op == "removeAt")
        m->removeAt(index);
    else if (op == "removeRange")
        m->removeRange(index, 10);

    QCOMPARE(ids(*m), expected);
    QCOMPARE(m->size(), expected.size());
    QCOMPARE(m->rowCount(), expected.size());
    QCOMPARE(ins.count(), inserts);
    QCOMPARE(rem.count(), removes);
    QCOMPARE(chg.count(), changes);
    if (changes == 1) {
        QCOMPARE(chg.at(0).at(0).toModelIndex().row(), index);
        QCOMPARE(chg.at(0).at(1).toModelIndex().row(), index);
    }
    delete m;
}

void TestArrayDataModel::bulkAppendNotifiesOnce()
{
    ArrayDataModel m;
    m.append(row("a"));
    QSignalSpy ins(&m, &QAbstractItemModel::rowsInserted);
    QList<QVariantMap> batch;
    for (int i = 0; i < 500; ++i)
        batch << row(QString::number(i));
    m.append(batch);
    QCOMPARE(ins.count(), 1);
    QCOMPARE(ins.at(0).at(1).toInt(), 1);
    QCOMPARE(ins.at(0).at(2).toInt(), 500);
    QCOMPARE(m.size(), 501);
    QCOMPARE(m.value(500).value("id").toString(), QStringLiteral("499"));

    m.append(QList<QVariantMap>());
    QCOMPARE(ins.count(), 1);
}

void TestArrayDataModel::replaceWithSameMapStillNotifies()
{
    ArrayDataModel m;
    m.append(row("a"));
    m.append(row("b"));
    QSignalSpy chg(&m, &QAbstractItemModel::dataChanged);
    m.replace(1, m.value(1));
    m.replace(1, m.value(1));
    QCOMPARE(chg.count(), 2);
    QCOMPARE(chg.at(1).at(0).toModelIndex().row(), 1);
}

void TestArrayDataModel::dataRoles()
{
    ArrayDataModel m;
    QVariantMap r{{"id", "7"}, {"title", "Seven"}};
    m.append(r);
    const QModelIndex i = m.index(0, 0);
    QCOMPARE(m.data(i, Qt::UserRole).toMap(), r);
    QCOMPARE(m.data(i, Qt::DisplayRole).toMap(), r);
    QVERIFY(!m.data(i, Qt::DecorationRole).isValid());
    QVERIFY(!m.data(m.index(1, 0), Qt::UserRole).isValid());
}

void TestArrayDataModel::outOfRangeReadsAreEmpty_data()
{
    QTest::addColumn<int>("index");
    QTest::newRow("negative") << -1;
    QTest::newRow("size") << 2;
    QTest::newRow("far") << 1000000;
}

void TestArrayDataModel::outOfRangeReadsAreEmpty()
{
    QFETCH(int, index);
    ArrayDataModel m;
    m.append(row("a"));
    m.append(row("b"));
    QVERIFY(m.value(index).isEmpty());
}

void TestArrayDataModel::moveKeepsOtherRowsAndNotifies_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<int>("moves");
    QTest::newRow("down") << 0 << 2 << QStringList{"b", "c", "a", "d"} << 1;
    QTest::newRow("up") << 3 << 0 << QStringList{"d", "a", "b", "c"} << 1;
    QTest::newRow("to last") << 1 << 3 << QStringList{"a", "c", "d", "b"} << 1;
    QTest::newRow("same") << 2 << 2 << QStringList{"a", "b", "c", "d"} << 0;
    QTest::newRow("out of range") << 2 << 4 << QStringList{"a", "b", "c", "d"} << 0;
}

void TestArrayDataModel::moveKeepsOtherRowsAndNotifies()
{
    QFETCH(int, from);
    QFETCH(int, to);
    QFETCH(QStringList, expected);
    QFETCH(int, moves);
    ArrayDataModel *m = filled({"a", "b", "c", "d"}, this);
    QSignalSpy mv(m, &QAbstractItemModel::rowsMoved);
    m->move(from, to);
    QCOMPARE(ids(*m), expected);
    QCOMPARE(mv.count(), moves);
    delete m;
}

void TestArrayDataModel::clearResets()
{
    ArrayDataModel m;
    m.append(row("a"));
    QSignalSpy reset(&m, &QAbstractItemModel::modelReset);
    m.clear();
    QCOMPARE(m.size(), 0);
    QCOMPARE(reset.count(), 1);
    m.clear();
    QCOMPARE(reset.count(), 1);
}

QTEST_GUILESS_MAIN(TestArrayDataModel)
#include "tst_array_data_model.moc"
