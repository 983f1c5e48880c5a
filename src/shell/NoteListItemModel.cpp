#include "shell/NoteListItemModel.h"

#include "core/LocalAppModel.h"
#include "documents/PreviewSnippets.h"

#include <QLocale>

namespace kestil {

NoteListItemModel::NoteListItemModel(LocalAppModel &app, QObject *parent)
    : QAbstractListModel(parent), app_(app)
{
    connect(&app_, &LocalAppModel::notesChanged, this, &NoteListItemModel::reload);
    reload();
}

void NoteListItemModel::reload()
{
    // The same notes in the same order (a selection, a save) only redraw:
    // a reset would drop the view's selection and scroll position.
    if (notes_ == app_.notes()) {
        refreshRows();
        return;
    }
    beginResetModel();
    notes_ = app_.notes();
    endResetModel();
}

void NoteListItemModel::refreshRows()
{
    if (!notes_.isEmpty())
        emit dataChanged(index(0), index(int(notes_.size() - 1)));
}

void NoteListItemModel::setRecordingNote(const NotePtr &note)
{
    if (recordingNote_ == note)
        return;
    recordingNote_ = note;
    refreshRows();
}

int NoteListItemModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(notes_.size());
}

NotePtr NoteListItemModel::noteAt(int row) const
{
    return row >= 0 && row < notes_.size() ? notes_[row] : nullptr;
}

int NoteListItemModel::rowOf(const NotePtr &note) const
{
    return note ? int(notes_.indexOf(note)) : -1;
}

int NoteListItemModel::rowWithIdentifier(const QString &identifier) const
{
    for (int row = 0; row < notes_.size(); ++row) {
        if (rowIdentifier(*notes_[row]) == identifier)
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
            {RowIdentifierRole, "identifier"}};
}

} // namespace kestil
