#include "shell/SupportTargets.h"

#include "shell/ApplicationIdentity.h"

#ifndef KESTIL_HOMEPAGE_URL
#define KESTIL_HOMEPAGE_URL "https://kestil.app"
#endif
#ifndef KESTIL_SUPPORT_TIP_URL
#define KESTIL_SUPPORT_TIP_URL "https://kestil.app/support"
#endif
#ifndef KESTIL_SUPPORT_EMAIL
#define KESTIL_SUPPORT_EMAIL "support@kestil.app"
#endif

namespace kestil {

SupportTargets SupportTargets::standard()
{
    return SupportTargets{
        QUrl(QStringLiteral("appstream://") + applicationId()),
        QUrl(QStringLiteral(KESTIL_SUPPORT_TIP_URL)),
        QUrl(QStringLiteral(KESTIL_HOMEPAGE_URL)),
        QUrl(QStringLiteral("mailto:") + QStringLiteral(KESTIL_SUPPORT_EMAIL) +
             QStringLiteral("?subject=Kestil%20feedback")),
    };
}

} // namespace kestil
