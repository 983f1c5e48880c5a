#include "WhisperModelConversion.h"

#include "CTranslate2Model.h"
#include "WhisperMelFilters.h"

#include "base/CancellationError.h"
#include "base/Error.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtEndian>

#include <ggml.h>

#include <functional>
#include <optional>

namespace kestil {

namespace {

constexpr std::uint32_t ggmlMagic = 0x67676d6c;
// whisper.cpp's file type for float16 matrices. It must be this one: with
// float32 throughout, whisper.cpp 1.9 builds its convolutions in float32,
// which its 1-D convolution does not accept.
constexpr std::int32_t halfFileType = 1;
const QString endOfText = QStringLiteral("<|endoftext|>");

QString modelFile(const QString &folder)
{
    return QDir(folder).filePath(QStringLiteral("model.bin"));
}

LocalError notWhisper(const QString &folder, const QString &why)
{
    return LocalError(QStringLiteral("The folder “%1” does not hold a Whisper speech model: %2")
                          .arg(QDir::toNativeSeparators(folder), why));
}

// GPT-2's byte-level vocabulary writes every byte as a printable character:
// printable Latin-1 bytes stand for themselves, and the others, in order, are
// moved up to U+0100 and beyond. whisper.cpp wants the bytes back.
std::optional<QByteArray> tokenBytes(const QString &token)
{
    static const std::vector<int> byteOf = [] {
        std::vector<int> table(512, -1);
        const auto printable = [](int b) {
            return (b >= '!' && b <= '~') || (b >= 0xA1 && b <= 0xAC) || (b >= 0xAE && b <= 0xFF);
        };
        int moved = 0;
        for (int b = 0; b < 256; ++b) {
            if (printable(b))
                table[std::size_t(b)] = b;
            else
                table[std::size_t(256 + moved++)] = b;
        }
        return table;
    }();
    QByteArray bytes;
    bytes.reserve(token.size());
    for (const QChar c : token) {
        const int code = c.unicode();
        if (code >= int(byteOf.size()) || byteOf[std::size_t(code)] < 0)
            return std::nullopt;
        bytes.append(char(byteOf[std::size_t(code)]));
    }
    return bytes;
}

// The vocabulary's tokens by id, in the form the folder has.
QStringList readTokens(const QString &folder)
{
    const QDir dir(folder);
    QFile text(dir.filePath(QStringLiteral("vocabulary.txt")));
    if (text.open(QIODevice::ReadOnly)) {
        QStringList tokens = QString::fromUtf8(text.readAll()).split(QLatin1Char('\n'));
        if (!tokens.isEmpty() && tokens.back().isEmpty())
            tokens.removeLast();
        return tokens;
    }
    QFile list(dir.filePath(QStringLiteral("vocabulary.json")));
    if (list.open(QIODevice::ReadOnly)) {
        QStringList tokens;
        for (const QJsonValue &value : QJsonDocument::fromJson(list.readAll()).array())
            tokens << value.toString();
        return tokens;
    }
    QFile tokenizer(dir.filePath(QStringLiteral("tokenizer.json")));
    if (tokenizer.open(QIODevice::ReadOnly)) {
        const QJsonObject root = QJsonDocument::fromJson(tokenizer.readAll()).object();
        const QJsonObject vocabulary =
            root.value(QStringLiteral("model")).toObject().value(QStringLiteral("vocab")).toObject();
        QStringList tokens;
        const auto put = [&tokens](qsizetype id, const QString &token) {
            if (id < 0 || id > 1000000)
                return;
            if (tokens.size() <= id)
                tokens.resize(id + 1);
            tokens[id] = token;
        };
        for (auto it = vocabulary.begin(); it != vocabulary.end(); ++it)
            put(it.value().toInt(-1), it.key());
        for (const QJsonValue &added : root.value(QStringLiteral("added_tokens")).toArray()) {
            const QJsonObject token = added.toObject();
            put(token.value(QStringLiteral("id")).toInt(-1),
                token.value(QStringLiteral("content")).toString());
        }
        return tokens;
    }
    throw notWhisper(folder, QStringLiteral("it has no vocabulary (vocabulary.txt, vocabulary.json or "
                                            "tokenizer.json)."));
}

// The text tokens whisper.cpp reads from the file: every id before the first
// special token, "<|endoftext|>".
QList<QByteArray> textTokens(const QString &folder, int vocabularySize)
{
    const QStringList tokens = readTokens(folder);
    const qsizetype end = tokens.indexOf(endOfText);
    if (end <= 0 || end > vocabularySize)
        throw notWhisper(folder, QStringLiteral("its vocabulary does not match Whisper's."));
    QList<QByteArray> bytes;
    bytes.reserve(end);
    for (qsizetype i = 0; i < end; ++i) {
        const auto token = tokenBytes(tokens[i]);
        if (!token || token->size() > 1024)
            throw notWhisper(folder, QStringLiteral("its vocabulary does not match Whisper's."));
        bytes.append(*token);
    }
    return bytes;
}

struct Dimensions {
    int vocabulary = 0;
    int audioContext = 0;
    int state = 0;
    int audioHeads = 0;
    int audioLayers = 0;
    int textContext = 0;
    int textHeads = 0;
    int textLayers = 0;
    int melBands = 0;
};

// Layers are "<prefix>layer_<n>/..."; "<prefix>layer_norm/..." is no layer.
int countLayers(const CTranslate2Model &model, const QString &prefix)
{
    int layers = 0;
    const QString start = prefix + QStringLiteral("layer_");
    for (const CTranslate2Variable &variable : model.variables()) {
        if (!variable.name.startsWith(start))
            continue;
        const QString rest = variable.name.mid(start.size());
        const qsizetype slash = rest.indexOf(QLatin1Char('/'));
        bool number = false;
        const int index = rest.left(slash).toInt(&number);
        if (number && slash > 0 && index >= 0 && index < 1000)
            layers = std::max(layers, index + 1);
    }
    return layers;
}

// One tensor of the output: a slice of rows of a CTranslate2 variable under
// whisper.cpp's name, in whisper.cpp's shape (outermost first).
struct Tensor {
    QByteArray name;
    QString source;
    QList<qint64> sourceShape;
    qint64 firstRow = 0; // of the source's first dimension
    QList<qint64> shape;
    bool half = false;

