#pragma once

#include "documents/RichText.h"

#include <QList>
#include <QString>

#include <memory>
#include <optional>

namespace kestil {

// A summary's Markdown as a flat list of lines, each knowing whether it is a
// heading, its list marker, its indentation and its inline-formatted text.
// It reads one small dialect on purpose: no nested blocks, quotes, tables or
// fenced code inside the text. Immutable once made, so it can be shared.
class ParsedNoteMarkdown {
public:
    struct Line {
        // The line's position in the text from 0, blank lines counted.
        int id = 0;
        // The raw line begins with "#".
        bool heading = false;
        // "•" for a bullet, digits and "." for an ordered item.
        std::optional<QString> marker;
        // White space ahead of the marker: a tab counts 4, anything else 1.
        int indentation = 0;
        RichText text;
        friend bool operator==(const Line &, const Line &) = default;
    };

    // Parses without the cache. While `isStreaming`, an incomplete last line
    // (one that may still turn into a heading, a list mark or filler) is
    // blanked, keeping its place so that the ids before it do not move.
    ParsedNoteMarkdown(const QString &content, bool isStreaming);

    // The shared parse of `content`: one process-wide cache of 16 texts or
    // 8 MiB, keyed separately for streaming and saved text. Thread-safe.
    static std::shared_ptr<const ParsedNoteMarkdown> cached(const QString &content, bool isStreaming);

    // Whether the last line of a streaming text is still incomplete.
    static bool isIncompleteTrailingLine(const QString &line);

    const QList<Line> &lines() const { return lines_; }

private:
    QList<Line> lines_;
};

// Removes a code fence ("```", "```markdown", "```md") that a model wrapped
// its whole answer in; any other text comes back exactly as it was given.
QString stripOuterCodeFence(const QString &text);

} // namespace kestil
