// A long summary on the real SmolLM2 model, cut off by SIGKILL once its first
// section is done, continued after the next launch: it ends in the same
// summary as a run that was never cut off (the model's sampling seed is
// fixed), and the sections kept from before the crash are not read again.
#include "DesktopSession.h"
#include "RecordingE2ESupport.h"

#include "core/SharedPersistenceController.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <cstdio>

using namespace kestil;
using namespace kestil::testing;

namespace {

const QString modelFile = QStringLiteral("smollm2-135m-instruct-q4_1.gguf");
const QString oldSummary = QStringLiteral("## Summary\nAn earlier summary of the meeting.");

QString modelPath()
{
    return QString::fromLocal8Bit(qgetenv("KESTIL_TEST_MODELS_DIR")) + QLatin1Char('/') + modelFile;
}

// Eleven weeks of the product sync: long enough for the model to read it in
// a few sections, each its own week.
QString longTranscript()
{
    QFile file(QStringLiteral(KESTIL_TEST_DATA_DIR "/generation/weekly-sync-transcript.txt"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const QString week = QString::fromUtf8(file.readAll()).trimmed();
    QString text;
    for (int i = 1; i <= 11; ++i)
        text += QStringLiteral("Week %1 of the product sync.\n\n").arg(i) + week + QStringLiteral("\n\n");
    return text;
}

// A data folder with the model installed and one note that already has a
// summary, so that it opens on its Summary tab.
QUuid prepare(const QString &data, const QString &transcript)
{
    QDir().mkpath(data + QStringLiteral("/Models/language"));
    QFile::link(modelPath(), data + QStringLiteral("/Models/language/") + modelFile);
    SharedPersistenceController store(data);
    const QUuid id = QUuid::createUuid();
    const NotePtr note = store.createNote(QStringLiteral("Weekly product sync"), transcript, id,
                                          QStringLiteral("transcription"));
    note->setValue(QStringLiteral("summary"), oldSummary);
    note->setValue(QStringLiteral("summaryType"), QStringLiteral("meetings/general"));
    store.save();
    return id;
}

QString storedSummary(const QString &data)
{
    QString value;
    sqlite3 *db = nullptr;
    const QByteArray path = (data + QStringLiteral("/KestilNotes.sqlite")).toUtf8();
    if (sqlite3_open_v2(path.constData(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_busy_timeout(db, 2000);
        sqlite3_stmt *statement = nullptr;
        if (sqlite3_prepare_v2(db, "SELECT summary FROM note", -1, &statement, nullptr) == SQLITE_OK &&
            sqlite3_step(statement) == SQLITE_ROW) {
            const auto *text = sqlite3_column_text(statement, 0);
            value = text ? QString::fromUtf8(reinterpret_cast<const char *>(text)) : QString();
        }
        sqlite3_finalize(statement);
    }
    sqlite3_close(db);
    return value;
}

QString checkpointPath(const QString &data, const QUuid &note)
{
    return data + QStringLiteral("/SummaryCheckpoints/") + note.toString(QUuid::WithoutBraces).toUpper() +
           QStringLiteral(".json");
}

// The kept checkpoint, as the file holds it now.
QJsonObject keptCheckpoint(const QString &data, const QUuid &note)
{
    QFile file(checkpointPath(data, note));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object().value(QStringLiteral("checkpoint")).toObject();
}

// Ctrl+T opens the Templates menu at the note's template; Return chooses it.
bool summarize(DesktopSession &desktop, const QString &window)
{
    if (!desktop.pressKeys(window, QStringLiteral("ctrl+t")))
        return false;
    QThread::msleep(800);
    desktop.run(QStringLiteral("xdotool"), {QStringLiteral("key"), QStringLiteral("Return")});
    return true;
}

} // namespace

TEST(SummaryResumeE2ETest, ASummaryKilledAfterASectionContinuesToTheSameSummary)
{
    ASSERT_TRUE(QFile::exists(modelPath()))
        << modelFile.toStdString() << " is missing: run scripts/test-models.sh";
    qputenv("KESTIL_LANGUAGE_MODEL_SEED", "7");
    DesktopSession desktop;
    ASSERT_TRUE(desktop.started()) << "Xvfb did not start";
    const QString transcript = longTranscript();
    ASSERT_GT(transcript.size(), 20000);
    QTemporaryDir work;

    // A run that is never cut off.
    const QString straight = work.filePath(QStringLiteral("straight"));
    prepare(straight, transcript);
    QString window = desktop.launchKestil(straight);
    ASSERT_FALSE(window.isEmpty()) << "no Kestil window appeared\n" << desktop.kestilOutput().toStdString();
    QElapsedTimer clock;
    clock.start();
    ASSERT_TRUE(summarize(desktop, window));
    ASSERT_TRUE(eventually([&] { return storedSummary(straight) != oldSummary; }, 400000, 250))
        << "the summary never arrived\n"
        << desktop.kestilOutput().toStdString();
    const double wholeJob = double(clock.elapsed()) / 1000.0;
    const QString expected = storedSummary(straight);
    desktop.stopKestil();

    // The same note, killed once a section's key points are kept.
    const QString cut = work.filePath(QStringLiteral("cut"));
    const QUuid note = prepare(cut, transcript);
    window = desktop.launchKestil(cut);
    ASSERT_FALSE(window.isEmpty());
    clock.restart();
    ASSERT_TRUE(summarize(desktop, window));
    QJsonObject kept;
    qsizetype firstPassSections = 0;
    ASSERT_TRUE(eventually(
        [&] {
            kept = keptCheckpoint(cut, note);
            if (kept.value(QStringLiteral("pass")).toInt() == 0)
                firstPassSections = kept.value(QStringLiteral("sections")).toArray().size();
            return !kept.value(QStringLiteral("facts")).toArray().isEmpty() ||
                   kept.value(QStringLiteral("pass")).toInt() > 0;
        },
        400000, 20))
        << "no section was ever kept\n"
        << desktop.kestilOutput().toStdString();
    desktop.killKestil();
    const double beforeCrash = double(clock.elapsed()) / 1000.0;
    kept = keptCheckpoint(cut, note);
    ASSERT_FALSE(kept.isEmpty()) << "the kept checkpoint survives the kill";
    const int pass = kept.value(QStringLiteral("pass")).toInt();
    const qsizetype sections = kept.value(QStringLiteral("sections")).toArray().size();
    const qsizetype done = kept.value(QStringLiteral("facts")).toArray().size();
    EXPECT_EQ(storedSummary(cut), oldSummary) << "nothing of the cut-off job reached the note";

    // The next launch offers to go on; Continue Summary does.
    window = desktop.launchKestil(cut);
    ASSERT_FALSE(window.isEmpty()) << "kestil did not start again after the kill\n"
                                   << desktop.kestilOutput().toStdString();
    desktop.screenshot(QStringLiteral("summary-resume-offer"));
    clock.restart();
    ASSERT_TRUE(desktop.pressKeys(window, QStringLiteral("alt+c")));
    ASSERT_TRUE(eventually([&] { return storedSummary(cut) != oldSummary; }, 400000, 250))
        << "the continued summary never arrived\n"
        << desktop.kestilOutput().toStdString();
    const double continued = double(clock.elapsed()) / 1000.0;
    EXPECT_EQ(storedSummary(cut), expected)
        << "the continued run ends in the summary of the run never cut off";
    EXPECT_TRUE(eventually([&] { return !QFile::exists(checkpointPath(cut, note)); }, 10000))
        << "a saved summary leaves nothing to continue";
    EXPECT_FALSE(desktop.kestilOutput().contains(QStringLiteral("discarded")));
    desktop.stopKestil();

    std::printf(
        "[ resume   ] the whole job took %.1f s; killed after %.1f s, in pass %d with %lld of %lld sections "
        "kept (the first pass read %lld); the continued job took %.1f s: the kept work saved %.1f s\n",
        wholeJob, beforeCrash, pass, static_cast<long long>(done), static_cast<long long>(sections),
        static_cast<long long>(firstPassSections), continued, wholeJob - continued);
    EXPECT_LT(continued, wholeJob) << "continuing repeats none of the kept sections";
}
