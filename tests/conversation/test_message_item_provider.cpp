#include "common/test_util.h"
#include "conversation/message_text.h"
#include "conversation/ui/message_item_provider.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"

#include <QDir>
#include <QLabel>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

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
    for (auto it = extra.begin(); it != extra.end(); ++it)
        r.insert(it.key(), it.value());
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
    // Centre of a named control of a row, in the viewport's coordinates.
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
    void release(const QPoint &p, Qt::KeyboardModifiers mods = {})
    {
        QTest::mouseRelease(view.windowHandle(), Qt::LeftButton, mods,
                            view.viewport()->mapTo(&view, p));
    }
    void click(const QPoint &p, Qt::KeyboardModifiers mods = {})
    {
        press(p, Qt::LeftButton, mods);
        release(p, mods);
    }
};

} // namespace

class TestMessageItemProvider : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void texts_data();
    void texts();
    void statusIcon_data();
    void statusIcon();
    void bubbleSidesAndSenders();
    void sharedBackgrounds();
    void media();
    void touches_data();
    void touches();
    void longPressAndSelection();
};

void TestMessageItemProvider::texts_data()
{
    QTest::addColumn<QString>("got");
    QTest::addColumn<QString>("want");
    QTest::newRow("duration 0") << format_duration_mmss(0) << "";
    QTest::newRow("duration 5") << format_duration_mmss(5) << "0:05";
    QTest::newRow("duration an hour") << format_duration_mmss(3600) << "60:00";
    QTest::newRow("duration clamped to a day") << format_duration_mmss(100000) << "1440:00";
    QTest::newRow("escape once") << escape_html("a<b>&\"'") << "a&lt;b&gt;&amp;&quot;&#39;";
    QTest::newRow("line ends") << escape_html_with_br("a\r\nb\rc\nd") << "a<br/>b<br/>c<br/>d";
    QTest::newRow("links of every kind")
        << message_rich_text("see https://a.org/x?q=1&r=2 or www.b.org, t.me/vexa\nbye http:")
        << "see <a href=\"https://a.org/x?q=1&amp;r=2\">https://a.org/x?q=1&amp;r=2</a> or "
           "<a href=\"www.b.org,\">www.b.org,</a> <a href=\"t.me/vexa\">t.me/vexa</a><br/>bye "
           "http:";
    QTest::newRow("emoji runs in the emoji font, tags left alone")
        << wrap_emoji_runs(QString::fromUtf8("hi \U0001F44D\U0001F3FD\u200D x <a href=\"\u2764\">"),
                           "E")
        << QString::fromUtf8(
               "hi <span style=\"font-family:'E'\">\U0001F44D\U0001F3FD\u200D</span> x "
               "<a href=\"\u2764\">");
    QTest::newRow("markup in text is text")
        << message_rich_text("<b>x</b>") << "&lt;b&gt;x&lt;/b&gt;";
}

void TestMessageItemProvider::texts()
{
    QFETCH(QString, got);
    QFETCH(QString, want);
    QCOMPARE(got, want);
}

void TestMessageItemProvider::statusIcon_data()
{
    // The message is outgoing unless its first word is "in"; 7 is the read mark.
    QTest::addColumn<Row>("row");
    QTest::addColumn<QString>("icon");
    const auto row = [](const char *fields, const char *icon) {
        QVariantMap extra = test_util::kv(QString(fields));
        const bool in = extra.remove("in") > 0;
        const qint64 id = extra.take("id").toLongLong();
        QTest::newRow(fields) << msg(id ? id : 5, "x", !in, extra) << icon;
    };
    row("in", "");
    row("sending_state=waiting_for_network", "ii_bbm_ping.png");
    row("sending_state=pending", "ii_bbm_out_pending.png");
    row("sending_state=pending send_acked=true", "ii_bbm_out_sent.png");
    row("sending_state=failed", "ii_bbm_out_failed.png");
    row("id=7", "ii_bbm_out_read.png");
    row("id=8", "ii_bbm_out_delivered.png");
}

void TestMessageItemProvider::statusIcon()
{
    QFETCH(Row, row);
    QFETCH(QString, icon);
    const QString got = message_status_icon(row, 7);
    QCOMPARE(got, icon.isEmpty() ? QString() : "assets/osicons/" + icon);
    // The drawn row shows the same icon, next to the time.
    Chat chat({row});
    chat.view.setProperty("chat_last_read_outbox_message_id", 7);
    chat.refresh();
    auto *status = child<QLabel>(chat.item(0), "msg_status_inline");
    QCOMPARE(status->property("image_path").toString(), got);
    QCOMPARE(status->isVisibleTo(chat.item(0)), !got.isEmpty());
    QVERIFY(status->isVisibleTo(chat.item(0)) == !status->pixmap(Qt::ReturnByValue).isNull());
}

