#include "shell/osicons.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// The committed icons are the generator's output, every icon the screens
// name is present, and each is a white glyph on transparency.
class TestIcons : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void named_data();
    void named();
    void committedMatchGenerator();

private:
    QString assetsDir() const;
};

QString TestIcons::assetsDir() const
{
    return qEnvironmentVariable("VEXA_SOURCE_DIR") + QStringLiteral("/assets/osicons");
}

void TestIcons::initTestCase()
{
    QVERIFY2(!qEnvironmentVariable("VEXA_SOURCE_DIR").isEmpty(), "VEXA_SOURCE_DIR not set");
    init_osicons();
}

void TestIcons::named_data()
{
    QTest::addColumn<QString>("name");
    for (const char *n :
         {"send.png", "ic_attach.png", "ic_microphone_unmute.png", "ic_microphone_mute.png",
          "ic_video.png", "menu.png", "icon_search.png", "ic_reply.png", "ic_forward.png",
          "ic_delete.png", "ic_to_bottom.png", "ic_download.png", "ii_bbm_ping.png",
          "ii_bbm_out_pending.png", "ii_bbm_out_sending.png", "ii_bbm_out_sent.png",
          "ii_bbm_out_delivered.png", "ii_bbm_out_read.png", "ii_bbm_out_failed.png"})
        QTest::newRow(n) << QString::fromLatin1(n);
}

void TestIcons::named()
{
    QFETCH(QString, name);
    const QImage img(asset_resource_path(QStringLiteral("assets/osicons/") + name));
    QVERIFY2(!img.isNull(), qPrintable(name));
    QCOMPARE(img.size(), QSize(96, 96));
    QVERIFY(img.hasAlphaChannel());
    int opaque = 0;
    int transparent = 0;
    for (int y = 0; y < img.height(); ++y) {
        for (int x = 0; x < img.width(); ++x) {
            const QRgb p = img.pixel(x, y);
            if (qAlpha(p) == 255) {
                ++opaque;
                QCOMPARE(qRed(p) & qGreen(p) & qBlue(p), 255);
            } else if (qAlpha(p) == 0) {
                ++transparent;
            }
        }
    }
    QVERIFY2(opaque > 200, qPrintable(QStringLiteral("%1 opaque").arg(opaque)));
    QVERIFY(transparent > 96 * 96 / 3);
    // The compiled-in copy is the file in the source tree.
    QCOMPARE(QImage(assetsDir() + QLatin1Char('/') + name), img);
}

void TestIcons::committedMatchGenerator()
{
    QTemporaryDir out;
    QProcess gen;
    gen.start(QStringLiteral(DRAW_ICONS_PATH), {out.path()});
    QVERIFY(gen.waitForFinished(30000));
    QCOMPARE(gen.exitStatus(), QProcess::NormalExit);
    QCOMPARE(gen.exitCode(), 0);
    const QStringList drawn =
        QDir(out.path()).entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Name);
    const QStringList committed =
        QDir(assetsDir()).entryList({QStringLiteral("*.png")}, QDir::Files, QDir::Name);
    QCOMPARE(committed, drawn);
    for (const QString &n : drawn) {
        const QImage a(out.filePath(n));
        const QImage b(assetsDir() + QLatin1Char('/') + n);
        QVERIFY2(a == b,
                 qPrintable(n + QStringLiteral(" differs: re-run tools/icons/regenerate.sh")));
        QVERIFY2(QFile::exists(osicon_path(n)),
                 qPrintable(n + QStringLiteral(" not in osicons.qrc")));
    }
}

QTEST_MAIN(TestIcons)
#include "test_icons.moc"
