#include "backend_link/app_log.h"
#include "chats/avatar_download_queue.h"
#include "chats/avatars.h"
#include "chats/chat_list_model.h"
#include "events/event_dispatcher.h"
#include "platform/array_data_model.h"
#include "platform/toaster.h"

#include <QImage>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <vector>

namespace {

const QStringList kTypes = {
    "backend_ready",
    "auth_state",
    "need",
    "code_info",
    "td_error",
    "reaction_ok",
    "reaction_error",
    "call_update",
    "call_signaling",
    "message_properties",
    "message_properties_error",
    "edit_error",
    "delete_error",
    "me",
    "user",
    "chats_begin",
    "chat",
    "tg_resolve_error",
    "tg_resolve",
    "file_progress",
    "file",
    "hub_notify_message",
    "chat_title",
    "chat_last_message",
    "chat_position",
    "chat_unread",
    "chat_online_count",
    "chat_read_outbox",
    "chat_notify",
    "chat_info",
    "chat_info_error",
    "chat_mute_toggled",
    "history_cleared",
    "chat_left",
    "chat_joined",
    "chat_deleted",
    "action_error",
    "search_begin",
    "search_chat",
    "search_end",
    "connection_state",
    "pinned_message",
    "pinned_none",
    "pinned_list_begin",
    "pinned_list_item",
    "pinned_list_end",
    "chats_end",
    "history_begin",
    "history_clear",
    "message",
    "message_update",
    "message_reactions",
    "messages_deleted",
    "message_send_acked",
    "message_send_failed",
    "message_send_succeeded",
    "message_new",
    "history_end",
    "send_ok",
    "td_closed",
};

// A dispatcher wired to real collaborators: a chat list model, an avatar
// queue, an in-app log with its file, and a toaster that records.
struct Fixture
{
    QTemporaryDir dir;
    AppLog log;
    RecordingToaster toaster;
    QStringList sent;
    ArrayDataModel rows;
    ChatListModel chats{&rows};
    QStringList queueSent;
    AvatarDownloadQueue avatars{[this](const QString &l) { queueSent.append(l); }, nullptr};
    std::unique_ptr<EventDispatcher> dispatcher;
    std::vector<std::unique_ptr<QSignalSpy>> spies;

    Fixture()
    {
        log.setUiDebugLogPath(dir.filePath(QStringLiteral("ui_debug.log")));
        EventDispatcherDeps deps;
        deps.chats = &chats;
        deps.avatars = &avatars;
        deps.toaster = &toaster;
        deps.log = &log;
        deps.sendLine = [this](const QString &l) { sent.append(l); };
        deps.dataDir = dir.path();
        dispatcher = std::make_unique<EventDispatcher>(deps);
    }

    QVariantMap parse(QString json) const
    {
        json.replace(QStringLiteral("$DATA"), dir.path());
        QJsonParseError err;
        const QJsonDocument doc = QJsonDocument::fromJson(json.toUtf8(), &err);
        if (err.error != QJsonParseError::NoError) {
            qWarning("bad test json: %s", qPrintable(json));
        }
        return doc.object().toVariantMap();
    }

    void feed(const QString &json) { dispatcher->handleEventMap(parse(json)); }

    // The usual signed-in state: two chats, the first one open, known peer.
    void seed()
    {
        feed(R"({"type":"chats_begin"})");
        feed(R"({"type":"me","id":"7","first_name":"Me","photo_small_id":900})");
        feed(R"({"type":"chat","id":100,"title":"Alpha","chat_type":"private","order":"50",
                 "photo_small_id":700,"last_message_id":5,"last_read_outbox_message_id":3})");
        feed(R"({"type":"chat","id":200,"title":"Beta","chat_type":"supergroup","order":"40"})");
        feed(R"({"type":"chats_end"})");
        feed(R"({"type":"chat_info","chat_id":100,"user_id":42})");
        dispatcher->setCurrentChat(100, QStringLiteral("private"));
    }

    void watchSignals()
    {
        const QMetaObject &mo = EventDispatcher::staticMetaObject;
        for (int i = mo.methodOffset(); i < mo.methodCount(); ++i) {
            const QMetaMethod m = mo.method(i);
            if (m.methodType() != QMetaMethod::Signal) {
                continue;
            }
            const QByteArray sig = "2" + m.methodSignature();
            spies.push_back(std::make_unique<QSignalSpy>(dispatcher.get(), sig.constData()));
        }
    }

    void resetRecords()
    {
        log.clear();
        toaster.clear();
        sent.clear();
        QFile::remove(log.uiDebugLogPath());
    }

    QStringList firedSignals() const
    {
        QStringList names;
        for (const auto &spy : spies) {
            if (!spy->isEmpty()) {
                names.append(QString::fromLatin1(spy->signal().left(spy->signal().indexOf('('))));
            }
        }
        names.sort();
        return names;
    }

    QVariantList lastArgs(const QString &name) const
    {
        for (const auto &spy : spies) {
            if (spy->signal().startsWith(name.toLatin1() + "(") && !spy->isEmpty()) {
                return spy->last();
            }
        }
        return QVariantList();
    }

    QStringList fileLogLines() const
    {
        QFile f(log.uiDebugLogPath());
        QStringList lines;
        if (!f.open(QIODevice::ReadOnly)) {
            return lines;
        }
        for (const QByteArray &line : f.readAll().split('\n')) {
            if (!line.isEmpty()) {
                // Strip the timestamp.
                lines.append(QString::fromUtf8(line.mid(line.indexOf(' ') + 1)) +
                             QLatin1Char('\n'));
            }
        }
        return lines;
    }

    QString ids() const
    {
        QStringList out;
        for (int i = 0; i < chats.size(); ++i) {
            out.append(chats.rowAt(i).value(QStringLiteral("id")).toString());
        }
        return out.join(QLatin1Char(','));
    }
};

