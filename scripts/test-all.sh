#!/usr/bin/env bash
# Builds and tests everything, as CI does:
#   1. scripts/setup.sh (installs what is missing)
#   2. for each of linux-release, linux-asan, linux-tsan, linux-fuzz and
#      win64: configure, build and run the tests with the CMake presets (the
#      win64 tests run under Wine through scripts/wine-run; linux-fuzz builds
#      the libFuzzer targets with clang and runs each for up to 30 s on its
#      seeds)
#   3. runs the benchmark programs of build/linux-release/bench and
#      build/win64/bench (under Wine) once, briefly, so that their ratios
#      appear in the log
# and ends with a summary of the stages and their times. Exits non-zero when
# any stage failed; a preset whose configuration or build failed skips its
# later stages, the other presets still run.
#
#   bash scripts/test-all.sh [PRESET...]     (default: all four)
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root" || exit 1

presets=("$@")
[[ ${#presets[@]} -gt 0 ]] || presets=(linux-release linux-asan linux-tsan linux-fuzz win64)

export CTEST_OUTPUT_ON_FAILURE=1
log_dir=$root/build/logs
mkdir -p "$log_dir"

summary=()
failures=0
tests_passed=0
tests_failed=0
all_started=$SECONDS

# stage NAME COMMAND...: runs the command, records its status and time.
stage() {
  local name=$1; shift
  local started=$SECONDS status
  echo
  echo "==== $name: $*"
  if "$@"; then status=ok; else status=FAILED; failures=$((failures + 1)); fi
  summary+=("$(printf '  %-26s %-7s %5d s' "$name" "$status" $((SECONDS - started)))")
  [[ $status == ok ]]
}

# Runs ctest with a preset, keeps its output for the totals at the end.
run_tests() {
  local preset=$1 log=$log_dir/ctest-$1.log rc
  ctest --preset "$preset" 2>&1 | tee "$log"
  rc=${PIPESTATUS[0]}
  # "100% tests passed, 0 tests failed out of 12"
  local line
  line=$(grep -E '^[0-9]+% tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -n 1)
  if [[ $line =~ ([0-9]+)\ tests?\ failed\ out\ of\ ([0-9]+) ]]; then
    tests_failed=$((tests_failed + BASH_REMATCH[1]))
    tests_passed=$((tests_passed + BASH_REMATCH[2] - BASH_REMATCH[1]))
  fi
  return "$rc"
}

run_benchmarks() {
  local bench_dir=$root/build/linux-release/bench exe found=0 rc=0
  for exe in "$bench_dir"/*; do
    [[ -f "$exe" && -x "$exe" ]] || continue
    found=1
    echo "---- $(basename "$exe")"
    "$exe" --benchmark_min_time=0.05 || { echo "$(basename "$exe") failed" >&2; rc=1; }
  done
  [[ $found == 1 ]] || echo "no benchmark programs in $bench_dir"
  return "$rc"
}

# The Windows build's benchmarks (units only Windows has), under Wine.
run_windows_benchmarks() {
  local exe rc=0
  for exe in "$root"/build/win64/bench/*.exe; do
    [[ -f "$exe" ]] || continue
    echo "---- $(basename "$exe") (Wine)"
    "$root/scripts/wine-run" --prefix-dir "$root/build/win64/wine" "$exe" --benchmark_min_time=0.05 ||
      { echo "$(basename "$exe") failed" >&2; rc=1; }
  done
  return "$rc"
}

stop_wine() {
  if [[ -d "$root/build/win64/wine" ]]; then
    "$root/scripts/wine-run" --prefix-dir "$root/build/win64/wine" --shutdown
  fi
}
# Leave no wineserver or Xvfb behind, however the run ends.
trap stop_wine EXIT

if stage setup bash "$root/scripts/setup.sh"; then
  release_built=0
  win64_built=0
  for preset in "${presets[@]}"; do
    stage "$preset configure" cmake --preset "$preset" &&
      stage "$preset build" cmake --build --preset "$preset" -j2 &&
      { [[ $preset != linux-release ]] || release_built=1; } &&
      { [[ $preset != win64 ]] || win64_built=1; } &&
      stage "$preset test" run_tests "$preset"
  done
  if [[ $release_built == 1 && -d build/linux-release/bench ]]; then
    stage "benchmarks" run_benchmarks
  fi
  if [[ $win64_built == 1 ]] && compgen -G "build/win64/bench/*.exe" >/dev/null; then
    stage "benchmarks (Windows)" run_windows_benchmarks
  fi
fi

echo
echo "==== summary"
printf '%s\n' "${summary[@]}"
printf '  %-26s %-7s %5d s\n' "total" "$([[ $failures == 0 ]] && echo ok || echo FAILED)" $((SECONDS - all_started))
echo "tests: $tests_passed passed, $tests_failed failed"
[[ $failures == 0 ]]
