#!/usr/bin/env python3
"""Checks that each source means the same alone and among those that it is compiled with (MG_UNITY).

    cmake/check_unity.py            everything that is compiled together
    cmake/check_unity.py REGEX      those whose list of sources, a path like client/CMakeFiles/client.dir/Unity/..., matches

What one source keeps to itself in an unnamed namespace can hide, for those behind it, a function of a header that has the
same name; when the arguments fit, nothing but the behaviour changes. So clang reads each source both ways, and whatever
a name in it refers to must be the same. Uses the compile commands of the presets linux and windows-x64, which must have
been configured. Takes minutes; what was found clean is remembered as cmake/check_tidy.py does. Calls that depend on
a template's arguments are not seen.
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys

from check_tidy import LINT, ROOT, meaningful, own_sources, read_with_headers, windows_options
from clang.cindex import CursorKind, Diagnostic, Index

REFERENCES = {CursorKind.DECL_REF_EXPR, CursorKind.MEMBER_REF_EXPR, CursorKind.CALL_EXPR, CursorKind.TYPE_REF,
              CursorKind.TEMPLATE_REF}


def compiled_together():
    """(list of sources, options) of each file that includes several sources of the tree."""
    for preset in ("linux", "windows-x64"):
        system = windows_options() if preset.startswith("windows") else []
        for entry in json.loads((ROOT / "build" / preset / "compile_commands.json").read_text()):
            path = pathlib.Path(entry["file"])
            if path.parent.name == "Unity" and len(own_sources(path)) > 1 and own_sources(path)[0].is_relative_to(ROOT):
                yield path, meaningful(entry["command"]) + system


def read(path, options):
    unit = Index.create().parse(str(path), args=["-xc++", *options])
    errors = [str(said) for said in unit.diagnostics if said.severity >= Diagnostic.Error]
    return unit, errors[:1]


def references(unit, paths):
    """What each name in those files refers to, by its place."""
    found = {path: {} for path in paths}
    todo = [(cursor, str(cursor.location.file)) for cursor in unit.cursor.get_children()]
    while todo:
        cursor, path = todo.pop()
        if path not in found:
            continue
        place = cursor.location
        if cursor.kind in REFERENCES and str(place.file) == path and cursor.referenced is not None:
            name = cursor.referenced.canonical.get_usr()
            if name:  # else it waits for a template's arguments
                found[path][place.line, place.column, cursor.kind.name] = name
        todo += [(child, path) for child in cursor.get_children()]
    return found


def check(together, options):
    """Lines about what is not the same; none when all is."""
    paths = [str(path) for path in own_sources(together)]
    digest = hashlib.sha256(repr((paths, options)).encode() + pathlib.Path(__file__).read_bytes() +
                            read_with_headers([pathlib.Path(path) for path in paths])).hexdigest()[:32]
    stamp = LINT / f"{digest}.clean"
    if stamp.exists():
        stamp.touch()
        return []
    unit, lines = read(together, options)
    both = references(unit, paths)
    for path in paths:
        unit, errors = read(path, options)
        lines += errors
        alone = references(unit, [path])[path]
        for place in sorted(alone.keys() | both[path].keys()):
            one, other = alone.get(place, "nothing"), both[path].get(place, "nothing")
            # A function of C is named with its parameters or without.
            if one != other and not one.startswith(f"{other}#") and not other.startswith(f"{one}#"):
                lines.append(f"{path}:{place[0]}:{place[1]}: alone {one}, among others {other}")
    if not lines:
        stamp.touch()
    return lines


def main():
    LINT.mkdir(parents=True, exist_ok=True)
    resources = subprocess.run(["clang-14", "-print-resource-dir"], capture_output=True, text=True, check=True).stdout.strip()
    wanted = [(path, [f"-resource-dir={resources}", *options]) for path, options in compiled_together()
              if len(sys.argv) < 2 or re.search(sys.argv[1], str(path))]
    wrong = False
    with concurrent.futures.ProcessPoolExecutor(os.cpu_count()) as pool:
        for lines in pool.map(check, *zip(*wanted)):
            for line in lines:
                print(line.replace(f"{ROOT}/", ""), flush=True)
                wrong = True
    if not wrong:
        print(f"{len(wanted)} lists of sources mean together what they mean alone")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