QString signalArgText(const QVariant &v)
{
    if (v.userType() == qMetaTypeId<QVariantMap>()) {
        return QString::fromUtf8(QJsonDocument::fromVariant(v).toJson(QJsonDocument::Compact));
    }
    return v.toString();
}

} // namespace

class TestEventDispatcher : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void vocabulary();
    void events_data();
    void events();
    void chatsRequestedOnce();
    void pendingResolveOnAuth_data();
    void pendingResolveOnAuth();
    void ignoredWithoutTrace_data();
    void ignoredWithoutTrace();
    void repeatedUnreadLeavesModelAlone();
    void avatarFileMakesRoundPng();
    void senderInfoFromUserEvent();
};

void TestEventDispatcher::initTestCase()
{
    qRegisterMetaType<OwnProfile>();
    qRegisterMetaType<QList<QVariantMap>>();
}

void TestEventDispatcher::vocabulary()
{
    QCOMPARE(EventDispatcher::eventTypes(), kTypes);
}

void TestEventDispatcher::events_data()
{
    // setup: events fed before recording starts ("|"-separated JSON), plus
    // "pending:<name>" and "search:<req>". checks: ";"-separated facts:
    //   ids=<order>  row:<id>:<key>=<value> (value "-" = absent)
    //   status=<text>  requested=<file id>  notrequested=<file id>
    //   arg:<signal>:<n>=<text>  info:<chat>:<key>=<value>  pending=<text>
    //   searchrows=<n>  avatarpng:<chat id>
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QString>("event");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<QStringList>("fileLog");
    QTest::addColumn<QStringList>("toasts");
    QTest::addColumn<QStringList>("sent");
    QTest::addColumn<QStringList>("signalNames");
    QTest::addColumn<QString>("checks");

    using L = QStringList;
    QTest::newRow("backend_ready") << ""
                                   << R"({"type":"backend_ready"})" << L{} << L{} << L{} << L{}
                                   << L{"statusTextChanged"} << "status=Backend ready";
    QTest::newRow("auth_state Ready")
        << ""
        << R"({"type":"auth_state","state":"Ready"})" << L{} << L{} << L{} << L{"chats 60"}
        << L{"authStateChanged", "authorizationReady", "hubOpenRequestCheckRequested",
             "statusTextChanged"}
        << "status=Auth: Ready;arg:authorizationReady:0=true;arg:authStateChanged:1=true";
    QTest::newRow("auth_state WaitCode")
        << ""
        << R"({"type":"auth_state","state":"WaitCode"})" << L{} << L{} << L{} << L{}
        << L{"authStateChanged", "hubOpenRequestCheckRequested", "meChanged",
             "signedInViewResetRequested", "statusTextChanged"}
        << "status=Auth: WaitCode;arg:authStateChanged:1=false;ids=100,200";
    QTest::newRow("need") << ""
                          << R"({"type":"need","what":"code"})" << L{} << L{} << L{} << L{}
                          << L{"needReceived", "statusTextChanged"}
                          << "status=Need: code;arg:needReceived:0=code";
    QTest::newRow("code_info") << ""
                               << R"({"type":"code_info","delivery":"sms"})"
                               << L{"[event] code_info delivery=sms\n"} << L{} << L{} << L{}
                               << L{"codeInfoReceived"} << "";
    QTest::newRow("td_error react")
        << ""
        << R"({"type":"td_error","json":"{\"message\":\"Too many\",\"@extra\":\"react:5\"}"})"
        << L{"[event] td_error extra=react:5 message=Too many\n"} << L{} << L{"Too many"} << L{}
        << L{} << "";
    QTest::newRow("td_error send")
        << ""
        << R"({"type":"td_error","json":"{\"message\":\"Flood\",\"@extra\":\"send:9\"}"})"
        << L{"[event] td_error extra=send:9 message=Flood\n"} << L{} << L{"Flood"} << L{} << L{}
        << "";
    QTest::newRow("td_error other tag")
        << ""
        << R"({"type":"td_error","json":"{\"message\":\"x\",\"@extra\":\"open:1\"}"})"
        << L{"[event] td_error extra=open:1 message=x\n"} << L{} << L{} << L{} << L{} << "";
    QTest::newRow("td_error without extra")
        << ""
        << R"({"type":"td_error","json":"{\"message\":\"x\"}"})" << L{"[event] td_error\n"} << L{}
        << L{} << L{} << L{} << "";
    QTest::newRow("td_error bad json") << ""
                                       << R"({"type":"td_error","json":"{oops"})"
                                       << L{"[event] td_error\n"} << L{} << L{} << L{} << L{} << "";
    QTest::newRow("reaction_ok") << ""
                                 << R"({"type":"reaction_ok","chat_id":100,"id":5,"mode":"add"})"
                                 << L{"[event] reaction_ok chat_id=100 msg_id=5 mode=add\n"}
                                 << L{"react: ok chat_id=100 msg_id=5 mode=add\n"} << L{} << L{}
                                 << L{} << "";
    const QString longMessage = QString(250, QLatin1Char('m'));
    QTest::newRow("reaction_error long message")
        << ""
        << QStringLiteral(
               R"({"type":"reaction_error","chat_id":1,"id":2,"mode":"add","code":400,"message":"%1"})")
               .arg(longMessage)
        << L{QStringLiteral(
                 "[event] reaction_error chat_id=1 msg_id=2 mode=add code=400 message=%1\n")
                 .arg(longMessage)}
        << L{QStringLiteral("react: error chat_id=1 msg_id=2 mode=add code=400 msg=%1\n")
                 .arg(longMessage.left(200))}
        << L{longMessage} << L{} << L{} << "";
    QTest::newRow("reaction_error empty message")
        << ""
        << R"({"type":"reaction_error","chat_id":1,"id":2,"mode":"remove","code":3})"
        << L{"[event] reaction_error chat_id=1 msg_id=2 mode=remove code=3 message=\n"}
        << L{"react: error chat_id=1 msg_id=2 mode=remove code=3 msg=\n"} << L{"Reaction failed"}
        << L{} << L{} << "";
    QTest::newRow("call_update")
        << ""
        << R"({"type":"call_update","call_id":3,"user_id":42,"outgoing":true,"state":"ringing"})"
        << L{"[event] call_update call_id=3 user_id=42 outgoing=true state=ringing\n"} << L{} << L{}
        << L{} << L{} << "";
    QTest::newRow("call_signaling")
        << ""
        << R"({"type":"call_signaling","call_id":3,"b64_len":120})"
        << L{"[event] call_signaling call_id=3 b64_len=120\n"} << L{} << L{} << L{} << L{} << "";
    QTest::newRow("message_properties")
        << ""
        << R"({"type":"message_properties","chat_id":100,"id":5,"can_be_replied":true})" << L{}
        << L{} << L{} << L{} << L{"messageEvent"} << "arg:messageEvent:0~message_properties";
    QTest::newRow("message_properties_error")
        << ""
        << R"({"type":"message_properties_error","chat_id":100,"id":5})" << L{} << L{} << L{} << L{}
        << L{"messageEvent"} << "";
    QTest::newRow("edit_error") << ""
                                << R"({"type":"edit_error","code":400,"message":"boom"})"
                                << L{"[event] edit_error code=400 msg=boom\n"} << L{}
                                << L{"Edit failed: boom"} << L{} << L{} << "";
    QTest::newRow("edit_error empty")
        << ""
        << R"({"type":"edit_error","code":400})" << L{"[event] edit_error code=400 msg=\n"} << L{}
        << L{"Edit failed"} << L{} << L{} << "";
    QTest::newRow("delete_error") << ""
                                  << R"({"type":"delete_error","code":403,"message":"no"})"
                                  << L{"[event] delete_error code=403 msg=no\n"} << L{}
                                  << L{"Delete failed: no"} << L{} << L{} << "";
    QTest::newRow("delete_error empty")
        << ""
        << R"({"type":"delete_error","code":403})" << L{"[event] delete_error code=403 msg=\n"}
        << L{} << L{"Delete failed"} << L{} << L{} << "";
    QTest::newRow("me")
        << ""
        << R"({"type":"me","id":" 7 ","first_name":" Ann ","last_name":"Lee ","username":"ann","phone":"+1","photo_small_id":901})"
        << L{} << L{} << L{} << L{} << L{"meChanged", "meDebugTextChanged"}
        << "arg:meDebugTextChanged:0=ME id=7;requested=901";
    QTest::newRow("user peer of open chat")
        << ""
        << R"({"type":"user","id":42,"name":"Bob","photo_small_id":0,"status_type":" Online "})"
        << L{} << L{} << L{} << L{} << L{"chatHeaderSubtitleChanged"}
        << "arg:chatHeaderSubtitleChanged:0=online";
    QTest::newRow("user is me")
        << ""
        << R"({"type":"user","id":7,"name":" Me Too ","photo_small_id":902,"status_type":"online"})"
        << L{} << L{} << L{} << L{} << L{"meChanged"} << "requested=902";
    QTest::newRow("user other")
        << ""
        << R"({"type":"user","id":55,"name":"Zed","status_type":"recently"})" << L{} << L{} << L{}
        << L{} << L{} << "";
    QTest::newRow("chats_begin") << ""
                                 << R"({"type":"chats_begin"})" << L{"[event] chats_begin\n"} << L{}
                                 << L{} << L{} << L{} << "ids=;notrequested=700";
    QTest::newRow("chat new")
        << ""
        << R"({"type":"chat","id":300,"title":"Gamma","chat_type":"channel","order":"60","photo_small_id":3000,
               "unread_count":2,"pinned":true,"last_text":"a\nb","last_date":1700000000,"last_outgoing":false,"muted_known":true,"muted":false})"
        << L{} << L{} << L{} << L{} << L{"hubOpenRequestCheckRequested"}
        << "ids=300,100,200;row:300:last_text=a b;row:300:unread_count=2;row:300:muted=false;"
           "row:300:last_outgoing=false;row:300:order=60;row:300:pinned=true;requested=3000";
    QTest::newRow("chat order 0 not written")
        << ""
        << R"({"type":"chat","id":301,"title":"Delta","order":0})" << L{} << L{} << L{} << L{}
        << L{"hubOpenRequestCheckRequested"}
        << "ids=100,200,301;row:301:order=-;row:301:photo_small_id=-";
    QTest::newRow("chat current read outbox")
        << ""
        << R"({"type":"chat","id":100,"last_read_outbox_message_id":9})" << L{} << L{} << L{} << L{}
        << L{"currentChatReadOutboxChanged", "hubOpenRequestCheckRequested"}
        << "arg:currentChatReadOutboxChanged:0=3;arg:currentChatReadOutboxChanged:1=9;"
           "arg:currentChatReadOutboxChanged:2=false;row:100:last_read_outbox_message_id=9";
    QTest::newRow("tg_resolve_error")
        << "pending:Durov"
        << R"({"type":"tg_resolve_error","username":"durov","code":400,"message":"not found"})"
        << L{"ui: tg_resolve_error username=durov code=400 msg=not found\n"} << L{}
        << L{"Can't open @durov: not found"} << L{} << L{} << "pending=";
    QTest::newRow("tg_resolve_error other name")
        << "pending:alice"
        << R"({"type":"tg_resolve_error","username":"bob","code":400})"
        << L{"ui: tg_resolve_error username=bob code=400 msg=\n"} << L{} << L{"Can't open @bob"}
        << L{} << L{} << "pending=alice";
    QTest::newRow("tg_resolve_error no name")
        << ""
        << R"({"type":"tg_resolve_error","code":400,"message":"x"})"
        << L{"ui: tg_resolve_error username= code=400 msg=x\n"} << L{}
        << L{"Can't open Telegram link"} << L{} << L{} << "";
    QTest::newRow("tg_resolve")
        << "pending:NEWS"
        << R"({"type":"tg_resolve","username":"news","chat_id":555,"chat_type":"channel","photo_small_id":77})"
        << L{"ui: tg_resolve username=news chat_id=555\n"} << L{} << L{} << L{}
        << L{"openChatRequested"}
        << "pending=;requested=77;arg:openChatRequested:0="
           R"({"chat_type":"channel","id":"555","photo_small_id":"77","title":"@news"})";
    QTest::newRow("tg_resolve titled")
        << ""
        << R"({"type":"tg_resolve","chat_id":556,"title":"Town"})"
        << L{"ui: tg_resolve username= chat_id=556\n"} << L{} << L{} << L{}
        << L{"openChatRequested"}
        << "arg:openChatRequested:0="
           R"({"chat_type":"","id":"556","photo_small_id":"0","title":"Town"})";
    QTest::newRow("tg_resolve untitled")
        << ""
        << R"({"type":"tg_resolve","chat_id":557})" << L{"ui: tg_resolve username= chat_id=557\n"}
        << L{} << L{} << L{} << L{"openChatRequested"}
        << "arg:openChatRequested:0~\"title\":\"Chat\"";
    QTest::newRow("tg_resolve zero chat")
        << ""
        << R"({"type":"tg_resolve","username":"news","chat_id":0})"
        << L{"ui: tg_resolve username=news chat_id=0\n"} << L{} << L{"Can't open @news"} << L{}
        << L{} << "";
    QTest::newRow("file_progress")
        << ""
        << R"({"type":"file_progress","id":5,"downloaded":10,"total":20})" << L{} << L{} << L{}
        << L{} << L{"fileEvent"} << "";
    QTest::newRow("file avatar") << ""
                                 << R"({"type":"file","id":700,"path":"$DATA/src.png"})" << L{}
                                 << L{} << L{} << L{} << L{"avatarReady", "fileEvent"}
                                 << "avatarpng:100";
    QTest::newRow("file own photo")
        << ""
        << R"({"type":"file","id":900,"path":"$DATA/src.png"})" << L{} << L{} << L{} << L{}
        << L{"avatarReady", "fileEvent", "meChanged"} << "";
    QTest::newRow("file other") << ""
                                << R"({"type":"file","id":12345,"path":"$DATA/src.png"})" << L{}
                                << L{} << L{} << L{} << L{"fileEvent"} << "row:100:avatar_path=-";
    QTest::newRow("hub_notify_message") << ""
                                        << R"({"type":"hub_notify_message","chat_id":100})" << L{}
                                        << L{} << L{} << L{} << L{} << "ids=100,200";
    QTest::newRow("chat_title current")
        << ""
        << R"({"type":"chat_title","chat_id":100,"title":"Renamed"})" << L{} << L{} << L{} << L{}
        << L{"currentChatTitleChanged"}
        << "row:100:title=Renamed;arg:currentChatTitleChanged:0=Renamed";
    QTest::newRow("chat_title unknown") << ""
                                        << R"({"type":"chat_title","chat_id":999,"title":"X"})"
                                        << L{} << L{} << L{} << L{} << L{} << "ids=100,200";
    QTest::newRow("chat_last_message")
        << ""
        << R"({"type":"chat_last_message","chat_id":200,"message_id":77,"date":1700000000,"content_type":"text","text":"x\ry","outgoing":true})"
        << L{} << L{} << L{} << L{} << L{}
        << "ids=100,200;row:200:last_text=x y;row:200:last_message_id=77;"
           "row:200:last_date=1700000000;row:200:last_outgoing=true;row:200:last_content_type=text";
    QTest::newRow("chat_last_message no date")
        << ""
        << R"({"type":"chat_last_message","chat_id":200,"message_id":78,"text":"t"})" << L{} << L{}
        << L{} << L{} << L{} << "row:200:last_date=-;row:200:last_outgoing=false";
    QTest::newRow("chat_last_message unknown chat")
        << ""
        << R"({"type":"chat_last_message","chat_id":999,"message_id":78,"text":"t"})" << L{} << L{}
        << L{} << L{} << L{} << "ids=100,200";
    QTest::newRow("chat_position moves")
        << ""
        << R"({"type":"chat_position","chat_id":200,"order":"99","pinned":true})" << L{} << L{}
        << L{} << L{} << L{} << "ids=200,100;row:200:pinned=true;row:200:order=99";
    QTest::newRow("chat_position order 0 removes")
        << ""
        << R"({"type":"chat_position","chat_id":100,"order":0})" << L{} << L{} << L{} << L{} << L{}
        << "ids=200";
    QTest::newRow("chat_position unknown") << ""
                                           << R"({"type":"chat_position","chat_id":999,"order":5})"
                                           << L{} << L{} << L{} << L{} << L{} << "ids=100,200";
    QTest::newRow("chat_position zero id") << ""
                                           << R"({"type":"chat_position","chat_id":0,"order":0})"
                                           << L{} << L{} << L{} << L{} << L{} << "ids=100,200";
    QTest::newRow("chat_unread") << ""
                                 << R"({"type":"chat_unread","chat_id":100,"unread_count":4})"
                                 << L{} << L{} << L{} << L{} << L{} << "row:100:unread_count=4";
    QTest::newRow("chat_online_count current group")
        << R"({"type":"chat_info","chat_id":200,"member_count":12})"
           "|current:200:supergroup"
        << R"({"type":"chat_online_count","chat_id":200,"count":3})" << L{} << L{} << L{} << L{}
        << L{"chatHeaderSubtitleChanged"}
        << "info:200:online_count=3;arg:chatHeaderSubtitleChanged:0=12 members, 3 online";
    QTest::newRow("chat_online_count other chat")
        << ""
        << R"({"type":"chat_online_count","chat_id":200,"count":3})" << L{} << L{} << L{} << L{}
        << L{} << "info:200:online_count=3";
    QTest::newRow("chat_read_outbox current")
        << ""
        << R"({"type":"chat_read_outbox","chat_id":100,"last_read_outbox_message_id":11})" << L{}
        << L{} << L{} << L{} << L{"currentChatReadOutboxChanged"}
        << "row:100:last_read_outbox_message_id=11;arg:currentChatReadOutboxChanged:0=3;"
           "arg:currentChatReadOutboxChanged:1=11;arg:currentChatReadOutboxChanged:2=true";
    QTest::newRow("chat_read_outbox other")
        << ""
        << R"({"type":"chat_read_outbox","chat_id":200,"last_read_outbox_message_id":11})" << L{}
        << L{} << L{} << L{} << L{} << "row:200:last_read_outbox_message_id=11";
    QTest::newRow("chat_notify")
        << ""
        << R"({"type":"chat_notify","chat_id":200,"muted_known":true,"muted":true})" << L{} << L{}
        << L{} << L{} << L{"chatInfoChanged"} << "row:200:muted=true;row:200:muted_known=true";
    QTest::newRow("chat_info current")
        << R"({"type":"user","id":43,"status_type":"last_week"})"
        << R"({"type":"chat_info","chat_id":100,"user_id":43,"about":"hi","member_count":0})" << L{}
        << L{} << L{} << L{} << L{"chatHeaderSubtitleChanged", "chatInfoChanged"}
        << "info:100:peer_user_id=43;info:100:about=hi;"
           "arg:chatHeaderSubtitleChanged:0=last seen within a week";
    QTest::newRow("chat_info channel")
        << "current:200:channel"
        << R"({"type":"chat_info","chat_id":200,"member_count":1500})" << L{} << L{} << L{} << L{}
        << L{"chatHeaderSubtitleChanged", "chatInfoChanged"}
        << "arg:chatHeaderSubtitleChanged:0=1500 subscribers";
    QTest::newRow("chat_info_error")
        << ""
        << R"({"type":"chat_info_error","chat_id":1,"code":400})" << L{} << L{}
        << L{"Chat info failed (400)"} << L{} << L{} << "";
    QTest::newRow("chat_info_error message")
        << ""
        << R"({"type":"chat_info_error","chat_id":1,"code":400,"message":"gone"})" << L{} << L{}
        << L{"gone"} << L{} << L{} << "";
    QTest::newRow("chat_mute_toggled")
        << ""
        << R"({"type":"chat_mute_toggled","chat_id":100,"muted":true})" << L{} << L{} << L{"Muted"}
        << L{} << L{"chatInfoChanged"} << "row:100:muted=true;row:100:muted_known=true";
    QTest::newRow("chat_mute_toggled off")
        << ""
        << R"({"type":"chat_mute_toggled","chat_id":100,"muted":false})" << L{} << L{}
        << L{"Unmuted"} << L{} << L{"chatInfoChanged"} << "row:100:muted=false";
    QTest::newRow("history_cleared current")
        << ""
        << R"({"type":"history_cleared","chat_id":100})" << L{} << L{} << L{"History cleared"}
        << L{"history 100 30"} << L{} << "";
    QTest::newRow("history_cleared other") << ""
                                           << R"({"type":"history_cleared","chat_id":200})" << L{}
                                           << L{} << L{"History cleared"} << L{} << L{} << "";
    QTest::newRow("history_cleared zero")
        << ""
        << R"({"type":"history_cleared","chat_id":0})" << L{} << L{} << L{} << L{} << L{} << "";
    QTest::newRow("chat_left current")
        << ""
        << R"({"type":"chat_left","chat_id":100})" << L{} << L{} << L{"Left"} << L{}
        << L{"backToChatsRequested"} << "ids=200";
    QTest::newRow("chat_joined") << ""
                                 << R"({"type":"chat_joined","chat_id":300})" << L{} << L{}
                                 << L{"Joined"} << L{"chats 60"} << L{"chatInfoChanged"}
                                 << "info:300:is_member=true";
    QTest::newRow("chat_deleted other") << ""
                                        << R"({"type":"chat_deleted","chat_id":200})" << L{} << L{}
                                        << L{"Deleted"} << L{} << L{} << "ids=100";
    QTest::newRow("action_error") << ""
                                  << R"({"type":"action_error","action":"leave","message":"nope"})"
                                  << L{} << L{} << L{"Action failed: nope"} << L{} << L{} << "";
    QTest::newRow("action_error empty") << ""
                                        << R"({"type":"action_error","action":"leave"})" << L{}
                                        << L{} << L{"Action failed"} << L{} << L{} << "";
    QTest::newRow("search_begin clears")
        << R"(search:5|{"type":"search_chat","req":5,"id":1,"title":"a"})"
        << R"({"type":"search_begin","req":5})" << L{} << L{} << L{} << L{} << L{}
        << "searchrows=0";
    QTest::newRow("search_begin stale")
        << R"(search:5|{"type":"search_chat","req":5,"id":1,"title":"a"})"
        << R"({"type":"search_begin","req":4})" << L{} << L{} << L{} << L{} << L{}
        << "searchrows=1";
    QTest::newRow("search_chat")
        << "search:5"
        << R"({"type":"search_chat","req":5,"idx":0,"id":8,"title":"Found","photo_small_id":88})"
        << L{} << L{} << L{} << L{} << L{} << "searchrows=1;requested=88";
    QTest::newRow("search_chat stale") << "search:5"
                                       << R"({"type":"search_chat","req":6,"id":8})" << L{} << L{}
                                       << L{} << L{} << L{} << "searchrows=0";
    QTest::newRow("search_end empty")
        << "search:5"
        << R"({"type":"search_end","req":5})" << L{} << L{} << L{"No matches"} << L{} << L{} << "";
    QTest::newRow("search_end rows")
        << R"(search:5|{"type":"search_chat","req":5,"id":1,"title":"a"})"
        << R"({"type":"search_end","req":5})" << L{} << L{} << L{} << L{}
        << L{"chatSearchResultsReady"} << "";
    QTest::newRow("search_end zero req")
        << ""
        << R"({"type":"search_end","req":0})" << L{} << L{} << L{} << L{} << L{} << "";
    QTest::newRow("connection_state")
        << ""
        << R"({"type":"connection_state","state":"ready"})" << L{} << L{} << L{} << L{}
        << L{"connectionStateChanged"} << "arg:connectionStateChanged:0=ready";
    QTest::newRow("connection_state empty")
        << ""
        << R"({"type":"connection_state"})" << L{} << L{} << L{} << L{}
        << L{"connectionStateChanged"} << "arg:connectionStateChanged:0=unknown";
    for (const char *t : {"pinned_message", "pinned_none", "pinned_list_begin", "pinned_list_item",
                          "pinned_list_end"}) {
        QTest::newRow(t) << ""
                         << QStringLiteral(R"({"type":"%1","chat_id":100})").arg(QLatin1String(t))
                         << L{} << L{} << L{} << L{} << L{"pinnedEvent"}
                         << QStringLiteral("arg:pinnedEvent:0~%1").arg(QLatin1String(t));
    }
    QTest::newRow("chats_end")
        << R"({"type":"chats_begin"}|{"type":"chat","id":300,"order":1}|{"type":"chat","id":400,"order":90})"
        << R"({"type":"chats_end"})" << L{"[event] chats_end\n"} << L{} << L{} << L{}
        << L{"hubOpenRequestCheckRequested"} << "ids=400,300";
    for (const char *t :
         {"history_begin", "history_clear", "message", "message_reactions", "messages_deleted",
          "message_send_acked", "message_send_failed", "message_send_succeeded", "history_end"}) {
        QTest::newRow(t)
            << "" << QStringLiteral(R"({"type":"%1","chat_id":100})").arg(QLatin1String(t)) << L{}
            << L{} << L{} << L{} << L{"messageEvent"}
            << QStringLiteral("ids=100,200;arg:messageEvent:0~%1").arg(QLatin1String(t));
    }
    QTest::newRow("message_update last message")
        << ""
        << R"({"type":"message_update","chat_id":100,"id":5,"text":"edited\nnow"})" << L{} << L{}
        << L{} << L{} << L{"messageEvent"} << "row:100:last_text=edited now";
    QTest::newRow("message_update older message")
        << ""
        << R"({"type":"message_update","chat_id":100,"id":4,"text":"edited"})" << L{} << L{} << L{}
        << L{} << L{"messageEvent"} << "row:100:last_text=-";
    QTest::newRow("message_new")
        << ""
        << R"({"type":"message_new","chat_id":200,"id":80,"date":1700000500,"content_type":"text","text":"hi","outgoing":true})"
        << L{} << L{} << L{} << L{} << L{"messageEvent"}
        << "ids=100,200;row:200:last_text=hi;row:200:last_message_id=80;row:200:last_outgoing=true;"
           "row:200:last_date=1700000500";
    QTest::newRow("message_new unknown chat inserts")
        << ""
        << R"({"type":"message_new","chat_id":999,"id":1,"date":5,"text":"yo"})" << L{} << L{}
        << L{} << L{} << L{"messageEvent"} << "ids=100,200,999;row:999:last_text=yo";
    QTest::newRow("send_ok") << ""
                             << R"({"type":"send_ok"})" << L{"[event] send_ok\n"} << L{} << L{}
                             << L{} << L{} << "";
    QTest::newRow("td_closed") << ""
                               << R"({"type":"td_closed"})" << L{} << L{} << L{} << L{}
                               << L{"statusTextChanged"} << "status=TDLib closed";
}

