#include "platform/display_info.h"

#include <QtTest>

class TestDisplayInfo : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // VEXA_DISPLAY and VEXA_ZOOM; anything refused falls back to 720x1280
    // and, without a GUI application here, to zoom 1.
    void fromEnvironment_data()
    {
        QTest::addColumn<QString>("display");
        QTest::addColumn<QString>("zoom");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<double>("expectedZoom");
        const QSize def(720, 1280);
        const auto row = [](const char *name, const char *d, const char *z, QSize s, double e) {
            QTest::newRow(name) << d << QString::fromLatin1(z) << s << e;
        };
        row("plain, half", "1080x1920", "0.5", QSize(1080, 1920), 0.5);
        row("upper X, blanks", " 720 X 720 ", " 1.25 ", QSize(720, 720), 1.25);
        row("words, nan", "big", "nan", def, 1.0);
        row("too large, above 8", "720x20000", "100", def, 1.0);
        row("negative, 8 exactly", "-720x1280", "8", def, 8.0);
    }

    void fromEnvironment()
    {
        QFETCH(QString, display);
        QFETCH(QString, zoom);
        QFETCH(QSize, size);
        QFETCH(double, expectedZoom);
        QProcessEnvironment env;
        env.insert("VEXA_DISPLAY", display);
        env.insert("VEXA_ZOOM", zoom);
        const DisplayInfo info(env);
        QCOMPARE(info.pixelSize(), size);
        QCOMPARE(info.zoom(), expectedZoom);
    }

    // The window fits the screen's free area and never grows past 1.
    void fitZoom()
    {
        QCOMPARE(fit_zoom(QSize(720, 1280), QRect()), 1.0);
        QCOMPARE(fit_zoom(QSize(720, 1280), QRect(0, 0, 3840, 2160)), 1.0);
        QVERIFY(fit_zoom(QSize(720, 1280), QRect(0, 0, 1920, 1000)) * 1280 < 1000);
        QVERIFY(fit_zoom(QSize(1280, 720), QRect(0, 0, 800, 2000)) * 1280 < 800);
    }
};

QTEST_GUILESS_MAIN(TestDisplayInfo)
#include "test_display_info.moc"
