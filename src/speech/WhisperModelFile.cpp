#include "WhisperModelFile.h"

#include "base/Error.h"

#include <QFile>
#include <QFileInfo>
#include <QtEndian>

#include <ggml.h>

#include <array>
#include <cstdint>

namespace kestil {

namespace {

constexpr std::uint32_t ggmlMagic = 0x67676d6c;
constexpr int quantizationVersionFactor = 1000;

class Reader {
public:
    explicit Reader(QFile &file) : file_(file) {}

    std::int32_t int32()
    {
        std::array<char, 4> bytes;
        if (file_.read(bytes.data(), 4) != 4)
            throw damaged();
        return qFromLittleEndian<std::int32_t>(bytes.data());
    }

    void skip(qint64 count)
    {
        if (count < 0 || file_.pos() + count > file_.size() || !file_.seek(file_.pos() + count))
            throw damaged();
    }

    LocalError damaged() const
    {
        return LocalError(QStringLiteral("The speech model file “%1” is damaged or is not a Whisper model.")
                              .arg(QFileInfo(file_.fileName()).fileName()));
    }

private:
    QFile &file_;
};

bool within(std::int32_t value, std::int32_t low, std::int32_t high)
{
    return value >= low && value <= high;
}

// The weight types ggml can map to a tensor type; on any other value ggml
// stops the whole program rather than failing the load.
bool isKnownWeightType(std::int32_t fileType)
{
    return within(fileType, GGML_FTYPE_ALL_F32, GGML_FTYPE_MOSTLY_Q4_1) ||
           within(fileType, GGML_FTYPE_MOSTLY_Q8_0, GGML_FTYPE_MOSTLY_Q2_0);
}

} // namespace

WhisperModelFile inspectWhisperModelFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw LocalError(QStringLiteral("The speech model file “%1” could not be opened: %2.")
                             .arg(QFileInfo(path).fileName(), file.errorString()));
    }
    Reader in(file);
    WhisperModelFile model;
    model.fileSize = file.size();

    if (std::uint32_t(in.int32()) != ggmlMagic)
        throw in.damaged();
    model.vocabularySize = in.int32();
    model.audioContext = in.int32();
    model.audioState = in.int32();
    model.audioHeads = in.int32();
    model.audioLayers = in.int32();
    model.textContext = in.int32();
    model.textState = in.int32();
    model.textHeads = in.int32();
    model.textLayers = in.int32();
    model.melBands = in.int32();
    model.fileType = in.int32();
    const int weightType = model.fileType % quantizationVersionFactor;
    if (!within(model.vocabularySize, 51864, 52000) || !within(model.audioContext, 1, 1500) ||
        !within(model.audioState, 1, 8192) || !within(model.audioHeads, 1, 128) ||
        model.audioState % model.audioHeads != 0 || !within(model.audioLayers, 1, 64) ||
        !within(model.textContext, 8, 4096) || model.textState != model.audioState ||
        !within(model.textHeads, 1, 128) || model.textState % model.textHeads != 0 ||
        !within(model.textLayers, 1, 64) || (model.melBands != 80 && model.melBands != 128) ||
        !isKnownWeightType(weightType))
        throw in.damaged();

    const std::int32_t filterBands = in.int32();
    const std::int32_t filterBins = in.int32();
    if (!within(filterBands, 1, 256) || !within(filterBins, 1, 1024))
        throw in.damaged();
    in.skip(qint64(filterBands) * filterBins * 4);

    const std::int32_t tokens = in.int32();
    if (!within(tokens, 0, model.vocabularySize))
        throw in.damaged();
    for (std::int32_t i = 0; i < tokens; ++i) {
        const std::int32_t length = in.int32();
        if (!within(length, 0, 1024))
            throw in.damaged();
        in.skip(length);
    }

    const int expectedTensors = 11 + 15 * model.audioLayers + 24 * model.textLayers;
    while (!file.atEnd()) {
        const std::int32_t dimensions = in.int32();
        const std::int32_t nameLength = in.int32();
        const std::int32_t type = in.int32();
        if (!within(dimensions, 1, 4) || !within(nameLength, 1, 256) || !within(type, 0, GGML_TYPE_COUNT - 1))
            throw in.damaged();
        const auto ggmlType = ggml_type(type);
        const std::int64_t blockSize = ggml_blck_size(ggmlType);
        const std::size_t typeSize = ggml_type_size(ggmlType);
        if (blockSize <= 0 || typeSize == 0)
            throw in.damaged();
        std::int64_t elements = 1;
        for (int d = 0; d < dimensions; ++d) {
            const std::int32_t extent = in.int32();
            if (extent < 1 || elements > (std::int64_t(1) << 40) / extent)
                throw in.damaged();
            elements *= extent;
        }
        if (elements % blockSize != 0)
            throw in.damaged();
        in.skip(nameLength);
        in.skip(elements / blockSize * std::int64_t(typeSize));
        if (++model.tensorCount > expectedTensors)
            throw in.damaged();
    }
    if (model.tensorCount != expectedTensors)
        throw in.damaged();
    return model;
}

} // namespace kestil
