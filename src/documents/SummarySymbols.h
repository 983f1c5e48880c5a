#pragma once

#include <QColor>
#include <QRectF>
#include <QString>

class QPainter;

namespace kestil {

// Draws one of the symbols of a summary page ("checklist", "calendar",
// "questionmark.circle"…) as a vector drawing filling `box`, so that the
// screen and the PDF show the same shape at any size. An unknown name draws
// the plain section's numbered list.
void drawSummarySymbol(QPainter &painter, const QString &name, const QRectF &box, const QColor &color);

} // namespace kestil
