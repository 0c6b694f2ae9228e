#pragma once

#include <QList>
#include <QWidget>

class QPlainTextEdit;
class QStackedWidget;
class ChatInfoScreen;
class FilesCacheScreen;
class MainScreen;
class MediaViewerScreen;
class MenuScreen;

// The phone screen: every page in a stack, the in-app log view under it, and
// the simple navigation between pages. The theme is one style sheet on this
// widget (see shell_style_sheet), so recolouring reaches every control,
// including those that other code adds later with the same style properties.
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

private:
    QWidget *pageFor(Screen screen) const;

    bool m_dark;
    float m_scale;
    QStackedWidget *m_stack = nullptr;
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
