#include "chats/avatars.h"
#include "chats/chat_list_model.h"
#include "chats/ui/chat_item_provider.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"

#include <QImage>
#include <QLabel>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QDateTime kNow(QDate(2026, 3, 15), QTime(12, 0), Qt::LocalTime);

qint64 localSecs(int y, int m, int d)
{
    return QDateTime(QDate(y, m, d), QTime(8, 0), Qt::LocalTime).toSecsSinceEpoch();
}

template<typename T = QWidget>
T *child(QWidget *item, const char *name)
{
    return item->findChild<T *>(QLatin1String(name));
}

} // namespace

class TestChatItemProvider : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void controlTree();
    void fill_data();
    void fill();
    void tileColour_data();
    void tileColour();
    void insideListView();
};

void TestChatItemProvider::controlTree()
{
    QTemporaryDir dir;
    ChatItemProvider provider(dir.filePath(QStringLiteral("ui-cache")));
    std::unique_ptr<QWidget> item(provider.createItem(nullptr, QString()));
    QVERIFY(item);
    for (const char *name : {"avatar", "avatar_img", "avatar_letter", "title", "time", "preview",
                             "badge", "badge_circle", "badge_num"}) {
        QVERIFY2(child(item.get(), name), name);
    }
    item->resize(720, 189);
    item->show();
    QCOMPARE(child(item.get(), "chat_row")->height(), 188);
    QCOMPARE(child(item.get(), "chat_row")->maximumHeight(), 188);
    QCOMPARE(child(item.get(), "chat_row")->minimumHeight(), 188);
    QCOMPARE(child(item.get(), "avatar")->size(), QSize(144, 144));
    QCOMPARE(child(item.get(), "avatar")->y(), 14);
    QCOMPARE(child(item.get(), "avatar_letter")->size(), QSize(144, 144));
    QCOMPARE(child(item.get(), "badge")->size(), QSize(56, 56));
    QCOMPARE(child(item.get(), "divider")->height(), 1);
    QVERIFY(child(item.get(), "avatar_letter")->font().bold());
    QVERIFY(child(item.get(), "title")->font().bold());
    auto *circle = child<QLabel>(item.get(), "badge_circle");
    QCOMPARE(circle->property("image_path").toString(),
             dir.filePath(QStringLiteral("ui-cache/unread_badge_bg_rr_56_r10_a128.png")));
    QCOMPARE(circle->pixmap(Qt::ReturnByValue).size(), QSize(56, 56));
    QVERIFY(child(item.get(), "badge")->isHidden());
}

