#!/bin/sh
# Installs what is missing, builds Velum with AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs every test through CTest.
set -eu
cd "$(dirname "$0")/.."

sh scripts/setup.sh

BUILD=${VELUM_TEST_BUILD:-build-tests}
JOBS=$(nproc 2>/dev/null || echo 2)

cmake -S . -B "$BUILD" -G Ninja \
    -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" \
    -DVELUM_SANITIZE=ON >/dev/null
cmake --build "$BUILD" --parallel "$JOBS"

# Qt and the system libraries keep some allocations until exit on purpose;
# leak reports would be about them, not about Velum.
export ASAN_OPTIONS="detect_leaks=0:abort_on_error=0:strict_string_checks=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export QT_QPA_PLATFORM=offscreen

ctest --test-dir "$BUILD" --output-on-failure --parallel "$JOBS" --timeout 600
