#include "demo_backend.h"
#include "events/event_dispatcher.h"
#include "td_translator.h"

#include <QJsonDocument>
#include <QtTest>

namespace {

// One row: steps fed in order, then what the last step must put out. A
// step is {"cmd": line}, {"td": object} or {"answer": "@type of the last
// request of that type", "with": object}; {"config": {...}} first changes
// the configuration. Expected requests and events are listed completely, in
// order, each with the fields that matter.
struct Row
{
    const char *name;
    const char *steps;
    const char *requests;
    const char *events;
    const char *status = "";
    int exitCode = -1;
};

// An account signed in as Ann, with Bob's private chat and a channel.
const char *kWorld = R"([
 {"td": {"@type": "updateAuthorizationState", "authorization_state": {"@type": "authorizationStateReady"}}},
 {"answer": "getMe", "with": {"@type": "user", "id": 100, "first_name": "Ann", "last_name": "Lee", "phone_number": "15550100"}},
 {"td": {"@type": "updateUser", "user": {"@type": "user", "id": 200, "first_name": "Bob", "last_name": "Stone",
   "profile_photo": {"small": {"id": 21}}, "status": {"@type": "userStatusOnline", "expires": 1700000300}}}},
 {"td": {"@type": "updateSupergroup", "supergroup": {"@type": "supergroup", "id": 300, "member_count": 50, "is_channel": true,
   "usernames": {"active_usernames": ["vexa_news"]}, "status": {"@type": "chatMemberStatusMember"}}}},
 {"td": {"@type": "updateNewChat", "chat": {"@type": "chat", "id": 200, "title": "Bob Stone",
   "type": {"@type": "chatTypePrivate", "user_id": 200}, "unread_count": 2, "last_read_outbox_message_id": 5,
   "notification_settings": {"mute_for": 0},
   "positions": [{"@type": "chatPosition", "list": {"@type": "chatListMain"}, "order": "900", "is_pinned": false}],
   "last_message": {"@type": "message", "id": 7, "chat_id": 200, "date": 1000, "sender_id": {"@type": "messageSenderUser", "user_id": 200},
     "content": {"@type": "messageText", "text": {"text": "hi"}}}}}},
 {"td": {"@type": "updateNewChat", "chat": {"@type": "chat", "id": -1003, "title": "Vexa News",
   "type": {"@type": "chatTypeSupergroup", "supergroup_id": 300, "is_channel": true},
   "positions": [{"@type": "chatPosition", "list": {"@type": "chatListMain"}, "order": "800", "is_pinned": true}],
   "available_reactions": {"@type": "chatAvailableReactionsSome", "reactions": [{"@type": "reactionTypeEmoji", "emoji": "👍"}]}}}}
])";

QString b64(const QString &text)
{
    return QString::fromLatin1(text.toUtf8().toBase64());
}

QJsonArray parse(const QString &text)
{
    if (text.isEmpty())
        return QJsonArray();
    QJsonParseError err;
    const QJsonDocument doc = QJsonDocument::fromJson(text.toUtf8(), &err);
    if (err.error != QJsonParseError::NoError)
        qFatal("bad table JSON at %d: %s", err.offset, qPrintable(text.mid(err.offset, 60)));
    return doc.array();
}

// Every field of expected is in actual with the same value; objects nest.
bool contains(const QJsonValue &actual, const QJsonValue &expected)
{
    if (expected.isObject()) {
        const QJsonObject e = expected.toObject();
        const QJsonObject a = actual.toObject();
        for (auto it = e.begin(); it != e.end(); ++it) {
            if (!a.contains(it.key()) || !contains(a.value(it.key()), it.value()))
                return false;
        }
        return actual.isObject();
    }
    if (expected.isArray()) {
        const QJsonArray e = expected.toArray();
        const QJsonArray a = actual.toArray();
        if (!actual.isArray() || a.size() != e.size())
            return false;
        for (int i = 0; i < e.size(); ++i) {
            if (!contains(a.at(i), e.at(i)))
                return false;
        }
        return true;
    }
    return actual == expected;
}

QString compact(const QJsonValue &v)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray{v}).toJson(QJsonDocument::Compact));
}

// The error object inside "td_error" as an object, so rows can match its tag.
QJsonObject readable(QJsonObject event)
{
    if (event.value(QStringLiteral("type")).toString() == QLatin1String("td_error"))
        event.insert(
            QStringLiteral("error"),
            QJsonDocument::fromJson(event.value(QStringLiteral("json")).toString().toUtf8())
                .object());
    return event;
}

