#!/usr/bin/env python3
"""Draws the resident memory of a soak through the host kit.

    draw_memory.py FIGURES PICTURE

FIGURES  what zel_kit_soak_host printed
PICTURE  the SVG to write; the same figures give the same picture
"""
import csv
import math
import os
import sys

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "scripts", "drawing"))
import theme
from theme import BLUE, plt


def read(path):
    with open(path, encoding="utf-8", newline="") as file:
        rows = [row for row in csv.reader(file) if len(row) == 2 and row[0].isdigit()]
    return [int(row[0]) / 1e6 for row in rows], [int(row[1]) / 2**20 for row in rows]


def main():
    tasks, resident = read(sys.argv[1])
    with plt.rc_context(theme.STYLE):
        figure, axes = plt.subplots(figsize=(6, 2.2))
        axes.plot(tasks, resident, color=BLUE)
        axes.set_ylim(0, max(resident) * 1.5)
        axes.set_xlim(0, max(tasks))
        axes.set_xlabel("million tasks")
        axes.set_ylabel("MiB")
        axes.set_title(f"Tasks through the host kit: resident memory below {math.ceil(max(resident))} MiB")
        theme.save(figure, sys.argv[2])


if __name__ == "__main__":
    main()
