#include "conversation/composer.h"
#include "conversation/message_actions.h"
#include "conversation_test_util.h"
#include "platform/clipboard.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

using Request = MessageActions::DialogRequest;

// Chat 5 ("Ann") open, of the given type, with 10 incoming text "hello",
// 11 own text "mine", 12 own photo, 13 own text still being sent. Chats 7
// ("Bob") and 9 (no title) are in the list too. The composer's lines and
// toasts are recorded with the actions'.
struct Harness : OpenChatModels
{
    QVariantMap info;
    QHash<qint64, QString> names;
    Composer composer{&session, [this](qint64) { return info; }};
    SystemClipboard clipboard; // the desktop's own, read back through QClipboard
    MessageActions actions{&session, &composer, &clipboard, [this](qint64) { return info; },
                           [this](qint64 id) { return names.value(id); }};
    QStringList lines, toasts;
    QList<Request> dialogs;

    explicit Harness(const QString &chatType = QStringLiteral("private"),
                     const QString &title = QStringLiteral("Ann"))
    {
        const auto line = [this](const QString &l) { lines << l; };
        QObject::connect(&messages, &MessageRowModel::sendLineRequested, line);
        QObject::connect(&actions, &MessageActions::sendLineRequested, line);
        QObject::connect(&composer, &Composer::sendLineRequested, line);
        const auto toast = [this](const QString &t) { toasts << t; };
        QObject::connect(&actions, &MessageActions::toastRequested, toast);
        QObject::connect(&composer, &Composer::toastRequested, toast);
        QObject::connect(&actions, &MessageActions::dialogRequested,
                         [this](const Request &r) { dialogs << r; });
        addChat("id=7|title=Bob|order=20");
        addChat("id=9|order=10");
        session.openChatFromRow(
            addChat("id=5|title=" + title + "|chat_type=" + chatType + "|order=30"));
        feed("message_new chat_id=5 id=10 text=hello outgoing=false content_type=messageText "
             "sender_user_id=42; message_new chat_id=5 id=11 text=mine outgoing=true "
             "content_type=messageText; message_new chat_id=5 id=12 text=caption outgoing=true "
             "content_type=messagePhoto media_type=photo; message_new chat_id=5 id=13 text=wait "
             "outgoing=true content_type=messageText sending_state=pending");
        lines.clear();
    }
    // "11:rfdecy" gives message 11 the properties replied, forwarded,
    // deleted for self, for everybody (a), edited, copied; "11:" none.
    void props(const QString &text)
    {
        for (const QString &one : text.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
            const QString id = one.section(QLatin1Char(':'), 0, 0);
            const QString f = one.section(QLatin1Char(':'), 1);
            const auto has = [&f](char c) -> QString {
                return f.contains(QLatin1Char(c)) ? QStringLiteral("true")
                                                  : QStringLiteral("false");
            };
            feed(QStringLiteral("message_properties chat_id=5 id=%1 can_be_replied=%2 "
                                "can_be_forwarded=%3 can_be_deleted_only_for_self=%4 "
                                "can_be_deleted_for_all_users=%5 can_be_edited=%6 "
                                "can_be_copied=%7")
                     .arg(id, has('r'), has('f'), has('d'), has('a'), has('e'), has('c')));
        }
    }
    QVariantMap row(qint64 id) const { return messages.rowAt(messages.findMessageIndexById(id)); }
};

// Long presses on "10 11 12".
void select(MessageActions &actions, const QString &ids)
{
    for (const QString &id : ids.split(QLatin1Char(' '), Qt::SkipEmptyParts))
        actions.onMessageLongPressed(id.toLongLong());
}

const QString kAll = QStringLiteral("rfdaec");

QString base64(const QString &text)
{
    return QString::fromLatin1(text.toUtf8().toBase64());
}

} // namespace

class TestMessageActions : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void menu_data();
    void menu();
    void menuChoices_data();
    void menuChoices();
    void selection();
    void forward_data();
    void forward();
    void remove_data();
    void remove();
    void reactions_data();
    void reactions();
    void editNewest_data();
    void editNewest();
    // The composer
    void sending_data();
    void sending();
    void barText();
    void editing_data();
    void editing();
    void visibility_data();
    void visibility();
    void replyFromSelection();
    void attachingAFile();
};

