#pragma once

#include <QUrl>

namespace kestil {

// Where the four support actions lead: the deployment's, compiled in (see
// cmake/KestilInstall.cmake). The review opens the software centre at
// Kestil's page, where reviews are written; the tip a web page; sharing
// copies the product's link; feedback a new mail to the support address.
struct SupportTargets {
    QUrl review;
    QUrl tip;
    QUrl share;
    QUrl feedback;

    static SupportTargets standard();
};

} // namespace kestil
