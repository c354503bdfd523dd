#!/usr/bin/env bash
# Builds brimlock (Release) and runs it on the small NTFS sample that the repository ships:
# the extracted $MFT of the feature volume in tests/fixtures/data.
set -euo pipefail
cd "$(dirname "$0")"
jobs=$(nproc 2>/dev/null || echo 2)
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build build -j"$jobs" --target brimlock
gunzip -c tests/fixtures/data/feature.mft.gz > build/sample.mft
./build/brimlock -mftfile build/sample.mft "$@"
