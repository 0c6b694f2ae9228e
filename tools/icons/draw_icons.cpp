// Draws the application's icons: simple white glyphs on a transparent
// background, 96 x 96 pixels, antialiased. Usage: vexa-draw-icons OUTDIR
// The PNGs in assets/osicons are the output of this program; the icon test
// redraws them and compares, so edit here and re-run rather than touching the
// images.

#include <QCoreApplication>
#include <QDir>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QtMath>
#include <cstdio>
#include <functional>

namespace {

constexpr int kSize = 96;
const QColor kInk(255, 255, 255);

QPen ink(qreal width)
{
    QPen p(kInk, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    return p;
}

void drawCheck(QPainter &p, QPointF at, qreal s, qreal w)
{
    p.setPen(ink(w));
    p.setBrush(Qt::NoBrush);
    QPainterPath path;
    path.moveTo(at + QPointF(-0.45 * s, 0.0));
    path.lineTo(at + QPointF(-0.12 * s, 0.33 * s));
    path.lineTo(at + QPointF(0.5 * s, -0.35 * s));
    p.drawPath(path);
}

void send(QPainter &p)
{
    QPainterPath path;
    path.moveTo(14, 16);
    path.lineTo(84, 48);
    path.lineTo(14, 80);
    path.lineTo(24, 48);
    path.closeSubpath();
    p.setPen(ink(4));
    p.setBrush(kInk);
    p.drawPath(path);
}

void attach(QPainter &p)
{
    p.setPen(ink(7));
    p.setBrush(Qt::NoBrush);
    QPainterPath path;
    path.moveTo(62, 30);
    path.lineTo(62, 66);
    path.arcTo(QRectF(30, 50, 32, 32), 0, -180);
    path.lineTo(30, 22);
    path.arcTo(QRectF(30, 6, 24, 24), 180, -180);
    path.lineTo(54, 62);
    path.arcTo(QRectF(38, 54, 16, 16), 0, -180);
    path.lineTo(38, 30);
    p.translate(2, 4);
    p.drawPath(path);
}

void microphoneBody(QPainter &p)
{
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    p.drawRoundedRect(QRectF(34, 10, 28, 48), 14, 14);
    p.setPen(ink(6));
    p.setBrush(Qt::NoBrush);
    p.drawArc(QRectF(22, 26, 52, 46), 180 * 16, 180 * 16);
    p.drawLine(QPointF(48, 72), QPointF(48, 86));
    p.drawLine(QPointF(34, 86), QPointF(62, 86));
}

void micUnmute(QPainter &p)
{
    microphoneBody(p);
}

void micMute(QPainter &p)
{
    microphoneBody(p);
    // Cut a gap around the slash so it reads over the filled body.
    p.setCompositionMode(QPainter::CompositionMode_Clear);
    p.setPen(QPen(Qt::transparent, 16, Qt::SolidLine, Qt::RoundCap));
    p.drawLine(QPointF(18, 14), QPointF(80, 84));
    p.setCompositionMode(QPainter::CompositionMode_SourceOver);
    p.setPen(ink(6));
    p.drawLine(QPointF(18, 14), QPointF(80, 84));
}

void video(QPainter &p)
{
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    p.drawRoundedRect(QRectF(8, 26, 56, 44), 10, 10);
    QPainterPath lens;
    lens.moveTo(68, 42);
    lens.lineTo(88, 28);
    lens.lineTo(88, 68);
    lens.lineTo(68, 54);
    lens.closeSubpath();
    p.drawPath(lens);
}

void menu(QPainter &p)
{
    p.setPen(ink(8));
    for (int y : {26, 48, 70})
        p.drawLine(QPointF(18, y), QPointF(78, y));
}

void search(QPainter &p)
{
    p.setPen(ink(8));
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(QPointF(40, 40), 24, 24);
    p.drawLine(QPointF(58, 58), QPointF(82, 82));
}

void reply(QPainter &p)
{
    p.setPen(ink(8));
    p.setBrush(Qt::NoBrush);
    QPainterPath path;
    path.moveTo(40, 22);
    path.lineTo(16, 46);
    path.lineTo(40, 70);
    p.drawPath(path);
    QPainterPath tail;
    tail.moveTo(18, 46);
    tail.lineTo(54, 46);
    tail.cubicTo(72, 46, 82, 58, 82, 78);
    p.drawPath(tail);
}

void forward(QPainter &p)
{
    p.translate(kSize, 0);
    p.scale(-1, 1);
    reply(p);
}

void trash(QPainter &p)
{
    p.setPen(ink(7));
    p.setBrush(Qt::NoBrush);
    p.drawLine(QPointF(16, 24), QPointF(80, 24));
    p.drawLine(QPointF(38, 14), QPointF(58, 14));
    QPainterPath can;
    can.moveTo(24, 30);
    can.lineTo(29, 84);
    can.lineTo(67, 84);
    can.lineTo(72, 30);
    p.drawPath(can);
    p.setPen(ink(5));
    p.drawLine(QPointF(40, 40), QPointF(41, 72));
    p.drawLine(QPointF(56, 40), QPointF(55, 72));
}

void arrowDown(QPainter &p, qreal top, qreal bottom)
{
    p.setPen(ink(8));
    p.setBrush(Qt::NoBrush);
    p.drawLine(QPointF(48, top), QPointF(48, bottom));
    QPainterPath head;
    head.moveTo(26, bottom - 22);
    head.lineTo(48, bottom);
    head.lineTo(70, bottom - 22);
    p.drawPath(head);
}

void toBottom(QPainter &p)
{
    arrowDown(p, 14, 66);
    p.setPen(ink(8));
    p.drawLine(QPointF(22, 82), QPointF(74, 82));
}

void download(QPainter &p)
{
    arrowDown(p, 12, 60);
    p.setPen(ink(7));
    QPainterPath tray;
    tray.moveTo(16, 62);
    tray.lineTo(16, 82);
    tray.lineTo(80, 82);
    tray.lineTo(80, 62);
    p.drawPath(tray);
}

void clockFace(QPainter &p)
{
    p.setPen(ink(7));
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(QPointF(48, 48), 34, 34);
    p.drawLine(QPointF(48, 48), QPointF(48, 28));
    p.drawLine(QPointF(48, 48), QPointF(62, 56));
}

void ping(QPainter &p)
{
    // Waiting for the network: three bars of a signal meter, the last hollow.
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    p.drawRoundedRect(QRectF(14, 58, 16, 24), 4, 4);
    p.drawRoundedRect(QRectF(40, 38, 16, 44), 4, 4);
    p.setPen(ink(5));
    p.setBrush(Qt::NoBrush);
    p.drawRoundedRect(QRectF(66, 16, 14, 64), 4, 4);
}

void pending(QPainter &p)
{
    clockFace(p);
}

void sending(QPainter &p)
{
    p.setPen(ink(7));
    p.setBrush(Qt::NoBrush);
    p.drawArc(QRectF(14, 14, 68, 68), 90 * 16, 270 * 16);
    QPainterPath head;
    head.moveTo(36, 8);
    head.lineTo(50, 14);
    head.lineTo(38, 26);
    p.drawPath(head);
}

void sent(QPainter &p)
{
    drawCheck(p, QPointF(48, 50), 60, 8);
}

void delivered(QPainter &p)
{
    drawCheck(p, QPointF(38, 50), 50, 7);
    drawCheck(p, QPointF(60, 50), 50, 7);
}

void read(QPainter &p)
{
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    p.drawEllipse(QPointF(48, 48), 42, 42);
    p.setCompositionMode(QPainter::CompositionMode_Clear);
    drawCheck(p, QPointF(40, 50), 40, 7);
    drawCheck(p, QPointF(58, 50), 40, 7);
}

void pin(QPainter &p)
{
    // A push pin leaning right: round head, collar and needle.
    p.translate(48, 48);
    p.rotate(40);
    p.translate(-48, -48);
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    p.drawRoundedRect(QRectF(32, 10, 32, 12), 5, 5);
    QPainterPath body;
    body.moveTo(37, 22);
    body.lineTo(59, 22);
    body.lineTo(64, 52);
    body.lineTo(32, 52);
    body.closeSubpath();
    p.drawPath(body);
    p.drawRoundedRect(QRectF(24, 50, 48, 10), 5, 5);
    p.setPen(ink(6));
    p.drawLine(QPointF(48, 60), QPointF(48, 88));
}

void failed(QPainter &p)
{
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    p.drawEllipse(QPointF(48, 48), 40, 40);
    p.setCompositionMode(QPainter::CompositionMode_Clear);
    p.setPen(ink(9));
    p.drawLine(QPointF(48, 26), QPointF(48, 54));
    p.drawPoint(QPointF(48, 70));
}

void back(QPainter &p)
{
    p.setPen(ink(8));
    p.setBrush(Qt::NoBrush);
    QPainterPath path;
    path.moveTo(44, 22);
    path.lineTo(18, 48);
    path.lineTo(44, 74);
    p.drawPath(path);
    p.drawLine(QPointF(20, 48), QPointF(80, 48));
}

// A circular arrow: most of a ring with an arrowhead at its open end.
void refresh(QPainter &p)
{
    p.setPen(ink(8));
    p.setBrush(Qt::NoBrush);
    const QRectF ring(20, 20, 56, 56);
    p.drawArc(ring, 60 * 16, 290 * 16);
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    // The ring's open end at 60 degrees, pointing along the turn.
    const QPointF tip(48 + 28 * qCos(qDegreesToRadians(60.0)) + 10,
                      48 - 28 * qSin(qDegreesToRadians(60.0)) + 2);
    QPainterPath head;
    head.moveTo(tip);
    head.lineTo(tip + QPointF(-20, -12));
    head.lineTo(tip + QPointF(-14, 14));
    head.closeSubpath();
    p.drawPath(head);
}

void more(QPainter &p)
{
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    for (int y : {22, 48, 74})
        p.drawEllipse(QPointF(48, y), 7, 7);
}

void close(QPainter &p)
{
    p.setPen(ink(8));
    p.drawLine(QPointF(22, 22), QPointF(74, 74));
    p.drawLine(QPointF(74, 22), QPointF(22, 74));
}

void play(QPainter &p)
{
    QPainterPath path;
    path.moveTo(30, 18);
    path.lineTo(78, 48);
    path.lineTo(30, 78);
    path.closeSubpath();
    p.setPen(ink(4));
    p.setBrush(kInk);
    p.drawPath(path);
}

void pause(QPainter &p)
{
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    p.drawRoundedRect(QRectF(24, 18, 16, 60), 4, 4);
    p.drawRoundedRect(QRectF(56, 18, 16, 60), 4, 4);
}

void file(QPainter &p)
{
    p.setPen(ink(6));
    p.setBrush(Qt::NoBrush);
    QPainterPath page;
    page.moveTo(22, 10);
    page.lineTo(58, 10);
    page.lineTo(76, 28);
    page.lineTo(76, 86);
    page.lineTo(22, 86);
    page.closeSubpath();
    p.drawPath(page);
    QPainterPath fold;
    fold.moveTo(56, 12);
    fold.lineTo(56, 30);
    fold.lineTo(74, 30);
    p.drawPath(fold);
}

void lock(QPainter &p)
{
    p.setPen(ink(7));
    p.setBrush(Qt::NoBrush);
    p.drawArc(QRectF(30, 12, 36, 40), 0, 180 * 16);
    p.drawLine(QPointF(30, 32), QPointF(30, 44));
    p.drawLine(QPointF(66, 32), QPointF(66, 44));
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    p.drawRoundedRect(QRectF(20, 42, 56, 42), 8, 8);
}

void theme(QPainter &p)
{
    // A half-filled disc: the dark/bright switch.
    p.setPen(ink(6));
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(QPointF(48, 48), 34, 34);
    p.setPen(Qt::NoPen);
    p.setBrush(kInk);
    p.drawPie(QRectF(14, 14, 68, 68), 90 * 16, 180 * 16);
}

void info(QPainter &p)
{
    p.setPen(ink(6));
    p.setBrush(Qt::NoBrush);
    p.drawEllipse(QPointF(48, 48), 38, 38);
    p.setPen(ink(9));
    p.drawLine(QPointF(48, 44), QPointF(48, 70));
    p.drawPoint(QPointF(48, 28));
}

void log(QPainter &p)
{
    p.setPen(ink(6));
    for (int y : {24, 42, 60, 78})
        p.drawLine(QPointF(18, y), QPointF(y == 78 ? 54 : 78, y));
}

struct Icon
{
    const char *name;
    std::function<void(QPainter &)> draw;
};

const Icon kIcons[] = {
    {"send.png", send},
    {"ic_attach.png", attach},
    {"ic_microphone_unmute.png", micUnmute},
    {"ic_microphone_mute.png", micMute},
    {"ic_video.png", video},
    {"menu.png", menu},
    {"icon_search.png", search},
    {"ic_reply.png", reply},
    {"ic_forward.png", forward},
    {"ic_delete.png", trash},
    {"ic_to_bottom.png", toBottom},
    {"ic_download.png", download},
    {"ii_bbm_ping.png", ping},
    {"ii_bbm_out_pending.png", pending},
    {"ii_bbm_out_sending.png", sending},
    {"ii_bbm_out_sent.png", sent},
    {"ii_bbm_out_delivered.png", delivered},
    {"ii_bbm_out_read.png", read},
    {"ii_bbm_out_failed.png", failed},
    {"ic_back.png", back},
    {"ic_more.png", more},
    {"ic_refresh.png", refresh},
    {"ic_close.png", close},
    {"ic_play.png", play},
    {"ic_pause.png", pause},
    {"ic_file.png", file},
    {"ic_lock.png", lock},
    {"ic_theme.png", theme},
    {"ic_info.png", info},
    {"ic_log.png", log},
    {"ic_pin.png", pin},
};

} // namespace

int main(int argc, char *argv[])
{
    QGuiApplication app(argc, argv);
    if (argc != 2) {
        std::fputs("usage: vexa-draw-icons OUTDIR\n", stderr);
        return 2;
    }
    const QString outDir = QString::fromLocal8Bit(argv[1]);
    if (!QDir().mkpath(outDir)) {
        std::fprintf(stderr, "cannot create %s\n", argv[1]);
        return 1;
    }
    for (const Icon &icon : kIcons) {
        QImage img(kSize, kSize, QImage::Format_ARGB32_Premultiplied);
        img.fill(Qt::transparent);
        QPainter p(&img);
        p.setRenderHint(QPainter::Antialiasing);
        icon.draw(p);
        p.end();
        const QString path = outDir + QLatin1Char('/') + QLatin1String(icon.name);
        if (!img.save(path, "PNG")) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
            return 1;
        }
    }
    return 0;
}
