#pragma once

// What the end-to-end tests share: speech to play, a look into the recording
// folders and the store file while kestil runs, and polling.

#include "support/SoundFiles.h"

#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QThread>

#include <sqlite3.h>

#include <functional>

namespace kestil::testing {

using namespace Qt::StringLiterals;

inline const QString firstPhrase = u"we should schedule another meeting next week to discuss the budget"_s;
inline const QString secondPhrase = u"please send the quarterly report to the finance team before friday"_s;
inline const QString thirdPhrase = u"the new office opens in march and everyone is invited"_s;

// espeak-ng's Klatt voice, which PocketSphinx's acoustic model hears best.
inline bool speak(const QString &text, const QString &wav)
{
    return test::synthesizeSpeech(text, wav, nullptr, u"en-us+klatt4"_s, 150);
}

// The share of the reference's words that were heard.
inline double wordsHeard(const QString &reference, const QString &heard)
{
    const auto wordsOf = [](const QString &text) {
        return text.toLower().split(QRegularExpression(u"[^a-z']+"_s), Qt::SkipEmptyParts);
    };
    const QStringList expected = wordsOf(reference);
    const QStringList got = wordsOf(heard);
    const QSet<QString> present(got.begin(), got.end());
    int found = 0;
    for (const QString &word : expected)
        found += present.contains(word) ? 1 : 0;
    return expected.isEmpty() ? 0 : double(found) / double(expected.size());
}

inline bool eventually(const std::function<bool()> &condition, int timeoutMs, int stepMs = 100)
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

// Recordings/<note>/<segment> folders that hold a manifest, oldest first;
// of one note when `note` is given.
inline QStringList segmentFolders(const QString &dataDir, const QString &note = {})
{
    QStringList result;
    QDir recordings(dataDir + u"/Recordings"_s);
    const QStringList notes =
        note.isEmpty() ? recordings.entryList(QDir::Dirs | QDir::NoDotAndDotDot) : QStringList{note};
    for (const QString &name : notes) {
        const auto segments =
            QDir(recordings.filePath(name))
                .entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Time | QDir::Reversed);
        for (const QFileInfo &segment : segments) {
            if (QFile::exists(segment.filePath() + u"/recording.json"_s))
                result << segment.filePath();
        }
    }
    return result;
}

inline bool manifestComplete(const QString &segment)
{
    QFile file(segment + u"/recording.json"_s);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    return QJsonDocument::fromJson(file.readAll()).object().value(u"complete"_s).toBool();
}

// The first column of the first row, read-only while kestil may be writing.
inline QString storedValue(const QString &dataDir, const QString &sql)
{
    QString value;
    const QByteArray query = sql.toUtf8();
    sqlite3 *db = nullptr;
    const QByteArray path = (dataDir + u"/KestilNotes.sqlite"_s).toUtf8();
    if (sqlite3_open_v2(path.constData(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(db, 2000);
        sqlite3_stmt *statement = nullptr;
        if (sqlite3_prepare_v2(db, query.constData(), -1, &statement, nullptr) == SQLITE_OK &&
            sqlite3_step(statement) == SQLITE_ROW) {
            const auto *text = sqlite3_column_text(statement, 0);
            value = text ? QString::fromUtf8(reinterpret_cast<const char *>(text)) : QString();
        }
        sqlite3_finalize(statement);
    }
    sqlite3_close(db);
    return value;
}

// The transcript of a note (by its folder's name, the id in capitals), or of
// the first one, as the store file holds it.
inline QString storedTranscript(const QString &dataDir, const QString &note = {})
{
    return storedValue(dataDir, u"SELECT transcription FROM note"_s +
                                    (note.isEmpty() ? QString() : u" WHERE id = '%1'"_s.arg(note)));
}

} // namespace kestil::testing
