#!/usr/bin/env python3
"""Prints which lines and branches of folders ran, from the counters in a build with MG_COVERAGE:

    coverage_report.py BUILD FOLDER...

A line or branch that several objects hold, as that of a header, has run when it ran in one of them. Branches that only
an exception takes are left out: nearly every call has one.
"""
import collections
import json
import pathlib
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
    for folder in folders + [""]:
        cells = []
        for counts in (lines, branches):
            counted = [count for key, count in counts.items() if key[0].startswith(folder + "/") or not folder]
            ran = sum(1 for count in counted if count)
            cells.append(f"{ran:5}/{len(counted):<5} {100 * ran / max(1, len(counted)):5.1f} %")
        print(f"{folder or 'all':10} {'   '.join(cells)}")
    print("\ndid not run:")
    for name, number in sorted(key for key, count in lines.items() if count == 0):
        print(f"{name}:{number}")
    print("\nbranches that were not taken, of lines that ran:")
    for (name, number, index), count in sorted(branches.items()):
        if count == 0 and lines[name, number]:
            print(f"{name}:{number} branch {index}")


if __name__ == "__main__":
    main()
