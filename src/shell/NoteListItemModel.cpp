#include "shell/NoteListItemModel.h"

#include "base/Error.h"
#include "core/IdleTranscriptIndexer.h"
#include "core/LocalAppModel.h"
#include "documents/PreviewSnippets.h"

#include <QLocale>

namespace kestil {

NoteListItemModel::NoteListItemModel(LocalAppModel &app, FilterAndSortState &state, QObject *parent)
    : QAbstractListModel(parent), app_(app), state_(state)
{
    connect(&app_, &LocalAppModel::notesChanged, this, &NoteListItemModel::reload);
    connect(&state_, &FilterAndSortState::changed, this, &NoteListItemModel::refilter);
    // Searches of a large library stay fast only with the index up to date.
    if (app_.storeReady())
        indexer_ = new IdleTranscriptIndexer(*app_.store(), this);
    reload();
}

void NoteListItemModel::reload()
{
    // The same notes in the same order (a selection) only redraw what
    // changed: a reset would drop the view's selection and scroll position.
    if (notes_ == app_.notes()) {
        refreshRows();
        return;
    }
    notes_ = app_.notes();
    relist();
    askTranscripts();
    refilter();
}

void NoteListItemModel::refreshRows()
{
    relist();
    askTranscripts();
    refilter();
}

void NoteListItemModel::relist()
{
    // Titles and tags are folded and keyed once; a note whose title and tags
    // did not change keeps what was made for it.
    QHash<const Note *, qsizetype> previous;
    for (qsizetype i = 0; i < listed_.size(); ++i)
        previous.insert(listedFrom_.value(listed_[i].key).get(), i);
    const QList<ListedNote> old = listed_;
    const SearchFold fold;
    QList<ListedNote> listed;
    listed.reserve(notes_.size());
    for (qsizetype i = 0; i < notes_.size(); ++i) {
        const Note &note = *notes_[i];
        ListedNote entry;
        entry.key = i;
        entry.title = note.title();
        entry.timestamp = note.timestamp();
        const FolderPtr folder = note.folder();
        entry.hasFolder = folder != nullptr;
        entry.folderID = folder ? folder->id() : std::nullopt;
        const QList<TagPtr> tags = note.tags();
        entry.tagCount = int(tags.size());
        if (!tags.isEmpty())
            entry.tagNames = note.sortedTagNames();
        const auto before = previous.find(&note);
        if (before != previous.end() && old[*before].title == entry.title &&
            old[*before].tagNames == entry.tagNames) {
            const ListedNote &known = old[*before];
            entry.displayTitle = known.displayTitle;
            entry.titleSortKey = known.titleSortKey;
            entry.foldedTitle = known.foldedTitle;
            entry.foldedTagLine = known.foldedTagLine;
        } else {
            entry.prepare(fold);
        }
        listed.append(std::move(entry));
    }
    listed_ = std::move(listed);
    listedFrom_ = notes_;
}

void NoteListItemModel::askTranscripts()
{
    const QString trimmed = FilterAndSortState::trimmedSearch(searchText_);
    askedSearch_ = trimmed;
    transcriptSearch_ = nullptr;
    if (trimmed.isEmpty() || !app_.store())
        return;
    try {
        transcriptSearch_ =
            searchOverride_ ? searchOverride_(trimmed) : app_.store()->transcriptSearch(trimmed);
    } catch (const std::exception &error) {
        emit searchFailed(describe(error) + QStringLiteral(" Your notes are unchanged."));
    }
}

bool NoteListItemModel::transcriptMatches(const ListedNote &note, const QString &trimmedQuery) const
{
    if (!transcriptSearch_ || trimmedQuery != askedSearch_ || note.key < 0 || note.key >= notes_.size())
        return false;
    return transcriptSearch_(*notes_[note.key]);
}

void NoteListItemModel::setTranscriptSearch(TranscriptSearch search)
{
    searchOverride_ = std::move(search);
    askTranscripts();
    refilter();
}

void NoteListItemModel::refilter()
{
    const auto match = [this](const ListedNote &note, const QString &query) {
        return transcriptMatches(note, query);
    };
    const QList<NotesDayGroup> groups =
        state_.groupedNotes(state_.filteredNotes(listed_, searchText_, match));
    QList<NotePtr> shown;
    QHash<qsizetype, QString> headings;
    const QDate today = QDate::currentDate();
    for (const NotesDayGroup &group : groups) {
        if (const auto title = FilterAndSortState::dayGroupTitle(group.day, today);
            title && !group.notes.isEmpty())
            headings.insert(shown.size(), *title);
        for (const ListedNote &note : group.notes)
            shown.append(notes_[note.key]);
    }
    if (shown == shown_ && headings == headings_) {
        if (!shown_.isEmpty())
            emit dataChanged(index(0), index(int(shown_.size() - 1)));
    } else {
        beginResetModel();
        shown_ = std::move(shown);
        headings_ = std::move(headings);
        endResetModel();
    }
    emit shownNotesChanged();
}

void NoteListItemModel::setSearchText(const QString &text)
{
    if (text == searchText_)
        return;
    searchText_ = text;
    askTranscripts();
    refilter();
}

NotesListEmptyState NoteListItemModel::emptyState() const
{
    return state_.emptyState(listed_, shown_.size(), searchText_);
}

QMap<QString, int> NoteListItemModel::tagCounts() const
{
    QMap<QString, int> counts =
        state_.tagCounts(listed_, searchText_, [this](const ListedNote &note, const QString &query) {
            return transcriptMatches(note, query);
        });
    // Tags of the library that no shown note carries are offered with 0.
    if (SharedPersistenceController *store = app_.store()) {
        try {
            for (const TagPtr &tag : store->context().fetch<Tag>(FetchRequest{})) {
                if (const auto name = tag->name(); name && !name->isEmpty() && !counts.contains(*name))
                    counts.insert(*name, 0);
            }
        } catch (const std::exception &) {
            // The counts of the listed notes stand on their own.
        }
    }
    return counts;
}

void NoteListItemModel::setRecordingNote(const NotePtr &note)
{
    if (recordingNote_ == note)
        return;
    recordingNote_ = note;
    if (!shown_.isEmpty())
        emit dataChanged(index(0), index(int(shown_.size() - 1)), {RecordingRole});
}

int NoteListItemModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(shown_.size());
}

