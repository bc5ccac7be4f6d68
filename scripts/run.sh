#!/bin/sh
# Installs what is missing, builds Velum and runs its main job.
set -eu
cd "$(dirname "$0")/.."

sh scripts/setup.sh

BUILD=${VELUM_BUILD:-build-release}
cmake -S . -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DVELUM_BUILD_TESTS=OFF -DVELUM_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$BUILD" --parallel "$(nproc 2>/dev/null || echo 2)"

# The screens are not there yet: the main job runs through the headless tool.
"$BUILD"/apps/velum-cli --help
