#pragma once

#include <QHash>
#include <QObject>
#include <QString>

class QLocalServer;
class QLocalSocket;

// Keeps one running vexa per user and data folder. The first instance
// listens on a local socket; a later `vexa URL` hands its URL over and
// exits. A message is one line: the URL (possibly empty, which only asks
// the running instance to come forward) and "\n"; the answer is "ok\n".
class InstanceChannel : public QObject
{
    Q_OBJECT
public:
    static constexpr int MaxMessageBytes = 64 * 1024;

    explicit InstanceChannel(const QString &serverName, QObject *parent = nullptr);
    ~InstanceChannel() override;

    // "vexa-<uid>-<hash of the data folder>", so two data folders can run
    // side by side.
    static QString server_name_for(const QString &dataDir);

    // Sends url to a running instance and waits up to timeoutMs for its
    // answer. false when nobody listens, the URL holds a line break or is
    // too long, or the answer does not come (*error says which).
    bool sendToRunning(const QString &url, int timeoutMs, QString *error);

    // Becomes the running instance. A socket left behind by a crashed
    // instance is removed; a live one makes this fail.
    bool listen(QString *error);
    bool isListening() const;

    QString serverName() const { return m_name; }

Q_SIGNALS:
    void urlReceived(const QString &url);
    // An empty message: bring the window forward.
    void activationRequested();

private:
    void onNewConnection();
    void onReadyRead(QLocalSocket *socket);

    QString m_name;
    QLocalServer *m_server = nullptr;
    QHash<QLocalSocket *, QByteArray> m_buffers;
};
