// At a fractional scale factor the round shapes of a message row carry the
// screen's pixel ratio, drawn at it rather than stretched.
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
    void avatarAtThePixelRatio()
    {
        QCOMPARE(qApp->devicePixelRatio(), 1.5);
        QTemporaryDir dir;
        ArrayDataModel model;
        model.append(QVariantMap{{"id", "1"},
                                 {"date", "1700000000"},
                                 {"text", "hi"},
                                 {"sender_user_id", "11"},
                                 {"sender_name", "Ann"},
                                 {"sender_indent", "true"},
                                 {"sender_show", "true"}});
        ListView view;
        MessageItemProvider provider(dir.filePath("ui-cache"));
        view.setListItemProvider(&provider);
        view.setDataModel(&model);
        view.resize(720, 1200);
        view.show();
        view.layoutNow();
        auto *avatar = view.itemWidget(0)->findChild<QLabel *>("msg_avatar_img");
        QCOMPARE(avatar->pixmap(Qt::ReturnByValue).devicePixelRatio(), 1.5);
    }
};

int main(int argc, char *argv[])
{
    qputenv("QT_SCALE_FACTOR", "1.5");
    QApplication app(argc, argv);
    TestSharpPixmaps test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_sharp_pixmaps.moc"
