#include "platform/ui/toast_overlay.h"

#include <QEvent>
#include <QLabel>
#include <QTimer>
#include <QWidget>

ToastOverlay::ToastOverlay(QWidget *host, QObject *parent) : QObject(parent), m_host(host)
{
    m_timer = new QTimer(this);
    m_timer->setSingleShot(true);
    m_timer->setInterval(DefaultDurationMs);
    if (!host)
        return;
    m_label = new QLabel(host);
    m_label->setObjectName(QStringLiteral("toast"));
    m_label->setWordWrap(true);
    m_label->setAlignment(Qt::AlignCenter);
    m_label->setAttribute(Qt::WA_TransparentForMouseEvents);
    m_label->setStyleSheet(QStringLiteral(
        "QLabel#toast { background: rgba(40, 40, 40, 230); color: white; border-radius: 18px;"
        " padding: 20px 32px; font-size: 28px; }"));
    m_label->hide();
    host->installEventFilter(this);
    connect(m_timer, &QTimer::timeout, m_label.data(), &QWidget::hide);
}

ToastOverlay::~ToastOverlay()
{
    if (m_host)
        m_host->removeEventFilter(this);
    delete m_label;
}

void ToastOverlay::setDuration(int ms)
{
    m_timer->setInterval(qMax(1, ms));
}

bool ToastOverlay::isShowing() const
{
    return m_label && m_label->isVisible();
}

QString ToastOverlay::currentText() const
{
    return isShowing() ? m_label->text() : QString();
}

void ToastOverlay::showToast(const QString &text)
{
    if (!m_label)
        return;
    m_label->setText(text);
    place();
    m_label->show();
    m_label->raise();
    m_timer->start();
}

void ToastOverlay::place()
{
    if (!m_host || !m_label)
        return;
    const int maxWidth = m_host->width() * 8 / 10;
    m_label->setMaximumWidth(qMax(1, maxWidth));
    // A wrapping label asks for a narrow width; a short toast stays on one
    // line, a long one wraps at the cap.
    m_label->setWordWrap(false);
    const int natural = m_label->sizeHint().width();
    m_label->setWordWrap(true);
    const int w = qMin(natural, maxWidth);
    const int h =
        m_label->hasHeightForWidth() ? m_label->heightForWidth(w) : m_label->sizeHint().height();
    const int x = (m_host->width() - w) / 2;
    // Above the composer and the record panel under it, which a toast
    // would otherwise cover while the user is recording or typing.
    const int y = m_host->height() - h - m_host->height() / 4;
    m_label->setGeometry(x, qMax(0, y), w, h);
}

bool ToastOverlay::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_host && event->type() == QEvent::Resize && isShowing())
        place();
    return QObject::eventFilter(watched, event);
}
