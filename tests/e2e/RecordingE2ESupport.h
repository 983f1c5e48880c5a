#pragma once

// What the recording end-to-end tests share: speech to play, a look into the
// recording folders and the store file while kestil runs, and polling.

#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QThread>

#include <sqlite3.h>

#include <functional>
#include <optional>

namespace kestil::testing {

inline const QString firstPhrase =
    QStringLiteral("we should schedule another meeting next week to discuss the budget");
inline const QString secondPhrase =
    QStringLiteral("please send the quarterly report to the finance team before friday");
inline const QString thirdPhrase = QStringLiteral("the new office opens in march and everyone is invited");

// espeak-ng's Klatt voice, which PocketSphinx's acoustic model hears best.
inline bool speak(const QString &text, const QString &wav)
{
    QProcess espeak;
    espeak.setProcessChannelMode(QProcess::MergedChannels);
    espeak.start(QStringLiteral("espeak-ng"),
                 {QStringLiteral("-v"), QStringLiteral("en-us+klatt4"), QStringLiteral("-s"),
                  QStringLiteral("150"), QStringLiteral("-w"), wav, text});
    return espeak.waitForFinished(60000) && espeak.exitCode() == 0;
}

inline QStringList wordsOf(const QString &text)
{
    return text.toLower().split(QRegularExpression(QStringLiteral("[^a-z']+")), Qt::SkipEmptyParts);
}

// The share of the reference's words that were heard.
inline double wordsHeard(const QString &reference, const QString &heard)
{
    const QStringList expected = wordsOf(reference);
    const QStringList got = wordsOf(heard);
    const QSet<QString> present(got.begin(), got.end());
    int found = 0;
    for (const QString &word : expected)
        found += present.contains(word) ? 1 : 0;
    return expected.isEmpty() ? 0 : double(found) / double(expected.size());
}

// Polls until the condition holds or the time is up.
inline bool eventually(const std::function<bool()> &condition, int timeoutMs, int stepMs = 200)
{
    QElapsedTimer waited;
    waited.start();
    while (!condition()) {
        if (waited.elapsed() > timeoutMs)
            return false;
        QThread::msleep(stepMs);
    }
    return true;
}

// Recordings/<note>/<segment> folders that hold a manifest, oldest first.
inline QStringList segmentFolders(const QString &dataDir)
{
    QStringList result;
    QDir recordings(dataDir + QStringLiteral("/Recordings"));
    for (const QString &note : recordings.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QDir noteDir(recordings.filePath(note));
        const auto segments =
            noteDir.entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Time | QDir::Reversed);
        for (const QFileInfo &segment : segments) {
            if (QFile::exists(segment.filePath() + QStringLiteral("/recording.json")))
                result << segment.filePath();
        }
    }
    return result;
}

inline bool manifestComplete(const QString &segment)
{
    QFile file(segment + QStringLiteral("/recording.json"));
    if (!file.open(QIODevice::ReadOnly))
        return false;
    return QJsonDocument::fromJson(file.readAll()).object().value(QStringLiteral("complete")).toBool();
}

// A note row as the store file holds it, read by a read-only connection of
// its own while kestil may be writing.
struct StoredNote {
    QString id;
    QString transcription;
    QString utterancesJson;
};

inline QList<StoredNote> readStoredNotes(const QString &dataDir)
{
    QList<StoredNote> notes;
    sqlite3 *db = nullptr;
    const QByteArray path = (dataDir + QStringLiteral("/KestilNotes.sqlite")).toUtf8();
    if (sqlite3_open_v2(path.constData(), &db, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        return notes;
    }
    sqlite3_busy_timeout(db, 2000);
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(db, "SELECT id, transcription, transcriptUtterancesJSON FROM note", -1, &statement,
                           nullptr) == SQLITE_OK) {
        const auto text = [statement](int column) {
            const auto *value = sqlite3_column_text(statement, column);
            return value ? QString::fromUtf8(reinterpret_cast<const char *>(value)) : QString();
        };
        while (sqlite3_step(statement) == SQLITE_ROW)
            notes.append({text(0), text(1), text(2)});
    }
    sqlite3_finalize(statement);
    sqlite3_close(db);
    return notes;
}

} // namespace kestil::testing
