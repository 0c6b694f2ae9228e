#include "td_translator.h"

#include "command_args.h"

#include "td_json.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QRegularExpression>

#include <algorithm>

using namespace td_json;

namespace {

// TDLib takes at most this many messages per forward or delete request.
constexpr int kServiceBatch = 100;
// Bounds the ids of one command line.
constexpr int kMaxIds = 10000;
constexpr int kMaxPage = 200;
// getChatHistory may answer with fewer messages than asked (only what it
// has at hand); it is asked again from the oldest one this many times.
constexpr int kHistoryRounds = 5;
constexpr int kMaxTextChars = 4096;
constexpr int kTdPage = 100;

QString stripPrefix(const QString &type, const char *prefix)
{
    const QLatin1String p(prefix);
    return type.startsWith(p) ? type.mid(p.size()) : type;
}

template<typename U>
QString fullName(const U &u)
{
    return QString(u.firstName + QLatin1Char(' ') + u.lastName).trimmed();
}

QJsonObject chatListMain()
{
    return typed("chatListMain");
}

// An error answer of its own type ("edit_error", "action_error", ...).
QJsonObject errorEvent(const char *type, int code, const QString &message)
{
    QJsonObject o = event(type);
    o.insert(QStringLiteral("code"), code);
    o.insert(QStringLiteral("message"), message);
    return o;
}

// The tag a failure of this verb carries: "send:%1" and its kin for the
// sending verbs, the verb itself for the others.
QString sendTag(const QString &verb, qint64 chatId)
{
    if (verb.startsWith(QLatin1String("send")) && verb.endsWith(QLatin1String("64")) &&
        verb != QLatin1String("search_server64"))
        return verb.left(verb.size() - 2) + QStringLiteral(":%1").arg(chatId);
    return verb;
}

QJsonObject formattedText(const QString &text)
{
    QJsonObject t = typed("formattedText");
    t.insert(QStringLiteral("text"), text);
    t.insert(QStringLiteral("entities"), QJsonArray());
    return t;
}

QJsonObject localFile(const QString &path)
{
    QJsonObject f = typed("inputFileLocal");
    f.insert(QStringLiteral("path"), path);
    return f;
}

QJsonArray idArray(const QList<qint64> &ids)
{
    QJsonArray a;
    for (qint64 id : ids)
        a.append(id);
    return a;
}

} // namespace

// ---------------------------------------------------------------- helpers

void TdOutput::append(const TdOutput &other)
{
    requests += other.requests;
    events += other.events;
    statusLines += other.statusLines;
    if (other.exitCode >= 0)
        exitCode = other.exitCode;
}

QString td_one_line(const QString &text)
{
    QString s = text;
    for (QChar &c : s) {
        if (c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator)
            c = QLatin1Char(' ');
    }
    return s.left(400);
}

// ---------------------------------------------------------------- life cycle

TdTranslator::TdTranslator(TdConfig config) : m_config(std::move(config)) {}

TdOutput TdTranslator::onStart()
{
    TdOutput out;
    out.statusLines << QStringLiteral("BACKEND_READY tdlib");
    QJsonObject ready = event("backend_ready");
    ready.insert(QStringLiteral("name"), QStringLiteral("tdlib"));
    out.events << ready;
    // With a proxy, nothing goes out until TDLib has taken it: one it
    // refuses must not leave it connecting directly.
    const QJsonObject proxy = proxyRequest();
    if (m_config.networkNone || !proxy.isEmpty())
        setNetwork(&out, "networkTypeNone");
    if (!proxy.isEmpty())
        request(&out, proxy,
                Pending(QStringLiteral("proxy"), 0, 0, 0, false, 0, QStringLiteral("proxy")));
    return out;
}

void TdTranslator::setNetwork(TdOutput *out, const char *type)
{
    QJsonObject req = typed("setNetworkType");
    req.insert(QStringLiteral("type"), typed(type));
    request(out, req,
            Pending(QStringLiteral("plain"), 0, 0, 0, false, 0, QStringLiteral("network")));
}

QJsonObject TdTranslator::proxyRequest() const
{
    QJsonObject type;
    if (m_config.proxyType == QLatin1String("socks5")) {
        type = typed("proxyTypeSocks5");
        type.insert(QStringLiteral("username"), m_config.proxyUser);
        type.insert(QStringLiteral("password"), m_config.proxyPassword);
    } else if (m_config.proxyType == QLatin1String("mtproto")) {
        type = typed("proxyTypeMtproto");
        type.insert(QStringLiteral("secret"), m_config.proxySecret);
    } else {
        return QJsonObject();
    }
    // TDLib 1.8.67 takes the proxy as one object; a request TDLib refuses
    // would leave it connecting directly.
    QJsonObject proxy = typed("proxy");
    proxy.insert(QStringLiteral("server"), m_config.proxyHost);
    proxy.insert(QStringLiteral("port"), m_config.proxyPort);
    proxy.insert(QStringLiteral("type"), type);
    QJsonObject req = typed("addProxy");
    req.insert(QStringLiteral("proxy"), proxy);
    req.insert(QStringLiteral("enable"), true);
    req.insert(QStringLiteral("comment"), QString());
    return req;
}

// ---------------------------------------------------------------- correlation

void TdTranslator::request(TdOutput *out, QJsonObject req, const Pending &pending)
{
    // Answers nobody collects would fill the table: the oldest are dropped.
    if (m_pending.size() >= kMaxPending)
        m_pending.erase(m_pending.begin());
    ++m_nextExtra;
    req.insert(QStringLiteral("@extra"), QStringLiteral("tr:%1").arg(m_nextExtra));
    m_pending.insert(m_nextExtra, pending);
    out->requests << req;
}

void TdTranslator::tdError(TdOutput *out, const QString &extra, int code,
                           const QString &message) const
{
    out->events << backend_td_error_event(extra, code, message);
}

TdOutput TdTranslator::onTdObject(const QJsonObject &object)
{
    TdOutput out;
    const QString type = str(object, "@type");
    const QJsonValue extra = object.value(QStringLiteral("@extra"));
    if (!extra.isUndefined()) {
        // Only answers to this translator's requests; the engine's own
        // carry other tags.
        const QString tag = extra.toString();
        bool number = false;
        const qint64 n = tag.startsWith(QLatin1String("tr:")) ? tag.mid(3).toLongLong(&number) : 0;
        const auto it = number ? m_pending.find(n) : m_pending.end();
        if (it == m_pending.end())
            return out;
        const Pending p = it.value();
        m_pending.erase(it);
        if (type == QLatin1String("error"))
            onError(p, int(i64(object, "code")), str(object, "message"), &out);
        else
            onAnswer(p, object, &out);
        return out;
    }
    if (type == QLatin1String("error")) {
        tdError(&out, QString(), int(i64(object, "code")), str(object, "message"));
        return out;
    }
    onUpdate(type, object, &out);
    return out;
}

// ---------------------------------------------------------------- authorization

QJsonObject TdTranslator::tdlibParameters() const
{
    QJsonObject p = typed("setTdlibParameters");
    p.insert(QStringLiteral("use_test_dc"), false);
    p.insert(QStringLiteral("database_directory"), m_config.databaseDir);
    p.insert(QStringLiteral("files_directory"), m_config.filesDir);
    p.insert(QStringLiteral("database_encryption_key"), QString());
    p.insert(QStringLiteral("use_file_database"), true);
    p.insert(QStringLiteral("use_chat_info_database"), true);
    p.insert(QStringLiteral("use_message_database"), true);
    p.insert(QStringLiteral("use_secret_chats"), true);
    p.insert(QStringLiteral("api_id"), m_config.apiId);
    p.insert(QStringLiteral("api_hash"), m_config.apiHash);
    p.insert(QStringLiteral("system_language_code"), QStringLiteral("en"));
    p.insert(QStringLiteral("device_model"), QStringLiteral("Linux"));
    p.insert(QStringLiteral("system_version"), QString());
    p.insert(QStringLiteral("application_version"), QStringLiteral("Vexa"));
    return p;
}

void TdTranslator::announceAuthState(TdOutput *out) const
{
    if (m_authState.isEmpty())
        return;
    QJsonObject a = event("auth_state");
    a.insert(QStringLiteral("state"), m_authState);
    out->events << a;
    out->statusLines << QStringLiteral("AUTH_STATE ") + td_one_line(m_authState);
    QString need;
    if (m_authState == QLatin1String("WaitPhoneNumber"))
        need = QStringLiteral("phone");
    else if (m_authState == QLatin1String("WaitCode"))
        need = QStringLiteral("code");
    else if (m_authState == QLatin1String("WaitPassword"))
        need = QStringLiteral("password");
    if (!need.isEmpty()) {
        QJsonObject n = event("need");
        n.insert(QStringLiteral("what"), need);
        out->events << n;
        out->statusLines << QStringLiteral("NEED ") + need;
    }
}

void TdTranslator::onAuthorizationState(const QJsonObject &state, TdOutput *out)
{
    const QString type = str(state, "@type");
    const QString previous = m_authState;
    m_authState = td_one_line(stripPrefix(type, "authorizationState")).left(64);
    const Pending step(QStringLiteral("auth"));
    if (m_authState == QLatin1String("WaitTdlibParameters")) {
        request(out, tdlibParameters(),
                Pending(QStringLiteral("params"), 0, 0, 0, false, 0, QString()));
        return;
    }
    if (m_authState == QLatin1String("WaitEncryptionKey")) {
        QJsonObject key = typed("checkDatabaseEncryptionKey");
        key.insert(QStringLiteral("encryption_key"), QString());
        request(out, key, Pending(QStringLiteral("params"), 0, 0, 0, false, 0, QString()));
        return;
    }
    if (m_authState == QLatin1String("WaitPhoneNumber") && m_config.autoSendPhone &&
        !m_config.phone.trimmed().isEmpty() && previous != m_authState) {
        // Sent as if typed; the state is announced only if TDLib refuses it.
        QJsonObject req = typed("setAuthenticationPhoneNumber");
        req.insert(QStringLiteral("phone_number"), m_config.phone.trimmed());
        Pending p = step;
        p.text = QStringLiteral("phone");
        request(out, req, p);
        return;
    }
    if (m_authState == QLatin1String("WaitCode")) {
        const QJsonObject info = obj(state, "code_info");
        const QJsonObject codeType = obj(info, "type");
        QString delivery = stripPrefix(str(codeType, "@type"), "authenticationCodeType");
        if (delivery == QLatin1String("TelegramMessage"))
            delivery = QStringLiteral("app");
        delivery = delivery.toLower();
        QJsonObject c = event("code_info");
        c.insert(QStringLiteral("delivery"), delivery);
        c.insert(QStringLiteral("phone"), str(info, "phone_number"));
        c.insert(QStringLiteral("length"), int(i64(codeType, "length")));
        out->events << c;
    }
    announceAuthState(out);
    if (ready()) {
        request(out, typed("getMe"), Pending(QStringLiteral("me"), 0, 0, 0, false, 0, QString()));
    } else if (m_authState == QLatin1String("Closed")) {
        out->events << event("td_closed");
        out->exitCode = 0;
    }
}