void TestMessageItemProvider::bubbleSidesAndSenders()
{
    const QVariantMap ann{
        {"sender_user_id", "11"}, {"sender_name", "Ann"}, {"sender_indent", "true"}};
    QVariantMap first = ann;
    first.insert("sender_show", "true");
    QVariantMap next = ann;
    next.insert("sender_show", "false");
    Chat chat({msg(1, "hello", false, first), msg(2, "again", false, next), msg(3, "mine", true),
               msg(4, QString(400, 'w').replace(QRegularExpression("w{9}"), "wwww wwww "), false)});
    const int mid = chat.view.viewport()->width() / 2;
    const auto bubble = [&](int row) {
        QWidget *b = child(chat.item(row), "msg_bubble");
        return QRect(b->mapTo(chat.view.viewport(), QPoint()), b->size());
    };
    QVERIFY(bubble(0).right() < mid && bubble(2).left() > mid);
    // Name and avatar on the first row of the run only; the run stays aligned.
    QVERIFY(child(chat.item(0), "msg_sender_in")->isVisibleTo(chat.item(0)));
    QVERIFY(child(chat.item(0), "msg_avatar")->isVisibleTo(chat.item(0)));
    QVERIFY(!child(chat.item(1), "msg_sender_in")->isVisibleTo(chat.item(1)));
    QVERIFY(!child(chat.item(1), "msg_avatar")->isVisibleTo(chat.item(1)));
    QCOMPARE(bubble(1).left(), bubble(0).left());
    QCOMPARE(child<QLabel>(chat.item(0), "msg_avatar_letter")->text(), QStringLiteral("A"));
    // Long text wraps inside a bubble that keeps to its share of the row, and
    // the row is as tall as its text.
    QVERIFY(bubble(3).width() <= chat.view.viewport()->width() * 0.8);
    QVERIFY(chat.item(3)->height() > 4 * child(chat.item(3), "msg_text")->fontMetrics().height());
    QVERIFY(bubble(3).bottom() <=
            chat.item(3)->mapTo(chat.view.viewport(), QPoint(0, chat.item(3)->height())).y());
}

void TestMessageItemProvider::sharedBackgrounds()
{
    Chat chat({msg(1, "same", false), msg(2, "same", false), msg(3, "same", true)});
    const auto path = [&](int row) {
        return child(chat.item(row), "msg_bubble")->property("bubble_bg_path").toString();
    };
    QVERIFY(QFileInfo(path(0)).isFile());
    QCOMPARE(path(1), path(0));
    QVERIFY(path(2) != path(0)); // the own colour
    QVERIFY(QFileInfo(path(0)).fileName().startsWith("bubble_bg_"));
    // The theme changes the colour, and so the file.
    chat.view.setProperty("ui_dark_theme", false);
    chat.refresh();
    QTRY_VERIFY(!path(0).isEmpty() && path(0) != path(2));
    QVERIFY(QFileInfo(path(0)).isFile());
}

void TestMessageItemProvider::media()
{
    QTemporaryDir files;
    QImage img(400, 200, QImage::Format_RGB32);
    img.fill(Qt::red);
    const QString thumb = files.filePath("thumb.png");
    QVERIFY(img.save(thumb));
    Chat chat({msg(1, "", false,
                   {{"media_type", "photo"},
                    {"media_w", "1200"},
                    {"media_h", "600"},
                    {"media_thumb_path", thumb},
                    {"media_thumb_file_id", "70"}}),
               msg(2, "caption", true,
                   {{"media_type", "video"},
                    {"media_w", "600"},
                    {"media_h", "1200"},
                    {"media_thumb_file_id", "71"},
                    {"media_duration", "75"}}),
               msg(3, "", false,
                   {{"media_type", "file"},
                    {"media_name", "report.pdf"},
                    {"media_size", "2048"},
                    {"media_file_id", "72"}}),
               msg(4, "", true,
                   {{"media_type", "voice"}, {"media_duration", "7"}, {"media_file_id", "73"}})});
    QSignalSpy downloads(&chat.provider, &MessageItemProvider::downloadRequested);
    chat.refresh();
    // Photos and videos at their aspect ratio; a missing thumbnail is asked for.
    const QSize photo = child(chat.item(0), "msg_media_box")->size();
    const QSize video = child(chat.item(1), "msg_media_box")->size();
    QCOMPARE(photo.width(), photo.height() * 2);
    QVERIFY(video.height() > video.width());
    QVERIFY(!child<QLabel>(chat.item(0), "msg_media_img")->pixmap(Qt::ReturnByValue).isNull());
    QVERIFY(downloads.contains({qint64(71)}) && !downloads.contains({qint64(70)}));
    QCOMPARE(child<QLabel>(chat.item(1), "msg_video_dur")->text(), QStringLiteral("1:15"));
    QVERIFY(child(chat.item(1), "msg_text")->isVisibleTo(chat.item(1)) ||
            child(chat.item(1), "msg_inline_row")->isVisibleTo(chat.item(1)));
    QCOMPARE(child<QLabel>(chat.item(2), "msg_file_label")->text(), QStringLiteral("report.pdf"));
    QCOMPARE(child<QLabel>(chat.item(2), "msg_file_size")->text(), QStringLiteral("2.0 KB"));
    QCOMPARE(child<QLabel>(chat.item(3), "msg_voice_dur")->text(), QStringLiteral("0:07"));
    // Files and voice notes keep their own time line; no text line is shown.
    for (int r : {2, 3}) {
        QVERIFY(!child(chat.item(r), "msg_time_row")->isVisibleTo(chat.item(r)));
        QVERIFY(!child(chat.item(r), "msg_text")->isVisibleTo(chat.item(r)));
    }
}

