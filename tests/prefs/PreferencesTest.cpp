#include "base/Error.h"
#include "prefs/ApplicationInfo.h"
#include "prefs/PreferenceFile.h"
#include "prefs/PreferenceStore.h"
#include "prefs/SettingsKeys.h"
#include "support/FileBytes.h"

#include <QDate>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QThread>

#include "support/CoreApplicationEnvironment.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <limits>
#include <sys/resource.h>

using namespace kestil;
using namespace kestil::settings;

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    ASSERT_EQ(file.write(bytes), bytes.size());
}

QStringList entriesOf(const QString &directory)
{
    return QDir(directory).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name);
}

// The keys the store announced and the save failures it reported.
struct Recorder {
    explicit Recorder(PreferenceStore &store)
    {
        QObject::connect(&store, &PreferenceStore::changed, [this](const QString &key) { changed << key; });
        QObject::connect(&store, &PreferenceStore::writeFailed, [this](const QString &m) { failures << m; });
    }
    QStringList changed;
    QStringList failures;
};

class PreferenceStoreTest : public ::testing::Test {
protected:
    QString path() const { return dir.filePath("preferences.json"); }

    QTemporaryDir dir;
};

TEST_F(PreferenceStoreTest, ValuesKeepTheirTypesAcrossAReload)
{
    struct Case {
        Case(const char *k, QVariant w, QVariant r = {}) : key(k), written(w), read(r.isValid() ? r : w) {}
        const char *key;
        QVariant written;
        QVariant read; // what a reloaded store holds, type and all
    };
    const Case cases[] = {
        {"boolFalse", false},
        {"int", 42, QVariant::fromValue<qint64>(42)},
        {"largest", QVariant::fromValue(std::numeric_limits<qint64>::max())},
        {"smallest", QVariant::fromValue(std::numeric_limits<qint64>::min())},
        {"sum", 0.1 + 0.2},
        {"integralDouble", 3.0},
        {"float", 1.5f, 1.5},
        {"inf", infinity},
        {"minusInf", -infinity},
        {"falseText", "false"},
        {"emptyText", QString()},
        {"unicode", "Grüße, 日本語 😀 \"quoted\"\n"},
        {"list", QStringList{"a", "", "b,c", "ü"}},
        {"binary", QByteArray("\x00\xff\x80 data\n", 9)},
        {"emptyBinary", QByteArray()},
    };
    {
        PreferenceStore store(dir.path());
        EXPECT_FALSE(store.contains("int"));
        EXPECT_FALSE(store.object("int").isValid());
        for (const auto &c : cases)
            store.set(c.key, c.written);
        store.set(QVariantMap{{"negativeZero", -0.0}, {"nan", nan}});
    }
    PreferenceStore reloaded(dir.path());
    EXPECT_TRUE(reloaded.loadWarning().isEmpty()) << reloaded.loadWarning().toStdString();
    for (const auto &c : cases) {
        EXPECT_EQ(reloaded.object(c.key).metaType(), c.read.metaType()) << c.key;
        EXPECT_EQ(reloaded.object(c.key), c.read) << c.key;
    }
    EXPECT_TRUE(std::signbit(reloaded.doubleValue("negativeZero")));
    EXPECT_EQ(reloaded.object("nan").metaType().id(), QMetaType::Double);
    EXPECT_TRUE(std::isnan(reloaded.doubleValue("nan")));
    reloaded.remove("boolFalse");
    EXPECT_FALSE(PreferenceStore(dir.path()).contains("boolFalse"));
}

TEST_F(PreferenceStoreTest, ReadersGiveAnEmptyValueForAnotherTypeAndIntegerTruncatesADouble)
{
    PreferenceStore store(dir.path());
    EXPECT_EQ(store.integer("missing"), 0);
    EXPECT_FALSE(QFile::exists(path())) << "reading alone writes nothing";
    store.set(QVariantMap{{"text", "true"}, {"one", 1}, {"fraction", -3.9}, {"huge", 1e300}, {"nan", nan}});
    EXPECT_FALSE(store.boolValue("text"));
    EXPECT_FALSE(store.boolValue("one"));
    EXPECT_EQ(store.integer("text"), 0);
    EXPECT_EQ(store.integer("fraction"), -3);
    EXPECT_EQ(store.integer("huge"), 0);
    EXPECT_EQ(store.integer("nan"), 0);
    EXPECT_EQ(store.doubleValue("one"), 1.0);
    EXPECT_EQ(store.doubleValue("text"), 0.0);
    EXPECT_TRUE(store.string("one").isEmpty());
    EXPECT_TRUE(store.stringArray("text").isEmpty());
    EXPECT_TRUE(store.data("text").isEmpty());
}

