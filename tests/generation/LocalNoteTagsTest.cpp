// Tags for a note, and the words, nouns and names of its text they come from.
#include "generation/LocalNoteTags.h"
#include "generation/GeneratedNoteTags.h"
#include "generation/PartOfSpeechTagger.h"
#include "generation/TextWords.h"

#include "ScriptedLanguageModel.h"
#include "support/QtPrinters.h"

#include <QJsonArray>

#include <gtest/gtest.h>

using namespace kestil;
namespace Tags = LocalNoteTags;
using Kind = PartOfSpeechTagger::Token::Kind;

namespace {

QString words(int count)
{
    QStringList list;
    for (int i = 0; i < count; ++i)
        list.append(QStringLiteral("word%1").arg(i));
    return list.join(QLatin1Char(' '));
}

QStringList texts(const QList<PartOfSpeechTagger::Token> &tokens, Kind kind)
{
    QStringList list;
    for (const auto &token : tokens) {
        if (token.kind == kind)
            list.append(token.text);
    }
    return list;
}

const PartOfSpeechTagger &tagger()
{
    if (!PartOfSpeechTagger::shared().hasLexicon())
        ADD_FAILURE() << "WordNet (Debian package wordnet-base) is not installed";
    return PartOfSpeechTagger::shared();
}

} // namespace

TEST(LocalNoteTags, KeysFoldCaseDiacriticsPunctuationAndSpellingsOfAI)
{
    // Non-Latin words keep their letters and vowel signs.
    const std::pair<QString, QStringList> rows[] = {
        {"machinelearning", {"Machine-Learning", "MACHINE learning"}},
        {"resume", {"Résumé", "Re\u0301sume\u0301"}},
        {"ai", {"AI", "Artificial Intelligence", "Generative AI", "GenAI", "gen-ai", "generative-AI"}},
        {"aisafety", {"AI Safety"}},
        {"strasse", {"Straße"}},
        {"q32024", {"Q3 2024"}},
        {"", {"?!-- ..."}},
        {"москва", {"Москва"}},
        {"हिन्दी", {"हिन्दी"}}};
    for (const auto &[key, names] : rows) {
        for (const QString &name : names)
            EXPECT_EQ(Tags::key(name), key) << name.toStdString();
    }
}

TEST(LocalNoteTags, TheLimitFollowsWordCountBands)
{
    for (const auto &[count, limit] :
         {std::pair{0, 0}, {9, 0}, {10, 1}, {39, 1}, {40, 2}, {149, 2}, {150, 3}, {399, 3}, {400, 5}})
        EXPECT_EQ(Tags::tagLimit(words(count)), limit) << count;
    // Punctuation is not a word.
    EXPECT_EQ(Tags::tagLimit(words(9) + QStringLiteral(" , . ! ? ; : - -- ...")), 0);
}

TEST(LocalNoteTags, CandidatesAreOrderedOnePerKeyWithinTheBudgetAndCount)
{
    // By overlap with the text, then usage, then name.
    EXPECT_EQ(Tags::candidates(
                  "We discussed machine learning and the budget.",
                  {{"Cooking", 50}, {"Budget", 3}, {"Planning", 3}, {"Machine Learning", 1}, {"Alpha", 3}}),
              (QStringList{"Machine Learning", "Budget", "Cooking", "Alpha", "Planning"}));
    const QString maxName(120, QLatin1Char('y'));
    EXPECT_EQ(Tags::candidates(QString(), {{"AI", 9},
                                           {"GenAI", 8},
                                           {"Artificial Intelligence", 7},
                                           {QString(121, QLatin1Char('x')), 100},
                                           {maxName, 0},
                                           {"--", 50}}),
              (QStringList{"AI", maxName}));
    // "Long name here" costs 14 + 4 = 18 bytes, "Short" 5 + 4 = 9: skipped, and the walk goes on.
    const QList<LocalTagCandidate> library{{"First", 10}, {"Long name here", 5}, {"Short", 1}};
    EXPECT_EQ(Tags::candidates(QString(), library, 20), (QStringList{"First", "Short"}));
    EXPECT_EQ(Tags::candidates(QString(), library, 8), QStringList{});
    EXPECT_EQ(Tags::candidates(QString(), library, 9), QStringList{"First"});

    QList<LocalTagCandidate> many;
    for (int i = 0; i < 80; ++i)
        many.append({QStringLiteral("t%1").arg(i, 2, 10, QLatin1Char('0')), 0});
    const QStringList names = Tags::candidates(QString(), many, 100000);
    ASSERT_EQ(names.size(), 60);
    EXPECT_EQ(names.last(), "t59");
}