void TestEventDispatcher::events()
{
    QFETCH(QString, setup);
    QFETCH(QString, event);
    QFETCH(QStringList, log);
    QFETCH(QStringList, fileLog);
    QFETCH(QStringList, toasts);
    QFETCH(QStringList, sent);
    QFETCH(QStringList, signalNames);
    QFETCH(QString, checks);

    Fixture f;
    QImage photo(160, 120, QImage::Format_RGB32);
    photo.fill(QColor(10, 200, 30));
    QVERIFY(photo.save(f.dir.filePath(QStringLiteral("src.png"))));
    f.seed();
    for (const QString &step : setup.split(QLatin1Char('|'), Qt::SkipEmptyParts)) {
        if (step.startsWith(QLatin1String("pending:"))) {
            f.dispatcher->setPendingResolveUsername(step.mid(8));
        } else if (step.startsWith(QLatin1String("search:"))) {
            f.dispatcher->setChatSearchRequest(step.mid(7).toLongLong());
        } else if (step.startsWith(QLatin1String("current:"))) {
            const QStringList p = step.split(QLatin1Char(':'));
            f.dispatcher->setCurrentChat(p.at(1).toLongLong(), p.at(2));
        } else {
            f.feed(step);
        }
    }
    f.resetRecords();
    f.watchSignals();

    f.feed(event);

    QCOMPARE(f.log.buffer(), log.join(QString()));
    QCOMPARE(f.fileLogLines(), fileLog);
    QCOMPARE(f.toaster.shown(), toasts);
    QCOMPARE(f.sent, sent);
    signalNames.sort();
    QCOMPARE(f.firedSignals(), signalNames);

    for (const QString &check : checks.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const int eq = check.indexOf(QLatin1Char('='));
        const int tilde = check.indexOf(QLatin1Char('~'));
        if (tilde >= 0 && (eq < 0 || tilde < eq)) {
            continue; // a containment check, below
        }
        const QString what = check.left(eq);
        const QString value = check.mid(eq + 1);
        if (what == QLatin1String("ids")) {
            QCOMPARE(f.ids(), value);
        } else if (what == QLatin1String("status")) {
            QCOMPARE(f.dispatcher->statusText(), value);
        } else if (what == QLatin1String("requested")) {
            QVERIFY2(f.avatars.wasRequested(value.toLongLong()), qPrintable(check));
        } else if (what == QLatin1String("notrequested")) {
            QVERIFY2(!f.avatars.wasRequested(value.toLongLong()), qPrintable(check));
        } else if (what == QLatin1String("pending")) {
            QCOMPARE(f.dispatcher->pendingResolveUsername(), value);
        } else if (what == QLatin1String("searchrows")) {
            QCOMPARE(f.dispatcher->chatSearchRows().size(), value.toInt());
        } else if (what.startsWith(QLatin1String("row:"))) {
            const QStringList p = what.split(QLatin1Char(':'));
            const QVariantMap row = f.chats.chatRowById(p.at(1).toLongLong());
            QVERIFY2(!row.isEmpty(), qPrintable(check));
            if (value == QLatin1String("-")) {
                QVERIFY2(!row.contains(p.at(2)), qPrintable(check));
            } else {
                QCOMPARE(row.value(p.at(2)).toString(), value);
            }
        } else if (what.startsWith(QLatin1String("info:"))) {
            const QStringList p = what.split(QLatin1Char(':'));
            QCOMPARE(f.dispatcher->chatInfo(p.at(1).toLongLong()).value(p.at(2)).toString(), value);
        } else if (what.startsWith(QLatin1String("arg:"))) {
            const QStringList p = what.split(QLatin1Char(':'));
            const QVariantList args = f.lastArgs(p.at(1));
            QVERIFY2(args.size() > p.at(2).toInt(), qPrintable(check));
            QCOMPARE(signalArgText(args.at(p.at(2).toInt())), value);
        } else if (what.startsWith(QLatin1String("avatarpng:"))) {
            const QString path = f.chats.chatRowById(what.mid(10).toLongLong())
                                     .value(QStringLiteral("avatar_path"))
                                     .toString();
            QVERIFY2(path.startsWith(f.dir.path() + QStringLiteral("/avatar-cache/")),
                     qPrintable(path));
            QVERIFY(path.endsWith(QLatin1String("-144.png")));
            const QImage round(path);
            QCOMPARE(round.size(), QSize(144, 144));
            QCOMPARE(qAlpha(round.pixel(0, 0)), 0);
        } else {
            QFAIL(qPrintable(QStringLiteral("unknown check ") + check));
        }
    }
    // "arg:<signal>:<n>~<text>": the argument contains the text.
    for (const QString &check : checks.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const int tilde = check.indexOf(QLatin1Char('~'));
        if (!check.startsWith(QLatin1String("arg:")) || tilde < 0 ||
            (check.indexOf(QLatin1Char('=')) >= 0 && check.indexOf(QLatin1Char('=')) < tilde)) {
            continue;
        }
        const QStringList p = check.left(tilde).split(QLatin1Char(':'));
        const QVariantList args = f.lastArgs(p.at(1));
        QVERIFY2(args.size() > p.at(2).toInt(), qPrintable(check));
        QVERIFY2(signalArgText(args.at(p.at(2).toInt())).contains(check.mid(tilde + 1)),
                 qPrintable(check));
    }
}

