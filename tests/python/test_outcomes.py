"""Outcomes: identifiers, adding, inserting, renaming and deleting, interval
edges and point values."""
import math

import pytest

from pyquarn import DocItemInfo, NodeType

from conftest import OCCURED, describe, node_argument_tests, quarn_error, refusal_test, type_errors
import describe_util

OUTCOME_NODE_METHODS = [
    ("get_outcome_ids", (), "i"), ("get_outcome_count", (), "hi"), ("add_outcome", ("o9",), "hi"),
    ("delete_outcome", (0,), "hi"), ("delete_outcome", ("b0",), "hi"), ("get_outcome_id", (0,), "i"),
    ("has_outcome_ids", (), "hi"), ("has_intervals", (), "hi"), ("remove_intervals", (), "hi"),
    ("has_point_values", (), "hi"), ("set_point_values", ([1.0, 2.0],), "hi"), ("remove_point_values", (), "hi"),
    ("insert_outcome", (0, "o9"), "hi"), ("set_outcome_id", (0, "z9"), "hi"),
    ("set_outcome_id", ("b0", "z9"), "hi"), ("get_intervals", (), "hi"),
    ("set_intervals", ([0.0, 1.0, 2.0],), "hi"), ("get_point_values", (), "hi"),
]


test_unknown_node_is_refused, test_node_of_wrong_type_is_refused = node_argument_tests(OUTCOME_NODE_METHODS)

test_refused = refusal_test([
    ("get_outcome_id", ("U", 0), -2, OCCURED + "Invalid outcome index \x00 for node 'U', valid indices are 0..-1"),
    ("set_outcome_id", ("B", 0, "b2"), -2, "QUARN Error -2 in function Network.SetOutcomeId"),
    ("set_outcome_id", ("B", 0, "0b"), -4, "Identifier '0b' is invalid - it should start with a letter and contain "
                                           "only letters, digits and underscores"),
] + [("insert_outcome", ("B", position, "x9"), -2, "QUARN Error -2 in function Network.InsertOutcome")
     for position in (-1, 4, 100)]
  + [("set_point_values", ("B", values), -2, "QUARN Error -2 in function Network.SetPointValues")
     for values in ([], [1.0], [1.0, 2.0, 3.0, 4.0])]
  # Fewer than three edges, decreasing, two empty intervals in a row, NaN, a
  # count that differs and may not change.
  + [("set_intervals", ("B", edges, adjust), code, "QUARN Error %d in function Network.SetIntervals" % code)
     for edges, adjust, code in [([0.0, 1.0], True, -2), ([0.0, 2.0, 1.0, 3.0], True, -4),
                                 ([0.0, 1.0, 1.0, 1.0], True, -4), ([0.0, math.nan, 1.0, 2.0], True, -4),
                                 ([0.0, 1.0, 2.0, 3.0, 4.0], False, -2)]]
  + [(method, ("U",) + args, -51, "QUARN Error -51 in function Network.%s..." % label) for method, args, label in [
      ("add_outcome", ("x1",), "AddOutcome"), ("insert_outcome", (0, "x1"), "InsertOutcome"),
      ("get_intervals", (), "GetIntervals"), ("set_intervals", ([0.0, 1.0, 2.0],), "SetIntervals"),
      ("remove_intervals", (), "RemoveIntervals"), ("get_point_values", (), "GetPointValues"),
      ("set_point_values", ([1.0],), "SetPointValues"), ("remove_point_values", (), "RemovePointValues")]])


# Methods naming an outcome of node B (b0, b1, b2): (method, node forms, extra).
OUTCOME_METHODS = [
    ("delete_outcome", ("B", 1), ()), ("get_outcome_id", ("B",), ()), ("set_outcome_id", ("B", 1), ("z9",)),
    ("set_evidence", ("B", 1), ()), ("set_controlled_value", ("B", 1), ()),
] + [(method, ("B",) if method.startswith("get_outcome_") else ("B", 1), extra) for method, extra in [
    ("get_outcome_fix", ()), ("set_outcome_fix", ("x",)), ("get_outcome_description", ()),
    ("set_outcome_description", ("x",)), ("get_outcome_label", ()), ("set_outcome_label", ("x",)),
    ("get_outcome_documentation", ()), ("set_outcome_documentation", ([DocItemInfo("t", "p")],)),
    ("is_fault_outcome", ()), ("set_fault_outcome", (True,)), ("set_default_outcome", ())]]
