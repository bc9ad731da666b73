#include "placemark.h"

#include <QPainter>
#include <QPainterPath>

Placemark::Placemark(int size, QWidget *parent)
    : QWidget(parent)
{
    setFixedSize(size, size);
}

void Placemark::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(width() / 64.0, height() / 64.0);
    painter.setPen(Qt::NoPen);

    QColor ground = palette().color(QPalette::Highlight);
    ground.setAlphaF(0.18F);
    painter.setBrush(ground);
    painter.drawEllipse(QPointF(32, 56), 20, 6);

    QPainterPath pin;
    pin.moveTo(32, 57);
    pin.cubicTo(27, 45, 14, 38, 14, 23);
    pin.cubicTo(14, 13, 22, 5, 32, 5);
    pin.cubicTo(42, 5, 50, 13, 50, 23);
    pin.cubicTo(50, 38, 37, 45, 32, 57);
    pin.addEllipse(QPointF(32, 23), 7.5, 7.5);
    painter.setBrush(palette().color(QPalette::Highlight));
    painter.drawPath(pin);
}
