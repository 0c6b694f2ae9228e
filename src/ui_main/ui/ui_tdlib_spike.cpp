#include "ui_main/ui/ui_tdlib_spike.h"

#include "backend_link/app_log.h"
#include "backend_link/backend_link.h"
#include "backend_link/env_file.h"
#include "backend_link/event_intake.h"
#include "chats/avatar_download_queue.h"
#include "chats/chat_filter.h"
#include "chats/chat_list_model.h"
#include "chats/ui/chat_item_provider.h"
#include "conversation/chat_session.h"
#include "conversation/message_text.h"
#include "conversation/ui/chat_screen.h"
#include "conversation/ui/message_item_provider.h"
#include "events/event_dispatcher.h"
#include "media/audio_libs.h"
#include "media/media_downloads.h"
#include "media/media_services.h"
#include "media/video_note_player.h"
#include "media/video_note_recorder.h"
#include "media/voice_player.h"
#include "media/voice_recorder.h"
#include "platform/app_lifecycle.h"
#include "platform/array_data_model.h"
#include "platform/desktop_notifications.h"
#include "platform/display_info.h"
#include "platform/instance_channel.h"
#include "platform/invoker.h"
#include "platform/osicons.h"
#include "platform/toaster.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "platform/ui/system_dialogs.h"
#include "platform/ui/toast_overlay.h"
#include "shell/debug_flags.h"
#include "shell/links.h"
#include "shell/message_notifier.h"
#include "shell/sign_in.h"
#include "shell/style_sheet.h"
#include "shell/theme.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "shell/ui_scale.h"
#include "shell/update_checker.h"

#include <QDBusConnection>
#include <QDir>
#include <QEvent>
#include <QFileInfo>
#include <QPixmapCache>
#include <QProcessEnvironment>
#include <QTimer>

#include <cstdio>

namespace {

QProcessEnvironment toProcessEnvironment(const QStringList &entries)
{
    QProcessEnvironment env;
    for (const QString &e : entries) {
        const int eq = e.indexOf(QLatin1Char('='));
        if (eq > 0)
            env.insert(e.left(eq), e.mid(eq + 1));
    }
    return env;
}

} // namespace