# An index appears in the text as the one character whose code it is.
BAD_OUTCOMES = ([(i, -2, "Invalid outcome index %s for node 'B', valid indices are 0..2" % shown)
                 for i, shown in [(3, "\x03"), (65, "A"), (300, "\u012c"), (-1, "\ufffd")]]
                + [(o, -4, "Invalid outcome identifier '%s' for node 'B'" % o)
                   for o in ["zz", "B0", "", "b0 ", "b0\x00x", "b9"]])


@pytest.mark.parametrize("method, forms, extra, outcome, code, text", [
    m + o for m in OUTCOME_METHODS for o in BAD_OUTCOMES if m[0] != "get_outcome_id" or o[1] == -2])
def test_bad_outcomes_are_refused(small, method, forms, extra, outcome, code, text):
    net, h = small
    before = describe_util.describe(net)
    for node in (h["B"] if f == 1 else f for f in forms):
        with quarn_error(code, OCCURED + text):
            getattr(net, method)(node, outcome, *extra)
    assert describe_util.describe(net) == before


test_wrong_argument_types = refusal_test(type_errors([
    ("delete_outcome", ("B", 1.0)), ("delete_outcome", ("B", None)), ("get_outcome_id", ("B", "b0")),
    ("get_outcome_id", (1, 0)), ("set_outcome_id", ("B", 0, 5)), ("set_outcome_id", ("B", 0, None)),
    ("add_outcome", ("B", 5)), ("insert_outcome", ("B", 1.0, "x")), ("insert_outcome", ("B", "x", 1)),
    ("set_point_values", ("B", "abc")), ("set_point_values", ("B", [None, 1.0, 2.0])),
    ("set_point_values", ("B", 1.0)), ("set_intervals", ("B", [0.0, 1.0, 2.0, 3.0], 1)),
    ("set_intervals", ("B", [0.0, 1.0, 2.0, 3.0], None)), ("set_intervals", ("B", ["0", "1", "2", "3"])),
]))


def test_insert_outcome(small):
    net, h = small
    net.insert_outcome(h["B"], 0, "first")
    net.insert_outcome("B", position=2, outcome_id="middle")
    assert net.get_outcome_ids("B") == ["first", "b0", "middle", "b1", "b2"]


def test_rename_outcomes(small):
    net, h = small
    net.set_outcome_id("B", 0, "low")
    net.set_outcome_id(h["B"], "b1", new_outcome_id="mid")
    net.set_outcome_id("B", "b2", "b2")
    assert net.get_outcome_ids("B") == ["low", "mid", "b2"]
    assert net.get_evidence_id("A") == "a1"
    net.set_outcome_id("A", 1, "yes")
    assert net.get_evidence_id("A") == "yes"


def test_delete_outcomes(small):
    net, h = small
    net.delete_outcome("B", "b0")
    assert net.get_outcome_ids("B") == ["b1", "b2"]
    before = describe(net)
    # A node keeps at least two outcomes.
    for outcome in (0, "b2"):
        with quarn_error(-2, "QUARN Error -2 in function Network.DeleteOutcome"):
            net.delete_outcome(h["B"], outcome)
    assert describe(net) == before


def test_intervals(small):
    net, h = small
    assert not net.has_intervals("B")
    assert net.get_intervals("B") == []
    net.set_intervals("B", [0.0, 1.0, 2.5, 4.0])
    assert net.has_intervals(h["B"])
    assert net.get_intervals("B") == [0.0, 1.0, 2.5, 4.0]
    net.set_intervals(h["B"], [0.0, 1.0, 1.0, 2.0, 3.0], adjust_count=True)
    assert net.get_outcome_count("B") == 4 and net.get_outcome_ids("B")[:3] == ["b0", "b1", "b2"]
    net.remove_intervals("B")
    assert not net.has_intervals("B") and net.get_outcome_count("B") == 4


@pytest.mark.parametrize("grown", ["C", "P"])
def test_interval_count_change_that_would_overflow_a_table(net, grown):
    # C under P and Q: 1300 outcomes each for two of the three already, the
    # third past the int range, whether the grown table is its own or a child's.
    edges = [float(i) for i in range(1301)]
    for node_id in ("P", "Q", "C"):
        net.add_node(NodeType.CPT, node_id)
        if node_id != grown:
            net.set_intervals(node_id, edges)
    net.add_arc("P", "C")
    net.add_arc("Q", "C")
    before = describe(net)
    with quarn_error(-42, "QUARN Error -42 in function Network.SetIntervals. Table too large"):
        net.set_intervals(grown, edges)
    assert describe(net) == before
