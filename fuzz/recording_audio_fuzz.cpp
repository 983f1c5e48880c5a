// A segment's audio as a crash or a broken disk may leave it: the input is
// split into the raw samples and the playable file. Checking, measuring and
// rebuilding must never crash, and a rebuilt file must always be valid.
#include "FuzzInput.h"

#include "base/Error.h"
#include "capture/DurableAudioWriter.h"
#include "capture/LocalRecordingManifest.h"
#include "capture/RecordingFolder.h"

#include <QUuid>

using namespace kestil;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2)
        return 0;
    // The first two bytes: the sample rate's choice and where the raw part ends.
    static const double rates[] = {16000, 44100, 48000, 8000, 96000, 22050, 192000, 11025};
    const double rate = rates[data[0] % 8];
    const size_t rest = size - 2;
    const size_t rawSize = rest == 0 ? 0 : (size_t(data[1]) * rest) / 255;
    const QByteArray raw = fuzz::bytes(data + 2, rawSize);
    const QByteArray caf = fuzz::bytes(data + 2 + rawSize, rest - rawSize);

    const QString segment = fuzz::scratch() + QStringLiteral("/segment");
    QDir(segment).removeRecursively();
    QDir().mkpath(segment);
    LocalRecordingManifest manifest{
        QUuid::fromString(QStringLiteral("{4f4c3b7a-0000-4000-8000-000000000001}")), 700000000.0, rate, true};
    manifest.write(segment);
    fuzz::writeBytes(RecordingFolder::rawAudioPath(segment), raw);
    if (!caf.isEmpty())
        fuzz::writeBytes(RecordingFolder::finalAudioPath(segment), caf);

    if (DurableAudioWriter::frameCount(segment) != qint64(raw.size() / 4))
        std::abort();
    (void)DurableAudioWriter::hasValidFinalAudio(segment, manifest);
    try {
        (void)DurableAudioWriter::finalAudioURL(segment);
    } catch (const Error &) {
        return 0;
    }
    if (!DurableAudioWriter::hasValidFinalAudio(segment, manifest))
        std::abort();
    return 0;
}
