import pytest

import pyquarn
from conftest import node_argument_tests, refusal_test, type_errors
from describe_util import assert_refused, describe

NA = 8.900295434028806e-308  # the engine's "not available" cost
DOC = pyquarn.DocItemInfo


@pytest.fixture
def net():
    n = pyquarn.Network()
    n.add_node(pyquarn.NodeType.CPT, "A")      # outcomes State0, State1
    n.add_node(pyquarn.NodeType.CPT, "B")
    n.add_outcome("B", "State2")
    n.add_node(pyquarn.NodeType.UTILITY, "U")  # no outcomes
    return n


def test_outcome_texts_in_every_form(net):
    net.set_outcome_label(1, 0, "low")
    net.set_outcome_label("B", "State1", "mid")
    net.set_outcome_description(1, "State2", "the top one")
    net.set_outcome_description("B", 0, "the bottom one")
    net.set_outcome_fix("B", "State2", "replace it")
    net.set_outcome_fix(1, 1, "tighten it")
    assert [net.get_outcome_label("B", i) for i in range(3)] + [net.get_outcome_label(1, "State1")] == [
        "low", "mid", "", "mid"]
    assert (net.get_outcome_description("B", "State2"), net.get_outcome_description(1, "State0"),
            net.get_outcome_description("B", 1)) == ("the top one", "the bottom one", "")
    assert (net.get_outcome_fix("B", 2), net.get_outcome_fix(1, "State1")) == ("replace it", "tighten it")
    # Other nodes keep their outcomes untouched.
    assert net.get_outcome_label("A", 0) == "" and net.get_outcome_fix("A", "State1") == ""


def test_fault_and_default_outcomes(net):
    assert not any(net.is_fault_outcome(1, i) for i in range(3))
    net.set_fault_outcome("B", "State2", True)
    net.set_fault_outcome(1, 0, True)
    assert [net.is_fault_outcome("B", i) for i in range(3)] == [True, False, True]
    assert (net.get_default_outcome("B"), net.get_default_outcome_id("B")) == (-1, "")
    net.set_default_outcome(1, "State1")
    assert (net.get_default_outcome(1), net.get_default_outcome_id("B")) == (1, "State1")
    net.set_default_outcome("B", 2)
    assert (net.get_default_outcome_id("B"), net.get_default_outcome("A")) == ("State2", -1)


_OUTCOME_CALLS = [
    ("get_outcome_fix", ()), ("set_outcome_fix", ("x",)), ("get_outcome_description", ()),
    ("set_outcome_description", ("x",)), ("get_outcome_label", ()), ("set_outcome_label", ("x",)),
    ("get_outcome_documentation", ()), ("set_outcome_documentation", ([DOC("t", "p")],)),
    ("is_fault_outcome", ()), ("set_fault_outcome", (True,)), ("set_default_outcome", ()),
]


@pytest.mark.parametrize("method, extra", _OUTCOME_CALLS)
def test_nodes_without_outcomes(net, method, extra):
    label = "Network." + "".join(w.capitalize() for w in method.split("_"))
    assert_refused(net, -51, getattr(net, method), "U", 0, *extra, text=f"QUARN Error -51 in function {label}")


def test_default_outcome_of_a_node_without_outcomes(net):
    assert_refused(net, -51, net.get_default_outcome, "U")
    assert_refused(net, -51, net.get_default_outcome_id, "U")


def test_cost_arcs(net):
    net.add_node(pyquarn.NodeType.CPT, "C")
    net.add_cost_arc(0, 3)
    net.add_cost_arc("B", "C")
    assert (net.get_cost_parents(3), net.get_cost_parent_ids("C")) == ([0, 1], ["A", "B"])
    assert (net.get_cost_children("A"), net.get_cost_child_ids("B")) == ([3], ["C"])
    # One cost per combination of the cost parents' outcomes.
    assert net.get_node_cost("C") == [NA] * 6
    costs = [1.0, 2.0, 3.0, 4.0, 5.5, NA]
    net.set_node_cost(3, costs)
    assert net.get_node_cost("C") == costs
    net.delete_cost_arc("A", "C")
    assert (net.get_cost_parents("C"), net.get_cost_children(0)) == ([1], [])


