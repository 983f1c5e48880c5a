#include "library/ListedNote.h"

#include <unicode/ucol.h>

#include <memory>

namespace kestil {

namespace {

struct CollatorCloser {
    void operator()(UCollator *collator) const { ucol_close(collator); }
};

// One collator per thread, remade when the locale changes: opening one costs
// far more than a key.
UCollator *titleCollator(const QLocale &locale)
{
    thread_local std::unique_ptr<UCollator, CollatorCloser> collator;
    thread_local QString collatorLocale;
    const QString name = locale.name();
    if (!collator || collatorLocale != name) {
        UErrorCode status = U_ZERO_ERROR;
        collator.reset(ucol_open(name.toUtf8().constData(), &status));
        if (U_FAILURE(status)) {
            collator.reset();
            return nullptr;
        }
        // Case is ignored; accents still order.
        ucol_setStrength(collator.get(), UCOL_SECONDARY);
        collatorLocale = name;
    }
    return collator.get();
}

} // namespace

QString listedDisplayTitle(const std::optional<QString> &title)
{
    const QString trimmed = title.value_or(QString()).trimmed();
    return trimmed.isEmpty() ? QStringLiteral("Untitled Note") : trimmed;
}

QByteArray titleSortKey(QStringView title, const QLocale &locale)
{
    UCollator *collator = titleCollator(locale);
    if (!collator)
        return title.toString().toCaseFolded().toUtf8();
    const auto *text = reinterpret_cast<const UChar *>(title.utf16());
    QByteArray key(64, Qt::Uninitialized);
    int32_t length = ucol_getSortKey(collator, text, int32_t(title.size()),
                                     reinterpret_cast<uint8_t *>(key.data()), int32_t(key.size()));
    if (length > key.size()) {
        key.resize(length);
        length = ucol_getSortKey(collator, text, int32_t(title.size()),
                                 reinterpret_cast<uint8_t *>(key.data()), int32_t(key.size()));
    }
    // The key ends with a zero byte, which the byte order does not need.
    key.resize(length > 0 ? length - 1 : 0);
    return key;
}

void ListedNote::prepare(const SearchFold &fold, const QLocale &locale)
{
    displayTitle = listedDisplayTitle(title);
    titleSortKey = kestil::titleSortKey(displayTitle, locale);
    foldedTitle = title ? std::optional<QString>(fold.fold(*title)) : std::nullopt;
    foldedTagLine = tagNames.isEmpty()
                        ? std::nullopt
                        : std::optional<QString>(fold.fold(tagNames.join(QStringLiteral(", "))));
}

} // namespace kestil
