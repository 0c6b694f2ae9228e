// The open chat against the demo backend, in this process: the real
// controller with the real demo backend as its child (answering at once) on a
// data folder signed in before. Opens "Vexa Archive ⚡" (20,000 messages)
// several times, timing the tap to the first page drawn, then pages back
// through all of it by scrolling up, timing the UI thread's work per older
// page, the painted frames and the memory per row.
//
// Usage: bench_conversation [opens=5] [pages=all]
#include "../common/demo_account.h"
#include "../common/stats.h"

#include "backend_link/event_intake.h"
#include "conversation/chat_session.h"
#include "conversation/message_row_model.h"
#include "platform/ui/phone_window.h"

#include <QAbstractEventDispatcher>
#include <QApplication>
#include <QScrollBar>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <malloc.h>
#include <vector>

namespace {

const QString kArchive = QStringLiteral("Vexa Archive ⚡");
constexpr int kMessages = 20000;
constexpr double kOpenGoalMs = 150;
constexpr double kPageGoalMs = 5;
constexpr double kFrameGoalMs = 4;

double nowMs()
{
    static QElapsedTimer clock;
    if (!clock.isValid())
        clock.start();
    return double(clock.nsecsElapsed()) / 1e6;
}

// CPU time of this (the UI) thread.
double threadCpuMs()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

using bench::heapInUse;
using bench::median;
using bench::percentile;

double maxOf(const std::vector<double> &v)
{
    return v.empty() ? 0 : *std::max_element(v.begin(), v.end());
}

// Watches the message list's viewport for the first paint that shows rows.
class PaintWatch : public QObject
{
public:
    ListView *list = nullptr;
    bool armed = false;
    double paintAt = -1;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (armed && event->type() == QEvent::Paint && watched == list->viewport() &&
            !list->visibleRows().isEmpty() && list->dataModel()->rowCount() > 0) {
            armed = false;
            paintAt = nowMs();
        }
        return QObject::eventFilter(watched, event);
    }
};

struct OpenMarks
{
    double tap = -1;
    double openSent = -1;
    double historyBegin = -1;
    double historyEnd = -1;
    double paint = -1;
    double drawn = -1; // the event loop idle again after that paint
};

} // namespace

