#include "chats/avatars.h"
#include "shell/osicons.h"
#include "shell/theme.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"

#include <QAbstractButton>
#include <QApplication>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QToolButton>
#include <QtTest>

Q_DECLARE_METATYPE(ShellScreens::Screen)

class TestScreens : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void texts_data();
    void texts();
    void hints_data();
    void hints();
    void iconButtons_data();
    void iconButtons();
    void initialVisibility();
    void navigation_data();
    void navigation();
    void themeRecolours_data();
    void themeRecolours();
    void authorisedSwapsFormForList();
    void sizesFollowScale();
    void photoViewerShowsFile();
    void menuMeHeader_data();
    void menuMeHeader();
};

void TestScreens::initTestCase()
{
    init_osicons();
}

static QString textOf(QObject *o)
{
    if (auto *l = qobject_cast<QLabel *>(o))
        return l->text();
    if (auto *b = qobject_cast<QAbstractButton *>(o))
        return b->text();
    return QStringLiteral("<not a text control>");
}

void TestScreens::texts_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("text");
    const QList<QPair<const char *, const char *>> rows = {
        {"status_label", "Starting…"},
        {"theme_button", "Theme: Dark"},
        {"send_phone_button", "Send phone"},
        {"send_code_button", "Send code"},
        {"resend_code_button", "Resend code"},
        {"send_password_button", "Send password"},
        {"main_title", "Vexa"},
        {"chat_title", "Chat"},
        {"selection_count", "0 selected"},
        {"info_title", "Info"},
        {"info_members_name", "Members"},
        {"info_link_name", "Link"},
        {"info_notifications_name", "Notifications"},
        {"info_id_name", "ID"},
        {"info_clear_history_button", "Clear history"},
        {"info_join_button", "Join"},
        {"info_leave_button", "Leave"},
        {"info_delete_chat_button", "Delete chat"},
        {"menu_title", "Menu"},
        {"check_updates_button", "Check updates"},
        {"files_cache_button", "Files cache"},
        {"recalculate_size_button", "Recalculate size"},
        {"clear_cache_button", "Clear cache"},
        {"photo_viewer_title", "Photo"},
        {"video_viewer_title", "Video"},
        {"files_cache_title", "Files cache"},
    };
    for (const auto &r : rows)
        QTest::newRow(r.first) << QString::fromLatin1(r.first) << QString::fromUtf8(r.second);
}

void TestScreens::texts()
{
    QFETCH(QString, name);
    QFETCH(QString, text);
    ShellScreens screens(true, 1.0f);
    QObject *o = screens.findChild<QObject *>(name);
    QVERIFY2(o, qPrintable(name));
    QCOMPARE(textOf(o), text);
}

void TestScreens::hints_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("hint");
    QTest::addColumn<bool>("masked");
    QTest::newRow("phone") << "phone_field"
                           << "Phone (+E.164)" << false;
    QTest::newRow("code") << "code_field"
                          << "Code" << false;
    QTest::newRow("password") << "password_field"
                              << "2FA password" << true;
}

void TestScreens::hints()
{
    QFETCH(QString, name);
    QFETCH(QString, hint);
    QFETCH(bool, masked);
    ShellScreens screens(true, 1.0f);
    auto *f = screens.findChild<QLineEdit *>(name);
    QVERIFY(f);
    QCOMPARE(f->placeholderText(), hint);
    QVERIFY(f->text().isEmpty());
    QCOMPARE(f->echoMode() == QLineEdit::Password, masked);
}

void TestScreens::iconButtons_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("icon");
    QTest::newRow("menu") << "menu_button"
                          << "menu.png";
    QTest::newRow("search") << "search_button"
                            << "icon_search.png";
    QTest::newRow("attach") << "attach_button"
                            << "ic_attach.png";
    QTest::newRow("action") << "composer_action_button"
                            << "ic_microphone_unmute.png";
    QTest::newRow("reply") << "selection_reply_button"
                           << "ic_reply.png";
    QTest::newRow("forward") << "selection_forward_button"
                             << "ic_forward.png";
    QTest::newRow("delete") << "selection_delete_button"
                            << "ic_delete.png";
    QTest::newRow("to bottom") << "to_bottom_button"
                               << "ic_to_bottom.png";
}

