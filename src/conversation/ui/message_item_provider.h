#pragma once

#include "platform/ui/list_view.h"

#include <QElapsedTimer>
#include <QImage>
#include <QObject>
#include <QPointer>
#include <QRectF>

class QLabel;
class QTimer;

// Builds and fills the bubble of one message row of the open chat: sender
// name and round avatar on the first row of a run in groups, reply box,
// forwarded marker, photo or video thumbnail, file, voice and round video
// rows, text with links, time and delivery icon, reaction chips. It reads
// only the row's keys and the list view's dynamic properties
// (ui_dark_theme, ui_selection_mode, chat_last_read_outbox_message_id, the
// download and playback state) and says what the user touched through its
// signals. Sizes are design pixels of the phone screen.
class MessageItemProvider : public QObject, public ListItemProvider
{
    Q_OBJECT
public:
    static constexpr int kLongPressMs = 600;

    // uiCacheDir holds the bubble backgrounds (shared with the chat list's
    // tiles).
    explicit MessageItemProvider(const QString &uiCacheDir, QObject *parent = nullptr);

    QWidget *createItem(ListView *listView, const QString &type) override;
    void updateItem(ListView *listView, QWidget *item, const QString &type,
                    const QVariantList &indexPath, const QVariantMap &data) override;

    // Widths of text and bubble for the item's current row width.
    void applyMessageWrap(QWidget *item);
    // The playing video note's newest picture (null: keep the last) and
    // played share, drawn into its row; false when item does not show that
    // message's circle.
    bool showVideoNoteFrame(QWidget *item, qint64 messageId, const QImage &frame, qreal progress);

public Q_SLOTS:
    // Progress bar of a voice row after its frame changed.
    void onVoiceRowLayoutFrameChanged(const QRectF &frame);

Q_SIGNALS:
    void downloadRequested(qint64 fileId);
    void mediaTapped(const QString &path, qint64 fileId, int width, int height);
    void videoTapped(const QString &path, qint64 fileId, int width, int height);
    void videoNoteTapped(QWidget *node, const QString &path, qint64 fileId, qint64 messageId);
    void voiceTapped(const QString &path, qint64 fileId);
    void fileIconTapped(const QString &path, qint64 fileId, const QString &name);
    void fileTapped(const QString &path, qint64 fileId, const QString &name);
    void webLinkActivated(const QString &url);
    void messageMenuRequested(qint64 messageId);
    void messageLongPressed(qint64 messageId);
    void messageSelectionToggleRequested(qint64 messageId);
    // Ctrl+click (range false) or Shift+click (range true).
    void messageSelectClicked(qint64 messageId, bool range);
    void reactionChipTapped(qint64 messageId, const QString &emoji);
    void replyPreviewTapped(qint64 messageId);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void watchList(ListView *listView);
    void onLongPressTimeout();
    void tap(QWidget *item, QWidget *target, const QPoint &itemPos);
    void updateVoiceProgress(QWidget *item);

    QString m_uiCacheDir;
    QTimer *m_longPress = nullptr;
    QPointer<QWidget> m_pressItem;
    QPointer<QWidget> m_pressTarget;
    QPoint m_pressPos; // in the item's coordinates
    QPoint m_pressGlobal;
    Qt::KeyboardModifiers m_pressModifiers;
    QElapsedTimer m_pressClock;
    // Held as plain objects: events reach the filter while the list is
    // being destroyed, when it is no longer a ListView.
    QPointer<QObject> m_watched;
    QPointer<QWidget> m_viewport;
    QWidget *m_frameSender = nullptr;
};