void TestMessageItemProvider::touches_data()
{
    QTest::addColumn<Row>("row");
    QTest::addColumn<QString>("control");
    QTest::addColumn<QString>("signal");
    QTest::addColumn<QVariantList>("args");
    const auto row = [](const char *name, qint64 id, const char *text, const char *fields,
                        const char *control, const char *signal, const QVariantList &args) {
        QTest::newRow(name) << msg(id, text, false, test_util::kv(QString(fields))) << control
                            << signal << args;
    };
    const char *file = "media_type=file media_name=a.txt media_file_id=9 media_path=/f/a.txt";
    const QVariantList fileArgs{"/f/a.txt", qint64(9), "a.txt"};
    row("reply box", 5, "ok", "reply_to_message_id=3 reply_preview=hi", "msg_reply_box",
        "replyPreviewTapped", {qint64(3)});
    row("photo", 5, "", "media_type=photo media_file_id=8 media_w=10 media_h=20", "msg_media_box",
        "mediaTapped", {QString(), qint64(8), 10, 20});
    row("video", 5, "", "media_type=video media_file_id=8", "msg_media_box", "videoTapped",
        {QString(), qint64(8), 0, 0});
    row("file icon", 5, "", file, "msg_file_icon_box", "fileIconTapped", fileArgs);
    row("file name", 5, "", file, "msg_file_label", "fileTapped", fileArgs);
    row("voice", 5, "", "media_type=voice media_file_id=4", "msg_voice_icon_box", "voiceTapped",
        {QString(), qint64(4)});
    row("a link in the text", 5, "https://vexa.example", "", "msg_text_inline", "webLinkActivated",
        {"https://vexa.example"});
    row("plain text is no link", 5, "just words here", "", "msg_text_inline", "", {});
    row("a message id below 1", 0, "https://vexa.example", "", "msg_text_inline", "", {});
    Row chip = msg(5, "ok", false,
                   {{"reactions", QVariantList{QVariantMap{{"emoji", "👍"}, {"count", 2}}}}});
    QTest::newRow("reaction chip") << chip << "msg_reaction_chip_lbl"
                                   << "reactionChipTapped" << QVariantList{qint64(5), "👍"};
}

void TestMessageItemProvider::touches()
{
    QFETCH(Row, row);
    QFETCH(QString, control);
    QFETCH(QString, signal);
    QFETCH(QVariantList, args);
    Chat chat({row});
    QList<QSignalSpy *> spies;
    const QMetaObject *mo = chat.provider.metaObject();
    for (int i = mo->methodOffset(); i < mo->methodCount(); ++i) {
        if (mo->method(i).methodType() == QMetaMethod::Signal)
            spies << new QSignalSpy(&chat.provider, mo->method(i));
    }
    chat.click(chat.at(0, qPrintable(control)));
    QStringList fired;
    for (QSignalSpy *s : spies) {
        if (!s->isEmpty()) {
            fired << QString::fromLatin1(s->signal()).section('(', 0, 0);
            if (fired.last() == signal)
                QCOMPARE(s->takeFirst(), args);
        }
    }
    qDeleteAll(spies);
    QCOMPARE(fired, signal.isEmpty() ? QStringList() : QStringList{signal});
}

void TestMessageItemProvider::longPressAndSelection()
{
    Chat chat({msg(5, "hold me", false)});
    QSignalSpy longPress(&chat.provider, &MessageItemProvider::messageLongPressed);
    QSignalSpy toggle(&chat.provider, &MessageItemProvider::messageSelectionToggleRequested);
    QSignalSpy menu(&chat.provider, &MessageItemProvider::messageMenuRequested);
    const QPoint p = chat.at(0, "msg_text_inline");
    chat.press(p);
    QVERIFY(longPress.wait());
    QCOMPARE(longPress.takeFirst(), QVariantList{qint64(5)});
    chat.release(p);
    QVERIFY(toggle.isEmpty()); // the release after a long press is no tap
    // A drag is no touch on the item either.
    chat.press(p);
    QTest::mouseMove(chat.view.windowHandle(),
                     chat.view.viewport()->mapTo(&chat.view, p + QPoint(0, 60)));
    chat.release(p + QPoint(0, 60));
    // The secondary button asks for the menu at once.
    chat.press(p, Qt::RightButton);
    QCOMPARE(menu.count(), 1);
    // Ctrl and Shift clicks select at once, without waiting for a long press.
    QSignalSpy select(&chat.provider, &MessageItemProvider::messageSelectClicked);
    chat.click(p, Qt::ControlModifier);
    chat.click(p, Qt::ShiftModifier);
    QCOMPARE(select.count(), 2);
    QCOMPARE(select.at(0), (QVariantList{qint64(5), false}));
    QCOMPARE(select.at(1), (QVariantList{qint64(5), true}));
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

QTEST_MAIN(TestMessageItemProvider)
#include "test_message_item_provider.moc"
