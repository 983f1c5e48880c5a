#pragma once

#include <QColor>

namespace kestil {

// The colours a structured summary is drawn with. The PDF always takes the
// light values, whatever the window's appearance is.
struct SummaryPalette {
    QColor accent;
    QColor text;
    QColor secondary;
    QColor card;

    static SummaryPalette light(const QColor &accent);
    static SummaryPalette dark(const QColor &accent);
};

} // namespace kestil
