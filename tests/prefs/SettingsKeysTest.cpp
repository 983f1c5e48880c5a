#include "prefs/SettingsKeys.h"
#include "prefs/ApplicationInfo.h"

#include <QFile>
#include <QTemporaryDir>

#include "QtPrinting.h"

#include <gtest/gtest.h>

#include <limits>

using namespace kestil;

namespace {

// Raw values are written under the keys' literal names, as they stand in the
// file, so that a misspelt constant fails here.
class SettingsKeysTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir.isValid()); }

    QTemporaryDir dir;
    PreferenceStore store{dir.path()};
};

void expectTheDefaultsOfAFirstLaunch(const PreferenceStore &store)
{
    EXPECT_EQ(settings::transcriptionLanguage(store), "en-US");
    EXPECT_TRUE(settings::recordSystemAudio(store));
    EXPECT_TRUE(settings::showRecordingWidget(store));
    EXPECT_FALSE(settings::recordingWidgetPosition(store));
    EXPECT_FALSE(settings::foldersExpanded(store));
    EXPECT_FALSE(settings::showTags(store));
    EXPECT_FALSE(settings::preferCleanedTranscript(store));
    EXPECT_EQ(settings::selectedThemeColor(store), "Purple");
    EXPECT_EQ(settings::selectedAppearanceMode(store), "System");
    EXPECT_TRUE(settings::privateICloudSyncEnabled(store));
    EXPECT_FALSE(settings::welcomeCompleted(store));
    EXPECT_TRUE(settings::summaryNotificationsEnabled(store));
    EXPECT_EQ(settings::completedLocalSummaries(store), 0);
    EXPECT_TRUE(settings::supportClickedActions(store).isEmpty());
    EXPECT_FALSE(settings::supportAutomaticRemindersStopped(store));
    EXPECT_FALSE(settings::supportPresentedSummaryCount(store));
    EXPECT_FALSE(settings::nativeReviewRequested(store));
    EXPECT_FALSE(settings::localSpeechLastFailure(store));
    EXPECT_FALSE(settings::obsidianSyncFolderBookmark(store));
    EXPECT_TRUE(settings::syncFolderAutoSyncEnabled(store));
    EXPECT_EQ(settings::syncFolderLastSyncTimestamp(store), 0.0);
    EXPECT_TRUE(settings::syncFolderLastSyncError(store).isEmpty());
}

TEST_F(SettingsKeysTest, AnEmptyStoreReadsAsTheDefaults)
{
    expectTheDefaultsOfAFirstLaunch(store);
}

TEST_F(SettingsKeysTest, DeletingThePreferencesFileGivesAFirstLaunch)
{
    settings::setWelcomeCompleted(store, true);
    settings::setRecordSystemAudio(store, false);
    settings::setPrivateICloudSyncEnabled(store, false);
    settings::setSummaryNotificationsEnabled(store, false);
    settings::setTranscriptionLanguage(store, "fr-FR");
    settings::setCompletedLocalSummaries(store, 12);
    settings::setRecordingWidgetPosition(store, {10, 20});
    ASSERT_TRUE(settings::welcomeCompleted(PreferenceStore(dir.path())));

    ASSERT_TRUE(QFile::remove(store.filePath()));
    const PreferenceStore fresh(dir.path());
    EXPECT_TRUE(fresh.loadWarning().isEmpty());
    EXPECT_TRUE(fresh.keys().isEmpty());
    expectTheDefaultsOfAFirstLaunch(fresh);
    // The information dictionary has no container, so the first launch is
    // local-only even though the sync preference reads as on.
    EXPECT_FALSE(ApplicationInfo::dictionary().contains(settings::keys::KestilCloudKitContainerIdentifier));
}

struct BoolCase {
    const char *key;
    bool (*read)(const PreferenceStore &);
};

