#include "demo_backend.h"

#include "demo_media.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kMaxPage = 200;
constexpr int kPendingDelayAck = 150;
constexpr int kPendingDelayDone = 600;

qint64 nowSecs()
{
    return QDateTime::currentSecsSinceEpoch();
}

qint64 monotonicMs()
{
    static QElapsedTimer t;
    if (!t.isValid())
        t.start();
    return t.elapsed();
}

bool writeFully(int fd, const QByteArray &bytes)
{
    const char *p = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, size_t(left));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        p += n;
        left -= n;
    }
    return true;
}

QString contentTypeForMedia(const QString &media)
{
    if (media == QLatin1String("photo"))
        return QStringLiteral("messagePhoto");
    if (media == QLatin1String("voice"))
        return QStringLiteral("messageVoiceNote");
    if (media == QLatin1String("video_note"))
        return QStringLiteral("messageVideoNote");
    if (media == QLatin1String("video"))
        return QStringLiteral("messageVideo");
    if (media == QLatin1String("file"))
        return QStringLiteral("messageDocument");
    return QStringLiteral("messageText");
}

// File names that come from messages must stay inside their folder.
QString safeFileName(const QString &name)
{
    QString n = QFileInfo(name).fileName();
    n.replace(QRegularExpression(QStringLiteral("[\\x00-\\x1f/\\\\]")), QStringLiteral("_"));
    if (n.isEmpty() || n == QLatin1String(".") || n == QLatin1String(".."))
        n = QStringLiteral("file");
    return n.left(120);
}

} // namespace

DemoBackend::DemoBackend(const DemoConfig &config, DemoStore *store, QObject *parent)
    : QObject(parent), m_config(config), m_store(store), m_world(config.seed),
      m_lifeRng(demo_mix(config.seed ^ 0x4c494645))
{
    m_scheduler = new QTimer(this);
    m_scheduler->setSingleShot(true);
    connect(m_scheduler, &QTimer::timeout, this, &DemoBackend::onSchedulerTimeout);
    m_life = new QTimer(this);
    m_life->setSingleShot(true);
    connect(m_life, &QTimer::timeout, this, &DemoBackend::onLifeTick);
}

DemoBackend::~DemoBackend()
{
    for (QProcess *p : qAsConst(m_videoJobs)) {
        p->disconnect(this);
        p->kill();
        p->waitForFinished(1000);
    }
    if (m_eventsFd >= 0)
        ::close(m_eventsFd);
    if (m_logFd >= 0)
        ::close(m_logFd);
}

// ---------------------------------------------------------------- parsing

bool DemoBackend::parseId(const QString &text, qint64 *out)
{
    if (text.isEmpty() || text.size() > 20)
        return false;
    int i = 0;
    bool neg = false;
    if (text.at(0) == QLatin1Char('-')) {
        neg = true;
        i = 1;
        if (text.size() == 1)
            return false;
    }
    quint64 v = 0;
    for (; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c < QLatin1Char('0') || c > QLatin1Char('9'))
            return false;
        v = v * 10 + quint64(c.unicode() - '0');
        if (v > quint64(Q_INT64_C(9007199254740992))) // beyond exact JSON numbers
            return false;
    }
    *out = neg ? -qint64(v) : qint64(v);
    return true;
}

