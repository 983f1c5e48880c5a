// The preferences file: anything decodes to some preferences (a damaged file
// must not stop the program), and those encode and decode to themselves.
#include "FuzzInput.h"

#include "base/Error.h"
#include "prefs/PreferenceFile.h"

using namespace kestil;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    PreferenceFile file;
    try {
        file = decodePreferenceFile(fuzz::bytes(data, size));
    } catch (const Error &) {
        return 0;
    }
    const QByteArray encoded = encodePreferenceFile(file);
    if (encodePreferenceFile(decodePreferenceFile(encoded)) != encoded)
        std::abort();
    return 0;
}
