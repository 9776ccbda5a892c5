"""EM over records of alarm with a fifth of the cells missing: seconds per
iteration of the EM helper in one process, and of pyquarn.distributed on a
local cluster of two worker processes, and of Dask's local threaded
scheduler (two threads in this process, whose E-steps run without the GIL),
with the E-step's records per second.

    PYTHONPATH=build/release/python /usr/bin/python3 bench/bench_distributed.py [records] [partitions]
"""
import os
import sys
import time

import dask.dataframe as dd
from dask.distributed import Client, LocalCluster

import pyquarn
from pyquarn import distributed
from pyquarn._frames import from_pandas, sample_frame

HERE = os.path.dirname(os.path.abspath(__file__))
SHARED = os.environ.get("QUARN_SHARED_DIR", os.path.join(HERE, "..", "..", "shared"))
ITERATIONS = 3


def main():
    records = int(sys.argv[1]) if len(sys.argv) > 1 else 1_000_000
    partitions = int(sys.argv[2]) if len(sys.argv) > 2 else 20
    net = pyquarn.Network()
    net.read_file(os.path.join(SHARED, "networks", "xvek", "alarm.xvek"))
    frame = sample_frame(net, records, 0.2, seed=1)
    ddf = dd.from_pandas(frame, npartitions=partitions)
    # Both sides convert the records to DataSets once, outside the timing.
    pieces = [from_pandas(p.compute()) for p in ddf.to_delayed()]

    helper = net.distributed_helper_em()
    helper.uniformize()
    times = []
    c0 = time.process_time()
    for _ in range(ITERATIONS):
        t0 = time.perf_counter()
        total = None
        for piece in pieces:
            stats = helper.e_step(piece)
            total = stats if total is None else helper.combine(total, stats)
        helper.m_step(total)
        times.append(time.perf_counter() - t0)
    single = min(times)
    single_cpu = (time.process_time() - c0) / ITERATIONS

    with LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None) as cluster, \
            Client(cluster) as client:
        helper = net.distributed_helper_em()
        helper.uniformize()
        parts = distributed._persist(distributed._converted(distributed._matched(net, ddf, None, "bench")), client)
        helper.m_step(distributed._statistics(helper, parts, client, "bench"))  # workers warm
        times = []
        before = client.run(time.process_time)
        for _ in range(ITERATIONS):
            t0 = time.perf_counter()
            helper.m_step(distributed._statistics(helper, parts, client, "bench"))
            times.append(time.perf_counter() - t0)
        after = client.run(time.process_time)
        spread = min(times)
        spread_cpu = max(after[w] - before[w] for w in after) / ITERATIONS

    import dask
    with dask.config.set(scheduler="threads", num_workers=2):
        helper = net.distributed_helper_em()
        helper.uniformize()
        parts = distributed._persist(distributed._converted(distributed._matched(net, ddf, None, "bench")), None)
        helper.m_step(distributed._statistics(helper, parts, None, "bench"))
        times = []
        c0 = time.process_time()
        for _ in range(ITERATIONS):
            t0 = time.perf_counter()
            helper.m_step(distributed._statistics(helper, parts, None, "bench"))
            times.append(time.perf_counter() - t0)
        threaded = min(times)
        threaded_cpu = (time.process_time() - c0) / ITERATIONS

    # Wall time counts whatever else the machine runs; CPU time (of this
    # process, or of the busiest worker) does not.
    print("| records | workers | s/iteration (wall) | s/iteration (CPU) | records/s (CPU) |")
    print("|---:|---:|---:|---:|---:|")
    print(f"| {records:,} | 1 (helper, one process) | {single:.2f} | {single_cpu:.2f} | {records / single_cpu:,.0f} |")
    print(f"| {records:,} | 2 (local cluster) | {spread:.2f} | {spread_cpu:.2f} | {records / spread_cpu:,.0f} |")
    print(f"| {records:,} | 2 (threads, one process) | {threaded:.2f} | {threaded_cpu:.2f} | "
          f"{records / threaded_cpu:,.0f} |")
    print(f"cluster / (one process / 2): wall {spread / (single / 2):.2f}, CPU {spread_cpu / (single_cpu / 2):.2f}; "
          f"threads / (one process / 2): wall {threaded / (single / 2):.2f}")


if __name__ == "__main__":
    main()
