#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

namespace kestil {

// The two models that tell speakers apart, as Kestil knows them: pyannote's
// segmentation 3.0 and the CAM++ speaker embedding, both as ONNX with the
// metadata sherpa-onnx reads.
struct DiarisationModel {
    QString fileName; // the name it is installed under in Models/diarisation/
    QString purpose;  // for sentences
    qint64 size = 0;
    QByteArray sha256; // hex
};

const QList<DiarisationModel> &diarisationModels();

// Models/diarisation/ under the data root.
QString diarisationModelsDirectory();

// The installed path of a model of the list.
QString diarisationModelPath(const QString &directory, const DiarisationModel &model);

// Both files are installed with the size they were checked at.
bool diarisationModelsInstalled(const QString &directory = diarisationModelsDirectory());

// Installs the models from files the user chose (the two files, or a folder
// holding them): each is recognised by its checksum, whatever it is called,
// and copied into `directory` under a temporary name, then renamed into place,
// so that a failure leaves nothing that looks installed. Throws LocalError
// with a sentence when a file is missing or is not one of the two models, and
// SystemError when the copy cannot be written.
void importDiarisationModels(const QStringList &chosen,
                             const QString &directory = diarisationModelsDirectory());

} // namespace kestil
