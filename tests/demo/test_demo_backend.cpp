// The demo backend tested as a process: commands on standard input or UDP,
// answers read back from its events file, state checked across restarts.
// DEMO_SPEED=0 makes every answer come at once; DEMO_LIFE_BURST lets the
// simulated people act right after sign-in.

#include "demo_process.h"

#include <QJsonArray>
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
    // Numbers ending in 9 ask for the password too (the others sign in
    // through signIn() everywhere); wrong answers leave the state as it was;
    // a finished sign-in is remembered.
    void signInWithPassword()
    {
        const QString root = freshRoot();
        {
            DemoProcess p(root);
            QVERIFY(p.start());
            p.send("phone +44 20 7946 0999");
            QCOMPARE(str(td_error_json(p.ask("code 12345", "td_error")), "message"),
                     QStringLiteral("PHONE_CODE_INVALID"));
            QVERIFY(
                !p.ask("code 22222", DemoProcess::stateIs("auth_state", "WaitPassword")).isEmpty());
            QCOMPARE(str(td_error_json(p.ask("password hunter2", "td_error")), "@extra"),
                     QStringLiteral("password"));
            QVERIFY(str(p.ask("password vexa", "me"), "phone").endsWith("0999"));
            QCOMPARE(p.finish(), 0);
            // Standard output tells who signed in, after the state.
            const QByteArray out = p.standardOutput();
            const int ready = out.indexOf("AUTH_STATE Ready\n");
            QVERIFY(ready > 0 && ready < out.indexOf("\nME "));
        }
        DemoProcess again(root);
        QVERIFY(again.start());
        QCOMPARE(str(again.events().value(again.waitType(0, "auth_state")), "state"),
                 QStringLiteral("Ready"));
        QCOMPARE(again.finish(), 0);
    }

    void startedByHand_data()
    {
        QTest::addColumn<bool>("service"); // also gives VEXA_DATA_DIR; else only HOME
        QTest::newRow("local, HOME") << false;
        QTest::newRow("service, VEXA_DATA_DIR") << true;
    }
    // Started by hand without any path, locally or as the service, the
    // backend keeps its account in Vexa's data folder and leaves the current
    // folder alone; a second instance on that folder, in either mode, exits
    // with code 9 and leaves the first unharmed. The service takes one
    // command per datagram and runs until it is told to stop.
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
        const QStringList serviceArgs{QStringLiteral("--service")};
        DemoProcess p(data), second(data);
        for (DemoProcess *d : {&p, &second}) {
            d->process().setWorkingDirectory(cwd);
            d->setEnv(QStringLiteral("HOME"), home);
            if (service)
                d->setEnv(QStringLiteral("VEXA_DATA_DIR"), data);
        }
        QVERIFY(p.start(service ? serviceArgs : QStringList()));
        QVERIFY(p.waitType(0, "backend_ready") >= 0);
        QVERIFY(second.start(service ? QStringList() : serviceArgs));
        QVERIFY(second.process().waitForFinished(5000));
        QCOMPARE(second.process().exitCode(), 9);
        QUdpSocket udp;
        auto ask = [&](const QByteArray &line, const char *type) {
            const int m = p.mark();
            if (service)
                udp.writeDatagram(line, QHostAddress::LocalHost, 47010);
            else
                p.send(line);
            return p.events().value(p.waitType(m, type));
        };
        QVERIFY(!ask("phone +15550101", "code_info").isEmpty() &&
                !ask("code 22222", "me").isEmpty());
        if (service) {
            // A smuggled second line is not run.
            const int m = p.mark();
            udp.writeDatagram("ping\nchats 3", QHostAddress::LocalHost, 47010);
            udp.writeDatagram("chats 2", QHostAddress::LocalHost, 47010);
            const int end = p.waitType(m, "chats_end");
            QCOMPARE(ofType(p.between(m, end), "chat").size(), 2);
            QVERIFY(end >= 0 && ofType(p.between(m, end), "backend_ready").isEmpty());
            p.process().terminate();
            QVERIFY(p.process().waitForFinished(10000));
            QCOMPARE(p.process().exitCode(), 0);
            QVERIFY(p.waitType(m, "td_closed", 2000) >= 0);
        } else {
            QCOMPARE(p.finish(), 0);
        }
        QCOMPARE(integrity(p.dbDir()), QStringLiteral("ok"));
        QVERIFY(readAll(p.logPath()).contains("[backend] BACKEND_READY\n"));
        const QDir::Filters all = QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden;
        QVERIFY(QDir(cwd).isEmpty(all));
        QCOMPARE(QDir(home).isEmpty(all), service);
    }

    // The log is tagged and kept within its size; a removed events file is
    // made again.
    void environmentLogAndEventsFile()
    {
        DemoProcess p(freshRoot());
        p.setEnv(QStringLiteral("TDLIB_LOG_VERBOSITY"), QStringLiteral("3"));
        p.setEnv(QStringLiteral("TDLIB_LOG_MAX_FILE_SIZE"), QStringLiteral("4000"));
        QVERIFY(p.start());
        for (int i = 0; i < 300; ++i)
            p.send("state");
        QVERIFY(p.settle() >= 0);
        QVERIFY(QFile::remove(p.eventsPath()));
        p.send("ping");
        QCOMPARE(p.finish(), 0);
        QVERIFY(flag(QJsonDocument::fromJson(readAll(p.eventsPath()).split('\n').first()).object(),
                     "pong"));
        const QList<QByteArray> lines = readAll(p.logPath()).split('\n');
        QVERIFY(QFileInfo(p.logPath()).size() <= 4000 && lines.contains("[backend] cmd state"));
    }

    // The first answer to each verb, one row per verb (empty: none before the
    // next command's): a refusal answers with its error and nothing of the
    // request is done. Before sign-in every verb is refused the way its own
    // failures are reported.
    void firstAnswer_data()
    {
        QTest::addColumn<bool>("signedIn");
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("detail"); // the error's @extra, or the code
        auto row = [](const char *name, bool in, const QByteArray &cmd, const char *answer,
                      const char *detail) { QTest::newRow(name) << in << cmd << answer << detail; };
        const QByteArray missing = b64(QStringLiteral("/nonexistent/file.bin"));
        row("signed out: chats", false, "chats 60", "td_error", "chats");
        row("signed out: react", false, "react 1003 2 👍 add", "reaction_error", "401");
        row("phone", false, "phone +1 555 CALL", "td_error", "phone");
        row("code", false, "code 22222", "td_error", "code");
        row("over a megabyte: dropped", true, QByteArray(1200 * 1024, 'A'), "", "");
        row("control bytes", true, QByteArray("\x01\xff\x00\t\r", 5), "td_error", "unknown");
        row("open", true, "open 99999999999999999999999", "td_error",
            "open:99999999999999999999999");
        row("history", true, "history 1003 60 7", "td_error", "history:1003");
        row("send64", true, "send64 1003 ICA=", "td_error", "send:1003");
        row("sendfile64", true, "sendfile64 1003 " + missing, "td_error", "sendfile:1003");
        row("edit64", true, "edit64 -1001000000001 1 aGk=", "edit_error", "");
        row("delete", true, "delete 1003 maybe 1", "delete_error", "");
        row("props", true, "props 1003 99999999", "message_properties_error", "");
        row("chat_info", true, "chat_info 55", "chat_info_error", "");
        row("resolve", true, "resolve nobody_here_at_all", "tg_resolve_error", "");
        row("leave", true, "leave 1003", "action_error", "");
        row("forward", true, "forward 55 1003 1", "td_error", "forward:55");
        row("react", true, "react 1003 999999 👍 add", "reaction_error", "404");
        row("react: not allowed here", true, "react 1003 1 🦄 add", "td_error", "react:1003:1");
    }
    void firstAnswer()
    {
        QFETCH(bool, signedIn);
        QFETCH(QByteArray, command);
        QFETCH(QString, answer);
        QFETCH(QString, detail);
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        // Start-up ends before the answer to the first ping, so nothing of it
        // can fall between command and answer.
        QVERIFY(signedIn ? p.signIn() : p.settle() >= 0);
        const QJsonObject first = p.answers(command).value(0);
        QCOMPARE(str(first, "type"), answer);
        QVERIFY(detail.isEmpty() || str(td_error_json(first), "@extra") == detail ||
                QString::number(first.value(QStringLiteral("code")).toInt()) == detail);
        QCOMPARE(p.finish(), 0);
    }

    // The 20,000-message chat pages back to its first message; windows
    // around a message come whole; each open starts a new generation that
    // later pages keep.
    void historyPagingAndWindows()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start() && p.signIn());
        const qint64 big = bigChatId(p.chats(1000));
        QJsonObject end;
        QList<QJsonObject> page = p.history("history " + num(big) + " 50", &end);
        QVERIFY(page.size() == 50 && flag(end, "clear"));
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
        QVERIFY(seen.size() == 20000 && oldest == 1);
        // Opened at a message: the window around it (40 either side), in a
        // new generation that later pages keep.
        page = p.history("open " + num(big) + " 15000", &end);
        QVERIFY(flag(end, "clear") && ev_i64(end, "gen") > gen);
        QVERIFY(ev_i64(page.first(), "id") == 14960 && ev_i64(page.last(), "id") == 15040);
        const qint64 lastGen = ev_i64(end, "gen");
        QCOMPARE(p.history("history_more " + num(big) + " 5 10", &end).size(), 4);
        QCOMPARE(ev_i64(end, "gen"), lastGen);
        QCOMPARE(p.badLines(), 0);
        QCOMPARE(p.finish(), 0);
    }

    // What the user changes stays, even through a kill in the middle of a
    // burst of writes: a reply and the peer's answer, an edit in several
    // scripts, a reaction, a chat read, a chat left, messages deleted for
    // everyone or only for the user, a cleared history. A forward or delete
    // of more than the service's 100 per request is carried out whole; ids
    // that are missing or not the user's to delete for everyone are refused
    // one by one.
    void accountChangesPersist()
    {
        const QString root = freshRoot();
        const QString newText = QStringLiteral("Привет\nこんにちは 👋");
        const QString fire = QStringLiteral("🔥");
        qint64 left = 0, unread = 0, big = 0, others = 0, incoming = 0, sent = 0, answer = 0;
        qint64 replyTo = 0;
        QByteArray ids;
        {
            DemoProcess p(root);
            QVERIFY(p.start() && p.signIn());
            const QList<QJsonObject> chats = p.chats(1000);
            big = bigChatId(chats);
            for (const QJsonObject &c : chats) {
                const bool small = ev_i64(c, "last_message_id") < 20000;
                if (!left && small && str(c, "chat_type") == "supergroup") {
                    left = ev_i64(c, "id");
                } else if (!unread && small && ev_i64(c, "unread_count") > 0 &&
                           ev_i64(c, "id") != 1003) { // 1003 answers what is sent below
                    unread = ev_i64(c, "id");
                    p.send("read " + num(unread) + ' ' + num(ev_i64(c, "last_message_id")));
                }
            }
            QVERIFY(big && left && unread);
            p.send("leave " + num(left));

            QByteArray line = "forward 1003 " + num(big);
            for (const QJsonObject &m : p.history("history " + num(big) + " 150")) {
                line += ' ' + num(ev_i64(m, "id"));
                others = flag(m, "outgoing") ? others : ev_i64(m, "id");
            }
            const QList<QJsonObject> forwarded = ofType(p.answers(line), "message_send_succeeded");
            QCOMPARE(forwarded.size(), 150);
            for (const QJsonObject &e : forwarded)
                ids += ' ' + num(ev_i64(e, "new_id"));
            p.send("delete 1003 all" + ids);
            QList<int> codes;
            for (const QJsonObject &e :
                 ofType(p.answers("delete " + num(big) + " all " + num(others) + " 99999999"),
                        "delete_error"))
                codes << e.value(QStringLiteral("code")).toInt();
            QCOMPARE(codes, (QList<int>{403, 404}));
            for (const QJsonObject &m : p.history("history 1003 30")) {
                replyTo = ev_i64(m, "id");
                incoming = incoming || flag(m, "outgoing") ? incoming : replyTo;
            }
            p.send("delete 1003 self " + num(incoming));

            // Sent, then the peer answers.
            const QList<QJsonObject> answers =
                p.answers("send64 1003 " + num(replyTo) + ' ' + b64(QStringLiteral("hi")));
            sent = ev_i64(ofType(answers, "message_send_succeeded").value(0), "new_id");
            answer = ev_i64(ofType(answers, "message_new").value(1), "id");
            QVERIFY(answer > sent && sent > replyTo);
            p.send("edit64 1003 " + num(sent) + ' ' + b64(newText));
            p.send("react 1003 " + num(answer) + ' ' + fire.toUtf8() + " add");
            const int burst = p.mark();
            QVERIFY(p.settle() >= 0);
            for (int i = 0; i < 400; ++i)
                p.send("send64 " + num(big) + ' ' + b64(QStringLiteral("burst %1").arg(i)));
            QVERIFY(p.waitType(burst, "message_send_succeeded") >= 0);
            p.process().kill();
            QVERIFY(p.process().waitForFinished(5000));
        }
        QCOMPARE(integrity(root + QStringLiteral("/tdlib-db")), QStringLiteral("ok"));
        DemoProcess p(root);
        QVERIFY(p.start());
        const QList<QJsonObject> chats = p.chats(1000);
        QVERIFY(findBy(chats, "id", left).isEmpty());
        QCOMPARE(findBy(chats, "id", unread).value(QStringLiteral("unread_count")), QJsonValue(0));
        const QList<QJsonObject> page = p.history("history 1003 200");
        QCOMPARE(ev_i64(page.last(), "id"), answer);
        const QJsonArray chips = page.last().value(QStringLiteral("reactions")).toArray();
        QVERIFY(!flag(page.last(), "outgoing") &&
                std::any_of(chips.begin(), chips.end(), [&](const QJsonValue &c) {
                    return str(c.toObject(), "emoji") == fire && flag(c.toObject(), "chosen");
                }));
        const QJsonObject msg = findBy(page, "id", sent);
        QVERIFY(str(msg, "text") == newText && ev_i64(msg, "edit_date") > 0);
        QVERIFY(!msg.contains(QStringLiteral("sending_state")));
        QCOMPARE(ev_i64(msg, "reply_to_message_id"), replyTo);
        QVERIFY(findBy(page, "id", incoming).isEmpty());
        QVERIFY(findBy(page, "id", ids.split(' ').last().toLongLong()).isEmpty());
        p.send("clear_history 1003");
        QCOMPARE(p.finish(), 0);
        DemoProcess again(root);
        QVERIFY(again.start());
        QVERIFY(again.history("history 1003 30").isEmpty());
        QCOMPARE(again.finish(), 0);
    }

    // The simulated people call (a ring with its signalling, unanswered) and rename groups;
    // a rename stays after a restart.
    void worldActivity()
    {
        const QString root = freshRoot();
        qint64 renamed = 0;
        QString title;
        {
            DemoProcess p(root);
            p.setEnv(QStringLiteral("DEMO_LIFE_BURST"), QStringLiteral("300"));
            QVERIFY(p.start() && p.signIn());
            const QList<QJsonObject> life = p.between(0, p.settle());
            QStringList states;
            for (const QJsonObject &c : ofType(life, "call_update"))
                states << str(c, "state");
            QVERIFY(states.contains("pending") && states.contains("discarded"));
            QVERIFY(!ofType(life, "call_signaling").isEmpty());
            const QJsonObject first = ofType(life, "chat_title").value(0);
            renamed = ev_i64(first, "chat_id");
            for (const QJsonObject &e : ofType(life, "chat_title"))
                title = ev_i64(e, "chat_id") == renamed ? str(e, "title") : title;
            QVERIFY(renamed != 0);
            QCOMPARE(p.finish(), 0);
        }
        DemoProcess again(root);
        QVERIFY(again.start());
        QCOMPARE(str(findBy(again.chats(1000), "id", renamed), "title"), title);
        QCOMPARE(again.finish(), 0);
    }

    // A download reports progress and lands in the files folder, and a
    // second request is served from the same file. Voice notes must decode.
    void downloads()
    {
        if (QStandardPaths::findExecutable("opusdec").isEmpty())
            QSKIP("opusdec is not installed");
        DemoProcess p(freshRoot());
        QVERIFY(p.start() && p.signIn());
        QJsonObject msg;
        for (const QJsonObject &m : p.history("history " + num(bigChatId(p.chats(1000))) + " 200"))
            msg = msg.isEmpty() && str(m, "media_type") == "voice" ? m : msg;
        const qint64 fileId = ev_i64(msg, "media_file_id");
        const int m = p.post("download " + num(fileId));
        const int done = p.waitFor(
            m,
            [fileId](const QJsonObject &e) {
                return str(e, "type") == QLatin1String("file") && ev_i64(e, "id") == fileId;
            },
            30000);
        const QString path = str(p.events().value(done), "path");
        const qint64 size = QFileInfo(path).size();
        QVERIFY(fileId > 0 && size > 0 && path.startsWith(p.filesDir()));
        QVERIFY(!findBy(ofType(p.between(m, done), "file_progress"), "total", size).isEmpty());
        // opusdec decodes every packet: none lost, none broken.
        const QString wav = path + QStringLiteral(".wav");
        QCOMPARE(QProcess::execute("opusdec", {"--quiet", "--rate", "48000", path, wav}), 0);
        const qint64 samples = (QFileInfo(wav).size() - 44) / 2;
        QVERIFY(qAbs(samples - ev_i64(msg, "media_duration") * 48000) <= 960);
        QCOMPARE(str(p.ask("downloadp " + num(fileId), "file"), "path"), path);
        QCOMPARE(p.finish(), 0);
    }
};

QTEST_GUILESS_MAIN(TestDemoBackend)
#include "test_demo_backend.moc"
