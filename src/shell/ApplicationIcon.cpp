#include "shell/ApplicationIcon.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

namespace kestil {

QImage applicationIconImage(int size)
{
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(size / 256.0, size / 256.0);

    // A rounded square in Kestil's purple, lighter at the top.
    QLinearGradient background(0, 16, 0, 240);
    background.setColorAt(0, QColor(0x9b, 0x7b, 0xe0));
    background.setColorAt(1, QColor(0x5b, 0x3a, 0xa8));
    painter.setPen(Qt::NoPen);
    painter.setBrush(background);
    painter.drawRoundedRect(QRectF(16, 16, 224, 224), 52, 52);

    // A microphone: capsule, cradle and stand, in white.
    painter.setBrush(Qt::white);
    painter.drawRoundedRect(QRectF(100, 48, 56, 100), 28, 28);
    QPen cradle(Qt::white, 14, Qt::SolidLine, Qt::RoundCap);
    painter.setPen(cradle);
    painter.setBrush(Qt::NoBrush);
    QPainterPath arc;
    arc.moveTo(76, 112);
    arc.cubicTo(76, 190, 180, 190, 180, 112);
    painter.drawPath(arc);
    painter.drawLine(QPointF(128, 172), QPointF(128, 200));
    painter.drawLine(QPointF(100, 202), QPointF(156, 202));

    // Sound on each side, fading outwards.
    for (int i = 0; i < 2; ++i) {
        QColor wave(255, 255, 255, i == 0 ? 200 : 120);
        painter.setPen(QPen(wave, 10, Qt::SolidLine, Qt::RoundCap));
        const double reach = 20.0 + 18.0 * i;
        painter.drawArc(QRectF(76 - reach, 76 - reach, 104 + 2 * reach, 104 + 2 * reach), 150 * 16, 60 * 16);
        painter.drawArc(QRectF(76 - reach, 76 - reach, 104 + 2 * reach, 104 + 2 * reach), -30 * 16, 60 * 16);
    }
    return image;
}

QIcon applicationIcon()
{
    QIcon icon;
    for (int size : {16, 24, 32, 48, 64, 128, 256})
        icon.addPixmap(QPixmap::fromImage(applicationIconImage(size)));
    return icon;
}

} // namespace kestil
