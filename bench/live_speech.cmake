kestil_bench(live_speech LINK kestil_speech)
