// A speech model file's header and tensor table, walked before whisper.cpp
// (which trusts its input) is given the file.
#include "FuzzInput.h"

#include "base/Error.h"
#include "speech/WhisperModelFile.h"

using namespace kestil;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString path = fuzz::writeFile(QStringLiteral("ggml-model.bin"), fuzz::bytes(data, size));
    try {
        const WhisperModelFile file = inspectWhisperModelFile(path);
        if (file.fileSize != qint64(size) || file.tensorCount < 0)
            std::abort();
    } catch (const Error &error) {
        if (error.localizedDescription().isEmpty())
            std::abort();
    }
    return 0;
}
