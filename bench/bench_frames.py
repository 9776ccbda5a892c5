"""Timings of the numpy and pandas layer on alarm: batch inference over
DataFrames of evidence rows (the frame conversions included), and the cost
of the array accessors beside the list forms.

    PYTHONPATH=build/release/python /usr/bin/python3 bench/bench_frames.py [rows]

Times are the best of several runs."""
import os
import sys
import time

import numpy as np
import pandas as pd

import pyquarn

HERE = os.path.dirname(os.path.abspath(__file__))
SHARED = os.environ.get("QUARN_SHARED_DIR", os.path.join(HERE, "..", "..", "shared"))


def best(action, runs):
    times = []
    for _ in range(runs):
        t0 = time.perf_counter()
        action()
        times.append(time.perf_counter() - t0)
    return min(times)


def evidence_frame(net, rows, observed):
    """Sampled records, each cell observed with the given probability."""
    frame = net.sample(rows, seed=1, as_dataframe=True)
    keep = np.random.default_rng(1).random(frame.shape) < observed
    return frame.astype(object).where(keep)


def main(argv):
    rows = int(argv[0]) if argv else 10000
    net = pyquarn.Network()
    net.read_file(os.path.join(SHARED, "networks", "xvek", "alarm.xvek"))
    print("Batch inference on alarm, %d rows (seconds, best of 3)" % rows)
    print("%-34s %10s %12s" % ("case", "seconds", "us per row"))
    for observed in (0.1, 0.3):
        frame = evidence_frame(net, rows, observed)
        for kind in ("posteriors", "mpe"):
            t = best(lambda: net.query_batch(frame, kind=kind), 3)
            print("%-34s %10.3f %12.1f" % ("%s, %d%% of cells observed" % (kind, observed * 100), t, t / rows * 1e6))

    print()
    print("Accessors on alarm (microseconds per call, best of 5 x 2000)")
    print("%-34s %10s %10s" % ("accessor", "list", "array"))
    net.update_beliefs()
    pairs = [("node value", net.get_node_value, net.get_node_value_array),
             ("definition (HR, 3 parents)", net.get_node_definition, net.get_node_definition_array)]
    for name, as_list, as_array in pairs:
        node = "HR"
        t_list = best(lambda: [as_list(node) for _ in range(2000)], 5) / 2000 * 1e6
        t_array = best(lambda: [as_array(node) for _ in range(2000)], 5) / 2000 * 1e6
        print("%-34s %10.2f %10.2f" % (name, t_list, t_array))
    table = net.get_node_definition_array("HR")
    t_list = best(lambda: [net.set_node_definition("HR", table.ravel().tolist()) for _ in range(2000)], 5)
    t_array = best(lambda: [net.set_node_definition_array("HR", table) for _ in range(2000)], 5)
    print("%-34s %10.2f %10.2f" % ("set definition (HR)", t_list / 2000 * 1e6, t_array / 2000 * 1e6))


if __name__ == "__main__":
    main(sys.argv[1:])
