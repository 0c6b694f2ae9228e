#include "backend_link/app_log.h"
#include "backend_link/backend_link.h"
#include "backend_link/event_intake.h"
#include "chats/chat_list_model.h"
#include "common/audio.h"
#include "common/recording_commands.h"
#include "common/test_util.h"
#include "events/event_dispatcher.h"
#include "media/media_downloads.h"
#include "media/voice_player.h"
#include "media/voice_recorder.h"
#include "platform/app_lifecycle.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QLabel>
#include <QLineEdit>
#include <QMetaMethod>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace test_util;

namespace {

// Texts a person can read in a widget tree.
QStringList textsIn(const QWidget *root)
{
    QStringList texts;
    for (auto *l : root->findChildren<QLabel *>())
        if (!l->isHidden())
            texts << l->text();
    return texts;
}

} // namespace

// The controller in this process. Events are appended to the real events file and read by the
// real intake; the command lines it sends are recorded by the injected channel. One case keeps
// the stand-in backend as a real child, for the start-up wiring.
class TestController : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void startsChildAndFillsPhone();
    void signInIntents_data();
    void signInIntents();
    void themeToggleTwice_data();
    void themeToggleTwice();
    void readyShowsListAsksForChatsAndReloads();
    void chatRisingToTheTop_data();
    void chatRisingToTheTop();
    void chatListOpensConversation();
    void lifecycleKeepsVoiceOnFocusLoss();
    void menuAndDebugLineFollowOwnProfile();
    void everySignalHasAReceiver();

private:
    // Service mode with the recording channel: no child and no port.
    void makeController(const QStringList &extraEnv = {"UI_USE_SERVICE_BACKEND=1"},
                        bool record = true);
    // Appends one event line and lets the intake read it now.
    void feed(const QByteArray &json)
    {
        QVERIFY(writeFile(dataDir() + "/backend_events.jsonl", json + '\n', true));
        m_spike->eventIntake()->onPoll();
    }
    int sent(const QString &line) const { return m_commands.count(line); }
    QString status() const { return m_spike->screens()->mainScreen()->statusText(); }
    QString dataDir() const { return m_dir->filePath("data"); }
    QString miscDir() const { return m_dir->filePath("shared/misc/marlinde"); }
    // Signs in and loads a list of count chats whose order is their id.
    bool loadChats(int count);

    std::unique_ptr<QTemporaryDir> m_dir;
    RecordingCommands m_commands;
    std::unique_ptr<UiTdlibSpike> m_spike;
};

void TestController::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_commands.clear();
    QVERIFY(QDir().mkpath(m_dir->filePath("app")) && QDir().mkpath(miscDir()));
}

void TestController::cleanup()
{
    m_spike.reset();
    m_dir.reset();
}

void TestController::makeController(const QStringList &extraEnv, bool record)
{
    const QStringList env = cleanEnvironment() << "VEXA_DATA_DIR=" + dataDir()
                                               << "VEXA_SHARED_DIR=" + m_dir->filePath("shared")
                                               << "VEXA_ZOOM=1" << extraEnv;
    m_spike =
        std::make_unique<UiTdlibSpike>(m_dir->filePath("app"), env, record ? &m_commands : nullptr);
}

bool TestController::loadChats(int count)
{
    makeController();
    m_spike->window()->resize(720, 1280);
    feed(R"({"type":"auth_state","state":"Ready"})");
    feed(R"({"type":"chats_begin"})");
    for (int id = 1; id <= count; ++id)
        feed(QStringLiteral(R"({"type":"chat","id":%1,"title":"Chat %1","order":"%1"})")
                 .arg(id)
                 .toUtf8());
    feed(R"({"type":"chats_end"})");
    ListView *list = m_spike->chatListView();
    return waitFor([&] {
        return m_spike->chatList()->size() == count && !m_spike->chatList()->isBulkLoading() &&
               list->itemWidget(0);
    });
}

void TestController::startsChildAndFillsPhone()
{
    // The real child in local mode: it is started and pinged, the form takes the phone number
    // from the env files, and what the form sends reaches the child's standard input.
    QVERIFY(installExecutable(FAKE_BACKEND_PATH, m_dir->filePath("app/td_backend")));
    QVERIFY(writeFile(miscDir() + "/tg_login.env", "TG_PHONE_NUMBER=+15550123\n"));
    makeController({}, false);
    const QString received = dataDir() + "/backend_events.jsonl.received";
    QVERIFY(waitFor([&] { return readAll(received) == "ping\n"; }));
    QCOMPARE(status(), QStringLiteral("Backend started"));
    MainScreen *main = m_spike->screens()->mainScreen();
    QCOMPARE(main->findChildren<QLineEdit *>().value(0)->text(), QStringLiteral("+15550123"));
    Q_EMIT main->phoneSubmitted("+15550123");
    QVERIFY(waitFor([&] { return readAll(received) == "ping\nphone +15550123\n"; }));
}