    qint64 elements() const
    {
        qint64 count = 1;
        for (qint64 extent : shape)
            count *= extent;
        return count;
    }
    qint64 fileBytes() const { return 12 + 4 * shape.size() + name.size() + elements() * (half ? 2 : 4); }
};

class Plan {
public:
    explicit Plan(const Dimensions &d) : n_(d.state) {}

    // A weight matrix (float16) and its bias (float32), all rows.
    void linear(const QByteArray &name, const QString &source, qint64 rows, qint64 columns, bool bias = true)
    {
        add(name + ".weight", source + QStringLiteral("/weight"), {rows, columns}, 0, {rows, columns}, true);
        if (bias)
            add(name + ".bias", source + QStringLiteral("/bias"), {rows}, 0, {rows}, false);
    }

    void norm(const QByteArray &name, const QString &source)
    {
        add(name + ".weight", source + QStringLiteral("/gamma"), {n_}, 0, {n_}, false);
        add(name + ".bias", source + QStringLiteral("/beta"), {n_}, 0, {n_}, false);
    }

    // Query, key and value fused into one matrix of three blocks of rows.
    // Whisper's keys have no bias (the converter stores zeros there), and a
    // bias on the keys would not change attention anyway: it adds the same
    // amount to every score of a query. whisper.cpp has no tensor for it.
    void fusedAttention(const QByteArray &name, const QString &source, const QList<QByteArray> &parts)
    {
        const qint64 fused = n_ * parts.size();
        for (qsizetype i = 0; i < parts.size(); ++i) {
            add(name + "." + parts[i] + ".weight", source + QStringLiteral("/weight"), {fused, n_}, n_ * i,
                {n_, n_}, true);
            if (parts[i] != "key")
                add(name + "." + parts[i] + ".bias", source + QStringLiteral("/bias"), {fused}, n_ * i, {n_},
                    false);
        }
    }

