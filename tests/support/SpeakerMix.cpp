#include "support/SpeakerMix.h"

#include "speech/StreamResampler.h"
#include "support/SoundFiles.h"

#include <QDir>
#include <QStringList>
#include <QTemporaryDir>

#include <algorithm>
#include <cmath>
#include <map>
#include <random>

namespace kestil::test {

namespace {

constexpr double rate = 16000.0;
constexpr std::size_t frame = 160; // 10 ms

std::vector<float> at16kHz(const SoundFile &sound)
{
    std::vector<float> mono = sound.mono();
    if (sound.sampleRate == int(rate))
        return mono;
    StreamResampler resampler(sound.sampleRate, rate);
    std::vector<float> out;
    resampler.process(mono, out);
    resampler.flush(out);
    return out;
}

// Cut to the frames within 35 dB of the loudest one, then scaled to one
// speaking level (RMS 0.05 over what is left).
std::vector<float> phrase(std::vector<float> samples)
{
    std::vector<double> levels;
    for (std::size_t at = 0; at + frame <= samples.size(); at += frame) {
        double sum = 0;
        for (std::size_t i = at; i < at + frame; ++i)
            sum += double(samples[i]) * samples[i];
        levels.push_back(std::sqrt(sum / frame));
    }
    if (levels.empty())
        return {};
    const double floor = *std::max_element(levels.begin(), levels.end()) * std::pow(10.0, -35.0 / 20.0);
    const auto first = std::size_t(
        std::find_if(levels.begin(), levels.end(), [&](double l) { return l > floor; }) - levels.begin());
    const auto last = levels.size() - std::size_t(std::find_if(levels.rbegin(), levels.rend(),
                                                               [&](double l) { return l > floor; }) -
                                                  levels.rbegin());
    if (first >= last)
        return {}; // silent throughout
    std::vector<float> cut(samples.begin() + std::ptrdiff_t(first * frame),
                           samples.begin() + std::ptrdiff_t(last * frame));
    double sum = 0;
    for (float s : cut)
        sum += double(s) * s;
    const double gain = 0.05 / std::max(1e-9, std::sqrt(sum / double(cut.size())));
    for (float &s : cut)
        s = std::clamp(float(s * gain), -0.95f, 0.95f);
    return cut;
}

void addPhrase(Voice &voice, std::vector<float> samples)
{
    std::vector<float> said = phrase(std::move(samples));
    if (!said.empty())
        voice.phrases.push_back(std::move(said));
}

const QStringList meetingSentences{
    QStringLiteral(
        "We should schedule another meeting next week to discuss the budget for the new building."),
    QStringLiteral(
        "Thank you all for joining the call this morning, let us review the action items from last "
        "time."),
    QStringLiteral("I think we need more time before we can give the client a firm answer."),
    QStringLiteral("The numbers for the third quarter look better than we expected."),
    QStringLiteral("Could you send me the report by Friday so that I can read it over the weekend?"),
    QStringLiteral("Our team finished the first version of the design and is waiting for feedback."),
    QStringLiteral("The supplier raised their prices again, which puts pressure on our margins."),
    QStringLiteral("Let us agree on the main goals first and leave the details for later."),
    QStringLiteral("Marketing wants to launch the campaign at the beginning of the spring."),
    QStringLiteral("I am worried that the testing phase is too short for a change of this size."),
    QStringLiteral("Please write down every question so that we can answer them all in one message."),
    QStringLiteral("That sounds reasonable to me, as long as we keep the customers informed."),
};

} // namespace

Voice libriVoxReader()
{
    Voice voice{QStringLiteral("LibriVox reader"), {}};
    const QDir dir(QStringLiteral("/usr/share/pocketsphinx/test/data/librivox"));
    for (const QString &name : dir.entryList({QStringLiteral("*.wav")}, QDir::Files, QDir::Name)) {
        if (const std::optional<SoundFile> sound = readSoundFile(dir.filePath(name)))
            addPhrase(voice, at16kHz(*sound));
    }
    return voice;
}

Voice espeakVoice(const QString &name)
{
    Voice voice{QStringLiteral("espeak-ng ") + name, {}};
    QTemporaryDir dir;
    for (const QString &sentence : meetingSentences) {
        const QString wav = dir.filePath(QStringLiteral("phrase.wav"));
        if (!synthesizeSpeech(sentence, wav, nullptr, name))
            return Voice{voice.name, {}};
        if (const std::optional<SoundFile> sound = readSoundFile(wav))
            addPhrase(voice, at16kHz(*sound));
    }
    return voice;
}

SpeakerMix speakerMix(std::span<const Voice> voices, std::span<const int> order, unsigned seed)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> pause(0.3, 1.2);
    std::normal_distribution<float> room(0.0f, 0.0005f);
    SpeakerMix mix;
    std::vector<std::size_t> next(voices.size(), 0);
    std::map<int, int> numbers;
    const auto quiet = [&](double seconds) {
        mix.samples.resize(mix.samples.size() + std::size_t(seconds * rate));
    };
    quiet(pause(random));
    for (const int v : order) {
        const Voice &voice = voices[std::size_t(v)];
        if (voice.phrases.empty())
            continue;
        const std::vector<float> &said = voice.phrases[next[std::size_t(v)]++ % voice.phrases.size()];
        const double start = mix.seconds();
        mix.samples.insert(mix.samples.end(), said.begin(), said.end());
        const int speaker = numbers.try_emplace(v, int(numbers.size())).first->second;
        mix.turns.push_back(SpeakerTurn{start, mix.seconds(), speaker});
        quiet(pause(random));
    }
    for (float &s : mix.samples)
        s += room(random);
    return mix;
}

SpeakerMix conversation(std::span<const Voice> voices, double seconds, unsigned seed)
{
    if (voices.empty())
        return {};
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> length(1, 3);
    std::uniform_int_distribution<int> other(1, std::max(1, int(voices.size()) - 1));
    // Turns enough for the length (pauses average 0.75 s), then cut to it.
    std::vector<int> order;
    std::vector<std::size_t> next(voices.size(), 0);
    int voice = 0;
    for (double planned = 0; planned < seconds + 10;) {
        const Voice &speaking = voices[std::size_t(voice)];
        if (speaking.phrases.empty())
            return {};
        for (int n = length(random); n > 0; --n) {
            order.push_back(voice);
            planned +=
                double(speaking.phrases[next[std::size_t(voice)]++ % speaking.phrases.size()].size()) / rate +
                0.75;
        }
        if (voices.size() > 1)
            voice = (voice + other(random)) % int(voices.size());
    }
    SpeakerMix mix = speakerMix(voices, order, seed);
    const auto total = std::size_t(seconds * rate);
    if (mix.samples.size() > total) {
        mix.samples.resize(total);
        std::erase_if(mix.turns, [&](const SpeakerTurn &t) { return t.start >= seconds; });
        for (SpeakerTurn &t : mix.turns)
            t.end = std::min(t.end, seconds);
    }
    return mix;
}

} // namespace kestil::test
