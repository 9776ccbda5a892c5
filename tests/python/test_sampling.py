"""Belief updating by the stochastic sampling and propagation algorithms."""
import math

import pytest

import pyquarn
from pyquarn import BayesianAlgorithmType as Alg
from pyquarn import NodeType

from conftest import build_impossible, quarn_error

SAMPLERS = [Alg.HENRION, Alg.L_SAMPLING, Alg.SELF_IMPORTANCE, Alg.HEURISTIC_IMPORTANCE, Alg.BACK_SAMPLING,
            Alg.AIS_SAMPLING, Alg.EPIS_SAMPLING]
NO_SAMPLES = "No useful samples have been generated for some of nodes."


def build_loop(net):
    """A -> B -> C, A -> C, D -> C, with evidence on C; B has three states."""
    a = net.add_node(NodeType.CPT, "A")
    b = net.add_node(NodeType.CPT, "B")
    net.add_outcome(b, "extra")
    c = net.add_node(NodeType.CPT, "C")
    d = net.add_node(NodeType.CPT, "D")
    for parent in (a, b, d):
        net.add_arc(parent, c)
    net.add_arc(a, b)
    net.set_node_definition(a, [0.3, 0.7])
    net.set_node_definition(b, [0.6, 0.3, 0.1, 0.05, 0.15, 0.8])
    net.set_node_definition(d, [0.9, 0.1])
    net.set_node_definition(c, [0.9, 0.1, 0.2, 0.8, 0.7, 0.3, 0.4, 0.6, 0.5, 0.5, 0.1, 0.9,
                                0.3, 0.7, 0.95, 0.05, 0.6, 0.4, 0.25, 0.75, 0.85, 0.15, 0.02, 0.98])
    net.set_evidence(c, 1)
    return [a, b, d]


def beliefs(net, handles):
    return [net.get_node_value(h) for h in handles]


@pytest.fixture
def loop():
    net = pyquarn.Network()
    handles = build_loop(net)
    net.set_bayesian_algorithm(Alg.LAURITZEN)
    net.update_beliefs()
    return net, handles, beliefs(net, handles), net.prob_evidence()


@pytest.mark.parametrize("algorithm", SAMPLERS + [Alg.PEARL, Alg.LBP])
def test_estimates_are_close_to_the_exact_posteriors(loop, algorithm):
    net, handles, exact, p_evidence = loop
    samples = 20000
    net.set_sample_count(samples)
    net.set_rand_seed(5)
    net.set_bayesian_algorithm(algorithm)
    net.update_beliefs()
    if algorithm == Alg.PEARL:
        tolerance = 1e-12
    elif algorithm == Alg.LBP:
        tolerance = 0.15  # an approximation on this tight loop
    else:
        tolerance = 5 * 0.5 / math.sqrt(samples * p_evidence)
    for got, want in zip(beliefs(net, handles), exact):
        assert got == pytest.approx(want, abs=tolerance)
        assert sum(got) == pytest.approx(1.0, abs=1e-12)


@pytest.mark.parametrize("algorithm", SAMPLERS)
def test_the_seed_decides_the_estimate(loop, algorithm):
    net, handles, _, _ = loop
    net.set_sample_count(500)
    net.set_bayesian_algorithm(algorithm)
    runs = {}
    for seed in (3, 3, 4):
        net.set_rand_seed(seed)
        net.update_beliefs()
        runs.setdefault(seed, []).append(beliefs(net, handles))
    assert runs[3][0] == runs[3][1]
    assert runs[4][0] != runs[3][0]


@pytest.mark.parametrize("algorithm", SAMPLERS + [Alg.LBP])
def test_impossible_evidence_raises_and_leaves_the_network_usable(net, algorithm):
    build_impossible(net)
    net.set_bayesian_algorithm(algorithm)
    net.set_sample_count(200)
    with quarn_error(-5, contains=NO_SAMPLES):
        net.update_beliefs()
    assert net.get_evidence("A") == 0
    assert net.get_evidence("C") == 1
    net.clear_evidence("C")
    net.update_beliefs()
    assert net.is_value_valid("C")
    assert net.get_node_value("C") == [1.0, 0.0]


