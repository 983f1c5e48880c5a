#include "documents/SummaryPieces.h"

#include "documents/SummarySymbols.h"

#include <QFontMetricsF>
#include <QLocale>
#include <QPainter>
#include <QPainterPath>
#include <QTextLayout>

#include <algorithm>

namespace kestil {

namespace {

constexpr qreal cardMargin = 16;
constexpr qreal paragraphSpacing = 8;
constexpr qreal headSymbolBox = 34;
constexpr qreal discSize = 30;
constexpr qreal rowTextInset = discSize + 12;

QFont scaled(const QFont &base, qreal factor, QFont::Weight weight = QFont::Normal)
{
    QFont font(base);
    font.setPointSizeF(base.pointSizeF() * factor);
    font.setWeight(weight);
    return font;
}

// Rich text laid out in lines at a fixed width, with its inline runs as
// formats and its links kept for hit testing.
class TextBlock {
public:
    TextBlock(const RichText &text, const QFont &font, const QColor &color, const SummaryPalette &palette,
              QPaintDevice *device, qreal width)
        : layout_(text.text, font, device), color_(color)
    {
        QList<QTextLayout::FormatRange> formats;
        for (const RichTextRun &run : text.runs) {
            const RichTextAttributes &a = run.attributes;
            if (a.isPlain())
                continue;
            QTextCharFormat format;
            if (a.strong)
                format.setFontWeight(QFont::Bold);
            if (a.emphasis)
                format.setFontItalic(true);
            if (a.code) {
                format.setFontFamilies({QStringLiteral("DejaVu Sans Mono"), QStringLiteral("monospace")});
                format.setFontFixedPitch(true);
            }
            if (a.strikethrough)
                format.setFontStrikeOut(true);
            if (!a.link.isEmpty()) {
                format.setForeground(palette.accent);
                format.setFontUnderline(true);
                links_.append({run.start, run.length, a.link});
            }
            formats.append({int(run.start), int(run.length), format});
        }
        layout_.setFormats(formats);
        QTextOption option;
        option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        layout_.setTextOption(option);
        layout_.beginLayout();
        qreal y = 0;
        for (QTextLine line = layout_.createLine(); line.isValid(); line = layout_.createLine()) {
            line.setLineWidth(std::max<qreal>(width, 1));
            line.setPosition(QPointF(0, y));
            y += line.height();
        }
        layout_.endLayout();
        height_ = y;
    }

    qreal height() const { return height_; }
    qreal naturalWidth() const { return layout_.maximumWidth(); }

    void draw(QPainter &painter, const QPointF &at) const
    {
        painter.setPen(color_);
        layout_.draw(&painter, at);
    }

    QString linkAt(const QPointF &point) const
    {
        if (links_.isEmpty() || point.y() < 0 || point.y() > height_)
            return {};
        for (int i = 0; i < layout_.lineCount(); ++i) {
            const QTextLine line = layout_.lineAt(i);
            if (point.y() < line.y() || point.y() > line.y() + line.height())
                continue;
            if (point.x() > line.naturalTextWidth())
                return {};
            const int position = line.xToCursor(point.x(), QTextLine::CursorOnCharacter);
            for (const Link &link : links_) {
                if (position >= link.start && position < link.start + link.length)
                    return link.url;
            }
        }
        return {};
    }

private:
    struct Link {
        qsizetype start;
        qsizetype length;
        QString url;
    };
    QTextLayout layout_;
    QColor color_;
    QList<Link> links_;
    qreal height_ = 0;
};

void fillCard(QPainter &painter, const QRectF &rect, const QColor &color)
{
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawRoundedRect(rect, 12, 12);
    painter.restore();
}

// Text blocks stacked in a card: the overview, and a section's paragraphs.
class CardPiece : public SummaryPiece {
public:
    CardPiece(const QList<RichText> &texts, const SummaryLayout &layout, const QString &identifier)
        : card_(layout.palette.card)
    {
        qreal y = cardMargin;
        for (const RichText &text : texts) {
            if (y > cardMargin)
                y += paragraphSpacing;
            auto block = std::make_unique<TextBlock>(text, layout.font, layout.palette.text, layout.palette,
                                                     layout.device, layout.width - 2 * cardMargin);
            tops_.append(y);
            y += block->height();
            blocks_.push_back(std::move(block));
        }
        height_ = y + cardMargin;
        QStringList lines;
        for (const RichText &text : texts)
            lines.append(text.text);
        text_ = lines.join(QLatin1Char('\n'));
        if (!identifier.isEmpty())
            anchors_.append({identifier, lines.join(QLatin1Char(' ')), QRectF(0, 0, layout.width, height_)});
        width_ = layout.width;
    }

