#pragma once

#include "core/Folder.h"
#include "core/ManagedObject.h"
#include "core/Tag.h"

#include <QLocale>
#include <QSet>
#include <QStringList>
#include <QVariantMap>

namespace kestil {

// One note. Every attribute may be missing (a row from an older or synced
// store); the accessors say so with an empty optional.
class Note : public ManagedObject {
public:
    Note() : ManagedObject(entityDescription()) {}
    static const EntityDescription &entityDescription() { return NotesModel::note(); }

    std::optional<QUuid> id() const { return uuidValue(QStringLiteral("id")); }
    std::optional<QString> title() const { return stringValue(QStringLiteral("title")); }
    std::optional<QString> transcription() const { return stringValue(QStringLiteral("transcription")); }
    std::optional<QString> transcriptUtterancesJSON() const
    {
        return stringValue(QStringLiteral("transcriptUtterancesJSON"));
    }
    std::optional<QString> speakerNamesJSON() const
    {
        return stringValue(QStringLiteral("speakerNamesJSON"));
    }
    std::optional<QString> summary() const { return stringValue(QStringLiteral("summary")); }
    std::optional<QString> summaryType() const { return stringValue(QStringLiteral("summaryType")); }
    std::optional<QString> sourceURL() const { return stringValue(QStringLiteral("sourceURL")); }
    std::optional<QString> noteType() const { return stringValue(QStringLiteral("noteType")); }
    std::optional<QString> notes() const { return stringValue(QStringLiteral("notes")); }
    std::optional<QDateTime> timestamp() const { return dateValue(QStringLiteral("timestamp")); }

    FolderPtr folder() const;
    void setFolder(const FolderPtr &folder);
    QList<TagPtr> tags() const;
    void setTags(const QList<TagPtr> &tags);

    // The title as shown: trimmed, or "Untitled Note" when nothing is left.
    QString displayTitle() const;
    // A summary that is neither blank nor the in-progress placeholder.
    bool hasSummaryContent() const;
    // Whether a generated title may replace the current one.
    bool needsGeneratedTitle(bool force) const;
    // A title of the automatic date shape counts as not chosen by the user.
    bool isDateLikeTitle() const;
    QStringList sortedTagNames() const;
    std::optional<QString> tagLine() const;
    // Typed tag text: adds the library tag with the same canonical name, or a
    // new one; removes the first tag with that canonical name. Not saved here.
    void addTag(const QString &text);
    void removeTag(const QString &text);
    // The timestamp, or now when it is missing; for sorting and exports.
    QDateTime effectiveTimestamp() const;
};
using NotePtr = std::shared_ptr<Note>;

// The text a new note gets as its title, and the summary placeholder.
inline const QString &untitledNoteTitle()
{
    static const QString t = QStringLiteral("Untitled Note");
    return t;
}
inline const QString &generatingSummaryPlaceholder()
{
    static const QString t = QStringLiteral("Generating summary...");
    return t;
}

// Editor texts that are status lines, not content.
const QSet<QString> &placeholderTexts();

// "Project Alpha", "project-alpha" and "PROJECT ALPHA!" all give "projectalpha".
QString canonicalTagName(const QString &text);
// Blanks become "-", then only letters, digits and "-" stay.
QString displayTagName(const QString &text);

// The locale's short time format, hours and minutes only.
QString shortTimeFormat(const QLocale &locale);
// The date of a note in the automatic title shape of the current locale.
QString abbreviatedDateTime(const QDateTime &dateTime);

// The fields a finished summary writes: summary and summaryType always, the
// title only while the note still needs a generated one.
QVariantMap generatedNoteFields(const QString &summary, const QString &summaryType, const QString &title,
                                const Note &note);

} // namespace kestil
