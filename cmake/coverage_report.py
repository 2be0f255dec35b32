#!/usr/bin/env python3
"""Prints which lines and branches of folders ran, from the counters in a build with MG_COVERAGE:

    coverage_report.py BUILD FOLDER...

A line or branch that several objects hold, as that of a header, has run when it ran in one of them. Branches that only
an exception takes are left out: nearly every call has one.

Writes the figures into the table of docs/testing.md, whose reasons a person writes, and fails when a file in which
something did not run has no reason there, or a reason names a file in which everything ran.
"""
import collections
import json
import pathlib
import re
import subprocess
import sys

GCOV = "x86_64-w64-mingw32-gcov-posix"
ROOT = pathlib.Path(__file__).resolve().parent.parent


def counted_files(build):
    for data in sorted(build.rglob("*.gcno")):
        run = subprocess.run([GCOV, "--json-format", "--stdout", "--branch-probabilities", data.name],
                             cwd=data.parent, capture_output=True, text=True, check=True)
        for document in run.stdout.splitlines():
            if document.startswith("{"):
                text = json.loads(document)
                for entry in text["files"]:
                    yield pathlib.Path(text["current_working_directory"], entry["file"]).resolve(), entry


TESTING = ROOT / "docs" / "testing.md"
TABLE = re.compile(r"(\| Folder \| Lines \| Branches \|\n\|---\|---\|---\|\n)(?:\|.*\n)+")
REASONS = re.compile(r"\| File \| Lines and branches \|\n\|---\|---\|\n((?:\|.*(?:\n|$))+)")


def write_table(rows):
    text, tables = TABLE.subn(lambda found: found[1] + "".join(rows), TESTING.read_text(encoding="utf-8"))
    if tables != 1:
        raise SystemExit(f"{TESTING} has no table for the figures")
    TESTING.write_text(text, encoding="utf-8")


def reasons_are_complete(incomplete):
    """Whether docs/testing.md gives a reason for each file of which something did not run, and for no other."""
    rows = REASONS.search(TESTING.read_text(encoding="utf-8"))[1].splitlines()
    explained = {name for row in rows for name in re.findall(r"`([^`]+)`", row.split("|")[1])}
    for name in sorted(incomplete - explained):
        print(f"{name}: docs/testing.md does not say why something of it does not run")
    for name in sorted(explained - incomplete):
        print(f"{name}: all of it runs now; its reason in docs/testing.md can go")
    return incomplete == explained


def main():
    build = pathlib.Path(sys.argv[1]).resolve()
    folders = sys.argv[2:]
    lines = collections.defaultdict(int)
    branches = collections.defaultdict(int)
    for path, entry in counted_files(build):
        if ROOT not in path.parents or path.stem.endswith("_test"):
            continue
        name = str(path.relative_to(ROOT))
        if name.split("/")[0] not in folders:
            continue
        for line in entry["lines"]:
            lines[name, line["line_number"]] += line["count"]
            taken = [branch["count"] for branch in line["branches"] if not branch["throw"]]
            if len(taken) < 2:
                continue
            for index, count in enumerate(taken):
                branches[name, line["line_number"], index] += count
    print(f"{'folder':10} {'lines':>14} {'branches':>18}")
    rows = []
    for folder in folders + [""]:
        cells, shown = [], []
        for counts in (lines, branches):
            counted = [count for key, count in counts.items() if key[0].startswith(folder + "/") or not folder]
            ran = sum(1 for count in counted if count)
            share = "100 %" if ran == len(counted) else f"{100 * ran / max(1, len(counted)):.1f} %"
            shown.append(f"{ran} of {len(counted)}, {share}")
            cells.append(f"{ran:5}/{len(counted):<5} {100 * ran / max(1, len(counted)):5.1f} %")
        print(f"{folder or 'all':10} {'   '.join(cells)}")
        rows.append(f"| {f'`{folder}`' if folder else 'all'} | {shown[0]} | {shown[1]} |\n")
    write_table(rows)
    print("\ndid not run:")
    for name, number in sorted(key for key, count in lines.items() if count == 0):
        print(f"{name}:{number}")
    print("\nbranches that were not taken, of lines that ran:")
    for (name, number, index), count in sorted(branches.items()):
        if count == 0 and lines[name, number]:
            print(f"{name}:{number} branch {index}")
    incomplete = {key[0] for counts in (lines, branches) for key, count in counts.items() if count == 0}
    return 0 if reasons_are_complete(incomplete) else 1


if __name__ == "__main__":
    sys.exit(main())
