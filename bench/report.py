"""Turns figures into a table, a comparison and a plot."""

import json
import statistics
import subprocess

#: The rows of the table: label, figure, and what is wanted of it. "most" is its greatest value.
#: "limit" and "peer" are figures of the same run: a lower bound, and comparable software. The number
#: beside them is the greatest ratio; None only shows the ratio.
ROWS = [
    ("Synchronous call, processor", "call.service.processor",
     {"limit": ("call.socket.processor", 1.4), "peer": ("call.bus.processor", 1.0)}),
    ("… clock", "call.service.clock",
     {"limit": ("call.socket.clock", None), "peer": ("call.bus.clock", None)}),
    ("… on any processors, processor", "spread_call.service.processor",
     {"limit": ("spread_call.socket.processor", None), "peer": ("spread_call.bus.processor", None)}),
    ("… on any processors, clock", "spread_call.service.clock",
     {"limit": ("spread_call.socket.clock", None), "peer": ("spread_call.bus.clock", None)}),
    ("Own share of a synchronous call", "library.synchronous_call", {"most": 110}),
    ("… allocations", "library.synchronous_call.allocations", {"most": 0}),
    ("Marker search", "search.library",
     {"limit": ("search.walk", 1.1), "peer": ("search.scanelf", 0.5)}),
    ("Delegate of an answer, 1 open request", "library.find_newest_delegate.1", {"most": 500}),
    ("… the newest of 1,000", "library.find_newest_delegate.1000", {"most": 500}),
    ("… the newest of 100,000", "library.find_newest_delegate.100000", {"most": 500}),
    ("… any of 1,000", "library.find_any_delegate.1000",
     {"peer": ("library.find_in_hash_map.1000", None), "most": 500}),
    ("… any of 100,000", "library.find_any_delegate.100000",
     {"peer": ("library.find_in_hash_map.100000", None), "most": 500}),
    ("Model list, own share of a model, 1 model", "library.receive_models.1", {}),
    ("… 1,000", "library.receive_models.1000", {}),
    ("… 100,000", "library.receive_models.100000",
     {"limit": ("library.receive_models.1000", 2.0)}),
    ("… allocations, four of them the platform's", "library.receive_models.1000.allocations", {}),
    ("… bytes asked for", "library.receive_models.1000.bytes", {}),
    ("… destroying, of 100,000", "library.destroy_models.100000",
     {"limit": ("library.destroy_models.1000", None)}),
    ("Model list, workstation, 1,000 models", "models.1000.processor", {}),
    ("… 10,000", "models.10000.processor", {"most": 200}),
    ("… 10,000, clock", "models.10000.clock", {}),
    ("… 50,000", "models.50000.processor", {}),
    ("… destroying 50,000", "models.50000.destroy", {}),
    ("Library file, stripped", "file.size", {}),
    ("… relocations", "file.relocations", {}),
    ("… loading", "file.load", {}),
]

#: Figures that are the same in every run of the same program.
EXACT_UNITS = ("allocations", "bytes", "")

GROWTH = {
    "finding the newest delegate": ("library.find_newest_delegate.", 1),
    "finding any delegate": ("library.find_any_delegate.", 1),
    "a model, own share": ("library.receive_models.", 1),
    "a model, workstation": ("models.*.processor", 1e6),
}


def median(figure):
    return statistics.median(figure["values"])


def spread(figure):
    """The width of the middle half of the values, as a share of their median."""
    values = sorted(figure["values"])
    quarter = len(values) // 4
    middle = values[quarter : len(values) - quarter]
    return (middle[-1] - middle[0]) / median(figure) if median(figure) else 0


def number(value):
    if value == int(value):
        return f"{value:,.0f}"
    return f"{value:,.{0 if value >= 1000 else 1 if value >= 100 else 2}f}"


def with_unit(figure):
    return f"{number(median(figure))} {figure['unit']}".strip()


