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

namespace {

bool showOnScreen(ShellScreens &screens)
{
    screens.resize(720, 1280);
    screens.show();
    return QTest::qWaitForWindowExposed(&screens);
}

// What a person sees of a control: a field's hint (and whether it masks),
// an icon button's glyph file, a label's or button's text.
QString seen(QObject *o)
{
    if (auto *f = qobject_cast<QLineEdit *>(o)) {
        return f->text() + "|" + f->placeholderText() +
               (f->echoMode() == QLineEdit::Password ? "|masked" : "");
    }
    const QString icon = o->property("icon_file").toString();
    if (qobject_cast<QToolButton *>(o) && !icon.isEmpty()) {
        return "icon:" + icon;
    }
    if (auto *l = qobject_cast<QLabel *>(o)) {
        return l->text();
    }
    if (auto *b = qobject_cast<QAbstractButton *>(o)) {
        return b->text();
    }
    return QStringLiteral("<not a text control>");
}

} // namespace

class TestScreens : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { init_osicons(); }
    void controls_data();
    void controls();
    void visibilityAndSignInSwap();
    void navigation_data();
    void navigation();
    void themeRecolours_data();
    void themeRecolours();
    void sizesFollowScaleAndPhotoViewer();
    void menuMeHeader_data();
    void menuMeHeader();
};

void TestScreens::controls_data()
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
        {"phone_field", "|Phone (+E.164)"},
        {"code_field", "|Code"},
        {"password_field", "|2FA password|masked"},
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
        {"menu_button", "icon:menu.png"},
        {"search_button", "icon:icon_search.png"},
        {"attach_button", "icon:ic_attach.png"},
        {"composer_action_button", "icon:ic_microphone_unmute.png"},
        {"selection_reply_button", "icon:ic_reply.png"},
        {"selection_forward_button", "icon:ic_forward.png"},
        {"selection_delete_button", "icon:ic_delete.png"},
        {"to_bottom_button", "icon:ic_to_bottom.png"},
    };
    for (const auto &r : rows) {
        QTest::newRow(r.first) << QString::fromLatin1(r.first) << QString::fromUtf8(r.second);
    }
}

void TestScreens::controls()
{
    QFETCH(QString, name);
    QFETCH(QString, text);
    ShellScreens screens(true, 1.0f);
    QObject *o = screens.findChild<QObject *>(name);
    QVERIFY2(o, qPrintable(name));
    QCOMPARE(seen(o), text);
    if (!text.startsWith(QLatin1String("icon:"))) {
        return;
    }
    // The glyph really comes from the compiled-in resource and is drawn.
    QVERIFY(!QImage(osicon_path(text.mid(5))).isNull());
    const QImage rendered = qobject_cast<QToolButton *>(o)->icon().pixmap(48, 48).toImage();
    int inked = 0;
    for (int y = 0; y < rendered.height(); ++y) {
        for (int x = 0; x < rendered.width(); ++x) {
            inked += qAlpha(rendered.pixel(x, y)) > 128 ? 1 : 0;
        }
    }
    QVERIFY2(inked > 40, qPrintable(QStringLiteral("%1 opaque pixels").arg(inked)));
}

void TestScreens::visibilityAndSignInSwap()
{
    ShellScreens screens(true, 1.0f);
    QVERIFY(showOnScreen(screens));
    QCOMPARE(screens.currentScreen(), ShellScreens::Screen::Main);
    QVERIFY(screens.logView()->isHidden() && !screens.isLogViewVisible());
    QVERIFY(screens.mainScreen()->signInForm()->isVisible());
    QVERIFY(!screens.mainScreen()->chatListHost()->isVisible());
    ConversationScreen *c = screens.conversationScreen();
    for (QWidget *w : {c->selectionBar(), c->replyBar(), c->editBar(), c->recordPanel(),
                       static_cast<QWidget *>(c->toBottomButton())}) {
        QVERIFY2(w->isHidden(), qPrintable(w->objectName()));
    }
    screens.setLogViewVisible(true);
    QVERIFY(screens.logView()->isVisible());
    QVERIFY(screens.menuScreen()->logToggleButton()->isChecked());

    // Once authorised the list takes the sign-in form's place.
    auto *list = new QLabel(QStringLiteral("list"));
    screens.mainScreen()->setChatListView(list);
    screens.mainScreen()->setAuthorised(true);
    QVERIFY(!screens.mainScreen()->signInForm()->isVisible());
    QVERIFY(list->isVisible());
    QCOMPARE(list->parentWidget(), screens.mainScreen()->chatListHost());
}

void TestScreens::navigation_data()
{
    // A path of button presses (object names) and the screen after each.
    QTest::addColumn<QStringList>("presses");
    QTest::addColumn<QList<ShellScreens::Screen>>("after");
    using S = ShellScreens::Screen;
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
    QVERIFY(showOnScreen(screens));
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

void TestScreens::sizesFollowScaleAndPhotoViewer()
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

    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("p.png"));
    QImage img(40, 30, QImage::Format_RGB32);
    img.fill(Qt::red);
    QVERIFY(img.save(path));
    small.showScreen(ShellScreens::Screen::Photo);
    QVERIFY(showOnScreen(small));
    QVERIFY(small.photoViewer()->showImageFile(path));
    QVERIFY(!small.photoViewer()->showImageFile(dir.filePath(QStringLiteral("missing.png"))));
}

