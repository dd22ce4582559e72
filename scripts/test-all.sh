#!/usr/bin/env bash
# Installs what is missing, then builds and tests every lane:
#   linux-debug, linux-release, linux-asan, linux-tsan  (native g++, Debian ACE;
#                  linux-asan also runs the linux-fuzz workflow: clang-14
#                  libFuzzer targets, each fuzzed for a few seconds)
#   windows-wine  (mingw-w64 cross build against a cached static ACE built
#                  from Debian's ACE source; tests under wine in xvfb)
# Each lane is a CMake workflow preset (cmake --workflow --preset NAME).
#   scripts/test-all.sh [LANE...]     default: every lane
set -uo pipefail
cd "$(dirname "$0")/.."

lanes=("$@")
((${#lanes[@]})) || lanes=(linux-debug linux-release linux-asan linux-tsan windows-wine)

scripts/install-deps.sh --all || exit 1

declare -A result
total_passed=0
total_failed=0
# The sanitizer lane also fuzzes each target for a short while under
# libFuzzer (preset linux-fuzz); the lane passes only if both workflows do.
workflows_of() {
  case $1 in
    linux-asan) echo "linux-asan linux-fuzz" ;;
    *) echo "$1" ;;
  esac
}

for lane in "${lanes[@]}"; do
  echo "=== lane $lane ==="
  start=$SECONDS
  mkdir -p build
  runner=()
  # ThreadSanitizer in this compiler cannot map its shadow memory under the
  # kernel's larger mmap randomisation: run that lane without ASLR.
  [[ $lane == linux-tsan ]] && runner=(setarch "$(uname -m)" -R)
  # Wine needs an X display for its window tests, and one warm wineserver.
  [[ $lane == windows-wine ]] && runner=(xvfb-run -a scripts/with-wine.sh)
  result[$lane]="passed"
  summaries=()
  logs=()
  for workflow in $(workflows_of "$lane"); do
    log="build/$workflow.log"
    logs+=("$log")
    broke=0
    if ! "${runner[@]}" cmake --workflow --preset "$workflow" >"$log" 2>&1; then
      broke=1
      result[$lane]="FAILED"
      tail -n 60 "$log"
    fi
    summary=$(grep -E '^[0-9]+% tests passed' "$log" | tail -n1)
    summaries+=("${summary:-$workflow: no test summary}")
    passed=$(sed -nE 's/.*, ([0-9]+) tests failed out of ([0-9]+)/\2-\1/p' <<<"$summary")
    if [[ -n $passed ]]; then
      failed=$(sed -nE 's/.*, ([0-9]+) tests failed.*/\1/p' <<<"$summary")
      total_passed=$((total_passed + $(($passed))))
      total_failed=$((total_failed + failed))
    elif ((broke)); then
      total_failed=$((total_failed + 1))  # the workflow broke before its tests
    fi
  done
  (IFS=';'; echo "lane $lane: ${result[$lane]} (${summaries[*]}) in $((SECONDS - start))s; log ${logs[*]}")
done

echo
echo "=== summary ==="
status=0
for lane in "${lanes[@]}"; do
  echo "  $lane: ${result[$lane]}"
  [[ ${result[$lane]} == passed ]] || status=1
done
echo "tests: $total_passed passed, $total_failed failed"
exit $status
