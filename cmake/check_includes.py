#!/usr/bin/env python3
"""Checks every #include "folder/..." line against the layers of this source tree.

A folder may include itself and the folders listed here; anything else is a dependency that the design does not have. A
folder that is divided into rooms names them; each room may include itself and the rooms of its folder that are listed.
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
ROOMS = {
    "corvane": {
        "base": set(),
        "records": {"base"},
        "net": {"base", "records"},
        "wire": {"base", "records", "net"},
        "trust": {"base", "records", "net", "wire"},
        "components": {"base", "records", "net", "wire", "trust"},
    },
    "admin": {
        "base": set(),
        "spooler": {"base"},
        "install": {"base", "spooler"},
        "sessions": {"base", "spooler"},
        "doctor": {"base", "spooler", "install", "sessions"},
        "commands": {"base", "spooler", "install", "sessions", "doctor"},
    },
}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([a-z0-9_]+)/(?:([a-z0-9_]+)/)?')


def complaints(root, folder, allowed):
    rooms = ROOMS.get(folder, {})
    for path in sorted((root / folder).rglob("*")):
        if path.suffix not in {".h", ".cpp", ".rc"}:
            continue
        extra = {"tests"} if path.stem.endswith(("_test", "_fixture")) else set()
        own = path.relative_to(root / folder).parts[0]
        is_test = path.stem.endswith("_test")
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            where = f"{path.relative_to(root)}:{number}: "
            if match.group(1) not in allowed | {folder} | extra:
                yield f"{where}{folder}/ may not include {match.group(1)}/"
            elif match.group(1) == folder and own in rooms and not is_test:
                if match.group(2) not in rooms[own] | {own}:
                    yield f"{where}{folder}/{own}/ may not include {folder}/{match.group(2) or ''}"


def main():
    root = pathlib.Path(__file__).resolve().parent.parent
    wrong = [text for folder, allowed in MAY_INCLUDE.items() for text in complaints(root, folder, allowed)]
    print("\n".join(wrong) if wrong else "includes follow the layers")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
