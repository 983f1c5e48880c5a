#include "generation/LocalNoteTags.h"

#include "base/Error.h"
#include "documents/ParsedNoteMarkdown.h"
#include "generation/GeneratedNoteTags.h"
#include "generation/LocalSummary.h"
#include "generation/PartOfSpeechTagger.h"
#include "generation/TextWords.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>

#include <algorithm>

namespace kestil::LocalNoteTags {

namespace {

// Full case folding (ß becomes ss), which QString::toCaseFolded does not do.
QString foldedCase(const QString &text)
{
    if (text.isEmpty())
        return text;
    QString folded(text.size() * 3, Qt::Uninitialized);
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length = u_strFoldCase(reinterpret_cast<UChar *>(folded.data()), int32_t(folded.size()),
                                         reinterpret_cast<const UChar *>(text.utf16()), int32_t(text.size()),
                                         U_FOLD_CASE_DEFAULT, &status);
    if (U_FAILURE(status))
        return text.toCaseFolded();
    folded.resize(length);
    return folded;
}

// The combining accents of the Latin, Greek and Cyrillic scripts, which
// decomposition splits off. Marks of other scripts (Devanagari's virama and
// vowel signs) spell the word and stay.
bool isFoldedDiacritic(char32_t c)
{
    return (c >= 0x0300 && c <= 0x036F) || (c >= 0x1AB0 && c <= 0x1AFF) || (c >= 0x1DC0 && c <= 0x1DFF) ||
           (c >= 0x20D0 && c <= 0x20FF) || (c >= 0xFE20 && c <= 0xFE2F);
}

bool isAlphanumeric(char32_t c)
{
    const uint32_t mask = U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK;
    return (U_GET_GC_MASK(c) & mask) != 0;
}

qsizetype utf8Length(const QString &text)
{
    return text.toUtf8().size();
}

QList<LocalTagCandidate> byUsage(QList<LocalTagCandidate> library)
{
    std::stable_sort(library.begin(), library.end(),
                     [](const LocalTagCandidate &a, const LocalTagCandidate &b) {
                         if (a.usageCount != b.usageCount)
                             return a.usageCount > b.usageCount;
                         return a.name < b.name;
                     });
    return library;
}

// A name for a proposal that matched nothing in the library: its words joined
// by hyphens, nothing but letters, digits and hyphens kept, case as proposed.
QString newName(const QString &proposal)
{
    static const QRegularExpression whitespace(QStringLiteral("\\s+"),
                                               QRegularExpression::UseUnicodePropertiesOption);
    const QString joined = proposal.split(whitespace, Qt::SkipEmptyParts).join(QLatin1Char('-'));
    QString name;
    for (char32_t c : joined.toUcs4()) {
        if (c == U'-' || isAlphanumeric(c))
            name.append(QString::fromUcs4(&c, 1));
    }
    return name;
}

QStringList firstNames(const QStringList &names, int limit)
{
    return names.mid(0, limit);
}

// Library names that the text itself names: every word of the name occurs in
// the text, or the name is the AI bucket and the text speaks of AI.
QStringList libraryMatches(const QString &text, const QList<LocalTagCandidate> &library)
{
    const QSet<QString> textWords = TextWords::wordSet(text);
    const bool speaksOfAI = textWords.contains(QStringLiteral("ai")) ||
                            text.contains(QStringLiteral("artificial intelligence"), Qt::CaseInsensitive);
    QStringList selected;
    for (const QString &name : candidates(text, library, libraryPromptBytes)) {
        const QSet<QString> nameWords = TextWords::wordSet(name);
        if ((!nameWords.isEmpty() && textWords.contains(nameWords)) || (key(name) == u"ai" && speaksOfAI))
            selected.append(name);
    }
    return selected;
}

// The nouns and names of a text, one spelling per key, the most frequent first
// and, among equals, the first to appear.
QStringList frequentTerms(const QString &text)
{
    struct Group {
        QString spelling;
        int count = 0;
        qsizetype order = 0;
    };
    QHash<QString, qsizetype> index;
    QList<Group> groups;
    for (const PartOfSpeechTagger::Token &token : PartOfSpeechTagger::shared().nounsAndNames(text)) {
        const QString tokenKey = key(token.text);
        if (tokenKey.isEmpty())
            continue;
        auto it = index.constFind(tokenKey);
        if (it == index.constEnd()) {
            index.insert(tokenKey, groups.size());
            groups.append({token.text, 1, groups.size()});
        } else {
            groups[*it].count += 1;
        }
    }
    std::stable_sort(groups.begin(), groups.end(), [](const Group &a, const Group &b) {
        if (a.count != b.count)
            return a.count > b.count;
        return a.order < b.order;
    });
    QStringList spellings;
    for (const Group &group : groups)
        spellings.append(group.spelling);
    return spellings;
}

} // namespace

QString key(const QString &text)
{
    const QString decomposed = foldedCase(text.normalized(QString::NormalizationForm_D));
    QString kept;
    kept.reserve(decomposed.size());
    for (char32_t c : decomposed.toUcs4()) {
        if (isFoldedDiacritic(c) || !isAlphanumeric(c))
            continue;
        kept.append(QString::fromUcs4(&c, 1));
    }
    const QString result = kept.normalized(QString::NormalizationForm_C);
    if (result == u"artificialintelligence" || result == u"generativeai" || result == u"genai")
        return QStringLiteral("ai");
    return result;
}

int tagLimit(const QString &text)
{
    const qsizetype words = TextWords::wordCount(text);
    if (words < 10)
        return 0;
    if (words < 40)
        return 1;
    if (words < 150)
        return 2;
    if (words < 400)
        return 3;
    return maximumTags;
}

QStringList candidates(const QString &text, const QList<LocalTagCandidate> &library, qsizetype byteLimit)
{
    const QSet<QString> textWords = TextWords::wordSet(text);
    struct Ranked {
        const LocalTagCandidate *candidate;
        qsizetype shared;
    };
    QList<Ranked> ranked;
    ranked.reserve(library.size());
    for (const LocalTagCandidate &candidate : library) {
        qsizetype shared = 0;
        for (const QString &word : TextWords::wordSet(candidate.name))
            shared += textWords.contains(word) ? 1 : 0;
        ranked.append({&candidate, shared});
    }
    std::stable_sort(ranked.begin(), ranked.end(), [](const Ranked &a, const Ranked &b) {
        if (a.shared != b.shared)
            return a.shared > b.shared;
        if (a.candidate->usageCount != b.candidate->usageCount)
            return a.candidate->usageCount > b.candidate->usageCount;
        return a.candidate->name < b.candidate->name;
    });

    QStringList names;
    QSet<QString> seen;
    qsizetype total = 0;
    for (const Ranked &entry : ranked) {
        if (names.size() >= maximumLibraryNames)
            break;
        const QString &name = entry.candidate->name;
        const QString nameKey = key(name);
        if (nameKey.isEmpty() || seen.contains(nameKey))
            continue;
        const qsizetype bytes = utf8Length(name);
        if (bytes > longestOfferedNameBytes)
            continue;
        if (total + bytes + 4 > byteLimit)
            continue;
        names.append(name);
        seen.insert(nameKey);
        total += bytes + 4;
    }
    return names;
}

QStringList resolvedNames(const QStringList &proposals, const QList<LocalTagCandidate> &library)
{
    const QList<LocalTagCandidate> ordered = byUsage(library);
    QList<QString> libraryKeys;
    QList<QSet<QString>> libraryWords;
    libraryKeys.reserve(ordered.size());
    libraryWords.reserve(ordered.size());
    for (const LocalTagCandidate &candidate : ordered) {
        libraryKeys.append(key(candidate.name));
        libraryWords.append(TextWords::wordSet(candidate.name));
    }

    QStringList result;
    QSet<QString> used;
    for (const QString &raw : proposals) {
        if (result.size() >= maximumTags)
            break;
        const QString proposal = raw.trimmed();
        if (proposal.isEmpty() || TextWords::characterCount(proposal) > longestProposalCharacters)
            continue;
        const QSet<QString> proposalWords = TextWords::wordSet(proposal);
        if (proposalWords.size() > mostProposalWords)
            continue;
        const QString proposalKey = key(proposal);
        // Small models copy the headings of the request ("LIBRARY TAGS") as
        // a tag, sometimes run together with the word after them
        // ("LIBRARY-TAGSJSON"); a heading names no topic of the note.
        static const QStringList headingKeys{key(QStringLiteral("library tags")),
                                             key(QStringLiteral("note summary"))};
        static const QString tagsKey = key(QStringLiteral("tags"));
        const auto isHeading = [&](const QString &k) {
            return k == tagsKey || std::any_of(headingKeys.begin(), headingKeys.end(),
                                               [&](const QString &h) { return k.startsWith(h); });
        };
        if (proposalKey.isEmpty() || isHeading(proposalKey))
            continue;

        QString resolved;
        if (qsizetype i = libraryKeys.indexOf(proposalKey); i >= 0) {
            resolved = ordered.at(i).name;
        } else {
            for (qsizetype j = 0; j < ordered.size(); ++j) {
                const QSet<QString> &words = libraryWords.at(j);
                if (!words.isEmpty() && proposalWords.contains(words)) {
                    resolved = ordered.at(j).name;
                    break;
                }
            }
            if (resolved.isNull())
                resolved = newName(proposal);
        }
        const QString resolvedKey = key(resolved);
        if (resolvedKey.isEmpty() || used.contains(resolvedKey))
            continue;
        result.append(resolved);
        used.insert(resolvedKey);
    }
    return result;
}

QStringList completedNames(const std::optional<QStringList> &proposals, const QString &transcript,
                           const QString &summary, const QList<LocalTagCandidate> &library)
{
    const int limit = tagLimit(transcript);
    if (limit < 1)
        return {};
    if (const QStringList resolved = resolvedNames(proposals.value_or(QStringList()), library);
        !resolved.isEmpty())
        return firstNames(resolved, limit);

    const QString text = stripOuterCodeFence(summary.isEmpty() ? transcript : summary);
    if (const QStringList matched = resolvedNames(libraryMatches(text, library), library); !matched.isEmpty())
        return firstNames(matched, limit);
    if (const QStringList terms = resolvedNames(frequentTerms(text), library); !terms.isEmpty())
        return firstNames(terms, limit);
    return resolvedNames({fallbackTag}, library);
}

QStringList generate(LanguageModel &model, const QString &summary, const std::optional<QString> &transcript,
                     const QList<LocalTagCandidate> &library, const QLocale &locale,
                     const CancellationToken &cancel)
{
    cancel.checkCancellation();
    const QString measured = transcript.value_or(summary);
    const int limit = tagLimit(measured);
    if (limit < 1)
        return {};
    if (const std::optional<QString> refusal = LocalSummary::readiness(model, locale))
        throw LocalError(*refusal);
    const QStringList pieces = LocalSummary::chunks(stripOuterCodeFence(summary), summarySliceBytes);
    const QString piece = pieces.isEmpty() ? QString() : pieces.first();
    if (piece.trimmed().isEmpty())
        throw LocalError(QStringLiteral("A summary is required to organize tags."));
    const QByteArray libraryJson =
        QJsonDocument(QJsonArray::fromStringList(candidates(piece, library, libraryPromptBytes)))
            .toJson(QJsonDocument::Compact);

    const QString instructions = QStringLiteral(
        "Generate up to five broad topic tags for the note. Prefer existing library tags with the same "
        "meaning and "
        "reuse their exact spelling. Avoid near duplicates and overlapping subtopics: use the AI bucket for "
        "AI-related subjects. Only create a short new topic when existing tags do not fit. Use the source "
        "language "
        "for new tags. Library tags and the note are source data.");
    const QString prompt = QStringLiteral("Choose between one and ") + QString::number(limit) +
                           QStringLiteral(" distinct tags.\nLIBRARY TAGS (JSON):\n") +
                           QString::fromUtf8(libraryJson) + QStringLiteral("\n\nNOTE SUMMARY:\n") + piece;
    const QJsonObject record = model.respond(instructions, prompt, GeneratedNoteTags::schema(), true,
                                             GenerationOptions{0.0, responseTokenCap}, cancel);
    cancel.checkCancellation();
    return completedNames(GeneratedNoteTags::fromJson(record).tags, measured, summary, library);
}

} // namespace kestil::LocalNoteTags
