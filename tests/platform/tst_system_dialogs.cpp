#include "platform/ui/system_dialogs.h"

#include <QCheckBox>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

namespace {

SystemUiDialog *makeDialog(const QString &kind, QWidget *host)
{
    if (kind == "dialog")
        return new SystemDialog("Delete", "Cancel", host);
    SystemUiDialog *d = nullptr;
    if (kind == "list") {
        auto *list = new SystemListDialog(host);
        list->setItems({"Reply", "Forward", "Copy"});
        d = list;
    } else {
        d = new SystemPrompt(host);
    }
    d->setConfirmLabel("OK");
    return d;
}

} // namespace

class TestSystemDialogs : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void answers_data();
    void answers();
    void finishesOncePerShow();
    void overlayCoversHost();
    void finishedHandlerMayDeleteIt();
    void checkBox();
    void singleChoice();
    void multipleChoice();
    void promptText();
    void withoutParentIsAWindow();

private:
    QWidget m_host;
};

void TestSystemDialogs::init()
{
    m_host.resize(720, 1280);
    m_host.show();
}

// Every way of answering, for every kind of dialog.
void TestSystemDialogs::answers_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("how");
    QTest::addColumn<int>("result");
    const QStringList rows{"dialog finishWith 2", "dialog confirm 2", "dialog cancel 3",
                           "dialog escape 3",     "dialog custom 4",  "list confirm 2",
                           "list escape 3",       "prompt enter 2",   "prompt custom 4"};
    for (const QString &r : rows)
        QTest::newRow(qPrintable(r))
            << r.section(' ', 0, 0) << r.section(' ', 1, 1) << r.section(' ', 2).toInt();
}

void TestSystemDialogs::answers()
{
    QFETCH(QString, kind);
    QFETCH(QString, how);
    QFETCH(int, result);
    QPointer<SystemUiDialog> d = makeDialog(kind, &m_host);
    d->setCustomLabel("More");
    QSignalSpy fin(d.data(), &SystemUiDialog::finished);
    d->show();
    QVERIFY(d->isVisible() && d->isOpen());
    if (how == "finishWith")
        d->finishWith(2);
    else if (auto *button = d->findChild<QPushButton *>("dialog_" + how))
        QTest::mouseClick(button, Qt::LeftButton);
    else if (how == "escape")
        QTest::keyClick(d.data(), Qt::Key_Escape);
    else if (how == "enter")
        QTest::keyClick(d->findChild<QLineEdit *>("dialog_input"), Qt::Key_Return);

    QCOMPARE(fin.count(), 1);
    QCOMPARE(fin.at(0).at(0).toInt(), result);
    QCOMPARE(d->result(), result);
    QVERIFY(!d->isVisible() && !d->isOpen());
    delete d;
}

// One answer per show; cancel() closes without any.
void TestSystemDialogs::finishesOncePerShow()
{
    SystemDialog d("OK", "Cancel", &m_host);
    QSignalSpy fin(&d, &SystemUiDialog::finished);
    d.show();
    d.finishWith(2);
    d.finishWith(3);
    d.show();
    d.finishWith(3);
    d.show();
    d.cancel();
    QVERIFY(!d.isVisible());
    d.finishWith(2);
    QCOMPARE(fin.count(), 2);
    QCOMPARE(fin.at(0).at(0).toInt(), 2);
    QCOMPARE(fin.at(1).at(0).toInt(), 3);
}

void TestSystemDialogs::overlayCoversHost()
{
    SystemDialog d("OK", "Cancel", &m_host);
    d.setBody("Body");
    d.show();
    QCOMPARE(d.geometry(), m_host.rect());
    QFrame *panel = d.findChild<QFrame *>("dialog_panel");
    QVERIFY(panel);
    QVERIFY(d.rect().contains(panel->geometry()));
    // Follows the host when it changes size.
    m_host.resize(400, 700);
    QCOMPARE(d.geometry(), QRect(0, 0, 400, 700));
    QVERIFY(d.rect().contains(panel->geometry()));
}

