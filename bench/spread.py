# SPDX-License-Identifier: MIT
"""How the benchmarks report a figure that was measured several times."""

import statistics


def spread(values):
    return {"median": statistics.median(values), "least": min(values), "most": max(values),
            "values": values}


def summary(of_one):
    """Returns what a table shows of it: everything but the single values."""
    return {name: of_one[name] for name in ("median", "least", "most")}
