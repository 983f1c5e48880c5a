#include "CTranslate2Model.h"

#include "base/Error.h"

#include <QFileInfo>
#include <QtEndian>

#include <bit>
#include <cstring>

namespace kestil {

namespace {

constexpr std::uint32_t supportedVersion = 6;
// Far above any real model: a count beyond it is a damaged or foreign file.
constexpr std::uint32_t maximumVariables = 100000;

float halfToFloat(std::uint16_t half)
{
    const std::uint32_t sign = std::uint32_t(half & 0x8000u) << 16;
    const std::uint32_t exponent = (half >> 10) & 0x1fu;
    std::uint32_t mantissa = half & 0x3ffu;
    std::uint32_t bits;
    if (exponent == 0x1f) {
        bits = sign | 0x7f800000u | (mantissa << 13);
    } else if (exponent != 0) {
        bits = sign | ((exponent + 112) << 23) | (mantissa << 13);
    } else if (mantissa == 0) {
        bits = sign;
    } else {
        // A subnormal half is a normal float: shift the mantissa up.
        int shift = 0;
        while ((mantissa & 0x400u) == 0) {
            mantissa <<= 1;
            ++shift;
        }
        bits = sign | (std::uint32_t(113 - shift) << 23) | ((mantissa & 0x3ffu) << 13);
    }
    return std::bit_cast<float>(bits);
}

class IndexReader {
public:
    IndexReader(QFile &file, QString name) : file_(file), name_(std::move(name)) {}

    template <typename T> T number()
    {
        char bytes[sizeof(T)];
        if (file_.read(bytes, sizeof(T)) != qint64(sizeof(T)))
            throw truncated();
        return qFromLittleEndian<T>(bytes);
    }

    // A length-prefixed, NUL-terminated UTF-8 text.
    QString text()
    {
        const auto length = number<std::uint16_t>();
        if (length == 0)
            throw notAModel();
        const QByteArray bytes = file_.read(length);
        if (bytes.size() != length)
            throw truncated();
        if (bytes.back() != '\0')
            throw notAModel();
        return QString::fromUtf8(bytes.constData(), length - 1);
    }

    void skip(qint64 count)
    {
        if (count < 0 || file_.pos() + count > file_.size())
            throw truncated();
        file_.seek(file_.pos() + count);
    }

    LocalError notAModel() const
    {
        return LocalError(QStringLiteral("“%1” is not a CTranslate2 model file.").arg(name_));
    }
    LocalError truncated() const
    {
        return LocalError(
            QStringLiteral("The model file “%1” is incomplete: it ends before its last weights. Copy or "
                           "download it again.")
                .arg(name_));
    }

private:
    QFile &file_;
    QString name_;
};

} // namespace

qint64 CTranslate2Variable::elements() const
{
    qint64 count = 1;
    for (qint64 extent : shape)
        count *= extent;
    return count;
}

int CTranslate2Variable::typeSize(int type)
{
    switch (type) {
    case float32:
    case int32:
        return 4;
    case int16:
    case float16:
    case bfloat16:
        return 2;
    case int8:
        return 1;
    default:
        return 0;
    }
}

CTranslate2Model::CTranslate2Model(const QString &path) : file_(path)
{
    const QString name = QFileInfo(path).fileName();
    if (!file_.open(QIODevice::ReadOnly)) {
        throw LocalError(
            QStringLiteral("The model file “%1” could not be opened: %2.").arg(name, file_.errorString()));
    }
    fileSize_ = file_.size();
    IndexReader in(file_, name);
    const auto version = in.number<std::uint32_t>();
    if (version != supportedVersion) {
        // Any other first word: not this format, or a version this reader
        // was not written for.
        if (version >= 1 && version < 64)
            throw LocalError(
                QStringLiteral("The model file “%1” is in CTranslate2's format version %2; Kestil "
                               "reads version %3. Convert it again with a recent CTranslate2.")
                    .arg(name)
                    .arg(version)
                    .arg(supportedVersion));
        throw in.notAModel();
    }
    architecture_ = in.text();
    revision_ = int(in.number<std::uint32_t>());
    const auto count = in.number<std::uint32_t>();
    if (count > maximumVariables)
        throw in.notAModel();
    variables_.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        CTranslate2Variable variable;
        variable.name = in.text();
        const auto dimensions = in.number<std::uint8_t>();
        qint64 elements = 1;
        for (int d = 0; d < dimensions; ++d) {
            const auto extent = in.number<std::uint32_t>();
            variable.shape.append(extent);
            if (extent > 0 && elements > (qint64(1) << 40) / qint64(extent))
                throw in.notAModel();
            elements *= qint64(extent);
        }
        variable.type = in.number<std::uint8_t>();
        variable.bytes = in.number<std::uint32_t>();
        const int size = CTranslate2Variable::typeSize(variable.type);
        if (size == 0 || variable.bytes != elements * size)
            throw in.notAModel();
        variable.offset = file_.pos();
        in.skip(variable.bytes);
        index_.insert(variable.name, variables_.size());
        variables_.append(variable);
    }
    const auto aliases = in.number<std::uint32_t>();
    if (aliases > maximumVariables)
        throw in.notAModel();
    for (std::uint32_t i = 0; i < aliases; ++i) {
        const QString alias = in.text();
        const QString target = in.text();
        const auto found = index_.constFind(target);
        if (found == index_.cend())
            throw in.notAModel();
        index_.insert(alias, *found);
    }
}

