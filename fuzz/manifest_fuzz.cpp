// The recording manifest: any bytes either decode to a manifest that encodes
// back to the same manifest, or are refused with an error.
#include "FuzzInput.h"

#include "base/Error.h"
#include "capture/LocalRecordingManifest.h"

#include <cmath>

using namespace kestil;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    LocalRecordingManifest manifest;
    try {
        manifest = LocalRecordingManifest::decode(fuzz::bytes(data, size));
    } catch (const Error &) {
        return 0;
    }
    (void)manifest.createdAtDate();
    if (!std::isfinite(manifest.createdAt) || !std::isfinite(manifest.sampleRate))
        return 0;
    if (!(LocalRecordingManifest::decode(manifest.encode()) == manifest))
        std::abort();
    return 0;
}
