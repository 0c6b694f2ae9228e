#include "platform/ui/system_dialogs.h"

#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

class TestSystemDialogs : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        m_host.resize(720, 1280);
        m_host.show();
    }

    // Every way a person answers, for every kind of dialog (the controller's
    // test answers with finishWith).
    void answers_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("how");
        QTest::addColumn<int>("result");
        for (const QString r : {"dialog confirm 2", "dialog cancel 3", "dialog escape 3",
                                "dialog custom 4", "prompt enter 2"})
            QTest::newRow(qPrintable(r))
                << r.section(' ', 0, 0) << r.section(' ', 1, 1) << r.section(' ', 2).toInt();
    }

    void answers()
    {
        QFETCH(QString, kind);
        QFETCH(QString, how);
        QFETCH(int, result);
        QPointer<SystemUiDialog> d;
        if (kind == "prompt")
            d = new SystemPrompt(&m_host);
        else
            d = new SystemDialog("OK", "Cancel", &m_host);
        d->setCustomLabel("More");
        // A prompt's typed text comes back whole, even in password mode.
        auto *prompt = qobject_cast<SystemPrompt *>(d);
        if (prompt) {
            prompt->setInputMode(SystemPrompt::Password);
            QCOMPARE(prompt->inputField()->echoMode(), QLineEdit::Password);
            prompt->setInputText("old");
        }
        // Callers delete the dialog from its own finished handler.
        QList<int> got;
        QString typed;
        connect(d.data(), &SystemUiDialog::finished, this, [&](int r) {
            got << r;
            typed = prompt ? prompt->inputText() : QString();
            sender()->deleteLater();
        });
        d->show();
        if (auto *button = d->findChild<QPushButton *>("dialog_" + how))
            QTest::mouseClick(button, Qt::LeftButton);
        else if (how == "escape")
            QTest::keyClick(d.data(), Qt::Key_Escape);
        else if (how == "enter") {
            prompt->inputField()->end(false);
            QTest::keyClicks(prompt->inputField(), "er");
            QTest::keyClick(prompt->inputField(), Qt::Key_Return);
        }
        QCOMPARE(got, QList<int>{result});
        QCOMPARE(typed, QString(prompt ? "older" : ""));
        QCOMPARE(d->result(), result);
        QVERIFY(!d->isVisible() && !d->isOpen());
        QTRY_VERIFY(d.isNull());
    }

    // One answer per show; cancel() closes without any.
    void finishesOncePerShow()
    {
        SystemDialog d("OK", "Cancel", &m_host);
        QSignalSpy fin(&d, &SystemUiDialog::finished);
        d.show();
        d.finishWith(2);
        d.finishWith(3);
        d.show();
        d.cancel();
        d.finishWith(3);
        QCOMPARE(fin, QList<QVariantList>{{2}});
    }

    // A dimmed overlay over the whole host, following its size, with the
    // panel inside.
    void overlayFollowsHost()
    {
        SystemDialog d("Delete", "Cancel", &m_host);
        d.show();
        m_host.resize(400, 700);
        QCOMPARE(d.geometry(), QRect(0, 0, 400, 700));
        QVERIFY(d.rect().contains(d.findChild<QFrame *>("dialog_panel")->geometry()));
    }

    void listChoice_data()
    {
        QTest::addColumn<bool>("multiple");
        QTest::newRow("single") << false;
        QTest::newRow("multiple") << true;
    }

    // Out-of-range indices are dropped; single choice keeps only the first
    // and a tap on an item answers; multiple choice answers by confirm.
    void listChoice()
    {
        QFETCH(bool, multiple);
        SystemListDialog d(&m_host);
        d.setSelectionMode(multiple ? SystemListDialog::Multiple : SystemListDialog::Single);
        d.setItems({"a", "b", "c", "d"});
        d.setSelectedIndices({-1, 0, 5, 3, 3, -3});
        QCOMPARE(d.selectedIndices(), (multiple ? QList<int>{0, 3} : QList<int>{0}));
        QSignalSpy fin(&d, &SystemUiDialog::finished);
        d.show();
        QListWidget *list = d.listWidget();
        QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier,
                          list->visualItemRect(list->item(2)).center());
        QCOMPARE(fin.count(), multiple ? 0 : 1);
        if (multiple) {
            list->item(1)->setCheckState(Qt::Checked);
            list->item(3)->setCheckState(Qt::Unchecked);
            QTest::mouseClick(d.findChild<QPushButton *>("dialog_confirm"), Qt::LeftButton);
        }
        QCOMPARE(fin, QList<QVariantList>{{2}});
        QCOMPARE(d.selectedIndices(), (multiple ? QList<int>{0, 1} : QList<int>{2}));
    }

private:
    QWidget m_host;
};

QTEST_MAIN(TestSystemDialogs)
#include "test_system_dialogs.moc"