// ---------------------------------------------------------------- commands

// Every verb the engine accepts, whether it needs a signed-in account, and
// its handler.
const TdTranslator::Verb TdTranslator::kVerbs[] = {
    {"ping", false, &TdTranslator::cmdPing},
    {"state", false, &TdTranslator::cmdState},
    {"phone", false, &TdTranslator::cmdPhone},
    {"code", false, &TdTranslator::cmdCode},
    {"password", false, &TdTranslator::cmdPassword},
    {"resend", false, &TdTranslator::cmdResend},
    {"chats", true, &TdTranslator::cmdChats},
    {"open", true, &TdTranslator::cmdOpen},
    {"chat_info", true, &TdTranslator::cmdChatInfo},
    {"close", true, &TdTranslator::cmdClose},
    {"history", true, &TdTranslator::cmdHistory},
    {"history_more", true, &TdTranslator::cmdHistoryMore},
    {"history_jump", true, &TdTranslator::cmdHistoryJump},
    {"read", true, &TdTranslator::cmdRead},
    {"send64", true, &TdTranslator::cmdSend},
    {"sendfile64", true, &TdTranslator::cmdSend},
    {"sendvoice64", true, &TdTranslator::cmdSend},
    {"sendvideonote64", true, &TdTranslator::cmdSend},
    {"edit64", true, &TdTranslator::cmdEdit},
    {"react", true, &TdTranslator::cmdReact},
    {"forward", true, &TdTranslator::cmdForward},
    {"delete", true, &TdTranslator::cmdDelete},
    {"props", true, &TdTranslator::cmdProps},
    {"pinned_list", true, &TdTranslator::cmdPinnedList},
    {"search_server64", true, &TdTranslator::cmdSearch},
    {"mute_toggle", true, &TdTranslator::cmdChatAction},
    {"clear_history", true, &TdTranslator::cmdChatAction},
    {"join", true, &TdTranslator::cmdChatAction},
    {"leave", true, &TdTranslator::cmdChatAction},
    {"delete_chat", true, &TdTranslator::cmdChatAction},
    {"download", true, &TdTranslator::cmdDownload},
    {"downloadp", true, &TdTranslator::cmdDownload},
    {"resolve", true, &TdTranslator::cmdResolve},
};

QStringList TdTranslator::verbs()
{
    QStringList names;
    for (const Verb &v : kVerbs)
        names << QLatin1String(v.name);
    return names;
}

TdOutput TdTranslator::onCommand(const QString &raw)
{
    TdOutput out;
    // A command is one line; anything after a line break is not part of it.
    const QString line = raw.section(QLatin1Char('\n'), 0, 0).left(256 * 1024).trimmed();
    if (line.isEmpty())
        return out;
    const int sp = line.indexOf(QLatin1Char(' '));
    const QString verb = sp < 0 ? line : line.left(sp);
    const QString rest = sp < 0 ? QString() : line.mid(sp + 1);
    const QStringList args = rest.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (const Verb &v : kVerbs) {
        if (verb != QLatin1String(v.name))
            continue;
        m_verb = verb;
        if (v.needsSignIn && !ready()) {
            // Refused the way the verb's own failures are reported.
            const QString msg = QStringLiteral("Unauthorized");
            qint64 chatId = 0;
            backend_parse_id(args.value(0), &chatId);
            if (verb == QLatin1String("edit64")) {
                out.events << errorEvent("edit_error", 401, msg);
            } else if (verb == QLatin1String("delete")) {
                out.events << errorEvent("delete_error", 401, msg);
            } else if (verb == QLatin1String("react")) {
                QJsonObject e = errorEvent("reaction_error", 401, msg);
                e.insert(QStringLiteral("chat_id"), chatId);
                out.events << e;
            } else if (verb == QLatin1String("resolve")) {
                QJsonObject e = errorEvent("tg_resolve_error", 401, msg);
                e.insert(QStringLiteral("username"), args.value(0).left(64));
                out.events << e;
            } else {
                tdError(&out, sendTag(verb, chatId), 401, msg);
            }
            return out;
        }
        (this->*v.handler)(args, rest, &out);
        return out;
    }
    tdError(&out, QStringLiteral("unknown"), 400, QStringLiteral("Unknown command"));
    return out;
}

void TdTranslator::cmdPing(const QStringList &, const QString &, TdOutput *out)
{
    QJsonObject o = event("backend_ready");
    o.insert(QStringLiteral("name"), QStringLiteral("tdlib"));
    o.insert(QStringLiteral("pong"), true);
    out->events << o;
}

void TdTranslator::cmdState(const QStringList &, const QString &, TdOutput *out)
{
    announceAuthState(out);
    if (ready()) {
        if (m_myId != 0 && m_users.contains(m_myId))
            out->events << meEvent(m_users.value(m_myId));
        QJsonObject c = event("connection_state");
        c.insert(QStringLiteral("state"),
                 m_connectionState.isEmpty() ? QStringLiteral("Ready") : m_connectionState);
        out->events << c;
    }
}

void TdTranslator::cmdPhone(const QStringList &, const QString &rest, TdOutput *out)
{
    QJsonObject req = typed("setAuthenticationPhoneNumber");
    req.insert(QStringLiteral("phone_number"), rest.trimmed().left(64));
    request(out, req, Pending(QStringLiteral("auth"), 0, 0, 0, false, 0, QStringLiteral("phone")));
}

void TdTranslator::cmdCode(const QStringList &, const QString &rest, TdOutput *out)
{
    QJsonObject req = typed("checkAuthenticationCode");
    req.insert(QStringLiteral("code"), rest.trimmed().left(64));
    request(out, req, Pending(QStringLiteral("auth"), 0, 0, 0, false, 0, QStringLiteral("code")));
}

void TdTranslator::cmdPassword(const QStringList &, const QString &rest, TdOutput *out)
{
    // Passwords may begin or end with blanks: taken as typed.
    QJsonObject req = typed("checkAuthenticationPassword");
    req.insert(QStringLiteral("password"), rest.left(1024));
    request(out, req,
            Pending(QStringLiteral("auth"), 0, 0, 0, false, 0, QStringLiteral("password")));
}

void TdTranslator::cmdResend(const QStringList &, const QString &, TdOutput *out)
{
    request(out, typed("resendAuthenticationCode"),
            Pending(QStringLiteral("auth"), 0, 0, 0, false, 0, QStringLiteral("resend")));
}

void TdTranslator::cmdChats(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 n = 0;
    if (a.size() != 1 || !backend_parse_id(a.first(), &n) || n < 1 || n > 100000) {
        tdError(out, QStringLiteral("chats"), 400, QStringLiteral("Invalid chat count"));
        return;
    }
    QJsonObject req = typed("loadChats");
    req.insert(QStringLiteral("chat_list"), chatListMain());
    req.insert(QStringLiteral("limit"), int(qMin<qint64>(n, kMaxChats)));
    request(out, req, Pending(QStringLiteral("chats"), 0, 0, n));
}

void TdTranslator::historyRequest(TdOutput *out, qint64 chatId, qint64 from, int offset, int limit,
                                  bool clear, qint64 anchor)
{
    QJsonObject req = typed("getChatHistory");
    req.insert(QStringLiteral("chat_id"), chatId);
    req.insert(QStringLiteral("from_message_id"), from);
    // TDLib gives at most 100 per request and 99 newer than the start; a
    // longer page is asked on in rounds.
    offset = qMax(offset, -99);
    req.insert(QStringLiteral("offset"), offset);
    req.insert(QStringLiteral("limit"), qBound(-offset + 1, limit, kTdPage));
    req.insert(QStringLiteral("only_local"), false);
    Pending p{QStringLiteral("history"), chatId, anchor, limit, clear, from};
    p.text = QString::number(offset);
    request(out, req, p);
}

namespace {

bool chatIdArg(const QString &text, qint64 *id)
{
    return backend_parse_id(text, id) && *id != 0;
}

} // namespace

void TdTranslator::cmdOpen(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    qint64 anchor = 0;
    if (a.isEmpty() || a.size() > 2 || !chatIdArg(a.first(), &chatId) ||
        (a.size() == 2 && (!backend_parse_id(a.at(1), &anchor) || anchor < 1))) {
        tdError(out, QStringLiteral("open:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Chat not found"));
        return;
    }
    if (m_openChat != 0 && m_openChat != chatId) {
        QJsonObject close = typed("closeChat");
        close.insert(QStringLiteral("chat_id"), m_openChat);
        request(
            out, close,
            Pending(QStringLiteral("plain"), m_openChat, 0, 0, false, 0, QStringLiteral("close")));
    }
    m_openChat = chatId;
    QJsonObject open = typed("openChat");
    open.insert(QStringLiteral("chat_id"), chatId);
    request(out, open,
            Pending(QStringLiteral("plain"), chatId, 0, 0, false, 0, QStringLiteral("open")));
    if (anchor > 0)
        historyRequest(out, chatId, anchor, -40, 81, true, anchor);
    else
        historyRequest(out, chatId, 0, 0, 30, true, 0);
    QJsonObject pinned = typed("getChatPinnedMessage");
    pinned.insert(QStringLiteral("chat_id"), chatId);
    request(out, pinned, Pending(QStringLiteral("pinned"), chatId));
    const auto c = m_chats.constFind(chatId);
    if (c != m_chats.cend() && c->peerUserId != 0 && m_users.contains(c->peerUserId))
        out->events << userEvent(m_users.value(c->peerUserId));
}

void TdTranslator::cmdClose(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    if (a.size() != 1 || !chatIdArg(a.first(), &chatId)) {
        tdError(out, QStringLiteral("close"), 400, QStringLiteral("Chat not found"));
        return;
    }
    if (m_openChat == chatId)
        m_openChat = 0;
    QJsonObject close = typed("closeChat");
    close.insert(QStringLiteral("chat_id"), chatId);
    request(out, close,
            Pending(QStringLiteral("plain"), chatId, 0, 0, false, 0, QStringLiteral("close")));
}

void TdTranslator::cmdHistory(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    qint64 n = 0;
    if (a.size() != 2 || !chatIdArg(a.first(), &chatId) || !backend_parse_id(a.at(1), &n) ||
        n < 1 || n > kMaxPage) {
        tdError(out, QStringLiteral("history:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid history request"));
        return;
    }
    historyRequest(out, chatId, 0, 0, int(n), true, 0);
}

void TdTranslator::cmdHistoryMore(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    qint64 from = 0;
    qint64 n = 0;
    if (a.size() != 3 || !chatIdArg(a.first(), &chatId) || !backend_parse_id(a.at(1), &from) ||
        from < 1 || !backend_parse_id(a.at(2), &n) || n < 1 || n > kMaxPage) {
        tdError(out, QStringLiteral("history_more:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid history request"));
        return;
    }
    // TDLib may include the message paged from; the answer drops it.
    historyRequest(out, chatId, from, 0, int(n), false, from);
}

