#include "demo_backend.h"

#include "command_args.h"
#include "demo_files.h"
#include "demo_scheduler.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QImageReader>
#include <QRegularExpression>

#include <algorithm>
#include <limits>
#include <unistd.h>

namespace {

constexpr int kMaxPage = 200;
constexpr int kPendingDelayAck = 150;
constexpr int kPendingDelayDone = 600;
// The service takes at most this many messages per forward or delete
// request; a longer selection goes as several requests, answered as one.
constexpr int kServiceBatch = 100;
// Bounds the ids of one command line.
constexpr int kMaxIds = 10000;

constexpr qint64 kEditWindowSecs = 48 * 3600;

qint64 nowSecs()
{
    return QDateTime::currentSecsSinceEpoch();
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

} // namespace

QString demo_safe_file_name(const QString &name)
{
    QString n = QFileInfo(name).fileName();
    n.replace(QRegularExpression(QStringLiteral("[\\x00-\\x1f/\\\\]")), QStringLiteral("_"));
    if (n.isEmpty() || n == QLatin1String(".") || n == QLatin1String(".."))
        n = QStringLiteral("file");
    return n.left(120);
}

// ---------------------------------------------------------------- parsing

bool DemoBackend::chatArg(const QString &text, int *index) const
{
    qint64 id = 0;
    if (!backend_parse_id(text, &id) || id == 0)
        return false;
    const int ci = m_world.chatIndexById(id);
    if (ci < 0)
        return false;
    *index = ci;
    return true;
}

// ---------------------------------------------------------------- life cycle

DemoBackend::DemoBackend(const DemoConfig &config, DemoStore *store, QObject *parent)
    : QObject(parent), m_config(config), m_store(store), m_world(config.seed),
      m_out(config.eventsPath, config.logPath, config.logMaxSize, config.verbosity)
{
    m_scheduler = new DemoScheduler(config.speed, this);
    m_activity = new DemoActivity(this, config.seed, this);
    m_files = new DemoFiles(config.filesDir, store, m_scheduler, &m_out, this);
}

DemoBackend::~DemoBackend() = default;

bool DemoBackend::start(QString *error)
{
    if (!m_out.open(error))
        return false;

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
            m_out.log(1, QStringLiteral("database keeps seed %1").arg(seed));
            m_world = DemoWorld(seed);
            m_activity->setSeed(seed);
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
        const DemoMessage m = demo_message_from_json(o);
        const int ci = m_world.chatIndexById(m.chatId);
        if (ci >= 0 && m.id > 0)
            m_rt[ci].stored.insert(m.id, m);
    }
    const QHash<QString, QString> titles = m_store->metaWithPrefix(QStringLiteral("title:"));
    for (auto it = titles.cbegin(); it != titles.cend(); ++it) {
        if (!it.value().isEmpty())
            m_titles.insert(it.key().toLongLong(), it.value());
    }
    // "-" keeps a chat whose pins were all taken off.
    const QHash<QString, QString> pins = m_store->metaWithPrefix(QStringLiteral("pins:"));
    for (auto it = pins.cbegin(); it != pins.cend(); ++it) {
        if (it.value().isEmpty())
            continue;
        QList<qint64> ids;
        for (const QString &id : it.value().split(QLatin1Char(','), Qt::SkipEmptyParts))
            if (id.toLongLong() > 0)
                ids.append(id.toLongLong());
        m_pins.insert(it.key().toLongLong(), ids);
    }
    m_files->setWorld(&m_world, m_epoch);
    m_files->load(m_store->loadFiles());

    backend_write_fully(STDOUT_FILENO, QByteArrayLiteral("BACKEND_READY demo\n"));
    m_out.log(1, QStringLiteral("BACKEND_READY"));
    emitEvent(demo_event::backend_ready(false));

    if (m_authState == QLatin1String("WaitPhoneNumber") && m_config.autoSendPhone &&
        !m_config.phone.trimmed().isEmpty()) {
        phone(m_config.phone);
    } else {
        announceAuthState();
        if (m_authState == QLatin1String("Ready"))
            becameReady();
    }
    m_activity->start(m_config.speed);
    return true;
}

void DemoBackend::drainPending()
{
    m_files->drain();
    m_scheduler->drain();
}

void DemoBackend::announceClosed()
{
    emitEvent(demo_event::td_closed());
    m_out.log(1, QStringLiteral("closed"));
}

// ---------------------------------------------------------------- output

void DemoBackend::emitEvent(const QJsonObject &event)
{
    m_out.event(event);
}

void DemoBackend::later(int ms, std::function<void()> fn)
{
    m_scheduler->later(ms, std::move(fn));
}

void DemoBackend::emitError(const QString &type, int code, const QString &message,
                            const QJsonObject &fields)
{
    emitEvent(demo_event::error(type, code, message, fields));
}