UiTdlibSpike::UiTdlibSpike(const QString &appDir, const QStringList &environment,
                           CommandChannel *commands, QObject *parent)
    : QObject(parent), m_environment(environment)
{
    init_osicons();
    const QProcessEnvironment env = toProcessEnvironment(m_environment);

    // 1. Folders; the app starts in the foreground.
    m_folders = resolve_app_folders(appDir, env);
    QDir().mkpath(m_folders.dataDir);
    m_appActive = true;
    m_log = new AppLog(this);
    m_intake = new EventIntake(m_log, this);
    m_invoker = std::make_unique<DesktopInvoker>();
    m_link =
        new BackendLink(m_folders, m_log, m_intake, m_invoker.get(), m_environment, commands, this);

    // 2. The UI-is-running marker and its refresh timer.
    m_link->startRunningMarker();

    // 3. The one switch the UI itself takes from the developer env files.
    m_disableBubbles = read_disable_bubbles(td_debug_env_path(m_folders.miscDir));

    // 4. Theme, then scale.
    loadThemeSetting();
    applyTheme();
    m_uiScale = detectUiScale();

    // 5. The transport was chosen by the link from the same environment.

    // 6. Memory pressure and incoming invocations.
    m_lifecycle = new AppLifecycle(this);
    QString error;
    if (!m_lifecycle->installSignalHandlers(&error))
        m_log->appendUiFileLog(QStringLiteral("app: no signal handlers: ") + error);
    if (!m_lifecycle->watchMemoryPressure(&error))
        m_log->appendUiFileLog(QStringLiteral("app: no memory pressure watch: ") + error);
    connect(m_lifecycle, &AppLifecycle::lowMemory, this, &UiTdlibSpike::onLowMemory);
    connect(m_lifecycle, &AppLifecycle::terminationRequested, this, [this](int signalNumber) {
        m_log->appendUiFileLog(QStringLiteral("app: quit on signal %1").arg(signalNumber));
    });
    m_instance = new InstanceChannel(InstanceChannel::server_name_for(m_folders.dataDir), this);
    if (!m_instance->listen(&error))
        m_log->appendUiFileLog(QStringLiteral("app: instance channel: ") + error);
    connect(m_instance, &InstanceChannel::urlReceived, this, &UiTdlibSpike::onInvoked);
    connect(m_instance, &InstanceChannel::activationRequested, this,
            &UiTdlibSpike::onActivationRequested);

    // 7. Screens with their initial texts, then the models and the event
    //    dispatch that fill them, wired to the slots.
    buildScreens();
    m_toaster = new ToastOverlay(m_window->screenHost(), this);
    m_chatRows = new ArrayDataModel(this);
    m_chats = new ChatListModel(m_chatRows, this);
    auto send = [this](const QString &line) { sendLine(line); };
    auto log = [this](const QString &text) { appendLog(text); };
    m_avatars = new AvatarDownloadQueue(send, log, this);
    EventDispatcherDeps deps;
    deps.chats = m_chats;
    deps.avatars = m_avatars;
    deps.toaster = m_toaster;
    deps.log = m_log;
    deps.sendLine = send;
    deps.dataDir = m_folders.dataDir;
    m_dispatcher = new EventDispatcher(deps, this);
    connect(m_intake, &EventIntake::eventReceived, m_dispatcher, &EventDispatcher::handleEventMap);
    // Voice notes and downloads; the libraries load on first use.
    m_opus = std::make_unique<OpusLib>();
    m_openal = std::make_unique<OpenAlLib>();
    MediaServices media;
    media.sendLine = send;
    media.appendLog = log;
    media.toaster = m_toaster;
    media.invoker = m_invoker.get();
    m_downloads =
        new MediaDownloads(media, m_folders.downloadsDir, m_folders.sharedPrefix, nullptr, this);
    m_voicePlayer = new VoicePlayer(
        *m_opus, m_downloads, m_folders.dataDir + QStringLiteral("/cache"), media, nullptr, this);
    m_voiceRecorder = new VoiceRecorder(*m_opus, *m_openal, m_folders.dataDir, media, this);
    m_videoNoteRecorder = new VideoNoteRecorder(
        m_folders.dataDir, VideoNoteRecorder::cameraSourceFromEnvironment(m_environment), media,
        this);
    m_videoNotePlayer = new VideoNotePlayer(m_downloads, media, nullptr, this);

    m_chatItems = new ChatItemProvider(m_folders.dataDir + QStringLiteral("/ui-cache"), this);
    m_chatListView->setDataModel(m_chatRows);
    m_chatListView->setListItemProvider(m_chatItems);
    buildConversation();
    connectScreens();
    connectLinks();
    connectUpdateChecker();
    connectConversation();
    connectChatSearch();
    connectFilesCache();
    connectWindow();
    m_window->show();
    checkFoldersWritable();

    // 8. Application lifecycle.
    connect(m_lifecycle, &AppLifecycle::thumbnailed, this, &UiTdlibSpike::onAppThumbnailed);
    connect(m_lifecycle, &AppLifecycle::fullscreen, this, [this] {
        if (!m_pinnedToBackground)
            onAppFullscreen();
    });
    connect(m_lifecycle, &AppLifecycle::aboutToQuit, this, &UiTdlibSpike::onAppAboutToQuit);

    // 9. The retry, avatar and download timers belong to the link and the
    //    queues; each created its own above.

    // 10. First backend attempt.
    m_link->startBackendAttempt();

    // 11. Event polling, 1000 ms to begin with.
    m_intake->startPolling();

    // 12. The headless service request, once, half a second later.
    QTimer::singleShot(500, this, &UiTdlibSpike::onInitNotifications);

    // Developer switch for measurements: behave as if sent to the background
    // right after start, whatever the window system reports later.
    if (env.value(QStringLiteral("VEXA_START_IN_BACKGROUND")) == QLatin1String("1")) {
        m_pinnedToBackground = true;
        QTimer::singleShot(0, this, &UiTdlibSpike::onAppThumbnailed);
    }
}

