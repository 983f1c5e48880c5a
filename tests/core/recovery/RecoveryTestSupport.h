#pragma once

#include "core/CoreTestSupport.h"
#include "support/QtPrinters.h"

#include "capture/DurableAudioWriter.h"
#include "capture/RecordingFolder.h"
#include "core/InterruptedSessionRecovery.h"
#include "support/SoundFiles.h"

#include <ostream>
#include <span>

// QString in failure messages, for the many `<< path` of the recovery tests.
QT_BEGIN_NAMESPACE
inline std::ostream &operator<<(std::ostream &out, const QString &text)
{
    return out << text.toStdString();
}
QT_END_NAMESPACE

namespace kestil::test {

inline QString recoveredText(int count)
{
    return QStringLiteral("Recovered %1 interrupted transcription session(s). Select a note to continue.")
        .arg(count);
}

// A data root with a real store, and launches of the application model on it
// with the recovery pass, as the program starts.
class Library {
public:
    Library() = default;
    explicit Library(const QString &root) : root_(root) { QDir().mkpath(root_); }

    QString root() const { return root_.isEmpty() ? dir_.path() : root_; }

    QUuid createNote()
    {
        const QUuid id = QUuid::createUuid();
        SharedPersistenceController(root()).createNote(QStringLiteral("Meeting"), QString(), id,
                                                       QStringLiteral("local"));
        return id;
    }

    std::unique_ptr<LocalAppModel> launch() const { return launchApp(root()); }

    std::optional<QString> sourceURL(const QUuid &noteID) const
    {
        SharedPersistenceController store(root());
        const NotePtr note = store.noteWithId(noteID);
        return note ? note->sourceURL() : std::nullopt;
    }

    QString segment(const QUuid &noteID, const QString &name = QString()) const
    {
        return RecordingFolder::noteFolder(root(), noteID) + QLatin1Char('/') +
               (name.isEmpty() ? RecordingFolder::uuidText(QUuid::createUuid()) : name);
    }

private:
    QTemporaryDir dir_;
    QString root_;
};

// A segment whose writer died without completing (what a crash leaves), or
// one that was completed.
inline QString interruptedSegment(const QString &segment, const QUuid &noteID, double rate,
                                  std::span<const float> samples, bool complete = false)
{
    DurableAudioWriter writer(segment, noteID, rate);
    writer.append(samples);
    if (complete)
        writer.complete();
    return segment;
}

inline std::vector<float> ramp(size_t count, float offset = 0)
{
    std::vector<float> samples(count);
    for (size_t i = 0; i < count; ++i)
        samples[i] = float(i % 1000) / 1000.0f + offset;
    return samples;
}

// Every file under a folder with its contents (links as their targets).
inline QMap<QString, QByteArray> snapshot(const QString &folder)
{
    QMap<QString, QByteArray> files;
    const auto entries =
        QDir(folder).entryInfoList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    for (const auto &entry : entries) {
        if (entry.isSymLink())
            files.insert(entry.absoluteFilePath(), "-> " + entry.symLinkTarget().toUtf8());
        else if (entry.isDir())
            files.insert(snapshot(entry.absoluteFilePath()));
        else
            files.insert(entry.absoluteFilePath(), fileBytes(entry.absoluteFilePath()));
    }
    return files;
}

// The playable file of a segment holds exactly its raw file's whole frames.
inline void expectPlayable(const QString &segment, double rate)
{
    const auto sound = readSoundFile(RecordingFolder::finalAudioPath(segment));
    ASSERT_TRUE(sound) << segment;
    EXPECT_EQ(sound->sampleRate, int(rate));
    EXPECT_EQ(sound->channels, 1);
    EXPECT_EQ(sound->samples, readRawAudio(RecordingFolder::rawAudioPath(segment)));
}

inline bool isComplete(const QString &segment)
{
    return LocalRecordingManifest::read(segment).complete;
}

} // namespace kestil::test