void DemoBackend::tdError(const QString &extra, int code, const QString &message)
{
    emitEvent(demo_event::td_error(extra, code, message));
    m_out.log(2, QStringLiteral("error %1 %2 %3").arg(extra).arg(code).arg(message));
}

// ---------------------------------------------------------------- dispatch

// Every verb the backend accepts, whether it needs a signed-in account, and
// its handler. A verb missing here is answered as unknown.
const DemoBackend::Verb DemoBackend::kVerbs[] = {
    {"ping", false, &DemoBackend::cmdPing},
    {"state", false, &DemoBackend::cmdState},
    {"phone", false, &DemoBackend::cmdPhone},
    {"code", false, &DemoBackend::cmdCode},
    {"password", false, &DemoBackend::cmdPassword},
    {"resend", false, &DemoBackend::cmdResend},
    {"chats", true, &DemoBackend::cmdChats},
    {"open", true, &DemoBackend::cmdOpen},
    {"chat_info", true, &DemoBackend::cmdChatInfo},
    {"close", true, &DemoBackend::cmdClose},
    {"history", true, &DemoBackend::cmdHistory},
    {"history_more", true, &DemoBackend::cmdHistoryMore},
    {"history_jump", true, &DemoBackend::cmdHistoryJump},
    {"read", true, &DemoBackend::cmdRead},
    {"send64", true, &DemoBackend::cmdSend},
    {"sendfile64", true, &DemoBackend::cmdSend},
    {"sendvoice64", true, &DemoBackend::cmdSend},
    {"sendvideonote64", true, &DemoBackend::cmdSend},
    {"edit64", true, &DemoBackend::cmdEdit},
    {"react", true, &DemoBackend::cmdReact},
    {"forward", true, &DemoBackend::cmdForward},
    {"delete", true, &DemoBackend::cmdDelete},
    {"props", true, &DemoBackend::cmdProps},
    {"pinned_list", true, &DemoBackend::cmdPinnedList},
    {"search_server64", true, &DemoBackend::cmdSearch},
    {"mute_toggle", true, &DemoBackend::cmdChatAction},
    {"clear_history", true, &DemoBackend::cmdChatAction},
    {"join", true, &DemoBackend::cmdChatAction},
    {"leave", true, &DemoBackend::cmdChatAction},
    {"delete_chat", true, &DemoBackend::cmdChatAction},
    {"download", true, &DemoBackend::cmdDownload},
    {"downloadp", true, &DemoBackend::cmdDownload},
    {"resolve", true, &DemoBackend::cmdResolve},
};

QStringList DemoBackend::verbs()
{
    QStringList names;
    for (const Verb &v : kVerbs)
        names << QLatin1String(v.name);
    return names;
}

void DemoBackend::handleLine(const QByteArray &raw)
{
    QByteArray bytes = raw;
    while (!bytes.isEmpty() && (bytes.endsWith('\r') || bytes.endsWith('\n')))
        bytes.chop(1);
    const QString line = QString::fromUtf8(bytes).trimmed();
    if (line.isEmpty())
        return;
    DemoCommand c;
    const int sp = line.indexOf(QLatin1Char(' '));
    c.verb = sp < 0 ? line : line.left(sp);
    c.rest = sp < 0 ? QString() : line.mid(sp + 1);
    c.args = c.rest.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    m_out.log(3, QStringLiteral("cmd %1").arg(c.verb.left(40)));

    for (const Verb &v : kVerbs) {
        if (c.verb != QLatin1String(v.name))
            continue;
        if (v.needsSignIn && !signedIn())
            refuseUnauthorized(c);
        else
            (this->*v.handler)(c);
        return;
    }
    tdError(QStringLiteral("unknown"), 400, QStringLiteral("Unknown command"));
}

void DemoBackend::refuseUnauthorized(const DemoCommand &c)
{
    // Each verb is refused the way its own failures are reported, so the
    // user interface shows the refusal where it waits for the answer.
    const QString msg = QStringLiteral("Unauthorized");
    qint64 chatId = 0;
    if (!c.args.isEmpty())
        backend_parse_id(c.args.first(), &chatId);
    if (c.verb == QLatin1String("edit64")) {
        emitError(QStringLiteral("edit_error"), 401, msg);
    } else if (c.verb == QLatin1String("delete")) {
        emitError(QStringLiteral("delete_error"), 401, msg);
    } else if (c.verb == QLatin1String("react")) {
        emitError(QStringLiteral("reaction_error"), 401, msg,
                  {{QStringLiteral("chat_id"), chatId}});
    } else if (c.verb == QLatin1String("resolve")) {
        emitError(QStringLiteral("tg_resolve_error"), 401, msg,
                  {{QStringLiteral("username"), c.args.value(0).left(64)}});
    } else {
        QString tag = c.verb;
        if (c.verb.startsWith(QLatin1String("send")) && c.verb.endsWith(QLatin1String("64")) &&
            c.verb != QLatin1String("search_server64"))
            tag = c.verb.left(c.verb.size() - 2) + QStringLiteral(":%1").arg(chatId);
        tdError(tag, 401, msg);
    }
}

