#include "shell/ui_scale.h"

#include <QtTest>

class TestUiScale : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void scale_data()
    {
        QTest::addColumn<QString>("override"); // null = unset
        QTest::addColumn<QSize>("display");
        QTest::addColumn<double>("expected");
        auto row = [](const char *name, const QString &o, QSize d, double e) {
            QTest::newRow(name) << o << d << e;
        };
        const QSize phone(720, 1280);
        row("override 5 clamps to 2", "5", phone, 2.0);
        row("override 0.3 clamps to 0.6", "0.3", phone, 0.6);
        row("override 1.5 trimmed", " 1.5 ", phone, 1.5);
        row("override empty falls back", "", QSize(768, 1280), 1.2);
        row("720x1280", QString(), phone, 1.15);
        row("1440x1440", QString(), QSize(1440, 1440), 1.35);
        row("landscape uses smaller side", QString(), QSize(1280, 720), 1.15);
        row("1439", QString(), QSize(1439, 2560), 1.3);
    }
    void scale()
    {
        QFETCH(QString, override);
        QFETCH(QSize, display);
        QFETCH(double, expected);
        QString lines;
        const float got = detect_ui_scale(override, display, &lines);
        QVERIFY2(qAbs(double(got) - expected) < 1e-6, qPrintable(QString::number(got)));
        // One line, said whichever way the scale was chosen.
        QVERIFY(lines.endsWith('\n') && lines.count('\n') == 1);
    }
    void scaledPx()
    {
        QCOMPARE(scaled_px(188, 1.15f), 216); // rounds, 216.2
        QCOMPARE(scaled_px(1, 0.6f), 1);      // a hairline never vanishes
    }
};

QTEST_GUILESS_MAIN(TestUiScale)
#include "test_ui_scale.moc"
