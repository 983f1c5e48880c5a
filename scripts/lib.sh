# Shared by scripts/run and scripts/test: install what is missing, then build.
# Sourced, not run.

KESTIL_ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
KESTIL_CACHE="${KESTIL_CACHE_DIR:-${XDG_CACHE_HOME:-$HOME/.cache}/kestil}"
export KESTIL_CACHE_DIR="$KESTIL_CACHE"

# Debian 12 packages: build, run, and (with "test") the test tools.
KESTIL_APT_BUILD=(build-essential cmake ninja-build pkg-config git ca-certificates curl openssl python3-pip
  qt6-base-dev qt6-base-dev-tools libgl-dev libsqlite3-dev libpulse-dev libsndfile1-dev libsoxr-dev
  libicu-dev libcmark-gfm-dev libcmark-gfm-extensions-dev libpocketsphinx-dev libsphinxbase-dev
  pocketsphinx-en-us wordnet-base googletest libgtest-dev libgmock-dev)
KESTIL_APT_RUN=(qt6-qpa-plugins fonts-dejavu-core pulseaudio-utils dbus)
KESTIL_APT_TEST=(pulseaudio pulseaudio-utils espeak-ng sox xvfb xdotool x11-utils poppler-utils dbus dbus-x11
  dunst imagemagick pocketsphinx-testdata python3 python3-numpy python3-pip python3-venv xauth
  strace desktop-file-utils appstream dpkg-dev fakeroot file xclip clang-14 libclang-rt-14-dev)

kestil_install_packages() {
  local missing=() p
  for p in "$@"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  local apt=(apt-get install -y --no-install-recommends "${missing[@]}")
  if [ "$(id -u)" -eq 0 ]; then
    apt-get update -qq && DEBIAN_FRONTEND=noninteractive "${apt[@]}"
  elif command -v sudo >/dev/null && sudo -n true 2>/dev/null; then
    sudo apt-get update -qq && sudo DEBIAN_FRONTEND=noninteractive "${apt[@]}"
  else
    echo "Kestil needs these Debian packages. Install them, then run this again:" >&2
    echo "  sudo apt-get update && sudo ${apt[*]}" >&2
    exit 1
  fi
}

# Tools that may come from elsewhere than Debian (Node.js's own npm, say):
# installed from Debian only when the command is missing.
kestil_require_commands() {
  local packages=() pair
  for pair in "$@"; do
    command -v "${pair%%:*}" >/dev/null || packages+=("${pair#*:}")
  done
  [ ${#packages[@]} -eq 0 ] || kestil_install_packages "${packages[@]}"
}

# Configures and builds into build/ (or $KESTIL_BUILD_DIR).
kestil_build() {
  local deps native sherpa
  deps="$("$KESTIL_ROOT/scripts/native-deps.sh")"
  native="$(tail -n 1 <<<"$deps")"
  sherpa="$(tail -n 2 <<<"$deps" | head -n 1)"
  local build="${KESTIL_BUILD_DIR:-$KESTIL_ROOT/build}"
  cmake -S "$KESTIL_ROOT" -B "$build" -G Ninja -DKESTIL_NATIVE_PREFIX="$native" \
    -DKESTIL_SHERPA_ONNX_PREFIX="$sherpa" \
    -DKESTIL_TEST_MODELS_DIR="$KESTIL_CACHE/models" "$@" >/dev/null
  cmake --build "$build" -j "$(nproc)"
}
