#include "backend_link/event_intake.h"
#include "chats/chat_filter.h"
#include "chats/chat_list_model.h"
#include "common/recording_commands.h"
#include "common/test_util.h"
#include "media/media_downloads.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "platform/ui/system_dialogs.h"
#include "shell/files_cache.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QPointer>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace test_util;

// The chat search and the files cache through the controller: events go
// through the real events file and intake, command lines to a recording
// channel, files are real files in a temporary data folder.
class TestSearchAndCache : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void typingFiltersTheListAndOpensAChat();
    void serverSearch_data();
    void serverSearch();
    void clearingSparesSavedCopiesAndOffersDownloadsAgain();

private:
    void feed(const QByteArray &json)
    {
        QVERIFY(writeFile(dataDir() + "/backend_events.jsonl", json + '\n', true));
        m_spike->eventIntake()->onPoll();
    }
    int sent(const QString &line) const { return m_commands.count(line); }
    QString dataDir() const { return m_dir->filePath("data"); }
    QString sharedDir() const { return m_dir->filePath("shared"); }
    // Signs in and loads the chats ("id=1|title=..." each, order by position).
    bool loadChats(const QStringList &chats);
    QStringList shownTitles() const;

    std::unique_ptr<QTemporaryDir> m_dir;
    RecordingCommands m_commands;
    std::unique_ptr<UiTdlibSpike> m_spike;
};

void TestSearchAndCache::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_commands.clear();
    QVERIFY(QDir().mkpath(m_dir->filePath("app")));
    const QStringList env = cleanEnvironment() << "VEXA_DATA_DIR=" + dataDir()
                                               << "VEXA_SHARED_DIR=" + sharedDir() << "VEXA_ZOOM=1"
                                               << "UI_USE_SERVICE_BACKEND=1";
    m_spike = std::make_unique<UiTdlibSpike>(m_dir->filePath("app"), env, &m_commands);
    m_spike->window()->resize(720, 1280);
}

void TestSearchAndCache::cleanup()
{
    m_spike.reset();
    m_dir.reset();
}

bool TestSearchAndCache::loadChats(const QStringList &chats)
{
    feed(R"({"type":"auth_state","state":"Ready"})");
    feed(R"({"type":"chats_begin"})");
    int order = chats.size();
    for (const QString &c : chats) {
        QJsonObject o = QJsonObject::fromVariantMap(kv(c));
        o.insert("type", "chat");
        o.insert("order", QString::number(order--));
        feed(QJsonDocument(o).toJson(QJsonDocument::Compact));
    }
    feed(R"({"type":"chats_end"})");
    return waitFor([&] { return m_spike->chatListView()->itemWidget(0) != nullptr; });
}

QStringList TestSearchAndCache::shownTitles() const
{
    QAbstractItemModel *model = m_spike->chatListView()->dataModel();
    QStringList titles;
    for (int i = 0; i < model->rowCount(); ++i)
        titles << model->index(i, 0).data(Qt::UserRole).toMap().value("title").toString();
    return titles;
}

void TestSearchAndCache::typingFiltersTheListAndOpensAChat()
{
    QVERIFY(loadChats({"id=1|title=Zoë O'Brien", "id=2|title=Ada Lovelace|username=countess",
                       "id=3|title=Zoe Silva"}));
    MainScreen *main = m_spike->screens()->mainScreen();
    Q_EMIT main->searchRequested();
    QVERIFY(main->isSearchOpen());
    // What matches, and rows joining as they change: test_chat_filter.
    Q_EMIT main->searchTextChanged("@count");
    QCOMPARE(shownTitles(), (QStringList{"Ada Lovelace"}));
    // A tap opens the chat the filtered row shows.
    Q_EMIT m_spike->chatListView()->triggered({0});
    QCOMPARE(sent("chat_info 2"), 1);
    QCOMPARE(m_spike->screens()->currentScreen(), ShellScreens::Screen::Conversation);
    m_spike->onBackToChats();
    main->closeSearch();
    QCOMPARE(shownTitles().size(), 3);
}

void TestSearchAndCache::serverSearch_data()
{
    // Searches sent (Enter), "restart" for a new run of the backend between
    // them, and the number the answer carries. Stale answers and none: the
    // dispatcher's cases.
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<int>("answerReq");
    QTest::newRow("answer to the latest") << QStringList{"ada", "ada pub"} << 2;
    QTest::newRow("numbering restarts with the backend")
        << QStringList{"ada", "ada", "restart", "ada"} << 1;
    QTest::newRow("line break stays in its line") << QStringList{"a\nchats 60"} << 1;
}

