#!/usr/bin/env python3
"""Runs clang-tidy with the checks of .clang-tidy over the sources of the tree, the Windows code included.

    cmake/check_tidy.py            the product code
    cmake/check_tidy.py --quick    without the check that takes as long as all others together, a part of scripts/test
    cmake/check_tidy.py --tests    also the tests and what they stand on, which takes three times as long

Uses the compile commands of the presets linux and windows-x64, which must have been configured; nothing needs to be
built. Most of the time goes into the headers of the system, so the sources are looked at some at a time, as one source
that includes them. What was found clean is remembered in build/lint by a hash of everything that it was
made of - sources, the tree's own headers, options, checks - and is not looked at again.
"""
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LINT = ROOT / "build" / "lint"
AT_A_TIME = 32
SLOW = "performance-unnecessary-value-param"
OWN_INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)
# What a source defines for itself: two of one name cannot be looked at together.
UNNAMED = re.compile(r"^namespace \{$(.*?)^\}  // namespace$", re.MULTILINE | re.DOTALL)
OWN_NAME = re.compile(r"^(?!TEST)[A-Za-z_](?:[^(){}=;\n]*[\s*&])?(?<!:)\b(\w+)(?:\(|\{|\[| =|;| \{| :| final|$)", re.MULTILINE)
MAIN = re.compile(r"^int (\w*[mM]ain)\(", re.MULTILINE)


def windows_options():
    """What clang needs in order to read code for the cross compiler as that compiler does."""
    found = subprocess.run(["x86_64-w64-mingw32-g++-posix", "-E", "-v", "-x", "c++", os.devnull],
                           capture_output=True, text=True, check=True).stderr
    folders = found.split("#include <...> search starts here:")[1].split("End of search list")[0].split()
    options = ["--target=x86_64-w64-mingw32", "-nostdinc++"]
    for folder in map(os.path.normpath, folders):
        if not folder.endswith(("/include", "/include-fixed")) or "/lib/gcc/" not in folder:  # clang has its own of these
            options.append(f"-isystem{folder}")
    return options


def meaningful(command):
    """Of a compile command what decides how the source reads: the language, definitions and include folders."""
    words = iter(shlex.split(command))
    kept = []
    for word in words:
        if word in ("-I", "-D", "-isystem"):
            kept.append(word + next(words))
        elif word.startswith(("-I", "-D", "-std=")):
            kept.append(word)
    return kept


def own_sources(path):
    """The sources that are compiled together as the one of that path (MG_UNITY), or that one alone."""
    if path.parent.name != "Unity":
        return [path]
    return [pathlib.Path(name).resolve() for name in OWN_INCLUDE.findall(path.read_text(encoding="utf-8"))]


def sources(root, presets=("linux", "windows-x64")):
    """(source, options) of everything of a tree that is compiled; portable code natively only."""
    seen = set()
    for preset in presets:
        system = windows_options() if preset.startswith("windows") else []
        for entry in json.loads((root / "build" / preset / "compile_commands.json").read_text()):
            for path in own_sources(pathlib.Path(entry["file"]).resolve()):
                if not path.is_relative_to(root) or path.relative_to(root).parts[0] in ("build", "cmake") or path in seen:
                    continue
                if path.suffix == ".cpp" and path.exists():
                    seen.add(path)
                    yield path, meaningful(entry["command"]) + system


def own_names(text):
    return {name for block in UNNAMED.findall(text) for name in OWN_NAME.findall(block)} | set(MAIN.findall(text))


def is_product(path):
    """Whether a source or header of the tree is part of what is shipped, and not of its tests."""
    return not path.stem.endswith(("_test", "_fixture")) and path.relative_to(ROOT).parts[0] not in ("tests", "bench")


def batches(is_wanted):
    """Lists of sources of one system that define no name twice, with the options of them all; the longest first."""
    groups = {}
    for path, options in sources(ROOT):
        if is_wanted(path):
            groups.setdefault("-nostdinc++" in options, []).append((path, options))
    found = []
    for members in groups.values():
        options = list(dict.fromkeys(word for _, own in members for word in own))
        bins = []  # (sources, names)
        for path in sorted(path for path, _ in members):
            names = own_names(path.read_text(encoding="utf-8"))
            for together, taken in bins:
                if len(together) < AT_A_TIME and not names & taken:
                    together.append(path)
                    taken |= names
                    break
            else:
                bins.append(([path], names))
        found += [(together, options) for together, _ in bins]
    return sorted(found, key=lambda batch: len(batch[0]), reverse=True)


def read_with_headers(paths):
    """The sources and every header of the tree that they reach, each once."""
    todo, seen = list(paths), {}
    while todo:
        path = todo.pop()
        if path in seen:
            continue
        seen[path] = path.read_bytes()
        for name in OWN_INCLUDE.findall(seen[path].decode("utf-8")):
            todo += [found for found in (ROOT / name, path.parent / name) if found.is_file()]
    return b"".join(seen[path] for path in sorted(seen))


def run(paths, options, checks, common):
    """What clang-tidy says of the sources together; empty when they are clean or were."""
    digest = hashlib.sha256(common + repr((paths, options, checks)).encode() + read_with_headers(paths)).hexdigest()[:32]
    stamp = LINT / f"{digest}.clean"
    if stamp.exists():
        stamp.touch()
        return ""
    together = LINT / f"{digest}.cpp"
    together.write_text("".join(f'#include "{path}"\n' for path in paths))
    folders = "|".join(sorted(path.name for path in ROOT.iterdir() if path.is_dir() and path.name not in ("build", ".git")))
    said = subprocess.run(["clang-tidy-14", "--quiet", f"--config-file={ROOT}/.clang-tidy", f"--checks={checks}",
                           f"--header-filter=^{ROOT}/({folders})/", str(together), "--", *options],
                          capture_output=True, text=True)
    together.unlink()
    if said.returncode == 0:
        stamp.touch()
        return ""
    if "clang-diagnostic-error" in said.stdout and len(paths) > 1:  # they do not go together after all
        odd = [path for path in paths[1:] if f"{path}:" in said.stdout] or paths[1:]
        return "".join(run(part, options, checks, common) for part in ([path for path in paths if path not in odd], *([path] for path in odd)))
    return said.stdout or said.stderr


def main():
    LINT.mkdir(parents=True, exist_ok=True)
    common = (ROOT / ".clang-tidy").read_bytes() + subprocess.run(["clang-tidy-14", "--version"], capture_output=True).stdout
    wanted = batches((lambda path: True) if "--tests" in sys.argv else is_product)
    checks = f"-{SLOW}" if "--quick" in sys.argv else ""  # besides those of .clang-tidy
    wrong = False
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        for said in pool.map(lambda batch: run(*batch, checks, common), wanted):
            if said:
                print(said.replace(f"{ROOT}/", ""), flush=True)
                wrong = True
    stamps = sorted(LINT.glob("*.clean"), key=lambda path: path.stat().st_mtime)
    for old in stamps[:-1000]:
        old.unlink()
    if not wrong:
        print(f"clang-tidy: {sum(len(paths) for paths, _ in wanted)} sources are clean")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
