#pragma once

namespace kestil {

// Makes ggml's compute backends available to whisper.cpp and llama.cpp; call
// before either loads a model. Safe to call from any thread, any number of
// times. The CPU backend comes as one module per instruction-set level beside
// the ggml library, and ggml takes the best one this processor runs. Returns
// false when no backend could be loaded, in which case no model can load.
bool loadComputeBackends();

// Whether this processor has what the least of those modules needs: AVX2,
// FMA and F16C on x86-64. Without them whisper.cpp and llama.cpp would stop
// the program at their first instruction that needs one.
bool processorRunsComputeBackends();

} // namespace kestil