void TestSearchAndCache::serverSearch()
{
    QFETCH(QStringList, steps);
    QFETCH(int, answerReq);
    QVERIFY(loadChats({"id=1|title=One"}));
    MainScreen *main = m_spike->screens()->mainScreen();
    Q_EMIT main->searchRequested();
    for (const QString &step : steps) {
        if (step == QLatin1String("restart")) {
            feed(R"({"type":"backend_ready","name":"demo"})");
            continue;
        }
        Q_EMIT main->serverSearchRequested(step);
        QCOMPARE(m_commands.lines().last(),
                 "search_server64 0 " + QString::fromLatin1(step.toUtf8().toBase64()) + " 30");
    }
    const QString req = QString::number(answerReq);
    feed(QStringLiteral(R"({"type":"search_begin","req":%1})").arg(req).toUtf8());
    int idx = 0;
    for (const char *r :
         {"id=-1077|title=Ada Public|chat_type=supergroup", "id=77|title=|chat_type=private"}) {
        QJsonObject o = QJsonObject::fromVariantMap(kv(QString(r)));
        o.insert("type", "search_chat");
        o.insert("req", answerReq);
        o.insert("idx", idx++);
        feed(QJsonDocument(o).toJson(QJsonDocument::Compact));
    }
    feed(QStringLiteral(R"({"type":"search_end","req":%1})").arg(req).toUtf8());

    auto *dialog = m_spike->window()->findChild<SystemListDialog *>();
    QVERIFY(dialog && dialog->isOpen());
    QCOMPARE(dialog->items(), (QStringList{"Ada Public", "Chat 77"}));
    // The chosen result opens, joined or not.
    dialog->setSelectedIndices({0});
    dialog->finishWith(SystemUiResult::ConfirmButtonSelection);
    QCOMPARE(sent("chat_info -1077"), 1);
    QCOMPARE(m_spike->screens()->currentScreen(), ShellScreens::Screen::Conversation);
}

void TestSearchAndCache::clearingSparesSavedCopiesAndOffersDownloadsAgain()
{
    const QString files = dataDir() + "/cache/tdlib-files";
    QVERIFY(QDir().mkpath(files + "/profile_photos") && QDir().mkpath(files + "/photos"));
    QImage photo(32, 32, QImage::Format_RGB32);
    photo.fill(Qt::red);
    QVERIFY(photo.save(files + "/profile_photos/chat_900.png"));
    QVERIFY(photo.save(files + "/photos/502.png"));
    QVERIFY(writeFile(files + "/documents/501_a.pdf", QByteArray(3000, 'p')));
    QVERIFY(loadChats({"id=1|title=One|photo_small_id=900"}));
    feed(QStringLiteral(R"({"type":"file","id":900,"path":"%1"})")
             .arg(files + "/profile_photos/chat_900.png")
             .toUtf8());
    QVERIFY(!m_spike->chatList()->rowAt(0).value("avatar_path").toString().isEmpty());
    QVERIFY(waitFor([&] { return sent("download 900") == 1; }));

    m_spike->openChatFromRow(m_spike->chatList()->rowAt(0));
    QVERIFY(waitFor([&] { return sent("open 1") == 1; }));
    feed(R"({"type":"history_begin","chat_id":1,"clear":true})");
    feed(R"({"type":"message","chat_id":1,"id":10,"content_type":"messageDocument",)"
         R"("media_type":"file","media_name":"a.pdf","media_size":3000,"media_file_id":501})");
    feed(R"({"type":"message","chat_id":1,"id":11,"content_type":"messagePhoto",)"
         R"("media_type":"photo","media_w":32,"media_h":32,"media_file_id":502})");
    feed(R"({"type":"history_end","chat_id":1,"clear":true})");
    MediaDownloads *downloads = m_spike->mediaDownloads();
    for (qint64 id : {501, 502})
        downloads->enqueueMediaDownload(id, false);
    QVERIFY(waitFor([&] { return sent("download 502") == 1; }));
    for (const char *e : {R"({"type":"file","id":501,"path":"%1/documents/501_a.pdf"})",
                          R"({"type":"file","id":502,"path":"%1/photos/502.png"})"})
        feed(QString::fromLatin1(e).arg(files).toUtf8());
    // The document is saved into the shared downloads folder.
    downloads->onFileTapped(files + "/documents/501_a.pdf", 501);
    ArrayDataModel *rows = m_spike->messageRows();
    QVERIFY(waitFor([&] { return rows->value(0).contains("file_shared_path"); }));
    const QString saved = rows->value(0).value("file_shared_path").toString();
    QVERIFY(saved.startsWith(sharedDir() + "/downloads/quillo/"));
    QVERIFY(!rows->value(1).value("media_path").toString().isEmpty());

    // Clearing asks first, saying how much goes.
    MenuScreen *menu = m_spike->screens()->menuScreen();
    Q_EMIT menu->clearCacheRequested();
    QPointer<SystemDialog> ask;
    QVERIFY(waitFor([&] { return (ask = m_spike->window()->findChild<SystemDialog *>()); }));
    const CacheUsage before = m_spike->filesCache()->usage();
    QVERIFY(before.totalFiles() >= 4); // two media files, the photo and its round avatar
    QVERIFY(ask->body().contains(QLocale().toString(before.totalFiles()) + " files"));
    ask->finishWith(SystemUiResult::ConfirmButtonSelection);
    QSignalSpy cleared(m_spike->filesCache(), &FilesCache::cleared);
    QVERIFY(cleared.wait(20000));

    QVERIFY(!QFileInfo::exists(files + "/documents/501_a.pdf"));
    QCOMPARE(readAll(saved).size(), 3000);
    // The rows offer their media again (the saved copy stays known), the
    // chat shows its tile until the photo is fetched again, and the files
    // are asked for anew.
    QVERIFY(!rows->value(0).contains("media_path"));
    QCOMPARE(rows->value(0).value("file_shared_path").toString(), saved);
    QVERIFY(!rows->value(1).contains("media_path"));
    QVERIFY(!m_spike->chatList()->rowAt(0).contains("avatar_path"));
    QVERIFY(waitFor([&] { return sent("download 900") == 2; }));
    downloads->enqueueMediaDownload(502, false);
    QVERIFY(waitFor([&] { return sent("download 502") == 2; }));
}

QTEST_MAIN(TestSearchAndCache)
#include "test_search_and_cache.moc"
