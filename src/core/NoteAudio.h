#pragma once

#include <QString>
#include <QUuid>

#include <functional>
#include <vector>

namespace kestil {

// A note's recorded audio on the timeline its transcript uses: its segments in
// the order they were recorded, one after the other, mixed to mono float at
// `rate`. A segment torn at the end (a crash mid-sample) gives its whole
// samples; a folder without a manifest is not a segment. Throws SystemError
// when a segment cannot be read, CancellationError once `cancelled` answers
// true. `progress` hears the share read, from 0 to 1.
std::vector<float> readNoteAudio(const QString &root, const QUuid &noteID, double rate,
                                 const std::function<bool()> &cancelled = {},
                                 const std::function<void(double)> &progress = {});

} // namespace kestil
