#pragma once

#include <QGroupBox>

class QLabel;

namespace kestil {

// Settings' Speakers section: whether the two models that tell speakers
// apart are installed, and "Import Speaker Models…" for files the user has.
class SpeakerSettings : public QGroupBox {
    Q_OBJECT
public:
    explicit SpeakerSettings(QWidget *parent = nullptr);

    // Rereads what is installed.
    void refresh();
    // Installs the models from the chosen files or folder, saying how it went.
    void importFiles(const QStringList &chosen);

private:
    QLabel *status_ = nullptr;
    QLabel *message_ = nullptr;
};

} // namespace kestil
