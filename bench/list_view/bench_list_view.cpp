// Times the list view over 10,000 rows of varying height: building it,
// scrolling through all of it in small steps, updating 1,000 rows, jumping
// to rows, and inserting a page of older rows above. Prints milliseconds.
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QRandomGenerator>
#include <QScrollBar>

#include <cstdio>

namespace {

// A message-like row: a fixed avatar box and word-wrapped text, so heights
// come from heightForWidth as they do in the real screens.
class BenchProvider : public ListItemProvider
{
public:
    QWidget *createItem(ListView *, const QString &) override
    {
        auto *w = new QWidget;
        auto *lay = new QHBoxLayout(w);
        lay->setContentsMargins(12, 8, 12, 8);
        auto *avatar = new QLabel(w);
        avatar->setObjectName("avatar_letter");
        avatar->setFixedSize(72, 72);
        avatar->setAlignment(Qt::AlignCenter);
        auto *text = new QLabel(w);
        text->setObjectName("text");
        text->setWordWrap(true);
        text->setTextFormat(Qt::PlainText);
        lay->addWidget(avatar, 0, Qt::AlignTop);
        lay->addWidget(text, 1);
        return w;
    }
    void updateItem(ListView *, QWidget *item, const QString &, const QVariantList &,
                    const QVariantMap &data) override
    {
        item->findChild<QLabel *>("avatar_letter")->setText(data.value("letter").toString());
        item->findChild<QLabel *>("text")->setText(data.value("text").toString());
    }
};

QVariantMap makeRow(int i, QRandomGenerator &rng)
{
    static const QString words[] = {"hello",     "message", "the", "quick", "voice",    "note",
                                    "forwarded", "photo",   "see", "you",   "tomorrow", "ok"};
    const int count = 1 + int(rng.bounded(60)); // one line up to several
    QString text;
    for (int w = 0; w < count; ++w) {
        if (w)
            text += ' ';
        text += words[rng.bounded(12)];
    }
    return {{"id", QString::number(i)}, {"letter", QString(QChar('A' + i % 26))}, {"text", text}};
}

double ms(const QElapsedTimer &t)
{
    return t.nsecsElapsed() / 1e6;
}

} // namespace

int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int rows = 10000;
    QRandomGenerator rng(42);

    QList<QVariantMap> data;
    data.reserve(rows);
    for (int i = 0; i < rows; ++i)
        data.append(makeRow(i, rng));

    ArrayDataModel model;
    BenchProvider provider;
    ListView view;
    view.resize(720, 1280);
    view.setListItemProvider(&provider);
    view.show();

    QElapsedTimer t;
    t.start();
    model.append(data);
    view.setDataModel(&model);
    view.layoutNow();
    std::printf("build: %.2f ms (%d rows, %d widgets)\n", ms(t), rows, view.createdItemCount());

    QScrollBar *sb = view.verticalScrollBar();
    int steps = 0;
    t.restart();
    while (!view.isAtEnd() && steps < 1000000) {
        sb->setValue(sb->value() + 120);
        ++steps;
    }
    const double scrollMs = ms(t);
    std::printf("scroll to end in 120 px steps: %.2f ms (%d steps, %.3f ms/step, %d widgets,"
                " content %lld px)\n",
                scrollMs, steps, scrollMs / qMax(1, steps), view.createdItemCount(),
                static_cast<long long>(view.contentHeight()));

    steps = 0;
    t.restart();
    while (!view.isAtBeginning() && steps < 1000000) {
        sb->setValue(sb->value() - 120);
        ++steps;
    }
    const double upMs = ms(t);
    std::printf("scroll back to start: %.2f ms (%d steps, %.3f ms/step)\n", upMs, steps,
                upMs / qMax(1, steps));

    // Frames as the user sees them: scroll a step, then paint the viewport.
    QImage frame(view.viewport()->size(), QImage::Format_ARGB32_Premultiplied);
    steps = 0;
    t.restart();
    for (; steps < 1000 && !view.isAtEnd(); ++steps) {
        sb->setValue(sb->value() + 60);
        view.viewport()->render(&frame);
    }
    const double paintMs = ms(t);
    std::printf("scroll and paint: %.2f ms for %d frames (%.3f ms/frame)\n", paintMs, steps,
                paintMs / qMax(1, steps));

    // Touch 1,000 rows around the view, as redraw requests do.
    view.scrollToItem({5000}, false);
    t.restart();
    for (int i = 4500; i < 5500; ++i)
        model.replace(i, model.value(i));
    view.layoutNow();
    std::printf("update 1000 rows (replace unchanged) + layout: %.2f ms\n", ms(t));

    t.restart();
    for (int i = 4500; i < 5500; ++i) {
        QVariantMap r = model.value(i);
        r["text"] = QString(r.value("text").toString() + " edited");
        model.replace(i, r);
    }
    view.layoutNow();
    std::printf("update 1000 rows (changed text) + layout: %.2f ms\n", ms(t));

    t.restart();
    for (int i = 0; i < 200; ++i)
        view.scrollToItem({int(rng.bounded(rows))}, false);
    std::printf("200 jumps to random rows: %.2f ms\n", ms(t));

    view.scrollToItem({0}, false);
    QList<QVariantMap> older;
    for (int i = 0; i < 100; ++i)
        older.append(makeRow(rows + i, rng));
    t.restart();
    model.insert(0, older);
    view.layoutNow();
    std::printf("insert 100 rows above the view + layout: %.2f ms (first visible row %d)\n", ms(t),
                view.firstVisibleItem().value(0).toInt());
    return 0;
}
