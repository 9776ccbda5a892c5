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
