// The demo backend tested as a process: commands on standard input or UDP,
// answers read back from its events file, state checked across restarts.

#include "demo_process.h"

#include <QImage>
#include <QJsonArray>
#include <QRandomGenerator>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QUdpSocket>
#include <QtTest>

#include <opus/opus.h>

namespace {

QByteArray b64(const QString &text)
{
    return text.toUtf8().toBase64();
}

bool hasType(const QList<QJsonObject> &events, const QString &type)
{
    for (const QJsonObject &e : events) {
        if (ev_type(e) == type)
            return true;
    }
    return false;
}

// Independent check of an Ogg Opus file: page CRCs, headers, and every audio
// packet decoded with libopus. Returns decoded samples after the pre-skip.
quint32 oggCrc(const QByteArray &page)
{
    quint32 crc = 0;
    for (int i = 0; i < page.size(); ++i) {
        crc ^= quint32(quint8(page.at(i))) << 24;
        for (int k = 0; k < 8; ++k)
            crc = (crc & 0x80000000u) ? (crc << 1) ^ 0x04C11DB7u : crc << 1;
    }
    return crc;
}

bool decodeOggOpus(const QByteArray &data, qint64 *samples, QString *error)
{
    QList<QByteArray> packets;
    int pos = 0;
    QByteArray carry;
    bool sawEos = false;
    while (pos < data.size()) {
        if (data.mid(pos, 4) != "OggS" || pos + 27 > data.size()) {
            *error = QStringLiteral("bad page at %1").arg(pos);
            return false;
        }
        const int segs = quint8(data.at(pos + 26));
        int bodyLen = 0;
        for (int i = 0; i < segs; ++i)
            bodyLen += quint8(data.at(pos + 27 + i));
        const int pageLen = 27 + segs + bodyLen;
        QByteArray page = data.mid(pos, pageLen);
        if (page.size() != pageLen) {
            *error = QStringLiteral("truncated page");
            return false;
        }
        quint32 stored = 0;
        for (int i = 0; i < 4; ++i)
            stored |= quint32(quint8(page.at(22 + i))) << (8 * i);
        page[22] = page[23] = page[24] = page[25] = 0;
        if (oggCrc(page) != stored) {
            *error = QStringLiteral("crc mismatch at %1").arg(pos);
            return false;
        }
        sawEos = (quint8(data.at(pos + 5)) & 4) != 0;
        int off = pos + 27 + segs;
        for (int i = 0; i < segs; ++i) {
            const int l = quint8(data.at(pos + 27 + i));
            carry += data.mid(off, l);
            off += l;
            if (l < 255) {
                packets.append(carry);
                carry.clear();
            }
        }
        pos += pageLen;
    }
    if (!sawEos || packets.size() < 3 || !packets.at(0).startsWith("OpusHead") ||
        !packets.at(1).startsWith("OpusTags")) {
        *error = QStringLiteral("missing headers or end of stream");
        return false;
    }
    const int preSkip = quint8(packets.at(0).at(10)) | (quint8(packets.at(0).at(11)) << 8);
    int err = 0;
    OpusDecoder *dec = opus_decoder_create(48000, 1, &err);
    if (!dec) {
        *error = QStringLiteral("decoder");
        return false;
    }
    QVector<opus_int16> pcm(5760);
    qint64 total = 0;
    for (int i = 2; i < packets.size(); ++i) {
        const QByteArray &p = packets.at(i);
        const int n = opus_decode(dec, reinterpret_cast<const unsigned char *>(p.constData()),
                                  p.size(), pcm.data(), 5760, 0);
        if (n < 0) {
            opus_decoder_destroy(dec);
            *error = QStringLiteral("decode error %1").arg(n);
            return false;
        }
        total += n;
    }
    opus_decoder_destroy(dec);
    *samples = total - preSkip;
    return true;
}

} // namespace