UiTdlibSpike::~UiTdlibSpike()
{
    saveWindowState();
    // Screens first (they point into the models), then the dispatcher and the
    // link, whose destructor ends the child while the log still exists.
    m_window.reset();
    m_screens = nullptr;
    m_chatListView = nullptr;
    // The media objects hold references to the libraries.
    delete m_videoNoteRecorder;
    delete m_videoNotePlayer;
    delete m_voiceRecorder;
    delete m_voicePlayer;
    delete m_downloads;
    delete m_dispatcher;
    delete m_link;
    delete m_intake;
    delete m_log;
}

Toaster *UiTdlibSpike::toaster() const
{
    return m_toaster;
}

QString UiTdlibSpike::themeFilePath() const
{
    return theme_file_path(m_folders.dataDir);
}

void UiTdlibSpike::loadThemeSetting()
{
    m_darkTheme = read_theme_file(themeFilePath());
}

void UiTdlibSpike::applyTheme()
{
    if (!m_screens)
        return;
    m_screens->applyTheme(m_darkTheme);
    if (m_chatScreen)
        m_chatScreen->setDarkTheme(m_darkTheme);
    // Rows read the theme from the list that shows them, and redraw.
    const QList<ListView *> lists = m_screens->findChildren<ListView *>();
    for (ListView *list : lists) {
        list->setProperty("ui_dark_theme", m_darkTheme);
        list->updateVisibleItems();
    }
}

float UiTdlibSpike::detectUiScale()
{
    const QProcessEnvironment env = toProcessEnvironment(m_environment);
    const QString override = env.contains(QStringLiteral("QUILLO_UI_SCALE"))
                                 ? env.value(QStringLiteral("QUILLO_UI_SCALE"))
                                 : QString();
    const DisplayInfo display(env);
    QString lines;
    const float scale = detect_ui_scale(override, display.pixelSize(), &lines);
    appendLog(lines);
    return scale;
}

void UiTdlibSpike::appendLog(const QString &text)
{
    m_log->appendLog(text);
}

void UiTdlibSpike::sendLine(const QString &line)
{
    m_link->sendLine(line);
}

void UiTdlibSpike::buildScreens()
{
    const DisplayInfo display(toProcessEnvironment(m_environment));
    m_window = std::make_unique<PhoneWindow>(display);
    m_window->setWindowTitle(QStringLiteral("Vexa"));
    m_screens = new ShellScreens(m_darkTheme, m_uiScale);
    m_window->setScreen(m_screens);
    m_chatScreen = new ChatScreen(m_uiScale, m_folders.dataDir + QStringLiteral("/ui-cache"));
    m_screens->setChatScreen(m_chatScreen);

    m_chatListView = new ListView;
    m_chatListView->setObjectName(QStringLiteral("chat_list_view"));
    m_chatListView->setFrameShape(QFrame::NoFrame);
    set_background_group(m_chatListView, ThemeGroup::E);

    m_chatListView->setEstimatedRowHeight(scaled_px(188, m_uiScale));
    m_screens->mainScreen()->setChatListView(m_chatListView);
    m_chatListView->viewport()->installEventFilter(this);
    applyTheme();
}

bool UiTdlibSpike::eventFilter(QObject *watched, QEvent *event)
{
    // Minimised or shown again: the open chat leaves or comes into view.
    if (watched == m_window.get() && event->type() == QEvent::WindowStateChange)
        updateChatVisibility();
    // The first time the list is painted with rows, once: the moment start-up
    // measurements wait for.
    if (event->type() == QEvent::Paint && m_chatListView && watched == m_chatListView->viewport() &&
        !m_chatListView->visibleRows().isEmpty()) {
        watched->removeEventFilter(this);
        m_log->appendUiFileLog(QStringLiteral("ui: chat list drawn, %1 rows in view")
                                   .arg(m_chatListView->visibleRows().size()));
    }
    // Likewise the first page of each chat opened.
    if (event->type() == QEvent::Paint && m_messageListView &&
        watched == m_messageListView->viewport() && !m_messageListView->visibleRows().isEmpty()) {
        watched->removeEventFilter(this);
        m_log->appendUiFileLog(QStringLiteral("ui: chat drawn, %1 rows in view")
                                   .arg(m_messageListView->visibleRows().size()));
    }
    return QObject::eventFilter(watched, event);
}

