#include "generation/LocalSummaryTemplate.h"

#include "support/QtPrinters.h"

#include <QJsonDocument>

#include <gtest/gtest.h>

using namespace kestil;
namespace T = LocalSummaryTemplates;

TEST(LocalSummaryTemplate, KeysTitlesAndCategoriesInMenuOrder)
{
    QStringList keys;
    QStringList meetings;
    for (LocalSummaryTemplate value : T::allCases) {
        keys.append(T::id(value));
        if (T::category(value) == "Meetings") {
            meetings.append(T::rawValue(value));
        } else {
            EXPECT_FALSE(T::category(value).has_value());
        }
        if (value != LocalSummaryTemplate::meeting) {
            EXPECT_EQ(T::displayTitle(value), T::rawValue(value));
        }
    }
    EXPECT_EQ(keys,
              (QStringList{"default-summary", "personal-note", "brain-dump", "lecture", "meetings/general",
                           "meetings/1-1", "meetings/all-hands", "meetings/brainstorming",
                           "meetings/networking", "meetings/project-kickoff", "meetings/sprint-planning",
                           "meetings/stand-up", "meetings/weekly-project-status", "Concise", "Study"}));
    EXPECT_EQ(meetings, (QStringList{"Meeting", "1:1 Meeting", "All-Hands Meeting", "Brainstorming Session",
                                     "Networking Event", "Project Kickoff", "Sprint Planning",
                                     "Stand-up Meeting", "Weekly Project Status"}));
    EXPECT_EQ(T::displayTitle(LocalSummaryTemplate::meeting), "General Meeting");
}

TEST(LocalSummaryTemplate, StoredStringsResolveByKeyThenTitleElseAuto)
{
    EXPECT_EQ(T::fromStored(std::nullopt), LocalSummaryTemplate::autoSummary);
    EXPECT_EQ(T::fromStored(QString()), LocalSummaryTemplate::autoSummary);
    EXPECT_EQ(T::fromStored("meetings/stand-up"), LocalSummaryTemplate::standUp);
    EXPECT_EQ(T::fromStored("Meeting"), LocalSummaryTemplate::meeting);
    EXPECT_EQ(T::fromStored("Weekly Project Status"), LocalSummaryTemplate::weeklyStatus);
    EXPECT_EQ(T::fromStored("General Meeting"), LocalSummaryTemplate::autoSummary);
    EXPECT_EQ(T::fromStored("Concise"), LocalSummaryTemplate::concise);
    EXPECT_EQ(T::fromStored("study"), LocalSummaryTemplate::autoSummary);
    EXPECT_EQ(T::fromStored("meetings/retro-v2"), LocalSummaryTemplate::autoSummary);
}

TEST(LocalSummaryTemplate, SubmenuRowsAndTheirTitle)
{
    const QList<Template> rows{{"meetings/general", "Team meeting", "Notes of a meeting", "Meetings"},
                               {"Study", "Study notes", "For learning", std::nullopt}};
    EXPECT_EQ(Template::currentTitle(std::nullopt, rows), "Auto");
    EXPECT_EQ(Template::currentTitle("Meeting", rows), "Team meeting");
    EXPECT_EQ(Template::currentTitle("Study", rows), "Study notes");
    EXPECT_EQ(Template::currentTitle("lecture", rows), "Auto");

    const QJsonObject json = rows.first().toJson();
    EXPECT_EQ(
        QJsonDocument(json).toJson(QJsonDocument::Compact),
        R"({"category":"Meetings","description":"Notes of a meeting","key":"meetings/general","title":"Team meeting"})");
    EXPECT_EQ(Template::fromJson(json), rows.first());
    EXPECT_FALSE(rows.last().toJson().contains("category"));
    EXPECT_EQ(Template::fromJson(rows.last().toJson()), rows.last());
    EXPECT_FALSE(Template::fromJson(QJsonObject{{"key", "x"}, {"title", "y"}}).has_value());
}
