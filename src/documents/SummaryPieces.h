#pragma once

#include "documents/StructuredSummary.h"
#include "documents/SummaryPalette.h"

#include <QDateTime>
#include <QFont>
#include <QList>
#include <QPointF>
#include <QRectF>
#include <QString>

#include <memory>
#include <optional>

class QPainter;
class QPaintDevice;

namespace kestil {

// How pieces are laid out: the width they fill, the base font the text
// styles are made from, the colours, and the device they will be drawn on
// (text metrics differ between a screen and a PDF).
struct SummaryLayout {
    qreal width = 528;
    QFont font;
    SummaryPalette palette;
    QPaintDevice *device = nullptr;
};

// One vertically stacked unit of a summary page, laid out at its width when
// made: its height is known before it is drawn, and it can be drawn more than
// once, clipped and offset, as a PDF page break needs.
class SummaryPiece {
public:
    // A part of the piece that stands for one item or block: what assistive
    // technology and tests find it by.
    struct Anchor {
        QString identifier;
        QString text;
        QRectF rect;
    };

    virtual ~SummaryPiece() = default;
    qreal height() const { return height_; }
    virtual void draw(QPainter &painter, const QPointF &topLeft) const = 0;
    // The destination of the link under `point` (in the piece's own
    // coordinates), or empty.
    virtual QString linkAt(const QPointF &point) const;
    const QList<Anchor> &anchors() const { return anchors_; }
    // What the piece says, as plain lines in reading order.
    const QString &text() const { return text_; }

protected:
    qreal height_ = 0;
    QList<Anchor> anchors_;
    QString text_;
};

// A piece with its place in the flow: whether it must share a page with the
// start of the next one, and the space below it.
struct SummaryFlowPiece {
    std::shared_ptr<const SummaryPiece> view;
    bool keepWithNext = false;
    qreal gapAfter = 0;
};

// The title of a printed summary, with its date below when there is one.
SummaryFlowPiece summaryTitlePiece(const QString &title, const std::optional<QDateTime> &date,
                                   const SummaryLayout &layout);

// The overview card, then for each section its head, its paragraphs in a card
// and one row per item group, with the gaps that separate them.
QList<SummaryFlowPiece> summaryPieces(const StructuredSummary &summary, const SummaryLayout &layout);

// The date line of a printed summary: weekday, month, day, year and time.
QString summaryDateText(const QDateTime &date);

} // namespace kestil
