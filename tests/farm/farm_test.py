#!/usr/bin/env python3
"""The farm of examples/farm with real programs; scripts/test-farm says what it shows and starts it.

Everything that is started is a child of this process and ended by its id; what is written is below one temporary folder.
"""
import collections
import os
import pathlib
import re
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import urllib.parse

BIN, TOOLS = pathlib.Path(os.environ["BIN"]), pathlib.Path(os.environ["TOOLS"])
EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples" / "farm"
POSTGRES = TOOLS / "usr/lib/postgresql/15/bin"
LIBRARIES = {**os.environ, "LD_LIBRARY_PATH": str(TOOLS / "usr/lib/x86_64-linux-gnu"), "LC_ALL": "C.UTF-8"}
PORT, PRINTER, NOBODY = 4711, "Laser-2 (session 5)", 65534
BOUND = 60  # seconds for what has to come true

children = []


def fail(text):
    sys.exit(f"tests/farm: {text}")


def same(what, value, wanted):
    if value != wanted:
        fail(f"{what}: {value!r} instead of {wanted!r}")


def come_true(what, is_true):
    end = time.monotonic() + BOUND
    while not is_true():
        if time.monotonic() > end:
            fail(f"{what} did not come true within {BOUND} seconds")
        time.sleep(0.05)


def start(command, **options):
    child = subprocess.Popen([str(part) for part in command], **options)
    children.append(child)
    return child


def end(child, with_signal=signal.SIGTERM):
    if child.poll() is None:
        child.send_signal(with_signal)
    child.wait()
    if child in children:
        children.remove(child)


class Database:
    """A cluster of its own, which nobody reaches but through a socket in its folder."""

    def __init__(self, folder):
        self.folder = folder
        folder.mkdir()
        os.chown(folder, NOBODY, NOBODY)
        self.as_nobody = {"user": NOBODY, "group": NOBODY, "extra_groups": [], "cwd": folder, "env": LIBRARIES}
        subprocess.run([POSTGRES / "initdb", "-D", folder / "data", "-U", "owner", "-A", "trust", "-E", "UTF8", "--locale=C"],
                       check=True, stdout=subprocess.DEVNULL, **self.as_nobody)
        self.start()
        self.query("CREATE DATABASE jobs", database="postgres")
        self.run_file(EXAMPLES / "jobs.sql")

    def start(self):
        self.log = open(self.folder.parent / "postgres.log", "ab")
        self.server = start([POSTGRES / "postgres", "-D", self.folder / "data", "-k", self.folder, "-c", "listen_addresses="],
                            stdout=self.log, stderr=self.log, **self.as_nobody)
        come_true("the database", lambda: self.psql(["-c", "SELECT 1"], "postgres").returncode == 0)

    def stop(self):
        end(self.server, signal.SIGINT)
        self.log.close()

    def psql(self, arguments, database="jobs", role="owner"):
        return subprocess.run([POSTGRES / "psql", "-X", "-A", "-t", "-F|", "-v", "ON_ERROR_STOP=1", "-h", self.folder,
                               "-U", role, "-d", database, *arguments], env=LIBRARIES, capture_output=True, text=True)

    def rows(self, arguments, **options):
        done = self.psql(arguments, **options)
        if done.returncode != 0:
            fail(f"psql says: {done.stderr}")
        return [tuple(line.split("|")) for line in done.stdout.splitlines()]

    def query(self, text, **options):
        return self.rows(["-c", text], **options)

    def number(self, text):
        return int(self.query(text)[0][0])

    def run_file(self, path, *arguments):
        return self.rows([*arguments, "-f", path])