const CTranslate2Variable *CTranslate2Model::find(const QString &name) const
{
    const auto found = index_.constFind(name);
    return found == index_.cend() ? nullptr : &variables_[*found];
}

QString CTranslate2Model::describeFile() const
{
    return QFileInfo(file_.fileName()).fileName();
}

const CTranslate2Variable &CTranslate2Model::at(const QString &name) const
{
    if (const CTranslate2Variable *variable = find(name))
        return *variable;
    throw LocalError(QStringLiteral("The model file “%1” has no weights named “%2”; it is not a complete "
                                    "Whisper model.")
                         .arg(describeFile(), name));
}

std::optional<std::int64_t> CTranslate2Model::integer(const QString &name) const
{
    const CTranslate2Variable *variable = find(name);
    if (!variable || variable->elements() != 1)
        return std::nullopt;
    const QByteArray bytes = raw(*variable);
    switch (variable->type) {
    case CTranslate2Variable::int8:
        return std::int8_t(bytes[0]);
    case CTranslate2Variable::int16:
        return qFromLittleEndian<std::int16_t>(bytes.constData());
    case CTranslate2Variable::int32:
        return qFromLittleEndian<std::int32_t>(bytes.constData());
    default:
        return std::nullopt;
    }
}

QByteArray CTranslate2Model::raw(const CTranslate2Variable &variable) const
{
    QByteArray bytes;
    if (file_.seek(variable.offset))
        bytes = file_.read(variable.bytes);
    if (bytes.size() != variable.bytes) {
        throw SystemError(QStringLiteral("The model file “%1” could not be read: %2.")
                              .arg(describeFile(), file_.errorString()));
    }
    return bytes;
}

std::vector<float> CTranslate2Model::floats(const QString &name) const
{
    const CTranslate2Variable &variable = at(name);
    const QByteArray bytes = raw(variable);
    const auto count = std::size_t(variable.elements());
    std::vector<float> values(count);
    const char *data = bytes.constData();
    switch (variable.type) {
    case CTranslate2Variable::float32:
        for (std::size_t i = 0; i < count; ++i)
            values[i] = qFromLittleEndian<float>(data + 4 * i);
        return values;
    case CTranslate2Variable::float16:
        for (std::size_t i = 0; i < count; ++i)
            values[i] = halfToFloat(qFromLittleEndian<std::uint16_t>(data + 2 * i));
        return values;
    case CTranslate2Variable::bfloat16:
        for (std::size_t i = 0; i < count; ++i)
            values[i] =
                std::bit_cast<float>(std::uint32_t(qFromLittleEndian<std::uint16_t>(data + 2 * i)) << 16);
        return values;
    case CTranslate2Variable::int8:
    case CTranslate2Variable::int16: {
        const QString scaleName = name + QStringLiteral("_scale");
        if (!find(scaleName)) {
            throw LocalError(QStringLiteral("The weights “%1” in “%2” are integers without a scale; Kestil "
                                            "cannot read them.")
                                 .arg(name, describeFile()));
        }
        const std::vector<float> scales = floats(scaleName);
        const std::size_t rows = variable.shape.isEmpty() ? 1 : std::size_t(variable.shape.first());
        if (scales.size() != 1 && scales.size() != rows)
            throw LocalError(QStringLiteral("The weights “%1” in “%2” have %3 scales for %4 rows.")
                                 .arg(name, describeFile())
                                 .arg(scales.size())
                                 .arg(rows));
        const std::size_t perRow = rows == 0 ? 0 : count / rows;
        for (std::size_t i = 0; i < count; ++i) {
            const float q = variable.type == CTranslate2Variable::int8
                                ? float(std::int8_t(data[i]))
                                : float(qFromLittleEndian<std::int16_t>(data + 2 * i));
            const float scale = scales.size() == 1 ? scales[0] : scales[i / perRow];
            values[i] = scale != 0.0f ? q / scale : 0.0f;
        }
        return values;
    }
    default:
        throw LocalError(QStringLiteral("The weights “%1” in “%2” are not numbers Kestil can convert.")
                             .arg(name, describeFile()));
    }
}

} // namespace kestil
