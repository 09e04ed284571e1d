#!/usr/bin/env bash
# Builds the fuzz targets (preset "fuzz", clang) and runs each for SECONDS (default 60), one at a
# time on one worker. A crash, a leak, a hang (one input over 10 s), running out of memory or a
# broken property (an extraction that writes outside its destination, a job file that a write
# changes) fails the run; the input is kept in build/fuzz/findings.
# The committed seed corpora stay as they are: new inputs go to a scratch copy.
#   scripts/fuzz.sh [SECONDS] [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
secs=${1:-60}
shift || true
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j2
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  for src in fuzz/*.cpp; do targets+=("$(basename "$src" .cpp)"); done
fi
findings="$root/build/fuzz/findings"
mkdir -p "$findings"
# Job files are written with a flush to disk: on a memory file system inputs run several times
# faster.
if [ -z "${TMPDIR:-}" ] && [ -w /dev/shm ]; then export TMPDIR=/dev/shm; fi
work=$(mktemp -d "${TMPDIR:-/tmp}/kestrel-fuzzrun-XXXXXX")
trap 'rm -rf "$work"' EXIT
# Known leaks of the system's libraries, each with its reason.
export LSAN_OPTIONS="suppressions=$root/fuzz/lsan.supp${LSAN_OPTIONS:+:$LSAN_OPTIONS}"
status=0
for t in "${targets[@]}"; do
  mkdir -p "$work/$t"
  echo "fuzz: $t for ${secs}s"
  # libzip has no frame pointers: only the slow unwinder sees the libzip function that the
  # suppression names (several times slower, so only where libzip is fuzzed).
  asan=${ASAN_OPTIONS:-}
  if [ "$t" = unzip ]; then asan="fast_unwind_on_malloc=0${asan:+:$asan}"; fi
  # The targets work in a scratch folder of their own; every path handed to them is absolute.
  if ! (cd "$work" && ASAN_OPTIONS="$asan" "$root/build/fuzz/fuzz/fuzz_$t" -max_total_time="$secs" -timeout=10 \
        -rss_limit_mb=2048 -max_len=8192 -workers=1 -print_final_stats=1 \
        -artifact_prefix="$findings/$t-" "$work/$t" "$root/fuzz/corpus/$t" \
        >"$work/$t.log" 2>&1); then
    echo "fuzz: $t FAILED; input kept in $findings" >&2
    grep -E "ERROR|property violated|SUMMARY" "$work/$t.log" | head -20 >&2 || true
    status=1
  fi
  grep -E "stat::number_of_executed_units|stat::peak_rss_mb" "$work/$t.log" | sed "s/^/fuzz: $t /" || true
done
exit $status
