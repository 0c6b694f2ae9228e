#pragma once

#include "conversation/voice_record_gesture.h"

#include <QColor>
#include <QList>
#include <QString>
#include <QWidget>

class QKeyEvent;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QPushButton;
class QToolButton;
class QVBoxLayout;

// The open chat: header (back, round avatar, title and subtitle, search,
// info, overflow), selection bar, message list with its jump-to-bottom button,
// reply and edit bars, the voice record panel and the composer. It stands on
// its own, so a wide window can show it beside the chat list. Keyboard: Enter
// sends, Shift+Enter breaks the line, Esc cancels an edit, a reply or the
// selection, else goes back to the list.
class ChatScreen : public QWidget
{
    Q_OBJECT
public:
    // uiCacheDir holds the drawn avatar tiles.
    ChatScreen(float scale, const QString &uiCacheDir, QWidget *parent = nullptr);

    // "Chat" stands in for an empty title.
    void setTitle(const QString &title);
    QString title() const;
    // The line under the title (presence, members); hidden when empty.
    void setSubtitle(const QString &text);
    QString subtitle() const;
    // The header's round photo, or a coloured tile with the title's initial
    // while avatarPath is empty.
    void setAvatar(qint64 chatId, const QString &title, const QString &avatarPath);
    // Channels the user cannot write to have no composer.
    void setComposerVisible(bool visible);
    bool isComposerVisible() const;
    // Colours that the style sheet cannot give (icons on light panels).
    void setDarkTheme(bool dark);
    // While a voice note records the field takes no typing.
    void setComposerReadOnly(bool readOnly);
    // Gives the text field the keyboard focus.
    void focusComposer();
    void setMessageListView(QWidget *view);
    // Sets the action button's icon from an "assets/osicons/..." path or a
    // bare file name.
    void setActionIcon(const QString &iconPath);
    QString composerText() const;
    void setComposerText(const QString &text);
    // The bars above the composer; an empty text hides the bar.
    void setReplyPreview(const QString &text);
    void setEditPreview(const QString &text);
    void setToBottomVisible(bool visible);
    // Selection mode: the bar replaces nothing, it appears above the list.
    void setSelectionMode(bool on);
    void setSelectionCount(int count);
    void setSelectionActions(bool reply, bool forward, bool remove);
    // The voice record panel; an empty text hides it. The lock icon is dimmed
    // until the recording is locked.
    void setRecordPanel(const QString &text, bool showLockHint, bool locked = false);
    // Elapsed time and the microphone's level (0..1) while recording.
    void setRecordProgress(int seconds, qreal level);

    // The pinned bar under the header: a caption ("Pinned message 2 of 3")
    // over the message's preview, and the control that opens the list.
    void setPinnedBar(bool visible, const QString &caption, const QString &text, bool expanded);
    bool isPinnedBarVisible() const;
    QString pinnedText() const { return m_fullPinned; }
    // The list of all pinned messages, shown below the bar with room for
    // up to kPinnedListRows rows of rowHeight pixels.
    static constexpr int kPinnedListRows = 4;
    void setPinnedListView(QWidget *view);
    void setPinnedListVisible(bool visible, int rows, int rowHeight);
    bool isPinnedListVisible() const;

    // The search bar over the list: the field, "3 of 17", the steps and the
    // offer to look further back.
    void setSearchVisible(bool visible);
    bool isSearchVisible() const;
    void setSearchStatus(const QString &status, bool offerOlder, bool waiting);
    QString searchStatus() const;

Q_SIGNALS:
    void backRequested();
    void infoRequested();
    void moreRequested();
    void toBottomRequested();
    void replyCancelled();
    void editCancelled();
    void attachRequested();
    // A touch on the action button (press, drag, release) in window
    // coordinates: it sends, records or switches the recording mode.
    void actionTouched(VoiceRecordGesture::Touch touch, const QPointF &windowPos);
    // Enter in the composer.
    void sendRequested();
    // Up in an empty composer: edit the user's own last message.
    void editLastRequested();
    // What the user typed (not the texts set through setComposerText).
    void composerTextChanged(const QString &text);
    void selectionClosed();
    void selectionReplyRequested();
    void selectionForwardRequested();
    void selectionDeleteRequested();
    void pinnedBarTapped();
    void pinnedExpandToggled();
    // Ctrl+F: search this chat's messages.
    void searchRequested();
    void searchTextChanged(const QString &text);
    // Enter or Up: an older match; Shift+Enter or Down: a newer one.
    void searchNextRequested();
    void searchPreviousRequested();
    void searchOlderRequested();
    void searchClosed();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    void placeToBottomButton();

    float m_scale;
    QString m_uiCacheDir;
    QLabel *m_avatar = nullptr;
    QLabel *m_avatarLetter = nullptr;
    QWidget *m_composerRow = nullptr;
    void elide(QLabel *label, const QString &text);

    QString m_fullTitle = QStringLiteral("Chat");
    QString m_fullSubtitle;
    // Glyphs of the reply, edit and selection bars, recoloured with the theme.
    QList<QPair<QToolButton *, QString>> m_barIcons;
    QString m_fullReply;
    QString m_fullEdit;
    QLabel *m_title = nullptr;
    QLabel *m_subtitle = nullptr;
    QWidget *m_selectionBar = nullptr;
    QLabel *m_selectionCount = nullptr;
    QToolButton *m_selReply = nullptr;
    QToolButton *m_selForward = nullptr;
    QToolButton *m_selDelete = nullptr;
    QWidget *m_listHost = nullptr;
    QVBoxLayout *m_listLayout = nullptr;
    QToolButton *m_toBottom = nullptr;
    QWidget *m_replyBar = nullptr;
    QLabel *m_replyLabel = nullptr;
    QWidget *m_editBar = nullptr;
    QLabel *m_editLabel = nullptr;
    QWidget *m_recordPanel = nullptr;
    QLabel *m_recordLabel = nullptr;
    QLabel *m_recordLock = nullptr;
    QLabel *m_recordTime = nullptr;
    QWidget *m_recordLevel = nullptr;
    QPlainTextEdit *m_composer = nullptr;
    QToolButton *m_action = nullptr;
    bool m_settingText = false;
    QWidget *m_pinnedBar = nullptr;
    QLabel *m_pinnedCaption = nullptr;
    QLabel *m_pinnedLabel = nullptr;
    QToolButton *m_pinnedExpand = nullptr;
    bool m_pinnedExpanded = false;
    QColor m_iconColor = Qt::white;
    QString m_fullPinned;
    QWidget *m_pinnedListHost = nullptr;
    QVBoxLayout *m_pinnedListLayout = nullptr;
    QWidget *m_searchBar = nullptr;
    QLineEdit *m_searchField = nullptr;
    QLabel *m_searchStatus = nullptr;
    QToolButton *m_searchOlder = nullptr;
    QToolButton *m_searchNewer = nullptr;
    QPushButton *m_searchMore = nullptr;
};
