#pragma once

#include "TranscriptUtterance.h"

#include <QList>
#include <QMap>
#include <QString>

#include <optional>

namespace kestil {

// The names a note gives the speakers of its transcript, by the speaker
// number its utterances carry (0 for the first voice heard). A speaker
// without a name is "Speaker <number + 1>".
using SpeakerNames = QMap<qint64, QString>;

QString speakerName(const SpeakerNames &names, qint64 speaker);

// The speakers of a transcript in the order they are first heard.
QList<qint64> transcriptSpeakers(const QList<TranscriptUtterance> &utterances);

// Whether the transcript shows who speaks: only when more than one voice was
// told apart. A note of one speaker shows no labels.
bool showsSpeakers(const QList<TranscriptUtterance> &utterances);

// The stored form, a JSON object from numbers to names: nothing when no
// speaker is named. Reading forgives anything malformed by dropping it: a
// name is a nicety, and the transcript stays readable with "Speaker N".
std::optional<QString> encodeSpeakerNames(const SpeakerNames &names);
SpeakerNames decodeSpeakerNames(const std::optional<QString> &json);

// The names after the user renamed `speaker`. The name is trimmed; an empty
// name gives the speaker back its number. Throws LocalError with a sentence
// when another speaker of the note already has that name, since two labels
// that read alike would make the transcript say less than it knows.
SpeakerNames renamedSpeaker(const SpeakerNames &names, const QList<qint64> &speakers, qint64 speaker,
                            const QString &name);

// The utterances with the first of each turn opening with "<name>: ", when
// the transcript tells several voices apart; unchanged otherwise. Subtitles
// are made from these.
QList<TranscriptUtterance> utterancesWithSpeakerNames(const QList<TranscriptUtterance> &utterances,
                                                      const SpeakerNames &names);

// The transcript as text that says who speaks: paragraphs separated by blank
// lines, each turn opening with "<name>: ". Without speakers to tell apart it
// is the paragraphs alone. For exports and for the model's prompts.
QString transcriptTextWithSpeakers(const QList<TranscriptUtterance> &utterances, const SpeakerNames &names);

} // namespace kestil
