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
        QVariantMap chat{{QStringLiteral("id"), QStringLiteral("5")},
                         {QStringLiteral("title"), title},
                         {QStringLiteral("chat_type"), chatType},
                         {QStringLiteral("order"), QStringLiteral("30")}};
        for (auto it = extra.cbegin(); it != extra.cend(); ++it)
            chat.insert(it.key(), it.value());
        chats.upsertChatRow(chat);
        chats.upsertChatRow({{QStringLiteral("id"), QStringLiteral("7")},
                             {QStringLiteral("title"), QStringLiteral("Bob")},
                             {QStringLiteral("order"), QStringLiteral("20")}});
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
    // "action|chat type|title|dialog title|body|confirm label|command"; no
    // dialog title means no dialog.
    QTest::addColumn<QString>("testCase");
    const auto row = [](const char *name, const char *testCase) {
        QTest::newRow(name) << QString::fromUtf8(testCase);
    };
    row("clear", "clear_history|private| Ann |Clear history|Clear history in \"Ann\"?|Clear|"
                 "clear_history 5");
    row("clear untitled", "clear_history|private| |Clear history|Clear history?|Clear|"
                          "clear_history 5");
    row("join", "join|supergroup|Ann|Join|Join \"Ann\"?|Join|join 5");
    row("join channel untitled", "join|channel| |Join|Join channel?|Join|join 5");
    row("join group untitled", "join|basic_group| |Join|Join group?|Join|join 5");
    row("delete", "delete_chat|private|Ann|Delete chat|Delete \"Ann\" and remove it from the "
                  "chat list?|Delete|delete_chat 5");
    row("delete untitled", "delete_chat|private| |Delete chat|Delete chat and remove it from the "
                           "chat list?|Delete|delete_chat 5");
    row("leave", "leave|channel|Ann|Leave|Leave \"Ann\"?|Leave|leave 5");
    row("leave channel untitled", "leave|channel| |Leave|Leave channel?|Leave|leave 5");
    row("leave group untitled", "leave|supergroup| |Leave|Leave group?|Leave|leave 5");
    row("unknown word", "archive|private|Ann||||");
}

void TestChatDetails::confirm()
{
    QFETCH(QString, testCase);
    const QStringList f = testCase.split(QLatin1Char('|'));
    const QString action = f.value(0), dialogTitle = f.value(3), line = f.value(6);

    Harness h(f.value(1), f.value(2));
    h.actions.confirmChatAction(action);
    if (dialogTitle.isEmpty()) {
        QVERIFY(h.dialogs.isEmpty());
        return;
    }
    QCOMPARE(h.dialogs.size(), 1);
    const Request r = h.dialogs.first();
    QCOMPARE(r.title, dialogTitle);
    QCOMPARE(r.body, f.value(4));
    QCOMPARE(r.confirmLabel, f.value(5));
    QCOMPARE(r.cancelLabel, QStringLiteral("Cancel"));

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
    QTest::addColumn<QString>("chatType");
    QTest::addColumn<QVariantMap>("row");
    QTest::addColumn<QVariantMap>("info");
    QTest::addColumn<QString>("items");
    const QVariantMap member{{QStringLiteral("is_member"), true}};
    const QVariantMap muted{{QStringLiteral("muted"), QStringLiteral("true")}};
    QTest::newRow("private") << "private" << QVariantMap() << QVariantMap()
                             << "Search|Mute|Clear history|Delete chat";
    QTest::newRow("muted group member")
        << "supergroup" << muted << member << "Search|Unmute|Clear history|Leave|Delete chat";
    QTest::newRow("group, not a member")
        << "basic_group" << QVariantMap() << QVariantMap{{QStringLiteral("is_member"), false}}
        << "Search|Mute|Clear history|Delete chat";
    QTest::newRow("channel member")
        << "channel" << QVariantMap() << member << "Search|Mute|Leave|Delete chat";
}

void TestChatDetails::overflow()
{
    QFETCH(QString, chatType);
    QFETCH(QVariantMap, row);
    QFETCH(QVariantMap, info);
    QFETCH(QString, items);
    Harness h(chatType, QStringLiteral("Ann"), row);
    h.info.insert(5, info);
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
