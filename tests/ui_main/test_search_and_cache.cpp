#include "backend_link/event_intake.h"
#include "chats/chat_list_model.h"
#include "common/recording_commands.h"
#include "common/test_util.h"
#include "conversation/ui/chat_screen.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "platform/ui/system_dialogs.h"
#include "shell/files_cache.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QAbstractButton>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace test_util;

// The searches, the pinned messages and the files cache through the
// controller: events go through the real events file and intake, command
// lines to a recording channel, the user acts on the real widgets, files are
// real files in a temporary data folder.
class TestSearchAndCache : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void typingFiltersTheListAndOpensAChat();
    void serverSearch();
    void pinnedBarAndList();
    void searchInTheChat();
    void clearingOffersDownloadsAgain();

private:
    void feed(const QByteArray &json)
    {
        QVERIFY(writeFile(dataDir() + "/backend_events.jsonl", json + '\n', true));
        m_spike->eventIntake()->onPoll();
    }
    int sent(const QString &line) const { return m_commands.count(line); }
    QString dataDir() const { return m_dir->filePath("data"); }
    // Signs in and loads the chats ("id=1|title=..." each, order by position).
    bool loadChats(const QStringList &chats);
    // Opens chat 1 and loads messages 1..30; message n says "note n", every
    // fifth one "lunch n".
    bool openChat();
    // The message with this id is on screen.
    bool shown(qint64 id) const;

    std::unique_ptr<QTemporaryDir> m_dir;
    RecordingCommands m_commands;
    std::unique_ptr<UiTdlibSpike> m_spike;
};

void TestSearchAndCache::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_commands.clear();
    QVERIFY(QDir().mkpath(m_dir->filePath("app")));
    const QStringList env = cleanEnvironment()
                            << "VEXA_DATA_DIR=" + dataDir()
                            << "VEXA_SHARED_DIR=" + m_dir->filePath("shared") << "VEXA_ZOOM=1"
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

bool TestSearchAndCache::openChat()
{
    m_spike->window()->show();
    if (!loadChats({"id=1|title=Ann"}))
        return false;
    m_spike->openChatFromRow(m_spike->chatList()->rowAt(0));
    feed(R"({"type":"history_begin","chat_id":1,"clear":true})");
    for (int id = 1; id <= 30; ++id)
        feed(QStringLiteral(R"({"type":"message","chat_id":1,"id":%1,"text":"%2 %1"})")
                 .arg(id)
                 .arg(id % 5 == 0 ? QStringLiteral("lunch") : QStringLiteral("note"))
                 .toUtf8());
    feed(R"({"type":"history_end","chat_id":1,"clear":true})");
    return waitFor([&] { return shown(30); });
}

bool TestSearchAndCache::shown(qint64 id) const
{
    ListView *list = m_spike->messageListView();
    const QList<QVariantMap> &rows = m_spike->messageRows()->rows();
    for (int row : list->visibleRows()) {
        const QWidget *item = list->itemWidget(row);
        if (rows.value(row).value("id").toString().toLongLong() == id && item &&
            item->geometry().intersects(list->viewport()->rect()))
            return true;
    }
    return false;
}

void TestSearchAndCache::typingFiltersTheListAndOpensAChat()
{
    QVERIFY(loadChats({"id=1|title=Zoe", "id=2|title=Ada"}));
    MainScreen *main = m_spike->screens()->mainScreen();
    const auto rows = [this] { return m_spike->chatListView()->dataModel()->rowCount(); };
    Q_EMIT main->searchRequested();
    // What matches, and rows joining as they change: test_chat_filter.
    Q_EMIT main->searchTextChanged("ada");
    QCOMPARE(rows(), 1);
    // A tap opens the chat the filtered row shows.
    Q_EMIT m_spike->chatListView()->triggered({0});
    QCOMPARE(sent("chat_info 2"), 1);
    main->closeSearch();
    QCOMPARE(rows(), 2);
}

