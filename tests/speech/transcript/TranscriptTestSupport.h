#pragma once

#include "speech/TranscriptUtterance.h"
#include "support/QtPrinters.h"

#include <QString>
#include <QStringList>

#include <optional>
#include <ostream>

namespace kestil {

inline void PrintTo(const TranscriptUtterance &u, std::ostream *os)
{
    const auto optional = [os](const char *name, const auto &value) {
        if (value)
            *os << ", " << name << "=" << *value;
    };
    *os << "{id=" << u.id.toStdString() << ", text=\"" << u.text.toStdString() << '"';
    optional("start", u.start);
    optional("end", u.end);
    optional("speaker", u.speaker);
    optional("confidence", u.confidence);
    *os << (u.isInterim ? ", interim}" : "}");
}

inline TranscriptUtterance utterance(const QString &id, const QString &text,
                                     std::optional<double> start = std::nullopt,
                                     std::optional<double> end = std::nullopt)
{
    return TranscriptUtterance{id, text, start, end};
}

inline TranscriptUtterance with(TranscriptUtterance u, std::optional<qint64> speaker,
                                std::optional<double> confidence = std::nullopt, bool interim = false)
{
    u.speaker = speaker;
    u.confidence = confidence;
    u.isInterim = interim;
    return u;
}

// "w1 w2 ... wN" followed by the given ending (".", "?", or nothing).
inline QString words(int count, const QString &ending = QString(), const QString &stem = QStringLiteral("w"))
{
    QStringList list;
    for (int i = 1; i <= count; ++i)
        list << stem + QString::number(i);
    return list.join(QLatin1Char(' ')) + ending;
}

} // namespace kestil
