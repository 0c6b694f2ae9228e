#include "platform/osicons.h"

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// The committed icons are the generator's output, every icon the screens
// name is among them, and each is a white glyph on transparency.
class TestIcons : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void committedMatchGenerator()
    {
        const QString assets = qEnvironmentVariable("VEXA_SOURCE_DIR") + "/assets/osicons/";
        init_osicons();
        QTemporaryDir out;
        QProcess gen;
        gen.start(QStringLiteral(DRAW_ICONS_PATH), {out.path()});
        QVERIFY(gen.waitForFinished(30000) && gen.exitCode() == 0);
        const QStringList drawn =
            QDir(out.path()).entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Name);
        QCOMPARE(QDir(assets).entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Name), drawn);
        for (const char *n :
             {"send.png", "ic_attach.png", "ic_microphone_unmute.png", "ic_microphone_mute.png",
              "ic_video.png", "menu.png", "icon_search.png", "ic_reply.png", "ic_forward.png",
              "ic_delete.png", "ic_to_bottom.png", "ic_download.png", "ii_bbm_ping.png",
              "ii_bbm_out_pending.png", "ii_bbm_out_sending.png", "ii_bbm_out_sent.png",
              "ii_bbm_out_delivered.png", "ii_bbm_out_read.png", "ii_bbm_out_failed.png"})
            QVERIFY2(drawn.contains(QLatin1String(n)), n);
        for (const QString &n : drawn) {
            const QImage img(osicon_path(n)); // the compiled-in copy
            QVERIFY2(img == QImage(out.filePath(n)) && img == QImage(assets + n),
                     qPrintable(
                         n + " differs: re-run tools/icons/regenerate.sh, list it in osicons.qrc"));
            QCOMPARE(img.size(), QSize(96, 96));
            int opaque = 0, transparent = 0;
            for (int y = 0; y < 96; ++y)
                for (int x = 0; x < 96; ++x) {
                    const QRgb p = img.pixel(x, y);
                    opaque += qAlpha(p) == 255;
                    transparent += qAlpha(p) == 0;
                    QVERIFY(qAlpha(p) < 255 || (qRed(p) & qGreen(p) & qBlue(p)) == 255);
                }
            QVERIFY2(opaque > 200 && transparent > 96 * 96 / 3, qPrintable(n));
        }
    }
};

QTEST_MAIN(TestIcons)
#include "test_icons.moc"
