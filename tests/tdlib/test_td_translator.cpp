#include "common/audio.h"
#include "common/loopback_namespace.h"
#include "demo_backend.h"
#include "events/event_dispatcher.h"
#include "media/audio_libs.h"
#include "media/voice_file_encoder.h"
#include "td_translator.h"
#include "td_voice_waveform.h"

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QLibrary>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QString g_isolation; // why the network namespace could not be had; empty inside it

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
    const char *status = ""; // status lines, then "|exit N" when it ends
};

// An account signed in as Ann, with Bob's private chat and a channel.
// clang-format off
const char *kWorld = R"([
$auth{Ready},
{"answer": "getMe", "with": {"@type": "user", "id": 100, "first_name": "Ann", "last_name": "Lee", "phone_number": "15550100"}},
{"td": {"@type": "updateUser", "user": {"@type": "user", "id": 200, "first_name": "Bob", "last_name": "Stone", "profile_photo": {"small": {"id": 21}}, "status": {"@type": "userStatusOnline", "expires": 1700000300}}}},
{"td": {"@type": "updateSupergroup", "supergroup": {"@type": "supergroup", "id": 300, "member_count": 50, "is_channel": true, "usernames": {"active_usernames": ["vexa_news"]}, "status": {"@type": "chatMemberStatusMember"}}}},
{"td": {"@type": "updateNewChat", "chat": {"@type": "chat", "id": 200, "title": "Bob Stone", "type": {"@type": "chatTypePrivate", "user_id": 200}, "unread_count": 2, "last_read_outbox_message_id": 5, "notification_settings": {"mute_for": 0}, "positions": [{"@type": "chatPosition", "list": {"@type": "chatListMain"}, "order": "900", "is_pinned": false}], "last_message": {"@type": "message", "id": 7, "chat_id": 200, "date": 1000, "sender_id": {"@type": "messageSenderUser", "user_id": 200}, "content": {"@type": "messageText", "text": {"text": "hi"}}}}}},
{"td": {"@type": "updateNewChat", "chat": {"@type": "chat", "id": -1003, "title": "Vexa News", "type": {"@type": "chatTypeSupergroup", "supergroup_id": 300, "is_channel": true}, "positions": [{"@type": "chatPosition", "list": {"@type": "chatListMain"}, "order": "800", "is_pinned": true}], "available_reactions": {"@type": "chatAvailableReactionsSome", "reactions": [{"@type": "reactionTypeEmoji", "emoji": "👍"}]}}}}
])";
// clang-format on

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
        const QJsonObject a = actual.toObject(), e = expected.toObject();
        const QStringList keys = e.keys();
        return actual.isObject() && std::all_of(keys.begin(), keys.end(), [&](const QString &k) {
                   return a.contains(k) && contains(a.value(k), e.value(k));
               });
    }
    if (expected.isArray()) {
        const QJsonArray a = actual.toArray(), e = expected.toArray();
        for (int i = 0; actual.isArray() && a.size() == e.size() && i < e.size(); ++i) {
            if (!contains(a.at(i), e.at(i)))
                return false;
        }
        return actual.isArray() && a.size() == e.size();
    }
    return actual == expected;
}

// The whole list is shown on a mismatch; the error inside "td_error" becomes
// an object so rows can match its tag.
void expectList(const char *what, const QList<QJsonObject> &list, const QJsonArray &expected)
{
    QJsonArray actual;
    for (QJsonObject o : list) {
        if (o.value(QStringLiteral("type")).toString() == QLatin1String("td_error"))
            o.insert(QStringLiteral("error"),
                     QJsonDocument::fromJson(o.value(QStringLiteral("json")).toString().toUtf8())
                         .object());
        actual.append(o);
    }
    QVERIFY2(contains(actual, expected),
             qPrintable(QStringLiteral("%1: want %2 in\n%3")
                            .arg(QLatin1String(what),
                                 QString::fromUtf8(QJsonDocument(expected).toJson()),
                                 QString::fromUtf8(QJsonDocument(actual).toJson()))));
}

