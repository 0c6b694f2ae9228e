#include "common.h"

#include "backend_link/app_log.h"
#include "backend_link/event_intake.h"
#include "media/media_downloads.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QRegularExpression>
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
    void themeToggleTwice_data();
    void themeToggleTwice();
    void readyDrivesScreensAndAsksForChatsOnce();
    void chatListOpensConversation();
    void lifecycleAndScaleOverride();
    void menuHeaderFollowsOwnProfile();

private:
    void makeController(const QString &extraEnv = {});
    QString received() const { return QString::fromUtf8(readAll(eventsFile() + ".received")); }
    bool waitReceived(const QString &line, int count = 1) const
    {
        return waitFor([&] { return received().count(line + '\n') == count; }, 5000);
    }
    QString dataDir() const { return m_dir->filePath("data"); }
    QString miscDir() const { return m_dir->filePath("shared/misc/marlinde"); }
    QString eventsFile() const { return dataDir() + "/backend_events.jsonl"; }
    void emitEvent(const QByteArray &json) { m_spike->sendLine("emit " + json.toBase64()); }
    template<typename T>
    T *find(const char *name) const
    {
        return m_spike->screens()->findChild<T *>(QLatin1String(name));
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<UiTdlibSpike> m_spike;
};

void TestController::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(QDir().mkpath(m_dir->filePath("app")) && QDir().mkpath(miscDir()));
    QVERIFY(installExecutable(FAKE_BACKEND_PATH, m_dir->filePath("app/td_backend")));
}

void TestController::cleanup()
{
    m_spike.reset();
    m_dir.reset();
}

void TestController::makeController(const QString &extraEnv)
{
    QStringList env;
    for (const QString &e : QProcess::systemEnvironment()) {
        if (!QRegularExpression("^(UI_USE_|QUILLO_|VEXA_|TG_|FAKE_BACKEND_)").match(e).hasMatch())
            env << e;
    }
    env << "VEXA_DATA_DIR=" + dataDir() << "VEXA_SHARED_DIR=" + m_dir->filePath("shared")
        << "VEXA_ZOOM=1";
    if (!extraEnv.isEmpty())
        env << extraEnv;
    m_spike = std::make_unique<UiTdlibSpike>(m_dir->filePath("app"), env);
}

void TestController::signInSlots_data()
{
    QTest::addColumn<QString>("button");
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("sent");
    QTest::addColumn<QString>("logLine");
    const auto row = [](const char *name, const char *button, const char *field, const char *typed,
                        const char *sent, const char *log) {
        QTest::newRow(name) << button << field << typed << sent << log;
    };
    row("phone with blanks", "send_phone_button", "phone_field", "+1 555 0100", "phone +1 555 0100",
        "ui: send phone\n");
    row("empty code", "send_code_button", "code_field", "", "code", "ui: send code\n");
    row("code trailing blanks", "send_code_button", "code_field", "24680  ", "code 24680",
        "ui: send code\n");
    row("resend before phone", "resend_code_button", "", "", "resend", "ui: resend code\n");
    row("password", "send_password_button", "password_field", "s3cret pass", "password s3cret pass",
        "ui: send password\n");
}

