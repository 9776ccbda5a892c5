"""Learns alarm's tables by EM from 1,000,000 generated records (a fifth of
the cells missing) split into 20 partitions, on a local Dask cluster of two
worker processes, or on a real cluster given its scheduler address:

    /usr/bin/python3 examples/distributed_em.py [--records N] [--partitions P]
                                                [--scheduler tcp://host:8786]

Every worker needs pyquarn importable (same version as here)."""
import argparse
import os
import time

import dask.dataframe as dd
from dask.distributed import Client, LocalCluster

import pyquarn
from pyquarn import distributed
from pyquarn._frames import sample_frame

HERE = os.path.dirname(os.path.abspath(__file__))
ALARM = os.path.join(HERE, "..", "..", "shared", "networks", "xvek", "alarm.xvek")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--records", type=int, default=1_000_000)
    parser.add_argument("--partitions", type=int, default=20)
    parser.add_argument("--scheduler", help="address of a running Dask scheduler")
    parser.add_argument("--network", default=os.environ.get("QUARN_ALARM", ALARM))
    args = parser.parse_args()

    truth = pyquarn.Network()
    truth.read_file(args.network)
    frame = dd.from_pandas(sample_frame(truth, args.records, 0.2, seed=1), npartitions=args.partitions)
    print(f"{args.records:,} records of {len(truth.get_all_node_ids())} columns in {args.partitions} partitions")

    cluster = None if args.scheduler else LocalCluster(n_workers=2, threads_per_worker=1, dashboard_address=None)
    client = Client(args.scheduler or cluster)
    try:
        net = pyquarn.Network()
        net.read_file(args.network)
        last = [time.perf_counter()]

        def progress(iteration, ll):
            now = time.perf_counter()
            print(f"iteration {iteration}: log-likelihood {ll:.1f} in {now - last[0]:.2f} s")
            last[0] = now

        ll = distributed.fit_em(net, frame, client=client, uniformize=True, progress=progress)
        worst = max(abs(a - b) for n in net.get_all_node_ids()
                    for a, b in zip(net.get_node_definition(n), truth.get_node_definition(n)))
        print(f"learnt; log-likelihood {ll:.1f}; largest difference from the true tables {worst:.4f}")
    finally:
        client.close()
        if cluster is not None:
            cluster.close()


if __name__ == "__main__":
    main()
