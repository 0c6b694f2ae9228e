#include "common/test_util.h"
#include "conversation/message_text.h"
#include "conversation/ui/message_item_provider.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"

#include <QLabel>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// A fractional scale factor, set before the application starts: round shapes
// must carry the screen's pixel ratio, drawn at it rather than stretched.
const bool kScaled = qputenv("QT_SCALE_FACTOR", "1.5");

using Row = QVariantMap;

template<typename T = QWidget>
T *child(QWidget *item, const char *name)
{
    return item->findChild<T *>(QLatin1String(name));
}

Row msg(qint64 id, const QString &text, bool out, const QVariantMap &extra = {})
{
    Row r{{"id", QString::number(id)},
          {"date", QString::number(1700000000 + id * 60)},
          {"text", text},
          {"outgoing", out ? "true" : "false"}};
    r.insert(extra);
    return r;
}

// A list of message rows drawn by the provider, as the chat screen shows it.
struct Chat
{
    QTemporaryDir dir;
    ArrayDataModel model;
    ListView view;
    MessageItemProvider provider{dir.filePath("ui-cache")};

    explicit Chat(const QList<Row> &rows)
    {
        model.append(rows);
        view.resize(720, 1200);
        view.setListItemProvider(&provider);
        view.setDataModel(&model);
        view.show();
        view.layoutNow();
    }
    QWidget *item(int row) { return view.itemWidget(row); }
    // After a view property changed, as the controller does it.
    void refresh()
    {
        view.updateVisibleItems();
        view.layoutNow();
    }
    QPoint at(int row, const char *name)
    {
        QWidget *w = child(item(row), name);
        return w->mapTo(view.viewport(), w->rect().center());
    }
    // Mouse events through the window, as the window system delivers them: to
    // the widget under the pointer first.
    void press(const QPoint &p, Qt::MouseButton b = Qt::LeftButton, Qt::KeyboardModifiers mods = {})
    {
        QTest::mousePress(view.windowHandle(), b, mods, view.viewport()->mapTo(&view, p));
    }
    void release(const QPoint &p)
    {
        QTest::mouseRelease(view.windowHandle(), Qt::LeftButton, {},
                            view.viewport()->mapTo(&view, p));
    }
    void click(const QPoint &p, Qt::KeyboardModifiers mods = {})
    {
        QTest::mouseClick(view.windowHandle(), Qt::LeftButton, mods,
                          view.viewport()->mapTo(&view, p));
    }
};

} // namespace

