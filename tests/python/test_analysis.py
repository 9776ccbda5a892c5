"""Analysis from Python: most probable explanation, exact and annealed MAP,
sensitivity, node marginalization and value of information, checked against
independent computations through other methods of the network, and the
refusal of bad input with the network left as it was."""
import copy
import math
import os

import pytest

import pyquarn
from pyquarn import NodeType
from describe_util import assert_refused

XVEK = os.path.join(os.environ.get("QUARN_SHARED_DIR",
                                   os.path.join(os.path.dirname(__file__), "..", "..", "..", "shared")),
                    "networks", "xvek")


def shared(name):
    net = pyquarn.Network()
    net.read_file(os.path.join(XVEK, name + ".xvek"))
    return net


def prob_of(net, assignment):
    """P(assignment, evidence) as the probability of evidence of a copy."""
    c = copy.deepcopy(net)
    for node, outcome in assignment.items():
        if not c.is_evidence(node):
            c.set_evidence(node, outcome)
    return c.prob_evidence()


def chain():
    """A -> B with P(A) = (.3, .7) and P(B | A) = (.9, .1 | .2, .8)."""
    net = pyquarn.Network()
    a = net.add_node(NodeType.CPT, "A")
    b = net.add_node(NodeType.CPT, "B")
    net.add_arc(a, b)
    net.set_node_definition(a, [0.3, 0.7])
    net.set_node_definition(b, [0.9, 0.1, 0.2, 0.8])
    return net


@pytest.mark.parametrize("name", ["asia", "child", "alarm", "insurance"])
def test_mpe_probability_is_that_of_its_assignment(name):
    net = shared(name)
    ids = net.get_all_node_ids()
    prior = net.most_probable_explanation()
    # Evidence on every fourth node, at its outcome in the prior explanation.
    for i in range(0, len(ids), 4):
        net.set_evidence(ids[i], prior.outcome_ids[i])
    r = net.most_probable_explanation()
    assert r.node_ids == ids
    assert r.as_dict() == dict(zip(r.node_ids, r.outcome_ids))
    for i, node in enumerate(ids):
        assert net.get_outcome_id(node, r.outcome_indices[i]) == r.outcome_ids[i]
        if net.is_evidence(node):
            assert r.outcome_indices[i] == net.get_evidence(node)
    assert r.probability == pytest.approx(prob_of(net, r.as_dict()), rel=1e-12)
    assert r.log_probability == pytest.approx(math.log(r.probability), rel=1e-12)
    assert r.probability <= net.prob_evidence()


def test_map_exact_and_annealed_agree_with_enumeration():
    net = shared("asia")
    ids = net.get_all_node_ids()
    net.set_evidence(ids[-1], 0)
    nodes = [ids[1], ids[2], ids[4]]
    # Enumeration through the probability of evidence of each assignment.
    best = 0.0
    outcomes = [net.get_outcome_ids(n) for n in nodes]
    for a in outcomes[0]:
        for b in outcomes[1]:
            for c in outcomes[2]:
                best = max(best, prob_of(net, dict(zip(nodes, (a, b, c)))))
    exact = net.exact_map(nodes)
    assert exact.probability == pytest.approx(best, rel=1e-12)
    assert exact.probability == pytest.approx(prob_of(net, exact.as_dict()), rel=1e-12)
    annealed = net.annealed_map(nodes, pyquarn.AnnealedMapTuning(stop_after=500))
    assert annealed.as_dict() == exact.as_dict()
    handles = [net.get_node(n) for n in nodes]
    assert net.annealed_map(handles).probability == pytest.approx(best, rel=1e-12)
    assert net.exact_map(handles).outcome_indices == exact.outcome_indices