TEST(LocalNoteTags, ProposalsResolveToTheLibrarySpellingOrAreDropped)
{
    const QList<LocalTagCandidate> library{{"résumé", 1}, {"Resume", 7}, {"Machine Learning", 2}};
    // 121 bytes whose key is short: never offered, still matched by key.
    const QString longName = "Team " + QString(116, QLatin1Char('!'));
    EXPECT_TRUE(Tags::candidates(QString(), {{longName, 3}}).isEmpty());
    const struct {
        QStringList proposals;
        QList<LocalTagCandidate> library;
        QStringList resolved;
    } rows[] = {{{"Gen AI", "GenAI", "generative-AI"}, {{"AI", 4}}, {"AI"}},
                // Without a library tag the later ones share the first's key.
                {{"Gen AI", "GenAI", "generative-AI"}, {}, {"Gen-AI"}},
                // The commonest spelling wins when two library names share a key.
                {{"RESUME"}, library, {"Resume"}},
                {{"machine learning models"}, library, {"Machine Learning"}},
                {{"  Product   launch plan \n"}, library, {"Product-launch-plan"}},
                {{"team"}, {{longName, 3}}, {longName}},
                {{"one two three four five"}, {}, {}},
                {{"plan the plan for Q3"}, {}, {"plan-the-plan-for-Q3"}},
                {{"!!!", "   ", "---", QString(49, QLatin1Char('a'))}, {}, {}},
                {{QString(48, QLatin1Char('a'))}, {}, {QString(48, QLatin1Char('a'))}},
                {{"Budget", "budget!", "BUDGET"}, {}, {"Budget"}},
                {{"C++ tips"}, {}, {"C-tips"}},
                // The request's own headings are no topics.
                {{"LIBRARY-TAGS", "LIBRARY-TAGSJSON", "Note summary", "tags", "budget"}, {}, {"budget"}},
                {{"a", "b", "c", "d", "e", "f"}, {}, {"a", "b", "c", "d", "e"}}};
    for (const auto &row : rows)
        EXPECT_EQ(Tags::resolvedNames(row.proposals, row.library), row.resolved)
            << row.proposals.join('|').toStdString();
}

