#!/usr/bin/env bash
# Installs the Debian packages the build needs, only those that are missing.
#   scripts/install-deps.sh            what the Linux build and tool need
#   scripts/install-deps.sh --all      also the Windows cross lane, the
#                                      sanitizers' needs and the benchmarks
set -euo pipefail

linux=(cmake ninja-build g++ make pkg-config libace-dev libcli11-dev
       libgtest-dev libgmock-dev googletest)
extra=(libbenchmark-dev libspdlog-dev libboost-dev
       g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix
       wine wine64 xvfb xauth dpkg-dev perl
       clang-14 libclang-rt-14-dev      # libFuzzer builds of the fuzz targets
       libinih-dev libsimpleini-dev)    # the settings benchmarks' peers
linux+=(libsodium-dev)                 # in-memory encipherment of secrets
linux+=(libmnl-dev)                    # rtnetlink dumps of the IP tables
linux+=(iproute2)                      # the network-namespace tests build their links

want=("${linux[@]}")
case "${1:-}" in
  --all) want+=("${extra[@]}") ;;
  "") ;;
  *) echo "usage: $0 [--all]" >&2; exit 2 ;;
esac

missing=()
for pkg in "${want[@]}"; do
  status=$(dpkg-query -W -f='${db:Status-Abbrev}' "$pkg" 2>/dev/null || true)
  [[ "$status" == ii* ]] || missing+=("$pkg")
done
if ((${#missing[@]} == 0)); then
  echo "[install-deps] all packages present"
  exit 0
fi

echo "[install-deps] installing: ${missing[*]}"
sudo=""
if [[ $(id -u) -ne 0 ]]; then sudo="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
echo "[install-deps] done"
