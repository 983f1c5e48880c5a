#pragma once

#include "documents/RichText.h"

#include <optional>

namespace kestil {

// Parses one line of inline Markdown (strong, emphasis, code spans,
// strikethrough and links in CommonMark's syntax with cmark-gfm) into rich
// text. White space inside and around the line is kept as it stands, and
// nothing of the line is read as a block (a heading, a quote, a list): those
// marks stay characters. Returns nothing when the parser refuses the text;
// the caller then shows it as plain text.
std::optional<RichText> parseInlineMarkdown(const QString &line);

} // namespace kestil
