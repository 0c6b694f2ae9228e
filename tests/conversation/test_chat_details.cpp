#include "chats/chat_list_model.h"
#include "conversation/chat_actions.h"
#include "conversation/chat_session.h"
#include "conversation_test_util.h"
#include "platform/clipboard.h"

#include <QtTest>

namespace {

using Request = ChatActions::ConfirmRequest;

// Chat 5 of the given type and title open, chat 7 in the list too; the
// info record is what the test puts in it.
struct Harness : OpenChatModels
{
    QHash<qint64, QVariantMap> info;
    RecordingClipboard clipboard;
    ChatActions actions{&session, &chats, &clipboard, [this](qint64 id) { return info.value(id); }};
    QStringList lines, toasts;
    QList<Request> dialogs;

    explicit Harness(const QString &chatType = QStringLiteral("supergroup"),
                     const QString &title = QStringLiteral("Ann"), const QVariantMap &extra = {})
    {
        QObject::connect(&actions, &ChatActions::sendLineRequested,
                         [this](const QString &l) { lines << l; });
        QObject::connect(&actions, &ChatActions::toastRequested,
                         [this](const QString &t) { toasts << t; });
        QObject::connect(&actions, &ChatActions::dialogRequested,
                         [this](const Request &r) { dialogs << r; });
        QVariantMap chat =
            test_util::kv("id=5|title=" + title + "|chat_type=" + chatType + "|order=30");
        chat.insert(extra);
        chats.upsertChatRow(chat);
        addChat("id=7|title=Bob|order=20");
        session.openChatFromRow(chat);
    }
};

// "key=value key2=value2" with "~" for a blank.
QVariantMap fields(const QString &text)
{
    QVariantMap m = ev(QStringLiteral("x ") + text);
    m.remove(QStringLiteral("type"));
    return m;
}

} // namespace

class TestChatDetails : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void confirm_data();
    void confirm();
    void page_data();
    void page();
    void copy_data();
    void copy();
    void nothingWithoutChat();
    void newerDialogReplacesAndKeepsItsChat();
    void overflow_data();
    void overflow();
};

void TestChatDetails::confirm_data()
{
    // "action|chat type|title|body|command"; no body means no dialog.
    QTest::addColumn<QString>("testCase");
    for (const char *r :
         {"clear_history|private| Ann |Clear history in \"Ann\"?|clear_history 5",
          "clear_history|private| |Clear history?|clear_history 5",
          "join|supergroup|Ann|Join \"Ann\"?|join 5", "join|channel| |Join channel?|join 5",
          "join|basic_group| |Join group?|join 5",
          "delete_chat|private|Ann|Delete \"Ann\" and remove it from the chat "
          "list?|delete_chat 5",
          "delete_chat|private| |Delete chat and remove it from the chat "
          "list?|delete_chat 5",
          "leave|channel|Ann|Leave \"Ann\"?|leave 5", "leave|channel| |Leave channel?|leave 5",
          "leave|supergroup| |Leave group?|leave 5", "archive|private|Ann||"})
        QTest::newRow(r) << QString::fromUtf8(r);
}

void TestChatDetails::confirm()
{
    QFETCH(QString, testCase);
    const QStringList f = testCase.split(QLatin1Char('|'));
    const QString action = f.value(0), body = f.value(3), line = f.value(4);

    Harness h(f.value(1), f.value(2));
    h.actions.confirmChatAction(action);
    if (body.isEmpty()) {
        QVERIFY(h.dialogs.isEmpty());
        return;
    }
    QCOMPARE(h.dialogs.size(), 1);
    const Request r = h.dialogs.first();
    QCOMPARE(r.body, body);

    // Cancelled or closed: nothing goes out; confirmed: the command once.
    h.actions.onChatActionDialogFinished(r.properties, 3);
    h.actions.onChatActionDialogFinished(r.properties, 0);
    QVERIFY(h.lines.isEmpty());
    h.actions.onChatActionDialogFinished(r.properties, 2);
    QCOMPARE(h.lines, QStringList{line});

    // The page's buttons ask for the same confirmation.
    void (ChatActions::*tap)() =
        action == QLatin1String("clear_history") ? &ChatActions::onChatInfoClearHistory
        : action == QLatin1String("join")        ? &ChatActions::onChatInfoJoin
        : action == QLatin1String("leave")       ? &ChatActions::onChatInfoLeave
                                                 : &ChatActions::onChatInfoDeleteChat;
    (h.actions.*tap)();
    QCOMPARE(h.dialogs.size(), 2);
    QCOMPARE(h.dialogs.last().properties, r.properties);
}

