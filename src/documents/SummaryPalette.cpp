#include "documents/SummaryPalette.h"

namespace kestil {

namespace {

QColor gray(double level, double opacity = 1.0)
{
    QColor color = QColor::fromRgbF(float(level), float(level), float(level));
    color.setAlphaF(float(opacity));
    return color;
}

} // namespace

SummaryPalette SummaryPalette::light(const QColor &accent)
{
    return {accent, gray(0.1), gray(0.1, 0.78), gray(0.96)};
}

SummaryPalette SummaryPalette::dark(const QColor &accent)
{
    return {accent, gray(0.85), gray(0.85, 0.78), gray(0.15)};
}

} // namespace kestil
