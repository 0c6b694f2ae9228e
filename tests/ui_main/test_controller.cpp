#include "common.h"

#include "backend_link/app_log.h"
#include "backend_link/backend_link.h"
#include "backend_link/event_intake.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QProcess>
#include <QPushButton>
#include <QTemporaryDir>
#include <QToolButton>
#include <QtTest>

#include <memory>

using namespace test_util;

// The controller in this process, with a real stand-in backend as its child:
// what the form sends arrives on the child's standard input, and events the
// child writes to the events file come back through the real intake.
class TestController : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void signInSlots_data();
    void signInSlots();
    void phonePrefill_data();
    void phonePrefill();
    void themeToggleTwice_data();
    void themeToggleTwice();
    void authStateDrivesScreens();
    void lifecycle();
    void scaleAndBubblesFromEnvironment_data();
    void scaleAndBubblesFromEnvironment();
    void logToggleShowsLog();
    void chatListOpensConversation_data();
    void chatListOpensConversation();
    void menuHeaderFollowsOwnProfile();

private:
    void makeController(const QStringList &extraEnv = {});
    QString received() const;
    bool waitReceived(const QString &line, int timeoutMs = 5000) const;
    QString dataDir() const { return m_dir->filePath(QStringLiteral("data")); }
    QString miscDir() const { return m_dir->filePath(QStringLiteral("shared/misc/marlinde")); }
    QString eventsFile() const { return dataDir() + QStringLiteral("/backend_events.jsonl"); }
    void emitEvent(const QByteArray &json);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<UiTdlibSpike> m_spike;
};

void TestController::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    QVERIFY(QDir().mkpath(m_dir->filePath(QStringLiteral("app"))));
    QVERIFY(QDir().mkpath(miscDir()));
    QVERIFY(installExecutable(QStringLiteral(FAKE_BACKEND_PATH),
                              m_dir->filePath(QStringLiteral("app/td_backend"))));
}

void TestController::cleanup()
{
    m_spike.reset();
    m_dir.reset();
}

void TestController::makeController(const QStringList &extraEnv)
{
    QStringList env;
    for (const QString &e : QProcess::systemEnvironment()) {
        if (e.startsWith(QLatin1String("UI_USE_")) || e.startsWith(QLatin1String("QUILLO_")) ||
            e.startsWith(QLatin1String("VEXA_")) || e.startsWith(QLatin1String("TG_")) ||
            e.startsWith(QLatin1String("FAKE_BACKEND_")))
            continue;
        env << e;
    }
    env << QStringLiteral("VEXA_DATA_DIR=") + dataDir()
        << QStringLiteral("VEXA_SHARED_DIR=") + m_dir->filePath(QStringLiteral("shared"))
        << QStringLiteral("VEXA_ZOOM=1");
    env << extraEnv;
    m_spike = std::make_unique<UiTdlibSpike>(m_dir->filePath(QStringLiteral("app")), env);
}

QString TestController::received() const
{
    return QString::fromUtf8(readAll(eventsFile() + QStringLiteral(".received")));
}

bool TestController::waitReceived(const QString &line, int timeoutMs) const
{
    return waitFor([&] { return received().split(QLatin1Char('\n')).contains(line); }, timeoutMs);
}

void TestController::emitEvent(const QByteArray &json)
{
    m_spike->sendLine(QStringLiteral("emit ") + QString::fromLatin1(json.toBase64()));
}

void TestController::signInSlots_data()
{
    QTest::addColumn<QString>("button");
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("sent");
    QTest::addColumn<QString>("logLine");

    QTest::newRow("phone with blanks") << "send_phone_button"
                                       << "phone_field"
                                       << "+1 555 0100"
                                       << "phone +1 555 0100"
                                       << "ui: send phone\n";
    QTest::newRow("empty code") << "send_code_button"
                                << "code_field"
                                << ""
                                << "code"
                                << "ui: send code\n";
    QTest::newRow("code trailing blanks") << "send_code_button"
                                          << "code_field"
                                          << "24680  "
                                          << "code 24680"
                                          << "ui: send code\n";
    QTest::newRow("resend before phone") << "resend_code_button"
                                         << ""
                                         << ""
                                         << "resend"
                                         << "ui: resend code\n";
    QTest::newRow("password") << "send_password_button"
                              << "password_field"
                              << "s3cret pass"
                              << "password s3cret pass"
                              << "ui: send password\n";
}

