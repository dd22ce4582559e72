#!/usr/bin/env bash
# Installs what is missing, then builds and tests every lane:
#   linux-debug, linux-release, linux-asan, linux-tsan  (native g++, Debian ACE)
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
for lane in "${lanes[@]}"; do
  echo "=== lane $lane ==="
  start=$SECONDS
  log="build/$lane.log"
  mkdir -p build
  runner=()
  # ThreadSanitizer in this compiler cannot map its shadow memory under the
  # kernel's larger mmap randomisation: run that lane without ASLR.
  [[ $lane == linux-tsan ]] && runner=(setarch "$(uname -m)" -R)
  # Wine needs an X display for its window tests, and one warm wineserver.
  [[ $lane == windows-wine ]] && runner=(xvfb-run -a scripts/with-wine.sh)
  if "${runner[@]}" cmake --workflow --preset "$lane" >"$log" 2>&1; then
    result[$lane]="passed"
  else
    result[$lane]="FAILED"
  fi
  summary=$(grep -E '^[0-9]+% tests passed' "$log" | tail -n1)
  passed=$(sed -nE 's/.*, ([0-9]+) tests failed out of ([0-9]+)/\2-\1/p' <<<"$summary")
  if [[ -n $passed ]]; then
    failed=$(sed -nE 's/.*, ([0-9]+) tests failed.*/\1/p' <<<"$summary")
    total_passed=$((total_passed + $(($passed))))
    total_failed=$((total_failed + failed))
  elif [[ ${result[$lane]} == FAILED ]]; then
    total_failed=$((total_failed + 1))  # the lane broke before its tests
  fi
  if [[ ${result[$lane]} == FAILED ]]; then
    tail -n 60 "$log"
  fi
  echo "lane $lane: ${result[$lane]} (${summary:-no test summary}) in $((SECONDS - start))s; log $log"
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
