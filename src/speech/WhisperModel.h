#pragma once

#include "prefs/SettingsKeys.h"

#include <QByteArray>
#include <QLatin1StringView>
#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

namespace kestil {

class PreferenceStore;

// One downloadable whisper.cpp model: its name ("base.en"), the file it is
// published as, and the SHA-256 of that file.
struct WhisperModel {
    QString name;
    QString size; // "tiny", "base" or "small"
    bool englishOnly = false;
    QString fileName;
    QByteArray sha256; // lower-case hex

    friend bool operator==(const WhisperModel &, const WhisperModel &) = default;
};

// Size of the whisper model that set-up downloads (text: "tiny", "base" or
// "small"; "base" when missing or anything else).
inline constexpr QLatin1StringView whisperModelSizeKey = settings::keys::kestilSpeechModelSize;
// Address the models are downloaded from (text, an http or https URL); the
// environment variable KESTIL_SPEECH_MODEL_BASE_URL wins over it.
inline constexpr QLatin1StringView whisperModelBaseAddressKey = settings::keys::kestilSpeechModelBaseAddress;
inline constexpr QLatin1StringView defaultWhisperModelSize{"base"};
inline constexpr QLatin1StringView defaultWhisperModelBaseAddress{
    "https://huggingface.co/ggerganov/whisper.cpp/resolve/main/"};

// The models Kestil offers, compiled in with the checksums of the published
// files: tiny, base and small, each English-only and multilingual.
const QList<WhisperModel> &whisperModelCatalogue();

// The model for a language key: English-only for "en", multilingual for every
// other key, in the given size. Nothing when the catalogue has none.
std::optional<WhisperModel> whisperModelFor(const QList<WhisperModel> &catalogue, const QString &languageKey,
                                            const QString &size);

// Every model of the catalogue that serves the language key, the given size
// first, then the others from the largest down.
QList<WhisperModel> whisperModelsFor(const QList<WhisperModel> &catalogue, const QString &languageKey,
                                     const QString &preferredSize);

// The models of a list that can transcribe the language key. For English the
// English-only ones come first, then the multilingual ones, which serve when
// no English-only model is there; for every other key only the multilingual
// ones. Within each kind the given size first, then the others from the
// largest down.
QList<WhisperModel> whisperModelsServing(const QList<WhisperModel> &models, const QString &languageKey,
                                         const QString &preferredSize);

QString whisperModelSize(const PreferenceStore &preferences);
// The base address, always ending in "/". Throws LocalError when it is not an
// http or https address.
QUrl whisperModelBaseAddress(const PreferenceStore &preferences);

// whisper.cpp's language code for a language key ("zh-Hant" is "zh", "nb" is
// "no").
QString whisperLanguageCode(const QString &languageKey);

} // namespace kestil
