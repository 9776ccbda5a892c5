"""Networks made elsewhere: load the ALARM network from a classic BIF file,
compare exact beliefs with two samplers, and save the network in other
formats. Run from the repository, with ../shared beside it (or set
QUARN_SHARED_DIR)."""

import os
import sys
import tempfile
import time

import pyquarn
from pyquarn import BayesianAlgorithmType as Alg

HERE = os.path.dirname(os.path.abspath(__file__))
SHARED = os.environ.get("QUARN_SHARED_DIR", os.path.join(HERE, "..", "..", "shared"))


def beliefs(net, algorithm, node_id):
    net.set_bayesian_algorithm(algorithm)
    start = time.perf_counter()
    net.update_beliefs()
    ms = (time.perf_counter() - start) * 1e3
    return net.get_node_value(node_id), ms


def main():
    path = os.path.join(SHARED, "networks", "bif", "alarm.bif")
    if not os.path.exists(path):
        sys.exit(f"no shared networks at {SHARED}")
    net = pyquarn.Network()
    net.read_file(path)
    print(f"{os.path.basename(path)}: {net.get_node_count()} nodes")

    net.set_evidence("HRBP", "HIGH")
    net.set_evidence("BP", "LOW")
    net.set_sample_count(20000)
    net.set_rand_seed(7)  # repeatable sampling
    target = "HYPOVOLEMIA"
    states = net.get_outcome_ids(target)
    exact, ms = beliefs(net, Alg.LAURITZEN, target)
    print(f"P({target} | HRBP=HIGH, BP=LOW), exact in {ms:.2f} ms: "
          + ", ".join(f"{s}={p:.4f}" for s, p in zip(states, exact)))
    for algorithm in (Alg.L_SAMPLING, Alg.EPIS_SAMPLING):
        approx, ms = beliefs(net, algorithm, target)
        err = max(abs(a - b) for a, b in zip(approx, exact))
        print(f"  {algorithm.name:<14} {ms:7.2f} ms, largest error {err:.4f}")

    with tempfile.TemporaryDirectory() as out:
        for ext in ("xvek", "net", "dne", "vek"):
            file = os.path.join(out, "alarm." + ext)
            net.write_file(file)
            back = pyquarn.Network()
            back.read_file(file)
            same = all(back.get_node_definition(n) == net.get_node_definition(n)
                       for n in net.get_all_node_ids())
            print(f"  saved as .{ext:<5} {os.path.getsize(file):7d} bytes, read back "
                  f"{'with identical tables' if same else 'WITH DIFFERENT TABLES'}")


if __name__ == "__main__":
    main()