void DemoBackend::cmdPing(const DemoCommand &)
{
    emitEvent(demo_event::backend_ready(true));
}

void DemoBackend::cmdState(const DemoCommand &)
{
    announceAuthState();
    if (signedIn())
        emitEvent(demo_event::connection_state(QStringLiteral("Ready")));
}

// ---------------------------------------------------------------- auth

bool DemoBackend::signedIn() const
{
    return m_authState == QLatin1String("Ready");
}

void DemoBackend::announceAuthState()
{
    emitEvent(demo_event::auth_state(m_authState));
    m_out.status(QStringLiteral("AUTH_STATE %1").arg(m_authState));
    QString need;
    if (m_authState == QLatin1String("WaitPhoneNumber"))
        need = QStringLiteral("phone");
    else if (m_authState == QLatin1String("WaitCode"))
        need = QStringLiteral("code");
    else if (m_authState == QLatin1String("WaitPassword"))
        need = QStringLiteral("password");
    if (!need.isEmpty()) {
        emitEvent(demo_event::need(need));
        m_out.status(QStringLiteral("NEED %1").arg(need));
    }
    if (signedIn())
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
    emitEvent(demo_event::me(DemoWorld::kMeUserId, m_world.meFirstName(), m_world.meLastName(),
                             m_world.meUsername(), m_phone, DemoWorld::kMePhotoFileId));
    m_out.status(QStringLiteral("ME id=%1").arg(DemoWorld::kMeUserId));
}

void DemoBackend::announceConnection()
{
    auto state = [this](const QString &s) { emitEvent(demo_event::connection_state(s)); };
    state(QStringLiteral("Connecting"));
    later(300, [state] { state(QStringLiteral("Updating")); });
    later(500, [state] { state(QStringLiteral("Ready")); });
}

void DemoBackend::becameReady()
{
    announceConnection();
    for (int i = 0; i < m_config.lifeBurst; ++i)
        m_activity->tick();
}

void DemoBackend::cmdPhone(const DemoCommand &c)
{
    phone(c.rest);
}

void DemoBackend::phone(const QString &text)
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
        emitEvent(demo_event::code_info(QStringLiteral("app"), m_phone, 5));
        announceAuthState();
    });
}

void DemoBackend::cmdCode(const DemoCommand &c)
{
    if (m_authState != QLatin1String("WaitCode")) {
        tdError(QStringLiteral("code"), 400, QStringLiteral("PHONE_CODE_UNEXPECTED"));
        return;
    }
    if (c.rest.trimmed() != QLatin1String("22222")) {
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
            becameReady();
        }
    });
}

void DemoBackend::cmdPassword(const DemoCommand &c)
{
    if (m_authState != QLatin1String("WaitPassword")) {
        tdError(QStringLiteral("password"), 400, QStringLiteral("PASSWORD_UNEXPECTED"));
        return;
    }
    if (c.rest != QLatin1String("vexa")) {
        tdError(QStringLiteral("password"), 400, QStringLiteral("PASSWORD_HASH_INVALID"));
        announceAuthState();
        return;
    }
    later(200, [this] {
        setAuthState(QStringLiteral("Ready"));
        becameReady();
    });
}

void DemoBackend::cmdResend(const DemoCommand &)
{
    if (m_authState != QLatin1String("WaitCode")) {
        tdError(QStringLiteral("resend"), 400, QStringLiteral("Code can't be resent now"));
        return;
    }
    ++m_codeSends;
    emitEvent(demo_event::code_info(
        m_codeSends == 1 ? QStringLiteral("sms") : QStringLiteral("call"), m_phone, 5));
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
        m_out.log(1, QStringLiteral("db: %1").arg(m_store->lastError()));
}

void DemoBackend::storeMessage(int ci, const DemoMessage &m)
{
    m_rt[ci].stored.insert(m.id, m);
    if (!m_store->saveMessage(m.chatId, m.id, demo_message_json(m)))
        m_out.log(1, QStringLiteral("db: %1").arg(m_store->lastError()));
}