bool DemoBackend::decodeBase64Strict(const QString &text, QByteArray *out)
{
    if (text.isEmpty() || text.size() % 4 != 0)
        return false;
    for (const QChar c : text) {
        const ushort u = c.unicode();
        const bool ok = (u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z') ||
                        (u >= '0' && u <= '9') || u == '+' || u == '/' || u == '=';
        if (!ok)
            return false;
    }
    const QByteArray::FromBase64Result r =
        QByteArray::fromBase64Encoding(text.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (!r)
        return false;
    *out = r.decoded;
    return true;
}

bool DemoBackend::chatArg(const QString &text, int *index) const
{
    qint64 id = 0;
    if (!parseId(text, &id) || id == 0)
        return false;
    const int ci = m_world.chatIndexById(id);
    if (ci < 0)
        return false;
    *index = ci;
    return true;
}

// ---------------------------------------------------------------- output

void DemoBackend::emitEvent(const QJsonObject &event)
{
    QByteArray line = QJsonDocument(event).toJson(QJsonDocument::Compact);
    line.append('\n');
    reopenEventsIfReplaced();
    if (m_eventsFd >= 0 && !writeFully(m_eventsFd, line))
        logLine(1, QStringLiteral("events write failed errno=%1").arg(errno));
    if (m_config.verbosity >= 4)
        logLine(4, QStringLiteral("event %1").arg(event.value(QStringLiteral("type")).toString()));
}

void DemoBackend::emitError(const QString &type, int code, const QString &message,
                            QJsonObject fields)
{
    fields.insert(QStringLiteral("type"), type);
    fields.insert(QStringLiteral("code"), code);
    fields.insert(QStringLiteral("message"), message);
    emitEvent(fields);
}

void DemoBackend::reopenEventsIfReplaced()
{
    // A reader may remove or replace the file; events then go to the file
    // that is there now, not to an unlinked one.
    struct stat open = {};
    struct stat named = {};
    const QByteArray path = QFile::encodeName(m_config.eventsPath);
    if (m_eventsFd >= 0 && ::fstat(m_eventsFd, &open) == 0 &&
        ::stat(path.constData(), &named) == 0 && open.st_ino == named.st_ino &&
        open.st_dev == named.st_dev)
        return;
    const int fd = ::open(path.constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0)
        return;
    if (m_eventsFd >= 0)
        ::close(m_eventsFd);
    m_eventsFd = fd;
}

void DemoBackend::statusLine(const QString &line)
{
    const QByteArray bytes = line.toUtf8() + '\n';
    writeFully(STDOUT_FILENO, bytes);
    logLine(1, line);
}

void DemoBackend::logLine(int level, const QString &text)
{
    if (m_logFd < 0 || level > qMax(1, m_config.verbosity))
        return;
    QByteArray line = "[backend] " + text.toUtf8();
    line.replace('\n', ' ');
    line.append('\n');
    if (m_config.logMaxSize > 0 && m_logSize + line.size() > m_config.logMaxSize) {
        // Keep one old generation, like the service's own log rotation.
        ::close(m_logFd);
        const QString old = m_config.logPath + QStringLiteral(".old");
        QFile::remove(old);
        QFile::rename(m_config.logPath, old);
        m_logFd = ::open(QFile::encodeName(m_config.logPath).constData(),
                         O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        m_logSize = 0;
        if (m_logFd < 0)
            return;
    }
    if (writeFully(m_logFd, line))
        m_logSize += line.size();
}

void DemoBackend::tdError(const QString &extra, int code, const QString &message)
{
    QJsonObject err;
    err.insert(QStringLiteral("@type"), QStringLiteral("error"));
    err.insert(QStringLiteral("code"), code);
    err.insert(QStringLiteral("message"), message);
    if (!extra.isEmpty())
        err.insert(QStringLiteral("@extra"), extra);
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("td_error"));
    e.insert(QStringLiteral("json"),
             QString::fromUtf8(QJsonDocument(err).toJson(QJsonDocument::Compact)));
    emitEvent(e);
    logLine(2, QStringLiteral("error %1 %2 %3").arg(extra).arg(code).arg(message));
}

// ---------------------------------------------------------------- scheduler

void DemoBackend::later(int ms, std::function<void()> fn)
{
    const qint64 scaled = qint64(double(ms) * m_config.speed);
    if (scaled <= 0) {
        fn();
        return;
    }
    m_tasks.insert(TaskKey(monotonicMs() + scaled, m_taskSeq++), std::move(fn));
    armScheduler();
}

void DemoBackend::armScheduler()
{
    if (m_tasks.isEmpty()) {
        m_scheduler->stop();
        return;
    }
    const qint64 wait = qMax<qint64>(0, m_tasks.firstKey().first - monotonicMs());
    m_scheduler->start(int(qMin<qint64>(wait, 3600000)));
}

void DemoBackend::onSchedulerTimeout()
{
    const qint64 now = monotonicMs();
    while (!m_tasks.isEmpty() && m_tasks.firstKey().first <= now) {
        const std::function<void()> fn = m_tasks.take(m_tasks.firstKey());
        fn();
    }
    armScheduler();
}

void DemoBackend::drainPending()
{
    // Video jobs first: their answers may schedule more work.
    while (!m_videoJobs.isEmpty()) {
        QProcess *p = m_videoJobs.first();
        if (!p->waitForFinished(30000))
            p->kill();
        p->waitForFinished(1000);
        QCoreApplication::processEvents();
        m_videoJobs.removeAll(p);
    }
    int guard = 100000;
    while (!m_tasks.isEmpty() && guard-- > 0) {
        const std::function<void()> fn = m_tasks.take(m_tasks.firstKey());
        fn();
    }
    m_scheduler->stop();
}

void DemoBackend::announceClosed()
{
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("td_closed"));
    emitEvent(e);
    logLine(1, QStringLiteral("closed"));
}

// ---------------------------------------------------------------- start

bool DemoBackend::start(QString *error)
{
    m_eventsFd = ::open(QFile::encodeName(m_config.eventsPath).constData(),
                        O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (m_eventsFd < 0) {
        if (error)
            *error = QStringLiteral("cannot open events file %1").arg(m_config.eventsPath);
        return false;
    }
    if (!m_config.logPath.isEmpty()) {
        m_logFd = ::open(QFile::encodeName(m_config.logPath).constData(),
                         O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        m_logSize = QFileInfo(m_config.logPath).size();
    }

    // The world is fixed at the first start: the stored seed wins over a
    // changed environment, so saved changes always match their messages.
    const QString storedSeed = m_store->meta(QStringLiteral("seed"));
    if (storedSeed.isEmpty()) {
        m_store->setMeta(QStringLiteral("seed"), QString::number(m_config.seed));
        m_epoch = nowSecs();
        m_store->setMeta(QStringLiteral("epoch"), QString::number(m_epoch));
    } else {
        const quint64 seed = storedSeed.toULongLong();
        if (seed != m_config.seed) {
            logLine(1, QStringLiteral("database keeps seed %1").arg(seed));
            m_world = DemoWorld(seed);
            m_lifeRng = DemoRng(demo_mix(seed ^ 0x4c494645));
        }
        m_epoch = m_store->meta(QStringLiteral("epoch")).toLongLong();
        if (m_epoch <= 0)
            m_epoch = nowSecs();
    }
    m_authState = m_store->meta(QStringLiteral("auth_state"), QStringLiteral("WaitPhoneNumber"));
    if (m_authState != QLatin1String("Ready"))
        m_authState = QStringLiteral("WaitPhoneNumber");
    m_phone = m_store->meta(QStringLiteral("phone"));

    const QVector<DemoChat> &chats = m_world.chats();
    m_rt.resize(chats.size());
    const QHash<qint64, DemoChatState> states = m_store->loadChatStates();
    QHash<qint64, QHash<qint64, DemoOverride>> overrides = m_store->loadOverrides();
    for (int ci = 0; ci < chats.size(); ++ci) {
        const DemoChat &c = chats.at(ci);
        ChatRuntime &rt = m_rt[ci];
        if (states.contains(c.id)) {
            rt.state = states.value(c.id);
        } else {
            rt.state.muted = c.mutedByDefault;
            rt.state.lastReadInbox = c.baseCount - c.initialUnread;
            rt.state.lastReadOutbox = c.baseCount - c.initialOutboxUnread;
            rt.state.member = c.memberByDefault;
            rt.state.removed = !c.memberByDefault;
        }
        rt.overrides = overrides.take(c.id);
    }
    const QList<QJsonObject> stored = m_store->loadMessages();
    for (const QJsonObject &o : stored) {
        const DemoMessage m = messageFromJson(o);
        const int ci = m_world.chatIndexById(m.chatId);
        if (ci >= 0 && m.id > 0)
            m_rt[ci].stored.insert(m.id, m);
    }
    const QHash<QString, QString> titles = m_store->metaWithPrefix(QStringLiteral("title:"));
    for (auto it = titles.cbegin(); it != titles.cend(); ++it) {
        if (!it.value().isEmpty())
            m_titles.insert(it.key().toLongLong(), it.value());
    }
    m_files = m_store->loadFiles();
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it)
        m_nextStoredFileId = qMax(m_nextStoredFileId, it.key() + 1);

    writeFully(STDOUT_FILENO, QByteArrayLiteral("BACKEND_READY demo\n"));
    logLine(1, QStringLiteral("BACKEND_READY"));
    QJsonObject ready;
    ready.insert(QStringLiteral("type"), QStringLiteral("backend_ready"));
    ready.insert(QStringLiteral("name"), QStringLiteral("demo"));
    emitEvent(ready);

    if (m_authState == QLatin1String("WaitPhoneNumber") && m_config.autoSendPhone &&
        !m_config.phone.trimmed().isEmpty()) {
        cmdPhone(m_config.phone);
    } else {
        announceAuthState();
        if (m_authState == QLatin1String("Ready"))
            announceConnection();
    }
    if (m_config.speed > 0)
        m_life->start(int(6000 * m_config.speed));
    return true;
}

// ---------------------------------------------------------------- auth

void DemoBackend::announceAuthState()
{
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("auth_state"));
    e.insert(QStringLiteral("state"), m_authState);
    emitEvent(e);
    statusLine(QStringLiteral("AUTH_STATE %1").arg(m_authState));
    QString need;
    if (m_authState == QLatin1String("WaitPhoneNumber"))
        need = QStringLiteral("phone");
    else if (m_authState == QLatin1String("WaitCode"))
        need = QStringLiteral("code");
    else if (m_authState == QLatin1String("WaitPassword"))
        need = QStringLiteral("password");
    if (!need.isEmpty()) {
        QJsonObject n;
        n.insert(QStringLiteral("type"), QStringLiteral("need"));
        n.insert(QStringLiteral("what"), need);
        emitEvent(n);
        statusLine(QStringLiteral("NEED %1").arg(need));
    }
    if (m_authState == QLatin1String("Ready"))
        announceMe();
}

void DemoBackend::setAuthState(const QString &state)
{
    m_authState = state;
    // Only a finished sign-in is remembered; half-done ones start over.
    m_store->setMeta(QStringLiteral("auth_state"),
                     state == QLatin1String("Ready") ? state : QStringLiteral("WaitPhoneNumber"));
    announceAuthState();
}

void DemoBackend::announceMe()
{
    QJsonObject me;
    me.insert(QStringLiteral("type"), QStringLiteral("me"));
    me.insert(QStringLiteral("id"), DemoWorld::kMeUserId);
    me.insert(QStringLiteral("first_name"), m_world.meFirstName());
    me.insert(QStringLiteral("last_name"), m_world.meLastName());
    me.insert(QStringLiteral("username"), m_world.meUsername());
    me.insert(QStringLiteral("phone"), m_phone);
    me.insert(QStringLiteral("photo_small_id"), DemoWorld::kMePhotoFileId);
    emitEvent(me);
}

void DemoBackend::announceConnection()
{
    auto state = [this](const QString &s) {
        QJsonObject e;
        e.insert(QStringLiteral("type"), QStringLiteral("connection_state"));
        e.insert(QStringLiteral("state"), s);
        emitEvent(e);
    };
    state(QStringLiteral("Connecting"));
    later(300, [state] { state(QStringLiteral("Updating")); });
    later(500, [state] { state(QStringLiteral("Ready")); });
}

void DemoBackend::cmdPhone(const QString &text)
{
    // International format as typed: digits with optional "+", blanks,
    // dashes and brackets; anything else makes the number invalid.
    QString digits;
    bool valid = true;
    for (const QChar c : text) {
        if (c >= QLatin1Char('0') && c <= QLatin1Char('9'))
            digits.append(c);
        else if (!QStringLiteral("+ -()").contains(c))
            valid = false;
    }
    if (m_authState != QLatin1String("WaitPhoneNumber") &&
        m_authState != QLatin1String("WaitCode")) {
        tdError(QStringLiteral("phone"), 400, QStringLiteral("PHONE_NUMBER_UNEXPECTED"));
        return;
    }
    if (!valid || digits.size() < 5 || digits.size() > 15) {
        tdError(QStringLiteral("phone"), 400, QStringLiteral("PHONE_NUMBER_INVALID"));
        announceAuthState();
        return;
    }
    m_phone = QStringLiteral("+") + digits;
    m_store->setMeta(QStringLiteral("phone"), m_phone);
    m_codeSends = 0;
    later(200, [this] {
        m_authState = QStringLiteral("WaitCode");
        QJsonObject ci;
        ci.insert(QStringLiteral("type"), QStringLiteral("code_info"));
        ci.insert(QStringLiteral("delivery"), QStringLiteral("app"));
        ci.insert(QStringLiteral("phone"), m_phone);
        ci.insert(QStringLiteral("length"), 5);
        emitEvent(ci);
        announceAuthState();
    });
}

void DemoBackend::cmdCode(const QString &text)
{
    if (m_authState != QLatin1String("WaitCode")) {
        tdError(QStringLiteral("code"), 400, QStringLiteral("PHONE_CODE_UNEXPECTED"));
        return;
    }
    if (text.trimmed() != QLatin1String("22222")) {
        tdError(QStringLiteral("code"), 400, QStringLiteral("PHONE_CODE_INVALID"));
        announceAuthState();
        return;
    }
    later(200, [this] {
        if (m_phone.endsWith(QLatin1Char('9'))) {
            m_authState = QStringLiteral("WaitPassword");
            announceAuthState();
        } else {
            setAuthState(QStringLiteral("Ready"));
            announceConnection();
        }
    });
}

void DemoBackend::cmdPassword(const QString &text)
{
    if (m_authState != QLatin1String("WaitPassword")) {
        tdError(QStringLiteral("password"), 400, QStringLiteral("PASSWORD_UNEXPECTED"));
        return;
    }
    if (text != QLatin1String("vexa")) {
        tdError(QStringLiteral("password"), 400, QStringLiteral("PASSWORD_HASH_INVALID"));
        announceAuthState();
        return;
    }
    later(200, [this] {
        setAuthState(QStringLiteral("Ready"));
        announceConnection();
    });
}

void DemoBackend::cmdResend()
{
    if (m_authState != QLatin1String("WaitCode")) {
        tdError(QStringLiteral("resend"), 400, QStringLiteral("Code can't be resent now"));
        return;
    }
    ++m_codeSends;
    QJsonObject ci;
    ci.insert(QStringLiteral("type"), QStringLiteral("code_info"));
    ci.insert(QStringLiteral("delivery"),
              m_codeSends == 1 ? QStringLiteral("sms") : QStringLiteral("call"));
    ci.insert(QStringLiteral("phone"), m_phone);
    ci.insert(QStringLiteral("length"), 5);
    emitEvent(ci);
}

// ---------------------------------------------------------------- model

bool DemoBackend::isInMainList(int ci) const
{
    const DemoChatState &s = m_rt.at(ci).state;
    return s.member && !s.removed;
}

bool DemoBackend::canSend(int ci) const
{
    const DemoChat &c = chat(ci);
    const DemoChatState &s = m_rt.at(ci).state;
    if (c.type == QLatin1String("private") || c.type == QLatin1String("secret"))
        return c.canSend;
    if (!s.member || s.removed)
        return false;
    if (!c.memberByDefault) // a public group joined later
        return c.type == QLatin1String("supergroup");
    return c.canSend;
}

bool DemoBackend::findMessage(int ci, qint64 id, DemoMessage *out) const
{
    const DemoChat &c = chat(ci);
    const ChatRuntime &rt = m_rt.at(ci);
    if (id <= rt.state.clearedUpTo || id < 1)
        return false;
    const auto ov = rt.overrides.constFind(id);
    if (ov != rt.overrides.cend() && ov->deleted)
        return false;
    DemoMessage m;
    if (id <= c.baseCount) {
        m = m_world.generateMessage(c, id, m_epoch);
    } else {
        const auto it = rt.stored.constFind(id);
        if (it == rt.stored.cend())
            return false;
        m = *it;
    }
    if (ov != rt.overrides.cend()) {
        if (ov->hasText)
            m.text = ov->text;
        if (ov->editDate > 0)
            m.editDate = ov->editDate;
        if (ov->hasReactions)
            m.reactions = ov->reactions;
    }
    *out = m;
    return true;
}

qint64 DemoBackend::lastMessageId(int ci) const
{
    const QList<qint64> ids = idsBefore(ci, std::numeric_limits<qint64>::max(), 1);
    return ids.isEmpty() ? 0 : ids.first();
}

bool DemoBackend::isAlive(const ChatRuntime &rt, qint64 id)
{
    const auto ov = rt.overrides.constFind(id);
    return ov == rt.overrides.cend() || !ov->deleted;
}

QList<qint64> DemoBackend::idsBefore(int ci, qint64 before, int limit) const
{
    const DemoChat &c = chat(ci);
    const ChatRuntime &rt = m_rt.at(ci);
    QList<qint64> out;
    auto alive = [&rt](qint64 id) { return isAlive(rt, id); };
    auto it = rt.stored.lowerBound(before);
    while (it != rt.stored.cbegin() && out.size() < limit) {
        --it;
        if (it.key() <= rt.state.clearedUpTo)
            break;
        if (alive(it.key()))
            out.prepend(it.key());
    }
    qint64 id = qMin<qint64>(before - 1, c.baseCount);
    for (; id > rt.state.clearedUpTo && id >= 1 && out.size() < limit; --id) {
        if (alive(id))
            out.prepend(id);
    }
    return out;
}

QList<qint64> DemoBackend::idsAfter(int ci, qint64 after, int limit) const
{
    const DemoChat &c = chat(ci);
    const ChatRuntime &rt = m_rt.at(ci);
    QList<qint64> out;
    auto alive = [&rt](qint64 id) { return isAlive(rt, id); };
    qint64 id = qMax(after + 1, rt.state.clearedUpTo + 1);
    id = qMax<qint64>(id, 1);
    for (; id <= c.baseCount && out.size() < limit; ++id) {
        if (alive(id))
            out.append(id);
    }
    for (auto it = rt.stored.upperBound(qMax(after, rt.state.clearedUpTo));
         it != rt.stored.cend() && out.size() < limit; ++it) {
        if (alive(it.key()))
            out.append(it.key());
    }
    return out;
}

qint64 DemoBackend::nextMessageId(int ci) const
{
    const ChatRuntime &rt = m_rt.at(ci);
    qint64 id = qMax<qint64>(chat(ci).baseCount, rt.state.clearedUpTo);
    if (!rt.stored.isEmpty())
        id = qMax(id, rt.stored.lastKey());
    return id + 1;
}

int DemoBackend::unreadCount(int ci) const
{
    const ChatRuntime &rt = m_rt.at(ci);
    int n = 0;
    const QList<qint64> ids = idsAfter(ci, rt.state.lastReadInbox, 5000);
    for (qint64 id : ids) {
        DemoMessage m;
        if (findMessage(ci, id, &m) && !m.outgoing)
            ++n;
    }
    return n;
}

qint64 DemoBackend::orderOf(int ci) const
{
    if (!isInMainList(ci))
        return 0;
    const DemoChat &c = chat(ci);
    if (c.pinnedRank > 0)
        return (Q_INT64_C(1) << 50) + c.pinnedRank;
    qint64 date = m_rt.at(ci).state.orderDate;
    DemoMessage last;
    if (lastMessage(ci, &last))
        date = qMax(date, last.date);
    if (date <= 0)
        date = m_epoch - c.lagSeconds;
    return (date << 16) + (c.index & 0xffff);
}

bool DemoBackend::lastMessage(int ci, DemoMessage *out) const
{
    const qint64 lastId = lastMessageId(ci);
    return lastId > 0 && findMessage(ci, lastId, out);
}

QVector<int> DemoBackend::mainList() const
{
    QVector<QPair<qint64, int>> rows;
    for (int ci = 0; ci < m_rt.size(); ++ci) {
        const qint64 o = orderOf(ci);
        if (o > 0)
            rows.append({o, ci});
    }
    std::sort(rows.begin(), rows.end(),
              [this](const QPair<qint64, int> &a, const QPair<qint64, int> &b) {
                  if (a.first != b.first)
                      return a.first > b.first;
                  return chat(a.second).id > chat(b.second).id;
              });
    QVector<int> out;
    out.reserve(rows.size());
    for (const auto &r : rows)
        out.append(r.second);
    return out;
}

void DemoBackend::saveState(int ci)
{
    if (!m_store->saveChatState(chat(ci).id, m_rt.at(ci).state))
        logLine(1, QStringLiteral("db: %1").arg(m_store->lastError()));
}

void DemoBackend::storeMessage(int ci, const DemoMessage &m)
{
    m_rt[ci].stored.insert(m.id, m);
    if (!m_store->saveMessage(m.chatId, m.id, messageJson(m)))
        logLine(1, QStringLiteral("db: %1").arg(m_store->lastError()));
}

void DemoBackend::setOverride(int ci, qint64 id, const DemoOverride &o)
{
    m_rt[ci].overrides.insert(id, o);
    if (!m_store->saveOverride(chat(ci).id, id, o))
        logLine(1, QStringLiteral("db: %1").arg(m_store->lastError()));
}

bool DemoBackend::setReactions(int ci, qint64 id, const QJsonArray &reactions)
{
    ChatRuntime &rt = m_rt[ci];
    if (id > chat(ci).baseCount) {
        auto it = rt.stored.find(id);
        if (it == rt.stored.end())
            return false;
        it->reactions = reactions;
        storeMessage(ci, *it);
        return true;
    }
    DemoOverride o = rt.overrides.value(id);
    o.hasReactions = true;
    o.reactions = reactions;
    setOverride(ci, id, o);
    return true;
}

bool DemoBackend::setDeleted(int ci, qint64 id)
{
    DemoOverride o = m_rt.at(ci).overrides.value(id);
    o.deleted = true;
    setOverride(ci, id, o);
    return true;
}

// ---------------------------------------------------------------- JSON

QJsonObject DemoBackend::messageJson(const DemoMessage &m) const
{
    QJsonObject o;
    o.insert(QStringLiteral("chat_id"), m.chatId);
    o.insert(QStringLiteral("id"), m.id);
    o.insert(QStringLiteral("date"), m.date);
    o.insert(QStringLiteral("outgoing"), m.outgoing);
    if (!m.sendingState.isEmpty())
        o.insert(QStringLiteral("sending_state"), m.sendingState);
    o.insert(QStringLiteral("content_type"), m.contentType);
    o.insert(QStringLiteral("text"), m.text);
    o.insert(QStringLiteral("sender_user_id"), m.senderUserId);
    o.insert(QStringLiteral("sender_name"), m.senderName);
    o.insert(QStringLiteral("sender_photo_small_id"), m.senderPhotoId);
    if (m.replyTo > 0)
        o.insert(QStringLiteral("reply_to_message_id"), m.replyTo);
    if (!m.forwarded.isEmpty())
        o.insert(QStringLiteral("forwarded"), m.forwarded);
    if (!m.mediaType.isEmpty()) {
        o.insert(QStringLiteral("media_type"), m.mediaType);
        if (!m.mediaName.isEmpty())
            o.insert(QStringLiteral("media_name"), m.mediaName);
        o.insert(QStringLiteral("media_size"), m.mediaSize);
        if (m.mediaW > 0)
            o.insert(QStringLiteral("media_w"), m.mediaW);
        if (m.mediaH > 0)
            o.insert(QStringLiteral("media_h"), m.mediaH);
        if (m.mediaDuration > 0)
            o.insert(QStringLiteral("media_duration"), m.mediaDuration);
        o.insert(QStringLiteral("media_file_id"), m.mediaFileId);
        if (m.thumbFileId > 0)
            o.insert(QStringLiteral("media_thumb_file_id"), m.thumbFileId);
    }
    if (m.editDate > 0)
        o.insert(QStringLiteral("edit_date"), m.editDate);
    if (!m.reactions.isEmpty())
        o.insert(QStringLiteral("reactions"), m.reactions);
    return o;
}

DemoMessage DemoBackend::messageFromJson(const QJsonObject &o)
{
    DemoMessage m;
    auto i64 = [&o](const char *k) { return qint64(o.value(QLatin1String(k)).toDouble()); };
    auto str = [&o](const char *k) { return o.value(QLatin1String(k)).toString(); };
    m.chatId = i64("chat_id");
    m.id = i64("id");
    m.date = i64("date");
    m.outgoing = o.value(QStringLiteral("outgoing")).toBool();
    m.sendingState = str("sending_state");
    m.contentType = str("content_type");
    m.text = str("text");
    m.senderUserId = i64("sender_user_id");
    m.senderName = str("sender_name");
    m.senderPhotoId = i64("sender_photo_small_id");
    m.replyTo = i64("reply_to_message_id");
    m.forwarded = str("forwarded");
    m.mediaType = str("media_type");
    m.mediaName = str("media_name");
    m.mediaSize = i64("media_size");
    m.mediaW = int(i64("media_w"));
    m.mediaH = int(i64("media_h"));
    m.mediaDuration = int(i64("media_duration"));
    m.mediaFileId = i64("media_file_id");
    m.thumbFileId = i64("media_thumb_file_id");
    m.editDate = i64("edit_date");
    m.reactions = o.value(QStringLiteral("reactions")).toArray();
    return m;
}

QJsonObject DemoBackend::chatJson(int ci) const
{
    const DemoChat &c = chat(ci);
    const ChatRuntime &rt = m_rt.at(ci);
    QJsonObject o;
    o.insert(QStringLiteral("type"), QStringLiteral("chat"));
    o.insert(QStringLiteral("id"), c.id);
    o.insert(QStringLiteral("title"), titleOf(ci));
    o.insert(QStringLiteral("chat_type"), c.type);
    o.insert(QStringLiteral("muted_known"), true);
    o.insert(QStringLiteral("muted"), rt.state.muted);
    if (c.photoFileId > 0)
        o.insert(QStringLiteral("photo_small_id"), c.photoFileId);
    o.insert(QStringLiteral("order"), QString::number(orderOf(ci)));
    o.insert(QStringLiteral("pinned"), c.pinnedRank > 0);
    o.insert(QStringLiteral("unread_count"), unreadCount(ci));
    DemoMessage last;
    if (lastMessage(ci, &last)) {
        o.insert(QStringLiteral("last_text"), last.text);
        o.insert(QStringLiteral("last_content_type"), last.contentType);
        o.insert(QStringLiteral("last_date"), last.date);
        o.insert(QStringLiteral("last_message_id"), last.id);
        o.insert(QStringLiteral("last_outgoing"), last.outgoing);
    }
    o.insert(QStringLiteral("last_read_outbox_message_id"), rt.state.lastReadOutbox);
    return o;
}

QJsonObject DemoBackend::userJson(const DemoUser &u) const
{
    QJsonObject o;
    o.insert(QStringLiteral("type"), QStringLiteral("user"));
    o.insert(QStringLiteral("id"), u.id);
    o.insert(QStringLiteral("name"), u.displayName());
    o.insert(QStringLiteral("first_name"), u.firstName);
    o.insert(QStringLiteral("last_name"), u.lastName);
    o.insert(QStringLiteral("username"), u.username);
    o.insert(QStringLiteral("photo_small_id"), u.photoFileId);
    QString status = u.statusType;
    qint64 was = m_epoch - u.wasOnlineAgo;
    if (m_presence.contains(u.id)) {
        status = m_presence.value(u.id).first;
        was = m_presence.value(u.id).second;
    }
    o.insert(QStringLiteral("status_type"), status);
    o.insert(QStringLiteral("was_online"), status == QLatin1String("offline") ? was : 0);
    o.insert(QStringLiteral("expires"),
             status == QLatin1String("online") ? nowSecs() + 300 : qint64(0));
    return o;
}

QJsonObject DemoBackend::messagePropertiesJson(int ci, const DemoMessage &m) const
{
    const DemoChat &c = chat(ci);
    bool onlySelf = false;
    bool forAll = false;
    if (c.type == QLatin1String("private")) {
        onlySelf = true;
        forAll = true;
    } else if (c.type == QLatin1String("secret")) {
        forAll = true;
    } else if (c.type == QLatin1String("basic_group")) {
        onlySelf = true;
        forAll = m.outgoing;
    } else if (c.type == QLatin1String("supergroup")) {
        forAll = m.outgoing;
    } else {
        forAll = c.isAdmin;
    }
    const bool secret = c.type == QLatin1String("secret");
    QJsonObject o;
    o.insert(QStringLiteral("type"), QStringLiteral("message_properties"));
    o.insert(QStringLiteral("chat_id"), c.id);
    o.insert(QStringLiteral("id"), m.id);
    o.insert(QStringLiteral("can_be_deleted_only_for_self"), onlySelf);
    o.insert(QStringLiteral("can_be_deleted_for_all_users"), forAll);
    o.insert(QStringLiteral("can_be_edited"),
             m.outgoing && !secret && m.contentType == QLatin1String("messageText"));
    o.insert(QStringLiteral("can_be_forwarded"), !secret);
    o.insert(QStringLiteral("can_be_replied"), canSend(ci));
    o.insert(QStringLiteral("can_be_copied"), !secret && !m.text.isEmpty());
    return o;
}

void DemoBackend::emitChatLastMessage(int ci)
{
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("chat_last_message"));
    e.insert(QStringLiteral("chat_id"), chat(ci).id);
    DemoMessage last;
    if (lastMessage(ci, &last)) {
        e.insert(QStringLiteral("message_id"), last.id);
        e.insert(QStringLiteral("date"), last.date);
        e.insert(QStringLiteral("content_type"), last.contentType);
        e.insert(QStringLiteral("text"), last.text);
        e.insert(QStringLiteral("outgoing"), last.outgoing);
    } else {
        e.insert(QStringLiteral("message_id"), 0);
        e.insert(QStringLiteral("content_type"), QString());
        e.insert(QStringLiteral("text"), QString());
        e.insert(QStringLiteral("outgoing"), false);
    }
    emitEvent(e);
}

