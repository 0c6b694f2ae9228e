#pragma once

#include <QList>
#include <QPair>
#include <QPointer>
#include <QWidget>

class QLabel;
class QPlainTextEdit;
class QSplitter;
class QStackedWidget;
class SystemDialog;
class ChatInfoScreen;
class FilesCacheScreen;
class MainScreen;
class MediaViewerScreen;
class MenuScreen;

// The phone screen: every page in a stack, the in-app log view under it, and
// the simple navigation between pages. The theme is one style sheet on this
// widget (see shell_style_sheet), so recolouring reaches every control,
// including those that other code adds later with the same style properties.
//
// From the breakpoint width up the same pages are laid out side by side: the
// chat list on the left of a splitter, the chat, its information, the menu
// and the files cache on the right (a hint to pick a chat when none is
// open). The navigation history is the same in both layouts; only what is
// hidden differs, so crossing the breakpoint keeps every widget as it is.
// The viewers cover the whole window in both. Until the account is signed
// in there is nothing to put beside the sign-in form: it stays one column
// of the phone's width, centred in a wider window. The window's keyboard
// shortcuts arrive here and leave as requests.
class ShellScreens : public QWidget
{
    Q_OBJECT
public:
    enum class Screen
    {
        Main,
        Conversation,
        ChatInfo,
        Menu,
        FilesCache,
        Photo,
        Video
    };

    ShellScreens(bool darkTheme, float uiScale, QWidget *parent = nullptr);

    MainScreen *mainScreen() const { return m_main; }
    // The chat screen is built by its own subsystem and placed here as the
    // Conversation page; the caller wires its back and info requests.
    void setChatScreen(QWidget *screen);
    QWidget *chatScreen() const { return m_conversation; }
    ChatInfoScreen *chatInfoScreen() const { return m_chatInfo; }
    MenuScreen *menuScreen() const { return m_menu; }
    FilesCacheScreen *filesCacheScreen() const { return m_filesCache; }
    MediaViewerScreen *photoViewer() const { return m_photo; }
    MediaViewerScreen *videoViewer() const { return m_video; }

    Screen currentScreen() const;
    // The chat screen is on view (not covered by another page or viewer).
    bool isConversationShown() const { return currentScreen() == Screen::Conversation; }

    // Width (in this widget's pixels) from which the two panes show.
    void setBreakpoint(int width);
    int breakpoint() const { return m_breakpoint; }
    bool isWide() const { return m_wide; }
    // Width of the sign-in column (the phone's width in this widget's pixels).
    void setSignInWidth(int width);
    // The chat list pane's width in the wide layout, as the user left it.
    int leftPaneWidth() const { return m_leftWidth; }
    void setLeftPaneWidth(int width);
    // The shortcuts and what they do, for the help.
    static QList<QPair<QString, QString>> keyboardShortcuts();
    void showShortcutsHelp();
    // Shows a page; the page shown before is remembered for goBack().
    void showScreen(Screen screen);
    // Returns to the previous page (the main screen when there is none).
    void goBack();
    // Leaves every page and shows the main screen, forgetting the history.
    void showMainScreen();

    // Recolours every control for the theme and updates the theme button.
    void applyTheme(bool dark);
    bool darkTheme() const { return m_dark; }
    float uiScale() const { return m_scale; }

    void setLogViewVisible(bool visible);
    bool isLogViewVisible() const;
    // The in-app log's text; the view keeps its newest line in sight.
    void setLogText(const QString &text);

Q_SIGNALS:
    // The menu's debug-log switch; the controller turns the log on or off
    // and then calls setLogViewVisible().
    void debugLogToggleRequested();
    void screenChanged(ShellScreens::Screen screen);
    void wideChanged(bool wide);
    // Keyboard: the chat search over the list; the search in the open chat;
    // the chat delta rows away from the open one; the n-th chat (0-based);
    // a page of messages up (-1) or down (1); quitting.
    void chatSearchRequested();
    void messageSearchRequested();
    void adjacentChatRequested(int delta);
    void chatAtRequested(int row);
    void messagePageRequested(int direction);
    void quitRequested();

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    QWidget *pageFor(Screen screen) const;
    bool inRightPane(Screen screen) const;
    // Shows the current page in the current layout.
    void present();
    // Takes the layout the width and the sign-in allow.
    void updateLayout();
    void addShortcuts();
    void onFindShortcut();

    bool m_dark;
    float m_scale;
    QStackedWidget *m_stack = nullptr;
    QSplitter *m_split = nullptr;
    QStackedWidget *m_right = nullptr;
    QLabel *m_pickHint = nullptr;
    Screen m_current = Screen::Main;
    int m_breakpoint = 760;
    bool m_wide = false;
    int m_leftWidth = 0;
    int m_signInWidth = 720;
    QPointer<SystemDialog> m_help;
    MainScreen *m_main = nullptr;
    QWidget *m_conversation = nullptr;
    ChatInfoScreen *m_chatInfo = nullptr;
    MenuScreen *m_menu = nullptr;
    FilesCacheScreen *m_filesCache = nullptr;
    MediaViewerScreen *m_photo = nullptr;
    MediaViewerScreen *m_video = nullptr;
    QPlainTextEdit *m_logView = nullptr;
    QList<Screen> m_history;
};
