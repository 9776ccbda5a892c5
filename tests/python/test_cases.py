import math

import pytest

import pyquarn
from conftest import refusal_test, type_errors
from describe_util import assert_refused, describe, evidence_tuple

T = pyquarn.CaseEvidenceType
Info = pyquarn.CaseEvidenceInfo


@pytest.fixture
def net():
    n = pyquarn.Network()
    n.add_node(pyquarn.NodeType.CPT, "A")       # 0: State0, State1
    n.add_node(pyquarn.NodeType.CPT, "B")       # 1: State0..State2
    n.add_outcome("B", "State2")
    n.add_node(pyquarn.NodeType.CPT, "C")       # 2
    n.add_node(pyquarn.NodeType.UTILITY, "U")   # 3: no outcomes
    n.add_arc("A", "B")
    return n


def test_case_list(net):
    assert net.get_case_count() == 0
    assert [net.add_case(name) for name in ("first", "second", "Dritter Fall")] == [0, 1, 2]
    assert net.get_all_case_names() == ["first", "second", "Dritter Fall"]
    assert net.find_case("second") == 1
    net.set_case_name(1, "renamed")
    net.set_case_name("renamed", "renamed")  # its own name is no clash
    net.delete_case("first")
    assert net.get_all_case_names() == ["renamed", "Dritter Fall"]
    assert net.find_case("Dritter Fall") == 1
    net.delete_case(0)
    assert net.get_case_count() == 1
    net.delete_all_cases()
    assert net.get_case_count() == 0 and net.get_all_case_names() == []


def test_evidence_items(net):
    net.add_case("c")
    net.set_case_evidence(0, "A", Info(T.DISCRETE, outcome=1))
    net.set_case_evidence("c", 1, Info(T.VIRTUAL, virtual_evidence=[0.2, 0.3, 0.5]))
    assert net.get_case_evidence_count("c") == 2
    assert net.get_case_evidence_nodes(0) == [0, 1]
    assert net.get_case_evidence_node_ids("c") == ["A", "B"]
    assert evidence_tuple(net.get_case_evidence("c", "A")) == (T.DISCRETE, 1, 0.0, [], -1)
    assert evidence_tuple(net.get_case_evidence(0, 1)) == (T.VIRTUAL, -1, 0.0, [0.2, 0.3, 0.5], -1)
    # A second item for a node replaces the first.
    net.set_case_evidence(0, 0, Info(T.DISCRETE, outcome=0))
    assert net.get_case_evidence_count(0) == 2
    assert net.get_case_evidence(0, "A").outcome == 0
    net.delete_case_evidence("c", "A")
    assert net.get_case_evidence_nodes("c") == [1]
    assert_refused(net, -2, net.delete_case_evidence, 0, 0,
                   text="QUARN Error -2 in function Network.DeleteCaseEvidence. Case 'c' holds no evidence for node 'A'")
    assert_refused(net, -2, net.get_case_evidence, "c", "A",
                   text="QUARN Error -2 in function Network.GetCaseEvidence. Case 'c' holds no evidence for node 'A'")


def test_continuous_items_need_a_numeric_node(net):
    net.add_case("c")
    net.set_intervals("B", [0.0, 1.0, 2.0, 3.0])
    net.set_case_evidence("c", "B", Info(T.CONTINUOUS, value=1.5))
    assert evidence_tuple(net.get_case_evidence("c", "B")) == (T.CONTINUOUS, -1, 1.5, [], -1)
    # Outside the node's intervals.
    assert_refused(net, -2, net.set_case_evidence, "c", "B", Info(T.CONTINUOUS, value=7.0))
    assert_refused(net, -4, net.set_case_evidence, "c", "B", Info(T.CONTINUOUS, value=math.nan))


@pytest.fixture
def cased(net):
    """Cases c (evidence b2 on B, target B) and d."""
    net.add_case("c")
    net.set_case_evidence("c", "B", Info(T.DISCRETE, outcome=2))
    net.set_case_targets("c", [1])
    net.add_case("d")
    return net


HANDLES = {"A": 0, "B": 1, "C": 2, "U": 3}

