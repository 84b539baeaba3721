#!/usr/bin/env python3
"""Captures vdev's live screen and writes it to docs/pictures as SVG.

Needs tmux and a build in build/. Presses a few keys, then captures the screen with
its colours. Usage: docs/make_pictures.py [BUILD_DIRECTORY]
"""
import os
import re
import subprocess
import sys
import time
from html import escape
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
PICTURES = ROOT / "docs" / "pictures"
COLS, ROWS = 100, 30

# Keys to press before the capture; a number is a pause in seconds.
SCENES = {
    "QB-620": ["Up", 0.2, "Up", 0.2, "Up", 0.8, "p", "1", 0.3, "Right", 0.25, "Right", 0.25,
               "Right", 0.25, "Right", 0.9, "p", "2", 0.3, "+", 0.6, "Down", 0.25, "Down", 0.1],
    "QB-310": [1, "m", 0.4, "Down", 0.4, "Right", 0.4, "Right", 0.4, "+", 0.25, "+", 0.25, "+",
               0.6, "F", 0.2],
    "QB-420": [2, "-", 0.2, "-", 0.2, "-", 0.2, "-", 0.2, "-", 0.2, "-", 3, "I", 0.2, "n", 0.2,
               "n", 0.1],
}

CELL_WIDTH, CELL_HEIGHT, MARGIN = 8.43, 17, 14
BACKGROUND, FOREGROUND, DIM = "#14181d", "#d7dce2", "#7c8794"
COLORS = {31: "#f2777a", 32: "#7fc98f", 33: "#f0c674", 34: "#81a2be", 35: "#c397d8",
          36: "#76bfc9"}


class Tmux:
    """A tmux server of its own with one window."""

    def __init__(self, name, command):
        self.name = f"vdev-pictures-{os.getpid()}-{name}"
        self.run("new-session", "-d", "-x", str(COLS), "-y", str(ROWS), command)

    def run(self, *arguments):
        result = subprocess.run(["tmux", "-L", self.name, "-f", "/dev/null", *arguments],
                                check=True, stdout=subprocess.PIPE, text=True)
        return result.stdout

    def press(self, steps):
        for step in steps:
            if isinstance(step, str):
                self.run("send-keys", step)
            else:
                time.sleep(step)

    def capture(self):
        return self.run("capture-pane", "-e", "-p")

    def close(self):
        """Quits vdev, which closes the window and ends the server."""
        self.run("send-keys", "q")


def runs_of(line, style):
    """Pieces of a captured line in one style each: (column, text, style); and the last style."""
    runs, column = [], 0
    for text, codes in re.findall(r"([^\x1b]+)|\x1b\[([0-9;]*)m", line):
        if text:
            runs.append((column, text, dict(style)))
            column += len(text)
            continue
        for code in (int(code or 0) for code in codes.split(";")):
            if code == 0:
                style.clear()
            elif code == 39:
                style.pop("color", None)
            elif code in COLORS:
                style["color"] = COLORS[code]
            elif code in (1, 2, 7):
                style[{1: "bold", 2: "dim", 7: "reverse"}[code]] = True
            elif code == 22:
                style.pop("bold", None)
                style.pop("dim", None)
            elif code == 27:
                style.pop("reverse", None)
    return runs


# Frames and bars are drawn as lines, so that they meet: from the middle of a cell to the ends
# named (left, right, up, down), and their width.
LINES = {"─": ("lr", 1), "━": ("lr", 3), "│": ("ud", 1), "┌": ("rd", 1), "┐": ("ld", 1),
         "└": ("ru", 1), "┘": ("lu", 1)}


def svg_lines(row, column, text, color):
    parts = []
    for piece in re.finditer(r"(.)\1*", text):
        if piece.group(1) not in LINES:
            continue
        ends, width = LINES[piece.group(1)]
        y = MARGIN + (row + 0.5) * CELL_HEIGHT
        if ends == "lr":  # one line for all
            x = MARGIN + (column + piece.start()) * CELL_WIDTH
            path = f"M{x:.2f} {y}h{len(piece.group()) * CELL_WIDTH:.2f}"
            parts.append(f'<path d="{path}" stroke="{color}" stroke-width="{width}"/>')
            continue
        way = {"l": f"h{-CELL_WIDTH / 2:.2f}", "r": f"h{CELL_WIDTH / 2:.2f}",
               "u": f"v{-CELL_HEIGHT / 2}", "d": f"v{CELL_HEIGHT / 2}"}
        for place in range(piece.start(), piece.end()):
            x = MARGIN + (column + place + 0.5) * CELL_WIDTH
            path = "".join(f"M{x:.2f} {y}{way[end]}" for end in ends)
            parts.append(f'<path d="{path}" stroke="{color}" stroke-width="{width}"/>')
    return parts


def svg_run(row, column, text, style):
    x, y = MARGIN + column * CELL_WIDTH, MARGIN + row * CELL_HEIGHT
    width = len(text) * CELL_WIDTH
    color = style.get("color", DIM if style.get("dim") else FOREGROUND)
    parts = []
    if style.get("reverse"):
        parts.append(f'<rect x="{x:.1f}" y="{y}" width="{width:.1f}" height="{CELL_HEIGHT}" '
                     f'fill="{color}"/>')
        color = BACKGROUND
    parts += svg_lines(row, column, text, color)
    text = "".join(" " if glyph in LINES else glyph for glyph in text)
    stripped = text.strip()
    if stripped:
        x += (len(text) - len(text.lstrip())) * CELL_WIDTH
        weight = ' font-weight="bold"' if style.get("bold") else ""
        # textLength keeps the columns aligned with any font.
        parts.append(f'<text x="{x:.1f}" y="{y + 13}" fill="{color}"{weight} '
                     f'textLength="{len(stripped) * CELL_WIDTH:.1f}">{escape(stripped)}</text>')
    return parts


def to_svg(capture):
    width = 2 * MARGIN + COLS * CELL_WIDTH
    height = 2 * MARGIN + ROWS * CELL_HEIGHT
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {height}" '
             f'width="{width:.0f}" height="{height}" xml:space="preserve" font-size="14" '
             'font-family="\'DejaVu Sans Mono\', Menlo, Consolas, monospace">',
             f'<rect width="100%" height="100%" rx="8" fill="{BACKGROUND}"/>']
    style = {}
    for row, line in enumerate(capture.split("\n")[:ROWS]):
        for column, text, look in runs_of(line, style):
            # Skip runs of blanks.
            for piece in re.finditer(r"[─━│┌┐└┘]+|[^\s─━│┌┐└┘]+(?: [^\s─━│┌┐└┘]+)*" if not look.get("reverse") else r".+",
                                     text):
                parts += svg_run(row, column + piece.start(), piece.group(), look)
    return "\n".join([*parts, "</svg>", ""])


def main():
    build = Path(sys.argv[1] if len(sys.argv) > 1 else ROOT / "build").resolve()
    PICTURES.mkdir(exist_ok=True)
    for model, steps in SCENES.items():
        tmux = Tmux(model, f"env LC_ALL=C.UTF-8 TERM=tmux-256color {build}/vdev run {model}")
        try:
            time.sleep(1)
            tmux.press(steps)
            capture = tmux.capture()
        finally:
            tmux.close()
        path = PICTURES / f"vdev-{model.lower()}.svg"
        path.write_text(to_svg(capture), encoding="utf-8")
        print(path.relative_to(ROOT))


if __name__ == "__main__":
    main()
