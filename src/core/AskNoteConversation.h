#pragma once

#include "core/Note.h"
#include "generation/CancellationToken.h"
#include "generation/LanguageModel.h"
#include "generation/LocalChatMessage.h"

#include <QList>
#include <QLocale>
#include <QObject>
#include <QString>
#include <QThreadPool>
#include <QUuid>

#include <optional>

namespace kestil {

class SharedPersistenceController;

// The conversation of one open Ask AI window: the note's saved messages, the
// question being typed, the answer as it streams, and the one request that
// may run. State lives on the main thread; the model request runs on a
// thread of its own and every result hops back here. A request is known by
// its generation identity, so a late result of a stopped request changes
// nothing. A request counts as model work in KestilEngagement's
// processingCount from its start until its end comes back.
class AskNoteConversation : public QObject {
    Q_OBJECT

public:
    // Sources longer than this many bytes of UTF-8 are searched for excerpts.
    static constexpr qsizetype longSourceBytes = 2400;

    AskNoteConversation(SharedPersistenceController &store, LanguageModel &model, NotePtr note,
                        QLocale locale, QObject *parent = nullptr);
    // Stops a running request and waits for its thread.
    ~AskNoteConversation() override;

    // Loads the note's saved messages; a failure shows as the error.
    void load();

    const QList<LocalChatMessage> &messages() const { return messages_; }
    const QString &input() const { return input_; }
    void setInput(const QString &input);
    const QString &preview() const { return preview_; }
    const std::optional<QString> &error() const { return error_; }
    void dismissError();
    bool isRunning() const { return generation_.has_value(); }
    // The running request waits while the model answers another one.
    bool waitingForModel() const { return waitingForModel_; }

    // Why questions cannot be asked in this language now, in a sentence.
    std::optional<QString> status() const;
    bool canSend() const;
    // The note's trimmed transcript, or its summary when it has none.
    QString source() const;
    bool sourceIsLong() const;
    // Copy, share and clear need messages and no running request.
    bool conversationActionsEnabled() const { return !messages_.isEmpty() && !isRunning(); }
    QString conversationMarkdown() const;
    const NotePtr &note() const { return note_; }

    // Saves the question and starts its answer; does nothing when a question
    // cannot be sent.
    void send();
    // Stops the running request: its question stays, without an answer.
    void stop();
    // Clears the note's saved conversation.
    void clear();

signals:
    void changed();
    // The question was taken: the field gives up its focus.
    void questionTaken();
    // A request ended (answered, failed or stopped).
    void requestEnded();

private:
    void finishRequest(const QUuid &generation, const std::optional<QString> &answer,
                       const std::optional<QString> &failure, bool cancelled);
    bool noteIsGone() const;

    SharedPersistenceController &store_;
    LanguageModel &model_;
    NotePtr note_;
    QLocale locale_;
    QList<LocalChatMessage> messages_;
    QString input_;
    QString preview_;
    std::optional<QString> error_;
    std::optional<QUuid> generation_;
    std::optional<CancellationToken> cancel_;
    bool waitingForModel_ = false;
    // Requests whose end has not come back yet; each counts in the
    // engagement's processingCount until it does.
    int requestsInFlight_ = 0;
    QThreadPool worker_;
};

} // namespace kestil
