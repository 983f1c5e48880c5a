#include "documents/SummaryPDF.h"

#include "base/Error.h"
#include "documents/ParsedNoteMarkdown.h"
#include "documents/StructuredSummary.h"
#include "documents/SummaryPieces.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFontDatabase>
#include <QPageSize>
#include <QPainter>
#include <QPdfWriter>
#include <QUuid>

#include <cstdio>

namespace kestil::SummaryPDF {

namespace {

// The writer does not report a failed write (a full disk): a document is
// complete only if its end-of-file mark reached the disk.
bool endsAsPDF(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() < 64)
        return false;
    file.seek(file.size() - 64);
    return file.read(64).contains("%%EOF");
}

} // namespace

Pagination paginate(const QList<PieceMetrics> &pieces)
{
    Pagination result;
    int page = 0;
    qreal y = margin;
    for (qsizetype i = 0; i < pieces.size(); ++i) {
        const PieceMetrics &piece = pieces[i];
        const qreal h = piece.height;
        qreal needed = h;
        if (i + 1 < pieces.size() && piece.keepWithNext)
            needed = h + piece.gapAfter + pieces[i + 1].height;
        // A piece, or a head with the start of its rows, that would not fit
        // on a whole page either starts where it is: a new page would not
        // help it.
        if (y > margin && needed <= usableHeight && y + needed > bottomLimit) {
            ++page;
            y = margin;
        }
        const qreal available = bottomLimit - y;
        qreal shown = std::min(h, available);
        result.slices.append({int(i), page, y, 0, shown});
        y += shown;
        if (shown < h) {
            ++page;
            y = margin;
            while (shown < h) {
                const qreal step = std::min(h - shown, usableHeight);
                result.slices.append({int(i), page, margin, shown, step});
                shown += step;
                y += step;
                if (shown < h) {
                    ++page;
                    y = margin;
                }
            }
        }
        y += piece.gapAfter;
    }
    result.pageCount = page + 1;
    return result;
}

void write(const QString &title, const std::optional<QDateTime> &date, const QString &content,
           const QString &destination, const QColor &accent)
{
    const QFileInfo target(destination);
    // The document is written beside its destination and renamed over it
    // only when complete, so a failure never leaves a PDF that looks whole.
    const QString partial =
        target.dir().filePath(QStringLiteral(".") + target.fileName() + QLatin1Char('.') +
                              QUuid::createUuid().toString(QUuid::WithoutBraces) + QStringLiteral(".part"));
    const auto fail = [&partial]() -> void {
        QFile::remove(partial);
        throw LocalError(QStringLiteral("The PDF could not be created."));
    };
    {
        QFile probe(partial);
        if (!probe.open(QIODevice::WriteOnly))
            fail();
    }
    QPdfWriter writer(partial);
    writer.setResolution(72);
    writer.setPageSize(QPageSize(QSizeF(pageWidth, pageHeight), QPageSize::Point));
    writer.setPageMargins(QMarginsF(0, 0, 0, 0));
    writer.setTitle(title);
    writer.setCreator(QStringLiteral("Kestil"));
    QPainter painter;
    if (!painter.begin(&writer))
        fail();

    SummaryLayout layout;
    layout.width = contentWidth;
    layout.font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    layout.font.setPointSizeF(10.5);
    layout.palette = SummaryPalette::light(accent);
    layout.device = &writer;
    QList<SummaryFlowPiece> pieces{summaryTitlePiece(title, date, layout)};
    const std::shared_ptr<const ParsedNoteMarkdown> parsed = ParsedNoteMarkdown::cached(content, false);
    pieces.append(summaryPieces(StructuredSummary(*parsed), layout));

    QList<PieceMetrics> metrics;
    for (const SummaryFlowPiece &piece : pieces)
        metrics.append({piece.view->height(), piece.keepWithNext, piece.gapAfter});
    const Pagination pagination = paginate(metrics);
    int page = 0;
    for (const Slice &slice : pagination.slices) {
        while (page < slice.page) {
            writer.newPage();
            ++page;
        }
        // A piece that begins below the foot, after a gap, shows nothing on
        // that page.
        if (slice.height <= 0)
            continue;
        painter.save();
        painter.setClipRect(QRectF(margin, slice.top, contentWidth, slice.height));
        pieces[slice.piece].view->draw(painter, QPointF(margin, slice.top - slice.shownBefore));
        painter.restore();
    }
    if (!painter.end() || !endsAsPDF(partial))
        fail();
    if (std::rename(QFile::encodeName(partial).constData(), QFile::encodeName(destination).constData()) != 0)
        fail();
}

} // namespace kestil::SummaryPDF
