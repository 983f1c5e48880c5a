#pragma once

#include "base/Error.h"

namespace kestil {

// Thrown when the user cancels a long operation (a model download, a set-up).
// It is no failure: nothing records it, and the caller simply stops.
class CancellationError : public Error {
public:
    CancellationError() : Error(QStringLiteral("The operation was cancelled.")) {}
};

} // namespace kestil
