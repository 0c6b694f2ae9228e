#pragma once

#include "platform/folders.h"

#include <QObject>
#include <QPointer>
#include <QSize>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <memory>

class AppLifecycle;
class AppLog;
class ArrayDataModel;
class AvatarDownloadQueue;
class BackendLink;
class CommandChannel;
class ChatItemProvider;
class ChatScreen;
class Clipboard;
class ChatSession;
class Composer;
class FilePicker;
class MessageActions;
class ChatActions;
class MessageItemProvider;
class MessageSearch;
class PinnedItemProvider;
class PinnedMessages;
class MessageRowModel;
class VoiceRecordGesture;
class SystemDialog;
class SystemUiDialog;
class UpdateChecker;
struct UpdateQuestion;
class ChatListModel;
class ChatFilterModel;
class FilesCache;
struct CacheUsage;
class SystemListDialog;
class EventDispatcher;
class EventIntake;
class InstanceChannel;
class DesktopNotifications;
class Links;
class MessageNotifier;
class ListView;
class MediaDownloads;
class OpenAlLib;
class OpusLib;
class VoicePlayer;
class VoiceRecorder;
class VideoNotePlayer;
class VideoNoteRecorder;
class VideoNoteRecordPreview;
class QTimer;
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
    // commands: where command lines go instead of the transport's own channel (not owned; null:
    // the child's standard input or the UDP port, as the environment says).
    UiTdlibSpike(const QString &appDir, const QStringList &environment,
                 CommandChannel *commands = nullptr, QObject *parent = nullptr);
    ~UiTdlibSpike() override;

    const AppFolders &folders() const { return m_folders; }
    bool darkTheme() const { return m_darkTheme; }
    bool disableBubbles() const { return m_disableBubbles; }
    float uiScale() const { return m_uiScale; }
    bool isAppActive() const { return m_appActive; }
    QString themeFilePath() const;

    ShellScreens *screens() const { return m_screens; }
    ChatScreen *chatScreen() const { return m_chatScreen; }
    ListView *messageListView() const { return m_messageListView; }
    ArrayDataModel *messageRows() const { return m_messageRows; }
    MessageRowModel *messages() const { return m_messages; }
    ChatSession *chatSession() const { return m_session; }
    Composer *composer() const { return m_composer; }
    MessageActions *messageActions() const { return m_actions; }
    ChatActions *chatActions() const { return m_chatActions; }
    MessageItemProvider *messageItems() const { return m_messageItems; }
    PinnedMessages *pinnedMessages() const { return m_pinned; }
    ListView *pinnedListView() const { return m_pinnedListView; }
    MessageSearch *messageSearch() const { return m_search; }
    FilePicker *filePicker() const { return m_filePicker; }
    VoiceRecordGesture *voiceGesture() const { return m_voiceGesture; }
    PhoneWindow *window() const { return m_window.get(); }
    ListView *chatListView() const { return m_chatListView; }
    Toaster *toaster() const;
    UpdateChecker *updateChecker() const { return m_updates; }
    AppLog *appLog() const { return m_log; }
    EventIntake *eventIntake() const { return m_intake; }
    BackendLink *backendLink() const { return m_link; }
    EventDispatcher *dispatcher() const { return m_dispatcher; }
    ChatListModel *chatList() const { return m_chats; }
    AppLifecycle *lifecycle() const { return m_lifecycle; }
    MediaDownloads *mediaDownloads() const { return m_downloads; }
    VoicePlayer *voicePlayer() const { return m_voicePlayer; }
    VoiceRecorder *voiceRecorder() const { return m_voiceRecorder; }
    VideoNoteRecorder *videoNoteRecorder() const { return m_videoNoteRecorder; }
    VideoNotePlayer *videoNotePlayer() const { return m_videoNotePlayer; }
    VideoNoteRecordPreview *videoNotePreview() const { return m_videoNotePreview; }
    Links *links() const { return m_links; }
    MessageNotifier *messageNotifier() const { return m_notifier; }
    DesktopNotifications *desktopNotifications() const { return m_notifications; }
    // The chat list as the search field filters it (shown while searching).
    ChatFilterModel *chatFilter() const { return m_chatFilter; }
    FilesCache *filesCache() const { return m_filesCache; }
    // The chat whose conversation page is on screen; 0 when none is.
    qint64 visibleChatId() const;
    // The open chat is in view in the current layout (narrow: its page is
    // the one shown; wide: it fills the right pane), uncovered by a viewer,
    // the information page or the menu, and the window is not minimised.
    // Read receipts, the header, notifications and open requests ask this.
    bool isChatVisible() const;

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

    // Sign-in: each logs its line and sends what the user typed as it is.
    void onSendPhone(const QString &phone);
    void onSendCode(const QString &code);
    void onResendCode();
    void onSendPassword(const QString &password);
    // The chat list's reload action.
    void onLoadChats();

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
    // Another start asked this window forward; it may have left a request
    // to open a chat.
    void onActivationRequested();
    // Redraws the menu's own-profile card from the dispatcher's profile.
    void updateMenuMeHeader();
    // The chat search: Enter asks the server; its answer's dialog opens the
    // chosen chat.
    void onServerSearch(const QString &text);
    void onSearchDialogFinished(int result);
    // The files cache: measuring, and clearing after the user confirms it.
    void onRecalculateCache();
    void onClearCacheRequested();
    // Video notes: capture from the action button, inline playback in the
    // row; the overlay tick keeps the playing row's ring moving and stops
    // the note when its row leaves the screen.
    bool startVideoNoteCapture();
    void stopVideoNoteCapture(bool send);
    void startVideoNotePlayback(qint64 fileId, const QString &path, qint64 messageId);
    void onVideoNoteOverlayTick();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void buildScreens();
    void connectScreens();
    // The two layouts, what is in view, the keyboard and the window's place.
    void connectWindow();
    void updateChatVisibility();
    void openChatSearch();
    void onChatSearchShortcut();
    void stepChatSearchMark(int delta);
    void openAdjacentChat(int delta);
    void openDisplayedChat(int row);
    void scrollPage(int direction);
    void updateChatListMark();
    int displayedChatCount() const;
    QVariantMap displayedChatRow(int row) const;
    void restoreWindowState();
    void saveWindowState();
    // Links, open requests and desktop notifications.
    void connectLinks();
    void raiseWindow();
    // The menu's "Check updates", its question dialog and progress line.
    void connectUpdateChecker();
    // The search field over the chat list and the server's answers.
    void connectChatSearch();
    void showChatSearchResults(const QList<QVariantMap> &rows);
    // The files cache screen, the menu's cache lines and what a clearing
    // changes in the rows.
    void connectFilesCache();
    void showCacheUsage(const CacheUsage &usage);
    void askClearCache();
    void onCacheCleared(const CacheUsage &freed, int kept);
    // The open chat: its rows, paging, composer and bubbles.
    void buildConversation();
    void connectConversation();
    void onChatOpened(qint64 chatId, const QString &title, const QVariantMap &chatRow);
    void onChatClosed();
    // The photo and video viewers over the chat.
    void connectViewers();
    void openPhotoViewer(qint64 fileId, const QString &path);
    void openVideoViewer(qint64 fileId, const QString &path);
    // Message actions: the menu, selection mode and their dialogs.
    void connectMessageActions();
    void connectChatActions();
    void connectPinnedAndSearch();
    void updatePinnedPanelLayout();
    void showOverflowMenu();
    void onSearchStateChanged();
    void updateChatInfoFromModel();
    // The hold-to-record action button and its panel.
    void connectVoiceRecording();
    void connectVideoNotes();
    void updateVoiceRecordPanel();
    void placeVideoNotePreview();
    // The playing note's row on screen, or null.
    QWidget *videoNoteRowItem() const;
    // UI_AUTO_OPEN_CHAT_ID / UI_AUTO_OPEN_FIRST_CHAT from the env files open
    // that chat once, when the chat list has arrived.
    void tryAutoOpenChat();
    void showUpdateQuestion(const UpdateQuestion &question);
    void setStatusText(const QString &text);
    void showSignedInView(bool authorised);
    // Ends voice recording (unsent) and playback.
    void stopMedia();
    void checkFoldersWritable();

    QStringList m_environment;
    // The photo in the viewer: its file, the local full picture (empty
    // while it downloads) and the size the message gives it.
    qint64 m_viewerPhotoId = 0;
    QString m_viewerPhotoPath;
    QSize m_viewerPhotoSize;
    qint64 m_viewerVideoId = 0;
    QString m_viewerVideoPath;
    AppFolders m_folders;
    bool m_appActive = true;
    bool m_pinnedToBackground = false;
    bool m_darkTheme = true;
    bool m_disableBubbles = false;
    float m_uiScale = 1.0f;

    AppLog *m_log = nullptr;
    EventIntake *m_intake = nullptr;
    BackendLink *m_link = nullptr;
    std::unique_ptr<Invoker> m_invoker;
    ToastOverlay *m_toaster = nullptr;
    AppLifecycle *m_lifecycle = nullptr;
    InstanceChannel *m_instance = nullptr;
    ArrayDataModel *m_chatRows = nullptr;
    ChatListModel *m_chats = nullptr;
    AvatarDownloadQueue *m_avatars = nullptr;
    EventDispatcher *m_dispatcher = nullptr;
    ChatItemProvider *m_chatItems = nullptr;
    std::unique_ptr<OpusLib> m_opus;
    std::unique_ptr<OpenAlLib> m_openal;
    MediaDownloads *m_downloads = nullptr;
    VoicePlayer *m_voicePlayer = nullptr;
    VoiceRecorder *m_voiceRecorder = nullptr;
    VideoNoteRecorder *m_videoNoteRecorder = nullptr;
    VideoNotePlayer *m_videoNotePlayer = nullptr;
    VideoNoteRecordPreview *m_videoNotePreview = nullptr; // owned by the chat screen
    QTimer *m_videoNoteOverlayTimer = nullptr;
    // The microphone's last level while a video note records (0..1).
    qreal m_videoNoteLevel = 0;
    Links *m_links = nullptr;
    DesktopNotifications *m_notifications = nullptr;
    MessageNotifier *m_notifier = nullptr;
    bool m_notificationFailureLogged = false;
    bool m_mediaFrameworkRequested = false;

    // The top-level window; the screens live inside it.
    std::unique_ptr<PhoneWindow> m_window;
    ShellScreens *m_screens = nullptr;  // owned by m_window
    ListView *m_chatListView = nullptr; // owned by the screens
    ChatScreen *m_chatScreen = nullptr; // owned by the screens
    UpdateChecker *m_updates = nullptr;
    ListView *m_messageListView = nullptr; // owned by the chat screen
    ArrayDataModel *m_messageRows = nullptr;
    MessageRowModel *m_messages = nullptr;
    ChatSession *m_session = nullptr;
    Composer *m_composer = nullptr;
    MessageItemProvider *m_messageItems = nullptr;
    FilePicker *m_filePicker = nullptr;
    MessageActions *m_actions = nullptr;
    ChatActions *m_chatActions = nullptr;
    std::shared_ptr<Clipboard> m_clipboard;
    // The open message menu or forward, delete or reactions dialog.
    QPointer<SystemUiDialog> m_actionDialog;
    QPointer<SystemDialog> m_chatActionDialog;
    VoiceRecordGesture *m_voiceGesture = nullptr;
    ArrayDataModel *m_pinnedRows = nullptr;
    PinnedMessages *m_pinned = nullptr;
    ListView *m_pinnedListView = nullptr; // owned by the chat screen
    PinnedItemProvider *m_pinnedItems = nullptr;
    MessageSearch *m_search = nullptr;
    bool m_autoOpenDone = false;
    bool m_chatWasVisible = false;
    // The chat marked with Up and Down in the chat search (a row of the
    // filtered list), -1 for none.
    int m_searchMark = -1;
    QPointer<SystemDialog> m_updateDialog;
    ChatFilterModel *m_chatFilter = nullptr;
    // Numbers of the chat searches sent to this run of the backend.
    qint64 m_searchRequests = 0;
    QPointer<SystemListDialog> m_searchDialog;
    FilesCache *m_filesCache = nullptr;
    QPointer<SystemDialog> m_clearCacheDialog;
    // "Clear cache" before the size was known: ask once it is.
    bool m_askClearWhenMeasured = false;
};
