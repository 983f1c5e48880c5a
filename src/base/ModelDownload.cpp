#include "ModelDownload.h"

#include "CancellationError.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QRegularExpression>
#include <QTimer>

namespace kestil {

namespace {

constexpr qint64 chunkBytes = 1 << 20;
// A server that sends nothing for this long has stopped.
constexpr int stallMilliseconds = 60000;

QString megabytes(qint64 bytes)
{
    return QString::number(double(bytes) / (1024.0 * 1024.0), 'f', 1) + QStringLiteral(" MB");
}

// "bytes 100-199/1000" -> 100, or -1.
qint64 contentRangeStart(const QByteArray &header)
{
    static const QRegularExpression pattern(QStringLiteral("^bytes\\s+(\\d+)-(\\d+)/(\\d+|\\*)$"));
    const auto match = pattern.match(QString::fromLatin1(header.trimmed()));
    return match.hasMatch() ? match.captured(1).toLongLong() : -1;
}

qint64 contentRangeTotal(const QByteArray &header)
{
    const int slash = header.lastIndexOf('/');
    if (slash < 0)
        return -1;
    bool ok = false;
    const qint64 total = header.mid(slash + 1).trimmed().toLongLong(&ok);
    return ok ? total : -1;
}

} // namespace

QByteArray sha256OfFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw SystemError(QStringLiteral("The file “%1” could not be read: %2.")
                              .arg(QFileInfo(path).fileName(), file.errorString()));
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!hash.addData(&file))
        throw SystemError(QStringLiteral("The file “%1” could not be read: %2.")
                              .arg(QFileInfo(path).fileName(), file.errorString()));
    return hash.result().toHex();
}

QByteArray downloadToPartFile(const QUrl &url, const QString &partPath, const DownloadObserver &observer,
                              const DownloadWording &wording)
{
    // QtNetwork runs on the application's event machinery.
    if (!QCoreApplication::instance())
        throw SystemError(
            QStringLiteral("The %1 cannot be downloaded before Kestil has started.").arg(wording.model));
    const QString name = QFileInfo(partPath).fileName();
    QFile part(partPath);
    if (!part.open(QIODevice::ReadWrite))
        throw SystemError(
            QStringLiteral("The %1 could not be saved: %2.").arg(wording.model, part.errorString()));

    // What is on disk already counts towards the checksum.
    QCryptographicHash hash(QCryptographicHash::Sha256);
    qint64 have = part.size();
    if (have > 0 && !hash.addData(&part))
        throw SystemError(
            QStringLiteral("The partial download “%1” could not be read: %2.").arg(name, part.errorString()));
    part.seek(have);

    QNetworkAccessManager manager;
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Kestil"));
    request.setTransferTimeout(stallMilliseconds);
    // The file must arrive byte for byte as published.
    request.setRawHeader("Accept-Encoding", "identity");
    if (have > 0)
        request.setRawHeader("Range", "bytes=" + QByteArray::number(have) + '-');

    QNetworkReply *reply = manager.get(request);
    QEventLoop loop;
    qint64 total = -1;
    bool started = false;
    bool cancelled = false;
    QString writeError;
    bool wrongRange = false;

    auto report = [&] {
        if (observer.progress)
            observer.progress(have, total);
    };
    auto begin = [&] {
        started = true;
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (status == 206) {
            const QByteArray range = reply->rawHeader("Content-Range");
            if (contentRangeStart(range) != have) {
                wrongRange = true;
                reply->abort();
                return;
            }
            total = contentRangeTotal(range);
        } else if (status == 200) {
            // The server ignores ranges: start over.
            if (have > 0) {
                part.resize(0);
                part.seek(0);
                hash.reset();
                have = 0;
            }
            const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
            total = length.isValid() ? length.toLongLong() : -1;
        }
        report();
    };
    QObject::connect(reply, &QNetworkReply::readyRead, &loop, [&] {
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        if (status != 200 && status != 206)
            return; // an error page: not part of the file
        if (!started)
            begin();
        if (!writeError.isEmpty() || wrongRange)
            return;
        while (reply->bytesAvailable() > 0) {
            const QByteArray data = reply->read(chunkBytes);
            if (part.write(data) != data.size()) {
                writeError = part.errorString();
                reply->abort();
                return;
            }
            hash.addData(data);
            have += data.size();
        }
        report();
    });
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    QTimer poll;
    poll.setInterval(100);
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (observer.isCancelled && observer.isCancelled()) {
            cancelled = true;
            reply->abort();
        }
    });
    poll.start();
    if (!reply->isFinished())
        loop.exec();
    poll.stop();

    // Anything still buffered belongs to the file as well.
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (!cancelled && !wrongRange && writeError.isEmpty() && (status == 200 || status == 206)) {
        if (!started)
            begin();
        while (writeError.isEmpty() && reply->bytesAvailable() > 0) {
            const QByteArray data = reply->read(chunkBytes);
            if (part.write(data) != data.size()) {
                writeError = part.errorString();
                break;
            }
            hash.addData(data);
            have += data.size();
        }
    }
    if (!part.flush() && writeError.isEmpty())
        writeError = part.errorString();
    part.close();
    const QNetworkReply::NetworkError error = reply->error();
    const QString errorText = reply->errorString();
    const QString reason = reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString();
    reply->deleteLater();

    const QString kept = have > 0 ? QStringLiteral(" The %1 received so far are kept, and %2 continues "
                                                   "from there.")
                                        .arg(megabytes(have), wording.nextAttempt)
                                  : QString();
    if (cancelled)
        throw CancellationError();
    if (wrongRange)
        throw ModelDownloadError(
            QStringLiteral("The %1 server sent a different part of the file than was asked for.%2")
                .arg(wording.model, kept),
            status);
    if (!writeError.isEmpty())
        throw ModelDownloadError(
            QStringLiteral("The %1 could not be saved: %2.%3").arg(wording.model, writeError, kept),
            int(error));
    // The whole file is already here: the checksum decides whether it is right.
    if (status == 416 && have > 0)
        return hash.result().toHex();
    if (status >= 400) {
        throw ModelDownloadError(QStringLiteral("The %1 server answered %2 %3 for %4.%5")
                                     .arg(wording.model, QString::number(status),
                                          reason.isEmpty() ? QStringLiteral("Error") : reason, url.toString(),
                                          kept),
                                 status);
    }
    if (error != QNetworkReply::NoError) {
        throw ModelDownloadError(
            QStringLiteral("The %1 download stopped: %2.%3").arg(wording.model, errorText, kept), int(error));
    }
    if (!started && status != 200 && status != 206)
        throw ModelDownloadError(
            QStringLiteral("The %1 server gave no file for %2.").arg(wording.model, url.toString()), status);
    if (total >= 0 && have != total) {
        throw ModelDownloadError(QStringLiteral("The %1 download ended early, at %2 of %3.%4")
                                     .arg(wording.model, megabytes(have), megabytes(total), kept),
                                 int(QNetworkReply::RemoteHostClosedError));
    }
    return hash.result().toHex();
}

} // namespace kestil
