#!/usr/bin/env python3
"""Checks what MgPrintMon.dll exports and imports: check_module.py OBJDUMP MODULE

The spooler and other callers rely on the exports; a machine with nothing but Windows has the imported modules.
"""
import re
import subprocess
import sys

EXPORTS = ["GetCachedPrinterList", "InitializePrintMonitor2", "ReleaseCachedPrinterList", "ShowPrinter"]
SYSTEM_MODULES = {
    "advapi32.dll", "bcrypt.dll", "kernel32.dll", "msvcrt.dll", "rpcrt4.dll", "user32.dll", "winspool.drv",
    "ws2_32.dll",
}


def main():
    objdump, module = sys.argv[1:]
    text = subprocess.run([objdump, "-p", module], check=True, capture_output=True, text=True).stdout
    names = text[text.index("[Ordinal/Name Pointer] Table"):]
    names = names[: names.index("\n\n")]
    exports = sorted(re.findall(r"\[ *\d+\](?: \+base\[ *\d+\] +[0-9a-f]+)? (\w+)$", names, re.MULTILINE))
    imports = sorted(name.lower() for name in re.findall(r"DLL Name: (\S+)", text))
    print("exports:", ", ".join(exports))
    print("imports:", ", ".join(imports))
    wrong = []
    if exports != EXPORTS:
        wrong.append(f"the exports must be exactly {', '.join(EXPORTS)}")
    if not imports or not set(imports) <= SYSTEM_MODULES:
        wrong.append(f"imports beyond the system's modules: {sorted(set(imports) - SYSTEM_MODULES)}")
    print("\n".join(wrong), end="\n" if wrong else "")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
