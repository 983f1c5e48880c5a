#pragma once

#include "documents/SummaryPieces.h"

#include <QScrollArea>

namespace kestil {

// A note's summary drawn as a designed page: the same pieces as the PDF,
// laid out at the view's width in the window's colours. While a summary
// streams in, its unfinished last line is held back, so nothing flashes. A
// link opens in the desktop's browser when it is clicked, and a click never
// changes the page. Each block and item is a child widget named as
// assistive technology finds it ("structuredSummaryOverview",
// "markdownListItem-<id>").
class StructuredSummaryView : public QScrollArea {
    Q_OBJECT
public:
    explicit StructuredSummaryView(const QString &identifier, QWidget *parent = nullptr);

    // Shows `content`; the same text at the same width reuses the laid-out
    // page. A text that goes on from the one shown (a summary streaming in)
    // keeps the reader's place, and stays at the bottom while streaming when
    // it was there; any other text starts at the top.
    void setMarkdown(const QString &content, bool isStreaming);
    const QString &markdown() const { return content_; }
    // What the page shows, as plain lines in reading order.
    QString plainText() const;
    // The link under a point of the page, or empty.
    QString linkAt(const QPoint &pagePoint) const;

protected:
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void relayout();
    void paintPage(QPainter &painter, const QRect &exposed) const;

    QWidget *page_;
    QString content_;
    bool streaming_ = false;
    int laidOutWidth_ = -1;
    QList<SummaryFlowPiece> pieces_;
    QList<qreal> tops_;
    QString pressedLink_;
};

} // namespace kestil
