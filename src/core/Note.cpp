#include "core/Note.h"

#include "core/ManagedObjectContext.h"
#include "documents/PreviewSnippets.h"

#include <QLocale>
#include <QRegularExpression>

#include <algorithm>

namespace kestil {

FolderPtr Note::folder() const
{
    return std::static_pointer_cast<Folder>(toOne(QStringLiteral("folder")));
}

void Note::setFolder(const FolderPtr &folder)
{
    setToOne(QStringLiteral("folder"), folder);
}

QList<TagPtr> Note::tags() const
{
    QList<TagPtr> result;
    for (const auto &o : toMany(QStringLiteral("tags")))
        result.append(std::static_pointer_cast<Tag>(o));
    return result;
}

void Note::setTags(const QList<TagPtr> &tags)
{
    QList<ManagedObjectPtr> objects;
    for (const auto &t : tags)
        objects.append(t);
    setToMany(QStringLiteral("tags"), objects);
}

QString Note::displayTitle() const
{
    const QString trimmed = title().value_or(QString()).trimmed();
    return trimmed.isEmpty() ? untitledNoteTitle() : trimmed;
}

bool Note::hasSummaryContent() const
{
    const QString trimmed = summary().value_or(QString()).trimmed();
    return !trimmed.isEmpty() && trimmed != generatingSummaryPlaceholder();
}

bool Note::needsGeneratedTitle(bool force) const
{
    if (force)
        return true;
    const QString trimmed = title().value_or(QString()).trimmed();
    if (trimmed.isEmpty() || trimmed == QLatin1String("Untitled") || trimmed == untitledNoteTitle())
        return true;
    return isDateLikeTitle();
}

bool Note::isDateLikeTitle() const
{
    const QString trimmed = title().value_or(QString()).trimmed();
    if (trimmed.isEmpty())
        return false;
    if (const auto ts = timestamp(); ts && trimmed == abbreviatedDateTime(*ts))
        return true;
    static const QRegularExpression shape(
        QStringLiteral("^[A-Z][a-z]{2}\\s+\\d{1,2},\\s+\\d{1,2}:\\d{2}\\s+[AP]M$"),
        QRegularExpression::UseUnicodePropertiesOption);
    return shape.match(trimmed).hasMatch();
}

QStringList Note::sortedTagNames() const
{
    QStringList names;
    for (const auto &t : tags()) {
        if (auto n = t->name())
            names << *n;
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::optional<QString> Note::tagLine() const
{
    const QStringList names = sortedTagNames();
    if (names.isEmpty())
        return std::nullopt;
    return names.join(QStringLiteral(", "));
}

void Note::addTag(const QString &text)
{
    const QString canonical = canonicalTagName(text);
    const QString display = displayTagName(text);
    for (const auto &t : tags()) {
        if (t->canonicalName() == canonical)
            return;
    }
    auto *context = managedObjectContext();
    if (!context)
        return;
    FetchRequest request;
    request.equals = std::make_pair(QStringLiteral("canonicalName"), QVariant(canonical));
    const auto existing = context->fetch<Tag>(request);
    TagPtr tag;
    if (existing.isEmpty()) {
        tag = context->insert<Tag>();
        tag->setValue(QStringLiteral("id"), QUuid::createUuid());
        tag->setValue(QStringLiteral("name"), display);
        tag->setValue(QStringLiteral("canonicalName"), canonical);
        tag->setValue(QStringLiteral("createdAt"), QDateTime::currentDateTimeUtc());
    } else {
        tag = existing.first();
    }
    auto current = tags();
    current.append(tag);
    setTags(current);
}

void Note::removeTag(const QString &text)
{
    const QString canonical = canonicalTagName(text);
    auto current = tags();
    for (qsizetype i = 0; i < current.size(); ++i) {
        if (current[i]->canonicalName() == canonical) {
            current.removeAt(i);
            setTags(current);
            return;
        }
    }
}

QDateTime Note::effectiveTimestamp() const
{
    return timestamp().value_or(QDateTime::currentDateTimeUtc());
}

const QSet<QString> &placeholderTexts()
{
    return PreviewSnippets::transcriptionPlaceholders();
}

QString canonicalTagName(const QString &text)
{
    const QString lower = text.toLower();
    QString result;
    result.reserve(lower.size());
    for (const QChar c : lower) {
        if (c.isLetterOrNumber() || c.isMark())
            result.append(c);
    }
    return result;
}

QString displayTagName(const QString &text)
{
    QString dashed = text;
    dashed.replace(QLatin1Char(' '), QLatin1Char('-'));
    QString result;
    result.reserve(dashed.size());
    for (const QChar c : dashed) {
        if (c.isLetterOrNumber() || c.isMark() || c == QLatin1Char('-'))
            result.append(c);
    }
    return result;
}

QString shortTimeFormat(const QLocale &locale)
{
    // Some locales' short format still carries seconds; a note's time never does.
    QString format = locale.timeFormat(QLocale::ShortFormat);
    format.remove(QStringLiteral(":ss"));
    return format;
}

QString abbreviatedDateTime(const QDateTime &dateTime)
{
    const QLocale locale;
    const QDateTime local = dateTime.toLocalTime();
    return locale.toString(local.date(), QStringLiteral("MMM d, yyyy")) + QStringLiteral(" at ") +
           locale.toString(local.time(), shortTimeFormat(locale));
}

QVariantMap generatedNoteFields(const QString &summary, const QString &summaryType, const QString &title,
                                const Note &note)
{
    QVariantMap fields{{QStringLiteral("summary"), summary}, {QStringLiteral("summaryType"), summaryType}};
    if (note.needsGeneratedTitle(false) && !title.trimmed().isEmpty())
        fields.insert(QStringLiteral("title"), title);
    return fields;
}

} // namespace kestil