    void draw(QPainter &painter, const QPointF &topLeft) const override
    {
        fillCard(painter, QRectF(topLeft, QSizeF(width_, height_)), card_);
        for (size_t i = 0; i < blocks_.size(); ++i)
            blocks_[i]->draw(painter, topLeft + QPointF(cardMargin, tops_[qsizetype(i)]));
    }

    QString linkAt(const QPointF &point) const override
    {
        for (size_t i = 0; i < blocks_.size(); ++i) {
            const QString link = blocks_[i]->linkAt(point - QPointF(cardMargin, tops_[qsizetype(i)]));
            if (!link.isEmpty())
                return link;
        }
        return {};
    }

private:
    std::vector<std::unique_ptr<TextBlock>> blocks_;
    QList<qreal> tops_;
    QColor card_;
    qreal width_ = 0;
};

// A section's head: its symbol in a tinted box, its title, and the number of
// its items in a badge when it has two or more.
class HeadPiece : public SummaryPiece {
public:
    HeadPiece(const QString &title, const QString &symbol, int count, const SummaryLayout &layout)
        : symbol_(symbol), palette_(layout.palette), width_(layout.width)
    {
        const QFont headline = scaled(layout.font, 1.2, QFont::DemiBold);
        badgeFont_ = scaled(layout.font, 0.85, QFont::DemiBold);
        // A negative count shows no badge.
        if (count >= 0)
            badge_ = QString::number(count);
        const QFontMetricsF badgeMetrics(badgeFont_, layout.device);
        badgeWidth_ = badge_.isEmpty() ? 0 : std::max<qreal>(24, badgeMetrics.horizontalAdvance(badge_) + 14);
        const qreal titleWidth = layout.width - headSymbolBox - 12 - (badgeWidth_ > 0 ? badgeWidth_ + 10 : 0);
        title_ = std::make_unique<TextBlock>(RichText::plain(title), headline, layout.palette.text,
                                             layout.palette, layout.device, titleWidth);
        height_ = std::max(headSymbolBox, title_->height());
        text_ = badge_.isEmpty() ? title : title + QLatin1Char(' ') + badge_;
    }

    void draw(QPainter &painter, const QPointF &topLeft) const override
    {
        painter.save();
        painter.setRenderHint(QPainter::Antialiasing);
        QColor tint = palette_.accent;
        tint.setAlphaF(0.14f);
        painter.setPen(Qt::NoPen);
        painter.setBrush(tint);
        const QRectF box(topLeft, QSizeF(headSymbolBox, headSymbolBox));
        painter.drawRoundedRect(box, 8, 8);
        drawSummarySymbol(painter, symbol_, box.adjusted(7, 7, -7, -7), palette_.accent);
        title_->draw(painter, topLeft + QPointF(headSymbolBox + 12, (height_ - title_->height()) / 2));
        if (!badge_.isEmpty()) {
            const QRectF pill(topLeft.x() + width_ - badgeWidth_, topLeft.y() + (height_ - 22) / 2,
                              badgeWidth_, 22);
            painter.setPen(Qt::NoPen);
            painter.setBrush(tint);
            painter.drawRoundedRect(pill, 11, 11);
            painter.setPen(palette_.accent);
            painter.setFont(badgeFont_);
            painter.drawText(pill, Qt::AlignCenter, badge_);
        }
        painter.restore();
    }

private:
    std::unique_ptr<TextBlock> title_;
    QString symbol_;
    QString badge_;
    QFont badgeFont_;
    qreal badgeWidth_ = 0;
    SummaryPalette palette_;
    qreal width_ = 0;
};

// One group of items: the primary item behind a numbered disc or a symbol,
// its label as a small tag above its body, and the children indented below.
class RowPiece : public SummaryPiece {
public:
    RowPiece(const StructuredSummary::Group &group, int number, SummarySectionKind kind,
             const SummaryLayout &layout)
        : kind_(kind), number_(number), palette_(layout.palette)
    {
        const qreal textWidth = layout.width - rowTextInset;
        qreal y = 0;
        numberFont_ = scaled(layout.font, 0.95, QFont::Bold);
        if (const auto &label = group.primary.label) {
            tagFont_ = scaled(layout.font, 0.8, QFont::DemiBold);
            tag_ = label->text;
            const QFontMetricsF metrics(tagFont_, layout.device);
            tagRect_ = QRectF(rowTextInset, 4, std::min(metrics.horizontalAdvance(tag_) + 14, textWidth),
                              metrics.height() + 4);
            y = tagRect_.bottom() + 4;
        }
        primary_ = std::make_unique<TextBlock>(group.primary.body, layout.font, layout.palette.text,
                                               layout.palette, layout.device, textWidth);
        primaryTop_ = tag_.isEmpty() ? std::max<qreal>(0, (discSize - primary_->height()) / 2) : y;
        y = primaryTop_ + primary_->height();
        anchors_.append({QStringLiteral("markdownListItem-%1").arg(group.primary.id),
                         group.primary.marker + QLatin1Char(' ') + group.primary.fullText,
                         QRectF(0, 0, layout.width, std::max(y, discSize))});
        for (const StructuredSummary::Item &child : group.children) {
            y += 6;
            const qreal inset = rowTextInset + 6 + 6 * std::max(child.indentation - 2, 0);
            Child entry;
            entry.marker = child.marker;
            entry.top = y;
            entry.inset = inset;
            const QFontMetricsF metrics(layout.font, layout.device);
            const qreal markerWidth = metrics.horizontalAdvance(child.marker + QStringLiteral("  "));
            entry.markerWidth = markerWidth;
            entry.body = std::make_unique<TextBlock>(child.body, layout.font, layout.palette.secondary,
                                                     layout.palette, layout.device,
                                                     std::max<qreal>(layout.width - inset - markerWidth, 40));
            anchors_.append({QStringLiteral("markdownListItem-%1").arg(child.id),
                             child.marker + QLatin1Char(' ') + child.fullText,
                             QRectF(inset, y, layout.width - inset, entry.body->height())});
            y += entry.body->height();
            children_.push_back(std::move(entry));
        }
        font_ = layout.font;
        height_ = std::max(y, discSize);
        QStringList lines{kind == SummarySectionKind::plain
                              ? QStringLiteral("%1 %2").arg(number).arg(group.primary.fullText)
                              : group.primary.fullText};
        for (const StructuredSummary::Item &child : group.children)
            lines.append(child.marker + QLatin1Char(' ') + child.fullText);
        text_ = lines.join(QLatin1Char('\n'));
    }

