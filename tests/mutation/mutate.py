#!/usr/bin/python3
"""scripts/mutate FOLDER COUNT SEED: do the tests notice faults in the product code of a folder, or of a room in it?

Puts COUNT random faults (tests/mutation/faults.py), one at a time, into a copy of the tree in build/mutation, builds
what the fitting test binaries need and runs them until one fails. Prints what became of each, and in the end those
that no test noticed. The tree itself is only read. The same tree and seed give the same faults.

A fault that does not compile is none, and another one is drawn. One whose binaries are those of the tree, byte for
byte, has no effect, and another one is drawn, too.
"""
import difflib
import filecmp
import hashlib
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
sys.path.insert(0, str(ROOT / "cmake"))
import check_tidy  # noqa: E402
import faults  # noqa: E402

# Which test binaries have to notice a fault of a folder: preset by preset, the quickest and likeliest first.
FITTING = {
    "util": [("windows-x64", "util_tests ports_tests session_tests jobs_tests monitor_tests")],
    "corvane": [("linux", "corvane_tests server_tests client_tests processes_tests"),
                ("windows-x64", "corvane_tests session_tests jobs_tests monitor_tests"),
                ("linux-tsan", "corvane_tests")],
    "protocol": [("linux", "protocol_tests server_tests client_tests processes_tests"),
                 ("windows-x64", "session_tests jobs_tests monitor_tests admin_tests")],
    "tls": [("linux", "tls_tests client_tests processes_tests"), ("windows-x64", "tls_tests"),
            ("linux-tsan", "tls_tests")],
    "ports": [("windows-x64", "ports_tests session_tests monitor_tests identity_tests")],
    "session": [("windows-x64", "session_tests jobs_tests monitor_tests identity_tests sweeps_tests")],
    "jobs": [("windows-x64", "jobs_tests monitor_tests identity_tests sweeps_tests")],
    "monitor": [("windows-x64", "monitor_tests identity_tests sweeps_tests")],
    "compression": [("linux", "compression_tests processes_tests"), ("windows-x64", "compression_tests")],
    "programs": [("linux", "programs_tests server_tests client_tests processes_tests"),
                 ("windows-x64", "programs_tests admin_tests"), ("linux-tsan", "programs_tests")],
    "server": [("linux", "server_tests processes_tests"), ("windows-x64", "server_tests"), ("linux-tsan", "server_tests")],
    "client": [("linux", "client_tests processes_tests"), ("windows-x64", "client_tests client_queue_tests"), ("linux-tsan", "client_tests")],
    "converter": [("windows-x64", "converter_tests")],
    "admin": [("windows-x64", "admin_tests")],
}
MARK = "MG_MUTATION_RUN"  # in the environment of what runs with a fault, so that its processes are found


def stages_of(folder):
    """The stages of a folder; a room of one, like server/hold, has those of its folder. None for what is neither."""
    path = pathlib.PurePosixPath(folder)
    if not path.parts or ".." in path.parts or not (ROOT / path).is_dir():
        return None
    return FITTING.get(path.parts[0])


def is_product(path):
    return path.suffix in (".cpp", ".h") and not path.stem.endswith(("_test", "_fixture"))


def copy_tree(source, target):
    """Makes the target like the source, build results apart; what is the same already keeps its time stamp."""
    wanted = set()
    for folder, folders, files in os.walk(source):
        folders[:] = [name for name in folders if name not in (".git", "build", "__pycache__")]
        for name in files:
            path = pathlib.Path(folder, name)
            there = target / path.relative_to(source)
            wanted.add(there)
            if path.is_file() and not (there.is_file() and filecmp.cmp(path, there, shallow=False)):
                there.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(path, there)
    for folder, folders, files in os.walk(target):
        folders[:] = [name for name in folders if name != "build"]
        for path in (pathlib.Path(folder, name) for name in files):
            if path not in wanted:
                path.unlink()


