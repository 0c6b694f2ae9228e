#include "platform/ui/phone_window.h"

#include <QGraphicsProxyWidget>
#include <QGraphicsScene>
#include <QGraphicsView>
#include <QResizeEvent>
#include <QStackedLayout>
#include <QVBoxLayout>
#include <QtMath>

PhoneWindow::PhoneWindow(const DisplayInfo &display, QWidget *parent)
    : QWidget(parent), m_designSize(display.pixelSize()), m_zoom(display.zoom()), m_baseZoom(m_zoom)
{
    setObjectName(QStringLiteral("phone_window"));
    setWindowTitle(QStringLiteral("Vexa"));
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);

    m_host = new QWidget;
    m_host->setObjectName(QStringLiteral("phone_screen"));
    m_host->resize(m_designSize);
    // The screens are squeezed into what the window gives them, as on the
    // phone, rather than widening the screen past the window.
    m_host->setMinimumSize(1, 1);
    m_stack = new QStackedLayout(m_host);
    m_stack->setContentsMargins(0, 0, 0, 0);
    connect(m_stack, &QStackedLayout::currentChanged, this,
            [this](int) { Q_EMIT currentScreenChanged(m_stack->currentWidget()); });

    if (qFuzzyCompare(m_zoom, 1.0)) {
        // The screen covers the window whole: no window background under it.
        setAttribute(Qt::WA_OpaquePaintEvent, true);
        outer->addWidget(m_host);
        resize(m_designSize);
        return;
    }
    m_scene = new QGraphicsScene(this);
    m_proxy = m_scene->addWidget(m_host);
    m_scene->setSceneRect(QRectF(QPointF(0, 0), QSizeF(m_designSize)));
    m_view = new QGraphicsView(m_scene, this);
    m_view->setObjectName(QStringLiteral("phone_view"));
    m_view->setFrameShape(QFrame::NoFrame);
    m_view->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_view->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_view->setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing |
                           QPainter::SmoothPixmapTransform);
    // Scaled widgets report fractional dirty areas; redraw whole frames.
    m_view->setViewportUpdateMode(QGraphicsView::FullViewportUpdate);
    m_view->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    m_view->setBackgroundBrush(QColor(24, 24, 24));
    outer->addWidget(m_view);
    applyZoom(m_zoom);
    resize(qRound(m_designSize.width() * m_zoom), qRound(m_designSize.height() * m_zoom));
}

PhoneWindow::~PhoneWindow() = default;

void PhoneWindow::applyZoom(double zoom)
{
    if (!m_view || zoom <= 0)
        return;
    m_zoom = zoom;
    m_view->setTransform(QTransform::fromScale(zoom, zoom));
}

void PhoneWindow::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (!m_view || event->size().isEmpty())
        return;
    // The zoom stays and the screen grows or shrinks with the window, down
    // to the phone's width and three quarters of its height; a smaller
    // window shows that much at a smaller zoom.
    const QSize size = event->size();
    const double z =
        qBound(0.1,
               qMin(m_baseZoom, qMin(double(size.width()) / m_designSize.width(),
                                     double(size.height()) / (m_designSize.height() * 3 / 4))),
               8.0);
    applyZoom(z);
    const QSize host(qMax(1, qFloor(size.width() / z)), qMax(1, qFloor(size.height() / z)));
    m_host->resize(host);
    m_scene->setSceneRect(QRectF(QPointF(0, 0), QSizeF(host)));
}

QSize PhoneWindow::screenSize() const
{
    return m_host->size();
}

void PhoneWindow::addScreen(QWidget *screen)
{
    if (!screen || m_stack->indexOf(screen) >= 0)
        return;
    m_stack->addWidget(screen);
}

void PhoneWindow::setScreen(QWidget *screen)
{
    if (!screen)
        return;
    addScreen(screen);
    m_stack->setCurrentWidget(screen);
}

QWidget *PhoneWindow::currentScreen() const
{
    return m_stack->currentWidget();
}

QPoint PhoneWindow::mapToScreenHost(const QPoint &windowPos) const
{
    if (!m_view)
        return m_host->mapFrom(this, windowPos);
    const QPoint inView = m_view->viewport()->mapFrom(this, windowPos);
    return m_view->mapToScene(inView).toPoint();
}
