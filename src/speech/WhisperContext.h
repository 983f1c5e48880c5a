#pragma once

#include "WhisperModelFile.h"

#include <QByteArray>
#include <QString>

#include <whisper.h>

struct whisper_context;

namespace kestil {

// A loaded whisper.cpp model, shared by the live and the whole-file engines.
class WhisperContext {
public:
    // Checks the model file before whisper.cpp reads it (whisper.cpp trusts its
    // input), checks that it knows `language` (whisper.cpp's code), and loads
    // it for the processor. Throws LocalError or SystemError naming the file.
    WhisperContext(const QString &modelPath, const QString &language);
    ~WhisperContext();
    WhisperContext(const WhisperContext &) = delete;
    WhisperContext &operator=(const WhisperContext &) = delete;

    whisper_context *get() const { return context_; }
    const QByteArray &language() const { return language_; }
    // Greedy decoding of the model's language, quiet, never translated or
    // detected, blanks and non-speech tokens suppressed: what every reading
    // of Kestil's starts from. The parameters point into this context.
    whisper_full_params greedyParams(int threads) const;
    const WhisperModelFile &file() const { return file_; }

    // Decoder threads: `requested` when above 0, else half the cores there
    // are, at least 1 and at most 4. ggml's threads wait for each other by
    // spinning, which turns slow when they outnumber the cores left free by
    // the rest of the desktop (capture, the interface, a summary running).
    static int threads(int requested);

    // Whisper marks what it hears but cannot transcribe in brackets:
    // "[BLANK_AUDIO]", "(music)", "*applause*", "♪". Those are not words of
    // the note.
    static bool isSoundMarker(const QString &text);

private:
    WhisperModelFile file_;
    QByteArray language_;
    whisper_context *context_ = nullptr;
};

} // namespace kestil
