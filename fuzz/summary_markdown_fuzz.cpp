// A summary as a model may write it, finished or still streaming: read into
// lines, sections, items and groups without a crash.
#include "FuzzInput.h"

#include "documents/ParsedNoteMarkdown.h"
#include "documents/StructuredSummary.h"

using namespace kestil;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    const bool streaming = data[0] & 1;
    const QString text = QString::fromUtf8(fuzz::bytes(data + 1, size - 1));
    const ParsedNoteMarkdown parsed(stripOuterCodeFence(text), streaming);
    const StructuredSummary summary(parsed);
    for (const StructuredSummary::Block &block : summary.blocks()) {
        const auto kind = summarySectionKind(block.section.title);
        (void)summarySectionSymbol(block.section.title, kind);
        const auto groups = itemGroups(block.section.items);
        qsizetype grouped = 0;
        for (const StructuredSummary::Group &group : groups)
            grouped += 1 + group.children.size();
        // Grouping keeps every item, once.
        if (grouped != block.section.items.size())
            std::abort();
        (void)summaryBadgeCount(block.section.items);
    }
    return 0;
}