void DemoBackend::emitChatPosition(int ci)
{
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("chat_position"));
    e.insert(QStringLiteral("chat_id"), chat(ci).id);
    e.insert(QStringLiteral("order"), QString::number(orderOf(ci)));
    e.insert(QStringLiteral("pinned"), isInMainList(ci) && chat(ci).pinnedRank > 0);
    emitEvent(e);
}

void DemoBackend::emitHistory(int ci, const QList<qint64> &ids, bool clear, qint64 from)
{
    ChatRuntime &rt = m_rt[ci];
    if (clear || rt.gen == 0)
        ++rt.gen;
    const qint64 chatId = chat(ci).id;
    QJsonObject b;
    b.insert(QStringLiteral("type"), QStringLiteral("history_begin"));
    b.insert(QStringLiteral("chat_id"), chatId);
    b.insert(QStringLiteral("gen"), rt.gen);
    b.insert(QStringLiteral("clear"), clear);
    b.insert(QStringLiteral("from_message_id"), from);
    emitEvent(b);
    int n = 0;
    for (qint64 id : ids) {
        DemoMessage m;
        if (!findMessage(ci, id, &m))
            continue;
        QJsonObject o = messageJson(m);
        o.insert(QStringLiteral("type"), QStringLiteral("message"));
        o.insert(QStringLiteral("gen"), rt.gen);
        emitEvent(o);
        ++n;
    }
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("history_end"));
    e.insert(QStringLiteral("chat_id"), chatId);
    e.insert(QStringLiteral("gen"), rt.gen);
    e.insert(QStringLiteral("clear"), clear);
    e.insert(QStringLiteral("count"), n);
    emitEvent(e);
}