// Stale answers and none: the dispatcher's cases.
void TestSearchAndCache::serverSearch()
{
    QVERIFY(loadChats({"id=1|title=One"}));
    MainScreen *main = m_spike->screens()->mainScreen();
    Q_EMIT main->searchRequested();
    // Request numbers start again with each run of the backend.
    Q_EMIT main->serverSearchRequested("ada");
    feed(R"({"type":"backend_ready","name":"demo"})");
    const QString query = "a\nchats 60";
    Q_EMIT main->serverSearchRequested(query);
    QCOMPARE(m_commands.lines().last(),
             "search_server64 0 " + QString::fromLatin1(query.toUtf8().toBase64()) + " 30");
    feed(R"({"type":"search_begin","req":1})");
    feed(R"({"type":"search_chat","req":1,"idx":0,"id":-1077,"title":"Ada Public"})");
    feed(R"({"type":"search_chat","req":1,"idx":1,"id":77,"title":""})");
    feed(R"({"type":"search_end","req":1})");
    auto *dialog = m_spike->window()->findChild<SystemListDialog *>();
    QVERIFY(dialog && dialog->isOpen());
    QCOMPARE(dialog->items(), (QStringList{"Ada Public", "Chat 77"}));
    dialog->setSelectedIndices({0});
    dialog->finishWith(SystemUiResult::ConfirmButtonSelection);
    QCOMPARE(sent("chat_info -1077"), 1);
}

void TestSearchAndCache::pinnedBarAndList()
{
    QVERIFY(openChat());
    ChatScreen *chat = m_spike->chatScreen();
    feed(R"({"type":"pinned_message","chat_id":1,"text":"note 25","content_type":"messageText"})");
    feed(R"({"type":"pinned_list_begin","chat_id":1})");
    feed(R"({"type":"pinned_list_item","chat_id":1,"id":25,"text":"note 25"})");
    feed(R"({"type":"pinned_list_item","chat_id":1,"id":2,"text":"note 2"})");
    feed(R"({"type":"pinned_list_end","chat_id":1})");
    QVERIFY(chat->isPinnedBarVisible());
    // The walk's order: test_pinned_messages.
    Q_EMIT chat->pinnedBarTapped();
    QVERIFY(waitFor([&] { return shown(25); }));

    // The list draws every pin whole; a tap on a row goes to its message.
    Q_EMIT chat->pinnedExpandToggled();
    ListView *pins = m_spike->pinnedListView();
    QVERIFY(waitFor([&] { return chat->isPinnedListVisible() && pins->itemWidget(1); }));
    QStringList texts;
    for (int row = 0; row < 2; ++row) {
        QWidget *item = pins->itemWidget(row);
        QVERIFY(pins->viewport()->rect().contains(item->geometry()));
        for (QLabel *l : item->findChildren<QLabel *>()) {
            QVERIFY(l->isVisible() && item->rect().contains(l->geometry()));
            if (!l->text().isEmpty())
                texts << l->text();
        }
    }
    QCOMPARE(texts, (QStringList{"note 25", "note 2"}));
    QTest::mouseClick(pins->itemWidget(1), Qt::LeftButton, Qt::NoModifier, QPoint(60, 10));
    QVERIFY(waitFor([&] { return shown(2); }));
    QVERIFY(!chat->isPinnedListVisible());
}

