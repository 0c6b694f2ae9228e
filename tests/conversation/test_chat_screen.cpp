#include "conversation/ui/chat_screen.h"
#include "platform/osicons.h"

#include <QLabel>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QToolButton>
#include <QtTest>

class TestChatScreen : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        init_osicons();
        qRegisterMetaType<VoiceRecordGesture::Touch>();
    }
    void header();
    void keyboard_data();
    void keyboard();
    void actionButtonReportsTouches();
};

void TestChatScreen::header()
{
    QTemporaryDir dir;
    ChatScreen c(1.0f, dir.path());
    auto *letter = c.findChild<QLabel *>(QStringLiteral("chat_avatar_letter"));
    // No photo yet: a round tile with the initial.
    c.setAvatar(42, QStringLiteral("émile"), QString());
    QVERIFY(!letter->isHidden());
    QCOMPARE(letter->text(), QStringLiteral("É"));
    // The photo replaces the tile and its letter.
    QImage img(64, 64, QImage::Format_RGB32);
    img.fill(Qt::blue);
    const QString photo = dir.filePath("photo.png");
    QVERIFY(img.save(photo));
    c.setAvatar(42, QStringLiteral("émile"), photo);
    QVERIFY(letter->isHidden());
    // A photo that does not load falls back to the tile.
    c.setAvatar(42, QStringLiteral("émile"), dir.filePath("missing.png"));
    QVERIFY(!letter->isHidden());
}

void TestChatScreen::keyboard_data()
{
    QTest::addColumn<QString>("state"); // bars shown before the key
    QTest::addColumn<int>("key");
    QTest::addColumn<int>("modifiers");
    QTest::addColumn<QString>("signal");
    QTest::addColumn<QString>("text"); // composer text after the key
    const auto row = [](const char *name, const char *state, int key, int mods, const char *signal,
                        const char *text) {
        QTest::newRow(name) << state << key << mods << signal << text;
    };
    row("Enter sends", "", Qt::Key_Return, 0, "sendRequested", "hi");
    row("Shift+Enter breaks the line", "", Qt::Key_Return, Qt::ShiftModifier, "composerTextChanged",
        "hi\n");
    row("Esc cancels the edit first", "edit reply selection", Qt::Key_Escape, 0, "editCancelled",
        "hi");
    row("Esc cancels a reply", "reply selection", Qt::Key_Escape, 0, "replyCancelled", "hi");
    row("Esc leaves the selection", "selection", Qt::Key_Escape, 0, "selectionClosed", "hi");
    row("Esc goes back", "", Qt::Key_Escape, 0, "backRequested", "hi");
    row("Up in text moves the cursor", "", Qt::Key_Up, 0, "", "hi");
    row("Up in an empty composer edits", "empty", Qt::Key_Up, 0, "editLastRequested", "");
}

void TestChatScreen::keyboard()
{
    QFETCH(QString, state);
    QFETCH(int, key);
    QFETCH(int, modifiers);
    QFETCH(QString, signal);
    QFETCH(QString, text);
    QTemporaryDir dir;
    ChatScreen c(1.0f, dir.path());
    c.resize(720, 1280);
    c.show();
    QVERIFY(QTest::qWaitForWindowExposed(&c));
    c.setEditPreview(state.contains("edit") ? QStringLiteral("Edit: x") : QString());
    c.setReplyPreview(state.contains("reply") ? QStringLiteral("Reply: y") : QString());
    c.setSelectionMode(state.contains("selection"));
    QList<QSignalSpy *> spies;
    const QMetaObject *mo = c.metaObject();
    for (int i = mo->methodOffset(); i < mo->methodCount(); ++i) {
        if (mo->method(i).methodType() == QMetaMethod::Signal)
            spies << new QSignalSpy(&c, mo->method(i));
    }
    // Text the program sets is not announced; only what the user types is.
    c.setComposerText(state.contains("empty") ? QString() : QStringLiteral("hi"));
    c.focusComposer();
    QTest::keyClick(c.findChild<QPlainTextEdit *>(), Qt::Key(key),
                    Qt::KeyboardModifiers(modifiers));
    QStringList fired;
    for (QSignalSpy *s : spies) {
        if (!s->isEmpty())
            fired << QString::fromLatin1(s->signal()).section('(', 0, 0);
    }
    qDeleteAll(spies);
    QCOMPARE(fired, signal.isEmpty() ? QStringList() : QStringList{signal});
    QCOMPARE(c.composerText(), text);
}

// The hold-to-record gesture reads these: a press, a drag and a release on the
// action button arrive as touches in window coordinates.
void TestChatScreen::actionButtonReportsTouches()
{
    QTemporaryDir dir;
    ChatScreen c(1.0f, dir.path());
    c.resize(720, 1280);
    c.show();
    QVERIFY(QTest::qWaitForWindowExposed(&c));
    auto *action = c.findChild<QToolButton *>(QStringLiteral("composer_action_button"));
    QSignalSpy touches(&c, &ChatScreen::actionTouched);
    const QPoint mid = action->rect().center();
    const QPoint up = mid - QPoint(0, 90);
    QTest::mousePress(action, Qt::LeftButton, {}, mid);
    // A drag as the window system delivers it to the pressed button.
    QMouseEvent drag(QEvent::MouseMove, up, action->mapTo(&c, up), action->mapToGlobal(up),
                     Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(action, &drag);
    QTest::mouseRelease(action, Qt::LeftButton, {}, up);
    QCOMPARE(touches.size(), 3);
    using Touch = VoiceRecordGesture::Touch;
    QCOMPARE(touches.at(0).at(0).value<Touch>(), Touch::Down);
    QCOMPARE(touches.at(2).at(0).value<Touch>(), Touch::Up);
    QCOMPARE(touches.at(0).at(1).toPointF().y() - touches.at(2).at(1).toPointF().y(), 90.0);
}

QTEST_MAIN(TestChatScreen)
#include "test_chat_screen.moc"
