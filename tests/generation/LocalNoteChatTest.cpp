#include "generation/LocalNoteChat.h"

#include "ScriptedLanguageModel.h"
#include "support/QtPrinters.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

using namespace kestil;

namespace {

LocalChatMessage message(const QString &role, const QString &content)
{
    return {QUuid::createUuid(), role, content, QDateTime::currentDateTimeUtc()};
}

// Passages of exactly 1200 bytes, each about one topic.
QString passage(const QString &topic)
{
    const QString sentence = QStringLiteral("We talked about %1 again. ").arg(topic);
    return sentence.repeated(1200 / sentence.size() + 1).left(1200);
}

// The numbers of the passages a prompt quotes, in its order.
QString quoted(const QString &prompt)
{
    QStringList numbers;
    for (const QRegularExpressionMatch &match : QRegularExpression("Passage (\\d+):\n").globalMatch(prompt))
        numbers.append(match.captured(1));
    return numbers.join(' ');
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

TEST(LocalNoteChatPrompt, ASmallNoteIsSentWhole)
{
    const QString source = passage("budget") + "Short tail.";
    const QString prompt = LocalNoteChat::prompt(source, "  What was decided?  ", {});
    EXPECT_EQ(prompt,
              "NOTE EVIDENCE (complete source):\nPassage 1:\n" + passage("budget") +
                  "\n\nPassage 2:\nShort tail.\n\nRECENT CONVERSATION:\n\n\nQUESTION:\nWhat was decided?");
}

TEST(LocalNoteChatPrompt, ALongNoteSendsTheTwoBestPassagesInNoteOrder)
{
    QStringList topics;
    for (int i = 0; i < 12; ++i)
        topics.append(QStringLiteral("topic%1").arg(i));
    topics[6] = "hiring";
    topics[11] = "roadmap";
    QString source;
    for (const QString &topic : topics)
        source += passage(topic);
    const QString prompt = LocalNoteChat::prompt(source, "What about the roadmap and hiring?", {});
    EXPECT_TRUE(prompt.startsWith("NOTE EVIDENCE (selected excerpts):\n"));
    EXPECT_EQ(quoted(prompt), "7 12");
    EXPECT_TRUE(prompt.contains("\n\nPassage 12:\n" + passage("roadmap")));
    // No matching term: the first two passages.
    EXPECT_EQ(quoted(LocalNoteChat::prompt(source, "What does this note say about that?", {})), "1 2");
    // Passages that hold the question's terms come before one that holds none.
    const QString many = passage("pricing") + passage("nothing") + passage("launch pricing");
    EXPECT_EQ(quoted(LocalNoteChat::prompt(many, "launch pricing?", {})), "1 3");
}

TEST(LocalNoteChatPrompt, FollowUpsKeepTheTopicAndHistoryIsShort)
{
    QString source;
    for (const char *topic : {"alpha", "budget", "gamma", "delta", "hiring"})
        source += passage(QString::fromUtf8(topic));
    const QList<LocalChatMessage> history{
        message("user", "Tell me about hiring."), message("assistant", "Two roles are open."),
        message("user", "And the budget?"),       message("assistant", QString(400, QLatin1Char('a'))),
        message("assistant", "Anything else?"),   message("system", "Ünïcode " + QString(300, 'b')),
    };
    const QString prompt = LocalNoteChat::prompt(source, "Why?", history);
    // "Why?" has no term of its own: the last user question, "And the budget?", leads.
    EXPECT_TRUE(prompt.contains("Passage 2:\n" + passage("budget")));
    const QString recent = prompt.section("RECENT CONVERSATION:\n", 1).section("\n\nQUESTION:", 0, 0);
    const QStringList lines = recent.split(QLatin1Char('\n'));
    ASSERT_EQ(lines.size(), 4);
    EXPECT_EQ(lines.at(0), "user: And the budget?");
    EXPECT_EQ(lines.at(1), "assistant: " + QString(150, QLatin1Char('a')));
    EXPECT_EQ(lines.at(3).toUtf8().size(), QByteArray("system: ").size() + 150);
}

TEST(LocalNoteChatPrompt, RefusesBadQuestionsAndEmptyNotes)
{
    const QString exact = QString(798, QLatin1Char('q')) + "é";
    const std::tuple<QString, QString, QString> rows[] = {
        {"Text.", " \n ", "Enter a question about this note."},
        {"Text.", "  " + exact + "  ", "(no error)"},
        {"Text.", exact + "q", "Please shorten your question to 800 bytes or fewer."},
        {"  \n", "Why?", "Transcribe this note before asking a question."}};
    for (const auto &[note, question, expected] : rows)
        EXPECT_EQ(failure([&] { LocalNoteChat::prompt(note, question, {}); }), expected)
            << question.toStdString();
}

TEST(LocalNoteChatAnswer, StreamsEverySnapshotWithoutAFenceOrRefuses)
{
    ScriptedLanguageModel model;
    QStringList snapshots;
    const auto ask = [&] {
        return LocalNoteChat::answer(model, "We hire two people.", "Who is hired?", {}, QLocale("en_US"),
                                     [&](const QString &snapshot) { snapshots.append(snapshot); }, {});
    };
    model.replies = {ScriptedLanguageModel::Stream{{"```md", "```md\nTwo", "```md\nTwo roles.\n```"}}};
    EXPECT_EQ(ask(), "Two roles.");
    EXPECT_EQ(snapshots, (QStringList{"", "Two", "Two roles."}));
    ASSERT_EQ(model.requests.size(), 1);
    EXPECT_EQ(model.requests.first().instructions, LocalNoteChat::instructions());

    model.availabilityValue =
        LanguageModel::Availability::unavailable(LanguageModel::UnavailableReason::modelNotReady);
    EXPECT_EQ(failure([&] { ask(); }),
              "On-device Ask AI unavailable: modelNotReady. Your notes and transcripts remain available.");
    model.availabilityValue = LanguageModel::Availability::available();
    model.languages = {"fr"};
    EXPECT_EQ(failure([&] { ask(); }), "The on-device summary model does not support this language.");
    model.languages = {"en"};
    model.replies = {ScriptedLanguageModel::Stream{{"```"}}};
    EXPECT_EQ(failure([&] { ask(); }),
              "The on-device language model returned no answer. Your conversation was preserved; try again.");

    CancellationToken cancel;
    model.replies = {ScriptedLanguageModel::Stream{{"a", "ab", "abc"}}};
    EXPECT_THROW(
        LocalNoteChat::answer(
            model, "Note.", "Why?", {}, QLocale("en_US"), [&](const QString &) { cancel.cancel(); }, cancel),
        CancellationError);
}

TEST(LocalNoteChatMarkdown, LabelsSpeakersUnderATitle)
{
    const QList<LocalChatMessage> messages{message("user", "  What next?\n"),
                                           message("assistant", "Ship it."), message("tool", "Other role")};
    EXPECT_EQ(LocalNoteChat::conversationMarkdown("Weekly sync", messages),
              "# Ask AI: Weekly sync\n\n**You**\n\nWhat next?\n\n**Kestil**\n\nShip "
              "it.\n\n**Kestil**\n\nOther role");
    EXPECT_EQ(LocalNoteChat::conversationMarkdown(std::nullopt, {}), "# Ask AI: Untitled");
    EXPECT_EQ(LocalNoteChat::conversationMarkdown(QString(), {}), "# Ask AI: Untitled");
}
