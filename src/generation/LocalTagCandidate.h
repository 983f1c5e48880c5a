#pragma once

#include <QString>
#include <QtGlobal>

namespace kestil {

// A tag of the library as offered to tag generation: its spelling and how many
// notes use it.
struct LocalTagCandidate {
    QString name;
    qint64 usageCount = 0;

    friend bool operator==(const LocalTagCandidate &, const LocalTagCandidate &) = default;
};

} // namespace kestil