void DemoBackend::setOverride(int ci, qint64 id, const DemoOverride &o)
{
    m_rt[ci].overrides.insert(id, o);
    if (!m_store->saveOverride(chat(ci).id, id, o))
        m_out.log(1, QStringLiteral("db: %1").arg(m_store->lastError()));
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

void DemoBackend::setDeleted(int ci, qint64 id)
{
    DemoOverride o = m_rt.at(ci).overrides.value(id);
    o.deleted = true;
    setOverride(ci, id, o);
}

// ---------------------------------------------------------------- events of the account

QJsonObject DemoBackend::chatEvent(int ci) const
{
    const DemoChat &c = chat(ci);
    DemoChatRow row;
    row.id = c.id;
    row.title = titleOf(ci);
    row.type = c.type;
    row.username = c.username;
    row.muted = m_rt.at(ci).state.muted;
    row.photoFileId = c.photoFileId;
    row.order = orderOf(ci);
    row.pinned = c.pinnedRank > 0;
    row.unread = unreadCount(ci);
    row.hasLast = lastMessage(ci, &row.last);
    row.lastReadOutbox = m_rt.at(ci).state.lastReadOutbox;
    return demo_event::chat(row);
}

QJsonObject DemoBackend::userEvent(const DemoUser &u) const
{
    QString status = u.statusType;
    qint64 was = m_epoch - u.wasOnlineAgo;
    const auto it = m_presence.constFind(u.id);
    if (it != m_presence.cend()) {
        status = it->first;
        was = it->second;
    }
    return demo_event::user(u, status, status == QLatin1String("offline") ? was : 0,
                            status == QLatin1String("online") ? nowSecs() + 300 : qint64(0));
}

DemoMessageCaps DemoBackend::capsOf(int ci, const DemoMessage &m) const
{
    const DemoChat &c = chat(ci);
    DemoMessageCaps caps;
    if (c.type == QLatin1String("private")) {
        caps.deleteOnlyForSelf = true;
        caps.deleteForAll = true;
    } else if (c.type == QLatin1String("secret")) {
        caps.deleteForAll = true;
    } else if (c.type == QLatin1String("basic_group")) {
        caps.deleteOnlyForSelf = true;
        caps.deleteForAll = m.outgoing;
    } else if (c.type == QLatin1String("supergroup")) {
        caps.deleteForAll = m.outgoing;
    } else {
        caps.deleteForAll = c.isAdmin;
    }
    const bool secret = c.type == QLatin1String("secret");
    // Like the service, a text can be corrected for two days after it was sent.
    caps.edit = m.outgoing && !secret && m.contentType == QLatin1String("messageText") &&
                nowSecs() - m.date < kEditWindowSecs;
    caps.forward = !secret;
    caps.reply = canSend(ci);
    caps.copy = !secret && !m.text.isEmpty();
    return caps;
}

void DemoBackend::emitChatLastMessage(int ci)
{
    DemoMessage last;
    const bool has = lastMessage(ci, &last);
    emitEvent(demo_event::chat_last_message(chat(ci).id, has ? &last : nullptr));
}

void DemoBackend::emitChatPosition(int ci)
{
    emitEvent(demo_event::chat_position(chat(ci).id, orderOf(ci),
                                        isInMainList(ci) && chat(ci).pinnedRank > 0));
}

void DemoBackend::emitHistory(int ci, const QList<qint64> &ids, bool clear, qint64 from)
{
    ChatRuntime &rt = m_rt[ci];
    if (clear || rt.gen == 0)
        ++rt.gen;
    const qint64 chatId = chat(ci).id;
    emitEvent(demo_event::history_begin(chatId, rt.gen, clear, from));
    int n = 0;
    for (qint64 id : ids) {
        DemoMessage m;
        if (!findMessage(ci, id, &m))
            continue;
        emitEvent(demo_event::message(m, rt.gen));
        ++n;
    }
    emitEvent(demo_event::history_end(chatId, rt.gen, clear, n));
}

void DemoBackend::emitPinnedState(int ci)
{
    const DemoChat &c = chat(ci);
    DemoMessage best;
    for (qint64 id : pinsOf(ci)) {
        DemoMessage m;
        if (findMessage(ci, id, &m) && m.id > best.id)
            best = m;
    }
    emitEvent(best.id > 0 ? demo_event::pinned_message(best)
                          : demo_event::chat_event("pinned_none", c.id));
}

// ---------------------------------------------------------------- what the people do

QString DemoBackend::titleOf(int ci) const
{
    return m_titles.value(chat(ci).id, chat(ci).title);
}

void DemoBackend::renameChat(int ci, const QString &title)
{
    const DemoChat &c = chat(ci);
    if (title == c.title)
        m_titles.remove(c.id);
    else
        m_titles.insert(c.id, title);
    m_store->setMeta(QStringLiteral("title:%1").arg(c.id), title == c.title ? QString() : title);
    emitEvent(demo_event::chat_title(c.id, title));
}

QList<qint64> DemoBackend::pinsOf(int ci) const
{
    const DemoChat &c = chat(ci);
    QList<qint64> ids = m_pins.value(c.id, c.pinnedMessageIds);
    std::sort(ids.begin(), ids.end(), std::greater<qint64>());
    return ids;
}

void DemoBackend::setPinned(int ci, qint64 messageId, bool pinned)
{
    QList<qint64> ids = pinsOf(ci);
    if (pinned == ids.contains(messageId))
        return;
    if (pinned)
        ids.append(messageId);
    else
        ids.removeAll(messageId);
    const qint64 chatId = chat(ci).id;
    m_pins.insert(chatId, ids);
    QStringList text;
    for (qint64 id : qAsConst(ids))
        text << QString::number(id);
    m_store->setMeta(QStringLiteral("pins:%1").arg(chatId),
                     text.isEmpty() ? QStringLiteral("-") : text.join(QLatin1Char(',')));
    // The service tells about the chat's newest pin after every change.
    emitPinnedState(ci);
}

bool DemoBackend::isOnline(qint64 userId) const
{
    return m_presence.value(userId).first == QLatin1String("online");
}

void DemoBackend::setOnline(qint64 userId, bool online)
{
    m_presence.insert(userId,
                      {online ? QStringLiteral("online") : QStringLiteral("offline"), nowSecs()});
    if (const DemoUser *u = m_world.userById(userId))
        emitEvent(userEvent(*u));
}

void DemoBackend::markReadOutbox(int ci, qint64 messageId)
{
    ChatRuntime &rt = m_rt[ci];
    if (messageId > rt.state.lastReadOutbox) {
        rt.state.lastReadOutbox = messageId;
        saveState(ci);
    }
    emitEvent(demo_event::chat_read_outbox(chat(ci).id, rt.state.lastReadOutbox));
}

void DemoBackend::addPeerReaction(int ci, qint64 messageId, const QString &emoji)
{
    DemoMessage m;
    if (!findMessage(ci, messageId, &m))
        return;
    QJsonArray list = m.reactions;
    list.append(demo_reaction(emoji, 1, false));
    setReactions(ci, messageId, list);
    emitEvent(demo_event::message_reactions(chat(ci).id, messageId, list));
}

void DemoBackend::addIncoming(int ci, qint64 sender, const QString &text)
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
    emitEvent(demo_event::message_new(m));
    emitChatLastMessage(ci);
    emitChatPosition(ci);
    emitEvent(demo_event::chat_unread(c.id, unreadCount(ci)));
    if (!rt.state.muted)
        emitEvent(demo_event::hub_notify_message(c.id, m.id, titleOf(ci), m.text));
}
// ---------------------------------------------------------------- chats

