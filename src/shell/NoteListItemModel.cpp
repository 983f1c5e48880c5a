#include "shell/NoteListItemModel.h"

#include "core/LocalAppModel.h"

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
    beginResetModel();
    notes_ = app_.notes();
    endResetModel();
}

int NoteListItemModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(notes_.size());
}

NotePtr NoteListItemModel::noteAt(int row) const
{
    return row >= 0 && row < notes_.size() ? notes_[row] : nullptr;
}

QString NoteListItemModel::dateText(const Note &note)
{
    const QDateTime local = note.effectiveTimestamp().toLocalTime();
    const QLocale locale;
    return locale.toString(local.date(), QLocale::LongFormat) + QStringLiteral(", ") +
           locale.toString(local.time(), shortTimeFormat(locale));
}

QVariant NoteListItemModel::data(const QModelIndex &index, int role) const
{
    const NotePtr note = noteAt(index.row());
    if (!note)
        return {};
    switch (role) {
    case Qt::DisplayRole:
        return note->displayTitle() + QLatin1Char('\n') + dateText(*note);
    case Qt::AccessibleTextRole:
    case TitleRole:
        return note->displayTitle();
    case DateTextRole:
        return dateText(*note);
    case NoteIdRole:
        return note->id() ? note->id()->toString(QUuid::WithoutBraces).toUpper() : QString();
    default:
        return {};
    }
}

QHash<int, QByteArray> NoteListItemModel::roleNames() const
{
    return {{TitleRole, "title"}, {DateTextRole, "dateText"}, {NoteIdRole, "noteId"}};
}

} // namespace kestil
