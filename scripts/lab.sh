#!/usr/bin/env bash
# A lab of simulated headsets in a real Prometheus, on this machine's loopback.
#
#   scripts/lab.sh N                  N headsets in real time: each a vistrel-host with its own
#                                     metrics endpoint and --seed, scraped by Prometheus
#   scripts/lab.sh N --backfill 24h   a simulated day per headset (--openmetrics), loaded with
#                                     promtool, served by Prometheus: every headset's day ends
#                                     when the script started
#
# Options: --scrape-every D (default 5s), --snapshot-every D (the hosts'; default 15s live, 5m
# backfilled), --port P (Prometheus's; default a free one), --keep (leave the lab's directory).
# Every headset is labelled device="headset-NN"; Prometheus loads export/alerts.yml. The script
# prints Prometheus's URL and example queries, then runs until Ctrl-C (or SIGTERM or SIGHUP), which
# stops everything it started: nothing is left running or listening.
# VISTREL_HOST names the host binary (default: build/default/host/vistrel-host, built if missing).
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
  sed -n '2,15p' "$0" | sed 's/^# \{0,1\}//' >&2
  exit 2
}

count=""
backfill=""
scrape_every=5s
snapshot_every=""
port=""
keep=false
while [ $# -gt 0 ]; do
  case "$1" in
    --backfill) backfill="${2:-}"; shift 2 || usage ;;
    --scrape-every) scrape_every="${2:-}"; shift 2 || usage ;;
    --snapshot-every) snapshot_every="${2:-}"; shift 2 || usage ;;
    --port) port="${2:-}"; shift 2 || usage ;;
    --keep) keep=true; shift ;;
    -h | --help) usage ;;
    *) [ -z "$count" ] || usage; count="$1"; shift ;;
  esac
done
[[ "$count" =~ ^[1-9][0-9]{0,2}$ ]] || { echo "lab: N must be 1 to 999 headsets" >&2; exit 2; }
[[ "$scrape_every" =~ ^[1-9][0-9]*(s|m)$ ]] || { echo "lab: bad --scrape-every" >&2; exit 2; }
[ -z "$port" ] || [[ "$port" =~ ^[1-9][0-9]{0,4}$ ]] || { echo "lab: bad --port" >&2; exit 2; }
snapshot_every="${snapshot_every:-$([ -n "$backfill" ] && echo 5m || echo 15s)}"

# The RFC 3339 time of device time 0 of a backfilled run of $1 (the host's duration grammar) that
# ends now: one for every headset, so that all their runs end when the script started.
start_time_of() {
  python3 - "$1" <<'EOF'
import datetime, re, sys
units = {"ms": 0.001, "s": 1, "m": 60, "h": 3600, "d": 86400}
terms = re.findall(r"(\d+)(ms|s|m|h|d)", sys.argv[1])
if not terms or "".join(n + u for n, u in terms) != sys.argv[1]:
    sys.exit(f"lab: bad --backfill duration '{sys.argv[1]}'")
span = datetime.timedelta(seconds=sum(int(n) * units[u] for n, u in terms))
print((datetime.datetime.now(datetime.timezone.utc) - span).isoformat(timespec="milliseconds"))
EOF
}
start_time=""
[ -z "$backfill" ] || start_time=$(start_time_of "$backfill") || exit 2

host="${VISTREL_HOST:-build/default/host/vistrel-host}"
if [ ! -x "$host" ]; then
  echo "lab: building the reference host" >&2
  cmake --preset default >/dev/null && cmake --build --preset default --target vistrel-host >/dev/null
fi
for tool in prometheus promtool curl python3; do
  command -v "$tool" >/dev/null || { echo "lab: $tool missing: run scripts/setup.sh" >&2; exit 2; }
done

lab=$(mktemp -d "${TMPDIR:-/tmp}/vistrel-lab.XXXXXX")
pids=()

# Stops every process the lab started (SIGTERM, then SIGKILL after 10 s) and waits for each. They
# run in sessions of their own, so that a Ctrl-C reaches the script alone and each of them gets
# one stop signal (a second one would end a host at once).
stop_all() {
  trap - EXIT INT TERM HUP
  [ "${#pids[@]}" -eq 0 ] || kill -TERM "${pids[@]}" 2>/dev/null || true
  for _ in $(seq 100); do
    alive=()
    for pid in "${pids[@]}"; do kill -0 "$pid" 2>/dev/null && alive+=("$pid"); done
    [ "${#alive[@]}" -eq 0 ] && break
    sleep 0.1
  done
  [ "${#alive[@]}" -eq 0 ] || kill -KILL "${alive[@]}" 2>/dev/null || true
  wait 2>/dev/null || true
  if $keep; then echo "lab: kept $lab" >&2; else rm -rf "$lab"; fi
}
trap stop_all EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP

