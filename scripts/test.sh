#!/usr/bin/env bash
# Sets up, checks the formatting, then builds and runs every test: the plain build, a 30-day soak
# of the reference host, the same suites built by clang under AddressSanitizer +
# UndefinedBehaviorSanitizer with its thread-safety analysis as an error, the ThreadSanitizer
# suites, the whole suite again cross-built for arm64 and run under qemu-user, and a bounded run
# of every fuzz target. Exits non-zero on the first failure.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh --arm64

jobs=$(nproc)
step() { printf '\n== %s ==\n' "$*"; }

step "formatting (.clang-format)"
git ls-files -z -- '*.cc' '*.h' | xargs -0 clang-format --dry-run --Werror

step "default build and tests"
cmake --preset default >/dev/null
cmake --build --preset default -j "$jobs"
ctest --preset default -j "$jobs" -LE soak

step "30 simulated days of every provider in the reference host (label soak)"
ctest --preset default -L soak

step "AddressSanitizer + UndefinedBehaviorSanitizer (clang; -Wthread-safety as an error; a 4-day soak)"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"
ctest --preset asan -j "$jobs"

step "ThreadSanitizer (suites with calls from other threads)"
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs" --target tsan_tests
ctest --preset tsan -j "$jobs" -L tsan

step "arm64 cross-build, tests under qemu-user (the headset's architecture; a 2-day soak)"
cmake --preset arm64 >/dev/null
cmake --build --preset arm64 -j "$jobs"
ctest --preset arm64 -j "$jobs"

step "fuzz targets (clang, ASan + UBSan), 1M executions or 20 s each, whichever comes first"
FUZZ_PARALLEL="$jobs" ./scripts/fuzz.sh -runs=1000000 -max_total_time=20