void UiTdlibSpike::connectScreens()
{
    MainScreen *main = m_screens->mainScreen();
    connect(main, &MainScreen::phoneSubmitted, this, &UiTdlibSpike::onSendPhone);
    connect(main, &MainScreen::codeSubmitted, this, &UiTdlibSpike::onSendCode);
    connect(main, &MainScreen::resendRequested, this, &UiTdlibSpike::onResendCode);
    connect(main, &MainScreen::passwordSubmitted, this, &UiTdlibSpike::onSendPassword);
    connect(main, &MainScreen::reloadChatsRequested, this, &UiTdlibSpike::onLoadChats);
    connect(m_link, &BackendLink::phoneNumberFromEnvironment, main,
            &MainScreen::suggestPhoneNumber);
    connect(m_dispatcher, &EventDispatcher::meDebugTextChanged, main, &MainScreen::setDebugText);
    connect(m_dispatcher, &EventDispatcher::connectionStateChanged, main,
            &MainScreen::setConnectionState);

    MenuScreen *menu = m_screens->menuScreen();
    connect(menu, &MenuScreen::themeToggleRequested, this, &UiTdlibSpike::onToggleTheme);
    connect(m_screens, &ShellScreens::debugLogToggleRequested, this,
            &UiTdlibSpike::onToggleDebugLog);
    // "me", the own "user", the own photo's download and signing out all
    // arrive as meChanged.
    connect(m_dispatcher, &EventDispatcher::meChanged, this, &UiTdlibSpike::updateMenuMeHeader);
    connect(m_chatScreen, &ChatScreen::infoRequested, m_screens,
            [this] { m_screens->showScreen(ShellScreens::Screen::ChatInfo); });

    // The log view shows the in-app log while it is open.
    connect(m_log, &AppLog::viewTextChanged, m_screens, &ShellScreens::setLogText);
    connect(m_log, &AppLog::viewVisibleChanged, m_screens, &ShellScreens::setLogViewVisible);

    // Everything that reports a state writes the one status line.
    connect(m_link, &BackendLink::statusTextChanged, this, &UiTdlibSpike::setStatusText);
    connect(m_intake, &EventIntake::statusTextChanged, this, &UiTdlibSpike::setStatusText);
    connect(m_dispatcher, &EventDispatcher::statusTextChanged, this, &UiTdlibSpike::setStatusText);

    // Signed in: the form goes and the chat list comes. The form comes back
    // only when a fresh client asks for a number (after a log-out), not for
    // the states a closing client passes through.
    connect(m_dispatcher, &EventDispatcher::authStateChanged, this,
            [this](const QString &state, bool authorized) {
                if (authorized || state == QLatin1String("WaitPhoneNumber"))
                    showSignedInView(authorized);
            });
    connect(m_dispatcher, &EventDispatcher::backToChatsRequested, this,
            &UiTdlibSpike::onBackToChats);

    // The chat list model and its view: the model hears whether the view shows
    // its beginning, and brings a chat that rises to the top into view.
    connect(m_chatListView, &ListView::atBeginningChanged, m_chats,
            &ChatListModel::onChatsAtBeginningChanged);
    connect(m_chats, &ChatListModel::scrollToBeginningRequested, m_chatListView,
            [this] { m_chatListView->scrollToPosition(ListView::Beginning, true); });
    connect(m_chats, &ChatListModel::sendLineRequested, this, &UiTdlibSpike::sendLine);
    connect(m_chats, &ChatListModel::logLine, this, &UiTdlibSpike::appendLog);

    // Chat list <-> conversation: the header follows the open chat.
    connect(m_chatListView, &ListView::triggered, this, &UiTdlibSpike::onChatTriggered);
    connect(m_dispatcher, &EventDispatcher::currentChatTitleChanged, m_chatScreen,
            &ChatScreen::setTitle);
    connect(m_dispatcher, &EventDispatcher::chatHeaderSubtitleChanged, m_chatScreen,
            &ChatScreen::setSubtitle);
}

