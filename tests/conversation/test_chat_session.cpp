#include "chats/chat_list_model.h"
#include "conversation/chat_session.h"
#include "conversation/message_row_model.h"
#include "conversation_test_util.h"
#include "platform/array_data_model.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

// The open chat with its collaborators and everything it says.
struct Harness : OpenChatModels
{
    QStringList lines;
    QList<qint64> scrolledTo;

    Harness()
    {
        // The list knows newer messages of chat 2 than its first page shows.
        for (int chat : {1, 2, 3})
            addChat(QStringLiteral("id=%1|order=%1|chat_type=supergroup|last_message_id=%2")
                        .arg(chat)
                        .arg(chat == 2 ? 5000 : 0));
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
        QStringList events{QStringLiteral("history_begin clear=%1").arg(clear)};
        for (qint64 id = first; id <= last && first > 0; ++id)
            events << QStringLiteral("message id=%1").arg(id);
        events.removeAll(QStringLiteral("message id=%1").arg(skip));
        events << QStringLiteral("history_end clear=%1").arg(clear);
        for (const QString &e : events)
            session.handleMessageEvent(
                ev(e + QStringLiteral(" chat_id=%1 gen=%2").arg(session.chatId()).arg(gen)));
    }

    // Runs ";"-separated steps:
    //   tap C                  open chat C without waiting
    //   open C | openat C M    open chat C (anchored at M) and wait for its "open"
    //   page G CLEAR A B [S]   a batch of ids A..B in generation G, without S
    //   first N | begin 0|1 | end 0|1   the list view's state
    //   serve N                answer up to N "history_more" requests with 50 older rows
    //   jump M | bottom | refresh | close
    //   anything else          a message event of the open chat, as ev() reads it
    void run(const QString &steps)
    {
        for (const QString &step : steps.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
            const QStringList w = step.split(QLatin1Char(' '), Qt::SkipEmptyParts);
            const QString verb = w.value(0);
            auto n = [&w](int i) { return w.value(i).toLongLong(); };
            if (verb == QLatin1String("openat"))
                session.openChatAtMessage(chats.chatRowById(n(1)), n(2));
            else if (verb == QLatin1String("open") || verb == QLatin1String("tap"))
                session.openChatFromRow(chats.chatRowById(n(1)));
            else if (verb == QLatin1String("page"))
                page(int(n(1)), n(2) != 0, n(3), n(4), n(5));
            else if (verb == QLatin1String("first"))
                session.onMessagesFirstVisibleItemChanged({int(n(1))});
            else if (verb == QLatin1String("begin"))
                session.onMessagesAtBeginningChanged(n(1) != 0);
            else if (verb == QLatin1String("end"))
                session.onMessagesAtEndChanged(n(1) != 0);
            else if (verb == QLatin1String("jump"))
                session.onReplyPreviewTapped(n(1));
            else if (verb == QLatin1String("bottom"))
                session.onJumpToBottom();
            else if (verb == QLatin1String("refresh"))
                session.onRefreshHistory();
            else if (verb == QLatin1String("close"))
                session.onBackToChats();
            else if (verb != QLatin1String("serve"))
                session.handleMessageEvent(
                    ev(step + QStringLiteral(" chat_id=%1").arg(session.chatId())));
            if (verb.startsWith(QLatin1String("open")))
                QTRY_VERIFY(!session.isOpenTimerActive());
            QTRY_VERIFY(!session.isHistoryMoreTimerActive());
            for (int i = 0; verb == QLatin1String("serve") && i < n(1) &&
                            lines.last().startsWith(QLatin1String("history_more"));
                 ++i) {
                const qint64 from = lines.last().section(QLatin1Char(' '), 2, 2).toLongLong();
                page(session.historyGeneration(), false, qMax<qint64>(1, from - 50), from - 1);
            }
        }
    }