// What a profile puts into the menu's header. Each row starts from another
// profile that had a photo, so switching photo -> tile and clearing are
// covered too. photo: "" none, "red" a real PNG, "missing" a path to nothing.
// Expected texts are "name|@username|phone"; letter "" = the photo shows.
void TestScreens::menuMeHeader_data()
{
    QTest::addColumn<qint64>("id");
    QTest::addColumn<QString>("profile"); // name|username|phone
    QTest::addColumn<QString>("photo");
    QTest::addColumn<QString>("texts");
    QTest::addColumn<QString>("letter");
    auto row = [](const char *n, qint64 id, const char *profile, const char *photo,
                  const char *texts, const char *letter) {
        QTest::newRow(n) << id << profile << photo << texts << letter;
    };
    row("full profile, phone without plus", 42, "Ada Lovelace|ada|15551234", "",
        "Ada Lovelace|@ada|+15551234", "A");
    row("no username, phone with plus", 7, "bob|| +44 20 7946 0000 ", "", "bob||+44 20 7946 0000",
        "B");
    row("user name typed with @, no phone", 8, "Cy|@cy|", "", "Cy|@cy|", "C");
    row("only a user name", 9, "|solo|", "", "|@solo|", "S");
    row("photo", 42, "Ada Lovelace|ada|15551234", "red", "Ada Lovelace|@ada|+15551234", "");
    row("unreadable photo falls back to the tile", 42, "Ada Lovelace||15551234", "missing",
        "Ada Lovelace||+15551234", "A");
    row("signed out", 0, "||", "", "||", "");
}

void TestScreens::menuMeHeader()
{
    QFETCH(qint64, id);
    QFETCH(QString, profile);
    QFETCH(QString, photo);
    QFETCH(QString, texts);
    QFETCH(QString, letter);
    const QStringList p = profile.split(QLatin1Char('|'));
    const bool shown = id != 0;

    QTemporaryDir dir;
    auto png = [&](const QString &file, Qt::GlobalColor color) {
        QImage img(200, 160, QImage::Format_RGB32);
        img.fill(color);
        const QString path = dir.filePath(file);
        return img.save(path) ? path : QString();
    };
    const QString before = png(QStringLiteral("before.png"), Qt::blue);
    const QString path = photo == QLatin1String("red") ? png(QStringLiteral("red.png"), Qt::red)
                         : photo.isEmpty()             ? QString()
                                                       : dir.filePath(photo + ".png");
    QVERIFY(!before.isEmpty() && (photo != QLatin1String("red") || !path.isEmpty()));

    ShellScreens screens(true, 1.0f);
    screens.showScreen(ShellScreens::Screen::Menu);
    QVERIFY(showOnScreen(screens));
    MenuScreen *menu = screens.menuScreen();
    menu->updateMenuMeHeader(5, QStringLiteral("Zed Old"), QStringLiteral("zed"),
                             QStringLiteral("+100"), before);
    menu->updateMenuMeHeader(id, p.at(0), p.at(1), p.at(2), path);
    QApplication::processEvents();

    auto *avatar = menu->findChild<QLabel *>(QStringLiteral("me_avatar"));
    auto *tile = menu->findChild<QLabel *>(QStringLiteral("me_avatar_letter"));
    QVERIFY(avatar && tile);
    QCOMPARE(avatar->isVisible(), shown);
    const QStringList want = texts.split(QLatin1Char('|'));
    int i = 0;
    for (const char *name : {"me_name", "me_username", "me_phone"}) {
        auto *label = menu->findChild<QLabel *>(QLatin1String(name));
        QVERIFY2(label, name);
        QCOMPARE(label->text(), want.at(i));
        QCOMPARE(label->isVisible(), !want.at(i++).isEmpty());
    }
    if (!shown) {
        QVERIFY(tile->text().isEmpty());
        QVERIFY(avatar->pixmap(Qt::ReturnByValue).isNull());
        return;
    }
    // The header sits above the first menu card.
    QVERIFY(menu->meCard()->y() < menu->checkUpdatesButton()->mapTo(menu, QPoint()).y());
    QCOMPARE(avatar->width(), 144);
    const QImage shot = avatar->grab().toImage();
    QCOMPARE(tile->isVisible(), !letter.isEmpty());
    if (letter.isEmpty()) {
        QCOMPARE(QColor(shot.pixel(72, 72)), QColor(Qt::red));
    } else {
        QCOMPARE(tile->text(), letter);
        QVERIFY(avatar->pixmap(Qt::ReturnByValue).isNull());
        // Left of the letter, inside the rounded tile: the placeholder colour.
        QCOMPARE(QColor(shot.pixel(18, 72)), placeholder_avatar_color(id, p.at(0)));
    }
}

QTEST_MAIN(TestScreens)
#include "test_screens.moc"
