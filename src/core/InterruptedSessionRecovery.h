#pragma once

namespace kestil {

class LocalAppModel;

// The launch pass that repairs recordings a crash left behind: every segment
// whose manifest still says "not complete" gets a playable "audio.caf" (an
// existing one that matches the raw file is kept as it is), its note is
// linked to its audio, and the manifest is marked complete last, so that a
// crash during the pass simply repeats it. Runs before the first window.
//
// A segment that cannot be repaired is left as it is and reported in the
// model's message; the raw audio is never changed. Throws when the
// recordings cannot be listed or a repaired note cannot be updated.
void scanInterruptedSessions(LocalAppModel &model);

// The same at launch: a failure ends in the model's message instead.
void recoverInterruptedSessions(LocalAppModel &model);

} // namespace kestil
