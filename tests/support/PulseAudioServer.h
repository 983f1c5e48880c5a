#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>
#include <optional>
#include <vector>

namespace kestil::test {

// A private PulseAudio server for one test: its own runtime folder, no
// modules but those listed here, and no way to reach or disturb the user's
// own sound server. While it runs, this process's environment points every
// libpulse client (and paplay, pactl) at it.
//
// The devices:
//   speakers   a null sink, the default sink; what the computer "plays".
//   micFeed    a second null sink; what is played into it is what the
//              virtual microphone hears.
//   microphone micFeed's monitor, the default source. (A remap source over
//              the monitor would look more like a device, but PulseAudio
//              16 delivers nothing through it until its sink has played.)
class PulseAudioServer {
public:
    struct Options {
        int sampleRate = 48000;
        int speakerChannels = 2;
        int microphoneChannels = 1;
    };

    static constexpr const char *speakers = "kestil_speakers";
    static constexpr const char *micFeed = "kestil_mic_feed";
    static constexpr const char *microphone = "kestil_mic_feed.monitor";

    PulseAudioServer();
    explicit PulseAudioServer(Options options);
    // Stops the server and restores the environment.
    ~PulseAudioServer();

    PulseAudioServer(const PulseAudioServer &) = delete;
    PulseAudioServer &operator=(const PulseAudioServer &) = delete;

    // Whether the pulseaudio and paplay programs are installed.
    static bool available();

    // Starts the server and waits until it answers. Returns an empty string
    // on success, or what went wrong with the server's log.
    QString start();
    void stop();
    bool running() const { return pid_ > 0; }

    QString serverAddress() const;

    // Plays a sound file into a sink and waits until it has been played.
    // Returns false (with paplay's output in `error`) on failure.
    bool play(const QString &file, const QString &sink, QString *error = nullptr) const;

    // Starts playing a sound file into a sink and returns at once; the
    // caller waits for the process.
    std::unique_ptr<QProcess> startPlaying(const QString &file, const QString &sink) const;

    // Runs pactl with the arguments; returns its exit code (output in `out`).
    int pactl(const QStringList &arguments, QString *out = nullptr) const;

    // Freezes the server process (SIGSTOP), as a hung sound server is, or
    // lets it run again.
    void freeze(bool frozen) const;

    // Stops the default sink (and so its monitor) from delivering anything,
    // as an idle, suspended output does; false resumes it.
    bool suspendSpeakers(bool suspended) const;

private:
    void restoreEnvironment();
    QString keepWarm(const QStringList &sources);

    Options options_;
    std::unique_ptr<QTemporaryDir> directory_;
    qint64 pid_ = 0;
    std::vector<std::unique_ptr<QProcess>> warmers_;
    struct Saved {
        QByteArray name;
        std::optional<QByteArray> value;
    };
    QList<Saved> savedEnvironment_;
};

} // namespace kestil::test
