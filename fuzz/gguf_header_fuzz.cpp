// A language model file's header, read before llama.cpp is trusted with the
// file: a damaged or hostile file is refused with a sentence, never a crash.
#include "FuzzInput.h"

#include "base/Error.h"
#include "generation/GgufModelInfo.h"

using namespace kestil;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString path = fuzz::writeFile(QStringLiteral("model.gguf"), fuzz::bytes(data, size));
    try {
        const GgufModelInfo info = GgufModelInfo::read(path);
        if (info.contextLength < 0)
            std::abort();
    } catch (const Error &error) {
        if (error.localizedDescription().isEmpty())
            std::abort();
    }
    return 0;
}