# Names in use or empty; evidence items the node cannot take, by case name
# and node id and by case index and handle; targets twice or unknown.
test_refused = refusal_test([
    ("add_case", ("c",), -2, "QUARN Error -2 in function Network.AddCase. Case 'c' already exists"),
    ("add_case", ("",), -2, "QUARN Error -2 in function Network.AddCase. Case name cannot be empty"),
    ("add_case", ("c\0d",), -4, "..."),
    ("set_case_name", ("d", "c"), -2, "QUARN Error -2 in function Network.SetCaseName. Case 'c' already exists"),
    ("set_case_name", (0, ""), -2, "..."),
    ("set_case_temporal_evidence", ("c", "A", [Info(T.DISCRETE, outcome=1, slice=0)]), -51,
     "QUARN Error -51 in function Network.SetCaseTemporalEvidence. node 'A' is not in the temporal plate"),
    ("set_case_evidence", ("c", "A", Info(T.CONTINUOUS, value=1.0)), -51,
     "QUARN Error -51 in function Network.SetCaseEvidence. node 'A' cannot take continuous evidence"),
] + [("set_case_evidence", args, code, "...") for node, info, code in [
    ("A", Info(T.DISCRETE, outcome=2), -2), ("A", Info(T.DISCRETE, outcome=-1), -2),
    ("A", Info(T.DISCRETE, outcome=0, slice=0), -2), ("U", Info(T.DISCRETE, outcome=0), -51),
    ("U", Info(T.VIRTUAL, virtual_evidence=[1.0]), -51), ("B", Info(T.VIRTUAL, virtual_evidence=[0.5, 0.5]), -2),
    ("B", Info(T.VIRTUAL, virtual_evidence=[]), -2), ("B", Info(T.VIRTUAL, virtual_evidence=[0.5, 1.2, 0.0]), -4),
    ("B", Info(T.VIRTUAL, virtual_evidence=[0.5, -0.1, 0.0]), -4),
    ("B", Info(T.VIRTUAL, virtual_evidence=[0.5, math.nan, 0.0]), -4),
    ("B", Info(T.VIRTUAL, virtual_evidence=[0.0, 0.0, 0.0]), -3),
] for args in (("c", node, info), (0, HANDLES[node], info))]
  + [("set_case_targets", (case, targets), code, "...") for targets, code in [
      ([0, 0], -2), (["A", "C", "A"], -2), ([0, 9], -3), (["A", "Nope"], -3), ([-1], -3)] for case in (0, "c")]
  + type_errors([
      ("add_case", (1,)), ("find_case", (0,)), ("delete_case", (0.0,)), ("set_case_created", (0, 2**64)),
      ("set_case_created", (0, 1.5)), ("get_case_description", (0,)), ("set_case_targets", (0, [0, "A"])),
      ("set_case_targets", (0, 0)), ("set_case_evidence", (0, 0, (0, 1))), ("set_case_evidence", (0, 0, [Info()])),
      ("set_case_temporal_evidence", (0, 0, Info())), ("enable_case_sync", (1,)), ("is_case_target", (0, 0.0))]),
  "cased", describe)


def network_state(net):
    return [(net.is_evidence(h), net.get_evidence(h) if net.is_real_evidence(h) else None,
             net.get_virtual_evidence(h) if net.is_virtual_evidence(h) else None, net.is_target(h))
            for h in net.get_all_nodes()]


def test_save_and_apply_round_trip(net):
    net.set_evidence("A", 1)
    net.set_virtual_evidence("B", [0.2, 0.3, 0.5])
    net.set_target("C", True)
    saved = network_state(net)
    net.add_case("c")
    net.save_network_to_case("c")
    assert evidence_tuple(net.get_case_evidence("c", "A")) == (T.DISCRETE, 1, 0.0, [], -1)
    assert net.get_case_evidence("c", "B").type == T.VIRTUAL
    assert net.get_case_evidence("c", "B").virtual_evidence == pytest.approx([0.2, 0.3, 0.5])
    assert net.get_case_targets("c") == [2]

    net.clear_all_evidence()
    net.clear_all_targets()
    net.set_evidence("C", 0)
    net.set_target("A", True)
    net.apply_case_to_network(0)
    assert network_state(net) == saved
    assert not net.is_evidence("C")