void DemoBackend::emitPinnedState(int ci)
{
    const DemoChat &c = chat(ci);
    DemoMessage best;
    for (qint64 id : c.pinnedMessageIds) {
        DemoMessage m;
        if (findMessage(ci, id, &m) && m.id > best.id)
            best = m;
    }
    QJsonObject e;
    e.insert(QStringLiteral("chat_id"), c.id);
    if (best.id > 0) {
        e.insert(QStringLiteral("type"), QStringLiteral("pinned_message"));
        e.insert(QStringLiteral("id"), best.id);
        e.insert(QStringLiteral("text"), best.text);
        e.insert(QStringLiteral("content_type"), best.contentType);
    } else {
        e.insert(QStringLiteral("type"), QStringLiteral("pinned_none"));
    }
    emitEvent(e);
}

// ---------------------------------------------------------------- dispatch

void DemoBackend::handleLine(const QByteArray &raw)
{
    QByteArray bytes = raw;
    while (!bytes.isEmpty() && (bytes.endsWith('\r') || bytes.endsWith('\n')))
        bytes.chop(1);
    const QString line = QString::fromUtf8(bytes).trimmed();
    if (line.isEmpty())
        return;
    const int sp = line.indexOf(QLatin1Char(' '));
    const QString verb = sp < 0 ? line : line.left(sp);
    const QString rest = sp < 0 ? QString() : line.mid(sp + 1);
    const QStringList a = rest.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    logLine(3, QStringLiteral("cmd %1").arg(verb.left(40)));

    if (verb == QLatin1String("ping")) {
        QJsonObject e;
        e.insert(QStringLiteral("type"), QStringLiteral("backend_ready"));
        e.insert(QStringLiteral("name"), QStringLiteral("demo"));
        e.insert(QStringLiteral("pong"), true);
        emitEvent(e);
        return;
    }
    if (verb == QLatin1String("state")) {
        announceAuthState();
        if (m_authState == QLatin1String("Ready")) {
            QJsonObject e;
            e.insert(QStringLiteral("type"), QStringLiteral("connection_state"));
            e.insert(QStringLiteral("state"), QStringLiteral("Ready"));
            emitEvent(e);
        }
        return;
    }
    if (verb == QLatin1String("phone"))
        return cmdPhone(rest);
    if (verb == QLatin1String("code"))
        return cmdCode(rest);
    if (verb == QLatin1String("password"))
        return cmdPassword(rest);
    if (verb == QLatin1String("resend"))
        return cmdResend();

    static const QStringList known = {
        QStringLiteral("chats"),           QStringLiteral("open"),
        QStringLiteral("chat_info"),       QStringLiteral("close"),
        QStringLiteral("history"),         QStringLiteral("history_more"),
        QStringLiteral("history_jump"),    QStringLiteral("read"),
        QStringLiteral("send64"),          QStringLiteral("sendfile64"),
        QStringLiteral("sendvoice64"),     QStringLiteral("sendvideonote64"),
        QStringLiteral("edit64"),          QStringLiteral("react"),
        QStringLiteral("forward"),         QStringLiteral("delete"),
        QStringLiteral("props"),           QStringLiteral("pinned_list"),
        QStringLiteral("search_server64"), QStringLiteral("mute_toggle"),
        QStringLiteral("clear_history"),   QStringLiteral("join"),
        QStringLiteral("leave"),           QStringLiteral("delete_chat"),
        QStringLiteral("download"),        QStringLiteral("downloadp"),
        QStringLiteral("resolve")};
    if (!known.contains(verb)) {
        tdError(QStringLiteral("unknown"), 400, QStringLiteral("Unknown command"));
        return;
    }
    if (m_authState != QLatin1String("Ready")) {
        const QString msg = QStringLiteral("Unauthorized");
        qint64 chatId = 0;
        if (!a.isEmpty())
            parseId(a.first(), &chatId);
        if (verb == QLatin1String("edit64")) {
            emitError(QStringLiteral("edit_error"), 401, msg);
        } else if (verb == QLatin1String("delete")) {
            emitError(QStringLiteral("delete_error"), 401, msg);
        } else if (verb == QLatin1String("react")) {
            emitError(QStringLiteral("reaction_error"), 401, msg,
                      {{QStringLiteral("chat_id"), chatId}});
        } else if (verb == QLatin1String("resolve")) {
            emitError(QStringLiteral("tg_resolve_error"), 401, msg,
                      {{QStringLiteral("username"), a.value(0).left(64)}});
        } else {
            QString tag = verb;
            if (verb.startsWith(QLatin1String("send")) && verb.endsWith(QLatin1String("64")) &&
                verb != QLatin1String("search_server64"))
                tag = verb.left(verb.size() - 2) + QStringLiteral(":%1").arg(chatId);
            tdError(tag, 401, msg);
        }
        return;
    }

    if (verb == QLatin1String("chats"))
        cmdChats(a);
    else if (verb == QLatin1String("open"))
        cmdOpen(a);
    else if (verb == QLatin1String("chat_info"))
        cmdChatInfo(a);
    else if (verb == QLatin1String("close"))
        cmdClose(a);
    else if (verb == QLatin1String("history"))
        cmdHistory(a);
    else if (verb == QLatin1String("history_more"))
        cmdHistoryMore(a);
    else if (verb == QLatin1String("history_jump"))
        cmdHistoryJump(a);
    else if (verb == QLatin1String("read"))
        cmdRead(a);
    else if (verb == QLatin1String("send64") || verb == QLatin1String("sendfile64") ||
             verb == QLatin1String("sendvoice64") || verb == QLatin1String("sendvideonote64"))
        cmdSend(verb, a);
    else if (verb == QLatin1String("edit64"))
        cmdEdit(a);
    else if (verb == QLatin1String("react"))
        cmdReact(a);
    else if (verb == QLatin1String("forward"))
        cmdForward(a);
    else if (verb == QLatin1String("delete"))
        cmdDelete(a);
    else if (verb == QLatin1String("props"))
        cmdProps(a);
    else if (verb == QLatin1String("pinned_list"))
        cmdPinnedList(a);
    else if (verb == QLatin1String("search_server64"))
        cmdSearch(a);
    else if (verb == QLatin1String("download") || verb == QLatin1String("downloadp"))
        cmdDownload(a, verb == QLatin1String("downloadp"));
    else if (verb == QLatin1String("resolve"))
        cmdResolve(a);
    else
        cmdChatAction(verb, a);
}

// ---------------------------------------------------------------- chats

void DemoBackend::cmdChats(const QStringList &a)
{
    qint64 n = 0;
    if (a.size() != 1 || !parseId(a.first(), &n) || n < 1 || n > 100000) {
        tdError(QStringLiteral("chats"), 400, QStringLiteral("Invalid chat count"));
        return;
    }
    const QVector<int> list = mainList();
    QJsonObject b;
    b.insert(QStringLiteral("type"), QStringLiteral("chats_begin"));
    emitEvent(b);
    QSet<qint64> peers;
    for (int i = 0; i < list.size() && i < n; ++i) {
        emitEvent(chatJson(list.at(i)));
        if (chat(list.at(i)).peerUserId > 0)
            peers.insert(chat(list.at(i)).peerUserId);
    }
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("chats_end"));
    emitEvent(e);
    for (const DemoUser &u : m_world.users()) {
        if (peers.contains(u.id))
            emitEvent(userJson(u));
    }
}

void DemoBackend::cmdChatInfo(const QStringList &a)
{
    int ci = -1;
    qint64 rawId = 0;
    if (a.size() != 1 || !chatArg(a.first(), &ci)) {
        parseId(a.value(0), &rawId);
        emitError(QStringLiteral("chat_info_error"), 400,
                  a.size() == 1 ? QStringLiteral("Chat not found")
                                : QStringLiteral("Invalid arguments"),
                  {{QStringLiteral("chat_id"), rawId}});
        return;
    }
    const DemoChat &c = chat(ci);
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("chat_info"));
    e.insert(QStringLiteral("chat_id"), c.id);
    e.insert(QStringLiteral("about"), c.about);
    e.insert(QStringLiteral("username"), c.username);
    e.insert(QStringLiteral("link"), c.link);
    QString phone;
    if (const DemoUser *u = m_world.userById(c.peerUserId))
        phone = u->phone;
    e.insert(QStringLiteral("phone"), phone);
    e.insert(QStringLiteral("member_count"), c.peerUserId > 0 ? qint64(0) : c.memberCount);
    e.insert(QStringLiteral("user_id"), c.peerUserId);
    e.insert(QStringLiteral("is_member"), m_rt.at(ci).state.member);
    e.insert(QStringLiteral("can_send"), canSend(ci));
    e.insert(QStringLiteral("available_reactions_all"), c.reactionsAll);
    e.insert(QStringLiteral("available_reactions"), QJsonArray::fromStringList(c.reactions));
    emitEvent(e);
    if (c.memberCount > 0) {
        QJsonObject o;
        o.insert(QStringLiteral("type"), QStringLiteral("chat_online_count"));
        o.insert(QStringLiteral("chat_id"), c.id);
        o.insert(QStringLiteral("count"), qMax<qint64>(1, c.memberCount / 17));
        emitEvent(o);
    }
}

void DemoBackend::cmdOpen(const QStringList &a)
{
    int ci = -1;
    qint64 anchor = 0;
    if (a.isEmpty() || a.size() > 2 || !chatArg(a.first(), &ci) ||
        (a.size() == 2 && (!parseId(a.at(1), &anchor) || anchor < 1))) {
        tdError(QStringLiteral("open:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Chat not found"));
        return;
    }
    m_openChat = ci;
    if (anchor > 0) {
        QList<qint64> ids = idsBefore(ci, anchor, 40);
        DemoMessage m;
        if (findMessage(ci, anchor, &m))
            ids.append(anchor);
        ids += idsAfter(ci, anchor, 40);
        emitHistory(ci, ids, true, anchor);
    } else {
        emitHistory(ci, idsBefore(ci, std::numeric_limits<qint64>::max(), 30), true, 0);
    }
    emitPinnedState(ci);
    if (const DemoUser *u = m_world.userById(chat(ci).peerUserId))
        emitEvent(userJson(*u));
    for (qint64 member : chat(ci).members) {
        if (const DemoUser *u = m_world.userById(member))
            emitEvent(userJson(*u));
    }
}