void TestController::signInSlots()
{
    QFETCH(QString, button);
    QFETCH(QString, field);
    QFETCH(QString, typed);
    QFETCH(QString, sent);
    QFETCH(QString, logLine);
    QVERIFY(writeFile(miscDir() + "/tg_login.env", "TG_PHONE_NUMBER=+15550123\n"));
    makeController();
    QVERIFY2(waitReceived("ping"), qPrintable(received()));
    QCOMPARE(m_spike->screens()->mainScreen()->statusLabel()->text(),
             QStringLiteral("Backend started"));
    // The form takes the phone number from the env files.
    QCOMPARE(find<QLineEdit>("phone_field")->text(), QStringLiteral("+15550123"));
    if (!field.isEmpty())
        find<QLineEdit>(qPrintable(field))->setText(typed);
    auto *b = find<QPushButton>(qPrintable(button));
    QVERIFY(b);
    b->click();
    QVERIFY2(waitReceived(sent), qPrintable(received()));
    QVERIFY(m_spike->appLog()->buffer().contains(logLine));
    // The field is left as typed; a second press sends the command again.
    if (!field.isEmpty())
        QCOMPARE(find<QLineEdit>(qPrintable(field))->text(), typed);
    b->click();
    QVERIFY(waitReceived(sent, 2));
    QVERIFY(received().startsWith("ping\n"));
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
    const QString themeFile = dataDir() + "/ui_theme.txt";
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

void TestController::readyDrivesScreensAndAsksForChatsOnce()
{
    makeController();
    QVERIFY(waitReceived("ping"));
    MainScreen *main = m_spike->screens()->mainScreen();
    QLabel *status = main->statusLabel();
    emitEvent(R"({"type":"auth_state","state":"WaitPhoneNumber"})");
    QVERIFY2(waitFor([&] { return status->text() == "Auth: WaitPhoneNumber"; }, 5000),
             qPrintable(status->text()));
    QVERIFY(!main->isAuthorised());
    emitEvent(R"({"type":"auth_state","state":"Ready"})");
    QVERIFY(waitFor([&] { return main->isAuthorised(); }, 5000));
    QCOMPARE(status->text(), QStringLiteral("Auth: Ready"));
    QVERIFY(main->signInForm()->isHidden() || !main->signInForm()->isVisible());
    QVERIFY(!main->chatListHost()->isHidden());
    QVERIFY2(waitReceived("chats 60"), qPrintable(received()));
    // A later "Ready" asks for the list no more.
    emitEvent(R"({"type":"auth_state","state":"Ready"})");
    const QByteArray later = R"({"type":"need","what":"nothing"})";
    emitEvent(later);
    QVERIFY(waitReceived("emit " + later.toBase64()));
    QTest::qWait(1500);
    QCOMPARE(received().count("chats 60\n"), 1);
    QVERIFY(main->isAuthorised());
}

void TestController::chatListOpensConversation()
{
    makeController();
    m_spike->window()->resize(720, 1280);
    QVERIFY(waitReceived("ping"));
    emitEvent(R"({"type":"auth_state","state":"Ready"})");
    emitEvent(R"({"type":"chat","id":77,"chat_type":"private","order":"5"})");
    ListView *list = m_spike->chatListView();
    QVERIFY(waitFor([&] { return list->dataModel() && list->dataModel()->rowCount() == 1; }, 5000));
    QVERIFY(waitFor([&] { return list->itemWidget(0); }, 5000));
    // Tapping the row opens the conversation, titled "Chat" for want of a title; back returns.
    const QPoint row = list->itemWidget(0)->geometry().center();
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, row);
    ShellScreens *screens = m_spike->screens();
    QVERIFY(waitFor([&] { return screens->currentScreen() == ShellScreens::Screen::Conversation; },
                    3000));
    QCOMPARE(screens->conversationScreen()->titleLabel()->text(), QStringLiteral("Chat"));
    screens->conversationScreen()->backButton()->click();
    QCOMPARE(screens->currentScreen(), ShellScreens::Screen::Main);
}

