#pragma once

#include <QColor>
#include <QPainter>
#include <QWidget>

// A widget painted with a flat colour, rounded when it has a radius (at most
// half its shorter side). The colour is a property, so a theme change
// repaints it without a style sheet, and nothing holds the painted pixels.
// A transparent colour paints nothing.
template<typename Base>
class Filled : public Base
{
public:
    using Base::Base;
    void setFill(const QColor &color, int radius)
    {
        if (color == m_color && radius == m_radius)
            return;
        m_color = color;
        m_radius = radius;
        this->update();
    }

protected:
    void paintEvent(QPaintEvent *event) override
    {
        if (m_color.alpha() > 0) {
            QPainter p(this);
            p.setRenderHint(QPainter::Antialiasing);
            p.setPen(Qt::NoPen);
            p.setBrush(m_color);
            const int r = qMin(m_radius, qMin(this->width(), this->height()) / 2);
            p.drawRoundedRect(this->rect(), r, r);
        }
        Base::paintEvent(event);
    }

private:
    QColor m_color = Qt::transparent;
    int m_radius = 0;
};
