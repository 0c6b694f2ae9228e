#pragma once

#include <QWidget>

class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QToolButton;
class QVBoxLayout;

// The screens of the phone UI. They are built with their initial texts; the
// controller and the subsystems fill them. Controls are reachable by
// accessor or by object name (findChild).

// Sign-in form: three fields and four buttons, all shown together.
class SignInForm : public QWidget
{
    Q_OBJECT
public:
    explicit SignInForm(float scale, QWidget *parent = nullptr);
    QLineEdit *phoneField() const { return phone_; }
    QLineEdit *codeField() const { return code_; }
    QLineEdit *passwordField() const { return password_; }
    QPushButton *sendPhoneButton() const { return sendPhone_; }
    QPushButton *sendCodeButton() const { return sendCode_; }
    QPushButton *resendCodeButton() const { return resendCode_; }
    QPushButton *sendPasswordButton() const { return sendPassword_; }

private:
    QLineEdit *phone_ = nullptr;
    QLineEdit *code_ = nullptr;
    QLineEdit *password_ = nullptr;
    QPushButton *sendPhone_ = nullptr;
    QPushButton *sendCode_ = nullptr;
    QPushButton *resendCode_ = nullptr;
    QPushButton *sendPassword_ = nullptr;
};

// Main screen: title "Vexa", the status label, the sign-in form until the
// user is authorised, then the chat list.
class MainScreen : public QWidget
{
    Q_OBJECT
public:
    explicit MainScreen(float scale, QWidget *parent = nullptr);
    QLabel *titleLabel() const { return title_; }
    QLabel *statusLabel() const { return status_; }
    SignInForm *signInForm() const { return form_; }
    QToolButton *menuButton() const { return menu_; }
    QToolButton *searchButton() const { return search_; }
    // Holds the chat list view; setChatListView puts a view into it.
    QWidget *chatListHost() const { return listHost_; }
    void setChatListView(QWidget *view);
    // Hides the sign-in form and shows the chat list (or the reverse).
    void setAuthorised(bool authorised);
    bool isAuthorised() const { return authorised_; }

private:
    QLabel *title_ = nullptr;
    QLabel *status_ = nullptr;
    SignInForm *form_ = nullptr;
    QWidget *formPanel_ = nullptr;
    QToolButton *menu_ = nullptr;
    QToolButton *search_ = nullptr;
    QWidget *listHost_ = nullptr;
    QVBoxLayout *listLayout_ = nullptr;
    bool authorised_ = false;
};

// Conversation: header, selection bar, message list, reply and edit bars,
// the voice record panel and the composer.
class ConversationScreen : public QWidget
{
    Q_OBJECT
public:
    explicit ConversationScreen(float scale, QWidget *parent = nullptr);
    QLabel *titleLabel() const { return title_; }
    QLabel *subtitleLabel() const { return subtitle_; }
    // Sets the line under the title (presence, members); hidden when empty.
    void setSubtitle(const QString &text);
    QToolButton *backButton() const { return back_; }
    QToolButton *infoButton() const { return info_; }
    QToolButton *searchButton() const { return search_; }
    QToolButton *moreButton() const { return more_; }
    QWidget *selectionBar() const { return selectionBar_; }
    QLabel *selectionCountLabel() const { return selectionCount_; }
    QToolButton *selectionReplyButton() const { return selReply_; }
    QToolButton *selectionForwardButton() const { return selForward_; }
    QToolButton *selectionDeleteButton() const { return selDelete_; }
    QToolButton *selectionCloseButton() const { return selClose_; }
    QWidget *messageListHost() const { return listHost_; }
    void setMessageListView(QWidget *view);
    QToolButton *toBottomButton() const { return toBottom_; }
    QWidget *replyBar() const { return replyBar_; }
    QLabel *replyLabel() const { return replyLabel_; }
    QToolButton *replyCloseButton() const { return replyClose_; }
    QWidget *editBar() const { return editBar_; }
    QLabel *editLabel() const { return editLabel_; }
    QToolButton *editCloseButton() const { return editClose_; }
    QWidget *recordPanel() const { return recordPanel_; }
    QLabel *recordLabel() const { return recordLabel_; }
    QLabel *recordLockHint() const { return recordLock_; }
    QPlainTextEdit *composerField() const { return composer_; }
    QToolButton *attachButton() const { return attach_; }
    QToolButton *actionButton() const { return action_; }
    // Sets the action button's icon from an "assets/osicons/..." path or a
    // bare file name.
    void setActionIcon(const QString &iconPath);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void placeToBottomButton();

    float scale_;
    QLabel *title_ = nullptr;
    QLabel *subtitle_ = nullptr;
    QToolButton *back_ = nullptr;
    QToolButton *info_ = nullptr;
    QToolButton *search_ = nullptr;
    QToolButton *more_ = nullptr;
    QWidget *selectionBar_ = nullptr;
    QLabel *selectionCount_ = nullptr;
    QToolButton *selReply_ = nullptr;
    QToolButton *selForward_ = nullptr;
    QToolButton *selDelete_ = nullptr;
    QToolButton *selClose_ = nullptr;
    QWidget *listHost_ = nullptr;
    QVBoxLayout *listLayout_ = nullptr;
    QToolButton *toBottom_ = nullptr;
    QWidget *replyBar_ = nullptr;
    QLabel *replyLabel_ = nullptr;
    QToolButton *replyClose_ = nullptr;
    QWidget *editBar_ = nullptr;
    QLabel *editLabel_ = nullptr;
    QToolButton *editClose_ = nullptr;
    QWidget *recordPanel_ = nullptr;
    QLabel *recordLabel_ = nullptr;
    QLabel *recordLock_ = nullptr;
    QPlainTextEdit *composer_ = nullptr;
    QToolButton *attach_ = nullptr;
    QToolButton *action_ = nullptr;
};

