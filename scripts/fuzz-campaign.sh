#!/usr/bin/env bash
# A longer fuzzing run than the test run's: each libFuzzer target of the
# linux-fuzz preset (fuzz_preset, fuzz_bank, fuzz_document, fuzz_vstxml and
# fuzz_vst3preset) runs for the given time, one after another, with its
# dictionary, on a scratch corpus seeded from fuzz/corpus/<name> and from the
# seeds the build writes (build/linux-fuzz/fuzz/seeds/<name>). At the end a
# line per target gives the time it ran, its executions, the corpus it grew
# and whether it found anything (a crash, a leak, a timeout or running out of
# memory; the input is kept in the campaign folder).
#
#   bash scripts/fuzz-campaign.sh [TIME] [TARGET...]
#
# TIME per target: 30m (the default), 90s, 2h, or a number of minutes.
# TARGET: fuzz_preset ... (default: all of them). Configures and builds the
# linux-fuzz preset first (clang; scripts/setup.sh installs it). The scratch
# corpora and findings are in build/linux-fuzz/fuzz-campaign/<date-time>/.
# Exits with 1 when a target found something, 2 when one could not run.
set -uo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root" || exit 2

time_arg=${1:-30m}
[[ $# -gt 0 ]] && shift
seconds=0
if [[ $time_arg =~ ^([0-9]+)([smh]?)$ ]]; then
  n=$((10#${BASH_REMATCH[1]}))
  case ${BASH_REMATCH[2]} in
    s) seconds=$n ;;
    h) seconds=$((n * 3600)) ;;
    *) seconds=$((n * 60)) ;;
  esac
fi
if [[ $seconds -le 0 ]]; then
  echo "fuzz-campaign: bad time \"$time_arg\" (30m, 90s, 2h or minutes)" >&2
  exit 2
fi

targets=("$@")
[[ ${#targets[@]} -gt 0 ]] || targets=(fuzz_preset fuzz_bank fuzz_document fuzz_vstxml fuzz_vst3preset)

build=$root/build/linux-fuzz
echo "==== building the linux-fuzz preset"
if [[ ! -f $build/CMakeCache.txt ]]; then
  cmake --preset linux-fuzz || exit 2
fi
cmake --build --preset linux-fuzz -j2 || exit 2

campaign=$build/fuzz-campaign/$(date +%Y%m%d-%H%M%S)
mkdir -p "$campaign"
results=()
found_any=0
failed_any=0

for target in "${targets[@]}"; do
  name=${target#fuzz_}
  exe=$build/fuzz/$target
  if [[ ! -x $exe ]]; then
    results+=("$(printf '  %-14s %s' "$target" "MISSING: $exe was not built")")
    failed_any=1
    continue
  fi
  work=$campaign/$name
  mkdir -p "$work/corpus"
  seeds=0
  for seed_dir in "$root/fuzz/corpus/$name" "$build/fuzz/seeds/$name"; do
    [[ -d $seed_dir ]] && cp -p "$seed_dir"/* "$work/corpus/" 2>/dev/null
  done
  seeds=$(find "$work/corpus" -type f | wc -l)
  dict=()
  [[ -f $root/fuzz/$name.dict ]] && dict=(-dict="$root/fuzz/$name.dict")

  echo
  echo "==== $target: ${seconds} s on $seeds seed files (log: $work/log)"
  started=$SECONDS
  ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1} "$exe" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 "${dict[@]}" -artifact_prefix="$work/" "$work/corpus" >"$work/log" 2>&1
  status=$?
  ran=$((SECONDS - started))
  tail -n 3 "$work/log"

  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$work/log" | tail -n 1)
  grown=$(( $(find "$work/corpus" -type f | wc -l) - seeds ))
  findings=$(find "$work" -maxdepth 1 -type f \( -name 'crash-*' -o -name 'leak-*' -o -name 'timeout-*' -o -name 'oom-*' \) | sort)
  slow=$(find "$work" -maxdepth 1 -type f -name 'slow-unit-*' | wc -l)
  if [[ -n $findings ]]; then
    verdict="FOUND $(echo "$findings" | wc -l): $(echo "$findings" | xargs -n1 basename | tr '\n' ' ')"
    found_any=1
  elif [[ $status -ne 0 ]]; then
    verdict="FAILED with status $status (see the log)"
    found_any=1
  else
    verdict="nothing found"
  fi
  [[ $slow -gt 0 ]] && verdict+="; $slow slow inputs kept"
  results+=("$(printf '  %-14s %6d s  %12s executions  corpus %d + %d  %s' \
    "$target" "$ran" "${execs:-?}" "$seeds" "$grown" "$verdict")")
done

echo
echo "==== fuzz campaign, ${seconds} s per target, in $campaign"
printf '%s\n' "${results[@]}"
[[ $failed_any == 0 ]] || exit 2
[[ $found_any == 0 ]] || exit 1
exit 0
