#pragma once

#include "core/Note.h"

#include <QAbstractListModel>

#include <optional>

namespace kestil {

class LocalAppModel;

// The notes of the library as rows for the sidebar: newest first, each with
// its title, date, a one-line preview and whether work is running on it. Each
// row carries its identifier "notesListNoteRow-<note id>" as its accessible
// name, since rows of a list view are not objects of their own.
class NoteListItemModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role {
        TitleRole = Qt::UserRole + 1,
        DateTextRole,
        NoteIdRole,
        PreviewRole,
        ProcessingRole,
        RecordingRole,
        RowIdentifierRole,
    };

    explicit NoteListItemModel(LocalAppModel &app, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;
    NotePtr noteAt(int row) const;
    int rowOf(const NotePtr &note) const;
    // The row whose identifier is "notesListNoteRow-<id>", or -1.
    int rowWithIdentifier(const QString &identifier) const;

    // The note being recorded gets a recording mark.
    void setRecordingNote(const NotePtr &note);
    // Redraws every row (titles and texts change without a reload).
    void refreshRows();

    // The date as a row shows it.
    static QString dateText(const Note &note);
    // "notesListNoteRow-" and the note's id in upper case.
    static QString rowIdentifier(const Note &note);
    // The row's text under the title: the summary if it has one, else the
    // transcript, Markdown marks and line breaks removed, one line.
    static QString previewText(const Note &note);
    // A placeholder status text stands in the summary or the transcript.
    static bool isProcessingNote(const Note &note);

private:
    void reload();

    LocalAppModel &app_;
    QList<NotePtr> notes_;
    NotePtr recordingNote_;
};

} // namespace kestil