void TestMessageActions::menu_data()
{
    QTest::addColumn<qint64>("id");
    QTest::addColumn<QString>("props"); // flags, or "error" / "timeout"
    QTest::addColumn<bool>("reactionsAllowed");
    QTest::addColumn<QString>("items");
    const auto row = [](qint64 id, const QString &props, bool reactions, const char *items) {
        QTest::newRow(items) << id << props << reactions << QString::fromUtf8(items);
    };
    row(11, kAll, true, "Reply|Reactions…|Forward|Delete|Edit|Copy|Select");
    row(12, kAll, true, "Reply|Reactions…|Forward|Delete|Copy|Select"); // a photo
    row(10, "a", false, "Reactions…|Delete|Select");
    row(11, "error", false, "Reply|Forward|Delete|Edit|Copy|Select"); // from the row
    row(13, "timeout", true, "Delete|Copy|Select");                   // still sending
}

void TestMessageActions::menu()
{
    QFETCH(qint64, id);
    QFETCH(QString, props);
    QFETCH(bool, reactionsAllowed);
    QFETCH(QString, items);
    Harness h;
    if (!reactionsAllowed) {
        h.info.insert(QStringLiteral("available_reactions_all"), false);
        h.info.insert(QStringLiteral("available_reactions"), QVariantList());
    }
    h.actions.showMessageMenu(id);
    // The menu waits for the message's properties.
    QCOMPARE(h.lines, QStringList{QStringLiteral("props 5 %1").arg(id)});
    QVERIFY(h.dialogs.isEmpty());
    // Without an answer the menu comes from the row after a while.
    if (props == QLatin1String("error"))
        h.feed(QStringLiteral("message_properties_error chat_id=5 id=%1 code=400").arg(id));
    else if (props != QLatin1String("timeout"))
        h.props(QStringLiteral("%1:%2").arg(id).arg(props));
    QTRY_COMPARE(h.dialogs.size(), 1);
    QCOMPARE(h.dialogs.first().items.join(QLatin1Char('|')), items);
    // Asked again, it opens at once from the cache, or asks again after a failure.
    if (props != QLatin1String("timeout")) {
        h.actions.showMessageMenu(id);
        QCOMPARE(h.dialogs.size(), props == QLatin1String("error") ? 1 : 2);
    }
    QVERIFY(!h.actions.isPendingMenuTimerActive() || props == QLatin1String("error"));
}

void TestMessageActions::menuChoices_data()
{
    QTest::addColumn<QString>("label");
    QTest::addColumn<int>("result");
    for (const char *label : {"Reply", "Reactions…", "Delete", "Edit", "Copy", "Select"})
        QTest::newRow(label) << QString::fromUtf8(label) << 2;
    QTest::newRow("cancelled") << "Copy" << 3;
}

void TestMessageActions::menuChoices()
{
    QFETCH(QString, label);
    QFETCH(int, result);
    Harness h;
    h.props(QStringLiteral("11:") + kAll);
    QGuiApplication::clipboard()->setText(QStringLiteral("before"));
    h.actions.showMessageMenu(11);
    QSignalSpy focus(&h.actions, &MessageActions::focusComposerRequested);
    const Request menu = h.dialogs.first();
    h.actions.onMessageMenuDialogFinished(menu.properties, result, int(menu.items.indexOf(label)));
    if (result != 2) {
        QCOMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("before"));
        QCOMPARE(h.dialogs.size(), 1);
    } else if (label == QLatin1String("Reply")) {
        QCOMPARE(h.composer.replyToMessageId(), 11LL);
        QVERIFY(focus.wait(5000));
    } else if (label == QLatin1String("Edit")) {
        QCOMPARE(h.composer.editingMessageId(), 11LL);
    } else if (label == QLatin1String("Copy")) {
        QTRY_COMPARE(QGuiApplication::clipboard()->text(), QStringLiteral("mine"));
        QCOMPARE(h.toasts, QStringList{QStringLiteral("Copied")});
    } else if (label == QLatin1String("Select")) {
        QCOMPARE(h.actions.selectedIds(), QList<qint64>{11});
    } else {
        QCOMPARE(h.dialogs.last().kind,
                 label == QLatin1String("Delete") ? Request::Delete : Request::Reactions);
    }
}

