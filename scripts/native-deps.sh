#!/usr/bin/env bash
# Builds llama.cpp (with its ggml) and whisper.cpp against that same ggml, from
# the source packages published on the npm registry, into a cache folder that
# lives outside the working tree, and fetches sherpa-onnx's C API with the ONNX
# Runtime it carries (speaker diarisation) from its PyPI wheel into a folder of
# its own beside it. A second call finds both finished and returns at once.
# Prints the sherpa-onnx folder on its second-last line and the llama.cpp and
# whisper.cpp prefix on its last line.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"

LLAMA_PKG=node-llama-cpp@3.22.1
LLAMA_SHA512=bltIipuWmc123H7tMIgDGKSsSrhmhlQYeVUC48XTjVW7XGJJiJJyCdlTMzQ/LiWoPkGDpcL4FviDpgw7qfTiDw==
WHISPER_PKG=nodejs-whisper@0.3.1
WHISPER_SHA512=ceoilUVraRuR5FnNyXpGQT2auAR48Oc3AQBEmkXnVpSn9iN6yVRzQBFCqVTGWbk6Wdi95NhvwXNzFvuR7erLWw==
# Portable and fast: ggml's CPU backend is built once per instruction-set level
# (from AVX2 up to AVX-512 with VNNI and AMX) as loadable modules in lib/,
# and the program loads the best one its processor runs. Never tuned to the
# build host, yet a summary on an AVX-512 machine is about a fifth faster than
# with the AVX2 build alone.
CPU_FLAGS=(-DGGML_NATIVE=OFF -DGGML_BACKEND_DL=ON -DGGML_CPU_ALL_VARIANTS=ON)
# The build folder is named after the patches too, so that a changed patch
# gives a new build rather than an old one under the same name.
patches_id=$(cat "$here"/native-patches/*.patch | sha256sum | cut -c1-8)
BUILD_ID=llama-3.22.1-whisper-0.3.1-v5-$patches_id
# A prebuilt, portable release: include/sherpa-onnx/c-api/c-api.h,
# lib/libsherpa-onnx-c-api.so and the lib/libonnxruntime.so it finds beside
# itself. CMake looks for it as KESTIL_SHERPA_ONNX_PREFIX, by default this
# folder's name beside the llama.cpp prefix.
SHERPA_ID=sherpa-onnx-core-2.0.1
SHERPA_WHEEL=sherpa_onnx_core-2.0.1-py3-none-manylinux2014_x86_64.whl
SHERPA_SHA256=f4ee0ab91c4ae596e0e49d7de32522a946295e038a652f1c1884d89014ee4ec2

cache="${KESTIL_CACHE_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/kestil}"
prefix="$cache/native/$BUILD_ID"
sherpa="$cache/native/$SHERPA_ID"
finish() {
  echo "$sherpa"
  echo "$prefix"
  exit 0
}
if [ -f "$prefix/.complete" ] && [ -f "$sherpa/.complete" ]; then
  finish
fi
# One build at a time: a second caller waits for the first, then finds it done.
mkdir -p "$cache/native"
exec 9>"$cache/native/.lock"
flock 9

if [ ! -f "$sherpa/.complete" ]; then
  echo "== fetching sherpa-onnx-core 2.0.1" >&2
  tmp="$(mktemp -d)"
  python3 -m pip download --quiet --no-deps --only-binary=:all: --platform manylinux2014_x86_64 \
    --python-version 3.11 -d "$tmp" sherpa-onnx-core==2.0.1 >&2
  echo "$SHERPA_SHA256  $tmp/$SHERPA_WHEEL" | sha256sum -c --quiet >&2
  python3 -m zipfile -e "$tmp/$SHERPA_WHEEL" "$tmp/wheel"
  rm -rf "$sherpa"
  mkdir -p "$sherpa/lib"
  cp -r "$tmp/wheel/sherpa_onnx/include" "$sherpa/include"
  # The C++ wrapper is not used: only the C API and the runtime under it.
  cp "$tmp/wheel/sherpa_onnx/lib/libsherpa-onnx-c-api.so" "$tmp/wheel/sherpa_onnx/lib/libonnxruntime.so" "$sherpa/lib/"
  rm -rf "$tmp"
  touch "$sherpa/.complete"
fi
if [ -f "$prefix/.complete" ]; then
  finish
fi

work="$cache/native/src-$BUILD_ID"
# An interrupted build resumes where it stopped: the sources and build folders
# under $work are kept until the install is complete.
rm -rf "$prefix"
mkdir -p "$work"
jobs=$(nproc)

fetch() { # package, expected sha512 (base64) -> unpacks into $work/$3
  local pkg=$1 sum=$2 dest=$3
  (cd "$work" && npm pack --silent "$pkg" >/dev/null)
  local tgz
  tgz=$(ls "$work"/*.tgz | head -n 1)
  local got
  got=$(openssl dgst -sha512 -binary "$tgz" | base64 -w0)
  if [ "$got" != "$sum" ]; then
    echo "integrity check failed for $pkg" >&2
    exit 1
  fi
  mkdir -p "$work/$dest"
  tar xzf "$tgz" -C "$work/$dest"
  rm -f "$tgz"
}

if [ ! -d "$work/llama.cpp/.git" ]; then
  echo "== fetching $LLAMA_PKG" >&2
  rm -rf "$work/llama-pkg" "$work/llama.cpp"
  fetch "$LLAMA_PKG" "$LLAMA_SHA512" llama-pkg
  git clone -q "$work/llama-pkg/package/llama/gitRelease.bundle" "$work/llama.cpp"
  rm -rf "$work/llama-pkg"
fi

# Our patches to llama.cpp: faster CPU attention while a model writes (the
# query heads that share a K/V head computed together over tiles of the
# cache), and prompts read through Q5_0 and Q6_K weights unpacked a panel
# of rows at a time. Each is applied once; a resumed build finds it there.
for change in "$here"/native-patches/*.patch; do
  if ! git -C "$work/llama.cpp" apply --reverse --check "$change" 2>/dev/null; then
    git -C "$work/llama.cpp" apply "$change"
  fi
done

# The CPU modules start at AVX2, as the program always has: building the older
# levels, and the AVX-512 ones that differ only slightly from their neighbours,
# would double the time of this build for machines Kestil never ran on.
sed -i -E '/ggml_add_cpu_backend_variant\((x64|sse42|sandybridge|ivybridge|piledriver|cannonlake|cascadelake|cooperlake)[ )]/d' \
  "$work/llama.cpp/ggml/src/CMakeLists.txt"
echo "== building llama.cpp" >&2
cmake -S "$work/llama.cpp" -B "$work/llama-build" -G Ninja \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" \
  -DBUILD_SHARED_LIBS=ON -DLLAMA_CURL=OFF -DLLAMA_OPENSSL=OFF \
  -DLLAMA_BUILD_TESTS=OFF -DLLAMA_BUILD_TOOLS=OFF -DLLAMA_BUILD_EXAMPLES=OFF \
  -DLLAMA_BUILD_SERVER=OFF -DLLAMA_BUILD_COMMON=OFF -DLLAMA_BUILD_APP=OFF \
  -DGGML_OPENMP=OFF "${CPU_FLAGS[@]}" -DGGML_BACKEND_DIR="$prefix/lib" >&2
cmake --build "$work/llama-build" -j "$jobs" >&2
cmake --install "$work/llama-build" >&2
# Vocabulary-only GGUF files with real tokenizers, for the tokenizer smoke test.
mkdir -p "$prefix/share/kestil/vocab"
cp "$work/llama.cpp/models/ggml-vocab-llama-spm.gguf" "$work/llama.cpp/models/ggml-vocab-gpt-2.gguf" "$prefix/share/kestil/vocab/"
# gguf-py writes the tiny random-weight models of the tests.
cp -r "$work/llama.cpp/gguf-py" "$prefix/share/kestil/gguf-py"

if [ ! -f "$work/whisper-pkg/package/cpp/whisper.cpp/CMakeLists.txt" ]; then
  echo "== fetching $WHISPER_PKG" >&2
  rm -rf "$work/whisper-pkg"
  fetch "$WHISPER_PKG" "$WHISPER_SHA512" whisper-pkg
fi
echo "== building whisper.cpp against llama.cpp's ggml" >&2
cmake -S "$work/whisper-pkg/package/cpp/whisper.cpp" -B "$work/whisper-build" -G Ninja \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_PREFIX_PATH="$prefix" \
  -DBUILD_SHARED_LIBS=ON -DWHISPER_USE_SYSTEM_GGML=ON \
  -DWHISPER_BUILD_TESTS=OFF -DWHISPER_BUILD_EXAMPLES=OFF -DWHISPER_BUILD_SERVER=OFF \
  -DWHISPER_SDL2=OFF -DWHISPER_CURL=OFF >&2
cmake --build "$work/whisper-build" -j "$jobs" >&2
cmake --install "$work/whisper-build" >&2

# whisper.cpp's package configuration insists that a bin/ folder exists.
mkdir -p "$prefix/bin"
rm -rf "$work"
touch "$prefix/.complete"
finish