void TestController::signInSlots()
{
    QFETCH(QString, button);
    QFETCH(QString, field);
    QFETCH(QString, typed);
    QFETCH(QString, sent);
    QFETCH(QString, logLine);
    makeController();
    QVERIFY2(waitReceived(QStringLiteral("ping")), qPrintable(received()));
    QCOMPARE(m_spike->screens()->mainScreen()->statusLabel()->text(),
             QStringLiteral("Backend started"));
    if (!field.isEmpty()) {
        auto *f = m_spike->screens()->findChild<QLineEdit *>(field);
        QVERIFY(f);
        f->setText(typed);
    }
    auto *b = m_spike->screens()->findChild<QPushButton *>(button);
    QVERIFY(b);
    b->click();
    QVERIFY2(waitReceived(sent), qPrintable(received()));
    QVERIFY(m_spike->appLog()->buffer().contains(logLine));
    // The field is left as typed; a second press sends the command again.
    if (!field.isEmpty())
        QCOMPARE(m_spike->screens()->findChild<QLineEdit *>(field)->text(), typed);
    b->click();
    QVERIFY(waitFor([&] { return received().count(sent + QLatin1Char('\n')) == 2; }, 5000));
    // "ping" came first.
    QVERIFY(received().startsWith(QStringLiteral("ping\n")));
}

void TestController::phonePrefill_data()
{
    QTest::addColumn<QByteArray>("loginEnv");
    QTest::addColumn<QString>("expected");
    QTest::newRow("number from tg_login.env")
        << QByteArray("TG_PHONE_NUMBER=+15550123\n") << QStringLiteral("+15550123");
    QTest::newRow("td_debug.env overrides")
        << QByteArray("TG_PHONE_NUMBER=+100\n#debug\n") << QStringLiteral("+100");
    QTest::newRow("empty value leaves the field empty")
        << QByteArray("TG_PHONE_NUMBER=\n") << QString();
    QTest::newRow("no key") << QByteArray("OTHER=1\n") << QString();
}

void TestController::phonePrefill()
{
    QFETCH(QByteArray, loginEnv);
    QFETCH(QString, expected);
    QVERIFY(writeFile(miscDir() + QStringLiteral("/tg_login.env"), loginEnv));
    makeController();
    QCOMPARE(m_spike->screens()->mainScreen()->signInForm()->phoneField()->text(), expected);
}

void TestController::themeToggleTwice_data()
{
    QTest::addColumn<QByteArray>("initial");
    QTest::addColumn<bool>("dark");
    QTest::newRow("dark file") << QByteArray("dark\n") << true;
    QTest::newRow("bright file") << QByteArray("bright\n") << false;
}

void TestController::themeToggleTwice()
{
    QFETCH(QByteArray, initial);
    QFETCH(bool, dark);
    const QString themeFile = dataDir() + QStringLiteral("/ui_theme.txt");
    QVERIFY(writeFile(themeFile, initial));
    makeController();
    QCOMPARE(m_spike->darkTheme(), dark);
    QPushButton *button = m_spike->screens()->menuScreen()->themeButton();
    const QString text = button->text();
    QCOMPARE(text, dark ? QStringLiteral("Theme: Dark") : QStringLiteral("Theme: Bright"));

    button->click();
    QCOMPARE(m_spike->darkTheme(), !dark);
    QCOMPARE(readAll(themeFile), dark ? QByteArray("bright\n") : QByteArray("dark\n"));
    QVERIFY(button->text() != text);
    QCOMPARE(m_spike->screens()->conversationScreen()->messageListHost()->property("ui_dark_theme"),
             QVariant(!dark));

    button->click();
    QCOMPARE(readAll(themeFile), initial);
    QCOMPARE(button->text(), text);
    QCOMPARE(m_spike->darkTheme(), dark);
}