void TestController::lifecycleAndScaleOverride()
{
    QVERIFY(writeFile(miscDir() + "/td_debug.env", "UI_DISABLE_BUBBLES=yes\n"));
    makeController("QUILLO_UI_SCALE=1.7");
    QCOMPARE(m_spike->uiScale(), 1.7f);
    QVERIFY(m_spike->disableBubbles());
    QCOMPARE(find<QWidget>("main_header")->minimumHeight(), qRound(112 * 1.7));
    const QString marker = dataDir() + "/ui_running.txt";
    m_spike->onAppThumbnailed();
    QCOMPARE(m_spike->eventIntake()->currentPollInterval(), 2500);
    QVERIFY(QFile::remove(marker));
    m_spike->onAppFullscreen();
    QVERIFY(QFile::exists(marker));
    QCOMPARE(m_spike->eventIntake()->currentPollInterval(), 1000);
    m_spike->mediaDownloads()->setFilePendingFileId(77);
    m_spike->mediaDownloads()->enqueueMediaDownload(77, true);
    m_spike->onLowMemory(2);
    QCOMPARE(m_spike->eventIntake()->currentPollInterval(), 2000);
    QVERIFY(m_spike->mediaDownloads()->queue().isEmpty());
    QCOMPARE(m_spike->mediaDownloads()->filePendingFileId(), 0LL);
    QVERIFY(m_spike->appLog()->buffer().isEmpty());
    m_spike->onAppAboutToQuit();
    QVERIFY(!QFile::exists(marker));
}

void TestController::menuHeaderFollowsOwnProfile()
{
    makeController();
    QVERIFY(waitReceived("ping"));
    MenuScreen *menu = m_spike->screens()->menuScreen();
    const auto text = [this](const char *name) { return find<QLabel>(name)->text(); };
    auto *avatar = find<QLabel>("me_avatar");
    auto *tile = find<QLabel>("me_avatar_letter");
    QVERIFY(avatar && tile && find<QLabel>("me_name") && find<QLabel>("me_username") &&
            find<QLabel>("me_phone"));
    QVERIFY(menu->meCard()->isHidden());

    emitEvent(R"({"type":"auth_state","state":"Ready"})");
    emitEvent(R"({"type":"me","id":"4242","first_name":" Ada ","last_name":"Lovelace",)"
              R"("username":"ada","phone":"15551234","photo_small_id":9001})");
    QVERIFY2(waitFor([&] { return text("me_name") == "Ada Lovelace"; }, 5000),
             qPrintable(text("me_name")));
    QVERIFY(!menu->meCard()->isHidden());
    QCOMPARE(text("me_username") + " " + text("me_phone") + " " + tile->text(),
             QStringLiteral("@ada +15551234 A"));
    QVERIFY(avatar->pixmap(Qt::ReturnByValue).isNull());

    // The own photo is asked for, and asked for again after the chat list's start has emptied
    // the avatar queue.
    QVERIFY2(waitReceived("download 9001"), qPrintable(received()));
    emitEvent(R"({"type":"chats_begin"})");
    QVERIFY2(waitReceived("download 9001", 2), qPrintable(received()));

    // The own user renamed; then the own photo arrives as a downloaded file.
    emitEvent(R"({"type":"user","id":4242,"name":"Countess of Lovelace","photo_small_id":9001})");
    QVERIFY(waitFor([&] { return text("me_name") == "Countess of Lovelace"; }, 5000));
    QCOMPARE(tile->text() + " " + text("me_username"), QStringLiteral("C @ada"));
    const QString photo = m_dir->filePath("me.png");
    QImage img(320, 320, QImage::Format_RGB32);
    img.fill(Qt::green);
    QVERIFY(img.save(photo));
    emitEvent(QStringLiteral(R"({"type":"file","id":9001,"path":"%1"})").arg(photo).toUtf8());
    QVERIFY(waitFor([&] { return !avatar->pixmap(Qt::ReturnByValue).isNull(); }, 5000));
    QVERIFY(tile->isHidden());
    QVERIFY(avatar->property("image_path").toString().startsWith(dataDir() + "/avatar-cache/"));

    // Signed out: the card goes and keeps nothing of the profile.
    emitEvent(R"({"type":"auth_state","state":"WaitPhoneNumber"})");
    QVERIFY(waitFor([&] { return menu->meCard()->isHidden(); }, 5000));
    QCOMPARE(text("me_name") + text("me_username") + text("me_phone"), QString());
    QVERIFY(avatar->pixmap(Qt::ReturnByValue).isNull());
}

QTEST_MAIN(TestController)
#include "test_controller.moc"
