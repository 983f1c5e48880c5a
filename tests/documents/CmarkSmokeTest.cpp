// cmark-gfm with its strikethrough extension links and parses: the inline
// Markdown of summaries depends on it.
#include <cmark-gfm-core-extensions.h>
#include <cmark-gfm.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

TEST(CmarkSmokeTest, StrikethroughExtensionRendersInlineRuns)
{
    cmark_gfm_core_extensions_ensure_registered();
    cmark_syntax_extension *strike = cmark_find_syntax_extension("strikethrough");
    ASSERT_NE(strike, nullptr);
    cmark_parser *parser = cmark_parser_new(CMARK_OPT_DEFAULT);
    cmark_parser_attach_syntax_extension(parser, strike);
    const char *text =
        "**Decision:** ship on *Friday*, ~~not Monday~~, see [plan](https://example.org) and `v2`.";
    cmark_parser_feed(parser, text, std::strlen(text));
    cmark_node *doc = cmark_parser_finish(parser);
    char *html = cmark_render_html(doc, CMARK_OPT_DEFAULT, cmark_parser_get_syntax_extensions(parser));
    const std::string out(html);
    EXPECT_NE(out.find("<strong>Decision:</strong>"), std::string::npos) << out;
    EXPECT_NE(out.find("<em>Friday</em>"), std::string::npos);
    EXPECT_NE(out.find("<del>not Monday</del>"), std::string::npos);
    EXPECT_NE(out.find("<a href=\"https://example.org\">plan</a>"), std::string::npos);
    EXPECT_NE(out.find("<code>v2</code>"), std::string::npos);
    std::free(html);
    cmark_node_free(doc);
    cmark_parser_free(parser);
}
