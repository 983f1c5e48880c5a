#pragma once

#include "generation/GgufModelInfo.h"

#include <QString>

#include <optional>

namespace kestil::LanguageModelFiles {

// Kestil's data folder: $KESTIL_DATA_DIR, else $XDG_DATA_HOME/Kestil, else
// ~/.local/share/Kestil.
QString dataRoot();

// Where language models are installed: Models/language/ under the data folder.
QString modelsDirectory();

// Checks that a file is a model Kestil can use: a complete GGUF file with a
// chat template that llama.cpp knows. Throws LocalError with a full sentence.
GgufModelInfo validatedModel(const QString &path);

// The model in use: of the usable .gguf files in the folder, the one installed
// last (names break ties). Files that are not usable are passed over. Its
// languages come from its languages record, else from its header.
std::optional<GgufModelInfo> installedModel(const QString &directory = modelsDirectory());

// Checks a model file and copies it into the folder under its own name,
// through a temporary file, so that a failed copy leaves nothing behind.
// Returns the installed path. Throws LocalError saying that nothing was
// installed.
QString importModel(const QString &sourcePath, const QString &directory = modelsDirectory());

// Records, beside a model file, the languages it is made for, as the catalogue
// names them for the models it offers; they stand in for the languages of the
// file's header, which often names English alone. The record counts only
// while the file has the size it was written for. Writing it may fail
// quietly: the model then has the languages of its header.
void writeLanguagesRecord(const QString &modelPath, const QStringList &languages, qint64 size);

} // namespace kestil::LanguageModelFiles