void expectList(const char *what, const QList<QJsonObject> &actual, const QJsonArray &expected)
{
    QStringList shown;
    for (const QJsonObject &o : actual)
        shown << compact(readable(o));
    const QString all = shown.join(QLatin1Char('\n'));
    QVERIFY2(actual.size() == expected.size(),
             qPrintable(QStringLiteral("%1: %2 instead of %3:\n%4")
                            .arg(QLatin1String(what))
                            .arg(actual.size())
                            .arg(expected.size())
                            .arg(all)));
    for (int i = 0; i < expected.size(); ++i)
        QVERIFY2(contains(readable(actual.at(i)), expected.at(i)),
                 qPrintable(QStringLiteral("%1 %2: want %3 in\n%4")
                                .arg(QLatin1String(what))
                                .arg(i)
                                .arg(compact(expected.at(i)), all)));
}

TdConfig baseConfig()
{
    TdConfig c;
    c.apiId = 123;
    c.apiHash = QStringLiteral("abc");
    c.databaseDir = QStringLiteral("/data/db");
    c.filesDir = QStringLiteral("/data/files");
    c.phone = QStringLiteral("+15550100");
    c.voiceWaveform = [](const QString &) { return QByteArray("\x01\x02", 2); };
    return c;
}

// Runs the steps; returns what the last one put out.
TdOutput run(const QJsonArray &steps)
{
    TdConfig config = baseConfig();
    if (steps.first().toObject().contains(QStringLiteral("config"))) {
        const QJsonObject c = steps.first().toObject().value(QStringLiteral("config")).toObject();
        config.autoSendPhone = c.value(QStringLiteral("autoSendPhone")).toBool();
        config.networkNone = c.value(QStringLiteral("networkNone")).toBool();
        config.proxyType = c.value(QStringLiteral("proxyType")).toString();
        config.proxyHost = c.value(QStringLiteral("proxyHost")).toString();
        config.proxyPort = c.value(QStringLiteral("proxyPort")).toInt();
        config.proxySecret = c.value(QStringLiteral("proxySecret")).toString();
    }
    TdTranslator tr(config);
    TdOutput last = tr.onStart();
    QList<QJsonObject> sent = last.requests;
    for (const QJsonValue &v : steps) {
        const QJsonObject step = v.toObject();
        if (step.contains(QStringLiteral("config"))) {
            continue;
        } else if (step.contains(QStringLiteral("cmd"))) {
            last = tr.onCommand(step.value(QStringLiteral("cmd")).toString());
        } else if (step.contains(QStringLiteral("td"))) {
            last = tr.onTdObject(step.value(QStringLiteral("td")).toObject());
        } else {
            const QString type = step.value(QStringLiteral("answer")).toString();
            QJsonObject answer = step.value(QStringLiteral("with")).toObject();
            for (int i = sent.size() - 1; i >= 0; --i) {
                if (sent.at(i).value(QStringLiteral("@type")).toString() == type) {
                    answer.insert(QStringLiteral("@extra"),
                                  sent.takeAt(i).value(QStringLiteral("@extra")));
                    break;
                }
            }
            if (!answer.contains(QStringLiteral("@extra")))
                qFatal("no request %s to answer", qPrintable(type));
            last = tr.onTdObject(answer);
        }
        sent += last.requests;
    }
    return last;
}

void addRows(const Row *rows, int n)
{
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QString>("requests");
    QTest::addColumn<QString>("events");
    QTest::addColumn<QString>("status");
    QTest::addColumn<int>("exitCode");
    for (int i = 0; i < n; ++i) {
        const Row &r = rows[i];
        QTest::newRow(r.name) << QString::fromUtf8(r.steps) << QString::fromUtf8(r.requests)
                              << QString::fromUtf8(r.events) << QString::fromUtf8(r.status)
                              << r.exitCode;
    }
}

// "$world" opens with the signed-in account; "$b64(text)" is Base64 of text.
QJsonArray steps(QString text)
{
    static const QRegularExpression enc(QStringLiteral("\\$b64\\(([^)]*)\\)"));
    QRegularExpressionMatch m;
    while ((m = enc.match(text)).hasMatch())
        text.replace(m.capturedStart(), m.capturedLength(), b64(m.captured(1)));
    QJsonArray out;
    if (text.startsWith(QLatin1String("$world"))) {
        out = parse(QString::fromUtf8(kWorld));
        text = text.mid(6);
    }
    for (const QJsonValue &v : parse(text))
        out.append(v);
    return out;
}

// ---------------------------------------------------------------- tables

