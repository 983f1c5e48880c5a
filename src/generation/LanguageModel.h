#pragma once

#include "generation/CancellationToken.h"
#include "generation/GenerationOptions.h"
#include "generation/GenerationSchema.h"

#include <QJsonObject>
#include <QLocale>
#include <QString>

#include <functional>

namespace kestil {

// The on-device language model behind all text generation. Every request is a
// session of its own: the instructions it is given and its prompt, with no
// history. Requests block the calling thread (never the main thread) until
// they end; they stop promptly, with CancellationError, once `cancel` reads
// as cancelled, and fail with kestil::Error for anything else.
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
};

} // namespace kestil