void TestMessageActions::selection()
{
    Harness h;
    QSignalSpy header(&h.actions, &MessageActions::selectionActionsChanged);
    // A tap outside selection mode selects nothing; a long press enters it.
    h.actions.onMessageSelectionToggleRequested(10);
    QVERIFY(h.actions.selectedIds().isEmpty());
    h.actions.onMessageLongPressed(10);
    QCOMPARE(h.row(10).value(QStringLiteral("selected")).toString(), QStringLiteral("true"));
    QCOMPARE(h.lines, QStringList{QStringLiteral("props 5 10")});
    QCOMPARE(header.last(), (QVariantList{false, false, false}));
    h.props(QStringLiteral("10:rfd"));
    QCOMPARE(header.last(), (QVariantList{true, true, true}));

    // Two messages cannot be replied to together; one not forwardable takes forwarding away.
    h.actions.onMessageSelectionToggleRequested(11);
    h.props(QStringLiteral("11:rd"));
    QCOMPARE(header.last(), (QVariantList{false, false, true}));
    h.actions.onMessageSelectionToggleRequested(10);
    QCOMPARE(h.actions.selectedIds(), QList<qint64>{11});

    // The last selected message deleted by the backend ends selection mode.
    h.feed(QStringLiteral("messages_deleted chat_id=5 message_ids=11"));
    QVERIFY(!h.actions.isSelectionMode());

    // Ctrl+click enters selection mode and toggles; Shift+click adds the range since the last.
    h.actions.onMessageSelectClicked(13, false);
    h.actions.onMessageSelectClicked(10, true);
    QCOMPARE(h.actions.selectedIds(), (QList<qint64>{13, 10, 12})); // 11 was deleted
    h.actions.onMessageSelectClicked(12, false);
    QCOMPARE(h.actions.selectedIds(), (QList<qint64>{13, 10}));

    // Leaving clears every row's mark; so does opening another chat.
    h.actions.setSelectionMode(false);
    for (qint64 id : {10, 13})
        QCOMPARE(h.row(id).value(QStringLiteral("selected")).toString(), QStringLiteral("false"));
    h.actions.onMessageLongPressed(12);
    h.session.openChatFromRow({{QStringLiteral("id"), QStringLiteral("7")}});
    QVERIFY(!h.actions.isSelectionMode());
    QVERIFY(h.actions.selectedIds().isEmpty());
}

void TestMessageActions::forward_data()
{
    // "selected/properties (\"later\": after the tap)/no chats/toasts/line for the second chat"
    QTest::addColumn<QString>("testCase");
    for (const char *r :
         {"//0/Select messages to forward/", "10 11/10:r 11:d/0/Cannot forward selected messages/",
          "11 10/10:f 11:f/0/Forwarded/forward 7 5 11 10",
          "10 11 12/10:f 11:r 12:f/0/Some messages can't be forwarded|Forwarded/forward 7 5 10 12",
          "10/later 10:f/0/Loading message permissions…|Forwarded/forward 7 5 10",
          "10/10:f/1/No chats/"})
        QTest::newRow(r) << QString::fromUtf8(r);
}

void TestMessageActions::forward()
{
    QFETCH(QString, testCase);
    const QStringList f = testCase.split(QLatin1Char('/'));
    const QString props = f.at(1), line = f.at(4);
    Harness h;
    select(h.actions, f.at(0));
    const bool later = props.startsWith(QLatin1String("later "));
    if (!later)
        h.props(props);
    if (f.at(2) == QLatin1String("1"))
        h.chats.clear();
    h.lines.clear();
    h.actions.onSelectionForwardTapped();
    if (later)
        h.props(props.mid(6));
    QCOMPARE(h.dialogs.size(), line.isEmpty() ? 0 : 1);
    if (!line.isEmpty()) {
        h.actions.onForwardDialogFinished(h.dialogs.first().properties, 2, 1);
        QVERIFY(!h.actions.isSelectionMode());
    }
    QCOMPARE(h.lines.join(QLatin1Char('|')), line);
    QCOMPARE(h.toasts.join(QLatin1Char('|')), f.at(3));
}

