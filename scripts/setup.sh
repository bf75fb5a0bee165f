#!/usr/bin/env bash
# Installs what building and testing the package needs, from Debian 12's own
# packages only. Safe to run again: when everything is installed it only
# checks (dpkg-query) and returns at once.
#
#   scripts/setup.sh
#
# Runs as root, or through sudo when it is available.
set -euo pipefail

# Native build, tests, benchmarks and fuzzing (clang for libFuzzer).
# googletest ships the sources in /usr/src/googletest that the Windows build
# compiles; libgtest-dev the native headers and libraries.
packages=(
  build-essential cmake ninja-build pkg-config git
  libgtest-dev googletest libbenchmark-dev
  libsndfile1-dev libxml2-dev nlohmann-json3-dev
  clang
  # Windows build and its tests: MinGW-w64 (posix threads), Wine, a display.
  g++-mingw-w64-x86-64-posix
  wine wine64
  xvfb xauth
  # Parts of Wine that Debian only recommends but the tests rely on: its own
  # fonts (text in windows), the GStreamer plug-ins behind Wine's DirectShow
  # parsers, GnuTLS for its crypto, and the X libraries its display driver
  # loads on demand.
  fonts-wine gstreamer1.0-plugins-base gstreamer1.0-plugins-good libgnutls30
  libxrender1 libxrandr2 libxi6 libxcursor1 libxinerama1 libxcomposite1
  libxfixes3 libxxf86vm1 libgl1
  # Third-party Linux VST 2 plug-ins the host is tested against.
  dpf-plugins-vst dragonfly-reverb-vst lsp-plugins-vst
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [[ "$status" == "install ok installed" ]] || missing+=("$p")
done

if [[ ${#missing[@]} -eq 0 ]]; then
  echo "setup: all ${#packages[@]} packages are installed"
  exit 0
fi

if [[ $(id -u) -eq 0 ]]; then
  as_root=()
elif command -v sudo >/dev/null 2>&1; then
  as_root=(sudo)
else
  echo "setup: these packages are missing and I am neither root nor have sudo:" >&2
  echo "  ${missing[*]}" >&2
  exit 1
fi

echo "setup: installing ${missing[*]}"
apt_options=(-o Acquire::Retries=3 -o DPkg::Lock::Timeout=300)
"${as_root[@]}" apt-get "${apt_options[@]}" update
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get "${apt_options[@]}" install -y --no-install-recommends "${missing[@]}"

# What the build and the tests call must now be there.
for tool in cmake ninja g++ clang x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-windres \
            wine wineserver wineboot Xvfb flock; do
  command -v "$tool" >/dev/null 2>&1 || { echo "setup: $tool is still missing" >&2; exit 1; }
done
[[ -f /usr/src/googletest/googletest/CMakeLists.txt ]] ||
  { echo "setup: /usr/src/googletest is missing" >&2; exit 1; }
echo "setup: done"
