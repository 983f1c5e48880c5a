kestil_bench(summary_render_bench LINK kestil_documents Qt6::Gui)