void TdTranslator::cmdHistoryJump(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    qint64 target = 0;
    qint64 before = 0;
    qint64 after = 0;
    if (a.size() != 4 || !chatIdArg(a.first(), &chatId) || !backend_parse_id(a.at(1), &target) ||
        target < 1 || !backend_parse_id(a.at(2), &before) || before < 0 || before > kMaxPage ||
        !backend_parse_id(a.at(3), &after) || after < 0 || after > kMaxPage) {
        tdError(out, QStringLiteral("history_jump:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid history request"));
        return;
    }
    // A negative offset reaches newer messages; the target counts once.
    historyRequest(out, chatId, target, -int(after), int(before + after + 1), true, target);
}

void TdTranslator::cmdRead(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    qint64 id = 0;
    if (a.size() != 2 || !chatIdArg(a.first(), &chatId) || !backend_parse_id(a.at(1), &id) ||
        id < 1) {
        tdError(out, QStringLiteral("read:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid read request"));
        return;
    }
    QJsonObject req = typed("viewMessages");
    req.insert(QStringLiteral("chat_id"), chatId);
    req.insert(QStringLiteral("message_ids"), QJsonArray{id});
    req.insert(QStringLiteral("force_read"), true);
    request(out, req,
            Pending(QStringLiteral("plain"), chatId, id, 0, false, 0, QStringLiteral("read")));
}

void TdTranslator::cmdSend(const QStringList &a, const QString &, TdOutput *out)
{
    const QString kind = m_verb.left(m_verb.size() - 2); // send, sendfile, sendvoice, sendvideonote
    qint64 chatId = 0;
    backend_parse_id(a.value(0), &chatId);
    const QString tag = QStringLiteral("%1:%2").arg(kind).arg(chatId);
    if (a.isEmpty() || chatId == 0) {
        tdError(out, tag, 400, QStringLiteral("Chat not found"));
        return;
    }
    // The payload comes last except for voice notes, whose duration follows
    // it; an optional reply id sits right after the chat id.
    const bool voice = kind == QLatin1String("sendvoice");
    const int base = voice ? 3 : 2;
    if (a.size() != base && a.size() != base + 1) {
        tdError(out, tag, 400, QStringLiteral("Invalid arguments"));
        return;
    }
    qint64 replyTo = 0;
    if (a.size() == base + 1 && (!backend_parse_id(a.at(1), &replyTo) || replyTo < 0)) {
        tdError(out, tag, 400, QStringLiteral("Invalid reply id"));
        return;
    }
    const int payloadIdx = a.size() == base + 1 ? 2 : 1;
    QByteArray payload;
    if (!backend_decode_base64(a.at(payloadIdx), &payload)) {
        tdError(out, tag, 400, QStringLiteral("Invalid Base64"));
        return;
    }
    const QString text = QString::fromUtf8(payload);
    qint64 duration = 0;
    if (voice &&
        (!backend_parse_id(a.at(payloadIdx + 1), &duration) || duration < 1 || duration > 36000)) {
        tdError(out, tag, 400, QStringLiteral("Invalid duration"));
        return;
    }
    QJsonObject content;
    if (kind == QLatin1String("send")) {
        if (text.trimmed().isEmpty()) {
            tdError(out, tag, 400, QStringLiteral("Message text is empty"));
            return;
        }
        if (text.size() > kMaxTextChars) {
            tdError(out, tag, 400, QStringLiteral("MESSAGE_TOO_LONG"));
            return;
        }
        content = typed("inputMessageText");
        content.insert(QStringLiteral("text"), formattedText(text));
    } else {
        const QFileInfo fi(text);
        if (text.isEmpty() || text.contains(QChar(0)) || !fi.isAbsolute()) {
            tdError(out, tag, 400, QStringLiteral("File not found"));
            return;
        }
        const QString path = QDir::cleanPath(text);
        if (kind == QLatin1String("sendvoice")) {
            content = typed("inputMessageVoiceNote");
            content.insert(QStringLiteral("voice_note"), localFile(path));
            content.insert(QStringLiteral("duration"), int(duration));
            const QByteArray wave =
                m_config.voiceWaveform ? m_config.voiceWaveform(path) : QByteArray();
            content.insert(QStringLiteral("waveform"), QString::fromLatin1(wave.toBase64()));
        } else if (kind == QLatin1String("sendvideonote")) {
            content = typed("inputMessageVideoNote");
            content.insert(QStringLiteral("video_note"), localFile(path));
            content.insert(QStringLiteral("duration"), 0);
            content.insert(QStringLiteral("length"), 240);
        } else {
            const QString suffix = fi.suffix().toLower();
            static const QStringList photos{QStringLiteral("jpg"), QStringLiteral("jpeg"),
                                            QStringLiteral("png"), QStringLiteral("webp"),
                                            QStringLiteral("bmp")};
            static const QStringList videos{QStringLiteral("mp4"), QStringLiteral("mov"),
                                            QStringLiteral("webm"), QStringLiteral("mkv")};
            if (photos.contains(suffix)) {
                content = typed("inputMessagePhoto");
                content.insert(QStringLiteral("photo"), localFile(path));
            } else if (videos.contains(suffix)) {
                content = typed("inputMessageVideo");
                content.insert(QStringLiteral("video"), localFile(path));
                content.insert(QStringLiteral("supports_streaming"), true);
            } else {
                content = typed("inputMessageDocument");
                content.insert(QStringLiteral("document"), localFile(path));
            }
        }
        if (m_uploads.size() < kMaxFiles)
            m_uploads.insert(path);
    }
    QJsonObject req = typed("sendMessage");
    req.insert(QStringLiteral("chat_id"), chatId);
    if (replyTo > 0) {
        QJsonObject reply = typed("inputMessageReplyToMessage");
        reply.insert(QStringLiteral("message_id"), replyTo);
        req.insert(QStringLiteral("reply_to"), reply);
    }
    req.insert(QStringLiteral("input_message_content"), content);
    request(out, req, Pending(QStringLiteral("send"), chatId, 0, 0, false, 0, tag));
}

void TdTranslator::cmdEdit(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    qint64 id = 0;
    backend_parse_id(a.value(0), &chatId);
    backend_parse_id(a.value(1), &id);
    auto fail = [&](int code, const QString &msg) {
        QJsonObject e = errorEvent("edit_error", code, msg);
        e.insert(QStringLiteral("chat_id"), chatId);
        e.insert(QStringLiteral("id"), id);
        out->events << e;
    };
    QByteArray payload;
    if (a.size() != 3 || chatId == 0 || id < 1)
        return fail(400, QStringLiteral("Invalid arguments"));
    if (!backend_decode_base64(a.at(2), &payload))
        return fail(400, QStringLiteral("Invalid Base64"));
    const QString text = QString::fromUtf8(payload);
    if (text.trimmed().isEmpty())
        return fail(400, QStringLiteral("MESSAGE_EMPTY"));
    if (text.size() > kMaxTextChars)
        return fail(400, QStringLiteral("MESSAGE_TOO_LONG"));
    QJsonObject content = typed("inputMessageText");
    content.insert(QStringLiteral("text"), formattedText(text));
    QJsonObject req = typed("editMessageText");
    req.insert(QStringLiteral("chat_id"), chatId);
    req.insert(QStringLiteral("message_id"), id);
    req.insert(QStringLiteral("input_message_content"), content);
    request(out, req, Pending(QStringLiteral("edit"), chatId, id));
}

void TdTranslator::cmdReact(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    qint64 id = 0;
    backend_parse_id(a.value(0), &chatId);
    backend_parse_id(a.value(1), &id);
    const QString mode = a.value(3).left(16);
    const QString emoji = a.value(2).left(32);
    if (a.size() != 4 || chatId == 0 || id < 1 ||
        (mode != QLatin1String("add") && mode != QLatin1String("remove"))) {
        QJsonObject e = errorEvent("reaction_error", 400, QStringLiteral("Invalid arguments"));
        e.insert(QStringLiteral("chat_id"), chatId);
        e.insert(QStringLiteral("id"), id);
        e.insert(QStringLiteral("mode"), mode);
        out->events << e;
        return;
    }
    QJsonObject reaction = typed("reactionTypeEmoji");
    reaction.insert(QStringLiteral("emoji"), emoji);
    QJsonObject req =
        mode == QLatin1String("add") ? typed("addMessageReaction") : typed("removeMessageReaction");
    req.insert(QStringLiteral("chat_id"), chatId);
    req.insert(QStringLiteral("message_id"), id);
    req.insert(QStringLiteral("reaction_type"), reaction);
    if (mode == QLatin1String("add")) {
        req.insert(QStringLiteral("is_big"), false);
        req.insert(QStringLiteral("update_recent_reactions"), true);
    }
    Pending p{QStringLiteral("react"), chatId, id, 0, false, 0, mode};
    p.collected.append(emoji);
    request(out, req, p);
}

namespace {

// Ids after the first `skip` words; false when one is not a number.
bool idList(const QStringList &a, int skip, QList<qint64> *ids)
{
    for (int i = skip; i < a.size(); ++i) {
        qint64 id = 0;
        if (!backend_parse_id(a.at(i), &id))
            return false;
        if (id >= 1 && !ids->contains(id))
            ids->append(id);
    }
    return true;
}

} // namespace

void TdTranslator::cmdForward(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 to = 0;
    qint64 from = 0;
    const QString tag = QStringLiteral("forward:%1").arg(a.value(0).left(24));
    QList<qint64> ids;
    if (a.size() < 3 || a.size() > kMaxIds + 2 || !chatIdArg(a.at(0), &to) ||
        !chatIdArg(a.at(1), &from) || !idList(a, 2, &ids)) {
        tdError(out, tag, 400, QStringLiteral("Invalid arguments"));
        return;
    }
    if (ids.isEmpty()) {
        tdError(out, tag, 404, QStringLiteral("Messages not found"));
        return;
    }
    for (int first = 0; first < ids.size(); first += kServiceBatch) {
        QJsonObject req = typed("forwardMessages");
        req.insert(QStringLiteral("chat_id"), to);
        req.insert(QStringLiteral("from_chat_id"), from);
        req.insert(QStringLiteral("message_ids"), idArray(ids.mid(first, kServiceBatch)));
        req.insert(QStringLiteral("send_copy"), false);
        req.insert(QStringLiteral("remove_caption"), false);
        request(out, req, Pending(QStringLiteral("send"), to, 0, 0, false, 0, tag));
    }
}

