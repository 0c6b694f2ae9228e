#pragma once

// A SOCKS5 proxy on 127.0.0.1 that never connects anywhere: it takes the
// greeting without authentication, notes where each CONNECT wanted to go, and
// refuses it. Pointing TDLib at it shows where TDLib tried to go while nothing
// leaves the machine.

#include <QHostAddress>
#include <QStringList>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtEndian>

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
    // "host:port" of the refused CONNECTs, in order (the first thousand).
    QStringList attempts() const { return m_attempts; }

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
        if (s->property("greeted").toBool() && buf.size() >= 5) {
            const int type = byte(3);
            const int addrLen = type == 1 ? 4 : type == 4 ? 16 : type == 3 ? 1 + byte(4) : -1;
            if (addrLen < 0) {
                s->abort();
                return;
            }
            if (buf.size() >= 4 + addrLen + 2) {
                const QString host =
                    type == 3 ? QString::fromLatin1(buf.mid(5, byte(4)))
                    : type == 4
                        ? QHostAddress(reinterpret_cast<const quint8 *>(buf.constData() + 4))
                              .toString()
                        : QHostAddress(qFromBigEndian<quint32>(buf.constData() + 4)).toString();
                const int port = (byte(4 + addrLen) << 8) | byte(5 + addrLen);
                if (m_attempts.size() < 1000)
                    m_attempts << host + QLatin1Char(':') + QString::number(port);
                // Reply 5: connection refused.
                s->write(QByteArray("\x05\x05\x00\x01\x00\x00\x00\x00\x00\x00", 10));
                s->disconnectFromHost();
                return;
            }
        }
        s->setProperty("buf", buf);
    }

    QTcpServer m_server;
    QStringList m_attempts;
};
