#pragma once

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <optional>

namespace kestil::LocalPaths {

inline constexpr char syncPreferenceKey[] = "kestilPrivateICloudSyncEnabled";
inline constexpr char containerInfoKey[] = "KestilCloudKitContainerIdentifier";
inline constexpr char directoryName[] = "Kestil";
inline constexpr char allowedContainerCharacters[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-";

// The data directory: $KESTIL_DATA_DIR when set, else $XDG_DATA_HOME/Kestil
// (~/.local/share/Kestil). Created with its parents; a failure throws the
// system's words.
QString rootDirectory();

// The container identifier under the information key, if it has the form of
// one: a string of at least 8 characters that starts with "iCloud." and holds
// only the allowed characters. Anything else counts as absent.
std::optional<QString> validatedContainerIdentifier(const QVariantMap &info);

// Sync is on unless the preference holds a boolean false; a build without a
// valid identifier is local-only whatever the preference says.
std::optional<QString> resolveContainerIdentifier(const QVariantMap &info, const QVariant &syncPreference);

} // namespace kestil::LocalPaths
