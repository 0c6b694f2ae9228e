#pragma once

#include "shell/chat_details.h"

#include <QString>
#include <QWidget>

class PhotoView;
class QKeyEvent;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QToolButton;
class QVBoxLayout;
class VideoView;
struct OwnProfile;

// The screens of the phone UI. Each is built with its initial texts, says
// what the user wants through its signals and takes the models' values
// through setters; its controls stay its own.

// Sign-in form: three fields and four buttons, all shown together. Enter in
// a field submits it, like its button.
class SignInForm : public QWidget
{
    Q_OBJECT
public:
    explicit SignInForm(float scale, QWidget *parent = nullptr);

    // Fills the phone field unless the user has typed something already.
    void suggestPhoneNumber(const QString &phone);

Q_SIGNALS:
    void phoneSubmitted(const QString &phone);
    void codeSubmitted(const QString &code);
    void resendRequested();
    void passwordSubmitted(const QString &password);

private:
    QLineEdit *m_phone = nullptr;
    QLineEdit *m_code = nullptr;
    QLineEdit *m_password = nullptr;
};

// Main screen: title "Vexa", the status and debug lines, the sign-in form
// until the user is authorised, then the chat list.
class MainScreen : public QWidget
{
    Q_OBJECT
public:
    explicit MainScreen(float scale, QWidget *parent = nullptr);

    void setStatusText(const QString &text);
    QString statusText() const;
    // The developer line beside the status (for example the own user id).
    void setDebugText(const QString &text);
    // TDLib's connection state ("Connecting", "Ready", ...): a line under the
    // sign-in form and, once signed in, the title while not ready.
    void setConnectionState(const QString &state);
    void suggestPhoneNumber(const QString &phone);
    // Puts the chat list view into the screen; the screen takes no ownership
    // decisions beyond parenting it.
    void setChatListView(QWidget *view);
    // Hides the sign-in form and shows the chat list (or the reverse).
    void setAuthorised(bool authorised);
    bool isAuthorised() const { return m_authorised; }

    // The search field over the chat list: opened empty with the keyboard in
    // it; closing empties it (announced by searchClosed).
    void openSearch();
    void closeSearch();
    bool isSearchOpen() const;
    QString searchText() const;
    // The line under the field (what the list shows, how to search further);
    // empty hides it.
    void setSearchHint(const QString &text);

Q_SIGNALS:
    void phoneSubmitted(const QString &phone);
    void codeSubmitted(const QString &code);
    void resendRequested();
    void passwordSubmitted(const QString &password);
    void menuRequested();
    void searchRequested();
    void reloadChatsRequested();
    // Typing in the search field: the list follows the text.
    void searchTextChanged(const QString &text);
    // Enter in the search field: look further, on the server.
    void serverSearchRequested(const QString &text);
    // Up (-1) or Down (1) in the search field: mark the chat above or below.
    void searchStepRequested(int delta);
    void searchClosed();
    void authorisedChanged(bool authorised);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void updateTitle();

    QLabel *m_title = nullptr;
    QLabel *m_status = nullptr;
    QLabel *m_debug = nullptr;
    QLabel *m_connection = nullptr;
    SignInForm *m_form = nullptr;
    QWidget *m_formPanel = nullptr;
    QToolButton *m_reload = nullptr;
    QWidget *m_listHost = nullptr;
    QVBoxLayout *m_listLayout = nullptr;
    QWidget *m_searchBar = nullptr;
    QLineEdit *m_searchField = nullptr;
    QLabel *m_searchHint = nullptr;
    bool m_authorised = false;
};

// Details of the open chat and its actions.
class ChatInfoScreen : public QWidget
{
    Q_OBJECT
public:
    explicit ChatInfoScreen(float scale, QWidget *parent = nullptr);
    void setDetails(const ChatDetails &details);

Q_SIGNALS:
    void backRequested();
    void clearHistoryRequested();
    void joinRequested();
    void leaveRequested();
    void deleteChatRequested();
    void copyLinkRequested();
    void copyIdRequested();
    void notificationsToggleRequested();
    // A tap on the member count.
    void membersRequested();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QLabel *m_letter = nullptr;
    QLabel *m_chatTitle = nullptr;
    QLabel *m_chatKind = nullptr;
    QLabel *m_about = nullptr;
    QLabel *m_username = nullptr;
    QLabel *m_phone = nullptr;
    QLabel *m_membersCaption = nullptr;
    QLabel *m_members = nullptr;
    QLabel *m_online = nullptr;
    QLabel *m_link = nullptr;
    QLabel *m_inviteLink = nullptr;
    QLabel *m_notifications = nullptr;
    QLabel *m_id = nullptr;
    QPushButton *m_clear = nullptr;
    QPushButton *m_join = nullptr;
    QPushButton *m_leave = nullptr;
    QPushButton *m_copyLink = nullptr;
};

