#pragma once

#include <QString>

namespace kestil {

// The application's identity on the desktop: the name of its .desktop file
// (without ".desktop"), of its AppStream component and of its icon, so that
// notifications, the window and the software centre all point at one entry.
inline QString applicationId()
{
    return QStringLiteral("app.kestil.Kestil");
}

} // namespace kestil
