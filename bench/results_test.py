import unittest
import xml.etree.ElementTree

import chart
import results
from figures import Figure, Goal
from rows import Measurement, Row

RATIO = Measurement("job", "a job & more", "us", Goal("<=", 1.2), 1e6)
VALUE = Measurement("memory", "memory", "MB", Goal("<=", 25), 1e-6)
ROW = Row("row", "a row", "linux", (RATIO, VALUE))


class Entries(unittest.TestCase):
    def setUp(self):
        for name, value in (("commit", "abc1234"), ("machine", "a machine")):
            original = getattr(results, name)
            setattr(results, name, lambda value=value: value)
            self.addCleanup(setattr, results, name, original)
        self.ratio = results.entry(ROW, RATIO, Figure.of([0.0004] * 9, [0.0005] * 9))
        self.value = results.entry(ROW, VALUE, Figure.of([], [30e6] * 9))
        self.noisy = results.entry(ROW, RATIO, None)

    def test_a_ratio_is_without_unit_and_its_sides_are_in_the_measurements_unit(self):
        self.assertAlmostEqual(self.ratio["figure"], 1.25)
        self.assertAlmostEqual(self.ratio["raw"]["median"], 400)
        self.assertFalse(self.ratio["met"])
        self.assertEqual(results.line(self.ratio), "  a job & more: raw 400 us (400 - 400), product 500 us (500 - 500): "
                                                   "1.250, goal at most 1.2: missed")

    def test_a_value_without_a_raw_tool_is_compared_in_its_unit(self):
        self.assertAlmostEqual(self.value["figure"], 30)
        self.assertFalse(self.value["met"])
        self.assertEqual(results.line(self.value), "  memory: product 30.0 MB (30.0 - 30.0), goal at most 25: missed")

    def test_a_value_meets_its_goal_in_the_measurements_unit(self):
        self.assertTrue(results.entry(ROW, VALUE, Figure.of([], [20e6] * 9))["met"])

    def test_what_was_too_noisy_has_no_figure_and_meets_nothing(self):
        self.assertIsNone(self.noisy["figure"])
        self.assertIsNone(self.noisy["met"])
        self.assertEqual(results.line(self.noisy), "  a job & more: too noisy")
        self.assertEqual(results.table([self.noisy]).splitlines()[-1], "| a job & more | - | - | - | at most 1.2 | too noisy |")

    def test_the_table_replaces_what_is_between_the_marks_and_nothing_else(self):
        page = f"before\n{results.BEGIN}\nan earlier table\n{results.END}\nbehind\n"
        once = results.into_page(page, [self.ratio, self.value])
        self.assertTrue(once.startswith(f"before\n{results.BEGIN}\nMeasured on "))
        self.assertTrue(once.endswith(f"{results.END}\nbehind\n"))
        self.assertIn("| memory | - | 30.0 MB (30.0 - 30.0) | 30.0 MB | at most 25 | missed |", once)
        self.assertNotIn("an earlier table", once)
        self.assertEqual(results.into_page(once, [self.ratio, self.value]), once)

    def test_the_picture_is_well_formed_with_goals_noise_and_history(self):
        history = [{"commit": "a", "date": "2026-11-01", "figures": {"job": 2}}, {"commit": "b", "date": "2026-11-02", "figures": {"job": 1.25}}]
        picture = chart.draw([self.ratio, self.value, self.noisy], history)
        xml.etree.ElementTree.fromstring(picture)
        self.assertIn("b, 2026-11-02: 1.25", picture)
        self.assertIn("too noisy", picture)

    def test_the_goals_mark_stands_where_the_product_would_just_meet_it(self):
        self.assertAlmostEqual(chart.product_at_goal(self.ratio), 480)
        self.assertAlmostEqual(chart.product_at_goal(self.value), 25)


class NumberTest(unittest.TestCase):
    def test_three_digits_count(self):
        self.assertEqual([results.number(value) for value in (None, 0, 0.934, 9.87, 12.34, 123.4, 12345.6)],
                         ["-", "0.00", "0.93", "9.87", "12.3", "123", "12,346"])


if __name__ == "__main__":
    unittest.main()
