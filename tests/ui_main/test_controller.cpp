#include "backend_link/event_intake.h"
#include "chats/chat_list_model.h"
#include "common/audio.h"
#include "common/recording_commands.h"
#include "common/test_util.h"
#include "conversation/message_row_model.h"
#include "conversation/ui/chat_screen.h"
#include "conversation/ui/message_item_provider.h"
#include "media/media_downloads.h"
#include "media/voice_player.h"
#include "platform/app_lifecycle.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "platform/ui/system_dialogs.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "shell/update_checker.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QLabel>
#include <QLineEdit>
#include <QMetaMethod>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
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
    void signInIntentsAndTheme();
    void chatRisingToTheTop_data();
    void chatRisingToTheTop();
    void conversationRoundTrip();
    void bubbleRequestsReachTheActions();
    void chatInfoPageTakesTheRecord();
    void lifecycleKeepsVoiceOnFocusLoss();
    void menuAndDebugLineFollowOwnProfile();
    void updateQuestionsBecomeDialogs();
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
    QString dataDir() const { return m_dir->filePath("data"); }
    QString miscDir() const { return m_dir->filePath("shared/misc/marlinde"); }
    // Signs in and loads a list of count chats whose order is their id.
    bool loadChats(int count);
    // Answers the open of chat 1 with message 10 (incoming) and 11 (own); true once both show.
    bool showHistory()
    {
        if (!waitFor([&] { return sent("open 1") == 1; }))
            return false;
        feed(R"({"type":"history_begin","chat_id":1,"clear":true})");
        feed(R"({"type":"message","chat_id":1,"id":10,"text":"hi there","outgoing":false})");
        feed(R"({"type":"message","chat_id":1,"id":11,"text":"hello","outgoing":true})");
        feed(R"({"type":"history_end","chat_id":1,"clear":true})");
        return waitFor([&] { return m_spike->messageListView()->itemWidget(1) != nullptr; });
    }

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
    QVERIFY(writeFile(miscDir() + "/td_debug.env", "UI_AUTO_OPEN_CHAT_ID=2\n"));
    makeController({}, false);
    const QString received = dataDir() + "/backend_events.jsonl.received";
    MainScreen *main = m_spike->screens()->mainScreen();
    QCOMPARE(main->findChildren<QLineEdit *>().value(0)->text(), QStringLiteral("+15550123"));
    Q_EMIT main->phoneSubmitted("+15550123");
    QVERIFY(waitFor([&] { return readAll(received) == "ping\nphone +15550123\n"; }));

    // The chat the env files ask for opens once the chat list is complete.
    feed(R"({"type":"auth_state","state":"Ready"})");
    feed(R"({"type":"chats_begin"})");
    feed(R"({"type":"chat","id":1,"title":"One","order":"2"})");
    feed(R"({"type":"chat","id":2,"title":"Two","order":"1"})");
    feed(R"({"type":"chats_end"})");
    QVERIFY(waitFor([&] { return readAll(received).contains("chat_info 2\n"); }));
    QCOMPARE(m_spike->chatScreen()->title(), QStringLiteral("Two"));
}

void TestController::signInIntentsAndTheme()
{
    // What each intent sends is the sign-in rule's business; here: each one (and the list's
    // reload) is wired, and a line break typed into a field never splits a command. The list
    // shown once signed in: test_demo_session.
    const QString themeFile = dataDir() + "/ui_theme.txt";
    QVERIFY(writeFile(themeFile, "dark\n"));
    makeController();
    MainScreen *main = m_spike->screens()->mainScreen();
    const int before = m_commands.lines().size();
    Q_EMIT main->phoneSubmitted("+1 555 0100");
    Q_EMIT main->codeSubmitted("24680");
    Q_EMIT main->resendRequested();
    Q_EMIT main->passwordSubmitted("a\nchats 60");
    Q_EMIT main->reloadChatsRequested();
    QCOMPARE(m_commands.lines().mid(before),
             (QStringList{"phone +1 555 0100", "code 24680", "resend", "password a chats 60",
                          "chats 60"}));
    // The theme toggles, kept in its file and followed by the lists and the screens.
    Q_EMIT m_spike->screens()->menuScreen()->themeToggleRequested();
    QCOMPARE(readAll(themeFile), QByteArray("bright\n"));
    QCOMPARE(m_spike->chatListView()->property("ui_dark_theme"), QVariant(false));
    QVERIFY(!m_spike->screens()->darkTheme());
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
    if (scrolledDown)
        list->scrollToItem({15});
    list->layoutNow();
    // Where a chat is drawn in the viewport, or -1 when it is not.
    const auto yOf = [&](qint64 id) {
        list->layoutNow();
        QWidget *item = list->itemWidget(m_spike->chatList()->findChatIndexById(id));
        return item ? item->y() : -1;
    };
    const qint64 firstId =
        m_spike->chatList()->rowAt(list->visibleRows().first()).value("id").toLongLong();
    const int firstY = yOf(firstId);

    // Chat 3 gets the greatest order and moves to the top: at the beginning it comes into view
    // there, scrolled down the chat the user saw first stays where it was.
    feed(R"({"type":"chat","id":3,"order":"1000"})");
    QVERIFY(waitFor([&] { return m_spike->chatList()->findChatIndexById(3) == 0; }));
    if (scrolledDown)
        QCOMPARE(yOf(firstId), firstY);
    else
        QVERIFY(waitFor([&] { return yOf(3) == 0; }));
}