NotePtr NoteListItemModel::noteAt(int row) const
{
    return row >= 0 && row < shown_.size() ? shown_[row] : nullptr;
}

int NoteListItemModel::rowOf(const NotePtr &note) const
{
    return note ? int(shown_.indexOf(note)) : -1;
}

int NoteListItemModel::rowWithIdentifier(const QString &identifier) const
{
    for (int row = 0; row < shown_.size(); ++row) {
        if (rowIdentifier(*shown_[row]) == identifier)
            return row;
    }
    return -1;
}

QString NoteListItemModel::dateText(const Note &note)
{
    const QDateTime local = note.effectiveTimestamp().toLocalTime();
    const QLocale locale;
    return locale.toString(local.date(), QLocale::LongFormat) + QStringLiteral(", ") +
           locale.toString(local.time(), shortTimeFormat(locale));
}

QString NoteListItemModel::rowIdentifier(const Note &note)
{
    return QStringLiteral("notesListNoteRow-") +
           (note.id() ? note.id()->toString(QUuid::WithoutBraces).toUpper() : QString());
}

QString NoteListItemModel::previewText(const Note &note)
{
    return PreviewSnippets::rowPreview(note.summary().value_or(QString()),
                                       note.transcription().value_or(QString()));
}

bool NoteListItemModel::isProcessingNote(const Note &note)
{
    return PreviewSnippets::isProcessingNote(note.summary().value_or(QString()),
                                             note.transcription().value_or(QString()));
}

QVariant NoteListItemModel::data(const QModelIndex &index, int role) const
{
    const NotePtr note = noteAt(index.row());
    if (!note)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return note->displayTitle() + QLatin1Char('\n') + dateText(*note);
    case Qt::ToolTipRole:
        return isProcessingNote(*note) ? QStringLiteral("Processing note") : QVariant();
    case Qt::AccessibleTextRole:
    case RowIdentifierRole:
        return rowIdentifier(*note);
    case Qt::AccessibleDescriptionRole:
        return note->displayTitle() + QStringLiteral(", ") + dateText(*note);
    case TitleRole:
        return note->displayTitle();
    case DateTextRole:
        return dateText(*note);
    case NoteIdRole:
        return note->id() ? note->id()->toString(QUuid::WithoutBraces).toUpper() : QString();
    case PreviewRole:
        return previewText(*note);
    case ProcessingRole:
        return isProcessingNote(*note);
    case RecordingRole:
        return note == recordingNote_;
    case DayHeadingRole:
        return headings_.value(index.row());
    default:
        return {};
    }
}

QHash<int, QByteArray> NoteListItemModel::roleNames() const
{
    return {{TitleRole, "title"},
            {DateTextRole, "dateText"},
            {NoteIdRole, "noteId"},
            {PreviewRole, "preview"},
            {ProcessingRole, "processing"},
            {RecordingRole, "recording"},
            {RowIdentifierRole, "identifier"},
            {DayHeadingRole, "dayHeading"}};
}

} // namespace kestil