class TestDemoBackend : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_tmp;
    int m_counter = 0;

    QString freshRoot()
    {
        const QString root = m_tmp.filePath(QStringLiteral("run%1").arg(++m_counter));
        QDir().mkpath(root);
        return root;
    }

    // Signs in with the password-free test number and waits for Ready.
    static bool signIn(DemoProcess &p)
    {
        const int m = p.mark();
        p.send("phone +15550101");
        if (p.waitFor(m, [](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("auth_state") &&
                       e.value(QStringLiteral("state")) == QLatin1String("WaitCode");
            }) < 0)
            return false;
        const int m2 = p.mark();
        p.send("code 22222");
        // The connection settling is the last answer of a sign-in.
        return p.waitFor(m2, [](const QJsonObject &e) {
            return ev_type(e) == QLatin1String("connection_state") &&
                   e.value(QStringLiteral("state")) == QLatin1String("Ready");
        }) >= 0;
    }

    static QList<QJsonObject> loadChats(DemoProcess &p, int n)
    {
        const int m = p.mark();
        p.send("chats " + QByteArray::number(n));
        const int end = p.waitType(m, QStringLiteral("chats_end"));
        if (end < 0)
            return {};
        QList<QJsonObject> out;
        for (const QJsonObject &e : p.between(m, end)) {
            if (ev_type(e) == QLatin1String("chat"))
                out.append(e);
        }
        return out;
    }

    // The messages of the next history batch of a chat, oldest first.
    static QList<QJsonObject> history(DemoProcess &p, const QByteArray &command,
                                      int *endIndex = nullptr)
    {
        const int m = p.mark();
        p.send(command);
        const int end = p.waitType(m, QStringLiteral("history_end"));
        if (endIndex)
            *endIndex = end;
        QList<QJsonObject> out;
        if (end < 0)
            return out;
        for (const QJsonObject &e : p.between(m, end)) {
            if (ev_type(e) == QLatin1String("message"))
                out.append(e);
        }
        return out;
    }

    static QString integrity(const QString &dbDir)
    {
        const QStringList files = QDir(dbDir).entryList({QStringLiteral("*.sqlite")}, QDir::Files);
        if (files.size() != 1)
            return QStringLiteral("no database");
        QString result;
        {
            QSqlDatabase db =
                QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), QStringLiteral("check"));
            db.setDatabaseName(QDir(dbDir).filePath(files.first()));
            if (db.open()) {
                QSqlQuery q(db);
                if (q.exec(QStringLiteral("PRAGMA integrity_check")) && q.next())
                    result = q.value(0).toString();
                db.close();
            }
        }
        QSqlDatabase::removeDatabase(QStringLiteral("check"));
        return result;
    }

    static qint64 bigChatId(const QList<QJsonObject> &chats)
    {
        for (const QJsonObject &c : chats) {
            if (ev_i64(c, "last_message_id") >= 20000)
                return ev_i64(c, "id");
        }
        return 0;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_tmp.isValid());
        QVERIFY(QFileInfo(demo_backend_program()).isExecutable());
    }

    void signIn_data()
    {
        QTest::addColumn<QString>("phone");
        QTest::addColumn<bool>("asksPassword");
        QTest::newRow("no password") << QStringLiteral("+1 555 0101") << false;
        QTest::newRow("ends in 9: password") << QStringLiteral("+44 20 7946 0999") << true;
    }

    void signIn()
    {
        QFETCH(QString, phone);
        QFETCH(bool, asksPassword);
        const QString root = freshRoot();
        auto stateIs = [](const char *s) {
            return [s](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("auth_state") &&
                       e.value(QStringLiteral("state")).toString() == QLatin1String(s);
            };
        };
        auto errorTagged = [](const char *extra) {
            return [extra](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("td_error") &&
                       td_error_json(e).value(QStringLiteral("@extra")) == QLatin1String(extra);
            };
        };
        {
            DemoProcess p(root);
            QVERIFY(p.start());
            QVERIFY(p.waitFor(0, stateIs("WaitPhoneNumber")) >= 0);
            QVERIFY(p.waitFor(0, [](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("need") &&
                       e.value(QStringLiteral("what")) == QLatin1String("phone");
            }) >= 0);

            int m = p.mark();
            p.send("phone " + phone.toUtf8());
            QVERIFY(p.waitFor(m, stateIs("WaitCode")) >= 0);
            QVERIFY(hasType(p.events().mid(m), QStringLiteral("code_info")));
            m = p.mark();
            p.send("resend");
            const int resent = p.waitType(m, QStringLiteral("code_info"));
            QVERIFY(resent >= 0);
            QCOMPARE(p.events().at(resent).value(QStringLiteral("delivery")).toString(),
                     QStringLiteral("sms"));

            m = p.mark();
            p.send("code 12345");
            const int err = p.waitFor(m, errorTagged("code"));
            QVERIFY(err >= 0);
            QCOMPARE(td_error_json(p.events().at(err)).value(QStringLiteral("message")).toString(),
                     QStringLiteral("PHONE_CODE_INVALID"));
            m = p.mark();
            p.send("state");
            QVERIFY(p.waitFor(m, stateIs("WaitCode")) >= 0);

            m = p.mark();
            p.send("code 22222");
            if (asksPassword) {
                QVERIFY(p.waitFor(m, stateIs("WaitPassword")) >= 0);
                m = p.mark();
                p.send("password hunter2");
                QVERIFY(p.waitFor(m, errorTagged("password")) >= 0);
                m = p.mark();
                p.send("state");
                QVERIFY(p.waitFor(m, stateIs("WaitPassword")) >= 0);
                m = p.mark();
                p.send("password vexa");
            }
            QVERIFY(p.waitFor(m, stateIs("Ready")) >= 0);
            const int me = p.waitType(m, QStringLiteral("me"));
            QVERIFY(me >= 0);
            QVERIFY(p.events()
                        .at(me)
                        .value(QStringLiteral("phone"))
                        .toString()
                        .endsWith(asksPassword ? QStringLiteral("0999") : QStringLiteral("0101")));
            QCOMPARE(p.finish(), 0);

            const QByteArray out = p.standardOutput();
            QVERIFY(out.startsWith("BACKEND_READY demo\n"));
            QVERIFY(out.contains("AUTH_STATE WaitCode\n"));
            QVERIFY(out.contains("NEED code\n"));
            QCOMPARE(out.contains("NEED password\n"), asksPassword);
            QVERIFY(out.contains("AUTH_STATE Ready\n"));
            QFile log(p.logPath());
            QVERIFY(log.open(QIODevice::ReadOnly));
            const QList<QByteArray> lines = log.readAll().split('\n');
            QVERIFY(lines.contains("[backend] BACKEND_READY"));
            QVERIFY(lines.contains("[backend] AUTH_STATE Ready"));
            QCOMPARE(p.badLines(), 0);
        }
        // Signed in once: the next start is Ready at once.
        DemoProcess again(root);
        QVERIFY(again.start());
        const int first = again.waitType(0, QStringLiteral("auth_state"));
        QVERIFY(first >= 0);
        QCOMPARE(again.events().at(first).value(QStringLiteral("state")).toString(),
                 QStringLiteral("Ready"));
        QCOMPARE(again.finish(), 0);
    }

    void autoSendPhoneFromEnvironment()
    {
        DemoProcess p(freshRoot());
        p.setEnv(QStringLiteral("TG_AUTO_SEND_PHONE"), QStringLiteral("1"));
        p.setEnv(QStringLiteral("TG_PHONE_NUMBER"), QStringLiteral("+15550123"));
        QVERIFY(p.start());
        QVERIFY(p.waitFor(0, [](const QJsonObject &e) {
            return ev_type(e) == QLatin1String("auth_state") &&
                   e.value(QStringLiteral("state")) == QLatin1String("WaitCode");
        }) >= 0);
        QCOMPARE(p.finish(), 0);
    }

    void logFileIsTaggedAndBounded()
    {
        DemoProcess p(freshRoot());
        p.setEnv(QStringLiteral("TDLIB_LOG_VERBOSITY"), QStringLiteral("3"));
        p.setEnv(QStringLiteral("TDLIB_LOG_MAX_FILE_SIZE"), QStringLiteral("4000"));
        QVERIFY(p.start());
        for (int i = 0; i < 300; ++i)
            p.send("state");
        QCOMPARE(p.finish(), 0);
        QFile log(p.logPath());
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QByteArray text = log.readAll();
        QVERIFY(text.size() <= 4000);
        QVERIFY(QFileInfo(p.logPath() + QStringLiteral(".old")).size() > 0);
        const QList<QByteArray> lines = text.split('\n');
        QVERIFY(lines.size() > 10);
        for (const QByteArray &line : lines)
            QVERIFY2(line.isEmpty() || line.startsWith("[backend] "), line.constData());
        QVERIFY(lines.contains("[backend] cmd state"));
    }

    void eventsFileRemovedWhileRunning()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(p.waitType(0, QStringLiteral("auth_state")) >= 0);
        QVERIFY(QFile::remove(p.eventsPath()));
        p.send("ping");
        p.send("state");
        QCOMPARE(p.finish(), 0);
        QFile f(p.eventsPath());
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QList<QByteArray> lines = f.readAll().split('\n');
        QVERIFY(lines.size() >= 3);
        QCOMPARE(QJsonDocument::fromJson(lines.first()).object().value(QStringLiteral("pong")),
                 QJsonValue(true));
    }

    void commandsBeforeSignIn_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("extra");
        QTest::newRow("chats") << QByteArray("chats 60") << "td_error"
                               << "chats";
        QTest::newRow("phone with letters") << QByteArray("phone +1 555 CALL") << "td_error"
                                            << "phone";
        QTest::newRow("code before phone") << QByteArray("code 22222") << "td_error"
                                           << "code";
        QTest::newRow("send64") << QByteArray("send64 1003 aGk=") << "td_error"
                                << "send:1003";
        QTest::newRow("edit64") << QByteArray("edit64 1003 2 aGk=") << "edit_error"
                                << "";
        QTest::newRow("delete") << QByteArray("delete 1003 all 2") << "delete_error"
                                << "";
        QTest::newRow("react") << QByteArray("react 1003 2 👍 add") << "reaction_error"
                               << "";
        QTest::newRow("resolve") << QByteArray("resolve vexa_archive") << "tg_resolve_error"
                                 << "";
    }

    void commandsBeforeSignIn()
    {
        QFETCH(QByteArray, command);
        QFETCH(QString, answer);
        QFETCH(QString, extra);
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(p.waitType(0, QStringLiteral("auth_state")) >= 0);
        const int m = p.mark();
        p.send(command);
        const int i = p.waitType(m, answer);
        QVERIFY(i >= 0);
        if (!extra.isEmpty())
            QCOMPARE(td_error_json(p.events().at(i)).value(QStringLiteral("@extra")).toString(),
                     extra);
        QVERIFY(!hasType(p.events().mid(m), QStringLiteral("chats_begin")));
        QCOMPARE(p.finish(), 0);
    }

    void chatList_data()
    {
        QTest::addColumn<int>("requested");
        QTest::addColumn<int>("expectedAtLeast");
        QTest::addColumn<int>("expectedAtMost");
        QTest::newRow("chats 60") << 60 << 60 << 60;
        QTest::newRow("chats 5") << 5 << 5 << 5;
        QTest::newRow("whole list") << 1000 << 120 << 1000;
    }

    void chatList()
    {
        QFETCH(int, requested);
        QFETCH(int, expectedAtLeast);
        QFETCH(int, expectedAtMost);
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        const int m = p.mark();
        const QList<QJsonObject> chats = loadChats(p, requested);
        QVERIFY(chats.size() >= expectedAtLeast);
        QVERIFY(chats.size() <= expectedAtMost);
        QCOMPARE(ev_type(p.events().at(p.waitType(m, QStringLiteral("chats_begin")))),
                 QStringLiteral("chats_begin"));

        const QSet<QString> types = {QStringLiteral("private"), QStringLiteral("secret"),
                                     QStringLiteral("basic_group"), QStringLiteral("supergroup"),
                                     QStringLiteral("channel")};
        QSet<QString> seenTypes;
        QSet<qint64> ids;
        qint64 prevOrder = std::numeric_limits<qint64>::max();
        bool muted = false, pinned = false, unread = false, nonLatin = false, photo = false;
        for (const QJsonObject &c : chats) {
            const qint64 id = ev_i64(c, "id");
            QVERIFY(id != 0);
            QVERIFY2(!ids.contains(id), "duplicate chat");
            ids.insert(id);
            const QString type = c.value(QStringLiteral("chat_type")).toString();
            QVERIFY2(types.contains(type), qPrintable(type));
            seenTypes.insert(type);
            QVERIFY(!c.value(QStringLiteral("title")).toString().isEmpty());
            QVERIFY(c.value(QStringLiteral("muted_known")).toBool());
            const qint64 order = ev_i64(c, "order");
            QVERIFY(order > 0);
            QVERIFY2(order <= prevOrder, "main list is not in order");
            prevOrder = order;
            muted |= c.value(QStringLiteral("muted")).toBool();
            pinned |= c.value(QStringLiteral("pinned")).toBool();
            unread |= ev_i64(c, "unread_count") > 0;
            photo |= ev_i64(c, "photo_small_id") > 0;
            for (const QChar ch : c.value(QStringLiteral("title")).toString())
                nonLatin |= ch.unicode() > 0x24F && ch.isLetter();
        }
        if (requested >= 120) {
            QCOMPARE(seenTypes, types);
            QVERIFY(muted && pinned && unread && nonLatin && photo);
            // The peers' presence follows the list and covers every kind.
            QSet<QString> statuses;
            p.send("ping");
            p.waitType(m, QStringLiteral("backend_ready"));
            for (const QJsonObject &e : p.events().mid(m)) {
                if (ev_type(e) == QLatin1String("user"))
                    statuses.insert(e.value(QStringLiteral("status_type")).toString());
            }
            QCOMPARE(statuses,
                     (QSet<QString>{QStringLiteral("online"), QStringLiteral("offline"),
                                    QStringLiteral("recently"), QStringLiteral("last_week"),
                                    QStringLiteral("last_month"), QStringLiteral("empty")}));
        }
        QCOMPARE(p.finish(), 0);
    }

    void sameSeedSameWorld_data()
    {
        QTest::addColumn<QString>("otherSeed");
        QTest::addColumn<bool>("same");
        QTest::newRow("same seed") << QStringLiteral("7") << true;
        QTest::newRow("other seed") << QStringLiteral("8") << false;
    }

    void sameSeedSameWorld()
    {
        QFETCH(QString, otherSeed);
        QFETCH(bool, same);
        auto snapshot = [this](const QString &seed) {
            DemoProcess p(freshRoot());
            p.setEnv(QStringLiteral("DEMO_SEED"), seed);
            QStringList rows;
            if (!p.start() || !signIn(p))
                return rows;
            for (const QJsonObject &c : loadChats(p, 1000))
                rows << QStringLiteral("%1|%2|%3|%4")
                            .arg(ev_i64(c, "id"))
                            .arg(c.value(QStringLiteral("title")).toString())
                            .arg(ev_i64(c, "last_message_id"))
                            .arg(c.value(QStringLiteral("last_text")).toString());
            p.finish();
            return rows;
        };
        const QStringList a = snapshot(QStringLiteral("7"));
        const QStringList b = snapshot(otherSeed);
        QVERIFY(a.size() >= 120);
        QCOMPARE(a == b, same);
    }

    void historyPagingToOldest()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        const qint64 big = bigChatId(loadChats(p, 1000));
        QVERIFY(big != 0);

        int end = -1;
        QList<QJsonObject> page = history(p, "history " + QByteArray::number(big) + " 50", &end);
        QCOMPARE(page.size(), 50);
        QVERIFY(p.events().at(end).value(QStringLiteral("clear")).toBool());
        const qint64 gen = ev_i64(p.events().at(end), "gen");
        QSet<qint64> seen;
        qint64 oldest = 0;
        int pages = 0;
        for (;;) {
            qint64 prev = 0;
            for (const QJsonObject &msg : page) {
                const qint64 id = ev_i64(msg, "id");
                QVERIFY2(id > prev, "page is not oldest first");
                prev = id;
                QVERIFY(!seen.contains(id));
                seen.insert(id);
                QCOMPARE(ev_i64(msg, "gen"), gen);
                QCOMPARE(ev_i64(msg, "chat_id"), big);
            }
            if (page.isEmpty())
                break;
            oldest = ev_i64(page.first(), "id");
            page = history(p,
                           "history_more " + QByteArray::number(big) + ' ' +
                               QByteArray::number(oldest) + " 50",
                           &end);
            QVERIFY(end >= 0);
            QVERIFY(!p.events().at(end).value(QStringLiteral("clear")).toBool());
            QVERIFY(++pages < 1000);
        }
        QCOMPARE(seen.size(), 20000);
        QCOMPARE(oldest, qint64(1));
        QCOMPARE(p.badLines(), 0);
        QCOMPARE(p.finish(), 0);
    }

    void historyJumpWindow_data()
    {
        QTest::addColumn<QByteArray>("verb");
        QTest::addColumn<qint64>("target");
        QTest::addColumn<qint64>("first");
        QTest::addColumn<qint64>("last");
        QTest::newRow("middle") << QByteArray("history_jump") << qint64(10000) << qint64(9960)
                                << qint64(10040);
        QTest::newRow("near the start")
            << QByteArray("history_jump") << qint64(3) << qint64(1) << qint64(43);
        QTest::newRow("newest") << QByteArray("history_jump") << qint64(20000) << qint64(19960)
                                << qint64(20000);
        QTest::newRow("open with anchor")
            << QByteArray("open") << qint64(15000) << qint64(14960) << qint64(15040);
    }

    void historyJumpWindow()
    {
        QFETCH(QByteArray, verb);
        QFETCH(qint64, target);
        QFETCH(qint64, first);
        QFETCH(qint64, last);
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        const qint64 big = bigChatId(loadChats(p, 1000));
        QByteArray line = verb + ' ' + QByteArray::number(big) + ' ' + QByteArray::number(target);
        if (verb == "history_jump")
            line += " 40 40";
        int end = -1;
        const QList<QJsonObject> page = history(p, line, &end);
        QVERIFY(p.events().at(end).value(QStringLiteral("clear")).toBool());
        QCOMPARE(page.size(), int(last - first + 1));
        QCOMPARE(ev_i64(page.first(), "id"), first);
        QCOMPARE(ev_i64(page.last(), "id"), last);
        QCOMPARE(p.finish(), 0);
    }

    void historyHasVariety()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        const qint64 big = bigChatId(loadChats(p, 1000));
        QSet<QString> media;
        bool reply = false, forward = false, edited = false, chosen = false, link = false,
             lines = false, script = false, emoji = false;
        for (const QJsonObject &m : history(p, "history " + QByteArray::number(big) + " 200")) {
            media.insert(m.value(QStringLiteral("media_type")).toString());
            reply |= ev_i64(m, "reply_to_message_id") > 0;
            forward |= !m.value(QStringLiteral("forwarded")).toString().isEmpty();
            edited |= ev_i64(m, "edit_date") > 0;
            for (const QJsonValue &r : m.value(QStringLiteral("reactions")).toArray())
                chosen |= r.toObject().value(QStringLiteral("chosen")).toBool();
            const QString text = m.value(QStringLiteral("text")).toString();
            link |= text.contains(QLatin1String("https://"));
            lines |= text.contains(QLatin1Char('\n'));
            for (const QChar c : text) {
                script |= c.isLetter() && c.unicode() > 0x24F;
                emoji |= c.isSurrogate();
            }
        }
        const QSet<QString> all = {QString(),
                                   QStringLiteral("photo"),
                                   QStringLiteral("file"),
                                   QStringLiteral("voice"),
                                   QStringLiteral("video_note"),
                                   QStringLiteral("video")};
        QCOMPARE(media, all);
        QVERIFY(reply && forward && edited && chosen && link && lines && script && emoji);
        QCOMPARE(p.finish(), 0);
    }

    void sendPersistsAcrossRestart_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("asReply");
        QTest::newRow("plain") << QStringLiteral("Hello from the test") << false;
        QTest::newRow("lines and scripts") << QStringLiteral("Привет\nこんにちは 👋") << false;
        QTest::newRow("reply") << QStringLiteral("Answering that") << true;
    }

    void sendPersistsAcrossRestart()
    {
        QFETCH(QString, text);
        QFETCH(bool, asReply);
        const QString root = freshRoot();
        qint64 chatId = 0;
        qint64 newId = 0;
        qint64 replyTo = 0;
        {
            DemoProcess p(root);
            QVERIFY(p.start());
            QVERIFY(signIn(p));
            for (const QJsonObject &c : loadChats(p, 60)) {
                if (c.value(QStringLiteral("chat_type")) == QLatin1String("basic_group")) {
                    chatId = ev_i64(c, "id");
                    replyTo = ev_i64(c, "last_message_id");
                    break;
                }
            }
            QVERIFY(chatId != 0);
            const int m = p.mark();
            QByteArray line = "send64 " + QByteArray::number(chatId) + ' ';
            if (asReply)
                line += QByteArray::number(replyTo) + ' ';
            p.send(line + b64(text));
            const int pending = p.waitType(m, QStringLiteral("message_new"));
            QVERIFY(pending >= 0);
            const QJsonObject pm = p.events().at(pending);
            QCOMPARE(pm.value(QStringLiteral("sending_state")).toString(),
                     QStringLiteral("pending"));
            QVERIFY(pm.value(QStringLiteral("outgoing")).toBool());
            QCOMPARE(pm.value(QStringLiteral("text")).toString(), text);
            const qint64 pendingId = ev_i64(pm, "id");
            const int acked = p.waitType(pending, QStringLiteral("message_send_acked"));
            QVERIFY(acked > pending);
            QCOMPARE(ev_i64(p.events().at(acked), "id"), pendingId);
            const int done = p.waitType(acked, QStringLiteral("message_send_succeeded"));
            QVERIFY(done > acked);
            QCOMPARE(ev_i64(p.events().at(done), "old_id"), pendingId);
            newId = ev_i64(p.events().at(done), "new_id");
            QVERIFY(newId > replyTo);
            QVERIFY(ev_i64(p.events().at(done), "date") > 0);
            QCOMPARE(p.finish(), 0);
        }
        DemoProcess again(root);
        QVERIFY(again.start());
        const QList<QJsonObject> page =
            history(again, "history " + QByteArray::number(chatId) + " 20");
        bool found = false;
        for (const QJsonObject &msg : page) {
            if (ev_i64(msg, "id") != newId)
                continue;
            found = true;
            QCOMPARE(msg.value(QStringLiteral("text")).toString(), text);
            QVERIFY(msg.value(QStringLiteral("outgoing")).toBool());
            QVERIFY(!msg.contains(QStringLiteral("sending_state")));
            QCOMPARE(ev_i64(msg, "reply_to_message_id"), asReply ? replyTo : qint64(0));
        }
        QVERIFY(found);
        QCOMPARE(again.finish(), 0);
    }

    void sendFailsWhereUserCannotSend()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        qint64 readOnly = 0;
        for (const QJsonObject &c : loadChats(p, 1000)) {
            if (c.value(QStringLiteral("chat_type")) != QLatin1String("channel"))
                continue;
            const int m = p.mark();
            p.send("chat_info " + QByteArray::number(ev_i64(c, "id")));
            const int i = p.waitType(m, QStringLiteral("chat_info"));
            QVERIFY(i >= 0);
            if (!p.events().at(i).value(QStringLiteral("can_send")).toBool()) {
                readOnly = ev_i64(c, "id");
                break;
            }
        }
        QVERIFY(readOnly != 0);
        const int m = p.mark();
        p.send("send64 " + QByteArray::number(readOnly) + ' ' + b64(QStringLiteral("hi")));
        const int pending = p.waitType(m, QStringLiteral("message_new"));
        QVERIFY(pending >= 0);
        const int failed = p.waitType(pending, QStringLiteral("message_send_failed"));
        QVERIFY(failed >= 0);
        QCOMPARE(ev_i64(p.events().at(failed), "old_id"), ev_i64(p.events().at(pending), "id"));
        const int err = p.waitType(failed, QStringLiteral("td_error"));
        QVERIFY(err >= 0);
        QCOMPARE(td_error_json(p.events().at(err)).value(QStringLiteral("@extra")).toString(),
                 QStringLiteral("send:%1").arg(readOnly));
        QVERIFY(!hasType(p.events().mid(m), QStringLiteral("message_send_succeeded")));
        QCOMPARE(p.finish(), 0);
    }

    void sendFile_data()
    {
        QTest::addColumn<QString>("verb");
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QString>("mediaType");
        QTest::newRow("document") << "sendfile64"
                                  << "notes.txt"
                                  << "file";
        QTest::newRow("picture") << "sendfile64"
                                 << "shot.png"
                                 << "photo";
        QTest::newRow("voice note") << "sendvoice64"
                                    << "voice.oga"
                                    << "voice";
        QTest::newRow("video note") << "sendvideonote64"
                                    << "round.mp4"
                                    << "video_note";
    }

    void sendFile()
    {
        QFETCH(QString, verb);
        QFETCH(QString, fileName);
        QFETCH(QString, mediaType);
        const QString root = freshRoot();
        const QString path = root + QLatin1Char('/') + fileName;
        if (fileName.endsWith(QLatin1String(".png"))) {
            QImage img(64, 48, QImage::Format_RGB32);
            img.fill(Qt::darkCyan);
            QVERIFY(img.save(path));
        } else {
            QFile f(path);
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(fileName.endsWith(QLatin1String(".oga"))
                        ? QByteArray("OggS") + QByteArray(300, 'x')
                        : QByteArray(1234, 'x'));
        }
        DemoProcess p(root);
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        int m = p.mark();
        QByteArray line = verb.toUtf8() + " 1003 " + b64(path);
        if (verb == QLatin1String("sendvoice64"))
            line += " 3";
        p.send(line);
        const int pending = p.waitType(m, QStringLiteral("message_new"));
        QVERIFY(pending >= 0);
        const QJsonObject pm = p.events().at(pending);
        QCOMPARE(pm.value(QStringLiteral("media_type")).toString(), mediaType);
        QCOMPARE(ev_i64(pm, "media_size"), QFileInfo(path).size());
        if (mediaType == QLatin1String("photo"))
            QCOMPARE(ev_i64(pm, "media_w"), qint64(64));
        if (mediaType == QLatin1String("voice"))
            QCOMPARE(ev_i64(pm, "media_duration"), qint64(3));
        QVERIFY(p.waitType(pending, QStringLiteral("message_send_succeeded")) >= 0);
        // The sent file stays downloadable after the original is gone.
        QVERIFY(QFile::remove(path));
        m = p.mark();
        p.send("download " + QByteArray::number(ev_i64(pm, "media_file_id")));
        const int file = p.waitType(m, QStringLiteral("file"));
        QVERIFY(file >= 0);
        QCOMPARE(QFileInfo(p.events().at(file).value(QStringLiteral("path")).toString()).size(),
                 ev_i64(pm, "media_size"));
        QCOMPARE(p.finish(), 0);
    }

    void downloads_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::newRow("chat photo") << "chat_photo";
        QTest::newRow("photo") << "photo";
        QTest::newRow("thumbnail") << "thumbnail";
        QTest::newRow("voice note") << "voice";
        QTest::newRow("document") << "file";
        QTest::newRow("video note") << "video_note";
    }

    void downloads()
    {
        QFETCH(QString, kind);
        if (kind == QLatin1String("video_note") &&
            QStandardPaths::findExecutable(QStringLiteral("ffmpeg")).isEmpty())
            QSKIP("ffmpeg is not installed");
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        const QList<QJsonObject> chats = loadChats(p, 1000);
        qint64 fileId = 0;
        QJsonObject msg;
        if (kind == QLatin1String("chat_photo")) {
            for (const QJsonObject &c : chats) {
                if (ev_i64(c, "photo_small_id") > 0) {
                    fileId = ev_i64(c, "photo_small_id");
                    break;
                }
            }
        } else {
            const QString media =
                kind == QLatin1String("thumbnail") ? QStringLiteral("photo") : kind;
            const QList<QJsonObject> page =
                history(p, "history " + QByteArray::number(bigChatId(chats)) + " 200");
            for (const QJsonObject &m : page) {
                if (m.value(QStringLiteral("media_type")).toString() == media) {
                    msg = m;
                    fileId = ev_i64(m, kind == QLatin1String("thumbnail") ? "media_thumb_file_id"
                                                                          : "media_file_id");
                    break;
                }
            }
        }
        QVERIFY2(fileId > 0, "no file of that kind in the account");

        const int m = p.mark();
        p.send("download " + QByteArray::number(fileId));
        const int done = p.waitFor(
            m,
            [fileId](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("file") && ev_i64(e, "id") == fileId;
            },
            30000);
        QVERIFY(done >= 0);
        const QString path = p.events().at(done).value(QStringLiteral("path")).toString();
        const qint64 size = QFileInfo(path).size();
        QVERIFY(size > 0);
        QVERIFY(path.startsWith(p.filesDir()));
        int progress = 0;
        for (const QJsonObject &e : p.between(m, done)) {
            if (ev_type(e) == QLatin1String("file_progress") && ev_i64(e, "id") == fileId) {
                ++progress;
                QCOMPARE(ev_i64(e, "total"), size);
                QVERIFY(ev_i64(e, "downloaded") <= size);
            }
        }
        QVERIFY(progress >= 1);

        QFile f(path);
        QVERIFY(f.open(QIODevice::ReadOnly));
        const QByteArray data = f.readAll();
        if (kind == QLatin1String("chat_photo") || kind == QLatin1String("photo") ||
            kind == QLatin1String("thumbnail")) {
            const QImage img = QImage::fromData(data);
            QVERIFY(!img.isNull());
            if (kind == QLatin1String("photo"))
                QCOMPARE(img.size(),
                         QSize(int(ev_i64(msg, "media_w")), int(ev_i64(msg, "media_h"))));
            if (kind == QLatin1String("thumbnail"))
                QCOMPARE(qMax(img.width(), img.height()), 160);
        } else if (kind == QLatin1String("voice")) {
            QCOMPARE(size, ev_i64(msg, "media_size"));
            qint64 samples = 0;
            QString error;
            QVERIFY2(decodeOggOpus(data, &samples, &error), qPrintable(error));
            const qint64 expected = ev_i64(msg, "media_duration") * 48000;
            QVERIFY2(qAbs(samples - expected) <= 960, qPrintable(QString::number(samples)));
        } else if (kind == QLatin1String("file")) {
            QCOMPARE(size, ev_i64(msg, "media_size"));
            QVERIFY(path.endsWith(msg.value(QStringLiteral("media_name")).toString()));
        } else {
            QCOMPARE(data.mid(4, 4), QByteArray("ftyp"));
        }
        // A second request is served from the same file.
        const int again = p.mark();
        p.send("downloadp " + QByteArray::number(fileId));
        const int second = p.waitType(again, QStringLiteral("file"));
        QVERIFY(second >= 0);
        QCOMPARE(p.events().at(second).value(QStringLiteral("path")).toString(), path);
        QCOMPARE(p.finish(), 0);
    }

    void unknownFileIsAnError()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        const int m = p.mark();
        p.send("download 999");
        const int err = p.waitType(m, QStringLiteral("td_error"));
        QVERIFY(err >= 0);
        QCOMPARE(td_error_json(p.events().at(err)).value(QStringLiteral("@extra")).toString(),
                 QStringLiteral("download:999"));
        QVERIFY(!hasType(p.events().mid(m), QStringLiteral("file")));
        QCOMPARE(p.finish(), 0);
    }

    void reactionsPersist()
    {
        const QString root = freshRoot();
        qint64 msgId = 0;
        const QString emoji = QStringLiteral("🔥");
        auto chipOf = [&emoji](const QJsonObject &m) {
            for (const QJsonValue &v : m.value(QStringLiteral("reactions")).toArray()) {
                if (v.toObject().value(QStringLiteral("emoji")).toString() == emoji)
                    return v.toObject();
            }
            return QJsonObject();
        };
        {
            DemoProcess p(root);
            QVERIFY(p.start());
            QVERIFY(signIn(p));
            const QList<QJsonObject> page = history(p, "history 1003 5");
            QVERIFY(!page.isEmpty());
            for (const QJsonObject &m : page) {
                if (chipOf(m).isEmpty())
                    msgId = ev_i64(m, "id");
            }
            QVERIFY(msgId > 0);
            const int m = p.mark();
            p.send("react 1003 " + QByteArray::number(msgId) + ' ' + emoji.toUtf8() + " add");
            const int upd = p.waitType(m, QStringLiteral("message_reactions"));
            QVERIFY(upd >= 0);
            const QJsonObject chip = chipOf(p.events().at(upd));
            QVERIFY(chip.value(QStringLiteral("chosen")).toBool());
            QCOMPARE(chip.value(QStringLiteral("count")).toInt(), 1);
            const int ok = p.waitType(m, QStringLiteral("reaction_ok"));
            QVERIFY(ok >= 0);
            QCOMPARE(p.events().at(ok).value(QStringLiteral("mode")).toString(),
                     QStringLiteral("add"));
            QCOMPARE(p.finish(), 0);
        }
        DemoProcess p(root);
        QVERIFY(p.start());
        bool found = false;
        for (const QJsonObject &m : history(p, "history 1003 5")) {
            if (ev_i64(m, "id") == msgId) {
                found = true;
                QVERIFY(chipOf(m).value(QStringLiteral("chosen")).toBool());
            }
        }
        QVERIFY(found);
        const int m = p.mark();
        p.send("react 1003 " + QByteArray::number(msgId) + ' ' + emoji.toUtf8() + " remove");
        const int upd = p.waitType(m, QStringLiteral("message_reactions"));
        QVERIFY(upd >= 0);
        QVERIFY(chipOf(p.events().at(upd)).isEmpty());
        QCOMPARE(p.finish(), 0);
    }

    void reactionErrors_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<int>("code");
        QTest::newRow("emoji the chat does not allow")
            << QByteArray("react 1003 1 🦄 add") << 400;
        QTest::newRow("missing message") << QByteArray("react 1003 999999 👍 add") << 404;
        QTest::newRow("bad mode") << QByteArray("react 1003 1 👍 sideways") << 400;
        QTest::newRow("unknown chat") << QByteArray("react 42 1 👍 add") << 400;
        QTest::newRow("missing argument") << QByteArray("react 1003 1 👍") << 400;
    }

    void reactionErrors()
    {
        QFETCH(QByteArray, command);
        QFETCH(int, code);
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        const int m = p.mark();
        p.send(command);
        const int err = p.waitType(m, QStringLiteral("reaction_error"));
        QVERIFY(err >= 0);
        QCOMPARE(p.events().at(err).value(QStringLiteral("code")).toInt(), code);
        QVERIFY(!hasType(p.events().mid(m), QStringLiteral("message_reactions")));
        QCOMPARE(p.finish(), 0);
    }

    void malformedRequests_data()
    {
        QTest::addColumn<QByteArray>("command");
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QString>("extra");
        const QByteArray missing = b64(QStringLiteral("/nonexistent/file.bin"));
        QTest::newRow("unknown verb") << QByteArray("frobnicate 1 2") << "td_error"
                                      << "unknown";
        QTest::newRow("chats without count") << QByteArray("chats") << "td_error"
                                             << "chats";
        QTest::newRow("chats bad number") << QByteArray("chats 6x") << "td_error"
                                          << "chats";
        QTest::newRow("history missing size") << QByteArray("history 1003") << "td_error"
                                              << "history:1003";
        QTest::newRow("history extra arg") << QByteArray("history 1003 60 7") << "td_error"
                                           << "history:1003";
        QTest::newRow("history_more bad id") << QByteArray("history_more 1003 x 50") << "td_error"
                                             << "history_more:1003";
        QTest::newRow("send bad base64") << QByteArray("send64 1003 !!no!!") << "td_error"
                                         << "send:1003";
        QTest::newRow("send bad padding") << QByteArray("send64 1003 aGk") << "td_error"
                                          << "send:1003";
        QTest::newRow("send empty text") << QByteArray("send64 1003 ICA=") << "td_error"
                                         << "send:1003";
        QTest::newRow("sendfile missing file")
            << QByteArray("sendfile64 1003 " + missing) << "td_error"
            << "sendfile:1003";
        QTest::newRow("sendvoice zero duration")
            << QByteArray("sendvoice64 1003 " + missing + " 0") << "td_error"
            << "sendvoice:1003";
        QTest::newRow("sendvideonote missing")
            << QByteArray("sendvideonote64 1003 " + missing) << "td_error"
            << "sendvideonote:1003";
        QTest::newRow("edit bad base64") << QByteArray("edit64 1003 1 ###") << "edit_error"
                                         << "";
        QTest::newRow("edit incoming") << QByteArray("edit64 -1001000000001 1 aGk=") << "edit_error"
                                       << "";
        QTest::newRow("delete bad mode") << QByteArray("delete 1003 maybe 1") << "delete_error"
                                         << "";
        QTest::newRow("delete no ids") << QByteArray("delete 1003 all") << "delete_error"
                                       << "";
        QTest::newRow("chat_info unknown") << QByteArray("chat_info 12345") << "chat_info_error"
                                           << "";
        QTest::newRow("props missing message")
            << QByteArray("props 1003 99999999") << "message_properties_error"
            << "";
        QTest::newRow("props extra arg")
            << QByteArray("props 1003 1 2") << "message_properties_error"
            << "";
        QTest::newRow("resolve too short") << QByteArray("resolve ab") << "tg_resolve_error"
                                           << "";
        QTest::newRow("resolve unknown")
            << QByteArray("resolve nobody_here_at_all") << "tg_resolve_error"
            << "";
        QTest::newRow("mute unknown chat") << QByteArray("mute_toggle 777") << "action_error"
                                           << "";
        QTest::newRow("leave private chat") << QByteArray("leave 1003") << "action_error"
                                            << "";
        QTest::newRow("join twice") << QByteArray("join -1001000000001") << "action_error"
                                    << "";
        QTest::newRow("download negative") << QByteArray("download -5") << "td_error"
                                           << "download:-5";
        QTest::newRow("forward unknown chat") << QByteArray("forward 55 1003 1") << "td_error"
                                              << "forward:55";
        QTest::newRow("huge number") << QByteArray("open 99999999999999999999999") << "td_error"
                                     << "open:99999999999999999999999";
    }

    void malformedRequests()
    {
        QFETCH(QByteArray, command);
        QFETCH(QString, answer);
        QFETCH(QString, extra);
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        const int m = p.mark();
        p.send(command);
        p.send("ping");
        const int i = p.waitType(m, answer);
        QVERIFY(i >= 0);
        if (!extra.isEmpty())
            QCOMPARE(td_error_json(p.events().at(i)).value(QStringLiteral("@extra")).toString(),
                     extra);
        // Nothing else happened in between: the request was refused whole.
        for (const QJsonObject &e : p.between(m, i))
            QVERIFY2(false, qPrintable(ev_type(e)));
        QCOMPARE(p.finish(), 0);
    }

    void resolve_data()
    {
        QTest::addColumn<QByteArray>("name");
        QTest::addColumn<bool>("resolves");
        QTest::newRow("public group") << QByteArray("vexa_archive") << true;
        QTest::newRow("case and at sign") << QByteArray("@VEXA_Archive") << true;
        QTest::newRow("not taken") << QByteArray("nobody_uses_this") << false;
    }

    void resolve()
    {
        QFETCH(QByteArray, name);
        QFETCH(bool, resolves);
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        const int m = p.mark();
        p.send("resolve " + name);
        const int i = p.waitFor(m, [](const QJsonObject &e) {
            return ev_type(e).startsWith(QLatin1String("tg_resolve"));
        });
        QVERIFY(i >= 0);
        const QJsonObject e = p.events().at(i);
        QCOMPARE(ev_type(e),
                 resolves ? QStringLiteral("tg_resolve") : QStringLiteral("tg_resolve_error"));
        if (resolves) {
            QVERIFY(ev_i64(e, "chat_id") != 0);
            QCOMPARE(e.value(QStringLiteral("chat_type")).toString(), QStringLiteral("supergroup"));
        }
        QCOMPARE(p.finish(), 0);
    }

    void chatActionsPersist()
    {
        const QString root = freshRoot();
        qint64 target = 0;
        {
            DemoProcess p(root);
            QVERIFY(p.start());
            QVERIFY(signIn(p));
            const QList<QJsonObject> chats = loadChats(p, 1000);
            for (const QJsonObject &c : chats) {
                if (c.value(QStringLiteral("chat_type")) == QLatin1String("supergroup") &&
                    !c.value(QStringLiteral("muted")).toBool() &&
                    ev_i64(c, "last_message_id") < 20000) {
                    target = ev_i64(c, "id");
                    break;
                }
            }
            QVERIFY(target != 0);
            int m = p.mark();
            p.send("mute_toggle " + QByteArray::number(target));
            int i = p.waitType(m, QStringLiteral("chat_mute_toggled"));
            QVERIFY(i >= 0);
            QVERIFY(p.events().at(i).value(QStringLiteral("muted")).toBool());
            m = p.mark();
            p.send("leave " + QByteArray::number(target));
            QVERIFY(p.waitType(m, QStringLiteral("chat_left")) >= 0);
            i = p.waitType(m, QStringLiteral("chat_position"));
            QVERIFY(i >= 0);
            QCOMPARE(ev_i64(p.events().at(i), "order"), qint64(0));
            QCOMPARE(p.finish(), 0);
        }
        DemoProcess p(root);
        QVERIFY(p.start());
        for (const QJsonObject &c : loadChats(p, 1000))
            QVERIFY(ev_i64(c, "id") != target);
        int m = p.mark();
        p.send("join " + QByteArray::number(target));
        QVERIFY(p.waitType(m, QStringLiteral("chat_joined")) >= 0);
        bool back = false;
        for (const QJsonObject &c : loadChats(p, 1000)) {
            if (ev_i64(c, "id") == target) {
                back = true;
                QVERIFY(c.value(QStringLiteral("muted")).toBool());
            }
        }
        QVERIFY(back);
        QCOMPARE(p.finish(), 0);
    }

    // Sends a text and returns the final message id, 0 on failure.
    static qint64 sendText(DemoProcess &p, qint64 chatId, const QString &text,
                           int *doneIndex = nullptr)
    {
        const int m = p.mark();
        p.send("send64 " + QByteArray::number(chatId) + ' ' + b64(text));
        const int done = p.waitType(m, QStringLiteral("message_send_succeeded"));
        if (doneIndex)
            *doneIndex = done;
        return done < 0 ? 0 : ev_i64(p.events().at(done), "new_id");
    }

    void openSendsHistoryAndPinnedState()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        qint64 lastGen = 0;
        for (int round = 0; round < 2; ++round) {
            const int m = p.mark();
            p.send("open 1003");
            const int begin = p.waitType(m, QStringLiteral("history_begin"));
            const int end = p.waitType(m, QStringLiteral("history_end"));
            QVERIFY(begin >= 0 && end > begin);
            QVERIFY(p.events().at(begin).value(QStringLiteral("clear")).toBool());
            const qint64 gen = ev_i64(p.events().at(begin), "gen");
            QVERIFY(gen > lastGen);
            lastGen = gen;
            QVERIFY(end - begin - 1 > 0);
            QVERIFY(p.waitFor(end, [](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("pinned_message") ||
                       ev_type(e) == QLatin1String("pinned_none");
            }) >= 0);
            QVERIFY(p.waitFor(end, [](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("user") && ev_i64(e, "id") == 1003;
            }) >= 0);
        }
        // Older pages keep the generation of the open.
        int end = -1;
        const QList<QJsonObject> page = history(p, "history_more 1003 5 10", &end);
        QCOMPARE(ev_i64(p.events().at(end), "gen"), lastGen);
        QCOMPARE(page.size(), 4);
        QCOMPARE(p.finish(), 0);
    }

    void pinnedList()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        qint64 chatId = 0;
        qint64 pinnedId = 0;
        for (const QJsonObject &c : loadChats(p, 1000)) {
            const int m = p.mark();
            p.send("open " + QByteArray::number(ev_i64(c, "id")));
            const int i = p.waitFor(m, [](const QJsonObject &e) {
                return ev_type(e).startsWith(QLatin1String("pinned_"));
            });
            QVERIFY(i >= 0);
            if (ev_type(p.events().at(i)) == QLatin1String("pinned_message")) {
                chatId = ev_i64(c, "id");
                pinnedId = ev_i64(p.events().at(i), "id");
                break;
            }
        }
        QVERIFY(chatId != 0);
        const int m = p.mark();
        p.send("pinned_list " + QByteArray::number(chatId) + " 100");
        const int end = p.waitType(m, QStringLiteral("pinned_list_end"));
        const int begin = p.waitType(m, QStringLiteral("pinned_list_begin"));
        QVERIFY(begin >= 0 && end > begin + 1);
        const QJsonObject first = p.events().at(begin + 1);
        QCOMPARE(ev_type(first), QStringLiteral("pinned_list_item"));
        QCOMPARE(ev_i64(first, "id"), pinnedId);
        QCOMPARE(p.finish(), 0);
    }

    void readPersists()
    {
        const QString root = freshRoot();
        qint64 chatId = 0;
        {
            DemoProcess p(root);
            QVERIFY(p.start());
            QVERIFY(signIn(p));
            qint64 last = 0;
            for (const QJsonObject &c : loadChats(p, 1000)) {
                if (ev_i64(c, "unread_count") > 0 && ev_i64(c, "last_message_id") < 20000) {
                    chatId = ev_i64(c, "id");
                    last = ev_i64(c, "last_message_id");
                    break;
                }
            }
            QVERIFY(chatId != 0);
            const int m = p.mark();
            p.send("read " + QByteArray::number(chatId) + ' ' + QByteArray::number(last));
            const int i = p.waitType(m, QStringLiteral("chat_unread"));
            QVERIFY(i >= 0);
            QCOMPARE(ev_i64(p.events().at(i), "unread_count"), qint64(0));
            QCOMPARE(p.finish(), 0);
        }
        DemoProcess p(root);
        QVERIFY(p.start());
        bool found = false;
        for (const QJsonObject &c : loadChats(p, 1000)) {
            if (ev_i64(c, "id") == chatId) {
                found = true;
                QCOMPARE(ev_i64(c, "unread_count"), qint64(0));
            }
        }
        QVERIFY(found);
        QCOMPARE(p.finish(), 0);
    }

    void editPersists()
    {
        const QString root = freshRoot();
        qint64 id = 0;
        const QString edited = QStringLiteral("Edited ✎ text");
        {
            DemoProcess p(root);
            QVERIFY(p.start());
            QVERIFY(signIn(p));
            id = sendText(p, 1003, QStringLiteral("first version"));
            QVERIFY(id > 0);
            const int m = p.mark();
            p.send("edit64 1003 " + QByteArray::number(id) + ' ' + b64(edited));
            const int i = p.waitType(m, QStringLiteral("message_update"));
            QVERIFY(i >= 0);
            QCOMPARE(ev_i64(p.events().at(i), "id"), id);
            QCOMPARE(p.events().at(i).value(QStringLiteral("text")).toString(), edited);
            QCOMPARE(p.finish(), 0);
        }
        DemoProcess p(root);
        QVERIFY(p.start());
        bool found = false;
        for (const QJsonObject &m : history(p, "history 1003 10")) {
            if (ev_i64(m, "id") == id) {
                found = true;
                QCOMPARE(m.value(QStringLiteral("text")).toString(), edited);
                QVERIFY(ev_i64(m, "edit_date") > 0);
            }
        }
        QVERIFY(found);
        QCOMPARE(p.finish(), 0);
    }

    void peerAnswersAndReads()
    {
        const QString root = freshRoot();
        qint64 replyId = 0;
        {
            DemoProcess p(root);
            QVERIFY(p.start());
            QVERIFY(signIn(p));
            int done = -1;
            const qint64 sent = sendText(p, 1003, QStringLiteral("Are you there?"), &done);
            QVERIFY(sent > 0);
            const int read = p.waitFor(done, [](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("chat_read_outbox") &&
                       ev_i64(e, "chat_id") == 1003;
            });
            QVERIFY(read >= 0);
            QCOMPARE(ev_i64(p.events().at(read), "last_read_outbox_message_id"), sent);
            const int reply = p.waitFor(done, [](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("message_new") && ev_i64(e, "chat_id") == 1003 &&
                       !e.value(QStringLiteral("outgoing")).toBool();
            });
            QVERIFY(reply >= 0);
            replyId = ev_i64(p.events().at(reply), "id");
            QVERIFY(replyId > sent);
            QCOMPARE(ev_i64(p.events().at(reply), "sender_user_id"), qint64(1003));
            QCOMPARE(p.finish(), 0);
        }
        DemoProcess p(root);
        QVERIFY(p.start());
        const QList<QJsonObject> page = history(p, "history 1003 3");
        QVERIFY(!page.isEmpty());
        QCOMPARE(ev_i64(page.last(), "id"), replyId);
        QCOMPARE(p.finish(), 0);
    }

    void forwardMessages()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        const qint64 big = bigChatId(loadChats(p, 1000));
        const QList<QJsonObject> source = history(p, "history " + QByteArray::number(big) + " 2");
        QCOMPARE(source.size(), 2);
        const int m = p.mark();
        p.send("forward 1003 " + QByteArray::number(big) + ' ' +
               QByteArray::number(ev_i64(source.at(0), "id")) + ' ' +
               QByteArray::number(ev_i64(source.at(1), "id")));
        QList<QJsonObject> pending;
        QVERIFY(p.waitFor(m, [&pending](const QJsonObject &e) {
            if (ev_type(e) == QLatin1String("message_new") && ev_i64(e, "chat_id") == 1003 &&
                e.value(QStringLiteral("outgoing")).toBool())
                pending.append(e);
            return pending.size() == 2;
        }) >= 0);
        for (int i = 0; i < 2; ++i) {
            QVERIFY(!pending.at(i).value(QStringLiteral("forwarded")).toString().isEmpty());
            QCOMPARE(pending.at(i).value(QStringLiteral("content_type")),
                     source.at(i).value(QStringLiteral("content_type")));
            QCOMPARE(pending.at(i).value(QStringLiteral("media_file_id")),
                     source.at(i).value(QStringLiteral("media_file_id")));
        }
        qint64 previous = 0;
        for (int i = 0; i < 2; ++i) {
            const qint64 oldId = ev_i64(pending.at(i), "id");
            const int done = p.waitFor(m, [oldId](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("message_send_succeeded") &&
                       ev_i64(e, "old_id") == oldId;
            });
            QVERIFY(done >= 0);
            QVERIFY(ev_i64(p.events().at(done), "new_id") > previous);
            previous = ev_i64(p.events().at(done), "new_id");
        }
        QCOMPARE(p.finish(), 0);
    }

    void deleteMessages_data()
    {
        QTest::addColumn<bool>("inBigGroup");
        QTest::addColumn<QString>("mode");
        QTest::addColumn<bool>("deleted");
        QTest::newRow("private, for self") << false << "self" << true;
        QTest::newRow("private, for everyone") << false << "all" << true;
        QTest::newRow("someone else's in a supergroup, for everyone") << true << "all" << false;
        QTest::newRow("someone else's in a supergroup, for self") << true << "self" << false;
    }

    void deleteMessages()
    {
        QFETCH(bool, inBigGroup);
        QFETCH(QString, mode);
        QFETCH(bool, deleted);
        const QString root = freshRoot();
        qint64 chatId = 1003;
        qint64 target = 0;
        {
            DemoProcess p(root);
            QVERIFY(p.start());
            QVERIFY(signIn(p));
            if (inBigGroup)
                chatId = bigChatId(loadChats(p, 1000));
            for (const QJsonObject &m :
                 history(p, "history " + QByteArray::number(chatId) + " 30")) {
                if (!m.value(QStringLiteral("outgoing")).toBool())
                    target = ev_i64(m, "id");
            }
            QVERIFY(target > 0);
            const int m = p.mark();
            p.send("delete " + QByteArray::number(chatId) + ' ' + mode.toUtf8() + ' ' +
                   QByteArray::number(target) + " 99999999");
            // The missing second id is always refused on its own.
            const int missing = p.waitFor(m, [](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("delete_error") &&
                       e.value(QStringLiteral("code")).toInt() == 404;
            });
            QVERIFY(missing >= 0);
            const QList<QJsonObject> answers = p.between(m, missing + 1);
            QCOMPARE(hasType(answers, QStringLiteral("messages_deleted")), deleted);
            bool refused = false;
            for (const QJsonObject &e : answers)
                refused |= ev_type(e) == QLatin1String("delete_error") &&
                           e.value(QStringLiteral("code")).toInt() == 403;
            QCOMPARE(refused, !deleted);
            QCOMPARE(p.finish(), 0);
        }
        DemoProcess p(root);
        QVERIFY(p.start());
        bool present = false;
        for (const QJsonObject &m : history(p, "history " + QByteArray::number(chatId) + " 30"))
            present |= ev_i64(m, "id") == target;
        QCOMPARE(present, !deleted);
        QCOMPARE(p.finish(), 0);
    }

    void clearHistoryAndDeleteChatPersist()
    {
        const QString root = freshRoot();
        qint64 group = 0;
        {
            DemoProcess p(root);
            QVERIFY(p.start());
            QVERIFY(signIn(p));
            for (const QJsonObject &c : loadChats(p, 1000)) {
                if (c.value(QStringLiteral("chat_type")) == QLatin1String("basic_group")) {
                    group = ev_i64(c, "id");
                    break;
                }
            }
            QVERIFY(group != 0);
            int m = p.mark();
            p.send("clear_history 1003");
            QVERIFY(p.waitType(m, QStringLiteral("history_cleared")) >= 0);
            const int last = p.waitType(m, QStringLiteral("chat_last_message"));
            QVERIFY(last >= 0);
            QCOMPARE(ev_i64(p.events().at(last), "message_id"), qint64(0));
            m = p.mark();
            p.send("delete_chat " + QByteArray::number(group));
            QVERIFY(p.waitType(m, QStringLiteral("chat_deleted")) >= 0);
            QCOMPARE(p.finish(), 0);
        }
        DemoProcess p(root);
        QVERIFY(p.start());
        QVERIFY(history(p, "history 1003 30").isEmpty());
        for (const QJsonObject &c : loadChats(p, 1000))
            QVERIFY(ev_i64(c, "id") != group);
        // New messages still work in the cleared chat.
        QVERIFY(sendText(p, 1003, QStringLiteral("after the clear")) > 0);
        QCOMPARE(history(p, "history 1003 30").size(), 2); // the message and the peer's answer
        QCOMPARE(p.finish(), 0);
    }

    void lifeGoesOn()
    {
        const QString root = freshRoot();
        qint64 renamed = 0;
        QString lastTitle;
        {
            DemoProcess p(root);
            p.setEnv(QStringLiteral("DEMO_SPEED"), QStringLiteral("0.02"));
            QVERIFY(p.start());
            QVERIFY(signIn(p));
            const int m = p.mark();
            // Nothing is asked: other chats receive messages and people come and go.
            const int incoming = p.waitFor(
                m,
                [](const QJsonObject &e) {
                    return ev_type(e) == QLatin1String("message_new") &&
                           !e.value(QStringLiteral("outgoing")).toBool();
                },
                30000);
            QVERIFY(incoming >= 0);
            const qint64 chatId = ev_i64(p.events().at(incoming), "chat_id");
            QVERIFY(p.waitFor(incoming, [chatId](const QJsonObject &e) {
                return ev_type(e) == QLatin1String("chat_position") &&
                       ev_i64(e, "chat_id") == chatId;
            }) >= 0);
            QVERIFY(p.waitFor(
                        m, [](const QJsonObject &e) { return ev_type(e) == QLatin1String("user"); },
                        30000) >= 0);
            // The message went into the account.
            bool stored = false;
            for (const QJsonObject &msg :
                 history(p, "history " + QByteArray::number(chatId) + " 5"))
                stored |= ev_i64(msg, "id") == ev_i64(p.events().at(incoming), "id");
            QVERIFY(stored);
            // Now and then a group gets a new name.
            const int title = p.waitType(m, QStringLiteral("chat_title"), 60000);
            QVERIFY(title >= 0);
            renamed = ev_i64(p.events().at(title), "chat_id");
            QCOMPARE(p.finish(), 0);
            for (const QJsonObject &e : p.events()) {
                if (ev_type(e) == QLatin1String("chat_title") && ev_i64(e, "chat_id") == renamed)
                    lastTitle = e.value(QStringLiteral("title")).toString();
            }
        }
        // The name survives a restart.
        DemoProcess again(root);
        QVERIFY(again.start());
        bool found = false;
        for (const QJsonObject &c : loadChats(again, 1000)) {
            if (ev_i64(c, "id") == renamed) {
                found = true;
                QCOMPARE(c.value(QStringLiteral("title")).toString(), lastTitle);
            }
        }
        QVERIFY(found);
        QCOMPARE(again.finish(), 0);
    }

    void searchOnServer()
    {
        DemoProcess p(freshRoot());
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        qint64 lastReq = 0;
        for (const QString &q : {QStringLiteral("vexa"), QStringLiteral("zzzz-no-such-chat")}) {
            const int m = p.mark();
            p.send("search_server64 1003 " + b64(q) + " 30");
            const int end = p.waitType(m, QStringLiteral("search_end"));
            QVERIFY(end >= 0);
            const int begin = p.waitType(m, QStringLiteral("search_begin"));
            QVERIFY(begin >= 0 && begin < end);
            const qint64 req = ev_i64(p.events().at(begin), "req");
            QVERIFY(req > lastReq);
            lastReq = req;
            int found = 0;
            for (const QJsonObject &e : p.between(begin, end)) {
                if (ev_type(e) != QLatin1String("search_chat"))
                    continue;
                QCOMPARE(ev_i64(e, "req"), req);
                QCOMPARE(ev_i64(e, "idx"), qint64(found));
                ++found;
            }
            QCOMPARE(found > 0, q == QLatin1String("vexa"));
        }
        QCOMPARE(p.finish(), 0);
    }

    void serviceModeOverUdp()
    {
        // The port is fixed; another program's test may hold it for a while.
        bool free = false;
        for (int attempt = 0; attempt < 60 && !free; ++attempt) {
            QUdpSocket probe;
            free = probe.bind(QHostAddress::LocalHost, 47010);
            if (!free)
                QTest::qWait(250);
        }
        if (!free)
            QSKIP("UDP port 47010 stayed in use on this machine");
        DemoProcess p(freshRoot());
        QVERIFY(p.start({QStringLiteral("--service")}));
        QVERIFY(p.waitType(0, QStringLiteral("backend_ready")) >= 0);
        QUdpSocket udp;
        auto send = [&udp](const QByteArray &d) {
            QCOMPARE(udp.writeDatagram(d, QHostAddress::LocalHost, 47010), qint64(d.size()));
        };
        int m = p.mark();
        send("ping");
        QVERIFY(p.waitFor(m, [](const QJsonObject &e) {
            return ev_type(e) == QLatin1String("backend_ready") &&
                   e.value(QStringLiteral("pong")).toBool();
        }) >= 0);
        m = p.mark();
        send("phone +15550101");
        QVERIFY(p.waitType(m, QStringLiteral("code_info")) >= 0);
        m = p.mark();
        send("code 22222");
        QVERIFY(p.waitFor(m, [](const QJsonObject &e) {
            return ev_type(e) == QLatin1String("auth_state") &&
                   e.value(QStringLiteral("state")) == QLatin1String("Ready");
        }) >= 0);
        // A datagram is one command: a smuggled second line is not run.
        m = p.mark();
        send("ping\nchats 3");
        send("chats 2");
        const int end = p.waitType(m, QStringLiteral("chats_end"));
        QVERIFY(end >= 0);
        int chats = 0;
        for (const QJsonObject &e : p.between(m, end))
            chats += ev_type(e) == QLatin1String("chat");
        QCOMPARE(chats, 2);
        QVERIFY(!hasType(p.between(m, end), QStringLiteral("backend_ready")));

        p.process().terminate();
        QVERIFY(p.process().waitForFinished(10000));
        QCOMPARE(p.process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(p.process().exitCode(), 0);
        QVERIFY(p.waitType(m, QStringLiteral("td_closed"), 2000) >= 0);
    }

    void secondInstanceExitsWithCode9_data()
    {
        QTest::addColumn<QStringList>("secondArgs");
        QTest::newRow("second in local mode") << QStringList();
        QTest::newRow("second in service mode") << QStringList{QStringLiteral("--service")};
    }

    void secondInstanceExitsWithCode9()
    {
        QFETCH(QStringList, secondArgs);
        const QString root = freshRoot();
        DemoProcess first(root);
        QVERIFY(first.start());
        QVERIFY(first.waitType(0, QStringLiteral("backend_ready")) >= 0);

        DemoProcess second(root);
        QVERIFY(second.start(secondArgs));
        QVERIFY(second.process().waitForFinished(5000));
        QCOMPARE(second.process().exitStatus(), QProcess::NormalExit);
        QCOMPARE(second.process().exitCode(), 9);
        QVERIFY(second.standardOutput().startsWith("FATAL "));

        // The first one is unharmed and the lock goes with it.
        const int m = first.mark();
        first.send("ping");
        QVERIFY(first.waitType(m, QStringLiteral("backend_ready")) >= 0);
        QCOMPARE(first.finish(), 0);
        DemoProcess third(root);
        QVERIFY(third.start());
        QVERIFY(third.waitType(0, QStringLiteral("auth_state")) >= 0);
        QCOMPARE(third.finish(), 0);
    }

    void killedWhileWritingKeepsDatabase()
    {
        const QString root = freshRoot();
        {
            DemoProcess p(root);
            QVERIFY(p.start());
            QVERIFY(signIn(p));
            for (int i = 0; i < 400; ++i) {
                p.send("send64 1003 " + b64(QStringLiteral("burst %1").arg(i)));
                if (i % 3 == 0)
                    p.send("react 1003 " + QByteArray::number(1 + i % 20) + " 👍 add");
            }
            QVERIFY(p.waitType(0, QStringLiteral("message_send_succeeded")) >= 0);
            p.process().kill();
            QVERIFY(p.process().waitForFinished(5000));
        }
        QCOMPARE(integrity(root + QStringLiteral("/tdlib-db")), QStringLiteral("ok"));
        DemoProcess again(root);
        QVERIFY(again.start());
        QVERIFY(!history(again, "history 1003 50").isEmpty());
        QCOMPARE(again.finish(), 0);
    }

    void survivesRandomInput()
    {
        const QString root = freshRoot();
        DemoProcess p(root);
        QVERIFY(p.start());
        QVERIFY(signIn(p));
        const QList<QJsonObject> chats = loadChats(p, 30);
        QVERIFY(!chats.isEmpty());

        QRandomGenerator rng(20261122);
        const QList<QByteArray> verbs = {"ping",
                                         "state",
                                         "phone",
                                         "code",
                                         "resend",
                                         "password",
                                         "chats",
                                         "open",
                                         "chat_info",
                                         "close",
                                         "history",
                                         "history_more",
                                         "history_jump",
                                         "read",
                                         "send64",
                                         "edit64",
                                         "sendfile64",
                                         "sendvoice64",
                                         "sendvideonote64",
                                         "react",
                                         "forward",
                                         "delete",
                                         "props",
                                         "pinned_list",
                                         "search_server64",
                                         "mute_toggle",
                                         "clear_history",
                                         "join",
                                         "leave",
                                         "delete_chat",
                                         "download",
                                         "downloadp",
                                         "resolve",
                                         "bogus",
                                         "",
                                         "send",
                                         "chats60"};
        QList<QByteArray> chatIds;
        for (const QJsonObject &c : chats)
            chatIds << QByteArray::number(ev_i64(c, "id"));
        auto randomArg = [&]() -> QByteArray {
            switch (rng.bounded(12)) {
            case 0:
                return chatIds.at(rng.bounded(chatIds.size()));
            case 1:
                return QByteArray::number(rng.bounded(-1000, 100000));
            case 2:
                return "99999999999999999999999999";
            case 3:
                return "-";
            case 4:
                return "abc";
            case 5: {
                QByteArray raw(rng.bounded(40), 0);
                for (char &c : raw)
                    c = char(rng.bounded(256));
                return raw.toBase64();
            }
            case 6:
                return "%%%=";
            case 7:
                return "👍";
            case 8:
                return rng.bounded(2) ? "all" : "self";
            case 9:
                return rng.bounded(2) ? "add" : "remove";
            case 10:
                return "0";
            default:
                return QByteArray::number(rng.bounded(1, 120));
            }
        };
        const int fuzzStart = p.mark();
        int sent = 0;
        for (int i = 0; i < 4000; ++i) {
            QByteArray line;
            const int kind = rng.bounded(100);
            if (kind < 25) {
                line.resize(rng.bounded(300));
                for (char &c : line) {
                    c = char(rng.bounded(256));
                    if (c == '\n')
                        c = ' ';
                }
            } else if (kind < 99) {
                line = verbs.at(rng.bounded(verbs.size()));
                const int args = rng.bounded(6);
                for (int k = 0; k < args; ++k)
                    line += ' ' + randomArg();
            } else {
                line = QByteArray(1024 * 1024 + rng.bounded(200000), 'A');
            }
            p.send(line);
            ++sent;
        }
        QCOMPARE(sent, 4000);

        // Commands are answered in order: once the marker's answer is there,
        // everything after it belongs to the checks below.
        const int before = p.mark();
        p.send("resolve fuzz_done_marker");
        QVERIFY(p.waitFor(
                    before,
                    [](const QJsonObject &e) {
                        return ev_type(e) == QLatin1String("tg_resolve_error") &&
                               e.value(QStringLiteral("username")) ==
                                   QLatin1String("fuzz_done_marker");
                    },
                    120000) >= 0);
        // The random input was read and answered, not dropped: every kind of
        // refusal shows up.
        QSet<QString> answered;
        for (const QJsonObject &e : p.events().mid(fuzzStart))
            answered.insert(ev_type(e));
        for (const char *kind : {"td_error", "action_error", "edit_error", "delete_error",
                                 "chat_info_error", "message_properties_error", "reaction_error",
                                 "tg_resolve_error", "history_begin", "chats_begin"})
            QVERIFY2(answered.contains(QLatin1String(kind)), kind);

        const int m = p.mark();
        p.send("ping");
        p.send("state");
        p.send("chats 5");
        QVERIFY(p.waitFor(
                    m,
                    [](const QJsonObject &e) {
                        return ev_type(e) == QLatin1String("backend_ready") &&
                               e.value(QStringLiteral("pong")).toBool();
                    },
                    60000) >= 0);
        QCOMPARE(p.process().state(), QProcess::Running);
        const int state = p.waitType(m, QStringLiteral("auth_state"), 30000);
        QVERIFY(state >= 0);
        QCOMPARE(p.events().at(state).value(QStringLiteral("state")).toString(),
                 QStringLiteral("Ready"));
        const int begin = p.waitType(state, QStringLiteral("chats_begin"), 30000);
        const int end = p.waitType(state, QStringLiteral("chats_end"), 30000);
        QVERIFY(begin >= 0 && end > begin);
        int listed = 0;
        for (const QJsonObject &e : p.between(begin, end))
            listed += ev_type(e) == QLatin1String("chat");
        QCOMPARE(listed, 5);
        QCOMPARE(p.badLines(), 0);

        QCOMPARE(integrity(p.dbDir()), QStringLiteral("ok"));
        QCOMPARE(p.finish(60000), 0);
        QCOMPARE(integrity(p.dbDir()), QStringLiteral("ok"));

        // And the account still opens afterwards.
        DemoProcess again(root);
        QVERIFY(again.start());
        QCOMPARE(loadChats(again, 5).size(), 5);
        QCOMPARE(again.finish(), 0);
    }
};

QTEST_GUILESS_MAIN(TestDemoBackend)
#include "test_demo_backend.moc"