const Row kAuthRows[] = {
    {"parameters from the configuration",
     R"([{"td": {"@type": "updateAuthorizationState", "authorization_state": {"@type": "authorizationStateWaitTdlibParameters"}}}])",
     R"([{"@type": "setTdlibParameters", "api_id": 123, "api_hash": "abc", "database_directory": "/data/db",
         "files_directory": "/data/files", "use_message_database": true}])",
     "[]"},
    {"database held by another process",
     R"([{"td": {"@type": "updateAuthorizationState", "authorization_state": {"@type": "authorizationStateWaitTdlibParameters"}}},
        {"answer": "setTdlibParameters", "with": {"@type": "error", "code": 400,
         "message": "Can't lock file \"/data/db/td.binlog\", because it is already in use\nby another process"}}])",
     "[]", "[]",
     "FATAL Can't lock file \"/data/db/td.binlog\", because it is already in use by another "
     "process",
     9},
    {"phone wanted",
     R"([{"td": {"@type": "updateAuthorizationState", "authorization_state": {"@type": "authorizationStateWaitPhoneNumber"}}}])",
     "[]",
     R"([{"type": "auth_state", "state": "WaitPhoneNumber"}, {"type": "need", "what": "phone"}])",
     "AUTH_STATE WaitPhoneNumber|NEED phone"},
    {"phone sent by itself",
     R"([{"config": {"autoSendPhone": true}},
        {"td": {"@type": "updateAuthorizationState", "authorization_state": {"@type": "authorizationStateWaitPhoneNumber"}}}])",
     R"([{"@type": "setAuthenticationPhoneNumber", "phone_number": "+15550100"}])", "[]"},
    {"code wanted",
     R"([{"td": {"@type": "updateAuthorizationState", "authorization_state": {"@type": "authorizationStateWaitCode",
        "code_info": {"phone_number": "+15550100", "type": {"@type": "authenticationCodeTypeTelegramMessage", "length": 5}}}}}])",
     "[]",
     R"([{"type": "code_info", "delivery": "app", "phone": "+15550100", "length": 5},
        {"type": "auth_state", "state": "WaitCode"}, {"type": "need", "what": "code"}])",
     "AUTH_STATE WaitCode|NEED code"},
    {"wrong code",
     R"([{"td": {"@type": "updateAuthorizationState", "authorization_state": {"@type": "authorizationStateWaitPassword"}}},
        {"cmd": "password nope"}, {"answer": "checkAuthenticationPassword", "with": {"@type": "error", "code": 400, "message": "PASSWORD_HASH_INVALID"}}])",
     "[]",
     R"([{"type": "td_error", "error": {"@extra": "password", "code": 400, "message": "PASSWORD_HASH_INVALID"}},
        {"type": "auth_state", "state": "WaitPassword"}, {"type": "need", "what": "password"}])",
     "AUTH_STATE WaitPassword|NEED password"},
    {"ready asks who is signed in",
     R"([{"td": {"@type": "updateAuthorizationState", "authorization_state": {"@type": "authorizationStateReady"}}}])",
     R"([{"@type": "getMe"}])", R"([{"type": "auth_state", "state": "Ready"}])",
     "AUTH_STATE Ready"},
    {"signed in as", R"($world[{"cmd": "state"}])", "[]",
     R"([{"type": "auth_state", "state": "Ready"}, {"type": "me", "id": 100, "first_name": "Ann", "phone": "15550100"},
        {"type": "connection_state"}])",
     "AUTH_STATE Ready"},
    {"logging out",
     R"([{"td": {"@type": "updateAuthorizationState", "authorization_state": {"@type": "authorizationStateLoggingOut"}}}])",
     "[]", R"([{"type": "auth_state", "state": "LoggingOut"}])", "AUTH_STATE LoggingOut"},
    {"closed",
     R"([{"td": {"@type": "updateAuthorizationState", "authorization_state": {"@type": "authorizationStateClosed"}}}])",
     "[]", R"([{"type": "auth_state", "state": "Closed"}, {"type": "td_closed"}])",
     "AUTH_STATE Closed", 0},
};

} // namespace

class TestTdTranslator : public QObject
{
    Q_OBJECT
private slots:
    void authorization_data() { addRows(kAuthRows, int(std::size(kAuthRows))); }
    void authorization() { check(); }

private:
    void check();
};

void TestTdTranslator::check()
{
    QFETCH(QString, steps);
    QFETCH(QString, requests);
    QFETCH(QString, events);
    QFETCH(QString, status);
    QFETCH(int, exitCode);
    const TdOutput out = run(::steps(steps));
    expectList("requests", out.requests, parse(requests));
    if (QTest::currentTestFailed())
        return;
    expectList("events", out.events, parse(events));
    if (QTest::currentTestFailed())
        return;
    QCOMPARE(out.statusLines.join(QLatin1Char('|')), status);
    QCOMPARE(out.exitCode, exitCode);
}

QTEST_GUILESS_MAIN(TestTdTranslator)
#include "test_td_translator.moc"
