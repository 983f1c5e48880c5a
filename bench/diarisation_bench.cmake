# The mixes and the error measure are the tests' own (tests/support), so the
# benchmark is built with the tests.
if(TARGET kestil_diarisation_support)
  kestil_bench(diarisation_bench LINK kestil_speech kestil_diarisation_support)
  target_compile_definitions(diarisation_bench PRIVATE
    KESTIL_DIARISATION_WORKER="$<TARGET_FILE:kestil-diarisation-worker>")
endif()
