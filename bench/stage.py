"""The processes that a measurement needs, all of them children of this one that end with it."""
import contextlib
import os
import pathlib
import re
import shutil
import signal
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
LINUX, WINDOWS = ROOT / "build/linux/bin", ROOT / "build/windows-x64/bin"
SESSION, PORT = 5, "CPP5"
PATIENCE = 20  # seconds for a program to come up
LONGEST_RUN = 400  # seconds of a program that measures


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


def in_registry(text):
    return text.replace("\\", "\\\\")


@contextlib.contextmanager
def scratch(where):
    """A folder for one measurement, gone behind it."""
    pathlib.Path(where).mkdir(parents=True, exist_ok=True)
    folder = pathlib.Path(tempfile.mkdtemp(prefix="mg_bench_", dir=where))
    try:
        yield folder
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def environment(folder):
    """For programs that keep something for their user: all of it below the folder."""
    return dict(os.environ, TMPDIR=str(folder), HOME=str(folder), XDG_RUNTIME_DIR=str(folder), XDG_STATE_HOME=str(folder))


def end_group(leader):
    """Ends what a program that failed has left running: it leads a process group of its own."""
    for attempt in range(30):
        try:
            os.killpg(leader, signal.SIGTERM if attempt < 20 else signal.SIGKILL)
        except ProcessLookupError:
            return
        time.sleep(0.1)


def run(command, **options):
    """What a program prints on its standard output; its error output is shown. Raises when it fails or takes too long;
    nothing that it has started goes on then."""
    with subprocess.Popen(list(map(str, command)), stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True,
                          start_new_session=True, **options) as program:
        try:
            output, _ = program.communicate(timeout=LONGEST_RUN)
        except BaseException:
            end_group(program.pid)
            raise
    if program.returncode != 0:
        end_group(program.pid)
        raise subprocess.CalledProcessError(program.returncode, program.args, output)
    return output


def run_windows(*command):
    return run([ROOT / "scripts/run-under-wine", *command])


class Stage:
    """aps as it is installed, with keys, a print client of one session, and a raw relay and sink. The documents are in
    "out" and "raw" of the folder. As a context manager."""

    def __init__(self, folder, format="raw", command=()):
        self.folder, self._format, self._command = folder, format, command
        self._children = []
        for name in ("out", "raw", "keys", "root/Programs"):
            (folder / name).mkdir(parents=True)
        (folder / "keys").chmod(0o700)
        self.printer = f"Bench (session {SESSION})"

    def __enter__(self):
        try:
            self._start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *failure):
        for child in reversed(self._children):
            child.terminate()
            try:
                child.wait(PATIENCE)
            except subprocess.TimeoutExpired:
                child.kill()
                child.wait()

    def _start(self):
        for name in ("monitor", f"session-{SESSION}"):
            run([LINUX / "aps", "--new-key", self.folder / f"keys/{name}.key"])
        sink = self._listening("raw_hops", "sink", self.folder / "raw", *self._command)
        self.relay = self._listening("raw_hops", "relay", sink)
        files = {"--state": "sessions", "--history": "history", "--log": "aps.log"}
        options = [word for option, name in files.items() for word in (option, self.folder / name)]
        port = self._listening("aps", "--listen", "127.0.0.1:0", "--keys", self.folder / "keys", *options)
        self.aps = self._children[-1].pid
        self._child("ready: ", "printclient", "--server", f"127.0.0.1:{port}", "--session", SESSION,
                    "--key", self.folder / f"keys/session-{SESSION}.key", "--output", self.folder / "out",
                    "--printer", f"Bench,driver=Generic,format={self._format}")
        self.client = self._children[-1].pid
        self._port = port

    def install(self, ghostscript=""):
        """The module's settings in the Wine prefix."""
        shutil.copy(WINDOWS / "ps2pdf.exe", self.folder / "root/Programs")
        values = {
            r"Corvane": {"Port": int(self._port), "KeyFile": windows_path(self.folder / "keys/monitor.key"),
                         "LogFile": windows_path(self.folder / "module.log")},
            r"Marrowgate": {"RootPath": windows_path(self.folder / "root")},
            r"Marrowgate\Converter": {"GhostscriptPath": str(ghostscript)},
            r"Marrowgate\Printers\Ports": {PORT: PORT},
        }
        lines = ["REGEDIT4"]
        for key, entries in values.items():
            lines += ["", rf"[HKEY_LOCAL_MACHINE\SOFTWARE\Quillfern\{key}]"]
            for name, value in entries.items():
                text = f"dword:{value:08x}" if isinstance(value, int) else f'"{in_registry(value)}"'
                lines.append(f'"{name}"={text}')
        settings = self.folder / "settings.reg"
        settings.write_text("\r\n".join(lines) + "\r\n")
        run_windows("reg", "import", windows_path(settings))

    def _listening(self, *command):
        """The port on which the program says it listens."""
        return self._child(r" listens on (?:\S+:)?(\d+)", *command).group(1)

    def _child(self, pattern, program, *arguments):
        """Starts a program and waits for the line that says it is ready. What it says goes to a file, as nobody reads
        it any more later."""
        words = self.folder / f"{program}-{len(self._children)}.out"
        with open(words, "wb") as output:
            child = subprocess.Popen([str(LINUX / program), *map(str, arguments)], stdin=subprocess.DEVNULL,
                                     stdout=output, stderr=subprocess.STDOUT, env=environment(self.folder))
        self._children.append(child)
        end = time.monotonic() + PATIENCE
        while True:
            has_ended = child.poll() is not None
            said = words.read_text(errors="replace")
            if match := re.search(pattern, said[:said.rfind("\n") + 1]):
                return match
            if has_ended or time.monotonic() > end:
                raise RuntimeError(f"{program} does not come up: {said or 'it says nothing'}")
            time.sleep(0.02)
