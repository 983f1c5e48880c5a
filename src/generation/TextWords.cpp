#include "generation/TextWords.h"

#include <unicode/ubrk.h>
#include <unicode/utypes.h>

#include <memory>

namespace kestil::TextWords {

namespace {

struct BreakIteratorCloser {
    void operator()(UBreakIterator *iterator) const { ubrk_close(iterator); }
};

// Calls visit(start, end) for each word-like segment: ICU gives punctuation
// and whitespace the status UBRK_WORD_NONE, every kind of word a higher one.
template <typename Visit> void forEachWord(const QString &text, Visit visit)
{
    if (text.isEmpty())
        return;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UBreakIterator, BreakIteratorCloser> iterator(
        ubrk_open(UBRK_WORD, "en_US_POSIX", reinterpret_cast<const UChar *>(text.utf16()),
                  int32_t(text.size()), &status));
    if (U_FAILURE(status) || !iterator)
        return;
    int32_t start = ubrk_first(iterator.get());
    for (int32_t end = ubrk_next(iterator.get()); end != UBRK_DONE;
         start = end, end = ubrk_next(iterator.get())) {
        if (ubrk_getRuleStatus(iterator.get()) >= UBRK_WORD_NONE_LIMIT)
            visit(qsizetype(start), qsizetype(end));
    }
}

} // namespace

QStringList wordRuns(const QString &text)
{
    const QString lower = text.normalized(QString::NormalizationForm_C).toLower();
    QStringList runs;
    qsizetype start = -1;
    for (qsizetype i = 0; i <= lower.size(); ++i) {
        bool inside = false;
        uint codePoint = 0;
        qsizetype width = 1;
        if (i < lower.size()) {
            codePoint = lower.at(i).unicode();
            if (lower.at(i).isHighSurrogate() && i + 1 < lower.size() && lower.at(i + 1).isLowSurrogate()) {
                codePoint = QChar::surrogateToUcs4(lower.at(i), lower.at(i + 1));
                width = 2;
            }
            inside = QChar::isLetterOrNumber(char32_t(codePoint));
        }
        if (inside && start < 0)
            start = i;
        if (!inside && start >= 0) {
            runs.append(lower.mid(start, i - start));
            start = -1;
        }
        i += width - 1;
    }
    return runs;
}

QSet<QString> wordSet(const QString &text)
{
    const QStringList runs = wordRuns(text);
    return QSet<QString>(runs.begin(), runs.end());
}

qsizetype wordCount(const QString &text)
{
    qsizetype count = 0;
    forEachWord(text, [&](qsizetype, qsizetype) { ++count; });
    return count;
}

qsizetype characterCount(const QString &text)
{
    if (text.isEmpty())
        return 0;
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UBreakIterator, BreakIteratorCloser> iterator(
        ubrk_open(UBRK_CHARACTER, "en_US_POSIX", reinterpret_cast<const UChar *>(text.utf16()),
                  int32_t(text.size()), &status));
    if (U_FAILURE(status) || !iterator)
        return text.size();
    qsizetype count = 0;
    ubrk_first(iterator.get());
    while (ubrk_next(iterator.get()) != UBRK_DONE)
        ++count;
    return count;
}

QString leftCharacters(const QString &text, qsizetype count)
{
    if (text.isEmpty() || count <= 0)
        return {};
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UBreakIterator, BreakIteratorCloser> iterator(
        ubrk_open(UBRK_CHARACTER, "en_US_POSIX", reinterpret_cast<const UChar *>(text.utf16()),
                  int32_t(text.size()), &status));
    if (U_FAILURE(status) || !iterator)
        return text.left(count);
    ubrk_first(iterator.get());
    int32_t end = 0;
    for (qsizetype taken = 0; taken < count; ++taken) {
        const int32_t next = ubrk_next(iterator.get());
        if (next == UBRK_DONE)
            return text;
        end = next;
    }
    return text.left(end);
}

QStringList words(const QString &text)
{
    QStringList result;
    forEachWord(text, [&](qsizetype start, qsizetype end) { result.append(text.mid(start, end - start)); });
    return result;
}

} // namespace kestil::TextWords
