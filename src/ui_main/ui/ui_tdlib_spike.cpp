#include "ui_main/ui/ui_tdlib_spike.h"

#include "backend_link/app_log.h"
#include "backend_link/backend_link.h"
#include "backend_link/env_file.h"
#include "backend_link/event_intake.h"
#include "chats/avatar_download_queue.h"
#include "chats/chat_list_model.h"
#include "chats/ui/chat_item_provider.h"
#include "events/event_dispatcher.h"
#include "media/audio_libs.h"
#include "media/media_downloads.h"
#include "media/media_services.h"
#include "media/voice_player.h"
#include "media/voice_recorder.h"
#include "platform/app_lifecycle.h"
#include "platform/array_data_model.h"
#include "platform/display_info.h"
#include "platform/instance_channel.h"
#include "platform/invoker.h"
#include "platform/toaster.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "platform/ui/toast_overlay.h"
#include "shell/debug_flags.h"
#include "shell/osicons.h"
#include "shell/sign_in.h"
#include "shell/theme.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "shell/ui_scale.h"

#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QPixmapCache>
#include <QPlainTextEdit>
#include <QProcessEnvironment>
#include <QPushButton>
#include <QScrollBar>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

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

UiTdlibSpike::UiTdlibSpike(const QString &appDir, const QStringList &environment, QObject *parent)
    : QObject(parent), environment_(environment)
{
    init_osicons();
    const QProcessEnvironment env = toProcessEnvironment(environment_);

    // 1. Folders; the app starts in the foreground.
    folders_ = resolve_app_folders(appDir, env);
    QDir().mkpath(folders_.dataDir);
    appActive_ = true;
    log_ = new AppLog(this);
    intake_ = new EventIntake(log_, this);
    invoker_ = std::make_unique<DesktopInvoker>();
    link_ = new BackendLink(folders_, log_, intake_, invoker_.get(), environment_, this);

    // 2. The UI-is-running marker and its refresh timer.
    link_->startRunningMarker();

    // 3. The one switch the UI itself takes from the developer env files.
    disableBubbles_ = read_disable_bubbles(td_debug_env_path(folders_.miscDir));

    // 4. Theme, then scale.
    loadThemeSetting();
    applyTheme();
    uiScale_ = detectUiScale();

    // 5. The transport was chosen by the link from the same environment.

    // 6. Memory pressure and incoming invocations.
    lifecycle_ = new AppLifecycle(this);
    QString error;
    if (!lifecycle_->installSignalHandlers(&error))
        log_->appendUiFileLog(QStringLiteral("app: no signal handlers: ") + error);
    if (!lifecycle_->watchMemoryPressure(&error))
        log_->appendUiFileLog(QStringLiteral("app: no memory pressure watch: ") + error);
    connect(lifecycle_, &AppLifecycle::lowMemory, this, &UiTdlibSpike::onLowMemory);
    instance_ = new InstanceChannel(InstanceChannel::server_name_for(folders_.dataDir), this);
    if (!instance_->listen(&error))
        log_->appendUiFileLog(QStringLiteral("app: instance channel: ") + error);
    connect(instance_, &InstanceChannel::urlReceived, this, &UiTdlibSpike::onInvoked);
    connect(instance_, &InstanceChannel::activationRequested, this, [this] {
        if (window_) {
            window_->show();
            window_->raise();
            window_->activateWindow();
        }
    });

    // 7. Screens with their initial texts, then the models and the event
    //    dispatch that fill them, wired to the slots.
    buildScreens();
    toaster_ = new ToastOverlay(window_->screenHost(), this);
    chatRows_ = new ArrayDataModel(this);
    chats_ = new ChatListModel(chatRows_, this);
    auto send = [this](const QString &line) { sendLine(line); };
    auto log = [this](const QString &text) { appendLog(text); };
    avatars_ = new AvatarDownloadQueue(send, log, this);
    EventDispatcherDeps deps;
    deps.chats = chats_;
    deps.avatars = avatars_;
    deps.toaster = toaster_;
    deps.log = log_;
    deps.sendLine = send;
    deps.dataDir = folders_.dataDir;
    dispatcher_ = new EventDispatcher(deps, this);
    connect(intake_, &EventIntake::eventReceived, dispatcher_, &EventDispatcher::handleEventMap);
    // Voice notes and downloads; the libraries load on first use.
    opus_ = std::make_unique<OpusLib>();
    openal_ = std::make_unique<OpenAlLib>();
    MediaServices media;
    media.sendLine = send;
    media.appendLog = log;
    media.toaster = toaster_;
    media.invoker = invoker_.get();
    downloads_ =
        new MediaDownloads(media, folders_.downloadsDir, folders_.sharedPrefix, nullptr, this);
    voicePlayer_ = new VoicePlayer(*opus_, downloads_, folders_.dataDir + QStringLiteral("/cache"),
                                   media, nullptr, this);
    voiceRecorder_ = new VoiceRecorder(*opus_, *openal_, folders_.dataDir, media, this);

    chatItems_ = new ChatItemProvider(folders_.dataDir + QStringLiteral("/ui-cache"), this);
    chatListView_->setDataModel(chatRows_);
    chatListView_->setListItemProvider(chatItems_);
    connectScreens();
    window_->show();

    // 8. Application lifecycle.
    connect(lifecycle_, &AppLifecycle::thumbnailed, this, &UiTdlibSpike::onAppThumbnailed);
    connect(lifecycle_, &AppLifecycle::fullscreen, this, [this] {
        if (!pinnedToBackground_)
            onAppFullscreen();
    });
    connect(lifecycle_, &AppLifecycle::aboutToQuit, this, &UiTdlibSpike::onAppAboutToQuit);

    // 9. The retry, avatar and download timers belong to the link and the
    //    queues; each created its own above.

    // 10. First backend attempt.
    link_->startBackendAttempt();

    // 11. Event polling, 1000 ms to begin with.
    intake_->startPolling();

    // 12. The headless service request, once, half a second later.
    QTimer::singleShot(500, this, &UiTdlibSpike::onInitNotifications);

    // Developer switch for measurements: behave as if sent to the background
    // right after start, whatever the window system reports later.
    if (env.value(QStringLiteral("VEXA_START_IN_BACKGROUND")) == QLatin1String("1")) {
        pinnedToBackground_ = true;
        QTimer::singleShot(0, this, &UiTdlibSpike::onAppThumbnailed);
    }
}

