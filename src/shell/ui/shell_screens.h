#pragma once

#include <QList>
#include <QWidget>

class QPlainTextEdit;
class QStackedWidget;
class ChatInfoScreen;
class ConversationScreen;
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

    MainScreen *mainScreen() const { return main_; }
    ConversationScreen *conversationScreen() const { return conversation_; }
    ChatInfoScreen *chatInfoScreen() const { return chatInfo_; }
    MenuScreen *menuScreen() const { return menu_; }
    FilesCacheScreen *filesCacheScreen() const { return filesCache_; }
    MediaViewerScreen *photoViewer() const { return photo_; }
    MediaViewerScreen *videoViewer() const { return video_; }
    QPlainTextEdit *logView() const { return logView_; }

    Screen currentScreen() const;
    // Shows a page; the page shown before is remembered for goBack().
    void showScreen(Screen screen);
    // Returns to the previous page (the main screen when there is none).
    void goBack();
    // Leaves every page and shows the main screen, forgetting the history.
    void showMainScreen();

    // Recolours every control for the theme and updates the theme button.
    void applyTheme(bool dark);
    bool darkTheme() const { return dark_; }
    float uiScale() const { return scale_; }

    void setLogViewVisible(bool visible);
    bool isLogViewVisible() const;

Q_SIGNALS:
    // The conversation's back button: the controller closes the chat and
    // then calls showMainScreen().
    void backToChatsRequested();
    void screenChanged(ShellScreens::Screen screen);

private:
    QWidget *pageFor(Screen screen) const;

    bool dark_;
    float scale_;
    QStackedWidget *stack_ = nullptr;
    MainScreen *main_ = nullptr;
    ConversationScreen *conversation_ = nullptr;
    ChatInfoScreen *chatInfo_ = nullptr;
    MenuScreen *menu_ = nullptr;
    FilesCacheScreen *filesCache_ = nullptr;
    MediaViewerScreen *photo_ = nullptr;
    MediaViewerScreen *video_ = nullptr;
    QPlainTextEdit *logView_ = nullptr;
    QList<Screen> history_;
};
