#pragma once

#include "chats/avatars.h"
#include "platform/ui/list_view.h"

#include <QDateTime>
#include <QObject>
#include <QPixmap>
#include <QRectF>

#include <functional>

class QLabel;

// Builds and fills the row of one chat in the chat list: avatar (photo or a
// coloured tile with the title's initial), title, time of the last message,
// a two-line preview and the unread badge. Sizes are design pixels of the
// phone screen. Child widgets carry the names that updateItem looks for.
class ChatItemProvider : public QObject, public ListItemProvider
{
    Q_OBJECT
public:
    static constexpr int kRowHeight = 188;
    static constexpr int kAvatarSize = kChatAvatarPx;
    static constexpr int kBadgeSize = kUnreadBadgePx;

    // uiCacheDir holds the drawn tiles and the badge background.
    explicit ChatItemProvider(const QString &uiCacheDir, QObject *parent = nullptr);

    QWidget *createItem(ListView *listView, const QString &type) override;
    void updateItem(ListView *listView, QWidget *item, const QString &type,
                    const QVariantList &indexPath, const QVariantMap &data) override;

    // Tests pin "now" for the time labels; by default the wall clock.
    void setClock(std::function<QDateTime()> clock) { m_clock = std::move(clock); }

public Q_SLOTS:
    // Records the row's width on the row, so that the preview can wrap to it.
    void onChatItemLayoutFrameChanged(const QRectF &frame);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void applyPreviewWidth(QWidget *item);

    QString m_uiCacheDir;
    std::function<QDateTime()> m_clock;
    QWidget *m_frameSender = nullptr;
    QPixmap m_pin;
};