// Runs the steps from the start; returns what the last one put out.
TdOutput run(const QJsonArray &steps)
{
    const QJsonObject c = steps.first()["config"].toObject();
    TdConfig config;
    config.apiId = 123;
    config.apiHash = QStringLiteral("abc");
    config.databaseDir = QStringLiteral("/data/db");
    config.filesDir = QStringLiteral("/data/files");
    config.phone = QStringLiteral("+15550100");
    config.autoSendPhone = c["autoSendPhone"].toBool();
    config.networkNone = c["networkNone"].toBool();
    config.proxyType = c["proxyType"].toString();
    config.proxyHost = c["proxyHost"].toString();
    config.proxyPort = c["proxyPort"].toInt();
    config.proxySecret = c["proxySecret"].toString();
    config.voiceWaveform = [](const QString &) { return QByteArray("\x01\x02", 2); };
    TdTranslator tr(config);
    TdOutput last = tr.onStart();
    QList<QJsonObject> sent = last.requests;
    for (const QJsonValue &v : steps) {
        const QJsonObject step = v.toObject();
        // A first {"config": ...} step changes nothing here.
        if (step.contains(QStringLiteral("cmd"))) {
            last = tr.onCommand(step.value(QStringLiteral("cmd")).toString());
        } else if (step.contains(QStringLiteral("td"))) {
            last = tr.onTdObject(step.value(QStringLiteral("td")).toObject());
        } else if (step.contains(QStringLiteral("answer"))) {
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

// "$world" opens with the signed-in account; "$b64{text}" is Base64 of text;
// "$auth{State}" is TDLib's authorizationState<State>; "$ok{request}" answers it with ok.
QJsonArray steps(QString text)
{
    if (text.startsWith(QLatin1String("$world")))
        text = QString::fromUtf8(kWorld).chopped(1) + QLatin1Char(',') + text.mid(7);
    const auto expand = [&text](const char *pattern, const auto &make) {
        const QRegularExpression re{QLatin1String(pattern)};
        QRegularExpressionMatch m;
        while ((m = re.match(text)).hasMatch())
            text.replace(m.capturedStart(), m.capturedLength(), make(m.captured(1)));
    };
    expand(R"(\$b64\{([^}]*)\})", [](QString t) {
        return QString::fromLatin1(
            t.replace(QLatin1String("\\n"), QLatin1String("\n")).toUtf8().toBase64());
    });
    expand(R"(\$auth\{(\w+)\})", [](const QString &s) {
        return QStringLiteral(
                   R"({"td": {"@type": "updateAuthorizationState", "authorization_state": {"@type": "authorizationState%1"}}})")
            .arg(s);
    });
    expand(R"(\$ok\{(\w+)\})", [](const QString &s) {
        return QStringLiteral(R"({"answer": "%1", "with": {"@type": "ok"}})").arg(s);
    });
    return parse(text);
}

// clang-format off
const Row kRows[] = {
    {"parameters from the configuration", R"([$auth{WaitTdlibParameters}])", R"([{"@type": "setTdlibParameters", "api_id": 123, "api_hash": "abc", "database_directory": "/data/db", "files_directory": "/data/files", "use_message_database": true}])", "[]"},
    {"a proxy keeps the network off until taken", R"([{"config": {"proxyType": "mtproto", "proxyHost": "127.0.0.1", "proxyPort": 443, "proxySecret": "ee00"}}])", R"([{"@type": "setNetworkType", "type": {"@type": "networkTypeNone"}}, {"@type": "addProxy", "enable": true, "proxy": {"server": "127.0.0.1", "port": 443, "type": {"@type": "proxyTypeMtproto", "secret": "ee00"}}}])", R"([{"type": "backend_ready"}])", "BACKEND_READY tdlib"},
    {"proxy taken", R"([{"config": {"proxyType": "mtproto", "proxyHost": "127.0.0.1", "proxyPort": 443, "proxySecret": "ee00"}}, $ok{addProxy}])", R"([{"@type": "setNetworkType", "type": {"@type": "networkTypeOther"}}])", "[]"},
    {"proxy refused: the network stays off", R"([{"config": {"proxyType": "mtproto", "proxyHost": "127.0.0.1", "proxyPort": 443, "proxySecret": "ee00"}}, {"answer": "addProxy", "with": {"@type": "error", "code": 400, "message": "Wrong secret"}}])", "[]", R"([{"type": "td_error", "error": {"@extra": "proxy", "code": 400}}])", "PROXY_REFUSED Wrong secret"},
    {"database held by another process", R"([$auth{WaitTdlibParameters}, {"answer": "setTdlibParameters", "with": {"@type": "error", "code": 400, "message": "Can't lock file \"/data/db/td.binlog\", because it is already in use\nby another process"}}])", "[]", "[]", "FATAL Can't lock file \"/data/db/td.binlog\", because it is already in use by another " "process|exit 9"},
    {"phone sent by itself", R"([{"config": {"autoSendPhone": true}}, $auth{WaitPhoneNumber}])", R"([{"@type": "setAuthenticationPhoneNumber", "phone_number": "+15550100"}])", "[]"},
    {"code wanted", R"([{"td": {"@type": "updateAuthorizationState", "authorization_state": {"@type": "authorizationStateWaitCode", "code_info": {"phone_number": "+15550100", "type": {"@type": "authenticationCodeTypeTelegramMessage", "length": 5}}}}}])", "[]", R"([{"type": "code_info", "delivery": "app", "phone": "+15550100", "length": 5}, {"type": "auth_state", "state": "WaitCode"}, {"type": "need", "what": "code"}])", "AUTH_STATE WaitCode|NEED code"},
    {"wrong code", R"([$auth{WaitPassword}, {"cmd": "password nope"}, {"answer": "checkAuthenticationPassword", "with": {"@type": "error", "code": 400, "message": "PASSWORD_HASH_INVALID"}}])", "[]", R"([{"type": "td_error", "error": {"@extra": "password", "code": 400, "message": "PASSWORD_HASH_INVALID"}}, {"type": "auth_state", "state": "WaitPassword"}, {"type": "need", "what": "password"}])", "AUTH_STATE WaitPassword|NEED password"},
    {"ready asks who is signed in", R"([$auth{Ready}])", R"([{"@type": "getMe"}])", R"([{"type": "auth_state", "state": "Ready"}])", "AUTH_STATE Ready"},
    {"signed in as", R"($world[{"cmd": "state"}])", "[]", R"([{"type": "auth_state", "state": "Ready"}, {"type": "me", "id": 100, "first_name": "Ann", "phone": "15550100"}, {"type": "connection_state"}])", "AUTH_STATE Ready"},
    {"closed", R"([$auth{Closed}])", "[]", R"([{"type": "auth_state", "state": "Closed"}, {"type": "td_closed"}])", "AUTH_STATE Closed|exit 0"},

    // Command line -> TDLib requests (and the answers given without TDLib).
    {"ping", R"([{"cmd": "ping"}])", "[]", R"([{"type": "backend_ready", "pong": true}])"},
    {"phone", R"([{"cmd": "phone +1 555 0100"}])", R"([{"@type": "setAuthenticationPhoneNumber", "phone_number": "+1 555 0100"}])", "[]"},
    {"code", R"([{"cmd": "code 22222"}])", R"([{"@type": "checkAuthenticationCode", "code": "22222"}])", "[]"},
    {"password as typed", R"([{"cmd": "password  pa ss "}])", R"([{"@type": "checkAuthenticationPassword", "password": " pa ss"}])", "[]"},
    {"resend", R"([{"cmd": "resend"}])", R"([{"@type": "resendAuthenticationCode"}])", "[]"},
    {"chats", R"($world[{"cmd": "chats 60"}])", R"([{"@type": "loadChats", "chat_list": {"@type": "chatListMain"}, "limit": 60}])", "[]"},
    {"open at a message closes the chat before", R"($world[{"cmd": "open -1003"}, {"cmd": "open 200 7"}])", R"([{"@type": "closeChat", "chat_id": -1003}, {"@type": "openChat", "chat_id": 200}, {"@type": "getChatHistory", "chat_id": 200, "from_message_id": 7, "offset": -40, "limit": 81}, {"@type": "getChatPinnedMessage"}])", R"([{"type": "user", "id": 200, "status_type": "online"}])"},
    {"chat_info private", R"($world[{"cmd": "chat_info 200"}])", R"([{"@type": "getUserFullInfo", "user_id": 200}])", "[]"},
    {"chat_info channel", R"($world[{"cmd": "chat_info -1003"}])", R"([{"@type": "getSupergroupFullInfo", "supergroup_id": 300}])", "[]"},
    {"chat_info basic group", R"($world[{"td": {"@type": "updateNewChat", "chat": {"id": 5, "title": "Club", "type": {"@type": "chatTypeBasicGroup", "basic_group_id": 9}}}}, {"cmd": "chat_info 5"}])", R"([{"@type": "getBasicGroupFullInfo", "basic_group_id": 9}])", "[]"},
    {"close", R"($world[{"cmd": "close 200"}])", R"([{"@type": "closeChat", "chat_id": 200}])", "[]"},
    {"history_more", R"($world[{"cmd": "history_more 200 7 50"}])", R"([{"@type": "getChatHistory", "chat_id": 200, "from_message_id": 7, "offset": 0, "limit": 50}])", "[]"},
    {"history_jump beyond one request", R"($world[{"cmd": "history_jump 200 7 150 150"}])", R"([{"@type": "getChatHistory", "from_message_id": 7, "offset": -99, "limit": 100}])", "[]"},
    {"history with a bad page", R"($world[{"cmd": "history 200 5000"}])", "[]", R"([{"type": "td_error", "error": {"@extra": "history:200"}}])"},
    {"read", R"($world[{"cmd": "read 200 7"}])", R"([{"@type": "viewMessages", "chat_id": 200, "message_ids": [7], "force_read": true}])", "[]"},
    {"send text with a line break", R"($world[{"cmd": "send64 200 $b64{one\ntwo}"}])", R"([{"@type": "sendMessage", "chat_id": 200, "input_message_content": {"@type": "inputMessageText", "text": {"text": "one\ntwo"}}}])", "[]"},
    {"edit", R"($world[{"cmd": "edit64 200 7 $b64{fixed}"}])", R"([{"@type": "editMessageText", "chat_id": 200, "message_id": 7, "input_message_content": {"text": {"text": "fixed"}}}])", "[]"},
    {"send a document as a reply", R"($world[{"cmd": "sendfile64 200 7 $b64{/home/a/../a/r.pdf}"}])", R"([{"@type": "sendMessage", "reply_to": {"message_id": 7}, "input_message_content": {"@type": "inputMessageDocument", "document": {"path": "/home/a/r.pdf"}}}])", "[]"},
    {"send a relative path", R"($world[{"cmd": "sendfile64 200 $b64{r.pdf}"}])", "[]", R"([{"type": "td_error", "error": {"@extra": "sendfile:200"}}])"},
    {"send a voice note", R"($world[{"cmd": "sendvoice64 200 $b64{/tmp/v.ogg} 3"}])", R"([{"@type": "sendMessage", "input_message_content": {"@type": "inputMessageVoiceNote", "voice_note": {"path": "/tmp/v.ogg"}, "duration": 3, "waveform": "AQI="}}])", "[]"},
    {"send a video note", R"($world[{"cmd": "sendvideonote64 200 7 $b64{/tmp/n.mp4}"}])", R"([{"@type": "sendMessage", "reply_to": {"message_id": 7}, "input_message_content": {"@type": "inputMessageVideoNote", "video_note": {"path": "/tmp/n.mp4"}}}])", "[]"},
    {"react", R"($world[{"cmd": "react 200 7 👍 add"}])", R"([{"@type": "addMessageReaction", "chat_id": 200, "message_id": 7, "reaction_type": {"@type": "reactionTypeEmoji", "emoji": "👍"}}])", "[]"},
    {"take a reaction back", R"($world[{"cmd": "react 200 7 👍 remove"}])", R"([{"@type": "removeMessageReaction", "reaction_type": {"emoji": "👍"}}])", "[]"},
    {"forward", R"($world[{"cmd": "forward -1003 200 7 8 7 0"}])", R"([{"@type": "forwardMessages", "chat_id": -1003, "from_chat_id": 200, "message_ids": [7, 8]}])", "[]"},
    {"delete for all", R"($world[{"cmd": "delete 200 all 7 8"}])", R"([{"@type": "deleteMessages", "chat_id": 200, "message_ids": [7, 8], "revoke": true}])", "[]"},
    {"props", R"($world[{"cmd": "props 200 7"}])", R"([{"@type": "getMessageProperties", "chat_id": 200, "message_id": 7}])", "[]"},
    {"pinned_list", R"($world[{"cmd": "pinned_list 200 100"}])", R"([{"@type": "searchChatMessages", "chat_id": 200, "limit": 100, "filter": {"@type": "searchMessagesFilterPinned"}}])", "[]"},
    {"search_server64", R"($world[{"cmd": "search_server64 0 $b64{@vexa} 30"}])", R"([{"@type": "searchPublicChats", "query": "vexa"}])", "[]"},
    {"mute_toggle", R"($world[{"cmd": "mute_toggle 200"}])", R"([{"@type": "setChatNotificationSettings", "chat_id": 200, "notification_settings": {"use_default_mute_for": false, "mute_for": 31622400}}])", "[]"},
    {"clear_history", R"($world[{"cmd": "clear_history 200"}])", R"([{"@type": "deleteChatHistory", "chat_id": 200, "remove_from_chat_list": false}])", "[]"},
    {"join", R"($world[{"cmd": "join -1003"}])", R"([{"@type": "joinChat", "chat_id": -1003}])", "[]"},
    {"leave", R"($world[{"cmd": "leave -1003"}])", R"([{"@type": "leaveChat", "chat_id": -1003}])", "[]"},
    {"delete_chat private", R"($world[{"cmd": "delete_chat 200"}])", R"([{"@type": "deleteChatHistory", "chat_id": 200, "remove_from_chat_list": true}])", "[]"},
    {"download", R"($world[{"cmd": "download 55"}])", R"([{"@type": "downloadFile", "file_id": 55, "priority": 1}])", "[]"},
    {"downloadp", R"($world[{"cmd": "downloadp 55"}])", R"([{"@type": "downloadFile", "priority": 32}])", "[]"},
    {"resolve", R"($world[{"cmd": "resolve @vexa_news"}])", R"([{"@type": "searchPublicChat", "username": "vexa_news"}])", "[]"},
    {"unknown verb", R"($world[{"cmd": "fly 1"}])", "[]", R"([{"type": "td_error", "error": {"@extra": "unknown"}}])"},

    // TDLib update or answer (after the steps that give it its state) -> events.
    {"chat list in order with the peers", R"($world[{"cmd": "chats 60"}, $ok{loadChats}])", "[]", R"([{"type": "chats_begin"}, {"type": "chat", "id": 200, "title": "Bob Stone", "chat_type": "private", "order": "900", "pinned": false, "unread_count": 2, "muted": false, "last_text": "hi", "last_message_id": 7, "last_outgoing": false, "last_read_outbox_message_id": 5}, {"type": "chat", "id": -1003, "chat_type": "channel", "username": "vexa_news", "order": "800", "pinned": true}, {"type": "chats_end"}, {"type": "user", "id": 200, "photo_small_id": 21}])"},
    {"chat list when everything is loaded", R"($world[{"cmd": "chats 1"}, {"answer": "loadChats", "with": {"@type": "error", "code": 404, "message": "Not Found"}}])", "[]", R"([{"type": "chats_begin"}, {"type": "chat", "id": 200}, {"type": "chats_end"}, {"type": "user"}])"},
    {"chat entering the listed list", R"($world[{"cmd": "chats 60"}, $ok{loadChats}, {"td": {"@type": "updateNewChat", "chat": {"id": 5, "title": "New", "type": {"@type": "chatTypeBasicGroup", "basic_group_id": 9}, "positions": [{"list": {"@type": "chatListMain"}, "order": "950"}]}}}])", "[]", R"([{"type": "chat", "id": 5, "chat_type": "basic_group", "order": "950"}])"},
    {"chat leaving the list", R"($world[{"td": {"@type": "updateChatPosition", "chat_id": 200, "position": {"list": {"@type": "chatListMain"}, "order": "0"}}}])", "[]", R"([{"type": "chat_position", "chat_id": 200, "order": "0", "pinned": false}])"},
    {"last message moves the chat", R"($world[{"td": {"@type": "updateChatLastMessage", "chat_id": 200, "last_message": {"id": 9, "chat_id": 200, "date": 1200, "is_outgoing": true, "content": {"@type": "messageVoiceNote", "voice_note": {"duration": 4, "voice": {"id": 31}}}}, "positions": [{"list": {"@type": "chatListMain"}, "order": "990"}]}}])", "[]", R"([{"type": "chat_last_message", "chat_id": 200, "message_id": 9, "date": 1200, "content_type": "messageVoiceNote", "text": "", "outgoing": true}, {"type": "chat_position", "chat_id": 200, "order": "990"}])"},
    {"unread", R"($world[{"td": {"@type": "updateChatReadInbox", "chat_id": 200, "unread_count": 0}}])", "[]", R"([{"type": "chat_unread", "chat_id": 200, "unread_count": 0}])"},
    {"read by the peer", R"($world[{"td": {"@type": "updateChatReadOutbox", "chat_id": 200, "last_read_outbox_message_id": 8}}])", "[]", R"([{"type": "chat_read_outbox", "chat_id": 200, "last_read_outbox_message_id": 8}])"},
    {"renamed", R"($world[{"td": {"@type": "updateChatTitle", "chat_id": -1003, "title": "News"}}])", "[]", R"([{"type": "chat_title", "chat_id": -1003, "title": "News"}])"},
    {"muted elsewhere", R"($world[{"td": {"@type": "updateChatNotificationSettings", "chat_id": 200, "notification_settings": {"mute_for": 3600}}}])", "[]", R"([{"type": "chat_notify", "chat_id": 200, "muted_known": true, "muted": true}])"},
    {"online members", R"($world[{"td": {"@type": "updateChatOnlineMemberCount", "chat_id": -1003, "online_member_count": 4}}])", "[]", R"([{"type": "chat_online_count", "chat_id": -1003, "count": 4}])"},
    {"new photo message", R"($world[{"td": {"@type": "updateNewMessage", "message": {"id": 10, "chat_id": 200, "date": 1300, "sender_id": {"@type": "messageSenderUser", "user_id": 200}, "reply_to": {"@type": "messageReplyToMessage", "message_id": 7}, "content": {"@type": "messagePhoto", "caption": {"text": "look"}, "photo": {"sizes": [ {"type": "m", "width": 320, "height": 240, "photo": {"id": 41, "size": 900}}, {"type": "y", "width": 1280, "height": 960, "photo": {"id": 42, "size": 0, "expected_size": 90000}}]}}}}}])", "[]", R"([{"type": "message_new", "chat_id": 200, "id": 10, "date": 1300, "outgoing": false, "content_type": "messagePhoto", "text": "look", "sender_user_id": 200, "sender_name": "Bob Stone", "sender_photo_small_id": 21, "reply_to_message_id": 7, "media_type": "photo", "media_w": 1280, "media_h": 960, "media_size": 90000, "media_file_id": 42, "media_thumb_file_id": 41}])"},
    {"forwarded document with a hostile name", R"($world[{"td": {"@type": "updateNewMessage", "message": {"id": 11, "chat_id": -1003, "date": 1300, "sender_id": {"@type": "messageSenderChat", "chat_id": -1003}, "forward_info": {"origin": {"@type": "messageOriginHiddenUser", "sender_name": "Zed"}}, "content": {"@type": "messageDocument", "document": {"file_name": "../../etc/pass\nwd", "document": {"id": 43, "size": 12}}}}}}])", "[]", R"([{"type": "message_new", "id": 11, "sender_user_id": 0, "sender_name": "Vexa News", "forwarded": "Zed", "media_type": "file", "media_name": "pass_wd", "media_size": 12, "media_file_id": 43}])"},
    {"video note pending with reactions", R"($world[{"td": {"@type": "updateNewMessage", "message": {"id": 12, "chat_id": 200, "date": 1, "is_outgoing": true, "sending_state": {"@type": "messageSendingStatePending"}, "interaction_info": {"reactions": {"reactions": [{"type": {"@type": "reactionTypeEmoji", "emoji": "🔥"}, "total_count": 2, "is_chosen": true}, {"type": {"@type": "reactionTypeCustomEmoji"}, "total_count": 1}]}}, "content": {"@type": "messageVideoNote", "video_note": {"duration": 6, "length": 240, "video": {"id": 44}, "thumbnail": {"file": {"id": 45}}}}}}}])", "[]", R"([{"type": "message_new", "outgoing": true, "sending_state": "pending", "content_type": "messageVideoNote", "media_type": "video_note", "media_w": 240, "media_duration": 6, "media_file_id": 44, "media_thumb_file_id": 45, "reactions": [{"emoji": "🔥", "count": 2, "chosen": true}]}])"},
    {"history filled in rounds, oldest first", R"($world[{"cmd": "open 200"}, {"answer": "getChatHistory", "with": {"@type": "messages", "messages": [{"id": 8, "chat_id": 200}, {"id": 7, "chat_id": 200}]}}, {"answer": "getChatHistory", "with": {"@type": "messages", "messages": []}}])", "[]", R"([{"type": "history_begin", "chat_id": 200, "gen": 1, "clear": true, "from_message_id": 0}, {"type": "message", "id": 7, "gen": 1}, {"type": "message", "id": 8, "gen": 1}, {"type": "history_end", "chat_id": 200, "gen": 1, "clear": true, "count": 2}])"},
    {"history that gives nothing older ends", R"($world[{"cmd": "history 200 30"}, {"answer": "getChatHistory", "with": {"@type": "messages", "messages": [{"id": 8, "chat_id": 200}]}}, {"answer": "getChatHistory", "with": {"@type": "messages", "messages": [{"id": 8, "chat_id": 200}]}}])", "[]", R"([{"type": "history_begin"}, {"type": "message", "id": 8}, {"type": "history_end", "count": 1}])"},
    {"older page keeps the generation and drops its start", R"($world[{"cmd": "history 200 1"}, {"answer": "getChatHistory", "with": {"messages": [{"id": 8, "chat_id": 200}]}}, {"cmd": "history_more 200 8 1"}, {"answer": "getChatHistory", "with": {"messages": [{"id": 8, "chat_id": 200}, {"id": 6, "chat_id": 200}]}}])", "[]", R"([{"type": "history_begin", "gen": 1, "clear": false, "from_message_id": 8}, {"type": "message", "id": 6, "gen": 1}, {"type": "history_end", "gen": 1, "count": 1}])"},
    {"pinned message", R"($world[{"cmd": "open 200"}, {"answer": "getChatPinnedMessage", "with": {"@type": "message", "id": 3, "chat_id": 200, "content": {"@type": "messageText", "text": {"text": "rules"}}}}])", "[]", R"([{"type": "pinned_message", "chat_id": 200, "id": 3, "text": "rules", "content_type": "messageText"}])"},
    {"no pinned message", R"($world[{"cmd": "open 200"}, {"answer": "getChatPinnedMessage", "with": {"@type": "error", "code": 404, "message": "Not Found"}}])", "[]", R"([{"type": "pinned_none", "chat_id": 200}])"},
    {"pin changed in the open chat", R"($world[{"cmd": "open 200"}, {"td": {"@type": "updateMessageIsPinned", "chat_id": 200, "message_id": 7, "is_pinned": true}}])", R"([{"@type": "getChatPinnedMessage", "chat_id": 200}])", "[]"},
    {"pinned list", R"($world[{"cmd": "pinned_list 200 100"}, {"answer": "searchChatMessages", "with": {"@type": "foundChatMessages", "messages": [{"id": 3, "chat_id": 200, "content": {"@type": "messageText", "text": {"text": "rules"}}}]}}])", "[]", R"([{"type": "pinned_list_begin", "chat_id": 200}, {"type": "pinned_list_item", "chat_id": 200, "id": 3, "text": "rules"}, {"type": "pinned_list_end", "chat_id": 200}])"},
    {"sent", R"($world[{"cmd": "send64 200 $b64{hi}"}, {"answer": "sendMessage", "with": {"@type": "message", "id": 1000, "chat_id": 200}}])", "[]", R"([{"type": "send_ok"}])"},
    {"send acknowledged", R"($world[{"td": {"@type": "updateMessageSendAcknowledged", "chat_id": 200, "message_id": 1000}}])", "[]", R"([{"type": "message_send_acked", "chat_id": 200, "id": 1000}])"},
    {"send succeeded", R"($world[{"td": {"@type": "updateMessageSendSucceeded", "old_message_id": 1000, "message": {"id": 13, "chat_id": 200, "date": 1400}}}])", "[]", R"([{"type": "message_send_succeeded", "chat_id": 200, "old_id": 1000, "new_id": 13, "date": 1400}])"},
    {"voice note failed carries its tag", R"($world[{"cmd": "sendvoice64 200 $b64{/tmp/v.ogg} 2"}, {"answer": "sendMessage", "with": {"@type": "message", "id": 1001, "chat_id": 200}}, {"td": {"@type": "updateMessageSendFailed", "old_message_id": 1001, "message": {"id": 1001, "chat_id": 200}, "error": {"code": 403, "message": "CHAT_WRITE_FORBIDDEN"}}}])", "[]", R"([{"type": "message_send_failed", "chat_id": 200, "old_id": 1001, "error_code": 403}, {"type": "td_error", "error": {"@extra": "sendvoice:200", "code": 403, "message": "CHAT_WRITE_FORBIDDEN"}}])"},
    {"edited", R"($world[{"td": {"@type": "updateMessageContent", "chat_id": 200, "message_id": 7, "new_content": {"@type": "messageText", "text": {"text": "hi!"}}}}])", "[]", R"([{"type": "message_update", "chat_id": 200, "id": 7, "text": "hi!"}, {"type": "chat_last_message", "chat_id": 200, "message_id": 7, "text": "hi!"}])"},
    {"edit refused", R"($world[{"cmd": "edit64 200 7 $b64{x}"}, {"answer": "editMessageText", "with": {"@type": "error", "code": 400, "message": "MESSAGE_NOT_MODIFIED"}}])", "[]", R"([{"type": "edit_error", "chat_id": 200, "id": 7, "code": 400, "message": "MESSAGE_NOT_MODIFIED"}])"},
    {"reactions changed", R"($world[{"td": {"@type": "updateMessageInteractionInfo", "chat_id": 200, "message_id": 7, "interaction_info": {"reactions": {"reactions": [{"type": {"emoji": "👍"}, "total_count": 1, "is_chosen": false}]}}}}])", "[]", R"([{"type": "message_reactions", "chat_id": 200, "id": 7, "reactions": [{"emoji": "👍", "count": 1, "chosen": false}]}])"},
    {"reacted", R"($world[{"cmd": "react 200 7 👍 add"}, $ok{addMessageReaction}])", "[]", R"([{"type": "reaction_ok", "chat_id": 200, "id": 7, "mode": "add", "emoji": "👍"}])"},
    {"reaction before sign-in", R"([{"cmd": "react 200 7 👍 add"}])", "[]", R"([{"type": "reaction_error", "chat_id": 200, "code": 401}])"},
    {"deleted", R"($world[{"td": {"@type": "updateDeleteMessages", "chat_id": 200, "message_ids": [7, 8], "is_permanent": true}}])", "[]", R"([{"type": "messages_deleted", "chat_id": 200, "message_ids": [7, 8]}])"},
    {"dropped from the cache only", R"($world[{"td": {"@type": "updateDeleteMessages", "chat_id": 200, "message_ids": [7], "is_permanent": false, "from_cache": true}}])", "[]", "[]"},
    {"delete refused", R"($world[{"cmd": "delete 200 all 7"}, {"answer": "deleteMessages", "with": {"@type": "error", "code": 400, "message": "MESSAGE_DELETE_FORBIDDEN"}}])", "[]", R"([{"type": "delete_error", "chat_id": 200, "message_ids": [7], "code": 400}])"},
    {"message properties", R"($world[{"cmd": "props 200 7"}, {"answer": "getMessageProperties", "with": {"@type": "messageProperties", "can_be_deleted_only_for_self": true, "can_be_deleted_for_all_users": true, "can_be_edited": false, "can_be_forwarded": true, "can_be_replied": true, "can_be_copied": true}}])", "[]", R"([{"type": "message_properties", "chat_id": 200, "id": 7, "can_be_deleted_only_for_self": true, "can_be_deleted_for_all_users": true, "can_be_edited": false, "can_be_forwarded": true, "can_be_replied": true, "can_be_copied": true}])"},
    {"message properties of an older TDLib", R"($world[{"cmd": "props 200 7"}, {"answer": "getMessageProperties", "with": {"@type": "error", "code": 400, "message": "Unknown method getMessageProperties"}}, {"answer": "getMessage", "with": {"@type": "message", "id": 7, "chat_id": 200, "can_be_edited": true}}])", "[]", R"([{"type": "message_properties", "chat_id": 200, "id": 7, "can_be_edited": true, "can_be_copied": false}])"},
    {"message properties refused", R"($world[{"cmd": "props 200 7"}, {"answer": "getMessageProperties", "with": {"@type": "error", "code": 404, "message": "Message not found"}}])", "[]", R"([{"type": "message_properties_error", "chat_id": 200, "id": 7, "code": 404}])"},
    {"server search", R"($world[{"cmd": "search_server64 0 $b64{news} 30"}, {"answer": "searchPublicChats", "with": {"@type": "chats", "chat_ids": [-1003, 77]}}])", "[]", R"([{"type": "search_begin", "req": 1}, {"type": "search_chat", "req": 1, "idx": 0, "id": -1003, "title": "Vexa News", "chat_type": "channel"}, {"type": "search_end", "req": 1, "count": 1}])"},
    {"channel info", R"($world[{"cmd": "chat_info -1003"}, {"answer": "getSupergroupFullInfo", "with": {"@type": "supergroupFullInfo", "description": "Daily", "member_count": 51}}])", "[]", R"([{"type": "chat_info", "chat_id": -1003, "about": "Daily", "username": "vexa_news", "link": "https:\/\/t.me\/vexa_news", "member_count": 51, "user_id": 0, "is_member": true, "can_send": false, "available_reactions_all": false, "available_reactions": ["👍"]}])"},
    {"info refused", R"($world[{"cmd": "chat_info 200"}, {"answer": "getUserFullInfo", "with": {"@type": "error", "code": 400, "message": "USER_ID_INVALID"}}])", "[]", R"([{"type": "chat_info_error", "chat_id": 200, "code": 400, "message": "USER_ID_INVALID"}])"},
    {"muted", R"($world[{"cmd": "mute_toggle 200"}, $ok{setChatNotificationSettings}])", "[]", R"([{"type": "chat_mute_toggled", "chat_id": 200, "muted": true}])"},
    {"cleared while open", R"($world[{"cmd": "open 200"}, {"cmd": "clear_history 200"}, $ok{deleteChatHistory}])", "[]", R"([{"type": "history_clear", "chat_id": 200, "gen": 1}, {"type": "history_cleared", "chat_id": 200}])"},
    {"joined", R"($world[{"cmd": "join -1003"}, $ok{joinChat}])", "[]", R"([{"type": "chat_joined", "chat_id": -1003}])"},
    {"left", R"($world[{"cmd": "leave -1003"}, $ok{leaveChat}])", "[]", R"([{"type": "chat_left", "chat_id": -1003}])"},
    {"chat deleted", R"($world[{"cmd": "delete_chat 200"}, $ok{deleteChatHistory}])", "[]", R"([{"type": "chat_deleted", "chat_id": 200}])"},
    {"a basic group is left, then its history goes", R"($world[ {"td": {"@type": "updateNewChat", "chat": {"id": 5, "title": "Club", "type": {"@type": "chatTypeBasicGroup", "basic_group_id": 9}}}}, {"cmd": "delete_chat 5"}, $ok{leaveChat}])", R"([{"@type": "deleteChatHistory", "chat_id": 5, "remove_from_chat_list": true}])", "[]"},
    {"join refused", R"($world[{"cmd": "join -1003"}, {"answer": "joinChat", "with": {"@type": "error", "code": 400, "message": "CHANNELS_TOO_MUCH"}}])", "[]", R"([{"type": "action_error", "action": "join", "chat_id": -1003, "message": "CHANNELS_TOO_MUCH"}])"},
    {"download under way", R"($world[{"td": {"@type": "updateFile", "file": {"id": 42, "size": 900, "local": {"path": "", "is_downloading_active": true, "downloaded_size": 300}}}}])", "[]", R"([{"type": "file_progress", "id": 42, "downloaded": 300, "total": 900}])"},
    {"done files leave no folder", R"($world[ {"td": {"@type": "updateFile", "file": {"id": 1, "local": {"path": "/etc/passwd", "is_downloading_completed": true}}}}, {"td": {"@type": "updateFile", "file": {"id": 2, "local": {"path": "/data/files/../x", "is_downloading_completed": true}}}}])", "[]", "[]"},
    {"a sent file comes back where it was", R"($world[{"cmd": "sendfile64 200 $b64{/home/a/r.pdf}"}, {"td": {"@type": "updateFile", "file": {"id": 3, "size": 5, "local": {"path": "/home/a/r.pdf", "is_downloading_completed": true}}}}])", "[]", R"([{"type": "file", "id": 3, "path": "/home/a/r.pdf"}])"},
    {"asked again after the cache was cleared", R"($world[ {"td": {"@type": "updateFile", "file": {"id": 42, "local": {"path": "/data/files/a.jpg", "is_downloading_completed": true}}}}, {"cmd": "download 42"}, {"answer": "downloadFile", "with": {"@type": "file", "id": 42, "local": {"path": "/data/files/a.jpg", "is_downloading_completed": true}}}])", "[]", R"([{"type": "file", "id": 42, "path": "/data/files/a.jpg"}])"},
    {"resolved", R"($world[{"cmd": "resolve vexa_news"}, {"answer": "searchPublicChat", "with": {"@type": "chat", "id": -1003, "title": "Vexa News", "type": {"@type": "chatTypeSupergroup", "supergroup_id": 300, "is_channel": true}}}])", "[]", R"([{"type": "tg_resolve", "chat_id": -1003, "username": "vexa_news", "title": "Vexa News", "chat_type": "channel"}])"},
    {"not resolved", R"($world[{"cmd": "resolve nobody_here"}, {"answer": "searchPublicChat", "with": {"@type": "error", "code": 400, "message": "USERNAME_NOT_OCCUPIED"}}])", "[]", R"([{"type": "tg_resolve_error", "username": "nobody_here", "code": 400}])"},
    {"call", R"($world[{"td": {"@type": "updateCall", "call": {"id": 5, "user_id": 200, "is_outgoing": false, "state": {"@type": "callStatePending"}}}}])", "[]", R"([{"type": "call_update", "call_id": 5, "user_id": 200, "outgoing": false, "state": "pending"}])"},
    {"call signalling", R"($world[{"td": {"@type": "updateNewCallSignalingData", "call_id": 5, "data": "AAAA"}}])", "[]", R"([{"type": "call_signaling", "call_id": 5, "b64_len": 4}])"},
    {"answers nobody waits for", R"($world[{"td": {"@type": "ok", "@extra": "tr:999"}}, {"td": {"@type": "ok", "@extra": 3}}, {"td": {"@type": "ok", "@extra": "engine:1"}}])", "[]", "[]"},
};
// clang-format on

} // namespace

class TestTdTranslator : public QObject
{
    Q_OBJECT
private slots:
    void translate_data()
    {
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("requests");
        QTest::addColumn<QString>("events");
        QTest::addColumn<QString>("status");
        for (const Row &r : kRows)
            QTest::newRow(r.name) << QString::fromUtf8(r.steps) << QString::fromUtf8(r.requests)
                                  << QString::fromUtf8(r.events) << QString::fromUtf8(r.status);
    }

    void translate()
    {
        QFETCH(QString, steps);
        QFETCH(QString, requests);
        QFETCH(QString, events);
        QFETCH(QString, status);
        const TdOutput out = run(::steps(steps));
        expectList("requests", out.requests, parse(requests));
        expectList("events", out.events, parse(events));
        QStringList lines = out.statusLines;
        if (out.exitCode >= 0)
            lines << QStringLiteral("exit %1").arg(out.exitCode);
        QCOMPARE(lines.join(QLatin1Char('|')), status);
    }

    // The verbs of the demo's dispatcher are the vocabulary: each has a row.
    void everyVerbTranslated()
    {
        QSet<QString> tested;
        for (const Row &r : kRows)
            tested << steps(QString::fromUtf8(r.steps)).last()["cmd"].toString().section(' ', 0, 0);
        for (const QString &verb : DemoBackend::verbs()) {
            QVERIFY2(TdTranslator::verbs().contains(verb), qPrintable(verb));
            QVERIFY2(tested.contains(verb), qPrintable(verb));
        }
    }

    // Every event the client understands comes out of some row, except the
    // demo's own notification hint.
    void everyEventProduced()
    {
        QSet<QString> produced;
        for (const Row &r : kRows) {
            for (const QJsonValue &e : parse(QString::fromUtf8(r.events)))
                produced << e.toObject().value(QStringLiteral("type")).toString();
        }
        for (const QString &type : EventDispatcher::eventTypes()) {
            if (type != QLatin1String("hub_notify_message"))
                QVERIFY2(produced.contains(type), qPrintable(type));
        }
    }

    // Every request the rows make is one TDLib itself reads: its answer is
    // anything but a parse error. TDLib is given no parameters, so it stays
    // offline.
    void requestsParseInTdlib()
    {
        // TDLib is never loaded where it could reach the network.
        if (!g_isolation.isEmpty())
            QSKIP(qPrintable(
                QStringLiteral("no loopback-only network namespace here (%1)").arg(g_isolation)));
        const QString path = QString::fromUtf8(TDJSON_LIBRARY);
        if (path.isEmpty() || !QFile::exists(path))
            QSKIP("libtdjson is not built or fetched");
        QLibrary lib(path);
        QVERIFY2(lib.load(), qPrintable(lib.errorString()));
        const auto createId = reinterpret_cast<int (*)()>(lib.resolve("td_create_client_id"));
        const auto send = reinterpret_cast<void (*)(int, const char *)>(lib.resolve("td_send"));
        const auto receive = reinterpret_cast<const char *(*)(double)>(lib.resolve("td_receive"));
        const auto execute =
            reinterpret_cast<const char *(*)(const char *)>(lib.resolve("td_execute"));
        QVERIFY(createId && send && receive && execute);
        execute(R"({"@type": "setLogVerbosityLevel", "new_verbosity_level": 0})");

        QHash<QString, QJsonObject> byType; // one of each kind is enough
        for (const Row &r : kRows) {
            for (const QJsonObject &req : run(steps(QString::fromUtf8(r.steps))).requests)
                byType.insert(req.value(QStringLiteral("@type")).toString(), req);
        }
        // These change the client's state instead of answering.
        for (const char *t : {"setTdlibParameters", "setNetworkType", "addProxy"})
            byType.remove(QLatin1String(t));
        QVERIFY(byType.size() >= 25);
        const int client = createId();
        QHash<QString, QString> waiting; // tag -> @type
        for (QJsonObject req : qAsConst(byType)) {
            const QString tag = QStringLiteral("shape:%1").arg(waiting.size());
            waiting.insert(tag, req.value(QStringLiteral("@type")).toString());
            req.insert(QStringLiteral("@extra"), tag);
            send(client, QJsonDocument(req).toJson(QJsonDocument::Compact).constData());
        }
        QDeadlineTimer cap(60000);
        while (!waiting.isEmpty() && !cap.hasExpired()) {
            // Nothing (null) or an update parses to an object without a tag.
            const QJsonObject answer = QJsonDocument::fromJson(receive(1.0)).object();
            const QString type = waiting.take(answer.value(QStringLiteral("@extra")).toString());
            const QString message = answer.value(QStringLiteral("message")).toString();
            QVERIFY2(!message.contains(QLatin1String("Failed to parse")),
                     qPrintable(type + QStringLiteral(": ") + message));
        }
        QVERIFY2(waiting.isEmpty(),
                 qPrintable(QStringList(waiting.values()).join(QLatin1Char(' '))));
        // TDLib's threads must be done before the process ends.
        send(client, R"({"@type": "close"})");
        bool closed = false;
        while (!closed && !cap.hasExpired()) {
            const char *text = receive(1.0);
            closed = text && QByteArray(text).contains("authorizationStateClosed");
        }
        QVERIFY(closed);
    }

    // The waveform sent with a voice note, from a real Ogg Opus file made by
    // the recording pipeline with libopus: a second of silence, then one of a
    // tone. Nothing comes from what is not Ogg Opus.
    void voiceWaveform()
    {
        QTemporaryDir dir;
        const QString wav = dir.filePath(QStringLiteral("in.wav"));
        const QString ogg = dir.filePath(QStringLiteral("in.ogg"));
        QVector<qint16> pcm(48000, 0);
        QVERIFY(testaudio::writeFile(
            wav, testaudio::wav_bytes(pcm + testaudio::tone(440, 1.0, 48000, 1), 48000, 1)));
        OpusLib opus;
        QString error;
        QVERIFY2(encode_wav_to_voice_ogg(opus, wav, ogg, &error), qPrintable(error));
        const QByteArray packed = td_voice_waveform(ogg);
        QCOMPARE(packed.size(), 63);
        const QList<int> values = td_unpack_waveform(packed);
        QCOMPARE(values.size(), kTdWaveformValues);
        for (int i = 0; i < 45; ++i)
            QVERIFY2(values.at(i) == 0 && values.at(99 - i) >= 24, qPrintable(QString::number(i)));
        QVERIFY(testaudio::writeFile(wav, QByteArray(4096, 'x')));
        QVERIFY(td_voice_waveform(wav).isEmpty() && td_voice_waveform(wav + "-missing").isEmpty());
    }
};

// Into a loopback-only network namespace first, since one case loads TDLib.
int main(int argc, char **argv)
{
    if (!test_netns::enterLoopbackOnlyNamespace(&g_isolation) && g_isolation.isEmpty())
        g_isolation = QStringLiteral("unknown");
    QCoreApplication app(argc, argv);
    TestTdTranslator test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "test_td_translator.moc"
