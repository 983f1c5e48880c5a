#include "documents/NoteExport.h"

#include "base/Error.h"
#include "capture/RecordingFolder.h"
#include "documents/DocumentText.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QUuid>

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace kestil::NoteExport {

namespace {

const QString untitledFileName = QStringLiteral("Untitled");
const QString untitledNoteName = QStringLiteral("Untitled Note");
// Characters that file systems or file managers take for separators,
// wildcards or drive letters.
const QString unsafeFileNameCharacters = QStringLiteral("/\\?%*|\"<>:");

// The heading name of the documents: an empty title stays empty, only a
// missing one is named.
QString documentName(const NoteExportContent &note)
{
    return note.title ? note.title->trimmed() : untitledNoteName;
}

// A file name as a sentence can carry it: a name of thousands of characters
// is shortened in its middle.
QString shownName(const QString &name)
{
    constexpr qsizetype longest = 80;
    if (name.size() <= longest)
        return name;
    return name.left(56) + QStringLiteral("…") + name.right(20);
}

LocalError failure(const QString &action, const QString &name, int error)
{
    return LocalError(QStringLiteral("Could not %1 “%2”: %3")
                          .arg(action, shownName(name), QString::fromLocal8Bit(std::strerror(error))));
}

// The temporary file's name: hidden, beside the destination, and never longer
// than a name may be, so that any name that fits can be written.
QString temporaryName(const QString &name)
{
    const QString tail =
        QLatin1Char('-') + RecordingFolder::uuidText(QUuid::createUuid()) + QStringLiteral(".partial");
    QString head = QLatin1Char('.') + name;
    const qsizetype room = NAME_MAX - QFile::encodeName(tail).size();
    while (QFile::encodeName(head).size() > room)
        head.chop(head.size() > 1 && head.at(head.size() - 1).isLowSurrogate() ? 2 : 1);
    return head + tail;
}

void writeAll(int fd, const QByteArray &bytes, const QString &name)
{
    const char *data = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, data, size_t(left));
        if (written < 0) {
            if (errno == EINTR)
                continue;
            throw failure(QStringLiteral("write"), name, errno);
        }
        data += written;
        left -= written;
    }
}

} // namespace

bool hasExportableSummary(const QString &summary)
{
    const QString trimmed = summary.trimmed();
    return !trimmed.isEmpty() && trimmed != QLatin1String("Transcription in progress...") &&
           trimmed != QLatin1String("Generating summary...");
}

QString suggestedFileName(const std::optional<QString> &title, const QString &suffix,
                          const QString &extension)
{
    QString name = title ? title->trimmed() : untitledFileName;
    for (QChar &c : name)
        if (unsafeFileNameCharacters.contains(c))
            c = QLatin1Char('-');
    return name + suffix + QLatin1Char('.') + extension;
}

QString dateText(const QDateTime &timestamp)
{
    const QLocale locale;
    const QDateTime local = timestamp.toLocalTime();
    // Some locales' short time still carries seconds; a note's time never does.
    QString timeFormat = locale.timeFormat(QLocale::ShortFormat);
    timeFormat.remove(QStringLiteral(":ss"));
    return locale.toString(local.date(), QLocale::LongFormat) + QStringLiteral(", ") +
           locale.toString(local.time(), timeFormat);
}

QString plainTextDocument(const NoteExportContent &note)
{
    const QString name = documentName(note);
    const QString summary = note.summary.trimmed();
    const QString transcript = note.transcription.trimmed();
    QString text = name + QLatin1Char('\n') +
                   QString(DocumentText::characterCount(name, name.size()), QLatin1Char('=')) +
                   QStringLiteral("\n\n");
    if (note.timestamp)
        text += QStringLiteral("Created: ") + dateText(*note.timestamp) + QStringLiteral("\n\n");
    if (!note.tags.isEmpty())
        text += QStringLiteral("Tags: ") + note.tags.join(QStringLiteral(", ")) + QStringLiteral("\n\n");
    if (!summary.isEmpty())
        text += QStringLiteral("SUMMARY\n-------\n") + summary + QStringLiteral("\n\n");
    if (!transcript.isEmpty())
        text += QStringLiteral("TRANSCRIPT\n----------\n") + transcript + QLatin1Char('\n');
    return text;
}

QString formattedDocument(const NoteExportContent &note)
{
    const QString summary = note.summary.trimmed();
    const QString transcript = note.transcription.trimmed();
    QString text = QStringLiteral("# ") + documentName(note) + QStringLiteral("\n\n");
    if (note.timestamp)
        text += QStringLiteral("*Created: ") + dateText(*note.timestamp) + QStringLiteral("*\n\n");
    if (!note.tags.isEmpty()) {
        QStringList hashed;
        for (const QString &tag : note.tags)
            hashed << QLatin1Char('#') + tag;
        text += QStringLiteral("**Tags:** ") + hashed.join(QLatin1Char(' ')) + QStringLiteral("\n\n");
    }
    if (!summary.isEmpty())
        text += QStringLiteral("## Summary\n\n") + summary + QStringLiteral("\n\n");
    if (!transcript.isEmpty())
        text += QStringLiteral("## Transcript\n\n") + transcript + QLatin1Char('\n');
    return text;
}

QString sectionDocument(const NoteExportContent &note, const QString &sectionName, const QString &text)
{
    QString document = QStringLiteral("# ") + documentName(note) + QStringLiteral(" - ") + sectionName +
                       QStringLiteral("\n\n");
    // The date is the note's: the document is that note, whenever it leaves.
    if (note.timestamp)
        document += QStringLiteral("*Exported: ") + dateText(*note.timestamp) + QStringLiteral("*\n\n");
    const QString trimmed = text.trimmed();
    if (!trimmed.isEmpty())
        document += trimmed + QLatin1Char('\n');
    else
        document += QStringLiteral("*No ") + sectionName.toLower() + QStringLiteral(" available*\n");
    return document;
}

void writeTextAtomically(const QString &destination, const QString &text)
{
    const QFileInfo info(destination);
    const QString name = info.fileName();
    const QString directory = info.path();
    if (QFile::encodeName(name).size() > NAME_MAX)
        throw failure(QStringLiteral("write"), name, ENAMETOOLONG);

    const QString temporary = QDir(directory).filePath(temporaryName(name));
    const QByteArray temporaryPath = QFile::encodeName(temporary);
    const int fd = ::open(temporaryPath.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0)
        throw failure(QStringLiteral("write"), name, errno);
    try {
        writeAll(fd, text.toUtf8(), name);
        // On stable storage before it takes the name, so that a power cut
        // never leaves a document that looks whole and is not.
        if (::fsync(fd) != 0)
            throw failure(QStringLiteral("write"), name, errno);
    } catch (const LocalError &) {
        ::close(fd);
        ::unlink(temporaryPath.constData());
        throw;
    }
    // Linux releases the descriptor even when close reports an error.
    if (::close(fd) != 0 && errno != EINTR) {
        const int error = errno;
        ::unlink(temporaryPath.constData());
        throw failure(QStringLiteral("write"), name, error);
    }
    if (::rename(temporaryPath.constData(), QFile::encodeName(destination).constData()) != 0) {
        const int error = errno;
        ::unlink(temporaryPath.constData());
        throw failure(QStringLiteral("replace"), name, error);
    }
    // The document is whole under its name now; a folder that cannot be
    // synced only leaves the rename to the next writeback, no reason to call
    // the export failed.
    try {
        RecordingFolder::syncDirectory(directory);
    } catch (const Error &) {
    }
}

} // namespace kestil::NoteExport
