"""Plain bar and line plots as SVG."""
import math
from xml.sax.saxutils import escape

COLOURS = ["#2f6db5", "#e08a2e", "#5a9e6f", "#b04a5a", "#8064a2", "#7f7f7f"]
WIDTH, RIGHT, TOP = 860, 70, 70
BAR, GAP = 18, 12


class Canvas:
    def __init__(self, height, title):
        self.height = height
        self.parts = [f'<rect width="{WIDTH}" height="{height}" fill="white"/>']
        self.text(20, 28, title, size=17, weight="bold")

    def text(self, x, y, words, anchor="start", size=13, weight="normal"):
        self.parts.append(f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}" '
                          f'font-weight="{weight}" fill="#222" stroke="white" stroke-width="3" '
                          f'paint-order="stroke">{escape(words)}</text>')

    def line(self, x1, y1, x2, y2, colour="#ddd", dashes="none"):
        self.parts.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" '
                          f'stroke="{colour}" stroke-dasharray="{dashes}"/>')

    def bar(self, x, y, width, colour):
        self.parts.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{max(width, 1):.1f}" '
                          f'height="{BAR - 3}" fill="{colour}"/>')

    def legend(self, names, x):
        for name, colour in zip(names, COLOURS):
            self.bar(x, 42, BAR - 3, colour)
            self.text(x + 20, 54, name)
            x += 40 + 7.5 * len(name)

    def save(self, path):
        with open(path, "w", encoding="utf-8") as file:
            file.write(f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {self.height}" '
                       f'font-family="sans-serif">\n' + "\n".join(self.parts) + "\n</svg>\n")


def ticks(most):
    """Round numbers from zero to beyond `most`, about six of them."""
    step = 10 ** math.floor(math.log10(most / 5))
    step *= next(m for m in (1, 2, 5, 10) if m * step >= most / 5)
    return [n * step for n in range(math.ceil(most / step) + 1)]


def bars(path, title, axis, series, rows, mark=None):
    """Rows of (label, one value a series); a dashed line at `mark`."""
    left = 30 + 7.3 * max(len(label) for label, _ in rows)
    group = BAR * len(series) + GAP
    bottom = TOP + group * len(rows)
    canvas = Canvas(bottom + 55, title)
    scale = ticks(max(v for _, values in rows for v in values))
    to_x = lambda value: left + value / scale[-1] * (WIDTH - left - RIGHT)
    for tick in scale:
        canvas.line(to_x(tick), TOP, to_x(tick), bottom)
        canvas.text(to_x(tick), bottom + 18, f"{tick:g}", "middle", 12)
    if mark is not None:
        canvas.line(to_x(mark), TOP - 6, to_x(mark), bottom, "#222", "5,4")
    canvas.text((left + WIDTH - RIGHT) / 2, bottom + 42, axis, "middle")
    for number, (label, values) in enumerate(rows):
        y = TOP + GAP / 2 + group * number
        canvas.text(left - 8, y + BAR * len(series) / 2 + 4, label, "end")
        for value, colour in zip(values, COLOURS):
            canvas.bar(left, y, to_x(value) - left, colour)
            canvas.text(to_x(value) + 5, y + 12, f"{value:.3g}", size=12)
            y += BAR
    if len(series) > 1:
        canvas.legend(series, left)
    canvas.save(path)


def lines(path, title, x_axis, y_axis, curves):
    """Curves of (x, y) by their names, both from zero."""
    left, bottom, height = 80, 380, 435
    canvas = Canvas(height, title)
    x_scale = ticks(max(x for curve in curves.values() for x, _ in curve))
    y_scale = ticks(max(y for curve in curves.values() for _, y in curve))
    to_x = lambda value: left + value / x_scale[-1] * (WIDTH - left - RIGHT)
    to_y = lambda value: bottom - value / y_scale[-1] * (bottom - TOP)
    for tick in y_scale:
        canvas.line(left, to_y(tick), WIDTH - RIGHT, to_y(tick))
        canvas.text(left - 8, to_y(tick) + 4, f"{tick:g}", "end", 12)
    for tick in x_scale:
        canvas.text(to_x(tick), bottom + 18, f"{tick:g}", "middle", 12)
    canvas.text((left + WIDTH - RIGHT) / 2, bottom + 42, x_axis, "middle")
    canvas.text(20, 54, y_axis)
    for (_, curve), colour in zip(curves.items(), COLOURS):
        points = " ".join(f"{to_x(x):.1f},{to_y(y):.1f}" for x, y in curve)
        canvas.parts.append(f'<polyline points="{points}" fill="none" stroke="{colour}" stroke-width="2"/>')
    canvas.legend(curves, 2 * left)
    canvas.save(path)