    void draw(QPainter &painter, const QPointF &topLeft) const override
    {
        painter.save();
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF mark(topLeft, QSizeF(discSize, discSize));
        if (kind_ == SummarySectionKind::plain) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(palette_.accent);
            painter.drawEllipse(mark);
            painter.setPen(Qt::white);
            painter.setFont(numberFont_);
            painter.drawText(mark, Qt::AlignCenter, QString::number(number_));
        } else {
            const bool risk = kind_ == SummarySectionKind::risk;
            drawSummarySymbol(painter, rowSymbol(), mark.adjusted(3, 3, -3, -3),
                              risk ? QColor(0xff, 0x95, 0x00) : palette_.accent);
        }
        if (!tag_.isEmpty()) {
            QColor tint = palette_.accent;
            tint.setAlphaF(0.14f);
            const QRectF rect = tagRect_.translated(topLeft);
            painter.setPen(Qt::NoPen);
            painter.setBrush(tint);
            painter.drawRoundedRect(rect, rect.height() / 2, rect.height() / 2);
            painter.setPen(palette_.accent);
            painter.setFont(tagFont_);
            painter.drawText(rect.adjusted(7, 0, -7, 0), Qt::AlignVCenter | Qt::AlignLeft,
                             QFontMetricsF(tagFont_, painter.device())
                                 .elidedText(tag_, Qt::ElideRight, rect.width() - 13));
        }
        primary_->draw(painter, topLeft + QPointF(rowTextInset, primaryTop_));
        for (const Child &child : children_) {
            painter.setPen(palette_.secondary);
            painter.setFont(font_);
            const QFontMetricsF metrics(font_, painter.device());
            painter.drawText(topLeft + QPointF(child.inset, child.top + metrics.ascent()), child.marker);
            child.body->draw(painter, topLeft + QPointF(child.inset + child.markerWidth, child.top));
        }
        painter.restore();
    }

    QString linkAt(const QPointF &point) const override
    {
        QString link = primary_->linkAt(point - QPointF(rowTextInset, primaryTop_));
        for (const Child &child : children_) {
            if (link.isEmpty())
                link = child.body->linkAt(point - QPointF(child.inset + child.markerWidth, child.top));
        }
        return link;
    }

private:
    QString rowSymbol() const
    {
        switch (kind_) {
        case SummarySectionKind::action:
            return QStringLiteral("circle");
        case SummarySectionKind::question:
            return QStringLiteral("questionmark.circle");
        case SummarySectionKind::risk:
            return QStringLiteral("exclamationmark.triangle.fill");
        default:
            return QStringLiteral("smallcircle.filled.circle");
        }
    }

