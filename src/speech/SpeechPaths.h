#pragma once

#include <QString>

namespace kestil {

// Kestil's data root: $KESTIL_DATA_DIR when set, else $XDG_DATA_HOME/Kestil,
// else ~/.local/share/Kestil. The same folder the note store lives in.
QString speechDataRoot();

// Where speech models live: Models/speech/ under the data root.
QString speechModelsDirectory();

} // namespace kestil
