#include "NoteAudio.h"

#include "base/CancellationError.h"
#include "base/Error.h"
#include "capture/DurableAudioWriter.h"
#include "capture/LocalRecordingManifest.h"
#include "capture/RecordingFolder.h"
#include "speech/StreamResampler.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <memory>

namespace kestil {

namespace {

struct Segment {
    QString path;
    LocalRecordingManifest manifest;
    qint64 frames = 0;
};

std::vector<Segment> segments(const QString &root, const QUuid &noteID)
{
    std::vector<Segment> found;
    const QDir folder(RecordingFolder::noteFolder(root, noteID));
    for (const QString &name : folder.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QString path = folder.filePath(name);
        if (!QFileInfo::exists(RecordingFolder::manifestPath(path)) ||
            !QFileInfo::exists(RecordingFolder::rawAudioPath(path)))
            continue;
        Segment segment{path, LocalRecordingManifest::read(path), DurableAudioWriter::frameCount(path)};
        if (!segment.manifest.hasValidSampleRate())
            throw SystemError(QStringLiteral("A recording of this note has an invalid sample rate, so its "
                                             "audio cannot be read."));
        found.push_back(std::move(segment));
    }
    std::sort(found.begin(), found.end(),
              [](const Segment &a, const Segment &b) { return a.manifest.createdAt < b.manifest.createdAt; });
    return found;
}

} // namespace

std::vector<float> readNoteAudio(const QString &root, const QUuid &noteID, double rate,
                                 const std::function<bool()> &cancelled,
                                 const std::function<void(double)> &progress)
{
    const std::vector<Segment> parts = segments(root, noteID);
    qint64 total = 0;
    for (const Segment &s : parts)
        total += s.frames;
    std::vector<float> out;
    qint64 done = 0;
    std::vector<float> block(1 << 16);
    for (const Segment &s : parts) {
        QFile raw(RecordingFolder::rawAudioPath(s.path));
        if (!raw.open(QIODevice::ReadOnly))
            throw SystemError(QStringLiteral("The recorded audio “%1” could not be read: %2.")
                                  .arg(QFileInfo(raw.fileName()).fileName(), raw.errorString()));
        std::unique_ptr<StreamResampler> resampler;
        if (s.manifest.sampleRate != rate)
            resampler = std::make_unique<StreamResampler>(s.manifest.sampleRate, rate);
        for (qint64 left = s.frames; left > 0;) {
            if (cancelled && cancelled())
                throw CancellationError();
            const qint64 want = std::min<qint64>(left, qint64(block.size()));
            const qint64 got = raw.read(reinterpret_cast<char *>(block.data()), want * qint64(sizeof(float)));
            if (got != want * qint64(sizeof(float)))
                throw SystemError(QStringLiteral("The recorded audio “%1” could not be read: %2.")
                                      .arg(QFileInfo(raw.fileName()).fileName(), raw.errorString()));
            const std::span<const float> samples(block.data(), std::size_t(want));
            if (resampler)
                resampler->process(samples, out);
            else
                out.insert(out.end(), samples.begin(), samples.end());
            left -= want;
            done += want;
            if (progress && total > 0)
                progress(double(done) / double(total));
        }
        if (resampler)
            resampler->flush(out);
    }
    return out;
}

} // namespace kestil