void TestController::conversationRoundTrip()
{
    // Tapping the row opens the conversation under the chat's title: its info at once, its
    // history after the open delay; Back closes it. Sending: test_message_actions.
    QVERIFY(loadChats(1));
    ListView *chats = m_spike->chatListView();
    QTest::mouseClick(chats->viewport(), Qt::LeftButton, {},
                      chats->itemWidget(0)->geometry().center());
    QVERIFY(waitFor(
        [&] { return m_spike->screens()->currentScreen() == ShellScreens::Screen::Conversation; }));
    QCOMPARE(m_spike->chatScreen()->title(), QStringLiteral("Chat 1"));
    QCOMPARE(sent("chat_info 1"), 1);
    QVERIFY(showHistory());
    // A voice note coming into the chat starts GStreamer ahead of a tap; QtMultimedia (the
    // media module) waits for something to play.
    const auto mapped = [](const char *library) {
        return readAll(QStringLiteral("/proc/self/maps")).contains(library);
    };
    QVERIFY(!mapped("libgstreamer") && !mapped("libQt5Multimedia"));
    feed(R"({"type":"message_new","chat_id":1,"id":12,"media_type":"voice","media_file_id":5})");
    QVERIFY(waitFor([&] { return m_spike->voicePlayer()->isPrepared(); }));
    QVERIFY(mapped("libgstreamer") && !mapped("libQt5Multimedia"));
    Q_EMIT m_spike->chatScreen()->backRequested();
    QCOMPARE(sent("close 1"), 1);
    QCOMPARE(m_spike->screens()->currentScreen(), ShellScreens::Screen::Main);
}

void TestController::bubbleRequestsReachTheActions()
{
    // The bubbles' requests reach the actions and the actions' questions become dialogs whose
    // answers come back: the delete option, the chosen menu entry and the chosen chat. The
    // pointer: test_message_item_provider; what each choice does: test_message_actions.
    QVERIFY(loadChats(2));
    m_spike->openChatFromRow(m_spike->chatList()->rowAt(1));
    QVERIFY(showHistory());
    const auto openDialog = [this](const char *name) -> SystemUiDialog * {
        auto *d = m_spike->window()->findChild<SystemUiDialog *>(QLatin1String(name));
        return d && d->isOpen() ? d : nullptr;
    };
    Q_EMIT m_spike->messageItems()->messageLongPressed(10);
    QVERIFY(m_spike->messageListView()->property("ui_selection_mode").toBool());
    QCOMPARE(sent("props 1 10"), 1);
    feed(R"({"type":"message_properties","chat_id":1,"id":10,"can_be_forwarded":true,)"
         R"("can_be_deleted_only_for_self":true,"can_be_deleted_for_all_users":true})");
    QVERIFY(waitFor([&] { return !m_spike->messages()->messagePropertiesForId(10).isEmpty(); }));
    Q_EMIT m_spike->chatScreen()->selectionDeleteRequested();
    auto *remove = qobject_cast<SystemDialog *>(openDialog("delete_dialog"));
    QVERIFY(remove);
    remove->setRememberMeChecked(true);
    remove->finishWith(SystemUiResult::ConfirmButtonSelection);
    QCOMPARE(sent("delete 1 all 10"), 1);

    feed(R"({"type":"message_properties","chat_id":1,"id":11,"can_be_forwarded":true})");
    QVERIFY(waitFor([&] { return !m_spike->messages()->messagePropertiesForId(11).isEmpty(); }));
    Q_EMIT m_spike->messageItems()->messageMenuRequested(11);
    auto *menu = qobject_cast<SystemListDialog *>(openDialog("message_menu_dialog"));
    QVERIFY(menu);
    menu->setSelectedIndices({int(menu->items().indexOf("Forward"))});
    menu->finishWith(SystemUiResult::ConfirmButtonSelection);
    auto *picker = qobject_cast<SystemListDialog *>(openDialog("forward_dialog"));
    QVERIFY(picker);
    picker->setSelectedIndices({0});
    picker->finishWith(SystemUiResult::ConfirmButtonSelection);
    QCOMPARE(sent("forward 2 1 11"), 1);
}

void TestController::chatInfoPageTakesTheRecord()
{
    // The info page opens from the conversation and takes the backend's record. What each
    // control does, and a second question replacing the first: test_chat_details.
    QVERIFY(loadChats(1));
    m_spike->openChatFromRow(m_spike->chatList()->rowAt(0));
    Q_EMIT m_spike->chatScreen()->infoRequested();
    QCOMPARE(m_spike->screens()->currentScreen(), ShellScreens::Screen::ChatInfo);
    feed(R"({"type":"chat_info","chat_id":1,"username":"news","member_count":900,)"
         R"("is_member":true})");
    ChatInfoScreen *info = m_spike->screens()->chatInfoScreen();
    QVERIFY(waitFor([&] { return textsIn(info).contains("t.me/news"); }));
    QVERIFY(textsIn(info).contains("900"));
}