void TestScreens::iconButtons()
{
    QFETCH(QString, name);
    QFETCH(QString, icon);
    ShellScreens screens(true, 1.0f);
    auto *b = screens.findChild<QToolButton *>(name);
    QVERIFY2(b, qPrintable(name));
    QCOMPARE(b->property("icon_file").toString(), icon);
    // The glyph really comes from the compiled-in resource and is drawn.
    const QImage img(osicon_path(icon));
    QVERIFY2(!img.isNull(), qPrintable(osicon_path(icon)));
    QVERIFY(!b->icon().isNull());
    const QImage rendered = b->icon().pixmap(48, 48).toImage();
    int inked = 0;
    for (int y = 0; y < rendered.height(); ++y)
        for (int x = 0; x < rendered.width(); ++x)
            inked += qAlpha(rendered.pixel(x, y)) > 128 ? 1 : 0;
    QVERIFY2(inked > 40, qPrintable(QStringLiteral("%1 opaque pixels").arg(inked)));
}

void TestScreens::initialVisibility()
{
    ShellScreens screens(true, 1.0f);
    screens.resize(720, 1280);
    screens.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screens));
    QCOMPARE(screens.currentScreen(), ShellScreens::Screen::Main);
    QVERIFY(screens.logView()->isHidden());
    QVERIFY(!screens.isLogViewVisible());
    QVERIFY(screens.mainScreen()->signInForm()->isVisible());
    QVERIFY(!screens.mainScreen()->chatListHost()->isVisible());
    ConversationScreen *c = screens.conversationScreen();
    for (QWidget *w : {c->selectionBar(), c->replyBar(), c->editBar(), c->recordPanel(),
                       static_cast<QWidget *>(c->toBottomButton())})
        QVERIFY2(w->isHidden(), qPrintable(w->objectName()));
    screens.setLogViewVisible(true);
    QVERIFY(screens.logView()->isVisible());
    QVERIFY(screens.menuScreen()->logToggleButton()->isChecked());
}

void TestScreens::navigation_data()
{
    // A path of button presses (object names) and the screen after each.
    QTest::addColumn<QStringList>("presses");
    QTest::addColumn<QList<ShellScreens::Screen>>("after");
    using S = ShellScreens::Screen;
    QTest::newRow("menu and back")
        << QStringList{"menu_button", "menu_header_back"} << QList<S>{S::Menu, S::Main};
    QTest::newRow("menu, files cache, back, back")
        << QStringList{"menu_button", "files_cache_button", "files_cache_header_back",
                       "menu_header_back"}
        << QList<S>{S::Menu, S::FilesCache, S::Menu, S::Main};
    QTest::newRow("info from the chat and back")
        << QStringList{"@conversation", "chat_info_button", "info_header_back"}
        << QList<S>{S::Conversation, S::ChatInfo, S::Conversation};
    QTest::newRow("photo viewer returns to the chat")
        << QStringList{"@conversation", "@photo", "photo_viewer_header_back"}
        << QList<S>{S::Conversation, S::Photo, S::Conversation};
}

void TestScreens::navigation()
{
    QFETCH(QStringList, presses);
    QFETCH(QList<ShellScreens::Screen>, after);
    ShellScreens screens(true, 1.0f);
    for (int i = 0; i < presses.size(); ++i) {
        const QString &p = presses.at(i);
        if (p == QLatin1String("@conversation")) {
            screens.showScreen(ShellScreens::Screen::Conversation);
        } else if (p == QLatin1String("@photo")) {
            screens.showScreen(ShellScreens::Screen::Photo);
        } else {
            auto *b = screens.findChild<QAbstractButton *>(p);
            QVERIFY2(b, qPrintable(p));
            b->click();
        }
        QCOMPARE(screens.currentScreen(), after.at(i));
    }
}

void TestScreens::themeRecolours_data()
{
    QTest::addColumn<bool>("dark");
    QTest::newRow("dark") << true;
    QTest::newRow("bright") << false;
}

