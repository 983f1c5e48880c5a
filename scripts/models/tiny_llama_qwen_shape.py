#!/usr/bin/env python3
"""Writes a model with the shape of Qwen2.5-0.5B-Instruct at Q4_K_M, with
random weights, for the generation benchmark: the same architecture (qwen2),
layers, heads, widths, vocabulary size and quantisation types, so that
llama.cpp does the same work per token as with the real model. Its output is
noise; only its speed means anything.

The vocabulary is GPT-2's (copied from llama.cpp's vocabulary-only GGUF)
padded with unused tokens to Qwen's 151,936, with ChatML's markers.

Usage: tiny_llama_qwen_shape.py <models-dir> <native-prefix>
Writes only a file that is missing.
"""
import os
import sys

import numpy as np
from gguf import GGMLQuantizationType as Q
from gguf import GGUFReader, GGUFWriter, TokenType

NAME = "qwen2.5-0.5b-shape-q4_k_m.gguf"
N_VOCAB = 151936
N_EMBD = 896
N_LAYER = 24
N_HEAD = 14
N_HEAD_KV = 2
N_FF = 4864
HEAD_DIM = N_EMBD // N_HEAD

CHATML = (
    "{% for message in messages %}{{'<|im_start|>' + message['role'] + '\\n' + message['content'] + '<|im_end|>' + '\\n'}}"
    "{% endfor %}{% if add_generation_prompt %}{{ '<|im_start|>assistant\\n' }}{% endif %}"
)

# Bytes per block and elements per block of each type, and where its f16
# scales sit with the value that gives weights of roughly 0.02.
LAYOUT = {
    Q.Q8_0: (34, 32, [(0, 2.7e-4)]),
    Q.Q5_0: (22, 32, [(0, 2.0e-3)]),
    Q.Q4_K: (144, 256, [(0, 2.0e-5), (2, 2.0e-5)]),
    Q.Q6_K: (210, 256, [(208, 1.5e-5)]),
}


def quantised(rng, rows, cols, qtype):
    block_bytes, block_elems, scales = LAYOUT[qtype]
    assert cols % block_elems == 0, (qtype, cols)
    blocks = rows * cols // block_elems
    data = rng.integers(0, 256, size=(blocks, block_bytes), dtype=np.uint8)
    for offset, value in scales:
        jitter = rng.uniform(0.5, 1.5, size=blocks).astype(np.float16)
        data[:, offset:offset + 2] = (jitter * np.float16(value)).astype(np.float16).view(np.uint8).reshape(blocks, 2)
    return data.reshape(rows, cols // block_elems * block_bytes)


def main():
    models, native = sys.argv[1], sys.argv[2]
    path = os.path.join(models, NAME)
    if os.path.exists(path):
        return
    os.makedirs(models, exist_ok=True)
    reader = GGUFReader(os.path.join(native, "share/kestil/vocab/ggml-vocab-gpt-2.gguf"))
    tokens = list(reader.fields["tokenizer.ggml.tokens"].contents())
    types = list(reader.fields["tokenizer.ggml.token_type"].contents())
    merges = list(reader.fields["tokenizer.ggml.merges"].contents())
    specials = ["<|endoftext|>", "<|im_start|>", "<|im_end|>"]
    special_ids = {}
    for name in specials:
        if name in tokens:
            special_ids[name] = tokens.index(name)
            types[special_ids[name]] = int(TokenType.CONTROL)
        else:
            special_ids[name] = len(tokens)
            tokens.append(name)
            types.append(int(TokenType.CONTROL))
    while len(tokens) < N_VOCAB:
        tokens.append(f"<|unused_{len(tokens)}|>")
        types.append(int(TokenType.UNUSED))

    rng = np.random.default_rng(2024)
    part = path + ".part"
    writer = GGUFWriter(part, "qwen2")
    writer.add_name("Kestil benchmark model (Qwen2.5-0.5B shape, random weights)")
    writer.add_languages(["en"])
    writer.add_context_length(32768)
    writer.add_embedding_length(N_EMBD)
    writer.add_block_count(N_LAYER)
    writer.add_feed_forward_length(N_FF)
    writer.add_head_count(N_HEAD)
    writer.add_head_count_kv(N_HEAD_KV)
    writer.add_rope_freq_base(1000000.0)
    writer.add_layer_norm_rms_eps(1e-6)
    writer.add_file_type(15)  # MOSTLY_Q4_K_M
    writer.add_quantization_version(2)
    writer.add_tokenizer_model("gpt2")
    writer.add_tokenizer_pre("gpt-2")
    writer.add_token_list(tokens)
    writer.add_token_types(types)
    writer.add_token_merges(merges)
    writer.add_bos_token_id(special_ids["<|endoftext|>"])
    writer.add_eos_token_id(special_ids["<|im_end|>"])
    writer.add_pad_token_id(special_ids["<|endoftext|>"])
    writer.add_add_bos_token(False)
    writer.add_chat_template(CHATML)

    def add(name, rows, cols, qtype):
        writer.add_tensor(name, quantised(rng, rows, cols, qtype), raw_dtype=qtype)

    def f32(name, n, value=None):
        data = np.ones(n, dtype=np.float32) if value is None else (rng.standard_normal(n) * value).astype(np.float32)
        writer.add_tensor(name, data)

    # Rows of 896 cannot hold K-quant blocks of 256: llama.cpp's Q4_K_M falls
    # back to Q5_0 for them (Q8_0 where it would use Q6_K), as here.
    add("token_embd.weight", N_VOCAB, N_EMBD, Q.Q8_0)
    f32("output_norm.weight", N_EMBD)
    kv = HEAD_DIM * N_HEAD_KV
    for i in range(N_LAYER):
        wide = i % 3 == 0 or i >= N_LAYER - 4  # the layers Q4_K_M gives more bits
        f32(f"blk.{i}.attn_norm.weight", N_EMBD)
        add(f"blk.{i}.attn_q.weight", N_EMBD, N_EMBD, Q.Q5_0)
        f32(f"blk.{i}.attn_q.bias", N_EMBD, 0.02)
        add(f"blk.{i}.attn_k.weight", kv, N_EMBD, Q.Q5_0)
        f32(f"blk.{i}.attn_k.bias", kv, 0.02)
        add(f"blk.{i}.attn_v.weight", kv, N_EMBD, Q.Q8_0 if wide else Q.Q5_0)
        f32(f"blk.{i}.attn_v.bias", kv, 0.02)
        add(f"blk.{i}.attn_output.weight", N_EMBD, N_EMBD, Q.Q5_0)
        f32(f"blk.{i}.ffn_norm.weight", N_EMBD)
        add(f"blk.{i}.ffn_gate.weight", N_FF, N_EMBD, Q.Q5_0)
        add(f"blk.{i}.ffn_up.weight", N_FF, N_EMBD, Q.Q5_0)
        add(f"blk.{i}.ffn_down.weight", N_EMBD, N_FF, Q.Q6_K if wide else Q.Q4_K)
    writer.write_header_to_file()
    writer.write_kv_data_to_file()
    writer.write_tensors_to_file()
    writer.close()
    os.replace(part, path)
    print(f"wrote {NAME}")


if __name__ == "__main__":
    main()