void DemoBackend::cmdClose(const QStringList &a)
{
    int ci = -1;
    if (a.size() != 1 || !chatArg(a.first(), &ci)) {
        tdError(QStringLiteral("close"), 400, QStringLiteral("Chat not found"));
        return;
    }
    if (m_openChat == ci)
        m_openChat = -1;
}

void DemoBackend::cmdHistory(const QStringList &a)
{
    int ci = -1;
    qint64 n = 0;
    if (a.size() != 2 || !chatArg(a.first(), &ci) || !parseId(a.at(1), &n) || n < 1 ||
        n > kMaxPage) {
        tdError(QStringLiteral("history:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid history request"));
        return;
    }
    emitHistory(ci, idsBefore(ci, std::numeric_limits<qint64>::max(), int(n)), true, 0);
}

void DemoBackend::cmdHistoryMore(const QStringList &a)
{
    int ci = -1;
    qint64 from = 0;
    qint64 n = 0;
    if (a.size() != 3 || !chatArg(a.first(), &ci) || !parseId(a.at(1), &from) || from < 1 ||
        !parseId(a.at(2), &n) || n < 1 || n > kMaxPage) {
        tdError(QStringLiteral("history_more:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid history request"));
        return;
    }
    emitHistory(ci, idsBefore(ci, from, int(n)), false, from);
}

void DemoBackend::cmdHistoryJump(const QStringList &a)
{
    int ci = -1;
    qint64 target = 0;
    qint64 before = 0;
    qint64 after = 0;
    if (a.size() != 4 || !chatArg(a.first(), &ci) || !parseId(a.at(1), &target) || target < 1 ||
        !parseId(a.at(2), &before) || before < 0 || before > kMaxPage ||
        !parseId(a.at(3), &after) || after < 0 || after > kMaxPage) {
        tdError(QStringLiteral("history_jump:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid history request"));
        return;
    }
    QList<qint64> ids = idsBefore(ci, target, int(before));
    DemoMessage m;
    if (findMessage(ci, target, &m))
        ids.append(target);
    ids += idsAfter(ci, target, int(after));
    emitHistory(ci, ids, true, target);
}

void DemoBackend::cmdRead(const QStringList &a)
{
    int ci = -1;
    qint64 id = 0;
    if (a.size() != 2 || !chatArg(a.first(), &ci) || !parseId(a.at(1), &id) || id < 1) {
        tdError(QStringLiteral("read:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid read request"));
        return;
    }
    ChatRuntime &rt = m_rt[ci];
    const qint64 upTo = qMin(id, lastMessageId(ci));
    if (upTo > rt.state.lastReadInbox) {
        rt.state.lastReadInbox = upTo;
        saveState(ci);
    }
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("chat_unread"));
    e.insert(QStringLiteral("chat_id"), chat(ci).id);
    e.insert(QStringLiteral("unread_count"), unreadCount(ci));
    emitEvent(e);
}

// ---------------------------------------------------------------- sending

void DemoBackend::cmdSend(const QString &verb, const QStringList &a)
{
    const QString kind = verb.left(verb.size() - 2); // send, sendfile, sendvoice, sendvideonote
    qint64 chatId = 0;
    parseId(a.value(0), &chatId);
    const QString tag = QStringLiteral("%1:%2").arg(kind).arg(chatId);
    int ci = -1;
    if (a.isEmpty() || !chatArg(a.first(), &ci)) {
        tdError(tag, 400, QStringLiteral("Chat not found"));
        return;
    }
    // Argument shapes: payload last except for voice notes, whose duration
    // follows the path; an optional reply id sits right after the chat id.
    const bool voice = kind == QLatin1String("sendvoice");
    const int base = voice ? 3 : 2;
    if (a.size() != base && a.size() != base + 1) {
        tdError(tag, 400, QStringLiteral("Invalid arguments"));
        return;
    }
    qint64 replyTo = 0;
    if (a.size() == base + 1 && (!parseId(a.at(1), &replyTo) || replyTo < 0)) {
        tdError(tag, 400, QStringLiteral("Invalid reply id"));
        return;
    }
    const int payloadIdx = a.size() == base + 1 ? 2 : 1;
    QByteArray payload;
    if (!decodeBase64Strict(a.at(payloadIdx), &payload)) {
        tdError(tag, 400, QStringLiteral("Invalid Base64"));
        return;
    }
    const QString text = QString::fromUtf8(payload);
    qint64 duration = 0;
    if (voice && (!parseId(a.at(payloadIdx + 1), &duration) || duration < 1 || duration > 36000)) {
        tdError(tag, 400, QStringLiteral("Invalid duration"));
        return;
    }
    DemoMessage draft;
    draft.chatId = chat(ci).id;
    if (replyTo > 0) {
        DemoMessage target;
        if (findMessage(ci, replyTo, &target))
            draft.replyTo = replyTo;
    }
    if (kind == QLatin1String("send")) {
        if (text.trimmed().isEmpty()) {
            tdError(tag, 400, QStringLiteral("Message text is empty"));
            return;
        }
        if (text.size() > 4096) {
            tdError(tag, 400, QStringLiteral("MESSAGE_TOO_LONG"));
            return;
        }
        draft.contentType = QStringLiteral("messageText");
        draft.text = text;
        startSend(ci, draft, tag);
        return;
    }
    const QFileInfo fi(text);
    if (text.isEmpty() || text.contains(QChar(0)) || !fi.isFile() || !fi.isReadable()) {
        tdError(tag, 400, QStringLiteral("File not found"));
        return;
    }
    QString media = QStringLiteral("file");
    const QString suffix = fi.suffix().toLower();
    if (kind == QLatin1String("sendvoice")) {
        QFile f(text);
        if (!f.open(QIODevice::ReadOnly) || f.read(4) != "OggS") {
            tdError(tag, 400, QStringLiteral("Voice note is not an Ogg file"));
            return;
        }
        media = QStringLiteral("voice");
        draft.mediaDuration = int(duration);
    } else if (kind == QLatin1String("sendvideonote")) {
        media = QStringLiteral("video_note");
        draft.mediaW = draft.mediaH = 240;
    } else if (QStringList{QStringLiteral("jpg"), QStringLiteral("jpeg"), QStringLiteral("png"),
                           QStringLiteral("gif"), QStringLiteral("webp"), QStringLiteral("bmp")}
                   .contains(suffix)) {
        QImageReader reader(text);
        const QSize size = reader.size();
        if (size.isValid()) {
            media = QStringLiteral("photo");
            draft.mediaW = size.width();
            draft.mediaH = size.height();
        }
    } else if (QStringList{QStringLiteral("mp4"), QStringLiteral("mov"), QStringLiteral("webm"),
                           QStringLiteral("mkv"), QStringLiteral("avi")}
                   .contains(suffix)) {
        media = QStringLiteral("video");
    }
    // Keep a copy so the message stays downloadable when the original goes.
    DemoStoredFile sf;
    sf.id = m_nextStoredFileId++;
    sf.name = safeFileName(fi.fileName());
    sf.size = fi.size();
    sf.path =
        QDir(m_config.filesDir).filePath(QStringLiteral("uploads/%1_%2").arg(sf.id).arg(sf.name));
    QDir().mkpath(QFileInfo(sf.path).absolutePath());
    QFile::remove(sf.path);
    if (!QFile::copy(text, sf.path)) {
        tdError(tag, 500, QStringLiteral("Upload failed"));
        return;
    }
    m_files.insert(sf.id, sf);
    m_store->saveFile(sf);
    draft.mediaType = media;
    draft.contentType = contentTypeForMedia(media);
    draft.mediaFileId = sf.id;
    draft.mediaSize = sf.size;
    if (media == QLatin1String("file"))
        draft.mediaName = sf.name;
    if (media == QLatin1String("photo"))
        draft.thumbFileId = sf.id;
    startSend(ci, draft, tag);
}

void DemoBackend::startSend(int ci, DemoMessage draft, const QString &tag)
{
    const qint64 pendingId = m_nextPendingId++;
    draft.chatId = chat(ci).id;
    draft.id = pendingId;
    draft.outgoing = true;
    draft.sendingState = QStringLiteral("pending");
    draft.date = nowSecs();
    draft.senderUserId = DemoWorld::kMeUserId;
    draft.senderName = m_world.meFirstName() + QLatin1Char(' ') + m_world.meLastName();
    draft.senderPhotoId = DemoWorld::kMePhotoFileId;
    draft.reactions = QJsonArray();
    draft.editDate = 0;
    QJsonObject o = messageJson(draft);
    o.insert(QStringLiteral("type"), QStringLiteral("message_new"));
    emitEvent(o);
    QJsonObject ok;
    ok.insert(QStringLiteral("type"), QStringLiteral("send_ok"));
    emitEvent(ok);
    const qint64 chatId = draft.chatId;
    later(kPendingDelayAck, [this, chatId, pendingId] {
        QJsonObject e;
        e.insert(QStringLiteral("type"), QStringLiteral("message_send_acked"));
        e.insert(QStringLiteral("chat_id"), chatId);
        e.insert(QStringLiteral("id"), pendingId);
        emitEvent(e);
    });
    later(kPendingDelayDone, [this, ci, draft, tag, pendingId]() mutable {
        if (!canSend(ci)) {
            QJsonObject e;
            e.insert(QStringLiteral("type"), QStringLiteral("message_send_failed"));
            e.insert(QStringLiteral("chat_id"), draft.chatId);
            e.insert(QStringLiteral("old_id"), pendingId);
            e.insert(QStringLiteral("error_code"), 403);
            e.insert(QStringLiteral("error_message"), QStringLiteral("CHAT_WRITE_FORBIDDEN"));
            emitEvent(e);
            tdError(tag, 403, QStringLiteral("You can't write in this chat"));
            return;
        }
        ChatRuntime &rt = m_rt[ci];
        if (rt.state.removed && chat(ci).peerUserId > 0) {
            rt.state.removed = false; // writing to a deleted private chat brings it back
            saveState(ci);
        }
        draft.id = nextMessageId(ci);
        draft.sendingState.clear();
        draft.date = qMax(nowSecs(), draft.date);
        storeMessage(ci, draft);
        QJsonObject e;
        e.insert(QStringLiteral("type"), QStringLiteral("message_send_succeeded"));
        e.insert(QStringLiteral("chat_id"), draft.chatId);
        e.insert(QStringLiteral("old_id"), pendingId);
        e.insert(QStringLiteral("new_id"), draft.id);
        e.insert(QStringLiteral("date"), draft.date);
        emitEvent(e);
        emitChatLastMessage(ci);
        emitChatPosition(ci);
        peerAfterSend(ci, draft.id);
    });
}

