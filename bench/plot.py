#!/usr/bin/python3
# SPDX-License-Identifier: MIT
"""Draws how cost grows with chips, frames and spacing: plot.py RESULTS_FOLDER PICTURE"""
import json
import pathlib
import sys

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt

# Axis of the points, labels, scale of the time.
PANELS = [
    ("chips", "chips, run of 20 frames", "µs per frame", "log"),
    ("frames", "frames of the run, one chip", "µs per frame", "linear"),
    ("spacing", "spacing, one chip, one frame", "ms per frame", "log"),
]


def points(folder):
    """(axis, x) to the times of one frame: the library's, and that of the copies alone, µs."""
    found = {}
    for file in folder.glob("*.json"):
        for row in json.loads(file.read_text())["benchmarks"]:
            name = row["name"].split("/")
            if name[0] == "scale" and "oursUs" in row:
                found.setdefault(name[1], []).append((int(name[2]), row["oursUs"], row["limitUs"]))
    return {axis: sorted(rows) for axis, rows in found.items()}


def draw(found, picture):
    plt.rcParams["svg.hashsalt"] = "performance"
    figure, panels = plt.subplots(1, len(PANELS), figsize=(11, 3.4), constrained_layout=True)
    for panel, (axis, label, unit, scaling) in zip(panels, PANELS):
        x, ours, limit = zip(*found[axis])
        scale = 1e-3 if unit.startswith("ms") else 1.0
        panel.plot(x, [value * scale for value in limit], "o--", color="0.6", label="the copies alone")
        panel.plot(x, [value * scale for value in ours], "o-", color="C0", label="run of the library")
        panel.set_xscale("log")
        panel.set_yscale(scaling)
        if scaling == "linear":
            panel.set_ylim(bottom=0)
        panel.set_xticks(x, [str(value) for value in x])
        panel.minorticks_off()
        panel.set_xlabel(label)
        panel.set_ylabel(unit)
        panel.grid(alpha=0.3)
    panels[0].legend()
    figure.savefig(picture, metadata={"Date": None})


draw(points(pathlib.Path(sys.argv[1])), sys.argv[2])
