#include "shell/Icons.h"

#include <QPainter>
#include <QPainterPath>

#include <functional>

namespace kestil::icons {

namespace {

using Painter = std::function<void(QPainter &, const QColor &)>;

// Paints on a 24 x 24 grid, scaled to the pixmap.
QPixmap render(int size, const QColor &color, const Painter &paint)
{
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(size / 24.0, size / 24.0);
    paint(painter, color);
    return pixmap;
}

QIcon iconOf(const QColor &color, const Painter &paint)
{
    QIcon icon;
    for (int size : {16, 24, 32, 48, 64})
        icon.addPixmap(render(size, color, paint));
    return icon;
}

void drawMicrophone(QPainter &p, const QColor &color)
{
    p.setPen(Qt::NoPen);
    p.setBrush(color);
    p.drawRoundedRect(QRectF(8.5, 2.5, 7, 12), 3.5, 3.5);
    QPen pen(color, 1.8, Qt::SolidLine, Qt::RoundCap);
    p.setPen(pen);
    p.setBrush(Qt::NoBrush);
    p.drawArc(QRectF(5.5, 5.5, 13, 13), 180 * 16, 180 * 16);
    p.drawLine(QPointF(12, 18.5), QPointF(12, 21.5));
    p.drawLine(QPointF(8.5, 21.5), QPointF(15.5, 21.5));
}

} // namespace

QIcon microphone(const QColor &color)
{
    return iconOf(color, drawMicrophone);
}

QIcon plus(const QColor &color)
{
    return iconOf(color, [](QPainter &p, const QColor &c) {
        p.setPen(QPen(c, 2.2, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(12, 5), QPointF(12, 19));
        p.drawLine(QPointF(5, 12), QPointF(19, 12));
    });
}

QIcon pause(const QColor &color)
{
    return iconOf(color, [](QPainter &p, const QColor &c) {
        p.setPen(Qt::NoPen);
        p.setBrush(c);
        p.drawRoundedRect(QRectF(6.5, 5, 4, 14), 1.2, 1.2);
        p.drawRoundedRect(QRectF(13.5, 5, 4, 14), 1.2, 1.2);
    });
}

QIcon resume(const QColor &color)
{
    return iconOf(color, [](QPainter &p, const QColor &c) {
        p.setPen(QPen(c, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.setBrush(c);
        QPainterPath path;
        path.moveTo(8, 5);
        path.lineTo(19, 12);
        path.lineTo(8, 19);
        path.closeSubpath();
        p.drawPath(path);
    });
}

QIcon stop(const QColor &color)
{
    return iconOf(color, [](QPainter &p, const QColor &c) {
        p.setPen(Qt::NoPen);
        p.setBrush(c);
        p.drawRoundedRect(QRectF(6, 6, 12, 12), 2, 2);
    });
}

QIcon edit(const QColor &color)
{
    return iconOf(color, [](QPainter &p, const QColor &c) {
        p.setPen(QPen(c, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.setBrush(Qt::NoBrush);
        QPainterPath pencil;
        pencil.moveTo(5, 19);
        pencil.lineTo(6, 15);
        pencil.lineTo(16, 5);
        pencil.lineTo(19, 8);
        pencil.lineTo(9, 18);
        pencil.closeSubpath();
        p.drawPath(pencil);
    });
}

QIcon filter(const QColor &color, bool filled)
{
    return iconOf(color, [filled](QPainter &p, const QColor &c) {
        const QRectF circle(2.5, 2.5, 19, 19);
        QColor lines = c;
        if (filled) {
            p.setPen(Qt::NoPen);
            p.setBrush(c);
            p.drawEllipse(circle);
            lines = Qt::white;
        } else {
            p.setPen(QPen(c, 1.6));
            p.setBrush(Qt::NoBrush);
            p.drawEllipse(circle);
        }
        p.setPen(QPen(lines, 1.8, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(7, 8.5), QPointF(17, 8.5));
        p.drawLine(QPointF(8.8, 12), QPointF(15.2, 12));
        p.drawLine(QPointF(10.6, 15.5), QPointF(13.4, 15.5));
    });
}

QIcon folder(const QColor &color)
{
    return iconOf(color, [](QPainter &p, const QColor &c) {
        p.setPen(QPen(c, 1.7, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.setBrush(Qt::NoBrush);
        QPainterPath path;
        path.moveTo(3, 7);
        path.lineTo(3, 18.5);
        path.quadTo(3, 19.5, 4, 19.5);
        path.lineTo(20, 19.5);
        path.quadTo(21, 19.5, 21, 18.5);
        path.lineTo(21, 8.5);
        path.quadTo(21, 7.5, 20, 7.5);
        path.lineTo(11.5, 7.5);
        path.lineTo(9.5, 5);
        path.lineTo(4, 5);
        path.quadTo(3, 5, 3, 6);
        path.closeSubpath();
        p.drawPath(path);
    });
}

QIcon clear(const QColor &color)
{
    return iconOf(color, [](QPainter &p, const QColor &c) {
        p.setPen(Qt::NoPen);
        QColor disc = c;
        disc.setAlphaF(0.45f);
        p.setBrush(disc);
        p.drawEllipse(QRectF(3, 3, 18, 18));
        p.setPen(QPen(Qt::white, 2, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(9, 9), QPointF(15, 15));
        p.drawLine(QPointF(15, 9), QPointF(9, 15));
    });
}

QIcon magnifier(const QColor &color)
{
    return iconOf(color, [](QPainter &p, const QColor &c) {
        p.setPen(QPen(c, 2, Qt::SolidLine, Qt::RoundCap));
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(QRectF(4, 4, 11, 11));
        p.drawLine(QPointF(13.5, 13.5), QPointF(19.5, 19.5));
    });
}

QIcon tray(bool recording)
{
    return iconOf(QColor(0x6e, 0x56, 0xcf), [recording](QPainter &p, const QColor &c) {
        drawMicrophone(p, recording ? QColor(0x30, 0x30, 0x30) : c);
        if (recording) {
            p.setPen(QPen(Qt::white, 1));
            p.setBrush(QColor(0xe5, 0x39, 0x35));
            p.drawEllipse(QRectF(14.5, 1, 8.5, 8.5));
        }
    });
}

QPixmap microphoneSlash(const QColor &color, int size)
{
    return render(size, color, [](QPainter &p, const QColor &c) {
        drawMicrophone(p, c);
        p.setPen(QPen(c, 1.8, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(4, 3.5), QPointF(20, 20.5));
    });
}

QPixmap processing(const QColor &color, int size)
{
    return render(size, color, [](QPainter &p, const QColor &c) {
        p.setPen(QPen(c, 2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.setBrush(Qt::NoBrush);
        const QRectF circle(5, 5, 14, 14);
        p.drawArc(circle, 20 * 16, 140 * 16);
        p.drawArc(circle, 200 * 16, 140 * 16);
        p.setBrush(c);
        QPainterPath head;
        head.moveTo(5.2, 9.6);
        head.lineTo(3.2, 7.2);
        head.lineTo(7.6, 7.4);
        head.closeSubpath();
        p.drawPath(head);
        QPainterPath tail;
        tail.moveTo(18.8, 14.4);
        tail.lineTo(20.8, 16.8);
        tail.lineTo(16.4, 16.6);
        tail.closeSubpath();
        p.drawPath(tail);
    });
}

} // namespace kestil::icons