void DemoBackend::peerAfterSend(int ci, qint64 messageId)
{
    const DemoChat &c = chat(ci);
    if (!c.canSend || c.type == QLatin1String("channel") || m_rt.at(ci).replyPending)
        return;
    const bool isPrivate = c.peerUserId > 0;
    if (!isPrivate && !m_lifeRng.chance(40))
        return;
    m_rt[ci].replyPending = true;
    const qint64 peer =
        isPrivate ? c.peerUserId : c.members.value(m_lifeRng.below(c.members.size()));
    later(1200, [this, ci, messageId, peer] {
        m_presence.insert(peer, {QStringLiteral("online"), nowSecs()});
        if (const DemoUser *u = m_world.userById(peer))
            emitEvent(userJson(*u));
        ChatRuntime &rt = m_rt[ci];
        if (messageId > rt.state.lastReadOutbox) {
            rt.state.lastReadOutbox = messageId;
            saveState(ci);
        }
        QJsonObject e;
        e.insert(QStringLiteral("type"), QStringLiteral("chat_read_outbox"));
        e.insert(QStringLiteral("chat_id"), chat(ci).id);
        e.insert(QStringLiteral("last_read_outbox_message_id"), rt.state.lastReadOutbox);
        emitEvent(e);
    });
    const bool react = !c.reactions.isEmpty() && m_lifeRng.chance(35);
    const QString emoji =
        react ? c.reactions.value(m_lifeRng.below(qMin(3, c.reactions.size()))) : QString();
    if (react) {
        later(800, [this, ci, messageId, emoji] {
            DemoMessage m;
            if (!findMessage(ci, messageId, &m))
                return;
            QJsonArray list = m.reactions;
            QJsonObject r;
            r.insert(QStringLiteral("emoji"), emoji);
            r.insert(QStringLiteral("count"), 1);
            r.insert(QStringLiteral("chosen"), false);
            list.append(r);
            setReactions(ci, messageId, list);
            QJsonObject e;
            e.insert(QStringLiteral("type"), QStringLiteral("message_reactions"));
            e.insert(QStringLiteral("chat_id"), chat(ci).id);
            e.insert(QStringLiteral("id"), messageId);
            e.insert(QStringLiteral("reactions"), list);
            emitEvent(e);
        });
    }
    const QString reply = m_world.phrase(m_lifeRng);
    later(1800, [this, ci, reply, peer] {
        m_rt[ci].replyPending = false;
        if (!isInMainList(ci) && chat(ci).peerUserId == 0)
            return;
        addIncomingFrom(ci, peer, reply);
    });
    later(3000, [this, peer] {
        m_presence.insert(peer, {QStringLiteral("offline"), nowSecs()});
        if (const DemoUser *u = m_world.userById(peer))
            emitEvent(userJson(*u));
    });
}

void DemoBackend::addIncoming(int ci, const QString &text)
{
    const DemoChat &c = chat(ci);
    qint64 sender = c.peerUserId;
    if (sender == 0 && !c.members.isEmpty())
        sender = c.members.at(m_lifeRng.below(c.members.size()));
    addIncomingFrom(ci, sender, text);
}

void DemoBackend::addIncomingFrom(int ci, qint64 sender, const QString &text)
{
    const DemoChat &c = chat(ci);
    ChatRuntime &rt = m_rt[ci];
    DemoMessage m;
    m.chatId = c.id;
    m.id = nextMessageId(ci);
    m.date = nowSecs();
    m.outgoing = false;
    m.contentType = QStringLiteral("messageText");
    m.text = text;
    if (c.type == QLatin1String("channel")) {
        m.senderName = titleOf(ci);
        m.senderPhotoId = c.photoFileId;
    } else if (const DemoUser *u = m_world.userById(sender)) {
        m.senderUserId = u->id;
        m.senderName = u->displayName();
        m.senderPhotoId = u->photoFileId;
    }
    if (rt.state.removed && c.peerUserId > 0) {
        rt.state.removed = false;
        saveState(ci);
    }
    storeMessage(ci, m);
    QJsonObject o = messageJson(m);
    o.insert(QStringLiteral("type"), QStringLiteral("message_new"));
    emitEvent(o);
    emitChatLastMessage(ci);
    emitChatPosition(ci);
    QJsonObject u;
    u.insert(QStringLiteral("type"), QStringLiteral("chat_unread"));
    u.insert(QStringLiteral("chat_id"), c.id);
    u.insert(QStringLiteral("unread_count"), unreadCount(ci));
    emitEvent(u);
    if (!rt.state.muted) {
        QJsonObject h;
        h.insert(QStringLiteral("type"), QStringLiteral("hub_notify_message"));
        h.insert(QStringLiteral("chat_id"), c.id);
        h.insert(QStringLiteral("id"), m.id);
        h.insert(QStringLiteral("title"), titleOf(ci));
        h.insert(QStringLiteral("text"), m.text);
        emitEvent(h);
    }
}

void DemoBackend::onLifeTick()
{
    if (m_authState == QLatin1String("Ready")) {
        const int r = m_lifeRng.below(100);
        const QVector<int> list = mainList();
        if (r < 45 && !list.isEmpty()) {
            const int ci = list.at(m_lifeRng.below(qMin(list.size(), 80)));
            if (chat(ci).canSend || chat(ci).type == QLatin1String("channel"))
                addIncoming(ci, m_world.phrase(m_lifeRng));
        } else if (r < 80) {
            const DemoUser &u = m_world.users().at(m_lifeRng.below(m_world.users().size()));
            const bool online = !(m_presence.value(u.id).first == QLatin1String("online"));
            m_presence.insert(
                u.id, {online ? QStringLiteral("online") : QStringLiteral("offline"), nowSecs()});
            emitEvent(userJson(u));
            if (!list.isEmpty()) {
                const int ci = list.at(m_lifeRng.below(list.size()));
                if (chat(ci).memberCount > 0) {
                    QJsonObject o;
                    o.insert(QStringLiteral("type"), QStringLiteral("chat_online_count"));
                    o.insert(QStringLiteral("chat_id"), chat(ci).id);
                    o.insert(QStringLiteral("count"),
                             qMax<qint64>(1, chat(ci).memberCount / (10 + m_lifeRng.below(20))));
                    emitEvent(o);
                }
            }
        } else if (r < 88) {
            renameSomeGroup();
        } else {
            QJsonObject e;
            e.insert(QStringLiteral("type"), QStringLiteral("connection_state"));
            e.insert(QStringLiteral("state"), QStringLiteral("Connecting"));
            emitEvent(e);
            later(1500, [this] {
                QJsonObject ready;
                ready.insert(QStringLiteral("type"), QStringLiteral("connection_state"));
                ready.insert(QStringLiteral("state"), QStringLiteral("Ready"));
                emitEvent(ready);
            });
        }
    }
    m_life->start(int((4000 + m_lifeRng.below(8000)) * m_config.speed));
}

QString DemoBackend::titleOf(int ci) const
{
    return m_titles.value(chat(ci).id, chat(ci).title);
}

void DemoBackend::renameSomeGroup()
{
    // Someone in a basic group decorates its name, or takes the decoration off.
    QVector<int> groups;
    for (int ci : mainList()) {
        if (chat(ci).type == QLatin1String("basic_group"))
            groups.append(ci);
    }
    if (groups.isEmpty())
        return;
    const int ci = groups.at(m_lifeRng.below(groups.size()));
    static const QStringList marks = {QStringLiteral("✨"), QStringLiteral("🎈"), QStringLiteral("🌻"),
                                      QStringLiteral("🍕")};
    const QString base = chat(ci).title;
    const QString title = m_titles.contains(chat(ci).id)
                              ? base
                              : base + QLatin1Char(' ') + marks.at(m_lifeRng.below(marks.size()));
    if (title == base)
        m_titles.remove(chat(ci).id);
    else
        m_titles.insert(chat(ci).id, title);
    m_store->setMeta(QStringLiteral("title:%1").arg(chat(ci).id),
                     title == base ? QString() : title);
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("chat_title"));
    e.insert(QStringLiteral("chat_id"), chat(ci).id);
    e.insert(QStringLiteral("title"), title);
    emitEvent(e);
}

// ---------------------------------------------------------------- message actions

void DemoBackend::cmdEdit(const QStringList &a)
{
    int ci = -1;
    qint64 id = 0;
    QByteArray payload;
    auto fail = [this, &a](int code, const QString &msg) {
        qint64 chatId = 0;
        qint64 mid = 0;
        parseId(a.value(0), &chatId);
        parseId(a.value(1), &mid);
        emitError(QStringLiteral("edit_error"), code, msg,
                  {{QStringLiteral("chat_id"), chatId}, {QStringLiteral("id"), mid}});
    };
    if (a.size() != 3 || !chatArg(a.first(), &ci) || !parseId(a.at(1), &id) || id < 1)
        return fail(400, QStringLiteral("Invalid arguments"));
    if (!decodeBase64Strict(a.at(2), &payload))
        return fail(400, QStringLiteral("Invalid Base64"));
    const QString text = QString::fromUtf8(payload);
    if (text.trimmed().isEmpty())
        return fail(400, QStringLiteral("MESSAGE_EMPTY"));
    DemoMessage m;
    if (!findMessage(ci, id, &m))
        return fail(404, QStringLiteral("Message not found"));
    if (!messagePropertiesJson(ci, m).value(QStringLiteral("can_be_edited")).toBool())
        return fail(400, QStringLiteral("MESSAGE_EDIT_FORBIDDEN"));
    const qint64 editDate = nowSecs();
    ChatRuntime &rt = m_rt[ci];
    if (id > chat(ci).baseCount) {
        m.text = text;
        m.editDate = editDate;
        storeMessage(ci, m);
    } else {
        DemoOverride o = rt.overrides.value(id);
        o.hasText = true;
        o.text = text;
        o.editDate = editDate;
        setOverride(ci, id, o);
    }
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("message_update"));
    e.insert(QStringLiteral("chat_id"), chat(ci).id);
    e.insert(QStringLiteral("id"), id);
    e.insert(QStringLiteral("text"), text);
    e.insert(QStringLiteral("edit_date"), editDate);
    emitEvent(e);
    if (lastMessageId(ci) == id)
        emitChatLastMessage(ci);
}

void DemoBackend::cmdReact(const QStringList &a)
{
    qint64 chatId = 0;
    qint64 id = 0;
    parseId(a.value(0), &chatId);
    parseId(a.value(1), &id);
    const QString mode = a.value(3).left(16);
    auto fail = [&](int code, const QString &msg) {
        emitError(QStringLiteral("reaction_error"), code, msg,
                  {{QStringLiteral("chat_id"), chatId},
                   {QStringLiteral("id"), id},
                   {QStringLiteral("mode"), mode}});
    };
    int ci = -1;
    if (a.size() != 4 || !chatArg(a.first(), &ci) || id < 1 ||
        (mode != QLatin1String("add") && mode != QLatin1String("remove")))
        return fail(400, QStringLiteral("Invalid arguments"));
    const QString emoji = a.at(2);
    const DemoChat &c = chat(ci);
    if (!c.reactions.contains(emoji))
        return fail(400, QStringLiteral("REACTION_INVALID"));
    DemoMessage m;
    if (!findMessage(ci, id, &m))
        return fail(404, QStringLiteral("Message not found"));
    QJsonArray list;
    bool found = false;
    for (const QJsonValue &v : qAsConst(m.reactions)) {
        QJsonObject r = v.toObject();
        if (r.value(QStringLiteral("emoji")).toString() == emoji) {
            found = true;
            const bool chosen = r.value(QStringLiteral("chosen")).toBool();
            int count = r.value(QStringLiteral("count")).toInt();
            if (mode == QLatin1String("add") && !chosen) {
                ++count;
                r.insert(QStringLiteral("chosen"), true);
            } else if (mode == QLatin1String("remove") && chosen) {
                --count;
                r.insert(QStringLiteral("chosen"), false);
            }
            r.insert(QStringLiteral("count"), count);
            if (count <= 0)
                continue;
        }
        list.append(r);
    }
    if (!found && mode == QLatin1String("add")) {
        QJsonObject r;
        r.insert(QStringLiteral("emoji"), emoji);
        r.insert(QStringLiteral("count"), 1);
        r.insert(QStringLiteral("chosen"), true);
        list.append(r);
    }
    setReactions(ci, id, list);
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("message_reactions"));
    e.insert(QStringLiteral("chat_id"), c.id);
    e.insert(QStringLiteral("id"), id);
    e.insert(QStringLiteral("reactions"), list);
    emitEvent(e);
    QJsonObject ok;
    ok.insert(QStringLiteral("type"), QStringLiteral("reaction_ok"));
    ok.insert(QStringLiteral("chat_id"), c.id);
    ok.insert(QStringLiteral("id"), id);
    ok.insert(QStringLiteral("mode"), mode);
    ok.insert(QStringLiteral("emoji"), emoji);
    emitEvent(ok);
}

