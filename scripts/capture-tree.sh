#!/usr/bin/env bash
# Captures every file the providers read into a tree that the reference host replays with
# --root DIR (and --battery sysfs --thermal sysfs for the power supplies and thermal zones):
#
#   scripts/capture-tree.sh DIR                     from this machine
#   scripts/capture-tree.sh DIR --adb [SERIAL]      from a device attached over adb
#   options: --processes N   the N processes with the most resident memory (default 64)
#
# Copied: /proc/meminfo, /proc/pressure/memory, /proc/vmstat; stat and mm_stat of every
# /sys/block device; zram0's idle statistics; type, online and the battery attributes of every
# /sys/class/power_supply entry; type, temp, cur_state and trip points of every thermal zone and
# cooling device; status, cmdline, stat and oom_score_adj of the chosen processes. Files that
# cannot be read (absent, permission) are left out. The entries of the sysfs classes are
# symlinks whose targets link back, so files are copied one by one, never recursively. The
# power-supply and thermal class directories are kept even when empty: a machine without
# thermal zones has an empty /sys/class/thermal, which the thermal HAL reads as no sensors,
# where a missing one is a failure.
#
# A script runs where the files are (locally under sh, or on the device through `adb shell`)
# and sends each file as a "=== PATH" line followed by its bytes in base64, and each directory
# to keep as a "=== PATH/" line; this side decodes them under DIR. VISTREL_CAPTURE_FROM=ROOT reads ROOT/proc/... instead of /proc/... on that side
# (a mounted image; the tests' fixture trees).
set -euo pipefail

usage() {
    echo "usage: $0 DIR [--adb [SERIAL]] [--processes N]" >&2
    exit 2
}

[ $# -ge 1 ] || usage
dir=$1
shift
adb=false
serial=""
processes=64
while [ $# -gt 0 ]; do
    case "$1" in
        --adb)
            adb=true
            if [ $# -ge 2 ] && [ "${2#--}" = "$2" ]; then serial=$2; shift; fi
            ;;
        --processes)
            [ $# -ge 2 ] && [[ "$2" =~ ^[0-9]+$ ]] || usage
            processes=$2
            shift
            ;;
        *) usage ;;
    esac
    shift
done
if [ -e "$dir" ] && [ -n "$(ls -A "$dir")" ]; then
    echo "capture-tree: $dir exists and is not empty" >&2
    exit 2
fi

quote() { printf "'%s'" "$(printf '%s' "$1" | sed "s/'/'\\\\''/g")"; }

# Runs where the files are: POSIX sh with the tools of toybox (Android) or coreutils.
read -r -d '' sender <<'SENDER' || true
emit() {
    [ -f "$R$1" ] && [ -r "$R$1" ] || return 0
    data=$(base64 < "$R$1" 2>/dev/null) || return 0
    printf '=== %s\n%s\n' "$1" "$data"
}
keepdir() {
    [ -d "$R$1" ] && printf '=== %s/\n' "$1"
    return 0
}
keepdir /sys/class/power_supply
keepdir /sys/class/thermal
for f in /proc/meminfo /proc/pressure/memory /proc/vmstat; do emit "$f"; done
for d in "$R"/sys/block/*; do
    emit "/sys/block/${d##*/}/stat"
    emit "/sys/block/${d##*/}/mm_stat"
done
for f in idlehisto idle_cluster_sz simulated_bd_stat; do
    emit "/sys/devices/virtual/block/zram0/$f"
done
for d in "$R"/sys/class/power_supply/*; do
    for f in type online present status health capacity capacity_level current_now \
        current_avg voltage_now charge_counter charge_full charge_full_design cycle_count \
        temp technology time_to_full_now current_max voltage_max scope; do
        emit "/sys/class/power_supply/${d##*/}/$f"
    done
done
for d in "$R"/sys/class/thermal/thermal_zone* "$R"/sys/class/thermal/cooling_device*; do
    for f in type temp cur_state; do emit "/sys/class/thermal/${d##*/}/$f"; done
    i=0
    while [ -e "$d/trip_point_${i}_type" ]; do
        emit "/sys/class/thermal/${d##*/}/trip_point_${i}_type"
        emit "/sys/class/thermal/${d##*/}/trip_point_${i}_temp"
        i=$((i + 1))
    done
done
grep -H '^VmRSS:' "$R"/proc/[0-9]*/status 2>/dev/null |
    sed 's|^.*/proc/\([0-9]*\)/status:VmRSS:[^0-9]*\([0-9]*\).*|\2 \1|' |
    sort -rn | head -n "$N" | while read -r kb pid; do
    for f in status cmdline stat oom_score_adj; do emit "/proc/$pid/$f"; done
done
SENDER
script="R=$(quote "${VISTREL_CAPTURE_FROM:-}"); N=$processes
$sender"

mkdir -p "$dir"
if $adb; then
    command -v adb >/dev/null || { echo "capture-tree: adb not found" >&2; exit 1; }
    adb_args=()
    [ -n "$serial" ] && adb_args=(-s "$serial")
    send() { adb "${adb_args[@]}" shell "$script"; }
else
    send() { sh -c "$script"; }
fi

# Decodes the stream into DIR; paths outside /proc and /sys, or climbing with "..", are refused.
files=0
part=$(mktemp)
trap 'rm -f "$part"' EXIT
path=""
flush() {
    [ -n "$path" ] || return 0
    case "$path" in */) mkdir -p "$dir$path"; return 0 ;; esac
    mkdir -p "$dir$(dirname "$path")"
    base64 -d < "$part" > "$dir$path"
    files=$((files + 1))
}
exec 3< <(send)
sender_pid=$!
while IFS= read -r line <&3 || [ -n "$line" ]; do
    line=${line%$'\r'}  # a pty-based adb shell ends lines with CR LF
    if [ "${line#=== }" != "$line" ]; then
        flush
        path=${line#=== }
        case "$path" in
            /proc/*|/sys/*) ;;
            *) echo "capture-tree: refusing path $path" >&2; path="" ;;
        esac
        case "$path" in *..*) echo "capture-tree: refusing path $path" >&2; path="" ;; esac
        : > "$part"
    elif [ -n "$path" ]; then
        printf '%s\n' "$line" >> "$part"
    fi
done
flush
if ! wait "$sender_pid"; then
    echo "capture-tree: reading the files failed" >&2
    exit 1
fi
echo "capture-tree: $files files into $dir" >&2
