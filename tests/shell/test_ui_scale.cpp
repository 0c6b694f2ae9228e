#include "shell/ui_scale.h"

#include <QtTest>

class TestUiScale : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void scale_data();
    void scale();
    void scaledPx_data();
    void scaledPx();
};

void TestUiScale::scale_data()
{
    QTest::addColumn<QString>("override"); // null = unset
    QTest::addColumn<QSize>("display");
    QTest::addColumn<double>("expected");
    QTest::addColumn<QString>("log");

    const QSize phone(720, 1280);
    QTest::newRow("override 5 clamps to 2")
        << QStringLiteral("5") << phone << 2.0 << QStringLiteral("ui: QUILLO_UI_SCALE=5.00\n");
    QTest::newRow("override 0.3 clamps to 0.6")
        << QStringLiteral("0.3") << phone << 0.6 << QStringLiteral("ui: QUILLO_UI_SCALE=0.30\n");
    QTest::newRow("override 1.5 trimmed")
        << QStringLiteral(" 1.5 ") << phone << 1.5 << QStringLiteral("ui: QUILLO_UI_SCALE=1.50\n");
    QTest::newRow("override 0.05 falls back")
        << QStringLiteral("0.05") << phone << 1.15
        << QStringLiteral("ui: display_px=720x1280 ui_scale=1.15\n");
    QTest::newRow("override 0.1 falls back")
        << QStringLiteral("0.1") << phone << 1.15
        << QStringLiteral("ui: display_px=720x1280 ui_scale=1.15\n");
    QTest::newRow("override word falls back")
        << QStringLiteral("big") << phone << 1.15
        << QStringLiteral("ui: display_px=720x1280 ui_scale=1.15\n");
    QTest::newRow("override empty falls back")
        << QStringLiteral("") << QSize(768, 1280) << 1.2
        << QStringLiteral("ui: display_px=768x1280 ui_scale=1.20\n");
    QTest::newRow("720x1280") << QString() << phone << 1.15
                              << QStringLiteral("ui: display_px=720x1280 ui_scale=1.15\n");
    QTest::newRow("768x1280") << QString() << QSize(768, 1280) << 1.2
                              << QStringLiteral("ui: display_px=768x1280 ui_scale=1.20\n");
    QTest::newRow("1440x1440") << QString() << QSize(1440, 1440) << 1.35
                               << QStringLiteral("ui: display_px=1440x1440 ui_scale=1.35\n");
    QTest::newRow("landscape uses smaller side")
        << QString() << QSize(1280, 720) << 1.15
        << QStringLiteral("ui: display_px=1280x720 ui_scale=1.15\n");
    QTest::newRow("719") << QString() << QSize(719, 1280) << 1.0
                         << QStringLiteral("ui: display_px=719x1280 ui_scale=1.00\n");
    QTest::newRow("767") << QString() << QSize(767, 1280) << 1.15
                         << QStringLiteral("ui: display_px=767x1280 ui_scale=1.15\n");
    QTest::newRow("899") << QString() << QSize(899, 1600) << 1.2
                         << QStringLiteral("ui: display_px=899x1600 ui_scale=1.20\n");
    QTest::newRow("900") << QString() << QSize(900, 1600) << 1.25
                         << QStringLiteral("ui: display_px=900x1600 ui_scale=1.25\n");
    QTest::newRow("1079") << QString() << QSize(1079, 1920) << 1.25
                          << QStringLiteral("ui: display_px=1079x1920 ui_scale=1.25\n");
    QTest::newRow("1080") << QString() << QSize(1080, 1920) << 1.3
                          << QStringLiteral("ui: display_px=1080x1920 ui_scale=1.30\n");
    QTest::newRow("1439") << QString() << QSize(1439, 2560) << 1.3
                          << QStringLiteral("ui: display_px=1439x2560 ui_scale=1.30\n");
}

void TestUiScale::scale()
{
    QFETCH(QString, override);
    QFETCH(QSize, display);
    QFETCH(double, expected);
    QFETCH(QString, log);
    QString lines;
    const float got = detect_ui_scale(override, display, &lines);
    QVERIFY2(qAbs(double(got) - expected) < 1e-6,
             qPrintable(QStringLiteral("got %1").arg(double(got))));
    QCOMPARE(lines, log);
    // Without a log sink the result is the same.
    QCOMPARE(detect_ui_scale(override, display, nullptr), got);
}

void TestUiScale::scaledPx_data()
{
    QTest::addColumn<int>("design");
    QTest::addColumn<double>("scale");
    QTest::addColumn<int>("px");
    QTest::newRow("row 188 at 1.15") << 188 << 1.15 << 216;
    QTest::newRow("avatar 144 at 1.0") << 144 << 1.0 << 144;
    QTest::newRow("hairline at 0.6") << 1 << 0.6 << 1;
    QTest::newRow("zero") << 0 << 2.0 << 0;
    QTest::newRow("badge 56 at 2") << 56 << 2.0 << 112;
}

void TestUiScale::scaledPx()
{
    QFETCH(int, design);
    QFETCH(double, scale);
    QFETCH(int, px);
    QCOMPARE(scaled_px(design, float(scale)), px);
}

QTEST_GUILESS_MAIN(TestUiScale)
#include "test_ui_scale.moc"
