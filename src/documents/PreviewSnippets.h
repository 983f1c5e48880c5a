#pragma once

#include <QSet>
#include <QString>

namespace kestil {

// What a list row shows under a note's title, and whether the row shows the
// note as being processed. Both rest on the placeholder texts that notes hold
// while work runs. Each takes the note's stored field (empty when absent).
namespace PreviewSnippets {

// What a note's summary holds while work runs: "Generating summary...",
// "Transcription in progress...". Never content.
const QSet<QString> &summaryPlaceholders();
// What a note's transcription holds while work runs: "Transcribing audio...",
// "Loading transcript...", "Loading content...", "Transcription in progress...".
const QSet<QString> &transcriptionPlaceholders();

bool hasUsableSummary(const QString &summary);
bool hasUsableTranscript(const QString &transcription);
bool isProcessingNote(const QString &summary, const QString &transcription);

// The preview: from the summary when usable, else from the transcript, else
// empty. The first 400 characters are the cache key (500 entries).
QString rowPreview(const QString &summary, const QString &transcription);

// Markdown reduced to one line of plain text.
QString plainSnippet(const QString &markdown);

} // namespace PreviewSnippets
} // namespace kestil
