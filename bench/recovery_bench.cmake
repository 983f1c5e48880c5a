kestil_bench(recovery_bench LINK kestil_core)