void TdTranslator::cmdDelete(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    backend_parse_id(a.value(0), &chatId);
    const QString mode = a.value(1);
    QList<qint64> ids;
    if (a.size() < 3 || a.size() > kMaxIds + 2 || chatId == 0 ||
        (mode != QLatin1String("all") && mode != QLatin1String("self")) || !idList(a, 2, &ids) ||
        ids.isEmpty()) {
        QJsonObject e = errorEvent("delete_error", 400, QStringLiteral("Invalid arguments"));
        e.insert(QStringLiteral("chat_id"), chatId);
        e.insert(QStringLiteral("message_ids"), QJsonArray());
        out->events << e;
        return;
    }
    for (int first = 0; first < ids.size(); first += kServiceBatch) {
        const QList<qint64> batch = ids.mid(first, kServiceBatch);
        QJsonObject req = typed("deleteMessages");
        req.insert(QStringLiteral("chat_id"), chatId);
        req.insert(QStringLiteral("message_ids"), idArray(batch));
        req.insert(QStringLiteral("revoke"), mode == QLatin1String("all"));
        Pending p{QStringLiteral("delete"), chatId};
        p.collected = idArray(batch);
        request(out, req, p);
    }
}

void TdTranslator::cmdProps(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    qint64 id = 0;
    backend_parse_id(a.value(0), &chatId);
    backend_parse_id(a.value(1), &id);
    if (a.size() != 2 || chatId == 0 || id < 1) {
        QJsonObject e =
            errorEvent("message_properties_error", 400, QStringLiteral("Invalid arguments"));
        e.insert(QStringLiteral("chat_id"), chatId);
        e.insert(QStringLiteral("id"), id);
        out->events << e;
        return;
    }
    QJsonObject req = typed("getMessageProperties");
    req.insert(QStringLiteral("chat_id"), chatId);
    req.insert(QStringLiteral("message_id"), id);
    request(out, req, Pending(QStringLiteral("props"), chatId, id));
}

void TdTranslator::cmdPinnedList(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    qint64 limit = 0;
    if (a.size() != 2 || !chatIdArg(a.first(), &chatId) || !backend_parse_id(a.at(1), &limit) ||
        limit < 1 || limit > 1000) {
        tdError(out, QStringLiteral("pinned_list:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid arguments"));
        return;
    }
    QJsonObject req = typed("searchChatMessages");
    req.insert(QStringLiteral("chat_id"), chatId);
    req.insert(QStringLiteral("query"), QString());
    req.insert(QStringLiteral("from_message_id"), 0);
    req.insert(QStringLiteral("offset"), 0);
    req.insert(QStringLiteral("limit"), int(qMin<qint64>(limit, kTdPage)));
    req.insert(QStringLiteral("filter"), typed("searchMessagesFilterPinned"));
    request(out, req, Pending(QStringLiteral("pinned_list"), chatId, 0, limit));
}

void TdTranslator::cmdSearch(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    qint64 limit = 0;
    QByteArray query;
    if (a.size() != 3 || !backend_parse_id(a.at(0), &chatId) ||
        !backend_decode_base64(a.at(1), &query) || !backend_parse_id(a.at(2), &limit) ||
        limit < 1 || limit > 100) {
        tdError(out, QStringLiteral("search:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid search request"));
        return;
    }
    const qint64 req = ++m_searchReq;
    QString q = QString::fromUtf8(query).trimmed().left(256);
    if (q.startsWith(QLatin1Char('@')))
        q = q.mid(1);
    QJsonObject search = typed("searchPublicChats");
    search.insert(QStringLiteral("query"), q);
    request(out, search, Pending(QStringLiteral("search"), 0, 0, req, false, limit));
}

void TdTranslator::cmdChatAction(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    backend_parse_id(a.value(0), &chatId);
    const QString verb = m_verb;
    Pending p{QStringLiteral("action"), chatId, 0, 0, false, 0, verb};
    if (a.size() != 1 || chatId == 0) {
        onError(p, 400, QStringLiteral("Invalid arguments"), out);
        return;
    }
    const Chat c = m_chats.value(chatId);
    QJsonObject req;
    if (verb == QLatin1String("mute_toggle")) {
        QJsonObject settings = typed("chatNotificationSettings");
        // A year and more is "for ever" to TDLib.
        settings.insert(QStringLiteral("use_default_mute_for"), false);
        settings.insert(QStringLiteral("mute_for"), c.muted ? 0 : 366 * 24 * 3600);
        for (const char *key : {"use_default_sound", "use_default_show_preview",
                                "use_default_disable_pinned_message_notifications",
                                "use_default_disable_mention_notifications"})
            settings.insert(QLatin1String(key), true);
        req = typed("setChatNotificationSettings");
        req.insert(QStringLiteral("notification_settings"), settings);
        p.clear = !c.muted;
    } else if (verb == QLatin1String("clear_history")) {
        req = typed("deleteChatHistory");
        req.insert(QStringLiteral("remove_from_chat_list"), false);
        req.insert(QStringLiteral("revoke"), false);
    } else if (verb == QLatin1String("join")) {
        req = typed("joinChat");
    } else if (verb == QLatin1String("leave")) {
        if (c.type == QLatin1String("private") || c.type == QLatin1String("secret")) {
            onError(p, 400, QStringLiteral("Private chats can only be deleted"), out);
            return;
        }
        req = typed("leaveChat");
    } else if (c.type != QLatin1String("private") && c.type != QLatin1String("secret")) {
        // Deleting a group or channel means leaving it; a basic group's
        // history then goes too (its answer sends that).
        req = typed("leaveChat");
        p.rounds = c.type == QLatin1String("basic_group") ? 1 : 0;
    } else {
        req = typed("deleteChatHistory");
        req.insert(QStringLiteral("remove_from_chat_list"), true);
        req.insert(QStringLiteral("revoke"), false);
    }
    req.insert(QStringLiteral("chat_id"), chatId);
    request(out, req, p);
}

void TdTranslator::cmdChatInfo(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 chatId = 0;
    backend_parse_id(a.value(0), &chatId);
    const auto it = m_chats.constFind(chatId);
    if (a.size() != 1 || it == m_chats.cend()) {
        QJsonObject e = errorEvent("chat_info_error", 400,
                                   a.size() == 1 ? QStringLiteral("Chat not found")
                                                 : QStringLiteral("Invalid arguments"));
        e.insert(QStringLiteral("chat_id"), chatId);
        out->events << e;
        return;
    }
    QJsonObject req;
    if (it->type == QLatin1String("private") || it->type == QLatin1String("secret")) {
        req = typed("getUserFullInfo");
        req.insert(QStringLiteral("user_id"), it->peerUserId);
    } else if (it->type == QLatin1String("basic_group")) {
        req = typed("getBasicGroupFullInfo");
        req.insert(QStringLiteral("basic_group_id"), it->groupId);
    } else {
        req = typed("getSupergroupFullInfo");
        req.insert(QStringLiteral("supergroup_id"), it->groupId);
    }
    request(out, req, Pending(QStringLiteral("chat_info"), chatId));
}

void TdTranslator::cmdDownload(const QStringList &a, const QString &, TdOutput *out)
{
    qint64 fileId = 0;
    if (a.size() != 1 || !backend_parse_id(a.first(), &fileId) || fileId < 1 || fileId > INT_MAX) {
        tdError(out, QStringLiteral("download:%1").arg(a.value(0).left(24)), 400,
                QStringLiteral("Invalid file id"));
        return;
    }
    QJsonObject req = typed("downloadFile");
    req.insert(QStringLiteral("file_id"), fileId);
    // The file the user waits for goes first.
    req.insert(QStringLiteral("priority"), m_verb == QLatin1String("downloadp") ? 32 : 1);
    req.insert(QStringLiteral("offset"), 0);
    req.insert(QStringLiteral("limit"), 0);
    req.insert(QStringLiteral("synchronous"), false);
    request(out, req, Pending(QStringLiteral("download"), 0, fileId));
}

void TdTranslator::cmdResolve(const QStringList &a, const QString &, TdOutput *out)
{
    QString name = a.value(0).left(64);
    if (name.startsWith(QLatin1Char('@')))
        name = name.mid(1);
    static const QRegularExpression valid(QStringLiteral("^[A-Za-z][A-Za-z0-9_]{2,31}$"));
    if (a.size() != 1 || !valid.match(name).hasMatch()) {
        QJsonObject e = errorEvent("tg_resolve_error", 400, QStringLiteral("USERNAME_INVALID"));
        e.insert(QStringLiteral("username"), name);
        out->events << e;
        return;
    }
    QJsonObject req = typed("searchPublicChat");
    req.insert(QStringLiteral("username"), name);
    request(out, req, Pending(QStringLiteral("resolve"), 0, 0, 0, false, 0, name));
}

// ---------------------------------------------------------------- messages