class Wine:
    """A Wine prefix that is alive while it is needed; also its end, whatever a fault left running in it."""

    def __init__(self, tree):
        self.tree, self.prefix, self.shell = tree, tree.parent / "wine", None

    def start(self):
        if self.shell is None:
            script = 'source scripts/wine-prefix; start_wine "$1"; echo ready; read -r _; stop_wine'
            self.shell = subprocess.Popen(["bash", "-c", script, "wine", str(self.prefix)], cwd=self.tree,
                                          stdin=subprocess.PIPE, stdout=subprocess.PIPE, start_new_session=True)
            if self.shell.stdout.readline() != b"ready\n":
                raise SystemExit("scripts/mutate: the Wine prefix does not start")
        return {"MG_WINE_PREFIX": str(self.prefix)}

    def stop(self):
        if self.shell is not None:
            self.shell.stdin.close()
            self.shell.wait()
            self.shell = None


class Trial:
    """The copy of the tree, its builds and its test runs."""

    def __init__(self, root, stages):
        self.tree = root / "build" / "mutation" / "tree"
        self.stages = [(preset, binaries.split()) for preset, binaries in stages]
        self.wine, self.seconds, self.hashes = Wine(self.tree), {}, {}
        copy_tree(root, self.tree)
        for name in ("openssl-windows", "sqlite-windows"):
            libraries = self.tree / "build" / name
            libraries.parent.mkdir(exist_ok=True)
            if not libraries.exists() and (root / "build" / name).exists():
                libraries.symlink_to(root / "build" / name)

    def bin(self, preset):
        return self.tree / "build" / preset / "bin"

    def prepare(self):
        """Builds the tree as it is and runs its tests, for how long they take; whether they pass without a fault."""
        for preset, binaries in self.stages:
            if subprocess.run(["cmake", "--preset", preset, "-DMG_UNITY=OFF"], cwd=self.tree, stdout=subprocess.DEVNULL).returncode:
                raise SystemExit(f"scripts/mutate: {preset} cannot be configured")
            log = self.tree.parent / "log"
            with log.open("wb") as output:
                built = self.build(preset, binaries, output)
            if not built:
                raise SystemExit(f"scripts/mutate: {preset} does not build without a fault; see {log}")
            self.hashes[preset] = self.hash(preset)
            for binary in binaries:
                begun = time.monotonic()
                if said := self.failure(preset, binary, 900):
                    raise SystemExit(f"scripts/mutate: {binary} of {preset} fails without a fault: {said}")
                self.seconds[preset, binary] = time.monotonic() - begun

    def build(self, preset, binaries, output=subprocess.DEVNULL):
        return subprocess.run(["cmake", "--build", "--preset", preset, "--target", *binaries], cwd=self.tree,
                              stdout=output, stderr=output).returncode == 0

    def hash(self, preset, concerns=lambda path: True):
        paths = sorted(path for path in self.bin(preset).rglob("*") if path.is_file() and concerns(path))
        return {path: hashlib.sha1(path.read_bytes()).digest() for path in paths}

    def outcome(self):
        """What becomes of the fault that the copy has now: ("killed", by what), "survived", "refused" or "same"."""
        for preset, binaries in self.stages:
            for binary in binaries:
                if not self.build(preset, [binary]):
                    return "refused", preset
                if not self.is_changed(preset, binary):
                    continue
                if said := self.failure(preset, binary, 30 + 5 * self.seconds[preset, binary]):
                    return "killed", f"{preset} {binary}: {said}"
        same = all(self.hash(preset) == self.hashes[preset] for preset, _ in self.stages)
        return ("same" if same else "survived"), ""

    def is_changed(self, preset, binary):
        """Whether a test binary, or a program that it may start, is not that of the tree."""
        def concerns(path):
            return path.stem == binary or not path.stem.endswith("_tests")
        wanted = {path: digest for path, digest in self.hashes[preset].items() if concerns(path)}
        return self.hash(preset, concerns) != wanted

    def failure(self, preset, binary, limit):
        """Why a test binary failed, in a word or two; empty when it passed."""
        mark = f"{os.getpid()}-{time.monotonic_ns()}"
        environment = {**os.environ, MARK: mark, "GTEST_FAIL_FAST": "1", "GTEST_COLOR": "no"}
        command = [str(self.bin(preset) / binary)]
        if preset.startswith("windows"):
            command = [str(self.tree / "scripts" / "run-under-wine"), command[0] + ".exe"]
            environment |= self.wine.start()
        log = self.tree.parent / "log"
        with log.open("wb") as output:
            process = subprocess.Popen(command, cwd=self.tree / "build" / preset, env=environment, start_new_session=True,
                                       stdin=subprocess.DEVNULL, stdout=output, stderr=output)
            try:
                code = process.wait(limit)
            except subprocess.TimeoutExpired:
                code = "time-out"
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
            finally:
                end_marked(mark)
        if code == 0:
            return ""
        failed = [line.split()[-1 if line.endswith("]") else 3] for line in log.read_text(errors="replace").splitlines()
                  if line.startswith("[  FAILED  ]") and "." in line]
        if not failed:  # it did not end by itself: nothing of it stays
            self.wine.stop()
        return failed[0].rstrip(",") if failed else str(code)