void TestChatItemProvider::fill_data()
{
    QTest::addColumn<QVariantMap>("row");
    QTest::addColumn<QString>("letter");
    QTest::addColumn<bool>("photoShown");
    QTest::addColumn<QString>("badge"); // "" = hidden
    QTest::addColumn<QString>("time");
    QTest::addColumn<QString>("preview");

    QTest::newRow("plain") << QVariantMap{{"id", "1"},
                                          {"title", "alpha"},
                                          {"unread_count", "3"},
                                          {"last_date", QString::number(localSecs(2024, 3, 5))},
                                          {"last_text", "see you"}}
                           << "A" << false << "3"
                           << "5 Mar 2024"
                           << "see you";
    QTest::newRow("blank title") << QVariantMap{{"id", "2"}, {"title", "   "}} << "?" << false << ""
                                 << ""
                                 << "";
    QTest::newRow("padded title") << QVariantMap{{"id", "2"}, {"title", "  émile "}} << "É" << false
                                  << ""
                                  << ""
                                  << "";
    QTest::newRow("99 unread") << QVariantMap{{"id", "3"}, {"title", "b"}, {"unread_count", "99"}}
                               << "B" << false << "99"
                               << ""
                               << "";
    QTest::newRow("100 unread") << QVariantMap{{"id", "3"}, {"title", "b"}, {"unread_count", "100"}}
                                << "B" << false << "99+"
                                << ""
                                << "";
    QTest::newRow("no unread") << QVariantMap{{"id", "3"}, {"title", "b"}, {"unread_count", "0"}}
                               << "B" << false << ""
                               << ""
                               << "";
    QTest::newRow("negative unread")
        << QVariantMap{{"id", "3"}, {"title", "b"}, {"unread_count", "-4"}} << "B" << false << ""
        << ""
        << "";
    QTest::newRow("eight days") << QVariantMap{{"id", "4"},
                                               {"title", "c"},
                                               {"last_date",
                                                QString::number(localSecs(2026, 3, 7))}}
                                << "C" << false << ""
                                << "7 Mar"
                                << "";
    QTest::newRow("yesterday") << QVariantMap{{"id", "4"},
                                              {"title", "c"},
                                              {"last_date",
                                               QString::number(localSecs(2026, 3, 14))}}
                               << "C" << false << ""
                               << "Sat"
                               << "";
    QTest::newRow("voice note without text")
        << QVariantMap{{"id", "6"},
                       {"title", "e"},
                       {"last_text", ""},
                       {"last_content_type", "messageVoiceNote"}}
        << "E" << false << ""
        << ""
        << "Voice message";
    QTest::newRow("photo with caption") << QVariantMap{{"id", "6"},
                                                       {"title", "e"},
                                                       {"last_text", "look"},
                                                       {"last_content_type", "messagePhoto"}}
                                        << "E" << false << ""
                                        << ""
                                        << "look";
    QTest::newRow("unknown type without text")
        << QVariantMap{{"id", "6"}, {"title", "e"}, {"last_content_type", "messageDice"}} << "E"
        << false << ""
        << ""
        << "";
    QTest::newRow("photo") << QVariantMap{{"id", "5"}, {"title", "d"}, {"avatar_path", "$PHOTO"}}
                           << "D" << true << ""
                           << ""
                           << "";
}

void TestChatItemProvider::fill()
{
    QFETCH(QVariantMap, row);
    QFETCH(QString, letter);
    QFETCH(bool, photoShown);
    QFETCH(QString, badge);
    QFETCH(QString, time);
    QFETCH(QString, preview);

    QTemporaryDir dir;
    const QString photo = dir.filePath(QStringLiteral("round.png"));
    QImage img(144, 144, QImage::Format_ARGB32);
    img.fill(Qt::red);
    QVERIFY(img.save(photo));
    if (row.value(QStringLiteral("avatar_path")) == QLatin1String("$PHOTO")) {
        row.insert(QStringLiteral("avatar_path"), photo);
    }

    ChatItemProvider provider(dir.filePath(QStringLiteral("ui-cache")));
    provider.setClock([] { return kNow; });
    std::unique_ptr<QWidget> item(provider.createItem(nullptr, QString()));
    // The widget is recycled: first filled from another row, with the
    // opposite avatar state and a badge.
    provider.updateItem(nullptr, item.get(), QString(), {0},
                        QVariantMap{{"id", "77"},
                                    {"title", "Other"},
                                    {"unread_count", "5"},
                                    {"last_text", "old"},
                                    {"avatar_path", photoShown ? QString() : photo}});
    provider.updateItem(nullptr, item.get(), QString(), {1}, row);

    QCOMPARE(child<QLabel>(item.get(), "title")->text(),
             row.value(QStringLiteral("title")).toString());
    QCOMPARE(child<QLabel>(item.get(), "avatar_letter")->text(), letter);
    QCOMPARE(child(item.get(), "avatar_letter")->isHidden(), photoShown);
    QCOMPARE(child(item.get(), "avatar_img")->isHidden(), !photoShown);
    QCOMPARE(child(item.get(), "avatar_img")->property("image_path").toString(),
             photoShown ? photo : QString());
    auto *avatar = child<QLabel>(item.get(), "avatar");
    QCOMPARE(avatar->autoFillBackground(), false);
    QCOMPARE(avatar->pixmap(Qt::ReturnByValue).isNull(), photoShown);
    QCOMPARE(child(item.get(), "badge")->isHidden(), badge.isEmpty());
    QCOMPARE(child<QLabel>(item.get(), "badge_num")->text(), badge);
    QCOMPARE(child<QLabel>(item.get(), "time")->text(), time);
    QCOMPARE(child<QLabel>(item.get(), "preview")->text(), preview);
}

