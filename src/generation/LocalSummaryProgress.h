#pragma once

#include <QString>

#include <optional>

namespace kestil {

// The stage a summary job shows. Only `reading` carries numbers: sections
// done, sections in this pass, and the pass (0 reads the transcript itself,
// later passes combine key points).
struct LocalSummaryProgress {
    // The desktop is never suspended by its system, so there is no stage for
    // waiting to come back to the foreground.
    enum class Stage { reading, preparing, writing, finishing, organizingTags };

    Stage stage = Stage::preparing;
    int completed = 0;
    int total = 0;
    int pass = 0;

    static LocalSummaryProgress reading(int completed, int total, int pass)
    {
        return {Stage::reading, completed, total, pass};
    }
    static LocalSummaryProgress preparing() { return {Stage::preparing}; }
    static LocalSummaryProgress writing() { return {Stage::writing}; }
    static LocalSummaryProgress finishing() { return {Stage::finishing}; }
    static LocalSummaryProgress organizingTags() { return {Stage::organizingTags}; }

    QString title() const;
    std::optional<QString> detail() const;
    std::optional<double> fraction() const;

    friend bool operator==(const LocalSummaryProgress &, const LocalSummaryProgress &) = default;
};

} // namespace kestil
