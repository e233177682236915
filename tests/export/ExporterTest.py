#!/usr/bin/env python3
"""The reference host's exporter against Prometheus's own tools, one case per invocation:

  ExporterTest.py CASE HOST SOURCE_DIR

  golden    the OpenMetrics file of a fixed simulated run equals tests/data/export/golden-2h.om
            (values that measure this machine masked; VISTREL_UPDATE_GOLDEN=1 rewrites it)
  live      the host on port 0 scraped every second by a real prometheus: the queried battery
            level is the host's own record, `up` is 1, and promtool check metrics says nothing
  auth      --metrics-auth: 401 and no data without or with wrong credentials, 200 with them
  backfill  a simulated run's --openmetrics file loaded by promtool into a fresh data directory
            and served by prometheus: a query at a past device time returns that time's record
  bad-input a port in use, bad addresses, an unwritable --openmetrics path, --metrics-top 0 and
            bad auth files: one "vistrel-host: " line first, exit status 2, no crash, nothing on
            stdout and no trace or summary file made
  lab       scripts/lab.sh 2: both targets up, then Ctrl-C leaves nothing running or listening

Every server a case starts listens on 127.0.0.1 and is stopped when the case ends, pass or fail;
every wait is bounded.
"""
import base64
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

CAPTURE = "tests/data/headset-capture"
START = "2024-05-01T00:00:00Z"
START_UNIX = 1714521600
# Families whose values measure this machine rather than the simulated headset.
MEASURED = re.compile(r"^vistrel_(provider_cpu_seconds_total|process_memory_scan_duration_seconds|"
                      r"memory_read_duration_seconds)\{")


class Failure(Exception):
    pass


def check(condition, message):
    if not condition:
        raise Failure(message)


def wait_for(what, probe, timeout):
    """Calls probe() until it returns something truthy, at most `timeout` seconds."""
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        result = probe()
        if result:
            return result
        time.sleep(0.2)
    raise Failure(f"timed out after {timeout} s waiting for {what}")


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def http_get(url, credentials=None, timeout=5):
    """(status, body) of a GET; status 0 when nothing answers."""
    request = urllib.request.Request(url)
    if credentials:
        request.add_header("Authorization",
                           "Basic " + base64.b64encode(credentials.encode()).decode())
    try:
        with urllib.request.urlopen(request, timeout=timeout) as response:
            return response.status, response.read().decode()
    except urllib.error.HTTPError as e:
        return e.code, e.read().decode(errors="replace")
    except (urllib.error.URLError, ConnectionError, socket.timeout):
        return 0, ""


class Case:
    """A case's scratch directory and the processes it starts, all gone when it ends."""

    def __init__(self, host, source):
        self.host, self.source = host, source
        self.dir = tempfile.mkdtemp(prefix="vistrel-exporter-")
        self.processes = []

    def start(self, args, name, **kwargs):
        out = open(os.path.join(self.dir, name + ".out"), "w")
        err = open(os.path.join(self.dir, name + ".err"), "w")
        process = subprocess.Popen(args, stdout=out, stderr=err, cwd=self.source, **kwargs)
        self.processes.append(process)
        return process

    def read(self, name):
        with open(os.path.join(self.dir, name)) as f:
            return f.read()

    def run_host(self, args, timeout=120):
        return subprocess.run([self.host] + args, cwd=self.source, capture_output=True, text=True,
                              timeout=timeout)

    def start_host(self, args, name="host"):
        process = self.start([self.host] + args, name)
        line = wait_for("the host's endpoint", lambda: re.search(
            r"^vistrel-host: serving metrics at (http://\S+)$", self.read(name + ".err"), re.M), 30)
        return process, line.group(1)

    def start_prometheus(self, config, data):
        port = free_port()
        path = os.path.join(self.dir, "prometheus.yml")
        with open(path, "w") as f:
            f.write(config)
        self.start(["prometheus", f"--config.file={path}", f"--storage.tsdb.path={data}",
                    f"--web.listen-address=127.0.0.1:{port}", "--storage.tsdb.retention.time=100y",
                    "--log.level=warn"], "prometheus")
        url = f"http://127.0.0.1:{port}"
        wait_for("prometheus to be ready", lambda: http_get(url + "/-/ready")[0] == 200, 60)
        return url

    def close(self):
        for process in self.processes:
            if process.poll() is None:
                process.terminate()
        for process in self.processes:
            try:
                process.wait(timeout=15)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        shutil.rmtree(self.dir, ignore_errors=True)


def stop_host(host):
    """SIGTERM ends a run as its time would, with its status 128 + 15 (and no leak reports)."""
    host.terminate()
    check(host.wait(timeout=30) == 128 + signal.SIGTERM, f"the host ended with {host.returncode}")


def query(prometheus, expression, at=None):
    """The instant vector of `expression` (at unix time `at`): [(labels, value)]."""
    arguments = {"query": expression}
    if at is not None:
        arguments["time"] = str(at)
    status, body = http_get(prometheus + "/api/v1/query?" + urllib.parse.urlencode(arguments))
    check(status == 200, f"query {expression} answered {status}: {body}")
    return [(r["metric"], float(r["value"][1])) for r in json.loads(body)["data"]["result"]]


