#!/usr/bin/env python3
"""The metrics of aps as a real Prometheus has them; scripts/test-metrics says what it shows and starts it.

Everything that is started is a child of this process and ended by its id; what is written is below one temporary folder.
"""
import json
import os
import pathlib
import shutil
import signal
import socket
import sqlite3
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request

BIN, TOOLS = pathlib.Path(os.environ["BIN"]), pathlib.Path(os.environ["TOOLS"])
EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples" / "prometheus"
PROMETHEUS, PROMTOOL = TOOLS / "usr/bin/prometheus", TOOLS / "usr/bin/promtool"
BOUND = 60  # seconds for what has to come true

children = []


def fail(text):
    sys.exit(f"tests/metrics: {text}")


def same(what, value, wanted):
    if value != wanted:
        fail(f"{what}: {value!r} instead of {wanted!r}")


def come_true(what, is_true):
    end = time.monotonic() + BOUND
    while not is_true():
        if time.monotonic() > end:
            fail(f"{what} did not come true within {BOUND} seconds")
        time.sleep(0.1)


def start(command, **options):
    child = subprocess.Popen([str(part) for part in command], **options)
    children.append(child)
    return child


def end(child):
    child.send_signal(signal.SIGTERM)
    child.wait()
    children.remove(child)


def promtool(*arguments, **options):
    done = subprocess.run([str(PROMTOOL), *map(str, arguments)], capture_output=True, text=True, cwd=EXAMPLES, **options)
    if done.returncode != 0:
        fail(f"promtool {arguments[0]} {arguments[1]} says: {done.stdout}{done.stderr}")
    return done.stdout + done.stderr


def fetch(address, accept):
    with urllib.request.urlopen(urllib.request.Request(f"http://{address}/metrics", headers={"Accept": accept})) as answer:
        return answer.headers["Content-Type"], answer.read().decode()


def start_aps(folder, *options):
    """The server and the address of each of its lines "aps ... on ADDRESS"."""
    child = start([BIN / "aps", "--no-keys", "--listen", "127.0.0.1:0", "--client-wait", "0", "--log", folder / "aps.log", *options],
                  stdout=subprocess.PIPE, text=True)
    return child, child.stdout.readline().split()[-1]


class Prometheus:
    def __init__(self, folder, target):
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.address = f"127.0.0.1:{free.getsockname()[1]}"
        text = (EXAMPLES / "aps.yml").read_text()
        for was, is_now in (("127.0.0.1:9464", target), ("scrape_interval: 30s", "scrape_interval: 1s"),
                            ("- aps.rules.yml", f"- {EXAMPLES / 'aps.rules.yml'}")):
            if was not in text:
                fail(f"aps.yml has no {was} any more")
            text = text.replace(was, is_now)
        (folder / "prometheus.yml").write_text(text)
        self.log = open(folder / "prometheus.log", "ab")
        self.child = start([PROMETHEUS, f"--config.file={folder / 'prometheus.yml'}", f"--storage.tsdb.path={folder / 'data'}",
                            f"--web.listen-address={self.address}"], stdout=self.log, stderr=self.log)
        come_true("Prometheus", self.is_ready)

    def is_ready(self):
        try:
            return urllib.request.urlopen(f"http://{self.address}/-/ready").status == 200
        except OSError:
            return False

    def ask(self, what):
        with urllib.request.urlopen(f"http://{self.address}/api/v1/{what}") as answer:
            return json.load(answer)["data"]

    def query(self, expression):
        """The values by their labels, without the name and where they come from."""
        result = self.ask("query?" + urllib.parse.urlencode({"query": expression}))["result"]
        return {tuple(sorted((key, value) for key, value in series["metric"].items()
                             if key not in ("__name__", "job", "instance"))): float(series["value"][1]) for series in result}

    def number(self, expression):
        found = self.query(expression)
        return next(iter(found.values())) if found else 0

    def end(self):
        end(self.child)
        self.log.close()


def numbers(folder, query):
    with sqlite3.connect(f"file:{folder / 'jobs.sqlite'}?mode=ro", uri=True, timeout=10) as history:
        return dict(history.execute(query).fetchall())


def print_jobs(folder, address):
    """A hundred that arrive, and some for a printer that nobody has."""
    port = address.rsplit(":", 1)[1]
    with open(folder / "said", "ab") as said:
        good = start([BIN / "farm_jobs", port, "Laser-2 (session 5)", 1, 100, 10], stdout=said, stderr=said)
        same("how farm_jobs ended", good.wait(timeout=120), 0)
        children.remove(good)
        bad = start([BIN / "farm_jobs", port, "Nobodys (session 6)", 1000, 20, 2], stdout=said, stderr=said)
        same("how farm_jobs ended", bad.wait(timeout=120), 0)
        children.remove(bad)
    come_true("the records of all jobs", lambda: numbers(folder, "SELECT state, count(*) FROM jobs GROUP BY state") ==
              {"delivered": 100, "failed": 20})


