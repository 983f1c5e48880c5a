#include "library/OrganizingRules.h"

#include <QList>

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;
using namespace Qt::StringLiterals;

namespace {

TEST(OrganizingRulesTest, TypedTagsKeepLettersDashesAndDigits)
{
    const QList<std::pair<QString, QString>> cases{
        {u"q3 plan!"_s, u"q3plan"_s},  {u"  Project-Alpha \n"_s, u"Project-Alpha"_s},
        {u"#$%&*"_s, QString()},       {u"snake_case.v2"_s, u"snakecasev2"_s},
        {u"Zoë Łódź"_s, u"ZoëŁódź"_s}, {u"日本語"_s, u"日本語"_s},
        {u"١٢٣"_s, QString()}, // digits other than 0 to 9 go
    };
    for (const auto &[typed, cleaned] : cases)
        EXPECT_EQ(cleanedTagText(typed), cleaned) << typed.toStdString();
}

TEST(OrganizingRulesTest, DeletionSentenceCountsTheNotes)
{
    EXPECT_EQ(folderDeletionMessage(u"Work"_s, 1),
              u"“Work” will be removed. 1 note in this folder will become Unfiled."_s);
    EXPECT_EQ(folderDeletionMessage(u"Q3"_s, 12),
              u"“Q3” will be removed. 12 notes in this folder will become Unfiled."_s);
}

} // namespace
