#include "backend_link/event_intake.h"

#include "backend_link/app_log.h"
#include "backend_link/json_keys.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFileSystemWatcher>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QProcess>
#include <QTextCodec>
#include <QTextDecoder>
#include <QTimer>

#include <algorithm>

EventIntake::EventIntake(AppLog *log, QObject *parent) : QObject(parent), m_log(log)
{
    setProcess(nullptr);
}

EventIntake::~EventIntake() = default;

void EventIntake::setProcess(QProcess *process)
{
    m_process = process;
    QTextCodec *utf8 = QTextCodec::codecForName("UTF-8");
    m_stdoutDecoder.reset(utf8->makeDecoder());
    m_stderrDecoder.reset(utf8->makeDecoder());
}

bool EventIntake::readChannel(int channel)
{
    // Read in slices so that a chatty child never turns into one huge string here.
    constexpr qint64 kSlice = 1024 * 1024;
    QTextDecoder *decoder =
        channel == QProcess::StandardOutput ? m_stdoutDecoder.get() : m_stderrDecoder.get();
    bool any = false;
    while (m_process) {
        m_process->setReadChannel(QProcess::ProcessChannel(channel));
        // read(n) sets aside n bytes first: ask only for what is there.
        const QByteArray bytes = m_process->read(qMin(kSlice, m_process->bytesAvailable()));
        if (bytes.isEmpty())
            break;
        any = true;
        const QString text = decoder->toUnicode(bytes);
        if (!text.isEmpty())
            handleOutput(text);
    }
    return any;
}

bool EventIntake::isPollTimerActive() const
{
    return m_pollTimer && m_pollTimer->isActive();
}

void EventIntake::resetOffsets()
{
    m_tdlibLog.skipToEnd();
    m_events.skipToEnd();
}

void EventIntake::setEventsFilePath(const QString &path)
{
    m_events.setPath(path);
    if (m_watcher)
        watchEventsFile();
}

void EventIntake::startPolling()
{
    if (!m_pollTimer) {
        m_pollTimer = new QTimer(this);
        connect(m_pollTimer, &QTimer::timeout, this, &EventIntake::onPoll);
    }
    m_pollTimer->start(m_currentPollInterval);
    if (!m_watcher) {
        m_watcher = new QFileSystemWatcher(this);
        m_changePoll = new QTimer(this);
        m_changePoll->setSingleShot(true);
        m_changePoll->setInterval(0);
        connect(m_changePoll, &QTimer::timeout, this, &EventIntake::onPoll);
        connect(m_watcher, &QFileSystemWatcher::fileChanged, this,
                &EventIntake::onEventsFileChanged);
        connect(m_watcher, &QFileSystemWatcher::directoryChanged, this,
                &EventIntake::onEventsFileChanged);
        watchEventsFile();
    }
}

void EventIntake::setPollIntervals(int idleMs, int activeMs)
{
    m_idlePollInterval = idleMs;
    m_activePollInterval = activeMs;
    setPollInterval(m_activeTicksLeft > 0 ? activeMs : idleMs, false);
}

void EventIntake::watchEventsFile()
{
    const QStringList watched = m_watcher->files() + m_watcher->directories();
    if (!watched.isEmpty())
        m_watcher->removePaths(watched);
    const QString path = m_events.path();
    if (path.isEmpty())
        return;
    // Without a watch (no folder yet, or the system's watches used up) the timer reads alone.
    if (QFileInfo::exists(path))
        m_watcher->addPath(path);
    else if (QFileInfo(path).absoluteDir().exists())
        m_watcher->addPath(QFileInfo(path).absolutePath());
}

void EventIntake::onEventsFileChanged()
{
    // Watched anew each time: a watch follows the file, not its name, so a file that was
    // replaced or removed and written again would otherwise go unseen.
    watchEventsFile();
    // The background regime keeps its slow, batched reads.
    if (!m_appInBackground && !m_pollingSuspended && !m_changePoll->isActive())
        m_changePoll->start();
}

void EventIntake::setPollInterval(int ms, bool forceRestart)
{
    if (ms == m_currentPollInterval && !forceRestart)
        return;
    m_currentPollInterval = ms;
    if (m_pollTimer)
        m_pollTimer->start(ms);
}

