"""docs/bench.svg: for each measurement the product beside the raw tool, the goal as a mark, and the figures of earlier
commits."""
from xml.sax.saxutils import escape

from results import figure_text, number, verdict

LEFT, BAR, FIGURE, PAST = 350, 330, 130, 200  # widths: the title, the bars, the figure, the history
STEP, TOP = 34, 44
COLORS = {"met": "#2e7d32", "missed": "#c62828", "": "#1565c0", "too noisy": "#9e9e9e"}


def product_at_goal(entry):
    """Where the product's bar would end if the goal were just met; None without a goal."""
    if not entry["goal"]:
        return None
    bound = entry["goal"][1]
    return bound * entry["raw"]["median"] if entry["is_ratio"] else bound


def text(x, y, words, size=12, anchor="start", color="#222222"):
    return f'<text x="{x:.1f}" y="{y:.1f}" font-size="{size}" text-anchor="{anchor}" fill="{color}">{escape(words)}</text>'


def bar(y, height, length, color):
    return f'<rect x="{LEFT}" y="{y:.1f}" width="{length:.1f}" height="{height}" fill="{color}"/>'


def bars(entry, y):
    if entry["product"] is None:
        return [text(LEFT, y + 12, "too noisy", color=COLORS["too noisy"])]
    raw = entry["raw"]["median"] if entry["raw"] else 0
    product, goal = entry["product"]["median"], product_at_goal(entry)
    longest = max(raw, product, goal or 0) or 1
    parts = [bar(y, 8, BAR * raw / longest, "#b0bec5")] if raw else []
    parts.append(bar(y + 9, 8, max(1, BAR * product / longest), COLORS[verdict(entry)]))
    if goal:
        x = LEFT + BAR * goal / longest
        parts.append(f'<path d="M{x:.1f} {y - 2:.1f}V{y + 19:.1f}" stroke="#222222" stroke-width="2"/>')
    return parts


def past(name, y, history):
    """The figures of a measurement over the records that have one, from the oldest to the latest."""
    records = [record for record in history if name in record["figures"]]
    values = [record["figures"][name] for record in records]
    if len(values) < 2:
        return []
    x0, low, high = LEFT + BAR + FIGURE, min(values), max(values)
    points = [(x0 + (PAST - 70) * i / (len(values) - 1), y + 16 - 14 * (value - low) / ((high - low) or 1))
              for i, value in enumerate(values)]
    line = " ".join(f"{x:.1f},{y_:.1f}" for x, y_ in points)
    parts = [f'<polyline points="{line}" fill="none" stroke="#90a4ae"/>']
    for (x, y_), record, value in zip(points, records, values):
        said = escape(f"{record['commit']}, {record['date']}: {number(value)}")
        parts.append(f'<circle cx="{x:.1f}" cy="{y_:.1f}" r="2.5" fill="#546e7a"><title>{said}</title></circle>')
    return parts + [text(x0 + PAST - 64, y + 14, f"from {number(values[0])}", 10, color="#546e7a")]


def draw(entries, history):
    width, height = LEFT + BAR + FIGURE + PAST, TOP + STEP * len(entries) + 10
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
             f'viewBox="0 0 {width} {height}" font-family="sans-serif">',
             f'<rect width="{width}" height="{height}" fill="#ffffff"/>',
             text(LEFT, 20, "grey: raw tool; colored: product, green where the goal (the mark) is met", 12),
             text(LEFT + BAR + FIGURE, 20, "earlier figures", 12)]
    for i, entry in enumerate(entries):
        y = TOP + STEP * i
        unit = f", {entry['unit']}" if entry["unit"] else ""
        parts += [text(LEFT - 10, y + 13, entry["title"] + unit, 12, "end"), *bars(entry, y),
                  text(LEFT + BAR + 10, y + 13, figure_text(entry)), *past(entry["name"], y, history)]
    return "\n".join(parts + ["</svg>"]) + "\n"
