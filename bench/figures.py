"""What becomes of the samples of one measurement: medians and quartiles, a figure, and whether it meets its goal."""
import dataclasses
import statistics

MOST_SPREAD = 0.15  # of the raw tool: a run in which it varies more says nothing about the product


@dataclasses.dataclass(frozen=True)
class Spread:
    """Values in short: their median and quartiles."""
    median: float
    low: float
    high: float
    count: int

    @classmethod
    def of(cls, values):
        if len(values) == 1:
            return cls(values[0], values[0], values[0], 1)
        low, median, high = statistics.quantiles(values, n=4, method="inclusive")
        return cls(median, low, high, len(values))

    @property
    def relative(self):
        """How far the quartiles are apart, as a part of the median."""
        return (self.high - self.low) / self.median if self.median else 0.0


@dataclasses.dataclass(frozen=True)
class Goal:
    """A bound of a figure: "<=" or ">=", and its value."""
    compare: str
    bound: float

    def is_met(self, figure):
        return figure <= self.bound if self.compare == "<=" else figure >= self.bound

    def __str__(self):
        return f"{'at most' if self.compare == '<=' else 'at least'} {self.bound:g}"


@dataclasses.dataclass(frozen=True)
class Figure:
    """One measurement of one run. Without a raw tool the figure is the product's median, otherwise the ratio of both
    medians, the product's divided by the raw tool's."""
    raw: Spread | None
    product: Spread

    @classmethod
    def of(cls, raw, product):
        return cls(Spread.of(raw) if raw else None, Spread.of(product))

    @property
    def value(self):
        return self.product.median / self.raw.median if self.raw else self.product.median

    @property
    def is_noisy(self):
        return self.raw is not None and self.raw.relative > MOST_SPREAD


def by_measurement(samples):
    """Lists of the raw tool's and the product's values for each measurement, in the order in which they came."""
    sides = {}
    for sample in samples:
        raw_and_product = sides.setdefault(sample["measurement"], {"raw": [], "product": []})
        raw_and_product[sample["side"]].append(sample["value"])
    return {name: (both["raw"], both["product"]) for name, both in sides.items()}


def measure(names, run, say, repetitions=3):
    """A figure for each of the names, None where every run was too noisy. run(names) gives the samples of one run; a
    measurement whose raw tool varies too much is thrown out, said so, and done again up to so many times."""
    figures = {}
    wanted = list(names)
    for repetition in range(repetitions + 1):
        found = by_measurement(run(wanted))
        for name in wanted:
            if name not in found:
                raise LookupError(f"nothing was measured of {name}")
            figure = Figure.of(*found[name])
            if not figure.is_noisy:
                figures[name] = figure
            elif repetition < repetitions:
                say(f"{name}: thrown out, the raw tool varied by {figure.raw.relative:.0%}; once more")
            else:
                say(f"{name}: too noisy, the raw tool varied by {figure.raw.relative:.0%}; given up")
        wanted = [name for name in names if name not in figures]
        if not wanted:
            break
    return {name: figures.get(name) for name in names}
