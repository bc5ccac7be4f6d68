#!/bin/sh
# Installs what is missing, builds Velum and runs its main job on the example
# project: a small finished project made from scratch (synthetic footage with
# synthesised speech, an external microphone track and the documents of a
# finished job). Its media go through the local stages (every file judged,
# the takes synced to the microphone, the measurements and speech audio for
# the service written), and the finished project is opened for review
# exactly as the application opens it.
set -eu
cd "$(dirname "$0")/.."

sh scripts/setup.sh

BUILD=${VELUM_BUILD:-build-release}
cmake -S . -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DVELUM_BUILD_TESTS=OFF -DVELUM_BUILD_BENCHMARKS=OFF >/dev/null
cmake --build "$BUILD" --parallel "$(nproc 2>/dev/null || echo 2)"

CLI="$BUILD/apps/velum-cli"
OUT=${VELUM_EXAMPLE_DIR:-examples/out}
PROJECT="$OUT/project"
mkdir -p "$OUT"
sh examples/make-example-project.sh --force "$PROJECT"

# What Velum does on this machine before a project goes to the service. The
# takes should land at the offsets the example was built with (printed above).
rm -rf "$OUT/perceived" "$OUT/measurements"
"$CLI" perceive "$OUT/perceived" \
    --a-roll "$PROJECT/media/A001.mp4" "$PROJECT/media/A002.mp4" "$PROJECT/media/A003.mov" \
    --external "$PROJECT/media/external_mic.wav" --out "$OUT/measurements"

# The screens are not there yet: the review model is built by the headless
# tool. Notes on stored edits and the plan go to standard output.
"$CLI" review "$PROJECT" --json "$OUT/review.json"

words=$(grep -c '"clipIndex"' "$OUT/review.json" || true)
echo "run: the review model of $PROJECT ($words words and tokens) is in $OUT/review.json"
