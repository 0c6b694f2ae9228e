// At a fractional scale factor the round and rounded shapes of a message
// row carry the screen's pixel ratio, drawn at it rather than stretched.
#include "conversation/ui/message_item_provider.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"

#include <QLabel>
#include <QTemporaryDir>
#include <QtTest>

class TestSharpPixmaps : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void shapesAtThePixelRatio_data();
    void shapesAtThePixelRatio();
};

void TestSharpPixmaps::shapesAtThePixelRatio_data()
{
    QTest::addColumn<QVariantMap>("extra");
    QTest::addColumn<QString>("label");
    QTest::newRow("sender without a photo") << QVariantMap{{"sender_user_id", "11"},
                                                           {"sender_name", "Ann"},
                                                           {"sender_indent", "true"},
                                                           {"sender_show", "true"}}
                                            << "msg_avatar_img";
}

void TestSharpPixmaps::shapesAtThePixelRatio()
{
    QFETCH(QVariantMap, extra);
    QFETCH(QString, label);
    QCOMPARE(qApp->devicePixelRatio(), 1.5);
    QTemporaryDir dir;
    ArrayDataModel model;
    ListView view;
    MessageItemProvider provider(dir.filePath("ui-cache"));
    QVariantMap row{{"id", "1"}, {"date", "1700000000"}, {"text", "hi"}, {"outgoing", "false"}};
    row.insert(extra);
    model.append({row});
    view.resize(720, 1200);
    view.setListItemProvider(&provider);
    view.setDataModel(&model);
    view.show();
    view.layoutNow();
    auto *shape = view.itemWidget(0)->findChild<QLabel *>(label);
    QVERIFY(shape);
    const QPixmap pm = shape->pixmap(Qt::ReturnByValue);
    QCOMPARE(pm.devicePixelRatio(), 1.5);
}

int main(int argc, char *argv[])
{
    qputenv("QT_SCALE_FACTOR", "1.5");
    QApplication app(argc, argv);
    TestSharpPixmaps test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_sharp_pixmaps.moc"
