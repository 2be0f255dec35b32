#!/usr/bin/python3
"""Tests of scripts/mutate with a project of its own: one file of product code, one test binary."""
import contextlib
import io
import pathlib
import random
import sys
import tempfile
import textwrap
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
import faults  # noqa: E402
import mutate  # noqa: E402

SAMPLE = """\
#include <mutex>
struct Sum { int total = 0; int count = 0; };
enum class Kind { kSmall, kLarge };
void note(int);
void add(Sum& sum, std::mutex& lock, int a, int b) {
  const std::lock_guard<std::mutex> guard(lock);
  if (a > 0 && b > 0) sum.total += 7;
  note(a);
  note(b);
}
Kind kindOf(int value) { return value < 100 ? Kind::kSmall : Kind::kLarge; }
int less(int a, int b);
int both(int a, int b) { return less(a, b); }
"""
PROJECT = {
    "CMakeLists.txt": """\
        cmake_minimum_required(VERSION 3.25)
        project(sample LANGUAGES CXX)
        set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
        add_compile_options(-Wall -Werror)
        add_executable(part_tests part/part.cpp part/part_test.cpp)
        """,
    "CMakePresets.json": """\
        { "version": 4,
          "configurePresets": [{ "name": "linux", "generator": "Ninja", "binaryDir": "${sourceDir}/build/linux",
                                 "cacheVariables": { "CMAKE_EXPORT_COMPILE_COMMANDS": "ON" } }],
          "buildPresets": [{ "name": "linux", "configurePreset": "linux" }] }
        """,
    "part/part.cpp": "inline constexpr int kUnused = 60;\nint tested() { return 40; }\nint untested() { return 50; }\n",
    "part/part_test.cpp": """\
        int tested();
        int untested();
        int main() { return tested() == 40 && untested() > 0 ? 0 : 1; }
        """,
}


class FaultsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = pathlib.Path(folder.name, "sample.cpp")
        self.path.write_text(SAMPLE)
        self.found = faults.find([(self.path, ["-std=c++20"])], [self.path])

    def lines(self, kind):
        content = self.path.read_bytes()
        changed = set()
        for fault in self.found:
            if fault.kind == kind:
                line = fault.line(content)
                changed.add((line, fault.applied(content).decode().splitlines()[line - 1].strip()))
        return changed

    def test_a_statement_is_dropped_also_a_lock(self):
        self.assertIn((6, ""), self.lines("drop"))
        self.assertIn((7, ""), self.lines("drop"))
        self.assertIn((8, ""), self.lines("drop"))

    def test_a_condition_asks_for_the_opposite(self):
        self.assertIn((7, "if (!(a > 0 && b > 0)) sum.total += 7;"), self.lines("negate"))

    def test_a_condition_is_wider(self):
        self.assertIn((7, "if (a > 0 || b > 0) sum.total += 7;"), self.lines("widen"))
        self.assertIn((7, "if (a >= 0 && b > 0) sum.total += 7;"), self.lines("widen"))

    def test_a_constant_is_one_too_large_or_too_small(self):
        found = self.lines("constant")
        self.assertIn((7, "if (a > 0 && b > 0) sum.total += 8;"), found)
        self.assertIn((7, "if (a > 0 && b > 0) sum.total += 6;"), found)

    def test_two_statements_and_two_arguments_change_places(self):
        found = self.lines("swap")
        self.assertIn((8, "note(b);"), found)
        self.assertIn((13, "int both(int a, int b) { return less(b, a); }"), found)

    def test_another_member_and_another_enumerator_of_the_type(self):
        found = self.lines("member")
        self.assertIn((7, "if (a > 0 && b > 0) sum.count += 7;"), found)
        self.assertIn((11, "Kind kindOf(int value) { return value < 100 ? Kind::kLarge : Kind::kLarge; }"), found)

    def test_nothing_outside_the_files_changes(self):
        self.assertEqual({self.path}, {fault.path for fault in self.found})

    def test_the_same_seed_draws_the_same_faults_of_all_kinds(self):
        first, second = (list(faults.drawn(self.found, random.Random(7))) for _ in range(2))
        self.assertEqual(first, second)
        self.assertEqual(sorted(first), self.found)
        self.assertEqual(set(faults.KINDS), {fault.kind for fault in first[:len(faults.KINDS)]})


class MutateTest(unittest.TestCase):
    def test_a_room_has_the_stages_of_its_folder_and_what_is_neither_has_none(self):
        self.assertIs(mutate.FITTING["server"], mutate.stages_of("server"))
        self.assertIs(mutate.FITTING["server"], mutate.stages_of("server/hold"))
        self.assertIs(mutate.FITTING["admin"], mutate.stages_of("admin/support/"))
        for neither in ("", "docs", "server/hold/job_hold.h", "server/nowhere", "server/../docs"):
            self.assertIsNone(mutate.stages_of(neither), neither)

    def test_what_a_test_sees_is_noticed_and_what_none_sees_is_listed_and_the_tree_stays_as_it_was(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name, text in PROJECT.items():
                (root / name).parent.mkdir(exist_ok=True)
                (root / name).write_text(textwrap.dedent(text))
            said = io.StringIO()
            with contextlib.redirect_stdout(said):
                killed, survived = mutate.mutate(root, "part", [("linux", "part_tests")], 99, 1)
            self.assertEqual({b"39", b"41"}, {fault.text for fault in killed})
            self.assertEqual({b"49", b"51"}, {fault.text for fault in survived})
            self.assertIn("not noticed: part/part.cpp:3 (constant)", said.getvalue())
            self.assertIn("-int untested() { return 50; }\n+int untested() { return 51; }", said.getvalue())
            self.assertIn("2 noticed, 2 not noticed; besides 2 refused by the compiler, 2 without", said.getvalue())
            for copy in (root, root / "build" / "mutation" / "tree"):
                self.assertEqual(PROJECT["part/part.cpp"], (copy / "part" / "part.cpp").read_text())


if __name__ == "__main__":
    unittest.main()
