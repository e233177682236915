#!/usr/bin/python3
"""scripts/plot-run on a run of the reference host: it writes a PNG of the figure's size, and
refuses input without a run. Arguments: the command that runs the host (emulator words first
when cross-built)."""
import os
import struct
import subprocess
import sys
import tempfile

PLOT = os.path.join(os.path.dirname(__file__), "..", "..", "scripts", "plot-run")

host = sys.argv[1:]
run = subprocess.run(host + ["--json", "--simulate", "2h", "--snapshot-every", "10m"],
                     capture_output=True, check=True)
with tempfile.TemporaryDirectory() as scratch:
    lines, png = os.path.join(scratch, "run.jsonl"), os.path.join(scratch, "run.png")
    with open(lines, "wb") as out:
        out.write(run.stdout)
    subprocess.run([PLOT, lines, png], check=True)
    with open(png, "rb") as image:
        head = image.read(24)
    assert head[:8] == b"\x89PNG\r\n\x1a\n", head
    width, height = struct.unpack(">II", head[16:24])
    assert (width, height) == (990, 1080), (width, height)  # 11 x 12 inches at 90 dpi

    empty = os.path.join(scratch, "empty.jsonl")
    open(empty, "w").close()
    refused = subprocess.run([PLOT, empty, png], capture_output=True)
    assert refused.returncode == 1 and b"no JSON lines" in refused.stderr, refused
print("plot-run: PNG of the run written")
