#pragma once

#include "library/SearchFold.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QLocale>
#include <QString>
#include <QStringList>
#include <QUuid>

#include <optional>

namespace kestil {

// What filtering, sorting and grouping read of one note: a plain copy of its
// fields, so that the rules run without the store. The transcript is not
// here; whether it contains a search is asked of whoever holds it.
struct ListedNote {
    // The caller's handle on the note (its position in the caller's list).
    qsizetype key = -1;
    std::optional<QString> title;
    std::optional<QDateTime> timestamp;
    bool hasFolder = false;
    // The folder's id; a folder may lack one.
    std::optional<QUuid> folderID;
    // The note's tag names in the note's sorted order.
    QStringList tagNames;
    // The number of tags, named or not.
    int tagCount = 0;

    // Derived by prepare(): the title as shown, its collation key, and the
    // folded title and tag line that a search compares with.
    QString displayTitle;
    QByteArray titleSortKey;
    std::optional<QString> foldedTitle;
    std::optional<QString> foldedTagLine;

    // Fills the derived fields for the given locale's rules.
    void prepare(const SearchFold &fold, const QLocale &locale = QLocale());
};

// The title as a list shows it: trimmed, or "Untitled Note" when nothing is
// left.
QString listedDisplayTitle(const std::optional<QString> &title);
// A key whose byte order is the locale's case-insensitive order of titles
// (accents still count).
QByteArray titleSortKey(QStringView title, const QLocale &locale);

} // namespace kestil
