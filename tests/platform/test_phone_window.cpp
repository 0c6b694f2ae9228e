#include "platform/ui/phone_window.h"
#include "platform/ui/toast_overlay.h"

#include <QGraphicsView>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

class TestPhoneWindow : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // A click on the scaled window where the button appears must reach the
    // button (unscaled windows: every screen test).
    void inputReachesScreen()
    {
        const double zoom = 0.75;
        const QSize display(720, 720);
        PhoneWindow w(DisplayInfo(display, zoom));
        auto *screen = new QWidget;
        auto *button = new QPushButton("Send", screen);
        button->setGeometry(500, 600, 200, 100);
        w.setScreen(screen);
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QCOMPARE(w.size(), QSize(qRound(display.width() * zoom), qRound(display.height() * zoom)));
        QSignalSpy clicked(button, &QPushButton::clicked);
        // Whole window pixels at this zoom.
        QCOMPARE(w.mapToScreenHost(QPoint(qRound(600 * zoom), qRound(648 * zoom))),
                 QPoint(600, 648));
        // As the window system would: to the widget under the pointer. Missing
        // the button by a little misses it.
        for (const int x : {600, 480}) {
            const QPoint at(qRound(x * zoom), qRound(648 * zoom));
            QWidget *target = w.graphicsView()->viewport();
            QTest::mouseClick(target, Qt::LeftButton, Qt::NoModifier, target->mapFrom(&w, at));
        }
        QCOMPARE(clicked.count(), 1);
    }

    // Shown, replaced, kept inside a small screen, hidden after its time.
    void toast()
    {
        QWidget host;
        host.resize(400, 600);
        host.show();
        ToastOverlay toast(&host);
        toast.setDuration(150);
        toast.showToast("First");
        toast.showToast(QString("A long toast text that must wrap inside the screen ").repeated(4));
        QVERIFY(toast.currentText().startsWith("A long"));
        QVERIFY(host.rect().contains(toast.label()->geometry()));
        QTRY_VERIFY_WITH_TIMEOUT(!toast.isShowing(), 3000);
    }
};

QTEST_MAIN(TestPhoneWindow)
#include "test_phone_window.moc"
