#include "chats/chat_list_model.h"
#include "common/test_util.h"
#include "conversation/chat_session.h"
#include "conversation/composer.h"
#include "conversation/message_row_model.h"
#include "conversation_test_util.h"
#include "platform/array_data_model.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// Chat 5 open with a few messages: 10 incoming text, 11 own text, 12 own
// photo, 13 own text still being sent, 14 own message without a type.
struct Harness : OpenChatModels
{
    QVariantMap info;
    Composer composer{&session, [this](qint64) { return info; }};
    QStringList lines, toasts;

    explicit Harness(bool open = true)
    {
        QObject::connect(&composer, &Composer::sendLineRequested,
                         [this](const QString &l) { lines.append(l); });
        QObject::connect(&messages, &MessageRowModel::sendLineRequested,
                         [this](const QString &l) { lines.append(l); });
        QObject::connect(&composer, &Composer::toastRequested,
                         [this](const QString &t) { toasts.append(t); });
        if (!open)
            return;
        session.openChatFromRow(test_util::kv("id=5 chat_type=private"));
        lines.clear();
        feed("message_new chat_id=5 id=10 text=hello outgoing=false content_type=messageText;"
             "message_new chat_id=5 id=11 text=~~mine~ outgoing=true content_type=messageText;"
             "message_new chat_id=5 id=12 text=caption outgoing=true content_type=messagePhoto "
             "media_type=photo; message_new chat_id=5 id=13 text=wait outgoing=true "
             "content_type=messageText sending_state=pending;"
             "message_new chat_id=5 id=14 text=untyped outgoing=true");
    }
};

QString base64(const QString &text)
{
    return QString::fromLatin1(text.toUtf8().toBase64());
}

} // namespace