void TestController::authStateDrivesScreens()
{
    makeController();
    QVERIFY(waitReceived(QStringLiteral("ping")));
    MainScreen *main = m_spike->screens()->mainScreen();
    QLabel *status = main->statusLabel();

    emitEvent(R"({"type":"auth_state","state":"WaitPhoneNumber"})");
    QVERIFY2(
        waitFor([&] { return status->text() == QLatin1String("Auth: WaitPhoneNumber"); }, 5000),
        qPrintable(status->text()));
    QVERIFY(!main->isAuthorised());
    QVERIFY(!received().contains(QStringLiteral("chats 60")));

    emitEvent(R"({"type":"auth_state","state":"Ready"})");
    QVERIFY(waitFor([&] { return main->isAuthorised(); }, 5000));
    QCOMPARE(status->text(), QStringLiteral("Auth: Ready"));
    QVERIFY(main->signInForm()->isHidden() || !main->signInForm()->isVisible());
    QVERIFY(!main->chatListHost()->isHidden());
    QVERIFY2(waitReceived(QStringLiteral("chats 60")), qPrintable(received()));

    // A later "Ready" asks for the list no more.
    emitEvent(R"({"type":"auth_state","state":"Ready"})");
    emitEvent(R"({"type":"need","what":"nothing"})");
    QVERIFY(waitReceived(
        QStringLiteral("emit ") +
        QString::fromLatin1(QByteArray(R"({"type":"need","what":"nothing"})").toBase64())));
    QTest::qWait(1500);
    QCOMPARE(received().count(QStringLiteral("chats 60\n")), 1);
    QVERIFY(main->isAuthorised());
}

void TestController::lifecycle()
{
    makeController();
    const QString marker = dataDir() + QStringLiteral("/ui_running.txt");
    QVERIFY(QFile::exists(marker));
    QVERIFY(m_spike->isAppActive());

    m_spike->onAppThumbnailed();
    QVERIFY(!m_spike->isAppActive());
    QVERIFY(m_spike->appLog()->buffer().contains(QStringLiteral("app: thumbnailed\n")));
    QCOMPARE(m_spike->eventIntake()->currentPollInterval(), 2500);
    QVERIFY(m_spike->eventIntake()->isAppInBackground());

    QVERIFY(QFile::remove(marker));
    m_spike->onAppFullscreen();
    QVERIFY(m_spike->isAppActive());
    QVERIFY(m_spike->appLog()->buffer().contains(QStringLiteral("app: fullscreen\n")));
    QVERIFY(QFile::exists(marker));
    QCOMPARE(m_spike->eventIntake()->currentPollInterval(), 1000);
    QVERIFY(!m_spike->eventIntake()->isAppInBackground());

    m_spike->onLowMemory(2);
    QCOMPARE(m_spike->eventIntake()->currentPollInterval(), 2000);
    QVERIFY(m_spike->appLog()->buffer().isEmpty());

    m_spike->onAppAboutToQuit();
    QVERIFY(m_spike->appLog()->buffer().contains(QStringLiteral("app: aboutToQuit\n")));
    QVERIFY(!QFile::exists(marker));
}

