#!/usr/bin/env bash
# Sets up a fresh Debian 12 machine and runs every test suite: the normal build, the
# AddressSanitizer + UndefinedBehaviorSanitizer build, the ThreadSanitizer build of the
# threaded suites (the GigE suite runs inside its private network namespace within the
# first two), then the Windows build under wine.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/deps.sh

for preset in default asan tsan; do
    echo "=== $preset ==="
    cmake --preset "$preset"
    nice -n 5 cmake --build --preset "$preset"
    ctest --preset "$preset"
done

echo "=== package ==="
bash scripts/package-test.sh build/default

echo "=== fuzz ==="
# The libFuzzer targets, 30 s each (TAVRI_FUZZ_SECONDS), in their own clang build folder.
bash scripts/fuzz.sh

echo "=== windows ==="
bash scripts/windows.sh
