import os
import pathlib
import subprocess
import tempfile
import unittest

from stage import in_registry, run, windows_path


class RunTest(unittest.TestCase):
    def test_the_standard_output_of_a_program_is_what_comes_back(self):
        self.assertEqual(run(["/bin/sh", "-c", "echo one; echo two"]), "one\ntwo\n")

    def test_what_a_failed_program_has_started_ends_with_it(self):
        with tempfile.TemporaryDirectory() as folder:
            started = pathlib.Path(folder) / "started"
            with self.assertRaises(subprocess.CalledProcessError):
                run(["/bin/sh", "-c", f"sleep 100 >/dev/null & echo $! >{started}; exit 3"])
            with self.assertRaises(ProcessLookupError):
                os.kill(int(started.read_text()), 0)


class PathTest(unittest.TestCase):
    def test_a_path_of_this_machine_is_one_of_drive_z_and_doubles_its_strokes_in_the_registry(self):
        self.assertEqual(windows_path("/a/b"), r"Z:\a\b")
        self.assertEqual(in_registry(windows_path("/a/b")), r"Z:\\a\\b")


if __name__ == "__main__":
    unittest.main()
