"""Plots as SVG, without a library: panels of horizontal bars or of lines, one below the other. A bar or a point is a median;
its whisker goes from the lowest to the highest measurement. Every value stands beside its bar as a number."""

import dataclasses
import math
from xml.sax.saxutils import escape

WIDTH, LEFT, RIGHT = 880, 270, 90  # px; of the page, of the labels, of the numbers behind the longest bar
BAR, STEP, LINES_HEIGHT = 16, 24, 260
SHADES = ("#2b6cb0", "#dd7a1c", "#3a8f5c", "#8a4fa3", "#737373")  # told apart by colour-blind eyes too
INK, FAINT = "#1f2933", "#d5dbe1"


@dataclasses.dataclass
class Bar:
    label: str
    value: float
    low: float
    high: float
    text: str
    shade: int = 0


@dataclasses.dataclass
class Bars:
    title: str
    unit: str
    bars: list


@dataclasses.dataclass
class Lines:
    """Series of (x, Spread); both axes count in powers."""

    title: str
    x_name: str
    y_name: str
    series: dict


def _text(x, y, words, anchor="start", size=12, weight="normal", colour=INK):
    style = f'font-size="{size}" font-weight="{weight}" fill="{colour}" text-anchor="{anchor}"'
    return f'<text x="{x:.1f}" y="{y:.1f}" {style}>{escape(words)}</text>'


def _line(x1, y1, x2, y2, colour=INK, width=1.0):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}" stroke-width="{width}"/>'


def number(value):
    """As short as an axis wants it."""
    for size, sign in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if abs(value) >= size:
            return f"{value / size:g}{sign}"
    return f"{value:g}"


def _ticks(highest):
    """Round steps from 0 to the highest value, four to eight of them."""
    raw = highest / 6
    size = 10 ** math.floor(math.log10(raw))
    step = next(size * factor for factor in (1, 2, 2.5, 5, 10) if size * factor >= raw)
    return [step * count for count in range(math.floor(highest / step) + 1)]


def _bars(panel, top):
    highest = max(max(bar.high, bar.value) for bar in panel.bars) or 1.0
    scale = (WIDTH - LEFT - RIGHT) / highest
    bottom = top + 26 + STEP * len(panel.bars)
    drawn = [_text(10, top + 12, panel.title, size=13, weight="bold")]
    for tick in _ticks(highest):
        x = LEFT + tick * scale
        drawn += [_line(x, top + 22, x, bottom, FAINT), _text(x, bottom + 14, number(tick), "middle", 11)]
    drawn.append(_text(WIDTH - 10, bottom + 14, panel.unit, "end", 11))
    for index, bar in enumerate(panel.bars):
        y = top + 26 + STEP * index
        end, low, high = (LEFT + value * scale for value in (bar.value, bar.low, bar.high))
        drawn.append(_text(LEFT - 8, y + BAR - 3, bar.label, "end"))
        drawn.append(f'<rect x="{LEFT}" y="{y}" width="{max(end - LEFT, 0.5):.1f}" height="{BAR}" fill="{SHADES[bar.shade]}"/>')
        if bar.high > bar.low:
            middle = y + BAR / 2
            drawn += [_line(low, middle, high, middle), _line(low, middle - 4, low, middle + 4)]
            drawn += [_line(high, middle - 4, high, middle + 4)]
        drawn.append(_text(max(end, high) + 6, y + BAR - 3, bar.text, size=11))
    drawn.append(_line(LEFT, top + 22, LEFT, bottom))
    return drawn, bottom + 34


def _powers(values):
    """The powers of ten around the values."""
    return range(math.floor(math.log10(min(values))), math.ceil(math.log10(max(values))) + 1)


def _marker(x, y, low, high, colour):
    drawn = [_line(x, low, x, high, colour), _line(x - 4, low, x + 4, low, colour), _line(x - 4, high, x + 4, high, colour)]
    return [*drawn, f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{colour}"/>']


def _lines(panel, top):
    left, right, bottom = 80, WIDTH - 240, top + 22 + LINES_HEIGHT
    points = [point for series in panel.series.values() for point in series]
    xs = sorted({x for x, _ in points})
    powers = _powers([value for _, spread in points for value in (spread.low, spread.high)])
    inset = 24

    def across(x):
        share = math.log(x / xs[0]) / math.log(xs[-1] / xs[0]) if len(xs) > 1 else 0.5
        return left + inset + share * (right - left - 2 * inset)

    def up(y):
        return bottom - (math.log10(y) - powers[0]) / max(len(powers) - 1, 1) * LINES_HEIGHT

    drawn = [_text(10, top + 12, panel.title, size=13, weight="bold")]
    for power in powers:
        y = up(10.0**power)
        drawn += [_line(left, y, right, y, FAINT), _text(left - 6, y + 4, number(10.0**power), "end", 11)]
    for x in xs:
        drawn += [_line(across(x), bottom, across(x), bottom + 4), _text(across(x), bottom + 17, f"{x:,}", "middle", 11)]
    drawn += [_text((left + right) / 2, bottom + 33, panel.x_name, "middle", 11)]
    turned = f'transform="translate(20 {(top + 22 + bottom) / 2:.0f}) rotate(-90)"'
    drawn.append(f'<g {turned}>{_text(0, 0, panel.y_name, "middle", 11)}</g>')
    for index, (name, series) in enumerate(panel.series.items()):
        colour = SHADES[index % len(SHADES)]
        aside = (index - (len(panel.series) - 1) / 2) * 5  # so that whiskers stand beside each other
        way = " ".join(f"{across(x) + aside:.1f},{up(spread.middle):.1f}" for x, spread in series)
        drawn.append(f'<polyline points="{way}" fill="none" stroke="{colour}" stroke-width="1.8"/>')
        for x, spread in series:
            drawn += _marker(across(x) + aside, up(spread.middle), up(spread.low), up(spread.high), colour)
        drawn += [_line(right + 14, top + 34 + 18 * index, right + 34, top + 34 + 18 * index, colour, 3)]
        drawn += [_text(right + 40, top + 38 + 18 * index, name, size=11)]
    drawn += [_line(left, top + 22, left, bottom), _line(left, bottom, right, bottom)]
    return drawn, bottom + 56


def document(title, panels):
    drawn, top = [_text(10, 26, title, size=16, weight="bold")], 48
    for panel in panels:
        more, top = (_bars if isinstance(panel, Bars) else _lines)(panel, top)
        drawn += more
    head = f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{top}" viewBox="0 0 {WIDTH} {top}"'
    style = 'font-family="DejaVu Sans, Verdana, sans-serif"'
    return "\n".join([f"{head} {style}>", f'<rect width="{WIDTH}" height="{top}" fill="#ffffff"/>', *drawn, "</svg>"]) + "\n"