void TestController::signInIntents_data()
{
    // What each intent sends is the sign-in rule's business; here: each one is wired.
    QTest::addColumn<int>("intent");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("sent");
    QTest::newRow("phone") << 0 << "+1 555 0100"
                           << "phone +1 555 0100";
    QTest::newRow("code") << 1 << "24680"
                          << "code 24680";
    QTest::newRow("resend") << 2 << ""
                            << "resend";
    QTest::newRow("password with a line break") << 3 << "a\nchats 60"
                                                << "password a chats 60";
}

void TestController::signInIntents()
{
    QFETCH(int, intent);
    QFETCH(QString, typed);
    QFETCH(QString, sent);
    makeController();
    MainScreen *main = m_spike->screens()->mainScreen();
    const QStringList before = m_commands.lines();
    for (int i = 0; i < 2; ++i) { // pressing twice sends twice
        switch (intent) {
        case 0:
            Q_EMIT main->phoneSubmitted(typed);
            break;
        case 1:
            Q_EMIT main->codeSubmitted(typed);
            break;
        case 2:
            Q_EMIT main->resendRequested();
            break;
        default:
            Q_EMIT main->passwordSubmitted(typed);
        }
    }
    QCOMPARE(m_commands.lines().mid(before.size()), (QStringList{sent, sent}));
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
    MenuScreen *menu = m_spike->screens()->menuScreen();
    Q_EMIT menu->themeToggleRequested();
    QCOMPARE(readAll(themeFile), dark ? QByteArray("bright\n") : QByteArray("dark\n"));
    QCOMPARE(m_spike->chatListView()->property("ui_dark_theme"), QVariant(!dark));
    Q_EMIT menu->themeToggleRequested();
    QCOMPARE(readAll(themeFile), initial);
    QCOMPARE(m_spike->screens()->darkTheme(), dark);
}

void TestController::readyShowsListAsksForChatsAndReloads()
{
    makeController();
    MainScreen *main = m_spike->screens()->mainScreen();
    feed(R"({"type":"auth_state","state":"WaitPhoneNumber"})");
    QCOMPARE(status(), QStringLiteral("Auth: WaitPhoneNumber"));
    QVERIFY(!main->isAuthorised());
    feed(R"({"type":"auth_state","state":"Ready"})");
    QVERIFY(main->isAuthorised());
    QVERIFY(m_spike->chatListView()->isVisibleTo(main));
    QCOMPARE(sent("chats 60"), 1);
    // The list's reload action asks again.
    Q_EMIT main->reloadChatsRequested();
    QCOMPARE(sent("chats 60"), 2);
}

void TestController::chatRisingToTheTop_data()
{
    QTest::addColumn<bool>("scrolledDown");
    QTest::newRow("list at its beginning: the risen chat comes into view") << false;
    QTest::newRow("list scrolled down: what the user reads stays put") << true;
}

void TestController::chatRisingToTheTop()
{
    QFETCH(bool, scrolledDown);
    QVERIFY(loadChats(40));
    ListView *list = m_spike->chatListView();
    QVERIFY(QTest::qWaitForWindowExposed(m_spike->window()));
    list->layoutNow();
    QVERIFY(list->isAtBeginning());
    if (scrolledDown) {
        list->scrollToItem({15});
        list->layoutNow();
        QVERIFY(!list->isAtBeginning());
    }
    const int firstRow = list->visibleRows().first();
    const qint64 firstId = m_spike->chatList()->rowAt(firstRow).value("id").toLongLong();
    const int firstY = list->itemWidget(firstRow)->y();

    // Chat 3 gets the greatest order and moves to the top.
    feed(R"({"type":"chat","id":3,"order":"1000"})");
    QVERIFY(waitFor([&] { return m_spike->chatList()->findChatIndexById(3) == 0; }));
    if (!scrolledDown) {
        QVERIFY(waitFor([&] {
            list->layoutNow();
            return list->scrollOffset() == 0 && list->itemWidget(0) &&
                   list->itemWidget(0)->y() == 0;
        }));
        QVERIFY(textsIn(list->itemWidget(0)).contains("Chat 3"));
        return;
    }
    list->layoutNow();
    const int nowRow = m_spike->chatList()->findChatIndexById(firstId);
    QCOMPARE(nowRow, firstRow + 1);
    QVERIFY(list->itemWidget(nowRow));
    QCOMPARE(list->itemWidget(nowRow)->y(), firstY);
    QVERIFY(!list->isAtBeginning());
}

