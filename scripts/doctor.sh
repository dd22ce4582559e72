#!/usr/bin/env bash
# Installs what is missing, builds the library and the qimmisc tool
# (Release), and runs the tool's main job: qimmisc doctor. Arguments are
# passed to qimmisc before the command (e.g. --trace +all:-ENTRY).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh >&2
cmake -S . -B build/doctor -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DQIMMISC_BUILD_TESTS=OFF -DQIMMISC_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build build/doctor --target qimmisc_tool >/dev/null
exec build/doctor/bin/qimmisc "$@" doctor