namespace {

QString chatTypeName(const QJsonObject &type, qint64 *peer, qint64 *group)
{
    const QString t = td_json::type(type);
    if (t == QLatin1String("chatTypePrivate")) {
        *peer = i64(type, "user_id");
        return QStringLiteral("private");
    }
    if (t == QLatin1String("chatTypeSecret")) {
        *peer = i64(type, "user_id");
        return QStringLiteral("secret");
    }
    if (t == QLatin1String("chatTypeBasicGroup")) {
        *group = i64(type, "basic_group_id");
        return QStringLiteral("basic_group");
    }
    if (t == QLatin1String("chatTypeSupergroup")) {
        *group = i64(type, "supergroup_id");
        return flag(type, "is_channel") ? QStringLiteral("channel") : QStringLiteral("supergroup");
    }
    return QStringLiteral("private");
}

// The file's size as far as it is known.
qint64 fileSize(const QJsonObject &file)
{
    const qint64 size = i64(file, "size");
    return size > 0 ? size : i64(file, "expected_size");
}

// A file name from a message: its last part only, with no control
// characters, so it cannot name a place outside the folder it is saved in.
QString safeFileName(const QString &name)
{
    QString n = name.section(QLatin1Char('/'), -1).section(QLatin1Char('\\'), -1);
    for (QChar &c : n) {
        if (c.category() == QChar::Other_Control || c == QChar::LineSeparator ||
            c == QChar::ParagraphSeparator)
            c = QLatin1Char('_');
    }
    if (n.isEmpty() || n == QLatin1String(".") || n == QLatin1String(".."))
        n = QStringLiteral("file");
    return n.left(120);
}

QJsonArray reactionsJson(const QJsonObject &message)
{
    const QJsonObject info = obj(message, "interaction_info");
    QJsonValue r = val(info, "reactions");
    // Newer TDLib wraps the list in messageReactions.
    const QJsonArray list = r.isObject() ? arr(r.toObject(), "reactions") : r.toArray();
    QJsonArray out;
    for (const QJsonValue &v : list) {
        const QJsonObject one = v.toObject();
        const QJsonObject rt = obj(one, "type");
        const QString emoji = rt.isEmpty() ? str(one, "reaction") : str(rt, "emoji");
        if (emoji.isEmpty()) // custom emoji and paid stars have no emoji to show
            continue;
        QJsonObject o;
        o.insert(QStringLiteral("emoji"), emoji);
        o.insert(QStringLiteral("count"), int(i64(one, "total_count")));
        o.insert(QStringLiteral("chosen"), flag(one, "is_chosen"));
        out.append(o);
        if (out.size() >= 64)
            break;
    }
    return out;
}

struct Media
{
    QString type;
    QString name;
    QJsonObject file;
    QJsonObject thumb;
    int w = 0, h = 0, duration = 0;
};

// What the rows show of a message's content: its text or caption and its media.
QString contentText(const QJsonObject &content, Media *media)
{
    const QString t = td_json::type(content);
    const QString caption = str(obj(content, "caption"), "text");
    if (t == QLatin1String("messageText"))
        return str(obj(content, "text"), "text");
    if (t == QLatin1String("messagePhoto")) {
        const QJsonArray sizes = arr(obj(content, "photo"), "sizes");
        if (!sizes.isEmpty()) {
            const QJsonObject big = sizes.last().toObject();
            media->type = QStringLiteral("photo");
            media->file = obj(big, "photo");
            media->w = int(i64(big, "width"));
            media->h = int(i64(big, "height"));
            media->thumb = obj(sizes.first().toObject(), "photo");
        }
        return caption;
    }
    if (t == QLatin1String("messageVideo") || t == QLatin1String("messageAnimation")) {
        const bool video = t == QLatin1String("messageVideo");
        const QJsonObject v = obj(content, video ? "video" : "animation");
        media->type = QStringLiteral("video");
        media->file = obj(v, video ? "video" : "animation");
        media->w = int(i64(v, "width"));
        media->h = int(i64(v, "height"));
        media->duration = int(i64(v, "duration"));
        media->thumb = obj(obj(v, "thumbnail"), "file");
        media->name = str(v, "file_name");
        return caption;
    }
    if (t == QLatin1String("messageVoiceNote")) {
        const QJsonObject v = obj(content, "voice_note");
        media->type = QStringLiteral("voice");
        media->file = obj(v, "voice");
        media->duration = int(i64(v, "duration"));
        return caption;
    }
    if (t == QLatin1String("messageVideoNote")) {
        const QJsonObject v = obj(content, "video_note");
        media->type = QStringLiteral("video_note");
        media->file = obj(v, "video");
        media->w = media->h = int(i64(v, "length"));
        media->duration = int(i64(v, "duration"));
        media->thumb = obj(obj(v, "thumbnail"), "file");
        return QString();
    }
    if (t == QLatin1String("messageDocument") || t == QLatin1String("messageAudio")) {
        const bool doc = t == QLatin1String("messageDocument");
        const QJsonObject d = obj(content, doc ? "document" : "audio");
        media->type = QStringLiteral("file");
        media->file = obj(d, doc ? "document" : "audio");
        media->name = str(d, "file_name");
        media->duration = int(i64(d, "duration"));
        media->thumb = obj(obj(d, "thumbnail"), "file");
        return caption;
    }
    if (t == QLatin1String("messageSticker"))
        return str(obj(content, "sticker"), "emoji");
    return caption;
}

} // namespace

QString TdTranslator::senderName(const QJsonObject &sender) const
{
    if (type(sender) == QLatin1String("messageSenderUser")) {
        const User u = m_users.value(i64(sender, "user_id"));
        return fullName(u);
    }
    return m_chats.value(i64(sender, "chat_id")).title;
}

qint64 TdTranslator::senderPhoto(const QJsonObject &sender) const
{
    if (type(sender) == QLatin1String("messageSenderUser"))
        return m_users.value(i64(sender, "user_id")).photoSmallId;
    return m_chats.value(i64(sender, "chat_id")).photoSmallId;
}

QJsonObject TdTranslator::messageJson(const QJsonObject &m) const
{
    QJsonObject o;
    o.insert(QStringLiteral("chat_id"), i64(m, "chat_id"));
    o.insert(QStringLiteral("id"), i64(m, "id"));
    o.insert(QStringLiteral("date"), i64(m, "date"));
    o.insert(QStringLiteral("outgoing"), flag(m, "is_outgoing"));
    const QString sending = type(obj(m, "sending_state"));
    if (sending == QLatin1String("messageSendingStatePending"))
        o.insert(QStringLiteral("sending_state"), QStringLiteral("pending"));
    else if (sending == QLatin1String("messageSendingStateFailed"))
        o.insert(QStringLiteral("sending_state"), QStringLiteral("failed"));
    const QJsonObject content = obj(m, "content");
    Media media;
    const QString text = contentText(content, &media);
    o.insert(QStringLiteral("content_type"), type(content));
    o.insert(QStringLiteral("text"), text);
    const QJsonObject sender = obj(m, "sender_id");
    const bool fromUser = type(sender) == QLatin1String("messageSenderUser");
    o.insert(QStringLiteral("sender_user_id"), fromUser ? i64(sender, "user_id") : qint64(0));
    o.insert(QStringLiteral("sender_name"), senderName(sender));
    o.insert(QStringLiteral("sender_photo_small_id"), senderPhoto(sender));
    // Newer TDLib says what is answered in reply_to, older in reply_to_message_id.
    const QJsonObject reply = obj(m, "reply_to");
    qint64 replyTo = i64(m, "reply_to_message_id");
    if (type(reply) == QLatin1String("messageReplyToMessage") &&
        (i64(reply, "chat_id") == 0 || i64(reply, "chat_id") == i64(m, "chat_id")))
        replyTo = i64(reply, "message_id");
    if (replyTo > 0)
        o.insert(QStringLiteral("reply_to_message_id"), replyTo);
    const QJsonObject forward = obj(m, "forward_info");
    if (!forward.isEmpty()) {
        const QJsonObject origin = obj(forward, "origin");
        const QString ot = type(origin);
        QString from;
        if (ot.endsWith(QLatin1String("HiddenUser"))) {
            from = str(origin, "sender_name");
        } else if (ot.endsWith(QLatin1String("User"))) {
            from = fullName(m_users.value(i64(origin, "sender_user_id")));
        } else if (ot.endsWith(QLatin1String("Chat"))) {
            from = m_chats.value(i64(origin, "sender_chat_id")).title;
        } else if (ot.endsWith(QLatin1String("Channel"))) {
            from = m_chats.value(i64(origin, "chat_id")).title;
        }
        o.insert(QStringLiteral("forwarded"), from.isEmpty() ? QStringLiteral("Unknown") : from);
    }
    if (!media.type.isEmpty()) {
        o.insert(QStringLiteral("media_type"), media.type);
        if (!media.name.isEmpty())
            o.insert(QStringLiteral("media_name"), safeFileName(media.name));
        o.insert(QStringLiteral("media_size"), fileSize(media.file));
        if (media.w > 0)
            o.insert(QStringLiteral("media_w"), media.w);
        if (media.h > 0)
            o.insert(QStringLiteral("media_h"), media.h);
        if (media.duration > 0)
            o.insert(QStringLiteral("media_duration"), media.duration);
        o.insert(QStringLiteral("media_file_id"), i64(media.file, "id"));
        if (i64(media.thumb, "id") > 0)
            o.insert(QStringLiteral("media_thumb_file_id"), i64(media.thumb, "id"));
    }
    if (i64(m, "edit_date") > 0)
        o.insert(QStringLiteral("edit_date"), i64(m, "edit_date"));
    const QJsonArray reactions = reactionsJson(m);
    if (!reactions.isEmpty())
        o.insert(QStringLiteral("reactions"), reactions);
    return o;
}

void TdTranslator::emitHistory(const Pending &p, const QJsonArray &messages, TdOutput *out)
{
    if (m_gen.size() >= kMaxChats && !m_gen.contains(p.chatId))
        m_gen.clear(); // a chat opened again starts a new generation anyway
    int &gen = m_gen[p.chatId];
    if (p.clear || gen == 0)
        ++gen;
    QJsonObject begin = withChat("history_begin", p.chatId);
    begin.insert(QStringLiteral("gen"), gen);
    begin.insert(QStringLiteral("clear"), p.clear);
    begin.insert(QStringLiteral("from_message_id"), p.messageId);
    out->events << begin;
    // TDLib answers newest first; the events go oldest first.
    QList<qint64> seen;
    QList<QJsonObject> rows;
    for (const QJsonValue &v : messages) {
        const QJsonObject m = v.toObject();
        const qint64 id = i64(m, "id");
        if (id == 0 || seen.contains(id))
            continue;
        // Paging older never repeats the message it starts from.
        if (!p.clear && p.from > 0 && id >= p.from)
            continue;
        seen << id;
        QJsonObject row = messageJson(m);
        row.insert(QStringLiteral("type"), QStringLiteral("message"));
        row.insert(QStringLiteral("gen"), gen);
        rows.prepend(row);
    }
    std::stable_sort(rows.begin(), rows.end(), [](const QJsonObject &a, const QJsonObject &b) {
        return i64(a, "id") < i64(b, "id");
    });
    out->events += rows;
    QJsonObject end = withChat("history_end", p.chatId);
    end.insert(QStringLiteral("gen"), gen);
    end.insert(QStringLiteral("clear"), p.clear);
    end.insert(QStringLiteral("count"), rows.size());
    out->events << end;
}

// ---------------------------------------------------------------- chats and users

void TdTranslator::storeChat(const QJsonObject &o)
{
    const qint64 id = i64(o, "id");
    if (id == 0 || (!m_chats.contains(id) && m_chats.size() >= kMaxChats))
        return;
    Chat &c = m_chats[id];
    c.id = id;
    c.title = str(o, "title");
    c.type = chatTypeName(obj(o, "type"), &c.peerUserId, &c.groupId);
    c.photoSmallId = i64(obj(obj(o, "photo"), "small"), "id");
    c.unread = int(i64(o, "unread_count"));
    c.lastReadOutbox = i64(o, "last_read_outbox_message_id");
    c.muted = i64(obj(o, "notification_settings"), "mute_for") > 0;
    c.lastMessage = obj(o, "last_message");
    c.availableReactions = obj(o, "available_reactions");
    c.permissions = obj(o, "permissions");
    setPositions(&c, arr(o, "positions"));
}

bool TdTranslator::setPosition(Chat *c, const QJsonObject &position)
{
    // Only the main list is shown; archive and folders are not.
    if (type(obj(position, "list")) != QLatin1String("chatListMain"))
        return false;
    c->order = i64(position, "order");
    c->pinned = c->order != 0 && flag(position, "is_pinned");
    return true;
}

void TdTranslator::setPositions(Chat *c, const QJsonArray &positions)
{
    c->order = 0;
    c->pinned = false;
    for (const QJsonValue &v : positions)
        setPosition(c, v.toObject());
}

QList<qint64> TdTranslator::mainList() const
{
    QList<const Chat *> rows;
    for (const Chat &c : m_chats) {
        if (c.order != 0)
            rows << &c;
    }
    std::sort(rows.begin(), rows.end(), [](const Chat *a, const Chat *b) {
        if (a->order != b->order)
            return a->order > b->order;
        return a->id > b->id;
    });
    QList<qint64> ids;
    for (const Chat *c : rows)
        ids << c->id;
    return ids;
}

