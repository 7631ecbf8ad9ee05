"""The style of all pictures of the documentation: colours for light and dark pages, units, and small SVG files."""
import os
import re

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt
from matplotlib.ticker import FuncFormatter, NullLocator

# The colours on a light page, and their replacements on a dark page.
PAPER, INK, SOFT, EDGE, GRID = "#ffffff", "#1f2328", "#59636e", "#8c959f", "#e4e8ec"
BLUE, PALE, RED, WASH = "#2467b0", "#cfe0f2", "#c4314b", "#f7e4e6"
DARK = {
    PAPER: "#0d1117",
    INK: "#e6edf3",
    SOFT: "#9198a1",
    EDGE: "#6e7681",
    GRID: "#262c36",
    BLUE: "#58a6ff",
    PALE: "#1f3a5f",
    RED: "#ff7b86",
    WASH: "#3b1d22",
}

# The layout is computed with a wide font. Viewers use the first of FONTS that they have; none of these is wider.
LAYOUT_FONT = "DejaVu Sans"
FONTS = "Helvetica, Arial, 'DejaVu Sans', sans-serif"

STYLE = {
    "svg.fonttype": "none",
    "svg.hashsalt": "pictures",
    "font.family": LAYOUT_FONT,
    "font.size": 10,
    "path.simplify": False,
    "figure.facecolor": PAPER,
    "axes.facecolor": PAPER,
    "axes.titlesize": 11,
    "axes.titleweight": "bold",
    "axes.titlelocation": "left",
    "axes.titlecolor": INK,
    "axes.edgecolor": EDGE,
    "axes.labelcolor": SOFT,
    "axes.labelsize": 9,
    "axes.spines.top": False,
    "axes.spines.right": False,
    "text.color": INK,
    "xtick.color": EDGE,
    "ytick.color": EDGE,
    "xtick.labelcolor": SOFT,
    "ytick.labelcolor": INK,
    "legend.frameon": False,
    "legend.fontsize": 9,
}


def round_number(number):
    """Rounds to two significant digits; 44.5 becomes 45."""
    return float(f"{number * (1 + 1e-9):.2g}")


def format_time(seconds):
    """Formats a time in a suitable unit: 45 µs, 110 ms, 7.5 s."""
    for size, unit in ((1, "s"), (1e-3, "ms"), (1e-6, "µs")):
        number = round_number(seconds / size)
        if number >= 1:
            break
    return f"{number:g} {unit}"


def format_count(number):
    """Formats a number such as 560, 77,000 or 3.6 million."""
    rounded = round_number(number)
    return f"{rounded / 1e6:g} million" if rounded >= 1e6 else f"{rounded:,.0f}"


def use_log_axis(axis, form):
    """Makes a logarithmic axis with one labelled tick for each power of ten; _form_ writes a value."""
    axis.set_major_formatter(FuncFormatter(lambda value, _: form(value)))
    axis.set_minor_locator(NullLocator())


def draw_lanes(axes, bars, colour, width):
    """Draws one path for each lane. _bars_: left, right and lane of each; _width_ in points."""
    lanes = {}
    for left, right, lane in sorted(bars):
        lanes.setdefault(lane, []).extend((left, right, float("nan")))
    for lane, places in lanes.items():
        axes.plot(places, [lane] * len(places), color=colour, linewidth=width, solid_capstyle="butt")


def make_sheet():
    """Returns the style rules that change the colours on a dark page."""
    rules = [
        f'[style*="{property}: {light}"]{{{property}:{dark} !important}}'
        for light, dark in DARK.items()
        for property in ("fill", "stroke")
    ]
    return "<style>@media (prefers-color-scheme: dark){\n" + "\n".join(rules) + "\n}</style>\n"


def shorten(svg):
    """Removes what no viewer shows: notes about the file, names of groups, digits after the second decimal."""
    svg = re.sub(r"<!--.*?-->\s*|<metadata>.*?</metadata>\s*", "", svg, flags=re.DOTALL)
    svg = re.sub(r' id="[a-zA-Z0-9.]+_\d+"', "", svg)
    svg = re.sub(r' transform="rotate\(-?0 [^"]*\)"', "", svg)
    svg = re.sub(r' d="([^"]*)"', lambda path: ' d="' + " ".join(path[1].split()) + '"', svg)
    svg = re.sub(r"(\d+\.\d\d)\d+", r"\1", svg)
    svg = svg.replace(f"'{LAYOUT_FONT}'", FONTS)
    return re.sub(r"\n\s+", "\n", svg)


def save(figure, path, source=""):
    """Writes the picture. _source_ becomes a note about its source. The same figure gives the same file."""
    figure.savefig(path, bbox_inches="tight", pad_inches=0.12, metadata={"Date": None})
    plt.close(figure)
    with open(path, encoding="utf-8") as file:
        svg = shorten(file.read())
    note = f"<desc>{source}</desc>\n" if source else ""
    opening = re.search(r"<svg[^>]*>\n", svg).end()
    with open(path, "w", encoding="utf-8") as file:
        file.write(svg[:opening] + note + make_sheet() + svg[opening:])
    print(os.path.relpath(path))