def what_prometheus_has_is_what_happened(folder, address, prometheus):
    print_jobs(folder, address)
    come_true("all records", lambda: prometheus.number("aps_records_waiting") == 0)
    states = numbers(folder, "SELECT state, count(*) FROM jobs GROUP BY state")
    same("jobs that were delivered", states["delivered"], 100)
    come_true("all jobs", lambda: prometheus.number("sum(aps_jobs_total)") == sum(states.values()))
    same("jobs by outcome", {labels[0][1]: value for labels, value in prometheus.query("sum by (outcome) (aps_jobs_total)").items()},
         {"delivered": 100, "shown": 0, "failed": states["failed"], "canceled": 0})
    same("what they failed by", prometheus.number('aps_jobs_total{failed_by="port monitor"}'), states["failed"])
    same("bytes", prometheus.number("aps_job_bytes_total"), numbers(folder, "SELECT 0, sum(bytes) FROM jobs")[0])
    for stage in ("collecting", "sending", "taking", "paper"):
        took = numbers(folder, f"SELECT {stage}_ms, count(*) FROM jobs WHERE {stage}_ms >= 0 GROUP BY {stage}_ms")
        same(f"jobs with the stage {stage}", prometheus.number(f'aps_job_stage_seconds_count{{stage="{stage}"}}'), sum(took.values()))
        same("those of up to a tenth of a second", prometheus.number(f'aps_job_stage_seconds_bucket{{stage="{stage}",le="0.1"}}'),
             sum(count for time, count in took.items() if time <= 100))
        seconds = sum(time * count for time, count in took.items()) / 1000
        if abs(prometheus.number(f'aps_job_stage_seconds_sum{{stage="{stage}"}}') - seconds) > 0.001:
            fail(f"the seconds of the stage {stage} are not {seconds}")
    same("sessions", prometheus.query("aps_sessions"), {(("client", "connected"),): 1, (("client", "away"),): 0})
    same("print clients", prometheus.number('aps_connections{room="print clients"}'), 1)
    same("jobs that run", prometheus.number("aps_jobs_running"), 0)
    same("lost lines", prometheus.number("aps_log_lines_lost_total"), 0)
    same("scraping", [(target["health"], target["lastError"]) for target in prometheus.ask("targets")["activeTargets"]], [("up", "")])
    print(f"Prometheus has the {sum(states.values())} jobs that ran, {states['failed']} of them failed, with their bytes and stages")


def the_examples_are_right(prometheus):
    promtool("check", "rules", "aps.rules.yml")
    promtool("test", "rules", "aps.rules.test.yml")
    promtool("check", "config", "aps.yml")
    panels = json.loads((EXAMPLES / "dashboard.json").read_text())["panels"]
    for panel in panels:  # an expression that is wrong is an HTTP error
        come_true(f"data of the dashboard's \"{panel['title']}\"", lambda panel=panel: all(
            prometheus.query(target["expr"].replace("$instance", ".*")) for target in panel["targets"]))
    same("alerts that fire", [alert["labels"]["alertname"] for alert in prometheus.ask("alerts")["alerts"] if alert["state"] == "firing"], [])


def a_port_that_is_taken_is_one_line(folder, taken):
    other = folder / "other"
    other.mkdir()
    aps, address = start_aps(other, "--metrics", taken)
    def lines():
        return [line.split(" ", 3)[3] for line in (other / "aps.log").read_text().splitlines() if "metrics" in line]
    come_true("a line about the port", lines)
    same("lines about the port", lines(), [
        f"there are no metrics at {taken}: Address already in use; jobs print all the same: choose another port with --metrics, "
        "or end the program that has this one, and start aps again"])
    with socket.create_connection(address.rsplit(":", 1)):
        pass
    end(aps)


def main():
    work = pathlib.Path(tempfile.mkdtemp(prefix="metrics_test_"))
    try:
        aps, address = start_aps(work, "--history", work / "jobs.sqlite", "--metrics", "127.0.0.1:0")
        metrics = aps.stdout.readline().split()[-1]
        with open(work / "client", "ab") as said:
            client = start([BIN / "printclient", "--server", address, "--session", 5, "--printer", "Laser-2", "--output",
                            work / "output", "--no-page", "--no-notices"], stdout=said, stderr=said)
        come_true("the print client", lambda: "ready: " in (work / "client").read_text())
        prometheus = Prometheus(work, metrics)
        what_prometheus_has_is_what_happened(work, address, prometheus)
        kind, text = fetch(metrics, "text/plain")
        same("the type of the plain form", kind, "text/plain; version=0.0.4; charset=utf-8")
        same("what promtool says of it", promtool("check", "metrics", input=text), "")
        kind, text = fetch(metrics, "application/openmetrics-text;version=1.0.0")
        same("the type of OpenMetrics", kind, "application/openmetrics-text; version=1.0.0; charset=utf-8")
        same("its end", text[-6:], "# EOF\n")
        same("titles and users in it", [word for word in ("Letter", "anna", "user1", "FARM", "Laser") if word in text], [])
        the_examples_are_right(prometheus)
        a_port_that_is_taken_is_one_line(work, metrics)
        prometheus.end()
        end(client)
        end(aps)
        same("programs that are left", children, [])
    except BaseException:
        for name in ("aps.log", "prometheus.log", "client"):
            if (work / name).exists():
                print(f"== {name}\n" + "\n".join((work / name).read_text(errors="replace").splitlines()[-10:]))
        raise
    finally:
        for child in reversed(children):
            child.kill()
            child.wait()
        shutil.rmtree(work)


main()
