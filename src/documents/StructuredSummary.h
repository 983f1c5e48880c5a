#pragma once

#include "documents/ParsedNoteMarkdown.h"

#include <QList>
#include <QString>

#include <optional>
#include <variant>

namespace kestil {

enum class SummarySectionKind { plain, action, question, risk, untitled };

// A summary read as a designed page: an optional overview, then sections with
// paragraphs and items; an item may split into a short label and its body.
// Filler such as "None mentioned." that models write into empty sections is
// dropped, and a section left empty vanishes with its title.
struct StructuredSummary {
    struct Item {
        int id = 0;
        QString marker;
        int indentation = 0;
        // The short text ahead of a colon, without formatting.
        std::optional<RichText> label;
        // The rest, with its inline formatting, first letter capitalised.
        RichText body;
        // The line's plain characters, label and colon included, trimmed.
        QString fullText;
        friend bool operator==(const Item &, const Item &) = default;
    };

    struct Section {
        // The heading line's id; -1 for what stands ahead of the first heading.
        int id = -1;
        // Without trailing colons; absent only for section -1; may be empty.
        std::optional<QString> title;
        QList<ParsedNoteMarkdown::Line> paragraphs;
        QList<Item> items;
        friend bool operator==(const Section &, const Section &) = default;
    };

    struct Group {
        Item primary;
        QList<Item> children;
    };

    struct Block {
        enum class Kind { overview, section };
        Kind kind = Kind::section;
        Section section;
    };

    std::optional<Section> overview;
    QList<Section> sections;

    StructuredSummary() = default;
    explicit StructuredSummary(const ParsedNoteMarkdown &parsed);

    // The overview, if any, then the sections in order.
    QList<Block> blocks() const;
};

SummarySectionKind summarySectionKind(const std::optional<QString> &title);
// The symbol name of a section head ("checklist", "calendar", "list.number"…).
QString summarySectionSymbol(const std::optional<QString> &title, SummarySectionKind kind);
// Items whose indentation exceeds the section's smallest join the group
// before them as children.
QList<StructuredSummary::Group> itemGroups(const QList<StructuredSummary::Item> &items);
// Number of items with indentation 0: the count badge of a section head.
int summaryBadgeCount(const QList<StructuredSummary::Item> &items);

} // namespace kestil