void TestMessageActions::remove_data()
{
    // "chat type/title/peer user's name/ids/properties/body/option/lines ticked/lines not"
    QTest::addColumn<QString>("testCase");
    for (const char *r :
         {"private/Ann/Ann Lee/11/11:da/Delete this message?/Delete for Ann Lee/"
          "delete 5 all 11/delete 5 self 11",
          "secret/Ann//11/11:da/Delete this message?/Delete for Ann/delete 5 all 11/"
          "delete 5 self 11",
          "private///11/11:da/Delete this message?/Delete for the other side/delete 5 all 11/"
          "delete 5 self 11",
          "supergroup/G//10 11 12/10:d 11:da 12:da/3 messages will be deleted./Delete my messages "
          "for everyone/delete 5 all 11 12|delete 5 self 10/delete 5 self 10 11 12",
          "basic_group/G//10 11/10:da 11:da/2 messages will be deleted./Delete for everyone/"
          "delete 5 all 10 11/delete 5 self 10 11",
          "channel/C//11/11:a/Delete this message?//delete 5 all 11/delete 5 all 11",
          "supergroup/G//10 12/10:d 12:/Delete this message?//delete 5 self 10/delete 5 self 10"})
        QTest::newRow(r) << QString::fromUtf8(r);
}

void TestMessageActions::remove()
{
    QFETCH(QString, testCase);
    const QStringList f = testCase.split(QLatin1Char('/'));
    const QString props = f.at(4), option = f.at(6);
    for (const bool tick : {true, false}) {
        Harness h(f.at(0), f.at(1));
        h.info.insert(QStringLiteral("peer_user_id"), 42);
        h.names.insert(42, f.at(2));
        select(h.actions, f.at(3));
        h.props(props);
        h.lines.clear();
        h.actions.onSelectionDeleteTapped();
        QCOMPARE(h.dialogs.size(), 1);
        const Request r = h.dialogs.first();
        QCOMPARE(r.body, f.at(5));
        QCOMPARE(r.optionText, option);
        // The dialog's hidden box says what happens without a choice.
        h.actions.onDeleteDialogFinished(r.properties, 2,
                                         option.isEmpty() ? r.optionChecked : tick);
        QCOMPARE(h.lines.join(QLatin1Char('|')), f.at(tick ? 7 : 8));
        // Some not deletable: a toast says so before the one for the deletion.
        QCOMPARE(h.toasts.size(), props.endsWith(QLatin1Char(':')) ? 2 : 1);
        // The rows stay until the backend says they are gone.
        QCOMPARE(h.messages.size(), 4);
        QVERIFY(!h.actions.isSelectionMode());
    }
}

void TestMessageActions::reactions_data()
{
    // "chips before/the chat's list (- not said)/emoji picked (none: cancelled)/dialog items
    // (none: refused with a toast)/line/chips after"; a "menu" row picks in the dialog, a "chip"
    // row taps the chip under the bubble.
    QTest::addColumn<QString>("testCase");
    const auto row = [](const char *name, const char *testCase) {
        QTest::newRow(name) << QString::fromUtf8(testCase);
    };
    row("menu: chosen again",
        "👍:3:1,🔥:1:0/-/👍/👍 Like ✓|❤ Heart|🔥 Fire/react 5 10 👍 remove/👍:2:0,🔥:1:0");
    row("menu: a new one", "👍:3:1/-/🔥/👍 Like ✓|❤ Heart|🔥 Fire/react 5 10 🔥 add/👍:3:1,🔥:1:1");
    row("menu: the last of its kind",
        "🎉:1:1/🎉,🤩/🎉/🎉 Party ✓|🤩 Wow/react 5 10 🎉 remove/");
    row("menu: unsafe words dropped", "/a b,🍌,x\nreact,😢/🍌/🍌|😢 Sad/react 5 10 🍌 add/🍌:1:1");
    row("menu: cancelled", "👍:3:1/-//👍 Like ✓|❤ Heart|🔥 Fire//👍:3:1");
    row("menu: disabled", "/////");
    row("chip: someone else's joined", "🔥:1:0/-/🔥//react 5 10 🔥 add/🔥:2:1");
    row("chip: own, though the chat no longer allows it", "🔥:1:1/🎉/🔥//react 5 10 🔥 remove/");
    row("chip: the chat's spelling of the emoji",
        "❤:1:0/❤️/❤//react 5 10 ❤️ add/❤:2:1");
    row("chip: not allowed here", "🔥:1:0/🎉/🔥///🔥:1:0");
}

