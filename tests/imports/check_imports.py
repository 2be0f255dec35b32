#!/usr/bin/env python3
"""Checks that programs import only functions that the oldest Windows has: check_imports.py OBJDUMP LIST PROGRAM ...

The list names the functions module by module; what it says of them stands at its top.
"""
import pathlib
import re
import subprocess
import sys


def listed(path):
    modules, module = {}, None
    for line in path.read_text(encoding="utf-8").splitlines():
        if line.startswith("["):
            module = modules.setdefault(line.strip("[]"), set())
        elif line and not line.startswith("#"):
            module.update(line.split())
    return modules


def imported(objdump, program):
    """(module, function) of every import; a function without a name, by its number alone, is an empty one."""
    text = subprocess.run([objdump, "-p", program], check=True, capture_output=True, text=True).stdout
    for part in text.split("DLL Name: ")[1:]:
        module, table = part.split("\n", 1)
        for line in table.split("\n\n", 1)[0].splitlines()[1:]:
            found = re.match(r"\s+[0-9a-f]+\s+(?:\d+|<none>)\s+(\S*)", line)
            yield module.strip().lower(), found.group(1) if found else ""


def main():
    objdump, path, *programs = sys.argv[1:]
    known, wrong, count = listed(pathlib.Path(path)), [], 0
    for program in programs:
        imports = list(imported(objdump, program))
        count += len(imports)
        if not any(module == "kernel32.dll" for module, _ in imports):
            wrong.append(f"{program}: its imports cannot be read")
        for module, function in imports:
            if function not in known.get(module, ()):
                wrong.append(f"{pathlib.Path(program).name} imports {function or 'a number'} of {module}, which {path} does not name")
    print("\n".join(wrong) if wrong else f"{count} imports of {len(programs)} programs are in the list")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
