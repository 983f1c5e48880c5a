kestil_bench(prefs_write LINK kestil_prefs)
