#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>

namespace kestil::icons {

// Kestil draws its few symbols itself, so that the window, the tray and the
// indicator look the same on every desktop, icon theme or not.
QIcon microphone(const QColor &color);
QIcon plus(const QColor &color);
QIcon pause(const QColor &color);
QIcon resume(const QColor &color);
QIcon stop(const QColor &color);
QIcon edit(const QColor &color);
// Three lines of falling length in a circle: the list's filter; filled while
// a filter is on.
QIcon filter(const QColor &color, bool filled);
QIcon folder(const QColor &color);
// A small cross in a circle: clears a field or removes a tag.
QIcon clear(const QColor &color);
QIcon magnifier(const QColor &color);
// The tray: a microphone, with a red dot while a recording runs.
QIcon tray(bool recording);
// A large crossed-out microphone for the empty transcript.
QPixmap microphoneSlash(const QColor &color, int size);
// Two circling arrows: the note is being processed.
QPixmap processing(const QColor &color, int size);

} // namespace kestil::icons
