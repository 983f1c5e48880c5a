#include "SettingsKeys.h"

#include <cmath>

namespace kestil::settings {

namespace {

// For the keys whose default is true a missing key must not read as false, so
// only a stored boolean counts; anything else gives the default.
bool storedBool(const PreferenceStore &store, QLatin1StringView key, bool fallback)
{
    const QVariant value = store.object(key);
    return value.metaType().id() == QMetaType::Bool ? value.toBool() : fallback;
}

QString nonEmptyString(const PreferenceStore &store, QLatin1StringView key, QLatin1StringView fallback)
{
    const QString value = store.string(key);
    return value.isEmpty() ? QString(fallback) : value;
}

std::optional<double> storedNumber(const PreferenceStore &store, QLatin1StringView key)
{
    const QVariant value = store.object(key);
    switch (value.metaType().id()) {
    case QMetaType::Double:
    case QMetaType::LongLong: {
        const double d = value.toDouble();
        return std::isfinite(d) ? std::optional<double>(d) : std::nullopt;
    }
    default:
        return std::nullopt;
    }
}

} // namespace

QString transcriptionLanguage(const PreferenceStore &store)
{
    return nonEmptyString(store, keys::transcriptionLanguage, defaultTranscriptionLanguage);
}

bool recordSystemAudio(const PreferenceStore &store)
{
    return storedBool(store, keys::recordSystemAudio, true);
}

bool showRecordingWidget(const PreferenceStore &store)
{
    return storedBool(store, keys::showRecordingWidget, true);
}

std::optional<RecordingWidgetPosition> recordingWidgetPosition(const PreferenceStore &store)
{
    const auto x = storedNumber(store, keys::recordingWidgetPositionX);
    const auto y = storedNumber(store, keys::recordingWidgetPositionY);
    if (!x || !y)
        return std::nullopt;
    return RecordingWidgetPosition{*x, *y};
}

bool foldersExpanded(const PreferenceStore &store)
{
    return store.boolValue(keys::foldersExpanded);
}

bool showTags(const PreferenceStore &store)
{
    return store.boolValue(keys::showTags);
}

bool preferCleanedTranscript(const PreferenceStore &store)
{
    return store.boolValue(keys::preferCleanedTranscript);
}

QString selectedThemeColor(const PreferenceStore &store)
{
    return nonEmptyString(store, keys::selectedThemeColor, defaultThemeColor);
}

QString selectedAppearanceMode(const PreferenceStore &store)
{
    return nonEmptyString(store, keys::selectedAppearanceMode, defaultAppearanceMode);
}

bool privateICloudSyncEnabled(const PreferenceStore &store)
{
    return storedBool(store, keys::kestilPrivateICloudSyncEnabled, true);
}

bool welcomeCompleted(const PreferenceStore &store)
{
    return store.boolValue(keys::kestilWelcomeCompleted);
}

bool onDeviceLanguageModelEnabled(const PreferenceStore &store)
{
    return storedBool(store, keys::kestilOnDeviceLanguageModelEnabled, true);
}

bool summaryNotificationsEnabled(const PreferenceStore &store)
{
    return storedBool(store, keys::kestilSummaryNotificationsEnabled, true);
}

qint64 completedLocalSummaries(const PreferenceStore &store)
{
    return std::max<qint64>(0, store.integer(keys::kestilCompletedLocalSummaries));
}

QStringList supportClickedActions(const PreferenceStore &store)
{
    return store.stringArray(keys::kestilSupportClickedActions);
}

bool supportAutomaticRemindersStopped(const PreferenceStore &store)
{
    return store.boolValue(keys::kestilSupportAutomaticRemindersStopped);
}

std::optional<qint64> supportPresentedSummaryCount(const PreferenceStore &store)
{
    const QVariant value = store.object(keys::kestilSupportPresentedSummaryCount);
    switch (value.metaType().id()) {
    case QMetaType::LongLong:
    case QMetaType::Double:
        return store.integer(keys::kestilSupportPresentedSummaryCount);
    default:
        return std::nullopt;
    }
}

bool nativeReviewRequested(const PreferenceStore &store)
{
    return store.boolValue(keys::kestilNativeReviewRequested);
}

std::optional<QString> localSpeechLastFailure(const PreferenceStore &store)
{
    const QVariant value = store.object(keys::localSpeechLastFailure);
    if (value.metaType().id() != QMetaType::QString)
        return std::nullopt;
    return value.toString();
}

std::optional<QByteArray> obsidianSyncFolderBookmark(const PreferenceStore &store)
{
    const QVariant value = store.object(keys::kestilObsidianSyncFolderBookmark);
    if (value.metaType().id() != QMetaType::QByteArray)
        return std::nullopt;
    return value.toByteArray();
}

bool syncFolderAutoSyncEnabled(const PreferenceStore &store)
{
    return storedBool(store, keys::syncFolderAutoSyncEnabled, true);
}

double syncFolderLastSyncTimestamp(const PreferenceStore &store)
{
    return store.doubleValue(keys::syncFolderLastSyncTimestamp);
}

QString syncFolderLastSyncError(const PreferenceStore &store)
{
    return store.string(keys::syncFolderLastSyncError);
}

void setTranscriptionLanguage(PreferenceStore &store, const QString &localeIdentifier)
{
    store.set(keys::transcriptionLanguage, localeIdentifier);
}

void setRecordSystemAudio(PreferenceStore &store, bool on)
{
    store.set(keys::recordSystemAudio, on);
}

void setShowRecordingWidget(PreferenceStore &store, bool on)
{
    store.set(keys::showRecordingWidget, on);
}

void setRecordingWidgetPosition(PreferenceStore &store, RecordingWidgetPosition position)
{
    // One save for both: the widget saves its place on every move.
    store.set(QVariantMap{{keys::recordingWidgetPositionX, position.x},
                          {keys::recordingWidgetPositionY, position.y}});
}

void setFoldersExpanded(PreferenceStore &store, bool expanded)
{
    store.set(keys::foldersExpanded, expanded);
}

void setShowTags(PreferenceStore &store, bool on)
{
    store.set(keys::showTags, on);
}

void setPreferCleanedTranscript(PreferenceStore &store, bool on)
{
    store.set(keys::preferCleanedTranscript, on);
}

void setSelectedThemeColor(PreferenceStore &store, const QString &rawValue)
{
    store.set(keys::selectedThemeColor, rawValue);
}

void setSelectedAppearanceMode(PreferenceStore &store, const QString &rawValue)
{
    store.set(keys::selectedAppearanceMode, rawValue);
}

void setPrivateICloudSyncEnabled(PreferenceStore &store, bool on)
{
    store.set(keys::kestilPrivateICloudSyncEnabled, on);
}

void setWelcomeCompleted(PreferenceStore &store, bool completed)
{
    store.set(keys::kestilWelcomeCompleted, completed);
}

void setOnDeviceLanguageModelEnabled(PreferenceStore &store, bool on)
{
    store.set(keys::kestilOnDeviceLanguageModelEnabled, on);
}

void setSummaryNotificationsEnabled(PreferenceStore &store, bool on)
{
    store.set(keys::kestilSummaryNotificationsEnabled, on);
}

void setCompletedLocalSummaries(PreferenceStore &store, qint64 count)
{
    store.set(keys::kestilCompletedLocalSummaries, QVariant::fromValue(count));
}

void setSupportClickedActions(PreferenceStore &store, const QStringList &rawValues)
{
    store.set(keys::kestilSupportClickedActions, rawValues);
}

void removeSupportClickedActions(PreferenceStore &store)
{
    store.remove(keys::kestilSupportClickedActions);
}

void setSupportAutomaticRemindersStopped(PreferenceStore &store, bool stopped)
{
    store.set(keys::kestilSupportAutomaticRemindersStopped, stopped);
}

void setSupportPresentedSummaryCount(PreferenceStore &store, qint64 count)
{
    store.set(keys::kestilSupportPresentedSummaryCount, QVariant::fromValue(count));
}

void setNativeReviewRequested(PreferenceStore &store, bool requested)
{
    store.set(keys::kestilNativeReviewRequested, requested);
}

void setLocalSpeechLastFailure(PreferenceStore &store, const QString &failure)
{
    store.set(keys::localSpeechLastFailure, failure);
}

void removeLocalSpeechLastFailure(PreferenceStore &store)
{
    store.remove(keys::localSpeechLastFailure);
}

void setObsidianSyncFolderBookmark(PreferenceStore &store, const QByteArray &bookmark)
{
    store.set(keys::kestilObsidianSyncFolderBookmark, bookmark);
}

void removeObsidianSyncFolderBookmark(PreferenceStore &store)
{
    store.remove(keys::kestilObsidianSyncFolderBookmark);
}

} // namespace kestil::settings