def judge(figures, figure, wanted):
    """The ratios to the limit and to the peer, what is wanted, and whether it is reached."""
    value = median(figures[figure])
    ratios, wishes, reached = [], [], True
    for role in ("limit", "peer"):
        other, most = wanted.get(role, (None, None))
        if other not in figures:
            ratios.append("")
            continue
        ratio = value / median(figures[other])
        ratios.append(f"{ratio:.2f}")
        if most is not None:
            wishes.append(f"≤ {most} × {role}")
            reached = reached and ratio <= most
    if "most" in wanted:
        wishes.append(f"≤ {number(wanted['most'])}")
        reached = reached and value <= wanted["most"]
    return [*ratios, ", ".join(wishes), ("yes" if reached else "NO") if wishes else ""]


def table(figures, judged=True):
    rows = [["What", "figure", "of its limit", "of its peer", "wanted", "reached"]]
    for label, figure, wanted in ROWS:
        if figure in figures:
            rows.append([label, with_unit(figures[figure]), *judge(figures, figure, wanted)])
    return rows if judged else [row[:4] for row in rows]


#: The spread of fewer values does not show the noise, so no change is marked.
FEWEST_VALUES = 4
LEAST_NOISE = 0.05
#: A counted figure is an average over many repeats, which contains a few one-time allocations.
COUNTING_NOISE = 0.001


def noise_between(before, after):
    """The greatest change between two runs of the same program; None when it is not known."""
    if before["unit"] in EXACT_UNITS:
        return COUNTING_NOISE
    if min(len(before["values"]), len(after["values"])) < FEWEST_VALUES:
        return None
    return max(LEAST_NOISE, spread(before) + spread(after))


def mark_of(change, noise):
    if noise is None or abs(change) <= noise:
        return ""
    return "WORSE" if change > 0 else "better"


def comparison(before, after):
    rows = [["Figure", "before", "after", "change", "noise", ""]]
    for name in before:
        if name not in after or median(before[name]) == 0:
            continue
        change = median(after[name]) / median(before[name]) - 1
        noise = noise_between(before[name], after[name])
        rows.append([name, with_unit(before[name]), with_unit(after[name]), f"{change:+.1%}",
                     "?" if noise is None else f"{noise:.1%}", mark_of(change, noise)])
    return rows


def as_text(rows):
    widths = [max(map(len, column)) for column in zip(*rows)]
    lines = []
    for row in rows:
        cells = [row[0].ljust(widths[0])]
        cells += [cell.rjust(width) for cell, width in zip(row[1:], widths[1:])]
        lines.append("  ".join(cells).rstrip())
    return "\n".join(lines)


def as_markdown(rows):
    lines = ["| " + " | ".join(row) + " |" for row in rows]
    lines.insert(1, "|---|" + "---:|" * (len(rows[0]) - 1))
    return "\n".join(lines)


def growth_of(figures, pattern, nanoseconds):
    """Pairs of a number of items and the nanoseconds for each of them."""
    start, _, end = pattern.partition("*")
    points = []
    for name in figures:
        middle = name[len(start) : len(name) - len(end)]
        if name.startswith(start) and name.endswith(end) and middle.isdigit():
            each = int(middle) if end else 1
            points.append((int(middle), median(figures[name]) * nanoseconds / each))
    return sorted(points)


def plot(figures, file):
    """Draws the time per item by the number of items, as an SVG file."""
    series = {title: growth_of(figures, *source) for title, source in GROWTH.items()}
    commands = [
        "set terminal svg size 800,420 font 'sans-serif,12' background '#ffffff'",
        f"set output '{file}'",
        "set logscale xy",
        "set xrange [0.7:150000]",
        "set format x '%.0f'",
        "set xlabel 'number of open requests, or of models in a list'",
        "set ylabel 'nanoseconds for one'",
        "set grid",
        "set key outside below",
        "plot " + ", ".join(f"'-' with linespoints lw 2 title '{title}'" for title in series),
    ]
    for points in series.values():
        commands += [f"{count} {value}" for count, value in points] + ["e"]
    subprocess.run(["gnuplot"], input="\n".join(commands), check=True, text=True)


def write_json(file, heading, figures):
    with open(file, "w", encoding="utf-8") as stream:
        json.dump({**heading, "figures": figures}, stream, indent=1, ensure_ascii=False)
        stream.write("\n")


def read_json(file):
    with open(file, encoding="utf-8") as stream:
        return json.load(stream)["figures"]
