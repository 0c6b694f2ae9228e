#include "platform/ui/phone_window.h"
#include "platform/ui/toast_overlay.h"

#include <QGraphicsView>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QtTest>

class TestPhoneWindow : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void screensSwitch();
    void inputReachesScreen_data();
    void inputReachesScreen();
    void toastShowsAndHides();
    void toastReplacesAndStaysInside();
};

void TestPhoneWindow::screensSwitch()
{
    PhoneWindow w(DisplayInfo(QSize(720, 1280), 0.5));
    auto *a = new QLabel("a");
    auto *b = new QLabel("b");
    QSignalSpy changed(&w, &PhoneWindow::currentScreenChanged);
    w.addScreen(a);
    w.addScreen(b);
    QCOMPARE(w.currentScreen(), a);
    w.setScreen(b);
    QCOMPARE(w.currentScreen(), b);
    QCOMPARE(changed.last().at(0).value<QWidget *>(), b);
    auto *c = new QLabel("c");
    w.setScreen(c);
    QCOMPARE(w.currentScreen(), c);
    QCOMPARE(c->parentWidget(), w.screenHost());
    QCOMPARE(w.screenHost()->size(), QSize(720, 1280));
}

void TestPhoneWindow::inputReachesScreen_data()
{
    QTest::addColumn<double>("zoom");
    QTest::addColumn<QSize>("display");
    QTest::newRow("unscaled") << 1.0 << QSize(720, 1280);
    QTest::newRow("half") << 0.5 << QSize(720, 1280);
    QTest::newRow("square display") << 0.75 << QSize(720, 720);
}

// A click on the window where the button appears must reach the button,
// whatever the zoom.
void TestPhoneWindow::inputReachesScreen()
{
    QFETCH(double, zoom);
    QFETCH(QSize, display);
    PhoneWindow w(DisplayInfo(display, zoom));
    QCOMPARE(w.isScaled(), zoom != 1.0);
    auto *screen = new QWidget;
    auto *button = new QPushButton("Send", screen);
    button->setGeometry(500, 600, 200, 100);
    w.setScreen(screen);
    w.show();
    QVERIFY(QTest::qWaitForWindowExposed(&w));
    QCOMPARE(w.size(), QSize(qRound(display.width() * zoom), qRound(display.height() * zoom)));
    QSignalSpy clicked(button, &QPushButton::clicked);
    const QPoint designPoint(600, 648); // whole window pixels at every zoom here
    const QPoint windowPoint(qRound(designPoint.x() * zoom), qRound(designPoint.y() * zoom));
    QCOMPARE(w.mapToScreenHost(windowPoint), designPoint);
    // As the window system would: to the widget under the pointer.
    auto targetAt = [&w](const QPoint &windowPos) {
        QWidget *t = w.isScaled() ? w.graphicsView()->viewport() : w.childAt(windowPos);
        return t ? t : static_cast<QWidget *>(&w);
    };
    QWidget *target = targetAt(windowPoint);
    const QPoint p = target->mapFrom(&w, windowPoint);
    QTest::mousePress(target, Qt::LeftButton, Qt::NoModifier, p);
    QTest::mouseRelease(target, Qt::LeftButton, Qt::NoModifier, p);
    QCOMPARE(clicked.count(), 1);

    // Missing the button by a little misses it.
    const QPoint offWindow(qRound(480 * zoom), qRound(648 * zoom));
    target = targetAt(offWindow);
    const QPoint off = target->mapFrom(&w, offWindow);
    QTest::mousePress(target, Qt::LeftButton, Qt::NoModifier, off);
    QTest::mouseRelease(target, Qt::LeftButton, Qt::NoModifier, off);
    QCOMPARE(clicked.count(), 1);
}

void TestPhoneWindow::toastShowsAndHides()
{
    QWidget host;
    host.resize(720, 1280);
    host.show();
    ToastOverlay toast(&host);
    toast.setDuration(150);
    QVERIFY(!toast.isShowing());
    toast.showToast("Copied");
    QVERIFY(toast.isShowing());
    QCOMPARE(toast.currentText(), QStringLiteral("Copied"));
    QCOMPARE(toast.label()->parentWidget(), &host);
    QTRY_VERIFY_WITH_TIMEOUT(!toast.isShowing(), 3000);
    QCOMPARE(toast.currentText(), QString());
}

void TestPhoneWindow::toastReplacesAndStaysInside()
{
    QWidget host;
    host.resize(400, 600);
    host.show();
    ToastOverlay toast(&host);
    toast.showToast("First");
    toast.showToast(QString("A long toast text that must wrap inside the screen ").repeated(4));
    QVERIFY(toast.currentText().startsWith("A long"));
    QVERIFY(host.rect().contains(toast.label()->geometry()));
    QVERIFY(toast.label()->width() <= 320);
    Toaster *asInterface = &toast;
    asInterface->showToast("Via interface");
    QCOMPARE(toast.currentText(), QStringLiteral("Via interface"));
}

QTEST_MAIN(TestPhoneWindow)
#include "tst_phone_window.moc"
