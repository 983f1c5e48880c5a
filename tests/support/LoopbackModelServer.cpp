#include "LoopbackModelServer.h"

#include <QList>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>

namespace kestil::test {

namespace {

bool sendAll(int socket, const char *data, qsizetype size)
{
    while (size > 0) {
        const ssize_t sent = ::send(socket, data, std::size_t(size), MSG_NOSIGNAL);
        if (sent <= 0)
            return false;
        data += sent;
        size -= sent;
    }
    return true;
}

bool sendAll(int socket, const QByteArray &bytes)
{
    return sendAll(socket, bytes.constData(), bytes.size());
}

} // namespace

LoopbackModelServer::LoopbackModelServer()
{
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    const int yes = 1;
    ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = 0;
    if (::bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 ||
        ::listen(listener_, 8) != 0)
        throw std::runtime_error("loopback server: no port");
    socklen_t length = sizeof address;
    ::getsockname(listener_, reinterpret_cast<sockaddr *>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { serve(); });
}

LoopbackModelServer::~LoopbackModelServer()
{
    stopping_.store(true);
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
}

void LoopbackModelServer::setFile(const QString &name, const QByteArray &content)
{
    std::lock_guard lock(mutex_);
    files_[name] = content;
}

QString LoopbackModelServer::baseAddress(const QString &mode) const
{
    return QStringLiteral("http://127.0.0.1:%1/%2/").arg(port_).arg(mode);
}

QList<LoopbackModelServer::Request> LoopbackModelServer::requests() const
{
    std::lock_guard lock(mutex_);
    return requests_;
}

void LoopbackModelServer::serve()
{
    while (!stopping_.load()) {
        pollfd ready{listener_, POLLIN, 0};
        if (::poll(&ready, 1, 100) <= 0)
            continue;
        const int client = ::accept(listener_, nullptr, nullptr);
        if (client < 0)
            continue;
        handle(client);
        ::close(client);
    }
}

void LoopbackModelServer::handle(int client)
{
    QByteArray head;
    char buffer[4096];
    while (!head.contains("\r\n\r\n")) {
        const ssize_t got = ::recv(client, buffer, sizeof buffer, 0);
        if (got <= 0)
            return;
        head.append(buffer, got);
    }
    const QList<QByteArray> lines = head.left(head.indexOf("\r\n\r\n")).split('\n');
    const QList<QByteArray> requestLine = lines.value(0).trimmed().split(' ');
    const QString path = QString::fromLatin1(requestLine.value(1));
    QByteArray range;
    for (const QByteArray &line : lines) {
        if (line.toLower().startsWith("range:"))
            range = line.mid(6).trimmed();
    }
    const QStringList parts = path.split(QLatin1Char('/'), Qt::SkipEmptyParts);
    const QString mode = parts.value(0);
    QByteArray content;
    bool known = false;
    bool drop = false;
    {
        std::lock_guard lock(mutex_);
        requests_.append(Request{path, range});
        known = parts.size() == 2 && files_.contains(parts[1]);
        content = files_.value(parts.value(1));
        if (mode == QLatin1String("drop") && !dropped_) {
            drop = true;
            dropped_ = true;
        }
    }
    const QStringList modes{"good", "norange", "truncated", "drop", "slow"};
    if (!known || !modes.contains(mode)) {
        sendAll(client, "HTTP/1.1 404 Not Found\r\nContent-Length: 9\r\nConnection: close\r\n\r\nNot Found");
        return;
    }
    if (mode == QLatin1String("truncated"))
        content.truncate(content.size() / 2);

    qsizetype from = 0;
    const bool honoursRange = mode != QLatin1String("norange") && mode != QLatin1String("truncated") && !drop;
    if (honoursRange && range.startsWith("bytes=") && range.endsWith('-'))
        from = range.mid(6, range.size() - 7).toLongLong();
    if (from > content.size()) {
        sendAll(client,
                "HTTP/1.1 416 Range Not Satisfiable\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
        return;
    }
    QByteArray header;
    if (from > 0) {
        header = "HTTP/1.1 206 Partial Content\r\nContent-Range: bytes " + QByteArray::number(from) + '-' +
                 QByteArray::number(content.size() - 1) + '/' + QByteArray::number(content.size()) + "\r\n";
    } else {
        header = "HTTP/1.1 200 OK\r\n";
    }
    header += "Content-Type: application/octet-stream\r\nContent-Length: " +
              QByteArray::number(content.size() - from) + "\r\nConnection: close\r\n\r\n";
    if (!sendAll(client, header))
        return;
    const QByteArray body = content.mid(from);
    if (drop) {
        sendAll(client, body.left(body.size() / 2));
        return; // hangs up mid-transfer
    }
    if (mode == QLatin1String("slow")) {
        for (qsizetype at = 0; at < body.size() && !stopping_.load(); at += 65536) {
            if (!sendAll(client, body.constData() + at, std::min<qsizetype>(65536, body.size() - at)))
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return;
    }
    sendAll(client, body);
}

} // namespace kestil::test
