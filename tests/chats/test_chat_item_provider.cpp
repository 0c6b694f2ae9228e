#include "chats/ui/chat_item_provider.h"
#include "common/test_util.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"

#include <QImage>
#include <QLabel>
#include <QTemporaryDir>
#include <QtTest>

using namespace test_util;

namespace {

template<typename T = QWidget>
T *child(QWidget *item, const char *name)
{
    return item->findChild<T *>(QLatin1String(name));
}

QString text(QWidget *item, const char *name)
{
    return child<QLabel>(item, name)->text();
}

} // namespace

class TestChatItemProvider : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // row: "|"-separated key=value; "$PHOTO" stands for a real round PNG.
    // expected: "letter;badge;time;preview;tile", the badge empty when hidden,
    // the tile the placeholder's colour (ARGB hex) when no photo is shown.
    void fill_data()
    {
        QTest::addColumn<QString>("row");
        QTest::addColumn<QString>("expected");
        const QString old = QString::number(localSecs(2024, 3, 5));
        auto row = [](const char *name, const QString &r, const char *e) {
            QTest::newRow(name) << r << e;
        };
        row("plain", "id=1|title=alpha|unread_count=3|last_text=see you|last_date=" + old,
            "A;3;5 Mar 2024;see you;ff2b7cff");
        row("blank title", "id=2|title=   ", "?;;;;ff00bfa5");
        row("padded title", "id=3|title=  émile ", "É;;;;ffd81b60");
        row("99 unread", "id=1|title=b|unread_count=99", "B;99;;;ff2b7cff");
        row("100 unread", "id=1|title=b|unread_count=100", "B;99+;;;ff2b7cff");
        row("voice note without text", "id=1|title=e|last_text=|last_content_type=messageVoiceNote",
            "E;;;Voice message;ff2b7cff");
        row("photo", "id=5|title=d|avatar_path=$PHOTO", "D;;;;");
    }
    void fill()
    {
        QFETCH(QString, row);
        QFETCH(QString, expected);
        const QStringList e = expected.split(';');
        QTemporaryDir dir;
        const QString photo = dir.filePath(QStringLiteral("round.png"));
        QImage img(144, 144, QImage::Format_ARGB32);
        img.fill(Qt::red);
        QVERIFY(img.save(photo));
        QVariantMap data = kv(row.replace(QLatin1String("$PHOTO"), photo));
        const bool photoShown = e[4].isEmpty();

        ChatItemProvider provider(dir.filePath(QStringLiteral("ui-cache")));
        provider.setClock(
            [] { return QDateTime(QDate(2026, 3, 15), QTime(12, 0), Qt::LocalTime); });
        std::unique_ptr<QWidget> item(provider.createItem(nullptr, QString()));
        QWidget *it = item.get();
        // The widget is recycled: first filled from another row, with the
        // opposite avatar state and a badge.
        provider.updateItem(nullptr, it, QString(), {0},
                            kv("id=77|title=Other|unread_count=5|last_text=old|avatar_path=" +
                               (photoShown ? QString() : photo)));
        provider.updateItem(nullptr, it, QString(), {1}, data);

        QCOMPARE(text(it, "avatar_letter"), e[0]);
        QCOMPARE(child(it, "avatar_letter")->isHidden(), photoShown);
        QCOMPARE(child(it, "avatar_img")->isHidden(), !photoShown);
        QCOMPARE(child(it, "avatar_img")->property("image_path").toString(),
                 photoShown ? photo : QString());
        auto *avatar = child<QLabel>(it, "avatar");
        QCOMPARE(child(it, "badge")->isHidden(), e[1].isEmpty());
        QCOMPARE(text(it, "badge_num"), e[1]);
        QCOMPARE(text(it, "time"), e[2]);
        QCOMPARE(text(it, "preview"), e[3]);
        // What the box draws under the letter and photo: the tile, or round a
        // photo no longer the tile of the row the widget showed before.
        child(it, "avatar_letter")->hide();
        child(it, "avatar_img")->hide();
        const QImage shown = avatar->grab().toImage();
        QCOMPARE(shown.size(), QSize(144, 144));
        if (photoShown) {
            QVERIFY(shown.pixelColor(72, 72) != placeholder_avatar_color(77, "Other"));
            return;
        }
        QCOMPARE(shown.pixelColor(72, 72).name(QColor::HexArgb), "#" + e[4]);
        // Rounded: the corner is not the tile.
        QVERIFY(shown.pixelColor(0, 0) != shown.pixelColor(72, 72));
    }
    // Inside the list the theme comes from the list's property. The controller's test moves
    // rows under it.
    void insideListView()
    {
        QTemporaryDir dir;
        ArrayDataModel rows;
        rows.append(kv(QStringLiteral("id=20|title=High")));
        ChatItemProvider provider(dir.filePath(QStringLiteral("ui-cache")));
        ListView view;
        view.setDataModel(&rows);
        view.setListItemProvider(&provider);
        view.resize(720, 1280);
        view.show();
        view.layoutNow();
        QVERIFY(view.itemWidget(0));
        const QColor dark =
            child(view.itemWidget(0), "title")->palette().color(QPalette::WindowText);
        view.setProperty("ui_dark_theme", false);
        view.updateVisibleItems();
        view.layoutNow();
        QVERIFY(child(view.itemWidget(0), "title")->palette().color(QPalette::WindowText) != dark);
    }
};

QTEST_MAIN(TestChatItemProvider)
#include "test_chat_item_provider.moc"
