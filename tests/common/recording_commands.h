#pragma once

#include "backend_link/command_channel.h"

#include <QStringList>

// Keeps every command line the link hands on, oldest first, for tests.
class RecordingCommands : public CommandChannel
{
public:
    void sendCommand(const QString &line, bool) override { m_lines.append(line); }
    const QStringList &lines() const { return m_lines; }
    int count(const QString &line) const { return m_lines.count(line); }
    void clear() { m_lines.clear(); }

private:
    QStringList m_lines;
};
