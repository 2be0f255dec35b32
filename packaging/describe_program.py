#!/usr/bin/env python3
"""Writes what a program says of itself with --help in other forms, so that they name every option that it has, and no other.

    packaging/describe_program.py man PROGRAM TEXT VERSION   a man page: TEXT with @OPTIONS@, @VERSION@ and, for each
                                                             subcommand, @OPTIONS invite@ filled in
    packaging/describe_program.py bash PROGRAM               completion for bash
    packaging/describe_program.py zsh PROGRAM                completion for zsh
"""
import pathlib
import re
import subprocess
import sys

OPTION = re.compile(r"^  (?:(-\w),)?(--[a-z][a-z-]*)(?:\{\w+\})?(?: (\S+(?: \S+)*))?(?:\s{2,}(\S.*))?$")
COMMAND = re.compile(r"^  ([a-z]+)\s{2,}(\S.*)$")
FOLDERS = {"--keys", "--output", "--hold"}
FILES = {"--log", "--new-key", "--state", "--history", "--launch-command", "--file", "--invitation", "--key", "--command"}


class Option:
    def __init__(self, short, name, value, text):
        self.short, self.name, self.value, self.text = short, name, value or "", text or ""

    def takes_value(self):
        return self.value != ""

    def names(self):
        return [name for name in (self.short, self.name) if name]

    def default(self):
        return self.value.partition("=")[2].removesuffix(" ...").strip("[]")

    def bounds(self):
        found = re.search(r"in \[(\d+) - (\d+)\]", self.value)
        return found.groups() if found else None


def help_of(program, *command):
    return subprocess.run([program, *command, "--help"], check=True, capture_output=True, text=True).stdout


def parse(text):
    """The options and the subcommands of a help text; a line of either that is not understood is an error."""
    options, commands, part = [], {}, ""
    for line in text.splitlines():
        if line and not line.startswith(" "):
            part = line.rstrip(":")
        elif part == "Options" and line.startswith("  -"):
            match = OPTION.match(line)
            if not match:
                raise SystemExit(f"describe_program: not understood: {line}")
            options.append(Option(*match.groups()))
        elif part == "Options" and line.strip():
            options[-1].text = line.strip()
        elif part == "Subcommands" and line.strip():
            name, what = COMMAND.match(line).groups()
            commands[name] = what
    return options, commands


def roff(text):
    return text.replace("\\", "\\e").replace("-", "\\-")


def roff_option(option):
    value = ""
    if option.takes_value():
        value = " \\fI" + ("NUMBER" if "INT" in option.value.split("=")[0].split(" ")[0] else "VALUE") + "\\fR"
    sentences = [roff(option.text[0].upper() + option.text[1:])]
    if option.bounds():
        sentences.append("from {} to {}".format(*option.bounds()))
    if option.default():
        sentences.append(roff(f"{option.default()} unless it is given"))
    if option.value.endswith("REQUIRED"):
        sentences.append("it must be given")
    names = ", ".join(f"\\fB{roff(name)}\\fR" for name in option.names())
    return f".TP\n{names}{value}\n" + "; ".join(sentences) + "."


def man(program, template, version):
    text = pathlib.Path(template).read_text(encoding="utf-8").replace("@VERSION@", version)
    options, commands = parse(help_of(program))
    parts = {"@OPTIONS@": options}
    for command in commands:
        parts[f"@OPTIONS {command}@"] = parse(help_of(program, command))[0]
    for mark, list_of in parts.items():
        if mark not in text:
            raise SystemExit(f"describe_program: {template} has no {mark}")
        text = text.replace(mark, "\n".join(roff_option(option) for option in list_of))
    return text


def bash_case(options):
    """What follows an option that takes a value."""
    lines = []
    for kind, action in ((FOLDERS, "compgen -d"), (FILES, "compgen -f")):
        names = sorted(option.name for option in options if option.takes_value() and option.name in kind)
        if names:
            lines.append(f"    {'|'.join(names)}) mapfile -t COMPREPLY < <({action} -- \"$current\"); compopt -o filenames; return ;;")
    others = sorted(o.name for o in options if o.takes_value() and o.name not in FOLDERS | FILES)
    if others:
        lines.append(f"    {'|'.join(others)}) return ;;")
    return lines


def bash(program):
    name = pathlib.Path(program).name
    options, commands = parse(help_of(program))
    words = " ".join([*commands, *(n for o in options for n in o.names())])
    every = list(options)
    lines = [f"# Completion of {name} for bash.", f"_{name}() {{", '  local current="${COMP_WORDS[COMP_CWORD]}" before="${COMP_WORDS[COMP_CWORD-1]}"',
             f'  local words="{words}"']
    for command in commands:
        own = [o for o in parse(help_of(program, command))[0] if o.name not in {e.name for e in options}]
        every += own
        lines.append(f'  [[ " ${{COMP_WORDS[*]:1:COMP_CWORD-1}} " != *" {command} "* ]] || words+=" {" ".join(o.name for o in own)}"')
    lines += ["  COMPREPLY=()", '  case "$before" in', *bash_case(every), "  esac",
              '  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")', "}", f"complete -F _{name} {name}"]
    return "\n".join(lines) + "\n"


def zsh_text(text):
    return text.replace("'", "'\\''").replace("[", "\\[").replace("]", "\\]").replace(":", "\\:")


def zsh_spec(option):
    action = "_directories" if option.name in FOLDERS else "_files" if option.name in FILES else " "
    value = f":value:{action}" if option.takes_value() else ""
    return [f"'*{name}[{zsh_text(option.text)}]{value}'" for name in option.names()]


def zsh(program):
    name = pathlib.Path(program).name
    options, commands = parse(help_of(program))
    known = {option.name for option in options}
    specs = [spec for option in options for spec in zsh_spec(option)]
    for command in commands:
        specs += [spec for option in parse(help_of(program, command))[0] if option.name not in known for spec in zsh_spec(option)]
    if commands:
        specs.append(f"'*:command:({' '.join(commands)})'")
    return f"#compdef {name}\n_arguments -S \\\n  " + " \\\n  ".join(specs) + "\n"


def main():
    how, *arguments = sys.argv[1:]
    sys.stdout.write({"man": man, "bash": bash, "zsh": zsh}[how](*arguments))


if __name__ == "__main__":
    main()
