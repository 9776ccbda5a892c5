"""Analysis from Python, checked through other methods of the network, and
the refusal of bad input with the network left as it was."""
import copy
import math

import pytest

import pyquarn
from pyquarn import NodeType
from conftest import shared_network
from describe_util import assert_refused


def prob_of(net, assignment):
    """P(assignment, evidence) as the probability of evidence of a copy (0
    for an impossible one)."""
    c = copy.deepcopy(net)
    try:
        for node, outcome in assignment.items():
            if not c.is_evidence(node):
                c.set_evidence(node, outcome)
        return c.prob_evidence()
    except pyquarn.QUARNException:
        return 0.0


@pytest.fixture
def chain():
    """A -> B with P(A) = (.3, .7) and P(B | A) = (.9, .1 | .2, .8)."""
    net = pyquarn.Network()
    net.add_node(NodeType.CPT, "A")
    net.add_node(NodeType.CPT, "B")
    net.add_arc("A", "B")
    net.set_node_definition("A", [0.3, 0.7])
    net.set_node_definition("B", [0.9, 0.1, 0.2, 0.8])
    return net


@pytest.mark.parametrize("name", ["asia", "alarm", "insurance"])
def test_explanations_have_the_probability_of_their_assignment(name):
    net = shared_network(name)
    ids = net.get_all_node_ids()
    prior = net.most_probable_explanation()
    for i in range(0, len(ids), 4):
        net.set_evidence(ids[i], prior.outcome_ids[i])
    r = net.most_probable_explanation()
    assert r.node_ids == ids
    assert r.as_dict() == {n: net.get_outcome_id(n, o) for n, o in zip(ids, r.outcome_indices)}
    assert all(r.outcome_indices[i] == net.get_evidence(ids[i]) for i in range(0, len(ids), 4))
    assert r.probability == pytest.approx(prob_of(net, r.as_dict()), rel=1e-12)
    assert r.log_probability == pytest.approx(math.log(r.probability), rel=1e-12)
    # MAP over three nodes: the best of every assignment's probability.
    nodes = ids[1:4]
    exact = net.exact_map(nodes)
    states = [net.get_outcome_ids(n) for n in nodes]
    best = max(prob_of(net, {nodes[0]: a, nodes[1]: b, nodes[2]: c})
               for a in states[0] for b in states[1] for c in states[2])
    assert exact.probability == pytest.approx(best, rel=1e-12)
    annealed = net.annealed_map([net.get_node(n) for n in nodes], pyquarn.AnnealedMapTuning(stop_after=500))
    assert annealed.probability == pytest.approx(best, rel=1e-12)
    assert annealed.probability == pytest.approx(prob_of(net, annealed.as_dict()), rel=1e-12)


def test_sensitivity_matches_the_closed_form(chain):
    chain.set_evidence("B", 1)
    res = chain.calc_sensitivity()
    assert [(n.target_id, n.node_id) for n in res.nodes] == [("A", "A"), ("A", "B"), ("B", "A"), ("B", "B")]
    # P(a0 | b1) = .03 / (.03 + .7 (1 - t)) with t = P(b0 | a1) = .2.
    assert res.nodes[1].derivatives[2] == pytest.approx(0.03 * 0.7 / (0.03 + 0.7 * 0.8) ** 2, rel=1e-12)
    top = res.top(3)
    assert [abs(t[4]) for t in top] == sorted((abs(t[4]) for t in top), reverse=True)
    assert abs(top[0][4]) == max(n.max_abs_derivative for n in res.nodes)
    node_id, index, target_id, outcome, value = top[0]
    ns = next(n for n in res.nodes if (n.node_id, n.target_id) == (node_id, target_id))
    assert ns.derivatives[outcome * len(chain.get_node_definition(node_id)) + index] == value


def test_mutual_information(chain):
    voi = pyquarn.ValueOfInfo(chain)
    voi.set_target("A")
    voi.add_node("B")
    voi.update()
    assert voi.get_node_ids() == ["B"]
    joint = {(0, 0): 0.27, (0, 1): 0.03, (1, 0): 0.14, (1, 1): 0.56}
    pa, pb = [0.3, 0.7], [0.41, 0.59]
    mi = sum(p * math.log2(p / (pa[a] * pb[b])) for (a, b), p in joint.items())
    assert voi.get_values() == [pytest.approx(mi, rel=1e-12)]
    assert voi.get_joint_value() == pytest.approx(mi, rel=1e-12)


def test_bad_input_is_refused_and_leaves_the_network_as_it_was(chain):
    net = chain
    net.set_evidence("B", 0)
    assert_refused(net, -3, net.exact_map, ["A", "Nope"])
    assert_refused(net, -3, net.annealed_map, [0, 9])
    assert_refused(net, -2, net.exact_map, ["A", "A"])
    assert_refused(net, -2, net.exact_map, ["B"])
    assert_refused(net, -2, net.annealed_map, ["A"], pyquarn.AnnealedMapTuning(t_min=1.0))
    assert_refused(net, -2, net.annealed_map, ["A"], pyquarn.AnnealedMapTuning(iterations_per_temperature=-1))
    assert_refused(net, -3, net.marginalize_node, "Nope")
    assert_refused(net, -3, net.marginalize_node, 7)
    assert_refused(net, -51, net.marginalize_node, "B")
    assert_refused(net, -51, net.marginalize_node, net.add_node(NodeType.DECISION, "D"))
    net.delete_node("D")
    with pytest.raises(TypeError):
        net.exact_map("A")
    voi = pyquarn.ValueOfInfo(net)
    voi.add_node("A")
    assert_refused(net, -2, voi.update)
    assert_refused(net, -3, voi.set_target, "Nope")
    assert_refused(net, -51, voi.set_decision, "A")
    with pytest.raises(TypeError):
        voi.add_node(1.5)
    net.set_node_definition("B", [1.0, 0.0, 1.0, 0.0])
    net.set_relevance_enabled(False)
    net.clear_all_evidence()
    net.set_evidence("B", 1)
    assert "All potential entries are zeros" in assert_refused(net, -43, net.most_probable_explanation)
    assert_refused(net, -43, net.exact_map, ["A"])
