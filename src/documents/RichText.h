#pragma once

#include <QList>
#include <QString>

namespace kestil {

// The inline formatting of one run of a rich text.
struct RichTextAttributes {
    bool strong = false;
    bool emphasis = false;
    bool code = false;
    bool strikethrough = false;
    // The destination of a link; empty outside links.
    QString link;

    bool isPlain() const { return !strong && !emphasis && !code && !strikethrough && link.isEmpty(); }
    friend bool operator==(const RichTextAttributes &, const RichTextAttributes &) = default;
};

// A run of characters with one set of attributes: [start, start + length) of
// the owning text, in UTF-16 units.
struct RichTextRun {
    qsizetype start = 0;
    qsizetype length = 0;
    RichTextAttributes attributes;
    friend bool operator==(const RichTextRun &, const RichTextRun &) = default;
};

// A run-structured string: the characters and the runs that cover them in
// order, without gaps; neighbouring runs differ in their attributes. An empty
// text has no runs.
struct RichText {
    QString text;
    QList<RichTextRun> runs;

    // The text as one run without attributes.
    static RichText plain(const QString &text);
    // Appends characters with the given attributes, merging with the last run
    // when the attributes are the same.
    void append(const QString &characters, const RichTextAttributes &attributes = {});
    // Characters [from, from + length) with the runs that cover them.
    RichText mid(qsizetype from, qsizetype length = -1) const;
    // The attributes of the run holding the character at `position`.
    RichTextAttributes attributesAt(qsizetype position) const;
    bool isEmpty() const { return text.isEmpty(); }

    friend bool operator==(const RichText &, const RichText &) = default;
};

} // namespace kestil