void TdTranslator::storeUser(const QJsonObject &o)
{
    const qint64 id = i64(o, "id");
    if (id == 0 || (!m_users.contains(id) && m_users.size() >= kMaxUsers))
        return;
    User &u = m_users[id];
    u.id = id;
    u.firstName = str(o, "first_name");
    u.lastName = str(o, "last_name");
    const QJsonArray active = arr(obj(o, "usernames"), "active_usernames");
    u.username = active.isEmpty() ? str(o, "username") : active.first().toString();
    u.phone = str(o, "phone_number");
    u.photoSmallId = i64(obj(obj(o, "profile_photo"), "small"), "id");
    if (val(o, "status").isObject())
        setStatus(&u, obj(o, "status"));
}

void TdTranslator::setStatus(User *u, const QJsonObject &status)
{
    const QString t = type(status);
    u->wasOnline = 0;
    u->expires = 0;
    if (t == QLatin1String("userStatusOnline")) {
        u->statusType = QStringLiteral("online");
        u->expires = i64(status, "expires");
    } else if (t == QLatin1String("userStatusOffline")) {
        u->statusType = QStringLiteral("offline");
        u->wasOnline = i64(status, "was_online");
    } else if (t == QLatin1String("userStatusRecently")) {
        u->statusType = QStringLiteral("recently");
    } else if (t == QLatin1String("userStatusLastWeek")) {
        u->statusType = QStringLiteral("last_week");
    } else if (t == QLatin1String("userStatusLastMonth")) {
        u->statusType = QStringLiteral("last_month");
    } else {
        u->statusType = QStringLiteral("empty");
    }
}

QJsonObject TdTranslator::userEvent(const User &u) const
{
    QJsonObject o = event("user");
    o.insert(QStringLiteral("id"), u.id);
    o.insert(QStringLiteral("name"), fullName(u));
    o.insert(QStringLiteral("first_name"), u.firstName);
    o.insert(QStringLiteral("last_name"), u.lastName);
    o.insert(QStringLiteral("username"), u.username);
    o.insert(QStringLiteral("photo_small_id"), u.photoSmallId);
    o.insert(QStringLiteral("status_type"), u.statusType);
    o.insert(QStringLiteral("was_online"), u.wasOnline);
    o.insert(QStringLiteral("expires"), u.expires);
    return o;
}

QJsonObject TdTranslator::meEvent(const User &u) const
{
    QJsonObject o = event("me");
    o.insert(QStringLiteral("id"), u.id);
    o.insert(QStringLiteral("first_name"), u.firstName);
    o.insert(QStringLiteral("last_name"), u.lastName);
    o.insert(QStringLiteral("username"), u.username);
    o.insert(QStringLiteral("phone"), u.phone);
    o.insert(QStringLiteral("photo_small_id"), u.photoSmallId);
    return o;
}

QString TdTranslator::chatUsername(const Chat &c) const
{
    if (c.peerUserId != 0)
        return m_users.value(c.peerUserId).username;
    if (c.type == QLatin1String("supergroup") || c.type == QLatin1String("channel"))
        return m_supergroups.value(c.groupId).username;
    return QString();
}

QJsonObject TdTranslator::chatEvent(const Chat &c) const
{
    QJsonObject o = event("chat");
    o.insert(QStringLiteral("id"), c.id);
    o.insert(QStringLiteral("title"), c.title);
    o.insert(QStringLiteral("chat_type"), c.type);
    const QString username = chatUsername(c);
    if (!username.isEmpty())
        o.insert(QStringLiteral("username"), username);
    o.insert(QStringLiteral("muted_known"), true);
    o.insert(QStringLiteral("muted"), c.muted);
    if (c.photoSmallId > 0)
        o.insert(QStringLiteral("photo_small_id"), c.photoSmallId);
    o.insert(QStringLiteral("order"), QString::number(c.order));
    o.insert(QStringLiteral("pinned"), c.pinned);
    o.insert(QStringLiteral("unread_count"), c.unread);
    if (!c.lastMessage.isEmpty()) {
        const QJsonObject last = messageJson(c.lastMessage);
        o.insert(QStringLiteral("last_text"), last.value(QStringLiteral("text")));
        o.insert(QStringLiteral("last_content_type"), last.value(QStringLiteral("content_type")));
        o.insert(QStringLiteral("last_date"), last.value(QStringLiteral("date")));
        o.insert(QStringLiteral("last_message_id"), last.value(QStringLiteral("id")));
        o.insert(QStringLiteral("last_outgoing"), last.value(QStringLiteral("outgoing")));
    }
    o.insert(QStringLiteral("last_read_outbox_message_id"), c.lastReadOutbox);
    return o;
}

QJsonObject TdTranslator::chatLastMessageEvent(const Chat &c) const
{
    QJsonObject o = withChat("chat_last_message", c.id);
    if (!c.lastMessage.isEmpty()) {
        const QJsonObject last = messageJson(c.lastMessage);
        o.insert(QStringLiteral("message_id"), last.value(QStringLiteral("id")));
        o.insert(QStringLiteral("date"), last.value(QStringLiteral("date")));
        o.insert(QStringLiteral("content_type"), last.value(QStringLiteral("content_type")));
        o.insert(QStringLiteral("text"), last.value(QStringLiteral("text")));
        o.insert(QStringLiteral("outgoing"), last.value(QStringLiteral("outgoing")));
    } else {
        o.insert(QStringLiteral("message_id"), 0);
        o.insert(QStringLiteral("content_type"), QString());
        o.insert(QStringLiteral("text"), QString());
        o.insert(QStringLiteral("outgoing"), false);
    }
    return o;
}

QJsonObject TdTranslator::chatInfoEvent(const Chat &c, const QJsonObject &full) const
{
    QJsonObject o = withChat("chat_info", c.id);
    const QJsonValue bio = val(full, "bio");
    QString about = bio.isObject() ? str(bio.toObject(), "text") : bio.toString();
    if (about.isEmpty())
        about = str(full, "description");
    o.insert(QStringLiteral("about"), about);
    const QString username = chatUsername(c);
    o.insert(QStringLiteral("username"), username);
    o.insert(QStringLiteral("link"),
             username.isEmpty() ? QString() : QStringLiteral("https://t.me/") + username);
    o.insert(QStringLiteral("phone"), c.peerUserId ? m_users.value(c.peerUserId).phone : QString());
    qint64 members = i64(full, "member_count");
    if (members == 0 && val(full, "members").isArray())
        members = arr(full, "members").size();
    if (c.type == QLatin1String("basic_group") && members == 0)
        members = m_basicGroups.value(c.groupId).memberCount;
    if ((c.type == QLatin1String("supergroup") || c.type == QLatin1String("channel")) &&
        members == 0)
        members = m_supergroups.value(c.groupId).memberCount;
    o.insert(QStringLiteral("member_count"), members);
    o.insert(QStringLiteral("user_id"), c.peerUserId);
    bool member = true;
    bool canSend = true;
    if (c.peerUserId == 0) {
        const Group g = c.type == QLatin1String("basic_group") ? m_basicGroups.value(c.groupId)
                                                               : m_supergroups.value(c.groupId);
        member = g.member;
        // Channels take posts from their administrators only; groups from
        // every member their permissions let write.
        const QJsonValue basic = val(c.permissions, "can_send_basic_messages");
        const bool allowed =
            c.type == QLatin1String("channel") ? false : (basic.isBool() ? basic.toBool() : true);
        canSend = member && (g.admin || allowed);
    }
    o.insert(QStringLiteral("is_member"), member);
    o.insert(QStringLiteral("can_send"), canSend);
    const QString rt = type(c.availableReactions);
    QJsonArray emojis;
    for (const QJsonValue &v : arr(c.availableReactions, "reactions")) {
        const QString e = str(v.toObject(), "emoji");
        if (!e.isEmpty())
            emojis.append(e);
    }
    o.insert(QStringLiteral("available_reactions_all"),
             rt.isEmpty() || rt == QLatin1String("chatAvailableReactionsAll"));
    o.insert(QStringLiteral("available_reactions"), emojis);
    return o;
}

bool TdTranslator::safeLocalPath(const QString &path) const
{
    if (path.isEmpty() || !QDir::isAbsolutePath(path) || path.contains(QLatin1Char('\n')) ||
        path.contains(QLatin1Char('\r')) || path.contains(QChar(0)))
        return false;
    const QString clean = QDir::cleanPath(path);
    if (clean != path)
        return false;
    // TDLib keeps what it downloads in its files folder; what the user sent
    // comes back under the path it was sent from.
    const QString root = QDir::cleanPath(m_config.filesDir);
    return (!root.isEmpty() && clean.startsWith(root + QLatin1Char('/'))) ||
           m_uploads.contains(clean);
}

void TdTranslator::onFile(const QJsonObject &file, bool asked, TdOutput *out)
{
    const qint64 id = i64(file, "id");
    if (id <= 0)
        return;
    const QJsonObject local = obj(file, "local");
    const bool done = flag(local, "is_downloading_completed");
    const QString path = str(local, "path");
    if (done) {
        if (!safeLocalPath(path))
            return;
        const auto known = m_files.constFind(id);
        if (!asked && known != m_files.cend() && known->done && known->path == path)
            return; // told already
        if (m_files.size() >= kMaxFiles && !m_files.contains(id))
            m_files.clear();
        m_files.insert(id, FileState{path, true});
        QJsonObject o = event("file");
        o.insert(QStringLiteral("id"), id);
        o.insert(QStringLiteral("path"), path);
        o.insert(QStringLiteral("size"), fileSize(file));
        out->events << o;
        return;
    }
    if (flag(local, "is_downloading_active")) {
        QJsonObject o = event("file_progress");
        o.insert(QStringLiteral("id"), id);
        o.insert(QStringLiteral("downloaded"), i64(local, "downloaded_size"));
        o.insert(QStringLiteral("total"), fileSize(file));
        out->events << o;
    }
}

void TdTranslator::storeGroup(QHash<qint64, Group> *table, const QJsonObject &o)
{
    const qint64 id = i64(o, "id");
    if (id == 0 || (!table->contains(id) && table->size() >= kMaxChats))
        return;
    Group &g = (*table)[id];
    const QJsonArray active = arr(obj(o, "usernames"), "active_usernames");
    g.username = active.isEmpty() ? str(o, "username") : active.first().toString();
    g.memberCount = i64(o, "member_count");
    const QString status = type(obj(o, "status"));
    g.member = status != QLatin1String("chatMemberStatusLeft") &&
               status != QLatin1String("chatMemberStatusBanned") &&
               !(status == QLatin1String("chatMemberStatusRestricted") &&
                 !flag(obj(o, "status"), "is_member"));
    g.admin = status == QLatin1String("chatMemberStatusCreator") ||
              status == QLatin1String("chatMemberStatusAdministrator");
}

// ---------------------------------------------------------------- updates

