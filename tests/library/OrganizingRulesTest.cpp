#include "library/OrganizingRules.h"

#include <QList>

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

TEST(OrganizingRulesTest, TypedTagsKeepLettersDashesAndDigits)
{
    const QList<std::pair<QString, QString>> cases{
        {QStringLiteral("q3 plan!"), QStringLiteral("q3plan")},
        {QStringLiteral("  Project-Alpha \n"), QStringLiteral("Project-Alpha")},
        {QStringLiteral("#$%&*"), QString()},
        {QStringLiteral("snake_case.v2"), QStringLiteral("snakecasev2")},
        {QStringLiteral("Zoë Łódź"), QStringLiteral("ZoëŁódź")},
        {QStringLiteral("日本語"), QStringLiteral("日本語")},
        {QStringLiteral("١٢٣"), QString()}, // digits other than 0 to 9 go
    };
    for (const auto &[typed, cleaned] : cases)
        EXPECT_EQ(cleanedTagText(typed), cleaned) << typed.toStdString();
}

TEST(OrganizingRulesTest, DeletionSentenceCountsTheNotes)
{
    EXPECT_EQ(folderDeletionMessage(QStringLiteral("Work"), 1),
              QStringLiteral("“Work” will be removed. 1 note in this folder will become Unfiled."));
    EXPECT_EQ(folderDeletionMessage(QStringLiteral("Q3"), 12),
              QStringLiteral("“Q3” will be removed. 12 notes in this folder will become Unfiled."));
}

} // namespace
