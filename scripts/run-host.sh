#!/usr/bin/env bash
# Sets up, builds the reference host and runs it; arguments go to the host
# (default: 4 hours of simulated device time against the simulated headset).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { cmake --preset default && cmake --build --preset default --target vistrel-host; } >"$log" 2>&1; then
    cat "$log" >&2
    exit 1
fi
exec ./build/default/host/vistrel-host "$@"
