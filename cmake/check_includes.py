#!/usr/bin/env python3
"""Checks every #include "folder/..." line against the layers of this source tree.

A folder may include itself and the folders listed here; anything else is a dependency that the design does not have. A
folder that is divided into rooms names them; each room may include itself and the rooms of its folder that are listed,
where "." is what stands in the folder itself.
Whether a program runs under Wine is asked where that is part of the design, and nowhere else in the product.
What is listed and not used is a complaint, too: the lists say what the code does. And no units of the product, a header
and a source of one name, may include each other in a circle.

    cmake/check_includes.py                    complains, or says that all is well
    cmake/check_includes.py --reached UNIT ... the units of the product that one meets who reads these and all they include
"""
import pathlib
import re
import sys

MAY_INCLUDE = {
    "util": set(),
    "corvane": {"util"},
    "protocol": {"corvane"},
    "ports": {"util", "corvane"},
    "session": {"util", "corvane", "protocol", "ports"},
    "jobs": {"util", "corvane", "protocol", "ports", "session"},
    "monitor": {"util", "corvane", "protocol", "ports", "session", "jobs"},
    "tls": {"corvane"},
    "compression": {"corvane"},
    "programs": {"util", "corvane"},
    "server": {"util", "corvane", "protocol", "tls", "compression", "programs"},
    "client": {"corvane", "protocol", "tls", "compression", "programs"},
    "converter": {"util", "corvane"},
    "admin": {"util", "corvane", "protocol", "programs"},
    "bench": {"corvane", "ports", "protocol", "session", "tests", "util"},
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
    "client": {
        "page": {"."},
        "notices": {"."},
    },
    "admin": {
        "base": set(),
        "spooler": {"base"},
        "install": {"base", "spooler"},
        "sessions": {"base", "spooler"},
        "doctor": {"base", "spooler", "install", "sessions"},
        "support": {"base", "spooler", "sessions", "doctor"},
        "commands": {"base", "spooler", "install", "sessions", "doctor", "support"},
    },
}
MAY_ASK_FOR_WINE = ("converter/", "admin/spooler/")  # which Ghostscript there is; what its spooler does not do
ASKS_FOR_WINE = re.compile(r"\b(?:isWine|runsUnderWine)\(|\bwine_get_\w+")
INCLUDE = re.compile(r'^\s*#\s*include\s+"(([a-z0-9_]+)/(?:([a-z0-9_]+)/)?[^"]*)"')


def sources(root, folder):
    return [path for path in sorted((root / folder).rglob("*")) if path.suffix in {".h", ".cpp", ".rc"}]


def includes(path):
    """Line number, included path, its folder, and the room or None."""
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if match := INCLUDE.match(line):
            yield (number, *match.groups())


def is_test(path):
    return path.stem.endswith(("_test", "_fixture"))


def complaints(root, folder, allowed):
    rooms = ROOMS.get(folder, {})
    unused = {(folder, other) for other in allowed}
    unused |= {(f"{folder}/{room}", f"{folder}/{other}") for room, others in rooms.items() for other in others}
    for path in sources(root, folder):
        own = path.relative_to(root / folder).parts[0]
        extra = {"tests"} if is_test(path) else set()
        for number, _, other, room in includes(path):
            where = f"{path.relative_to(root)}:{number}: "
            room = room or "."  # of the folder itself
            unused.discard((folder, other))
            if other not in allowed | {folder} | extra:
                yield f"{where}{folder}/ may not include {other}/"
            elif other == folder and own in rooms and not is_test(path):
                unused.discard((f"{folder}/{own}", f"{folder}/{room}"))
                if room not in rooms[own] | {own}:
                    yield f"{where}{folder}/{own}/ may not include {folder}/{room}"
    for who, other in sorted(unused):
        yield f"cmake/check_includes.py: {who}/ does not include {other}/: take it from the list"


def units(root):
    """What each unit of the product includes, a unit being a path without its suffix."""
    graph = {}
    for path in (path for folder in MAY_INCLUDE for path in sources(root, folder) if not is_test(path)):
        unit = path.relative_to(root).with_suffix("").as_posix()
        others = {pathlib.PurePosixPath(included).with_suffix("").as_posix() for _, included, _, _ in includes(path)}
        graph.setdefault(unit, set()).update(others - {unit})
    return graph


def reachable(graph, unit):
    seen, ahead = set(), [unit]
    while ahead:
        for other in graph.get(ahead.pop(), set()) - seen:
            seen.add(other)
            ahead.append(other)
    return seen


def circles(graph):
    """The units that reach each other, each group once."""
    reach = {unit: reachable(graph, unit) for unit in graph}
    inside = {unit for unit in graph if unit in reach[unit]}
    groups = {frozenset(other for other in inside & reach[unit] if unit in reach[other]) for unit in inside}
    return sorted(sorted(group) for group in groups)


def wine_complaints(root):
    for folder in MAY_INCLUDE:
        for path in sources(root, folder):
            name = str(path.relative_to(root))
            if path.stem.endswith("_test") or name.startswith(("bench/", *MAY_ASK_FOR_WINE)):
                continue
            for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
                if ASKS_FOR_WINE.search(line):
                    yield f"{name}:{number}: asks whether it runs under Wine"


def main():
    root = pathlib.Path(__file__).resolve().parent.parent
    if sys.argv[1:2] == ["--reached"]:
        graph = units(root)
        if strangers := [unit for unit in sys.argv[2:] if unit not in graph]:
            print(f"cmake/check_includes.py: no such unit: {', '.join(strangers)}", file=sys.stderr)
            return 2
        reached = set(sys.argv[2:]).union(*(reachable(graph, unit) for unit in sys.argv[2:])) & graph.keys()
        print("\n".join(sorted(reached)))
        return 0
    wrong = [text for folder, allowed in MAY_INCLUDE.items() for text in complaints(root, folder, allowed)]
    wrong += wine_complaints(root)
    wrong += [f"a circle of includes: {', '.join(group)}" for group in circles(units(root))]
    print("\n".join(wrong) if wrong else "includes follow the layers, and no units include each other")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