void TestController::scaleAndBubblesFromEnvironment_data()
{
    QTest::addColumn<QStringList>("env");
    QTest::addColumn<QByteArray>("debugEnv");
    QTest::addColumn<double>("scale");
    QTest::addColumn<bool>("noBubbles");
    QTest::addColumn<QString>("logLine");
    QTest::newRow("default display") << QStringList() << QByteArray() << 1.15 << false
                                     << "ui: display_px=720x1280 ui_scale=1.15\n";
    QTest::newRow("square display")
        << QStringList{"VEXA_DISPLAY=1440x1440"} << QByteArray("UI_DISABLE_BUBBLES=yes\n") << 1.35
        << true << "ui: display_px=1440x1440 ui_scale=1.35\n";
    QTest::newRow("override") << QStringList{"QUILLO_UI_SCALE=1.7"}
                              << QByteArray("UI_DISABLE_BUBBLES=no\n") << 1.7 << false
                              << "ui: QUILLO_UI_SCALE=1.70\n";
}

void TestController::scaleAndBubblesFromEnvironment()
{
    QFETCH(QStringList, env);
    QFETCH(QByteArray, debugEnv);
    QFETCH(double, scale);
    QFETCH(bool, noBubbles);
    QFETCH(QString, logLine);
    if (!debugEnv.isEmpty())
        QVERIFY(writeFile(miscDir() + QStringLiteral("/td_debug.env"), debugEnv));
    makeController(env);
    QVERIFY(qAbs(double(m_spike->uiScale()) - scale) < 1e-6);
    QCOMPARE(m_spike->disableBubbles(), noBubbles);
    QVERIFY2(m_spike->appLog()->buffer().contains(logLine),
             qPrintable(m_spike->appLog()->buffer()));
    // Design pixels on screen follow the scale.
    QWidget *header = m_spike->screens()->findChild<QWidget *>(QStringLiteral("main_header"));
    QCOMPARE(header->minimumHeight(), qRound(112 * scale));
}

void TestController::logToggleShowsLog()
{
    makeController();
    ShellScreens *screens = m_spike->screens();
    QVERIFY(!screens->isLogViewVisible());
    m_spike->appendLog(QStringLiteral("ui: marker line\n"));
    QVERIFY(!screens->logView()->toPlainText().contains(QStringLiteral("marker line")));
    screens->menuScreen()->logToggleButton()->click();
    QVERIFY(screens->isLogViewVisible());
    QVERIFY(screens->logView()->toPlainText().contains(QStringLiteral("ui: marker line")));
    QVERIFY(screens->logView()->toPlainText().contains(QStringLiteral("backend: starting")));
    screens->menuScreen()->logToggleButton()->click();
    QVERIFY(!screens->isLogViewVisible());
}

void TestController::chatListOpensConversation_data()
{
    QTest::addColumn<QByteArray>("chatEvent");
    QTest::addColumn<QString>("title");
    QTest::newRow("group") << QByteArray(R"({"type":"chat","id":-1001,"title":"Hikers",)"
                                         R"("chat_type":"supergroup","order":"900"})")
                           << QStringLiteral("Hikers");
    QTest::newRow("untitled private") << QByteArray(R"({"type":"chat","id":77,)"
                                                    R"("chat_type":"private","order":"5"})")
                                      << QStringLiteral("Chat");
}

void TestController::chatListOpensConversation()
{
    QFETCH(QByteArray, chatEvent);
    QFETCH(QString, title);
    makeController();
    m_spike->window()->resize(720, 1280);
    QVERIFY(waitReceived(QStringLiteral("ping")));
    emitEvent(R"({"type":"auth_state","state":"Ready"})");
    emitEvent(chatEvent);
    ListView *list = m_spike->chatListView();
    QVERIFY(waitFor([&] { return list->dataModel() && list->dataModel()->rowCount() == 1; }, 5000));
    QVERIFY(waitFor([&] { return !list->visibleRows().isEmpty(); }, 5000));
    QVERIFY(list->itemWidget(0));

    // Tapping the row opens the conversation with the chat's title; back
    // returns to the list.
    const QRect first = list->itemWidget(0)->geometry();
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, first.center());
    QVERIFY(waitFor(
        [&] { return m_spike->screens()->currentScreen() == ShellScreens::Screen::Conversation; },
        3000));
    QCOMPARE(m_spike->screens()->conversationScreen()->titleLabel()->text(), title);
    m_spike->screens()->conversationScreen()->backButton()->click();
    QCOMPARE(m_spike->screens()->currentScreen(), ShellScreens::Screen::Main);
}