    struct Child {
        QString marker;
        qreal top = 0;
        qreal inset = 0;
        qreal markerWidth = 0;
        std::unique_ptr<TextBlock> body;
    };
    SummarySectionKind kind_;
    int number_;
    SummaryPalette palette_;
    QFont font_;
    QFont numberFont_;
    QFont tagFont_;
    QString tag_;
    QRectF tagRect_;
    std::unique_ptr<TextBlock> primary_;
    qreal primaryTop_ = 0;
    std::vector<Child> children_;
};

class TitlePiece : public SummaryPiece {
public:
    TitlePiece(const QString &title, const std::optional<QDateTime> &date, const SummaryLayout &layout)
    {
        title_ =
            std::make_unique<TextBlock>(RichText::plain(title), scaled(layout.font, 1.9, QFont::Bold),
                                        layout.palette.text, layout.palette, layout.device, layout.width);
        height_ = title_->height();
        if (date) {
            date_ = std::make_unique<TextBlock>(RichText::plain(summaryDateText(*date)),
                                                scaled(layout.font, 0.9), layout.palette.secondary,
                                                layout.palette, layout.device, layout.width);
            height_ += 6 + date_->height();
        }
        text_ = date ? title + QLatin1Char('\n') + summaryDateText(*date) : title;
    }

    void draw(QPainter &painter, const QPointF &topLeft) const override
    {
        title_->draw(painter, topLeft);
        if (date_)
            date_->draw(painter, topLeft + QPointF(0, title_->height() + 6));
    }

private:
    std::unique_ptr<TextBlock> title_;
    std::unique_ptr<TextBlock> date_;
};

QList<RichText> overviewTexts(const StructuredSummary::Section &section)
{
    QList<RichText> texts;
    for (const ParsedNoteMarkdown::Line &line : section.paragraphs)
        texts.append(line.text);
    for (const StructuredSummary::Item &item : section.items) {
        RichText row = RichText::plain(item.marker + QLatin1Char(' '));
        if (item.label) {
            RichTextAttributes strong;
            strong.strong = true;
            row.append(item.label->text + QStringLiteral(": "), strong);
        }
        for (const RichTextRun &run : item.body.runs)
            row.append(item.body.text.mid(run.start, run.length), run.attributes);
        texts.append(row);
    }
    return texts;
}

} // namespace

QString SummaryPiece::linkAt(const QPointF &) const
{
    return {};
}

QString summaryDateText(const QDateTime &date)
{
    return QLocale().toString(date.toLocalTime(), QStringLiteral("dddd, MMMM d, yyyy, h:mm AP"));
}

SummaryFlowPiece summaryTitlePiece(const QString &title, const std::optional<QDateTime> &date,
                                   const SummaryLayout &layout)
{
    return {std::make_shared<TitlePiece>(title, date, layout), false, 18};
}

QList<SummaryFlowPiece> summaryPieces(const StructuredSummary &summary, const SummaryLayout &layout)
{
    QList<SummaryFlowPiece> pieces;
    for (const StructuredSummary::Block &block : summary.blocks()) {
        const StructuredSummary::Section &section = block.section;
        if (block.kind == StructuredSummary::Block::Kind::overview) {
            pieces.append({std::make_shared<CardPiece>(overviewTexts(section), layout,
                                                       QStringLiteral("structuredSummaryOverview")),
                           false, 22});
            continue;
        }
        const SummarySectionKind kind = summarySectionKind(section.title);
        if (section.title) {
            const int count = section.items.size() >= 2 ? summaryBadgeCount(section.items) : -1;
            pieces.append({std::make_shared<HeadPiece>(
                               *section.title, summarySectionSymbol(section.title, kind), count, layout),
                           true, 12});
        }
        if (!section.paragraphs.isEmpty()) {
            QList<RichText> texts;
            for (const ParsedNoteMarkdown::Line &line : section.paragraphs)
                texts.append(line.text);
            pieces.append({std::make_shared<CardPiece>(texts, layout, QString()), false, 10});
        }
        int number = 0;
        for (const StructuredSummary::Group &group : itemGroups(section.items))
            pieces.append({std::make_shared<RowPiece>(group, ++number, kind, layout), false, 8});
        if (!pieces.isEmpty())
            pieces.last().gapAfter = 22;
    }
    return pieces;
}

} // namespace kestil
