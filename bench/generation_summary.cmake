kestil_bench(generation_summary LINK kestil_generation Qt6::Core)
