"""Draws a chart as SVG: a bar a row, as long as its median, with its spread as a line."""

from xml.sax.saxutils import escape

LABEL_WIDTH = 250
BAR_WIDTH = 460
FIGURE_WIDTH = 110
ROW = 26
HEAD = 34
OURS = "#c2571a"
OTHERS = "#7d93a8"


def svg(chart, ours="Osprey"):
    """Bars whose label begins with ours stand out."""
    width = LABEL_WIDTH + BAR_WIDTH + FIGURE_WIDTH
    height = HEAD + ROW * len(chart.bars) + 12
    scale = BAR_WIDTH / (max(bar.most for bar in chart.bars) or 1)
    title = escape(f"{chart.title}, {chart.unit}")
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
        f'viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="13">',
        f'<rect width="{width}" height="{height}" fill="white"/>',
        f'<text x="12" y="21" font-weight="bold">{title}</text>',
    ]
    for number, bar in enumerate(chart.bars):
        color = OURS if bar.label.startswith(ours) else OTHERS
        parts += draw_bar(bar, HEAD + ROW * number, scale, chart.decimals, color)
    return "\n".join([*parts, "</svg>"]) + "\n"


def draw_bar(bar, top, scale, decimals, color):
    label = escape(bar.label)
    middle = top + ROW / 2
    least, median, most = (LABEL_WIDTH + scale * v for v in (bar.least, bar.median, bar.most))
    return [
        f'<text x="{LABEL_WIDTH - 8}" y="{middle + 4}" text-anchor="end">{label}</text>',
        f'<rect x="{LABEL_WIDTH}" y="{top + 4}" width="{median - LABEL_WIDTH:.1f}" '
        f'height="{ROW - 8}" fill="{color}"/>',
        f'<path d="M{least:.1f} {middle}H{most:.1f}M{least:.1f} {middle - 4}v8M{most:.1f} '
        f'{middle - 4}v8" stroke="black" fill="none"/>',
        f'<text x="{most + 8:.1f}" y="{middle + 4}">{bar.median:,.{decimals}f}</text>',
    ]