void TdTranslator::onUpdate(const QString &t, const QJsonObject &o, TdOutput *out)
{
    const qint64 chatId = i64(o, "chat_id");
    const auto chat = m_chats.find(chatId);
    const bool known = chat != m_chats.end();
    if (t == QLatin1String("updateAuthorizationState")) {
        onAuthorizationState(obj(o, "authorization_state"), out);
    } else if (t == QLatin1String("updateNewChat")) {
        const QJsonObject c = obj(o, "chat");
        storeChat(c);
        const auto it = m_chats.constFind(i64(c, "id"));
        if (m_chatsListed && it != m_chats.cend() && it->order != 0)
            out->events << chatEvent(*it);
    } else if (t == QLatin1String("updateChatPosition") ||
               t == QLatin1String("updateChatLastMessage")) {
        if (!known)
            return;
        const qint64 before = chat->order;
        bool moved = false;
        if (t == QLatin1String("updateChatLastMessage")) {
            chat->lastMessage = obj(o, "last_message");
            out->events << chatLastMessageEvent(*chat);
            for (const QJsonValue &v : arr(o, "positions"))
                moved = setPosition(&*chat, v.toObject()) || moved;
        } else {
            moved = setPosition(&*chat, obj(o, "position"));
        }
        if (!moved)
            return;
        if (before == 0 && chat->order != 0 && m_chatsListed) {
            out->events << chatEvent(*chat); // entered the list
        } else if (before != 0 || chat->order != 0) {
            QJsonObject p = withChat("chat_position", chatId);
            p.insert(QStringLiteral("order"), QString::number(chat->order));
            p.insert(QStringLiteral("pinned"), chat->pinned);
            out->events << p;
        }
    } else if (t == QLatin1String("updateChatReadInbox")) {
        if (!known)
            return;
        chat->unread = int(i64(o, "unread_count"));
        QJsonObject e = withChat("chat_unread", chatId);
        e.insert(QStringLiteral("unread_count"), chat->unread);
        out->events << e;
    } else if (t == QLatin1String("updateChatReadOutbox")) {
        if (!known)
            return;
        chat->lastReadOutbox = i64(o, "last_read_outbox_message_id");
        QJsonObject e = withChat("chat_read_outbox", chatId);
        e.insert(QStringLiteral("last_read_outbox_message_id"), chat->lastReadOutbox);
        out->events << e;
    } else if (t == QLatin1String("updateChatTitle")) {
        if (!known)
            return;
        chat->title = str(o, "title");
        QJsonObject e = withChat("chat_title", chatId);
        e.insert(QStringLiteral("title"), chat->title);
        out->events << e;
    } else if (t == QLatin1String("updateChatPhoto")) {
        if (!known)
            return;
        chat->photoSmallId = i64(obj(obj(o, "photo"), "small"), "id");
        if (m_chatsListed && chat->order != 0)
            out->events << chatEvent(*chat);
    } else if (t == QLatin1String("updateChatNotificationSettings")) {
        if (!known)
            return;
        chat->muted = i64(obj(o, "notification_settings"), "mute_for") > 0;
        QJsonObject e = withChat("chat_notify", chatId);
        e.insert(QStringLiteral("muted_known"), true);
        e.insert(QStringLiteral("muted"), chat->muted);
        out->events << e;
    } else if (t == QLatin1String("updateChatAvailableReactions")) {
        if (known)
            chat->availableReactions = obj(o, "available_reactions");
    } else if (t == QLatin1String("updateChatPermissions")) {
        if (known)
            chat->permissions = obj(o, "permissions");
    } else if (t == QLatin1String("updateChatOnlineMemberCount")) {
        QJsonObject e = withChat("chat_online_count", chatId);
        e.insert(QStringLiteral("count"), i64(o, "online_member_count"));
        out->events << e;
    } else if (t == QLatin1String("updateUser")) {
        storeUser(obj(o, "user"));
        const qint64 id = i64(obj(o, "user"), "id");
        if (m_users.contains(id)) {
            out->events << userEvent(m_users.value(id));
            if (id == m_myId)
                out->events << meEvent(m_users.value(id));
        }
    } else if (t == QLatin1String("updateUserStatus")) {
        const auto u = m_users.find(i64(o, "user_id"));
        if (u == m_users.end())
            return;
        setStatus(&*u, obj(o, "status"));
        out->events << userEvent(*u);
    } else if (t == QLatin1String("updateBasicGroup")) {
        storeGroup(&m_basicGroups, obj(o, "basic_group"));
    } else if (t == QLatin1String("updateSupergroup")) {
        storeGroup(&m_supergroups, obj(o, "supergroup"));
    } else if (t == QLatin1String("updateNewMessage")) {
        QJsonObject e = messageJson(obj(o, "message"));
        e.insert(QStringLiteral("type"), QStringLiteral("message_new"));
        out->events << e;
    } else if (t == QLatin1String("updateMessageSendAcknowledged")) {
        QJsonObject e = withChat("message_send_acked", chatId);
        e.insert(QStringLiteral("id"), i64(o, "message_id"));
        out->events << e;
    } else if (t == QLatin1String("updateMessageSendSucceeded")) {
        const QJsonObject m = obj(o, "message");
        const qint64 oldId = i64(o, "old_message_id");
        m_sendTags.remove(oldId);
        QJsonObject e = withChat("message_send_succeeded", i64(m, "chat_id"));
        e.insert(QStringLiteral("old_id"), oldId);
        e.insert(QStringLiteral("new_id"), i64(m, "id"));
        e.insert(QStringLiteral("date"), i64(m, "date"));
        out->events << e;
    } else if (t == QLatin1String("updateMessageSendFailed")) {
        const QJsonObject m = obj(o, "message");
        const qint64 oldId = i64(o, "old_message_id");
        const qint64 cid = i64(m, "chat_id");
        // Newer TDLib gives an error object, older its code and message.
        const QJsonObject err = obj(o, "error");
        const int code = int(err.isEmpty() ? i64(o, "error_code") : i64(err, "code"));
        const QString message = err.isEmpty() ? str(o, "error_message") : str(err, "message");
        QJsonObject e = withChat("message_send_failed", cid);
        e.insert(QStringLiteral("old_id"), oldId);
        e.insert(QStringLiteral("error_code"), code);
        e.insert(QStringLiteral("error_message"), message);
        out->events << e;
        const QString tag = m_sendTags.take(oldId);
        tdError(out, tag.isEmpty() ? QStringLiteral("send:%1").arg(cid) : tag, code, message);
    } else if (t == QLatin1String("updateMessageContent")) {
        QJsonObject m;
        m.insert(QStringLiteral("chat_id"), chatId);
        m.insert(QStringLiteral("id"), i64(o, "message_id"));
        m.insert(QStringLiteral("content"), obj(o, "new_content"));
        QJsonObject e = withChat("message_update", chatId);
        e.insert(QStringLiteral("id"), i64(o, "message_id"));
        e.insert(QStringLiteral("text"), messageJson(m).value(QStringLiteral("text")));
        out->events << e;
        if (known && i64(chat->lastMessage, "id") == i64(o, "message_id")) {
            chat->lastMessage.insert(QStringLiteral("content"), obj(o, "new_content"));
            out->events << chatLastMessageEvent(*chat);
        }
    } else if (t == QLatin1String("updateMessageInteractionInfo")) {
        QJsonObject m;
        m.insert(QStringLiteral("interaction_info"), obj(o, "interaction_info"));
        QJsonObject e = withChat("message_reactions", chatId);
        e.insert(QStringLiteral("id"), i64(o, "message_id"));
        e.insert(QStringLiteral("reactions"), reactionsJson(m));
        out->events << e;
    } else if (t == QLatin1String("updateDeleteMessages")) {
        // Messages dropped from the cache only are still there.
        if (!flag(o, "is_permanent") || flag(o, "from_cache"))
            return;
        QJsonObject e = withChat("messages_deleted", chatId);
        e.insert(QStringLiteral("message_ids"), arr(o, "message_ids"));
        out->events << e;
    } else if (t == QLatin1String("updateMessageIsPinned") ||
               t == QLatin1String("updateChatHasProtectedContent")) {
        if (t == QLatin1String("updateMessageIsPinned") && chatId == m_openChat) {
            QJsonObject req = typed("getChatPinnedMessage");
            req.insert(QStringLiteral("chat_id"), chatId);
            request(out, req, Pending(QStringLiteral("pinned"), chatId));
        }
    } else if (t == QLatin1String("updateFile")) {
        onFile(obj(o, "file"), false, out);
    } else if (t == QLatin1String("updateConnectionState")) {
        m_connectionState = td_one_line(stripPrefix(type(obj(o, "state")), "connectionState"));
        QJsonObject e = event("connection_state");
        e.insert(QStringLiteral("state"), m_connectionState);
        out->events << e;
    } else if (t == QLatin1String("updateCall")) {
        const QJsonObject call = obj(o, "call");
        QJsonObject e = event("call_update");
        e.insert(QStringLiteral("call_id"), i64(call, "id"));
        e.insert(QStringLiteral("user_id"), i64(call, "user_id"));
        e.insert(QStringLiteral("outgoing"), flag(call, "is_outgoing"));
        e.insert(QStringLiteral("state"),
                 stripPrefix(type(obj(call, "state")), "callState").toLower());
        out->events << e;
    } else if (t == QLatin1String("updateNewCallSignalingData")) {
        // Calls have no user interface: only their traffic is logged.
        QJsonObject e = event("call_signaling");
        e.insert(QStringLiteral("call_id"), i64(o, "call_id"));
        e.insert(QStringLiteral("b64_len"), str(o, "data").size());
        out->events << e;
    }
}

// ---------------------------------------------------------------- answers

