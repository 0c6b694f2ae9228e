#include "chats/chat_list_model.h"
#include "conversation/chat_session.h"
#include "conversation/message_row_model.h"
#include "conversation_test_util.h"
#include "platform/array_data_model.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

QVariantMap chatRow(qint64 id, qint64 lastMessageId = 0)
{
    return {{QStringLiteral("id"), QString::number(id)},
            {QStringLiteral("title"), QStringLiteral("Chat %1").arg(id)},
            {QStringLiteral("chat_type"), QStringLiteral("supergroup")},
            {QStringLiteral("order"), QString::number(id)},
            {QStringLiteral("last_message_id"), QString::number(lastMessageId)}};
}

// The open chat with its collaborators and everything it says.
struct Harness : OpenChatModels
{
    QStringList lines;
    QList<qint64> scrolledTo;

    Harness()
    {
        QObject::connect(&session, &ChatSession::sendLineRequested,
                         [this](const QString &l) { lines.append(l); });
        QObject::connect(&session, &ChatSession::scrollToMessageRequested,
                         [this](qint64 id, int row, ChatSession::ScrollAnimation) {
                             QCOMPARE(rows.value(row).value(QStringLiteral("id")).toLongLong(), id);
                             scrolledTo.append(id);
                         });
    }

    // One history batch of the ids first..last (ascending) without skip.
    void page(int gen, bool clear, qint64 first, qint64 last, qint64 skip = 0)
    {
        const qint64 chat = session.chatId();
        const QString tail =
            QStringLiteral(" chat_id=%1 gen=%2 clear=%3").arg(chat).arg(gen).arg(clear);
        session.handleMessageEvent(ev(QStringLiteral("history_begin") + tail));
        for (qint64 id = first; id <= last && first > 0; ++id)
            if (id != skip)
                session.handleMessageEvent(
                    ev(QStringLiteral("message chat_id=%1 gen=%2 id=%3 sender_user_id=7")
                           .arg(chat)
                           .arg(gen)
                           .arg(id)));
        session.handleMessageEvent(ev(QStringLiteral("history_end") + tail));
    }

    // Runs ";"-separated steps:
    //   tap C                  open chat C without waiting
    //   open C | openat C M    open chat C (anchored at M) and wait for its "open"
    //   page G CLEAR A B [S]   a batch of ids A..B in generation G, without S
    //   first N | begin 0|1 | end 0|1   the list view's state
    //   serve N                answer up to N "history_more" requests with 50 older rows
    //   jump M | bottom | refresh | close | new ID OUT | clear G
    void run(const QString &steps)
    {
        for (const QString &step : steps.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
            const QStringList w = step.split(QLatin1Char(' '), Qt::SkipEmptyParts);
            const QString verb = w.value(0);
            auto n = [&w](int i) { return w.value(i).toLongLong(); };
            if (verb == QLatin1String("tap")) {
                session.openChatFromRow(chatRow(n(1)));
            } else if (verb == QLatin1String("open") || verb == QLatin1String("openat")) {
                const QVariantMap row =
                    chats.chatRowById(n(1)).isEmpty() ? chatRow(n(1)) : chats.chatRowById(n(1));
                if (verb == QLatin1String("open"))
                    session.openChatFromRow(row);
                else
                    session.openChatAtMessage(row, n(2));
                QTRY_VERIFY(!session.isOpenTimerActive());
            } else if (verb == QLatin1String("page")) {
                page(int(n(1)), n(2) != 0, n(3), n(4), n(5));
            } else if (verb == QLatin1String("first")) {
                session.onMessagesFirstVisibleItemChanged({int(n(1))});
                QTRY_VERIFY(!session.isHistoryMoreTimerActive());
            } else if (verb == QLatin1String("begin")) {
                session.onMessagesAtBeginningChanged(n(1) != 0);
                QTRY_VERIFY(!session.isHistoryMoreTimerActive());
            } else if (verb == QLatin1String("end")) {
                session.onMessagesAtEndChanged(n(1) != 0);
            } else if (verb == QLatin1String("serve")) {
                for (int i = 0; i < n(1); ++i) {
                    const QStringList last =
                        lines.isEmpty() ? QStringList() : lines.last().split(QLatin1Char(' '));
                    if (last.value(0) != QLatin1String("history_more"))
                        break;
                    const qint64 from = last.value(2).toLongLong();
                    page(session.historyGeneration(), false, qMax<qint64>(1, from - 50), from - 1);
                }
            } else if (verb == QLatin1String("jump")) {
                session.onReplyPreviewTapped(n(1));
            } else if (verb == QLatin1String("bottom")) {
                session.onJumpToBottom();
            } else if (verb == QLatin1String("refresh")) {
                session.onRefreshHistory();
            } else if (verb == QLatin1String("close")) {
                session.onBackToChats();
            } else if (verb == QLatin1String("new")) {
                session.handleMessageEvent(
                    ev(QStringLiteral("message_new chat_id=%1 id=%2 outgoing=%3")
                           .arg(session.chatId())
                           .arg(n(1))
                           .arg(w.value(2))));
            } else if (verb == QLatin1String("clear")) {
                session.handleMessageEvent(ev(QStringLiteral("history_clear chat_id=%1 gen=%2")
                                                  .arg(session.chatId())
                                                  .arg(n(1))));
            } else {
                QFAIL(qPrintable(QStringLiteral("unknown step ") + step));
            }
        }
    }

