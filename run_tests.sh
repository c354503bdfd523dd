#!/usr/bin/env bash
# Installs what the tests need (where missing), builds, and runs the whole suite through CTest:
# once as a Release build, once under AddressSanitizer + UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$0")"

need=()
command -v cmake >/dev/null || need+=(cmake)
command -v g++ >/dev/null || need+=(g++)
command -v gzip >/dev/null || need+=(gzip)
[ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
# sleuthkit is an oracle only: mactime reads the bodyfile back. Without it those checks skip.
want=()
command -v mactime >/dev/null || want+=(sleuthkit)
sudo_if() { if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi; }
if [ ${#need[@]} -gt 0 ] || [ ${#want[@]} -gt 0 ]; then
  sudo_if apt-get update -qq || true
fi
if [ ${#need[@]} -gt 0 ]; then
  sudo_if env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${need[@]}"
fi
if [ ${#want[@]} -gt 0 ]; then
  sudo_if env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${want[@]}" >/dev/null ||
    echo "note: ${want[*]} not installed; the comparisons that need it are skipped"
fi

jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$jobs"
(cd build && ctest --output-on-failure -j"$jobs")

if [ "${BRIMLOCK_SKIP_SANITIZE:-0}" != 1 ]; then
  cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=Debug -DBRIMLOCK_SANITIZE=ON >/dev/null
  cmake --build build-asan -j"$jobs"
  (cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 ctest --output-on-failure -j"$jobs")
fi