def test_a_case_that_fails_to_apply_changes_nothing(net):
    net.set_intervals("B", [0.0, 1.0, 2.0, 3.0])
    net.add_case("c")
    net.set_case_evidence("c", "A", Info(T.DISCRETE, outcome=1))
    net.set_case_evidence("c", "B", Info(T.CONTINUOUS, value=1.5))
    net.set_case_targets("c", ["C"])
    # Without intervals the stored number no longer maps to an outcome.
    net.remove_intervals("B")
    net.set_evidence("C", 1)
    text = assert_refused(net, -3, net.apply_case_to_network, "c")
    assert text.startswith("QUARN Error -3 in function Network.ApplyCaseToNetwork")
    assert network_state(net)[2] == (True, 1, None, False)


# Every case method with a case that does not exist.
_CASE_CALLS = [
    ("delete_case", ()), ("set_case_name", ("x",)), ("set_case_description", ("x",)), ("set_case_category", ("x",)),
    ("get_case_created", ()), ("set_case_created", (5,)), ("get_case_last_modified", ()),
    ("set_case_last_modified", (5,)), ("get_case_evidence_count", ()), ("delete_case_evidence", (0,)),
    ("is_case_target", (0,)), ("get_case_target_count", ()), ("set_case_targets", ([0],)),
    ("set_case_targets", (["A"],)), ("get_case_targets", ()), ("apply_case_to_network", ()),
    ("save_network_to_case", ()), ("get_case_evidence_nodes", ()), ("get_case_evidence", (0,)),
    ("set_case_evidence", (0, Info(T.DISCRETE, outcome=0))), ("get_case_temporal_evidence", (0,)),
    ("set_case_temporal_evidence", (0, [])), ("delete_case_evidence", ("A",)), ("get_case_evidence", ("A",)),
]
_BY_NAME_ONLY = ["get_case_description", "get_case_category", "get_case_target_ids", "get_case_evidence_node_ids",
                 "find_case"]


def _with_case(net):
    net.add_case("c")
    net.set_case_evidence("c", "A", Info(T.DISCRETE, outcome=1))
    net.set_case_targets("c", [1])
    net.set_evidence("B", 0)


@pytest.mark.parametrize("method, extra, bad", [
    (m, e, b) for m, e in _CASE_CALLS + [(m, ()) for m in _BY_NAME_ONLY] for b in (1, -1, 2**31 - 1, "Nope", "", "c\0", "A")
    if isinstance(b, str) or m not in _BY_NAME_ONLY])
def test_unknown_cases(net, method, extra, bad):
    _with_case(net)
    index = bad if isinstance(bad, int) else -2
    assert_refused(net, -3, getattr(net, method), bad, *extra, text=f"QUARN Error Occured. Invalid case index: {index}")


@pytest.mark.parametrize("method, extra", [
    ("delete_case_evidence", ()), ("is_case_target", ()), ("get_case_evidence", ()),
    ("set_case_evidence", (Info(T.DISCRETE, outcome=0),)), ("get_case_temporal_evidence", ()),
    ("set_case_temporal_evidence", ([],)),
])
@pytest.mark.parametrize("case", [0, "c"])
@pytest.mark.parametrize("bad", [9, -1, 0x8000, "Nope", "Main"])
def test_bad_nodes(net, method, extra, case, bad):
    _with_case(net)
    handle = bad if isinstance(bad, int) else -2
    assert_refused(net, -3, getattr(net, method), case, bad, *extra,
                   text=f"QUARN Error Occured. Invalid node handle: {handle}")


def test_impossible_case_evidence_changes_nothing(net):
    net.add_case("c")
    net.set_case_evidence("c", "A", Info(T.DISCRETE, outcome=1))
    # B's added outcome has probability 0 under every parent outcome.
    net.set_case_evidence("c", "B", Info(T.DISCRETE, outcome=2))
    net.set_evidence("C", 1)
    assert_refused(net, -2, net.apply_case_to_network, "c")