void TestMessageActions::reactions()
{
    QFETCH(QString, testCase);
    const QStringList f = testCase.split(QLatin1Char('/'));
    const QString pick = f.at(2), items = f.at(3), line = f.at(4);
    Harness h;
    if (f.at(1) != QLatin1String("-")) {
        h.info.insert(QStringLiteral("available_reactions_all"), false);
        h.info.insert(QStringLiteral("available_reactions"),
                      f.at(1).split(QLatin1Char(','), Qt::SkipEmptyParts));
    }
    h.feed(QStringLiteral("message_reactions chat_id=5 id=10 reactions=") + f.at(0));
    if (QString::fromUtf8(QTest::currentDataTag()).startsWith(QLatin1String("chip"))) {
        h.actions.onReactionChipTapped(10, pick);
    } else {
        h.actions.showReactionsDialog(10);
        QCOMPARE(h.dialogs.size(), items.isEmpty() ? 0 : 1);
    }
    if (!h.dialogs.isEmpty()) {
        const Request r = h.dialogs.first();
        QCOMPARE(r.items.mid(0, items.count(QLatin1Char('|')) + 1).join(QLatin1Char('|')), items);
        QVariantMap props = r.properties, fresh = r.properties;
        const int index = props.value(QStringLiteral("react_emojis")).toStringList().indexOf(pick);
        // A second finish signal of the dialog does nothing, nor does an index never offered.
        for (const char *which : {"finished", "selected"})
            h.actions.handleReactionsDialogFinishedCommon(&props, QLatin1String(which),
                                                          index < 0 ? 3 : 2, index);
        h.actions.handleReactionsDialogFinishedCommon(&fresh, QStringLiteral("finished"), 2, 99);
    }
    QCOMPARE(h.lines.join(QLatin1Char('|')), line);
    QCOMPARE(h.toasts.size(), line.isEmpty() && items.isEmpty() ? 1 : 0);
    QCOMPARE(h.row(10).value(QStringLiteral("reactions")).toList(),
             ev(QStringLiteral("chips reactions=") + f.at(5))
                 .value(QStringLiteral("reactions"))
                 .toList());
}

void TestMessageActions::editNewest_data()
{
    // "known/arriving/edits": properties of message 11, the newest own text (12 is a photo, 13
    // is still being sent), known before or arriving after the request.
    QTest::addColumn<QString>("testCase");
    for (const char *r : {"11:e//1", "11:r//0", "/11:e/1", "/11:rc/0"})
        QTest::newRow(r) << QString(r);
}

void TestMessageActions::editNewest()
{
    QFETCH(QString, testCase);
    const QString before = testCase.section('/', 0, 0), after = testCase.section('/', 1, 1);
    const bool edits = testCase.endsWith('1');
    Harness h;
    h.props(before);
    h.lines.clear();
    h.actions.editNewestOwnMessage();
    QCOMPARE(h.lines, before.isEmpty() ? QStringList{QStringLiteral("props 5 11")} : QStringList());
    h.props(after);
    QCOMPARE(h.composer.editingMessageId(), edits ? qint64(11) : qint64(0));
}

void TestMessageActions::sending_data()
{
    QTest::addColumn<QString>("setup"); // "reply N", "edit N", "closed" or empty
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("expectedStart"); // the line before its text; empty: none
    QTest::addColumn<QString>("toast");
    auto row = [](const char *name, const char *setup, const QString &typed, const char *start,
                  const char *toast) {
        QTest::newRow(name) << setup << typed << start << QString::fromUtf8(toast);
    };
    row("blank sends nothing", "", " \n ", "", "");
    row("reply id in the middle", "reply 10", "hi", "send64 5 10", "");
    row("line breaks and other scripts stay in one token", "",
        "a\r\nб\n\n👍🏽 " + QString(3000, QLatin1Char('z')), "send64 5", "");
    row("edit", "edit 11", "new text", "edit64 5 11", "Editing…");
    row("blank edit", "edit 11", "   ", "", "Message can't be empty");
    row("no chat open", "closed", "hello", "", "");
}

