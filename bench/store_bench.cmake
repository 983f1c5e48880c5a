kestil_bench(store_bench LINK kestil_core)
