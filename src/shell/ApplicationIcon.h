#pragma once

#include <QIcon>
#include <QImage>

namespace kestil {

// Kestil's application icon, drawn rather than shipped as pixels, so that it
// is sharp at every size: the window's icon, and the hicolor PNGs that the
// installation puts beside the .desktop file (packaging/IconRenderer.cpp).
QImage applicationIconImage(int size);
QIcon applicationIcon();

} // namespace kestil
