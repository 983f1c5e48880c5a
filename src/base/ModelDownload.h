#pragma once

#include "base/Error.h"

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <functional>

namespace kestil {

// What a caller hears from a running download, and how it stops one.
struct DownloadObserver {
    // Bytes of the file on disk so far, and the whole file's size (-1 while unknown).
    std::function<void(qint64 received, qint64 total)> progress;
    // Asked a few times a second; true stops the download with a CancellationError.
    std::function<bool()> isCancelled;
};

// How a download's sentences name what it fetches: "speech model" or
// "language model", and the attempt that picks up a partial download ("the
// next set-up", "the next download").
struct DownloadWording {
    QString model;
    QString nextAttempt;
};

// A download that did not finish, in words for the user. `code` is the HTTP
// status when the server answered with an error, else Qt's network error code.
class ModelDownloadError : public SystemError {
public:
    ModelDownloadError(QString description, int code) : SystemError(std::move(description)), code_(code) {}
    int code() const noexcept { return code_; }

private:
    int code_;
};

// Downloads `url` into `partPath` over HTTP or HTTPS and returns the SHA-256
// (lower-case hex) of the whole file. A part file that is already there is
// resumed with a range request, and restarted when the server sends the whole
// file instead. On failure or cancellation the part file keeps what arrived,
// for the next attempt; nothing is ever renamed here. Blocks the calling
// thread, which runs a local event loop meanwhile (call it off the main thread).
// Throws ModelDownloadError or SystemError in the words of `wording`, or
// CancellationError.
QByteArray downloadToPartFile(const QUrl &url, const QString &partPath, const DownloadObserver &observer,
                              const DownloadWording &wording);

// The SHA-256 of a file (lower-case hex); throws SystemError when it cannot be read.
QByteArray sha256OfFile(const QString &path);

} // namespace kestil