TEST_F(PreferenceStoreTest, UnsupportedValuesAreRefusedAndChangeNothingNotEvenBesideOthers)
{
    PreferenceStore store(dir.path());
    Recorder recorder(store);
    store.set("kept", 1);
    recorder.changed.clear();
    const QVariant refused[] = {QVariant(), QDate(2024, 1, 1), QVariantMap{{"a", 1}},
                                QVariant::fromValue(std::numeric_limits<quint64>::max())};
    for (const QVariant &value : refused) {
        try {
            store.set("kept", value);
            ADD_FAILURE() << "accepted " << value.metaType().name();
        } catch (const LocalError &error) {
            EXPECT_TRUE(error.message().contains("“kept”")) << error.message().toStdString();
        }
    }
    EXPECT_THROW(store.set(QString(), true), LocalError);
    // Several keys are saved together or not at all.
    EXPECT_THROW(store.set(QVariantMap{{"kept", 5}, {"y", QDate(2024, 1, 1)}}), LocalError);
    EXPECT_EQ(store.keys(), QStringList{"kept"});
    EXPECT_EQ(PreferenceStore(dir.path()).object("kept"), QVariant::fromValue<qint64>(1));
    EXPECT_TRUE(recorder.changed.isEmpty());
    EXPECT_TRUE(recorder.failures.isEmpty());
}

// A write cut off half way leaves the previous file whole; the value stays in
// memory, and setting it again retries the save until one works.
TEST_F(PreferenceStoreTest, AFailedWriteLeavesThePreviousFileAndTheSameValueRetriesIt)
{
    PreferenceStore store(dir.path());
    Recorder recorder(store);
    store.set("small", true);
    const QByteArray before = test::fileBytes(path());
    ASSERT_FALSE(before.isEmpty());
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit original{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &original), 0);
    rlimit limited = original;
    limited.rlim_cur = 4096;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    const QString large(100000, QChar('z'));
    store.set("large", large);
    store.set("large", large);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &original), 0);
    EXPECT_EQ(test::fileBytes(path()), before);
    EXPECT_EQ(entriesOf(dir.path()), QStringList{"preferences.json"});
    EXPECT_EQ(store.string("large"), large);
    ASSERT_EQ(recorder.failures.size(), 2);
    EXPECT_TRUE(recorder.failures[0].contains("until Kestil quits")) << recorder.failures[0].toStdString();
    EXPECT_EQ(store.lastWriteError(), recorder.failures[1]);
    EXPECT_EQ(recorder.changed, (QStringList{"small", "large"}));
    store.set("large", large);
    EXPECT_TRUE(store.lastWriteError().isEmpty());
    EXPECT_EQ(recorder.failures.size(), 2);
    EXPECT_EQ(PreferenceStore(dir.path()).string("large"), large);
    // Once saved, the same value writes nothing.
    ASSERT_TRUE(QFile::remove(path()));
    store.set("large", large);
    EXPECT_FALSE(QFile::exists(path()));
}

TEST_F(PreferenceStoreTest, ACorruptFileIsKeptAsideAndTheStoreStartsEmpty)
{
    for (const QByteArray &bytes : {QByteArray("{\"format\": 1, \"values\": {\"a\": "),
                                    QByteArray("\xff\xfe garbage \x00", 12), QByteArray()}) {
        QTemporaryDir scratch;
        writeFile(scratch.filePath("preferences.json"), bytes);
        PreferenceStore store(scratch.path());
        EXPECT_TRUE(store.keys().isEmpty());
        const QString warning = store.loadWarning();
        EXPECT_TRUE(warning.startsWith("The settings file")) << warning.toStdString();
        EXPECT_TRUE(warning.contains("default settings")) << warning.toStdString();
        const QStringList entries = entriesOf(scratch.path());
        ASSERT_EQ(entries.size(), 1) << entries.join(", ").toStdString();
        EXPECT_TRUE(entries[0].startsWith("preferences.json.unreadable-")) << entries[0].toStdString();
        EXPECT_TRUE(warning.contains(QDir::toNativeSeparators(scratch.filePath(entries[0]))));
        store.set("showTags", true);
        EXPECT_TRUE(store.lastWriteError().isEmpty());
        EXPECT_EQ(test::fileBytes(scratch.filePath(entries[0])), bytes);
        EXPECT_TRUE(PreferenceStore(scratch.path()).boolValue("showTags"));
    }
}