// Details of the open chat and its actions.
class ChatInfoScreen : public QWidget
{
    Q_OBJECT
public:
    explicit ChatInfoScreen(float scale, QWidget *parent = nullptr);
    QToolButton *backButton() const { return back_; }
    QLabel *avatarLetter() const { return letter_; }
    QLabel *chatTitleLabel() const { return chatTitle_; }
    QLabel *chatKindLabel() const { return chatKind_; }
    QLabel *membersValue() const { return members_; }
    QLabel *linkValue() const { return link_; }
    QLabel *notificationsValue() const { return notifications_; }
    QLabel *idValue() const { return id_; }
    QPushButton *clearHistoryButton() const { return clear_; }
    QPushButton *joinButton() const { return join_; }
    QPushButton *leaveButton() const { return leave_; }
    QPushButton *deleteChatButton() const { return delete_; }

private:
    QToolButton *back_ = nullptr;
    QLabel *letter_ = nullptr;
    QLabel *chatTitle_ = nullptr;
    QLabel *chatKind_ = nullptr;
    QLabel *members_ = nullptr;
    QLabel *link_ = nullptr;
    QLabel *notifications_ = nullptr;
    QLabel *id_ = nullptr;
    QPushButton *clear_ = nullptr;
    QPushButton *join_ = nullptr;
    QPushButton *leave_ = nullptr;
    QPushButton *delete_ = nullptr;
};

// Menu: the own profile, updates, files cache, theme and the debug log
// switch.
class MenuScreen : public QWidget
{
    Q_OBJECT
public:
    explicit MenuScreen(float scale, bool darkTheme, QWidget *parent = nullptr);
    QToolButton *backButton() const { return back_; }
    // The own-profile card at the top: the round photo when avatarPath loads,
    // else a coloured tile with the initial; the name, "@username" and the
    // phone with a leading "+". Lines without a value are hidden; with no id
    // and no texts (signed out) the whole card is hidden and cleared.
    void updateMenuMeHeader(qint64 id, const QString &displayName, const QString &username,
                            const QString &phone, const QString &avatarPath);
    QWidget *meCard() const { return meCard_; }
    QPushButton *checkUpdatesButton() const { return checkUpdates_; }
    QLabel *updateStatusLabel() const { return updateStatus_; }
    QPushButton *filesCacheButton() const { return filesCache_; }
    QLabel *cacheSizeLabel() const { return cacheSize_; }
    QPushButton *recalculateSizeButton() const { return recalc_; }
    QPushButton *clearCacheButton() const { return clearCache_; }
    QPushButton *themeButton() const { return theme_; }
    QPushButton *logToggleButton() const { return logToggle_; }

private:
    float scale_;
    QWidget *meCard_ = nullptr;
    QLabel *meAvatar_ = nullptr;
    QLabel *meLetter_ = nullptr;
    QLabel *meName_ = nullptr;
    QLabel *meUsername_ = nullptr;
    QLabel *mePhone_ = nullptr;
    QToolButton *back_ = nullptr;
    QPushButton *checkUpdates_ = nullptr;
    QLabel *updateStatus_ = nullptr;
    QPushButton *filesCache_ = nullptr;
    QLabel *cacheSize_ = nullptr;
    QPushButton *recalc_ = nullptr;
    QPushButton *clearCache_ = nullptr;
    QPushButton *theme_ = nullptr;
    QPushButton *logToggle_ = nullptr;
};

// The media cache broken down; its list is filled by the cache code.
class FilesCacheScreen : public QWidget
{
    Q_OBJECT
public:
    explicit FilesCacheScreen(float scale, QWidget *parent = nullptr);
    QToolButton *backButton() const { return back_; }
    QLabel *summaryLabel() const { return summary_; }
    QWidget *listHost() const { return listHost_; }

private:
    QToolButton *back_ = nullptr;
    QLabel *summary_ = nullptr;
    QWidget *listHost_ = nullptr;
};

// Full-screen photo or video viewer.
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
    Kind kind() const { return kind_; }
    QToolButton *backButton() const { return back_; }
    QLabel *titleLabel() const { return title_; }
    // Photo: shows the image; video: hosts the video output widget.
    QLabel *imageLabel() const { return image_; }
    QWidget *videoHost() const { return videoHost_; }
    QToolButton *playButton() const { return play_; }
    bool showImageFile(const QString &path);

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    void refitImage();

    Kind kind_;
    QToolButton *back_ = nullptr;
    QLabel *title_ = nullptr;
    QLabel *image_ = nullptr;
    QWidget *videoHost_ = nullptr;
    QToolButton *play_ = nullptr;
    QString imagePath_;
};