TEST(LocalNoteTags, CompletedNamesTakeProposalsThenLibraryTagsThenNounsThenNotes)
{
    EXPECT_TRUE(Tags::completedNames(QStringList{"Budget"}, words(9), "## Summary\nBudget.", {}).isEmpty());
    const QStringList proposals{"Budget", "Hiring", "Travel", "Offices"};
    EXPECT_EQ(Tags::completedNames(proposals, words(399), QString(), {}),
              (QStringList{"Budget", "Hiring", "Travel"}));
    EXPECT_EQ(Tags::completedNames(proposals, words(400), QString(), {}).size(), 4);
    EXPECT_EQ(Tags::completedNames(proposals, words(20), QString(), {{"budget", 3}}), QStringList{"budget"});

    // Library tags the text names; unusable proposals count as none.
    const QList<LocalTagCandidate> library{
        {"Machine Learning", 4}, {"AI", 9}, {"Cooking", 20}, {"Travel", 1}};
    const QString summary =
        "## Summary\nThe group compared machine learning tools and artificial intelligence policy.";
    for (const auto &offered : {std::optional<QStringList>(), std::optional(QStringList{"!!!"})})
        EXPECT_EQ(Tags::completedNames(offered, words(100), summary, library),
                  (QStringList{"Machine Learning", "AI"}));

    // The nouns and names the text uses most, a library tag among them first.
    const QString transcript =
        "Marcus opened the meeting. The budget is tight, so the budget review moves to "
        "Friday. Marcus will draft the budget and the hiring plan. The office move waits.";
    EXPECT_EQ(Tags::completedNames(std::nullopt, transcript, QString(), {}), QStringList{"budget"});
    const QString longer = QStringList(3, transcript).join(' ');
    EXPECT_EQ(Tags::completedNames(std::nullopt, longer, QString(), {}), (QStringList{"budget", "Marcus"}));
    EXPECT_EQ(Tags::completedNames(std::nullopt, longer, QString(), {{"Budget", 2}, {"Travel", 5}}),
              QStringList{"Budget"});
    const QString empty = "it is what it is and we will see how it goes for them then ok";
    EXPECT_EQ(Tags::completedNames(std::nullopt, empty, QString(), {}), QStringList{"Notes"});
    EXPECT_EQ(Tags::completedNames(std::nullopt, empty, QString(), {{"notes", 1}}), QStringList{"notes"});
}

TEST(LocalNoteTagsGenerate, AsksTheModelWithTheLibraryAndCompletesItsAnswer)
{
    ScriptedLanguageModel model;
    // A proposal longer than a tag may be arrives cut off at the grammar's
    // limit, and is dropped, not kept shortened.
    const QString rambling =
        QStringLiteral("quarterly budget planning for the new artificial intelligence tools")
            .left(GeneratedNoteTags::schema().properties.first().maximumLength);
    model.replies = {QJsonObject{{"tags", QJsonArray{"Gen AI", "budget", rambling, "Budget"}}},
                     QJsonObject{{"tags", QJsonArray{"Long notes"}}}};
    const QLocale english("en_US");
    EXPECT_EQ(Tags::generate(model, "```md\n## Summary\nThe budget for AI tools.\n```", words(200),
                             {{"AI", 3}, {"Cooking", 1}}, english, {}),
              (QStringList{"AI", "budget"}));
    ASSERT_EQ(model.requests.size(), 1);
    EXPECT_TRUE(model.requests.first().structured);
    EXPECT_EQ(model.requests.first().prompt,
              "Choose between one and 3 distinct tags.\nLIBRARY TAGS (JSON):\n[\"AI\",\"Cooking\"]\n\n"
              "NOTE SUMMARY:\n## Summary\nThe budget for AI tools.");

    // Without a transcript the summary's 600 words decide the number of tags; its first 3200 bytes are sent.
    const QString summary = words(600);
    EXPECT_EQ(Tags::generate(model, summary, std::nullopt, {}, english, {}), QStringList{"Long-notes"});
    EXPECT_EQ(model.requests.last().prompt,
              "Choose between one and 5 distinct tags.\nLIBRARY TAGS (JSON):\n[]\n\nNOTE SUMMARY:\n" +
                  summary.left(3200));
    // One long word earns no tags at all, and asks nothing.
    EXPECT_TRUE(
        Tags::generate(model, QString(5000, QLatin1Char('s')), std::nullopt, {}, english, {}).isEmpty());
    EXPECT_EQ(model.requests.size(), 2);
}