TEST_F(SettingsKeysTest, KeysThatDefaultToTrueNeedAStoredFalseToBeOff)
{
    const BoolCase cases[] = {
        {"recordSystemAudio", settings::recordSystemAudio},
        {"showRecordingWidget", settings::showRecordingWidget},
        {"kestilPrivateICloudSyncEnabled", settings::privateICloudSyncEnabled},
        {"kestilSummaryNotificationsEnabled", settings::summaryNotificationsEnabled},
        {"syncFolderAutoSyncEnabled", settings::syncFolderAutoSyncEnabled},
        {"kestilOnDeviceLanguageModelEnabled.v1", settings::onDeviceLanguageModelEnabled},
    };
    const QVariant notBooleans[] = {QStringLiteral("false"),
                                    QStringLiteral("NO"),
                                    QVariant::fromValue<qint64>(0),
                                    0.0,
                                    QStringList{"false"},
                                    QByteArray("0"),
                                    QString()};
    for (const BoolCase &c : cases) {
        for (const QVariant &value : notBooleans) {
            store.set(c.key, value);
            EXPECT_TRUE(c.read(store)) << c.key << " holding " << value.toString().toStdString();
        }
        store.set(c.key, false);
        EXPECT_FALSE(c.read(store)) << c.key;
        EXPECT_FALSE(c.read(PreferenceStore(dir.path()))) << c.key << " after a reload";
        store.set(c.key, true);
        EXPECT_TRUE(c.read(store)) << c.key;
        store.remove(c.key);
        EXPECT_TRUE(c.read(PreferenceStore(dir.path()))) << c.key << " when missing";
    }
}

TEST_F(SettingsKeysTest, KeysThatDefaultToFalseNeedAStoredTrueToBeOn)
{
    const BoolCase cases[] = {
        {"foldersExpanded", settings::foldersExpanded},
        {"showTags", settings::showTags},
        {"preferCleanedTranscript", settings::preferCleanedTranscript},
        {"kestilWelcomeCompleted.v1", settings::welcomeCompleted},
        {"kestilSupportAutomaticRemindersStopped.v1", settings::supportAutomaticRemindersStopped},
        {"kestilNativeReviewRequested", settings::nativeReviewRequested},
    };
    for (const BoolCase &c : cases) {
        store.set(c.key, QStringLiteral("true"));
        EXPECT_FALSE(c.read(store)) << c.key;
        store.set(c.key, 1);
        EXPECT_FALSE(c.read(store)) << c.key;
        store.set(c.key, true);
        EXPECT_TRUE(c.read(PreferenceStore(dir.path()))) << c.key;
    }
    settings::setWelcomeCompleted(store, true);
    EXPECT_EQ(store.object("kestilWelcomeCompleted.v1"), QVariant(true));
}

TEST_F(SettingsKeysTest, TextSettingsFallBackToTheirDefaults)
{
    EXPECT_EQ(settings::transcriptionLanguage(store), "en-US");
    store.set("transcriptionLanguage", QStringLiteral("de-CH"));
    EXPECT_EQ(settings::transcriptionLanguage(PreferenceStore(dir.path())), "de-CH");
    store.set("transcriptionLanguage", QString());
    EXPECT_EQ(settings::transcriptionLanguage(store), "en-US");
    store.set("transcriptionLanguage", 5);
    EXPECT_EQ(settings::transcriptionLanguage(store), "en-US");

    store.set("selectedThemeColor", QStringLiteral("Ocean"));
    EXPECT_EQ(settings::selectedThemeColor(store), "Ocean");
    store.set("selectedThemeColor", true);
    EXPECT_EQ(settings::selectedThemeColor(store), "Purple");
    settings::setSelectedAppearanceMode(store, "Dark");
    EXPECT_EQ(store.string("selectedAppearanceMode"), "Dark");
    store.set("selectedAppearanceMode", QStringList{"Dark"});
    EXPECT_EQ(settings::selectedAppearanceMode(store), "System");

    store.set("syncFolderLastSyncError", QStringLiteral("x"));
    EXPECT_EQ(settings::syncFolderLastSyncError(store), "x");
    store.set("syncFolderLastSyncTimestamp", 1700000000.5);
    EXPECT_EQ(settings::syncFolderLastSyncTimestamp(store), 1700000000.5);
}

TEST_F(SettingsKeysTest, CompletedSummariesNeverReadBelowZero)
{
    const std::pair<QVariant, qint64> cases[] = {
        {QVariant::fromValue<qint64>(7), 7},
        {QVariant::fromValue<qint64>(-5), 0},
        {QVariant::fromValue(std::numeric_limits<qint64>::min()), 0},
        {QVariant::fromValue<qint64>(1000000001), 1000000001},
        {3.7, 3},
        {-0.5, 0},
        {QStringLiteral("9"), 0},
        {true, 0},
    };
    for (const auto &[value, expected] : cases) {
        store.set("kestilCompletedLocalSummaries", value);
        EXPECT_EQ(settings::completedLocalSummaries(store), expected) << value.toString().toStdString();
    }
    settings::setCompletedLocalSummaries(store, 6);
    EXPECT_EQ(store.object("kestilCompletedLocalSummaries"), QVariant::fromValue<qint64>(6));
}

