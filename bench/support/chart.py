# SPDX-License-Identifier: Apache-2.0
"""A chart with two logarithmic axes, as SVG."""

import math

WIDTH, HEIGHT = 720, 420
LEFT, RIGHT, TOP, BOTTOM = 70, 110, 40, 50
COLOURS = ("#0072b2", "#009e73", "#d55e00", "#888888")


class Axis:
    """Values from the power of ten below the least to the one above the greatest, as pixels."""

    def __init__(self, values, start, end):
        self.low = math.floor(math.log10(min(values)))
        self.high = math.ceil(math.log10(max(values)))
        self.start, self.end = start, end

    def at(self, value):
        share = (math.log10(value) - self.low) / (self.high - self.low)
        return self.start + share * (self.end - self.start)

    def powers(self):
        return [10**power for power in range(self.low, self.high + 1)]


def text(x, y, words, anchor="middle", extra=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" text-anchor="{anchor}" {extra}>{words}</text>'


def line(x1, y1, x2, y2):
    return f'<path d="M{x1:.0f} {y1:.0f}L{x2:.0f} {y2:.0f}" stroke="#ccc"/>'


def readable(value):
    for size, unit in ((10**6, " M"), (10**3, " k")):
        if value >= size:
            return f"{value / size:.0f}{unit}"
    return f"{value:g}"


def curve(points, x_axis, y_axis, colour, dashed):
    pixels = [(x_axis.at(x), y_axis.at(y)) for x, y in points]
    path = "L".join(f"{x:.1f} {y:.1f}" for x, y in pixels)
    dash = ' stroke-dasharray="6 4"' if dashed else ""
    dots = "".join(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{colour}"/>' for x, y in pixels)
    return f'<path d="M{path}" fill="none" stroke="{colour}" stroke-width="2"{dash}/>{dots}'


def chart(title, x_title, y_title, series):
    """The chart of {name: [(x, y), ...]}; the last series is dashed, for comparison."""
    series = {name: points for name, points in series.items() if points}
    x_axis = Axis([x for points in series.values() for x, _ in points], LEFT, WIDTH - RIGHT)
    y_axis = Axis([y for points in series.values() for _, y in points], HEIGHT - BOTTOM, TOP)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
             'font-family="sans-serif" font-size="13" fill="#333">',
             f'<rect width="{WIDTH}" height="{HEIGHT}" fill="#fff"/>',
             text(WIDTH / 2, 22, f"{title}, {y_title}", extra='font-size="15"'),
             text((LEFT + WIDTH - RIGHT) / 2, HEIGHT - 12, x_title)]
    for x in x_axis.powers():
        parts.append(line(x_axis.at(x), TOP, x_axis.at(x), HEIGHT - BOTTOM))
        parts.append(text(x_axis.at(x), HEIGHT - BOTTOM + 18, readable(x)))
    for y in y_axis.powers():
        parts.append(line(LEFT, y_axis.at(y), WIDTH - RIGHT, y_axis.at(y)))
        parts.append(text(LEFT - 8, y_axis.at(y) + 4, readable(y), "end"))
    for number, (name, points) in enumerate(series.items()):
        colour, y = COLOURS[number], TOP + 20 + 22 * number
        last = number == len(series) - 1
        parts.append(curve(points, x_axis, y_axis, colour, last))
        parts.append(text(WIDTH - RIGHT + 14, y, name, "start", f'fill="{colour}"'))
    return "\n".join(parts) + "\n</svg>\n"
