#include "backend_link/app_log.h"

#include "backend_link/text_cut.h"

#include <QDateTime>
#include <QFile>
#include <QIODevice>

#include <cstdio>

AppLog::AppLog(QObject *parent) : QObject(parent) {}

void AppLog::appendLog(const QString &text)
{
    m_buffer.append(text);
    // Code units never undercount code points, so the count is only needed past the limit.
    if (m_buffer.size() > kMaxBufferChars && code_point_count(m_buffer) > kMaxBufferChars)
        m_buffer = right_code_points(m_buffer, kMaxBufferChars);
    if (m_viewVisible) {
        m_stale = false;
        Q_EMIT viewTextChanged(m_buffer);
        writeConsole(text);
    } else {
        m_stale = true;
    }
}

void AppLog::writeConsole(const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    if (m_console) {
        m_console->write(bytes);
        return;
    }
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
    std::fflush(stderr);
}

void AppLog::appendUiFileLog(const QString &text)
{
    if (m_uiDebugLogPath.isEmpty())
        return;
    QFile file(m_uiDebugLogPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text |
                   QIODevice::Unbuffered))
        return;
    const qint64 before = file.size();
    QByteArray line = QDateTime::currentDateTimeUtc()
                          .toString(QStringLiteral("yyyy-MM-ddTHH:mm:ss.zzzZ "))
                          .toUtf8();
    line += text.toUtf8();
    if (!text.endsWith(QLatin1Char('\n')))
        line += '\n';
    // On a full disk the line is lost whole: a cut one would be glued to the next.
    if (file.write(line) != line.size())
        file.resize(before);
    file.close();
}

void AppLog::setUiDebugLogPath(const QString &path)
{
    m_uiDebugLogPath = path;
}

void AppLog::truncateUiDebugLog()
{
    if (m_uiDebugLogPath.isEmpty())
        return;
    QFile file(m_uiDebugLogPath);
    if (file.open(QIODevice::WriteOnly | QIODevice::Truncate))
        file.close();
}

void AppLog::clear()
{
    m_buffer.clear();
    if (m_viewVisible) {
        m_stale = false;
        Q_EMIT viewTextChanged(m_buffer);
    } else {
        m_stale = true;
    }
}

void AppLog::setViewVisible(bool visible)
{
    if (visible == m_viewVisible)
        return;
    m_viewVisible = visible;
    Q_EMIT viewVisibleChanged(visible);
    if (visible && m_stale) {
        m_stale = false;
        Q_EMIT viewTextChanged(m_buffer);
    }
}
