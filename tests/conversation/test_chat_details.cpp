#include "conversation/chat_actions.h"
#include "conversation_test_util.h"
#include "platform/clipboard.h"

#include <QtTest>

namespace {

using Request = ChatActions::ConfirmRequest;

// Chat 5 of the given type and title open, chat 7 in the list too; info as the test puts it.
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

} // namespace

class TestChatDetails : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void confirm_data();
    void confirm();
    void page_data();
    void page();
    void nothingWithoutChat();
    void newerDialogReplacesAndKeepsItsChat();
};

void TestChatDetails::confirm_data()
{
    // "page button|chat type|title|dialog body"
    QTest::addColumn<QString>("testCase");
    for (const char *r :
         {"clear_history|private| Ann |Clear history in \"Ann\"?",
          "clear_history|private| |Clear history?", "join|supergroup|Ann|Join \"Ann\"?",
          "join|channel| |Join channel?", "join|basic_group| |Join group?",
          "delete_chat|private|Ann|Delete \"Ann\" and remove it from the chat list?",
          "delete_chat|private| |Delete chat and remove it from the chat list?",
          "leave|channel|Ann|Leave \"Ann\"?", "leave|supergroup| |Leave group?"})
        QTest::newRow(r) << QString::fromUtf8(r);
}

void TestChatDetails::confirm()
{
    QFETCH(QString, testCase);
    const QStringList f = testCase.split(QLatin1Char('|'));
    const QString action = f.value(0);
    Harness h(f.value(1), f.value(2));
    void (ChatActions::*tap)() =
        action == QLatin1String("clear_history") ? &ChatActions::onChatInfoClearHistory
        : action == QLatin1String("join")        ? &ChatActions::onChatInfoJoin
        : action == QLatin1String("leave")       ? &ChatActions::onChatInfoLeave
                                                 : &ChatActions::onChatInfoDeleteChat;
    (h.actions.*tap)();
    QCOMPARE(h.dialogs.size(), 1);
    const Request r = h.dialogs.first();
    QCOMPARE(r.body, f.value(3));
    // Cancelled or closed: nothing goes out; confirmed: the command once.
    h.actions.onChatActionDialogFinished(r.properties, 3);
    h.actions.onChatActionDialogFinished(r.properties, 0);
    QVERIFY(h.lines.isEmpty());
    h.actions.onChatActionDialogFinished(r.properties, 2);
    QCOMPARE(h.lines, QStringList{action + QStringLiteral(" 5")});
}

// The page's facts in one line; "-" for the words saying there is no public link.
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
    // "chat type|chat row fields|info record|the page (see describe)|its overflow menu"
    QTest::addColumn<QString>("testCase");
    const auto row = [](const char *name, const char *testCase) {
        QTest::newRow(name) << testCase;
    };
    row("private, nothing known", "private|||Private chat;Unknown;link=-|"
                                  "Search,Mute,Clear history,Delete chat");
    row("private with phone", "private|muted_known=true|phone=15550001 about=Hi is_member=false|"
                              "Private chat;On;about=Hi;phone=+15550001;link=-|"
                              "Search,Mute,Clear history,Delete chat");
    row("secret, muted", "secret|muted_known=true muted=true||Secret chat;Muted;link=-|"
                         "Search,Unmute,Clear history,Delete chat");
    row("group member", "basic_group||member_count=12 online_count=3 is_member=true|"
                        "Group;Unknown;count=Members:12;online=3;link=-;leave|"
                        "Search,Mute,Clear history,Leave,Delete chat");
    row("supergroup, invite only", "supergroup|muted=true|link=https://t.me/+abc is_member=false|"
                                   "Supergroup;Unknown;count=Members:;link=-;"
                                   "invite=https://t.me/+abc;join|"
                                   "Search,Unmute,Clear history,Delete chat");
    // Only the first "@" of a public name is the marker.
    row("channel, public", "channel||username=@@news link=https://t.me/+abc member_count=900 "
                           "online_count=40 is_member=false|Channel;Unknown;user=@@news;"
                           "count=Subscribers:900;link=t.me/@news;keeps history;join;copy|"
                           "Search,Mute,Delete chat");
}

void TestChatDetails::page()
{
    QFETCH(QString, testCase);
    const QStringList f = testCase.split(QLatin1Char('|'));
    Harness h(f.value(0), QStringLiteral("Ann"), test_util::kv(f.value(1)));
    if (!f.value(2).isEmpty())
        h.info.insert(5, test_util::kv(f.value(2)));
    const ChatActions::Page p = h.actions.updateChatInfoFromModel();
    QCOMPARE(describe(p), f.value(3));

    // Copy link copies the link shown, or says there is none; copy id always copies.
    h.actions.onChatInfoCopyLink();
    h.actions.onChatInfoCopyId();
    QStringList copied;
    for (const auto &entry : h.clipboard.entries())
        copied << QString::fromUtf8(entry.data);
    QCOMPARE(copied.join(QLatin1Char(' ')),
             (p.canCopyLink ? p.link + QLatin1Char(' ') : QString()) + QLatin1Char('5'));
    QCOMPARE(h.toasts.first() == ChatActions::noPublicLinkText(), !p.canCopyLink);

    // Each overflow entry, confirmed where it asks, sends its command; search opens the search.
    QSignalSpy search(&h.actions, &ChatActions::searchRequested);
    QStringList texts;
    for (const QString &a : h.actions.overflowActions()) {
        texts << h.actions.overflowActionText(a);
        h.lines.clear();
        h.dialogs.clear();
        h.actions.onOverflowActionChosen(a);
        for (const Request &r : qAsConst(h.dialogs))
            h.actions.onChatActionDialogFinished(r.properties, 2);
        QCOMPARE(h.lines.join(QLatin1Char('|')),
                 a == QLatin1String("search") ? QString() : a + QStringLiteral(" 5"));
    }
    QCOMPARE(texts.join(QLatin1Char(',')), f.value(4));
    QCOMPARE(search.count(), 1);
}

void TestChatDetails::nothingWithoutChat()
{
    Harness h;
    h.session.onBackToChats();
    h.actions.onChatInfoLeave();
    h.actions.onChatInfoToggleNotifications();
    h.actions.onChatInfoCopyLink();
    h.actions.onChatInfoCopyId();
    // A dialog that lost its chat id sends nothing.
    h.actions.onChatActionDialogFinished(
        {{QStringLiteral("chat_action"), QStringLiteral("leave")}, {QStringLiteral("chat_id"), 0}},
        2);
    QVERIFY(h.dialogs.isEmpty());
    QVERIFY(h.lines.isEmpty());
    QVERIFY(h.toasts.isEmpty());
    QVERIFY(h.clipboard.entries().isEmpty());
}

void TestChatDetails::newerDialogReplacesAndKeepsItsChat()
{
    Harness h;
    h.actions.onChatInfoLeave();
    h.actions.onChatInfoClearHistory();
    // Another chat opened before confirming: the action stays with the chat it was asked for.
    h.session.openChatFromRow(h.chats.chatRowById(7));
    h.actions.onChatActionDialogFinished(h.dialogs.last().properties, 2);
    QCOMPARE(h.lines, QStringList{QStringLiteral("clear_history 5")});
}

QTEST_GUILESS_MAIN(TestChatDetails)
#include "test_chat_details.moc"
