kestil_bench(library_bench LINK kestil_shell)
