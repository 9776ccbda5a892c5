"""End-to-end timings from Python, one row per shared network: loading in
every format the shared folder holds, writing the XML network format, exact
inference without and with evidence, and the largest deviation from the
reference posteriors.

    PYTHONPATH=build/release/python /usr/bin/python3 bench/bench.py [names...]
    ... bench/bench.py --relevance [names...]
    ... bench/bench.py --approximate [names...]

--relevance times every evidence scenario of the reference files with
relevance reasoning on and off, after a first run of each. --approximate
runs every approximate algorithm on every scenario and prints its largest
deviation from the exact posteriors and its time.

Times are the best of several runs, in milliseconds of wall time (of CPU
time for --relevance)."""
import json
import os
import sys
import tempfile
import time

import pyquarn

HERE = os.path.dirname(os.path.abspath(__file__))
SHARED = os.environ.get("QUARN_SHARED_DIR", os.path.join(HERE, "..", "..", "shared"))
NETWORKS = os.path.join(SHARED, "networks")


def best_ms(action, budget=0.5, at_most=20):
    """Best wall time of action() in ms: runs until the budget is spent,
    at least twice and at most at_most times."""
    best = float("inf")
    spent = 0.0
    runs = 0
    while runs < 2 or (spent < budget and runs < at_most):
        t0 = time.perf_counter()
        action()
        dt = time.perf_counter() - t0
        best = min(best, dt)
        spent += dt
        runs += 1
    return best * 1e3


def load_ms(path, fmt=0):
    if not os.path.exists(path):
        return None

    def load():
        pyquarn.Network().read_file(path, format=fmt)
    return best_ms(load)


def reference(name):
    path = os.path.join(NETWORKS, "reference", name + ".json")
    if not os.path.exists(path):
        return None
    with open(path, encoding="utf-8") as f:
        return json.load(f)["scenarios"]


def networks_with_scenarios(names):
    """(name, network, reference scenarios) of each network that has them."""
    for name in names:
        scenarios = reference(name)
        if scenarios:
            net = pyquarn.Network()
            net.read_file(os.path.join(NETWORKS, "xvek", name + ".xvek"))
            yield name, net, scenarios


def worst_error(net, scenario):
    worst = 0.0
    for node_id, want in scenario["marginals"].items():
        got = net.get_node_value(node_id)
        worst = max(worst, max(abs(a - b) for a, b in zip(got, want)))
    return worst


def row(name, scratch):
    xvek = os.path.join(NETWORKS, "xvek", name + ".xvek")
    net = pyquarn.Network()
    net.read_file(xvek)
    out = os.path.join(scratch, name + ".xvek")
    cells = {
        "nodes": net.get_node_count(),
        "xvek": load_ms(xvek),
        "bif": load_ms(os.path.join(NETWORKS, "bif", name + ".bif")),
        "xmlbif": load_ms(os.path.join(NETWORKS, "xmlbif", name + ".xml"), 6),
        "net": load_ms(os.path.join(NETWORKS, "net", name + ".net")),
        "write": best_ms(lambda: net.write_file(out)),
    }
    scenarios = reference(name)

    # A root state the network allows (some tables give states probability 0).
    first = net.get_all_node_ids()[0]
    net.update_beliefs()
    state = max(range(net.get_outcome_count(first)), key=lambda i: net.get_node_value(first)[i])

    def update_plain():
        # Evidence set and taken back again, so the beliefs must be recomputed.
        net.set_evidence(first, state)
        net.clear_all_evidence()
        net.update_beliefs()
    cells["update"] = best_ms(update_plain)
    err = worst_error(net, scenarios[0]) if scenarios else None
    if scenarios and len(scenarios) > 1:
        evidence = scenarios[1]["evidence"]

        def update_evidence():
            net.clear_all_evidence()
            for node_id, state in evidence.items():
                net.set_evidence(node_id, state)
            net.update_beliefs()
        cells["evidence"] = best_ms(update_evidence)
        err = max(err, worst_error(net, scenarios[1]))
    else:
        cells["evidence"] = None
    cells["max err"] = err
    return cells


def set_scenario(net, scenario):
    net.clear_all_evidence()
    for node_id, state in scenario["evidence"].items():
        net.set_evidence(node_id, state)


