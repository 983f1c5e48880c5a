#pragma once

#include "SpeakerDiarizer.h"

#include <QString>

namespace kestil {

// The helper program that runs sherpa-onnx for SherpaSpeakerDiarizer, where
// the installation puts it relative to the running program:
// <program folder>/../libexec/kestil/kestil-diarisation-worker. The build tree
// keeps the same layout (build/src/shell/kestil and
// build/src/libexec/kestil/kestil-diarisation-worker).
QString diarisationWorkerPath();

// Speaker diarisation on this computer with sherpa-onnx's offline pipeline
// (SherpaOnnxCreateOfflineSpeakerDiarization): pyannote's segmentation model
// finds who of up to three people speaks in each 10-second window, a speaker
// embedding model describes each person's voice in each window, and
// agglomerative clustering of those descriptions decides which windows share a
// voice, by a distance threshold or, when the number of people is known, into
// that many groups.
//
// The runtime ends its process on some malformed models and ignores the
// return value of its progress callback, so it runs in a helper process of
// its own (kestil-diarisation-worker): a bad model file becomes a sentence
// for the user instead of the end of Kestil, and cancelling stops the work at
// once, whatever stage it is in. The audio reaches the helper through a
// socket; the turns come back as text lines.
//
// Progress is 0 once the models are loaded, then the share of voice
// descriptions made: the runtime says nothing while it finds where people
// speak (about a fifth of the time with Kestil's settings), and the
// clustering after the last description takes a moment more.
class SherpaSpeakerDiarizer : public SpeakerDiarizer {
public:
    struct Options {
        // pyannote segmentation 3.0 as ONNX, with the metadata sherpa-onnx reads.
        QString segmentationModel;
        // A speaker embedding model as ONNX (CAM++ in Kestil's tests), with
        // the metadata sherpa-onnx reads.
        QString embeddingModel;
        QString workerPath = diarisationWorkerPath();
        // Inference threads of each model.
        int threads = 2;
        // The number of people when it is known; 0 lets the threshold decide.
        int speakers = 0;
        // The largest distance between two descriptions of a voice at which
        // they still count as one person. In the test conversations 0.4 and
        // 0.5 found the right number of people at window shifts up to 0.5,
        // 0.3 split one person in two and 0.6 joined two people once the
        // shift grew; the lower of the two keeps apart voices as close as
        // espeak-ng's "en-us" and "en-us+klatt".
        double clusteringThreshold = 0.4;
        // How far the 10-second segmentation window moves each step, as a
        // share of its length. Each step costs one segmentation and one
        // embedding per voice heard in it: the runtime's 0.1 looks at every
        // second ten times; 0.25 costs less than half as much and found the
        // turns as well.
        double windowShift = 0.25;
        // Turns shorter than this many seconds are dropped; 0 keeps every one
        // (and then a cough can become a speaker of its own).
        double minimumSpeech = 0.3;
        // Pauses shorter than this many seconds inside one person's speech are
        // bridged; 0 bridges none.
        double minimumPause = 0.5;
    };

    // The settings sherpa-onnx itself starts from (one thread per model, a
    // threshold of 0.5, a window shift of 0.1, 0.3 s and 0.5 s), where
    // Options' own defaults are Kestil's, tuned on two cores.
    static Options runtimeDefaults(QString segmentationModel, QString embeddingModel);

    explicit SherpaSpeakerDiarizer(Options options);

    const Options &options() const { return options_; }
    // What the helper used in the last run that ended, for measurements.
    struct HelperUsage {
        double peakMegabytes = 0;
        // Processor time of all its threads together.
        double processorSeconds = 0;
    };
    const HelperUsage &lastHelperUsage() const { return lastRun_; }

    std::vector<SpeakerTurn> diarize(std::span<const float> samples, double sampleRate,
                                     const Progress &progress = {},
                                     const CancelCheck &cancelled = {}) override;

private:
    Options options_;
    HelperUsage lastRun_;
};

} // namespace kestil
