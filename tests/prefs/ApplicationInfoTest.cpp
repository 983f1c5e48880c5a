#include "prefs/ApplicationInfo.h"
#include "prefs/SettingsKeys.h"

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace kestil;

namespace {

TEST(ApplicationInfo, ThisBuildCarriesNoContainerAndNoUpdateService)
{
    const QVariantMap info = ApplicationInfo::dictionary();
    EXPECT_FALSE(info.contains("KestilCloudKitContainerIdentifier"));
    EXPECT_EQ(info.value("KestilEnableSparkle"), QVariant(false));
    EXPECT_FALSE(ApplicationInfo::enableSparkle());
}

TEST(ApplicationInfo, OnlyABooleanTrueEnablesTheUpdateService)
{
    EXPECT_TRUE(ApplicationInfo::enableSparkle({{"KestilEnableSparkle", true}}));
    EXPECT_FALSE(ApplicationInfo::enableSparkle({{"KestilEnableSparkle", false}}));
    EXPECT_FALSE(ApplicationInfo::enableSparkle({}));
    EXPECT_FALSE(ApplicationInfo::enableSparkle({{"KestilEnableSparkle", "YES"}}));
    EXPECT_FALSE(ApplicationInfo::enableSparkle({{"KestilEnableSparkle", 1}}));
}

} // namespace