def records(output, source):
    """The records of `source` in a --json timeline, in order."""
    lines = (json.loads(line) for line in output.splitlines() if line.startswith("{"))
    return [line for line in lines if line["event"] == "record" and line["source"] == source]


def mask(line):
    """The sample line with its value replaced when it measures this machine."""
    if not MEASURED.match(line):
        return line
    series, _, timestamp = line.rsplit(" ", 2)
    return f"{series} (measured) {timestamp}"


def golden(case):
    path = os.path.join(case.dir, "run.om")
    run = case.run_host(["--simulate", "2h", "--root", CAPTURE, "--metrics-top", "3",
                         "--openmetrics", path, "--start-time", START, "--device", "golden"])
    check(run.returncode == 0, f"host exited {run.returncode}: {run.stderr}")
    masked = "".join(mask(line) for line in case.read("run.om").splitlines(keepends=True))
    expected_path = os.path.join(case.source, "tests/data/export/golden-2h.om")
    if os.environ.get("VISTREL_UPDATE_GOLDEN") == "1":
        with open(expected_path, "w") as f:
            f.write(masked)
    with open(expected_path) as f:
        expected = f.read()
    if masked != expected:
        got, want = masked.splitlines(), expected.splitlines()
        first = next((i for i, (a, b) in enumerate(zip(got, want)) if a != b), min(len(got), len(want)))
        raise Failure(f"line {first + 1} differs from the golden file:\n"
                      f"  got:  {got[first] if first < len(got) else '(end)'}\n"
                      f"  want: {want[first] if first < len(want) else '(end)'}")


def live(case):
    host, endpoint = case.start_host(["--real", "5m", "--json", "--snapshot-every", "1s",
                                      "--metrics-listen", "127.0.0.1:0"])
    target = urllib.parse.urlparse(endpoint).netloc
    prometheus = case.start_prometheus(
        "global: {scrape_interval: 1s, scrape_timeout: 1s}\n"
        "scrape_configs:\n"
        "  - job_name: headsets\n"
        f"    static_configs: [{{targets: ['{target}'], labels: {{device: headset-01}}}}]\n",
        os.path.join(case.dir, "data"))
    level = wait_for("a battery level in prometheus",
                     lambda: query(prometheus, 'vistrel_battery_level_ratio{device="headset-01"}'), 40)
    levels = {r["level"] / 100 for r in records(case.read("host.out"), "BatteryStats")}
    check(any(abs(level[0][1] - known) < 1e-9 for known in levels),
          f"prometheus has level {level[0][1]}, the host's records {sorted(levels)}")
    up = query(prometheus, 'up{job="headsets"}')
    check([value for _, value in up] == [1.0], f"up is {up}")

    status, scrape = http_get(endpoint)
    check(status == 200 and "vistrel_battery_level_ratio" in scrape, f"scrape answered {status}")
    lint = subprocess.run(["promtool", "check", "metrics"], input=scrape, capture_output=True,
                          text=True, timeout=30)
    check(lint.returncode == 0 and lint.stdout + lint.stderr == "",
          f"promtool check metrics: {lint.stdout}{lint.stderr}")
    check(host.poll() is None, "the host ended early")
    stop_host(host)


def auth(case):
    path = os.path.join(case.dir, "auth")
    with open(path, "w") as f:
        f.write("lab:s3cret pass\n")
    host, endpoint = case.start_host(["--real", "2m", "--metrics-listen", "0", "--metrics-auth",
                                      path])
    check(endpoint.startswith("http://127.0.0.1:"), f"endpoint {endpoint} is not on loopback")
    for credentials in (None, "lab:wrong", "other:s3cret pass", "lab:"):
        status, body = http_get(endpoint, credentials)
        check(status == 401 and "vistrel_" not in body,
              f"credentials {credentials!r}: status {status}")
    status, body = http_get(endpoint, "lab:s3cret pass")
    check(status == 200 and "vistrel_provider_samples_total" in body, f"right credentials: {status}")
    stop_host(host)


def backfill(case):
    path = os.path.join(case.dir, "run.om")
    run = case.run_host(["--simulate", "6h", "--json", "--root", CAPTURE, "--openmetrics", path,
                         "--start-time", START, "--device", "headset-07"])
    check(run.returncode == 0, f"host exited {run.returncode}: {run.stderr}")
    data = os.path.join(case.dir, "data")
    blocks = subprocess.run(["promtool", "tsdb", "create-blocks-from", "openmetrics", path, data],
                            capture_output=True, text=True, timeout=120)
    check(blocks.returncode == 0, f"promtool: {blocks.stdout}{blocks.stderr}")
    prometheus = case.start_prometheus("global: {scrape_interval: 1m}\n", data)

    for record in records(run.stdout, "BatteryStats")[:3]:
        at = START_UNIX + record["t_ns"] / 1e9
        got = query(prometheus, 'vistrel_battery_level_ratio{device="headset-07"}', at)
        check(len(got) == 1 and abs(got[0][1] - record["level"] / 100) < 1e-9,
              f"at {record['t']}: prometheus has {got}, the record level {record['level']}")
    thermal = records(run.stdout, "ThermalStats")[-1]
    at = START_UNIX + thermal["t_ns"] / 1e9
    for sensor, stats in thermal["temperatures"].items():
        got = query(prometheus, f'vistrel_thermal_temperature_celsius{{sensor="{sensor}"}}', at)
        check(len(got) == 1 and abs(got[0][1] - stats["current"]) < 0.01,
              f"{sensor} at {thermal['t']}: prometheus has {got}, the record {stats['current']}")


