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
    if (kind == "dialog") {
        auto *d = new SystemDialog("Delete", "Cancel", host);
        d->setTitle("Delete");
        d->setBody("Delete this message?");
        return d;
    }
    if (kind == "list") {
        auto *d = new SystemListDialog(host);
        d->setTitle("Message");
        d->setItems({"Reply", "Forward", "Copy"});
        d->setConfirmLabel("OK");
        return d;
    }
    auto *d = new SystemPrompt(host);
    d->setTitle("Rename");
    d->setConfirmLabel("Save");
    return d;
}

} // namespace

class TestSystemDialogs : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void answers_data();
    void answers();
    void finishesOncePerShow();
    void cancelIsSilent();
    void overlayCoversHost();
    void dialogCarriesProperties();
    void checkBox();
    void singleChoiceTap_data();
    void singleChoiceTap();
    void multipleChoice();
    void selectedIndicesBounded_data();
    void selectedIndicesBounded();
    void promptText_data();
    void promptText();
    void withoutParentIsAWindow();

private:
    QWidget *m_host = nullptr;
};

void TestSystemDialogs::init()
{
    m_host = new QWidget;
    m_host->resize(720, 1280);
    m_host->show();
}

void TestSystemDialogs::cleanup()
{
    delete m_host;
    m_host = nullptr;
}

// Every way of answering, for every kind of dialog.
void TestSystemDialogs::answers_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("how");
    QTest::addColumn<int>("result");
    for (const char *kind : {"dialog", "list", "prompt"}) {
        QTest::addRow("%s finishWith 2", kind) << kind << "finishWith2" << 2;
        QTest::addRow("%s confirm button", kind) << kind << "confirm" << 2;
        QTest::addRow("%s cancel button", kind) << kind << "cancel" << 3;
        QTest::addRow("%s escape", kind) << kind << "escape" << 3;
        QTest::addRow("%s custom button", kind) << kind << "custom" << 4;
    }
    QTest::newRow("prompt enter") << "prompt"
                                  << "enter" << 2;
}

void TestSystemDialogs::answers()
{
    QFETCH(QString, kind);
    QFETCH(QString, how);
    QFETCH(int, result);
    QPointer<SystemUiDialog> d = makeDialog(kind, m_host);
    d->setCustomLabel("More");
    QSignalSpy fin(d.data(), &SystemUiDialog::finished);
    d->show();
    QVERIFY(d->isVisible());
    QVERIFY(d->isOpen());

    if (how == "finishWith2")
        d->finishWith(2);
    else if (how == "confirm")
        QTest::mouseClick(d->findChild<QPushButton *>("dialog_confirm"), Qt::LeftButton);
    else if (how == "cancel")
        QTest::mouseClick(d->findChild<QPushButton *>("dialog_cancel"), Qt::LeftButton);
    else if (how == "custom")
        QTest::mouseClick(d->findChild<QPushButton *>("dialog_custom"), Qt::LeftButton);
    else if (how == "escape")
        QTest::keyClick(d.data(), Qt::Key_Escape);
    else if (how == "enter")
        QTest::keyClick(d->findChild<QLineEdit *>("dialog_input"), Qt::Key_Return);

    QCOMPARE(fin.count(), 1);
    QCOMPARE(fin.at(0).at(0).toInt(), result);
    QCOMPARE(d->result(), result);
    QVERIFY(!d->isVisible());
    QVERIFY(!d->isOpen());
    delete d;
}

void TestSystemDialogs::finishesOncePerShow()
{
    SystemDialog d("OK", "Cancel", m_host);
    QSignalSpy fin(&d, &SystemUiDialog::finished);
    d.show();
    d.finishWith(2);
    d.finishWith(3);
    QCOMPARE(fin.count(), 1);
    d.show();
    d.finishWith(3);
    QCOMPARE(fin.count(), 2);
    QCOMPARE(fin.at(1).at(0).toInt(), 3);
}

void TestSystemDialogs::cancelIsSilent()
{
    SystemDialog d("OK", "Cancel", m_host);
    QSignalSpy fin(&d, &SystemUiDialog::finished);
    d.show();
    d.cancel();
    QVERIFY(!d.isVisible());
    d.finishWith(2);
    QCOMPARE(fin.count(), 0);
}

void TestSystemDialogs::overlayCoversHost()
{
    SystemDialog d("OK", "Cancel", m_host);
    d.setBody("Body");
    d.show();
    QCOMPARE(d.geometry(), m_host->rect());
    QFrame *panel = d.findChild<QFrame *>("dialog_panel");
    QVERIFY(panel);
    QVERIFY(d.rect().contains(panel->geometry()));
    // Follows the host when it changes size.
    m_host->resize(400, 700);
    QCOMPARE(d.geometry(), QRect(0, 0, 400, 700));
    QVERIFY(d.rect().contains(panel->geometry()));
}

