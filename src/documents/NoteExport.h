#pragma once

#include <QDateTime>
#include <QString>
#include <QStringList>

#include <optional>

namespace kestil {

// What an export reads of a note, as plain values, so that the documents are
// built without the store. An absent field is empty; `title` and `timestamp`
// keep their absence because the documents treat it apart from empty.
struct NoteExportContent {
    std::optional<QString> title;
    std::optional<QDateTime> timestamp;
    QString summary;
    QString transcription;
    QString notes;
    // In the order of the note's sorted tag names.
    QStringList tags;
    // Relative to the store root, as the note holds it.
    QString sourceURL;
};

// The single-file exports of a note: plain text, formatted Markdown and a
// document of one section, their suggested file names, and the write.
namespace NoteExport {

// A summary that is neither blank nor a placeholder of work in progress.
bool hasExportableSummary(const QString &summary);

// The trimmed title with each of /\?%*|"<>: replaced by "-"; "Untitled"
// for a note without a title. Then the suffix, "." and the extension.
QString suggestedFileName(const std::optional<QString> &title, const QString &suffix,
                          const QString &extension);

// The long date and short time of a note, in the user's locale.
QString dateText(const QDateTime &timestamp);

QString plainTextDocument(const NoteExportContent &note);
QString formattedDocument(const NoteExportContent &note);
// sectionName is "Summary" or "Transcript"; text is that section's text.
QString sectionDocument(const NoteExportContent &note, const QString &sectionName, const QString &text);

// Writes `text` as UTF-8 in one rename: the destination holds either what it
// held before or the whole new text, never a part. Throws LocalError with a
// sentence that names the destination and the cause.
void writeTextAtomically(const QString &destination, const QString &text);

} // namespace NoteExport
} // namespace kestil
