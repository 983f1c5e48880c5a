#pragma once

#include <QString>

namespace kestil {

// What the header of a whisper.cpp model file says, and whether the file holds
// every tensor that header promises.
struct WhisperModelFile {
    int vocabularySize = 0;
    int audioContext = 0;
    int audioState = 0;
    int audioHeads = 0;
    int audioLayers = 0;
    int textContext = 0;
    int textState = 0;
    int textHeads = 0;
    int textLayers = 0;
    int melBands = 0;
    int fileType = 0;
    int tensorCount = 0;
    qint64 fileSize = 0;

    bool isMultilingual() const { return vocabularySize >= 51865; }
};

// Reads a model file's header and walks its tensor table without loading any
// weights, so that a file that is truncated, padded, or not a whisper model at
// all is refused before whisper.cpp reads it (which trusts its input). Throws
// LocalError naming the file.
WhisperModelFile inspectWhisperModelFile(const QString &path);

} // namespace kestil
