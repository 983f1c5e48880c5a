#include "shell/SpeakerSettings.h"

#include "shell/WidgetNames.h"

#include "base/Error.h"
#include "speech/DiarisationModels.h"

#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

namespace kestil {

namespace {

QLabel *sentence(const QString &name)
{
    auto *label = named(new QLabel, name);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

} // namespace

SpeakerSettings::SpeakerSettings(QWidget *parent) : QGroupBox(QStringLiteral("Speakers"), parent)
{
    named(this, QStringLiteral("settingsSpeakersSection"));
    auto *layout = new QVBoxLayout(this);
    status_ = sentence(QStringLiteral("settingsSpeakersStatus"));
    layout->addWidget(status_);
    auto *row = new QHBoxLayout;
    auto *import = named(new QPushButton(QStringLiteral("Import Speaker Models…")),
                         QStringLiteral("settingsSpeakersImportButton"));
    row->addWidget(import);
    row->addStretch(1);
    layout->addLayout(row);
    message_ = sentence(QStringLiteral("settingsSpeakersMessage"));
    layout->addWidget(message_);
    connect(import, &QPushButton::clicked, this, [this] {
        const QStringList chosen =
            QFileDialog::getOpenFileNames(window(), QStringLiteral("Import Speaker Models"), QDir::homePath(),
                                          QStringLiteral("ONNX models (*.onnx);;All files (*)"));
        if (!chosen.isEmpty())
            importFiles(chosen);
    });
    refresh();
}

void SpeakerSettings::refresh()
{
    QStringList names;
    for (const DiarisationModel &model : diarisationModels())
        names << model.fileName;
    status_->setText(
        diarisationModelsInstalled()
            ? QStringLiteral(
                  "Speaker identification is ready: after a recording or an import, and with "
                  "Identify Speakers in a note's transcript, Kestil tells the voices apart on this "
                  "computer.")
            : QStringLiteral("Speaker identification needs two models, %1. Import them to have transcripts "
                             "say who spoke; until then transcripts are not divided by speaker.")
                  .arg(names.join(QStringLiteral(" and "))));
}

void SpeakerSettings::importFiles(const QStringList &chosen)
{
    try {
        importDiarisationModels(chosen);
        message_->setText(QStringLiteral("The speaker models are installed."));
    } catch (const std::exception &error) {
        message_->setText(describe(error));
    }
    refresh();
}

} // namespace kestil