void EventIntake::onAppThumbnailed()
{
    m_appInBackground = true;
    m_pollingSuspended = false;
    m_activeTicksLeft = 0;
    setPollInterval(kBackgroundIdleMinMs, true);
}

void EventIntake::onAppFullscreen()
{
    m_appInBackground = false;
    m_pollingSuspended = false;
    m_activeTicksLeft = kActiveTicks;
    if (m_idlePollInterval <= 0)
        m_idlePollInterval = kIdlePollMs;
    setPollInterval(m_idlePollInterval, true);
}

void EventIntake::onLowMemory()
{
    if (m_pollingSuspended)
        return;
    m_activeTicksLeft = 0;
    setPollInterval(kLowMemoryPollMs, true);
}

void EventIntake::onStdout()
{
    readChannel(QProcess::StandardOutput);
}

void EventIntake::onStderr()
{
    readChannel(QProcess::StandardError);
}

void EventIntake::handleOutput(const QString &chunk)
{
    int start = 0;
    for (;;) {
        const int nl = chunk.indexOf(QLatin1Char('\n'), start);
        if (nl < 0) {
            const int rest = chunk.size() - start;
            if (m_discardingOutputLine || rest == 0)
                break;
            if (m_outputLineBuffer.size() + rest > kMaxOutputLineChars) {
                // A child that never ends its line must not grow this buffer without end.
                m_outputLineBuffer.clear();
                m_discardingOutputLine = true;
                m_log->appendLog(QStringLiteral("backend: output line too long\n"));
            } else {
                m_outputLineBuffer.append(chunk.midRef(start, rest));
            }
            break;
        }
        const int len = nl - start;
        if (m_discardingOutputLine) {
            m_discardingOutputLine = false;
            start = nl + 1;
            continue;
        }
        if (m_outputLineBuffer.size() + len > kMaxOutputLineChars) {
            m_outputLineBuffer.clear();
            start = nl + 1;
            m_log->appendLog(QStringLiteral("backend: output line too long\n"));
            continue;
        }
        m_outputLineBuffer.append(chunk.midRef(start, len));
        const QString line = m_outputLineBuffer.trimmed();
        m_outputLineBuffer.clear();
        start = nl + 1;

        if (line.startsWith(QLatin1String("AUTH_STATE "))) {
            Q_EMIT statusTextChanged(QStringLiteral("Auth: ") + line.mid(11));
        } else if (line.startsWith(QLatin1String("NEED "))) {
            Q_EMIT statusTextChanged(QStringLiteral("Need: ") + line.mid(5));
        } else if (line.startsWith(QLatin1String("ME "))) {
            Q_EMIT statusTextChanged(line);
        } else if (line.startsWith(QLatin1String("BACKEND_READY "))) {
            Q_EMIT statusTextChanged(QStringLiteral("Backend ready"));
        } else if (line.startsWith(QLatin1String("FATAL "))) {
            m_log->appendLog(line + QLatin1Char('\n'));
            Q_EMIT statusTextChanged(line);
        } else if (line.startsWith(QLatin1String("PROXY_REFUSED "))) {
            m_log->appendLog(line + QLatin1Char('\n'));
            Q_EMIT statusTextChanged(QStringLiteral("Proxy refused, network off: ") + line.mid(14));
        }
    }
}

bool EventIntake::drainProcessOutput()
{
    if (!m_process || m_process->state() != QProcess::Running)
        return false;
    const bool out = readChannel(QProcess::StandardOutput);
    const bool err = readChannel(QProcess::StandardError);
    return out || err;
}

