#include "backend_link/command_channel.h"

#include "backend_link/app_log.h"

#include <QProcess>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

void StdinCommandChannel::sendCommand(const QString &line, bool trace)
{
    if (m_process->state() != QProcess::Running) {
        m_log->appendLog(QStringLiteral("backend: not running\n"));
        if (trace)
            m_log->appendUiFileLog(QStringLiteral("react: sendLine abort backend_state=%1\n")
                                       .arg(int(m_process->state())));
        return;
    }
    const qint64 written = m_process->write(line.toUtf8() + '\n');
    if (written < 0) {
        const QString error = m_process->errorString();
        m_log->appendLog(QStringLiteral("backend: write failed: ") + error + QLatin1Char('\n'));
        if (trace)
            m_log->appendUiFileLog(
                QStringLiteral("react: sendLine write failed err=%1\n").arg(error));
        return;
    }
    if (!m_process->waitForBytesWritten(1000)) {
        const QString error = m_process->errorString();
        m_log->appendLog(QStringLiteral("backend: waitForBytesWritten timeout/error: ") + error +
                         QLatin1Char('\n'));
        if (trace)
            m_log->appendUiFileLog(
                QStringLiteral("react: sendLine waitForBytesWritten timeout/error: %1\n")
                    .arg(error));
        return;
    }
    if (trace)
        m_log->appendUiFileLog(QStringLiteral("react: sendLine done written=%1\n").arg(written));
}

UdpCommandChannel::~UdpCommandChannel()
{
    if (m_socket >= 0)
        ::close(m_socket);
}

void UdpCommandChannel::sendCommand(const QString &line, bool trace)
{
    if (line.isEmpty())
        return;
    const bool ok = sendDatagram(line.toUtf8());
    if (trace)
        m_log->appendUiFileLog(
            QStringLiteral("react: sendLine via service ok=%1\n").arg(ok ? 1 : 0));
}

bool UdpCommandChannel::sendDatagram(const QByteArray &bytes)
{
    if (m_socket < 0) {
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (fd < 0) {
            m_log->appendLog(
                QStringLiteral("ui: service cmd socket() failed errno=%1\n").arg(errno));
            return false;
        }
        m_socket = fd;
    }
    sockaddr_in addr;
    std::memset(&addr, 0, sizeof(addr));
    addr.sin_family = AF_INET;
    addr.sin_port = htons(m_port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const ssize_t sent = ::sendto(m_socket, bytes.constData(), size_t(bytes.size()), 0,
                                  reinterpret_cast<const sockaddr *>(&addr), sizeof(addr));
    if (sent < 0) {
        m_log->appendLog(QStringLiteral("ui: service cmd sendto failed errno=%1\n").arg(errno));
        return false;
    }
    return true;
}