void TestChatItemProvider::tileColour_data()
{
    QTest::addColumn<QString>("id");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("argb");
    QTest::newRow("id 1") << "1"
                          << "x"
                          << "ff2b7cff";
    QTest::newRow("id 2") << "2"
                          << "x"
                          << "ff00bfa5";
    QTest::newRow("id 3") << "3"
                          << "x"
                          << "ffd81b60";
}

void TestChatItemProvider::tileColour()
{
    QFETCH(QString, id);
    QFETCH(QString, title);
    QFETCH(QString, argb);
    QTemporaryDir dir;
    const QString cache = dir.filePath(QStringLiteral("ui-cache"));
    ChatItemProvider provider(cache);
    std::unique_ptr<QWidget> item(provider.createItem(nullptr, QString()));
    provider.updateItem(nullptr, item.get(), QString(), {0},
                        QVariantMap{{"id", id}, {"title", title}});
    auto *avatar = child<QLabel>(item.get(), "avatar");
    const QString tile = cache + QStringLiteral("/bubble_bg_144x144_r24_c%1.png").arg(argb);
    QCOMPARE(avatar->property("background_path").toString(), tile);
    QVERIFY(QFileInfo::exists(tile));
    QCOMPARE(avatar->pixmap(Qt::ReturnByValue).size(), QSize(144, 144));
    QCOMPARE(avatar->pixmap(Qt::ReturnByValue).toImage().pixelColor(72, 72).name(QColor::HexArgb),
             QStringLiteral("#") + argb);
}

void TestChatItemProvider::insideListView()
{
    QTemporaryDir dir;
    ArrayDataModel rows;
    ChatListModel chats(&rows);
    chats.upsertChatRow(QVariantMap{{"id", "10"}, {"title", "Low"}, {"order", "1"}});
    chats.upsertChatRow(QVariantMap{{"id", "20"},
                                    {"title", "High"},
                                    {"order", "9"},
                                    {"unread_count", "2"},
                                    {"last_text", "hello there"}});
    ChatItemProvider provider(dir.filePath(QStringLiteral("ui-cache")));
    ListView view;
    view.setDataModel(&rows);
    view.setListItemProvider(&provider);
    view.resize(720, 1280);
    view.show();
    view.layoutNow();
    QWidget *first = view.itemWidget(0);
    QVERIFY(first);
    QCOMPARE(child<QLabel>(first, "title")->text(), QStringLiteral("High"));
    QCOMPARE(child<QLabel>(first, "badge_num")->text(), QStringLiteral("2"));
    QCOMPARE(first->height(), 189);
    // The row's width is recorded, and the preview leaves room for the badge.
    const int rowWidth = child(first, "chat_row")->property("row_width").toInt();
    QVERIFY(rowWidth > 400);
    QCOMPARE(child(first, "preview")->maximumWidth(), rowWidth - 18 - 144 - 14 - 16 - 56 - 12);
    QWidget *second = view.itemWidget(1);
    QVERIFY(second);
    QCOMPARE(child(second, "preview")->maximumWidth(), rowWidth - 18 - 144 - 14 - 16);

    // The theme comes from the list's property.
    QCOMPARE(child<QLabel>(first, "title")->palette().color(QPalette::WindowText),
             QColor(Qt::white));
    view.setProperty("ui_dark_theme", false);
    view.updateVisibleItems();
    view.layoutNow();
    QCOMPARE(child<QLabel>(view.itemWidget(0), "title")->palette().color(QPalette::WindowText),
             QColor(0x20, 0x20, 0x20));

    // A merge that moves a chat redraws the rows through the provider.
    chats.upsertChatRow(QVariantMap{{"id", "10"}, {"order", "99"}});
    view.layoutNow();
    QCOMPARE(child<QLabel>(view.itemWidget(0), "title")->text(), QStringLiteral("Low"));
    QCOMPARE(child<QLabel>(view.itemWidget(1), "title")->text(), QStringLiteral("High"));
}

QTEST_MAIN(TestChatItemProvider)
#include "test_chat_item_provider.moc"