    void add(const QByteArray &name, const QString &source, QList<qint64> sourceShape, qint64 firstRow,
             QList<qint64> shape, bool half)
    {
        tensors_.append(Tensor{name, source, std::move(sourceShape), firstRow, std::move(shape), half});
    }

    const QList<Tensor> &tensors() const { return tensors_; }

private:
    qint64 n_;
    QList<Tensor> tensors_;
};

Plan plan(const Dimensions &d)
{
    Plan p(d);
    const qint64 n = d.state;
    p.add("encoder.positional_embedding", QStringLiteral("encoder/position_encodings/encodings"),
          {d.audioContext, n}, 0, {d.audioContext, n}, false);
    p.add("encoder.conv1.weight", QStringLiteral("encoder/conv1/weight"), {n, d.melBands, 3}, 0,
          {n, d.melBands, 3}, true);
    p.add("encoder.conv1.bias", QStringLiteral("encoder/conv1/bias"), {n}, 0, {n, 1}, false);
    p.add("encoder.conv2.weight", QStringLiteral("encoder/conv2/weight"), {n, n, 3}, 0, {n, n, 3}, true);
    p.add("encoder.conv2.bias", QStringLiteral("encoder/conv2/bias"), {n}, 0, {n, 1}, false);
    for (int i = 0; i < d.audioLayers; ++i) {
        const QByteArray to = "encoder.blocks." + QByteArray::number(i);
        const QString from = QStringLiteral("encoder/layer_%1").arg(i);
        p.fusedAttention(to + ".attn", from + QStringLiteral("/self_attention/linear_0"),
                         {"query", "key", "value"});
        p.linear(to + ".attn.out", from + QStringLiteral("/self_attention/linear_1"), n, n);
        p.norm(to + ".attn_ln", from + QStringLiteral("/self_attention/layer_norm"));
        p.linear(to + ".mlp.0", from + QStringLiteral("/ffn/linear_0"), 4 * n, n);
        p.linear(to + ".mlp.2", from + QStringLiteral("/ffn/linear_1"), n, 4 * n);
        p.norm(to + ".mlp_ln", from + QStringLiteral("/ffn/layer_norm"));
    }
    p.norm("encoder.ln_post", QStringLiteral("encoder/layer_norm"));
    p.add("decoder.positional_embedding", QStringLiteral("decoder/position_encodings/encodings"),
          {d.textContext, n}, 0, {d.textContext, n}, false);
    // The output projection is the token embedding itself (an alias in the
    // CTranslate2 file); whisper.cpp reuses the embedding the same way.
    p.add("decoder.token_embedding.weight", QStringLiteral("decoder/embeddings/weight"), {d.vocabulary, n}, 0,
          {d.vocabulary, n}, true);
    for (int i = 0; i < d.textLayers; ++i) {
        const QByteArray to = "decoder.blocks." + QByteArray::number(i);
        const QString from = QStringLiteral("decoder/layer_%1").arg(i);
        p.fusedAttention(to + ".attn", from + QStringLiteral("/self_attention/linear_0"),
                         {"query", "key", "value"});
        p.linear(to + ".attn.out", from + QStringLiteral("/self_attention/linear_1"), n, n);
        p.norm(to + ".attn_ln", from + QStringLiteral("/self_attention/layer_norm"));
        p.linear(to + ".cross_attn.query", from + QStringLiteral("/attention/linear_0"), n, n);
        // Cross-attention's keys and values, fused, read the encoder's output.
        p.fusedAttention(to + ".cross_attn", from + QStringLiteral("/attention/linear_1"), {"key", "value"});
        p.linear(to + ".cross_attn.out", from + QStringLiteral("/attention/linear_2"), n, n);
        p.norm(to + ".cross_attn_ln", from + QStringLiteral("/attention/layer_norm"));
        p.linear(to + ".mlp.0", from + QStringLiteral("/ffn/linear_0"), 4 * n, n);
        p.linear(to + ".mlp.2", from + QStringLiteral("/ffn/linear_1"), n, 4 * n);
        p.norm(to + ".mlp_ln", from + QStringLiteral("/ffn/layer_norm"));
    }
    p.norm("decoder.ln", QStringLiteral("decoder/layer_norm"));
    return p;
}

Dimensions dimensionsOf(const CTranslate2Model &model, const QString &folder)
{
    if (model.architecture() != QStringLiteral("WhisperSpec"))
        throw notWhisper(
            folder,
            QStringLiteral("its model.bin holds a model of another kind (%1).").arg(model.architecture()));
    const auto shapeOf = [&](const QString &name) { return model.at(name).shape; };
    Dimensions d;
    const QList<qint64> conv = shapeOf(QStringLiteral("encoder/conv1/weight"));
    const QList<qint64> audioPositions = shapeOf(QStringLiteral("encoder/position_encodings/encodings"));
    const QList<qint64> embedding = shapeOf(QStringLiteral("decoder/embeddings/weight"));
    const QList<qint64> textPositions = shapeOf(QStringLiteral("decoder/position_encodings/encodings"));
    if (conv.size() != 3 || conv[2] != 3 || audioPositions.size() != 2 || embedding.size() != 2 ||
        textPositions.size() != 2)
        throw notWhisper(folder, QStringLiteral("its weights have shapes Whisper does not use."));
    d.state = int(conv[0]);
    d.melBands = int(conv[1]);
    d.audioContext = int(audioPositions[0]);
    d.vocabulary = int(embedding[0]);
    d.textContext = int(textPositions[0]);
    d.audioHeads = int(model.integer(QStringLiteral("encoder/num_heads")).value_or(0));
    d.textHeads = int(model.integer(QStringLiteral("decoder/num_heads")).value_or(0));
    d.audioLayers = countLayers(model, QStringLiteral("encoder/"));
    d.textLayers = countLayers(model, QStringLiteral("decoder/"));
    const bool fits = d.state > 0 && audioPositions[1] == d.state && embedding[1] == d.state &&
                      textPositions[1] == d.state && (d.melBands == 80 || d.melBands == 128) &&
                      d.audioHeads > 0 && d.state % d.audioHeads == 0 && d.textHeads > 0 &&
                      d.state % d.textHeads == 0 && d.audioLayers > 0 && d.textLayers > 0 &&
                      d.vocabulary >= 51864 && d.vocabulary <= 52000 && d.audioContext <= 1500 &&
                      d.textContext >= 8;
    if (!fits)
        throw notWhisper(folder, QStringLiteral("its weights have shapes Whisper does not use."));
    return d;
}

class Output {
public:
    Output(const QString &path, qint64 total, const DownloadObserver &observer)
        : file_(path), total_(total), observer_(observer)
    {
        if (!file_.open(QIODevice::WriteOnly | QIODevice::Truncate))
            fail();
    }

