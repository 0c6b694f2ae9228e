#include "backend_link/app_log.h"
#include "chats/avatar_download_queue.h"
#include "chats/chat_list_model.h"
#include "common/recording_toaster.h"
#include "events/event_dispatcher.h"
#include "platform/array_data_model.h"

#include <QImage>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <vector>

namespace {

#include "event_cases.h"

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
    AvatarDownloadQueue avatars{nullptr, nullptr}; // its pacing: test_avatars
    std::unique_ptr<EventDispatcher> dispatcher;
    std::vector<std::unique_ptr<QSignalSpy>> spies;

    Fixture()
    {
        EventDispatcherDeps deps;
        deps.chats = &chats;
        deps.avatars = &avatars;
        deps.toaster = &toaster;
        deps.log = &log;
        deps.sendLine = [this](const QString &l) { sent.append(l); };
        deps.dataDir = dir.path();
        dispatcher = std::make_unique<EventDispatcher>(deps);
        QImage photo(160, 120, QImage::Format_RGB32); // what the "file" events point at
        photo.fill(QColor(10, 200, 30));
        photo.save(dir.filePath(QStringLiteral("src.png")));
    }

    void feed(QString json)
    {
        json.replace(QStringLiteral("$DATA"), dir.path());
        QJsonParseError err;
        const QJsonDocument doc = QJsonDocument::fromJson(json.toUtf8(), &err);
        QVERIFY2(err.error == QJsonParseError::NoError, qPrintable(json));
        dispatcher->handleEventMap(doc.object().toVariantMap());
    }

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

    void startRecording()
    {
        toaster.clear();
        sent.clear();
        const QMetaObject &mo = EventDispatcher::staticMetaObject;
        for (int i = mo.methodOffset(); i < mo.methodCount(); ++i) {
            if (mo.method(i).methodType() == QMetaMethod::Signal) {
                const QByteArray sig = "2" + mo.method(i).methodSignature();
                spies.push_back(std::make_unique<QSignalSpy>(dispatcher.get(), sig.constData()));
            }
        }
    }

    QStringList firedSignals() const
    {
        QStringList names;
        for (const auto &spy : spies) {
            if (!spy->isEmpty())
                names << QString::fromLatin1(spy->signal().left(spy->signal().indexOf('(')));
        }
        names.sort();
        return names;
    }

    QString lastArg(const QString &signal, int n) const
    {
        for (const auto &spy : spies) {
            if (spy->signal().startsWith(signal.toLatin1() + "(") && !spy->isEmpty() &&
                spy->last().size() > n) {
                const QVariant v = spy->last().at(n);
                return v.userType() == qMetaTypeId<QVariantMap>()
                           ? QJsonDocument::fromVariant(v).toJson(QJsonDocument::Compact)
                           : v.toString();
            }
        }
        return QStringLiteral("<no such argument>");
    }

    // The value a fact names ("ids", "row:<id>:<key>", ...), "<unknown fact>" else.
    QString observe(const QStringList &p, const QString &value) const
    {
        const QString &what = p.at(0);
        QStringList ids;
        for (int i = 0; i < chats.size(); ++i)
            ids << chats.rowAt(i).value(QStringLiteral("id")).toString();
        if (what == QLatin1String("ids"))
            return ids.join(QLatin1Char(','));
        if (what == QLatin1String("requested"))
            return avatars.wasRequested(value.toLongLong()) ? value : QStringLiteral("none");
        if (what == QLatin1String("pending"))
            return dispatcher->pendingResolveUsername();
        if (what == QLatin1String("searchrows"))
            return QString::number(dispatcher->chatSearchRows().size());
        if (what == QLatin1String("row"))
            return chats.chatRowById(p.at(1).toLongLong()).value(p.at(2), "-").toString();
        if (what == QLatin1String("info"))
            return dispatcher->chatInfo(p.at(1).toLongLong()).value(p.at(2)).toString();
        if (what == QLatin1String("arg"))
            return lastArg(p.at(1), p.at(2).toInt());
        return QStringLiteral("<unknown fact>");
    }
};

} // namespace

