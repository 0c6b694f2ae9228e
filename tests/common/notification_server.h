#pragma once

// A small freedesktop notification server for tests that run on a private
// session bus (dbus-run-session): it takes the service name on a connection
// of its own, records every Notify call and can click a notification.

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

struct RecordedNotification
{
    uint id = 0;
    uint replacesId = 0;
    QString appIcon;
    QString summary;
    QString body;
    QStringList actions;
    QVariantMap hints;
};

class NotificationServer : public QObject
{
    Q_OBJECT
public:
    QList<RecordedNotification> calls;
    uint nextId = 1;
};

class NotificationAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    explicit NotificationAdaptor(NotificationServer *server)
        : QDBusAbstractAdaptor(server), m_server(server)
    {
    }

public Q_SLOTS:
    uint Notify(const QString &, uint replacesId, const QString &appIcon, const QString &summary,
                const QString &body, const QStringList &actions, const QVariantMap &hints, int)
    {
        const uint id = replacesId != 0 ? replacesId : m_server->nextId++;
        m_server->calls.append({id, replacesId, appIcon, summary, body, actions, hints});
        return id;
    }
    void CloseNotification(uint id) { Q_EMIT NotificationClosed(id, 3); }
    QStringList GetCapabilities() { return {QStringLiteral("actions"), QStringLiteral("body")}; }

Q_SIGNALS:
    void ActionInvoked(uint id, const QString &actionKey);
    void NotificationClosed(uint id, uint reason);

private:
    NotificationServer *m_server;
};

// Owns the server's own bus connection; false from start() when the bus or
// the name is not to be had.
class NotificationServerHost
{
public:
    NotificationServerHost()
        : m_bus(QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                              QStringLiteral("test-notification-server")))
    {
        m_adaptor = new NotificationAdaptor(&server);
    }
    ~NotificationServerHost()
    {
        m_bus.unregisterObject(QStringLiteral("/org/freedesktop/Notifications"));
        m_bus.unregisterService(QStringLiteral("org.freedesktop.Notifications"));
        QDBusConnection::disconnectFromBus(QStringLiteral("test-notification-server"));
    }
    bool start()
    {
        return m_bus.isConnected() &&
               m_bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &server) &&
               m_bus.registerService(QStringLiteral("org.freedesktop.Notifications"));
    }
    // What a click on the notification does.
    void click(uint id) { Q_EMIT m_adaptor->ActionInvoked(id, QStringLiteral("default")); }

    NotificationServer server;

private:
    QDBusConnection m_bus;
    NotificationAdaptor *m_adaptor = nullptr;
};
