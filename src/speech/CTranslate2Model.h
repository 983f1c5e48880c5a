#pragma once

#include <QFile>
#include <QHash>
#include <QList>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

namespace kestil {

// One named variable of a CTranslate2 model.bin: its shape, its type code and
// where its bytes lie in the file.
struct CTranslate2Variable {
    // CTranslate2's type codes.
    enum Type : int { float32 = 0, int8 = 1, int16 = 2, int32 = 3, float16 = 4, bfloat16 = 5 };

    QString name;
    QList<qint64> shape;
    int type = float32;
    qint64 offset = 0;
    qint64 bytes = 0;

    qint64 elements() const;
    static int typeSize(int type);
};

// A CTranslate2 model file ("model.bin", format version 6): a small header
// naming the model's architecture, then its variables, each with a name, a
// shape, a type code and its bytes, then aliases (one name standing for
// another's bytes). Settings such as the number of attention heads are
// variables too, stored as scalars. Opening reads the index only and checks
// that every variable lies wholly inside the file; weights are read on
// demand. Throws LocalError naming the file when it is not such a file or is
// cut short.
class CTranslate2Model {
public:
    explicit CTranslate2Model(const QString &path);

    const QString &architecture() const { return architecture_; }
    int revision() const { return revision_; }
    qint64 fileSize() const { return fileSize_; }
    const QList<CTranslate2Variable> &variables() const { return variables_; }

    // The variable of that name, an alias followed to what it stands for.
    const CTranslate2Variable *find(const QString &name) const;
    const CTranslate2Variable &at(const QString &name) const;

    // A scalar setting as an integer; nothing when there is no such variable.
    std::optional<std::int64_t> integer(const QString &name) const;

    // A variable's values as 32-bit floats. float16 and bfloat16 widen
    // exactly; an int8 or int16 weight that a quantised model stores with
    // its scale ("<name>_scale", one per row or one for all) is divided by
    // it, as CTranslate2 does when it computes with it.
    std::vector<float> floats(const QString &name) const;

    // A variable's raw bytes as stored.
    QByteArray raw(const CTranslate2Variable &variable) const;

    // A sentence that names the file, for what does not fit.
    QString describeFile() const;

private:
    mutable QFile file_;
    QString architecture_;
    int revision_ = 0;
    qint64 fileSize_ = 0;
    QList<CTranslate2Variable> variables_;
    QHash<QString, qsizetype> index_;
};

} // namespace kestil
