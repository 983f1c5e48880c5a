#pragma once

#include <QByteArray>
#include <QString>

#include <exception>

namespace kestil {

// Every error Kestil throws carries a complete sentence for the user.
class Error : public std::exception {
public:
    explicit Error(QString description) : description_(std::move(description)), utf8_(description_.toUtf8())
    {
    }
    const QString &localizedDescription() const noexcept { return description_; }
    const char *what() const noexcept override { return utf8_.constData(); }

private:
    QString description_;
    QByteArray utf8_;
};

// A refusal of Kestil's own logic; its description is the whole message.
class LocalError : public Error {
public:
    explicit LocalError(QString message) : Error(std::move(message)) {}
    const QString &message() const noexcept { return localizedDescription(); }
};

// A failure reported by the system or a library (SQLite, the file system, an
// audio server), already phrased for the user.
class SystemError : public Error {
public:
    explicit SystemError(QString description) : Error(std::move(description)) {}
};

// The user-facing text of any exception.
inline QString describe(const std::exception &error)
{
    if (auto e = dynamic_cast<const Error *>(&error))
        return e->localizedDescription();
    return QString::fromUtf8(error.what());
}

} // namespace kestil
