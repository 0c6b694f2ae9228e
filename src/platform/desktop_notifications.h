#pragma once

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>

// Desktop notifications through the freedesktop notification service on
// the session bus (org.freedesktop.Notifications). Each key (a chat) has at
// most one notification on screen: a newer one replaces it. A click on it
// (the "default" action) comes back as activated(key).
class DesktopNotifications : public QObject
{
    Q_OBJECT
public:
    static constexpr char kService[] = "org.freedesktop.Notifications";
    static constexpr char kPath[] = "/org/freedesktop/Notifications";

    explicit DesktopNotifications(const QDBusConnection &bus, QObject *parent = nullptr);

    // iconPath: a PNG shown as the notification's image; may be empty.
    // silent: no sound.
    void show(qint64 key, const QString &summary, const QString &body, const QString &iconPath,
              bool silent = false);
    // Takes the key's notification off the screen, if it has one.
    void close(qint64 key);

Q_SIGNALS:
    void activated(qint64 key);
    // A call failed (no notification service, a refused call).
    void failed(const QString &error);

private Q_SLOTS:
    // QtDBus delivers bus signals only to slots named by signature.
    void onActionInvoked(uint id, const QString &actionKey);
    void onNotificationClosed(uint id, uint reason);

private:
    struct Shown
    {
        QString summary;
        QString body;
        QString iconPath;
        bool silent = false;
    };
    void send(qint64 key, const Shown &what);

    QDBusConnection m_bus;
    // The server's id of each key's notification.
    QHash<qint64, uint> m_ids;
    // Keys whose Notify call has not answered yet, and what should replace
    // it once the id is known.
    QSet<qint64> m_inFlight;
    QHash<qint64, Shown> m_queued;
};