void TestSystemDialogs::dialogCarriesProperties()
{
    QPointer<SystemDialog> d = new SystemDialog("Delete", "Cancel", m_host);
    d->setProperty("chat_action", "leave");
    d->setProperty("chat_id", qlonglong(-1001234567890));
    QString action;
    qlonglong chat = 0;
    connect(d.data(), &SystemUiDialog::finished, this, [&](int result) {
        auto *sender = qobject_cast<SystemDialog *>(QObject::sender());
        QVERIFY(sender);
        if (result == 2) {
            action = sender->property("chat_action").toString();
            chat = sender->property("chat_id").toLongLong();
        }
        sender->deleteLater();
    });
    d->show();
    d->finishWith(2);
    QCOMPARE(action, QStringLiteral("leave"));
    QCOMPARE(chat, qlonglong(-1001234567890));
    QTRY_VERIFY(d.isNull());
}

void TestSystemDialogs::checkBox()
{
    SystemDialog d("Delete", "Cancel", m_host);
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

void TestSystemDialogs::singleChoiceTap_data()
{
    QTest::addColumn<int>("row");
    QTest::newRow("first") << 0;
    QTest::newRow("last") << 2;
}

void TestSystemDialogs::singleChoiceTap()
{
    QFETCH(int, row);
    SystemListDialog d(m_host);
    d.setItems({"Reply", "Forward", "Copy"});
    QSignalSpy fin(&d, &SystemUiDialog::finished);
    d.show();
    QListWidget *list = d.listWidget();
    const QRect r = list->visualItemRect(list->item(row));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier, r.center());
    QCOMPARE(fin.count(), 1);
    QCOMPARE(fin.at(0).at(0).toInt(), 2);
    QCOMPARE(d.selectedIndices(), QList<int>{row});
}

void TestSystemDialogs::multipleChoice()
{
    SystemListDialog d(m_host);
    d.setSelectionMode(SystemListDialog::Multiple);
    d.setItems({"a", "b", "c", "d"});
    d.setSelectedIndices({3});
    QSignalSpy fin(&d, &SystemUiDialog::finished);
    d.show();
    QListWidget *list = d.listWidget();
    // A tap on an item does not end a multiple-choice dialog.
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier,
                      list->visualItemRect(list->item(0)).center());
    QCOMPARE(fin.count(), 0);
    list->item(1)->setCheckState(Qt::Checked);
    list->item(3)->setCheckState(Qt::Unchecked);
    QTest::mouseClick(d.findChild<QPushButton *>("dialog_confirm"), Qt::LeftButton);
    QCOMPARE(fin.count(), 1);
    QCOMPARE(d.selectedIndices(), (QList<int>{1}));
}

void TestSystemDialogs::selectedIndicesBounded_data()
{
    QTest::addColumn<bool>("multiple");
    QTest::addColumn<QList<int>>("given");
    QTest::addColumn<QList<int>>("kept");
    QTest::newRow("single keeps first valid") << false << QList<int>{-1, 2, 1} << QList<int>{2};
    QTest::newRow("multiple drops out of range")
        << true << QList<int>{0, 5, 2, 2, -3} << QList<int>{0, 2};
}

void TestSystemDialogs::selectedIndicesBounded()
{
    QFETCH(bool, multiple);
    QFETCH(QList<int>, given);
    QFETCH(QList<int>, kept);
    SystemListDialog d(m_host);
    d.setItems({"a", "b", "c"});
    if (multiple)
        d.setSelectionMode(SystemListDialog::Multiple);
    d.setSelectedIndices(given);
    QCOMPARE(d.selectedIndices(), kept);
    d.show();
    d.finishWith(2);
    QCOMPARE(d.selectedIndices(), kept);
}

void TestSystemDialogs::promptText_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QString>("initial");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<int>("echo");
    QTest::newRow("default") << int(SystemPrompt::Default) << "old"
                             << "er" << int(QLineEdit::Normal);
    QTest::newRow("password") << int(SystemPrompt::Password) << ""
                              << "s3cret" << int(QLineEdit::Password);
}

void TestSystemDialogs::promptText()
{
    QFETCH(int, mode);
    QFETCH(QString, initial);
    QFETCH(QString, typed);
    QFETCH(int, echo);
    SystemPrompt p(m_host);
    p.setInputMode(SystemPrompt::InputMode(mode));
    p.setInputText(initial);
    QString got;
    connect(&p, &SystemUiDialog::finished, this, [&](int) { got = p.inputText(); });
    p.show();
    QLineEdit *field = p.findChild<QLineEdit *>("dialog_input");
    QCOMPARE(int(field->echoMode()), echo);
    field->end(false);
    QTest::keyClicks(field, typed);
    QTest::keyClick(field, Qt::Key_Return);
    QCOMPARE(got, initial + typed);
}

void TestSystemDialogs::withoutParentIsAWindow()
{
    SystemDialog d("OK", "Cancel");
    d.setTitle("Update available");
    QSignalSpy fin(&d, &SystemUiDialog::finished);
    d.show();
    QVERIFY(d.isWindow());
    QVERIFY(d.isVisible());
    QCOMPARE(d.windowTitle(), QStringLiteral("Update available"));
    QTest::mouseClick(d.findChild<QPushButton *>("dialog_confirm"), Qt::LeftButton);
    QCOMPARE(fin.count(), 1);
    QCOMPARE(fin.at(0).at(0).toInt(), 2);
}

QTEST_MAIN(TestSystemDialogs)
#include "tst_system_dialogs.moc"