void UiTdlibSpike::connectUpdateChecker()
{
    const UpdateCheckerConfig config = UpdateChecker::configFromEnvironment(
        toProcessEnvironment(m_environment), m_folders.downloadsDir);
    m_updates = new UpdateChecker(config, m_toaster, m_log, this);
    MenuScreen *menu = m_screens->menuScreen();
    connect(menu, &MenuScreen::checkUpdatesRequested, m_updates, &UpdateChecker::onCheckUpdates);
    connect(m_updates, &UpdateChecker::updateQuestionAsked, this,
            &UiTdlibSpike::showUpdateQuestion);
    connect(m_updates, &UpdateChecker::updateQuestionWithdrawn, this, [this] {
        if (m_updateDialog) {
            m_updateDialog->cancel();
            m_updateDialog->deleteLater();
        }
    });
    // The line under "Check updates" says what is going on until it ends.
    connect(m_updates, &UpdateChecker::busyChanged, menu, [menu](bool busy) {
        menu->setUpdateStatus(busy ? QStringLiteral("Checking for updates…") : QString());
    });
    connect(m_updates, &UpdateChecker::downloadProgress, menu,
            [menu](qint64 received, qint64 total, int percent) {
                const auto size = [](qint64 bytes) -> QString {
                    return bytes > 0 ? format_file_size(bytes) : QStringLiteral("0 B");
                };
                menu->setUpdateStatus(
                    percent >= 0 ? QStringLiteral("Downloading update: %1% (%2 of %3)")
                                       .arg(percent)
                                       .arg(size(received), size(total))
                                 : QStringLiteral("Downloading update: %1").arg(size(received)));
            });
}

void UiTdlibSpike::showUpdateQuestion(const UpdateQuestion &question)
{
    if (m_updateDialog) {
        m_updateDialog->cancel();
        m_updateDialog->deleteLater();
    }
    auto *dialog =
        new SystemDialog(question.confirmLabel, question.cancelLabel, m_window->screenHost());
    dialog->setObjectName(QStringLiteral("update_dialog"));
    dialog->setTitle(question.title);
    dialog->setBody(question.body);
    connect(dialog, &SystemUiDialog::finished, m_updates, &UpdateChecker::onUpdateDialogFinished);
    connect(dialog, &SystemUiDialog::finished, dialog, &QObject::deleteLater);
    m_updateDialog = dialog;
    dialog->show();
}

void UiTdlibSpike::setStatusText(const QString &text)
{
    if (m_screens)
        m_screens->mainScreen()->setStatusText(text);
}

void UiTdlibSpike::showSignedInView(bool authorised)
{
    if (m_screens)
        m_screens->mainScreen()->setAuthorised(authorised);
}

void UiTdlibSpike::onToggleTheme()
{
    m_darkTheme = !m_darkTheme;
    applyTheme();
    QString error;
    if (!write_theme_file(themeFilePath(), m_darkTheme, &error))
        appendLog(QStringLiteral("ui: theme file not written: ") + error + QLatin1Char('\n'));
}

void UiTdlibSpike::onToggleDebugLog()
{
    m_intake->onToggleDebugLog();
}

namespace {

void runSignInStep(UiTdlibSpike *spike, SignInAction action, const QString &field)
{
    const SignInStep step = sign_in_step(action, field);
    spike->appendLog(step.log);
    spike->sendLine(step.command);
}

} // namespace

void UiTdlibSpike::onSendPhone(const QString &phone)
{
    runSignInStep(this, SignInAction::SendPhone, phone);
}

void UiTdlibSpike::onSendCode(const QString &code)
{
    runSignInStep(this, SignInAction::SendCode, code);
}

void UiTdlibSpike::onResendCode()
{
    runSignInStep(this, SignInAction::ResendCode, QString());
}

