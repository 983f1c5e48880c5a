// kestil-diarisation-worker --segmentation MODEL --embedding MODEL --samples N
//     [--threads N] [--speakers N] [--threshold D] [--window-shift R]
//     [--min-speech S] [--min-pause S]
//
// Runs sherpa-onnx's offline speaker diarisation for SherpaSpeakerDiarizer,
// in a process of its own: the runtime ends its process on some malformed
// models and cannot be stopped half-way, and a helper can simply be killed.
//
// Reads N mono 32-bit float samples at 16 kHz (native byte order) from
// standard input and writes its answer to standard output as lines:
//   load embedding          checking the embedding model
//   load segmentation       loading both models into the pipeline
//   ready                   both loaded; reading the audio and working
//   progress DONE TOTAL     voices described so far, out of all
//   turn START END SPEAKER  one turn, seconds and the runtime's speaker label
//   done                    every turn written
// A process that ends while it says "load …" could not use that model.
// Whatever the runtime prints itself goes to standard error.
#include "sherpa-onnx/c-api/c-api.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <sys/prctl.h>
#include <unistd.h>

namespace {

FILE *answer = nullptr;

void say(const char *line)
{
    std::fprintf(answer, "%s\n", line);
    std::fflush(answer);
}

int32_t reportProgress(int32_t done, int32_t total, void *)
{
    std::fprintf(answer, "progress %d %d\n", done, total);
    std::fflush(answer);
    return 0;
}

bool readSamples(std::vector<float> &samples)
{
    auto *bytes = reinterpret_cast<char *>(samples.data());
    const std::size_t wanted = samples.size() * sizeof(float);
    std::size_t got = 0;
    while (got < wanted) {
        const ssize_t n = ::read(STDIN_FILENO, bytes + got, wanted - got);
        if (n == 0)
            return false;
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        got += std::size_t(n);
    }
    return true;
}

// The runtime reads 0 as "my default": a length of no consequence stands for
// "keep every turn" and "bridge no pause".
float seconds(double value)
{
    return value > 0 ? float(value) : 1e-4f;
}

} // namespace

int main(int argc, char **argv)
{
    // Dies with Kestil: a helper left alone would only burn the processor.
    // (The signal follows the thread that started the helper, and that
    // thread waits for the helper to end, so it comes only when Kestil ends.)
    prctl(PR_SET_PDEATHSIG, SIGKILL);

    // The answer keeps the real standard output; the runtime's own printing
    // goes to standard error.
    answer = fdopen(dup(STDOUT_FILENO), "w");
    if (!answer || dup2(STDERR_FILENO, STDOUT_FILENO) < 0)
        return 2;

    std::string segmentation;
    std::string embedding;
    long long sampleCount = -1;
    int threads = 2;
    int speakers = 0;
    double threshold = 0.5;
    double windowShift = 0.1;
    double minimumSpeech = 0.3;
    double minimumPause = 0.5;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string_view name = argv[i];
        const char *value = argv[i + 1];
        if (name == "--segmentation")
            segmentation = value;
        else if (name == "--embedding")
            embedding = value;
        else if (name == "--samples")
            sampleCount = std::atoll(value);
        else if (name == "--threads")
            threads = std::atoi(value);
        else if (name == "--speakers")
            speakers = std::atoi(value);
        else if (name == "--threshold")
            threshold = std::atof(value);
        else if (name == "--window-shift")
            windowShift = std::atof(value);
        else if (name == "--min-speech")
            minimumSpeech = std::atof(value);
        else if (name == "--min-pause")
            minimumPause = std::atof(value);
        else {
            std::fprintf(stderr, "kestil-diarisation-worker: unknown option %s\n", argv[i]);
            return 2;
        }
    }
    if (segmentation.empty() || embedding.empty() || sampleCount < 0 || sampleCount > INT32_MAX ||
        threads < 1) {
        std::fprintf(stderr, "usage: kestil-diarisation-worker --segmentation MODEL --embedding MODEL "
                             "--samples N [--threads N] [--speakers N] [--threshold D] [--window-shift R] "
                             "[--min-speech S] [--min-pause S]\n");
        return 2;
    }

    // The pipeline accepts any file as its embedding model and fails only
    // when it first uses it, so the model is tried alone first.
    say("load embedding");
    SherpaOnnxSpeakerEmbeddingExtractorConfig extractorConfig;
    std::memset(&extractorConfig, 0, sizeof extractorConfig);
    extractorConfig.model = embedding.c_str();
    extractorConfig.num_threads = 1;
    extractorConfig.provider = "cpu";
    const SherpaOnnxSpeakerEmbeddingExtractor *extractor =
        SherpaOnnxCreateSpeakerEmbeddingExtractor(&extractorConfig);
    if (!extractor || SherpaOnnxSpeakerEmbeddingExtractorDim(extractor) <= 0)
        return 3;
    SherpaOnnxDestroySpeakerEmbeddingExtractor(extractor);

    say("load segmentation");
    SherpaOnnxOfflineSpeakerDiarizationConfig config;
    std::memset(&config, 0, sizeof config);
    config.segmentation.pyannote.model = segmentation.c_str();
    config.segmentation.pyannote.window_shift_ratio = float(windowShift);
    config.segmentation.num_threads = threads;
    config.segmentation.provider = "cpu";
    config.embedding.model = embedding.c_str();
    config.embedding.num_threads = threads;
    config.embedding.provider = "cpu";
    config.clustering.num_clusters = speakers > 0 ? speakers : -1;
    config.clustering.threshold = float(threshold);
    config.min_duration_on = seconds(minimumSpeech);
    config.min_duration_off = seconds(minimumPause);
    const SherpaOnnxOfflineSpeakerDiarization *diarization =
        SherpaOnnxCreateOfflineSpeakerDiarization(&config);
    if (!diarization)
        return 3;
    say("ready");

    std::vector<float> samples(static_cast<std::size_t>(sampleCount));
    if (!readSamples(samples)) {
        std::fprintf(stderr, "kestil-diarisation-worker: the audio ended before %lld samples\n", sampleCount);
        return 4;
    }
    const SherpaOnnxOfflineSpeakerDiarizationResult *result =
        SherpaOnnxOfflineSpeakerDiarizationProcessWithCallback(
            diarization, samples.data(), int32_t(samples.size()), reportProgress, nullptr);
    if (!result)
        return 5;
    const int32_t count = SherpaOnnxOfflineSpeakerDiarizationResultGetNumSegments(result);
    if (count > 0) {
        const SherpaOnnxOfflineSpeakerDiarizationSegment *segments =
            SherpaOnnxOfflineSpeakerDiarizationResultSortByStartTime(result);
        for (int32_t i = 0; i < count; ++i)
            std::fprintf(answer, "turn %.3f %.3f %d\n", double(segments[i].start), double(segments[i].end),
                         segments[i].speaker);
        SherpaOnnxOfflineSpeakerDiarizationDestroySegment(segments);
    }
    say("done");
    SherpaOnnxOfflineSpeakerDiarizationDestroyResult(result);
    SherpaOnnxDestroyOfflineSpeakerDiarization(diarization);
    return std::fclose(answer) == 0 ? 0 : 6;
}