void TestEventDispatcher::chatsRequestedOnce()
{
    Fixture f;
    f.watchSignals();
    QList<bool> firsts;
    connect(f.dispatcher.get(), &EventDispatcher::authorizationReady, this,
            [&firsts](bool first) { firsts.append(first); });
    for (const char *state : {"WaitPhoneNumber", "Ready", "Ready", "WaitCode", "Ready"}) {
        f.feed(QStringLiteral(R"({"type":"auth_state","state":"%1"})").arg(QLatin1String(state)));
    }
    QCOMPARE(f.sent, QStringList{QStringLiteral("chats 60")});
    QCOMPARE(firsts, (QList<bool>{true, false, false}));
    QVERIFY(f.dispatcher->isAuthorized());
    QVERIFY(f.dispatcher->chatListRequested());
}

void TestEventDispatcher::pendingResolveOnAuth_data()
{
    QTest::addColumn<QString>("pending");
    QTest::addColumn<QString>("state");
    QTest::addColumn<QStringList>("sent");
    QTest::addColumn<QString>("log");
    QTest::newRow("ready") << " durov "
                           << "Ready" << QStringList{"chats 60", "resolve durov"}
                           << "ui: tg resolve send username=durov\n";
    QTest::newRow("not ready") << "durov"
                               << "WaitCode" << QStringList{"resolve durov"}
                               << "ui: tg resolve send username=durov\n";
    QTest::newRow("blank") << "   "
                           << "WaitCode" << QStringList{} << "";
    QTest::newRow("line break never reaches a command") << "du\nrov"
                                                        << "WaitCode" << QStringList{} << "";
}

