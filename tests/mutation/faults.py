"""Faults that a careless maintainer makes, found in C++ sources by their syntax tree (libclang).

A fault replaces a stretch of one file. Kinds:

    drop      a statement is gone: a call, an assignment, a throw, a return, a lock that is held for a block
    negate    a condition asks for the opposite
    widen     "and" becomes "or" and the reverse, "less" becomes "less or equal" and the reverse
    constant  a number is one too large or one too small
    swap      two statements that follow each other change places, or two arguments of one type
    member    another member, or another enumerator, of the same type
"""
import dataclasses
import pathlib
import re

from clang import cindex
from clang.cindex import CursorKind as Kind

KINDS = ("drop", "negate", "widen", "constant", "swap", "member")
WIDER = {"&&": "||", "||": "&&", "<": "<=", "<=": "<", ">": ">=", ">=": ">"}
DROPPED = {Kind.CALL_EXPR, Kind.CXX_THROW_EXPR, Kind.RETURN_STMT, Kind.BINARY_OPERATOR, Kind.UNARY_OPERATOR,
           Kind.COMPOUND_ASSIGNMENT_OPERATOR, Kind.BREAK_STMT, Kind.CONTINUE_STMT, Kind.CXX_DELETE_EXPR, Kind.IF_STMT}
CONDITIONED = {Kind.IF_STMT, Kind.WHILE_STMT, Kind.CONDITIONAL_OPERATOR}
LOCK = re.compile(r"lock|guard|finally|undo|restore", re.IGNORECASE)
NUMBER = re.compile(r"(\d[\d']*)([uUlLzZ]*)$")


@dataclasses.dataclass(frozen=True, order=True)
class Fault:
    path: pathlib.Path
    start: int  # bytes of the file that are replaced
    end: int
    text: bytes
    kind: str

    def applied(self, content):
        return content[:self.start] + self.text + content[self.end:]

    def line(self, content):
        return content.count(b"\n", 0, self.start) + 1


