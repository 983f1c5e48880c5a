#include "shell/WelcomeReadiness.h"

namespace kestil {

namespace {

WelcomeReadinessItem speechItem(const WelcomeReadinessInputs &inputs)
{
    WelcomeReadinessItem item{QStringLiteral("speech"), QStringLiteral("Transcription"), false, {}};
    if (!LocalSpeech::languageKey(inputs.language)) {
        item.sentence =
            QStringLiteral("Choose a transcription language. Until then, recordings keep their audio "
                           "and can be transcribed later.");
        return item;
    }
    const QString name = LocalSpeech::displayName(LocalSpeech::Language{inputs.language});
    const bool fallbackOnly =
        inputs.speech.status == LocalSpeech::Readiness::Status::installed && inputs.speech.configuration &&
        inputs.speech.configuration->engine == LocalSpeech::Engine::dictation && inputs.speech.whisperOffered;
    if (fallbackOnly) {
        // Recording works, but with the basic engine: not what "ready" promises.
        item.sentence =
            QStringLiteral("Speech in %1 is transcribed offline by PocketSphinx, a basic engine "
                           "that gets many words wrong. Set up Whisper on the Language step or in "
                           "Settings for accurate transcripts.")
                .arg(name);
    } else if (inputs.speech.status == LocalSpeech::Readiness::Status::installed) {
        item.ready = true;
        item.sentence =
            QStringLiteral("Speech in %1 is transcribed live on this computer, offline.").arg(name);
    } else if (inputs.speech.configuration) {
        item.sentence =
            QStringLiteral("Speech in %1 needs its on-device model: set it up on the Language step "
                           "or in Settings. Recordings keep their audio meanwhile.")
                .arg(name);
    } else {
        item.sentence = QStringLiteral("Speech in %1 cannot be transcribed on this computer. Recordings keep "
                                       "their audio; choose another language to transcribe them.")
                            .arg(name);
    }
    return item;
}

} // namespace

QList<WelcomeReadinessItem> welcomeReadiness(const WelcomeReadinessInputs &inputs)
{
    QList<WelcomeReadinessItem> items{speechItem(inputs)};
    items.append(WelcomeReadinessItem{QStringLiteral("summaries"), QStringLiteral("Summaries and Ask AI"),
                                      !inputs.summaryRefusal.has_value(),
                                      inputs.summaryRefusal.value_or(QStringLiteral(
                                          "Summaries, titles, tags and answers are written on this "
                                          "computer."))});
    const bool microphone = !inputs.microphoneName.isEmpty();
    items.append(WelcomeReadinessItem{
        QStringLiteral("microphone"), QStringLiteral("Microphone"), microphone,
        microphone ? QStringLiteral("Kestil records from “%1”.").arg(inputs.microphoneName)
                   : QStringLiteral("No microphone answered. Connect one, or check your system's sound "
                                    "settings, before your first recording.")});
    // Either choice is a working set-up: the line only says what will be heard.
    items.append(WelcomeReadinessItem{
        QStringLiteral("systemAudio"), QStringLiteral("System audio"), true,
        inputs.recordSystemAudio
            ? QStringLiteral("What other applications play is recorded along with your microphone.")
            : QStringLiteral("Only your microphone is recorded; other applications' sound is left out.")});
    return items;
}

} // namespace kestil
