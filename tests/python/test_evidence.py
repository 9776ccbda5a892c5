"""Evidence, targets, controlled values, node values and belief updating."""
import copy
import math

import pytest


from conftest import OCCURED, describe, node_argument_tests, quarn_error, refusal_test, type_errors

EVIDENCE_METHODS = [
    ("set_evidence", (0,), "hi"), ("set_evidence", ("b0",), "hi"), ("get_evidence", (), "hi"),
    ("get_evidence_id", (), "i"), ("is_evidence", (), "hi"), ("clear_evidence", (), "hi"),
    ("set_target", (True,), "hi"), ("is_target", (), "hi"), ("set_virtual_evidence", ([0.5, 0.5],), "hi"),
    ("set_cont_evidence", (1.0,), "hi"), ("get_cont_evidence", (), "hi"), ("get_virtual_evidence", (), "hi"),
    ("is_real_evidence", (), "hi"), ("is_propagated_evidence", (), "hi"), ("is_virtual_evidence", (), "hi"),
    ("is_controlled", (), "hi"), ("get_controlled_value", (), "hi"), ("get_controlled_value_id", (), "i"),
    ("set_controlled_value", (0,), "hi"), ("set_controlled_value", ("b0",), "hi"),
    ("clear_controlled_value", (), "hi"), ("get_node_value", (), "hi"), ("is_value_valid", (), "hi"),
]


test_unknown_node_is_refused, test_node_of_wrong_type_is_refused = node_argument_tests(EVIDENCE_METHODS)

INVALID = "QUARN Error -4 in function NodeValueValidation. Value of node '%s' is not valid"

test_refused = refusal_test([
    ("get_evidence", (1,), -2, "QUARN Error -2 in function Network.GetEvidence. Node 'B' has no evidence"),
    ("get_evidence_id", ("B",), -2, "QUARN Error -2 in function Network.GetEvidenceId. Node 'B' has no evidence"),
    ("clear_evidence", ("B",), -2, "QUARN Error -2 in function Network.ClearEvidence"),
    ("set_evidence", ("U", 0), -2, OCCURED + "Invalid outcome index \x00 for node 'U', valid indices are 0..-1"),
    ("get_virtual_evidence", ("A",), -2, "QUARN Error -2 in function Network.GetVirtualEvidence"),
    ("set_virtual_evidence", ("U", []), -51, "QUARN Error -51 in function Network.SetVirtualEvidence"),
    ("set_cont_evidence", ("D", 2.0), -2, "QUARN Error -2 in function Network.SetContEvidence"),
    ("set_cont_evidence", ("B", 1.0), -3, "QUARN Error -3 in function Network.SetContEvidence"),
    ("set_cont_evidence", ("U", 1.0), -51, "QUARN Error -51 in function Network.SetContEvidence"),
    ("get_cont_evidence", ("A",), -3, "QUARN Error -3 in function Network.GetContEvidence"),  # given as an outcome
    ("get_cont_evidence", ("B",), -2, "QUARN Error -2 in function Network.GetContEvidence"),  # none at all
    ("get_node_mean", ("D",), -4, INVALID % "D"),
    ("get_node_std_dev", (3,), -4, INVALID % "D"),
    ("get_node_value", (1,), -4, INVALID % "B"),
    # No point values or intervals: nothing to average.
    ("get_node_mean", ("A",), -3, "QUARN Error -3 in function Network.GetNodeMean"),
    ("set_target", ("B", True), -4, "QUARN Error -4 in function Network.SetTarget"),
    ("set_target", ("C", False), -4, "QUARN Error -4 in function Network.SetTarget"),
    ("get_controlled_value", ("A",), -2,
     "QUARN Error -2 in function Network.GetControlledValue. Node 'A' has no controlled value"),
    ("get_controlled_value_id", ("A",), -2,
     "QUARN Error -2 in function Network.GetControlledValueId. Node 'A' has no controlled value"),
] + [("set_virtual_evidence", ("B", values), code, "QUARN Error %d in function Network.SetVirtualEvidence" % code)
     for values, code in [([0.0, 0.0, 0.0], -3), ([1.2, 0.0, 0.0], -4), ([-0.1, 0.5, 0.5], -4),
                          ([math.nan, 0.5, 0.5], -4), ([0.5, 0.5], -2), ([0.2] * 4, -2), ([], -2)]])


test_wrong_argument_types = refusal_test(type_errors([
    ("set_evidence", ("B", 1.0)), ("set_evidence", ("B", None)), ("set_evidence", (1.0, 0)),
    ("set_target", ("B", 1)), ("set_target", ("B", None)), ("set_target", ("B", "yes")), ("set_target", ("B",)),
    ("set_virtual_evidence", ("B", 0.5)), ("set_virtual_evidence", ("B", "abc")),
    ("set_virtual_evidence", ("B", [0.5, None, 0.5])), ("set_cont_evidence", ("D", "1.5")),
    ("set_cont_evidence", ("D", None)), ("set_controlled_value", ("B", 0.0)),
]))


@pytest.mark.parametrize("node, outcome", [("B", 1), ("B", "b1"), (1, 1), (1, "b1")])
def test_set_evidence_forms(small, node, outcome):
    net, h = small
    node = h["B"] if node == 1 else node
    net.set_evidence(node, outcome)
    assert net.get_evidence("B") == 1 and net.get_evidence_id("B") == "b1"
    assert net.is_evidence(h["B"]) and net.is_real_evidence("B") and not net.is_propagated_evidence("B")
    # Evidence fixes the value: it is valid and one-hot.
    assert net.is_value_valid("B")
    assert net.get_node_value("B") == [0.0, 1.0, 0.0]


def test_keyword_forms(small):
    net, h = small
    net.set_evidence(node_id="B", outcome_id="b2")
    assert net.get_evidence(node_handle=h["B"]) == 2
    net.set_evidence(node_handle=h["B"], outcome_index=0)
    assert net.get_evidence_id(node_id="B") == "b0"


def test_clear_evidence(small):
    net, h = small
    net.clear_evidence("A")
    assert not net.is_evidence("A") and not net.is_value_valid(h["A"])
    with quarn_error(-4, "QUARN Error -4 in function NodeValueValidation. Value of node 'A' is not valid"):
        net.get_node_value("A")


def test_controlled_values(small):
    net, h = small
    net.set_controlled_value("B", "b2")
    assert net.is_controlled(h["B"]) and net.is_evidence("B")
    assert net.get_controlled_value("B") == 2 and net.get_controlled_value_id("B") == "b2"
    net.set_controlled_value(h["B"], 0)
    assert net.get_controlled_value_id("B") == "b0"
    net.clear_controlled_value("B")
    assert not net.is_controlled("B") and not net.is_evidence("B")


def test_update_of_an_empty_network(net):
    net.update_beliefs()
    assert net.prob_evidence() == 1.0


def test_probability_of_evidence(small):
    net, h = small
    net.delete_node("U")
    net.clear_evidence("D")
    net.set_evidence("B", "b2")
    net.set_evidence("C", "c1")
    net.set_target("D", True)   # targets B and D: A and C get no beliefs of their own
    updated = copy.deepcopy(net)
    updated.update_beliefs()
    # P(A=a1) P(B=b2) P(C=c1 | a1, b2) with A uniform.
    assert net.prob_evidence() == pytest.approx(0.5 * 0.5 * 0.4)
    # Evidence and targets are as they were; the beliefs are those of update_beliefs.
    assert describe(net) == describe(updated)
    net.clear_all_targets()
    assert net.prob_evidence() == pytest.approx(0.5 * 0.5 * 0.4)