def relevance_table(names):
    """Per scenario: update time with relevance on and off, each after a
    first run that compiles and caches what it can."""
    print("exact update per evidence scenario, ms of CPU time (best of several runs after a first one)")
    print("%-11s%5s%10s%10s%10s%10s" % ("network", "scen", "on", "off", "on/off", "max err"))
    for name, net, scenarios in networks_with_scenarios(names):
        for k, scenario in enumerate(scenarios):
            times = {True: float("inf"), False: float("inf")}
            err = 0.0
            # Runs with relevance on and off alternate, so that both see the
            # same load of the machine.
            spent, rounds = 0.0, 0
            while rounds < 4 or (spent < 1.0 and rounds < 12):
                for on in (True, False):
                    net.set_relevance_enabled(on)
                    set_scenario(net, scenario)
                    # CPU time of the process: on a shared machine wall time
                    # mostly measures the other processes.
                    t0 = time.process_time()
                    net.update_beliefs()
                    dt = time.process_time() - t0
                    spent += dt
                    if rounds > 0:
                        times[on] = min(times[on], dt * 1e3)
                    err = max(err, worst_error(net, scenario))
                rounds += 1
            print("%-11s%5d%10.2f%10.2f%10.2f%10.1e" % (name, k, times[True], times[False],
                                                       times[True] / times[False], err), flush=True)


APPROXIMATE = [
    ("logic", pyquarn.BayesianAlgorithmType.HENRION),
    ("likelihood", pyquarn.BayesianAlgorithmType.L_SAMPLING),
    ("self", pyquarn.BayesianAlgorithmType.SELF_IMPORTANCE),
    ("backward", pyquarn.BayesianAlgorithmType.BACK_SAMPLING),
    ("ais", pyquarn.BayesianAlgorithmType.AIS_SAMPLING),
    ("epis", pyquarn.BayesianAlgorithmType.EPIS_SAMPLING),
    ("lbp", pyquarn.BayesianAlgorithmType.LBP),
]


def approximate_table(names):
    """Per network and algorithm: the largest deviation from the exact
    posteriors over every scenario (the worst scenario's), the mean of the
    scenarios' largest deviations, the scenarios that failed, and the mean
    time of one update, at the network's default 10,000 samples."""
    print("approximate inference against the exact posteriors, every scenario of the reference file")
    print("%-11s%-11s%10s%10s%8s%12s" % ("network", "algorithm", "worst", "mean", "failed", "ms/update"))
    for name, net, scenarios in networks_with_scenarios(names):
        for label, algorithm in APPROXIMATE:
            net.set_bayesian_algorithm(algorithm)
            errors, failed, spent = [], 0, 0.0
            for scenario in scenarios:
                set_scenario(net, scenario)
                t0 = time.perf_counter()
                try:
                    net.update_beliefs()
                except pyquarn.QUARNException:
                    failed += 1
                    continue
                finally:
                    spent += time.perf_counter() - t0
                errors.append(worst_error(net, scenario))
            worst = "%10.1e" % max(errors) if errors else "%10s" % "-"
            mean = "%10.1e" % (sum(errors) / len(errors)) if errors else "%10s" % "-"
            print("%-11s%-11s%s%s%8d%12.1f" % (name, label, worst, mean, failed, spent * 1e3 / len(scenarios)),
                  flush=True)
        net.set_bayesian_algorithm(pyquarn.BayesianAlgorithmType.LAURITZEN)


def main(argv):
    mode = None
    if argv and argv[0] in ("--relevance", "--approximate"):
        mode, argv = argv[0], argv[1:]
    names = argv or sorted(f[:-5] for f in os.listdir(os.path.join(NETWORKS, "xvek")) if f.endswith(".xvek"))
    if mode == "--relevance":
        return relevance_table(names)
    if mode == "--approximate":
        return approximate_table(names)
    columns = ["nodes", "xvek", "bif", "xmlbif", "net", "write", "update", "evidence", "max err"]
    print("times in ms (best of several runs); loads by format, write of .xvek, exact update")
    print(("%-11s" % "network") + "".join("%10s" % c for c in columns))
    with tempfile.TemporaryDirectory() as scratch:
        for name in names:
            cells = row(name, scratch)
            line = "%-11s" % name
            for c in columns:
                v = cells[c]
                if v is None:
                    line += "%10s" % "-"
                elif c == "nodes":
                    line += "%10d" % v
                elif c == "max err":
                    line += "%10.1e" % v
                else:
                    line += "%10.2f" % v
            print(line, flush=True)


if __name__ == "__main__":
    main(sys.argv[1:])
