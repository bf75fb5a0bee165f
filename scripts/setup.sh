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
  # Plug-in editor windows (Xlib) and their screenshots (libpng).
  libx11-dev libpng-dev
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

# Google Benchmark for the Windows build: Debian has no MinGW build of it, so
# the source package of the libbenchmark-dev release installed is unpacked
# into /usr/src/benchmark (as googletest's sources sit in /usr/src/googletest)
# and the Windows build compiles it. The source index is fetched with a
# private copy of the system's Debian source list, its type changed to
# deb-src, so that the system's own apt configuration stays as it is.
benchmark_src=/usr/src/benchmark
need_benchmark_src=0
[[ -f $benchmark_src/CMakeLists.txt ]] || need_benchmark_src=1

if [[ ${#missing[@]} -eq 0 && $need_benchmark_src == 0 ]]; then
  echo "setup: all ${#packages[@]} packages and the Google Benchmark sources are installed"
  exit 0
fi

if [[ $(id -u) -eq 0 ]]; then
  as_root=()
elif command -v sudo >/dev/null 2>&1; then
  as_root=(sudo)
else
  echo "setup: these are missing and I am neither root nor have sudo:" >&2
  echo "  ${missing[*]} $([[ $need_benchmark_src == 1 ]] && echo "$benchmark_src")" >&2
  exit 1
fi

apt_options=(-o Acquire::Retries=3 -o DPkg::Lock::Timeout=300)
if [[ ${#missing[@]} -gt 0 ]]; then
  echo "setup: installing ${missing[*]}"
  "${as_root[@]}" apt-get "${apt_options[@]}" update
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get "${apt_options[@]}" install -y --no-install-recommends "${missing[@]}"
fi

# Without them the Windows build only has no benchmark programs: a warning.
fetch_benchmark_sources() {
  local list=/etc/apt/sources.list.d/debian.sources work version rc=0
  [[ -f $list ]] || { echo "setup: warning: no $list to take the Debian source list from" >&2; return 1; }
  version=$(dpkg-query -W -f='${Version}' libbenchmark-dev) || return 1
  work=$(mktemp -d) || return 1
  mkdir -p "$work/parts" "$work/lists/partial" "$work/get"
  sed 's/^Types: deb$/Types: deb-src/' "$list" > "$work/parts/debian.sources"
  local apt_src=("${apt_options[@]}" -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts="$work/parts"
                 -o Dir::State::Lists="$work/lists" -o APT::Sandbox::User=root)
  if apt-get "${apt_src[@]}" -qq update &&
     (cd "$work/get" && apt-get "${apt_src[@]}" -qq source --download-only "benchmark=$version") &&
     tar -xzf "$work"/get/benchmark_*.orig.tar.gz -C "$work/get" &&
     [[ -f $(echo "$work"/get/benchmark-*/CMakeLists.txt) ]]; then
    "${as_root[@]}" mkdir -p "$benchmark_src" &&
      "${as_root[@]}" cp -R "$(dirname "$(echo "$work"/get/benchmark-*/CMakeLists.txt)")/." "$benchmark_src/" || rc=1
  else
    rc=1
  fi
  rm -rf "$work"
  return "$rc"
}
if [[ $need_benchmark_src == 1 ]]; then
  echo "setup: fetching the Google Benchmark sources of libbenchmark-dev for the Windows build"
  fetch_benchmark_sources ||
    echo "setup: warning: no Google Benchmark sources in $benchmark_src; the Windows build makes no benchmarks" >&2
fi

# What the build and the tests call must now be there.
for tool in cmake ninja g++ clang x86_64-w64-mingw32-g++-posix x86_64-w64-mingw32-windres \
            wine wineserver wineboot Xvfb flock; do
  command -v "$tool" >/dev/null 2>&1 || { echo "setup: $tool is still missing" >&2; exit 1; }
done
[[ -f /usr/src/googletest/googletest/CMakeLists.txt ]] ||
  { echo "setup: /usr/src/googletest is missing" >&2; exit 1; }
echo "setup: done"
