#pragma once

#include <QDateTime>
#include <QString>
#include <QUuid>

namespace kestil {

// One message of a note's chat, as shown and as stored under the note.
struct LocalChatMessage {
    QUuid id;
    QString role; // "user" or "assistant"
    QString content;
    QDateTime timestamp;

    friend bool operator==(const LocalChatMessage &, const LocalChatMessage &) = default;
};

} // namespace kestil