TEST_F(PreferenceStoreTest, ChangeSignalsNameEachWrittenKeyOnceAllAreInPlaceAndObserversShareOneValue)
{
    PreferenceStore store(dir.path());
    Recorder recorder(store);
    store.set("a", true);
    store.set("b", 1);
    store.set("a", true); // same value: nothing written
    store.set("b", 1.0);  // same number, another type: a change
    store.set("a", "true");
    store.remove("b");
    store.remove("b"); // already missing
    EXPECT_EQ(recorder.changed, (QStringList{"a", "b", "b", "a", "b"}));
    // Several keys in one write: each changed one is announced, in key
    // order, once all are in place.
    recorder.changed.clear();
    QStringList seenInsideSignal;
    QObject::connect(&store, &PreferenceStore::changed,
                     [&](const QString &key) { seenInsideSignal << key + "=" + store.string("z"); });
    store.set(QVariantMap{{"a", "true"}, {"y", 2.0}, {"z", "z"}});
    EXPECT_EQ(recorder.changed, (QStringList{"y", "z"}));
    EXPECT_EQ(seenInsideSignal, (QStringList{"y=z", "z=z"}));
    PreferenceValue *first = store.observe("showRecordingWidget");
    PreferenceValue *second = store.observe("showRecordingWidget");
    PreferenceValue *other = store.observe("showTags");
    ASSERT_EQ(first, second);
    EXPECT_EQ(first->key(), "showRecordingWidget");
    EXPECT_FALSE(first->value().isValid());
    QVariantList seen;
    int otherChanges = 0;
    QObject::connect(first, &PreferenceValue::valueChanged, [&](const QVariant &v) { seen << v; });
    QObject::connect(other, &PreferenceValue::valueChanged, [&] { ++otherChanges; });
    store.set("showRecordingWidget", false);
    EXPECT_EQ(first->value(), QVariant(false));
    second->setValue(true);
    EXPECT_TRUE(store.boolValue("showRecordingWidget"));
    first->remove();
    EXPECT_FALSE(store.contains("showRecordingWidget"));
    EXPECT_EQ(seen, (QVariantList{false, true, QVariant()}));
    EXPECT_EQ(otherChanges, 0);
}

TEST_F(PreferenceStoreTest, AWriteFromAWorkerReachesMainThreadObserversQueued)
{
    PreferenceStore store(dir.path());
    PreferenceValue *observer = store.observe("kestilCompletedLocalSummaries");
    QList<Qt::HANDLE> threads;
    QVariantList values;
    QObject::connect(observer, &PreferenceValue::valueChanged, &store, [&](const QVariant &v) {
        threads << QThread::currentThreadId();
        values << v;
    });
    std::unique_ptr<QThread> worker(QThread::create([&] {
        for (int i = 1; i <= 20; ++i)
            store.set("kestilCompletedLocalSummaries", i);
    }));
    worker->start();
    ASSERT_TRUE(worker->wait(10000));
    EXPECT_TRUE(values.isEmpty()) << "delivered on the main thread only";
    QCoreApplication::processEvents();
    ASSERT_EQ(values.size(), 20);
    for (Qt::HANDLE thread : threads)
        EXPECT_EQ(thread, QThread::currentThreadId());
    EXPECT_EQ(values.last(), QVariant::fromValue<qint64>(20));
    EXPECT_EQ(PreferenceStore(dir.path()).integer("kestilCompletedLocalSummaries"), 20);
}