def reference_loopy(net, sweeps=5000, tolerance=1e-13):
    """Loopy belief propagation written out from its definition: pi and
    lambda messages on every arc, all updated at once from the previous
    round (a flooding schedule), until they stop moving. Returns the
    beliefs by handle."""
    import itertools
    nodes = net.get_all_nodes()
    states = {h: net.get_outcome_count(h) for h in nodes}
    parents = {h: net.get_parents(h) for h in nodes}
    children = {h: net.get_children(h) for h in nodes}
    table = {h: net.get_node_definition(h) for h in nodes}
    indicator = {h: [1.0 if not net.is_evidence(h) or s == net.get_evidence(h) else 0.0 for s in range(states[h])]
                 for h in nodes}

    def normalised(v):
        total = sum(v)
        return [x / total for x in v] if total > 0 else v

    def columns(x):
        """(parent states, conditional distribution) for every column."""
        n = states[x]
        combos = itertools.product(*(range(states[p]) for p in parents[x]))
        return [(u, table[x][i * n:(i + 1) * n]) for i, u in enumerate(combos)]

    pi = {(p, c): [1.0 / states[p]] * states[p] for c in nodes for p in parents[c]}
    lam = {(p, c): [1.0] * states[p] for c in nodes for p in parents[c]}

    def support(x, pi_in):
        out = [0.0] * states[x]
        for u, column in columns(x):
            w = math.prod(pi_in[(p, x)][s] for p, s in zip(parents[x], u))
            out = [a + w * b for a, b in zip(out, column)]
        return out

    def likelihood(x, lam_in, skip=None):
        return [indicator[x][s] * math.prod(lam_in[(x, c)][s] for c in children[x] if c != skip)
                for s in range(states[x])]

    for _ in range(sweeps):
        new_pi, new_lam = {}, {}
        for x in nodes:
            px = support(x, pi)
            for c in children[x]:
                new_pi[(x, c)] = normalised([a * b for a, b in zip(px, likelihood(x, lam, c))])
            lx = likelihood(x, lam)
            for k, p in enumerate(parents[x]):
                msg = [0.0] * states[p]
                for u, column in columns(x):
                    w = math.prod(pi[(q, x)][s] for j, (q, s) in enumerate(zip(parents[x], u)) if j != k)
                    msg[u[k]] += w * sum(a * b for a, b in zip(lx, column))
                new_lam[(p, x)] = normalised(msg)
        change = max([abs(a - b) for key in pi for a, b in zip(pi[key], new_pi[key])] +
                     [abs(a - b) for key in lam for a, b in zip(lam[key], new_lam[key])] + [0.0])
        pi, lam = new_pi, new_lam
        if change < tolerance:
            break
    return {x: normalised([a * b for a, b in zip(support(x, pi), likelihood(x, lam))]) for x in nodes}


def build_diamonds(net):
    """Two stacked diamonds (A -> B, C -> D and D -> E, F -> G) whose tables
    make the parents of each join strongly dependent, so that loopy
    propagation is visibly off the exact posteriors."""
    ids = "ABCDEFG"
    h = {i: net.add_node(NodeType.CPT, i) for i in ids}
    for p, c in ["AB", "AC", "BD", "CD", "DE", "DF", "EG", "FG"]:
        net.add_arc(h[p], h[c])
    net.set_node_definition(h["A"], [0.3, 0.7])
    for child in "BCEF":
        net.set_node_definition(h[child], [0.95, 0.05, 0.1, 0.9])
    for join in "DG":
        net.set_node_definition(h[join], [0.9, 0.1, 0.4, 0.6, 0.3, 0.7, 0.05, 0.95])
    return h


@pytest.mark.parametrize("evidence", [{}, {"G": 0}, {"B": 1, "G": 0}])
def test_loopy_propagation_reaches_the_reference_fixed_point(net, evidence):
    h = build_diamonds(net)
    for node_id, state in evidence.items():
        net.set_evidence(node_id, state)
    net.update_beliefs()
    exact = {x: net.get_node_value(x) for x in h.values()}
    want = reference_loopy(net)
    net.set_bayesian_algorithm(Alg.LBP)
    for damping in (0.0, 0.5):
        net.set_lbp_params(pyquarn.LBPParams(damping=damping))
        net.update_beliefs()
        for x in h.values():
            assert net.get_node_value(x) == pytest.approx(want[x], abs=1e-7)
    # The loops make the fixed point differ from the exact posteriors.
    assert max(abs(a - b) for x in h.values() for a, b in zip(want[x], exact[x])) > 0.01


def test_loopy_propagation_parameters(net):
    build_diamonds(net)
    net.set_evidence("G", 0)
    assert net.get_lbp_params() == pyquarn.LBPParams()
    net.set_bayesian_algorithm(Alg.LBP)
    net.set_lbp_params(pyquarn.LBPParams(max_iterations=1, tolerance=0.0))
    net.update_beliefs()
    one_sweep = net.get_node_value("A")
    assert net.get_lbp_params() == pyquarn.LBPParams(1, 0.0, 0.0)
    for bad in (pyquarn.LBPParams(max_iterations=0), pyquarn.LBPParams(tolerance=-1.0),
                pyquarn.LBPParams(damping=1.0), pyquarn.LBPParams(damping=float("nan"))):
        with quarn_error(-4, contains="Invalid loopy propagation parameters"):
            net.set_lbp_params(bad)
        assert net.get_lbp_params() == pyquarn.LBPParams(1, 0.0, 0.0)
    net.set_lbp_params(pyquarn.LBPParams())
    net.update_beliefs()
    assert net.get_node_value("A") != pytest.approx(one_sweep, abs=1e-6)
    assert net.get_node_value("A") == pytest.approx(reference_loopy(net)[net.get_all_nodes()[0]], abs=1e-7)