void UiTdlibSpike::onSendPassword(const QString &password)
{
    runSignInStep(this, SignInAction::SendPassword, password);
}

void UiTdlibSpike::onLoadChats()
{
    m_chats->onLoadChats();
}

void UiTdlibSpike::checkFoldersWritable()
{
    // Said once at start, on the console too; what needs no writing (reading events, the
    // screens) goes on regardless.
    QStringList unwritable;
    for (const QString &dir : {m_folders.dataDir, m_folders.downloadsDir}) {
        QString error;
        if (folder_writable(dir, &error))
            continue;
        unwritable << dir;
        m_log->appendLog(QStringLiteral("app: ") + error + QLatin1Char('\n'));
        std::fprintf(stderr, "vexa: %s\n", qPrintable(error));
    }
    if (!unwritable.isEmpty())
        m_toaster->showToast(QStringLiteral("Cannot write to %1").arg(unwritable.join(", ")));
}

void UiTdlibSpike::stopMedia()
{
    if (m_voiceRecorder->voiceRecording())
        m_voiceRecorder->stopVoiceRecording(false);
    m_voicePlayer->stopVoicePlayback();
    m_videoNoteRecorder->stopVideoNoteCapture(false);
    m_videoNotePlayer->stopVideoNotePlayback();
}

void UiTdlibSpike::onAppThumbnailed()
{
    appendLog(QStringLiteral("app: thumbnailed\n"));
    m_appActive = false;
    m_link->onAppThumbnailed();
    // Another window took the focus or the window was minimised: a voice
    // note that plays or records goes on (a recording is never thrown away
    // because the user looked at something else).
    m_intake->onAppThumbnailed();
}

void UiTdlibSpike::onAppFullscreen()
{
    appendLog(QStringLiteral("app: fullscreen\n"));
    m_appActive = true;
    m_link->onAppFullscreen();
    m_intake->onAppFullscreen();
    // Only a new request replaces one that waits for its chat: on a desktop
    // the window comes back to the front often.
    if (QFileInfo::exists(hub_open_file_path(m_folders.dataDir))) {
        m_links->loadHubOpenRequest();
        m_links->tryApplyHubOpenRequest();
    }
}

void UiTdlibSpike::onAppAboutToQuit()
{
    appendLog(QStringLiteral("app: aboutToQuit\n"));
    saveWindowState();
    stopMedia();
    m_link->onAppAboutToQuit();
}

void UiTdlibSpike::onLowMemory(int level)
{
    stopMedia();
    QPixmapCache::clear();
    m_avatars->clear();
    m_downloads->clear();
    m_log->clear();
    m_intake->onLowMemory();
    if (m_log->isViewVisible())
        appendLog(QStringLiteral("app: low_memory level=%1\n").arg(level));
}

void UiTdlibSpike::onInitNotifications()
{
    m_link->onInitNotifications();
}

void UiTdlibSpike::onBackToChats()
{
    // The session closes the chat and answers with chatClosed.
    m_session->onBackToChats();
}

void UiTdlibSpike::onChatTriggered(const QVariantList &indexPath)
{
    if (indexPath.isEmpty())
        return;
    const int row = indexPath.first().toInt();
    // While searching the list shows the filtered rows.
    if (m_chatListView->dataModel() == m_chatFilter) {
        const QVariantMap chat = m_chatFilter->rowAt(row);
        if (!chat.isEmpty())
            openChatFromRow(chat);
        return;
    }
    if (row < 0 || row >= m_chatRows->size())
        return;
    openChatFromRow(m_chatRows->value(row));
}

void UiTdlibSpike::openChatFromRow(const QVariantMap &chat)
{
    if (m_screens)
        m_session->openChatFromRow(chat);
}

void UiTdlibSpike::updateMenuMeHeader()
{
    if (!m_screens)
        return;
    m_screens->menuScreen()->setProfile(m_dispatcher->me());
}

void UiTdlibSpike::raiseWindow()
{
    if (m_window) {
        m_window->show();
        m_window->raise();
        m_window->activateWindow();
    }
}

