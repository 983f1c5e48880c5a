kestil_bench(recording_memory LINK kestil_core PkgConfig::SNDFILE)