void TestEventDispatcher::pendingResolveOnAuth()
{
    QFETCH(QString, pending);
    QFETCH(QString, state);
    QFETCH(QStringList, sent);
    QFETCH(QString, log);
    Fixture f;
    f.dispatcher->setPendingResolveUsername(pending);
    f.feed(QStringLiteral(R"({"type":"auth_state","state":"%1"})").arg(state));
    QCOMPARE(f.sent, sent);
    QCOMPARE(f.log.buffer(), log);
}

void TestEventDispatcher::ignoredWithoutTrace_data()
{
    QTest::addColumn<QString>("json");
    QTest::newRow("hub_notify_message") << R"({"type":"hub_notify_message","chat_id":100})";
    QTest::newRow("unknown type") << R"({"type":"brand_new","chat_id":100})";
    QTest::newRow("case differs") << R"({"type":"Chat","id":100,"title":"x"})";
    QTest::newRow("no type") << R"({"chat_id":100})";
    QTest::newRow("empty map") << R"({})";
}

void TestEventDispatcher::ignoredWithoutTrace()
{
    QFETCH(QString, json);
    Fixture f;
    f.seed();
    f.resetRecords();
    f.watchSignals();
    const QList<QVariantMap> before = f.rows.rows();
    QSignalSpy changed(&f.rows, &QAbstractItemModel::dataChanged);
    f.feed(json);
    QVERIFY(f.log.buffer().isEmpty());
    QVERIFY(f.fileLogLines().isEmpty());
    QVERIFY(f.toaster.shown().isEmpty());
    QVERIFY(f.sent.isEmpty());
    QVERIFY(f.firedSignals().isEmpty());
    QCOMPARE(f.rows.rows(), before);
    QCOMPARE(changed.count(), 0);
}

