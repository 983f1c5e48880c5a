#pragma once

#include "generation/LanguageModel.h"

#include "base/Error.h"

#include <QList>
#include <QStringList>

#include <chrono>
#include <thread>
#include <variant>

// A language model for unit tests: it counts a token for every four bytes of
// UTF-8 (rounded up) plus a fixed cost for the chat turn, and answers with the
// replies it was given, in order. A reply can be text, a stream of snapshots,
// a record, an error, or a stall that lasts until the request is cancelled.
class ScriptedLanguageModel final : public kestil::LanguageModel {
public:
    struct Stall {};
    struct Stream {
        QStringList snapshots;
        std::chrono::milliseconds pause{0}; // between snapshots
    };
    using Reply = std::variant<QString, Stream, QJsonObject, kestil::LocalError, Stall>;

    struct Request {
        QString instructions;
        QString prompt;
        kestil::GenerationOptions options;
        bool streamed = false;
        bool structured = false;
    };

    static constexpr qint64 turnTokens = 5;

    kestil::LanguageModel::Availability availabilityValue = kestil::LanguageModel::Availability::available();
    QStringList languages{QStringLiteral("en")};
    qint64 contextTokens = 4096;
    QString identityValue = QStringLiteral("scripted-model");
    QList<Reply> replies;
    QList<Request> requests;
    int tokenCounts = 0;
    // Called before each reply, for tests that act between requests.
    std::function<void(const Request &)> onRequest;
    // How long each request waits, as behind other work of the model, before
    // it is taken up.
    std::chrono::milliseconds queueWait{0};
    // respondAll: the order in which the answers are handed over (positions
    // of the prompts); one after the other when empty.
    QList<qsizetype> answerOrder;
    // Answers when the list of replies is empty.
    std::function<Reply(const Request &)> responder;

    static qint64 tokensOf(const QString &text) { return (text.toUtf8().size() + 3) / 4; }

    kestil::LanguageModel::Availability availability() const override { return availabilityValue; }
    bool supportsLocale(const QLocale &locale) const override
    {
        return std::any_of(languages.begin(), languages.end(), [&](const QString &language) {
            return QLocale(language).language() == locale.language();
        });
    }
    qint64 contextSize() const override { return contextTokens; }
    QString identity() const override { return identityValue; }
    qint64 tokenCount(const Instructions &instructions) override { return counted(instructions.text); }
    qint64 tokenCount(const Prompt &prompt) override { return counted(prompt.text); }

    QString respond(const QString &instructions, const QString &prompt,
                    const kestil::GenerationOptions &options,
                    const kestil::CancellationToken &cancel) override
    {
        const QStringList snapshots =
            snapshotsOf(next({instructions, prompt, options, false, false}, cancel));
        return snapshots.isEmpty() ? QString() : snapshots.last();
    }

    QJsonObject respond(const QString &instructions, const QString &prompt,
                        const kestil::GenerationSchema &schema, bool,
                        const kestil::GenerationOptions &options,
                        const kestil::CancellationToken &cancel) override
    {
        const Reply reply = next({instructions, prompt, options, false, true}, cancel);
        if (const QJsonObject *record = std::get_if<QJsonObject>(&reply))
            return schema.validated(*record);
        throw kestil::LocalError(QStringLiteral("The script gave text to a record request."));
    }

    void streamResponse(const QString &instructions, const QString &prompt,
                        const kestil::GenerationOptions &options, const kestil::CancellationToken &cancel,
                        const SnapshotHandler &onSnapshot) override
    {
        const Reply reply = next({instructions, prompt, options, true, false}, cancel);
        const Stream *stream = std::get_if<Stream>(&reply);
        for (const QString &snapshot : snapshotsOf(reply)) {
            cancel.checkCancellation();
            if (!onSnapshot(snapshot))
                return;
            if (stream && stream->pause.count() > 0)
                std::this_thread::sleep_for(stream->pause);
        }
    }

    void respondAll(const QString &instructions, const QStringList &prompts,
                    const kestil::GenerationOptions &options, const kestil::CancellationToken &cancel,
                    const AnswerHandler &onAnswer) override
    {
        if (answerOrder.isEmpty())
            return LanguageModel::respondAll(instructions, prompts, options, cancel, onAnswer);
        QStringList answers;
        for (const QString &prompt : prompts)
            answers.append(respond(instructions, prompt, options, cancel));
        for (const qsizetype index : answerOrder) {
            if (index < answers.size())
                onAnswer(index, answers.at(index));
        }
    }

private:
    qint64 counted(const QString &text)
    {
        ++tokenCounts;
        return turnTokens + tokensOf(text);
    }

    static QStringList snapshotsOf(const Reply &reply)
    {
        if (const QString *text = std::get_if<QString>(&reply))
            return {*text};
        if (const Stream *stream = std::get_if<Stream>(&reply))
            return stream->snapshots;
        throw kestil::LocalError(QStringLiteral("The script gave a record to a text request."));
    }

    Reply next(const Request &request, const kestil::CancellationToken &cancel)
    {
        cancel.checkCancellation();
        if (queueWait.count() > 0) {
            cancel.setWaiting(true);
            std::this_thread::sleep_for(queueWait);
            cancel.setWaiting(false);
        }
        cancel.beginWork();
        requests.append(request);
        if (onRequest)
            onRequest(request);
        if (replies.isEmpty() && !responder)
            throw kestil::LocalError(QStringLiteral("The script has no reply left."));
        const Reply reply = replies.isEmpty() ? responder(request) : replies.takeFirst();
        if (const kestil::LocalError *error = std::get_if<kestil::LocalError>(&reply))
            throw *error;
        if (std::holds_alternative<Stall>(reply)) {
            while (!cancel.isCancelled())
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
            throw kestil::CancellationError();
        }
        return reply;
    }
};

// A short meeting the scripted model is asked about: sixty words, enough for
// two tags and short enough for one request.
inline const QString scriptedMeetingTranscript = QStringLiteral(
    "Maria opened the weekly sync by reviewing the budget for the spring campaign. The team agreed to "
    "move the launch to April because the design review needs another week. Sam will draft the "
    "announcement, Priya owns the landing page, and the budget numbers go to finance by Friday. "
    "Open question: whether the partner webinar still fits in March.");