void DemoBackend::cmdChats(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    qint64 n = 0;
    if (a.size() != 1 || !backend_parse_id(a.first(), &n) || n < 1 || n > 100000) {
        tdError(QStringLiteral("chats"), 400, QStringLiteral("Invalid chat count"));
        return;
    }
    const QVector<int> list = mainList();
    emitEvent(demo_event::chats_begin());
    QSet<qint64> peers;
    for (int i = 0; i < list.size() && i < n; ++i) {
        emitEvent(chatEvent(list.at(i)));
        if (chat(list.at(i)).peerUserId > 0)
            peers.insert(chat(list.at(i)).peerUserId);
    }
    emitEvent(demo_event::chats_end());
    for (const DemoUser &u : m_world.users()) {
        if (peers.contains(u.id))
            emitEvent(userEvent(u));
    }
}

void DemoBackend::cmdChatInfo(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    int ci = -1;
    qint64 rawId = 0;
    if (a.size() != 1 || !chatArg(a.first(), &ci)) {
        backend_parse_id(a.value(0), &rawId);
        emitError(QStringLiteral("chat_info_error"), 400,
                  a.size() == 1 ? QStringLiteral("Chat not found")
                                : QStringLiteral("Invalid arguments"),
                  {{QStringLiteral("chat_id"), rawId}});
        return;
    }
    const DemoChat &c = chat(ci);
    DemoChatDetails d;
    d.chatId = c.id;
    d.about = c.about;
    d.username = c.username;
    d.link = c.link;
    if (const DemoUser *u = m_world.userById(c.peerUserId))
        d.phone = u->phone;
    d.memberCount = c.peerUserId > 0 ? qint64(0) : c.memberCount;
    d.userId = c.peerUserId;
    d.member = m_rt.at(ci).state.member;
    d.canSend = canSend(ci);
    d.reactionsAll = c.reactionsAll;
    d.reactions = c.reactions;
    emitEvent(demo_event::chat_info(d));
    if (c.memberCount > 0)
        emitEvent(demo_event::chat_online_count(c.id, qMax<qint64>(1, c.memberCount / 17)));
}

