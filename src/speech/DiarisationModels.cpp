#include "DiarisationModels.h"

#include "SpeechPaths.h"
#include "base/Error.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace kestil {

namespace {

QByteArray fileSha256(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash hash(QCryptographicHash::Sha256);
    return hash.addData(&file) ? hash.result().toHex() : QByteArray();
}

} // namespace

const QList<DiarisationModel> &diarisationModels()
{
    static const QList<DiarisationModel> models{
        {QStringLiteral("segmentation-3.0.onnx"), QStringLiteral("speaker segmentation"), 5916486,
         "cdf4894cbb0541983ce0de5aea8ebd8f5ec75bd41ce30d0110d4dab82651095a"},
        {QStringLiteral("campplus.onnx"), QStringLiteral("speaker embedding"), 28284249,
         "37d8c53a4bdf4785ea0ad8b8a7cd51dae62cd1546ab9e610510438394360d120"},
    };
    return models;
}

QString diarisationModelsDirectory()
{
    return speechDataRoot() + QStringLiteral("/Models/diarisation");
}

QString diarisationModelPath(const QString &directory, const DiarisationModel &model)
{
    return directory + QLatin1Char('/') + model.fileName;
}

bool diarisationModelsInstalled(const QString &directory)
{
    for (const DiarisationModel &model : diarisationModels())
        if (QFileInfo(diarisationModelPath(directory, model)).size() != model.size)
            return false;
    return true;
}

void importDiarisationModels(const QStringList &chosen, const QString &directory)
{
    QStringList files;
    for (const QString &path : chosen) {
        const QFileInfo info(path);
        if (info.isDir()) {
            for (const QFileInfo &entry : QDir(path).entryInfoList({QStringLiteral("*.onnx")}, QDir::Files))
                files << entry.filePath();
        } else {
            files << path;
        }
    }
    // Sizes pick the candidates; the checksum decides.
    QList<QString> sources(diarisationModels().size());
    for (const QString &file : files) {
        const qint64 size = QFileInfo(file).size();
        for (qsizetype i = 0; i < diarisationModels().size(); ++i) {
            const DiarisationModel &model = diarisationModels()[i];
            if (sources[i].isEmpty() && size == model.size && fileSha256(file) == model.sha256)
                sources[i] = file;
        }
    }
    for (qsizetype i = 0; i < diarisationModels().size(); ++i)
        if (sources[i].isEmpty())
            throw LocalError(
                QStringLiteral("The %1 model (“%2”, %3 bytes) was not among the chosen files, or "
                               "its contents differ from the model Kestil knows. Nothing was "
                               "installed.")
                    .arg(diarisationModels()[i].purpose, diarisationModels()[i].fileName)
                    .arg(diarisationModels()[i].size));
    if (!QDir().mkpath(directory))
        throw SystemError(QStringLiteral("The folder for speaker models could not be created at %1. Nothing "
                                         "was installed.")
                              .arg(QDir::toNativeSeparators(directory)));
    for (qsizetype i = 0; i < diarisationModels().size(); ++i) {
        QFile source(sources[i]);
        QSaveFile target(diarisationModelPath(directory, diarisationModels()[i]));
        bool ok = source.open(QIODevice::ReadOnly) && target.open(QIODevice::WriteOnly);
        while (ok && !source.atEnd()) {
            const QByteArray block = source.read(1 << 20);
            ok = !block.isEmpty() && target.write(block) == block.size();
        }
        if (!ok || !target.commit())
            throw SystemError(QStringLiteral("The %1 model could not be copied into %2: %3.")
                                  .arg(diarisationModels()[i].purpose, QDir::toNativeSeparators(directory),
                                       target.errorString()));
    }
}

} // namespace kestil
