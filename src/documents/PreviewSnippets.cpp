#include "documents/PreviewSnippets.h"

#include "base/BoundedCache.h"
#include "documents/DocumentText.h"
#include "documents/ParsedNoteMarkdown.h"

#include <QList>
#include <QRegularExpression>

#include <limits>
#include <utility>

namespace kestil::PreviewSnippets {

namespace {

constexpr qsizetype previewSourceCharacters = 400;

// The first `count` code points, never half of a surrogate pair.
QString firstCodePoints(const QString &text, qsizetype count)
{
    qsizetype end = 0;
    for (qsizetype taken = 0; taken < count && end < text.size(); ++taken) {
        qsizetype units = 0;
        DocumentText::codePointAt(text, end, &units);
        end += units;
    }
    return text.first(end);
}

struct Replacement {
    QRegularExpression pattern;
    QString replacement;
};

// Applied in this order, each to all occurrences. "(*ANY)" makes "^" and
// "." treat every Unicode line break alike.
const QList<Replacement> &replacements()
{
    static const QList<Replacement> chain = [] {
        const auto make = [](const char *pattern, const char *replacement) {
            return Replacement{DocumentText::constantPattern(QString::fromUtf8(pattern),
                                                             QRegularExpression::UseUnicodePropertiesOption),
                               QString::fromUtf8(replacement)};
        };
        return QList<Replacement>{
            // An opening summary heading on a line of its own: the preview
            // starts with what the summary says, not with its name.
            make("(*ANY)^\\s{0,3}#{1,6}\\s*(?i:summary|overview|résumé|resumen|resumo|riassunto|"
                 "zusammenfassung|"
                 "概要|要約|摘要|요약)\\s*\\n",
                 ""),
            make("(*ANY)(?m)^\\s{0,3}#{1,6}\\s*", ""),
            make("(*ANY)(?m)^\\s*>\\s*", ""),
            make("(*ANY)(?m)^\\s*(?:[-*+]\\s+|\\d+\\.\\s+)", ""),
            make("(*ANY)\\[([^\\]]+)\\]\\([^\\)]+\\)", "\\1"),
            make("(*ANY)`([^`]*)`", "\\1"),
            make("(*ANY)(\\*\\*|__)(.*?)\\1", "\\2"),
            make("(*ANY)(\\*|_)(.*?)\\1", "\\2"),
            make("(*ANY)~~(.*?)~~", "\\1"),
            make("(*ANY)\\s+", " "),
        };
    }();
    return chain;
}

} // namespace

const QSet<QString> &summaryPlaceholders()
{
    static const QSet<QString> texts{QStringLiteral("Generating summary..."),
                                     QStringLiteral("Transcription in progress...")};
    return texts;
}

const QSet<QString> &transcriptionPlaceholders()
{
    static const QSet<QString> texts{
        QStringLiteral("Transcribing audio..."), QStringLiteral("Loading transcript..."),
        QStringLiteral("Loading content..."), QStringLiteral("Transcription in progress...")};
    return texts;
}

bool hasUsableSummary(const QString &summary)
{
    const QString trimmed = summary.trimmed();
    return !trimmed.isEmpty() && !summaryPlaceholders().contains(trimmed);
}

bool hasUsableTranscript(const QString &transcription)
{
    const QString trimmed = transcription.trimmed();
    return !trimmed.isEmpty() && !transcriptionPlaceholders().contains(trimmed) &&
           !trimmed.startsWith(QStringLiteral("Transcription failed:"));
}

bool isProcessingNote(const QString &summary, const QString &transcription)
{
    return summaryPlaceholders().contains(summary.trimmed()) ||
           transcriptionPlaceholders().contains(transcription.trimmed());
}

QString rowPreview(const QString &summary, const QString &transcription)
{
    QString source;
    if (hasUsableSummary(summary))
        source = summary;
    else if (hasUsableTranscript(transcription))
        source = transcription;
    else
        return {};

    // Keyed by the opening, not by the note: notes that open alike share an
    // entry, and an edit needs no invalidation.
    static BoundedCache<QString, QString> cache(500, std::numeric_limits<qint64>::max());
    const QString key = firstCodePoints(source, previewSourceCharacters);
    if (const std::shared_ptr<const QString> hit = cache.object(key))
        return *hit;
    auto preview = std::make_shared<const QString>(plainSnippet(key));
    cache.setObject(key, preview, 0);
    return *preview;
}

QString plainSnippet(const QString &markdown)
{
    QString text = stripOuterCodeFence(markdown);
    for (const Replacement &step : replacements())
        text.replace(step.pattern, step.replacement);
    return text.trimmed();
}

} // namespace kestil::PreviewSnippets
