#!/usr/bin/env python3
"""Writes tiny llama-architecture GGUF models with random weights for the
generation tests: real tokenizers (copied from llama.cpp's vocabulary-only
GGUF), a chat template, and weights small enough to decode hundreds of tokens
a second. Their output is noise; they exist to test loading, token counting,
streaming, grammars and time limits against the real llama.cpp.

Usage: tiny_llama_models.py <models-dir> <native-prefix>
Writes only the files that are missing.
"""
import os
import sys

import numpy as np
from gguf import GGUFReader, GGUFWriter, GGMLQuantizationType

LLAMA2_TEMPLATE = (
    "{% for message in messages %}{% if message['role'] == 'system' %}<<SYS>>\n{{ message['content'] }}\n<</SYS>>\n\n"
    "{% elif message['role'] == 'user' %}{{ bos_token + '[INST] ' + message['content'] + ' [/INST]' }}"
    "{% else %}{{ ' ' + message['content'] + eos_token }}{% endif %}{% endfor %}"
)


def vocabulary(native_prefix):
    reader = GGUFReader(os.path.join(native_prefix, "share/kestil/vocab/ggml-vocab-llama-spm.gguf"))
    fields = reader.fields
    return {
        "tokens": fields["tokenizer.ggml.tokens"].contents(),
        "scores": fields["tokenizer.ggml.scores"].contents(),
        "types": fields["tokenizer.ggml.token_type"].contents(),
    }


def write_model(path, vocab, *, chat_template, languages, n_embd=128, n_layer=2, n_head=4, n_head_kv=2, n_ff=256,
                context=2048, seed=7):
    rng = np.random.default_rng(seed)
    n_vocab = len(vocab["tokens"])
    head_dim = n_embd // n_head
    part = path + ".part"
    writer = GGUFWriter(part, "llama")
    writer.add_name("Kestil tiny test model")
    if languages:
        writer.add_languages(languages)
    writer.add_context_length(context)
    writer.add_embedding_length(n_embd)
    writer.add_block_count(n_layer)
    writer.add_feed_forward_length(n_ff)
    writer.add_head_count(n_head)
    writer.add_head_count_kv(n_head_kv)
    writer.add_rope_dimension_count(head_dim)
    writer.add_layer_norm_rms_eps(1e-5)
    writer.add_vocab_size(n_vocab)
    writer.add_file_type(1)
    writer.add_tokenizer_model("llama")
    writer.add_tokenizer_pre("default")
    writer.add_token_list(vocab["tokens"])
    writer.add_token_scores(vocab["scores"])
    writer.add_token_types(vocab["types"])
    writer.add_bos_token_id(1)
    writer.add_eos_token_id(2)
    writer.add_unk_token_id(0)
    writer.add_add_bos_token(True)
    writer.add_add_eos_token(False)
    if chat_template:
        writer.add_chat_template(chat_template)

    def weight(rows, cols, dtype=np.float16):
        return (rng.standard_normal((rows, cols), dtype=np.float32) * 0.05).astype(dtype)

    writer.add_tensor("token_embd.weight", weight(n_vocab, n_embd))
    writer.add_tensor("output_norm.weight", np.ones(n_embd, dtype=np.float32))
    writer.add_tensor("output.weight", weight(n_vocab, n_embd))
    kv = head_dim * n_head_kv
    for i in range(n_layer):
        writer.add_tensor(f"blk.{i}.attn_norm.weight", np.ones(n_embd, dtype=np.float32))
        writer.add_tensor(f"blk.{i}.attn_q.weight", weight(n_embd, n_embd))
        writer.add_tensor(f"blk.{i}.attn_k.weight", weight(kv, n_embd))
        writer.add_tensor(f"blk.{i}.attn_v.weight", weight(kv, n_embd))
        writer.add_tensor(f"blk.{i}.attn_output.weight", weight(n_embd, n_embd))
        writer.add_tensor(f"blk.{i}.ffn_norm.weight", np.ones(n_embd, dtype=np.float32))
        writer.add_tensor(f"blk.{i}.ffn_gate.weight", weight(n_ff, n_embd))
        writer.add_tensor(f"blk.{i}.ffn_up.weight", weight(n_ff, n_embd))
        writer.add_tensor(f"blk.{i}.ffn_down.weight", weight(n_embd, n_ff))
    writer.write_header_to_file()
    writer.write_kv_data_to_file()
    writer.write_tensors_to_file()
    writer.close()
    os.replace(part, path)


def main():
    models, native = sys.argv[1], sys.argv[2]
    os.makedirs(models, exist_ok=True)
    wanted = {
        # Speaks "English and German", has a chat template: the model of most tests.
        "tiny-llama-chat.gguf": dict(chat_template=LLAMA2_TEMPLATE, languages=["en", "de"]),
        # No chat template and no language list.
        "tiny-llama-no-template.gguf": dict(chat_template=None, languages=None),
    }
    missing = {name: args for name, args in wanted.items() if not os.path.exists(os.path.join(models, name))}
    if not missing:
        return
    vocab = vocabulary(native)
    for name, args in missing.items():
        write_model(os.path.join(models, name), vocab, **args)
        print(f"wrote {name}")


if __name__ == "__main__":
    main()
