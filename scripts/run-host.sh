#!/usr/bin/env bash
# Sets up, builds the reference host and runs it; arguments go to the host
# (default: 4 hours of simulated device time against the simulated headset).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default --target vistrel-host >/dev/null
exec ./build/default/host/vistrel-host "$@"
