#include "prefs/SettingsKeys.h"

#include <QFile>
#include <QTemporaryDir>

#include "support/QtPrinters.h"

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

// Every switch reads as its default unless a boolean of the other value is
// stored under its name; text, numbers or lists never switch it.
TEST_F(SettingsKeysTest, ASwitchNeedsAStoredBooleanToLeaveItsDefault)
{
    const struct {
        const char *key;
        bool (*read)(const PreferenceStore &);
        bool byDefault;
    } cases[] = {
        {"recordSystemAudio", settings::recordSystemAudio, true},
        {"showRecordingWidget", settings::showRecordingWidget, true},
        {"kestilPrivateICloudSyncEnabled", settings::privateICloudSyncEnabled, true},
        {"kestilSummaryNotificationsEnabled", settings::summaryNotificationsEnabled, true},
        {"syncFolderAutoSyncEnabled", settings::syncFolderAutoSyncEnabled, true},
        {"kestilOnDeviceLanguageModelEnabled.v1", settings::onDeviceLanguageModelEnabled, true},
        {"foldersExpanded", settings::foldersExpanded, false},
        {"showTags", settings::showTags, false},
        {"preferCleanedTranscript", settings::preferCleanedTranscript, false},
        {"kestilWelcomeCompleted.v1", settings::welcomeCompleted, false},
        {"kestilSupportAutomaticRemindersStopped.v1", settings::supportAutomaticRemindersStopped, false},
        {"kestilNativeReviewRequested", settings::nativeReviewRequested, false},
    };
    const QVariant notBooleans[] = {
        "false",         "true",   QVariant::fromValue<qint64>(0), 1, 0.0, QStringList{"false"},
        QByteArray("0"), QString()};
    for (const auto &c : cases) {
        EXPECT_EQ(c.read(store), c.byDefault) << c.key << " when missing";
        for (const QVariant &value : notBooleans) {
            store.set(c.key, value);
            EXPECT_EQ(c.read(store), c.byDefault) << c.key << " holding " << value.toString().toStdString();
        }
        store.set(c.key, !c.byDefault);
        EXPECT_EQ(c.read(PreferenceStore(dir.path())), !c.byDefault) << c.key << " after a reload";
        store.set(c.key, c.byDefault);
        EXPECT_EQ(c.read(store), c.byDefault) << c.key;
    }
    settings::setWelcomeCompleted(store, true);
    EXPECT_EQ(store.object("kestilWelcomeCompleted.v1"), QVariant(true));

    // Without the file, the next launch is a first launch again.
    ASSERT_TRUE(QFile::remove(store.filePath()));
    const PreferenceStore fresh(dir.path());
    EXPECT_TRUE(fresh.loadWarning().isEmpty());
    EXPECT_TRUE(fresh.keys().isEmpty());
    EXPECT_FALSE(settings::welcomeCompleted(fresh));
}

TEST_F(SettingsKeysTest, TextSettingsFallBackToTheirDefaults)
{
    EXPECT_EQ(settings::transcriptionLanguage(store), "en-US");
    store.set("transcriptionLanguage", "de-CH");
    EXPECT_EQ(settings::transcriptionLanguage(PreferenceStore(dir.path())), "de-CH");
    store.set("transcriptionLanguage", QString());
    EXPECT_EQ(settings::transcriptionLanguage(store), "en-US");
    store.set("transcriptionLanguage", 5);
    EXPECT_EQ(settings::transcriptionLanguage(store), "en-US");

    store.set("selectedThemeColor", "Ocean");
    EXPECT_EQ(settings::selectedThemeColor(store), "Ocean");
    store.set("selectedThemeColor", true);
    EXPECT_EQ(settings::selectedThemeColor(store), "Purple");
    settings::setSelectedAppearanceMode(store, "Dark");
    EXPECT_EQ(store.string("selectedAppearanceMode"), "Dark");
    store.set("selectedAppearanceMode", QStringList{"Dark"});
    EXPECT_EQ(settings::selectedAppearanceMode(store), "System");

    store.set("syncFolderLastSyncError", "x");
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
        {"9", 0},
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

    store.set("recordingWidgetPositionX", "100");
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
    store.set("kestilSupportClickedActions.v1", "review");
    EXPECT_TRUE(settings::supportClickedActions(store).isEmpty());
    settings::setSupportClickedActions(store, {"tip"});
    settings::removeSupportClickedActions(store);
    EXPECT_FALSE(store.contains("kestilSupportClickedActions.v1"));

    // A presented count of 0 is not the same as none.
    store.set("kestilSupportPresentedSummaryCount.v1", 0);
    EXPECT_EQ(settings::supportPresentedSummaryCount(store), 0);
    store.set("kestilSupportPresentedSummaryCount.v1", "10");
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
    store.set("kestilObsidianSyncFolderBookmark", "/home/u/Vault");
    EXPECT_FALSE(settings::obsidianSyncFolderBookmark(store));
    settings::removeObsidianSyncFolderBookmark(store);
    EXPECT_FALSE(store.contains("kestilObsidianSyncFolderBookmark"));
}

} // namespace
