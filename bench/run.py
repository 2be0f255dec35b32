#!/usr/bin/env python3
"""Measures rows and makes of the samples a table, build/bench/results.json and build/bench/bench.svg. scripts/bench
starts it, with Wine's server running where a row needs it."""
import argparse
import dataclasses
import signal
import subprocess
import sys

import chart
import results
from figures import measure
from rows import OWN_RECORDS, ROWS, find
from runs import RUNS, natively

LEAST_ROUNDS = 9


def arguments():
    parser = argparse.ArgumentParser(prog="scripts/bench", description="Measures the product against raw tools.")
    parser.add_argument("rows", nargs="*", metavar="ROW", help="all of them when none is named: " + ", ".join(row.name for row in ROWS))
    parser.add_argument("--rounds", type=int, default=LEAST_ROUNDS, help=f"turns that are counted, {LEAST_ROUNDS} at least and unless given")
    parser.add_argument("--record", action="store_true",
                        help="puts the latest figures of all rows into bench/history.json, docs/performance.md and docs/bench.svg; "
                             "with no row nothing is measured")
    parser.add_argument("--other-aps", metavar="FILE", help="for the row records: an aps, as of an earlier version, that stands beside this one")
    parser.add_argument("--presets", action="store_true", help="says which builds the rows need, and ends")
    options = parser.parse_args()
    if options.rounds < LEAST_ROUNDS:
        parser.error(f"a median of fewer than {LEAST_ROUNDS} rounds says nothing")
    try:
        options.rows = [] if options.record and not options.rows else find(options.rows)
    except LookupError as failure:
        parser.error(str(failure))
    if options.other_aps and [row.name for row in options.rows] != ["records"]:
        parser.error("--other-aps goes with the row records alone")
    return options


def measure_row(row, rounds, run):
    print(f"{row.name}: {row.about}", flush=True)
    figures = measure(row.names, lambda names: run(names, rounds), lambda words: print(f"  {words}", flush=True))
    entries = [results.entry(row, measurement, figures[measurement.name]) for measurement in row.measurements]
    for entry in entries:
        print(results.line(entry), flush=True)
    return entries


def compare_aps(other, rounds):
    """The row of records with another aps in the place of its raw side; nothing of that is kept."""
    [row] = find(["records"])
    row = dataclasses.replace(row, about=f"empty jobs against those through {other}",
                              measurements=(OWN_RECORDS, *row.measurements))
    measure_row(row, rounds, natively("bench_records", other))
    return 0


def record(entries):
    history = results.record(entries)
    results.CHART.write_text(chart.draw(entries, history), encoding="utf-8")
    results.PAGE.write_text(results.into_page(results.PAGE.read_text(encoding="utf-8"), entries), encoding="utf-8")


def main():
    # Whoever ends this in order, as a time limit does, leaves nothing behind either.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    options = arguments()
    if options.presets:
        print("\n".join(sorted({row.place for row in options.rows} | {"linux"})))
        return 0
    if options.other_aps:
        return compare_aps(options.other_aps, options.rounds)
    order = [name for row in ROWS for name in row.names]
    merged, failed = results.keep([], order), []
    for row in options.rows:
        try:
            merged = results.keep(measure_row(row, options.rounds, RUNS[row.name]), order)
        except (subprocess.SubprocessError, RuntimeError, LookupError, OSError) as failure:
            failed.append(row.name)
            print(f"  not measured: {failure}", file=sys.stderr, flush=True)
    (results.RESULTS.parent / "bench.svg").write_text(chart.draw(merged, results.load(results.HISTORY)), encoding="utf-8")
    if options.record:
        record(merged)
    if failed:
        print(f"scripts/bench: not measured: {', '.join(failed)}", file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