class TestComposer : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void sending_data()
    {
        QTest::addColumn<QString>("setup"); // "reply N", "edit N", "closed" or empty
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("expectedStart"); // the line before its text; empty: none
        QTest::addColumn<QString>("toast");
        auto row = [](const char *name, const char *setup, const QString &typed, const char *start,
                      const char *toast) {
            QTest::newRow(name) << setup << typed << start << QString::fromUtf8(toast);
        };
        row("blank sends nothing", "", " \n ", "", "");
        row("reply id in the middle", "reply 10", "hi", "send64 5 10", "");
        row("line breaks and other scripts stay in one token", "",
            "a\r\nб\n\n👍🏽 " + QString(3000, QLatin1Char('z')), "send64 5", "");
        row("edit", "edit 11", "new text", "edit64 5 11", "Editing…");
        row("blank edit", "edit 11", "   ", "", "Message can't be empty");
        row("no chat open", "closed", "hello", "", "");
    }
    void sending()
    {
        QFETCH(QString, setup);
        QFETCH(QString, typed);
        QFETCH(QString, expectedStart);
        QFETCH(QString, toast);
        Harness h;
        QSignalSpy scrolled(&h.session, &ChatSession::scrollToEndRequested);
        const QStringList s = setup.split(QLatin1Char(' '));
        h.composer.setText(QStringLiteral("draft"));
        if (s.first() == QLatin1String("reply")) {
            h.composer.setReplyToMessageId(s.value(1).toLongLong());
        } else if (s.first() == QLatin1String("edit")) {
            h.composer.startEditMessage(s.value(1).toLongLong());
        } else if (s.first() == QLatin1String("closed")) {
            h.session.onBackToChats();
            h.lines.clear();
        }
        h.composer.setText(typed);
        h.composer.onSendMessage();
        QCOMPARE(h.toasts.join(QLatin1Char('|')), toast);
        if (expectedStart.isEmpty()) {
            QVERIFY2(h.lines.isEmpty(), qPrintable(h.lines.join(QLatin1Char('|'))));
            return;
        }
        QCOMPARE(h.lines, QStringList{expectedStart + QLatin1Char(' ') + base64(typed.trimmed())});
        // After a send the field, the bars and the list are ready for the next.
        const bool edit = setup.startsWith(QLatin1String("edit"));
        QVERIFY(!h.composer.isReplyBarVisible() && !h.composer.isEditBarVisible());
        QCOMPARE(h.composer.text(), edit ? QStringLiteral("draft") : QString());
        QCOMPARE(scrolled.count(), edit ? 0 : 1);
    }
    void barText_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        const QString ninety(90, QLatin1Char('x'));
        const QString ell = QString::fromUtf8("…");
        QTest::newRow("90 characters stay whole") << ninety << ninety;
        QTest::newRow("200 characters") << QString(200, QLatin1Char('x')) << ninety + ell;
        const QString smiles = QString::fromUtf8("😀").repeated(90);
        QTest::newRow("surrogate pairs count once") << smiles << smiles;
        // Where the cut falls between characters: test_chat_list_model's cuts.
    }
    void barText()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        Harness h;
        h.feed("message_new chat_id=5 id=20 text=" + text);
        h.composer.setReplyToMessageId(20);
        QCOMPARE(h.composer.replyBarText(), QStringLiteral("Reply: ") + expected);
    }
    void editing_data()
    {
        QTest::addColumn<qint64>("id");
        QTest::addColumn<bool>("editable");
        QTest::newRow("own text") << qint64(11) << true;
        QTest::newRow("own message without a type") << qint64(14) << true;
        QTest::newRow("someone else's") << qint64(10) << false;
        QTest::newRow("photo caption") << qint64(12) << false;
        QTest::newRow("still being sent") << qint64(13) << false;
    }
    void editing()
    {
        QFETCH(qint64, id);
        QFETCH(bool, editable);
        Harness h;
        QSignalSpy focus(&h.composer, &Composer::focusRequested);
        h.composer.setText(QStringLiteral("draft"));
        h.composer.setReplyToMessageId(10);
        h.composer.startEditMessage(id);
        if (!editable) {
            QCOMPARE(h.toasts, QStringList{QStringLiteral("Can't edit this message")});
            QCOMPARE(h.composer.editingMessageId(), 0);
            return;
        }
        const QString text = h.messages.rowAt(h.messages.findMessageRowIndexById(id))
                                 .value(QStringLiteral("text"))
                                 .toString();
        QCOMPARE(h.composer.editingMessageId(), id);
        QCOMPARE(h.composer.text(), text);
        QCOMPARE(h.composer.editBarText(), QStringLiteral("Edit: ") + text.trimmed());
        QCOMPARE(h.composer.replyToMessageId(), 0);
        QVERIFY(focus.wait());
        // A second edit keeps the first draft; cancelling puts it back.
        h.composer.startEditMessage(11);
        h.composer.clearEdit(true);
        QCOMPARE(h.composer.text(), QStringLiteral("draft"));
        QVERIFY(!h.composer.isEditBarVisible());
    }
    void visibility_data()
    {
        QTest::addColumn<QString>("chatType");
        QTest::addColumn<bool>("inList");
        QTest::addColumn<QString>("canSend"); // empty: no chat info yet
        QTest::addColumn<bool>("visible");
        QTest::newRow("channel is read-only") << "channel" << true << "" << false;
        QTest::newRow("channel that lets us post") << "channel" << true << "true" << true;
        QTest::newRow("group member") << "supergroup" << true << "" << true;
        QTest::newRow("group left") << "basic_group" << false << "" << false;
        QTest::newRow("private") << "private" << false << "" << true;
        QTest::newRow("private that forbids sending") << "private" << true << "false" << false;
    }
    void visibility()
    {
        QFETCH(QString, chatType);
        QFETCH(bool, inList);
        QFETCH(QString, canSend);
        QFETCH(bool, visible);
        Harness h(false);
        QSignalSpy changed(&h.composer, &Composer::composerVisibleChanged);
        const QVariantMap row{{QStringLiteral("id"), QStringLiteral("8")},
                              {QStringLiteral("chat_type"), chatType},
                              {QStringLiteral("order"), QStringLiteral("1")}};
        if (inList)
            h.chats.upsertChatRow(row);
        h.session.openChatFromRow(row);
        if (!canSend.isEmpty()) {
            h.info.insert(QStringLiteral("can_send"), canSend == QLatin1String("true"));
            h.composer.updateComposerVisibilityForCurrentChat();
        }
        QCOMPARE(h.composer.isComposerVisible(), visible);
        QCOMPARE(changed.isEmpty() ? false : changed.last().at(0).toBool(), visible);
        h.session.onBackToChats();
        QVERIFY(!h.composer.isComposerVisible());
    }
    void replyFromSelection()
    {
        Harness h;
        QSignalSpy focus(&h.composer, &Composer::focusRequested);
        // None or several selected: refused at once.
        h.composer.onSelectionReplyTapped({});
        h.composer.onSelectionReplyTapped({10, 11});
        QCOMPARE(h.toasts.size(), 2);
        // Unknown permissions are asked for first; refused by the flag or by an error, no reply.
        h.composer.onSelectionReplyTapped({10});
        h.feed("message_properties chat_id=5 id=10 can_be_replied=false");
        h.composer.onSelectionReplyTapped({11});
        h.feed("message_properties_error chat_id=5 id=11 code=1");
        QCOMPARE(h.composer.replyToMessageId(), 0);
        h.composer.onSelectionReplyTapped({14});
        h.feed("message_properties chat_id=5 id=14 can_be_replied=true");
        QCOMPARE(h.lines, (QStringList{"props 5 10", "props 5 11", "props 5 14"}));
        QCOMPARE(h.composer.replyToMessageId(), 14);
        QVERIFY(focus.wait());
        // Deleting the targets clears the bars; a reply does not end an edit.
        h.composer.startEditMessage(11);
        h.composer.setReplyToMessageId(10);
        h.feed("messages_deleted chat_id=5 message_ids=12");
        QVERIFY(h.composer.isEditBarVisible() && h.composer.isReplyBarVisible());
        h.feed("messages_deleted chat_id=5 message_ids=10,11");
        QVERIFY(!h.composer.isEditBarVisible() && !h.composer.isReplyBarVisible());
    }
    void attachingAFile()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("doc one\n.txt"));
        QVERIFY(test_util::writeFile(path, QByteArray()));
        Harness h;
        QSignalSpy picker(&h.composer, &Composer::filePickerRequested);
        h.composer.onAttachTap();
        // Nothing picked or a missing file: nothing goes; a file URL or a path does.
        h.composer.onAttachFileSelected({});
        h.composer.onAttachFileSelected({dir.filePath(QStringLiteral("missing"))});
        h.composer.onAttachFileSelected({QStringLiteral("file://") + path});
        h.composer.setReplyToMessageId(10);
        h.composer.onAttachFileSelected({path});
        QCOMPARE(h.lines,
                 (QStringList{"sendfile64 5 " + base64(path), "sendfile64 5 10 " + base64(path)}));
        // No file while editing.
        h.composer.startEditMessage(11);
        h.composer.onAttachTap();
        QCOMPARE(picker.count(), 1);
    }
};

QTEST_GUILESS_MAIN(TestComposer)
#include "test_composer.moc"