UiTdlibSpike::~UiTdlibSpike()
{
    // Screens first (they point into the models), then the dispatcher and the
    // link, whose destructor ends the child while the log still exists.
    window_.reset();
    screens_ = nullptr;
    chatListView_ = nullptr;
    // The media objects hold references to the libraries.
    delete voiceRecorder_;
    delete voicePlayer_;
    delete downloads_;
    delete dispatcher_;
    delete link_;
    delete intake_;
    delete log_;
}

Toaster *UiTdlibSpike::toaster() const
{
    return toaster_;
}

QString UiTdlibSpike::themeFilePath() const
{
    return theme_file_path(folders_.dataDir);
}

void UiTdlibSpike::loadThemeSetting()
{
    darkTheme_ = read_theme_file(themeFilePath());
}

void UiTdlibSpike::applyTheme()
{
    if (!screens_)
        return;
    screens_->applyTheme(darkTheme_);
    // Rows read the theme from the list that shows them, and redraw.
    const QList<ListView *> lists = screens_->findChildren<ListView *>();
    for (ListView *list : lists) {
        list->setProperty("ui_dark_theme", darkTheme_);
        list->updateVisibleItems();
    }
    screens_->conversationScreen()->messageListHost()->setProperty("ui_dark_theme", darkTheme_);
}

float UiTdlibSpike::detectUiScale()
{
    const QProcessEnvironment env = toProcessEnvironment(environment_);
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
    log_->appendLog(text);
}

void UiTdlibSpike::sendLine(const QString &line)
{
    link_->sendLine(line);
}

void UiTdlibSpike::buildScreens()
{
    const DisplayInfo display(toProcessEnvironment(environment_));
    window_ = std::make_unique<PhoneWindow>(display);
    window_->setWindowTitle(QStringLiteral("Vexa"));
    screens_ = new ShellScreens(darkTheme_, uiScale_);
    window_->setScreen(screens_);

    chatListView_ = new ListView;
    chatListView_->setObjectName(QStringLiteral("chat_list_view"));
    chatListView_->setFrameShape(QFrame::NoFrame);
    chatListView_->setProperty("bg", QStringLiteral("E"));

    chatListView_->setEstimatedRowHeight(scaled_px(188, uiScale_));
    screens_->mainScreen()->setChatListView(chatListView_);
    applyTheme();
}

