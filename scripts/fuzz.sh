#!/usr/bin/env bash
# Builds the fuzz preset (clang, libFuzzer, ASan + UBSan) and runs every fuzz target once.
#
#   scripts/fuzz.sh [libFuzzer options...]      default: -runs=1000000
#   FUZZ_PARALLEL=2 scripts/fuzz.sh -runs=50000000 -max_total_time=1200
#
# A target starts from its seeds in fuzz/corpus/<target>/ when that folder exists; the inputs it
# discovers go to a scratch folder removed at the end, so the repository is left untouched.
# Crash inputs are kept in build/fuzz/artifacts/. Exits non-zero when any target fails.
set -euo pipefail
cd "$(dirname "$0")/.."
[ $# -gt 0 ] || set -- -runs=1000000
parallel=${FUZZ_PARALLEL:-1}

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
artifacts=build/fuzz/artifacts
mkdir -p "$artifacts"
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

run() {
    local fuzzer=$1 name
    shift
    name=$(basename "$fuzzer")
    mkdir -p "$scratch/$name"
    local seeds=()
    [ -d "fuzz/corpus/$name" ] && seeds=("fuzz/corpus/$name")
    if "$fuzzer" "$@" -artifact_prefix="$artifacts/$name-" "$scratch/$name" "${seeds[@]}" \
        >"$scratch/$name.log" 2>&1; then
        printf '%-32s %s\n' "$name" "$(grep -E '^Done [0-9]+ runs' "$scratch/$name.log")"
    else
        printf '%-32s FAILED\n' "$name"
        tail -n 40 "$scratch/$name.log"
        return 1
    fi
}

failed=0
running=0
for fuzzer in build/fuzz/fuzz/*Fuzzer; do
    run "$fuzzer" "$@" &
    running=$((running + 1))
    if [ "$running" -ge "$parallel" ]; then
        wait -n || failed=1
        running=$((running - 1))
    fi
done
while [ "$running" -gt 0 ]; do
    wait -n || failed=1
    running=$((running - 1))
done
exit "$failed"
