#pragma once

// A freedesktop notification server for tests on a private session bus
// (dbus-run-session), on a bus connection of its own so that calls really
// cross the bus: it records every Notify call and clicks a notification as a
// desktop's server would.

#include <QDBusConnection>
#include <QObject>
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

class NotificationServer : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")
public:
    ~NotificationServer() override { QDBusConnection::disconnectFromBus(kName); }
    bool start()
    {
        return m_bus.registerObject(QStringLiteral("/org/freedesktop/Notifications"), this,
                                    QDBusConnection::ExportAllSlots |
                                        QDBusConnection::ExportAllSignals) &&
               m_bus.registerService(QStringLiteral("org.freedesktop.Notifications"));
    }
    const QList<RecordedNotification> &calls() const { return m_calls; }
    void click(uint id) { Q_EMIT ActionInvoked(id, QStringLiteral("default")); }

public Q_SLOTS:
    uint Notify(const QString &, uint replacesId, const QString &, const QString &summary,
                const QString &body, const QStringList &, const QVariantMap &hints, int)
    {
        const uint id = replacesId != 0 ? replacesId : uint(m_calls.size() + 1);
        m_calls.append({id, replacesId, summary, body, hints});
        return id;
    }
    void CloseNotification(uint) {}

Q_SIGNALS:
    void ActionInvoked(uint id, const QString &actionKey);

private:
    static constexpr char kName[] = "test-notification-server";
    QList<RecordedNotification> m_calls;
    QDBusConnection m_bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, kName);
};
