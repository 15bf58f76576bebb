#!/usr/bin/env bash
# Builds everything twice (plain, and with AddressSanitizer + UBSan) and runs
# every test in both builds; a third build under ThreadSanitizer runs the
# tests that use threads (providers, simulator, the soak). The plain build
# runs last, so the output ends with ctest's summary.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
jobs=$(nproc)

cmake -S . -B build-asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTOVRA_SANITIZE=address -DTOVRA_BUILD_BENCH=OFF >/dev/null
cmake --build build-asan -j "$jobs"
(cd build-asan && ctest --output-on-failure -j "$jobs")

cmake -S . -B build-tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DTOVRA_SANITIZE=thread -DTOVRA_BUILD_BENCH=OFF >/dev/null
cmake --build build-tsan -j "$jobs" --target provider_tests sim_tests tovra_soak alert_tests
(cd build-tsan && TSAN_OPTIONS=second_deadlock_stack=1 \
  ctest --output-on-failure -j "$jobs" -R '^(providers|sim|reliability)[.]' -E 'cli_|fault_matrix')

cmake -S . -B build -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j "$jobs"
(cd build && ctest --output-on-failure -j "$jobs")
