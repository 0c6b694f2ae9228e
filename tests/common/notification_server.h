#pragma once

// A small freedesktop notification server for tests on a private session bus
// (dbus-run-session): it records every Notify call and can click a
// notification, as a desktop's server would.

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QStringList>
#include <QVariantMap>

struct RecordedNotification
{
    uint id = 0;
    uint replacesId = 0;
    QString summary;
    QString body;
    QVariantMap hints;
};

class NotificationAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    explicit NotificationAdaptor(QObject *owner) : QDBusAbstractAdaptor(owner) {}
    QList<RecordedNotification> calls;

public Q_SLOTS:
    uint Notify(const QString &, uint replacesId, const QString &, const QString &summary,
                const QString &body, const QStringList &, const QVariantMap &hints, int)
    {
        const uint id = replacesId != 0 ? replacesId : uint(calls.size() + 1);
        calls.append({id, replacesId, summary, body, hints});
        return id;
    }
    void CloseNotification(uint) {}

Q_SIGNALS:
    void ActionInvoked(uint id, const QString &actionKey);
    void NotificationClosed(uint id, uint reason);
};

// The server on a bus connection of its own, so that calls really cross the bus.
class NotificationServer
{
public:
    NotificationServer() : m_adaptor(new NotificationAdaptor(&m_owner)) {}
    ~NotificationServer() { QDBusConnection::disconnectFromBus(kName); }
    bool start()
    {
        return m_bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), &m_owner) &&
               m_bus.registerService(QStringLiteral("org.freedesktop.Notifications"));
    }
    const QList<RecordedNotification> &calls() const { return m_adaptor->calls; }
    void click(uint id) { Q_EMIT m_adaptor->ActionInvoked(id, QStringLiteral("default")); }

private:
    static constexpr char kName[] = "test-notification-server";
    QObject m_owner;
    NotificationAdaptor *m_adaptor;
    QDBusConnection m_bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, kName);
};
