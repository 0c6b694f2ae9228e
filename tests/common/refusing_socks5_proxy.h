#pragma once

// A SOCKS5 proxy on 127.0.0.1 that never connects anywhere: it takes the
// greeting without authentication, counts each request to connect, and refuses
// it. Pointing TDLib at it shows that TDLib tried while nothing leaves the
// machine.

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>

class RefusingSocks5Proxy : public QObject
{
    Q_OBJECT
public:
    explicit RefusingSocks5Proxy(QObject *parent = nullptr) : QObject(parent)
    {
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *s = m_server.nextPendingConnection()) {
                s->setParent(this);
                connect(s, &QTcpSocket::readyRead, this, [this, s] { serve(s); });
                connect(s, &QTcpSocket::disconnected, s, &QObject::deleteLater);
            }
        });
    }
    bool listen() { return m_server.listen(QHostAddress::LocalHost, 0); }
    quint16 port() const { return m_server.serverPort(); }
    // How many requests to connect were refused.
    int attempts() const { return m_attempts; }

private:
    void serve(QTcpSocket *s)
    {
        QByteArray buf = s->property("buf").toByteArray() + s->readAll();
        // Every message of the exchange is short; anything longer is not SOCKS5.
        if (buf.size() > 1024) {
            s->abort();
            return;
        }
        const auto byte = [&](int i) { return quint8(buf.at(i)); };
        if (!s->property("greeted").toBool() && buf.size() >= 2 && buf.size() >= 2 + byte(1)) {
            s->write(QByteArray("\x05\x00", 2));
            buf.remove(0, 2 + byte(1));
            s->setProperty("greeted", true);
        }
        // A request (CONNECT or other) is refused as soon as its header is in.
        if (s->property("greeted").toBool() && buf.size() >= 4) {
            ++m_attempts;
            // Reply 5: connection refused.
            s->write(QByteArray("\x05\x05\x00\x01\x00\x00\x00\x00\x00\x00", 10));
            s->disconnectFromHost();
            return;
        }
        s->setProperty("buf", buf);
    }

    QTcpServer m_server;
    int m_attempts = 0;
};
