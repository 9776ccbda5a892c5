"""Noisy-MAX strengths, synchronization and expanded tables; DeMorgan prior,
parent types and weights."""
import math
import random

import pytest

import pyquarn
from pyquarn import BayesianAlgorithmType, DeMorganParentType, NodeType

from conftest import describe, quarn_error


@pytest.fixture
def canon():
    """N: noisy-MAX (n0, n1, n2) with parents A (2 outcomes) and B (3);
    D: DeMorgan with DeMorgan parents P and Q."""
    net = pyquarn.Network()
    n = net.add_node(NodeType.NOISY_MAX, "N")
    net.add_outcome(n, "n2")
    a = net.add_node(NodeType.CPT, "A")
    b = net.add_node(NodeType.CPT, "B")
    net.add_outcome(b, "b2")
    net.add_arc(a, n)
    net.add_arc(b, n)
    d = net.add_node(NodeType.DEMORGAN, "D")
    p = net.add_node(NodeType.DEMORGAN, "P")
    q = net.add_node(NodeType.DEMORGAN, "Q")
    net.add_arc(p, d)
    net.add_arc(q, d)
    return net, {"N": n, "A": a, "B": b, "D": d, "P": p, "Q": q}


def columns(items, n):
    return [items[i:i + n] for i in range(0, len(items), n)]


def test_strengths_by_every_form_and_their_effect(canon):
    net, h = canon
    assert net.get_noisy_parent_strengths(h["N"], 1) == [0, 1, 2]
    assert net.get_noisy_parent_strengths("N", "A") == [0, 1]
    # A: strong (0.7, 0.2, 0.1); B: outcome 0 (0.5, 0.5, 0), outcome 1 (0, 0.5, 0.5); leak (0, 0, 1).
    net.set_node_definition("N", [0.7, 0.2, 0.1, 0, 0, 1,
                                  0.5, 0.5, 0, 0, 0.5, 0.5, 0, 0, 1,
                                  0, 0, 1])
    table = columns(net.get_noisy_expanded_definition("N"), 3)
    assert len(table) == 6
    assert table[5] == pytest.approx([0, 0, 1])          # A weak, B weakest
    assert table[3] == pytest.approx([0.5, 0.5, 0])      # A weak, B in 0
    assert table[0] == pytest.approx([0.85, 0.15, 0])    # max of A strong and B in 0
    # B's weakest outcome becomes 0: its columns now stand for outcomes 2, 1, 0.
    net.set_noisy_parent_strengths(h["N"], "B", [2, 1, 0])
    assert net.get_noisy_parent_strengths("N", 1) == [2, 1, 0]
    assert not net.is_noisy_synchronized("N")
    table = columns(net.get_noisy_expanded_definition(h["N"]), 3)
    assert table[3] == pytest.approx([0, 0, 1])
    assert table[5] == pytest.approx([0.5, 0.5, 0])
    net.set_noisy_parent_strengths("N", 0, [1, 0])
    assert net.get_noisy_parent_strengths(h["N"], "A") == [1, 0]


def test_expanded_state_and_synchronization(canon):
    net, h = canon
    net.get_noisy_expanded_definition("N")
    assert net.is_noisy_expanded(h["N"])
    net.set_noisy_parent_strengths("N", "B", [1, 0, 2])
    assert not net.is_noisy_expanded("N")
    net.set_noisy_synchronized("N", True)
    assert net.is_noisy_synchronized(h["N"])
    assert net.get_noisy_parent_strengths("N", "B") == [0, 1, 2]
    net.set_noisy_synchronized(h["N"], False)
    assert not net.is_noisy_synchronized("N")


def test_demorgan_parameters(canon):
    net, h = canon
    assert (net.get_de_morgan_prior_belief("D"), net.get_de_morgan_parent_type("D", 0)) == (0.5, DeMorganParentType.CAUSE)
    net.set_de_morgan_prior_belief(h["D"], 0.1)
    net.set_de_morgan_parent_type("D", "Q", DeMorganParentType.INHIBITOR)
    net.set_de_morgan_parent_weight(h["D"], 0, 0.25)
    net.set_de_morgan_parent_weight("D", "Q", 0.75)
    assert (net.get_de_morgan_prior_belief(h["D"]), net.get_de_morgan_parent_type(h["D"], "Q"),
            net.get_de_morgan_parent_type(h["D"], "P"), net.get_de_morgan_parent_weight("D", "P"),
            net.get_de_morgan_parent_weight(h["D"], 1)) == (0.1, DeMorganParentType.INHIBITOR,
                                                             DeMorganParentType.CAUSE, 0.25, 0.75)
    # The stored parameters: parent weights, then the prior.
    assert net.get_node_definition("D") == [0.25, 0.75, 0.1]