class Finder:
    """Finds the faults of some files in one translation unit that contains them."""

    def __init__(self, files):
        self.texts = {str(path): path.read_bytes() for path in files}
        self.found = set()

    def visit(self, unit):
        self.walk(unit.cursor)

    def walk(self, cursor):
        for child in cursor.get_children():
            place = child.location.file
            if place is not None and place.name not in self.texts and child.kind != Kind.LINKAGE_SPEC:
                continue
            self.look(child)
            self.walk(child)

    def look(self, cursor):
        kind, children = cursor.kind, list(cursor.get_children())
        if kind == Kind.COMPOUND_STMT:
            self.statements(children)
        elif kind in CONDITIONED and children:
            self.condition(children[0])
        elif kind == Kind.BINARY_OPERATOR and len(children) == 2:
            self.operator(*children)
        elif kind == Kind.INTEGER_LITERAL:
            self.number(cursor)
        elif kind == Kind.CALL_EXPR:
            self.arguments(list(cursor.get_arguments()))
        if kind in (Kind.MEMBER_REF_EXPR, Kind.DECL_REF_EXPR):
            self.member(cursor)

    def range(self, cursor):
        """(path, start, end) of a cursor that stands in one of the files as it is written, else None."""
        extent = cursor.extent
        if extent.start.file is None or extent.start.file.name not in self.texts:
            return None
        path, start, end = extent.start.file.name, extent.start.offset, extent.end.offset
        return (path, start, end) if start < end else None

    def text(self, where):
        return self.texts[where[0]][where[1]:where[2]]

    def add(self, kind, where, new):
        if self.text(where) != new:
            self.found.add(Fault(pathlib.Path(where[0]), where[1], where[2], new, kind))

    def statement(self, cursor):
        """The range of a whole statement with its semicolon, when it is one that may be moved or dropped."""
        where = self.range(cursor)
        if where is None:
            return None
        if cursor.kind == Kind.IF_STMT and self.text(where).endswith(b"}"):
            return where
        after = re.match(rb"\s*;", self.texts[where[0]][where[2]:])
        if self.text(where).endswith(b";"):
            return where
        return (where[0], where[1], where[2] + after.end()) if after else None

    def statements(self, children):
        ranges = []
        for child in children:
            shown = child
            if child.kind.is_expression() and child.kind == Kind.UNEXPOSED_EXPR:
                shown = next(iter(child.get_children()), child)  # a call that ends with the clean-up of its temporaries
            where = self.statement(child)
            ranges.append((shown.kind, where))
            guard = child.kind == Kind.DECL_STMT and any(LOCK.search(part.type.spelling) for part in child.get_children())
            if where and (shown.kind in DROPPED or guard):
                self.add("drop", where, b"")
        for (kind, first), (_, second) in zip(ranges, ranges[1:]):
            if first and second and first[0] == second[0] and kind not in (Kind.RETURN_STMT, Kind.CXX_THROW_EXPR):
                between = self.texts[first[0]][first[2]:second[1]]
                self.add("swap", (first[0], first[1], second[2]), self.text(second) + between + self.text(first))

    def condition(self, cursor):
        where = self.range(cursor)
        if where and cursor.kind.is_expression():
            self.add("negate", where, b"!(" + self.text(where) + b")")

    def operator(self, left, right):
        first, second = self.range(left), self.range(right)
        if first and second and first[0] == second[0] and first[2] <= second[1]:
            between = (first[0], first[2], second[1])
            written = self.text(between).decode("utf-8")
            if written.strip() in WIDER:
                self.add("widen", between, written.replace(written.strip(), WIDER[written.strip()]).encode())

    def number(self, cursor):
        where = self.range(cursor)
        match = where and NUMBER.match(self.text(where).decode("utf-8"))
        if match and not (match[1].startswith("0") and match[1] != "0"):
            value = int(match[1].replace("'", ""))
            for other in {value + 1, abs(value - 1)}:
                self.add("constant", where, f"{other}{match[2]}".encode())

    def arguments(self, arguments):
        for first, second in zip(arguments, arguments[1:]):
            one, two = self.range(first), self.range(second)
            same = first.type.get_canonical().spelling == second.type.get_canonical().spelling
            between = self.texts[one[0]][one[2]:two[1]] if one and two and one[0] == two[0] else b""
            if same and between.strip() == b",":
                self.add("swap", (one[0], one[1], two[2]), self.text(two) + between + self.text(one))

    def member(self, cursor):
        declared = cursor.referenced
        if declared is None or declared.kind not in (Kind.FIELD_DECL, Kind.ENUM_CONSTANT_DECL):
            return
        where = self.range(cursor)
        name = declared.spelling.encode()
        if where is None or not self.text(where).endswith(name):
            return
        where = (where[0], where[2] - len(name), where[2])
        wanted = declared.type.get_canonical().spelling.replace("const ", "")
        for other in declared.semantic_parent.get_children():
            same = other.kind == declared.kind and other.type.get_canonical().spelling.replace("const ", "") == wanted
            if same and other.spelling and other.spelling != declared.spelling:
                self.add("member", where, other.spelling.encode())


def find(units, files):
    """All faults of the files, sorted; units are (source, options) of what is compiled, which includes them."""
    finder, index = Finder(files), cindex.Index.create()
    own_headers = next(pathlib.Path("/usr/lib/llvm-14/lib/clang").iterdir())  # which the library does not find by itself
    for source, options in units:
        unit = index.parse(str(source), args=[*options, f"-resource-dir={own_headers}"])
        broken = [str(said) for said in unit.diagnostics if said.severity >= cindex.Diagnostic.Error]
        if broken:
            raise SystemExit(f"{source} cannot be read: {broken[0]}")
        finder.visit(unit)
    return sorted(finder.found)


def drawn(faults, random):
    """The faults in random order, the kinds taking turns, so that no kind that is frequent crowds out the others."""
    rest = {kind: [fault for fault in faults if fault.kind == kind] for kind in KINDS}
    for some in rest.values():
        random.shuffle(some)
    while any(rest.values()):
        kinds = [kind for kind in KINDS if rest[kind]]
        random.shuffle(kinds)
        for kind in kinds:
            yield rest[kind].pop()