void DemoBackend::cmdOpen(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    int ci = -1;
    qint64 anchor = 0;
    if (a.isEmpty() || a.size() > 2 || !chatArg(a.first(), &ci) ||
        (a.size() == 2 && (!backend_parse_id(a.at(1), &anchor) || anchor < 1))) {
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
        emitEvent(userEvent(*u));
    for (qint64 member : chat(ci).members) {
        if (const DemoUser *u = m_world.userById(member))
            emitEvent(userEvent(*u));
    }
}

void DemoBackend::cmdClose(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    int ci = -1;
    if (a.size() != 1 || !chatArg(a.first(), &ci)) {
        tdError(QStringLiteral("close"), 400, QStringLiteral("Chat not found"));
        return;
    }
    if (m_openChat == ci)
        m_openChat = -1;
}

void DemoBackend::cmdHistory(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    int ci = -1;
    qint64 n = 0;
    if (a.size() != 2 || !chatArg(a.first(), &ci) || !backend_parse_id(a.at(1), &n) || n < 1 ||
        n > kMaxPage) {
        tdError(QStringLiteral("history:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid history request"));
        return;
    }
    emitHistory(ci, idsBefore(ci, std::numeric_limits<qint64>::max(), int(n)), true, 0);
}

void DemoBackend::cmdHistoryMore(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    int ci = -1;
    qint64 from = 0;
    qint64 n = 0;
    if (a.size() != 3 || !chatArg(a.first(), &ci) || !backend_parse_id(a.at(1), &from) ||
        from < 1 || !backend_parse_id(a.at(2), &n) || n < 1 || n > kMaxPage) {
        tdError(QStringLiteral("history_more:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid history request"));
        return;
    }
    emitHistory(ci, idsBefore(ci, from, int(n)), false, from);
}

void DemoBackend::cmdHistoryJump(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    int ci = -1;
    qint64 target = 0;
    qint64 before = 0;
    qint64 after = 0;
    if (a.size() != 4 || !chatArg(a.first(), &ci) || !backend_parse_id(a.at(1), &target) ||
        target < 1 || !backend_parse_id(a.at(2), &before) || before < 0 || before > kMaxPage ||
        !backend_parse_id(a.at(3), &after) || after < 0 || after > kMaxPage) {
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

void DemoBackend::cmdRead(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    int ci = -1;
    qint64 id = 0;
    if (a.size() != 2 || !chatArg(a.first(), &ci) || !backend_parse_id(a.at(1), &id) || id < 1) {
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
    emitEvent(demo_event::chat_unread(chat(ci).id, unreadCount(ci)));
}

// ---------------------------------------------------------------- sending

void DemoBackend::cmdSend(const DemoCommand &cmd)
{
    const QString &verb = cmd.verb;
    const QStringList &a = cmd.args;
    const QString kind = verb.left(verb.size() - 2); // send, sendfile, sendvoice, sendvideonote
    qint64 chatId = 0;
    backend_parse_id(a.value(0), &chatId);
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
    if (a.size() == base + 1 && (!backend_parse_id(a.at(1), &replyTo) || replyTo < 0)) {
        tdError(tag, 400, QStringLiteral("Invalid reply id"));
        return;
    }
    const int payloadIdx = a.size() == base + 1 ? 2 : 1;
    QByteArray payload;
    if (!backend_decode_base64(a.at(payloadIdx), &payload)) {
        tdError(tag, 400, QStringLiteral("Invalid Base64"));
        return;
    }
    const QString text = QString::fromUtf8(payload);
    qint64 duration = 0;
    if (voice &&
        (!backend_parse_id(a.at(payloadIdx + 1), &duration) || duration < 1 || duration > 36000)) {
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
    DemoStoredFile sf;
    QString error;
    if (!m_files->keepUpload(text, &sf, &error)) {
        tdError(tag, 500, error);
        return;
    }
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
    emitEvent(demo_event::message_new(draft));
    emitEvent(demo_event::send_ok());
    const qint64 chatId = draft.chatId;
    later(kPendingDelayAck, [this, chatId, pendingId] {
        emitEvent(demo_event::message_send_acked(chatId, pendingId));
    });
    later(kPendingDelayDone, [this, ci, draft, tag, pendingId]() mutable {
        if (!canSend(ci)) {
            emitEvent(demo_event::message_send_failed(draft.chatId, pendingId, 403,
                                                      QStringLiteral("CHAT_WRITE_FORBIDDEN")));
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
        emitEvent(
            demo_event::message_send_succeeded(draft.chatId, pendingId, draft.id, draft.date));
        emitChatLastMessage(ci);
        emitChatPosition(ci);
        m_activity->afterSend(ci, draft.id);
    });
}

// ---------------------------------------------------------------- message actions

void DemoBackend::cmdEdit(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    int ci = -1;
    qint64 id = 0;
    QByteArray payload;
    auto fail = [this, &a](int code, const QString &msg) {
        qint64 chatId = 0;
        qint64 mid = 0;
        backend_parse_id(a.value(0), &chatId);
        backend_parse_id(a.value(1), &mid);
        emitError(QStringLiteral("edit_error"), code, msg,
                  {{QStringLiteral("chat_id"), chatId}, {QStringLiteral("id"), mid}});
    };
    if (a.size() != 3 || !chatArg(a.first(), &ci) || !backend_parse_id(a.at(1), &id) || id < 1)
        return fail(400, QStringLiteral("Invalid arguments"));
    if (!backend_decode_base64(a.at(2), &payload))
        return fail(400, QStringLiteral("Invalid Base64"));
    const QString text = QString::fromUtf8(payload);
    if (text.trimmed().isEmpty())
        return fail(400, QStringLiteral("MESSAGE_EMPTY"));
    DemoMessage m;
    if (!findMessage(ci, id, &m))
        return fail(404, QStringLiteral("Message not found"));
    if (!capsOf(ci, m).edit)
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
    emitEvent(demo_event::message_update(chat(ci).id, id, text, editDate));
    if (lastMessageId(ci) == id)
        emitChatLastMessage(ci);
}

void DemoBackend::cmdReact(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    qint64 chatId = 0;
    qint64 id = 0;
    backend_parse_id(a.value(0), &chatId);
    backend_parse_id(a.value(1), &id);
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
    if (!c.reactions.contains(emoji)) {
        // The service refuses the request itself; its error carries the
        // request's tag like a failed send.
        tdError(QStringLiteral("react:%1:%2").arg(c.id).arg(id), 400,
                QStringLiteral("REACTION_INVALID"));
        return;
    }
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
    if (!found && mode == QLatin1String("add"))
        list.append(demo_reaction(emoji, 1, true));
    setReactions(ci, id, list);
    emitEvent(demo_event::message_reactions(c.id, id, list));
    emitEvent(demo_event::reaction_ok(c.id, id, mode, emoji));
}

void DemoBackend::cmdForward(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    int to = -1;
    int from = -1;
    const QString tag = QStringLiteral("forward:%1").arg(a.value(0).left(24));
    if (a.size() < 3 || a.size() > kMaxIds + 2 || !chatArg(a.at(0), &to) ||
        !chatArg(a.at(1), &from)) {
        tdError(tag, 400, QStringLiteral("Invalid arguments"));
        return;
    }
    QList<DemoMessage> msgs;
    for (int i = 2; i < a.size(); ++i) {
        qint64 id = 0;
        if (!backend_parse_id(a.at(i), &id)) {
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
    for (int first = 0; first < msgs.size(); first += kServiceBatch) {
        for (const DemoMessage &src : msgs.mid(first, kServiceBatch)) {
            DemoMessage d = src;
            if (d.forwarded.isEmpty())
                d.forwarded = src.outgoing
                                  ? m_world.meFirstName() + QLatin1Char(' ') + m_world.meLastName()
                                  : src.senderName;
            d.replyTo = 0;
            startSend(to, d, tag);
        }
    }
}

void DemoBackend::cmdDelete(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    qint64 chatId = 0;
    backend_parse_id(a.value(0), &chatId);
    auto fail = [this, chatId](int code, const QString &msg, const QJsonArray &ids) {
        emitError(QStringLiteral("delete_error"), code, msg,
                  {{QStringLiteral("chat_id"), chatId}, {QStringLiteral("message_ids"), ids}});
    };
    int ci = -1;
    const QString mode = a.value(1);
    if (a.size() < 3 || a.size() > kMaxIds + 2 || !chatArg(a.first(), &ci) ||
        (mode != QLatin1String("all") && mode != QLatin1String("self")))
        return fail(400, QStringLiteral("Invalid arguments"), {});
    QList<qint64> ids;
    QSet<qint64> seen;
    for (int i = 2; i < a.size(); ++i) {
        qint64 id = 0;
        if (!backend_parse_id(a.at(i), &id) || id < 1)
            return fail(400, QStringLiteral("Invalid message id"), {});
        if (!seen.contains(id)) {
            seen.insert(id);
            ids.append(id);
        }
    }
    const qint64 lastBefore = lastMessageId(ci);
    QJsonArray deleted;
    QJsonArray refused;
    QJsonArray missing;
    for (int first = 0; first < ids.size(); first += kServiceBatch) {
        for (qint64 id : ids.mid(first, kServiceBatch)) {
            DemoMessage m;
            if (!findMessage(ci, id, &m)) {
                missing.append(id);
                continue;
            }
            const DemoMessageCaps caps = capsOf(ci, m);
            const bool allowed = mode == QLatin1String("all")
                                     ? caps.deleteForAll
                                     : (caps.deleteOnlyForSelf || caps.deleteForAll);
            if (!allowed) {
                refused.append(id);
                continue;
            }
            setDeleted(ci, id);
            deleted.append(id);
        }
    }
    if (!deleted.isEmpty()) {
        emitEvent(demo_event::messages_deleted(chat(ci).id, deleted));
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

void DemoBackend::cmdProps(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    qint64 chatId = 0;
    qint64 id = 0;
    backend_parse_id(a.value(0), &chatId);
    backend_parse_id(a.value(1), &id);
    int ci = -1;
    DemoMessage m;
    if (a.size() != 2 || !chatArg(a.first(), &ci) || id < 1 || !findMessage(ci, id, &m)) {
        emitError(QStringLiteral("message_properties_error"), a.size() == 2 ? 404 : 400,
                  a.size() == 2 ? QStringLiteral("Message not found")
                                : QStringLiteral("Invalid arguments"),
                  {{QStringLiteral("chat_id"), chatId}, {QStringLiteral("id"), id}});
        return;
    }
    emitEvent(demo_event::message_properties(chat(ci).id, m.id, capsOf(ci, m)));
}

void DemoBackend::cmdPinnedList(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    int ci = -1;
    qint64 limit = 0;
    if (a.size() != 2 || !chatArg(a.first(), &ci) || !backend_parse_id(a.at(1), &limit) ||
        limit < 1 || limit > 1000) {
        tdError(QStringLiteral("pinned_list:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid arguments"));
        return;
    }
    const DemoChat &c = chat(ci);
    const QList<qint64> ids = pinsOf(ci);
    emitEvent(demo_event::chat_event("pinned_list_begin", c.id));
    int n = 0;
    for (qint64 id : qAsConst(ids)) {
        DemoMessage m;
        if (n >= limit || !findMessage(ci, id, &m))
            continue;
        emitEvent(demo_event::pinned_list_item(m));
        ++n;
    }
    emitEvent(demo_event::chat_event("pinned_list_end", c.id));
}

void DemoBackend::cmdSearch(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    qint64 chatId = 0;
    qint64 limit = 0;
    QByteArray query;
    if (a.size() != 3 || !backend_parse_id(a.at(0), &chatId) ||
        !backend_decode_base64(a.at(1), &query) || !backend_parse_id(a.at(2), &limit) ||
        limit < 1 || limit > 100) {
        tdError(QStringLiteral("search:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid search request"));
        return;
    }
    const qint64 req = ++m_searchReq;
    const QString q = QString::fromUtf8(query).trimmed();
    later(150, [this, req, q, limit] {
        emitEvent(demo_event::search_begin(req));
        int idx = 0;
        if (!q.isEmpty()) {
            const QString needle = q.startsWith(QLatin1Char('@')) ? q.mid(1) : q;
            for (int ci = 0; ci < m_rt.size() && idx < limit; ++ci) {
                const DemoChat &c = chat(ci);
                if (!titleOf(ci).contains(needle, Qt::CaseInsensitive) &&
                    !(c.username.size() > 0 && c.username.contains(needle, Qt::CaseInsensitive)))
                    continue;
                emitEvent(demo_event::search_chat(req, idx++, c, titleOf(ci)));
            }
        }
        emitEvent(demo_event::search_end(req, idx));
    });
}

void DemoBackend::cmdChatAction(const DemoCommand &cmd)
{
    const QString &verb = cmd.verb;
    const QStringList &a = cmd.args;
    qint64 chatId = 0;
    backend_parse_id(a.value(0), &chatId);
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
    auto simple = [this, &c](const char *type) { emitEvent(demo_event::chat_event(type, c.id)); };
    const bool isGroup = c.peerUserId == 0;
    if (verb == QLatin1String("mute_toggle")) {
        rt.state.muted = !rt.state.muted;
        saveState(ci);
        emitEvent(demo_event::chat_mute_toggled(c.id, rt.state.muted));
        emitEvent(demo_event::chat_notify(c.id, rt.state.muted));
    } else if (verb == QLatin1String("clear_history")) {
        if (c.type == QLatin1String("channel"))
            return fail(400, QStringLiteral("Channel history can't be cleared"));
        DemoMessage last;
        if (lastMessage(ci, &last))
            rt.state.orderDate = qMax(rt.state.orderDate, last.date);
        rt.state.clearedUpTo = qMax(rt.state.clearedUpTo, nextMessageId(ci) - 1);
        rt.state.lastReadInbox = qMax(rt.state.lastReadInbox, rt.state.clearedUpTo);
        saveState(ci);
        if (m_openChat == ci)
            emitEvent(demo_event::history_clear(c.id, ++rt.gen));
        simple("history_cleared");
        emitChatLastMessage(ci);
        emitEvent(demo_event::chat_unread(c.id, 0));
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
        emitEvent(chatEvent(ci));
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

void DemoBackend::cmdResolve(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
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
        emitEvent(demo_event::tg_resolve(name, chat(found), titleOf(found)));
    });
}

// ---------------------------------------------------------------- downloads

void DemoBackend::cmdDownload(const DemoCommand &cmd)
{
    const QStringList &a = cmd.args;
    qint64 fileId = 0;
    if (a.size() != 1 || !backend_parse_id(a.first(), &fileId) || fileId < 1) {
        tdError(QStringLiteral("download:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid file id"));
        return;
    }
    m_files->download(fileId, cmd.verb == QLatin1String("downloadp"));
}
