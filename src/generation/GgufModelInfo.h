#pragma once

#include <QString>
#include <QStringList>

namespace kestil {

// What Kestil needs to know of a GGUF model file before loading it, read from
// its header alone: cheap enough for the main thread.
struct GgufModelInfo {
    QString path;
    QString architecture;
    QString name;
    qint64 contextLength = 0;
    // general.languages; empty when the file does not say.
    QStringList languages;
    QString chatTemplate;

    // Reads and checks the file: a GGUF header, metadata that parses, and
    // tensor data that the file really holds. Throws LocalError with a full
    // sentence naming the file when it is not a complete GGUF model.
    static GgufModelInfo read(const QString &path);
};

} // namespace kestil