void TestController::chatListOpensConversation()
{
    QVERIFY(loadChats(1));
    ListView *list = m_spike->chatListView();
    // Tapping the row opens the conversation under the chat's title; back returns.
    const QPoint row = list->itemWidget(0)->geometry().center();
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, row);
    ShellScreens *screens = m_spike->screens();
    QVERIFY(
        waitFor([&] { return screens->currentScreen() == ShellScreens::Screen::Conversation; }));
    QCOMPARE(screens->conversationScreen()->title(), QStringLiteral("Chat 1"));
    Q_EMIT screens->conversationScreen()->backRequested();
    QCOMPARE(screens->currentScreen(), ShellScreens::Screen::Main);
}

void TestController::lifecycleKeepsVoiceOnFocusLoss()
{
    QVERIFY(writeFile(miscDir() + "/td_debug.env", "UI_DISABLE_BUBBLES=yes\n"));
    makeController({"UI_USE_SERVICE_BACKEND=1", "QUILLO_UI_SCALE=1.7"});
    QCOMPARE(m_spike->uiScale(), 1.7f);
    QVERIFY(m_spike->disableBubbles());
    const QString marker = dataDir() + "/ui_running.txt";
    const QString wav = m_dir->filePath("note.wav");
    QVERIFY(writeFile(wav, testaudio::wav_bytes(testaudio::tone(440, 1, 48000, 1), 48000, 1)));
    m_spike->voicePlayer()->startVoicePlayback(31, wav);
    QCOMPARE(m_spike->voicePlayer()->playingFileId(), 31LL);

    // Another window takes the focus: polling slows, the voice note goes on.
    m_spike->lifecycle()->onApplicationStateChanged(Qt::ApplicationInactive);
    QCOMPARE(m_spike->eventIntake()->currentPollInterval(), 2500);
    QVERIFY(!m_spike->isAppActive());
    QCOMPARE(m_spike->voicePlayer()->playingFileId(), 31LL);
    QVERIFY(QFile::remove(marker));
    m_spike->lifecycle()->onApplicationStateChanged(Qt::ApplicationActive);
    QVERIFY(QFile::exists(marker));
    QCOMPARE(m_spike->eventIntake()->currentPollInterval(), 1000);

    m_spike->mediaDownloads()->setFilePendingFileId(77);
    m_spike->mediaDownloads()->enqueueMediaDownload(77, true);
    m_spike->onLowMemory(2);
    QCOMPARE(m_spike->eventIntake()->currentPollInterval(), 2000);
    QVERIFY(m_spike->mediaDownloads()->queue().isEmpty());
    QCOMPARE(m_spike->mediaDownloads()->filePendingFileId(), 0LL);
    QCOMPARE(m_spike->voicePlayer()->playingFileId(), 0LL);
    QVERIFY(m_spike->appLog()->buffer().isEmpty());

    m_spike->voicePlayer()->startVoicePlayback(32, wav);
    m_spike->onAppAboutToQuit();
    QCOMPARE(m_spike->voicePlayer()->playingFileId(), 0LL);
    QVERIFY(!QFile::exists(marker));
}

void TestController::menuAndDebugLineFollowOwnProfile()
{
    makeController();
    MainScreen *main = m_spike->screens()->mainScreen();
    MenuScreen *menu = m_spike->screens()->menuScreen();
    feed(R"({"type":"auth_state","state":"Ready"})");
    feed(R"({"type":"me","id":"4242","first_name":" Ada ","last_name":"Lovelace",)"
         R"("username":"ada","phone":"15551234","photo_small_id":9001})");
    QVERIFY(waitFor([&] { return textsIn(menu).contains("Ada Lovelace"); }));
    QVERIFY(textsIn(main).contains("ME id=4242"));

    // The own photo is asked for, and asked for again after the chat list's start has emptied
    // the avatar queue.
    QVERIFY(waitFor([&] { return sent("download 9001") == 1; }));
    feed(R"({"type":"chats_begin"})");
    QVERIFY(waitFor([&] { return sent("download 9001") == 2; }));

    // The own user renamed; then the own photo arrives as a downloaded file.
    feed(R"({"type":"user","id":4242,"name":"Countess of Lovelace","photo_small_id":9001})");
    QVERIFY(waitFor([&] { return textsIn(menu).contains("Countess of Lovelace"); }));
    const QString photo = m_dir->filePath("me.png");
    QImage img(320, 320, QImage::Format_RGB32);
    img.fill(Qt::green);
    QVERIFY(img.save(photo));
    feed(QStringLiteral(R"({"type":"file","id":9001,"path":"%1"})").arg(photo).toUtf8());
    auto shownPhoto = [menu] {
        for (auto *l : menu->findChildren<QLabel *>())
            if (!l->pixmap(Qt::ReturnByValue).isNull())
                return l->property("image_path").toString();
        return QString();
    };
    QVERIFY(waitFor([&] { return !shownPhoto().isEmpty(); }));
    QVERIFY(shownPhoto().startsWith(dataDir() + "/avatar-cache/"));

    // Signed out: the card keeps nothing of the profile.
    feed(R"({"type":"auth_state","state":"WaitPhoneNumber"})");
    QVERIFY(waitFor([&] { return !textsIn(menu).contains("Countess of Lovelace"); }));
    QVERIFY(shownPhoto().isEmpty());
}