void TestController::updateQuestionsBecomeDialogs()
{
    makeController();
    UpdateChecker *updates = m_spike->updateChecker();
    // A question becomes a dialog over the phone screen; a newer one
    // replaces it, and a withdrawn one goes away unanswered.
    const auto dialogs = [this] {
        QList<SystemUiDialog *> open;
        for (auto *d : m_spike->window()->findChildren<SystemUiDialog *>())
            if (d->isOpen())
                open << d;
        return open;
    };
    Q_EMIT updates->updateQuestionAsked({"Update available", "Version 2", "Download", "Later"});
    Q_EMIT updates->updateQuestionAsked({"Update available", "Version 3", "Download", "Later"});
    QCOMPARE(dialogs().size(), 1);
    QCOMPARE(dialogs().first()->body(), QStringLiteral("Version 3"));
    Q_EMIT updates->updateQuestionWithdrawn();
    QVERIFY(dialogs().isEmpty());
}

void TestController::lifecycleKeepsVoiceOnFocusLoss()
{
    makeController();
    const QString wav = m_dir->filePath("note.wav");
    QVERIFY(writeFile(wav, testaudio::wav_bytes(testaudio::tone(440, 1, 48000, 1), 48000, 1)));
    m_spike->voicePlayer()->startVoicePlayback(31, wav);

    // Another window takes the focus: polling slows, the voice note goes on.
    m_spike->lifecycle()->onApplicationStateChanged(Qt::ApplicationInactive);
    QCOMPARE(m_spike->eventIntake()->currentPollInterval(), 2500);
    QCOMPARE(m_spike->voicePlayer()->playingFileId(), 31LL);
    m_spike->lifecycle()->onApplicationStateChanged(Qt::ApplicationActive);
    QCOMPARE(m_spike->eventIntake()->currentPollInterval(), 1000);

    // Short of memory: the download queue and the voice note go.
    m_spike->mediaDownloads()->enqueueMediaDownload(77, true);
    m_spike->onLowMemory(2);
    QCOMPARE(m_spike->eventIntake()->currentPollInterval(), 2000);
    QVERIFY(m_spike->mediaDownloads()->queue().isEmpty());
    QCOMPARE(m_spike->voicePlayer()->playingFileId(), 0LL);
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
    QVERIFY(waitFor([&] { return sent("download 9001") == 1; }));
    // Signed out: the card keeps nothing of the profile.
    feed(R"({"type":"auth_state","state":"WaitPhoneNumber"})");
    QVERIFY(waitFor([&] { return !textsIn(menu).contains("Ada Lovelace"); }));
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
    // A signal of a subsystem that nothing receives is a feature that does
    // not reach the user. The ones below wait for the screens that will use
    // them.
    const QSet<QString> later = {
        // The chat list's own scroll state and the pinned list's (the message
        // list's drives its paging); message taps reach the item provider, not
        // the list.
        "ListView::atEndChanged", "ListView::atBeginningChanged",
        "ListView::firstVisibleItemChanged", "ListView::triggered"};
    // Reports for the benchmark and the recorder's own tests; the user sees
    // the recording end through recordingChanged.
    const QSet<QString> forMeasurement = {"VideoNoteRecorder::frameEncoded",
                                          "VideoNoteRecorder::sent"};
    makeController();
    QStringList unheard;
    QSet<QString> heardLater, unheardLater;
    // Every object of ours the controller owns, the widgets of its window too.
    for (QObject *o :
         m_spike->findChildren<QObject *>() + m_spike->window()->findChildren<QObject *>()) {
        const QMetaObject *mo = o->metaObject();
        if (QByteArray(mo->className()).startsWith('Q'))
            continue;
        // Signals of our own base classes too (the recorder's come from its interface).
        const QMetaObject *ours = mo;
        while (ours->superClass() && !QByteArray(ours->superClass()->className()).startsWith('Q'))
            ours = ours->superClass();
        for (int i = ours->methodOffset(); i < mo->methodCount(); ++i) {
            const QMetaMethod m = mo->method(i);
            if (m.methodType() != QMetaMethod::Signal)
                continue;
            const QString name = QStringLiteral("%1::%2").arg(mo->className(), m.name());
            const QByteArray signature = QByteArray::number(QSIGNAL_CODE) + m.methodSignature();
            const int count = (o->*&ReceiverCount::receivers)(signature.constData());
            if (count == 0 && !later.contains(name) && !forMeasurement.contains(name))
                unheard << name;
            if (later.contains(name))
                (count > 0 ? heardLater : unheardLater) << name;
        }
    }
    // Two objects of one class (the chat and the message list) may use a
    // signal differently: a listed one is stale only when every object hears it.
    for (const QString &name : heardLater - unheardLater)
        unheard << name + " (now wired: drop it from the list)";
    unheard.removeDuplicates();
    QVERIFY2(unheard.isEmpty(), qPrintable(unheard.join(", ")));
}

QTEST_MAIN(TestController)
#include "test_controller.moc"
