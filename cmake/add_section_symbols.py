#!/usr/bin/env python3
"""Copies a library for Windows, and gives its sections back the symbols that LLVM's linker needs.

    add_section_symbols.py LIBRARY COPY

What tells how to unwind a function stands in a section .pdata$FUNCTION. It is kept or dropped with the function, and the
linker of LLVM does that by the section's own symbol; without one it drops the section, and an exception that passes the
function ends the process. Nothing in an object refers to that symbol, so that stripping a library, as Debian does, takes it
away. The format is "PE Format" of Microsoft: chapters "COFF File Header", "Section Table" and "COFF Symbol Table".
"""
import pathlib
import struct
import subprocess
import sys
import tempfile

AR = "x86_64-w64-mingw32-ar"
HEADER = struct.Struct("<HHIIIHH")  # machine, sections, time, where the symbols are, how many, size of the next, flags
SECTION = struct.Struct("<8sIIIIIIHHI")  # name, 2 sizes in memory, size, 3 places, relocations, lines, flags
SYMBOL = struct.Struct("<8sIhHBB")  # name, value, section, type, storage class, records that belong to it
DEFINITION = struct.Struct("<IHHIHB3x")  # size, relocations, lines, checksum, associated section, selection
X64 = 0x8664
COMDAT = 0x1000
STATIC = 3
ANY = 2


def with_section_symbols(data: bytes) -> bytes:
    machine, section_count, time, symbols_at, symbol_count, optional, flags = HEADER.unpack_from(data)
    if machine != X64:
        raise ValueError("not an object for x64")
    named = set()
    at = 0
    while at < symbol_count:
        _, value, section, _, storage, belonging = SYMBOL.unpack_from(data, symbols_at + at * SYMBOL.size)
        if storage == STATIC and value == 0 and belonging:
            named.add(section)
        at += 1 + belonging
    added = b""
    for number in range(1, section_count + 1):
        section = SECTION.unpack_from(data, HEADER.size + optional + (number - 1) * SECTION.size)
        name, size, relocations, characteristics = section[0], section[3], section[7], section[9]
        if not characteristics & COMDAT or number in named:
            continue
        if name.startswith(b"/"):  # a place among the long names; a symbol says the same in another way
            name = struct.pack("<II", 0, int(name[1:].rstrip(b"\0")))
        added += SYMBOL.pack(name, 0, number, 0, STATIC, 1)
        added += DEFINITION.pack(size, relocations, 0, 0, 0, ANY)
    end = symbols_at + symbol_count * SYMBOL.size
    header = HEADER.pack(machine, section_count, time, symbols_at, symbol_count + len(added) // SYMBOL.size, optional, flags)
    return header + data[HEADER.size : end] + added + data[end:]


def main() -> None:
    library, copy = (pathlib.Path(argument).resolve() for argument in sys.argv[1:])
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([AR, "x", library], cwd=folder, check=True)
        members = sorted(pathlib.Path(folder).iterdir())
        if len(members) != len(subprocess.run([AR, "t", library], capture_output=True, check=True).stdout.split()):
            sys.exit(f"{library} has two members of one name")
        for member in members:
            member.write_bytes(with_section_symbols(member.read_bytes()))
        copy.parent.mkdir(parents=True, exist_ok=True)
        copy.unlink(missing_ok=True)
        subprocess.run([AR, "rcsD", copy, *members], check=True)


if __name__ == "__main__":
    main()
