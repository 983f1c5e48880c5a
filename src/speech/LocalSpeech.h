#pragma once

#include "LocalTranscript.h"
#include "SpeechEngine.h"
#include "WhisperModel.h"
#include "base/ModelDownload.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <exception>
#include <functional>
#include <memory>
#include <optional>

namespace kestil {

class PreferenceStore;

// On-device speech for a language the user chose: whether this computer can
// transcribe it, with which engine, and what stands in the way if it cannot
// yet. Whisper (whisper.cpp) is preferred; PocketSphinx with Debian's English
// model is the fallback. The only state is the preference
// "localSpeechLastFailure". Every operation may run on any thread; setUp and
// transcribe block for long and belong on a worker.
namespace LocalSpeech {

// The two engines: `speech` is Whisper, preferred; `dictation` is
// PocketSphinx, English only, needing no download.
enum class Engine { speech, dictation };

// "Whisper" or "PocketSphinx".
QString engineName(Engine engine);

// One usable engine for one language. `module` is what the engine loads: the
// whisper model file, or PocketSphinx's model folder. `locale` is the
// engine's own identifier for the language (BCP 47).
struct Configuration {
    QString module;
    Engine engine = Engine::speech;
    QString locale;

    friend bool operator==(const Configuration &, const Configuration &) = default;
};

// An entry of the language list, identified by its locale identifier.
struct Language {
    QString id;

    friend bool operator==(const Language &, const Language &) = default;
};

struct Readiness {
    // In this order. installed: the model is on this computer and verified;
    // downloading: its download is running; supported: it can be downloaded;
    // unsupported: there is no way to transcribe the language here.
    enum class Status { unsupported, downloading, supported, installed };

    std::optional<Configuration> configuration;
    Status status = Status::unsupported;
    QString details;
    // Whisper can serve the language after set-up. True while the answer is
    // PocketSphinx, the fallback, means set-up has something better to offer.
    bool whisperOffered = false;
};

// "unsupported", "downloading", "supported" or "installed".
QString statusName(Readiness::Status status);

// The language keys Kestil offers, a fixed product decision.
const QStringList &languageKeys();

// The language key of a locale identifier ("en-GB" -> "en", "zh-Hans-CN" ->
// "zh-Hans"), or nothing: its language code, for "zh" with its script code
// appended, when that is one of the 16 keys. "zh" without a script has none.
std::optional<QString> languageKey(const QString &localeIdentifier);

// The identifier in BCP 47 form: "en_US" -> "en-US".
QString bcp47Identifier(const QString &localeIdentifier);

// The language's name in the current language of the user interface.
QString displayName(const Language &language);

// What one engine has for one locale of its own.
struct Asset {
    Readiness::Status status = Readiness::Status::unsupported;
    // How many audio formats the installed model can take: 0 when its files
    // are there but unreadable.
    int usableFormats = 0;
    QString module;
};

// What this computer offers, as readiness() sees it. current() reads the
// real one; tests describe others.
struct Inventory {
    bool whisperAvailable = false;
    QStringList whisperLocales;
    QStringList pocketSphinxLocales;
    // Asked once for each candidate, for the locale of the engine's own list.
    std::function<Asset(Engine, const QString &locale)> asset;

    static Inventory current(const PreferenceStore &preferences);
    static Inventory current(const PreferenceStore &preferences, const QList<WhisperModel> &catalogue,
                             const QString &modelsDirectory);
};

// The language list for Settings and onboarding, sorted by display name.
QList<Language> languages();
QList<Language> languages(const Inventory &inventory);

// Never fails.
Readiness readiness(const QString &locale, const Inventory &inventory);
Readiness readiness(const QString &locale, PreferenceStore &preferences);
Readiness readiness(const QString &locale);

// A configuration that can run now; throws LocalError with the sentence of
// message() otherwise, and records the failure.
Configuration configuration(const QString &locale, PreferenceStore &preferences);
Configuration configuration(const QString &locale);

// What set-up reports while it runs, and how it is cancelled.
struct SetUpOptions {
    DownloadObserver download;
    // The models set-up may install; empty means the compiled-in catalogue.
    // Tests that serve generated models pass their own.
    QList<WhisperModel> catalogue;
};

// Installs what the language is missing (the preferred engine's model, in the
// size the preferences choose), verifies it by loading it and decoding one
// second of silence, and removes "localSpeechLastFailure". Throws with the
// reason otherwise, recording it (a cancellation is neither recorded nor
// changes the preference). The action behind "Set Up On-Device Speech".
void setUp(const QString &locale, PreferenceStore &preferences, const SetUpOptions &options = {});
void setUp(const QString &locale, const SetUpOptions &options = {});

// What a whole-file transcription reports while it runs, and how it is
// cancelled. Both are called on the transcribing thread.
struct TranscriptionObserver {
    // Seconds of the file transcribed so far, and the file's length.
    std::function<void(double done, double total)> progress;
    // Asked often; true ends the transcription with a CancellationError.
    std::function<bool()> isCancelled;
    // The transcript so far, each time it has grown.
    std::function<void(const LocalTranscript &)> transcript;
};

// Transcribes a whole audio file (any format libsndfile reads; CAF included).
// Whisper reads it with full context, 30 seconds at a time, not through the
// live window. Times are seconds from the start of the file.
LocalTranscript transcribe(const QString &audioFile, const QString &locale, PreferenceStore &preferences,
                           const TranscriptionObserver &observer = {});
LocalTranscript transcribe(const QString &audioFile, const QString &locale);

// The sentence for the user. PocketSphinx, which gets many more words wrong,
// is never called ready as Whisper is: it is named as the fallback, with the
// offer to set up Whisper where that can run.
QString message(const Readiness &readiness);

// The launch's status line: "Installed: Whisper · en-US", or for the fallback
// engine a line that says so and points to set-up; message() otherwise.
QString statusLine(const Readiness &readiness);

// Loads the engine of a configuration. Throws when it cannot. An engine for a
// whole file reports final results only; `progress` hears the seconds of
// audio it has transcribed, where the engine can tell while it works.
enum class EngineUse { live, file };
std::unique_ptr<SpeechEngine> makeEngine(const Configuration &configuration, EngineUse use = EngineUse::live,
                                         std::function<void(double seconds)> progress = {});

// Overwrites "localSpeechLastFailure" with the three lines: the time (ISO
// 8601) and the locale; the error's description with its domain and code;
// the context. A cancellation records nothing.
void recordFailure(PreferenceStore &preferences, const std::exception &error, const QString &locale,
                   const QString &context);

} // namespace LocalSpeech

} // namespace kestil
