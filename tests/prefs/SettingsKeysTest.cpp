#include "prefs/SettingsKeys.h"
#include "prefs/ApplicationInfo.h"

#include <QTemporaryDir>

#include "support/QtPrinters.h"

#include <gtest/gtest.h>

#include <limits>

using namespace kestil;
using namespace kestil::settings;

namespace {

class SettingsKeysTest : public ::testing::Test {
protected:
    QTemporaryDir dir;
    PreferenceStore store{dir.path()};
};

// A switch reads as its default until its writer stores the other value,
// which the next launch reads back; only a stored boolean moves it.
TEST_F(SettingsKeysTest, ASwitchKeepsItsDefaultUntilItsWriterStoresTheOtherValue)
{
    const struct {
        QLatin1StringView key;
        bool (*read)(const PreferenceStore &);
        void (*write)(PreferenceStore &, bool);
        bool byDefault;
    } cases[] = {
        {keys::recordSystemAudio, recordSystemAudio, setRecordSystemAudio, true},
        {keys::showRecordingWidget, showRecordingWidget, setShowRecordingWidget, true},
        {keys::kestilPrivateICloudSyncEnabled, privateICloudSyncEnabled, setPrivateICloudSyncEnabled, true},
        {keys::kestilSummaryNotificationsEnabled, summaryNotificationsEnabled, setSummaryNotificationsEnabled,
         true},
        {keys::kestilOnDeviceLanguageModelEnabled, onDeviceLanguageModelEnabled,
         setOnDeviceLanguageModelEnabled, true},
        {keys::foldersExpanded, foldersExpanded, setFoldersExpanded, false},
        {keys::showTags, showTags, setShowTags, false},
        {keys::preferCleanedTranscript, preferCleanedTranscript, setPreferCleanedTranscript, false},
        {keys::kestilWelcomeCompleted, welcomeCompleted, setWelcomeCompleted, false},
        {keys::kestilSupportAutomaticRemindersStopped, supportAutomaticRemindersStopped,
         setSupportAutomaticRemindersStopped, false},
        {keys::kestilNativeReviewRequested, nativeReviewRequested, setNativeReviewRequested, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.key.data());
        EXPECT_EQ(c.read(store), c.byDefault);
        for (const QVariant &notABoolean :
             {QVariant(c.byDefault ? "false" : "true"), QVariant(qint64(!c.byDefault))}) {
            store.set(c.key, notABoolean);
            EXPECT_EQ(c.read(store), c.byDefault);
        }
        c.write(store, !c.byDefault);
        EXPECT_EQ(c.read(PreferenceStore(dir.path())), !c.byDefault);
        c.write(store, c.byDefault);
        EXPECT_EQ(c.read(store), c.byDefault);
    }
    EXPECT_TRUE(syncFolderAutoSyncEnabled(store));
    store.set(keys::syncFolderAutoSyncEnabled, false);
    EXPECT_FALSE(syncFolderAutoSyncEnabled(store));
}

TEST_F(SettingsKeysTest, TextSettingsFallBackToTheirDefaultsWhenEmptyOrNotText)
{
    const struct {
        QString (*read)(const PreferenceStore &);
        void (*write)(PreferenceStore &, const QString &);
        QString byDefault;
    } cases[] = {
        {transcriptionLanguage, setTranscriptionLanguage, "en-US"},
        {selectedThemeColor, setSelectedThemeColor, "Purple"},
        {selectedAppearanceMode, setSelectedAppearanceMode, "System"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.byDefault.toStdString());
        EXPECT_EQ(c.read(store), c.byDefault);
        c.write(store, "chosen");
        EXPECT_EQ(c.read(PreferenceStore(dir.path())), "chosen");
        c.write(store, QString());
        EXPECT_EQ(c.read(store), c.byDefault);
    }
    store.set(keys::transcriptionLanguage, 5);
    EXPECT_EQ(transcriptionLanguage(store), "en-US");
}

TEST_F(SettingsKeysTest, CompletedSummariesNeverReadBelowZero)
{
    const std::pair<QVariant, qint64> cases[] = {
        {QVariant::fromValue<qint64>(7), 7},
        {QVariant::fromValue(std::numeric_limits<qint64>::min()), 0},
        {3.7, 3},
        {-0.5, 0},
        {"9", 0},
    };
    for (const auto &[value, expected] : cases) {
        store.set(keys::kestilCompletedLocalSummaries, value);
        EXPECT_EQ(completedLocalSummaries(store), expected) << value.toString().toStdString();
    }
    setCompletedLocalSummaries(store, 6);
    EXPECT_EQ(completedLocalSummaries(PreferenceStore(dir.path())), 6);
}

TEST_F(SettingsKeysTest, TheWidgetPositionCountsOnlyWithTwoFiniteNumbers)
{
    store.set(keys::recordingWidgetPositionX, 100.5);
    EXPECT_FALSE(recordingWidgetPosition(store));
    store.remove(keys::recordingWidgetPositionX);
    store.set(keys::recordingWidgetPositionY, 40.0);
    EXPECT_FALSE(recordingWidgetPosition(store));
    for (const QVariant &x : {QVariant("100"), QVariant(std::numeric_limits<double>::quiet_NaN())}) {
        store.set(keys::recordingWidgetPositionX, x);
        EXPECT_FALSE(recordingWidgetPosition(store));
    }
    store.set(keys::recordingWidgetPositionX, -300);
    EXPECT_EQ(recordingWidgetPosition(store), (RecordingWidgetPosition{-300, 40}));

    setRecordingWidgetPosition(store, {1200, 24});
    EXPECT_EQ(recordingWidgetPosition(PreferenceStore(dir.path())), (RecordingWidgetPosition{1200, 24}));
}

TEST_F(SettingsKeysTest, CountersListsTextAndDataAreAbsentUntilWrittenInTheirType)
{
    // Unknown raw values stay in the list; dropping them is the support actions' business.
    setSupportClickedActions(store, {"share", "bogus", "review"});
    EXPECT_EQ(supportClickedActions(PreferenceStore(dir.path())), (QStringList{"share", "bogus", "review"}));
    removeSupportClickedActions(store);
    EXPECT_FALSE(store.contains(keys::kestilSupportClickedActions));

    // A presented count of 0 is not the same as none.
    EXPECT_FALSE(supportPresentedSummaryCount(store));
    setSupportPresentedSummaryCount(store, 0);
    EXPECT_EQ(supportPresentedSummaryCount(PreferenceStore(dir.path())), 0);
    store.set(keys::kestilSupportPresentedSummaryCount, "10");
    EXPECT_FALSE(supportPresentedSummaryCount(store));

    setLocalSpeechLastFailure(store, "Transcription: SpeechTranscriber en-US\nline two");
    EXPECT_EQ(localSpeechLastFailure(PreferenceStore(dir.path())),
              "Transcription: SpeechTranscriber en-US\nline two");
    removeLocalSpeechLastFailure(store);
    EXPECT_FALSE(localSpeechLastFailure(PreferenceStore(dir.path())));
    store.set(keys::localSpeechLastFailure, 3);
    EXPECT_FALSE(localSpeechLastFailure(store));

    const QByteArray bookmark = QByteArray("/home/u/Vault/Kestil\xff", 21);
    setObsidianSyncFolderBookmark(store, bookmark);
    EXPECT_EQ(obsidianSyncFolderBookmark(PreferenceStore(dir.path())), bookmark);
    store.set(keys::kestilObsidianSyncFolderBookmark, "/home/u/Vault");
    EXPECT_FALSE(obsidianSyncFolderBookmark(store));
    removeObsidianSyncFolderBookmark(store);
    EXPECT_FALSE(store.contains(keys::kestilObsidianSyncFolderBookmark));
}

TEST(ApplicationInfo, OnlyABooleanTrueEnablesTheUpdateServiceAndThisBuildHasNone)
{
    EXPECT_FALSE(ApplicationInfo::dictionary().contains("KestilCloudKitContainerIdentifier"));
    EXPECT_FALSE(ApplicationInfo::enableSparkle());
    EXPECT_TRUE(ApplicationInfo::enableSparkle({{"KestilEnableSparkle", true}}));
    EXPECT_FALSE(ApplicationInfo::enableSparkle({{"KestilEnableSparkle", false}}));
    EXPECT_FALSE(ApplicationInfo::enableSparkle({{"KestilEnableSparkle", "YES"}}));
    EXPECT_FALSE(ApplicationInfo::enableSparkle({{"KestilEnableSparkle", 1}}));
}

} // namespace
