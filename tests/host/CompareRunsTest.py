#!/usr/bin/python3
"""vistrel-host --summary and scripts/compare-runs on runs of the reference host over the
captured headset tree: the same run twice compares equal, a run with a nearly full /data differs
in StorageStats alone, named items match by name whatever their order, a CPU cost beyond its
thresholds counts, and bad input is one line and status 2. Arguments: the command that runs the
host (emulator words first when cross-built)."""
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
COMPARE = os.path.join(HERE, "..", "..", "scripts", "compare-runs")
CAPTURE = os.path.join(HERE, "..", "data", "headset-capture")
# CPU times are measured on a shared machine: the checks of recorded behaviour leave them out.
NO_COST = ["--cost-abs", "1e9"]


def summarized_run(scratch, name, *options):
    path = os.path.join(scratch, name)
    subprocess.run(sys.argv[1:] + ["--simulate", "2h", "--root", CAPTURE, "--summary", path] +
                   list(options), stdout=subprocess.DEVNULL, check=True)
    return path


def compare(*arguments):
    return subprocess.run([COMPARE] + list(arguments), capture_output=True, text=True)


def changed_paths(stdout):
    """{provider: [paths]} of the change lines compare-runs printed."""
    changes, provider = {}, None
    for line in stdout.splitlines():
        if not line.startswith(" "):
            provider = line
        elif not line.startswith("  options"):
            changes.setdefault(provider, []).append(line.split()[0])
    changes.pop("run options that differ (context, not counted):", None)
    return changes


def rewritten(scratch, source, name, change):
    with open(source) as stream:
        document = json.load(stream)
    change(document)
    path = os.path.join(scratch, name)
    with open(path, "w") as out:
        json.dump(document, out)
    return path


def check_summary_document(path):
    with open(path) as stream:
        document = json.load(stream)
    assert document["run"]["mode"] == "simulated" and document["deviceNs"] == 2 * 3600 * 10**9
    assert document["run"]["options"]["--root"] == CAPTURE, document["run"]
    storage = document["providers"]["StorageStats"]
    assert storage["notifications"] == {"StorageHeartbeat": 2}, storage
    assert storage["lastRecord"]["lowStorage"] is False, storage
    assert "cpuMsPerDeviceHour" in document["allProviders"], document["allProviders"]


def check_runs(scratch):
    base = summarized_run(scratch, "base.json")
    check_summary_document(base)
    again = compare(base, summarized_run(scratch, "again.json"), *NO_COST)
    assert again.returncode == 0 and "no change" in again.stdout, again

    full = compare(base, summarized_run(scratch, "full.json", "--data-available", "3G"), *NO_COST)
    assert full.returncode == 1, full
    assert "options/--data-available: (none) -> 3G" in full.stdout, full.stdout
    assert changed_paths(full.stdout) == {"StorageStats": [
        "notifications/StorageHeartbeat", "notifications/LowStorage", "record/availableBytes",
        "record/freeBytes", "record/lowStorage"]}, full.stdout
    return base


def check_named_items_and_costs(scratch, base):
    def reverse_top(document):
        document["providers"]["ProcessMemoryStats"]["lastRecord"]["topByRss"].reverse()
    reordered = rewritten(scratch, base, "reordered.json", reverse_top)
    assert compare(base, reordered, *NO_COST).returncode == 0

    def costlier(document):
        row = document["providers"]["ZramStats"]
        row["cpuMsPerDeviceHour"] = row["cpuMsPerDeviceHour"] * 3 + 2
    costly = compare(base, rewritten(scratch, base, "costly.json", costlier))
    assert costly.returncode == 1, costly
    assert changed_paths(costly.stdout).get("ZramStats") == ["cpuMsPerDeviceHour"], costly.stdout


def check_bad_input(scratch, base):
    lines = os.path.join(scratch, "run.jsonl")
    with open(lines, "w") as out:
        out.write('{"t_ns": 0, "event": "run"}\n{"t_ns": 0, "event": "acquire"}\n')
    for arguments, says in (([base, os.path.join(scratch, "missing.json")], "cannot read"),
                            ([lines, base], "not a summary"),
                            ([base], "required"),
                            ([base, base, "--rel", "-1"], "negative")):
        refused = compare(*arguments)
        assert refused.returncode == 2 and says in refused.stderr, refused
        assert refused.stderr.count("\n") == 1, refused.stderr
    unwritable = subprocess.run(
            sys.argv[1:] + ["--summary", os.path.join(scratch, "no-such-dir", "s.json")],
            capture_output=True, text=True)
    assert unwritable.returncode == 2 and "cannot write summary file" in unwritable.stderr
    assert unwritable.stdout == "", "the run did not start"


with tempfile.TemporaryDirectory() as scratch:
    base = check_runs(scratch)
    check_named_items_and_costs(scratch, base)
    check_bad_input(scratch, base)
print("compare-runs: equal runs, one known difference, named items, costs and bad input checked")