TEST(PreferenceStoreLocation, FollowsTheConfigurationVariables)
{
    const QByteArray savedConfig = qgetenv("KESTIL_CONFIG_DIR"), savedXdg = qgetenv("XDG_CONFIG_HOME");
    qputenv("KESTIL_CONFIG_DIR", "/tmp/kestil-config");
    qputenv("XDG_CONFIG_HOME", "/tmp/xdg");
    EXPECT_EQ(PreferenceStore::standardDirectory(), "/tmp/kestil-config");
    qunsetenv("KESTIL_CONFIG_DIR");
    EXPECT_EQ(PreferenceStore::standardDirectory(), "/tmp/xdg/Kestil");
    qputenv("XDG_CONFIG_HOME", "relative/path");
    EXPECT_EQ(PreferenceStore::standardDirectory(), QDir::homePath() + "/.config/Kestil");
    QTemporaryDir scratch;
    qputenv("KESTIL_CONFIG_DIR", scratch.path().toUtf8());
    PreferenceStore &standard = PreferenceStore::standard();
    EXPECT_EQ(&standard, &PreferenceStore::standard());
    standard.set("transcriptionLanguage", "de-DE");
    EXPECT_TRUE(QFile::exists(scratch.filePath("preferences.json")));
    for (const auto &[name, value] :
         {std::pair{"KESTIL_CONFIG_DIR", savedConfig}, {"XDG_CONFIG_HOME", savedXdg}})
        value.isNull() ? qunsetenv(name) : qputenv(name, value);
}

// A hand-edited file: each entry is read when it fits its type; the others
// (from a newer version, or edited by hand) are written back unchanged.
TEST_F(PreferenceStoreTest, HandWrittenEntriesAreReadWhenTheyFitTheirTypeAndTheOthersAreKept)
{
    writeFile(path(), R"({"format": 7, "values": {
        "plainNumber": {"type": "integer", "value": 12},
        "largestExact": {"type": "integer", "value": 9007199254740992},
        "beyondExact": {"type": "integer", "value": 18014398509481984},
        "negative": {"type": "integer", "value": "-7"},
        "fraction": {"type": "integer", "value": 1.5},
        "overflow": {"type": "integer", "value": "9223372036854775808"},
        "wholeDouble": {"type": "double", "value": 2},
        "textDouble": {"type": "double", "value": "2.5"},
        "boolAsText": {"type": "bool", "value": "true"},
        "mixedList": {"type": "stringArray", "value": ["a", 1]},
        "badBase64": {"type": "data", "value": "***"},
        "goodBase64": {"type": "data", "value": "AP8="},
        "fromANewerVersion": {"type": "colour", "value": [1, 0, 0]},
        "replaced": {"type": "date", "value": "2024-01-01"},
        "noType": {"value": true},
        "notAnEntry": 5}})");
    PreferenceStore store(dir.path());
    EXPECT_TRUE(store.loadWarning().isEmpty());
    EXPECT_EQ(store.keys(),
              (QStringList{"goodBase64", "largestExact", "negative", "plainNumber", "wholeDouble"}));
    EXPECT_EQ(store.object("plainNumber"), QVariant::fromValue<qint64>(12));
    EXPECT_EQ(store.object("largestExact"), QVariant::fromValue<qint64>(9007199254740992));
    EXPECT_EQ(store.object("negative"), QVariant::fromValue<qint64>(-7));
    EXPECT_EQ(store.object("wholeDouble"), QVariant(2.0));
    EXPECT_EQ(store.object("goodBase64"), QVariant(QByteArray("\x00\xff", 2)));

    store.set("replaced", "now text");
    store.remove("badBase64");
    const QJsonObject values =
        QJsonDocument::fromJson(test::fileBytes(path())).object().value("values").toObject();
    EXPECT_EQ(values.value("fromANewerVersion").toObject().value("type").toString(), "colour");
    EXPECT_EQ(values.value("fraction").toObject().value("value").toDouble(), 1.5);
    EXPECT_EQ(values.size(), 15);
    EXPECT_FALSE(values.contains("badBase64"));
    EXPECT_EQ(PreferenceStore(dir.path()).string("replaced"), "now text");
}

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

TEST(ApplicationInfo, OnlyABooleanTrueEnablesTheUpdateServiceAndThisBuildHasNone)
{
    EXPECT_FALSE(ApplicationInfo::enableSparkle());
    EXPECT_TRUE(ApplicationInfo::enableSparkle({{"KestilEnableSparkle", true}}));
    for (const QVariant &notTrue : {QVariant(false), QVariant("YES"), QVariant(1)})
        EXPECT_FALSE(ApplicationInfo::enableSparkle({{"KestilEnableSparkle", notTrue}}))
            << notTrue.toString().toStdString();
}

} // namespace
