#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

#include <atomic>
#include <mutex>
#include <thread>

namespace kestil::test {

// A small HTTP/1.1 server on 127.0.0.1 that serves model files for the
// download tests, each request on its own, one at a time. The first path
// segment picks how it behaves:
//   /good/<file>       the file, honouring "Range: bytes=N-" with 206
//   /norange/<file>    the whole file with 200, whatever the request asks
//   /truncated/<file>  the first half of the file as if it were all of it
//   /drop/<file>       announces the whole file, sends half and hangs up (the
//                      first time; afterwards it behaves as /good/)
//   /slow/<file>       the file in small pieces with pauses between them
// Anything else, or an unknown file, is 404.
class LoopbackModelServer {
public:
    struct Request {
        QString path;
        QByteArray range;
    };

    LoopbackModelServer();
    ~LoopbackModelServer();

    void setFile(const QString &name, const QByteArray &content);
    // "http://127.0.0.1:<port>/<mode>/"
    QString baseAddress(const QString &mode) const;
    QList<Request> requests() const;

private:
    void serve();
    void handle(int client);

    int listener_ = -1;
    int port_ = 0;
    std::thread thread_;
    std::atomic<bool> stopping_{false};
    mutable std::mutex mutex_;
    QMap<QString, QByteArray> files_;
    QList<Request> requests_;
    bool dropped_ = false;
};

} // namespace kestil::test
