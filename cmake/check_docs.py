#!/usr/bin/env python3
"""Checks that every path of this tree that a document names in backticks exists.

A path is what begins with a folder of the tree and holds a slash; build results (build/...) and patterns are left out.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
FOLDERS = {path.name for path in ROOT.iterdir() if path.is_dir() and path.name not in {"build", ".git"}}
QUOTED = re.compile(r"`([^`\n]+)`")


def missing(document):
    for number, line in enumerate(document.read_text(encoding="utf-8").splitlines(), 1):
        for quoted in QUOTED.findall(line):
            word = quoted.split()[0]
            if "/" not in word or word.split("/")[0] not in FOLDERS or re.search(r"[*<{$]", word):
                continue
            if not (ROOT / word).exists():
                yield f"{document.relative_to(ROOT)}:{number}: {word} does not exist"


def main():
    documents = [path for path in ROOT.rglob("*.md") if "build" not in path.relative_to(ROOT).parts]
    wrong = [problem for document in sorted(documents) for problem in missing(document)]
    print("\n".join(wrong) if wrong else "the paths that the documents name exist")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
