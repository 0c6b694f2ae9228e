#pragma once

#include <QColor>
#include <QGuiApplication>
#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <QtMath>

// Shapes drawn at the screen's device pixel ratio, so that rounded edges
// stay sharp at fractional scale factors instead of being a 1x image
// stretched. Sizes and radii are in logical pixels.

inline qreal ui_device_pixel_ratio()
{
    return qGuiApp ? qGuiApp->devicePixelRatio() : 1.0;
}

// A transparent pixmap of size logical pixels backed by size * dpr pixels.
inline QPixmap sharp_blank_pixmap(const QSize &size, qreal dpr)
{
    QPixmap pm(qCeil(size.width() * dpr), qCeil(size.height() * dpr));
    pm.setDevicePixelRatio(dpr);
    pm.fill(Qt::transparent);
    return pm;
}

inline QPixmap sharp_rounded_rect(const QSize &size, qreal radius, const QColor &color, qreal dpr)
{
    QPixmap pm = sharp_blank_pixmap(size, dpr);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing, true);
    p.setPen(Qt::NoPen);
    p.setBrush(color);
    p.drawRoundedRect(QRectF(QPointF(0, 0), QSizeF(size)), radius, radius, Qt::AbsoluteSize);
    return pm;
}

// src, whose pixels are at dpr, centred in a circle of the given diameter.
inline QPixmap sharp_circle_cut(const QPixmap &src, int diameter, qreal dpr)
{
    QPixmap pm = sharp_blank_pixmap(QSize(diameter, diameter), dpr);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing, true);
    p.setRenderHint(QPainter::SmoothPixmapTransform, true);
    QPainterPath circle;
    circle.addEllipse(QRectF(0, 0, diameter, diameter));
    p.setClipPath(circle);
    const QSizeF s = QSizeF(src.size()) / dpr;
    p.drawPixmap(QRectF(QPointF((diameter - s.width()) / 2, (diameter - s.height()) / 2), s), src,
                 QRectF(src.rect()));
    return pm;
}
