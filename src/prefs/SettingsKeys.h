#pragma once

#include "PreferenceStore.h"
#include "RecordingWidgetPosition.h"

#include <QByteArray>
#include <QLatin1StringView>
#include <QString>
#include <QStringList>

#include <optional>

// Every preference Kestil keeps, with its type and its default. Nothing
// registers defaults: each reader below applies the default of its key where it
// reads, so a missing key and a key holding the default behave alike. The store
// holds preferences and prompt counters only, never note content.
namespace kestil::settings {

namespace keys {
// Locale identifier of speech recognition, summaries and note chat (text).
inline constexpr QLatin1StringView transcriptionLanguage{"transcriptionLanguage"};
// Record the system's audio output along with the microphone (boolean).
inline constexpr QLatin1StringView recordSystemAudio{"recordSystemAudio"};
// Show the floating recording widget during a recording (boolean).
inline constexpr QLatin1StringView showRecordingWidget{"showRecordingWidget"};
// Origin of the widget on screen, saved when it moves (floating point numbers).
inline constexpr QLatin1StringView recordingWidgetPositionX{"recordingWidgetPositionX"};
inline constexpr QLatin1StringView recordingWidgetPositionY{"recordingWidgetPositionY"};
// The sidebar's folder list is open (boolean).
inline constexpr QLatin1StringView foldersExpanded{"foldersExpanded"};
// Held by the settings view: the display of tags (boolean).
inline constexpr QLatin1StringView showTags{"showTags"};
// Held by the note detail view: a cleaned transcript (boolean).
inline constexpr QLatin1StringView preferCleanedTranscript{"preferCleanedTranscript"};
// Raw values of ThemeColor and AppearanceMode (text).
inline constexpr QLatin1StringView selectedThemeColor{"selectedThemeColor"};
inline constexpr QLatin1StringView selectedAppearanceMode{"selectedAppearanceMode"};
// Use the private cloud store; read once at launch (boolean).
inline constexpr QLatin1StringView kestilPrivateICloudSyncEnabled{"kestilPrivateICloudSyncEnabled"};
// The welcome flow has been finished (boolean).
inline constexpr QLatin1StringView kestilWelcomeCompleted{"kestilWelcomeCompleted.v1"};
// Send a notification when a summary is ready (boolean).
inline constexpr QLatin1StringView kestilSummaryNotificationsEnabled{"kestilSummaryNotificationsEnabled"};
// Completed on-device summaries (integer).
inline constexpr QLatin1StringView kestilCompletedLocalSummaries{"kestilCompletedLocalSummaries"};
// Raw values of the support actions the user has taken (list of text).
inline constexpr QLatin1StringView kestilSupportClickedActions{"kestilSupportClickedActions.v1"};
// Automatic support prompts no longer appear (boolean).
inline constexpr QLatin1StringView kestilSupportAutomaticRemindersStopped{
    "kestilSupportAutomaticRemindersStopped.v1"};
// The completed count at which the support card last appeared (integer).
inline constexpr QLatin1StringView kestilSupportPresentedSummaryCount{
    "kestilSupportPresentedSummaryCount.v1"};
// The system's review prompt has been requested once (boolean).
inline constexpr QLatin1StringView kestilNativeReviewRequested{"kestilNativeReviewRequested"};
// The last speech set-up failure; removed when set-up succeeds (text).
inline constexpr QLatin1StringView localSpeechLastFailure{"localSpeechLastFailure"};
// The Obsidian sync folder, as the UTF-8 bytes of its path (binary data).
inline constexpr QLatin1StringView kestilObsidianSyncFolderBookmark{"kestilObsidianSyncFolderBookmark"};
// On-device AI (summaries, titles, tags and Ask AI) is switched on; off makes
// the language model unavailable with the reason languageModelDisabled (boolean).
inline constexpr QLatin1StringView kestilOnDeviceLanguageModelEnabled{
    "kestilOnDeviceLanguageModelEnabled.v1"};
// Address the on-device language models are downloaded from (text, an http or
// https URL); the environment variable KESTIL_LANGUAGE_MODEL_BASE_URL wins.
inline constexpr QLatin1StringView kestilLanguageModelBaseAddress{"kestilLanguageModelBaseAddress.v1"};
// Size of the whisper model that speech set-up downloads (text: "tiny",
// "base" or "small"; "base" when missing or anything else).
inline constexpr QLatin1StringView kestilSpeechModelSize{"kestilSpeechModelSize.v1"};
// Address the speech models are downloaded from (text, an http or https URL);
// the environment variable KESTIL_SPEECH_MODEL_BASE_URL wins.
inline constexpr QLatin1StringView kestilSpeechModelBaseAddress{"kestilSpeechModelBaseAddress.v1"};
// Reserved: declared with their defaults, and nothing reads or writes them.
inline constexpr QLatin1StringView syncFolderAutoSyncEnabled{"syncFolderAutoSyncEnabled"};
inline constexpr QLatin1StringView syncFolderLastSyncTimestamp{"syncFolderLastSyncTimestamp"};
inline constexpr QLatin1StringView syncFolderLastSyncError{"syncFolderLastSyncError"};

// Keys of the application information (ApplicationInfo.h), not of the store.
inline constexpr QLatin1StringView KestilCloudKitContainerIdentifier{"KestilCloudKitContainerIdentifier"};
inline constexpr QLatin1StringView KestilEnableSparkle{"KestilEnableSparkle"};
} // namespace keys

inline constexpr QLatin1StringView defaultTranscriptionLanguage{"en-US"};
inline constexpr QLatin1StringView defaultThemeColor{"Purple"};
inline constexpr QLatin1StringView defaultAppearanceMode{"System"};

// Readers. None throws; each gives its key's default when the key is missing
// or holds a value of another type.

// "en-US" when missing, not text, or empty.
QString transcriptionLanguage(const PreferenceStore &store);
// True unless a boolean false is stored.
bool recordSystemAudio(const PreferenceStore &store);
// True unless a boolean false is stored.
bool showRecordingWidget(const PreferenceStore &store);
// Only when both coordinates hold finite numbers; otherwise the widget takes
// its default place.
std::optional<RecordingWidgetPosition> recordingWidgetPosition(const PreferenceStore &store);
bool foldersExpanded(const PreferenceStore &store);
bool showTags(const PreferenceStore &store);
bool preferCleanedTranscript(const PreferenceStore &store);
// "Purple" when missing, not text, or empty.
QString selectedThemeColor(const PreferenceStore &store);
// "System" when missing, not text, or empty.
QString selectedAppearanceMode(const PreferenceStore &store);
// True unless a boolean false is stored.
bool privateICloudSyncEnabled(const PreferenceStore &store);
bool welcomeCompleted(const PreferenceStore &store);
// True unless a boolean false is stored.
bool summaryNotificationsEnabled(const PreferenceStore &store);
// The stored count; a negative one counts as 0.
qint64 completedLocalSummaries(const PreferenceStore &store);
// The raw values as they were written, unknown ones included: the reader of
// the support actions drops those it does not know.
QStringList supportClickedActions(const PreferenceStore &store);
bool supportAutomaticRemindersStopped(const PreferenceStore &store);
// Nothing until the support card has appeared once.
std::optional<qint64> supportPresentedSummaryCount(const PreferenceStore &store);
bool nativeReviewRequested(const PreferenceStore &store);
// Nothing while the last set-up succeeded or none has failed yet.
std::optional<QString> localSpeechLastFailure(const PreferenceStore &store);
// Nothing until the user picks a folder.
std::optional<QByteArray> obsidianSyncFolderBookmark(const PreferenceStore &store);
// True unless a boolean false is stored.
bool onDeviceLanguageModelEnabled(const PreferenceStore &store);
// True unless a boolean false is stored.
bool syncFolderAutoSyncEnabled(const PreferenceStore &store);
double syncFolderLastSyncTimestamp(const PreferenceStore &store);
QString syncFolderLastSyncError(const PreferenceStore &store);

// Writers, each in its key's type. Like PreferenceStore::set, each saves at
// once and reports a failed save through writeFailed.
void setTranscriptionLanguage(PreferenceStore &store, const QString &localeIdentifier);
void setRecordSystemAudio(PreferenceStore &store, bool on);
void setShowRecordingWidget(PreferenceStore &store, bool on);
void setRecordingWidgetPosition(PreferenceStore &store, RecordingWidgetPosition position);
void setFoldersExpanded(PreferenceStore &store, bool expanded);
void setShowTags(PreferenceStore &store, bool on);
void setPreferCleanedTranscript(PreferenceStore &store, bool on);
void setSelectedThemeColor(PreferenceStore &store, const QString &rawValue);
void setSelectedAppearanceMode(PreferenceStore &store, const QString &rawValue);
void setPrivateICloudSyncEnabled(PreferenceStore &store, bool on);
void setWelcomeCompleted(PreferenceStore &store, bool completed);
void setSummaryNotificationsEnabled(PreferenceStore &store, bool on);
void setCompletedLocalSummaries(PreferenceStore &store, qint64 count);
void setSupportClickedActions(PreferenceStore &store, const QStringList &rawValues);
void removeSupportClickedActions(PreferenceStore &store);
void setSupportAutomaticRemindersStopped(PreferenceStore &store, bool stopped);
void setSupportPresentedSummaryCount(PreferenceStore &store, qint64 count);
void setNativeReviewRequested(PreferenceStore &store, bool requested);
void setLocalSpeechLastFailure(PreferenceStore &store, const QString &failure);
void removeLocalSpeechLastFailure(PreferenceStore &store);
void setObsidianSyncFolderBookmark(PreferenceStore &store, const QByteArray &bookmark);
void removeObsidianSyncFolderBookmark(PreferenceStore &store);
void setOnDeviceLanguageModelEnabled(PreferenceStore &store, bool on);

} // namespace kestil::settings