def test_sensitivity_matches_a_finite_difference_and_ranks():
    net = chain()
    net.set_evidence("B", 1)
    res = net.calc_sensitivity()
    # Every node a target, every node a parameter node.
    assert [(n.target_id, n.node_id) for n in res.nodes] == [("A", "A"), ("A", "B"), ("B", "A"), ("B", "B")]
    # P(A=a0 | B=b1) = .03 / (.03 + .7 (1 - t)) with t = P(b0 | a1) = .2.
    d = res.nodes[1].derivatives
    assert len(d) == 2 * 4
    h = 1e-6
    f = lambda t: 0.03 / (0.03 + 0.7 * (1 - t))
    assert d[2] == pytest.approx((f(0.2 + h) - f(0.2 - h)) / (2 * h), rel=1e-6)
    assert res.nodes[1].max_abs_derivative == max(abs(x) for x in d)
    top = res.top(3)
    assert len(top) == 3
    assert [abs(t[4]) for t in top] == sorted((abs(t[4]) for t in top), reverse=True)
    for node_id, index, target_id, outcome, value in top:
        ns = next(n for n in res.nodes if n.node_id == node_id and n.target_id == target_id)
        assert ns.derivatives[outcome * len(net.get_node_definition(node_id)) + index] == value
    assert abs(top[0][4]) == max(n.max_abs_derivative for n in res.nodes)


def test_marginalize_node_keeps_the_posteriors_of_the_rest():
    net = shared("asia")
    ids = net.get_all_node_ids()
    net.set_evidence(ids[-1], 1)
    net.update_beliefs()
    before = {n: net.get_node_value(n) for n in ids}
    pe = net.prob_evidence()
    removed = ids[3]
    net.marginalize_node(removed)
    assert removed not in net.get_all_node_ids()
    net.update_beliefs()
    assert net.prob_evidence() == pytest.approx(pe, rel=1e-12)
    for n in ids:
        if n != removed:
            assert net.get_node_value(n) == pytest.approx(before[n], abs=1e-12)


def test_value_of_information():
    net = chain()
    voi = pyquarn.ValueOfInfo(net)
    voi.set_target("A")
    voi.add_node("B")
    voi.update()
    assert voi.get_node_ids() == ["B"]
    # I(A; B) in bits, from the joint .27 .03 / .14 .56.
    joint = {(0, 0): 0.27, (0, 1): 0.03, (1, 0): 0.14, (1, 1): 0.56}
    pa, pb = [0.3, 0.7], [0.41, 0.59]
    mi = sum(p * math.log2(p / (pa[a] * pb[b])) for (a, b), p in joint.items())
    assert voi.get_values() == [pytest.approx(mi, rel=1e-12)]
    assert voi.get_joint_value() == pytest.approx(mi, rel=1e-12)

    # Drilling for oil: the seismic sounding's information is worth 12.5.
    oil = pyquarn.Network()
    o = oil.add_node(NodeType.CPT, "Oil")
    oil.add_outcome(o, "soaking")
    s = oil.add_node(NodeType.CPT, "Seismic")
    oil.add_outcome(s, "diffuse")
    d = oil.add_node(NodeType.DECISION, "Drill")
    u = oil.add_node(NodeType.UTILITY, "Payoff")
    for parent, child in ((o, s), (o, u), (d, u)):
        oil.add_arc(parent, child)
    oil.set_node_definition(o, [0.5, 0.3, 0.2])
    oil.set_node_definition(s, [0.1, 0.3, 0.6, 0.3, 0.4, 0.3, 0.5, 0.4, 0.1])
    oil.set_node_definition(u, [-70.0, 0.0, 50.0, 0.0, 200.0, 0.0])
    v = pyquarn.ValueOfInfo(oil)
    v.set_decision(d)
    v.add_node(s)
    v.update()
    assert v.get_values() == [pytest.approx(12.5)]


def test_bad_input_is_refused_and_leaves_the_network_as_it_was():
    net = chain()
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
    with pytest.raises(TypeError):
        net.exact_map("A")
    voi = pyquarn.ValueOfInfo(net)
    voi.add_node("A")
    assert_refused(net, -2, voi.update)
    assert_refused(net, -3, voi.set_target, "Nope")
    with pytest.raises(TypeError):
        voi.add_node(1.5)
    # Impossible evidence is reported as belief updating reports it.
    net.set_node_definition("B", [1.0, 0.0, 1.0, 0.0])
    net.set_relevance_enabled(False)
    net.clear_all_evidence()
    net.set_evidence("B", 1)
    msg = assert_refused(net, -43, net.most_probable_explanation)
    assert "All potential entries are zeros" in msg
