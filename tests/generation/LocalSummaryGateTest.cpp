#include "generation/LocalSummary.h"

#include "ScriptedLanguageModel.h"
#include "support/QtPrinters.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

using namespace kestil;
using Reason = LanguageModel::UnavailableReason;

TEST(LocalSummaryReadiness, NamesTheReasonOrTheLanguage)
{
    ScriptedLanguageModel model;
    const QLocale english("en_US");
    EXPECT_FALSE(LocalSummary::readiness(model, english).has_value());
    EXPECT_EQ(LocalSummary::readiness(model, QLocale("ja_JP")),
              "The on-device summary model does not support this language.");
    model.availabilityValue = LanguageModel::Availability::unavailable(Reason::modelNotReady);
    EXPECT_EQ(LocalSummary::readiness(model, english),
              "On-device summaries unavailable: modelNotReady. Your notes and transcripts remain available.");
    model.availabilityValue = LanguageModel::Availability::unavailable(Reason::languageModelDisabled);
    EXPECT_EQ(LocalSummary::readiness(model, QLocale("ja_JP")),
              "On-device summaries unavailable: languageModelDisabled. Your notes and transcripts remain "
              "available.");
}

TEST(LocalSummaryReadiness, LaunchStatusSortsReasonsIntoCurableAndNot)
{
    ScriptedLanguageModel model;
    const QLocale english("en_US");
    auto status = LocalSummary::modelStatus(model, english);
    EXPECT_EQ(status.state, LocalSummary::ModelStatus::State::available);
    EXPECT_EQ(status.statusLine, "On-device summaries ready.");
    EXPECT_FALSE(LocalSummary::onboardingText(model, english).has_value());

    model.availabilityValue = LanguageModel::Availability::unavailable(Reason::deviceNotEligible);
    status = LocalSummary::modelStatus(model, english);
    EXPECT_EQ(status.state, LocalSummary::ModelStatus::State::unavailableForGood);
    EXPECT_EQ(
        status.statusLine,
        "On-device summaries unavailable: deviceNotEligible. Your notes and transcripts remain available.");

    for (Reason reason : {Reason::modelNotReady, Reason::languageModelDisabled}) {
        model.availabilityValue = LanguageModel::Availability::unavailable(reason);
        status = LocalSummary::modelStatus(model, english);
        EXPECT_EQ(status.state, LocalSummary::ModelStatus::State::unavailableButCurable);
        EXPECT_EQ(status.refusal, status.statusLine);
        EXPECT_TRUE(LocalSummary::onboardingText(model, english).has_value());
    }

    // Available but not in this language: still available, with the refusal shown.
    model.availabilityValue = LanguageModel::Availability::available();
    status = LocalSummary::modelStatus(model, QLocale("ko_KR"));
    EXPECT_EQ(status.state, LocalSummary::ModelStatus::State::available);
    EXPECT_EQ(status.statusLine, "The on-device summary model does not support this language.");
    EXPECT_EQ(
        LocalSummary::onboardingText(model, QLocale("ko_KR")),
        "The on-device language model does not support the selected language for summaries. You can choose "
        "another language in Settings.");
}

TEST(LocalSummaryTimeLimit, AValueBeforeTheLimitWins)
{
    EXPECT_EQ(LocalSummary::withTimeLimit(std::chrono::milliseconds(500), "late", CancellationToken(),
                                          [](const CancellationToken &) { return "done"; }),
              "done");
}

TEST(LocalSummaryTimeLimit, AStalledOperationFailsWithTheMessageAtTheLimit)
{
    QElapsedTimer timer;
    timer.start();
    try {
        LocalSummary::withTimeLimit(std::chrono::milliseconds(100), "Took too long.", CancellationToken(),
                                    [](const CancellationToken &limited) {
                                        limited.beginWork();
                                        while (!limited.isCancelled())
                                            std::this_thread::sleep_for(std::chrono::milliseconds(1));
                                        throw CancellationError();
                                        return QString();
                                    });
        FAIL() << "no time limit";
    } catch (const LocalError &error) {
        EXPECT_EQ(error.message(), "Took too long.");
    }
    EXPECT_GE(timer.elapsed(), 95);
    EXPECT_LT(timer.elapsed(), 1000);
}

TEST(LocalSummaryTimeLimit, CountsFromWhenTheModelTakesTheRequestUp)
{
    // A request queued for 150 ms behind other work, then answered in 50 ms,
    // keeps within a limit of 100 ms; its wait is told to the watcher.
    QList<bool> waits;
    const CancellationToken job =
        CancellationToken().watchingWaits([&](bool waiting) { waits.append(waiting); });
    QElapsedTimer timer;
    timer.start();
    const QString answer = LocalSummary::withTimeLimit(
        std::chrono::milliseconds(100), "late", job, [](const CancellationToken &limited) {
            limited.setWaiting(true);
            std::this_thread::sleep_for(std::chrono::milliseconds(150));
            limited.setWaiting(false);
            limited.beginWork();
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            limited.checkCancellation();
            return "done";
        });
    EXPECT_EQ(answer, "done");
    EXPECT_GE(timer.elapsed(), 200);
    EXPECT_EQ(waits, (QList<bool>{true, false}));
}

TEST(LocalSummaryTimeLimit, CancellingTheJobIsNotATimeOut)
{
    CancellationToken job;
    std::thread canceller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        job.cancel();
    });
    EXPECT_THROW(LocalSummary::withTimeLimit(std::chrono::seconds(30), "late", job,
                                             [](const CancellationToken &limited) {
                                                 while (!limited.isCancelled())
                                                     std::this_thread::sleep_for(
                                                         std::chrono::milliseconds(1));
                                                 limited.checkCancellation();
                                                 return QString();
                                             }),
                 CancellationError);
    canceller.join();
    // Other failures pass through as they are.
    EXPECT_THROW(LocalSummary::withTimeLimit(
                     std::chrono::seconds(30), "late", CancellationToken(),
                     [](const CancellationToken &) -> QString { throw SystemError("Disk full."); }),
                 SystemError);
}
