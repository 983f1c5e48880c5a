// The libraries under generation answer at all: llama.cpp tokenises with a
// real vocabulary, ICU finds word boundaries.
#include "generation/TextWords.h"

#include <llama.h>

#include <gtest/gtest.h>

#include <vector>

TEST(GenerationSmoke, LlamaTokenisesWithARealVocabulary)
{
    llama_backend_init();
    llama_model_params params = llama_model_default_params();
    params.vocab_only = true;
    llama_model *model =
        llama_model_load_from_file(KESTIL_LLAMA_VOCAB_DIR "/ggml-vocab-llama-spm.gguf", params);
    ASSERT_NE(model, nullptr) << "cannot load " KESTIL_LLAMA_VOCAB_DIR "/ggml-vocab-llama-spm.gguf";
    const llama_vocab *vocab = llama_model_get_vocab(model);
    EXPECT_EQ(llama_vocab_n_tokens(vocab), 32000);

    const std::string text = "Hello world";
    std::vector<llama_token> tokens(16);
    const int32_t count = llama_tokenize(vocab, text.data(), int32_t(text.size()), tokens.data(),
                                         int32_t(tokens.size()), true, false);
    ASSERT_EQ(count, 3);
    tokens.resize(size_t(count));
    // The beginning-of-text marker, "▁Hello", "▁world" of LLaMA's SentencePiece vocabulary.
    EXPECT_EQ(tokens, (std::vector<llama_token>{1, 15043, 3186}));

    char piece[32];
    const int32_t length = llama_token_to_piece(vocab, tokens[2], piece, sizeof piece, 0, false);
    EXPECT_EQ(std::string(piece, size_t(length)), " world");
    llama_model_free(model);
}

TEST(GenerationSmoke, IcuCountsWords)
{
    EXPECT_EQ(kestil::TextWords::wordCount(QStringLiteral("It's 9 o'clock, and the café is open — finally!")),
              9);
    EXPECT_EQ(kestil::TextWords::wordCount(QStringLiteral("日本語のテキスト")), 3);
}
