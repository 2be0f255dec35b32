"""How the samples of each row are had: which program runs, on which stage. Everything here is a function of the names of
the measurements that are wanted and the number of rounds, and returns the samples."""
import json
import os
import pathlib
import subprocess

from folder_watch import FolderWatch, first_writes
from stage import LINUX, PORT, ROOT, WINDOWS, Stage, environment, run, run_windows, scratch, windows_path

MEMORY, DISK = "/dev/shm", ROOT / "build/bench"  # where documents go
DOCUMENT_BYTES = 5_000_000
LINES_OF_PAGE = 60


def samples_of(output):
    return [json.loads(line) for line in output.splitlines() if line.startswith("{")]


def on_windows(program, *arguments):
    return samples_of(run_windows(WINDOWS / f"{program}.exe", *arguments))


def jobs(names, rounds, where=MEMORY):
    with scratch(where) as folder, Stage(folder) as stage:
        stage.install()
        return on_windows("bench_jobs", rounds, ",".join(names), stage.printer, PORT, stage.relay, windows_path(folder))


def jobs_on_disk(names, rounds):
    return jobs(names, rounds, DISK)


def requests(names, rounds):
    with scratch(MEMORY) as folder, Stage(folder) as stage:
        stage.install()
        return on_windows("bench_requests", rounds, ",".join(names), stage.printer, stage.relay)


def ports(names, rounds):
    return on_windows("bench_ports", rounds, ",".join(names))


def memory(names, rounds):
    """Each round with fresh processes: what a process has had at most does not go down again."""
    samples = []
    for _ in range(rounds):
        with scratch(MEMORY) as folder, Stage(folder) as stage:
            stage.install()
            samples += on_windows("bench_jobs", "memory", stage.printer, PORT, windows_path(folder), stage.aps, stage.client)
    return samples


def postscript_document(size):
    """A document of that many bytes as a driver writes it: pages of text, which Ghostscript sets line by line."""
    head = "%!PS-Adobe-3.0\n%%Pages: (atend)\n%%EndComments\n/Helvetica findfont 9 scalefont setfont\n"
    pieces, length, pages, number = [head], len(head), 0, 7
    while length < size:
        pages += 1
        lines = [f"%%Page: {pages} {pages}\n"]
        for line in range(LINES_OF_PAGE):
            number = number * 1103515245 + 12345 & 0x7fffffff
            lines.append(f"40 {800 - 13 * line} moveto (line {number} of a letter, which says nothing new {line}) show\n")
        pieces.append("".join(lines) + "showpage\n")
        length += len(pieces[-1])
    return "".join(pieces) + f"%%Trailer\n%%Pages: {pages}\n%%EOF\n"


def postscript(names, rounds):
    """Both sides run Ghostscript through a script that leaves a mark when it has ended."""
    del names  # one run gives both
    with scratch(MEMORY) as folder:
        marks = folder / "marks"
        marks.mkdir()
        document = folder / "document.ps"
        document.write_text(postscript_document(DOCUMENT_BYTES))
        ghostscript = folder / "gs"
        ghostscript.write_text(f'#!/bin/sh\ngs "$@"\ncode=$?\n: >{marks}/ended\nexit $code\n')
        ghostscript.chmod(0o755)
        alone = [ghostscript, "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-sDEVICE=pdfwrite", "-dWriteObjStms=false",
                 "-dWriteXRefStm=false", f"-sOutputFile={folder}/raw.pdf", "-f", document]
        with Stage(folder, "pdf", alone) as stage, FolderWatch([marks, folder / "out"]) as watch:
            stage.install(ghostscript)
            samples = on_windows("bench_conversion", rounds, stage.printer, PORT, stage.relay, windows_path(folder),
                                 windows_path(document))
        delays = first_writes(watch.events, marks, folder / "out")[-rounds:]
    return samples + [{"measurement": "first-byte", "side": "product", "value": delay} for delay in delays]


def natively(program, *extra):
    def samples(names, rounds):
        del names  # such a program has only what belongs together
        with scratch(MEMORY) as folder:
            return samples_of(run([LINUX / program, rounds, *extra], env=environment(folder)))
    return samples


def on_all_cores(program, *extra):
    def samples(names, rounds):
        del names
        with scratch(MEMORY) as folder:
            every_core = range(os.cpu_count())
            return samples_of(run([LINUX / program, rounds, *extra], env=environment(folder),
                                  preexec_fn=lambda: os.sched_setaffinity(0, every_core)))
    return samples


RUNS = {
    "direct": jobs, "disk": jobs_on_disk, "empty": jobs, "request": requests, "threads": requests,
    "crowd": natively("bench_crowd"), "tls": natively("bench_tls"), "postscript": postscript, "ports": ports,
    "relay": natively("bench_relay"), "memory": memory, "sessions": natively("bench_sessions"),
    "records": natively("bench_records"), "line": on_all_cores("bench_line"),
}
