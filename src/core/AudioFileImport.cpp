#include "AudioFileImport.h"

#include "core/LocalAppModel.h"
#include "core/NoteTranscript.h"
#include "core/SharedPersistenceController.h"

#include "base/CancellationError.h"
#include "capture/DurableAudioWriter.h"
#include "capture/RecordingFolder.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "speech/AudioFileReader.h"
#include "speech/LocalSpeech.h"
#include "speech/StreamResampler.h"
#include "speech/TranscriptUtterance.h"

#include <QDir>
#include <QFileInfo>
#include <QPointer>
#include <QStorageInfo>
#include <QUuid>

#include <cmath>

namespace kestil {

namespace {

// Speech needs no more; higher rates are converted down as they are copied.
constexpr double highestStoredRate = 48000.0;
// Room kept free beyond the copy itself, for the store and the system.
constexpr qint64 spareBytes = 64 << 20;

const QString nothingImported = QStringLiteral("Nothing was imported.");

QString megabytes(qint64 bytes)
{
    return QString::number(std::max<qint64>(1, (bytes + (1 << 20) - 1) >> 20));
}

QString duration(double seconds)
{
    const auto whole = qint64(std::llround(std::max(0.0, seconds)));
    return QString::asprintf("%lld:%02lld", static_cast<long long>(whole / 60),
                             static_cast<long long>(whole % 60));
}

} // namespace

AudioFileCheck checkAudioFile(const QString &path, const QString &root)
{
    AudioFileCheck check;
    const QFileInfo info(path);
    check.fileName = info.fileName();
    check.title = info.completeBaseName().isEmpty() ? check.fileName : info.completeBaseName();
    // A name that is not valid UTF-8 reaches Kestil with replacement
    // characters in it, and no file of that name exists.
    if (!info.exists() && path.contains(QChar::ReplacementCharacter))
        throw LocalError(
            QStringLiteral("The name of “%1” is not valid UTF-8, so Kestil cannot open it. Rename "
                           "the file and import it again. %2")
                .arg(check.fileName, nothingImported));
    if (!info.isFile())
        throw LocalError(QStringLiteral("“%1” could not be found. %2").arg(check.fileName, nothingImported));
    if (info.size() == 0)
        throw LocalError(
            QStringLiteral("“%1” is empty: it holds no audio. %2").arg(check.fileName, nothingImported));
    double frames = 0;
    try {
        AudioFileReader reader(path);
        check.sampleRate = reader.sampleRate();
        frames = double(reader.frames());
    } catch (const Error &) {
        throw LocalError(QStringLiteral("“%1” is not an audio file Kestil can read. Choose a WAV, FLAC, Ogg, "
                                        "Opus or MP3 file. %2")
                             .arg(check.fileName, nothingImported));
    }
    if (!(check.sampleRate > 0) || frames <= 0)
        throw LocalError(QStringLiteral("“%1” holds no audio. %2").arg(check.fileName, nothingImported));
    check.seconds = frames / check.sampleRate;
    check.storedSampleRate = std::min(check.sampleRate, highestStoredRate);
    // The raw copy and the playable file beside it: 4 bytes a frame each.
    check.bytesNeeded = qint64(std::ceil(check.seconds * check.storedSampleRate)) * 4 * 2;
    const QStorageInfo storage(root);
    if (storage.isValid() && storage.bytesAvailable() >= 0 &&
        storage.bytesAvailable() < check.bytesNeeded + spareBytes)
        throw LocalError(QStringLiteral("“%1” needs about %2 MB of disk space for its audio, and only %3 MB "
                                        "are free. Free some space and import it again. %4")
                             .arg(check.fileName, megabytes(check.bytesNeeded + spareBytes),
                                  megabytes(storage.bytesAvailable()), nothingImported));
    return check;
}

// What the worker and the main thread share.
struct AudioFileImport::Shared {
    QPointer<AudioFileImport> owner;
    std::atomic<bool> cancelled{false};
    QUuid noteID;
    AudioFileCheck check;
    PreferenceStore *preferences = nullptr;
};

AudioFileImport::AudioFileImport(LocalAppModel &app, PreferenceStore &preferences, QObject *parent)
    : QObject(parent), app_(app), preferences_(preferences)
{
}

AudioFileImport::~AudioFileImport()
{
    if (shared_)
        shared_->cancelled.store(true);
    if (worker_.joinable())
        worker_.join();
}

bool AudioFileImport::start(const QString &path)
{
    if (running()) {
        lastMessage_ =
            QStringLiteral("Another audio file is being imported. Wait for it to finish, then import "
                           "“%1”.")
                .arg(QFileInfo(path).fileName());
        emit finished(false, lastMessage_);
        return false;
    }
    if (worker_.joinable())
        worker_.join();
    SharedPersistenceController *store = app_.store();
    try {
        if (!store || !store->ready())
            throw LocalError(QStringLiteral("The notes library is not open. %1").arg(nothingImported));
        check_ = checkAudioFile(path, store->root());
        // The note comes first: audio written after it always has a note to
        // belong to, for recovery too.
        note_ =
            store->createNote(check_.title, QString(), QUuid::createUuid(), QStringLiteral("transcription"));
        if (!note_ || !note_->id())
            throw LocalError(QStringLiteral("A note for “%1” could not be made. %2")
                                 .arg(check_.fileName, nothingImported));
        note_->setValue(QStringLiteral("sourceURL"),
                        QStringLiteral("Recordings/") + RecordingFolder::uuidText(*note_->id()));
        store->save();
    } catch (const std::exception &error) {
        note_.reset();
        lastMessage_ = describe(error);
        emit finished(false, lastMessage_);
        return false;
    }
    shared_ = std::make_shared<Shared>();
    shared_->owner = this;
    shared_->noteID = *note_->id();
    shared_->check = check_;
    shared_->preferences = &preferences_;
    stage_ = Stage::copying;
    progress_ = 0;
    app_.refreshNotes();
    emit noteCreated(note_);
    emit progressChanged();
    worker_ = std::thread(&AudioFileImport::run, this, shared_, path, store->root(),
                          settings::transcriptionLanguage(preferences_));
    return true;
}

void AudioFileImport::cancel()
{
    if (shared_)
        shared_->cancelled.store(true);
}

// On the worker. Touches nothing of the object but through queued calls.
void AudioFileImport::run(std::shared_ptr<Shared> shared, QString path, QString root, QString locale)
{
    const auto post = [shared](auto call) {
        QMetaObject::invokeMethod(
            shared->owner.data(),
            [shared, call] {
                if (shared->owner)
                    call(*shared->owner);
            },
            Qt::QueuedConnection);
    };
    const AudioFileCheck &check = shared->check;
    const QString segment = RecordingFolder::newSegmentFolder(root, shared->noteID);

    // Copy.
    double copied = 0;
    try {
        AudioFileReader reader(path);
        DurableAudioWriter writer(segment, shared->noteID, check.storedSampleRate);
        std::unique_ptr<StreamResampler> resampler;
        if (check.storedSampleRate != check.sampleRate)
            resampler = std::make_unique<StreamResampler>(check.sampleRate, check.storedSampleRate);
        const auto block = std::size_t(check.sampleRate);
        double lastReported = -1;
        for (;;) {
            if (shared->cancelled.load())
                throw CancellationError();
            std::vector<float> samples;
            try {
                samples = reader.read(block);
            } catch (const Error &) {
                // A file cut short (a truncated FLAC): what was decoded stays.
                if (copied > 0)
                    break;
                throw;
            }
            if (samples.empty())
                break;
            copied += double(samples.size()) / check.sampleRate;
            if (resampler) {
                std::vector<float> converted;
                resampler->process(samples, converted);
                samples = std::move(converted);
            }
            writer.append(samples);
            if (copied - lastReported >= 5.0 || lastReported < 0) {
                lastReported = copied;
                post([fraction = copied / std::max(check.seconds, 1e-9)](AudioFileImport &self) {
                    self.receiveProgress(Stage::copying, fraction);
                });
            }
        }
        if (resampler) {
            std::vector<float> tail;
            resampler->flush(tail);
            if (!tail.empty())
                writer.append(tail);
        }
        writer.complete();
    } catch (const CancellationError &) {
        post([](AudioFileImport &self) {
            self.end(false,
                     QStringLiteral("The import of “%1” was cancelled. Nothing was imported.")
                         .arg(self.check_.fileName),
                     true);
        });
        return;
    } catch (const std::exception &error) {
        const QString message =
            copied > 0
                ? QStringLiteral("The audio of “%1” could not be copied completely: %2. The note keeps the "
                                 "first %3, which Kestil repairs when it starts next.")
                      .arg(check.fileName, describe(error), duration(copied))
                : QStringLiteral("The audio of “%1” could not be copied: %2. %3")
                      .arg(check.fileName, describe(error), nothingImported);
        post([message, keep = copied > 0](AudioFileImport &self) { self.end(false, message, !keep); });
        return;
    }

    // Transcribe the copy, as the note now holds it.
    QString playable;
    try {
        playable = DurableAudioWriter::finalAudioURL(segment);
    } catch (const std::exception &error) {
        const QString message =
            QStringLiteral("The audio of “%1” is saved with its note, but its playable file "
                           "could not be made: %2. Kestil tries again when it starts next.")
                .arg(check.fileName, describe(error));
        post([message](AudioFileImport &self) { self.end(false, message, false); });
        return;
    }
    const QString shortened =
        copied + 0.5 < check.seconds
            ? QStringLiteral(" The file ends early: the first %1 of it was imported.").arg(duration(copied))
            : QString();
    post([](AudioFileImport &self) { self.receiveProgress(Stage::transcribing, 0); });
    LocalSpeech::TranscriptionObserver observer;
    observer.isCancelled = [shared] { return shared->cancelled.load(); };
    observer.progress = [post, lastReported = -1.0](double done, double total) mutable {
        if (done - lastReported < 1.0 && done < total)
            return;
        lastReported = done;
        post([fraction = total > 0 ? done / total : 0.0](AudioFileImport &self) {
            self.receiveProgress(Stage::transcribing, fraction);
        });
    };
    observer.transcript = [post](const LocalTranscript &transcript) {
        post([transcript](AudioFileImport &self) { self.receiveTranscript(transcript); });
    };
    try {
        const LocalTranscript transcript =
            LocalSpeech::transcribe(playable, locale, *shared->preferences, observer);
        post([transcript, shortened](AudioFileImport &self) {
            self.saveTranscript(transcript);
            const QString message =
                transcript.utterances.isEmpty()
                    ? QStringLiteral("“%1” is imported with its audio, but no speech was heard in it.")
                          .arg(self.check_.fileName)
                    : QStringLiteral("“%1” is imported and transcribed.").arg(self.check_.fileName);
            self.end(!transcript.utterances.isEmpty(), message + shortened, false);
        });
    } catch (const CancellationError &) {
        post([](AudioFileImport &self) {
            self.end(false,
                     QStringLiteral(
                         "The transcription of “%1” was cancelled. The note keeps all its audio and the "
                         "text transcribed so far.")
                         .arg(self.check_.fileName),
                     false);
        });
    } catch (const std::exception &error) {
        const QString message =
            QStringLiteral("“%1” could not be transcribed: %2 The note keeps all its audio and "
                           "the text transcribed so far.")
                .arg(check.fileName, describe(error));
        post([message](AudioFileImport &self) { self.end(false, message, false); });
    }
}

void AudioFileImport::receiveProgress(Stage stage, double fraction)
{
    if (stage_ == Stage::idle)
        return;
    stage_ = stage;
    progress_ = std::clamp(fraction, 0.0, 1.0);
    emit progressChanged();
}

void AudioFileImport::receiveTranscript(const LocalTranscript &transcript)
{
    if (stage_ != Stage::idle)
        saveTranscript(transcript);
}

void AudioFileImport::saveTranscript(const LocalTranscript &transcript)
{
    SharedPersistenceController *store = app_.store();
    if (!note_ || !store || transcript.utterances.isEmpty())
        return;
    try {
        note_->setValue(QStringLiteral("transcription"), transcript.finalizedText());
        setTranscriptUtterances(*note_, combinedTranscriptUtterances({}, transcript.utterances, 0));
        store->save();
    } catch (const std::exception &) {
        // The next piece of text saves the whole again.
    }
}

void AudioFileImport::end(bool transcribed, const QString &message, bool removeNote)
{
    if (worker_.joinable())
        worker_.join();
    if (removeNote && note_) {
        try {
            if (SharedPersistenceController *store = app_.store())
                store->deleteNote(note_);
        } catch (const std::exception &) {
            // The empty note stays; the user can delete it.
        }
        note_.reset();
    }
    app_.refreshNotes();
    stage_ = Stage::idle;
    shared_.reset();
    lastMessage_ = message;
    emit progressChanged();
    emit finished(transcribed, message);
}

} // namespace kestil
