#include "library/SearchFold.h"

#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utypes.h>

#include <vector>

namespace kestil {

namespace {

bool isAscii(QStringView text)
{
    for (const QChar c : text) {
        if (c.unicode() >= 0x80)
            return false;
    }
    return true;
}

// Unpaired surrogates become U+FFFD, as they do on the way into the store's
// UTF-8, so that the index and a test in memory see the same characters.
QString withValidSurrogates(QStringView text)
{
    QString result(text.size(), Qt::Uninitialized);
    QChar *out = result.data();
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate()) {
            *out++ = c;
            *out++ = text[++i];
        } else if (c.isSurrogate()) {
            *out++ = QChar(QChar::ReplacementCharacter);
        } else {
            *out++ = c;
        }
    }
    return result;
}

QString icuFold(const QString &text, SearchFold::Rule rule)
{
    const uint32_t options =
        rule == SearchFold::Rule::turkic ? U_FOLD_CASE_EXCLUDE_SPECIAL_I : U_FOLD_CASE_DEFAULT;
    // Full folding can lengthen a text (ß becomes ss); three times is the
    // most any character grows.
    std::vector<UChar> buffer(size_t(text.size()) * 3 + 1);
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length =
        u_strFoldCase(buffer.data(), int32_t(buffer.size()), reinterpret_cast<const UChar *>(text.utf16()),
                      int32_t(text.size()), options, &status);
    if (U_FAILURE(status))
        return text.toCaseFolded();
    return QString(reinterpret_cast<const QChar *>(buffer.data()), length);
}

} // namespace

SearchFold::SearchFold(const QLocale &locale)
{
    const QLocale::Language language = locale.language();
    rule_ = language == QLocale::Turkish || language == QLocale::Azerbaijani ? Rule::turkic : Rule::standard;
}

SearchFold SearchFold::withRule(Rule rule)
{
    return SearchFold(rule);
}

QString SearchFold::identity() const
{
    return rule_ == Rule::turkic ? QStringLiteral("fold1-turkic") : QStringLiteral("fold1");
}

QString SearchFold::fold(QStringView text) const
{
    // Plain ASCII, the bulk of most transcripts, folds by lowering A to Z;
    // except under the Turkic rules, where I folds to a dotless ı.
    if (isAscii(text) && (rule_ == Rule::standard || !text.contains(QLatin1Char('I')))) {
        QString result = text.toString();
        for (QChar &c : result) {
            if (c >= QLatin1Char('A') && c <= QLatin1Char('Z'))
                c = QChar(c.unicode() + 32);
        }
        return result;
    }
    const QString composed = withValidSurrogates(text).normalized(QString::NormalizationForm_C);
    return icuFold(composed, rule_).normalized(QString::NormalizationForm_C);
}

bool SearchFold::contains(QStringView text, QStringView query) const
{
    if (query.isEmpty())
        return true;
    return foldedContains(fold(text), fold(query));
}

bool SearchFold::foldedContains(QStringView foldedText, QStringView foldedQuery)
{
    return foldedText.contains(foldedQuery, Qt::CaseSensitive);
}

bool localizedCaseInsensitiveContains(QStringView text, QStringView query)
{
    return SearchFold().contains(text, query);
}

} // namespace kestil
