kestil_bench(capture_bench LINK kestil_capture)
