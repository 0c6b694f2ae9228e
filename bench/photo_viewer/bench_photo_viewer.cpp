// Times the photo viewer on a 4000x3000 camera JPEG in a phone-sized view:
// opening (from the call to the first frame painted, fitted), then frames
// while dragging at one-to-one, half and quarter size, and the fitted frame;
// and, for comparison, an open that decodes every pixel first.
// Prints milliseconds (median and 95th percentile).
#include "common/stats.h"
#include "media/ui/photo_view.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QImageReader>
#include <QPainter>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <cstdio>

namespace {

// A busy picture, so the JPEG is as heavy as a photograph's.
QString makeCameraPicture(const QTemporaryDir &dir)
{
    QImage image(4000, 3000, QImage::Format_RGB32);
    QRandomGenerator rng(7);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing);
    QLinearGradient g(0, 0, 4000, 3000);
    g.setColorAt(0, QColor(40, 90, 160));
    g.setColorAt(1, QColor(220, 160, 60));
    p.fillRect(image.rect(), g);
    p.setPen(Qt::NoPen);
    for (int i = 0; i < 6000; ++i) {
        p.setBrush(QColor::fromHsv(rng.bounded(360), 80 + rng.bounded(170), 90 + rng.bounded(160),
                                   100 + rng.bounded(150)));
        const int d = 3 + rng.bounded(60);
        p.drawEllipse(rng.bounded(4000), rng.bounded(3000), d, d);
    }
    p.end();
    const QString path = dir.filePath(QStringLiteral("camera.jpg"));
    return image.save(path, "JPG", 90) ? path : QString();
}

void waitForFull(PhotoView *view)
{
    QElapsedTimer t;
    t.start();
    while (!view->hasFullResolution() && t.elapsed() < 30000)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
}

// Frames while dragging across the picture and back.
std::vector<double> dragFrames(PhotoView *view, int frames)
{
    std::vector<double> ms;
    QElapsedTimer t;
    for (int i = 0; i < frames; ++i) {
        const int dir = (i / 100) % 2 ? 1 : -1;
        t.start();
        view->panBy(QPointF(7 * dir, 5 * dir));
        view->repaint();
        ms.push_back(t.nsecsElapsed() / 1e6);
    }
    return ms;
}

void print(const char *what, const std::vector<double> &ms)
{
    std::printf("%-34s median %.2f ms, 95th %.2f ms (%zu)\n", what, bench::median(ms),
                bench::percentile(ms, 0.95), ms.size());
}

} // namespace

int main(int argc, char *argv[])
{
    QApplication app(argc, argv);
    QTemporaryDir dir;
    const QString path = makeCameraPicture(dir);
    if (path.isEmpty()) {
        std::fprintf(stderr, "cannot write the picture\n");
        return 1;
    }
    std::printf("picture: 4000x3000 JPEG, %lld bytes\n", QFileInfo(path).size());

    PhotoView view;
    view.resize(720, 1150); // the phone screen under its header
    view.show();
    QCoreApplication::processEvents();

    std::vector<double> open;
    std::vector<double> full;
    QElapsedTimer t;
    for (int i = 0; i < 10; ++i) {
        view.clear();
        view.repaint();
        t.start();
        if (!view.showFile(path)) {
            std::fprintf(stderr, "cannot show the picture\n");
            return 1;
        }
        view.repaint();
        open.push_back(t.nsecsElapsed() / 1e6);
        waitForFull(&view);
        full.push_back(t.nsecsElapsed() / 1e6);
    }
    print("open to first frame (fitted)", open);
    print("full resolution decoded", full);

    // For comparison: decoding every pixel first, then painting it fitted.
    std::vector<double> plain;
    for (int i = 0; i < 5; ++i) {
        t.start();
        const QImage image = QImageReader(path).read();
        QImage frame(view.size(), QImage::Format_RGB32);
        QPainter p(&frame);
        p.setRenderHint(QPainter::SmoothPixmapTransform);
        p.drawImage(QRect(QPoint(0, 305), QSize(720, 540)), image);
        p.end();
        plain.push_back(t.nsecsElapsed() / 1e6);
    }
    print("whole decode, then fitted paint", plain);

    std::vector<double> fitted;
    for (int i = 0; i < 100; ++i) {
        t.start();
        view.repaint();
        fitted.push_back(t.nsecsElapsed() / 1e6);
    }
    print("fitted frame", fitted);

    view.toggleZoomAt(QPointF(360, 575));
    print("drag at one to one", dragFrames(&view, 400));
    view.toggleZoomAt(QPointF(360, 575));
    const double half = 0.5 / view.zoomPan().scale();
    view.zoomAt(half, QPointF(360, 575));
    print("drag at half size", dragFrames(&view, 400));
    view.zoomAt(0.25 / view.zoomPan().scale(), QPointF(360, 575));
    print("drag at a quarter size", dragFrames(&view, 400));
    return 0;
}
