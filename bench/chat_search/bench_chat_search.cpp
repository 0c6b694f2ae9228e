// Times the chat search over 10,000 chats shown by the real chat list view
// and row widgets: each keystroke of a few typed queries (the filter, the
// view's reaction and one painted frame), the first keystroke (which folds
// every title once) and closing the search. Prints milliseconds.
#include "../common/stats.h"
#include "chats/chat_filter.h"
#include "chats/ui/chat_item_provider.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <cstdio>

namespace {

QList<QVariantMap> makeChats(int count)
{
    static const QStringList first = {"Zoë",   "José",  "Ana",   "Þórunn", "Ελένη", "Алексей",
                                      "محمد",  "Ада",   "Björn", "Łukasz", "Chloé", "Nguyễn",
                                      "Ahmed", "Grace", "Mia",   "Søren",  "李伟",  "Alex"};
    static const QStringList last = {"O'Brien", "García", "Müller",   "Jónsdóttir", "Γεωργίου",
                                     "Иванов",  "علي",    "Lovelace", "Kowalski",   "Dubois",
                                     "Tanaka",  "Silva",  "Hopper",   "Nørgaard",   "Okafor"};
    static const QStringList groups = {"Data science meetup", "Startup founders", "Berlin Expats",
                                       "Climbing crew",       "Проект «Север»",   "فريق العمل",
                                       "Board games night",   "Café Olé",         "Weekend hikes"};
    QRandomGenerator rng(7);
    QList<QVariantMap> rows;
    for (int i = 1; i <= count; ++i) {
        QString title;
        QString user;
        if (rng.bounded(3) == 0) {
            title = groups.at(int(rng.bounded(groups.size()))) + QStringLiteral(" %1").arg(i);
            user = rng.bounded(2) ? QStringLiteral("group_%1").arg(i) : QString();
        } else {
            title = first.at(int(rng.bounded(first.size()))) + QLatin1Char(' ') +
                    last.at(int(rng.bounded(last.size())));
            user = rng.bounded(4) == 0 ? QStringLiteral("user%1").arg(i) : QString();
        }
        QVariantMap row{
            {"id", QString::number(i)},        {"title", title},
            {"chat_type", "private"},          {"order", QString::number(count - i + 1)},
            {"last_text", "See you tomorrow"}, {"last_date", QString::number(1700000000 + i)}};
        if (!user.isEmpty())
            row.insert("username", user);
        rows.append(row);
    }
    return rows;
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QTemporaryDir cache;
    ArrayDataModel rows;
    rows.setRows(makeChats(10000));
    ChatItemProvider provider(cache.path());
    ListView view;
    view.resize(720, 1200);
    view.setEstimatedRowHeight(188);
    view.setListItemProvider(&provider);
    view.setDataModel(&rows);
    view.show();
    app.processEvents();

    ChatFilterModel filter;
    QElapsedTimer t;
    const auto keystroke = [&](const QString &text) {
        t.start();
        filter.setQuery(text);
        view.scrollToPosition(ListView::Beginning, false);
        view.viewport()->repaint();
        return double(t.nsecsElapsed()) / 1e6;
    };

    t.start();
    filter.setSourceModel(&rows);
    view.setDataModel(&filter);
    view.viewport()->repaint();
    const double open = double(t.nsecsElapsed()) / 1e6;
    const double firstKey = keystroke("a"); // folds every title once
    keystroke(QString());

    std::vector<double> keys;
    std::vector<double> emptied; // the field emptied: every row back
    int shown = 0;
    for (int round = 0; round < 5; ++round) {
        for (const QString &query : {QStringLiteral("lovelace"), QStringLiteral("zoe ob"),
                                     QStringLiteral("محمد"), QStringLiteral("@group_12")}) {
            for (int n = 1; n <= query.size(); ++n)
                keys.push_back(keystroke(query.left(n)));
            shown += filter.rowCount();
            for (int n = query.size() - 1; n >= 1; --n)
                keys.push_back(keystroke(query.left(n)));
            emptied.push_back(keystroke(QString()));
        }
    }
    t.start();
    view.setDataModel(&rows);
    filter.setQuery(QString());
    filter.setSourceModel(nullptr);
    view.viewport()->repaint();
    const double close = double(t.nsecsElapsed()) / 1e6;

    std::printf("chats: %d\n", rows.size());
    std::printf("open search (view switched to the filter): %.2f ms\n", open);
    std::printf("first keystroke (folds every title): %.2f ms\n", firstKey);
    std::printf("keystrokes: %zu, median %.2f ms, 90th %.2f ms, max %.2f ms\n", keys.size(),
                bench::median(keys), bench::percentile(keys, 0.9),
                *std::max_element(keys.begin(), keys.end()));
    std::printf("field emptied: median %.2f ms, max %.2f ms\n", bench::median(emptied),
                *std::max_element(emptied.begin(), emptied.end()));
    std::printf("rows shown for the full queries: %d\n", shown / 5);
    std::printf("close search: %.2f ms\n", close);
    return 0;
}
