// The stored transcript utterances: what decodes encodes back to the same list.
#include "FuzzInput.h"

#include "speech/TranscriptUtterancesJson.h"

using namespace kestil;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString text = QString::fromUtf8(fuzz::bytes(data, size));
    const auto utterances = decodeTranscriptUtterances(text);
    if (!utterances)
        return 0;
    const auto encoded = encodeTranscriptUtterances(*utterances);
    if (!encoded)
        return 0;
    const auto again = decodeTranscriptUtterances(*encoded);
    if (!again || *again != *utterances)
        std::abort();
    return 0;
}
