"""What was measured, on the disk and in tables: each measurement's latest figure with its commit and date."""
import datetime
import json
import os
import platform
import subprocess

from figures import Goal
from stage import ROOT

RESULTS, HISTORY = ROOT / "build/bench/results.json", ROOT / "bench/history.json"
PAGE, CHART = ROOT / "docs/performance.md", ROOT / "docs/bench.svg"
BEGIN, END = "<!-- the table of scripts/bench -->", "<!-- its end -->"
MEASURED = ["bench", "client", "compression", "converter", "corvane", "jobs", "monitor", "ports", "programs", "protocol",
            "server", "session", "tls", "util"]


def git(*arguments):
    return subprocess.run(["git", "-C", str(ROOT), *arguments], stdout=subprocess.PIPE, text=True, check=True).stdout.strip()


def commit():
    """The commit that is measured; with a "+" when the files differ from it."""
    return git("rev-parse", "--short=7", "HEAD") + ("+" if git("status", "--porcelain", "--", *MEASURED) else "")


def machine():
    """The processor, how many cores, and the system."""
    model = next((line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo", encoding="utf-8")
                  if line.startswith("model name")), platform.machine())
    return f"{model}, {os.cpu_count()} cores, Linux {platform.release()}"


def side(spread, scale):
    return spread and {"median": spread.median * scale, "low": spread.low * scale, "high": spread.high * scale,
                       "count": spread.count}


def entry(row, measurement, figure):
    """What is kept of a measurement; without a figure it was too noisy."""
    ratio = figure is not None and figure.raw is not None
    value = figure and figure.value * (1 if ratio else measurement.scale)
    goal = measurement.goal
    return {
        "name": measurement.name, "row": row.name, "title": measurement.title, "unit": measurement.unit,
        "commit": commit(), "date": datetime.date.today().isoformat(), "machine": machine(),
        "raw": figure and side(figure.raw, measurement.scale), "product": figure and side(figure.product, measurement.scale),
        "figure": value, "is_ratio": ratio, "goal": goal and [goal.compare, goal.bound],
        "met": None if figure is None or goal is None else goal.is_met(value),
    }


def load(path):
    return json.loads(path.read_text(encoding="utf-8")) if path.exists() else []


def save(path, entries):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(json.dumps(entries, indent=1) + "\n", encoding="utf-8")


def keep(entries, order):
    """Puts the entries in the place of earlier ones of their names; the rest stays. Returns all of them, in that order."""
    latest = {old["name"]: old for old in load(RESULTS)} | {new["name"]: new for new in entries}
    merged = [latest[name] for name in order if name in latest]
    save(RESULTS, merged)
    return merged


def number(value):
    """Three digits that count."""
    if value is None:
        return "-"
    if abs(value) >= 100:
        return f"{value:,.0f}"
    return f"{value:.1f}" if abs(value) >= 10 else f"{value:.2f}"


def amount(one_side, unit):
    if not one_side:
        return "-"
    text = f"{number(one_side['median'])} {unit}".strip()
    return f"{text} ({number(one_side['low'])} - {number(one_side['high'])})"


def verdict(entry_):
    if entry_["product"] is None:
        return "too noisy"
    return {None: "", True: "met", False: "missed"}[entry_["met"]]


def figure_text(entry_):
    if entry_["figure"] is None:
        return "-"
    if entry_["is_ratio"]:  # so exact that it does not look like a goal that it misses
        return f"{entry_['figure']:.3f}"
    return f"{number(entry_['figure'])} {entry_['unit']}".strip()


def goal_text(entry_):
    return str(Goal(*entry_["goal"])) if entry_["goal"] else ""


def line(entry_):
    """One measurement for the screen."""
    raw = f"raw {amount(entry_['raw'], entry_['unit'])}, " if entry_["raw"] else ""
    goal = f", goal {goal_text(entry_)}: {verdict(entry_)}" if entry_["goal"] else ""
    if entry_["product"] is None:
        return f"  {entry_['title']}: too noisy"
    ratio = f": {figure_text(entry_)}" if entry_["is_ratio"] else ""
    return f"  {entry_['title']}: {raw}product {amount(entry_['product'], entry_['unit'])}{ratio}{goal}"


def table(entries):
    """The same for docs/performance.md."""
    rows = ["| Measured | Raw | Product | Figure | Goal | |", "|---|---|---|---|---|---|"]
    rows += [f"| {e['title']} | {amount(e['raw'], e['unit'])} | {amount(e['product'], e['unit'])} | {figure_text(e)} | "
             f"{goal_text(e)} | {verdict(e)} |" for e in entries]
    return "\n".join(rows)


def into_page(text, entries):
    """The page with the table, its machine, commits and dates in the place that is marked for them."""
    head, rest = text.split(BEGIN)
    tail = rest.split(END)[1]
    dates = sorted({e["date"] for e in entries})
    commits = list(dict.fromkeys(e["commit"] for e in entries))
    when = dates[0] if len(dates) == 1 else f"{dates[0]} to {dates[-1]}"
    said = f"Measured on {when}, {', '.join(commits)}, on {entries[0]['machine']}:"
    return f"{head}{BEGIN}\n{said}\n\n{table(entries)}\n{END}{tail}"


def record(entries):
    """Appends the figures to the history, one record for each commit. Returns the history."""
    history = load(HISTORY)
    for one in dict.fromkeys(e["commit"] for e in entries):
        figures = {e["name"]: round(e["figure"], 4) for e in entries if e["commit"] == one and e["figure"] is not None}
        date = max(e["date"] for e in entries if e["commit"] == one)
        known = next((known for known in history if known["commit"] == one), None)
        if known:
            known["figures"].update(figures)
            known["date"] = date
        else:
            history.append({"commit": one, "date": date, "figures": figures})
    save(HISTORY, history)
    return history