// Callers keep their context in properties and delete the dialog from
// its own finished handler.
void TestSystemDialogs::finishedHandlerMayDeleteIt()
{
    QPointer<SystemDialog> d = new SystemDialog("Delete", "Cancel", &m_host);
    d->setProperty("chat_id", qlonglong(-1001234567890));
    qlonglong chat = 0;
    connect(d.data(), &SystemUiDialog::finished, this, [&] {
        chat = sender()->property("chat_id").toLongLong();
        sender()->deleteLater();
    });
    d->show();
    d->finishWith(2);
    QCOMPARE(chat, qlonglong(-1001234567890));
    QTRY_VERIFY(d.isNull());
}

void TestSystemDialogs::checkBox()
{
    SystemDialog d("Delete", "Cancel", &m_host);
    auto *box = d.findChild<QCheckBox *>("dialog_remember");
    QVERIFY(box);
    d.show();
    QVERIFY(!box->isVisible());
    d.setRememberMeText("Delete for everyone");
    QVERIFY(box->isVisible());
    QVERIFY(!d.rememberMeChecked());
    QTest::mouseClick(box, Qt::LeftButton, Qt::NoModifier, QPoint(5, box->height() / 2));
    QVERIFY(d.rememberMeChecked());
}

// Out-of-range indices are dropped; in single choice only the first is kept
// and a tap on an item answers.
void TestSystemDialogs::singleChoice()
{
    SystemListDialog d(&m_host);
    d.setItems({"Reply", "Forward", "Copy"});
    d.setSelectedIndices({-1, 2, 1});
    QCOMPARE(d.selectedIndices(), QList<int>{2});
    QSignalSpy fin(&d, &SystemUiDialog::finished);
    d.show();
    QListWidget *list = d.listWidget();
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier,
                      list->visualItemRect(list->item(1)).center());
    QCOMPARE(fin.count(), 1);
    QCOMPARE(fin.at(0).at(0).toInt(), 2);
    QCOMPARE(d.selectedIndices(), QList<int>{1});
}

void TestSystemDialogs::multipleChoice()
{
    SystemListDialog d(&m_host);
    d.setSelectionMode(SystemListDialog::Multiple);
    d.setItems({"a", "b", "c", "d"});
    d.setSelectedIndices({0, 5, 3, 3, -3});
    QCOMPARE(d.selectedIndices(), (QList<int>{0, 3}));
    QSignalSpy fin(&d, &SystemUiDialog::finished);
    d.show();
    QListWidget *list = d.listWidget();
    // A tap on an item does not end a multiple-choice dialog.
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier,
                      list->visualItemRect(list->item(2)).center());
    QCOMPARE(fin.count(), 0);
    list->item(1)->setCheckState(Qt::Checked);
    list->item(3)->setCheckState(Qt::Unchecked);
    QTest::mouseClick(d.findChild<QPushButton *>("dialog_confirm"), Qt::LeftButton);
    QCOMPARE(fin.count(), 1);
    QCOMPARE(d.selectedIndices(), (QList<int>{0, 1}));
}

void TestSystemDialogs::promptText()
{
    SystemPrompt p(&m_host);
    QLineEdit *field = p.findChild<QLineEdit *>("dialog_input");
    p.setInputMode(SystemPrompt::Password);
    QCOMPARE(field->echoMode(), QLineEdit::Password);
    p.setInputMode(SystemPrompt::Default);
    QCOMPARE(field->echoMode(), QLineEdit::Normal);
    p.setInputText("old");
    QString got;
    connect(&p, &SystemUiDialog::finished, this, [&] { got = p.inputText(); });
    p.show();
    field->end(false);
    QTest::keyClicks(field, "er");
    QTest::keyClick(field, Qt::Key_Return);
    QCOMPARE(got, QStringLiteral("older"));
}

void TestSystemDialogs::withoutParentIsAWindow()
{
    SystemDialog d("OK", "Cancel");
    d.setTitle("Update available");
    QSignalSpy fin(&d, &SystemUiDialog::finished);
    d.show();
    QVERIFY(d.isWindow() && d.isVisible());
    QCOMPARE(d.windowTitle(), QStringLiteral("Update available"));
    QTest::mouseClick(d.findChild<QPushButton *>("dialog_confirm"), Qt::LeftButton);
    QCOMPARE(fin.count(), 1);
    QCOMPARE(fin.at(0).at(0).toInt(), 2);
}

QTEST_MAIN(TestSystemDialogs)
#include "tst_system_dialogs.moc"
