#include "documents/InlineMarkdown.h"

#include "documents/DocumentText.h"

#include <cmark-gfm-core-extensions.h>
#include <cmark-gfm-extension_api.h>
#include <cmark-gfm.h>

#include <QList>
#include <QMutex>
#include <QMutexLocker>
#include <QtGlobal>

#include <memory>

namespace kestil {

namespace {

cmark_syntax_extension *strikethroughExtension()
{
    static cmark_syntax_extension *const extension = [] {
        cmark_gfm_core_extensions_ensure_registered();
        cmark_syntax_extension *found = cmark_find_syntax_extension("strikethrough");
        if (!found)
            qFatal("The Markdown library lacks its strikethrough extension.");
        return found;
    }();
    return extension;
}

struct ParserDeleter {
    void operator()(cmark_parser *parser) const { cmark_parser_free(parser); }
};
struct NodeDeleter {
    void operator()(cmark_node *node) const { cmark_node_free(node); }
};
struct IteratorDeleter {
    void operator()(cmark_iter *iter) const { cmark_iter_free(iter); }
};

// Characters the parser itself would change rather than read: NUL becomes a
// replacement character, and a lone surrogate has no UTF-8 form at all.
bool hasUnparsableCharacters(const QString &line)
{
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (c.isNull())
            return true;
        if (c.isHighSurrogate()) {
            if (i + 1 >= line.size() || !line.at(i + 1).isLowSurrogate())
                return true;
            ++i;
        } else if (c.isLowSurrogate()) {
            return true;
        }
    }
    return false;
}

// The paragraph's inline nodes as rich text. Walks with the library's
// iterator, not by recursion, so deeply nested input cannot exhaust the stack.
std::optional<RichText> paragraphText(cmark_node *document)
{
    cmark_node *paragraph = cmark_node_first_child(document);
    if (!paragraph || cmark_node_get_type(paragraph) != CMARK_NODE_PARAGRAPH || cmark_node_next(paragraph))
        return std::nullopt;

    RichText result;
    int strong = 0;
    int emphasis = 0;
    int strikethrough = 0;
    QList<QString> links;
    const auto attributes = [&](bool code) {
        RichTextAttributes a;
        a.strong = strong > 0;
        a.emphasis = emphasis > 0;
        a.strikethrough = strikethrough > 0;
        a.code = code;
        a.link = links.isEmpty() ? QString() : links.last();
        return a;
    };

    const std::unique_ptr<cmark_iter, IteratorDeleter> iter(cmark_iter_new(paragraph));
    cmark_event_type event;
    while ((event = cmark_iter_next(iter.get())) != CMARK_EVENT_DONE) {
        cmark_node *node = cmark_iter_get_node(iter.get());
        if (node == paragraph)
            continue;
        const int step = event == CMARK_EVENT_ENTER ? 1 : -1;
        const cmark_node_type type = cmark_node_get_type(node);
        switch (type) {
        case CMARK_NODE_TEXT:
        case CMARK_NODE_HTML_INLINE:
            // Inline HTML is shown as the characters it was written with.
            result.append(QString::fromUtf8(cmark_node_get_literal(node)), attributes(false));
            break;
        case CMARK_NODE_CODE:
            result.append(QString::fromUtf8(cmark_node_get_literal(node)), attributes(true));
            break;
        case CMARK_NODE_STRONG:
            strong += step;
            break;
        case CMARK_NODE_EMPH:
            emphasis += step;
            break;
        case CMARK_NODE_LINK:
            if (event == CMARK_EVENT_ENTER)
                links.append(QString::fromUtf8(cmark_node_get_url(node)));
            else
                links.removeLast();
            break;
        case CMARK_NODE_IMAGE:
            // An image reads as its description.
            break;
        default:
            if (cmark_node_get_syntax_extension(node) != strikethroughExtension())
                return std::nullopt;
            strikethrough += step;
            break;
        }
    }
    return result;
}

// One piece of a line without carriage returns.
std::optional<RichText> parseSegment(const QString &segment)
{
    // The parser drops white space at the ends of a paragraph; it is put back
    // as plain characters. At the ends it counts as the start or end of the
    // line would for emphasis, so the reading does not change.
    qsizetype start = 0;
    qsizetype end = segment.size();
    while (start < end && segment.at(start).isSpace())
        ++start;
    while (end > start && segment.at(end - 1).isSpace())
        --end;
    if (start == end)
        return RichText::plain(segment);

    // "x " ahead of the text makes the line a paragraph whatever it begins
    // with, so that "# a", "> a", "1. a", "    a", "---" and "<div>" stay
    // characters; the blank keeps the first character at a word's start.
    static const QByteArray sentinel("x ");
    const QByteArray input = sentinel + segment.sliced(start, end - start).toUtf8();
    // The library switches its extensions' characters on and off in a table
    // that all parsers share, so two parses must not overlap.
    static QMutex parsing;
    const QMutexLocker lock(&parsing);
    const std::unique_ptr<cmark_parser, ParserDeleter> parser(cmark_parser_new(CMARK_OPT_DEFAULT));
    if (!parser || !cmark_parser_attach_syntax_extension(parser.get(), strikethroughExtension()))
        return std::nullopt;
    cmark_parser_feed(parser.get(), input.constData(), size_t(input.size()));
    const std::unique_ptr<cmark_node, NodeDeleter> document(cmark_parser_finish(parser.get()));
    if (!document)
        return std::nullopt;

    const std::optional<RichText> parsed = paragraphText(document.get());
    const QString sentinelText = QString::fromLatin1(sentinel);
    if (!parsed || !parsed->text.startsWith(sentinelText) || !parsed->attributesAt(0).isPlain() ||
        !parsed->attributesAt(1).isPlain())
        return std::nullopt;

    RichText result = RichText::plain(segment.first(start));
    DocumentText::appendRichText(result, parsed->mid(sentinelText.size()));
    result.append(segment.sliced(end));
    return result;
}

} // namespace

std::optional<RichText> parseInlineMarkdown(const QString &line)
{
    if (hasUnparsableCharacters(line))
        return std::nullopt;
    // The parser takes a carriage return for a line break, and the next line
    // could open a block; each piece between them is read on its own.
    RichText result;
    const QList<QStringView> segments = QStringView(line).split(QLatin1Char('\r'));
    for (qsizetype i = 0; i < segments.size(); ++i) {
        if (i > 0)
            result.append(QStringLiteral("\r"));
        const std::optional<RichText> piece = parseSegment(segments[i].toString());
        if (!piece)
            return std::nullopt;
        DocumentText::appendRichText(result, *piece);
    }
    return result;
}

} // namespace kestil
