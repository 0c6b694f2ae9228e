// The window resized with the real widgets, offscreen: the real controller
// with the demo backend as its child on a signed-in folder, the whole chat
// list loaded (about 130 chats) and "Vexa Archive ⚡" (20,000 messages) open.
// Times each frame while the window's edge is dragged (wide layout), while
// the splitter is dragged, and each crossing of the breakpoint, from the
// resize to the repainted window.
//
// Usage: bench_wide_layout [zoom=1] [steps=200]
#include "../common/demo_account.h"
#include "../common/stats.h"

#include "chats/chat_list_model.h"
#include "conversation/chat_session.h"
#include "platform/ui/phone_window.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

namespace {

const QString kArchive = QStringLiteral("Vexa Archive ⚡");
constexpr double kFrameGoalMs = 8;
constexpr double kCrossGoalMs = 50;

// CPU time of this (the UI) thread: what a frame costs, whatever else the
// machine runs meanwhile (the demo's video encoder among them).
double threadCpuMs()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
}

// Frame times on the UI thread's clock, their part before the repaint (the
// layout), and the wall time.
struct Frames
{
    std::vector<double> total;
    std::vector<double> layout;
    std::vector<double> wall;
};

// One step: the change, the posted layout work, then a synchronous repaint
// (at a zoom other than 1 the scene repaints later, so only the layout counts).
void frame(PhoneWindow *window, Frames *frames, const std::function<void()> &change)
{
    QElapsedTimer t;
    t.start();
    const double cpu = threadCpuMs();
    change();
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    const double layout = threadCpuMs() - cpu;
    window->repaint();
    if (frames) {
        frames->layout.push_back(layout);
        frames->total.push_back(threadCpuMs() - cpu);
        frames->wall.push_back(double(t.nsecsElapsed()) / 1e6);
    }
}

void report(const char *what, const Frames &f, double goal)
{
    const std::vector<double> &ms = f.total;
    std::printf("%-26s CPU median %6.2f ms, 95th %6.2f, max %6.2f (layout %5.2f); wall median "
                "%6.2f, 95th %6.2f; %zu frames, goal %.0f: %s\n",
                what, bench::median(ms), bench::percentile(ms, 0.95),
                ms.empty() ? 0.0 : *std::max_element(ms.begin(), ms.end()), bench::median(f.layout),
                bench::median(f.wall), bench::percentile(f.wall, 0.95), ms.size(), goal,
                bench::median(ms) < goal ? "ok" : "OVER");
}

} // namespace

int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    const QString zoom = argc > 1 ? QString::fromLatin1(argv[1]) : QStringLiteral("1");
    const int steps = argc > 2 ? qMax(10, QByteArray(argv[2]).toInt()) : 200;

    QTemporaryDir dir;
    const QString appDir = dir.filePath(QStringLiteral("app"));
    QStringList env =
        bench::demoEnvironment(dir.filePath(QStringLiteral("data")), dir.filePath("shared"));
    env << QStringLiteral("VEXA_ZOOM=") + zoom;
    QString error;
    std::unique_ptr<UiTdlibSpike> spike =
        bench::startSignedIn(QStringLiteral(DEMO_BACKEND_PATH), appDir, env, &error);
    if (!spike) {
        std::fprintf(stderr, "start failed: %s\n", qPrintable(error));
        return 2;
    }
    PhoneWindow *window = spike->window();
    ShellScreens *screens = spike->screens();
    ListView *chatList = spike->chatListView();
    window->resize(1600, 1000);
    // The whole list (the demo's 130 or so chats), then the archive open at
    // its newest page.
    spike->sendLine(QStringLiteral("chats 200"));
    if (!bench::waitFor(
            [&] {
                if (bench::chatRowWithTitle(spike.get(), kArchive) >= 0 &&
                    spike->chatList()->size() >= 120 && !spike->chatList()->isBulkLoading())
                    return true;
                return false;
            },
            30000)) {
        std::fprintf(stderr, "no chat titled %s\n", qPrintable(kArchive));
        return 2;
    }
    chatList->scrollToPosition(ListView::Beginning);
    spike->openChatFromRow(
        spike->chatList()->rowAt(bench::chatRowWithTitle(spike.get(), kArchive)));
    if (!bench::waitFor([&] { return !spike->messageListView()->visibleRows().isEmpty(); },
                        20000)) {
        std::fprintf(stderr, "the archive did not open\n");
        return 2;
    }
    std::printf("zoom %s, %d chats, %d message rows loaded, window %dx%d\n", qPrintable(zoom),
                spike->chatList()->size(), spike->messageRows()->size(), window->width(),
                window->height());

    // Warm-up: the first frames fill the caches of bubbles and glyphs.
    for (int i = 0; i < 20; ++i)
        frame(window, nullptr, [&] { window->resize(1600 - i * 4, 1000); });

    // Dragging the right edge in and out, 4 pixels a frame, staying wide.
    Frames edge;
    for (int i = 0; i < steps; ++i) {
        const int w = 1600 - 4 * (i % 100 < 50 ? i % 50 : 50 - i % 50);
        frame(window, &edge, [&] { window->resize(w, 1000); });
    }
    // Dragging the splitter, 4 pixels a frame, across a fifth of the window.
    Frames split;
    const int left = screens->leftPaneWidth();
    for (int i = 0; i < steps; ++i) {
        const int x = left + 4 * (i % 100 < 50 ? i % 50 : 50 - i % 50);
        frame(window, &split, [&] { screens->setLeftPaneWidth(x); });
    }
    // Crossing the breakpoint both ways.
    Frames narrow, wide;
    for (int i = 0; i < 20; ++i) {
        frame(window, &narrow, [&] { window->resize(600, 1000); });
        frame(window, &wide, [&] { window->resize(1600, 1000); });
    }
    const bool kept = spike->isChatVisible() && screens->isWide();

    report("window edge drag (wide)", edge, kFrameGoalMs);
    report("splitter drag", split, kFrameGoalMs);
    report("crossing to narrow", narrow, kCrossGoalMs);
    report("crossing to wide", wide, kCrossGoalMs);
    std::printf("chat still open and in view after the crossings: %s\n", kept ? "yes" : "NO");
    return kept ? 0 : 1;
}