def end_marked(mark):
    """Ends what a run left behind, by the mark in its environment."""
    for entry in pathlib.Path("/proc").iterdir():
        try:
            if entry.name.isdigit() and f"{MARK}={mark}".encode() in (entry / "environ").read_bytes().split(b"\0"):
                os.kill(int(entry.name), signal.SIGKILL)
        except OSError:
            continue  # it has ended meanwhile, or is not ours


def mutate(root, folder, stages, count, seed):
    """Prints the result and gives (killed, survived) as lists of faults."""
    trial = Trial(root, stages)
    try:
        trial.prepare()
        presets = [preset for preset, _ in trial.stages if not preset.endswith("san")]
        units = [(path, options) for path, options in check_tidy.sources(trial.tree, presets)
                 if is_product(path) and path.is_relative_to(trial.tree / folder)]
        files = sorted(path for path in (trial.tree / folder).rglob("*") if is_product(path))
        all_faults = faults.find(units, files)
        print(f"{len(all_faults)} faults are possible in {len(files)} files of {folder}/", flush=True)
        tally = {"killed": [], "survived": [], "refused": [], "same": []}
        for fault in faults.drawn(all_faults, random.Random(seed)):
            if len(tally["killed"]) + len(tally["survived"]) == count:
                break
            content = fault.path.read_bytes()
            try:
                fault.path.write_bytes(fault.applied(content))
                outcome, by = trial.outcome()
            finally:
                fault.path.write_bytes(content)
            tally[outcome].append(fault)
            if outcome in ("killed", "survived"):
                print(f"{fault.path.relative_to(trial.tree)}:{fault.line(content)} {fault.kind}: {outcome} {by}", flush=True)
        for fault in tally["survived"]:
            content = fault.path.read_bytes()
            name = str(fault.path.relative_to(trial.tree))
            print(f"\nnot noticed: {name}:{fault.line(content)} ({fault.kind})")
            before, after = (text.decode("utf-8").splitlines() for text in (content, fault.applied(content)))
            print("\n".join(list(difflib.unified_diff(before, after, lineterm="", n=2))[2:]))
        print(f"\n{folder}, seed {seed}: {len(tally['killed'])} noticed, {len(tally['survived'])} not noticed; besides "
              f"{len(tally['refused'])} refused by the compiler, {len(tally['same'])} without effect on the binaries")
        return tally["killed"], tally["survived"]
    finally:
        trial.wine.stop()


def main():
    stages = stages_of(sys.argv[1]) if len(sys.argv) == 4 else None
    if not stages or not sys.argv[2].isdigit() or not sys.argv[3].isdigit():
        print(f"usage: scripts/mutate FOLDER COUNT SEED, where FOLDER is one of {', '.join(FITTING)}, or a room of one, "
              "like server/hold", file=sys.stderr)
        return 2
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))  # so that what runs is ended
    mutate(ROOT, sys.argv[1], stages, int(sys.argv[2]), int(sys.argv[3]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