void TestScreens::themeRecolours()
{
    QFETCH(bool, dark);
    ShellScreens screens(!dark, 1.0f);
    screens.resize(720, 1280);
    screens.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screens));
    screens.applyTheme(dark);
    QCOMPARE(screens.darkTheme(), dark);
    QCOMPARE(screens.menuScreen()->themeButton()->text(), theme_button_text(dark));
    // The header of the main screen is painted with group A, the sign-in
    // panel with group E: sample pixels of the rendered screen.
    QApplication::processEvents();
    const QImage shot = screens.grab().toImage();
    QWidget *header = screens.findChild<QWidget *>(QStringLiteral("main_header"));
    QWidget *panel = screens.findChild<QWidget *>(QStringLiteral("sign_in_panel"));
    QVERIFY(header && panel);
    const QPoint hp = header->mapTo(&screens, QPoint(2, 2));
    const QPoint pp = panel->mapTo(&screens, QPoint(2, panel->height() - 3));
    QCOMPARE(shot.pixel(hp) | 0xFF000000, theme_color(ThemeGroup::A, dark));
    QCOMPARE(shot.pixel(pp) | 0xFF000000, theme_color(ThemeGroup::E, dark));
}

void TestScreens::authorisedSwapsFormForList()
{
    ShellScreens screens(true, 1.0f);
    screens.resize(720, 1280);
    screens.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screens));
    auto *list = new QLabel(QStringLiteral("list"));
    list->setObjectName(QStringLiteral("fake_list"));
    screens.mainScreen()->setChatListView(list);
    screens.mainScreen()->setAuthorised(true);
    QVERIFY(!screens.mainScreen()->signInForm()->isVisible());
    QVERIFY(list->isVisible());
    QCOMPARE(list->parentWidget(), screens.mainScreen()->chatListHost());
}

void TestScreens::sizesFollowScale()
{
    ShellScreens small(true, 1.0f);
    ShellScreens big(true, 2.0f);
    auto h = [](ShellScreens &s) {
        return s.findChild<QWidget *>(QStringLiteral("main_header"))->minimumHeight();
    };
    QCOMPARE(h(small), 112);
    QCOMPARE(h(big), 224);
    QCOMPARE(big.findChild<QToolButton *>(QStringLiteral("menu_button"))->width(), 176);
    QCOMPARE(big.findChild<QLabel *>(QStringLiteral("me_avatar"))->width(), 288);
}

void TestScreens::photoViewerShowsFile()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("p.png"));
    QImage img(40, 30, QImage::Format_RGB32);
    img.fill(Qt::red);
    QVERIFY(img.save(path));
    ShellScreens screens(true, 1.0f);
    screens.resize(720, 1280);
    screens.showScreen(ShellScreens::Screen::Photo);
    screens.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screens));
    QVERIFY(screens.photoViewer()->showImageFile(path));
    QVERIFY(!screens.photoViewer()->showImageFile(dir.filePath(QStringLiteral("missing.png"))));
}

// What a profile puts into the menu's header. Each row starts from another
// profile that had a photo, so switching photo -> tile and clearing are
// covered too. photo: "" none, "red" a real PNG, "missing" a path to nothing.
void TestScreens::menuMeHeader_data()
{
    QTest::addColumn<qint64>("id");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("username");
    QTest::addColumn<QString>("phone");
    QTest::addColumn<QString>("photo");
    QTest::addColumn<bool>("shown");
    QTest::addColumn<QString>("nameText");
    QTest::addColumn<QString>("usernameText");
    QTest::addColumn<QString>("phoneText");
    QTest::addColumn<QString>("letter"); // empty: the photo shows instead

    QTest::newRow("full profile, phone without plus") << qint64(42) << "Ada Lovelace"
                                                      << "ada"
                                                      << "15551234"
                                                      << "" << true << "Ada Lovelace"
                                                      << "@ada"
                                                      << "+15551234"
                                                      << "A";
    QTest::newRow("no username, phone with plus") << qint64(7) << "bob"
                                                  << ""
                                                  << " +44 20 7946 0000 "
                                                  << "" << true << "bob"
                                                  << ""
                                                  << "+44 20 7946 0000"
                                                  << "B";
    QTest::newRow("user name typed with @, no phone") << qint64(8) << "Cy"
                                                      << "@cy"
                                                      << ""
                                                      << "" << true << "Cy"
                                                      << "@cy"
                                                      << ""
                                                      << "C";
    QTest::newRow("only a user name") << qint64(9) << ""
                                      << "solo"
                                      << ""
                                      << "" << true << ""
                                      << "@solo"
                                      << ""
                                      << "S";
    QTest::newRow("photo") << qint64(42) << "Ada Lovelace"
                           << "ada"
                           << "15551234"
                           << "red" << true << "Ada Lovelace"
                           << "@ada"
                           << "+15551234"
                           << "";
    QTest::newRow("unreadable photo falls back to the tile") << qint64(42) << "Ada Lovelace"
                                                             << ""
                                                             << "15551234"
                                                             << "missing" << true << "Ada Lovelace"
                                                             << ""
                                                             << "+15551234"
                                                             << "A";
    QTest::newRow("signed out") << qint64(0) << ""
                                << ""
                                << ""
                                << "" << false << ""
                                << ""
                                << ""
                                << "";
}

