#!/usr/bin/env python3
"""Draws the resident memory of a soak through the host kit.

    draw_memory.py FIGURES PICTURE

FIGURES  what zel_kit_soak_host has printed
PICTURE  the SVG to write; the same figures give the same picture
"""
import csv
import sys

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt


def read(path):
    with open(path, encoding="utf-8", newline="") as file:
        rows = [row for row in csv.reader(file) if len(row) == 2 and row[0].isdigit()]
    return [int(row[0]) / 1e6 for row in rows], [int(row[1]) / 2**20 for row in rows]


def main():
    tasks, resident = read(sys.argv[1])
    plt.rcParams.update({"svg.hashsalt": "pictures", "font.family": "DejaVu Sans", "font.size": 10})
    figure, axes = plt.subplots(figsize=(8, 3))
    axes.plot(tasks, resident, color="#2f6db3")
    axes.set_ylim(0, max(resident) * 1.5)
    axes.set_xlabel("million tasks")
    axes.set_ylabel("resident memory, MiB")
    axes.set_title("Tasks through the host kit: the memory stays flat", loc="left", fontweight="bold", fontsize=11)
    axes.grid(axis="y", color="#e8e8e8")
    figure.tight_layout()
    figure.savefig(sys.argv[2], metadata={"Date": None})


if __name__ == "__main__":
    main()