void EventIntake::handleEventLine(const QByteArray &raw)
{
    const QByteArray line = raw.trimmed();
    if (line.isEmpty())
        return;
    if (json_repeats_key(line)) {
        m_log->appendLog(QStringLiteral("[event] repeated key\n"));
        return;
    }
    QJsonParseError error;
    QJsonDocument doc = QJsonDocument::fromJson(line, &error);
    if (error.error == QJsonParseError::IllegalUTF8String) {
        // One bad byte (a cut character, a stray Latin-1 name) should not cost the whole event:
        // decoding puts a replacement character in its place.
        doc = QJsonDocument::fromJson(QString::fromUtf8(line).toUtf8(), &error);
    }
    if (error.error != QJsonParseError::NoError) {
        // The reader only takes objects and arrays at the top level; a bare number, string or
        // literal is valid JSON that is merely not an event, and is dropped without a message.
        QJsonParseError wrappedError;
        const QJsonDocument wrapped = QJsonDocument::fromJson('[' + line + ']', &wrappedError);
        if (wrappedError.error != QJsonParseError::NoError || wrapped.array().size() != 1)
            m_log->appendLog(QStringLiteral("[event] json parse error\n"));
        return;
    }
    if (!doc.isObject())
        return;
    Q_EMIT eventReceived(doc.object().toVariantMap());
}

void EventIntake::onPoll()
{
    if (m_pollingSuspended)
        return;
    // A folder that did not exist when the watch began is looked for again here.
    if (m_watcher && m_watcher->files().isEmpty() && m_watcher->directories().isEmpty())
        watchEventsFile();

    bool activity = drainProcessOutput();

    const FileTail::ReadResult events =
        m_events.readNew([this](const QByteArray &line) { handleEventLine(line); },
                         [this]() { m_log->appendLog(QStringLiteral("[event] line too long\n")); });
    if (events == FileTail::ReadResult::NewBytes)
        activity = true;

    if (m_log->isViewVisible() && tailTdlibLog())
        activity = true;

    const int backgroundActive = std::max(m_activePollInterval, kBackgroundActiveMinMs);
    int next;
    if (activity) {
        m_activeTicksLeft = kActiveTicks;
        next = m_appInBackground ? backgroundActive : m_activePollInterval;
    } else if (m_activeTicksLeft > 0 && --m_activeTicksLeft >= 1) {
        next = m_appInBackground ? backgroundActive : m_activePollInterval;
    } else {
        next = m_appInBackground ? std::max(m_idlePollInterval, kBackgroundIdleMinMs)
                                 : m_idlePollInterval;
    }
    setPollInterval(next, false);
}

void EventIntake::handleTdlibLogLine(const QByteArray &raw)
{
    static const QByteArray tag("[backend]");
    if (!raw.startsWith(tag))
        return;
    const QString line = QString::fromUtf8(raw);
    m_log->appendLog(line + QLatin1Char('\n'));
    const QString rest = line.mid(tag.size()).trimmed();
    if (rest.startsWith(QLatin1String("AUTH_STATE "))) {
        Q_EMIT statusTextChanged(QStringLiteral("Auth: ") + rest.mid(11));
    } else if (rest.startsWith(QLatin1String("NEED "))) {
        Q_EMIT statusTextChanged(QStringLiteral("Need: ") + rest.mid(5));
    } else if (rest.startsWith(QLatin1String("ME "))) {
        Q_EMIT statusTextChanged(rest);
    } else if (rest == QLatin1String("BACKEND_READY")) {
        Q_EMIT statusTextChanged(QStringLiteral("Backend ready"));
    } else if (rest.startsWith(QLatin1String("FATAL "))) {
        Q_EMIT statusTextChanged(rest);
    } else if (rest.startsWith(QLatin1String("PROXY_REFUSED "))) {
        Q_EMIT statusTextChanged(QStringLiteral("Proxy refused, network off: ") + rest.mid(14));
    }
}

bool EventIntake::tailTdlibLog()
{
    const FileTail::ReadResult result =
        m_tdlibLog.readNew([this](const QByteArray &line) { handleTdlibLogLine(line); }, []() {});
    return result == FileTail::ReadResult::NewBytes;
}

void EventIntake::onToggleDebugLog()
{
    const bool show = !m_log->isViewVisible();
    m_log->setViewVisible(show);
    if (!show)
        return;
    QFile file(m_tdlibLog.path());
    if (!m_tdlibLog.path().isEmpty() && file.open(QIODevice::ReadOnly))
        m_tdlibLog.skipToEnd();
    m_activeTicksLeft = kActiveTicks;
}