void DemoBackend::cmdForward(const QStringList &a)
{
    int to = -1;
    int from = -1;
    const QString tag = QStringLiteral("forward:%1").arg(a.value(0).left(24));
    if (a.size() < 3 || a.size() > 102 || !chatArg(a.at(0), &to) || !chatArg(a.at(1), &from)) {
        tdError(tag, 400, QStringLiteral("Invalid arguments"));
        return;
    }
    QList<DemoMessage> msgs;
    for (int i = 2; i < a.size(); ++i) {
        qint64 id = 0;
        if (!parseId(a.at(i), &id)) {
            tdError(tag, 400, QStringLiteral("Invalid message id"));
            return;
        }
        DemoMessage m;
        if (id >= 1 && findMessage(from, id, &m))
            msgs.append(m);
    }
    if (msgs.isEmpty()) {
        tdError(tag, 404, QStringLiteral("Messages not found"));
        return;
    }
    if (chat(from).type == QLatin1String("secret")) {
        tdError(tag, 400, QStringLiteral("Messages of secret chats can't be forwarded"));
        return;
    }
    for (const DemoMessage &src : qAsConst(msgs)) {
        DemoMessage d = src;
        if (d.forwarded.isEmpty())
            d.forwarded = src.outgoing
                              ? m_world.meFirstName() + QLatin1Char(' ') + m_world.meLastName()
                              : src.senderName;
        d.replyTo = 0;
        startSend(to, d, tag);
    }
}

void DemoBackend::cmdDelete(const QStringList &a)
{
    qint64 chatId = 0;
    parseId(a.value(0), &chatId);
    auto fail = [this, chatId](int code, const QString &msg, const QJsonArray &ids) {
        emitError(QStringLiteral("delete_error"), code, msg,
                  {{QStringLiteral("chat_id"), chatId}, {QStringLiteral("message_ids"), ids}});
    };
    int ci = -1;
    const QString mode = a.value(1);
    if (a.size() < 3 || a.size() > 102 || !chatArg(a.first(), &ci) ||
        (mode != QLatin1String("all") && mode != QLatin1String("self")))
        return fail(400, QStringLiteral("Invalid arguments"), {});
    QList<qint64> ids;
    for (int i = 2; i < a.size(); ++i) {
        qint64 id = 0;
        if (!parseId(a.at(i), &id) || id < 1)
            return fail(400, QStringLiteral("Invalid message id"), {});
        if (!ids.contains(id))
            ids.append(id);
    }
    const qint64 lastBefore = lastMessageId(ci);
    QJsonArray deleted;
    QJsonArray refused;
    QJsonArray missing;
    for (qint64 id : qAsConst(ids)) {
        DemoMessage m;
        if (!findMessage(ci, id, &m)) {
            missing.append(id);
            continue;
        }
        const QJsonObject p = messagePropertiesJson(ci, m);
        const bool forAll = p.value(QStringLiteral("can_be_deleted_for_all_users")).toBool();
        const bool self = p.value(QStringLiteral("can_be_deleted_only_for_self")).toBool();
        const bool allowed = mode == QLatin1String("all") ? forAll : (self || forAll);
        if (!allowed) {
            refused.append(id);
            continue;
        }
        setDeleted(ci, id);
        deleted.append(id);
    }
    if (!deleted.isEmpty()) {
        QJsonObject e;
        e.insert(QStringLiteral("type"), QStringLiteral("messages_deleted"));
        e.insert(QStringLiteral("chat_id"), chat(ci).id);
        e.insert(QStringLiteral("message_ids"), deleted);
        emitEvent(e);
        if (lastMessageId(ci) != lastBefore) {
            emitChatLastMessage(ci);
            emitChatPosition(ci);
        }
    }
    if (!refused.isEmpty())
        fail(403, QStringLiteral("MESSAGE_DELETE_FORBIDDEN"), refused);
    if (!missing.isEmpty())
        fail(404, QStringLiteral("Message not found"), missing);
}

void DemoBackend::cmdProps(const QStringList &a)
{
    qint64 chatId = 0;
    qint64 id = 0;
    parseId(a.value(0), &chatId);
    parseId(a.value(1), &id);
    int ci = -1;
    DemoMessage m;
    if (a.size() != 2 || !chatArg(a.first(), &ci) || id < 1 || !findMessage(ci, id, &m)) {
        emitError(QStringLiteral("message_properties_error"), a.size() == 2 ? 404 : 400,
                  a.size() == 2 ? QStringLiteral("Message not found")
                                : QStringLiteral("Invalid arguments"),
                  {{QStringLiteral("chat_id"), chatId}, {QStringLiteral("id"), id}});
        return;
    }
    emitEvent(messagePropertiesJson(ci, m));
}

void DemoBackend::cmdPinnedList(const QStringList &a)
{
    int ci = -1;
    qint64 limit = 0;
    if (a.size() != 2 || !chatArg(a.first(), &ci) || !parseId(a.at(1), &limit) || limit < 1 ||
        limit > 1000) {
        tdError(QStringLiteral("pinned_list:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid arguments"));
        return;
    }
    const DemoChat &c = chat(ci);
    QList<qint64> ids = c.pinnedMessageIds;
    std::sort(ids.begin(), ids.end(), std::greater<qint64>());
    QJsonObject b;
    b.insert(QStringLiteral("type"), QStringLiteral("pinned_list_begin"));
    b.insert(QStringLiteral("chat_id"), c.id);
    emitEvent(b);
    int n = 0;
    for (qint64 id : qAsConst(ids)) {
        DemoMessage m;
        if (n >= limit || !findMessage(ci, id, &m))
            continue;
        QJsonObject o;
        o.insert(QStringLiteral("type"), QStringLiteral("pinned_list_item"));
        o.insert(QStringLiteral("chat_id"), c.id);
        o.insert(QStringLiteral("id"), id);
        o.insert(QStringLiteral("content_type"), m.contentType);
        o.insert(QStringLiteral("text"), m.text);
        emitEvent(o);
        ++n;
    }
    QJsonObject e;
    e.insert(QStringLiteral("type"), QStringLiteral("pinned_list_end"));
    e.insert(QStringLiteral("chat_id"), c.id);
    emitEvent(e);
}

void DemoBackend::cmdSearch(const QStringList &a)
{
    qint64 chatId = 0;
    qint64 limit = 0;
    QByteArray query;
    if (a.size() != 3 || !parseId(a.at(0), &chatId) || !decodeBase64Strict(a.at(1), &query) ||
        !parseId(a.at(2), &limit) || limit < 1 || limit > 100) {
        tdError(QStringLiteral("search:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid search request"));
        return;
    }
    const qint64 req = ++m_searchReq;
    const QString q = QString::fromUtf8(query).trimmed();
    later(150, [this, req, q, limit] {
        QJsonObject b;
        b.insert(QStringLiteral("type"), QStringLiteral("search_begin"));
        b.insert(QStringLiteral("req"), req);
        emitEvent(b);
        int idx = 0;
        if (!q.isEmpty()) {
            const QString needle = q.startsWith(QLatin1Char('@')) ? q.mid(1) : q;
            for (int ci = 0; ci < m_rt.size() && idx < limit; ++ci) {
                const DemoChat &c = chat(ci);
                if (!titleOf(ci).contains(needle, Qt::CaseInsensitive) &&
                    !(c.username.size() > 0 && c.username.contains(needle, Qt::CaseInsensitive)))
                    continue;
                QJsonObject o;
                o.insert(QStringLiteral("type"), QStringLiteral("search_chat"));
                o.insert(QStringLiteral("req"), req);
                o.insert(QStringLiteral("idx"), idx++);
                o.insert(QStringLiteral("id"), c.id);
                o.insert(QStringLiteral("title"), titleOf(ci));
                o.insert(QStringLiteral("chat_type"), c.type);
                o.insert(QStringLiteral("photo_small_id"), c.photoFileId);
                emitEvent(o);
            }
        }
        QJsonObject e;
        e.insert(QStringLiteral("type"), QStringLiteral("search_end"));
        e.insert(QStringLiteral("req"), req);
        e.insert(QStringLiteral("count"), idx);
        emitEvent(e);
    });
}

