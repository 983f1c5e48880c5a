// A saved summary checkpoint: what is accepted survives a round trip.
#include "FuzzInput.h"

#include "generation/LocalSummaryCheckpoint.h"

using namespace kestil;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const auto checkpoint = LocalSummaryCheckpoint::fromJson(fuzz::bytes(data, size));
    if (!checkpoint)
        return 0;
    const auto again = LocalSummaryCheckpoint::fromJson(checkpoint->toJson());
    if (!again || !(*again == *checkpoint))
        std::abort();
    return 0;
}
