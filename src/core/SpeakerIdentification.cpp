#include "SpeakerIdentification.h"

#include "core/LocalAppModel.h"
#include "core/NoteAudio.h"
#include "core/NoteTranscript.h"
#include "core/SharedPersistenceController.h"

#include "base/CancellationError.h"
#include "base/Error.h"
#include "speech/SpeakerAttribution.h"
#include "speech/SpeakerNames.h"
#include "speech/TranscriptNormalization.h"

#include <QPointer>

namespace kestil {

namespace {

// What the models hear.
constexpr double diarisationRate = 16000.0;
// Reading the audio is the small first part of the work.
constexpr double readingShare = 0.05;

const QString unchanged = QStringLiteral("The transcript is unchanged.");
const QString deletedMeanwhile = QStringLiteral("The note was deleted while its speakers were identified.");

} // namespace

struct SpeakerIdentification::Shared {
    QPointer<SpeakerIdentification> owner;
    std::atomic<bool> cancelled{false};
};

SpeakerIdentification::SpeakerIdentification(LocalAppModel &app, DiarizerFactory factory, QObject *parent)
    : QObject(parent), app_(app), factory_(std::move(factory))
{
}

SpeakerIdentification::~SpeakerIdentification()
{
    if (shared_)
        shared_->cancelled.store(true);
    if (worker_.joinable())
        worker_.join();
}

bool SpeakerIdentification::start(const NotePtr &note)
{
    const auto refuse = [this](const QString &message) {
        lastMessage_ = message;
        emit finished(false, message);
        return false;
    };
    if (running())
        return refuse(QStringLiteral("Speakers are already being identified in another note. Wait for it to "
                                     "finish, then try again."));
    SharedPersistenceController *store = app_.store();
    if (!store || !note || !note->id())
        return refuse(QStringLiteral("This note cannot be read, so its speakers cannot be identified. ") +
                      unchanged);
    const QList<TranscriptUtterance> utterances = transcriptUtterances(*note);
    bool timed = false;
    for (const TranscriptUtterance &u : utterances)
        timed = timed || (u.start && u.end);
    if (!timed)
        return refuse(QStringLiteral("This note has no timed transcript to give to speakers: only recorded "
                                     "or imported audio has one. ") +
                      unchanged);
    std::shared_ptr<SpeakerDiarizer> diarizer;
    try {
        diarizer = factory_();
    } catch (const std::exception &error) {
        return refuse(describe(error));
    }

    note_ = note;
    progress_ = 0;
    lastMessage_.clear();
    shared_ = std::make_shared<Shared>();
    shared_->owner = this;
    const std::optional<QString> payload = note->transcriptUtterancesJSON();
    const QString root = store->root();
    const QUuid noteID = *note->id();
    if (worker_.joinable())
        worker_.join();
    worker_ = std::thread([shared = shared_, diarizer, root, noteID, payload] {
        const auto post = [shared](auto call) {
            QMetaObject::invokeMethod(
                shared->owner.data(),
                [shared, call] {
                    if (shared->owner && shared->owner->shared_ == shared)
                        call(*shared->owner);
                },
                Qt::QueuedConnection);
        };
        const auto cancelled = [shared] { return shared->cancelled.load(); };
        const auto report = [post](double fraction) {
            post([fraction](SpeakerIdentification &self) {
                self.progress_ = fraction;
                emit self.progressChanged();
            });
        };
        try {
            const std::vector<float> audio = readNoteAudio(root, noteID, diarisationRate, cancelled,
                                                           [&](double f) { report(readingShare * f); });
            if (audio.empty()) {
                post([](SpeakerIdentification &self) {
                    self.end(false, QStringLiteral("This note has no recorded audio to tell speakers apart "
                                                   "in. ") +
                                        unchanged);
                });
                return;
            }
            const std::vector<SpeakerTurn> turns = diarizer->diarize(
                audio, diarisationRate, [&](double f) { report(readingShare + (1 - readingShare) * f); },
                cancelled);
            post([turns, payload](SpeakerIdentification &self) { self.apply(turns, payload); });
        } catch (const CancellationError &) {
            post([](SpeakerIdentification &self) {
                self.end(false, QStringLiteral("Identifying speakers was cancelled. ") + unchanged);
            });
        } catch (const std::exception &error) {
            const QString reason = describe(error);
            post([reason](SpeakerIdentification &self) {
                self.end(false,
                         QStringLiteral("Speakers could not be identified: %1 %2").arg(reason, unchanged));
            });
        }
    });
    emit progressChanged();
    return true;
}

void SpeakerIdentification::cancel()
{
    if (shared_)
        shared_->cancelled.store(true);
}

void SpeakerIdentification::apply(const std::vector<SpeakerTurn> &turns,
                                  const std::optional<QString> &readPayload)
{
    SharedPersistenceController *store = app_.store();
    if (noteGone())
        return finishWith(false, deletedMeanwhile);
    if (note_->transcriptUtterancesJSON() != readPayload)
        return end(false, QStringLiteral("The transcript changed while its speakers were identified, so the "
                                         "result no longer fits it. ") +
                              unchanged + QStringLiteral(" Choose Identify Speakers again."));
    if (turns.empty())
        return end(false, QStringLiteral("No voices were found in this note's audio. ") + unchanged);

    // Stored paragraphs may span a change of voice: cut into sentences, each
    // with its share of the paragraph's time, they go to speakers one by one,
    // and the transcript's paragraphs then close where the speaker changes.
    QList<TranscriptUtterance> sentences =
        splitUtterances(transcriptUtterances(*note_), transcriptMaximumWords, 1, transcriptMaximumDuration);
    for (TranscriptUtterance &u : sentences)
        u.speaker.reset();
    const QList<TranscriptUtterance> attributed = attributeSpeakers(sentences, turns);
    const qsizetype speakers = transcriptSpeakers(attributed).size();
    const QList<TranscriptUtterance> before = transcriptUtterances(*note_);
    const std::optional<QString> names = note_->speakerNamesJSON();
    try {
        setTranscriptUtterances(*note_, attributed);
        // Names belong to the numbering they were given for.
        note_->setValue(QStringLiteral("speakerNamesJSON"), QVariant());
        store->save();
    } catch (const std::exception &error) {
        setTranscriptUtterances(*note_, before);
        note_->setValue(QStringLiteral("speakerNamesJSON"), names ? QVariant(*names) : QVariant());
        return end(false,
                   QStringLiteral("The speakers could not be saved: %1 %2").arg(describe(error), unchanged));
    }
    if (speakers <= 1)
        return end(true, QStringLiteral("One voice speaks throughout this note, so its transcript shows no "
                                        "speaker names."));
    end(true,
        QStringLiteral("%1 speakers were told apart in this note. Click a speaker's name in the transcript "
                       "to rename them.")
            .arg(speakers));
}

bool SpeakerIdentification::noteGone() const
{
    SharedPersistenceController *store = app_.store();
    return !store || !note_ || !note_->id() || !store->noteWithId(*note_->id());
}

void SpeakerIdentification::end(bool identified, const QString &message)
{
    // A note deleted meanwhile takes its audio with it: that, not the
    // missing audio, is what happened.
    if (!identified && noteGone() && note_)
        return finishWith(false, deletedMeanwhile);
    finishWith(identified, message);
}

void SpeakerIdentification::finishWith(bool identified, const QString &message)
{
    if (worker_.joinable())
        worker_.join();
    shared_.reset();
    note_.reset();
    progress_ = 0;
    lastMessage_ = message;
    emit finished(identified, message);
}

} // namespace kestil