// Through the overflow menu (what its other entries do: test_chat_details).
void TestSearchAndCache::searchInTheChat()
{
    QVERIFY(openChat());
    ChatScreen *chat = m_spike->chatScreen();
    chat->findChild<QAbstractButton *>("chat_more_button")->click();
    QListWidget *menu =
        m_spike->window()->findChild<SystemListDialog *>("chat_overflow_dialog")->listWidget();
    QTest::mouseClick(menu->viewport(), Qt::LeftButton, Qt::NoModifier,
                      menu->visualItemRect(menu->item(0)).center());
    auto *field = chat->findChild<QLineEdit *>("chat_search_field");
    QTest::keyClicks(field, QStringLiteral("lunch"));
    // Enter and Up go back in time, Shift+Enter and Down forward.
    QTest::keyClick(field, Qt::Key_Return);
    QTest::keyClick(field, Qt::Key_Up);
    QCOMPARE(chat->searchStatus(), QStringLiteral("3 of 6"));
    QVERIFY(waitFor([&] { return shown(20); }));
    QTest::keyClick(field, Qt::Key_Return, Qt::ShiftModifier);
    QTest::keyClick(field, Qt::Key_Down);
    QCOMPARE(chat->searchStatus(), QStringLiteral("1 of 6"));
    // Past the oldest loaded match it offers an older page.
    for (int i = 0; i < 6; ++i)
        QTest::keyClick(field, Qt::Key_Return);
    auto *older = chat->findChild<QAbstractButton *>("chat_search_older_pages");
    QVERIFY(older->isVisible());
    older->click();
    QCOMPARE(sent("history_more 1 1 50"), 1);
    QTest::keyClick(field, Qt::Key_Escape);
    QVERIFY(!chat->isSearchVisible());
}

// What clearing spares: test_files_cache.
void TestSearchAndCache::clearingOffersDownloadsAgain()
{
    const QString files = dataDir() + "/cache/tdlib-files";
    QVERIFY(QDir().mkpath(files + "/profile_photos") && QDir().mkpath(files + "/photos"));
    QImage photo(32, 32, QImage::Format_RGB32);
    photo.fill(Qt::red);
    QVERIFY(photo.save(files + "/profile_photos/chat_900.png"));
    QVERIFY(photo.save(files + "/photos/502.png"));
    QVERIFY(loadChats({"id=1|title=One|photo_small_id=900"}));
    QVERIFY(waitFor([&] { return sent("download 900") == 1; }));
    feed(QStringLiteral(R"({"type":"file","id":900,"path":"%1/profile_photos/chat_900.png"})")
             .arg(files)
             .toUtf8());
    QVERIFY(m_spike->chatList()->rowAt(0).contains("avatar_path"));
    m_spike->openChatFromRow(m_spike->chatList()->rowAt(0));
    feed(R"({"type":"history_begin","chat_id":1,"clear":true})");
    feed(R"({"type":"message","chat_id":1,"id":11,"content_type":"messagePhoto",)"
         R"("media_type":"photo","media_w":32,"media_h":32,"media_file_id":502})");
    feed(R"({"type":"history_end","chat_id":1,"clear":true})");
    feed(QStringLiteral(R"({"type":"file","id":502,"path":"%1/photos/502.png"})")
             .arg(files)
             .toUtf8());
    ArrayDataModel *rows = m_spike->messageRows();
    QVERIFY(rows->value(0).contains("media_path"));

    // Clearing asks first, saying how much goes.
    Q_EMIT m_spike->screens()->menuScreen()->clearCacheRequested();
    QPointer<SystemDialog> ask;
    QVERIFY(waitFor([&] { return (ask = m_spike->window()->findChild<SystemDialog *>()); }));
    const int count = m_spike->filesCache()->usage().totalFiles();
    QVERIFY(ask->body().contains(QLocale().toString(count) + " files"));
    ask->finishWith(SystemUiResult::ConfirmButtonSelection);
    QSignalSpy cleared(m_spike->filesCache(), &FilesCache::cleared);
    QVERIFY(cleared.wait(20000));
    // The row offers its photo again and the chat's photo is asked for anew.
    QVERIFY(!QFileInfo::exists(files + "/photos/502.png"));
    QVERIFY(!rows->value(0).contains("media_path"));
    QVERIFY(!m_spike->chatList()->rowAt(0).contains("avatar_path"));
    QVERIFY(waitFor([&] { return sent("download 900") == 2; }));
}

QTEST_MAIN(TestSearchAndCache)
#include "test_search_and_cache.moc"