@pytest.mark.parametrize("call, code, fragment", [
    (lambda n: n.set_noisy_parent_strengths("N", 1, [0, 0, 2]), -2, "every outcome of parent 'B'"),
    (lambda n: n.set_noisy_parent_strengths("N", 1, [0, 1]), -2, "exactly once"),
    (lambda n: n.set_noisy_parent_strengths("N", 2, [0, 1]), -2, "Invalid parent index 2 for node 'N'"),
    (lambda n: n.set_noisy_parent_strengths("N", "D", [0, 1]), -2, "Node 'D' is not a parent of node 'N'"),
    (lambda n: n.set_noisy_parent_strengths("N", "X", [0, 1]), -3, "Invalid node handle"),
    (lambda n: n.get_noisy_parent_strengths("N", -1), -2, "Invalid parent index -1"),
    (lambda n: n.set_noisy_parent_strengths("D", 0, [0, 1]), -51, "Node 'D' is not a noisy-MAX node"),
    (lambda n: n.set_noisy_synchronized("A", True), -51, "Node 'A' is not a noisy-MAX node"),
    (lambda n: n.get_noisy_expanded_definition("D"), -51, "Node 'D' is not a noisy node"),
    (lambda n: n.set_de_morgan_prior_belief("D", 1.5), -2, "Prior belief must be within [0, 1]"),
    (lambda n: n.set_de_morgan_parent_weight("D", 0, -0.5), -2, "Parent weight must be within [0, 1]"),
    (lambda n: n.set_de_morgan_parent_weight("D", 2, 0.5), -2,
     "QUARN Error -2 in function Network.SetDeMorganParentWeight. Invalid parent index 2 for node 'D'"),
    (lambda n: n.set_de_morgan_parent_type("N", 0, DeMorganParentType.BARRIER), -51, "is not a DeMorgan node"),
    (lambda n: n.get_de_morgan_prior_belief(99), -3, "Invalid node handle: 99"),
    (lambda n: n.add_outcome("D", "extra"), -51, None),
    (lambda n: n.delete_outcome("D", 0), -51, None),
])
def test_bad_input_raises_and_changes_nothing(canon, call, code, fragment):
    net, _ = canon
    net.set_node_definition("N", [0.7, 0.2, 0.1, 0, 0, 1,
                                  0.5, 0.5, 0, 0, 0.5, 0.5, 0, 0, 1,
                                  0.2, 0.3, 0.5])
    before = describe(net)
    strengths = net.get_noisy_parent_strengths("N", "B")
    expanded = net.get_noisy_expanded_definition("N")
    with quarn_error(code, contains=fragment):
        call(net)
    # The picture holds the DeMorgan weights and prior among the definitions.
    assert describe(net) == before
    assert net.get_noisy_parent_strengths("N", "B") == strengths
    assert net.get_noisy_expanded_definition("N") == expanded


def build_noisy_or(net, k, seed):
    """Y: binary noisy-MAX over k independent binary roots P0..; returns the
    roots' priors of their first outcome, their strengths and the leak."""
    rng = random.Random(seed)
    y = net.add_node(NodeType.NOISY_MAX, "Y")
    priors = [rng.uniform(0.05, 0.6) for _ in range(k)]
    strengths = [rng.uniform(0.05, 0.3) for _ in range(k)]
    for j, q in enumerate(priors):
        p = net.add_node(NodeType.CPT, "P%d" % j)
        net.set_node_definition(p, [q, 1 - q])
        net.add_arc(p, y)
    net.set_node_definition(y, [x for s in strengths for x in (s, 1 - s, 0.0, 1.0)] + [0.02, 0.98])
    return priors, strengths, 0.02


@pytest.mark.parametrize("algorithm", [BayesianAlgorithmType.LAURITZEN, BayesianAlgorithmType.PEARL])
def test_noisy_max_too_large_for_a_table_is_decomposed(net, algorithm):
    # 30 parents: the table would have 2^31 entries.
    priors, strengths, leak = build_noisy_or(net, 30, 7)

    def absent(skip=None):  # closed form of P(Y not caused), parent skip left out
        return (1 - leak) * math.prod(1 - q * s for j, (q, s) in enumerate(zip(priors, strengths)) if j != skip)
    net.set_bayesian_algorithm(algorithm)
    net.update_beliefs()
    assert net.get_node_value("Y") == pytest.approx([1 - absent(), absent()], abs=1e-12)
    net.set_evidence("Y", 0)
    net.update_beliefs()
    for j in (0, 17, 29):
        want = priors[j] * (1 - (1 - strengths[j]) * absent(j)) / (1 - absent())
        assert net.get_node_value("P%d" % j) == pytest.approx([want, 1 - want], abs=1e-12)
    with quarn_error(-42, text="QUARN Error -42 in function Network.GetNoisyExpandedDefinition. Table too large: "
                               "a probability table would have more than 2147483647 entries"):
        net.get_noisy_expanded_definition("Y")