void TestController::menuHeaderFollowsOwnProfile()
{
    makeController();
    QVERIFY(waitReceived(QStringLiteral("ping")));
    MenuScreen *menu = m_spike->screens()->menuScreen();
    auto text = [menu](const char *name) {
        auto *l = menu->findChild<QLabel *>(QLatin1String(name));
        return l ? l->text() : QStringLiteral("<missing %1>").arg(QLatin1String(name));
    };
    auto *avatar = menu->findChild<QLabel *>(QStringLiteral("me_avatar"));
    auto *tile = menu->findChild<QLabel *>(QStringLiteral("me_avatar_letter"));
    QVERIFY(avatar && tile);
    QVERIFY(menu->meCard()->isHidden());

    emitEvent(R"({"type":"auth_state","state":"Ready"})");
    emitEvent(R"({"type":"me","id":"4242","first_name":" Ada ","last_name":"Lovelace",)"
              R"("username":"ada","phone":"15551234","photo_small_id":9001})");
    QVERIFY2(waitFor([&] { return text("me_name") == QLatin1String("Ada Lovelace"); }, 5000),
             qPrintable(text("me_name")));
    QVERIFY(!menu->meCard()->isHidden());
    QCOMPARE(text("me_username"), QStringLiteral("@ada"));
    QCOMPARE(text("me_phone"), QStringLiteral("+15551234"));
    QCOMPARE(tile->text(), QStringLiteral("A"));
    QVERIFY(avatar->pixmap(Qt::ReturnByValue).isNull());

    // The own photo is asked for, and asked for again after the chat list's
    // start has emptied the avatar queue.
    const QString download = QStringLiteral("download 9001\n");
    QVERIFY2(waitFor([&] { return received().count(download) == 1; }, 5000),
             qPrintable(received()));
    emitEvent(R"({"type":"chats_begin"})");
    QVERIFY2(waitFor([&] { return received().count(download) == 2; }, 5000),
             qPrintable(received()));

    // The own user renamed; then the own photo arrives as a downloaded file.
    emitEvent(R"({"type":"user","id":4242,"name":"Countess of Lovelace","photo_small_id":9001})");
    QVERIFY2(
        waitFor([&] { return text("me_name") == QLatin1String("Countess of Lovelace"); }, 5000),
        qPrintable(text("me_name")));
    QCOMPARE(tile->text(), QStringLiteral("C"));
    QCOMPARE(text("me_username"), QStringLiteral("@ada"));

    const QString photo = m_dir->filePath(QStringLiteral("me.png"));
    QImage img(320, 320, QImage::Format_RGB32);
    img.fill(Qt::green);
    QVERIFY(img.save(photo));
    emitEvent(QStringLiteral(R"({"type":"file","id":9001,"path":"%1"})").arg(photo).toUtf8());
    QVERIFY(waitFor([&] { return !avatar->pixmap(Qt::ReturnByValue).isNull(); }, 5000));
    QVERIFY(tile->isHidden());
    QVERIFY2(avatar->property("image_path")
                 .toString()
                 .startsWith(dataDir() + QStringLiteral("/avatar-cache/")),
             qPrintable(avatar->property("image_path").toString()));

    // Signed out: the card goes and keeps nothing of the profile.
    emitEvent(R"({"type":"auth_state","state":"WaitPhoneNumber"})");
    QVERIFY(waitFor([&] { return menu->meCard()->isHidden(); }, 5000));
    QCOMPARE(text("me_name"), QString());
    QCOMPARE(text("me_username"), QString());
    QCOMPARE(text("me_phone"), QString());
    QVERIFY(avatar->pixmap(Qt::ReturnByValue).isNull());
}

QTEST_MAIN(TestController)
#include "test_controller.moc"