// Menu: the own profile, updates, files cache, theme and the debug log
// switch.
class MenuScreen : public QWidget
{
    Q_OBJECT
public:
    explicit MenuScreen(float scale, bool darkTheme, QWidget *parent = nullptr);
    // The own-profile card at the top: the round photo when avatarPath loads,
    // else a coloured tile with the initial; the name, "@username" and the
    // phone with a leading "+". Lines without a value are hidden; with no id
    // and no texts (signed out) the whole card is hidden and cleared.
    void setProfile(const OwnProfile &me);
    void setDarkTheme(bool dark);
    void setDebugLogOn(bool on);
    // An empty text hides the line under "Check updates".
    void setUpdateStatus(const QString &text);
    void setCacheSizeText(const QString &text);

Q_SIGNALS:
    void backRequested();
    void checkUpdatesRequested();
    void filesCacheRequested();
    void recalculateCacheRequested();
    void clearCacheRequested();
    void themeToggleRequested();
    void debugLogToggleRequested();
    void shortcutsRequested();

private:
    float m_scale;
    QWidget *m_meCard = nullptr;
    QLabel *m_meAvatar = nullptr;
    QLabel *m_meLetter = nullptr;
    QLabel *m_meName = nullptr;
    QLabel *m_meUsername = nullptr;
    QLabel *m_mePhone = nullptr;
    QLabel *m_updateStatus = nullptr;
    QLabel *m_cacheSize = nullptr;
    QPushButton *m_theme = nullptr;
    QPushButton *m_logToggle = nullptr;
};

// The media cache broken down by kind, with its total, the progress of a
// measuring or clearing under way, and the two actions.
class FilesCacheScreen : public QWidget
{
    Q_OBJECT
public:
    explicit FilesCacheScreen(float scale, QWidget *parent = nullptr);
    void setSummary(const QString &text);
    // One line per kind: its name and its size text, in order.
    void setBreakdown(const QList<QPair<QString, QString>> &lines);
    // While busy the actions wait; an empty text hides the progress line.
    void setProgress(bool busy, const QString &text);

Q_SIGNALS:
    void backRequested();
    void recalculateCacheRequested();
    void clearCacheRequested();

private:
    QLabel *m_summary = nullptr;
    QLabel *m_progress = nullptr;
    QWidget *m_lines = nullptr;
    QPushButton *m_recalc = nullptr;
    QPushButton *m_clear = nullptr;
};

// Full-screen photo or video viewer. The photo viewer shows a picture
// fitted, to be zoomed and dragged, with a progress line while the full
// picture downloads and a Save button; the video viewer plays a file. Esc
// or the back button leaves; leaving stops the video.
class MediaViewerScreen : public QWidget
{
    Q_OBJECT
public:
    enum class Kind
    {
        Photo,
        Video
    };
    MediaViewerScreen(Kind kind, float scale, QWidget *parent = nullptr);
    Kind kind() const { return m_kind; }
    void setTitle(const QString &title);

    // Photo viewer: shows the picture in path; with fullSize, path holds a
    // stand-in (the thumbnail) laid out at the real picture's size. False
    // when the file does not load (or this is the video viewer).
    bool showPhoto(const QString &path, const QSize &fullSize = QSize());
    // The full picture's download: a progress line while downloading.
    void setDownloadProgress(bool downloading, qint64 done, qint64 total);
    PhotoView *photoView() const { return m_photo; }

    // Save is offered once the file itself is here.
    void setSaveEnabled(bool enabled);
    // Video viewer: plays the file from its start.
    void playVideo(const QString &path);
    VideoView *videoView() const { return m_video; }
    // Nothing shown or playing (signed out).
    void clearMedia();

Q_SIGNALS:
    void backRequested();
    // The photo or video shown is to be copied to the shared downloads
    // folder.
    void saveRequested();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    Kind m_kind;
    QLabel *m_title = nullptr;
    QPushButton *m_save = nullptr;
    QLabel *m_progress = nullptr;
    PhotoView *m_photo = nullptr;
    VideoView *m_video = nullptr;
};