// The page's facts in one line; "-" stands for the words saying there is no
// public link.
static QString describe(const ChatActions::Page &p)
{
    QStringList out{p.kind, p.notifications};
    const QList<QPair<const char *, QString>> facts = {
        {"about", p.about},
        {"user", p.username},
        {"phone", p.phone},
        {"count", p.membersCaption + QLatin1Char(':') + p.members},
        {"online", p.online},
        {"link", p.link == ChatActions::noPublicLinkText() ? QStringLiteral("-") : p.link},
        {"invite", p.inviteLink}};
    for (const auto &f : facts)
        if (!f.second.isEmpty() && f.second != QLatin1String(":"))
            out << QLatin1String(f.first) + QLatin1Char('=') + f.second;
    if (!p.canClearHistory)
        out << QStringLiteral("keeps history");
    if (p.canJoin)
        out << QStringLiteral("join");
    if (p.canLeave)
        out << QStringLiteral("leave");
    if (p.canCopyLink)
        out << QStringLiteral("copy");
    return out.join(QLatin1Char(';'));
}

void TestChatDetails::page_data()
{
    // "chat type|chat row fields|info record|the page (see describe)"
    QTest::addColumn<QString>("testCase");
    const auto row = [](const char *name, const char *testCase) {
        QTest::newRow(name) << testCase;
    };
    row("private, nothing known", "private|||Private chat;Unknown;link=-");
    row("private with phone", "private|muted_known=true|phone=15550001 about=Hi is_member=false|"
                              "Private chat;On;about=Hi;phone=+15550001;link=-");
    row("secret, muted", "secret|muted_known=true muted=true||Secret chat;Muted;link=-");
    row("group member", "basic_group||member_count=12 online_count=3 is_member=true|"
                        "Group;Unknown;count=Members:12;online=3;link=-;leave");
    row("supergroup, invite only", "supergroup|muted=true|link=https://t.me/+abc is_member=false|"
                                   "Supergroup;Unknown;count=Members:;link=-;"
                                   "invite=https://t.me/+abc;join");
    row("channel, public", "channel||username=@news link=https://t.me/+abc member_count=900 "
                           "online_count=40 is_member=false|Channel;Unknown;user=@news;"
                           "count=Subscribers:900;link=t.me/news;keeps history;join;copy");
}

void TestChatDetails::page()
{
    QFETCH(QString, testCase);
    const QStringList f = testCase.split(QLatin1Char('|'));
    Harness h(f.value(0), QStringLiteral("Ann"), fields(f.value(1)));
    if (!f.value(2).isEmpty())
        h.info.insert(5, fields(f.value(2)));
    const ChatActions::Page p = h.actions.updateChatInfoFromModel();
    QCOMPARE(p.id, qint64(5));
    QCOMPARE(p.title, QStringLiteral("Ann"));
    QCOMPARE(describe(p), f.value(3));

    // Notifications switch through the backend, whose answer updates the row.
    h.actions.onChatInfoToggleNotifications();
    QCOMPARE(h.lines, QStringList{QStringLiteral("mute_toggle 5")});
}

void TestChatDetails::copy_data()
{
    QTest::addColumn<QString>("info");
    QTest::addColumn<bool>("link"); // else the id
    QTest::addColumn<QString>("copied");

    QTest::newRow("link") << "username=news" << true << "t.me/news";
    QTest::newRow("link, one @ dropped") << "username=@@news" << true << "t.me/@news";
    QTest::newRow("no username: nothing copied") << "link=https://t.me/+abc" << true << "";
    QTest::newRow("id") << "username=news" << false << "5";
}

void TestChatDetails::copy()
{
    QFETCH(QString, info);
    QFETCH(bool, link);
    QFETCH(QString, copied);

    Harness h;
    if (!info.isEmpty())
        h.info.insert(5, fields(info));
    if (link)
        h.actions.onChatInfoCopyLink();
    else
        h.actions.onChatInfoCopyId();
    if (copied.isEmpty()) {
        QVERIFY(h.clipboard.entries().isEmpty());
        QCOMPARE(h.toasts, QStringList{ChatActions::noPublicLinkText()});
        return;
    }
    QCOMPARE(h.clipboard.entries().size(), 1);
    QCOMPARE(h.clipboard.entries().first().mimeType, QStringLiteral("text/plain"));
    QCOMPARE(QString::fromUtf8(h.clipboard.entries().first().data), copied);
    QCOMPARE(h.toasts, QStringList{QStringLiteral("Copied")});
}