void UiTdlibSpike::connectScreens()
{
    SignInForm *form = screens_->mainScreen()->signInForm();
    connect(form->sendPhoneButton(), &QPushButton::clicked, this, &UiTdlibSpike::onSendPhone);
    connect(form->sendCodeButton(), &QPushButton::clicked, this, &UiTdlibSpike::onSendCode);
    connect(form->resendCodeButton(), &QPushButton::clicked, this, &UiTdlibSpike::onResendCode);
    connect(form->sendPasswordButton(), &QPushButton::clicked, this, &UiTdlibSpike::onSendPassword);
    connect(form->phoneField(), &QLineEdit::returnPressed, this, &UiTdlibSpike::onSendPhone);
    connect(form->codeField(), &QLineEdit::returnPressed, this, &UiTdlibSpike::onSendCode);
    connect(form->passwordField(), &QLineEdit::returnPressed, this, &UiTdlibSpike::onSendPassword);

    MenuScreen *menu = screens_->menuScreen();
    connect(menu->themeButton(), &QPushButton::clicked, this, &UiTdlibSpike::onToggleTheme);
    connect(menu->logToggleButton(), &QPushButton::clicked, this, &UiTdlibSpike::onToggleDebugLog);
    // "me", the own "user", the own photo's download and signing out all
    // arrive as meChanged.
    connect(dispatcher_, &EventDispatcher::meChanged, this, &UiTdlibSpike::updateMenuMeHeader);
    connect(screens_, &ShellScreens::backToChatsRequested, this, &UiTdlibSpike::onBackToChats);

    // The log view shows the in-app log while it is open.
    QPlainTextEdit *logView = screens_->logView();
    connect(log_, &AppLog::viewTextChanged, logView, [logView](const QString &text) {
        logView->setPlainText(text);
        logView->verticalScrollBar()->setValue(logView->verticalScrollBar()->maximum());
    });
    connect(log_, &AppLog::viewVisibleChanged, screens_, &ShellScreens::setLogViewVisible);

    // Everything that reports a state writes the one status line.
    connect(link_, &BackendLink::statusTextChanged, this, &UiTdlibSpike::setStatusText);
    connect(intake_, &EventIntake::statusTextChanged, this, &UiTdlibSpike::setStatusText);
    connect(dispatcher_, &EventDispatcher::statusTextChanged, this, &UiTdlibSpike::setStatusText);

    connect(link_, &BackendLink::phoneNumberFromEnvironment, this, [this](const QString &phone) {
        QLineEdit *field = screens_->mainScreen()->signInForm()->phoneField();
        if (!phone.isEmpty() && field->text().isEmpty())
            field->setText(phone);
    });

    // Signed in: the form goes and the chat list comes, for good.
    connect(dispatcher_, &EventDispatcher::authorizationReady, this,
            [this](bool) { showSignedInView(true); });
    connect(dispatcher_, &EventDispatcher::backToChatsRequested, this,
            &UiTdlibSpike::onBackToChats);

    // Chat list <-> conversation: the header follows the open chat.
    connect(chatListView_, &ListView::triggered, this, &UiTdlibSpike::onChatTriggered);
    connect(dispatcher_, &EventDispatcher::openChatRequested, this, &UiTdlibSpike::openChatFromRow);
    ConversationScreen *conversation = screens_->conversationScreen();
    connect(dispatcher_, &EventDispatcher::currentChatTitleChanged, conversation,
            [conversation](const QString &title) { conversation->titleLabel()->setText(title); });
    connect(dispatcher_, &EventDispatcher::chatHeaderSubtitleChanged, conversation,
            &ConversationScreen::setSubtitle);
}

void UiTdlibSpike::setStatusText(const QString &text)
{
    if (screens_)
        screens_->mainScreen()->statusLabel()->setText(text);
}

void UiTdlibSpike::showSignedInView(bool authorised)
{
    if (!screens_ || !authorised)
        return;
    screens_->mainScreen()->setAuthorised(true);
}

