#pragma once

#include "core/Note.h"

#include <QAbstractListModel>

namespace kestil {

class LocalAppModel;

// The notes of the library as rows for the sidebar: newest first, each with
// its display title and its date.
class NoteListItemModel : public QAbstractListModel {
    Q_OBJECT
public:
    enum Role { TitleRole = Qt::UserRole + 1, DateTextRole, NoteIdRole };

    explicit NoteListItemModel(LocalAppModel &app, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;
    NotePtr noteAt(int row) const;

    // The date as a row shows it.
    static QString dateText(const Note &note);

private:
    void reload();

    LocalAppModel &app_;
    QList<NotePtr> notes_;
};

} // namespace kestil
