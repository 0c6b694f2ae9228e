// The demo backend tested as a process: commands on standard input or UDP,
// answers read back from its events file, state checked across restarts.
// DEMO_SPEED=0 makes every answer come at once; DEMO_LIFE_BURST lets the
// simulated people act right after sign-in.

#include "demo_process.h"

#include <QImage>
#include <QJsonArray>
#include <QRandomGenerator>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QUdpSocket>
#include <QtTest>

using test_util::readAll;

namespace {

QString integrity(const QString &dbDir)
{
    QString result = QStringLiteral("no database");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), "check");
        db.setDatabaseName(QDir(dbDir).filePath(QStringLiteral("demo.sqlite")));
        QSqlQuery q(db);
        if (QFileInfo::exists(db.databaseName()) && db.open() &&
            q.exec(QStringLiteral("PRAGMA integrity_check")) && q.next())
            result = q.value(0).toString();
    }
    QSqlDatabase::removeDatabase(QStringLiteral("check"));
    return result;
}

// The chat with the 20,000-message history.
qint64 bigChatId(const QList<QJsonObject> &chats)
{
    for (const QJsonObject &c : chats) {
        if (ev_i64(c, "last_message_id") >= 20000)
            return ev_i64(c, "id");
    }
    return 0;
}

QJsonObject chipOf(const QJsonObject &message, const QString &emoji)
{
    for (const QJsonValue &v : message.value(QStringLiteral("reactions")).toArray()) {
        if (str(v.toObject(), "emoji") == emoji)
            return v.toObject();
    }
    return QJsonObject();
}

} // namespace

class TestDemoBackend : public QObject
{
    Q_OBJECT
    QTemporaryDir m_tmp;
    int m_counter = 0;

