#!/usr/bin/env python3
"""Checks every #include "folder/..." line against the layers of this source tree.

A folder may include itself and the folders listed here; anything else is a dependency that the design does not have.
"""
import pathlib
import re
import sys

MAY_INCLUDE = {
    "util": set(),
    "corvane": {"util"},
    "protocol": {"util", "corvane"},
    "ports": {"util", "corvane", "protocol"},
    "session": {"util", "corvane", "protocol", "ports"},
    "jobs": {"util", "corvane", "protocol", "ports", "session"},
    "monitor": {"util", "corvane", "protocol", "ports", "session", "jobs"},
    "programs": {"util", "corvane", "protocol"},
    "server": {"util", "corvane", "protocol", "programs"},
    "client": {"util", "corvane", "protocol", "programs"},
    "converter": {"util", "corvane"},
    "admin": {"util", "corvane", "protocol", "programs"},
    "bench": {"util", "corvane", "tests"},
}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([a-z0-9_]+)/')


def main():
    root = pathlib.Path(__file__).resolve().parent.parent
    wrong = []
    for folder, allowed in MAY_INCLUDE.items():
        for path in sorted((root / folder).rglob("*")):
            if path.suffix not in {".h", ".cpp", ".rc"}:
                continue
            extra = {"tests"} if path.stem.endswith(("_test", "_fixture")) else set()
            for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
                match = INCLUDE.match(line)
                if match and match.group(1) not in allowed | {folder} | extra:
                    wrong.append(f"{path.relative_to(root)}:{number}: {folder}/ may not include {match.group(1)}/")
    print("\n".join(wrong) if wrong else "includes follow the layers")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
