#pragma once

#include "generation/CancellationToken.h"
#include "generation/GenerationOptions.h"
#include "generation/GenerationSchema.h"

#include <QJsonObject>
#include <QLocale>
#include <QString>
#include <QStringList>

#include <functional>

namespace kestil {

// The on-device language model behind all text generation. Every request is a
// session of its own: the instructions it is given and its prompt, with no
// history. Requests block the calling thread (never the main thread) until
// they end; they stop promptly, with CancellationError, once `cancel` reads
// as cancelled, and fail with kestil::Error for anything else. A model calls
// the token's beginWork when it takes a request up, and its setWaiting while
// the request waits behind other work.
class LanguageModel {
public:
    // Why the model cannot be used. modelNotReady and languageModelDisabled
    // can be cured by the user (install a model, switch on-device AI back on);
    // deviceNotEligible cannot.
    enum class UnavailableReason {
        deviceNotEligible,
        languageModelDisabled,
        modelNotReady,
    };

    struct Availability {
        bool isAvailable = true;
        UnavailableReason reason = UnavailableReason::modelNotReady;

        static Availability available() { return {}; }
        static Availability unavailable(UnavailableReason why) { return {false, why}; }

        friend bool operator==(const Availability &, const Availability &) = default;
    };

    // The case name, as the refusal texts print it.
    static QString reasonName(UnavailableReason reason);

    struct Instructions {
        QString text;
    };
    struct Prompt {
        QString text;
    };
    // Receives the whole text so far (not a delta); returning false drops the
    // rest of the response.
    using SnapshotHandler = std::function<bool(const QString &text)>;

    virtual ~LanguageModel() = default;

    virtual Availability availability() const = 0;
    virtual bool supportsLocale(const QLocale &locale) const = 0;
    // The context window in tokens.
    virtual qint64 contextSize() const = 0;
    // Names the model in use, so that work saved for later is not continued
    // on another one; empty when no model is there.
    virtual QString identity() const = 0;
    // Size in tokens of instructions as they stand in a session, and of a prompt.
    virtual qint64 tokenCount(const Instructions &instructions) = 0;
    virtual qint64 tokenCount(const Prompt &prompt) = 0;

    virtual QString respond(const QString &instructions, const QString &prompt,
                            const GenerationOptions &options, const CancellationToken &cancel) = 0;
    // An object of the schema, by constrained decoding; with includeSchemaInPrompt
    // the prompt also shows the schema to the model.
    virtual QJsonObject respond(const QString &instructions, const QString &prompt,
                                const GenerationSchema &schema, bool includeSchemaInPrompt,
                                const GenerationOptions &options, const CancellationToken &cancel) = 0;
    // Calls onSnapshot on the calling thread as the response grows.
    virtual void streamResponse(const QString &instructions, const QString &prompt,
                                const GenerationOptions &options, const CancellationToken &cancel,
                                const SnapshotHandler &onSnapshot) = 0;

    // Receives one whole response of respondAll with the position of its prompt.
    using AnswerHandler = std::function<void(qsizetype index, const QString &text)>;
    // Whole responses to independent prompts under the same instructions.
    // onAnswer runs on the calling thread as each response is complete; a
    // model that decodes several sequences at once may complete them out of
    // order. When onAnswer throws, the rest is dropped and the error passes on.
    // This one asks for them one after the other.
    virtual void respondAll(const QString &instructions, const QStringList &prompts,
                            const GenerationOptions &options, const CancellationToken &cancel,
                            const AnswerHandler &onAnswer);
};

} // namespace kestil
