"""Building large models from Python: a chain of n nodes (add_node,
add_arc, set_node_definition, each timed on its own) and one node with s
outcomes (add_outcome, then reading it back from the XML network format and
from the .net text format). Each row doubles the size, so linear work shows
as a doubling of the time and quadratic work as a quadrupling.

    PYTHONPATH=build/release/python /usr/bin/python3 bench/bench_build.py

Times are in milliseconds of wall time, best of three runs."""
import os
import tempfile
import time

import pyquarn
from pyquarn import NodeType


def best_of(action, runs=3):
    best = None
    for _ in range(runs):
        times = action()
        best = times if best is None else [min(a, b) for a, b in zip(best, times)]
    return best


def chain(n):
    net = pyquarn.Network()
    t0 = time.perf_counter()
    ids = ["n%d" % i for i in range(n)]
    for i in ids:
        net.add_node(NodeType.CPT, i)
    t1 = time.perf_counter()
    for a, b in zip(ids, ids[1:]):
        net.add_arc(a, b)
    t2 = time.perf_counter()
    child = [0.7, 0.3, 0.2, 0.8]
    net.set_node_definition(ids[0], [0.5, 0.5])
    for i in ids[1:]:
        net.set_node_definition(i, child)
    t3 = time.perf_counter()
    return [(t1 - t0) * 1e3, (t2 - t1) * 1e3, (t3 - t2) * 1e3, (t3 - t0) * 1e3]


def many_states(s, scratch):
    net = pyquarn.Network()
    net.add_node(NodeType.CPT, "X")
    t0 = time.perf_counter()
    for k in range(s - 2):
        net.add_outcome("X", "s%d" % k)
    t1 = time.perf_counter()
    xvek = os.path.join(scratch, "states.xvek")
    hugin = os.path.join(scratch, "states.net")
    net.write_file(xvek)
    net.write_file(hugin)
    t2 = time.perf_counter()
    pyquarn.Network().read_file(xvek)
    t3 = time.perf_counter()
    pyquarn.Network().read_file(hugin)
    t4 = time.perf_counter()
    return [(t1 - t0) * 1e3, (t3 - t2) * 1e3, (t4 - t3) * 1e3]


def main():
    print("chain of n nodes: ms per phase")
    print("%8s%12s%12s%12s%12s" % ("n", "add_node", "add_arc", "set_def", "total"))
    for n in (5000, 10000, 20000, 40000):
        print("%8d" % n + "".join("%12.1f" % t for t in best_of(lambda: chain(n))), flush=True)
    print("one node with s outcomes: ms")
    print("%8s%14s%12s%12s" % ("s", "add_outcome", "read .xvek", "read .net"))
    with tempfile.TemporaryDirectory() as scratch:
        for s in (5000, 10000, 20000, 40000):
            print("%8d" % s + "".join("%12.1f" % t for t in best_of(lambda: many_states(s, scratch))), flush=True)


if __name__ == "__main__":
    main()