void TestEventDispatcher::repeatedUnreadLeavesModelAlone()
{
    Fixture f;
    f.seed();
    f.feed(R"({"type":"chat_unread","chat_id":200,"unread_count":6})");
    QSignalSpy changed(&f.rows, &QAbstractItemModel::dataChanged);
    QSignalSpy removed(&f.rows, &QAbstractItemModel::rowsRemoved);
    f.feed(R"({"type":"chat_unread","chat_id":200,"unread_count":6})");
    QCOMPARE(changed.count() + removed.count(), 0);
    f.feed(R"({"type":"chat_unread","chat_id":200,"unread_count":7})");
    QCOMPARE(changed.count(), 1);
}

void TestEventDispatcher::avatarFileMakesRoundPng()
{
    // The photo is asked for once through the paced queue, and the "file"
    // answer leaves a round PNG that the row shows.
    Fixture f;
    f.seed();
    QTRY_COMPARE_WITH_TIMEOUT(f.queueSent.size(), 2, 3000);
    QCOMPARE(f.queueSent, (QStringList{"download 900", "download 700"}));
    f.feed(R"({"type":"chats_begin"})");
    f.feed(R"({"type":"chat","id":100,"title":"Alpha","order":"50","photo_small_id":700})");
    f.feed(R"({"type":"chat","id":101,"title":"Alpha 2","order":"51","photo_small_id":700})");
    f.feed(R"({"type":"chats_end"})");
    // The restarted list empties the queue; the own photo (900), still
    // missing, is asked for again, and the shared chat photo once.
    QTRY_COMPARE_WITH_TIMEOUT(f.queueSent.size(), 4, 3000);
    QTest::qWait(500);
    QCOMPARE(f.queueSent,
             (QStringList{"download 900", "download 700", "download 900", "download 700"}));

    QImage photo(300, 200, QImage::Format_RGB32);
    photo.fill(QColor(200, 100, 0));
    const QString src = f.dir.filePath(QStringLiteral("dl/700.jpg"));
    QVERIFY(QDir().mkpath(f.dir.filePath(QStringLiteral("dl"))));
    QVERIFY(photo.save(src, "JPG"));
    QSignalSpy ready(f.dispatcher.get(), &EventDispatcher::avatarReady);
    f.dispatcher->handleEventMap({{"type", "file"}, {"id", 700}, {"path", src}});
    QCOMPARE(ready.count(), 1);
    const QString round = ready.at(0).at(1).toString();
    QCOMPARE(round, rounded_avatar_cache_path(src, f.dir.path()));
    QCOMPARE(f.chats.chatRowById(100).value(QStringLiteral("avatar_path")).toString(), round);
    QCOMPARE(f.chats.chatRowById(101).value(QStringLiteral("avatar_path")).toString(), round);
    const QImage img(round);
    QCOMPARE(img.size(), QSize(144, 144));
    QCOMPARE(qAlpha(img.pixel(143, 143)), 0);
    QCOMPARE(qAlpha(img.pixel(72, 72)), 255);
    QCOMPARE(f.dispatcher->avatarPathForFile(700), round);

    // A later full reload keeps the known round avatar on the row.
    f.feed(R"({"type":"chats_begin"})");
    f.feed(R"({"type":"chat","id":100,"title":"Alpha","order":"50","photo_small_id":700})");
    QCOMPARE(f.chats.chatRowById(100).value(QStringLiteral("avatar_path")).toString(), round);
}

