#include "documents/SummarySymbols.h"

#include <QPainter>
#include <QPainterPath>

#include <cmath>

namespace kestil {

namespace {

// Every symbol is drawn on a 24-unit grid and scaled to its box.
void bubble(QPainter &p)
{
    QPainterPath path;
    path.addRoundedRect(QRectF(2.5, 3, 19, 14), 4, 4);
    path.moveTo(7, 17);
    path.lineTo(6, 21.5);
    path.lineTo(11.5, 17);
    p.drawPath(path.simplified());
}

void questionMark(QPainter &p, QPointF centre, double scale)
{
    QPainterPath path;
    path.moveTo(centre + QPointF(-2.6, -2.6) * scale);
    path.cubicTo(centre + QPointF(-2.6, -5.6) * scale, centre + QPointF(2.8, -5.6) * scale,
                 centre + QPointF(2.8, -2.4) * scale);
    path.cubicTo(centre + QPointF(2.8, -0.4) * scale, centre + QPointF(0, 0) * scale,
                 centre + QPointF(0, 1.6) * scale);
    p.drawPath(path);
    p.drawPoint(centre + QPointF(0, 4.2) * scale);
}

void triangle(QPainter &p, bool filled, const QColor &color)
{
    QPainterPath path;
    path.moveTo(12, 3);
    path.lineTo(22, 20.5);
    path.lineTo(2, 20.5);
    path.closeSubpath();
    if (filled) {
        p.fillPath(path, color);
        p.setPen(QPen(Qt::white, 2.2, Qt::SolidLine, Qt::RoundCap));
    } else {
        p.drawPath(path);
    }
    p.drawLine(QPointF(12, 9), QPointF(12, 14));
    p.drawPoint(QPointF(12, 17.5));
}

} // namespace

void drawSummarySymbol(QPainter &painter, const QString &name, const QRectF &box, const QColor &color)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(box.topLeft());
    painter.scale(box.width() / 24.0, box.height() / 24.0);
    QPen pen(color, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    QPainter &p = painter;

    if (name == QLatin1String("checklist")) {
        for (int row = 0; row < 3; ++row) {
            const double y = 5 + row * 7;
            p.drawPolyline(QList<QPointF>{{3, y}, {4.8, y + 1.8}, {8, y - 1.6}});
            p.drawLine(QPointF(11, y), QPointF(21, y));
        }
    } else if (name == QLatin1String("questionmark.bubble")) {
        bubble(p);
        questionMark(p, QPointF(12, 10), 0.9);
    } else if (name == QLatin1String("exclamationmark.triangle")) {
        triangle(p, false, color);
    } else if (name == QLatin1String("exclamationmark.triangle.fill")) {
        triangle(p, true, color);
    } else if (name == QLatin1String("text.alignleft")) {
        for (int row = 0; row < 4; ++row)
            p.drawLine(QPointF(3, 5 + row * 4.7), QPointF(row % 2 ? 15 : 21, 5 + row * 4.7));
    } else if (name == QLatin1String("checkmark.seal")) {
        QPainterPath seal;
        for (int i = 0; i < 24; ++i) {
            const double angle = i * 3.14159265 / 12;
            const double radius = i % 2 ? 8.6 : 10;
            const QPointF point(12 + radius * std::cos(angle), 12 + radius * std::sin(angle));
            i ? seal.lineTo(point) : seal.moveTo(point);
        }
        seal.closeSubpath();
        p.drawPath(seal);
        p.drawPolyline(QList<QPointF>{{8, 12.2}, {11, 15}, {16, 9}});
    } else if (name == QLatin1String("calendar")) {
        p.drawRoundedRect(QRectF(3, 5, 18, 16), 3, 3);
        p.drawLine(QPointF(3, 10), QPointF(21, 10));
        p.drawLine(QPointF(8, 3), QPointF(8, 6.5));
        p.drawLine(QPointF(16, 3), QPointF(16, 6.5));
        for (int i = 0; i < 3; ++i)
            p.drawPoint(QPointF(8 + i * 4, 15));
    } else if (name == QLatin1String("lightbulb")) {
        QPainterPath bulb;
        bulb.moveTo(9, 16);
        bulb.cubicTo(9, 13.5, 5, 12, 5, 8.5);
        bulb.cubicTo(5, 4.5, 8.2, 2.5, 12, 2.5);
        bulb.cubicTo(15.8, 2.5, 19, 4.5, 19, 8.5);
        bulb.cubicTo(19, 12, 15, 13.5, 15, 16);
        bulb.closeSubpath();
        p.drawPath(bulb);
        p.drawLine(QPointF(9.5, 19), QPointF(14.5, 19));
        p.drawLine(QPointF(10.5, 21.5), QPointF(13.5, 21.5));
    } else if (name == QLatin1String("person.2")) {
        p.drawEllipse(QPointF(9, 8), 3.3, 3.3);
        p.drawArc(QRectF(2.5, 13.5, 13, 12), 0, 180 * 16);
        p.drawEllipse(QPointF(16.5, 7), 2.7, 2.7);
        p.drawArc(QRectF(13, 12, 10, 10), 20 * 16, 160 * 16);
    } else if (name == QLatin1String("chart.bar")) {
        p.drawRoundedRect(QRectF(3.5, 13, 4, 8), 1, 1);
        p.drawRoundedRect(QRectF(10, 8, 4, 13), 1, 1);
        p.drawRoundedRect(QRectF(16.5, 3, 4, 18), 1, 1);
    } else if (name == QLatin1String("book")) {
        QPainterPath book;
        book.moveTo(12, 6);
        book.cubicTo(9, 4, 5, 4, 2.5, 5);
        book.lineTo(2.5, 19.5);
        book.cubicTo(5, 18.5, 9, 18.5, 12, 20.5);
        book.cubicTo(15, 18.5, 19, 18.5, 21.5, 19.5);
        book.lineTo(21.5, 5);
        book.cubicTo(19, 4, 15, 4, 12, 6);
        book.lineTo(12, 20.5);
        p.drawPath(book);
    } else if (name == QLatin1String("quote.bubble")) {
        bubble(p);
        p.setBrush(color);
        p.drawEllipse(QPointF(9, 9.5), 1.3, 1.3);
        p.drawEllipse(QPointF(14.5, 9.5), 1.3, 1.3);
        p.setBrush(Qt::NoBrush);
        p.drawArc(QRectF(7, 8, 3, 6), -90 * 16, 90 * 16);
        p.drawArc(QRectF(12.5, 8, 3, 6), -90 * 16, 90 * 16);
    } else if (name == QLatin1String("circle")) {
        p.drawEllipse(QPointF(12, 12), 8.5, 8.5);
    } else if (name == QLatin1String("questionmark.circle")) {
        p.drawEllipse(QPointF(12, 12), 9.5, 9.5);
        questionMark(p, QPointF(12, 12), 1.0);
    } else if (name == QLatin1String("smallcircle.filled.circle")) {
        p.drawEllipse(QPointF(12, 12), 8.5, 8.5);
        p.setBrush(color);
        p.drawEllipse(QPointF(12, 12), 3.5, 3.5);
    } else { // "list.number": the digits 1, 2, 3 ahead of three lines
        p.setPen(QPen(color, 1.3, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        p.drawPolyline(QList<QPointF>{{3.2, 4.4}, {4.6, 3.5}, {4.6, 8.3}});
        QPainterPath two;
        two.moveTo(3, 10.8);
        two.cubicTo(3.2, 9.2, 6.2, 9.2, 6.2, 10.9);
        two.cubicTo(6.2, 12.2, 3.2, 13.4, 3, 14.5);
        two.lineTo(6.4, 14.5);
        p.drawPath(two);
        QPainterPath three;
        three.moveTo(3, 16.4);
        three.cubicTo(3.6, 15, 6.3, 15.3, 6.1, 16.9);
        three.cubicTo(6, 18, 4.6, 18.2, 4.3, 18.2);
        three.cubicTo(6.5, 18.2, 6.7, 20.6, 5, 20.9);
        three.cubicTo(4, 21.1, 3.2, 20.6, 2.9, 20);
        p.drawPath(three);
        p.setPen(pen);
        for (int row = 0; row < 3; ++row) {
            const double y = 5.9 + row * 6.2;
            p.drawLine(QPointF(10, y), QPointF(21, y));
        }
    }
    painter.restore();
}

} // namespace kestil
