#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

namespace kestil {

class PreferenceStore;

// One instruct model that Kestil offers to download: a GGUF file as it is
// published, pinned to one revision so that its size and SHA-256 never move.
struct DownloadableLanguageModel {
    QString name;          // "Qwen2.5 0.5B Instruct"
    QString fileName;      // the name it is installed under in Models/language/
    QString remotePath;    // relative to the base address
    qint64 size = 0;       // bytes
    QByteArray sha256;     // lower-case hex of the published file
    QStringList languages; // language codes the model is made for
    QString description;   // one line for Settings
    QString licence;

    friend bool operator==(const DownloadableLanguageModel &, const DownloadableLanguageModel &) = default;
};

// The models Kestil offers, compiled in with the sizes and checksums of the
// published files, the default first.
const QList<DownloadableLanguageModel> &languageModelCatalogue();

// The model a download picks when the user picks none: small enough for any
// laptop that can run a model at all.
const DownloadableLanguageModel &defaultLanguageModel();

// Where the models are downloaded from, always ending in "/": the environment
// variable KESTIL_LANGUAGE_MODEL_BASE_URL, else the preference
// "kestilLanguageModelBaseAddress.v1", else the publisher's address. Throws
// LocalError when it is not an http or https address.
QUrl languageModelBaseAddress(const PreferenceStore &preferences);

// The address of one model under a base address.
QUrl languageModelAddress(const QUrl &baseAddress, const DownloadableLanguageModel &model);

// "468.6 MB", "1.04 GB": a file size for the user.
QString fileSizeText(qint64 bytes);

} // namespace kestil