void DemoBackend::cmdChatAction(const QString &verb, const QStringList &a)
{
    qint64 chatId = 0;
    parseId(a.value(0), &chatId);
    auto fail = [this, &verb, chatId](int code, const QString &msg) {
        emitError(QStringLiteral("action_error"), code, msg,
                  {{QStringLiteral("action"), verb}, {QStringLiteral("chat_id"), chatId}});
    };
    int ci = -1;
    if (a.size() != 1 || !chatArg(a.first(), &ci))
        return fail(400, a.size() == 1 ? QStringLiteral("Chat not found")
                                       : QStringLiteral("Invalid arguments"));
    const DemoChat &c = chat(ci);
    ChatRuntime &rt = m_rt[ci];
    auto simple = [this, &c](const char *type) {
        QJsonObject e;
        e.insert(QStringLiteral("type"), QLatin1String(type));
        e.insert(QStringLiteral("chat_id"), c.id);
        emitEvent(e);
    };
    const bool isGroup = c.peerUserId == 0;
    if (verb == QLatin1String("mute_toggle")) {
        rt.state.muted = !rt.state.muted;
        saveState(ci);
        QJsonObject e;
        e.insert(QStringLiteral("type"), QStringLiteral("chat_mute_toggled"));
        e.insert(QStringLiteral("chat_id"), c.id);
        e.insert(QStringLiteral("muted"), rt.state.muted);
        emitEvent(e);
        QJsonObject n;
        n.insert(QStringLiteral("type"), QStringLiteral("chat_notify"));
        n.insert(QStringLiteral("chat_id"), c.id);
        n.insert(QStringLiteral("muted_known"), true);
        n.insert(QStringLiteral("muted"), rt.state.muted);
        emitEvent(n);
    } else if (verb == QLatin1String("clear_history")) {
        if (c.type == QLatin1String("channel"))
            return fail(400, QStringLiteral("Channel history can't be cleared"));
        DemoMessage last;
        if (lastMessage(ci, &last))
            rt.state.orderDate = qMax(rt.state.orderDate, last.date);
        rt.state.clearedUpTo = qMax(rt.state.clearedUpTo, nextMessageId(ci) - 1);
        rt.state.lastReadInbox = qMax(rt.state.lastReadInbox, rt.state.clearedUpTo);
        saveState(ci);
        if (m_openChat == ci) {
            QJsonObject h;
            h.insert(QStringLiteral("type"), QStringLiteral("history_clear"));
            h.insert(QStringLiteral("chat_id"), c.id);
            h.insert(QStringLiteral("gen"), ++rt.gen);
            emitEvent(h);
        }
        simple("history_cleared");
        emitChatLastMessage(ci);
        QJsonObject u;
        u.insert(QStringLiteral("type"), QStringLiteral("chat_unread"));
        u.insert(QStringLiteral("chat_id"), c.id);
        u.insert(QStringLiteral("unread_count"), 0);
        emitEvent(u);
    } else if (verb == QLatin1String("join")) {
        if (c.type != QLatin1String("supergroup") && c.type != QLatin1String("channel"))
            return fail(400, QStringLiteral("Can't join this chat"));
        if (isInMainList(ci))
            return fail(400, QStringLiteral("USER_ALREADY_PARTICIPANT"));
        rt.state.member = true;
        rt.state.removed = false;
        rt.state.orderDate = nowSecs();
        saveState(ci);
        simple("chat_joined");
        emitEvent(chatJson(ci));
    } else if (verb == QLatin1String("leave")) {
        if (!isGroup)
            return fail(400, QStringLiteral("Private chats can only be deleted"));
        if (!isInMainList(ci))
            return fail(400, QStringLiteral("USER_NOT_PARTICIPANT"));
        rt.state.member = false;
        rt.state.removed = true;
        saveState(ci);
        simple("chat_left");
        emitChatPosition(ci);
    } else if (verb == QLatin1String("delete_chat")) {
        if (!isInMainList(ci))
            return fail(400, QStringLiteral("Chat not found"));
        rt.state.removed = true;
        if (isGroup)
            rt.state.member = false;
        if (c.type != QLatin1String("supergroup") && c.type != QLatin1String("channel")) {
            rt.state.clearedUpTo = qMax(rt.state.clearedUpTo, nextMessageId(ci) - 1);
            rt.state.lastReadInbox = qMax(rt.state.lastReadInbox, rt.state.clearedUpTo);
        }
        saveState(ci);
        simple("chat_deleted");
        emitChatPosition(ci);
    }
    if (m_openChat == ci && !isInMainList(ci) && verb != QLatin1String("mute_toggle"))
        m_openChat = -1;
}

// ---------------------------------------------------------------- resolve

void DemoBackend::cmdResolve(const QStringList &a)
{
    QString name = a.value(0).left(64);
    if (name.startsWith(QLatin1Char('@')))
        name = name.mid(1);
    auto fail = [this, &name](int code, const QString &msg) {
        emitError(QStringLiteral("tg_resolve_error"), code, msg,
                  {{QStringLiteral("username"), name}});
    };
    static const QRegularExpression valid(QStringLiteral("^[A-Za-z][A-Za-z0-9_]{2,31}$"));
    if (a.size() != 1 || !valid.match(name).hasMatch())
        return fail(400, QStringLiteral("USERNAME_INVALID"));
    int found = -1;
    for (int ci = 0; ci < m_rt.size(); ++ci) {
        if (chat(ci).username.compare(name, Qt::CaseInsensitive) == 0 &&
            chat(ci).type != QLatin1String("secret")) {
            found = ci;
            break;
        }
    }
    if (found < 0)
        return fail(400, QStringLiteral("USERNAME_NOT_OCCUPIED"));
    later(200, [this, found, name] {
        const DemoChat &c = chat(found);
        QJsonObject e;
        e.insert(QStringLiteral("type"), QStringLiteral("tg_resolve"));
        e.insert(QStringLiteral("username"), name);
        e.insert(QStringLiteral("chat_id"), c.id);
        e.insert(QStringLiteral("title"), titleOf(found));
        e.insert(QStringLiteral("chat_type"), c.type);
        e.insert(QStringLiteral("photo_small_id"), c.photoFileId);
        emitEvent(e);
    });
}

// ---------------------------------------------------------------- downloads

bool DemoBackend::prepareFile(qint64 fileId, QString *path, QString *error, bool *needsVideo,
                              int *videoW, int *videoH, int *videoSeconds)
{
    *needsVideo = false;
    const DemoFileRef ref = m_world.resolveFileId(fileId);
    const QDir files(m_config.filesDir);
    const quint64 seed = demo_mix(m_world.seed() ^ quint64(fileId));
    auto picture = [&](const QString &p, int w, int h) {
        *path = p;
        if (QFileInfo(p).size() > 0)
            return true;
        return demo_write_picture(p, w, h, seed, error);
    };
    switch (ref.kind) {
    case DemoFileRef::ChatPhoto:
        return picture(files.filePath(QStringLiteral("profile_photos/chat_%1.png").arg(fileId)),
                       160, 160);
    case DemoFileRef::UserPhoto:
        return picture(files.filePath(QStringLiteral("profile_photos/user_%1.png").arg(fileId)),
                       160, 160);
    case DemoFileRef::Stored: {
        const auto it = m_files.constFind(fileId);
        if (it == m_files.cend() || !QFileInfo(it->path).isFile()) {
            *error = QStringLiteral("File not found");
            return false;
        }
        *path = it->path;
        return true;
    }
    case DemoFileRef::MessageMain:
    case DemoFileRef::MessageThumb: {
        const DemoChat &c = chat(ref.chatIndex);
        if (ref.messageId < 1 || ref.messageId > c.baseCount) {
            *error = QStringLiteral("File not found");
            return false;
        }
        const DemoMessage m = m_world.generateMessage(c, ref.messageId, m_epoch);
        if (m.mediaFileId != fileId && m.thumbFileId != fileId) {
            *error = QStringLiteral("File not found");
            return false;
        }
        if (ref.kind == DemoFileRef::MessageThumb) {
            const int w = m.mediaW >= m.mediaH ? 160 : qMax(8, 160 * m.mediaW / qMax(1, m.mediaH));
            const int h = m.mediaW >= m.mediaH ? qMax(8, 160 * m.mediaH / qMax(1, m.mediaW)) : 160;
            return picture(files.filePath(QStringLiteral("thumbnails/%1.png").arg(fileId)), w, h);
        }
        if (m.mediaType == QLatin1String("photo"))
            return picture(files.filePath(QStringLiteral("photos/%1.png").arg(fileId)), m.mediaW,
                           m.mediaH);
        if (m.mediaType == QLatin1String("file")) {
            *path = files.filePath(
                QStringLiteral("documents/%1_%2").arg(fileId).arg(safeFileName(m.mediaName)));
            if (QFileInfo(*path).size() == m.mediaSize)
                return true;
            return demo_write_document(*path, m.mediaName, m.mediaSize, seed, error);
        }
        if (m.mediaType == QLatin1String("voice")) {
            *path = files.filePath(QStringLiteral("voice/%1.oga").arg(fileId));
            if (QFileInfo(*path).size() == m.mediaSize)
                return true;
            return demo_write_voice_note(*path, m.mediaDuration, seed, error);
        }
        *path = files.filePath(QStringLiteral("videos/%1.mp4").arg(fileId));
        if (QFileInfo(*path).size() > 0)
            return true;
        *needsVideo = true;
        *videoW = m.mediaW;
        *videoH = m.mediaH;
        *videoSeconds = m.mediaDuration;
        return true;
    }
    case DemoFileRef::None:
        break;
    }
    *error = QStringLiteral("File not found");
    return false;
}

void DemoBackend::cmdDownload(const QStringList &a, bool priority)
{
    qint64 fileId = 0;
    if (a.size() != 1 || !parseId(a.first(), &fileId) || fileId < 1) {
        tdError(QStringLiteral("download:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid file id"));
        return;
    }
    startDownload(fileId, priority);
}

void DemoBackend::startDownload(qint64 fileId, bool priority)
{
    if (m_downloading.contains(fileId))
        return;
    QString path;
    QString error;
    bool needsVideo = false;
    int w = 0;
    int h = 0;
    int seconds = 0;
    if (!prepareFile(fileId, &path, &error, &needsVideo, &w, &h, &seconds)) {
        tdError(QStringLiteral("download:%1").arg(fileId), 404, error);
        return;
    }
    m_downloading.insert(fileId);
    if (!needsVideo) {
        finishDownload(fileId, path, priority);
        return;
    }
    const QString ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
    if (ffmpeg.isEmpty()) {
        m_downloading.remove(fileId);
        tdError(QStringLiteral("download:%1").arg(fileId), 503,
                QStringLiteral("Video files are not available in this demo"));
        return;
    }
    QDir().mkpath(QFileInfo(path).absolutePath());
    const QString part = path + QStringLiteral(".part.mp4");
    auto *proc = new QProcess(this);
    m_videoJobs.append(proc);
    const int hue = int(demo_mix(quint64(fileId)) % 360);
    const QString size = QStringLiteral("%1x%2").arg(qMax(16, w & ~1)).arg(qMax(16, h & ~1));
    const QStringList args = {
        QStringLiteral("-v"),
        QStringLiteral("error"),
        QStringLiteral("-y"),
        QStringLiteral("-f"),
        QStringLiteral("lavfi"),
        QStringLiteral("-i"),
        QStringLiteral("testsrc2=size=%1:rate=25:duration=%2,hue=h=%3")
            .arg(size)
            .arg(qMax(1, seconds))
            .arg(hue),
        QStringLiteral("-f"),
        QStringLiteral("lavfi"),
        QStringLiteral("-i"),
        QStringLiteral("sine=frequency=%1:duration=%2").arg(300 + hue).arg(qMax(1, seconds)),
        QStringLiteral("-pix_fmt"),
        QStringLiteral("yuv420p"),
        QStringLiteral("-shortest"),
        part};
    connect(proc, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
            [this, proc, fileId, path, part, priority](int code, QProcess::ExitStatus st) {
                m_videoJobs.removeAll(proc);
                proc->deleteLater();
                if (code != 0 || st != QProcess::NormalExit || !QFile::exists(part)) {
                    QFile::remove(part);
                    m_downloading.remove(fileId);
                    tdError(QStringLiteral("download:%1").arg(fileId), 500,
                            QStringLiteral("Video generation failed"));
                    return;
                }
                QFile::remove(path);
                QFile::rename(part, path);
                finishDownload(fileId, path, priority);
            });
    proc->setProcessChannelMode(QProcess::MergedChannels);
    proc->start(ffmpeg, args);
}

void DemoBackend::finishDownload(qint64 fileId, const QString &path, bool priority)
{
    const qint64 total = QFileInfo(path).size();
    const int step = priority ? 40 : 120;
    const int parts = total > 65536 ? 3 : 1;
    for (int i = 1; i <= parts; ++i) {
        const qint64 done = i == parts ? total : total * i / (parts + 1);
        later(step * i, [this, fileId, done, total] {
            QJsonObject e;
            e.insert(QStringLiteral("type"), QStringLiteral("file_progress"));
            e.insert(QStringLiteral("id"), fileId);
            e.insert(QStringLiteral("downloaded"), done);
            e.insert(QStringLiteral("total"), total);
            emitEvent(e);
        });
    }
    later(step * parts + 1, [this, fileId, path, total] {
        m_downloading.remove(fileId);
        QJsonObject e;
        e.insert(QStringLiteral("type"), QStringLiteral("file"));
        e.insert(QStringLiteral("id"), fileId);
        e.insert(QStringLiteral("path"), path);
        e.insert(QStringLiteral("size"), total);
        emitEvent(e);
    });
}
