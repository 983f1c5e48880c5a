#!/usr/bin/env python3
"""Writes whisper.cpp models (ggml format) with random weights.

    tiny_whisper.py <models-dir> <native-prefix> [--bench]

Always: whisper-test-tiny.en.bin (English-only vocabulary) and
whisper-test-tiny.bin (multilingual vocabulary), a few MB each, for fast tests
of loading, streaming and model installation. With --bench also
whisper-bench-{tiny,base,small}.en.bin, which have the exact shapes of the
published tiny.en, base.en and small.en models, for timing.

The weights are random, so the words that come out are nonsense; the
vocabulary is made of ASCII syllables so that every output is valid UTF-8.
The output is the same on every run (fixed seeds). A file that already exists
is left alone; each file is written under a temporary name and renamed.
"""
import os
import struct
import sys

import numpy as np

GGML_MAGIC = 0x67676D6C
N_TEXT_TOKENS_EN = 50256  # the byte-pair vocabulary; special tokens follow it
N_TEXT_TOKENS_MULTI = 50257

# name: (n_vocab, n_audio_ctx, n_state, n_head, n_layer, n_text_ctx, seed)
SHAPES = {
    "whisper-test-tiny.en.bin": (51864, 1500, 64, 2, 1, 64, 1),
    "whisper-test-tiny.bin": (51865, 1500, 64, 2, 1, 64, 2),
    "whisper-bench-tiny.en.bin": (51864, 1500, 384, 6, 4, 448, 3),
    "whisper-bench-base.en.bin": (51864, 1500, 512, 8, 6, 448, 4),
    "whisper-bench-small.en.bin": (51864, 1500, 768, 12, 12, 448, 5),
}
TEST_FILES = ["whisper-test-tiny.en.bin", "whisper-test-tiny.bin"]
BENCH_FILES = ["whisper-bench-tiny.en.bin", "whisper-bench-base.en.bin", "whisper-bench-small.en.bin"]


def mel_filters(sample_rate=16000, n_fft=400, n_mels=80):
    """Slaney-style triangular mel filters, as whisper's own front end uses."""
    def hz_to_mel(f):
        f = np.asarray(f, dtype=np.float64)
        mel = f / (200.0 / 3)
        log_region = f >= 1000.0
        mel = np.where(log_region, 15.0 + np.log(np.maximum(f, 1e-10) / 1000.0) / (np.log(6.4) / 27.0), mel)
        return mel

    def mel_to_hz(m):
        m = np.asarray(m, dtype=np.float64)
        f = m * (200.0 / 3)
        log_region = m >= 15.0
        return np.where(log_region, 1000.0 * np.exp((np.log(6.4) / 27.0) * (m - 15.0)), f)

    n_bins = n_fft // 2 + 1
    fft_freqs = np.linspace(0, sample_rate / 2, n_bins)
    mel_points = mel_to_hz(np.linspace(hz_to_mel(0.0), hz_to_mel(sample_rate / 2), n_mels + 2))
    fdiff = np.diff(mel_points)
    ramps = mel_points[:, None] - fft_freqs[None, :]
    weights = np.zeros((n_mels, n_bins))
    for i in range(n_mels):
        lower = -ramps[i] / fdiff[i]
        upper = ramps[i + 2] / fdiff[i + 1]
        weights[i] = np.maximum(0, np.minimum(lower, upper))
    weights *= (2.0 / (mel_points[2 : n_mels + 2] - mel_points[:n_mels]))[:, None]
    return weights.astype(np.float32)


def vocabulary(count, rng):
    """Byte-pair-like tokens: printable single bytes first, then syllables."""
    consonants = "bcdfghjklmnprstvwz"
    vowels = "aeiou"
    tokens = []
    for b in range(256):
        if 32 <= b < 127:
            tokens.append(bytes([b]))
        else:
            tokens.append(b"x")
    while len(tokens) < count:
        n = int(rng.integers(1, 4))
        word = "".join(rng.choice(list(consonants)) + rng.choice(list(vowels)) for _ in range(n))
        if rng.random() < 0.6:
            word = " " + word
        tokens.append(word.encode("ascii"))
    return tokens