    void int32(std::int32_t value)
    {
        char bytes[4];
        qToLittleEndian(value, bytes);
        write(bytes, 4);
    }

    void write(const char *data, qint64 size)
    {
        if (file_.write(data, size) != size)
            fail();
        written_ += size;
        if (observer_.progress && written_ - reported_ >= (1 << 20)) {
            reported_ = written_;
            observer_.progress(written_, total_);
        }
    }

    void finish()
    {
        if (!file_.flush())
            fail();
        file_.close();
        if (file_.error() != QFileDevice::NoError)
            fail();
        if (observer_.progress)
            observer_.progress(written_, total_);
    }

    [[noreturn]] void fail()
    {
        const QString reason = file_.errorString();
        file_.close();
        throw SystemError(
            QStringLiteral("The converted speech model could not be written to %1: %2. Nothing "
                           "was installed, and the model folder you chose is unchanged.")
                .arg(QDir::toNativeSeparators(QFileInfo(file_.fileName()).absolutePath()), reason));
    }

private:
    QFile file_;
    qint64 total_;
    const DownloadObserver &observer_;
    qint64 written_ = 0;
    qint64 reported_ = 0;
};

void writeTensor(Output &out, const CTranslate2Model &model, const Tensor &tensor, const QString &folder)
{
    const CTranslate2Variable &source = model.at(tensor.source);
    if (source.shape != tensor.sourceShape)
        throw notWhisper(
            folder, QStringLiteral("its weights “%1” have a shape Whisper does not use.").arg(tensor.source));
    const std::vector<float> all = model.floats(tensor.source);
    const qint64 rowLength = tensor.sourceShape.size() > 1 ? source.elements() / tensor.sourceShape[0] : 1;
    const float *values = all.data() + tensor.firstRow * rowLength;
    const qint64 count = tensor.elements();

    out.int32(std::int32_t(tensor.shape.size()));
    out.int32(std::int32_t(tensor.name.size()));
    out.int32(tensor.half ? 1 : 0);
    // ggml lists extents innermost first.
    for (qsizetype i = tensor.shape.size(); i > 0; --i)
        out.int32(std::int32_t(tensor.shape[i - 1]));
    out.write(tensor.name.constData(), tensor.name.size());
    if (tensor.half) {
        std::vector<ggml_fp16_t> halves(static_cast<std::size_t>(count));
        ggml_fp32_to_fp16_row(values, halves.data(), count);
        if constexpr (QSysInfo::ByteOrder != QSysInfo::LittleEndian) {
            for (auto &h : halves)
                h = qToLittleEndian(h);
        }
        out.write(reinterpret_cast<const char *>(halves.data()), count * 2);
    } else {
        std::vector<float> little(values, values + count);
        if constexpr (QSysInfo::ByteOrder != QSysInfo::LittleEndian) {
            for (auto &f : little)
                f = qToLittleEndian(f);
        }
        out.write(reinterpret_cast<const char *>(little.data()), count * 4);
    }
}

void convert(const QString &folder, const QString &output, const DownloadObserver &observer)
{
    const QString source = modelFile(folder);
    if (!QFileInfo(source).isFile())
        throw notWhisper(folder, QStringLiteral("it has no model.bin."));
    const CTranslate2Model model(source);
    const Dimensions d = dimensionsOf(model, folder);
    const QList<QByteArray> tokens = textTokens(folder, d.vocabulary);
    const std::vector<float> filters = whisperMelFilters(d.melBands);
    const Plan p = plan(d);

    qint64 total = 4 * 12 + 8 + qint64(filters.size()) * 4 + 4;
    for (const QByteArray &token : tokens)
        total += 4 + token.size();
    for (const Tensor &tensor : p.tensors())
        total += tensor.fileBytes();

    Output out(output, total, observer);
    out.int32(std::int32_t(ggmlMagic));
    for (int value : {d.vocabulary, d.audioContext, d.state, d.audioHeads, d.audioLayers, d.textContext,
                      d.state, d.textHeads, d.textLayers, d.melBands, int(halfFileType)})
        out.int32(value);
    out.int32(d.melBands);
    out.int32(std::int32_t(filters.size() / std::size_t(d.melBands)));
    for (float value : filters) {
        char bytes[4];
        qToLittleEndian(value, bytes);
        out.write(bytes, 4);
    }
    out.int32(std::int32_t(tokens.size()));
    for (const QByteArray &token : tokens) {
        out.int32(std::int32_t(token.size()));
        out.write(token.constData(), token.size());
    }
    for (const Tensor &tensor : p.tensors()) {
        if (observer.isCancelled && observer.isCancelled())
            throw CancellationError();
        writeTensor(out, model, tensor, folder);
    }
    out.finish();
}

} // namespace

bool isCTranslate2Folder(const QString &folder)
{
    const QDir dir(folder);
    return QFileInfo(folder).isDir() && QFileInfo(dir.filePath(QStringLiteral("model.bin"))).isFile() &&
           QFileInfo(dir.filePath(QStringLiteral("config.json"))).isFile();
}

WhisperModelFile convertCTranslate2Whisper(const QString &folder, const QString &output,
                                           const DownloadObserver &observer)
{
    try {
        convert(folder, output, observer);
        return inspectWhisperModelFile(output);
    } catch (...) {
        QFile::remove(output);
        throw;
    }
}

} // namespace kestil
