#!/usr/bin/python3
"""scripts/plot-run on runs of the reference host: it draws every sample the host printed (the
battery level and charging too), leaves the replayed headset's battery current, voltage and
percentage sensors off the temperature axis, bands readings by day, picks minutes, hours or days
for the time axis, writes a PNG, and refuses input that is not a run with one line and
status 2. Arguments: the command that runs the host (emulator words first when cross-built)."""
import importlib.machinery
import importlib.util
import os
import struct
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
PLOT = os.path.join(HERE, "..", "..", "scripts", "plot-run")
CAPTURE = os.path.join(HERE, "..", "data", "headset-capture")


def load_script():
    loader = importlib.machinery.SourceFileLoader("plot_run", PLOT)
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("plot_run", loader))
    loader.exec_module(module)
    return module


def host_run(scratch, name, *options):
    run = subprocess.run(sys.argv[1:] + ["--json", "--samples"] + list(options),
                         capture_output=True, check=True)
    path = os.path.join(scratch, name)
    with open(path, "wb") as out:
        out.write(run.stdout)
    return path


def png_size(path):
    with open(path, "rb") as image:
        head = image.read(24)
    assert head[:8] == b"\x89PNG\r\n\x1a\n", head
    return struct.unpack(">II", head[16:24])


def check_samples_and_png(plot_run, scratch):
    lines = host_run(scratch, "run.jsonl", "--simulate", "2h")
    run = plot_run.read_run(lines)
    battery, sampled = run.series("battery")
    assert sampled and len(battery["current"].hours) == 720, len(battery["current"].hours)
    temperatures, sampled = run.series("temperature")
    assert sampled and len(temperatures["cpu-0"].hours) == 720
    memory, sampled = run.series("memory")
    assert sampled and len(memory["memUsedKb"].hours) == 24  # every 5 minutes
    level = run.sampled["battery/level"]  # the HAL's, beside each sample of the library's
    assert len(level.hours) == 720 and level.hours[0] < 1 / 60.0, level.hours[:3]
    assert len(run.recorded["battery/level"].hours) < 24  # the library's: at the records only
    png = os.path.join(scratch, "run.png")
    subprocess.run([PLOT, lines, png], check=True)
    assert png_size(png) == (1040, 1120), png_size(png)  # 13 x 14 inches at 80 dpi


def check_replay_sensors(plot_run, scratch):
    lines = host_run(scratch, "replay.jsonl", "--simulate", "10m", "--root", CAPTURE,
                     "--battery", "sysfs", "--thermal", "sysfs", "--snapshot-every", "5m")
    run = plot_run.read_run(lines)
    kept, left_out, _ = plot_run.temperature_sensors(run)
    assert left_out == ["ibat", "soc", "vbat"], left_out
    assert plot_run.charging_spans(run) == [(10 / 3600.0, run.end)]  # from the first sample
    assert "cpu-0-0-usr" in kept and "skin-msm-therm" in kept, sorted(kept)


def check_daily_bands(plot_run):
    series = plot_run.Series()
    for hour, value in ((1, 10.0), (24, 30.0), (25, 5.0), (47, 7.0), (48, None)):
        series.add(hour, value)
    # Day 0 is (0 h, 24 h]; a missing reading counts for nothing.
    assert plot_run.daily(series) == ([0.5, 1.5], [10.0, 5.0], [20.0, 6.0], [30.0, 7.0])


def check_time_units(plot_run):
    for hours, unit, end in ((2 / 60.0, "minutes", 2.0), (2.0, "hours", 2.0),
                             (48.0, "hours", 48.0), (30 * 24.0, "days", 30.0)):
        axis = plot_run.TimeAxis(hours)
        assert (axis.unit, round(axis.end, 9)) == (unit, end), (hours, axis.unit, axis.end)


def check_bad_input(scratch):
    text = os.path.join(scratch, "timeline.txt")
    with open(text, "w") as out:
        out.write("  0:00:00.000  SystemStateStats      acquire       ok=true periodMs=60000\n")
    truncated = os.path.join(scratch, "truncated.jsonl")
    with open(os.path.join(scratch, "run.jsonl")) as run, open(truncated, "w") as out:
        out.write(run.readline() + run.readline()[:30])
    empty = os.path.join(scratch, "empty.jsonl")
    open(empty, "w").close()
    png = os.path.join(scratch, "bad.png")
    for path, says in ((os.path.join(scratch, "missing.jsonl"), b"cannot read"),
                       (empty, b"no lines of a run"),
                       (text, b"line 1 is not a JSON line"),
                       (truncated, b"line 2 is not a JSON line")):
        refused = subprocess.run([PLOT, path, png], capture_output=True)
        assert refused.returncode == 2 and says in refused.stderr, refused
        assert refused.stderr.count(b"\n") == 1, refused.stderr
    unwritable = subprocess.run([PLOT, os.path.join(scratch, "run.jsonl"),
                                 os.path.join(scratch, "no-such-dir", "x.png")],
                                capture_output=True)
    assert unwritable.returncode == 2 and b"cannot write" in unwritable.stderr, unwritable


plot_run = load_script()
with tempfile.TemporaryDirectory() as scratch:
    check_samples_and_png(plot_run, scratch)
    check_replay_sensors(plot_run, scratch)
    check_daily_bands(plot_run)
    check_time_units(plot_run)
    check_bad_input(scratch)
print("plot-run: samples, replay sensors, daily bands, time units and bad input checked")