void TestMessageActions::sending()
{
    QFETCH(QString, setup);
    QFETCH(QString, typed);
    QFETCH(QString, expectedStart);
    QFETCH(QString, toast);
    Harness h;
    QSignalSpy scrolled(&h.session, &ChatSession::scrollToEndRequested);
    const qint64 id = setup.section(QLatin1Char(' '), 1).toLongLong();
    h.composer.setText(QStringLiteral("draft"));
    if (setup.startsWith(QLatin1String("reply")))
        h.composer.setReplyToMessageId(id);
    else if (setup.startsWith(QLatin1String("edit")))
        h.composer.startEditMessage(id);
    else if (setup == QLatin1String("closed"))
        h.session.onBackToChats();
    h.composer.setText(typed);
    h.composer.onSendMessage();
    QCOMPARE(h.toasts.join(QLatin1Char('|')), toast);
    if (expectedStart.isEmpty()) {
        QVERIFY2(h.lines.isEmpty(), qPrintable(h.lines.join(QLatin1Char('|'))));
        return;
    }
    QCOMPARE(h.lines, QStringList{expectedStart + QLatin1Char(' ') + base64(typed.trimmed())});
    // After a send the field, the bars and the list are ready for the next.
    const bool edit = setup.startsWith(QLatin1String("edit"));
    QVERIFY(!h.composer.isReplyBarVisible() && !h.composer.isEditBarVisible());
    QCOMPARE(h.composer.text(), edit ? QStringLiteral("draft") : QString());
    QCOMPARE(scrolled.count(), edit ? 0 : 1);
}

void TestMessageActions::barText()
{
    // Cut at 90 characters, a surrogate pair counting once.
    const QString smiles = QString::fromUtf8("😀").repeated(90);
    Harness h;
    h.feed("message_new chat_id=5 id=20 text=" + smiles +
           ";message_new chat_id=5 id=21 text=" + QString(200, QLatin1Char('x')));
    h.composer.setReplyToMessageId(20);
    QCOMPARE(h.composer.replyBarText(), QStringLiteral("Reply: ") + smiles);
    h.composer.setReplyToMessageId(21);
    QCOMPARE(h.composer.replyBarText(),
             QStringLiteral("Reply: ") + QString(90, QLatin1Char('x')) + QString::fromUtf8("…"));
}

void TestMessageActions::editing_data()
{
    // Only own texts that have been sent, typed or not, can be edited: 11 and 14.
    QTest::addColumn<qint64>("id");
    for (const qint64 id : {10, 11, 12, 13, 14})
        QTest::addRow("%lld", id) << id;
}

void TestMessageActions::editing()
{
    QFETCH(qint64, id);
    const bool editable = id == 11 || id == 14;
    Harness h;
    h.feed("message_new chat_id=5 id=14 text=~untyped~ outgoing=true");
    QSignalSpy focus(&h.composer, &Composer::focusRequested);
    h.composer.setText(QStringLiteral("draft"));
    h.composer.setReplyToMessageId(10);
    h.composer.startEditMessage(id);
    if (!editable) {
        QCOMPARE(h.toasts, QStringList{QStringLiteral("Can't edit this message")});
        QCOMPARE(h.composer.editingMessageId(), 0);
        return;
    }
    const QString text = id == 11 ? QStringLiteral("mine") : QStringLiteral(" untyped ");
    QCOMPARE(h.composer.editingMessageId(), id);
    QCOMPARE(h.composer.text(), text);
    QCOMPARE(h.composer.editBarText(), QStringLiteral("Edit: ") + text.trimmed());
    QCOMPARE(h.composer.replyToMessageId(), 0);
    QVERIFY(focus.wait());
    // A second edit keeps the first draft; cancelling puts it back.
    h.composer.startEditMessage(11);
    h.composer.clearEdit(true);
    QCOMPARE(h.composer.text(), QStringLiteral("draft"));
    QVERIFY(!h.composer.isEditBarVisible());
}

