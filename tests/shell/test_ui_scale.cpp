#include "shell/ui_scale.h"

#include <QtTest>

class TestUiScale : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void scale_data();
    void scale();
    void scaledPx();
};

void TestUiScale::scale_data()
{
    QTest::addColumn<QString>("override"); // null = unset
    QTest::addColumn<QSize>("display");
    QTest::addColumn<double>("expected");
    QTest::addColumn<QString>("log");
    auto row = [](const char *name, const QString &o, QSize d, double e, const char *log) {
        QTest::newRow(name) << o << d << e << QString::fromLatin1(log);
    };
    const QSize phone(720, 1280);
    row("override 5 clamps to 2", "5", phone, 2.0, "ui: QUILLO_UI_SCALE=5.00\n");
    row("override 0.3 clamps to 0.6", "0.3", phone, 0.6, "ui: QUILLO_UI_SCALE=0.30\n");
    row("override 1.5 trimmed", " 1.5 ", phone, 1.5, "ui: QUILLO_UI_SCALE=1.50\n");
    row("override 0.05 falls back", "0.05", phone, 1.15, "ui: display_px=720x1280 ui_scale=1.15\n");
    row("override 0.1 falls back", "0.1", phone, 1.15, "ui: display_px=720x1280 ui_scale=1.15\n");
    row("override word falls back", "big", phone, 1.15, "ui: display_px=720x1280 ui_scale=1.15\n");
    row("override empty falls back", "", QSize(768, 1280), 1.2,
        "ui: display_px=768x1280 ui_scale=1.20\n");
    row("720x1280", QString(), phone, 1.15, "ui: display_px=720x1280 ui_scale=1.15\n");
    row("1440x1440", QString(), QSize(1440, 1440), 1.35,
        "ui: display_px=1440x1440 ui_scale=1.35\n");
    row("landscape uses smaller side", QString(), QSize(1280, 720), 1.15,
        "ui: display_px=1280x720 ui_scale=1.15\n");
    row("719", QString(), QSize(719, 1280), 1.0, "ui: display_px=719x1280 ui_scale=1.00\n");
    row("767", QString(), QSize(767, 1280), 1.15, "ui: display_px=767x1280 ui_scale=1.15\n");
    row("899", QString(), QSize(899, 1600), 1.2, "ui: display_px=899x1600 ui_scale=1.20\n");
    row("900", QString(), QSize(900, 1600), 1.25, "ui: display_px=900x1600 ui_scale=1.25\n");
    row("1079", QString(), QSize(1079, 1920), 1.25, "ui: display_px=1079x1920 ui_scale=1.25\n");
    row("1080", QString(), QSize(1080, 1920), 1.3, "ui: display_px=1080x1920 ui_scale=1.30\n");
    row("1439", QString(), QSize(1439, 2560), 1.3, "ui: display_px=1439x2560 ui_scale=1.30\n");
}

void TestUiScale::scale()
{
    QFETCH(QString, override);
    QFETCH(QSize, display);
    QFETCH(double, expected);
    QFETCH(QString, log);
    QString lines;
    const float got = detect_ui_scale(override, display, &lines);
    QVERIFY2(qAbs(double(got) - expected) < 1e-6, qPrintable(QString::number(got)));
    QCOMPARE(lines, log);
    // Without a log sink the result is the same.
    QCOMPARE(detect_ui_scale(override, display, nullptr), got);
}

void TestUiScale::scaledPx()
{
    QCOMPARE(scaled_px(188, 1.15f), 216); // rounds, 216.2
    QCOMPARE(scaled_px(1, 0.6f), 1);      // a hairline never vanishes
    QCOMPARE(scaled_px(0, 2.0f), 0);
    QCOMPARE(scaled_px(56, 2.0f), 112);
}

QTEST_GUILESS_MAIN(TestUiScale)
#include "test_ui_scale.moc"
