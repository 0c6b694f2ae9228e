// A new user's first session, in this process, against the real demo backend
// as a child process: sign in through the form, see the chat list arrive in
// the service's order with round photos, and watch it reorder as other
// chats receive messages.
#include "chats/chat_list_model.h"
#include "common/test_util.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using namespace test_util;

class TestDemoSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signInAndBrowse();

private:
    // Types into the form's n-th field (phone, code, password) and presses Enter.
    void enter(int field, const QString &text);
    QString status() const { return m_spike->screens()->mainScreen()->statusText(); }
    bool waitStatus(const QString &text, int ms = 10000)
    {
        return waitFor([&] { return status() == text; }, ms);
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<UiTdlibSpike> m_spike;
};

void TestDemoSession::enter(int field, const QString &text)
{
    QLineEdit *f = m_spike->screens()->mainScreen()->findChildren<QLineEdit *>().value(field);
    QVERIFY(f);
    f->clear();
    QTest::keyClicks(f, text);
    QTest::keyClick(f, Qt::Key_Return);
}

void TestDemoSession::signInAndBrowse()
{
    m_dir = std::make_unique<QTemporaryDir>();
    const QString appDir = m_dir->filePath("app");
    const QString dataDir = m_dir->filePath("data");
    QVERIFY(QDir().mkpath(appDir) && installExecutable(DEMO_BACKEND_PATH, appDir + "/td_backend"));
    // A fast simulated world, so other chats receive messages within seconds.
    QStringList env = cleanEnvironment();
    env << "VEXA_DATA_DIR=" + dataDir << "VEXA_SHARED_DIR=" + m_dir->filePath("shared");
    env << QStringList{"VEXA_ZOOM=1", "DEMO_SEED=7", "DEMO_SPEED=0.05"};
    m_spike = std::make_unique<UiTdlibSpike>(appDir, env);
    m_spike->window()->show();
    MainScreen *main = m_spike->screens()->mainScreen();

    QVERIFY2(waitFor([&] { return status() != QStringLiteral("Starting…"); }, 10000),
             qPrintable(status()));
    enter(0, QStringLiteral("+15550109")); // ends in 9: a password follows the code
    QVERIFY2(waitStatus(QStringLiteral("Need: code")) ||
                 waitStatus(QStringLiteral("Auth: WaitCode")),
             qPrintable(status()));

    // Wrong answers and what the backend says to them: test_demo_backend.
    enter(1, QStringLiteral("22222"));
    // "Auth: WaitPassword" or "Need: password".
    QVERIFY2(waitFor([&] { return status().contains("assword"); }, 10000), qPrintable(status()));
    QVERIFY(!main->isAuthorised());
    enter(2, QStringLiteral("vexa"));
    QVERIFY2(waitFor([&] { return main->isAuthorised(); }, 15000), qPrintable(status()));
    QVERIFY(!main->findChildren<QLineEdit *>().first()->isVisible());

    // The first page of the list arrives in the service's order.
    ListView *list = m_spike->chatListView();
    QVERIFY(list && list->dataModel());
    QAbstractItemModel *model = list->dataModel();
    QVERIFY2(waitFor([&] { return model->rowCount() >= 60; }, 15000),
             qPrintable(QString::number(model->rowCount())));
    auto rowAt = [&](int i) { return model->index(i, 0).data(Qt::UserRole).toMap(); };
    for (int i = 1; i < model->rowCount(); ++i)
        QVERIFY2(ChatListModel::chatRowPrecedes(rowAt(i - 1), rowAt(i)),
                 qPrintable(QString::number(i)));

    // Visible rows show a title; the photos arrive on the rows as round 144-pixel PNGs
    // (transparent corners, the edges between them inside the shape). The view lays out on its
    // own schedule after the rows arrive.
    QVERIFY(waitFor([&] { return !list->visibleRows().isEmpty(); }, 5000));
    const int top = list->visibleRows().first();
    QVERIFY(list->itemWidget(top));
    auto *title = list->itemWidget(top)->findChild<QLabel *>(QStringLiteral("title"));
    QVERIFY(title);
    QCOMPARE(title->text(), rowAt(top).value("title").toString());
    QString avatar;
    QVERIFY(waitFor(
        [&] {
            for (int i = 0; i < model->rowCount() && !avatar.startsWith(dataDir); ++i)
                avatar = rowAt(i).value("avatar_path").toString();
            return avatar.startsWith(dataDir + "/avatar-cache/");
        },
        20000));
    const QImage round(avatar);
    QCOMPARE(round.size(), QSize(144, 144));
    for (const QPoint p : {QPoint(0, 0), QPoint(143, 143), QPoint(72, 0), QPoint(0, 72)})
        QCOMPARE(qAlpha(round.pixel(p)), p.x() == p.y() ? 0 : 255);

    // Life goes on: some chat below the pinned ones gets a new message and
    // moves up; the list stays ordered.
    auto snapshot = [&] {
        QStringList ids;
        for (int i = 0; i < model->rowCount(); ++i)
            ids << rowAt(i).value("id").toString() + ':' + rowAt(i).value("last_date").toString();
        return ids;
    };
    const QStringList before = snapshot();
    QVERIFY2(waitFor([&] { return snapshot() != before; }, 30000), "no chat received a message");
    for (int i = 1; i < model->rowCount(); ++i)
        QVERIFY(ChatListModel::chatRowPrecedes(rowAt(i - 1), rowAt(i)));

    m_spike.reset();
    m_dir.reset();
}

QTEST_MAIN(TestDemoSession)
#include "test_demo_session.moc"
