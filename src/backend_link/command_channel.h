#pragma once

#include <QString>

class AppLog;
class QProcess;

// Carries command lines to the backend. The link trims each line and refuses line breaks before
// it gets here; a channel only frames and delivers it. Fire and forget: failures are logged.
class CommandChannel
{
public:
    virtual ~CommandChannel() = default;
    // trace: also write the reaction trace lines to the UI debug log.
    virtual void sendCommand(const QString &line, bool trace) = 0;
};

// Local mode: the line and its "\n" to the child's standard input.
class StdinCommandChannel : public CommandChannel
{
public:
    StdinCommandChannel(QProcess *process, AppLog *log) : m_process(process), m_log(log) {}
    void sendCommand(const QString &line, bool trace) override;

private:
    QProcess *m_process;
    AppLog *m_log;
};

// Service mode: one datagram per command, without a terminator, to 127.0.0.1:port; a blank line
// is not sent. The socket is opened at the first send (and again after a failed open).
class UdpCommandChannel : public CommandChannel
{
public:
    UdpCommandChannel(quint16 port, AppLog *log) : m_port(port), m_log(log) {}
    ~UdpCommandChannel() override;
    UdpCommandChannel(const UdpCommandChannel &) = delete;
    UdpCommandChannel &operator=(const UdpCommandChannel &) = delete;
    void sendCommand(const QString &line, bool trace) override;

private:
    bool sendDatagram(const QByteArray &bytes);

    quint16 m_port;
    AppLog *m_log;
    int m_socket = -1;
};