class TestMessageItemProvider : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void texts_data()
    {
        QTest::addColumn<QString>("got");
        QTest::addColumn<QString>("want");
        QTest::newRow("duration 0") << format_duration_mmss(0) << "";
        QTest::newRow("duration 5") << format_duration_mmss(5) << "0:05";
        QTest::newRow("escape once") << escape_html("a<b>&\"'") << "a&lt;b&gt;&amp;&quot;&#39;";
        QTest::newRow("line ends") << escape_html_with_br("a\r\nb\rc\nd") << "a<br/>b<br/>c<br/>d";
        QTest::newRow("links of every kind")
            << message_rich_text("see https://a.org/x?q=1&r=2 or www.b.org, t.me/vexa\nbye http:")
            << "see <a href=\"https://a.org/x?q=1&amp;r=2\">https://a.org/x?q=1&amp;r=2</a> or "
               "<a href=\"www.b.org,\">www.b.org,</a> <a href=\"t.me/vexa\">t.me/vexa</a><br/>bye "
               "http:";
        QTest::newRow("emoji runs in the emoji font, tags left alone")
            << wrap_emoji_runs(QString::fromUtf8("\U0001F44D\U0001F3FD\u200D x<a href=\"\u2764\">"),
                               "E")
            << QString::fromUtf8(
                   "<span style=\"font-family:'E'\">\U0001F44D\U0001F3FD\u200D</span> x<a "
                   "href=\"\u2764\">");
        QTest::newRow("file size") << format_file_size(2048) << "2.0 KB";
        // Delivery ticks; 7 is the read mark.
        const auto tick = [](qint64 id, const char *fields, bool out = true) {
            return message_status_icon(msg(id, "x", out, test_util::kv(QString(fields))), 7);
        };
        const QString icon = QStringLiteral("assets/osicons/ii_bbm_");
        QTest::newRow("incoming") << tick(5, "", false) << "";
        QTest::newRow("no network")
            << tick(5, "sending_state=waiting_for_network") << icon + "ping.png";
        QTest::newRow("pending") << tick(5, "sending_state=pending") << icon + "out_pending.png";
        QTest::newRow("sent") << tick(5, "sending_state=pending|send_acked=true")
                              << icon + "out_sent.png";
        QTest::newRow("failed") << tick(5, "sending_state=failed") << icon + "out_failed.png";
        QTest::newRow("read") << tick(7, "") << icon + "out_read.png";
        QTest::newRow("delivered") << tick(8, "") << icon + "out_delivered.png";
    }

    void texts()
    {
        QFETCH(QString, got);
        QFETCH(QString, want);
        QCOMPARE(got, want);
    }

    void bubbleSidesAndSenders()
    {
        const QVariantMap ann{
            {"sender_user_id", "11"}, {"sender_name", "Ann"}, {"sender_indent", "true"}};
        QVariantMap first = ann;
        first.insert("sender_show", "true");
        QVariantMap next = ann;
        next.insert("sender_show", "false");
        Chat chat(
            {msg(1, "hello", false, first), msg(2, "again", false, next), msg(3, "mine", true),
             msg(4, "again", false, next),
             msg(5, QString(400, 'w').replace(QRegularExpression("w{9}"), "wwww wwww "), false)});
        const int mid = chat.view.viewport()->width() / 2;
        const auto bubble = [&](int row) {
            QWidget *b = child(chat.item(row), "msg_bubble");
            return QRect(b->mapTo(chat.view.viewport(), QPoint()), b->size());
        };
        const auto shown = [&](int row, const char *name) {
            return child(chat.item(row), name)->isVisibleTo(chat.item(row));
        };
        QVERIFY(bubble(0).right() < mid && bubble(2).left() > mid);
        // Name and avatar on the first row of the run only; the run stays aligned.
        QVERIFY(shown(0, "msg_sender_in") && shown(0, "msg_avatar"));
        QVERIFY(!shown(1, "msg_sender_in") && !shown(1, "msg_avatar"));
        QCOMPARE(bubble(1).left(), bubble(0).left());
        QCOMPARE(child<QLabel>(chat.item(0), "msg_avatar_img")
                     ->pixmap(Qt::ReturnByValue)
                     .devicePixelRatio(),
                 1.5);
        // Bubbles of one size and colour share one background file.
        const auto bg = [&](int row) {
            return child(chat.item(row), "msg_bubble")->property("bubble_bg_path").toString();
        };
        const QString dark = bg(1);
        QVERIFY(QFileInfo(dark).isFile() && bg(3) == dark);
        // The theme changes the colour, and so the file. Own rows show their
        // tick next to the time, up to the read mark the view holds.
        chat.view.setProperty("ui_dark_theme", false);
        chat.view.setProperty("chat_last_read_outbox_message_id", 3);
        chat.refresh();
        QTRY_VERIFY(QFileInfo(bg(1)).isFile() && bg(1) != dark);
        auto *tick = child<QLabel>(chat.item(2), "msg_status_inline");
        QCOMPARE(tick->property("image_path").toString(),
                 message_status_icon(chat.model.value(2), 3));
        QVERIFY(!tick->pixmap(Qt::ReturnByValue).isNull() && !shown(0, "msg_status_inline"));
        // Long text wraps inside a bubble that keeps to its share of the row,
        // and the row is as tall as its bubble.
        QVERIFY(bubble(4).width() <= chat.view.viewport()->width() * 0.8);
        QVERIFY(bubble(4).bottom() <=
                chat.item(4)->mapTo(chat.view.viewport(), QPoint(0, chat.item(4)->height())).y());
    }

    void media()
    {
        QTemporaryDir files;
        QImage img(400, 200, QImage::Format_RGB32);
        img.fill(Qt::red);
        const QString thumb = files.filePath("thumb.png");
        QVERIFY(img.save(thumb));
        const auto row = [](qint64 id, const QString &fields) {
            return msg(id, "", id % 2 == 0, test_util::kv(fields));
        };
        Chat chat({row(1, "media_type=photo|media_w=1200|media_h=600|media_thumb_file_id=70|"
                          "media_thumb_path=" +
                              thumb),
                   row(2, "media_type=video|media_w=600|media_h=1200|media_thumb_file_id=71"),
                   row(3, "media_type=file|media_name=report.pdf|media_file_id=72"),
                   row(4, "media_type=voice|media_duration=7|media_file_id=73")});
        QSignalSpy downloads(&chat.provider, &MessageItemProvider::downloadRequested);
        chat.refresh();
        // Photos at their aspect ratio; a missing thumbnail is asked for.
        const QSize photo = child(chat.item(0), "msg_media_box")->size();
        QCOMPARE(photo.width(), photo.height() * 2);
        QVERIFY(!child<QLabel>(chat.item(0), "msg_media_img")->pixmap(Qt::ReturnByValue).isNull());
        QCOMPARE(downloads, (QList<QVariantList>{{qint64(71)}}));
        QCOMPARE(child<QLabel>(chat.item(2), "msg_file_label")->text(),
                 QStringLiteral("report.pdf"));
        QCOMPARE(child<QLabel>(chat.item(3), "msg_voice_dur")->text(), format_duration_mmss(7));
    }

    void touches_data()
    {
        QTest::addColumn<Row>("row");
        QTest::addColumn<QString>("control");
        QTest::addColumn<QString>("fired"); // the signals the tap raised, with their arguments
        const auto row = [](const char *name, const char *text, const char *fields,
                            const char *control, const char *fired) {
            QTest::newRow(name) << msg(5, text, false, test_util::kv(QString(fields))) << control
                                << fired;
        };
        const char *file = "media_type=file media_name=a.txt media_file_id=9 media_path=/f/a.txt";
        row("reply box", "ok", "reply_to_message_id=3 reply_preview=hi", "msg_reply_box",
            "replyPreviewTapped 3");
        row("photo", "", "media_type=photo media_file_id=8 media_w=10 media_h=20", "msg_media_box",
            "mediaTapped  8 10 20");
        row("video", "", "media_type=video media_file_id=8", "msg_media_box", "videoTapped  8 0 0");
        row("file icon", "", file, "msg_file_icon_box", "fileIconTapped /f/a.txt 9 a.txt");
        row("file name", "", file, "msg_file_label", "fileTapped /f/a.txt 9 a.txt");
        row("voice", "", "media_type=voice media_file_id=4", "msg_voice_icon_box",
            "voiceTapped  4");
        row("a link in the text", "https://vexa.example", "", "msg_text_inline",
            "webLinkActivated https://vexa.example");
        row("plain text is no link", "just words here", "", "msg_text_inline", "");
        row("a message id below 1", "https://vexa.example", "id=0", "msg_text_inline", "");
        Row chip = msg(5, "ok", false,
                       {{"reactions", QVariantList{QVariantMap{{"emoji", "👍"}, {"count", 2}}}}});
        QTest::newRow("reaction chip")
            << chip << "msg_reaction_chip_lbl" << QString::fromUtf8("reactionChipTapped 5 👍");
    }

    void touches()
    {
        QFETCH(Row, row);
        QFETCH(QString, control);
        QFETCH(QString, fired);
        Chat chat({row});
        QList<QSignalSpy *> spies;
        const QMetaObject *mo = chat.provider.metaObject();
        for (int i = mo->methodOffset(); i < mo->methodCount(); ++i) {
            if (mo->method(i).methodType() == QMetaMethod::Signal)
                spies << new QSignalSpy(&chat.provider, mo->method(i));
        }
        chat.click(chat.at(0, qPrintable(control)));
        QStringList got;
        for (QSignalSpy *s : spies) {
            for (const QVariantList &args : qAsConst(*s)) {
                got << QString::fromLatin1(s->signal()).section('(', 0, 0);
                for (const QVariant &a : args)
                    got.last() += ' ' + a.toString();
            }
        }
        qDeleteAll(spies);
        QCOMPARE(got.join('|'), fired);
    }

    void longPressAndSelection()
    {
        Chat chat({msg(5, "hold me", false)});
        QSignalSpy longPress(&chat.provider, &MessageItemProvider::messageLongPressed);
        QSignalSpy toggle(&chat.provider, &MessageItemProvider::messageSelectionToggleRequested);
        QSignalSpy menu(&chat.provider, &MessageItemProvider::messageMenuRequested);
        const QPoint p = chat.at(0, "msg_text_inline");
        chat.press(p);
        QVERIFY(longPress.wait());
        QCOMPARE(longPress.takeFirst(), QVariantList{qint64(5)});
        chat.release(p); // no tap: the toggle below is the only one
        // The secondary button asks for the menu at once.
        chat.press(p, Qt::RightButton);
        QCOMPARE(menu.count(), 1);
        // Ctrl and Shift clicks select at once, without waiting for a long press.
        QSignalSpy select(&chat.provider, &MessageItemProvider::messageSelectClicked);
        chat.click(p, Qt::ControlModifier);
        chat.click(p, Qt::ShiftModifier);
        QCOMPARE(select, (QList<QVariantList>{{qint64(5), false}, {qint64(5), true}}));
        // In selection mode a tap toggles, whatever was touched; the row shows it.
        chat.view.setProperty("ui_selection_mode", true);
        QVariantMap selected = chat.model.value(0);
        selected.insert("selected", "true");
        chat.model.replace(0, selected);
        chat.view.layoutNow();
        chat.click(chat.at(0, "msg_text_inline"));
        QCOMPARE(toggle.count(), 1);
        QVERIFY(chat.item(0)->property("msg_selected").toBool());
        QCOMPARE(longPress.count(), 0);
    }
};

QTEST_MAIN(TestMessageItemProvider)

#include "test_message_item_provider.moc"
