// What lets a summary or title start, and the time limit of a request.
#include "generation/LocalSummary.h"

#include "ScriptedLanguageModel.h"
#include "support/QtPrinters.h"

#include <QElapsedTimer>

#include <gtest/gtest.h>

using namespace kestil;
using Reason = LanguageModel::UnavailableReason;
using State = LocalSummary::ModelStatus::State;

namespace {

const QLocale english("en_US");

QString refusal(Reason reason)
{
    return QStringLiteral("On-device summaries unavailable: %1. Your notes and transcripts remain available.")
        .arg(reason == Reason::modelNotReady           ? "modelNotReady"
             : reason == Reason::languageModelDisabled ? "languageModelDisabled"
                                                       : "deviceNotEligible");
}

QString failure(const std::function<void()> &run)
{
    try {
        run();
    } catch (const LocalError &error) {
        return error.message();
    }
    return "(no error)";
}

} // namespace

TEST(LocalSummaryReadiness, NamesTheReasonOrTheLanguageAndSortsReasonsIntoCurableAndNot)
{
    const QString otherLanguage = "The on-device summary model does not support this language.";
    ScriptedLanguageModel model;
    EXPECT_FALSE(LocalSummary::readiness(model, english).has_value());
    EXPECT_EQ(LocalSummary::readiness(model, QLocale("ja_JP")), otherLanguage);
    auto status = LocalSummary::modelStatus(model, english);
    EXPECT_EQ(status.state, State::available);
    EXPECT_EQ(status.statusLine, "On-device summaries ready.");
    EXPECT_FALSE(LocalSummary::onboardingText(model, english).has_value());
    // Available but not in this language: still available, with the refusal shown.
    status = LocalSummary::modelStatus(model, QLocale("ko_KR"));
    EXPECT_EQ(status.state, State::available);
    EXPECT_EQ(status.statusLine, otherLanguage);
    EXPECT_EQ(LocalSummary::onboardingText(model, QLocale("ko_KR")),
              "The on-device language model does not support the selected language for summaries. You can "
              "choose another language in Settings.");

    for (const auto &[reason, state] : {std::pair{Reason::deviceNotEligible, State::unavailableForGood},
                                        {Reason::modelNotReady, State::unavailableButCurable},
                                        {Reason::languageModelDisabled, State::unavailableButCurable}}) {
        model.availabilityValue = LanguageModel::Availability::unavailable(reason);
        // The model's own state comes before the language.
        EXPECT_EQ(LocalSummary::readiness(model, QLocale("ja_JP")), refusal(reason));
        status = LocalSummary::modelStatus(model, english);
        EXPECT_EQ(status.state, state);
        EXPECT_EQ(status.statusLine, refusal(reason));
        EXPECT_TRUE(LocalSummary::onboardingText(model, english).has_value());
    }
}

// A stalled request, or one stopped by cancelling its job, is the pipeline's;
// a request queued behind another is the real model's too.
TEST(LocalSummaryTimeLimit, CountsFromWhenTheModelTakesTheRequestUp)
{
    // Queued for 150 ms behind other work, then answered in 50 ms: within a
    // limit of 100 ms, and the wait is told to the watcher.
    QList<bool> waits;
    const CancellationToken job =
        CancellationToken().watchingWaits([&](bool waiting) { waits.append(waiting); });
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(LocalSummary::withTimeLimit(std::chrono::milliseconds(100), "late", job,
                                          [](const CancellationToken &limited) {
                                              limited.setWaiting(true);
                                              std::this_thread::sleep_for(std::chrono::milliseconds(150));
                                              limited.setWaiting(false);
                                              limited.beginWork();
                                              std::this_thread::sleep_for(std::chrono::milliseconds(50));
                                              limited.checkCancellation();
                                              return "done";
                                          }),
              "done");
    EXPECT_GE(timer.elapsed(), 200);
    EXPECT_EQ(waits, (QList<bool>{true, false}));
}

TEST(LocalSummaryTitle, AsksWithTheStartOfTheSummaryAndKeepsUpToAHundredCharacters)
{
    ScriptedLanguageModel model;
    const auto title = [&](const QString &summary = "## Summary\nBudget review.") {
        return LocalSummary::generateTitle(model, summary, english, {}, std::chrono::milliseconds(100));
    };
    const auto record = [](const QString &text) -> ScriptedLanguageModel::Reply {
        return QJsonObject{{"title", text}};
    };
    model.replies = {record("  Budget\nreview   for Q3 ")};
    EXPECT_EQ(title("```md\n" + QString(3000, QLatin1Char('b')) + "\n```"), "Budget review for Q3");
    ASSERT_EQ(model.requests.size(), 1);
    EXPECT_EQ(model.requests.first().prompt,
              "Create a title for this note summary:\n" + QString(2400, QLatin1Char('b')));
    EXPECT_TRUE(model.requests.first().structured);

    // Cut at a hundred characters, not code units; otherwise what the model wrote.
    const QString hundred = QString(99, QLatin1Char('t')) + "e\u0301";
    model.replies = {record(hundred + "xyz"), record("untitled"), record("\"**Launch** plan\"")};
    for (const QString &expected : {hundred, QString("untitled"), QString("\"**Launch** plan\"")})
        EXPECT_EQ(title(), expected);

    const QString none = "The on-device model returned no descriptive title.";
    model.replies = {record("Untitled  Note"), record("Untitled"), record(" \n "),
                     ScriptedLanguageModel::Stall{}};
    for (const QString &expected :
         {none, none, none, QString("Title generation took too long and was stopped.")})
        EXPECT_EQ(failure([&] { title(); }), expected);
    for (const char *summary : {"```markdown", "  \n"})
        EXPECT_EQ(failure([&] { title(summary); }), "A summary is required to generate a title.");
    model.availabilityValue = LanguageModel::Availability::unavailable(Reason::deviceNotEligible);
    EXPECT_EQ(failure([&] { title(); }), refusal(Reason::deviceNotEligible));
}