    QString span() const
    {
        if (messages.isEmpty())
            return QStringLiteral("empty");
        return QStringLiteral("%1..%2 (%3)%4")
            .arg(messages.messageIdAt(0))
            .arg(messages.messageIdAt(messages.size() - 1))
            .arg(messages.size())
            .arg(scrolledTo.isEmpty() ? QString() : " at " + QString::number(scrolledTo.last()));
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

        row("two quick taps open the second chat once, at its anchor", "tap 2;openat 3 77",
            "chat_info 2|chat_info 3|open 3 77", "empty");
        row("row 7 asks for nothing, the beginning and row 6 for one older page each",
            opened + "first 7;begin 1;first 2;serve 1;first 6;serve 1",
            "*|history_more 1 1001 50|history_more 1 951 50", "901..1060 (160) at 957");
        row("an older page keeps the anchor row in place", opened + "first 6;begin 1;serve 1",
            "*|history_more 1 1001 50", "951..1060 (110) at 1007");
        row("scrolled between both ends, the anchor is dropped", opened + "first 5;serve 1",
            "*|history_more 1 1001 50", "951..1060 (110)");
        row("at the end nothing is asked", "open 1;page 1 1 1001 1060;first 2;begin 1", "*",
            "1001..1060 (60)");
        row("an empty older page ends paging",
            "open 1;page 1 1 1 40;end 0;first 0;page 1 0 0 0;first 0;begin 1",
            "chat_info 1|open 1|read 1 40|history_more 1 1 50", "1..40 (40)");
        row("batches of another generation are ignored",
            opened + "page 0 1 1 10;page 2 0 900 1000;page 0 0 1 5", "*", "1001..1060 (60)");
        row("a cleared history starts a new generation",
            opened + "history_clear gen=2;page 1 1 1 5;page 2 0 1 5", "*", "1..5 (5)");
        row("read once per newest incoming message, never for own ones",
            opened + "end 1;message_new id=1061 outgoing=true;message_new id=1062;end 0;end 1",
            "*|read 1 1062", "1001..1062 (62)");
        row("a loaded target needs no request", opened + "jump 1010", "*",
            "1001..1060 (60) at 1010");
        row("500 back: 8 pages, one slice, then give up",
            opened + "jump 500;serve 20;page 2 1 541 580",
            "*|" + eightPages.join('|') + "|history_jump 1 500 40 40|read 1 580", "541..580 (40)");
        row("a deleted target inside the range: one slice, then give up",
            "open 1;page 1 1 1001 1060 1030;end 0;jump 1030;page 2 1 990 1070 1030",
            "*|history_jump 1 1030 40 40|read 1 1070", "990..1070 (80)");
        row("no more history during a jump",
            "open 1;page 1 1 100 160;end 0;jump -5;jump 50;page 1 0 0 0",
            "chat_info 1|open 1|read 1 160|history_more 1 100 50", "100..160 (61)");
        row("bottom reloads the newest page after a jump", "open 2;page 1 1 1001 1060;end 0;bottom",
            "chat_info 2|open 2|read 2 1060|open 2", "1001..1060 (60)");
        row("bottom with the newest page shown only scrolls", opened + "bottom", "*",
            "1001..1060 (60)");
        row("refresh, close", opened + "refresh;close;refresh", "*|history 1 60|close 1", "empty");
    }
    void paging()
    {
        QFETCH(QString, steps);
        QFETCH(QString, expectedLines);
        QFETCH(QString, expectedRows);
        Harness h;
        h.run(steps);
        QCOMPARE(
            h.lines.join(QLatin1Char('|')),
            QString(expectedLines).replace(QLatin1Char('*'), "chat_info 1|open 1|read 1 1060"));
        // An older page's anchor is kept, or dropped, after its ticks.
        QTRY_COMPARE(h.session.restoreAnchorId(), 0);
        QCOMPARE(h.span(), expectedRows);
    }
};

QTEST_GUILESS_MAIN(TestChatSession)
#include "test_chat_session.moc"
