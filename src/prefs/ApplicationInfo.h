#pragma once

#include <QVariantMap>

// The application's information dictionary: build-time switches compiled into
// the program, read by key like the preferences but never written.
namespace kestil::ApplicationInfo {

// This build's dictionary. It carries no KestilCloudKitContainerIdentifier, so
// the note store always runs local-only, and KestilEnableSparkle is false,
// because the distribution updates the program.
QVariantMap dictionary();

// Whether the update service is compiled in and allowed: only a stored boolean
// true counts; a missing key or any other value means no.
bool enableSparkle(const QVariantMap &info);
inline bool enableSparkle()
{
    return enableSparkle(dictionary());
}

} // namespace kestil::ApplicationInfo