void UiTdlibSpike::onToggleTheme()
{
    darkTheme_ = !darkTheme_;
    applyTheme();
    QString error;
    if (!write_theme_file(themeFilePath(), darkTheme_, &error))
        appendLog(QStringLiteral("ui: theme file not written: ") + error + QLatin1Char('\n'));
    if (screens_)
        screens_->menuScreen()->themeButton()->setText(theme_button_text(darkTheme_));
}

void UiTdlibSpike::onToggleDebugLog()
{
    intake_->onToggleDebugLog();
}

namespace {

void runSignInStep(UiTdlibSpike *spike, SignInAction action, const QString &field)
{
    const SignInStep step = sign_in_step(action, field);
    spike->appendLog(step.log);
    spike->sendLine(step.command);
}

} // namespace

void UiTdlibSpike::onSendPhone()
{
    runSignInStep(this, SignInAction::SendPhone,
                  screens_->mainScreen()->signInForm()->phoneField()->text());
}

void UiTdlibSpike::onSendCode()
{
    runSignInStep(this, SignInAction::SendCode,
                  screens_->mainScreen()->signInForm()->codeField()->text());
}

void UiTdlibSpike::onResendCode()
{
    runSignInStep(this, SignInAction::ResendCode, QString());
}

void UiTdlibSpike::onSendPassword()
{
    runSignInStep(this, SignInAction::SendPassword,
                  screens_->mainScreen()->signInForm()->passwordField()->text());
}

void UiTdlibSpike::stopMedia()
{
    if (voiceRecorder_->voiceRecording())
        voiceRecorder_->stopVoiceRecording(false);
    voicePlayer_->stopVoicePlayback();
}

void UiTdlibSpike::onAppThumbnailed()
{
    appendLog(QStringLiteral("app: thumbnailed\n"));
    appActive_ = false;
    link_->onAppThumbnailed();
    stopMedia();
    intake_->onAppThumbnailed();
}

void UiTdlibSpike::onAppFullscreen()
{
    appendLog(QStringLiteral("app: fullscreen\n"));
    appActive_ = true;
    link_->onAppFullscreen();
    intake_->onAppFullscreen();
}

void UiTdlibSpike::onAppAboutToQuit()
{
    appendLog(QStringLiteral("app: aboutToQuit\n"));
    stopMedia();
    link_->onAppAboutToQuit();
}

void UiTdlibSpike::onLowMemory(int level)
{
    stopMedia();
    QPixmapCache::clear();
    avatars_->clear();
    downloads_->clear();
    log_->clear();
    intake_->onLowMemory();
    if (log_->isViewVisible())
        appendLog(QStringLiteral("app: low_memory level=%1\n").arg(level));
}

void UiTdlibSpike::onInitNotifications()
{
    link_->onInitNotifications();
}

void UiTdlibSpike::onBackToChats()
{
    dispatcher_->setCurrentChat(0, QString());
    if (screens_)
        screens_->showMainScreen();
}

void UiTdlibSpike::onChatTriggered(const QVariantList &indexPath)
{
    if (indexPath.isEmpty())
        return;
    const int row = indexPath.first().toInt();
    if (row < 0 || row >= chatRows_->size())
        return;
    openChatFromRow(chatRows_->value(row));
}

void UiTdlibSpike::openChatFromRow(const QVariantMap &chat)
{
    const qint64 id = chat.value(QStringLiteral("id")).toString().toLongLong();
    if (id == 0 || !screens_)
        return;
    ConversationScreen *conversation = screens_->conversationScreen();
    const QString title = chat.value(QStringLiteral("title")).toString();
    conversation->titleLabel()->setText(title.isEmpty() ? QStringLiteral("Chat") : title);
    conversation->setSubtitle(QString());
    dispatcher_->setCurrentChat(id, chat.value(QStringLiteral("chat_type")).toString());
    dispatcher_->updateChatHeaderSubtitleForCurrentChat();
    screens_->showScreen(ShellScreens::Screen::Conversation);
}

void UiTdlibSpike::updateMenuMeHeader()
{
    if (!screens_)
        return;
    const OwnProfile &me = dispatcher_->me();
    screens_->menuScreen()->updateMenuMeHeader(me.id, me.displayName, me.username, me.phone,
                                               me.avatarPath);
}

void UiTdlibSpike::onInvoked(const QString &url)
{
    appendLog(QStringLiteral("ui: invoked %1\n").arg(url));
    if (window_) {
        window_->show();
        window_->raise();
        window_->activateWindow();
    }
}
