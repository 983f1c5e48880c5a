// Sectioning: cutting a source into pieces that each fit the model.
#include "generation/LocalSummary.h"

#include "base/Error.h"
#include "generation/TextWords.h"

#include <QtGlobal>

namespace kestil::LocalSummary {

namespace {

qsizetype utf8Length(char32_t scalar)
{
    if (scalar < 0x80)
        return 1;
    if (scalar < 0x800)
        return 2;
    if (scalar < 0x10000)
        return 3;
    return 4;
}

} // namespace

QStringList chunks(const QString &text, qsizetype byteLimit)
{
    if (byteLimit < 4)
        qFatal("LocalSummary::chunks needs a byte limit of at least 4, got %lld",
               static_cast<long long>(byteLimit));
    QStringList pieces;
    qsizetype pieceStart = 0;
    qsizetype count = 0;
    for (qsizetype i = 0; i < text.size();) {
        char32_t scalar = text.at(i).unicode();
        qsizetype width = 1;
        if (text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate()) {
            scalar = QChar::surrogateToUcs4(text.at(i), text.at(i + 1));
            width = 2;
        }
        // A lone surrogate becomes U+FFFD in UTF-8: three bytes.
        const qsizetype length = utf8Length(scalar);
        if (count + length > byteLimit && i > pieceStart) {
            pieces.append(text.mid(pieceStart, i - pieceStart));
            pieceStart = i;
            count = 0;
        }
        count += length;
        i += width;
    }
    if (pieceStart < text.size())
        pieces.append(text.mid(pieceStart));
    return pieces;
}

QString finalPrompt(const QString &text, LocalSummaryTemplate summaryTemplate)
{
    return LocalSummaryTemplates::finalPromptHead(summaryTemplate) + QStringLiteral("\nSource:\n") + text;
}

QString keyPointPrompt(const QString &text)
{
    return keyPointHead() + QStringLiteral("\nSource:\n") + text;
}

qint64 budget(const LanguageModel &model)
{
    return qMin(model.contextSize(), contextCeiling);
}

bool fitsModel(LanguageModel &model, const QString &text, LocalSummaryTemplate summaryTemplate,
               qint64 overhead, qint64 budget)
{
    const qint64 finalTokens = model.tokenCount(LanguageModel::Prompt{finalPrompt(text, summaryTemplate)});
    const qint64 keyPointTokens = model.tokenCount(LanguageModel::Prompt{keyPointPrompt(text)});
    const qint64 required = overhead + qMax(finalTokens, keyPointTokens) + answerReserve + safetyMargin;
    return budget >= required;
}

QStringList splitToFit(const QString &text, const std::function<bool(const QString &)> &fits,
                       const CancellationToken &cancel)
{
    cancel.checkCancellation();
    if (fits(text))
        return {text};
    if (TextWords::characterCount(text) >= 2) {
        const qsizetype bytes = text.toUtf8().size();
        const QStringList halves = chunks(text, bytes > 7 ? bytes / 2 : 4);
        if (halves.size() >= 2) {
            QStringList pieces;
            for (const QString &half : halves)
                pieces.append(splitToFit(half, fits, cancel));
            return pieces;
        }
    }
    throw LocalError(QStringLiteral("The model context is too small for this source."));
}

QStringList makeSections(LanguageModel &model, const QString &source, LocalSummaryTemplate summaryTemplate,
                         qint64 overhead, qint64 budget, const CancellationToken &cancel)
{
    cancel.checkCancellation();
    const auto fits = [&](const QString &text) {
        return fitsModel(model, text, summaryTemplate, overhead, budget);
    };
    if (fits(source))
        return {source};
    QStringList sections;
    QString current;
    for (const QString &unit : chunks(source, unitBytes)) {
        cancel.checkCancellation();
        const QString candidate = current + unit;
        if (fits(candidate)) {
            current = candidate;
            continue;
        }
        if (!current.isEmpty())
            sections.append(current);
        current.clear();
        QStringList pieces = splitToFit(unit, fits, cancel);
        current = pieces.takeLast();
        sections.append(pieces);
    }
    if (!current.isEmpty())
        sections.append(current);
    return sections;
}

} // namespace kestil::LocalSummary
