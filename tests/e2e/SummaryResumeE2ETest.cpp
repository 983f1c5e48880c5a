// A long summary on the real SmolLM2 model, cut off by SIGKILL once the
// sections of the first pass are done, continued after the next launch: it
// ends in the same summary as a run that was never cut off (the model's
// sampling seed is fixed), and the sections kept from before the crash are not
// read again. The kill waits for the whole pass because its two sections are
// read together and their key points are kept in order: the short second
// section's wait for the first leaves no moment to kill in between. The run never cut
// off goes on at the same time in a display of its own: each program uses one
// core of two for the model.
#include "DesktopSession.h"
#include "RecordingE2ESupport.h"
#include "support/FileBytes.h"

#include "core/SharedPersistenceController.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

using namespace kestil;
using namespace Qt::StringLiterals;
using namespace kestil::testing;

namespace {

const QString modelFile = u"smollm2-135m-instruct-q4_1.gguf"_s;
const QString oldSummary = u"## Summary\nAn earlier summary of the meeting."_s;

QString modelPath()
{
    return QString::fromLocal8Bit(qgetenv("KESTIL_TEST_MODELS_DIR")) + QLatin1Char('/') + modelFile;
}

// Seven weeks of the product sync: the fewest whole weeks that do not fit one
// request. Of SmolLM2's 4096 tokens, 512 are kept for the answer and 256 as a
// margin; the instructions take 64 and the summary prompt with seven weeks
// 3319, six weeks 2873. So the first pass reads two sections (12,000 and
// 2,371 bytes: whole units of 2,400 bytes while they fit), and no more text
// than that needs.
QString longTranscript()
{
    const QString week =
        QString::fromUtf8(test::fileBytes(KESTIL_TEST_DATA_DIR "/generation/weekly-sync-transcript.txt"))
            .trimmed();
    QString text;
    for (int i = 1; i <= 7; ++i)
        text += u"Week %1 of the product sync.\n\n"_s.arg(i) + week + u"\n\n"_s;
    return text;
}

// One program with a data folder of its own: the model installed and one
// note that already has a summary, so that it opens on its Summary tab.
struct Program {
    QString data;
    QUuid note = QUuid::createUuid();
    DesktopSession desktop;
    QString window;
    QElapsedTimer clock;

    void prepare(const QString &folder, const QString &transcript)
    {
        data = folder;
        QDir().mkpath(data + u"/Models/language"_s);
        QFile::link(modelPath(), data + u"/Models/language/"_s + modelFile);
        SharedPersistenceController store(data);
        const NotePtr stored =
            store.createNote(u"Weekly product sync"_s, transcript, note, u"transcription"_s);
        stored->setValue(u"summary"_s, oldSummary);
        stored->setValue(u"summaryType"_s, u"meetings/general"_s);
        store.save();
    }
    // Ctrl+T opens the Templates menu at the note's template; Return chooses it.
    bool summarize()
    {
        if (!desktop.pressKeys(window, u"ctrl+t"_s))
            return false;
        QThread::msleep(800);
        desktop.xdotool({u"key"_s, u"Return"_s});
        clock.start();
        return true;
    }
    QString summary() const { return storedValue(data, u"SELECT summary FROM note"_s); }
    double seconds() const { return double(clock.elapsed()) / 1000.0; }
    QString checkpointPath() const
    {
        return data + u"/SummaryCheckpoints/"_s + note.toString(QUuid::WithoutBraces).toUpper() + u".json"_s;
    }
    // The kept checkpoint, as the file holds it now.
    QJsonObject checkpoint() const
    {
        return QJsonDocument::fromJson(test::fileBytes(checkpointPath()))
            .object()
            .value(u"checkpoint"_s)
            .toObject();
    }
};

} // namespace