    QString freshRoot()
    {
        const QString root = m_tmp.filePath(QStringLiteral("run%1").arg(++m_counter));
        QDir().mkpath(root);
        return root;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_tmp.isValid());
        QVERIFY(QFileInfo(demo_backend_program()).isExecutable());
    }

    // Numbers ending in 9 ask for the password too (the others sign in
    // through signIn() everywhere); wrong answers leave the state as it was.
    void signInWithPassword()
    {
        const QString root = freshRoot();
        auto state = [](const char *s) { return DemoProcess::stateIs("auth_state", s); };
        auto errorFor = [](const char *extra) {
            return [extra](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("td_error") &&
                       str(td_error_json(e), "@extra") == QLatin1String(extra);
            };
        };
        {
            DemoProcess p(root);
            QVERIFY(p.start());
            QVERIFY(p.waitFor(0, [](const QJsonObject &e) { return str(e, "what") == "phone"; }) >=
                    0);
            QVERIFY(!p.ask("phone +44 20 7946 0999", state("WaitCode")).isEmpty());
            QCOMPARE(str(p.ask("resend", typed("code_info")), "delivery"), QStringLiteral("sms"));
            QCOMPARE(str(td_error_json(p.ask("code 12345", errorFor("code"))), "message"),
                     QStringLiteral("PHONE_CODE_INVALID"));
            QVERIFY(!p.ask("state", state("WaitCode")).isEmpty());
            QVERIFY(!p.ask("code 22222", state("WaitPassword")).isEmpty());
            QVERIFY(!p.ask("password hunter2", errorFor("password")).isEmpty());
            QVERIFY(!p.ask("state", state("WaitPassword")).isEmpty());
            const QJsonObject me = p.ask("password vexa", typed("me"));
            QVERIFY(str(me, "phone").endsWith("0999"));
            QCOMPARE(p.finish(), 0);
            // Standard output tells the same story in status lines.
            const QByteArray out = p.standardOutput();
            const QByteArray meLine = "ME id=" + num(ev_i64(me, "id")) + '\n';
            QVERIFY(out.startsWith("BACKEND_READY demo\n") && out.contains("NEED code\n"));
            QVERIFY(out.contains("AUTH_STATE WaitCode\n") && out.contains("NEED password\n"));
            QVERIFY(out.indexOf("AUTH_STATE Ready\n") < out.indexOf(meLine));
            QCOMPARE(p.badLines(), 0);
        }
        // Signed in once: the next start is Ready at once.
        DemoProcess again(root);
        QVERIFY(again.start());
        const int first = again.waitType(0, QStringLiteral("auth_state"));
        QCOMPARE(str(again.events().value(first), "state"), QStringLiteral("Ready"));
        QCOMPARE(again.finish(), 0);
    }

    // Started by hand without any path, locally or as the service, the
    // backend keeps one account in Vexa's data folder and leaves the current
    // folder alone; a second instance on that folder, in either mode, exits
    // with code 9 and leaves the first unharmed.
    void startedByHand_data()
    {
        QTest::addColumn<bool>("service"); // also gives VEXA_DATA_DIR; else only HOME
        QTest::newRow("local, HOME") << false;
        QTest::newRow("service, VEXA_DATA_DIR") << true;
    }
    void startedByHand()
    {
        QFETCH(bool, service);
        // The port is fixed; another program's test may hold it for a while.
        QVERIFY(!service || test_util::waitFor(
                                [] {
                                    QUdpSocket probe;
                                    return probe.bind(QHostAddress::LocalHost, 47010);
                                },
                                20000));
        const QString base = freshRoot();
        const QString cwd = base + QStringLiteral("/cwd");
        const QString home = base + QStringLiteral("/home");
        QVERIFY(QDir().mkpath(cwd) && QDir().mkpath(home));
        const QString data =
            service ? base + QStringLiteral("/data") : home + QStringLiteral("/.local/share/vexa");
        auto isEmpty = [](const QString &dir) {
            return QDir(dir)
                .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden)
                .isEmpty();
        };
        const QStringList serviceArgs{QStringLiteral("--service")};
        for (int run = 0; run < 2; ++run) {
            DemoProcess p(data), second(data);
            for (DemoProcess *d : {&p, &second}) {
                d->useDefaultFolders(cwd);
                d->setEnv(QStringLiteral("HOME"), home);
                if (service)
                    d->setEnv(QStringLiteral("VEXA_DATA_DIR"), data);
            }
            QVERIFY(p.start(service ? serviceArgs : QStringList()));
            QVERIFY(p.waitType(0, QStringLiteral("backend_ready")) >= 0);
            if (run == 0) {
                QVERIFY(second.start(service ? QStringList() : serviceArgs));
                QVERIFY(second.process().waitForFinished(5000));
                QCOMPARE(second.process().exitStatus(), QProcess::NormalExit);
                QCOMPARE(second.process().exitCode(), 9);
                QVERIFY(second.standardOutput().startsWith("FATAL "));
            }
            QUdpSocket udp;
            auto ask = [&](const QByteArray &line,
                           const std::function<bool(const QJsonObject &)> &match) {
                const int m = p.mark();
                if (service)
                    udp.writeDatagram(line, QHostAddress::LocalHost, 47010);
                else
                    p.send(line);
                return p.events().value(p.waitFor(m, match));
            };
            // One account: the second start finds the first one's sign-in.
            if (run == 0) {
                QVERIFY(!ask("phone +15550101", typed("code_info")).isEmpty());
                QVERIFY(!ask("code 22222", DemoProcess::stateIs("auth_state", "Ready")).isEmpty());
            } else {
                QVERIFY(p.waitFor(0, DemoProcess::stateIs("auth_state", "Ready")) >= 0);
            }
            const QJsonObject chat = ask("chats 1", typed("chat"));
            const QJsonObject file =
                ask("download " + num(ev_i64(chat, "photo_small_id")), typed("file"));
            QVERIFY(str(file, "path").startsWith(p.filesDir()));
            if (service) {
                // A datagram is one command: a smuggled second line is not run.
                const int m = p.mark();
                udp.writeDatagram("ping\nchats 3", QHostAddress::LocalHost, 47010);
                udp.writeDatagram("chats 2", QHostAddress::LocalHost, 47010);
                const int end = p.waitType(m, QStringLiteral("chats_end"));
                QVERIFY(end >= 0);
                QCOMPARE(ofType(p.between(m, end), "chat").size(), 2);
                QVERIFY(!hasType(p.between(m, end), "backend_ready"));
                // The service runs until it is told to stop.
                p.process().terminate();
                QVERIFY(p.process().waitForFinished(10000));
                QCOMPARE(p.process().exitStatus(), QProcess::NormalExit);
                QCOMPARE(p.process().exitCode(), 0);
                QVERIFY(p.waitType(m, QStringLiteral("td_closed"), 2000) >= 0);
            } else {
                QCOMPARE(p.finish(), 0);
            }
            QCOMPARE(integrity(p.dbDir()), QStringLiteral("ok"));
            QVERIFY(readAll(p.logPath()).contains("[backend] BACKEND_READY\n[backend] AUTH_STATE"));
            QVERIFY(isEmpty(cwd));
        }
        QCOMPARE(isEmpty(home), service);
    }

    void environmentLogAndEventsFile()
    {
        DemoProcess p(freshRoot());
        p.setEnv(QStringLiteral("TG_AUTO_SEND_PHONE"), QStringLiteral("1"));
        p.setEnv(QStringLiteral("TG_PHONE_NUMBER"), QStringLiteral("+15550123"));
        p.setEnv(QStringLiteral("TDLIB_LOG_VERBOSITY"), QStringLiteral("3"));
        p.setEnv(QStringLiteral("TDLIB_LOG_MAX_FILE_SIZE"), QStringLiteral("4000"));
        QVERIFY(p.start());
        // The phone number from the environment is sent on its own.
        QVERIFY(p.waitFor(0, DemoProcess::stateIs("auth_state", "WaitCode")) >= 0);
        for (int i = 0; i < 300; ++i)
            p.send("state");
        // A removed events file is made again.
        QVERIFY(p.settle() >= 0);
        QVERIFY(QFile::remove(p.eventsPath()));
        p.send("ping");
        QCOMPARE(p.finish(), 0);
        QVERIFY(flag(QJsonDocument::fromJson(readAll(p.eventsPath()).split('\n').first()).object(),
                     "pong"));
        // The log is tagged and kept within its size.
        const QByteArray text = readAll(p.logPath());
        QVERIFY(text.size() <= 4000);
        QVERIFY(QFileInfo(p.logPath() + QStringLiteral(".old")).size() > 0);
        const QList<QByteArray> lines = text.split('\n');
        QVERIFY(lines.size() > 10 && lines.contains("[backend] cmd state"));
        for (const QByteArray &line : lines)
            QVERIFY2(line.isEmpty() || line.startsWith("[backend] "), line.constData());
    }

    // Each refused request is answered with its error and nothing else; one
    // row per kind of check (survivesRandomInput meets every kind of error).
    void refusals_data()
    {
        QTest::addColumn<bool>("signedIn");
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("detail"); // the error's @extra, or the code
        auto row = [](const char *name, bool in, const QByteArray &cmd, const char *answer,
                      const char *detail) { QTest::newRow(name) << in << cmd << answer << detail; };
        row("before sign-in: chats", false, "chats 60", "td_error", "chats");
        row("before sign-in: phone with letters", false, "phone +1 555 CALL", "td_error", "phone");
        row("before sign-in: code before phone", false, "code 22222", "td_error", "code");
        row("before sign-in: react", false, "react 1003 2 👍 add", "reaction_error", "");
        const QByteArray missing = b64(QStringLiteral("/nonexistent/file.bin"));
        row("unknown verb", true, "frobnicate 1 2", "td_error", "unknown");
        row("history extra arg", true, "history 1003 60 7", "td_error", "history:1003");
        row("send empty text", true, "send64 1003 ICA=", "td_error", "send:1003");
        row("sendfile missing", true, "sendfile64 1003 " + missing, "td_error", "sendfile:1003");
        row("sendvoice no duration", true, "sendvoice64 1003 " + missing + " 0", "td_error",
            "sendvoice:1003");
        row("edit incoming", true, "edit64 -1001000000001 1 aGk=", "edit_error", "");
        row("delete bad mode", true, "delete 1003 maybe 1", "delete_error", "");
        row("props missing message", true, "props 1003 99999999", "message_properties_error", "");
        row("resolve unknown", true, "resolve nobody_here_at_all", "tg_resolve_error", "");
        row("leave private chat", true, "leave 1003", "action_error", "");
        row("join twice", true, "join -1001000000001", "action_error", "");
        row("download unknown", true, "download 999", "td_error", "download:999");
        row("forward unknown chat", true, "forward 55 1003 1", "td_error", "forward:55");
        row("huge number", true, "open 99999999999999999999999", "td_error",
            "open:99999999999999999999999");
        row("react: emoji no chat allows", true, "react 1003 1 🦄 add", "td_error",
            "react:1003:1");
        row("react: missing message", true, "react 1003 999999 👍 add", "reaction_error", "404");
        row("react: bad mode", true, "react 1003 1 👍 sideways", "reaction_error", "400");
    }
    void refusals()
    {
        QFETCH(bool, signedIn);
        QFETCH(QByteArray, command);
        QFETCH(QString, answer);
        QFETCH(QString, detail);
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        // Start-up ends before the answer to the first ping ("need" follows
        // "auth_state"), so nothing of it can fall between command and answer.
        QVERIFY(signedIn ? p.signIn() : p.settle() >= 0);
        // The refusal is the first answer: nothing of the request was done.
        const QJsonObject first = p.answers(command).value(0);
        QCOMPARE(ev_type(first), answer);
        bool isCode = false;
        const int code = detail.toInt(&isCode);
        if (isCode)
            QCOMPARE(first.value(QStringLiteral("code")).toInt(), code);
        else if (!detail.isEmpty())
            QCOMPARE(str(td_error_json(first), "@extra"), detail);
        QCOMPARE(p.finish(), 0);
    }

    // The whole list comes in order; the same seed gives the same world and
    // another seed another one.
    void chatListAndSeed()
    {
        bool ordered = true;
        auto snapshot = [&](const char *seed) {
            DemoProcess p(freshRoot());
            p.setEnv(QStringLiteral("DEMO_SEED"), QLatin1String(seed));
            QStringList rows;
            qint64 prev = std::numeric_limits<qint64>::max();
            if (p.start() && p.signIn() && p.chats(60).size() == 60) {
                for (const QJsonObject &c : p.chats(1000)) {
                    ordered &= ev_i64(c, "order") > 0 && ev_i64(c, "order") <= prev;
                    prev = ev_i64(c, "order");
                    rows << QStringLiteral("%1|%2|%3|%4")
                                .arg(ev_i64(c, "id"))
                                .arg(str(c, "title"))
                                .arg(ev_i64(c, "last_message_id"))
                                .arg(str(c, "last_text"));
                }
            }
            p.finish();
            return rows;
        };
        const QStringList world = snapshot("7");
        QVERIFY(world.size() >= 120 && ordered);
        QCOMPARE(QSet<QString>(world.cbegin(), world.cend()).size(), world.size());
        QCOMPARE(snapshot("7"), world);
        QVERIFY(snapshot("8") != world);
    }

    // The 20,000-message chat pages back to its first message; windows
    // around a message come whole.
    void historyPagingAndWindows()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start() && p.signIn());
        const qint64 big = bigChatId(p.chats(1000));
        QVERIFY(big != 0);
        QJsonObject end;
        QList<QJsonObject> page = p.history("history " + num(big) + " 50", &end);
        QCOMPARE(page.size(), 50);
        QVERIFY(flag(end, "clear"));
        const qint64 gen = ev_i64(end, "gen");
        QSet<qint64> seen;
        qint64 oldest = 0;
        for (int pages = 0; !page.isEmpty() && pages < 1000; ++pages) {
            qint64 prev = 0;
            for (const QJsonObject &msg : page) {
                const qint64 id = ev_i64(msg, "id");
                QVERIFY2(id > prev && !seen.contains(id), "ids repeat or are not oldest first");
                QVERIFY(ev_i64(msg, "gen") == gen && ev_i64(msg, "chat_id") == big);
                seen.insert(prev = id);
            }
            oldest = ev_i64(page.first(), "id");
            page = p.history("history_more " + num(big) + ' ' + num(oldest) + " 50", &end);
            QVERIFY(!end.isEmpty() && !flag(end, "clear"));
        }
        QCOMPARE(seen.size(), 20000);
        QCOMPARE(oldest, qint64(1));
        // "<verb> <id> <first> <last>": the window around the id (40 either side).
        for (const char *w : {"history_jump 10000 9960 10040", "history_jump 3 1 43",
                              "history_jump 20000 19960 20000", "open 15000 14960 15040"}) {
            const QList<QByteArray> f = QByteArray(w).split(' ');
            const QByteArray around = f[0] == "open" ? "" : " 40 40";
            page = p.history(f[0] + ' ' + num(big) + ' ' + f[1] + around, &end);
            QVERIFY(flag(end, "clear") && page.size() == f[3].toInt() - f[2].toInt() + 1);
            QCOMPARE(ev_i64(page.first(), "id"), f[2].toLongLong());
            QCOMPARE(ev_i64(page.last(), "id"), f[3].toLongLong());
        }
        QCOMPARE(p.badLines(), 0);
        QCOMPARE(p.finish(), 0);
    }

    // Each open starts a new generation that older pages keep (the pinned
    // list against the pins: worldActivity).
    void openStartsAGeneration()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start() && p.signIn());
        qint64 lastGen = 0;
        for (int round = 0; round < 2; ++round) {
            const QList<QJsonObject> answers = p.answers("open 1003");
            const QJsonObject begin = ofType(answers, "history_begin").value(0);
            QVERIFY(flag(begin, "clear") && ev_i64(begin, "gen") > lastGen);
            lastGen = ev_i64(begin, "gen");
            QVERIFY(!ofType(answers, "message").isEmpty() && hasType(answers, "history_end"));
            QVERIFY(hasType(answers, "pinned_message") || hasType(answers, "pinned_none"));
            QVERIFY(!findBy(ofType(answers, "user"), "id", 1003).isEmpty());
        }
        QJsonObject end;
        QCOMPARE(p.history("history_more 1003 5 10", &end).size(), 4);
        QCOMPARE(ev_i64(end, "gen"), lastGen);
        QCOMPARE(p.finish(), 0);
    }

    // Sending (with a reply, in several scripts), the peer's answer, an edit,
    // a reaction, mute, leave, read, delete and clear in one account; all of
    // it is there after a restart.
    void accountChangesPersist()
    {
        const QString root = freshRoot();
        const QString text = QStringLiteral("Привет\nこんにちは 👋");
        const QString newText = QStringLiteral("Edited ✎ text");
        const QString fire = QStringLiteral("🔥");
        qint64 left = 0, unread = 0, group = 0, sent = 0, answer = 0, replyTo = 0, reacted = 0;
        {
            DemoProcess p(root);
            QVERIFY(p.start() && p.signIn());
            qint64 unreadLast = 0;
            for (const QJsonObject &c : p.chats(1000)) {
                const QString type = str(c, "chat_type");
                const bool small = ev_i64(c, "last_message_id") < 20000;
                if (!left && small && type == "supergroup" && !flag(c, "muted"))
                    left = ev_i64(c, "id");
                else if (!group && type == "basic_group")
                    group = ev_i64(c, "id");
                else if (!unread && small && ev_i64(c, "unread_count") > 0 &&
                         ev_i64(c, "id") != 1003) { // 1003 answers what is sent below
                    unread = ev_i64(c, "id");
                    unreadLast = ev_i64(c, "last_message_id");
                }
            }
            QVERIFY(left && group && unread);
            QVERIFY(flag(p.ask("mute_toggle " + num(left), "chat_mute_toggled"), "muted"));
            QList<QJsonObject> answers = p.answers("leave " + num(left));
            QVERIFY(hasType(answers, "chat_left"));
            QCOMPARE(ev_i64(ofType(answers, "chat_position").value(0), "order"), qint64(0));
            QCOMPARE(ev_i64(p.ask("read " + num(unread) + ' ' + num(unreadLast), "chat_unread"),
                            "unread_count"),
                     qint64(0));
            for (const QJsonObject &msg : p.history("history 1003 5")) {
                replyTo = ev_i64(msg, "id");
                if (chipOf(msg, fire).isEmpty())
                    reacted = replyTo;
            }
            QVERIFY(reacted > 0);

            // Pending, acknowledged, sent; then the peer reads it and answers.
            answers = p.answers("send64 1003 " + num(replyTo) + ' ' + b64(text));
            const QJsonObject pending = ofType(answers, "message_new").value(0);
            QVERIFY(str(pending, "sending_state") == "pending" && flag(pending, "outgoing"));
            QCOMPARE(str(pending, "text"), text);
            QCOMPARE(ev_i64(ofType(answers, "message_send_acked").value(0), "id"),
                     ev_i64(pending, "id"));
            const QJsonObject done = ofType(answers, "message_send_succeeded").value(0);
            QCOMPARE(ev_i64(done, "old_id"), ev_i64(pending, "id"));
            sent = ev_i64(done, "new_id");
            QVERIFY(sent > replyTo && ev_i64(done, "date") > 0);
            QCOMPARE(
                ev_i64(ofType(answers, "chat_read_outbox").value(0), "last_read_outbox_message_id"),
                sent);
            const QJsonObject reply = ofType(answers, "message_new").value(1);
            QVERIFY(!flag(reply, "outgoing") && ev_i64(reply, "sender_user_id") == 1003);
            answer = ev_i64(reply, "id");
            QVERIFY(answer > sent);

            const QJsonObject upd =
                p.ask("edit64 1003 " + num(sent) + ' ' + b64(newText), "message_update");
            QVERIFY(ev_i64(upd, "id") == sent && str(upd, "text") == newText);
            answers = p.answers("react 1003 " + num(reacted) + ' ' + fire.toUtf8() + " add");
            const QJsonObject chip = chipOf(ofType(answers, "message_reactions").value(0), fire);
            QVERIFY(flag(chip, "chosen") && chip.value(QStringLiteral("count")).toInt() == 1);
            QCOMPARE(str(ofType(answers, "reaction_ok").value(0), "mode"), QStringLiteral("add"));
            QVERIFY(!p.ask("delete_chat " + num(group), "chat_deleted").isEmpty());
            QCOMPARE(p.finish(), 0);
        }
        DemoProcess p(root);
        QVERIFY(p.start());
        const QList<QJsonObject> chats = p.chats(1000);
        QVERIFY(findBy(chats, "id", left).isEmpty() && findBy(chats, "id", group).isEmpty());
        QCOMPARE(findBy(chats, "id", unread).value(QStringLiteral("unread_count")), QJsonValue(0));
        const QList<QJsonObject> page = p.history("history 1003 10");
        QCOMPARE(ev_i64(page.last(), "id"), answer);
        const QJsonObject msg = findBy(page, "id", sent);
        QCOMPARE(str(msg, "text"), newText);
        QVERIFY(ev_i64(msg, "edit_date") > 0 && flag(msg, "outgoing") &&
                !msg.contains(QStringLiteral("sending_state")));
        QCOMPARE(ev_i64(msg, "reply_to_message_id"), replyTo);
        QVERIFY(flag(chipOf(findBy(page, "id", reacted), fire), "chosen"));
        const QJsonObject removed = p.ask(
            "react 1003 " + num(reacted) + ' ' + fire.toUtf8() + " remove", "message_reactions");
        QVERIFY(!removed.isEmpty() && chipOf(removed, fire).isEmpty());
        // Joining again brings the chat back, still muted.
        QVERIFY(!p.ask("join " + num(left), "chat_joined").isEmpty());
        QVERIFY(flag(findBy(p.chats(1000), "id", left), "muted"));
        // A cleared history stays empty; new messages still arrive.
        const QList<QJsonObject> cleared = p.answers("clear_history 1003");
        QVERIFY(hasType(cleared, "history_cleared"));
        QCOMPARE(ev_i64(ofType(cleared, "chat_last_message").value(0), "message_id"), qint64(0));
        QCOMPARE(p.finish(), 0);
        DemoProcess again(root);
        QVERIFY(again.start());
        QVERIFY(again.history("history 1003 30").isEmpty());
        QVERIFY(!again.ask("send64 1003 " + b64("after the clear"), "message_send_succeeded")
                     .isEmpty());
        QCOMPARE(again.history("history 1003 30").size(), 2); // the message and the peer's answer
        QCOMPARE(again.finish(), 0);
    }

    // What the user may do with a message differs by whose it is, its age
    // and the chat's kind; a channel that is read-only also refuses sending.
    void messagePropertiesAndReadOnlyChannel()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start() && p.signIn());
        qint64 readOnly = 0, secret = 0, group = 0;
        for (const QJsonObject &c : p.chats(1000)) {
            const QString type = str(c, "chat_type");
            if (type == QLatin1String("secret") && !secret)
                secret = ev_i64(c, "id");
            if (type == QLatin1String("basic_group") && !group)
                group = ev_i64(c, "id");
            if (!readOnly && type == QLatin1String("channel") &&
                !flag(p.ask("chat_info " + num(ev_i64(c, "id")), "chat_info"), "can_send"))
                readOnly = ev_i64(c, "id");
        }
        QVERIFY(readOnly && secret && group);
        // "rfdaec": replied, forwarded, deleted for self, for all, edited, copied.
        const auto props = [&p](qint64 chat, qint64 id) -> QString {
            const QJsonObject e = p.ask("props " + num(chat) + ' ' + num(id), "message_properties");
            QString f;
            for (const char *k :
                 {"can_be_replied", "can_be_forwarded", "can_be_deleted_only_for_self",
                  "can_be_deleted_for_all_users", "can_be_edited", "can_be_copied"})
                f += flag(e, k) ? QLatin1Char("rfdaec"[f.size()]) : QLatin1Char('-');
            return f;
        };
        // The newest own and incoming texts of a chat, and an own text older
        // than the two days a text can be corrected in.
        const auto pick = [&p](qint64 chat, bool outgoing, bool old) -> qint64 {
            qint64 found = 0;
            const qint64 limit = QDateTime::currentSecsSinceEpoch() - 3 * 86400;
            for (const QJsonObject &m : p.history("history " + num(chat) + " 200"))
                if (flag(m, "outgoing") == outgoing && !str(m, "text").isEmpty() &&
                    str(m, "content_type") == QLatin1String("messageText") &&
                    (!old || ev_i64(m, "date") < limit))
                    found = old && found ? found : ev_i64(m, "id");
            return found;
        };
        const qint64 fresh = ev_i64(
            p.ask("send64 1003 " + b64(QStringLiteral("now")), "message_send_succeeded"), "new_id");
        QCOMPARE(props(1003, fresh), QStringLiteral("rfdaec"));
        QCOMPARE(props(1003, pick(1003, true, true)), QStringLiteral("rfda-c"));
        QCOMPARE(props(1003, pick(1003, false, false)), QStringLiteral("rfda-c"));
        QCOMPARE(props(group, pick(group, false, false)), QStringLiteral("rfd--c"));
        QCOMPARE(props(readOnly, pick(readOnly, false, false)), QStringLiteral("-f---c"));
        QCOMPARE(props(secret, pick(secret, false, false)), QStringLiteral("r--a--"));

        // Sending there is taken, then fails with the request's tag.
        const QList<QJsonObject> answers = p.answers("send64 " + num(readOnly) + " aGk=");
        QCOMPARE(ev_i64(ofType(answers, "message_send_failed").value(0), "old_id"),
                 ev_i64(ofType(answers, "message_new").value(0), "id"));
        QCOMPARE(str(td_error_json(ofType(answers, "td_error").value(0)), "@extra"),
                 QStringLiteral("send:%1").arg(readOnly));
        QVERIFY(!hasType(answers, "message_send_succeeded"));
        QCOMPARE(p.finish(), 0);
    }

    // Generated files of every kind (chat photos: the by-hand starts), and
    // files the user sent (which stay downloadable after the original is gone).
    void downloads_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QByteArray>("sendVerb");
        QTest::addColumn<QString>("fileName");
        for (const char *kind : {"photo", "thumbnail", "voice", "file", "video_note"})
            QTest::newRow(kind) << kind << QByteArray() << QString();
        QTest::newRow("sent photo") << "photo" << QByteArray("sendfile64") << "shot.png";
        QTest::newRow("sent voice") << "voice" << QByteArray("sendvoice64") << "voice.oga";
    }
    void downloads()
    {
        QFETCH(QString, kind);
        QFETCH(QByteArray, sendVerb);
        QFETCH(QString, fileName);
        const bool sent = !sendVerb.isEmpty();
        if (!sent && kind == "video_note" && QStandardPaths::findExecutable("ffmpeg").isEmpty())
            QSKIP("ffmpeg is not installed");
        if (!sent && kind == "voice" && QStandardPaths::findExecutable("opusdec").isEmpty())
            QSKIP("opusdec is not installed");
        const QString root = freshRoot();
        DemoProcess p(root);
        QVERIFY(p.start() && p.signIn());
        qint64 fileId = 0;
        QJsonObject msg;
        if (sent) {
            const QString path = root + QLatin1Char('/') + fileName;
            QImage img(64, 48, QImage::Format_RGB32);
            img.fill(Qt::darkCyan);
            QVERIFY(kind == "photo" ? img.save(path)
                                    : test_util::writeFile(path, "OggS" + QByteArray(300, 'x')));
            const QByteArray duration = kind == "voice" ? " 3" : "";
            msg = p.ask(sendVerb + " 1003 " + b64(path) + duration, "message_new");
            QCOMPARE(str(msg, "media_type"), kind);
            QCOMPARE(ev_i64(msg, "media_size"), QFileInfo(path).size());
            QCOMPARE(ev_i64(msg, kind == "photo" ? "media_w" : "media_duration"),
                     qint64(kind == "photo" ? 64 : 3));
            QVERIFY(hasType(p.between(0, p.settle()), "message_send_succeeded"));
            QVERIFY(QFile::remove(path));
            fileId = ev_i64(msg, "media_file_id");
        } else {
            const QString media = kind == QLatin1String("thumbnail") ? "photo" : kind;
            for (const QJsonObject &m :
                 p.history("history " + num(bigChatId(p.chats(1000))) + " 200"))
                msg = msg.isEmpty() && str(m, "media_type") == media ? m : msg;
            fileId = ev_i64(msg, kind == "thumbnail" ? "media_thumb_file_id" : "media_file_id");
        }
        QVERIFY2(fileId > 0, "no file of that kind in the account");

        const int m = p.post("download " + num(fileId));
        const int done = p.waitFor(
            m,
            [fileId](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("file") && ev_i64(e, "id") == fileId;
            },
            30000);
        QVERIFY(done >= 0);
        const QString path = str(p.events().at(done), "path");
        const qint64 size = QFileInfo(path).size();
        QVERIFY(size > 0 && path.startsWith(p.filesDir()));
        int progress = 0;
        for (const QJsonObject &e : p.between(m, done)) {
            if (ev_type(e) == QLatin1String("file_progress") && ev_i64(e, "id") == fileId) {
                ++progress;
                QVERIFY(ev_i64(e, "total") == size && ev_i64(e, "downloaded") <= size);
            }
        }
        QVERIFY(progress >= 1);
        if (sent || kind == "voice" || kind == "file")
            QCOMPARE(size, ev_i64(msg, "media_size"));
        if (kind == QLatin1String("file")) {
            QVERIFY(path.endsWith(str(msg, "media_name")));
        } else if (!sent && kind == QLatin1String("video_note")) {
            // WebM: the EBML magic.
            QCOMPARE(readAll(path).left(4), QByteArray("\x1a\x45\xdf\xa3"));
        } else if (!sent && kind == QLatin1String("voice")) {
            // opusdec checks the pages' checksums and decodes every packet.
            QProcess dec;
            dec.setProcessChannelMode(QProcess::MergedChannels);
            const QString wav = path + QStringLiteral(".wav");
            dec.start(QStringLiteral("opusdec"), {"--rate", "48000", path, wav});
            QVERIFY(dec.waitForFinished(30000));
            const QByteArray out = dec.readAll();
            QVERIFY2(dec.exitCode() == 0 && !out.contains("rror"), out.constData());
            const qint64 samples = (QFileInfo(wav).size() - 44) / 2;
            const qint64 expected = ev_i64(msg, "media_duration") * 48000;
            QVERIFY2(qAbs(samples - expected) <= 960, qPrintable(QString::number(samples)));
        } else if (!sent || kind == QLatin1String("photo")) {
            const QImage img(path);
            QVERIFY(!img.isNull());
            if (kind == QLatin1String("photo"))
                QCOMPARE(img.size(),
                         QSize(int(ev_i64(msg, "media_w")), int(ev_i64(msg, "media_h"))));
            if (kind == QLatin1String("thumbnail"))
                QCOMPARE(qMax(img.width(), img.height()), 160);
        }
        // A second request is served from the same file.
        QCOMPARE(str(p.ask("downloadp " + num(fileId), "file"), "path"), path);
        QCOMPARE(p.finish(), 0);
    }

    // Selections above the service's 100 per request are carried out whole
    // and answered as one request; ids that are missing or not the user's to
    // delete for everyone are refused one by one; what was deleted stays so.
    void forwardAndDelete()
    {
        const QString root = freshRoot();
        qint64 big = 0, incoming = 0, others = 0;
        QByteArray ids;
        {
            DemoProcess p(root);
            QVERIFY(p.start() && p.signIn());
            big = bigChatId(p.chats(1000));
            const QList<QJsonObject> source = p.history("history " + num(big) + " 150");
            QCOMPARE(source.size(), 150);
            QByteArray line = "forward 1003 " + num(big);
            for (const QJsonObject &m : source) {
                line += ' ' + num(ev_i64(m, "id"));
                others = flag(m, "outgoing") ? others : ev_i64(m, "id");
            }
            QList<QJsonObject> answers = p.answers(line);
            QVERIFY(!hasType(answers, "td_error"));
            QList<QJsonObject> forwarded;
            for (const QJsonObject &e : ofType(answers, "message_new")) {
                if (flag(e, "outgoing"))
                    forwarded << e;
            }
            const QList<QJsonObject> done = ofType(answers, "message_send_succeeded");
            QVERIFY(forwarded.size() == 150 && done.size() == 150);
            for (int i = 0; i < 150; ++i) {
                QVERIFY(!str(forwarded.at(i), "forwarded").isEmpty());
                for (const char *key : {"content_type", "media_file_id"})
                    QCOMPARE(forwarded.at(i).value(QLatin1String(key)),
                             source.at(i).value(QLatin1String(key)));
                QCOMPARE(ev_i64(done.at(i), "old_id"), ev_i64(forwarded.at(i), "id"));
                QVERIFY(i == 0 || ev_i64(done.at(i), "new_id") > ev_i64(done.at(i - 1), "new_id"));
                ids += ' ' + num(ev_i64(done.at(i), "new_id"));
            }
            answers = p.answers("delete 1003 all" + ids);
            QVERIFY(!hasType(answers, "delete_error"));
            QCOMPARE(ofType(answers, "messages_deleted").size(), 1);
            QCOMPARE(ofType(answers, "messages_deleted")
                         .first()
                         .value(QStringLiteral("message_ids"))
                         .toArray()
                         .size(),
                     150);
            QList<int> codes;
            for (const QJsonObject &e :
                 ofType(p.answers("delete " + num(big) + " all " + num(others) + " 99999999"),
                        "delete_error"))
                codes << e.value(QStringLiteral("code")).toInt();
            QCOMPARE(codes, (QList<int>{403, 404}));
            for (const QJsonObject &m : p.history("history 1003 30"))
                incoming = flag(m, "outgoing") ? incoming : ev_i64(m, "id");
            QVERIFY(hasType(p.answers("delete 1003 self " + num(incoming)), "messages_deleted"));
            QCOMPARE(p.finish(), 0);
        }
        DemoProcess p(root);
        QVERIFY(p.start());
        const QList<QJsonObject> page = p.history("history 1003 200");
        QVERIFY(!page.isEmpty() && findBy(page, "id", incoming).isEmpty());
        QVERIFY(findBy(page, "id", ids.split(' ').last().toLongLong()).isEmpty());
        QVERIFY(!findBy(p.history("history " + num(big) + " 150"), "id", others).isEmpty());
        QCOMPARE(p.finish(), 0);
    }

    // Without anything asked, people write, come and go, rename their groups,
    // pin messages and call; the burst makes a seeded stretch of that life
    // happen at once.
    void worldActivity()
    {
        const QString root = freshRoot();
        qint64 renamed = 0;
        QString lastTitle;
        qint64 pinChat = 0;
        QList<QJsonObject> pinList;
        {
            DemoProcess p(root);
            p.setEnv(QStringLiteral("DEMO_LIFE_BURST"), QStringLiteral("300"));
            QVERIFY(p.start() && p.signIn());
            const QList<QJsonObject> life = p.between(0, p.settle());
            QVERIFY(hasType(life, "user"));
            QJsonObject incoming;
            for (const QJsonObject &e : ofType(life, "message_new"))
                incoming = flag(e, "outgoing") ? incoming : e;
            QVERIFY(!incoming.isEmpty());
            // A call rings with its signalling and ends unanswered.
            const qint64 callId = ev_i64(ofType(life, "call_update").value(0), "call_id");
            QStringList states;
            for (const QJsonObject &c : ofType(life, "call_update"))
                states << (ev_i64(c, "call_id") == callId ? str(c, "state") : QString());
            states.removeAll(QString());
            QCOMPARE(states, (QStringList{"pending", "discarded"}));
            QVERIFY(ev_i64(findBy(ofType(life, "call_signaling"), "call_id", callId), "b64_len") >
                    0);
            const QList<QJsonObject> titles = ofType(life, "chat_title");
            QVERIFY(!titles.isEmpty());
            renamed = ev_i64(titles.last(), "chat_id");
            for (const QJsonObject &e : titles)
                lastTitle = ev_i64(e, "chat_id") == renamed ? str(e, "title") : lastTitle;
            // Pins change, and the list tells the same as the last change.
            QList<QJsonObject> pinChanges = ofType(life, "pinned_message");
            pinChanges += ofType(life, "pinned_none");
            QVERIFY(!pinChanges.isEmpty());
            pinChat = ev_i64(pinChanges.first(), "chat_id");
            QJsonObject lastPin;
            for (const QJsonObject &e : life)
                if (ev_type(e).startsWith(QLatin1String("pinned_")) &&
                    ev_i64(e, "chat_id") == pinChat)
                    lastPin = e;
            pinList = ofType(p.answers("pinned_list " + num(pinChat) + " 100"), "pinned_list_item");
            if (ev_type(lastPin) == QLatin1String("pinned_none"))
                QVERIFY(pinList.isEmpty());
            else
                QCOMPARE(ev_i64(pinList.value(0), "id"), ev_i64(lastPin, "id"));
            // The message went into the account.
            const QByteArray chatId = num(ev_i64(incoming, "chat_id"));
            QVERIFY(!findBy(p.history("history " + chatId + " 30"), "id", ev_i64(incoming, "id"))
                         .isEmpty());
            QCOMPARE(p.finish(), 0);
        }
        // The name survives a restart.
        DemoProcess again(root);
        QVERIFY(again.start());
        QCOMPARE(str(findBy(again.chats(1000), "id", renamed), "title"), lastTitle);
        // So do the pins.
        QCOMPARE(ofType(again.answers("pinned_list " + num(pinChat) + " 100"), "pinned_list_item"),
                 pinList);
        QCOMPARE(again.finish(), 0);
    }
    void searchAndResolve()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start() && p.signIn());
        qint64 lastReq = 0;
        for (const QString &q : {QStringLiteral("vexa"), QStringLiteral("zzzz-no-such-chat")}) {
            const int m = p.post("search_server64 1003 " + b64(q) + " 30");
            const int end = p.waitType(m, QStringLiteral("search_end"));
            const int begin = p.waitType(m, QStringLiteral("search_begin"));
            QVERIFY(begin >= 0 && begin < end);
            const qint64 req = ev_i64(p.events().at(begin), "req");
            QVERIFY(req > lastReq);
            lastReq = req;
            int found = 0;
            for (const QJsonObject &e : ofType(p.between(begin, end), "search_chat"))
                QVERIFY(ev_i64(e, "req") == req && ev_i64(e, "idx") == found++);
            QCOMPARE(found > 0, q == QLatin1String("vexa"));
        }
        // A public group is found by its user name, whatever the case, with or
        // without the at sign (names not taken are among the refusals).
        const QJsonObject e = p.ask("resolve @VEXA_Archive", [](const QJsonObject &e) {
            return ev_type(e).startsWith(QLatin1String("tg_resolve"));
        });
        QCOMPARE(ev_type(e), QStringLiteral("tg_resolve"));
        QVERIFY(ev_i64(e, "chat_id") != 0 && str(e, "chat_type") == "supergroup");
        QCOMPARE(p.finish(), 0);
    }

    void killedWhileWritingKeepsDatabase()
    {
        const QString root = freshRoot();
        {
            DemoProcess p(root);
            QVERIFY(p.start() && p.signIn());
            for (int i = 0; i < 400; ++i) {
                p.send("send64 1003 " + b64(QStringLiteral("burst %1").arg(i)));
                if (i % 3 == 0)
                    p.send("react 1003 " + num(1 + i % 20) + " 👍 add");
            }
            QVERIFY(p.waitType(0, QStringLiteral("message_send_succeeded")) >= 0);
            p.process().kill();
            QVERIFY(p.process().waitForFinished(5000));
        }
        QCOMPARE(integrity(root + QStringLiteral("/tdlib-db")), QStringLiteral("ok"));
        DemoProcess again(root);
        QVERIFY(again.start());
        QVERIFY(!again.history("history 1003 50").isEmpty());
        QCOMPARE(again.finish(), 0);
    }

    void survivesRandomInput()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start() && p.signIn());
        QList<QByteArray> chatIds;
        for (const QJsonObject &c : p.chats(30))
            chatIds << num(ev_i64(c, "id"));
        QVERIFY(!chatIds.isEmpty());
        QList<QByteArray> verbs =
            QByteArray("ping state phone code resend password chats open chat_info close history "
                       "history_more history_jump read send64 edit64 sendfile64 sendvoice64 "
                       "sendvideonote64 react forward delete props pinned_list search_server64 "
                       "mute_toggle clear_history join leave delete_chat download downloadp "
                       "resolve bogus send chats60")
                .split(' ');
        verbs << QByteArray();
        QRandomGenerator rng(20261122);
        const QList<QByteArray> odd =
            QByteArray("99999999999999999999999999 - abc %%%= 👍 all self add remove 0").split(' ');
        auto randomBytes = [&](int size) -> QByteArray {
            QByteArray raw(size, 0);
            for (char &c : raw)
                c = char(rng.bounded(256));
            return raw.replace('\n', ' ');
        };
        auto randomArg = [&]() -> QByteArray {
            switch (rng.bounded(5)) {
            case 0:
                return chatIds.at(rng.bounded(chatIds.size()));
            case 1:
                return num(rng.bounded(-1000, 100000));
            case 2:
                return num(rng.bounded(1, 120));
            case 3:
                return randomBytes(rng.bounded(40)).toBase64();
            default:
                return odd.at(rng.bounded(odd.size()));
            }
        };
        const int fuzzStart = p.mark();
        for (int i = 0; i < 4000; ++i) {
            QByteArray line;
            const int kind = rng.bounded(100);
            if (kind < 25) {
                line = randomBytes(rng.bounded(300));
            } else if (kind < 99) {
                line = verbs.at(rng.bounded(verbs.size()));
                for (int k = rng.bounded(6); k > 0; --k)
                    line += ' ' + randomArg();
            } else {
                line = QByteArray(1024 * 1024 + rng.bounded(200000), 'A');
            }
            p.send(line);
        }
        // Commands are answered in order: once the marker's answer is there,
        // everything before it has been handled.
        QVERIFY(!p.ask(
                      "resolve fuzz_done_marker",
                      [](const QJsonObject &e) { return str(e, "username") == "fuzz_done_marker"; },
                      120000)
                     .isEmpty());
        // The random input was read and answered, not dropped: every kind of
        // refusal shows up.
        QSet<QString> answered;
        for (const QJsonObject &e : p.events().mid(fuzzStart))
            answered.insert(ev_type(e));
        for (const char *kind : {"td_error", "action_error", "edit_error", "delete_error",
                                 "chat_info_error", "message_properties_error", "reaction_error",
                                 "tg_resolve_error", "history_begin", "chats_begin"})
            QVERIFY2(answered.contains(QLatin1String(kind)), kind);

        QCOMPARE(str(p.ask("state", QStringLiteral("auth_state"), 30000), "state"),
                 QStringLiteral("Ready"));
        QCOMPARE(p.chats(5).size(), 5);
        QCOMPARE(p.badLines(), 0);
        QCOMPARE(p.finish(60000), 0);
        QCOMPARE(integrity(p.dbDir()), QStringLiteral("ok"));
    }
};

QTEST_GUILESS_MAIN(TestDemoBackend)
#include "test_demo_backend.moc"
