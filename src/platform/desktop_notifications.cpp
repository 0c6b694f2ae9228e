#include "platform/desktop_notifications.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFileInfo>
#include <QVariantMap>

namespace {

constexpr char kInterface[] = "org.freedesktop.Notifications";
constexpr int kMaxSummaryChars = 200;
constexpr int kMaxBodyChars = 1000;

} // namespace

DesktopNotifications::DesktopNotifications(const QDBusConnection &bus, QObject *parent)
    : QObject(parent), m_bus(bus)
{
    if (!m_bus.isConnected())
        return;
    m_bus.connect(QString(), QLatin1String(kPath), QLatin1String(kInterface),
                  QStringLiteral("ActionInvoked"), this, SLOT(onActionInvoked(uint, QString)));
    m_bus.connect(QString(), QLatin1String(kPath), QLatin1String(kInterface),
                  QStringLiteral("NotificationClosed"), this,
                  SLOT(onNotificationClosed(uint, uint)));
}

void DesktopNotifications::show(qint64 key, const QString &summary, const QString &body,
                                const QString &iconPath, bool silent)
{
    const Shown what{summary.left(kMaxSummaryChars), body.left(kMaxBodyChars), iconPath, silent};
    // The replacement needs the id of the one on screen: wait for it.
    if (m_inFlight.contains(key)) {
        m_queued.insert(key, what);
        return;
    }
    send(key, what);
}

void DesktopNotifications::send(qint64 key, const Shown &what)
{
    if (!m_bus.isConnected()) {
        Q_EMIT failed(QStringLiteral("no session bus"));
        return;
    }
    QVariantMap hints;
    hints.insert(QStringLiteral("desktop-entry"), QStringLiteral("vexa"));
    hints.insert(QStringLiteral("category"), QStringLiteral("im.received"));
    const bool hasIcon = !what.iconPath.isEmpty() && QFileInfo(what.iconPath).isFile();
    if (hasIcon)
        hints.insert(QStringLiteral("image-path"), what.iconPath);
    if (what.silent)
        hints.insert(QStringLiteral("suppress-sound"), true);
    QDBusMessage call =
        QDBusMessage::createMethodCall(QLatin1String(kService), QLatin1String(kPath),
                                       QLatin1String(kInterface), QStringLiteral("Notify"));
    call << QStringLiteral("Vexa") << m_ids.value(key, 0u)
         << (hasIcon ? what.iconPath : QStringLiteral("vexa")) << what.summary << what.body
         << QStringList{QStringLiteral("default"), QStringLiteral("Open")} << hints << qint32(-1);
    m_inFlight.insert(key);
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, key](QDBusPendingCallWatcher *w) {
                w->deleteLater();
                m_inFlight.remove(key);
                const QDBusPendingReply<uint> reply = *w;
                if (reply.isError())
                    Q_EMIT failed(reply.error().message());
                else
                    m_ids.insert(key, reply.value());
                if (m_queued.contains(key))
                    send(key, m_queued.take(key));
            });
}

void DesktopNotifications::close(qint64 key)
{
    m_queued.remove(key);
    const uint id = m_ids.take(key);
    if (id == 0 || !m_bus.isConnected())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QLatin1String(kService), QLatin1String(kPath), QLatin1String(kInterface),
        QStringLiteral("CloseNotification"));
    call << id;
    m_bus.asyncCall(call);
}

void DesktopNotifications::onActionInvoked(uint id, const QString &actionKey)
{
    // Other programs' notifications share the signal.
    const qint64 key = m_ids.key(id, 0);
    if (id == 0 || key == 0 || actionKey != QLatin1String("default"))
        return;
    Q_EMIT activated(key);
}

void DesktopNotifications::onNotificationClosed(uint id, uint)
{
    const qint64 key = m_ids.key(id, 0);
    if (id != 0 && key != 0)
        m_ids.remove(key);
}
