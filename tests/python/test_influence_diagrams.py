"""Influence diagrams from Python: expected utilities of decisions and
utility nodes after update_beliefs, their indexing parents, and a refused
solve (the engine's tests compare both solvers with a brute-force evaluation
and check their failures)."""
import pytest

import pyquarn
from pyquarn import InfluenceDiagramAlgorithmType as IDA
from pyquarn import NodeType
from conftest import describe, quarn_error

UNDEFINED = 4.450147717014403e-308
ALGORITHMS = [IDA.POLICY_EVALUATION, IDA.FIND_BEST_POLICY]


def add(net, kind, node_id, states=0):
    net.add_node(kind, node_id)
    for i in range(states):
        if i < 2:
            net.set_outcome_id(node_id, i, "s%d" % i)
        else:
            net.add_outcome(node_id, "s%d" % i)
    return node_id


def oil():
    """Test (cost 10) or not, see the seismic result, drill or not."""
    net = pyquarn.Network()
    add(net, NodeType.CPT, "Oil", 3)
    add(net, NodeType.DECISION, "Test", 2)
    add(net, NodeType.CPT, "Result", 4)  # closed, open, diffuse, none
    add(net, NodeType.DECISION, "Drill", 2)
    net.add_node(NodeType.UTILITY, "Cost")
    net.add_node(NodeType.UTILITY, "Payoff")
    for parent, child in [("Oil", "Result"), ("Test", "Result"), ("Test", "Drill"), ("Result", "Drill"),
                          ("Test", "Cost"), ("Drill", "Payoff"), ("Oil", "Payoff")]:
        net.add_arc(parent, child)
    net.set_node_definition("Oil", [0.5, 0.3, 0.2])
    net.set_node_definition("Result", [0.1, 0.3, 0.6, 0, 0, 0, 0, 1,
                                       0.3, 0.4, 0.3, 0, 0, 0, 0, 1,
                                       0.5, 0.4, 0.1, 0, 0, 0, 0, 1])
    net.set_node_definition("Cost", [-10.0, 0.0])
    net.set_node_definition("Payoff", [-70.0, 50.0, 200.0, 0.0, 0.0, 0.0])
    return net


def approx(values, expected):
    assert len(values) == len(expected)
    for got, want in zip(values, expected):
        if want == UNDEFINED:
            assert got == UNDEFINED
        else:
            assert got == pytest.approx(want, rel=1e-9, abs=1e-9)


@pytest.mark.parametrize("algorithm", ALGORITHMS)
def test_oil_drilling(algorithm):
    net = oil()
    net.set_influence_diagram_algorithm(algorithm)
    net.update_beliefs()
    approx(net.get_node_value("Test"), [22.5, 20.0])
    assert net.get_value_indexing_parent_ids("Drill") == ["Test", "Result"]
    assert net.get_value_indexing_parents("Drill") == [1, 2]
    drill = net.get_node_value("Drill")
    assert len(drill) == 16
    approx(drill[0:2], [87.5 - 10, -10.0])   # tested, closed
    assert drill[6] == UNDEFINED             # tested, yet no result
    approx(drill[14:16], [20.0, 0.0])        # not tested
    # Utilities by decision combination (Test, Drill).
    assert net.get_value_indexing_parent_ids("Payoff") == ["Test", "Drill"]
    approx(net.get_node_value("Payoff"), [20.0, 0.0, 20.0, 0.0])
    approx(net.get_node_value("Cost"), [-10.0, -10.0, 0.0, 0.0])
    # Chance nodes: beliefs when the best policy (test first) is followed.
    approx(net.get_node_value("Result"), [0.24, 0.35, 0.41, 0.0])
    approx(net.get_node_value("Oil"), [0.5, 0.3, 0.2])


def test_policy_evaluation_refuses_results_too_large_for_memory():
    # 19 observed parents and two options: 2^20 combinations, each keeping a
    # value per node and the beliefs of every chance node.
    net = pyquarn.Network()
    add(net, NodeType.DECISION, "D", 2)
    net.add_node(NodeType.UTILITY, "U")
    net.add_arc("D", "U")
    for i in range(19):
        add(net, NodeType.CPT, "C%d" % i, 2)
        net.add_arc("C%d" % i, "D")
    before = describe(net)
    with quarn_error(-42, contains="Evaluating 1048576 combinations of decisions and observations would need"):
        net.update_beliefs()
    assert describe(net) == before
