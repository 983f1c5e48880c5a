#include "shell/StructuredSummaryView.h"

#include "documents/ParsedNoteMarkdown.h"
#include "documents/StructuredSummary.h"

#include <QDesktopServices>
#include <QEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QScrollBar>
#include <QUrl>

#include <cmath>

namespace kestil {

namespace {

constexpr int sideMargin = 4;
// Room between the page's right edge (the count badges) and the scroll bar.
constexpr int trailingMargin = 14;

} // namespace

StructuredSummaryView::StructuredSummaryView(const QString &identifier, QWidget *parent)
    : QScrollArea(parent), page_(new QWidget)
{
    setObjectName(identifier);
    setAccessibleName(identifier);
    setFrameShape(QFrame::NoFrame);
    setWidgetResizable(false);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    page_->setObjectName(identifier + QStringLiteral("Page"));
    page_->setMouseTracking(true);
    page_->installEventFilter(this);
    setWidget(page_);
}

void StructuredSummaryView::setMarkdown(const QString &content, bool isStreaming)
{
    if (content == content_ && isStreaming == streaming_ && laidOutWidth_ == viewport()->width())
        return;
    const bool continues = content.startsWith(content_);
    content_ = content;
    streaming_ = isStreaming;
    QScrollBar *bar = verticalScrollBar();
    const bool atBottom = bar->value() >= bar->maximum() - 4;
    const int position = continues ? bar->value() : 0;
    relayout();
    // A growing summary stays in sight unless the user scrolled up to read.
    bar->setValue(continues && isStreaming && atBottom ? bar->maximum() : position);
}

QString StructuredSummaryView::plainText() const
{
    QStringList lines;
    for (const SummaryFlowPiece &piece : pieces_)
        lines.append(piece.view->text());
    return lines.join(QLatin1Char('\n'));
}

void StructuredSummaryView::relayout()
{
    const int width = viewport()->width();
    laidOutWidth_ = width;
    SummaryLayout layout;
    layout.width = std::max(width - sideMargin - trailingMargin, 120);
    layout.font = font();
    const QColor window = palette().color(QPalette::Window);
    const QColor accent = palette().color(QPalette::Highlight);
    layout.palette = window.lightnessF() < 0.5 ? SummaryPalette::dark(accent) : SummaryPalette::light(accent);
    layout.device = page_;
    const std::shared_ptr<const ParsedNoteMarkdown> parsed = ParsedNoteMarkdown::cached(content_, streaming_);
    pieces_ = summaryPieces(StructuredSummary(*parsed), layout);

    // The named stand-ins of the page's blocks and items are made anew: ids
    // come and go as a summary streams in.
    qDeleteAll(page_->findChildren<QWidget *>(QString(), Qt::FindDirectChildrenOnly));
    tops_.clear();
    qreal y = 8;
    for (const SummaryFlowPiece &piece : pieces_) {
        tops_.append(y);
        for (const SummaryPiece::Anchor &anchor : piece.view->anchors()) {
            auto *standIn = new QWidget(page_);
            standIn->setObjectName(anchor.identifier);
            standIn->setAccessibleName(anchor.identifier);
            standIn->setAccessibleDescription(anchor.text);
            standIn->setAttribute(Qt::WA_TransparentForMouseEvents);
            standIn->setGeometry(anchor.rect.translated(sideMargin, y).toAlignedRect());
            standIn->show();
        }
        y += piece.view->height() + piece.gapAfter;
    }
    page_->resize(width, int(std::ceil(y)) + 8);
    page_->update();
}

QString StructuredSummaryView::linkAt(const QPoint &pagePoint) const
{
    for (qsizetype i = 0; i < pieces_.size(); ++i) {
        const qreal top = tops_[i];
        const SummaryPiece &piece = *pieces_[i].view;
        if (pagePoint.y() >= top && pagePoint.y() < top + piece.height())
            return piece.linkAt(QPointF(pagePoint) - QPointF(sideMargin, top));
    }
    return {};
}

void StructuredSummaryView::paintPage(QPainter &painter, const QRect &exposed) const
{
    for (qsizetype i = 0; i < pieces_.size(); ++i) {
        const qreal top = tops_[i];
        const qreal height = pieces_[i].view->height();
        if (top > exposed.bottom() || top + height < exposed.top())
            continue;
        pieces_[i].view->draw(painter, QPointF(sideMargin, top));
    }
}

bool StructuredSummaryView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched != page_)
        return QScrollArea::eventFilter(watched, event);
    switch (event->type()) {
    case QEvent::Paint: {
        QPainter painter(page_);
        paintPage(painter, static_cast<QPaintEvent *>(event)->rect());
        return true;
    }
    case QEvent::MouseMove: {
        const QString link = linkAt(static_cast<QMouseEvent *>(event)->position().toPoint());
        page_->setCursor(link.isEmpty() ? Qt::ArrowCursor : Qt::PointingHandCursor);
        page_->setToolTip(link);
        break;
    }
    case QEvent::MouseButtonPress:
        pressedLink_ = linkAt(static_cast<QMouseEvent *>(event)->position().toPoint());
        break;
    case QEvent::MouseButtonRelease: {
        // Only a press and a release on the same link open it; the page
        // itself never changes on a click.
        const QString link = linkAt(static_cast<QMouseEvent *>(event)->position().toPoint());
        if (!link.isEmpty() && link == pressedLink_)
            QDesktopServices::openUrl(QUrl(link));
        pressedLink_.clear();
        break;
    }
    default:
        break;
    }
    return QScrollArea::eventFilter(watched, event);
}

void StructuredSummaryView::resizeEvent(QResizeEvent *event)
{
    QScrollArea::resizeEvent(event);
    if (viewport()->width() != laidOutWidth_)
        relayout();
}

void StructuredSummaryView::changeEvent(QEvent *event)
{
    QScrollArea::changeEvent(event);
    // A new appearance or font redraws the page in it.
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange)
        relayout();
}

} // namespace kestil
