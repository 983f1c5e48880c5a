#pragma once

#include <QColor>
#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

namespace kestil {

// A note's summary as a US Letter PDF, drawn by the same pieces as the
// Summary tab but always in the light palette. Pieces are placed whole where
// they fit; a section head stays with the start of what follows it, and only
// a piece taller than a page is sliced across pages.
namespace SummaryPDF {

inline constexpr qreal pageWidth = 612;
inline constexpr qreal pageHeight = 792;
inline constexpr qreal margin = 42;
inline constexpr qreal contentWidth = pageWidth - 2 * margin;
inline constexpr qreal bottomLimit = pageHeight - margin;
inline constexpr qreal usableHeight = bottomLimit - margin;

// A piece's size and place in the flow, as pagination needs it.
struct PieceMetrics {
    qreal height = 0;
    bool keepWithNext = false;
    qreal gapAfter = 0;
};

// What one page shows of one piece: the band [shownBefore, shownBefore +
// height) of the piece, drawn with its top at `top` on page `page`.
struct Slice {
    int piece = 0;
    int page = 0;
    qreal top = 0;
    qreal shownBefore = 0;
    qreal height = 0;
    friend bool operator==(const Slice &, const Slice &) = default;
};

struct Pagination {
    QList<Slice> slices;
    int pageCount = 1;
};

Pagination paginate(const QList<PieceMetrics> &pieces);

// Writes the PDF of `content` (the summary's Markdown) to `destination`,
// titled `title`, with the date under the title when there is one. The file
// appears only once it is complete. Throws LocalError "The PDF could not be
// created." when the document cannot be made.
void write(const QString &title, const std::optional<QDateTime> &date, const QString &content,
           const QString &destination, const QColor &accent);

} // namespace SummaryPDF
} // namespace kestil