void TestEventDispatcher::senderInfoFromUserEvent()
{
    Fixture f;
    ArrayDataModel messages;
    messages.append(QVariantMap{{"id", "1"}, {"sender_user_id", "42"}, {"sender_name", "Old"}});
    messages.append(QVariantMap{{"id", "2"}, {"sender_user_id", "43"}, {"sender_name", "Other"}});
    QList<QVariantMap> buffered{
        QVariantMap{{"id", "3"}, {"sender_user_id", "42"}, {"sender_photo_small_id", "5"}}};
    f.dispatcher->setMessageRows(&messages, &buffered);
    f.dispatcher->presence().setAvatarPath(66, QStringLiteral("/round/66.png"));
    QSignalSpy changed(&messages, &QAbstractItemModel::dataChanged);

    f.feed(R"({"type":"user","id":42,"name":"New","photo_small_id":66,"status_type":"online"})");
    QCOMPARE(changed.count(), 1);
    QCOMPARE(messages.value(0).value(QStringLiteral("sender_name")).toString(),
             QStringLiteral("New"));
    QCOMPARE(messages.value(0).value(QStringLiteral("sender_photo_small_id")).toString(),
             QStringLiteral("66"));
    QCOMPARE(messages.value(0).value(QStringLiteral("sender_avatar_path")).toString(),
             QStringLiteral("/round/66.png"));
    QCOMPARE(messages.value(1).value(QStringLiteral("sender_name")).toString(),
             QStringLiteral("Other"));
    QCOMPARE(buffered.at(0).value(QStringLiteral("sender_name")).toString(), QStringLiteral("New"));
    QCOMPARE(buffered.at(0).value(QStringLiteral("sender_photo_small_id")).toString(),
             QStringLiteral("66"));
    QCOMPARE(f.dispatcher->presence().statusText(42), QStringLiteral("online"));

    // An empty name and no photo change nothing.
    f.feed(R"({"type":"user","id":42,"name":"","photo_small_id":0,"status_type":"recently"})");
    QCOMPARE(changed.count(), 1);
    QCOMPARE(messages.value(0).value(QStringLiteral("sender_name")).toString(),
             QStringLiteral("New"));
    QCOMPARE(f.dispatcher->presence().statusText(42), QStringLiteral("last seen recently"));
}

QTEST_MAIN(TestEventDispatcher)
#include "test_event_dispatcher.moc"