void TestScreens::menuMeHeader()
{
    QFETCH(qint64, id);
    QFETCH(QString, name);
    QFETCH(QString, username);
    QFETCH(QString, phone);
    QFETCH(QString, photo);
    QFETCH(bool, shown);
    QFETCH(QString, nameText);
    QFETCH(QString, usernameText);
    QFETCH(QString, phoneText);
    QFETCH(QString, letter);

    QTemporaryDir dir;
    auto png = [&](const QString &file, Qt::GlobalColor color) {
        QImage img(200, 160, QImage::Format_RGB32);
        img.fill(color);
        const QString path = dir.filePath(file);
        return img.save(path) ? path : QString();
    };
    const QString before = png(QStringLiteral("before.png"), Qt::blue);
    QString path;
    if (photo == QLatin1String("red"))
        path = png(QStringLiteral("red.png"), Qt::red);
    else if (photo == QLatin1String("missing"))
        path = dir.filePath(QStringLiteral("missing.png"));
    QVERIFY(!before.isEmpty() && (photo != QLatin1String("red") || !path.isEmpty()));

    ShellScreens screens(true, 1.0f);
    screens.resize(720, 1280);
    screens.showScreen(ShellScreens::Screen::Menu);
    screens.show();
    QVERIFY(QTest::qWaitForWindowExposed(&screens));
    MenuScreen *menu = screens.menuScreen();
    menu->updateMenuMeHeader(5, QStringLiteral("Zed Old"), QStringLiteral("zed"),
                             QStringLiteral("+100"), before);
    menu->updateMenuMeHeader(id, name, username, phone, path);
    QApplication::processEvents();

    auto *avatar = menu->findChild<QLabel *>(QStringLiteral("me_avatar"));
    auto *tile = menu->findChild<QLabel *>(QStringLiteral("me_avatar_letter"));
    auto *nameLabel = menu->findChild<QLabel *>(QStringLiteral("me_name"));
    auto *userLabel = menu->findChild<QLabel *>(QStringLiteral("me_username"));
    auto *phoneLabel = menu->findChild<QLabel *>(QStringLiteral("me_phone"));
    QVERIFY(avatar && tile && nameLabel && userLabel && phoneLabel);
    QCOMPARE(avatar->isVisible(), shown);
    QCOMPARE(nameLabel->text(), nameText);
    QCOMPARE(userLabel->text(), usernameText);
    QCOMPARE(phoneLabel->text(), phoneText);
    QCOMPARE(nameLabel->isVisible(), !nameText.isEmpty());
    QCOMPARE(userLabel->isVisible(), !usernameText.isEmpty());
    QCOMPARE(phoneLabel->isVisible(), !phoneText.isEmpty());
    if (!shown) {
        QVERIFY(tile->text().isEmpty());
        QVERIFY(avatar->pixmap(Qt::ReturnByValue).isNull());
        return;
    }

    // The header sits above the first menu card.
    QVERIFY(menu->meCard()->y() < menu->checkUpdatesButton()->mapTo(menu, QPoint()).y());
    QCOMPARE(avatar->width(), 144);
    const QImage shot = avatar->grab().toImage();
    if (letter.isEmpty()) {
        QVERIFY(!tile->isVisible());
        QCOMPARE(QColor(shot.pixel(72, 72)), QColor(Qt::red));
    } else {
        QVERIFY(tile->isVisible());
        QCOMPARE(tile->text(), letter);
        QVERIFY(avatar->pixmap(Qt::ReturnByValue).isNull());
        // Left of the letter, inside the rounded tile: the placeholder colour.
        QCOMPARE(QColor(shot.pixel(18, 72)), placeholder_avatar_color(id, name));
    }
}

QTEST_MAIN(TestScreens)
#include "test_screens.moc"
