// A new user's first session, in this process, against the real demo backend
// as a child process: sign in through the form, watch the title follow the
// connection, and see the chat list arrive in the service's order.
#include "chats/chat_list_model.h"
#include "common/test_util.h"
#include "events/event_dispatcher.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QLabel>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>

using namespace test_util;

class TestDemoSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signInAndBrowse();
};

void TestDemoSession::signInAndBrowse()
{
    QTemporaryDir dir;
    const QString appDir = dir.filePath("app");
    QVERIFY(QDir().mkpath(appDir) && installExecutable(DEMO_BACKEND_PATH, appDir + "/td_backend"));
    QStringList env = cleanEnvironment();
    env << "VEXA_DATA_DIR=" + dir.filePath("data") << "VEXA_SHARED_DIR=" + dir.filePath("shared");
    env << QStringList{"VEXA_ZOOM=1", "DEMO_SEED=7", "DEMO_SPEED=0.05"};
    UiTdlibSpike spike(appDir, env);
    spike.window()->show();
    MainScreen *main = spike.screens()->mainScreen();
    QLabel *title = main->findChild<QLabel *>(QStringLiteral("main_title"));
    QVERIFY(title);
    const QString name = title->text();
    // The title right after each connection state has been handled, once signed in.
    QList<QPair<QString, QString>> seen;
    connect(spike.dispatcher(), &EventDispatcher::connectionStateChanged, this,
            [&](const QString &state) {
                if (main->isAuthorised())
                    seen.append({state, title->text()});
            });
    const auto enter = [&](int field, const QString &text) {
        QLineEdit *f = main->findChildren<QLineEdit *>().value(field);
        QTest::keyClicks(f, text);
        QTest::keyClick(f, Qt::Key_Return);
    };
    QVERIFY(waitFor([&] { return main->findChildren<QLineEdit *>().value(0)->isVisible(); }));
    enter(0, QStringLiteral("+15550109")); // ends in 9: a password follows the code
    QVERIFY2(waitFor([&] { return main->statusText().contains("code", Qt::CaseInsensitive); }),
             qPrintable(main->statusText()));
    enter(1, QStringLiteral("22222"));
    QVERIFY(waitFor([&] { return main->statusText().contains("assword"); }));
    enter(2, QStringLiteral("vexa"));
    QVERIFY2(waitFor([&] { return main->isAuthorised(); }, 15000), qPrintable(main->statusText()));

    // Signing in brings at least two states before the connection is ready; until then the
    // title names the state.
    QVERIFY(waitFor([&] { return seen.size() >= 3 && seen.last().first == "Ready"; }, 15000));
    for (const auto &s : qAsConst(seen))
        QVERIFY2(s.first == "Ready" ? s.second == name : s.second.startsWith(s.first),
                 qPrintable(s.first + " -> " + s.second));

    // The first page of the list arrives in the service's order.
    QAbstractItemModel *model = spike.chatListView()->dataModel();
    QVERIFY2(waitFor([&] { return model->rowCount() >= 60; }, 15000),
             qPrintable(QString::number(model->rowCount())));
    const auto rowAt = [&](int i) { return model->index(i, 0).data(Qt::UserRole).toMap(); };
    for (int i = 1; i < model->rowCount(); ++i)
        QVERIFY2(ChatListModel::chatRowPrecedes(rowAt(i - 1), rowAt(i)),
                 qPrintable(QString::number(i)));
}

QTEST_MAIN(TestDemoSession)
#include "test_demo_session.moc"