    QString span() const
    {
        if (messages.isEmpty())
            return QStringLiteral("empty");
        return QStringLiteral("%1..%2 (%3)")
            .arg(messages.messageIdAt(0))
            .arg(messages.messageIdAt(messages.size() - 1))
            .arg(messages.size());
    }
};

} // namespace

class TestChatSession : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void paging_data()
    {
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("expectedLines"); // "*" stands for what opening chat 1 sends
        QTest::addColumn<QString>("expectedRows");
        auto row = [](const char *name, const QString &steps, const QString &lines,
                      const char *rows) { QTest::newRow(name) << steps << lines << rows; };
        const QString opened = QStringLiteral("open 1;page 1 1 1001 1060;end 0;");
        QStringList eightPages;
        for (int from = 1001; from > 650; from -= 50)
            eightPages << QStringLiteral("history_more 1 %1 50").arg(from);

        row("two quick taps open the second chat once", "tap 2;open 1",
            "chat_info 2|chat_info 1|open 1", "empty");
        row("anchored at a message", "openat 3 77", "chat_info 3|open 3 77", "empty");
        row("anchored within the open chat is a jump", opened + "openat 1 1020", "*",
            "1001..1060 (60)");
        row("row 7 asks for nothing, row 6 for an older page", opened + "first 7;first 6;serve 1",
            "*|history_more 1 1001 50", "951..1060 (110)");
        row("the beginning asks too; never twice while loading",
            opened + "begin 1;first 2;first 1;serve 1;first 3",
            "*|history_more 1 1001 50|history_more 1 951 50", "951..1060 (110)");
        row("at the end nothing is asked", "open 1;page 1 1 1001 1060;first 2;begin 1", "*",
            "1001..1060 (60)");
        row("an empty older page ends paging",
            "open 1;page 1 1 1 40;end 0;first 0;page 1 0 0 0;first 0;begin 1",
            "chat_info 1|open 1|read 1 40|history_more 1 1 50", "1..40 (40)");
        row("batches of another generation are ignored",
            opened + "page 0 1 1 10;page 2 0 900 1000;page 0 0 1 5", "*", "1001..1060 (60)");
        row("a cleared history starts a new generation",
            opened + "clear 2;page 1 1 1 5;page 2 0 1 5", "*", "1..5 (5)");
        row("read once per newest incoming message, never for own ones",
            opened + "end 1;new 1061 true;new 1062 false;end 0;end 1", "*|read 1 1062",
            "1001..1062 (62)");
        row("a loaded target needs no request", opened + "jump 1010", "*", "1001..1060 (60)");
        row("500 back: 8 pages, one slice, then give up",
            opened + "jump 500;serve 20;page 2 1 541 580",
            "*|" + eightPages.join('|') + "|history_jump 1 500 40 40|read 1 580", "541..580 (40)");
        row("a deleted target inside the range: one slice, then give up",
            "open 1;page 1 1 1001 1060 1030;end 0;jump 1030;page 2 1 990 1070 1030",
            "*|history_jump 1 1030 40 40|read 1 1070", "990..1070 (80)");
        row("a slice that holds the target ends the jump",
            "open 1;page 1 1 1001 1060 1030;end 0;jump 1030;page 2 1 990 1070",
            "*|history_jump 1 1030 40 40|read 1 1070", "990..1070 (81)");
        row("no more history during a jump",
            "open 1;page 1 1 100 160;end 0;jump -5;jump 50;page 1 0 0 0",
            "chat_info 1|open 1|read 1 160|history_more 1 100 50", "100..160 (61)");
        row("bottom reloads the newest page after a jump", "open 2;page 1 1 1001 1060;end 0;bottom",
            "chat_info 2|open 2|read 2 1060|open 2", "1001..1060 (60)");
        row("bottom with the newest page shown only scrolls", opened + "bottom", "*",
            "1001..1060 (60)");
        row("refresh", opened + "refresh", "*|history 1 60", "1001..1060 (60)");
        row("close", opened + "close;refresh", "*|close 1", "empty");
    }
    void paging()
    {
        QFETCH(QString, steps);
        QFETCH(QString, expectedLines);
        QFETCH(QString, expectedRows);
        Harness h;
        h.chats.upsertChatRow(chatRow(2, 5000)); // the list knows newer messages of chat 2
        h.run(steps);
        QCOMPARE(
            h.lines.join(QLatin1Char('|')),
            QString(expectedLines).replace(QLatin1Char('*'), "chat_info 1|open 1|read 1 1060"));
        QCOMPARE(h.span(), expectedRows);
    }
    void olderPageKeepsTheAnchor()
    {
        Harness h;
        QSignalSpy inserted(&h.session, &ChatSession::olderPageInserted);
        h.run(QStringLiteral("open 1;page 1 1 1001 1060;end 0;first 6;begin 1;serve 1"));
        QCOMPARE(inserted.count(), 1);
        QCOMPARE(inserted.at(0).at(0).toInt(), 50);
        QCOMPARE(inserted.at(0).at(1).toLongLong(), 1007);
        QTRY_COMPARE(h.scrolledTo, QList<qint64>{1007});
        QCOMPARE(h.session.restoreAnchorId(), 0);

        // Scrolled between both ends, the anchor is dropped after its ticks
        // without moving the list.
        h.run(QStringLiteral("begin 0;first 5;serve 1"));
        QCOMPARE(inserted.count(), 2);
        QVERIFY(h.session.restoreAnchorId() > 0);
        QTRY_COMPARE(h.session.restoreAnchorId(), 0);
        QCOMPARE(h.scrolledTo.size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestChatSession)
#include "test_chat_session.moc"