def bad_input(case):
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        taken.listen()
        port = taken.getsockname()[1]
        unreadable = os.path.join(case.dir, "missing")
        malformed = os.path.join(case.dir, "malformed")
        with open(malformed, "w") as f:
            f.write("no colon here\n")
        for args, expected in [
            (["--metrics-listen", f"127.0.0.1:{port}"], "--metrics-listen: cannot listen"),
            (["--metrics-listen", f":{port}"], "--metrics-listen: cannot listen on 127.0.0.1:"),
            (["--metrics-listen", "localhost:9464"], "bad listen address"),
            (["--metrics-listen", "127.0.0.1:65536"], "bad listen address"),
            (["--metrics-listen", "10.0.0:80"], "bad listen address"),
            (["--metrics-listen", "[::1"], "bad listen address"),
            (["--metrics-listen", ""], "the value is empty"),
            (["--openmetrics", "/nonexistent/dir/run.om"], "--openmetrics: cannot write"),
            (["--metrics-top", "0"], "--metrics-top must be 1"),
            (["--metrics-top", "-3"], "--metrics-top must be 1"),
            (["--metrics-listen", "0", "--metrics-auth", unreadable], "--metrics-auth: cannot read"),
            (["--metrics-listen", "0", "--metrics-auth", malformed], "must hold one line user:pass"),
            (["--start-time", "2024-02-30T00:00:00Z", "--openmetrics", "x"], "--start-time must be"),
            (["--device", "d"], "describe the --openmetrics file"),
        ]:
            outputs = [os.path.join(case.dir, name) for name in ("trace.json", "summary.json")]
            run = case.run_host(["--simulate", "1m", "--json", "--trace", outputs[0], "--summary",
                                 outputs[1]] + args, timeout=30)
            first = run.stderr.splitlines()[0] if run.stderr else ""
            check(run.returncode == 2 and first.startswith("vistrel-host: ") and expected in first,
                  f"{args}: exit {run.returncode}, stderr {run.stderr!r}")
            made = [path for path in outputs if os.path.exists(path)]
            check(run.stdout == "" and not made, f"{args}: stdout {run.stdout!r}, made {made}")


def descendants(pid):
    """The processes below `pid`, from /proc."""
    children = {}
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                with open(f"/proc/{entry}/stat") as f:
                    parent = int(f.read().rsplit(")", 1)[1].split()[1])
                children.setdefault(parent, []).append(int(entry))
            except (OSError, IndexError, ValueError):
                pass
    found, stack = [], [pid]
    while stack:
        for child in children.get(stack.pop(), []):
            found.append(child)
            stack.append(child)
    return found


def lab(case):
    lab = case.start(["scripts/lab.sh", "2", "--scrape-every", "1s"], "lab",
                     env=dict(os.environ, VISTREL_HOST=case.host))
    prometheus = wait_for("the lab's URL", lambda: re.search(
        r"Prometheus: (http://127\.0\.0\.1:\d+)", case.read("lab.out")), 60).group(1)
    def both_up():
        up = query(prometheus, 'up{job="headsets"}')
        return up if len(up) == 2 and all(value == 1.0 for _, value in up) else None

    up = wait_for("both headsets up", both_up, 30)
    ports = [urllib.parse.urlparse(prometheus).port] + [
        int(labels["instance"].rsplit(":", 1)[1]) for labels, _ in up]
    started = descendants(lab.pid)
    check(len(started) >= 3, f"the lab runs {started}")
    lab.send_signal(signal.SIGINT)
    lab.wait(timeout=30)
    alive = [pid for pid in started if os.path.exists(f"/proc/{pid}")]
    check(not alive, f"still running after Ctrl-C: {alive}")
    for port in ports:
        with socket.socket() as s:
            check(s.connect_ex(("127.0.0.1", port)) != 0, f"port {port} still listening")


CASES = {"golden": golden, "live": live, "auth": auth, "backfill": backfill,
         "bad-input": bad_input, "lab": lab}


def main():
    name, host, source = sys.argv[1:4]
    case = Case(os.path.abspath(host), os.path.abspath(source))
    try:
        CASES[name](case)
    except Failure as failure:
        print(f"FAIL {name}: {failure}")
        return 1
    finally:
        case.close()
    print(f"ok {name}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