class TestEventDispatcher : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        qRegisterMetaType<OwnProfile>();
        qRegisterMetaType<QList<QVariantMap>>();
    }
    void events_data()
    {
        QTest::addColumn<QString>("setup");
        QTest::addColumn<QString>("event");
        QTest::addColumn<QString>("facts");
        QStringList vocabulary;
        const QString longMessage(250, QLatin1Char('m'));
        QStringList cases = QString::fromUtf8(kCases).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        for (const auto &passed : kPassedOn) {
            for (const QString &t : QString::fromLatin1(passed[1]).split(QLatin1Char(' ')))
                cases
                    << QStringLiteral(
                           R"(%2 ::  :: {"type":"%2","chat_id":100} :: sig=%1;ids=100,200;arg:%1:0~%2)")
                           .arg(QLatin1String(passed[0]), t);
        }
        for (QString line : cases) {
            line.replace(QLatin1String("$LONG"), longMessage);
            const QStringList p = line.split(QStringLiteral(" :: "));
            QVERIFY2(p.size() == 4, qPrintable(line));
            QTest::newRow(qPrintable(p.at(0))) << p.at(1) << p.at(2) << p.at(3);
            const QString type = QJsonDocument::fromJson(p.at(2).toUtf8())["type"].toString();
            if (EventDispatcher::eventTypes().contains(type) && !vocabulary.contains(type))
                vocabulary.append(type);
        }
        // Every recognised event type has a case.
        QCOMPARE(vocabulary.size(), EventDispatcher::eventTypes().size());
    }
    void events()
    {
        QFETCH(QString, setup);
        QFETCH(QString, event);
        QFETCH(QString, facts);
        Fixture f;
        f.seed();
        for (const QString &step : setup.split(QLatin1Char('|'), Qt::SkipEmptyParts)) {
            const QStringList p = step.split(QLatin1Char(':'));
            if (p.at(0) == QLatin1String("pending")) {
                f.dispatcher->setPendingResolveUsername(step.mid(8).replace("\\n", "\n"));
            } else if (p.at(0) == QLatin1String("search")) {
                f.dispatcher->setChatSearchRequest(p.at(1).toLongLong());
            } else if (p.at(0) == QLatin1String("current")) {
                f.dispatcher->setCurrentChat(p.at(1).toLongLong(), p.at(2));
            } else {
                f.feed(step);
            }
        }
        const QList<QVariantMap> before = f.rows.rows();
        QSignalSpy redraws(&f.rows, &QAbstractItemModel::dataChanged);
        f.startRecording();

        f.feed(event);

        QStringList toasts, sent, fired;
        for (const QString &fact : facts.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
            const int eq = fact.indexOf(QLatin1Char('='));
            const int tilde = fact.indexOf(QLatin1Char('~'));
            const bool contains = tilde >= 0 && (eq < 0 || tilde < eq);
            const QStringList p = fact.left(contains ? tilde : eq).split(QLatin1Char(':'));
            const QString value = fact.mid((contains ? tilde : eq) + 1);
            if (p.at(0) == QLatin1String("toast")) {
                toasts << value;
            } else if (p.at(0) == QLatin1String("sent")) {
                sent << value;
            } else if (p.at(0) == QLatin1String("sig")) {
                fired = value.split(QLatin1Char(','));
            } else if (p.at(0) == QLatin1String("same")) {
                QCOMPARE(f.rows.rows(), before);
                QCOMPARE(redraws.count(), 0);
            } else {
                const QString got = f.observe(p, value);
                QVERIFY2(contains ? got.contains(value) : got == value,
                         qPrintable(fact + QStringLiteral(" got ") + got));
            }
        }
        QCOMPARE(f.toaster.shown(), toasts);
        QCOMPARE(f.sent, sent);
        fired.sort();
        QCOMPARE(f.firedSignals(), fired);
    }
    void senderInfoFromUserEvent_data()
    {
        // The open chat's message row, shown and buffered, is user 42's, "Old" with photo 5;
        // photo 700, the first chat's, is drawn round before.
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("after"); // name|photo id|whether the round photo is set
        const auto row = [](const char *name, const char *user, const char *after) {
            QTest::newRow(name) << user << after;
        };
        row("new name", R"("id":42,"name":"Neo")", "Neo|5|0");
        row("new photo drawn round", R"("id":42,"photo_small_id":700)", "Old|700|1");
        row("other user", R"("id":44,"name":"Neo","photo_small_id":700)", "Old|5|0");
    }
    void senderInfoFromUserEvent()
    {
        QFETCH(QString, user);
        QFETCH(QString, after);
        Fixture f;
        f.seed();
        f.feed(R"({"type":"file","id":700,"path":"$DATA/src.png"})");
        ArrayDataModel messages;
        QVariantMap mine{{"id", "1"}, {"sender_user_id", "42"}, {"sender_name", "Old"}};
        mine.insert(QStringLiteral("sender_photo_small_id"), QStringLiteral("5"));
        messages.append(mine);
        QList<QVariantMap> buffered{mine};
        f.dispatcher->setMessageRows(&messages, &buffered);
        f.feed(R"({"type":"user",)" + user + "}");
        const QVariantMap row = messages.value(0);
        QCOMPARE(row.value("sender_name").toString() + "|" +
                     row.value("sender_photo_small_id").toString() + "|" +
                     QString::number(row.contains("sender_avatar_path")),
                 after);
        QCOMPARE(buffered.at(0), row);
    }
};

QTEST_MAIN(TestEventDispatcher)
#include "test_event_dispatcher.moc"