void TdTranslator::onAnswer(const Pending &p, const QJsonObject &o, TdOutput *out)
{
    const QString &k = p.kind;
    if (k == QLatin1String("proxy")) {
        if (!m_config.networkNone)
            setNetwork(out, "networkTypeOther");
    } else if (k == QLatin1String("me")) {
        storeUser(o);
        m_myId = i64(o, "id");
        if (!m_users.contains(m_myId))
            return;
        out->events << meEvent(m_users.value(m_myId));
        out->statusLines << QStringLiteral("ME id=%1").arg(m_myId);
    } else if (k == QLatin1String("chats")) {
        // Everything TDLib had to tell about the chats came before this answer.
        const QList<qint64> ids = mainList();
        out->events << event("chats_begin");
        QList<qint64> peers;
        for (int i = 0; i < ids.size() && i < p.number; ++i) {
            const Chat &c = m_chats[ids.at(i)];
            out->events << chatEvent(c);
            if (c.peerUserId != 0 && !peers.contains(c.peerUserId))
                peers << c.peerUserId;
        }
        out->events << event("chats_end");
        m_chatsListed = true;
        for (qint64 peer : qAsConst(peers)) {
            if (m_users.contains(peer))
                out->events << userEvent(m_users.value(peer));
        }
    } else if (k == QLatin1String("history")) {
        Pending next = p;
        const QJsonArray got = arr(o, "messages");
        for (const QJsonValue &v : got)
            next.collected.append(v);
        // TDLib answers with what it has at hand; ask on from the oldest one
        // until the page is full, the history ends, nothing older comes or
        // the rounds run out.
        qint64 oldest = 0;
        for (const QJsonValue &v : got) {
            const qint64 id = i64(v.toObject(), "id");
            if (id > 0 && (oldest == 0 || id < oldest))
                oldest = id;
        }
        const bool progress = oldest > 0 && (p.oldest == 0 || oldest < p.oldest);
        if (progress && p.text.toInt() == 0 && next.collected.size() < p.number &&
            p.rounds + 1 < kHistoryRounds) {
            QJsonObject req = typed("getChatHistory");
            req.insert(QStringLiteral("chat_id"), p.chatId);
            req.insert(QStringLiteral("from_message_id"), oldest);
            req.insert(QStringLiteral("offset"), 0);
            req.insert(QStringLiteral("limit"),
                       int(qMin<qint64>(kTdPage, p.number - next.collected.size() + 1)));
            req.insert(QStringLiteral("only_local"), false);
            ++next.rounds;
            next.oldest = oldest;
            request(out, req, next);
            return;
        }
        emitHistory(p, next.collected, out);
    } else if (k == QLatin1String("pinned")) {
        QJsonObject e = withChat("pinned_message", p.chatId);
        const QJsonObject m = messageJson(o);
        e.insert(QStringLiteral("id"), m.value(QStringLiteral("id")));
        e.insert(QStringLiteral("text"), m.value(QStringLiteral("text")));
        e.insert(QStringLiteral("content_type"), m.value(QStringLiteral("content_type")));
        out->events << e;
    } else if (k == QLatin1String("pinned_list")) {
        out->events << withChat("pinned_list_begin", p.chatId);
        int n = 0;
        for (const QJsonValue &v : arr(o, "messages")) {
            if (n++ >= p.number)
                break;
            const QJsonObject m = messageJson(v.toObject());
            QJsonObject e = withChat("pinned_list_item", p.chatId);
            e.insert(QStringLiteral("id"), m.value(QStringLiteral("id")));
            e.insert(QStringLiteral("text"), m.value(QStringLiteral("text")));
            e.insert(QStringLiteral("content_type"), m.value(QStringLiteral("content_type")));
            out->events << e;
        }
        out->events << withChat("pinned_list_end", p.chatId);
    } else if (k == QLatin1String("send")) {
        // The message itself arrives as updateNewMessage; the answers keep
        // the tag for a later failure.
        const QJsonArray sent =
            type(o) == QLatin1String("messages") ? arr(o, "messages") : QJsonArray{o};
        for (const QJsonValue &v : sent) {
            const qint64 id = i64(v.toObject(), "id");
            if (id != 0 && m_sendTags.size() < kMaxPending)
                m_sendTags.insert(id, p.text);
        }
        out->events << event("send_ok");
    } else if (k == QLatin1String("react")) {
        QJsonObject e = withChat("reaction_ok", p.chatId);
        e.insert(QStringLiteral("id"), p.messageId);
        e.insert(QStringLiteral("mode"), p.text);
        e.insert(QStringLiteral("emoji"), p.collected.first().toString());
        out->events << e;
    } else if (k == QLatin1String("props")) {
        QJsonObject e = withChat("message_properties", p.chatId);
        e.insert(QStringLiteral("id"), p.messageId);
        for (const char *key :
             {"can_be_deleted_only_for_self", "can_be_deleted_for_all_users", "can_be_edited",
              "can_be_forwarded", "can_be_replied", "can_be_copied"})
            e.insert(QLatin1String(key), flag(o, key));
        out->events << e;
    } else if (k == QLatin1String("search")) {
        QJsonObject begin = event("search_begin");
        begin.insert(QStringLiteral("req"), p.number);
        out->events << begin;
        int idx = 0;
        for (const QJsonValue &v : arr(o, "chat_ids")) {
            if (idx >= p.from)
                break;
            const auto c = m_chats.constFind(qint64(v.toDouble()));
            if (c == m_chats.cend())
                continue;
            QJsonObject e = event("search_chat");
            e.insert(QStringLiteral("req"), p.number);
            e.insert(QStringLiteral("idx"), idx++);
            e.insert(QStringLiteral("id"), c->id);
            e.insert(QStringLiteral("title"), c->title);
            e.insert(QStringLiteral("chat_type"), c->type);
            e.insert(QStringLiteral("photo_small_id"), c->photoSmallId);
            out->events << e;
        }
        QJsonObject end = event("search_end");
        end.insert(QStringLiteral("req"), p.number);
        end.insert(QStringLiteral("count"), idx);
        out->events << end;
    } else if (k == QLatin1String("chat_info")) {
        const auto c = m_chats.constFind(p.chatId);
        if (c == m_chats.cend())
            return;
        out->events << chatInfoEvent(*c, o);
    } else if (k == QLatin1String("action")) {
        const QString &verb = p.text;
        if (p.rounds == 1) {
            QJsonObject req = typed("deleteChatHistory");
            req.insert(QStringLiteral("chat_id"), p.chatId);
            req.insert(QStringLiteral("remove_from_chat_list"), true);
            req.insert(QStringLiteral("revoke"), false);
            Pending then = p;
            then.rounds = 2;
            request(out, req, then);
            return;
        }
        if (verb == QLatin1String("mute_toggle")) {
            QJsonObject e = withChat("chat_mute_toggled", p.chatId);
            e.insert(QStringLiteral("muted"), p.clear);
            out->events << e;
        } else if (verb == QLatin1String("clear_history")) {
            if (p.chatId == m_openChat) {
                QJsonObject e = withChat("history_clear", p.chatId);
                e.insert(QStringLiteral("gen"), ++m_gen[p.chatId]);
                out->events << e;
            }
            out->events << withChat("history_cleared", p.chatId);
        } else {
            const char *type = verb == QLatin1String("join")    ? "chat_joined"
                               : verb == QLatin1String("leave") ? "chat_left"
                                                                : "chat_deleted";
            out->events << withChat(type, p.chatId);
            if (verb != QLatin1String("join") && p.chatId == m_openChat)
                m_openChat = 0;
        }
    } else if (k == QLatin1String("download")) {
        onFile(o, true, out);
    } else if (k == QLatin1String("resolve")) {
        storeChat(o);
        const auto c = m_chats.constFind(i64(o, "id"));
        if (c == m_chats.cend())
            return;
        QJsonObject e = withChat("tg_resolve", c->id);
        e.insert(QStringLiteral("username"), p.text);
        e.insert(QStringLiteral("title"), c->title);
        e.insert(QStringLiteral("chat_type"), c->type);
        e.insert(QStringLiteral("photo_small_id"), c->photoSmallId);
        out->events << e;
    }
}

void TdTranslator::onError(const Pending &p, int code, const QString &message, TdOutput *out)
{
    const QString &k = p.kind;
    if (k == QLatin1String("proxy")) {
        // The network stays off: the user asked for the proxy, not for a
        // direct connection.
        const QString why = td_one_line(message).left(200);
        tdError(out, p.text, code,
                QStringLiteral("The proxy setting was refused (%1); the network stays off until "
                               "it is corrected")
                    .arg(why));
        out->statusLines << QStringLiteral("PROXY_REFUSED ") + why;
    } else if (k == QLatin1String("params")) {
        // TDLib cannot open a database another process holds.
        const bool locked = message.contains(QLatin1String("lock"), Qt::CaseInsensitive);
        out->statusLines << QStringLiteral("FATAL ") + td_one_line(message);
        out->exitCode = locked ? 9 : 1;
    } else if (k == QLatin1String("auth")) {
        tdError(out, p.text, code, message);
        announceAuthState(out);
    } else if (k == QLatin1String("chats")) {
        // 404: every chat is loaded already; the list is what is known.
        if (code == 404)
            onAnswer(p, QJsonObject(), out);
        else
            tdError(out, QStringLiteral("chats"), code, message);
    } else if (k == QLatin1String("history")) {
        if (!p.collected.isEmpty())
            emitHistory(p, p.collected, out);
        else
            tdError(out, QStringLiteral("history:%1").arg(p.chatId), code, message);
    } else if (k == QLatin1String("pinned")) {
        out->events << withChat("pinned_none", p.chatId);
    } else if (k == QLatin1String("pinned_list")) {
        out->events << withChat("pinned_list_begin", p.chatId);
        out->events << withChat("pinned_list_end", p.chatId);
    } else if (k == QLatin1String("send")) {
        tdError(out, p.text, code, message);
    } else if (k == QLatin1String("edit") || k == QLatin1String("delete")) {
        QJsonObject e =
            errorEvent(k == QLatin1String("edit") ? "edit_error" : "delete_error", code, message);
        e.insert(QStringLiteral("chat_id"), p.chatId);
        if (k == QLatin1String("edit"))
            e.insert(QStringLiteral("id"), p.messageId);
        else
            e.insert(QStringLiteral("message_ids"), p.collected);
        out->events << e;
    } else if (k == QLatin1String("react")) {
        // The service's refusal carries the request's tag, like a failed send.
        tdError(out, QStringLiteral("react:%1:%2").arg(p.chatId).arg(p.messageId), code, message);
    } else if (k == QLatin1String("props") && p.rounds == 0 &&
               message.contains(QLatin1String("nknown"))) {
        // TDLib before getMessageProperties kept the flags on the message.
        QJsonObject req = typed("getMessage");
        req.insert(QStringLiteral("chat_id"), p.chatId);
        req.insert(QStringLiteral("message_id"), p.messageId);
        Pending again = p;
        again.rounds = 1;
        request(out, req, again);
    } else if (k == QLatin1String("props")) {
        QJsonObject e = errorEvent("message_properties_error", code, message);
        e.insert(QStringLiteral("chat_id"), p.chatId);
        e.insert(QStringLiteral("id"), p.messageId);
        out->events << e;
    } else if (k == QLatin1String("search")) {
        Pending none = p;
        onAnswer(none, QJsonObject(), out);
        tdError(out, QStringLiteral("search"), code, message);
    } else if (k == QLatin1String("chat_info")) {
        QJsonObject e = errorEvent("chat_info_error", code, message);
        e.insert(QStringLiteral("chat_id"), p.chatId);
        out->events << e;
    } else if (k == QLatin1String("action")) {
        QJsonObject e = errorEvent("action_error", code, message);
        e.insert(QStringLiteral("action"), p.text);
        e.insert(QStringLiteral("chat_id"), p.chatId);
        out->events << e;
    } else if (k == QLatin1String("download")) {
        tdError(out, QStringLiteral("download:%1").arg(p.messageId), code, message);
    } else if (k == QLatin1String("resolve")) {
        QJsonObject e = errorEvent("tg_resolve_error", code, message);
        e.insert(QStringLiteral("username"), p.text);
        out->events << e;
    } else {
        tdError(out, p.text, code, message);
    }
}