void TestMessageActions::visibility_data()
{
    // "chat type|in the chat list|can_send (none: no chat info yet)|composer shown"
    QTest::addColumn<QString>("testCase");
    for (const char *r : {"channel|1||0", "channel|1|true|1", "supergroup|1||1", "basic_group|0||0",
                          "private|0||1", "private|1|false|0"})
        QTest::newRow(r) << QString(r);
}

void TestMessageActions::visibility()
{
    QFETCH(QString, testCase);
    const QStringList f = testCase.split(QLatin1Char('|'));
    const bool visible = f.at(3) == QLatin1String("1");
    Harness h;
    h.session.onBackToChats();
    QSignalSpy changed(&h.composer, &Composer::composerVisibleChanged);
    const QVariantMap row = test_util::kv("id=8|order=1|chat_type=" + f.at(0));
    if (f.at(1) == QLatin1String("1"))
        h.chats.upsertChatRow(row);
    h.session.openChatFromRow(row);
    if (!f.at(2).isEmpty()) {
        h.info.insert(QStringLiteral("can_send"), f.at(2) == QLatin1String("true"));
        h.composer.updateComposerVisibilityForCurrentChat();
    }
    QCOMPARE(h.composer.isComposerVisible(), visible);
    QCOMPARE(changed.isEmpty() ? false : changed.last().at(0).toBool(), visible);
    h.session.onBackToChats();
    QVERIFY(!h.composer.isComposerVisible());
}

void TestMessageActions::replyFromSelection()
{
    Harness h;
    h.feed("message_new chat_id=5 id=14 text=~untyped~ outgoing=true");
    QSignalSpy focus(&h.composer, &Composer::focusRequested);
    // None or several selected: refused at once.
    h.composer.onSelectionReplyTapped({});
    h.composer.onSelectionReplyTapped({10, 11});
    QCOMPARE(h.toasts.size(), 2);
    // Unknown permissions are asked for first; refused by the flag or by an error, no reply.
    h.composer.onSelectionReplyTapped({10});
    h.feed("message_properties chat_id=5 id=10 can_be_replied=false");
    h.composer.onSelectionReplyTapped({11});
    h.feed("message_properties_error chat_id=5 id=11 code=1");
    QCOMPARE(h.composer.replyToMessageId(), 0);
    h.composer.onSelectionReplyTapped({14});
    h.feed("message_properties chat_id=5 id=14 can_be_replied=true");
    QCOMPARE(h.lines, (QStringList{"props 5 10", "props 5 11", "props 5 14"}));
    QCOMPARE(h.composer.replyToMessageId(), 14);
    QVERIFY(focus.wait());
    // Deleting the targets clears the bars; a reply does not end an edit.
    h.composer.startEditMessage(11);
    h.composer.setReplyToMessageId(10);
    h.feed("messages_deleted chat_id=5 message_ids=12");
    QVERIFY(h.composer.isEditBarVisible() && h.composer.isReplyBarVisible());
    h.feed("messages_deleted chat_id=5 message_ids=10,11");
    QVERIFY(!h.composer.isEditBarVisible() && !h.composer.isReplyBarVisible());
}

void TestMessageActions::attachingAFile()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("doc one\n.txt"));
    QVERIFY(test_util::writeFile(path, QByteArray()));
    Harness h;
    QSignalSpy picker(&h.composer, &Composer::filePickerRequested);
    h.composer.onAttachTap();
    // Nothing picked or a missing file: nothing goes; a file URL or a path does.
    h.composer.onAttachFileSelected({});
    h.composer.onAttachFileSelected({dir.filePath(QStringLiteral("missing"))});
    h.composer.onAttachFileSelected({QStringLiteral("file://") + path});
    h.composer.setReplyToMessageId(10);
    h.composer.onAttachFileSelected({path});
    QCOMPARE(h.lines,
             (QStringList{"sendfile64 5 " + base64(path), "sendfile64 5 10 " + base64(path)}));
    // No file while editing.
    h.composer.startEditMessage(11);
    h.composer.onAttachTap();
    QCOMPARE(picker.count(), 1);
}

QTEST_MAIN(TestMessageActions)
#include "test_message_actions.moc"