name_of() { printf 'headset-%02d' "$1"; }

free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

# Waits (at most 30 s) for the host of headset $1 to print its endpoint; prints HOST:PORT.
endpoint_of() {
  local err="$lab/$(name_of "$1").err"
  for _ in $(seq 300); do
    if grep -q '^vistrel-host: serving metrics at ' "$err" 2>/dev/null; then
      sed -n 's|^vistrel-host: serving metrics at http://\([^/]*\)/metrics$|\1|p' "$err"
      return
    fi
    kill -0 "${pids[$(($1 - 1))]}" 2>/dev/null || break
    sleep 0.1
  done
  echo "lab: $(name_of "$1") did not start:" >&2
  cat "$err" >&2
  exit 1
}

# What sets headsets apart (--seed: battery, thermal room, focus phase, process table) and gives a
# real-time headset its own simulated kernel files instead of this machine's.
headset_options() {
  local i="$1"
  echo "--seed $i"
  [ -n "$backfill" ] || echo "--kernel-files simulated"
}

start_live_headsets() {
  for i in $(seq "$count"); do
    setsid "$host" --real 100000h $(headset_options "$i") --sampler simulated \
      --snapshot-every "$snapshot_every" --metrics-listen 127.0.0.1:0 --log-level warn \
      >/dev/null 2>"$lab/$(name_of "$i").err" &
    pids+=("$!")
  done
  {
    echo "scrape_configs:"
    echo "  - job_name: headsets"
    echo "    static_configs:"
    for i in $(seq "$count"); do
      echo "      - {targets: ['$(endpoint_of "$i")'], labels: {device: $(name_of "$i")}}"
    done
  } >>"$lab/prometheus.yml"
}

backfill_headsets() {
  local running=0
  echo "lab: simulating $backfill of $count headsets" >&2
  for i in $(seq "$count"); do
    setsid "$host" --simulate "$backfill" $(headset_options "$i") --snapshot-every "$snapshot_every" \
      --openmetrics "$lab/$(name_of "$i").om" --device "$(name_of "$i")" --start-time "$start_time" \
      --log-level warn >/dev/null 2>"$lab/$(name_of "$i").err" &
    pids+=("$!")
    running=$((running + 1))
    if [ "$running" -ge "$(nproc)" ]; then wait -n; running=$((running - 1)); fi
  done
  wait
  for i in $(seq "$count"); do
    promtool tsdb create-blocks-from openmetrics "$lab/$(name_of "$i").om" "$lab/data" >/dev/null
    rm "$lab/$(name_of "$i").om"
  done
}

cat >"$lab/prometheus.yml" <<EOF
global: {scrape_interval: $scrape_every, scrape_timeout: $scrape_every, evaluation_interval: $scrape_every}
rule_files: ["$PWD/export/alerts.yml"]
EOF
if [ -n "$backfill" ]; then backfill_headsets; else start_live_headsets; fi

port="${port:-$(free_port)}"
setsid prometheus --config.file="$lab/prometheus.yml" --storage.tsdb.path="$lab/data" \
  --storage.tsdb.retention.time=100y --web.listen-address="127.0.0.1:$port" --log.level=warn \
  >"$lab/prometheus.log" 2>&1 &
pids+=("$!")
url="http://127.0.0.1:$port"
for _ in $(seq 600); do
  curl -fs "$url/-/ready" >/dev/null 2>&1 && break
  kill -0 "${pids[-1]}" 2>/dev/null || { cat "$lab/prometheus.log" >&2; exit 1; }
  sleep 0.1
done

cat <<EOF
Prometheus: $url   ($count headsets, alerts at $url/alerts; Ctrl-C stops the lab)
Example queries:
  hottest sensor per headset:          topk by (device) (1, vistrel_thermal_temperature_celsius)
  lowest battery:                      bottomk(1, vistrel_battery_level_ratio)
  process with most memory in the lab: topk(1, vistrel_process_resident_memory_bytes)
EOF
wait
