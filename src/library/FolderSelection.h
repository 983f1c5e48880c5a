#pragma once

#include <QUuid>

#include <optional>

namespace kestil {

// What the sidebar has selected: one user folder, all notes, or the notes in
// no folder. Two selections are equal when they are the same case and, for a
// folder, name the same folder.
struct FolderSelection {
    enum class Kind { folder, all, unfiled };

    Kind kind = Kind::all;
    QUuid folderID;

    static FolderSelection all() { return {Kind::all, {}}; }
    static FolderSelection unfiled() { return {Kind::unfiled, {}}; }
    static FolderSelection folder(const QUuid &id) { return {Kind::folder, id}; }

    bool isFolder() const { return kind == Kind::folder; }
    // The folder's id for a folder selection, nothing otherwise.
    std::optional<QUuid> selectedFolderID() const
    {
        return isFolder() ? std::optional<QUuid>(folderID) : std::nullopt;
    }

    friend bool operator==(const FolderSelection &a, const FolderSelection &b)
    {
        return a.kind == b.kind && (a.kind != Kind::folder || a.folderID == b.folderID);
    }
};

} // namespace kestil
