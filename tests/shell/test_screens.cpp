#include "chats/avatars.h"
#include "events/event_dispatcher.h"
#include "platform/osicons.h"
#include "shell/theme.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"

#include <QAbstractButton>
#include <QApplication>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QMetaMethod>
#include <QSignalSpy>
#include <QToolButton>
#include <QtTest>

#include <memory>
#include <vector>

namespace {

bool showOnScreen(ShellScreens &screens)
{
    screens.resize(720, 1280);
    screens.show();
    return QTest::qWaitForWindowExposed(&screens);
}

QSet<QString> visibleTexts(const QWidget *root)
{
    QSet<QString> texts;
    for (auto *l : root->findChildren<QLabel *>())
        texts << l->text();
    for (auto *b : root->findChildren<QAbstractButton *>())
        texts << b->text();
    return texts;
}

} // namespace

class TestScreens : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { init_osicons(); }
    void everyButtonAnnouncesOneIntent()
    {
        // A button that neither says what the user wants nor moves between
        // screens would be dead to the user. Spies on every signal the
        // screens declare themselves, screen changes aside.
        ShellScreens screens(true, 1.0f);
        QObjectList announcers{&screens};
        for (QWidget *w : screens.findChildren<QWidget *>())
            if (!QByteArray(w->metaObject()->className()).startsWith('Q'))
                announcers << w;
        std::vector<std::unique_ptr<QSignalSpy>> spies;
        for (QObject *o : announcers) {
            const QMetaObject *mo = o->metaObject();
            for (int i = mo->methodOffset(); i < mo->methodCount(); ++i)
                if (mo->method(i).methodType() == QMetaMethod::Signal &&
                    mo->method(i).name() != "screenChanged")
                    spies.emplace_back(std::make_unique<QSignalSpy>(o, mo->method(i)));
        }
        const auto anyFired = [&spies] {
            bool fired = false;
            for (auto &s : spies) {
                fired = fired || !s->isEmpty();
                s->clear();
            }
            return fired;
        };
        for (auto *b : screens.findChildren<QAbstractButton *>()) {
            // One that waits for something to act on cannot be pressed yet.
            if (!b->isEnabled())
                continue;
            const ShellScreens::Screen before = screens.currentScreen();
            b->click();
            QVERIFY2(anyFired() || screens.currentScreen() != before, qPrintable(b->objectName()));
            screens.showMainScreen();
            anyFired();
        }
    }
    void signInFormSubmitsWhatWasTyped()
    {
        MainScreen main(1.0f);
        const QList<QLineEdit *> fields =
            main.findChild<SignInForm *>()->findChildren<QLineEdit *>();
        QLineEdit *phone = fields.value(0), *code = fields.value(1), *password = fields.value(2);
        QVERIFY(password && password->echoMode() == QLineEdit::Password);

        // Suggested numbers fill only an empty field.
        main.suggestPhoneNumber(QStringLiteral("+15550123"));
        QCOMPARE(phone->text(), QStringLiteral("+15550123"));
        phone->clear();
        QTest::keyClicks(phone, QStringLiteral("+1 555 0100"));
        main.suggestPhoneNumber(QStringLiteral("+19990000"));

        QSignalSpy phones(&main, &MainScreen::phoneSubmitted);
        QSignalSpy codes(&main, &MainScreen::codeSubmitted);
        QSignalSpy passwords(&main, &MainScreen::passwordSubmitted);
        QTest::keyClick(phone, Qt::Key_Return);
        QTest::keyClicks(code, QStringLiteral("24680  "));
        QTest::keyClick(code, Qt::Key_Enter);
        QTest::keyClicks(password, QStringLiteral("s3cret pass"));
        QTest::keyClick(password, Qt::Key_Return);
        QCOMPARE(phones.value(0), QVariantList{"+1 555 0100"});
        QCOMPARE(codes.value(0), QVariantList{"24680  "});
        QCOMPARE(passwords.value(0), QVariantList{"s3cret pass"});
    }
    // Back goes where the user came from.
    void navigation()
    {
        using S = ShellScreens::Screen;
        ShellScreens s(true, 1.0f);
        Q_EMIT s.mainScreen()->menuRequested();
        Q_EMIT s.menuScreen()->filesCacheRequested();
        QCOMPARE(s.currentScreen(), S::FilesCache);
        Q_EMIT s.filesCacheScreen()->backRequested();
        QCOMPARE(s.currentScreen(), S::Menu);
        Q_EMIT s.menuScreen()->backRequested();
        QCOMPARE(s.currentScreen(), S::Main);
        s.showScreen(S::Conversation);
        s.showScreen(S::ChatInfo);
        Q_EMIT s.chatInfoScreen()->backRequested();
        QCOMPARE(s.currentScreen(), S::Conversation);
    }
    void memberCountIsTappable()
    {
        // A click as the window system delivers it: to the label under the
        // pointer first.
        ShellScreens screens(true, 1.0f);
        screens.showScreen(ShellScreens::Screen::ChatInfo);
        QVERIFY(showOnScreen(screens));
        ChatInfoScreen *info = screens.chatInfoScreen();
        QSignalSpy tapped(info, &ChatInfoScreen::membersRequested);
        auto *count = info->findChild<QLabel *>(QStringLiteral("info_members"));
        const QPoint at = count->mapTo(&screens, count->rect().center());
        QTest::mouseClick(screens.windowHandle(), Qt::LeftButton, {}, at);
        QCOMPARE(tapped.size(), 1);
    }
    void themeRecolours()
    {
        const bool dark = true;
        ShellScreens screens(!dark, 1.0f);
        QVERIFY(showOnScreen(screens));
        screens.applyTheme(dark);
        QVERIFY(visibleTexts(&screens).contains(theme_button_text(dark)));
        // The header is painted with group A and the sign-in panel below it with
        // group E: sample the rendered screen.
        QApplication::processEvents();
        const QImage shot = screens.grab().toImage();
        QCOMPARE(shot.pixel(2, 2) | 0xFF000000, theme_color(ThemeGroup::A, dark));
        QCOMPARE(shot.pixel(4, shot.height() - 4) | 0xFF000000, theme_color(ThemeGroup::E, dark));
    }
    void sizesFollowScale()
    {
        const auto tallestBar = [](float scale) {
            ShellScreens s(true, scale);
            int h = 0;
            for (auto *b : s.mainScreen()->findChildren<QToolButton *>())
                h = qMax(h, b->height());
            return h;
        };
        QCOMPARE(tallestBar(2.0f), 2 * tallestBar(1.0f));
    }
    // What a profile puts into the menu's card, starting from another profile
    // that had a photo: "name|username|phone|photo file" and the texts shown,
    // "name|@username|phone", then the tile's letter. The photo itself and
    // signing out are checked through the controller.
    void menuProfile_data()
    {
        QTest::addColumn<qint64>("id");
        QTest::addColumn<QString>("profile");
        QTest::addColumn<QString>("texts");
        QTest::addColumn<QString>("letter");
        auto row = [](const char *n, qint64 id, const char *profile, const char *texts,
                      const char *letter) {
            QTest::newRow(n) << id << QString::fromUtf8(profile) << QString::fromUtf8(texts)
                             << QString::fromUtf8(letter);
        };
        row("full profile, phone without plus", 42, "Ada Lovelace|ada|15551234|",
            "Ada Lovelace|@ada|+15551234", "A");
        row("only a user name, typed with @", 9, "|@solo||", "|@solo|", "S");
        row("unreadable photo falls back to the tile", 42, "Ada Lovelace||15551234|missing.png",
            "Ada Lovelace||+15551234", "A");
    }
    void menuProfile()
    {
        QFETCH(qint64, id);
        QFETCH(QString, profile);
        QFETCH(QString, texts);
        QFETCH(QString, letter);
        const QStringList p = profile.split(QLatin1Char('|'));
        QTemporaryDir dir;
        const QString before = dir.filePath(QStringLiteral("before.png"));
        QImage photo(200, 160, QImage::Format_RGB32);
        photo.fill(Qt::blue);
        QVERIFY(photo.save(before));
        ShellScreens screens(true, 1.0f);
        screens.showScreen(ShellScreens::Screen::Menu);
        QVERIFY(showOnScreen(screens));
        MenuScreen *menu = screens.menuScreen();
        menu->setProfile({5, {}, {}, {}, {}, QStringLiteral("Zed Old"), 0, before});
        const QString photoPath = p.at(3).isEmpty() ? QString() : dir.filePath(p.at(3));
        menu->setProfile({id, {}, {}, p.at(1), p.at(2), p.at(0), 0, photoPath});
        QApplication::processEvents();
        for (const QString &w : texts.split(QLatin1Char('|'), Qt::SkipEmptyParts))
            QVERIFY2(visibleTexts(menu).contains(w), qPrintable(w));
        QLabel *tile = nullptr;
        QLabel *avatar = nullptr;
        for (auto *l : menu->findChildren<QLabel *>())
            if (l->width() == 144 && l->height() == 144)
                (l->parentWidget()->width() == 144 ? tile : avatar) = l;
        QVERIFY(tile && avatar && tile->isVisible());
        QCOMPARE(tile->text(), letter);
        // Left of the letter, inside the rounded tile: the placeholder colour.
        QCOMPARE(QColor(avatar->grab().toImage().pixel(18, 72)),
                 placeholder_avatar_color(id, p.at(0)));
    }
};

QTEST_MAIN(TestScreens)
#include "test_screens.moc"