TEST_F(SettingsKeysTest, TheWidgetPositionCountsOnlyWithBothCoordinates)
{
    store.set("recordingWidgetPositionX", 100.5);
    EXPECT_FALSE(settings::recordingWidgetPosition(store));
    store.remove("recordingWidgetPositionX");
    store.set("recordingWidgetPositionY", 40.0);
    EXPECT_FALSE(settings::recordingWidgetPosition(store));

    store.set("recordingWidgetPositionX", QStringLiteral("100"));
    EXPECT_FALSE(settings::recordingWidgetPosition(store));
    store.set("recordingWidgetPositionX", std::numeric_limits<double>::quiet_NaN());
    EXPECT_FALSE(settings::recordingWidgetPosition(store));

    // An integer is a number too.
    store.set("recordingWidgetPositionX", -300);
    EXPECT_EQ(settings::recordingWidgetPosition(store), (RecordingWidgetPosition{-300, 40}));

    settings::setRecordingWidgetPosition(store, {1200, 24});
    const PreferenceStore reloaded(dir.path());
    EXPECT_EQ(settings::recordingWidgetPosition(reloaded), (RecordingWidgetPosition{1200, 24}));
    EXPECT_EQ(reloaded.object("recordingWidgetPositionX").metaType().id(), QMetaType::Double);
    EXPECT_EQ(reloaded.object("recordingWidgetPositionY").metaType().id(), QMetaType::Double);
}

TEST_F(SettingsKeysTest, SupportCountersKeepWhatWasStored)
{
    // Unknown raw values stay in the list, in their order; dropping them is the
    // reader of the support actions' business.
    store.set("kestilSupportClickedActions.v1", QStringList{"share", "bogus", "review"});
    EXPECT_EQ(settings::supportClickedActions(store), (QStringList{"share", "bogus", "review"}));
    store.set("kestilSupportClickedActions.v1", QStringLiteral("review"));
    EXPECT_TRUE(settings::supportClickedActions(store).isEmpty());
    settings::setSupportClickedActions(store, {"tip"});
    settings::removeSupportClickedActions(store);
    EXPECT_FALSE(store.contains("kestilSupportClickedActions.v1"));

    // A presented count of 0 is not the same as none.
    store.set("kestilSupportPresentedSummaryCount.v1", 0);
    EXPECT_EQ(settings::supportPresentedSummaryCount(store), 0);
    store.set("kestilSupportPresentedSummaryCount.v1", QStringLiteral("10"));
    EXPECT_FALSE(settings::supportPresentedSummaryCount(store));
    settings::setSupportPresentedSummaryCount(store, 10);
    EXPECT_EQ(settings::supportPresentedSummaryCount(PreferenceStore(dir.path())), 10);
}

TEST_F(SettingsKeysTest, OptionalTextAndDataAreAbsentUntilWritten)
{
    settings::setLocalSpeechLastFailure(store,
                                        "Transcription: SpeechTranscriber en-US\nline two\nline three");
    EXPECT_EQ(settings::localSpeechLastFailure(PreferenceStore(dir.path())),
              "Transcription: SpeechTranscriber en-US\nline two\nline three");
    settings::removeLocalSpeechLastFailure(store);
    EXPECT_FALSE(settings::localSpeechLastFailure(PreferenceStore(dir.path())));
    store.set("localSpeechLastFailure", 3);
    EXPECT_FALSE(settings::localSpeechLastFailure(store));

    const QByteArray bookmark = QByteArray("/home/u/Vault/Kestil\xff", 21);
    settings::setObsidianSyncFolderBookmark(store, bookmark);
    EXPECT_EQ(settings::obsidianSyncFolderBookmark(PreferenceStore(dir.path())), bookmark);
    store.set("kestilObsidianSyncFolderBookmark", QStringLiteral("/home/u/Vault"));
    EXPECT_FALSE(settings::obsidianSyncFolderBookmark(store));
    settings::removeObsidianSyncFolderBookmark(store);
    EXPECT_FALSE(store.contains("kestilObsidianSyncFolderBookmark"));
}

} // namespace