class Server:
    """One aps with its print client and its rsyslog, under a name and in a network of its own."""

    def __init__(self, name, folder, database):
        self.name, self.folder = name, folder
        for below in ("log", "spool", "output"):
            (folder / below).mkdir(parents=True)
        self.history, self.job_log = folder / "jobs.sqlite", folder / "log" / "jobs.json"
        self.said = open(folder / "said", "ab")
        # Keeps the namespaces until it is ended.
        self.place = start(["unshare", "--net", "--uts", "sh", "-c",
                            f"hostname {name} && ip link set lo up && echo && exec cat"],
                           stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.place.stdout.readline()
        self.start_aps()
        self.client = self.start_there([BIN / "printclient", "--server", f"127.0.0.1:{PORT}", "--session", 5, "--printer",
                                        "Laser-2", "--output", folder / "output", "--no-page", "--no-notices"])
        self.configuration = folder / "rsyslog.conf"
        self.configuration.write_text(self.configure(database))
        said = subprocess.run(self.rsyslogd("-N1"), env=LIBRARIES, capture_output=True, text=True)
        if said.returncode != 0 or "error" in said.stderr:
            fail(f"rsyslog does not take its configuration: {said.stderr}")
        self.start_rsyslog()

    def configure(self, database):
        """The example with the paths and the database of this test."""
        text = (EXAMPLES / "aps-jobs.conf").read_text()
        address = re.search(r'postgresql://[^"]*db\.example[^"]*', text).group()
        for was, is_now in (('"/var/spool/rsyslog"', f'"{self.folder / "spool"}"'),
                            (address, f"postgresql://aps_jobs@{urllib.parse.quote(str(database.folder), safe='')}/jobs"),
                            ('action.resumeInterval="5"', 'action.resumeInterval="1"'),
                            ('"/var/log/aps/jobs.json"', f'"{self.job_log}"')):
            if was not in text:
                fail(f"aps-jobs.conf has no {was} any more")
            text = text.replace(was, is_now)
        return text

    def there(self, command):
        return ["nsenter", "--target", str(self.place.pid), "--net", "--uts", "--", *command]

    def start_there(self, command, **options):
        return start(self.there(command), stdout=self.said, stderr=self.said, **options)

    def start_aps(self):
        self.aps = start(self.there([BIN / "aps", "--no-keys", "--listen", f"127.0.0.1:{PORT}", "--history", self.history, "--job-log",
                                     self.job_log, "--log", self.folder / "log" / "aps.log"]),
                         stdout=subprocess.PIPE, stderr=self.said)
        if not self.aps.stdout.readline().startswith(b"aps listens on "):
            fail(f"{self.name}: aps did not start")

    def start_rsyslog(self):
        self.rsyslog = self.start_there(self.rsyslogd("-n"), env=LIBRARIES)

    def rsyslogd(self, option):
        return [TOOLS / "usr/sbin/rsyslogd", option, "-f", self.configuration, "-i", self.folder / "rsyslog.pid", "-M",
                TOOLS / "usr/lib/x86_64-linux-gnu/rsyslog"]

    def start_jobs(self, first, count):
        return start(self.there([BIN / "farm_jobs", PORT, PRINTER, first, count, 10]), stdin=subprocess.PIPE,
                     stdout=subprocess.PIPE, stderr=self.said, text=True)

    def kill_aps(self):
        end(self.aps, signal.SIGKILL)
        self.start_aps()

    def kill_rsyslog(self):
        end(self.rsyslog, signal.SIGKILL)
        (self.folder / "rsyslog.pid").unlink(missing_ok=True)
        self.start_rsyslog()

    def rename_log(self):
        self.job_log.rename(self.job_log.with_suffix(".before"))
        self.aps.send_signal(signal.SIGHUP)

    def kept(self):
        """What aps has of its jobs, as the database shows it."""
        with sqlite3.connect(f"file:{self.history}?mode=ro", uri=True, timeout=10) as history:
            return history.execute("SELECT number, state, user, spooler_job, document, bytes, ended, change FROM jobs "
                                   "ORDER BY number").fetchall()

    def end(self):
        for child in (self.rsyslog, self.client, self.aps):
            end(child)
        self.place.stdin.close()
        self.place.wait()
        children.remove(self.place)
        self.said.close()


def answered(child):
    """The numbers and users of the jobs that were answered."""
    lines = child.communicate(timeout=200)[0].splitlines()
    same("how farm_jobs ended", child.returncode, 0)
    children.remove(child)
    return [(int(number), user) for number, user in (line.split() for line in lines)]


def a_thousand_jobs_are_there_once(servers, database):
    printing = [server.start_jobs(1, 500) for server in servers]
    come_true("jobs in the database", lambda: database.number("SELECT count(*) FROM jobs") > 0)
    database.stop()
    come_true("a log to rename", servers[0].job_log.exists)
    servers[0].rename_log()
    done = [answered(child) for child in printing]
    same("jobs that were answered", [len(jobs) for jobs in done], [500, 500])
    database.start()
    come_true("all users in the database",
              lambda: database.number("SELECT count(*) FROM jobs WHERE \"user\" <> ''") >= 1000)
    same("jobs", database.number("SELECT count(*) FROM jobs WHERE state = 'delivered'"), 1000)
    same("different jobs", database.number("SELECT count(*) FROM (SELECT DISTINCT server, spooler_job FROM jobs) AS one"), 1000)
    same("jobs of each user on each server",
         sorted({count for (count,) in database.query('SELECT count(*) FROM jobs GROUP BY server, "user"')}), ["50"])
    same("users", database.number('SELECT count(DISTINCT "user") FROM jobs'), 10)
    for name in ("anna", "ANNA", "farm\\anna"):
        found = collections.Counter(row[1] for row in database.run_file(EXAMPLES / "jobs-of-user.sql", "-v", f"user={name}"))
        same(f"jobs of {name}", found, {server.name: 50 for server in servers})
    same("jobs of somebody else's domain", database.run_file(EXAMPLES / "jobs-of-user.sql", "-v", "user=other\\anna"), [])
    same("rejected lines", database.query("SELECT * FROM rejected_lines"), [])


def killed_servers_lose_nothing_and_say_nothing_twice(servers, database):
    printing = [server.start_jobs(10000, 0) for server in servers]
    for turn in range(6):
        for server in servers:
            before = server.kept()[-1][0]
            come_true("more jobs", lambda server=server, before=before: server.kept()[-1][0] > before + 5 + turn)
            server.kill_aps()
            if turn == 2:
                server.kill_rsyslog()
        if turn == 4:
            database.stop()
            database.start()
    done = [answered(child) for child in printing]
    for server, jobs in zip(servers, done):
        end(server.aps)
        kept = server.kept()
        same(f"{server.name}: jobs that have not ended", [job for job in kept if not job[6]], [])
        shown = ('SELECT job, state, "user", spooler_job, document, bytes, '
                 "to_char(ended AT TIME ZONE 'UTC', 'YYYY-MM-DD\"T\"HH24:MI:SS\"Z\"'), change "
                 f"FROM jobs WHERE server = '{server.name}' ORDER BY job")
        wanted = [tuple(str(value) for value in job) for job in kept]
        come_true(f"{server.name}: what aps has in the database", lambda shown=shown, wanted=wanted: database.query(shown) == wanted)
        delivered = collections.Counter(int(job[3]) for job in kept if job[1] == "delivered" and int(job[3]) >= 10000)
        same(f"{server.name}: answered jobs that are lost", [job for job, _ in jobs if delivered[job] == 0], [])
        same(f"{server.name}: jobs that are there twice", [job for job, count in delivered.items() if count > 1], [])
        print(f"{server.name}: 6 kills, {len(jobs)} jobs were answered meanwhile, {len(kept)} are in its records and in the database")
    rejected = database.query("SELECT line FROM rejected_lines")
    same("rejected lines that are JSON", [line for (line,) in rejected if re.fullmatch(r"\{.*\}", line)], [])


def main():
    work = pathlib.Path(tempfile.mkdtemp(prefix="farm_test_"))
    work.chmod(0o755)
    try:
        database = Database(work / "database")
        servers = [Server(name, work / name, database) for name in ("north", "south")]
        a_thousand_jobs_are_there_once(servers, database)
        print("1000 jobs of ten users on two servers are in the database, each once; anna's are found on both")
        killed_servers_lose_nothing_and_say_nothing_twice(servers, database)
        same("what a server may see", database.psql(["-c", "SELECT * FROM jobs"], role="aps_jobs").returncode, 1)
        for server in servers:
            server.end()
        database.stop()
        same("programs that are left", children, [])
    except BaseException:
        for path in [*work.glob("*/said"), *work.glob("*/log/aps.log"), work / "postgres.log"]:
            if path.exists():
                print(f"== {path.relative_to(work)}\n" + "\n".join(path.read_text(errors="replace").splitlines()[-10:]))
        raise
    finally:
        for child in reversed(children):
            child.kill()
            child.wait()
        shutil.rmtree(work)


main()
