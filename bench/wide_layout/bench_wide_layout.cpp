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
#include <vector>

namespace {

const QString kArchive = QStringLiteral("Vexa Archive ⚡");
constexpr double kFrameGoalMs = 8;
constexpr double kCrossGoalMs = 50;

// One step: the change, the posted layout work, then a synchronous repaint.
double frameMs(PhoneWindow *window, const std::function<void()> &change)
{
    QElapsedTimer t;
    t.start();
    change();
    QCoreApplication::sendPostedEvents();
    QCoreApplication::processEvents();
    window->repaint();
    return double(t.nsecsElapsed()) / 1e6;
}

void report(const char *what, const std::vector<double> &ms, double goal)
{
    std::printf(
        "%-28s median %6.2f ms  95th %6.2f ms  max %6.2f ms  (%zu frames, goal %.0f ms) %s\n", what,
        bench::median(ms), bench::percentile(ms, 0.95),
        ms.empty() ? 0.0 : *std::max_element(ms.begin(), ms.end()), ms.size(), goal,
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
    if (!bench::installExecutable(QStringLiteral(DEMO_BACKEND_PATH), appDir) ||
        !bench::prepareSignedInFolder(appDir, env, &error)) {
        std::fprintf(stderr, "sign-in failed: %s\n", qPrintable(error));
        return 2;
    }
    auto spike = std::make_unique<UiTdlibSpike>(appDir, env);
    if (!bench::signIn(spike.get(), &error)) {
        std::fprintf(stderr, "start failed: %s\n", qPrintable(error));
        return 2;
    }
    PhoneWindow *window = spike->window();
    ShellScreens *screens = spike->screens();
    ListView *chatList = spike->chatListView();
    window->resize(1600, 1000);
    // The whole list, then the archive open at its newest page.
    if (!bench::waitFor(
            [&] {
                if (bench::chatRowWithTitle(spike.get(), kArchive) >= 0 &&
                    !spike->chatList()->isBulkLoading())
                    return true;
                chatList->scrollToPosition(ListView::End);
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
        frameMs(window, [&] { window->resize(1600 - i * 4, 1000); });

    // Dragging the right edge in and out, 4 pixels a frame, staying wide.
    std::vector<double> edge;
    for (int i = 0; i < steps; ++i) {
        const int w = 1600 - 4 * (i % 100 < 50 ? i % 50 : 50 - i % 50);
        edge.push_back(frameMs(window, [&] { window->resize(w, 1000); }));
    }
    // Dragging the splitter, 4 pixels a frame, across a fifth of the window.
    std::vector<double> split;
    const int left = screens->leftPaneWidth();
    for (int i = 0; i < steps; ++i) {
        const int x = left + 4 * (i % 100 < 50 ? i % 50 : 50 - i % 50);
        split.push_back(frameMs(window, [&] { screens->setLeftPaneWidth(x); }));
    }
    // Crossing the breakpoint both ways.
    std::vector<double> narrow, wide;
    for (int i = 0; i < 20; ++i) {
        narrow.push_back(frameMs(window, [&] { window->resize(600, 1000); }));
        wide.push_back(frameMs(window, [&] { window->resize(1600, 1000); }));
    }
    const bool kept = spike->isChatVisible() && screens->isWide();

    report("window edge drag (wide)", edge, kFrameGoalMs);
    report("splitter drag", split, kFrameGoalMs);
    report("crossing to narrow", narrow, kCrossGoalMs);
    report("crossing to wide", wide, kCrossGoalMs);
    std::printf("chat still open and in view after the crossings: %s\n", kept ? "yes" : "NO");
    return kept ? 0 : 1;
}
