// The audio libraries link and do real work: libsndfile writes and reads a
// CAF file, libsoxr resamples, libpulse reports its version.
#include "support/SignalAnalysis.h"
#include "support/SoundFiles.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <pulse/sample.h>
#include <pulse/version.h>
#include <sndfile.h>
#include <soxr.h>

#include <cstring>

using namespace kestil::test;

TEST(CaptureLibraries, LibsndfileWritesAndReadsCaf)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("tone.caf"));
    const auto tone = sine(440, 48000, 4800);
    ASSERT_TRUE(writeSoundFile(path, SF_FORMAT_CAF | SF_FORMAT_FLOAT, 48000, 1, tone));
    const auto sound = readSoundFile(path);
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->format, SF_FORMAT_CAF | SF_FORMAT_FLOAT);
    EXPECT_EQ(sound->samples, tone);
    EXPECT_NE(std::strstr(sf_version_string(), "libsndfile"), nullptr);
}

TEST(CaptureLibraries, LibsoxrResamplesASine)
{
    const auto input = sine(1000, 48000, 48000);
    std::vector<float> output(16000 + 100);
    size_t done = 0;
    const soxr_io_spec_t io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
    const soxr_error_t error = soxr_oneshot(48000, 16000, 1, input.data(), input.size(), nullptr,
                                            output.data(), output.size(), &done, &io, nullptr, nullptr);
    ASSERT_EQ(error, nullptr) << error;
    EXPECT_NEAR(double(done), 16000, 2);
    output.resize(done);
    EXPECT_GT(toneShare(std::span<const float>(output).subspan(1000, 14000), 16000, 1000), 0.95);
}

TEST(CaptureLibraries, LibpulseReportsItsVersion)
{
    const std::string version = pa_get_library_version();
    EXPECT_FALSE(version.empty());
    const pa_sample_spec sampleSpec{PA_SAMPLE_FLOAT32LE, 48000, 2};
    EXPECT_NE(pa_sample_spec_valid(&sampleSpec), 0);
    EXPECT_EQ(pa_bytes_per_second(&sampleSpec), 48000u * 2 * 4);
}