namespace {

// QObject::receivers is protected; a member pointer taken through a subclass may be applied to
// any QObject.
struct ReceiverCount : QObject
{
    using QObject::receivers;
};

} // namespace

void TestController::everySignalHasAReceiver()
{
    // A signal of a subsystem that nothing receives is a feature that does not reach the user.
    // The ones below wait for the screens that will use them.
    const QSet<QString> later = {
        // The conversation: message rows, history, sends, read marks.
        "EventDispatcher::messageEvent", "EventDispatcher::currentChatReadOutboxChanged",
        "EventDispatcher::signedInViewResetRequested", "EventDispatcher::connectionStateChanged",
        "EventDispatcher::avatarReady", "ConversationScreen::searchRequested",
        "ConversationScreen::toBottomRequested", "ConversationScreen::replyCancelled",
        "ConversationScreen::editCancelled", "ConversationScreen::attachRequested",
        "ConversationScreen::actionTriggered",
        // Media in the conversation: files, voice notes, viewers.
        "EventDispatcher::fileEvent", "MediaDownloads::mediaRowsNeedRefresh",
        "MediaDownloads::fileSharedPathChanged", "MediaDownloads::videoViewerRequested",
        "VoicePlayer::mediaRowsNeedRefresh", "VoicePlayer::videoNotePlaybackStopRequested",
        "VoiceRecorder::gestureResetRequested", "VoiceRecorder::voiceRecordingChanged",
        "VoiceRecorder::replyTargetConsumed", "MediaViewerScreen::playRequested",
        // Message actions, selection and the chat information page.
        "EventDispatcher::chatInfoChanged", "ConversationScreen::moreRequested",
        "ConversationScreen::selectionClosed", "ConversationScreen::selectionReplyRequested",
        "ConversationScreen::selectionForwardRequested",
        "ConversationScreen::selectionDeleteRequested", "ChatInfoScreen::clearHistoryRequested",
        "ChatInfoScreen::joinRequested", "ChatInfoScreen::leaveRequested",
        "ChatInfoScreen::deleteChatRequested",
        // Links and hub open requests; the update checker.
        "EventDispatcher::hubOpenRequestCheckRequested", "MenuScreen::checkUpdatesRequested",
        // Pinned messages, search and the files cache.
        "EventDispatcher::pinnedEvent", "EventDispatcher::chatSearchResultsReady",
        "MainScreen::searchRequested", "MenuScreen::recalculateCacheRequested",
        "MenuScreen::clearCacheRequested",
        // The two-pane window follows what is in view; the message list pages.
        "ShellScreens::screenChanged", "ListView::atEndChanged",
        "ListView::firstVisibleItemChanged"};
    makeController();
    QObjectList subsystems = {
        m_spike->backendLink(),    m_spike->eventIntake(), m_spike->appLog(),
        m_spike->dispatcher(),     m_spike->chatList(),    m_spike->lifecycle(),
        m_spike->mediaDownloads(), m_spike->voicePlayer(), m_spike->voiceRecorder(),
        m_spike->screens(),        m_spike->chatListView()};
    for (QWidget *w : m_spike->screens()->findChildren<QWidget *>())
        if (!QByteArray(w->metaObject()->className()).startsWith('Q'))
            subsystems << w;
    QStringList unheard;
    for (QObject *o : subsystems) {
        const QMetaObject *mo = o->metaObject();
        for (int i = mo->methodOffset(); i < mo->methodCount(); ++i) {
            const QMetaMethod m = mo->method(i);
            if (m.methodType() != QMetaMethod::Signal)
                continue;
            const QString name = QStringLiteral("%1::%2").arg(mo->className(), m.name());
            const QByteArray signature = QByteArray::number(QSIGNAL_CODE) + m.methodSignature();
            const int count = (o->*&ReceiverCount::receivers)(signature.constData());
            if (count == 0 && !later.contains(name))
                unheard << name;
            if (count > 0 && later.contains(name))
                unheard << name + " (now wired: drop it from the list)";
        }
    }
    unheard.removeDuplicates();
    QVERIFY2(unheard.isEmpty(), qPrintable(unheard.join(", ")));
}

QTEST_MAIN(TestController)
#include "test_controller.moc"
