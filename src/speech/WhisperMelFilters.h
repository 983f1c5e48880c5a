#pragma once

#include <vector>

namespace kestil {

// The mel filterbank that whisper's front end multiplies each power spectrum
// by: `bands` triangular filters over the fftSize / 2 + 1 frequency bins of a
// 16 kHz signal, on the Slaney mel scale (linear below 1 kHz, logarithmic
// above) and scaled to equal area. Row-major, bands x bins, computed in double
// and stored as 32-bit floats exactly as the model was trained with (librosa's
// filters.mel), since whisper hears a differently scaled spectrum as another
// voice.
std::vector<float> whisperMelFilters(int bands, int fftSize = 400, double sampleRate = 16000.0);

} // namespace kestil