TEST(SummaryResumeE2ETest, ASummaryKilledAfterASectionContinuesToTheSameSummary)
{
    ASSERT_TRUE(QFile::exists(modelPath()))
        << modelFile.toStdString() << " is missing: run scripts/test-models.sh";
    qputenv("KESTIL_LANGUAGE_MODEL_SEED", "7");
    const QString transcript = longTranscript();
    ASSERT_FALSE(transcript.isEmpty());
    QTemporaryDir work;
    Program straight, cut;
    for (auto [run, name] : {std::pair{&straight, "straight"}, {&cut, "cut"}}) {
        ASSERT_TRUE(run->desktop.started()) << "Xvfb did not start";
        run->prepare(work.filePath(QLatin1String(name)), transcript);
        run->window = run->desktop.launchKestil(run->data);
        ASSERT_FALSE(run->window.isEmpty()) << "no Kestil window appeared\n"
                                            << run->desktop.kestilOutput().toStdString();
    }
    ASSERT_TRUE(straight.summarize());
    ASSERT_TRUE(cut.summarize());

    // The run never cut off is timed whenever its summary arrives.
    double wholeJob = 0;
    const auto straightDone = [&] {
        if (wholeJob == 0 && straight.summary() != oldSummary)
            wholeJob = straight.seconds();
        return wholeJob > 0;
    };

    // The other is killed once the first pass's key points are kept.
    QJsonObject kept;
    qsizetype firstPassSections = 0;
    int polls = 0;
    ASSERT_TRUE(eventually(
        [&] {
            if (++polls % 10 == 0)
                straightDone();
            kept = cut.checkpoint();
            if (kept.value(u"pass"_s).toInt() == 0)
                firstPassSections = std::max(firstPassSections, kept.value(u"sections"_s).toArray().size());
            return kept.value(u"pass"_s).toInt() > 0;
        },
        400000, 20))
        << "no section was ever kept\n"
        << cut.desktop.kestilOutput().toStdString();
    cut.desktop.killKestil();
    const double beforeCrash = cut.seconds();
    EXPECT_GE(firstPassSections, 2) << "the transcript is long enough for two sections";
    kept = cut.checkpoint();
    ASSERT_FALSE(kept.isEmpty()) << "the kept checkpoint survives the kill";
    const int pass = kept.value(u"pass"_s).toInt();
    const qsizetype sections = kept.value(u"sections"_s).toArray().size();
    const qsizetype done = kept.value(u"facts"_s).toArray().size();
    EXPECT_EQ(cut.summary(), oldSummary) << "nothing of the cut-off job reached the note";

    // The next launch offers to go on; Continue Summary does.
    cut.window = cut.desktop.launchKestil(cut.data);
    ASSERT_FALSE(cut.window.isEmpty()) << "kestil did not start again after the kill\n"
                                       << cut.desktop.kestilOutput().toStdString();
    cut.desktop.screenshot(u"summary-resume-offer"_s);
    cut.clock.restart();
    ASSERT_TRUE(cut.desktop.pressKeys(cut.window, u"alt+c"_s));
    double continued = 0;
    ASSERT_TRUE(eventually(
        [&] {
            if (continued == 0 && cut.summary() != oldSummary)
                continued = cut.seconds();
            return straightDone() && continued > 0;
        },
        400000, 250))
        << "a summary never arrived\n"
        << straight.desktop.kestilOutput().toStdString() << cut.desktop.kestilOutput().toStdString();
    EXPECT_EQ(cut.summary(), straight.summary())
        << "the continued run ends in the summary of the run never cut off";
    EXPECT_TRUE(eventually([&] { return !QFile::exists(cut.checkpointPath()); }, 10000))
        << "a saved summary leaves nothing to continue";
    EXPECT_FALSE(cut.desktop.kestilOutput().contains(u"discarded"_s));

    std::printf(
        "[ resume   ] the whole job took %.1f s; killed after %.1f s, in pass %d with %lld of %lld sections "
        "kept (the first pass read %lld); the continued job took %.1f s: the kept work saved %.1f s\n",
        wholeJob, beforeCrash, pass, static_cast<long long>(done), static_cast<long long>(sections),
        static_cast<long long>(firstPassSections), continued, wholeJob - continued);
    EXPECT_LT(continued, wholeJob) << "continuing repeats none of the kept sections";
}
