#include "platform/display_info.h"

#include <QtTest>

class TestDisplayInfo : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void displaySize_data()
    {
        QTest::addColumn<QString>("value");
        QTest::addColumn<QSize>("expected");
        const QSize def(720, 1280);
        QTest::newRow("empty") << "" << def;
        QTest::newRow("plain") << "1080x1920" << QSize(1080, 1920);
        QTest::newRow("upper X and blanks") << " 720 X 720 " << QSize(720, 720);
        QTest::newRow("missing height") << "720x" << def;
        QTest::newRow("words") << "big" << def;
        QTest::newRow("negative") << "-720x1280" << def;
        QTest::newRow("too small") << "99x1280" << def;
        QTest::newRow("too large") << "720x20000" << def;
        QTest::newRow("fraction") << "720.5x1280" << def;
        QTest::newRow("trailing junk") << "720x1280px" << def;
    }

    void displaySize()
    {
        QFETCH(QString, value);
        QFETCH(QSize, expected);
        QCOMPARE(parse_display_size(value), expected);
    }

    void zoom_data()
    {
        QTest::addColumn<QString>("value");
        QTest::addColumn<double>("expected"); // 0: refused, falls back to 1
        QTest::newRow("half") << "0.5" << 0.5;
        QTest::newRow("blanks") << " 1.25 " << 1.25;
        QTest::newRow("empty") << "" << 0.0;
        QTest::newRow("zero") << "0" << 0.0;
        QTest::newRow("negative") << "-2" << 0.0;
        QTest::newRow("huge") << "100" << 0.0;
        QTest::newRow("nan") << "nan" << 0.0;
        QTest::newRow("text") << "fast" << 0.0;
    }

    void zoom()
    {
        QFETCH(QString, value);
        QFETCH(double, expected);
        bool ok = expected == 0;
        QCOMPARE(parse_zoom(value, &ok), expected == 0 ? 1.0 : expected);
        QCOMPARE(ok, expected != 0);
    }

    void fitZoom_data()
    {
        QTest::addColumn<QSize>("display");
        QTest::addColumn<QRect>("available");
        QTest::addColumn<double>("expected");
        QTest::newRow("no screen") << QSize(720, 1280) << QRect() << 1.0;
        QTest::newRow("large screen capped at 1")
            << QSize(720, 1280) << QRect(0, 0, 3840, 2160) << 1.0;
        QTest::newRow("height bound")
            << QSize(720, 1280) << QRect(0, 0, 1920, 1000) << 1000 * 0.92 / 1280;
        QTest::newRow("width bound")
            << QSize(1280, 720) << QRect(0, 0, 800, 2000) << 800 * 0.95 / 1280;
    }

    void fitZoom()
    {
        QFETCH(QSize, display);
        QFETCH(QRect, available);
        QFETCH(double, expected);
        QVERIFY(qAbs(fit_zoom(display, available) - expected) < 1e-9);
    }

    void fromEnvironment_data()
    {
        QTest::addColumn<QString>("display");
        QTest::addColumn<QString>("zoom");
        QTest::addColumn<QSize>("size");
        QTest::addColumn<double>("expectedZoom");
        QTest::newRow("both") << "1440x1440" << QString("0.75") << QSize(1440, 1440) << 0.75;
        QTest::newRow("bad display") << "1440" << QString("2") << QSize(720, 1280) << 2.0;
        // No GUI application here, so a refused zoom falls back to 1.
        QTest::newRow("bad zoom") << "720x720" << QString("x") << QSize(720, 720) << 1.0;
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
};

QTEST_GUILESS_MAIN(TestDisplayInfo)
#include "tst_display_info.moc"
