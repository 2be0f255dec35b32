import unittest

from figures import Figure, Goal, Spread, by_measurement, measure


def samples(name, raw, product):
    return ([{"measurement": name, "side": "raw", "value": value} for value in raw] +
            [{"measurement": name, "side": "product", "value": value} for value in product])


STEADY = [10, 10, 10, 10, 10]
WILD = [5, 8, 10, 12, 15]


class SpreadTest(unittest.TestCase):
    def test_the_median_and_the_quartiles_lie_between_the_values_they_stand_between(self):
        self.assertEqual(Spread.of([4, 1, 3, 2]), Spread(2.5, 1.75, 3.25, 4))
        self.assertEqual(Spread.of([9, 1, 2, 3, 100]), Spread(3, 2, 9, 5))

    def test_one_value_is_its_own_median_and_quartiles(self):
        self.assertEqual(Spread.of([7]), Spread(7, 7, 7, 1))

    def test_the_relative_spread_is_that_of_the_quartiles(self):
        self.assertEqual(Spread(10, 9, 12, 5).relative, 0.3)
        self.assertEqual(Spread(0, 0, 0, 5).relative, 0)


class GoalTest(unittest.TestCase):
    def test_a_figure_on_the_bound_meets_the_goal_and_one_beyond_it_does_not(self):
        self.assertTrue(Goal("<=", 1.2).is_met(1.2))
        self.assertFalse(Goal("<=", 1.2).is_met(1.2001))
        self.assertTrue(Goal(">=", 0.93).is_met(0.93))
        self.assertFalse(Goal(">=", 0.93).is_met(0.9299))

    def test_a_goal_is_said_in_words(self):
        self.assertEqual(str(Goal("<=", 1.2)), "at most 1.2")
        self.assertEqual(str(Goal(">=", 1.0)), "at least 1")


class FigureTest(unittest.TestCase):
    def test_a_figure_is_the_ratio_of_the_medians_and_without_a_raw_tool_the_median(self):
        self.assertEqual(Figure.of([2, 4, 6], [1, 2, 90]).value, 0.5)
        self.assertEqual(Figure.of([], [1, 2, 90]).value, 2)

    def test_only_the_raw_tool_makes_a_run_noisy(self):
        self.assertTrue(Figure.of(WILD, STEADY).is_noisy)
        self.assertFalse(Figure.of(STEADY, WILD).is_noisy)
        self.assertFalse(Figure.of([], WILD).is_noisy)

    def test_a_spread_of_fifteen_percent_is_still_good(self):
        self.assertFalse(Figure.of([92.5, 92.5, 100, 107.5, 107.5], STEADY).is_noisy)
        self.assertTrue(Figure.of([92.4, 92.4, 100, 107.5, 107.5], STEADY).is_noisy)


class ByMeasurementTest(unittest.TestCase):
    def test_samples_are_sorted_by_measurement_and_side_and_keep_their_order(self):
        mixed = samples("a", [3, 1], [2]) + samples("b", [], [5]) + samples("a", [2], [])
        self.assertEqual(by_measurement(mixed), {"a": ([3, 1, 2], [2]), "b": ([], [5])})


class MeasureTest(unittest.TestCase):
    def run_with(self, *runs):
        """Runs of measure(), each a list of samples; what was asked for each time, what came, and what was said."""
        asked, said, left = [], [], list(runs)

        def run(names):
            asked.append(names)
            return left.pop(0)
        return measure(["a", "b"], run, said.append), asked, said

    def test_quiet_measurements_are_run_once(self):
        found, asked, said = self.run_with(samples("a", STEADY, [20]) + samples("b", STEADY, [5]))
        self.assertEqual({name: figure.value for name, figure in found.items()}, {"a": 2, "b": 0.5})
        self.assertEqual((asked, said), ([["a", "b"]], []))

    def test_a_noisy_one_is_thrown_out_and_run_again_alone(self):
        found, asked, said = self.run_with(samples("a", WILD, [20]) + samples("b", STEADY, [5]), samples("a", STEADY, [30]))
        self.assertEqual(found["a"].value, 3)
        self.assertEqual(asked, [["a", "b"], ["a"]])
        self.assertEqual(said, ["a: thrown out, the raw tool varied by 40%; once more"])

    def test_what_comes_again_without_need_changes_nothing(self):
        found, _, _ = self.run_with(samples("a", WILD, [20]) + samples("b", STEADY, [5]),
                                    samples("a", STEADY, [30]) + samples("b", STEADY, [50]))
        self.assertEqual(found["b"].value, 0.5)

    def test_after_three_repetitions_it_is_no_figure(self):
        found, asked, said = self.run_with(*([samples("a", WILD, [20]) + samples("b", STEADY, [5])] * 4))
        self.assertIsNone(found["a"])
        self.assertEqual(len(asked), 4)
        self.assertEqual(said[-1], "a: too noisy, the raw tool varied by 40%; given up")

    def test_a_program_that_prints_nothing_of_a_measurement_is_a_failure(self):
        with self.assertRaisesRegex(LookupError, "nothing was measured of b"):
            self.run_with(samples("a", STEADY, [20]))


if __name__ == "__main__":
    unittest.main()
