#include "core/AskNoteConversation.h"

#include "base/CancellationError.h"
#include "base/Error.h"
#include "core/NoteTranscript.h"
#include "core/SharedPersistenceController.h"
#include "generation/LocalNoteChat.h"
#include "prefs/KestilEngagement.h"

#include <QDateTime>

namespace kestil {

AskNoteConversation::AskNoteConversation(SharedPersistenceController &store, LanguageModel &model,
                                         NotePtr note, QLocale locale, QObject *parent)
    : QObject(parent), store_(store), model_(model), note_(std::move(note)), locale_(std::move(locale))
{
    worker_.setMaxThreadCount(1);
}

AskNoteConversation::~AskNoteConversation()
{
    // Closing the window stops its request; the request's thread still holds
    // the model, so it is waited for before anything goes away.
    if (cancel_)
        cancel_->cancel();
    worker_.waitForDone();
    // The ends of requests still on their way are dropped with this object.
    for (; requestsInFlight_ > 0; --requestsInFlight_)
        KestilEngagement::shared().endProcessing();
}

void AskNoteConversation::load()
{
    const std::optional<QUuid> id = note_ ? note_->id() : std::nullopt;
    if (!id) {
        error_ = QStringLiteral("This note is unavailable.");
        emit changed();
        return;
    }
    try {
        messages_ = store_.loadChatMessages(*id);
    } catch (const std::exception &failure) {
        error_ = describe(failure);
    }
    emit changed();
}

void AskNoteConversation::setInput(const QString &input)
{
    if (input_ == input)
        return;
    input_ = input;
    emit changed();
}

void AskNoteConversation::dismissError()
{
    if (!error_)
        return;
    error_.reset();
    emit changed();
}

std::optional<QString> AskNoteConversation::status() const
{
    return LocalNoteChat::readiness(model_, locale_);
}

bool AskNoteConversation::canSend() const
{
    return !isRunning() && !status() && !input_.trimmed().isEmpty();
}

QString AskNoteConversation::source() const
{
    if (!note_)
        return {};
    const QString transcript = transcriptForReading(*note_).trimmed();
    if (!transcript.isEmpty())
        return transcript;
    return note_->summary().value_or(QString());
}

bool AskNoteConversation::sourceIsLong() const
{
    return source().toUtf8().size() > longSourceBytes;
}

QString AskNoteConversation::conversationMarkdown() const
{
    std::optional<QString> title;
    if (note_)
        title = note_->title();
    return LocalNoteChat::conversationMarkdown(title, messages_);
}

bool AskNoteConversation::noteIsGone() const
{
    return !note_ || note_->isDeleted();
}

void AskNoteConversation::send()
{
    if (!canSend() || noteIsGone() || !note_->id())
        return;
    const QUuid noteId = *note_->id();
    const QString question = input_.trimmed();
    const QString text = source();
    const QList<LocalChatMessage> history = messages_;

    // Everything that can refuse the question does so before it is saved, so
    // a refused question stays in the field to be corrected.
    try {
        if (const std::optional<QString> refusal = status())
            throw LocalError(*refusal);
        LocalNoteChat::prompt(text, question, history);
    } catch (const std::exception &failure) {
        error_ = describe(failure);
        emit changed();
        return;
    }

    const LocalChatMessage asked{QUuid::createUuid(), QStringLiteral("user"), question,
                                 QDateTime::currentDateTimeUtc()};
    try {
        store_.appendChatMessage(asked, noteId);
    } catch (const std::exception &failure) {
        error_ = describe(failure);
        emit changed();
        return;
    }
    messages_.append(asked);
    input_.clear();
    preview_.clear();
    error_.reset();
    const QUuid generation = QUuid::createUuid();
    generation_ = generation;
    waitingForModel_ = false;
    // While the request waits behind other work of the model (a summary's
    // section), the window says so.
    cancel_ = CancellationToken().watchingWaits([this, generation](bool waiting) {
        QMetaObject::invokeMethod(
            this,
            [this, generation, waiting] {
                if (generation_ != generation || waitingForModel_ == waiting)
                    return;
                waitingForModel_ = waiting;
                emit changed();
            },
            Qt::QueuedConnection);
    });
    ++requestsInFlight_;
    KestilEngagement::shared().beginProcessing();
    emit questionTaken();
    emit changed();

    // The history is the one from before the question, so the question is
    // not part of its own history.
    const CancellationToken cancel = *cancel_;
    LanguageModel &model = model_;
    const QLocale locale = locale_;
    // The destructor waits for this thread, so the conversation outlives it;
    // a result posted to a conversation being destroyed is dropped by Qt.
    AskNoteConversation *self = this;
    worker_.start([self, &model, text, question, history, locale, cancel, generation] {
        std::optional<QString> answer;
        std::optional<QString> failure;
        bool cancelled = false;
        try {
            answer = LocalNoteChat::answer(
                model, text, question, history, locale,
                [self, generation](const QString &snapshot) {
                    QMetaObject::invokeMethod(
                        self,
                        [self, generation, snapshot] {
                            if (self->generation_ != generation)
                                return;
                            self->preview_ = snapshot;
                            emit self->changed();
                        },
                        Qt::QueuedConnection);
                },
                cancel);
            cancelled = cancel.isCancelled();
        } catch (const CancellationError &) {
            cancelled = true;
        } catch (const std::exception &error) {
            failure = describe(error);
        }
        QMetaObject::invokeMethod(
            self,
            [self, generation, answer, failure, cancelled] {
                self->finishRequest(generation, answer, failure, cancelled);
            },
            Qt::QueuedConnection);
    });
}

void AskNoteConversation::finishRequest(const QUuid &generation, const std::optional<QString> &answer,
                                        const std::optional<QString> &failure, bool cancelled)
{
    const bool current = generation_ == generation;
    if (current && !cancelled && answer && !noteIsGone()) {
        const LocalChatMessage answered{QUuid::createUuid(), QStringLiteral("assistant"), *answer,
                                        QDateTime::currentDateTimeUtc()};
        try {
            store_.appendChatMessage(answered, *note_->id());
            messages_.append(answered);
        } catch (const std::exception &error) {
            error_ = describe(error);
        }
    }
    if (current && failure && !cancelled)
        error_ = failure;
    if (current) {
        generation_.reset();
        cancel_.reset();
        preview_.clear();
        waitingForModel_ = false;
    }
    if (requestsInFlight_ > 0) {
        --requestsInFlight_;
        KestilEngagement::shared().endProcessing();
    }
    emit changed();
    emit requestEnded();
}

void AskNoteConversation::stop()
{
    if (!generation_)
        return;
    if (cancel_)
        cancel_->cancel();
    cancel_.reset();
    generation_.reset();
    preview_.clear();
    waitingForModel_ = false;
    emit changed();
}

void AskNoteConversation::clear()
{
    if (!note_ || !note_->id())
        return;
    try {
        store_.clearChatMessages(*note_->id());
        messages_.clear();
        error_.reset();
    } catch (const std::exception &failure) {
        error_ = describe(failure);
    }
    emit changed();
}

} // namespace kestil
