#include "generation/GgufModelInfo.h"

#include "base/Error.h"

#include <gguf.h>

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <limits>
#include <memory>

namespace kestil {

namespace {

struct GgufCloser {
    void operator()(gguf_context *context) const { gguf_free(context); }
};

QString stringValue(const gguf_context *context, const char *key)
{
    const int64_t id = gguf_find_key(context, key);
    if (id < 0 || gguf_get_kv_type(context, id) != GGUF_TYPE_STRING)
        return {};
    return QString::fromUtf8(gguf_get_val_str(context, id));
}

// A count or a length the file states; 0 when it states none, or one no
// model can have (a negative number, or one past what a signed 64-bit integer
// holds), as a damaged or hostile file may.
qint64 integerValue(const gguf_context *context, const QByteArray &key)
{
    const int64_t id = gguf_find_key(context, key.constData());
    if (id < 0)
        return 0;
    switch (gguf_get_kv_type(context, id)) {
    case GGUF_TYPE_UINT32:
        return gguf_get_val_u32(context, id);
    case GGUF_TYPE_INT32:
        return std::max<qint64>(0, gguf_get_val_i32(context, id));
    case GGUF_TYPE_UINT64: {
        const uint64_t value = gguf_get_val_u64(context, id);
        return value > uint64_t(std::numeric_limits<qint64>::max()) ? 0 : qint64(value);
    }
    case GGUF_TYPE_INT64:
        return std::max<qint64>(0, gguf_get_val_i64(context, id));
    default:
        return 0;
    }
}

QString displayName(const QString &path)
{
    return QFileInfo(path).fileName();
}

} // namespace

GgufModelInfo GgufModelInfo::read(const QString &path)
{
    const QString name = displayName(path);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw LocalError(
            QStringLiteral("Kestil could not open the model file “%1”: %2.").arg(name, file.errorString()));
    if (file.read(4) != QByteArrayLiteral("GGUF"))
        throw LocalError(QStringLiteral("“%1” is not a GGUF language model file.").arg(name));
    const qint64 fileSize = file.size();
    file.close();

    std::unique_ptr<gguf_context, GgufCloser> context(
        gguf_init_from_file(QFile::encodeName(path).constData(), gguf_init_params{true, nullptr}));
    if (!context)
        throw LocalError(
            QStringLiteral("“%1” is damaged or incomplete: its model description cannot be read.").arg(name));

    // The header can be whole while the weights were cut off by an
    // interrupted copy or download.
    const qint64 dataOffset = qint64(gguf_get_data_offset(context.get()));
    qint64 dataEnd = dataOffset;
    const int64_t tensors = gguf_get_n_tensors(context.get());
    for (int64_t i = 0; i < tensors; ++i) {
        dataEnd = qMax(dataEnd, dataOffset + qint64(gguf_get_tensor_offset(context.get(), i)) +
                                    qint64(gguf_get_tensor_size(context.get(), i)));
    }
    if (tensors == 0)
        throw LocalError(
            QStringLiteral("“%1” holds no model weights; it is not a language model.").arg(name));
    if (dataEnd > fileSize)
        throw LocalError(
            QStringLiteral("“%1” is incomplete: the file ends before its model data does.").arg(name));

    GgufModelInfo info;
    info.path = path;
    info.architecture = stringValue(context.get(), "general.architecture");
    info.name = stringValue(context.get(), "general.name");
    info.chatTemplate = stringValue(context.get(), "tokenizer.chat_template");
    info.contextLength = integerValue(context.get(), info.architecture.toUtf8() + ".context_length");
    const int64_t languages = gguf_find_key(context.get(), "general.languages");
    if (languages >= 0 && gguf_get_kv_type(context.get(), languages) == GGUF_TYPE_ARRAY &&
        gguf_get_arr_type(context.get(), languages) == GGUF_TYPE_STRING) {
        const size_t count = gguf_get_arr_n(context.get(), languages);
        for (size_t i = 0; i < count; ++i)
            info.languages.append(QString::fromUtf8(gguf_get_arr_str(context.get(), languages, i)));
    }
    return info;
}

} // namespace kestil
