#include "core/NoteOrganizing.h"

#include "library/OrganizingRules.h"

#include <QCollator>

#include <algorithm>

namespace kestil {

FolderPtr findFolder(const QString &name, ManagedObjectContext &context)
{
    const QString wanted = trimmedFolderName(name).toLower();
    if (wanted.isEmpty())
        return nullptr;
    try {
        FetchRequest request;
        for (const FolderPtr &folder : context.fetch<Folder>(request)) {
            if (folder->name().value_or(QString()).compare(wanted, Qt::CaseInsensitive) == 0)
                return folder;
        }
    } catch (const std::exception &) {
        // A failed fetch finds nothing.
    }
    return nullptr;
}

FolderPtr createFolder(const QString &name, ManagedObjectContext &context)
{
    const QString trimmed = trimmedFolderName(name);
    if (trimmed.isEmpty())
        return nullptr;
    if (FolderPtr existing = findFolder(trimmed, context))
        return existing;
    auto folder = context.insert<Folder>();
    folder->setValue(QStringLiteral("id"), QUuid::createUuid());
    folder->setValue(QStringLiteral("name"), trimmed);
    folder->setValue(QStringLiteral("createdAt"), QDateTime::currentDateTimeUtc());
    folder->setValue(QStringLiteral("sortOrder"), 0);
    return folder;
}

qsizetype folderNoteCount(const Folder &folder)
{
    return folder.notes().size();
}

QList<FolderPtr> sortedFolders(ManagedObjectContext &context)
{
    QList<FolderPtr> folders = context.fetch<Folder>(FetchRequest{});
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(folders.begin(), folders.end(), [&collator](const FolderPtr &a, const FolderPtr &b) {
        if (a->sortOrder() != b->sortOrder())
            return a->sortOrder() < b->sortOrder();
        return collator.compare(a->name().value_or(QString()), b->name().value_or(QString())) < 0;
    });
    return folders;
}

bool addManualTag(Note &note, const QString &typed)
{
    const QString cleaned = cleanedTagText(typed);
    const QString canonical = canonicalTagName(cleaned);
    if (cleaned.isEmpty() || canonical.isEmpty() || note.tags().size() >= maximumManualTags)
        return false;
    for (const TagPtr &tag : note.tags()) {
        if (tag->canonicalName() == canonical)
            return false;
    }
    note.addTag(cleaned);
    return true;
}

} // namespace kestil
