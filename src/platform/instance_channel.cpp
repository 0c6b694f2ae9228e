#include "platform/instance_channel.h"

#include <QCryptographicHash>
#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>

#include <unistd.h>

InstanceChannel::InstanceChannel(const QString &serverName, QObject *parent)
    : QObject(parent), m_name(serverName)
{
}

InstanceChannel::~InstanceChannel() = default;

QString InstanceChannel::server_name_for(const QString &dataDir)
{
    const QByteArray path = QDir::cleanPath(QDir(dataDir).absolutePath()).toUtf8();
    const QByteArray hash = QCryptographicHash::hash(path, QCryptographicHash::Sha1).toHex();
    return QStringLiteral("vexa-%1-%2")
        .arg(static_cast<qulonglong>(::getuid()))
        .arg(QString::fromLatin1(hash.left(16)));
}

bool InstanceChannel::sendToRunning(const QString &url, int timeoutMs, QString *error)
{
    auto fail = [error](const QString &why) {
        if (error)
            *error = why;
        return false;
    };
    if (url.contains(QLatin1Char('\n')) || url.contains(QLatin1Char('\r')))
        return fail(QStringLiteral("url holds a line break"));
    QByteArray line = url.toUtf8();
    if (line.size() + 1 > MaxMessageBytes)
        return fail(QStringLiteral("url too long"));
    line.append('\n');

    QLocalSocket socket;
    socket.connectToServer(m_name);
    if (!socket.waitForConnected(timeoutMs))
        return fail(QStringLiteral("no running instance: %1").arg(socket.errorString()));
    socket.write(line);
    if (!socket.waitForBytesWritten(timeoutMs))
        return fail(QStringLiteral("write failed: %1").arg(socket.errorString()));
    QByteArray answer;
    while (!answer.contains('\n') && answer.size() < 64) {
        if (!socket.waitForReadyRead(timeoutMs))
            return fail(QStringLiteral("no answer: %1").arg(socket.errorString()));
        answer += socket.read(64 - answer.size());
    }
    if (!answer.startsWith("ok\n"))
        return fail(QStringLiteral("unexpected answer"));
    socket.disconnectFromServer();
    return true;
}

bool InstanceChannel::listen(QString *error)
{
    if (m_server && m_server->isListening())
        return true;
    // A socket file nobody answers on is what a crashed instance leaves.
    {
        QLocalSocket probe;
        probe.connectToServer(m_name);
        if (probe.waitForConnected(500)) {
            probe.abort();
            if (error)
                *error = QStringLiteral("another instance is running");
            return false;
        }
    }
    QLocalServer::removeServer(m_name);
    delete m_server;
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(m_name)) {
        if (error)
            *error = QStringLiteral("listen failed: %1").arg(m_server->errorString());
        delete m_server;
        m_server = nullptr;
        return false;
    }
    connect(m_server, &QLocalServer::newConnection, this, &InstanceChannel::onNewConnection);
    return true;
}

bool InstanceChannel::isListening() const
{
    return m_server && m_server->isListening();
}

void InstanceChannel::onNewConnection()
{
    while (QLocalSocket *s = m_server->nextPendingConnection()) {
        s->setReadBufferSize(MaxMessageBytes + 1);
        m_buffers.insert(s, QByteArray());
        connect(s, &QLocalSocket::readyRead, this, [this, s] { onReadyRead(s); });
        connect(s, &QLocalSocket::disconnected, this, [this, s] {
            m_buffers.remove(s);
            s->deleteLater();
        });
        if (s->bytesAvailable() > 0)
            onReadyRead(s);
    }
}

void InstanceChannel::onReadyRead(QLocalSocket *socket)
{
    auto it = m_buffers.find(socket);
    if (it == m_buffers.end())
        return;
    QByteArray &buf = it.value();
    // Never hold more than one message's worth.
    buf += socket->read(MaxMessageBytes + 1 - buf.size());
    const int nl = buf.indexOf('\n');
    if (nl < 0) {
        if (buf.size() > MaxMessageBytes) {
            m_buffers.erase(it);
            socket->abort();
        }
        return;
    }
    const QByteArray line = buf.left(nl);
    m_buffers.erase(it);
    // One message per connection: the sender waits for the answer and
    // closes.
    if (line.contains('\r')) {
        socket->write("bad\n");
        socket->disconnectFromServer();
        return;
    }
    socket->write("ok\n");
    socket->flush();
    socket->disconnectFromServer();
    const QString url = QString::fromUtf8(line);
    if (url.isEmpty())
        Q_EMIT activationRequested();
    else
        Q_EMIT urlReceived(url);
}