def tensors(n_vocab, n_audio_ctx, n_state, n_layer, n_text_ctx, n_mels, rng):
    """(name, numpy array, stored as f16) in whisper's order. Shapes are numpy
    order, the reverse of ggml's ne."""
    def w(*shape):
        return (rng.standard_normal(shape, dtype=np.float32) * 0.02).astype(np.float32)

    def ones(n):
        return np.ones(n, dtype=np.float32)

    def zeros(*shape):
        return np.zeros(shape, dtype=np.float32)

    out = [
        ("encoder.positional_embedding", w(n_audio_ctx, n_state), False),
        ("encoder.conv1.weight", w(n_state, n_mels, 3), True),
        ("encoder.conv1.bias", zeros(n_state, 1), False),
        ("encoder.conv2.weight", w(n_state, n_state, 3), True),
        ("encoder.conv2.bias", zeros(n_state, 1), False),
    ]
    for i in range(n_layer):
        p = f"encoder.blocks.{i}."
        out += [
            (p + "attn.query.weight", w(n_state, n_state), True),
            (p + "attn.query.bias", zeros(n_state), False),
            (p + "attn.key.weight", w(n_state, n_state), True),
            (p + "attn.value.weight", w(n_state, n_state), True),
            (p + "attn.value.bias", zeros(n_state), False),
            (p + "attn.out.weight", w(n_state, n_state), True),
            (p + "attn.out.bias", zeros(n_state), False),
            (p + "attn_ln.weight", ones(n_state), False),
            (p + "attn_ln.bias", zeros(n_state), False),
            (p + "mlp.0.weight", w(4 * n_state, n_state), True),
            (p + "mlp.0.bias", zeros(4 * n_state), False),
            (p + "mlp.2.weight", w(n_state, 4 * n_state), True),
            (p + "mlp.2.bias", zeros(n_state), False),
            (p + "mlp_ln.weight", ones(n_state), False),
            (p + "mlp_ln.bias", zeros(n_state), False),
        ]
    out += [
        ("encoder.ln_post.weight", ones(n_state), False),
        ("encoder.ln_post.bias", zeros(n_state), False),
        ("decoder.positional_embedding", w(n_text_ctx, n_state), False),
        ("decoder.token_embedding.weight", w(n_vocab, n_state), True),
    ]
    for i in range(n_layer):
        p = f"decoder.blocks.{i}."
        for block in ("attn", "cross_attn"):
            out += [
                (p + block + ".query.weight", w(n_state, n_state), True),
                (p + block + ".query.bias", zeros(n_state), False),
                (p + block + ".key.weight", w(n_state, n_state), True),
                (p + block + ".value.weight", w(n_state, n_state), True),
                (p + block + ".value.bias", zeros(n_state), False),
                (p + block + ".out.weight", w(n_state, n_state), True),
                (p + block + ".out.bias", zeros(n_state), False),
                (p + block + "_ln.weight", ones(n_state), False),
                (p + block + "_ln.bias", zeros(n_state), False),
            ]
        out += [
            (p + "mlp.0.weight", w(4 * n_state, n_state), True),
            (p + "mlp.0.bias", zeros(4 * n_state), False),
            (p + "mlp.2.weight", w(n_state, 4 * n_state), True),
            (p + "mlp.2.bias", zeros(n_state), False),
            (p + "mlp_ln.weight", ones(n_state), False),
            (p + "mlp_ln.bias", zeros(n_state), False),
        ]
    out += [
        ("decoder.ln.weight", ones(n_state), False),
        ("decoder.ln.bias", zeros(n_state), False),
    ]
    return out


def write_model(path, shape):
    n_vocab, n_audio_ctx, n_state, n_head, n_layer, n_text_ctx, seed = shape
    rng = np.random.default_rng(seed)
    n_mels = 80
    n_text_tokens = N_TEXT_TOKENS_EN if n_vocab == 51864 else N_TEXT_TOKENS_MULTI
    tmp = path + ".tmp"
    with open(tmp, "wb") as f:
        f.write(struct.pack("<I", GGML_MAGIC))
        f.write(struct.pack("<11i", n_vocab, n_audio_ctx, n_state, n_head, n_layer,
                            n_text_ctx, n_state, n_head, n_layer, n_mels, 1))
        filters = mel_filters(n_mels=n_mels)
        f.write(struct.pack("<ii", filters.shape[0], filters.shape[1]))
        f.write(filters.tobytes())
        tokens = vocabulary(n_text_tokens, rng)
        f.write(struct.pack("<i", len(tokens)))
        for t in tokens:
            f.write(struct.pack("<I", len(t)))
            f.write(t)
        for name, data, as_f16 in tensors(n_vocab, n_audio_ctx, n_state, n_layer, n_text_ctx, n_mels, rng):
            raw = data.astype(np.float16) if as_f16 else data
            encoded = name.encode("ascii")
            f.write(struct.pack("<iii", data.ndim, len(encoded), 1 if as_f16 else 0))
            for dim in reversed(data.shape):
                f.write(struct.pack("<i", dim))
            f.write(encoded)
            f.write(raw.tobytes())
    os.replace(tmp, path)


def main():
    if len(sys.argv) < 2:
        print(__doc__, file=sys.stderr)
        return 2
    models = sys.argv[1]
    os.makedirs(models, exist_ok=True)
    wanted = list(TEST_FILES)
    if "--bench" in sys.argv[2:]:
        wanted += BENCH_FILES
    for name in wanted:
        path = os.path.join(models, name)
        if not os.path.exists(path):
            write_model(path, SHAPES[name])
            print(f"wrote {path}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