int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const int opens = argc > 1 ? qMax(1, QByteArray(argv[1]).toInt()) : 5;
    const int pageLimit = argc > 2 ? qMax(1, QByteArray(argv[2]).toInt()) : kMessages;

    QTemporaryDir dir;
    const QString appDir = dir.filePath(QStringLiteral("app"));
    const QStringList env =
        bench::demoEnvironment(dir.filePath(QStringLiteral("data")), dir.filePath("shared"));
    QString error;
    std::unique_ptr<UiTdlibSpike> spike =
        bench::startSignedIn(QStringLiteral(DEMO_BACKEND_PATH), appDir, env, &error);
    if (!spike) {
        std::fprintf(stderr, "start failed: %s\n", qPrintable(error));
        return 2;
    }
    ListView *chatList = spike->chatListView();
    ListView *list = spike->messageListView();
    ChatSession *session = spike->chatSession();
    ArrayDataModel *rows = spike->messageRows();
    EventIntake *intake = spike->eventIntake();

    // The archive's row, loading more of the chat list while it is missing.
    if (!bench::waitFor(
            [&] {
                if (bench::chatRowWithTitle(spike.get(), kArchive) >= 0)
                    return true;
                chatList->scrollToPosition(ListView::End);
                return false;
            },
            30000)) {
        std::fprintf(stderr, "no chat titled %s\n", qPrintable(kArchive));
        return 2;
    }
    const QVariantMap archive = chatList->dataModel()
                                    ->index(bench::chatRowWithTitle(spike.get(), kArchive), 0)
                                    .data(Qt::UserRole)
                                    .toMap();

    // Marks of the open in flight.
    OpenMarks marks;
    PaintWatch paintWatch;
    paintWatch.list = list;
    list->viewport()->installEventFilter(&paintWatch);
    bool paging = false;
    QObject::connect(session, &ChatSession::sendLineRequested, [&](const QString &line) {
        if (line.startsWith(QLatin1String("open ")))
            marks.openSent = nowMs();
    });
    QObject::connect(intake, &EventIntake::eventReceived, [&](const QVariantMap &e) {
        const QString type = e.value(QStringLiteral("type")).toString();
        if (paging || !e.value(QStringLiteral("clear")).toBool())
            return;
        if (type == QLatin1String("history_begin") && marks.historyBegin < 0)
            marks.historyBegin = nowMs();
        else if (type == QLatin1String("history_end"))
            marks.historyEnd = nowMs();
    });
    QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::aboutToBlock,
                     [&] {
                         if (paintWatch.paintAt >= 0 && marks.drawn < 0)
                             marks.drawn = nowMs();
                     });

    malloc_trim(0);
    const size_t heapBefore = heapInUse();

    // Opening, several times: tap, the open's fixed delay, the newest page,
    // its layout and the first frame with rows.
    std::vector<double> withDelay, withoutDelay, toEvents, eventsToDrawn;
    for (int i = 0; i < opens; ++i) {
        marks = OpenMarks();
        paintWatch.paintAt = -1;
        paintWatch.armed = true;
        marks.tap = nowMs();
        spike->openChatFromRow(archive);
        if (!bench::waitFor([&] { return marks.drawn >= 0; }, 30000)) {
            std::fprintf(stderr, "open %d: first page not drawn\n", i + 1);
            return 1;
        }
        marks.paint = paintWatch.paintAt;
        withDelay.push_back(marks.drawn - marks.tap);
        withoutDelay.push_back(marks.drawn - marks.openSent);
        toEvents.push_back(marks.historyBegin - marks.openSent);
        eventsToDrawn.push_back(marks.drawn - marks.historyBegin);
        std::printf("open %d: tap to drawn %.1f ms (open sent %.1f, history in %.1f, all rows in "
                    "%.1f, first paint %.1f, drawn %.1f)\n",
                    i + 1, marks.drawn - marks.tap, marks.openSent - marks.tap,
                    marks.historyBegin - marks.tap, marks.historyEnd - marks.tap,
                    marks.paint - marks.tap, marks.drawn - marks.tap);
        std::fflush(stdout);
        if (i + 1 < opens) {
            spike->onBackToChats();
            if (!bench::waitFor([&] { return rows->size() == 0; }, 10000))
                return 1;
        }
    }
    if (!bench::waitFor([&] { return rows->size() > 0 && list->isAtEnd(); }, 10000)) {
        std::fprintf(stderr, "the last open did not end at the newest message\n");
        return 1;
    }

    // Paging back through all of it. The first row in view when the older
    // page is asked for must keep its pixel once the page is in.
    paging = true;
    struct
    {
        int row = 0;
        qint64 id = 0;
        int y = 0;
        int rowsBefore = 0;
    } anchor;
    QObject::connect(session, &ChatSession::sendLineRequested, [&](const QString &line) {
        if (!line.startsWith(QLatin1String("history_more ")))
            return;
        anchor.row = list->firstVisibleItem().value(0).toInt();
        anchor.id = spike->messages()->messageIdAt(anchor.row);
        anchor.y = list->itemWidget(anchor.row) ? list->itemWidget(anchor.row)->y() : 0;
        anchor.rowsBefore = rows->size();
    });

    QScrollBar *bar = list->verticalScrollBar();
    std::vector<double> pageWall, pageCpu, frames, steps;
    int anchorMoved = 0;
    int pages = 0;
    int maxWidgets = 0;
    double pageStartWall = -1;
    double pageStartCpu = -1;
    bool pageInFlight = false;
    bool pageLaidOut = false;
    QObject::connect(intake, &EventIntake::eventReceived, [&](const QVariantMap &e) {
        if (!paging || e.value(QStringLiteral("clear")).toBool())
            return;
        const QString type = e.value(QStringLiteral("type")).toString();
        if (type == QLatin1String("history_begin")) {
            pageStartWall = nowMs();
            pageStartCpu = threadCpuMs();
            pageInFlight = true;
        }
    });
    // The list's first visible row moves by the page's count at the end of
    // the layout that follows the insertion.
    QObject::connect(list, &ListView::firstVisibleItemChanged, [&] {
        if (paging && pageInFlight && !session->isHistoryLoading()) {
            pageInFlight = false;
            pageLaidOut = true;
            pageWall.push_back(nowMs() - pageStartWall);
            pageCpu.push_back(threadCpuMs() - pageStartCpu);
        }
    });
    auto frame = [&] {
        QElapsedTimer t;
        t.start();
        list->viewport()->repaint();
        frames.push_back(double(t.nsecsElapsed()) / 1e6);
        maxWidgets = qMax(maxWidgets, list->createdItemCount());
    };

    const double pagingStart = nowMs();
    while (!session->noMoreHistory() && pages < pageLimit) {
        // Scroll up by half a screen at a time until the session asks for
        // the older page, never quite to the top.
        const int step = qMax(1, bar->pageStep() / 2);
        pageLaidOut = false;
        while (!session->isHistoryMoreTimerActive() && !session->isHistoryLoading() &&
               !pageLaidOut) {
            QElapsedTimer t;
            t.start();
            bar->setValue(qMax(1, bar->value() - step));
            steps.push_back(double(t.nsecsElapsed()) / 1e6);
            frame();
            if (bar->value() <= 1 && !session->isHistoryMoreTimerActive()) {
                std::fprintf(stderr, "no older page asked for at the top\n");
                return 1;
            }
        }
        if (!bench::waitFor([&] { return pageLaidOut || session->noMoreHistory(); }, 10000)) {
            std::fprintf(stderr, "page %d did not arrive (%d rows)\n", pages + 1, rows->size());
            return 1;
        }
        if (!pageLaidOut)
            break;
        ++pages;
        const int newRow = anchor.row + rows->size() - anchor.rowsBefore;
        QWidget *w = list->itemWidget(newRow);
        if (spike->messages()->messageIdAt(newRow) != anchor.id || !w || w->y() != anchor.y)
            ++anchorMoved;
        frame();
    }
    const double pagingSeconds = (nowMs() - pagingStart) / 1e3;
    const int loaded = rows->size();

    malloc_trim(0);
    const double bytesPerRow = double(heapInUse() - heapBefore) / qMax(1, loaded);

    std::printf("bench_conversation: \"%s\", %d messages\n", qPrintable(kArchive), loaded);
    std::printf("  open, tap to first page drawn (median of %d): %.1f ms with the %d ms open "
                "delay, %.1f ms from the open command (goal: under %.0f ms)\n",
                opens, median(withDelay), ChatSession::kOpenDelayMs, median(withoutDelay),
                kOpenGoalMs);
    std::printf("    of which open command to history in %.1f ms (backend and event polling), "
                "history in to drawn %.1f ms\n",
                median(toEvents), median(eventsToDrawn));
    std::printf("  older pages: %d in %.1f s; UI work per page: wall median %.2f ms, 95th %.2f, "
                "max %.2f; UI thread CPU median %.2f ms (goal: under %.1f ms)\n",
                pages, pagingSeconds, median(pageWall), percentile(pageWall, 0.95), maxOf(pageWall),
                median(pageCpu), kPageGoalMs);
    std::printf("  anchor row moved on %d of %d pages\n", anchorMoved, pages);
    std::printf(
        "  painted frames: %zu, median %.2f ms, 95th %.2f, max %.2f (goal: under %.1f ms)\n",
        frames.size(), median(frames), percentile(frames, 0.95), maxOf(frames), kFrameGoalMs);
    std::printf("  scroll steps of half a screen (layout, no paint): %zu, median %.2f ms, 95th "
                "%.2f, max %.2f; %d bubble backgrounds drawn\n",
                steps.size(), median(steps), percentile(steps, 0.95), maxOf(steps),
                int(QDir(spike->folders().dataDir + QStringLiteral("/ui-cache"))
                        .entryList({QStringLiteral("bubble_bg_*.png")})
                        .size()));
    std::printf("  item widgets created: %d in all (at most %d during paging)\n",
                list->createdItemCount(), maxWidgets);
    std::printf("  heap per message row with all loaded: %.0f bytes\n", bytesPerRow);
    const bool ok = (loaded >= kMessages || pages == pageLimit) &&
                    median(withoutDelay) < kOpenGoalMs && median(pageCpu) < kPageGoalMs &&
                    median(frames) < kFrameGoalMs && anchorMoved == 0;
    std::printf("  %s\n", ok ? "goals met" : "GOALS MISSED");
    spike.reset();
    return ok ? 0 : 1;
}