TEST(LocalNoteTagsGenerate, RefusesWithoutModelOrSummary)
{
    ScriptedLanguageModel model;
    const QLocale english("en_US");
    // Too short for tags: no request, not even the readiness test; but a cancelled job stops.
    model.availabilityValue =
        LanguageModel::Availability::unavailable(LanguageModel::UnavailableReason::modelNotReady);
    EXPECT_TRUE(Tags::generate(model, "x", words(9), {}, english, {}).isEmpty());
    CancellationToken cancelled;
    cancelled.cancel();
    EXPECT_THROW(Tags::generate(model, "x", words(9), {}, english, cancelled), CancellationError);
    const auto failure = [&](const QString &summary) {
        try {
            Tags::generate(model, summary, words(50), {}, english, {});
        } catch (const LocalError &error) {
            return error.message();
        }
        return QStringLiteral("(no error)");
    };
    EXPECT_EQ(failure("## Summary\nx"),
              "On-device summaries unavailable: modelNotReady. Your notes and transcripts remain available.");
    model.availabilityValue = LanguageModel::Availability::available();
    EXPECT_EQ(failure("```markdown\n"), "A summary is required to organize tags.");
    EXPECT_TRUE(model.requests.isEmpty());
    // The model's own failure passes through; the job then falls back on completedNames.
    model.replies = {LocalError("The model broke.")};
    EXPECT_EQ(failure("## Summary\nx"), "The model broke.");
}

TEST(TextWords, RunsOfLettersAndNumbersCountsOfWordsAndGraphemes)
{
    EXPECT_EQ(TextWords::wordSet("Machine-Learning, machine 42x! Café"),
              (QSet<QString>{"machine", "learning", "42x", "café"}));
    EXPECT_TRUE(TextWords::wordSet(" -- !! ").isEmpty());
    // A decomposed accent stays inside its word.
    EXPECT_EQ(TextWords::wordSet("Cafe\u0301 au lait"), (QSet<QString>{"café", "au", "lait"}));
    EXPECT_EQ(TextWords::wordCount("Hello, world!  It's 3.5 degrees."), 5);
    EXPECT_EQ(TextWords::wordCount("... --- !!!"), 0);
    EXPECT_EQ(TextWords::words("Don't stop."), (QStringList{"Don't", "stop"}));
    EXPECT_EQ(TextWords::characterCount("e\u0301t\u00e9"), 3);
    EXPECT_EQ(TextWords::characterCount("\U0001F469\u200D\U0001F4BB"), 1);
}

TEST(PartOfSpeechTagger, ReadsNounsFromTheLexiconAndItsContextAndJoinsProperNames)
{
    // Nouns: all of them when exact, else among them.
    const struct {
        const char *text;
        QStringList nouns;
        bool exact;
        QStringList names;
    } rows[] = {
        {"We need to cut travel costs and review the hiring plan. The meeting runs long, and the runs were "
         "fun. The office move waits.",
         {"travel", "costs", "plan", "meeting", "runs", "fun", "office", "move"},
         true,
         {}},
        {"Yesterday Ada Lovelace met the NASA team. Marcus sends the budget to Priyanka on Friday in New "
         "York.",
         {"budget"},
         false,
         {"Ada Lovelace", "NASA", "Marcus", "Priyanka", "New York"}},
        // A capital at the start of a sentence is no name by itself.
        {"Budget talks went well.", {}, false, {}},
        // Function words, numbers and punctuation are neither.
        {"It is what it is, and 42 of them were there!", {}, true, {}},
        {"", {}, true, {}}};
    for (const auto &row : rows) {
        SCOPED_TRACE(row.text);
        const auto tokens = tagger().nounsAndNames(QString::fromUtf8(row.text));
        const QStringList nouns = texts(tokens, Kind::noun);
        EXPECT_TRUE(!row.exact || nouns == row.nouns) << nouns.join('|').toStdString();
        for (const QString &noun : row.nouns)
            EXPECT_TRUE(nouns.contains(noun)) << noun.toStdString();
        EXPECT_EQ(texts(tokens, Kind::name), row.names);
    }
}

TEST(PartOfSpeechTagger, WithoutALexiconOnlyNamesAreFound)
{
    const PartOfSpeechTagger bare("/nonexistent");
    EXPECT_FALSE(bare.hasLexicon());
    const auto tokens = bare.nounsAndNames("the budget for Kestil and the AI team");
    EXPECT_EQ(texts(tokens, Kind::name), (QStringList{"Kestil", "AI"}));
    EXPECT_TRUE(texts(tokens, Kind::noun).isEmpty());
}
