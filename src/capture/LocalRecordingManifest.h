#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <QUuid>

namespace kestil {

// The manifest of one recording segment, "recording.json". Written before the
// first sample, marked complete after the raw file was closed cleanly.
struct LocalRecordingManifest {
    QUuid noteID;
    // Seconds since 2001-01-01T00:00:00Z with a fractional part. Folders
    // written by earlier versions hold this encoding, so it is kept as the
    // number itself and never rounded through another date type.
    double createdAt = 0;
    double sampleRate = 0;
    bool complete = false;

    // Seconds between the Unix epoch and the manifest's reference date.
    static constexpr double referenceDateOffset = 978307200.0;

    static double referenceSecondsNow();
    QDateTime createdAtDate() const;

    // Whether the sample rate is a positive, finite number.
    bool hasValidSampleRate() const;

    // Compact JSON with the keys in this order: noteID, createdAt,
    // sampleRate, complete. Throws SystemError for a rate or date that JSON
    // cannot hold (NaN, infinity).
    QByteArray encode() const;

    // All four keys are required with their JSON types. Throws SystemError
    // naming what is wrong.
    static LocalRecordingManifest decode(const QByteArray &json);

    // The manifest of a segment folder; read errors and decoding errors are
    // thrown.
    static LocalRecordingManifest read(const QString &segment);

    // Writes "recording.json" into the segment atomically.
    void write(const QString &segment) const;

    friend bool operator==(const LocalRecordingManifest &, const LocalRecordingManifest &) = default;
};

} // namespace kestil