void UiTdlibSpike::onInvoked(const QString &url)
{
    raiseWindow();
    m_links->onInvoked(url);
}

void UiTdlibSpike::onActivationRequested()
{
    raiseWindow();
    m_links->loadHubOpenRequest();
    m_links->tryApplyHubOpenRequest();
}

qint64 UiTdlibSpike::visibleChatId() const
{
    return isChatVisible() ? m_session->chatId() : 0;
}

void UiTdlibSpike::connectLinks()
{
    LinksDeps deps;
    deps.sendLine = [this](const QString &line) { sendLine(line); };
    deps.log = [this](const QString &text) { appendLog(text); };
    deps.errorLine = [](const QString &line) {
        std::fputs(line.toLocal8Bit().constData(), stderr);
        std::fflush(stderr);
    };
    deps.isSignedIn = [this] { return m_dispatcher->isAuthorized(); };
    deps.chatListRequested = [this] { return m_dispatcher->chatListRequested(); };
    deps.visibleChatId = [this] { return visibleChatId(); };
    deps.toaster = m_toaster;
    deps.invoker = m_invoker.get();
    deps.chats = m_chats;
    deps.dataDir = m_folders.dataDir;
    m_links = new Links(deps, this);

    // A resolve's answer opens the chat (at the message a link named) and
    // ends the wait for it, found or not.
    connect(m_dispatcher, &EventDispatcher::openChatRequested, m_links, &Links::onResolvedChat);
    connect(m_intake, &EventIntake::eventReceived, m_links, [this](const QVariantMap &e) {
        const QString type = e.value(QStringLiteral("type")).toString();
        if (type == QLatin1String("tg_resolve") || type == QLatin1String("tg_resolve_error"))
            m_links->onResolveAnswered(e.value(QStringLiteral("username")).toString());
    });
    connect(m_dispatcher, &EventDispatcher::authStateChanged, m_links,
            [this](const QString &, bool authorized) {
                if (authorized)
                    m_links->tryResolvePendingTg();
            });
    // Sign-in, each chat row and the end of the list may let a waiting
    // request through.
    connect(m_dispatcher, &EventDispatcher::hubOpenRequestCheckRequested, m_links,
            &Links::tryApplyHubOpenRequest);
    connect(m_messageItems, &MessageItemProvider::webLinkActivated, m_links,
            &Links::onWebLinkActivated);
    connect(m_links, &Links::backToChatsRequested, this, &UiTdlibSpike::onBackToChats);
    connect(m_links, &Links::openChatRequested, this,
            [this](const QVariantMap &row, qint64 messageId) {
                if (messageId >= 1)
                    m_session->openChatAtMessage(row, messageId);
                else
                    openChatFromRow(row);
            });
    connect(m_links, &Links::jumpRequested, m_session, &ChatSession::jumpToMessage);

    // Desktop notifications of messages the user does not see arrive; a
    // click opens the chat at that message like any open request.
    m_notifications = new DesktopNotifications(QDBusConnection::sessionBus(), this);
    m_notifier = new MessageNotifier(
        m_notifications, m_chats, [this] { return m_appActive ? visibleChatId() : 0; }, this);
    connect(m_dispatcher, &EventDispatcher::messageEvent, m_notifier,
            &MessageNotifier::onMessageEvent);
    connect(m_session, &ChatSession::chatOpened, m_notifier,
            [this](qint64 chatId) { m_notifier->onChatShown(chatId); });
    connect(m_notifier, &MessageNotifier::openChatRequested, this,
            [this](qint64 chatId, qint64 messageId) {
                raiseWindow();
                m_links->requestOpenChat(chatId, messageId, QStringLiteral("notification"));
            });
    connect(m_notifications, &DesktopNotifications::failed, this, [this](const QString &error) {
        // Once: without a notification service every message would say so.
        if (m_notificationFailureLogged)
            return;
        m_notificationFailureLogged = true;
        m_log->appendUiFileLog(QStringLiteral("ui: notifications unavailable: ") + error);
    });

    // A request left by `vexa --open-chat` before this start.
    m_links->loadHubOpenRequest();
}