void TestChatDetails::nothingWithoutChat()
{
    Harness h;
    h.session.onBackToChats();
    QCOMPARE(h.session.chatId(), qint64(0));
    h.actions.onChatInfoClearHistory();
    h.actions.onChatInfoJoin();
    h.actions.onChatInfoLeave();
    h.actions.onChatInfoDeleteChat();
    h.actions.onChatInfoToggleNotifications();
    h.actions.onChatInfoCopyLink();
    h.actions.onChatInfoCopyId();
    QVERIFY(h.dialogs.isEmpty());
    QVERIFY(h.lines.isEmpty());
    QVERIFY(h.toasts.isEmpty());
    QVERIFY(h.clipboard.entries().isEmpty());
    QCOMPARE(h.actions.updateChatInfoFromModel().id, qint64(0));
    // A dialog that lost its chat id sends nothing.
    h.actions.onChatActionDialogFinished(
        {{QStringLiteral("chat_action"), QStringLiteral("leave")}, {QStringLiteral("chat_id"), 0}},
        2);
    QVERIFY(h.lines.isEmpty());
}

void TestChatDetails::newerDialogReplacesAndKeepsItsChat()
{
    Harness h;
    h.actions.onChatInfoLeave();
    h.actions.onChatInfoClearHistory();
    QCOMPARE(h.dialogs.size(), 2);
    // The user opens another chat before confirming: the action stays with
    // the chat it was asked for.
    h.session.openChatFromRow(h.chats.chatRowById(7));
    QCOMPARE(h.session.chatId(), qint64(7));
    h.actions.onChatActionDialogFinished(h.dialogs.last().properties, 2);
    QCOMPARE(h.lines, QStringList{QStringLiteral("clear_history 5")});
}

void TestChatDetails::overflow_data()
{
    // "chat type|chat row|info record|entries"
    QTest::addColumn<QString>("testCase");
    for (const char *r : {"private|||Search|Mute|Clear history|Delete chat",
                          "supergroup|muted=true|is_member=true|Search|Unmute|Clear history|Leave|"
                          "Delete chat",
                          "basic_group||is_member=false|Search|Mute|Clear history|Delete chat",
                          "channel||is_member=true|Search|Mute|Leave|Delete chat"})
        QTest::newRow(r) << QString(r);
}

void TestChatDetails::overflow()
{
    QFETCH(QString, testCase);
    Harness h(testCase.section('|', 0, 0), QStringLiteral("Ann"),
              fields(testCase.section('|', 1, 1)));
    h.info.insert(5, fields(testCase.section('|', 2, 2)));
    const QString items = testCase.section('|', 3);
    const QStringList actions = h.actions.overflowActions();
    QStringList texts;
    for (const QString &a : actions)
        texts << h.actions.overflowActionText(a);
    QCOMPARE(texts.join(QLatin1Char('|')), items);

    // Each entry does what the information page's control does: the same
    // confirmation, then the same command; search opens the search instead.
    const QHash<QString, void (ChatActions::*)()> page = {
        {QStringLiteral("mute_toggle"), &ChatActions::onChatInfoToggleNotifications},
        {QStringLiteral("clear_history"), &ChatActions::onChatInfoClearHistory},
        {QStringLiteral("leave"), &ChatActions::onChatInfoLeave},
        {QStringLiteral("delete_chat"), &ChatActions::onChatInfoDeleteChat}};
    QSignalSpy search(&h.actions, &ChatActions::searchRequested);
    const auto outcome = [&h](const std::function<void()> &tap) -> QString {
        h.lines.clear();
        h.dialogs.clear();
        tap();
        for (const Request &r : qAsConst(h.dialogs))
            h.actions.onChatActionDialogFinished(r.properties, 2);
        return h.lines.join(QLatin1Char('|'));
    };
    for (const QString &a : actions) {
        const QString viaMenu = outcome([&] { h.actions.onOverflowActionChosen(a); });
        if (a == QLatin1String("search")) {
            QCOMPARE(search.count(), 1);
            QVERIFY(viaMenu.isEmpty());
            continue;
        }
        QVERIFY2(page.contains(a), qPrintable(a));
        QCOMPARE(viaMenu, outcome([&] { (h.actions.*page.value(a))(); }));
        QVERIFY(viaMenu.endsWith(QLatin1String(" 5")));
    }
}

QTEST_GUILESS_MAIN(TestChatDetails)
#include "test_chat_details.moc"
