#pragma once

// A SOCKS5 proxy on 127.0.0.1 that never connects anywhere: it answers the
// greeting (any authentication goes), notes where each CONNECT wanted to go,
// and refuses it. Pointing TDLib at it shows where TDLib tried to go while
// nothing leaves the machine.

#include <QHostAddress>
#include <QStringList>
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
    // "host:port" of every refused CONNECT, in order.
    QStringList attempts() const { return m_attempts; }

Q_SIGNALS:
    void attempted(const QString &target);

private:
    enum Stage
    {
        Greeting,
        UserPass,
        Request
    };

    void serve(QTcpSocket *s)
    {
        QByteArray buf = s->property("buf").toByteArray() + s->readAll();
        int stage = s->property("stage").toInt();
        // Every message of the exchange is short; anything longer is not SOCKS5.
        if (buf.size() > 1024) {
            s->abort();
            return;
        }
        for (bool progress = true; progress;) {
            progress = false;
            const auto byte = [&](int i) { return quint8(buf.at(i)); };
            if (stage == Greeting && buf.size() >= 2 && buf.size() >= 2 + byte(1)) {
                const QByteArray methods = buf.mid(2, byte(1));
                const char method = methods.contains(char(0))   ? 0
                                    : methods.contains(char(2)) ? 2
                                                                : char(0xff);
                s->write(QByteArray("\x05", 1) + method);
                if (method == char(0xff)) {
                    s->disconnectFromHost();
                    return;
                }
                buf.remove(0, 2 + byte(1));
                stage = method == 0 ? Request : UserPass;
                progress = true;
            } else if (stage == UserPass && buf.size() >= 2 && buf.size() >= 3 + byte(1) &&
                       buf.size() >= 3 + byte(1) + byte(2 + byte(1))) {
                s->write(QByteArray("\x01\x00", 2));
                buf.remove(0, 3 + byte(1) + byte(2 + byte(1)));
                stage = Request;
                progress = true;
            } else if (stage == Request && buf.size() >= 5) {
                const int type = byte(3);
                const int addrLen = type == 1 ? 4 : type == 4 ? 16 : type == 3 ? 1 + byte(4) : -1;
                if (addrLen < 0) {
                    s->abort();
                    return;
                }
                if (buf.size() < 4 + addrLen + 2)
                    break;
                QString host;
                if (type == 1)
                    host = QHostAddress(quint32((byte(4) << 24) | (byte(5) << 16) | (byte(6) << 8) |
                                                byte(7)))
                               .toString();
                else if (type == 4)
                    host = QHostAddress(reinterpret_cast<const quint8 *>(buf.constData() + 4))
                               .toString();
                else
                    host = QString::fromLatin1(buf.mid(5, byte(4)));
                const int port = (byte(4 + addrLen) << 8) | byte(5 + addrLen);
                const QString target = host + QLatin1Char(':') + QString::number(port);
                if (m_attempts.size() < 1000)
                    m_attempts << target;
                // Reply 5: connection refused.
                s->write(QByteArray("\x05\x05\x00\x01\x00\x00\x00\x00\x00\x00", 10));
                s->disconnectFromHost();
                Q_EMIT attempted(target);
                return;
            }
        }
        s->setProperty("buf", buf);
        s->setProperty("stage", stage);
    }

    QTcpServer m_server;
    QStringList m_attempts;
};