_NODE_CALLS = [
    ("get_node_diag_type", ()), ("set_node_diag_type", (pyquarn.NodeDiagType.FAULT,)),
    ("set_node_question", ("q",)), ("get_default_outcome", ()), ("is_ranked", ()), ("set_ranked", (True,)),
    ("is_mandatory", ()), ("set_mandatory", (True,)), ("get_cost_parents", ()), ("get_cost_children", ()),
    ("get_node_cost", ()), ("set_node_cost", ([1.0],)), ("set_default_outcome", (0,)),
    ("set_outcome_label", (0, "x")), ("is_fault_outcome", (0,)),
]


test_unknown_node_is_refused, test_node_of_wrong_type_is_refused = node_argument_tests(
    [(m, e, "hi") for m, e in _NODE_CALLS] + [(m, (), "i") for m in ("get_node_question", "get_default_outcome_id",
                                                                     "get_cost_parent_ids", "get_cost_child_ids")],
    describe, "net")


@pytest.fixture
def costed(net):
    """C added, cost arcs A -> B -> C, B's cost set, a label on A's first outcome."""
    net.add_node(pyquarn.NodeType.CPT, "C")
    net.add_cost_arc("A", "B")
    net.add_cost_arc("B", "C")
    net.set_node_cost("B", [7.0, 8.0])
    net.set_outcome_label("A", 0, "kept")
    return net


# Texts holding NUL, arcs that exist, do not exist or close a cycle, a cost
# parent without outcomes, costs of the wrong length, unknown nodes.
test_refused = refusal_test([
    ("set_node_question", ("A", "a\0b"), -4, "..."), ("set_outcome_label", ("A", 0, "a\0"), -4, "..."),
    ("set_outcome_fix", (0, "State1", "\0"), -4, "..."), ("set_outcome_description", (0, 1, "x\0y"), -4, "..."),
    ("set_outcome_documentation", ("A", 0, [DOC("t", "p"), DOC("t\0", "p")]), -4, "..."),
    ("add_cost_arc", ("A", "B"), -2, "QUARN Error -2 in function Network.AddCostArc"),
    ("add_cost_arc", ("B", "A"), -2, "..."), ("add_cost_arc", (0, 0), -2, "..."), ("add_cost_arc", ("C", "A"), -11, "..."),
    ("add_cost_arc", ("U", "A"), -51, "..."),
    ("delete_cost_arc", ("A", "C"), -2, "QUARN Error -2 in function Network.DeleteCostArc"),
    ("delete_cost_arc", ("B", "A"), -2, "..."),
] + [("set_node_cost", ("B", cost), -2, "QUARN Error -2 in function Network.SetNodeCost")
     for cost in ([], [1.0], [1.0, 2.0, 3.0])]
  + [(m, pair, -3, "...") for m in ("add_cost_arc", "delete_cost_arc")
     for pair in [(0, 9), (9, 0), (0, -3), ("A", "Nope"), ("Nope", "A")]], "costed", describe)

test_wrong_argument_types = refusal_test(type_errors([
    ("set_node_diag_type", (0, 1)), ("set_node_question", (0, 5)), ("get_node_question", (0,)),
    ("set_ranked", (0, 1)), ("set_mandatory", ("A", None)), ("add_cost_arc", (0, "B")),
    ("set_node_cost", (0, ["x"])), ("set_fault_outcome", (0, 0, 1)), ("set_outcome_label", (0, 0.0, "x")),
    ("get_default_outcome_id", (0,)), ("get_cost_parent_ids", (0,)), ("set_influence_diagram_algorithm", (1,)),
    ("set_influence_diagram_algorithm", (pyquarn.NodeDiagType.OBSERVATION,)),
]), "net", describe)
