// kestil-speech-model-import SOURCE MODELS_DIR
//
// Imports a speech model with the program's own import (a whisper.cpp file is
// copied, a CTranslate2 folder converted) into a models folder, and prints
// the installed file's path. The test scripts make the real test model this
// way.
#include "speech/WhisperModelImport.h"

#include "base/Error.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList arguments = app.arguments();
    if (arguments.size() != 3) {
        std::fprintf(stderr, "usage: kestil-speech-model-import SOURCE MODELS_DIR\n");
        return 2;
    }
    try {
        int lastPercent = -1;
        kestil::DownloadObserver observer;
        observer.progress = [&lastPercent](qint64 done, qint64 total) {
            const int percent = total > 0 ? int(done * 100 / total) : 0;
            if (percent / 10 != lastPercent / 10)
                std::fprintf(stderr, "%d%%\n", percent);
            lastPercent = percent;
        };
        const kestil::ImportedWhisperModel model =
            kestil::importWhisperModel(arguments[1], arguments[2], observer);
        if (model.conversionSeconds > 0)
            std::fprintf(stderr, "converted in %.1f s\n", model.conversionSeconds);
        std::printf("%s\n", qPrintable(model.path));
        return 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", qPrintable(kestil::describe(error)));
        return 1;
    }
}
