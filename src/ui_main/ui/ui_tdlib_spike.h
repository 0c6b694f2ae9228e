#pragma once

#include "platform/folders.h"

#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <memory>

class AppLifecycle;
class AppLog;
class ArrayDataModel;
class AvatarDownloadQueue;
class BackendLink;
class ChatItemProvider;
class ChatListModel;
class EventDispatcher;
class EventIntake;
class InstanceChannel;
class ListView;
class MediaDownloads;
class OpenAlLib;
class OpusLib;
class VoicePlayer;
class VoiceRecorder;
class PhoneWindow;
class ToastOverlay;
class Invoker;
class ShellScreens;
class Toaster;
class QWidget;

// The application controller: builds every collaborator in a fixed order,
// owns them for the life of the process and wires them together. Later
// steps of the constructor use what earlier ones set up (folders before the
// marker, theme and scale before the screens, screens before the first
// backend attempt, which fills the phone field).
class UiTdlibSpike : public QObject
{
    Q_OBJECT
public:
    // appDir: the folder of the executable (td_backend lies beside it).
    // environment: the process environment as "KEY=VALUE" entries; it picks
    // the folders, the transport, QUILLO_UI_SCALE and the emulated display.
    UiTdlibSpike(const QString &appDir, const QStringList &environment, QObject *parent = nullptr);
    ~UiTdlibSpike() override;

    const AppFolders &folders() const { return folders_; }
    bool darkTheme() const { return darkTheme_; }
    bool disableBubbles() const { return disableBubbles_; }
    float uiScale() const { return uiScale_; }
    bool isAppActive() const { return appActive_; }
    QString themeFilePath() const;

    ShellScreens *screens() const { return screens_; }
    PhoneWindow *window() const { return window_.get(); }
    ListView *chatListView() const { return chatListView_; }
    Toaster *toaster() const;
    AppLog *appLog() const { return log_; }
    EventIntake *eventIntake() const { return intake_; }
    BackendLink *backendLink() const { return link_; }
    EventDispatcher *dispatcher() const { return dispatcher_; }
    ChatListModel *chatList() const { return chats_; }
    AppLifecycle *lifecycle() const { return lifecycle_; }
    MediaDownloads *mediaDownloads() const { return downloads_; }
    VoicePlayer *voicePlayer() const { return voicePlayer_; }
    VoiceRecorder *voiceRecorder() const { return voiceRecorder_; }

    // Theme: read the file, then recolour whatever exists.
    void loadThemeSetting();
    void applyTheme();
    // QUILLO_UI_SCALE or the emulated display's size; logs its choice.
    float detectUiScale();

    void appendLog(const QString &text);
    void sendLine(const QString &line);
    // Shows the conversation screen for a chat row (header from the row).
    void openChatFromRow(const QVariantMap &chat);

public Q_SLOTS:
    void onToggleTheme();
    void onToggleDebugLog();

    void onSendPhone();
    void onSendCode();
    void onResendCode();
    void onSendPassword();

    void onAppThumbnailed();
    void onAppFullscreen();
    void onAppAboutToQuit();
    void onLowMemory(int level);
    void onInitNotifications();

    void onBackToChats();
    // A row of the chat list was tapped: show its conversation.
    void onChatTriggered(const QVariantList &indexPath);
    // A "tg" link or other URL handed to this instance.
    void onInvoked(const QString &url);
    // Redraws the menu's own-profile card from the dispatcher's profile.
    void updateMenuMeHeader();

private:
    void buildScreens();
    void connectScreens();
    void setStatusText(const QString &text);
    void showSignedInView(bool authorised);
    // Ends voice recording (unsent) and playback.
    void stopMedia();

    QStringList environment_;
    AppFolders folders_;
    bool appActive_ = true;
    bool pinnedToBackground_ = false;
    bool darkTheme_ = true;
    bool disableBubbles_ = false;
    float uiScale_ = 1.0f;

    AppLog *log_ = nullptr;
    EventIntake *intake_ = nullptr;
    BackendLink *link_ = nullptr;
    std::unique_ptr<Invoker> invoker_;
    ToastOverlay *toaster_ = nullptr;
    AppLifecycle *lifecycle_ = nullptr;
    InstanceChannel *instance_ = nullptr;
    ArrayDataModel *chatRows_ = nullptr;
    ChatListModel *chats_ = nullptr;
    AvatarDownloadQueue *avatars_ = nullptr;
    EventDispatcher *dispatcher_ = nullptr;
    ChatItemProvider *chatItems_ = nullptr;
    std::unique_ptr<OpusLib> opus_;
    std::unique_ptr<OpenAlLib> openal_;
    MediaDownloads *downloads_ = nullptr;
    VoicePlayer *voicePlayer_ = nullptr;
    VoiceRecorder *voiceRecorder_ = nullptr;

    // The top-level window; the screens live inside it.
    std::unique_ptr<PhoneWindow> window_;
    ShellScreens *screens_ = nullptr;  // owned by window_
    ListView *chatListView_ = nullptr; // owned by the screens
};
