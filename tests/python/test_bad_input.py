"""Bad input from Python: each refused call raises QUARNException with its
code and leaves the network exactly as it was; readers take text that is
not UTF-8 as Latin-1, so no getter can fail to decode what they stored."""
import xml.etree.ElementTree as ET

import pytest

import pyquarn
from pyquarn import NodeType
from conftest import quarn_error, refusal_test
from describe_util import assert_refused, describe

# method, arguments (a NUL inside one of them), function label
_NUL_CALLS = [
    ("read_file", ("asia.xvek\0junk",), "Network.ReadFile"),
    ("write_file", ("out.xvek\0junk",), "Network.WriteFile"), ("read_string", ("<quarn\0",), "Network.ReadString"),
    ("set_id", ("net\0x",), "Network.SetId"), ("set_name", ("a\0b",), "Network.SetName"),
    ("set_description", ("a\0b",), "Network.SetDescription"),
    ("set_node_name", ("A", "a\0b"), "Network.SetNodeName"), ("set_node_id", ("A", "A\0b"), "Network.SetNodeId"),
    ("set_node_description", ("A", "a\0b"), "Network.SetNodeDescription"),
    ("add_outcome", ("B", "b3\0x"), "Network.AddOutcome"),
    ("insert_outcome", ("B", 0, "b3\0x"), "Network.InsertOutcome"),
    ("set_ext_functions", (["f\0g"],), "Network.SetExtFunctions"),
    ("redirect_log", ("log\0.txt",), "Network.RedirectLog"),
    ("set_node_question", ("A", "why\0not"), "Network.SetNodeQuestion"),
]


test_refused = refusal_test(
    [(method, args, -4, "QUARN Error -4 in function %s. ...NUL..." % label) for method, args, label in _NUL_CALLS]
    + [("set_node_chart_size", ("A", -1, 10), -2, "..."), ("set_node_chart_size", ("A", 10, -5), -2, "..."),
       ("set_noisy_decomposition_limit", (-1,), -2, "...")], picture=describe)


def test_a_redirected_log_keeps_error_texts_and_can_come_back(net, tmp_path):
    log = tmp_path / "log.txt"
    missing = str(tmp_path / "missing.xvek")
    net.redirect_log(str(log))
    texts = []
    for _ in range(2):
        with quarn_error(-100) as info:
            net.read_file(missing)
        texts.append(str(info.value))
    # One line "code: message" per call, and each call's text holds its own
    # message only.
    logged = log.read_text().splitlines()
    assert len(logged) == 2 and missing in logged[0]
    assert texts == ["QUARN Error -100 in function Network.ReadFile. \n" + line.partition(": ")[2] for line in logged]
    net.redirect_log(None)
    with quarn_error(-100) as info:
        net.read_file(missing)
    assert str(info.value) == texts[0]
    assert log.read_text().splitlines() == logged


MARK = b"MARKSTATE"
LATIN1 = b"caf\xe9"


@pytest.mark.parametrize("ext", ["erg", "dne", "dsc", "vek", "net", "dxp"])
def test_text_that_is_not_utf8_is_read_as_latin1(net, ext, tmp_path):
    a = net.add_node(NodeType.CPT, "A")
    net.set_outcome_id(a, 0, MARK.decode())
    path = tmp_path / ("n." + ext)
    net.write_file(str(path))
    data = path.read_bytes()
    assert MARK in data
    path.write_bytes(data.replace(MARK, LATIN1))
    back = pyquarn.Network()
    back.read_file(str(path))
    assert back.get_outcome_ids("A")[0] == LATIN1.decode("latin-1")
    # What was read writes and reads again through the XML format.
    again = pyquarn.Network()
    again.read_string(back.write_string())
    assert again.get_outcome_ids("A") == back.get_outcome_ids("A")


def test_data_set_fields_that_are_not_utf8_are_read_as_latin1(tmp_path):
    path = tmp_path / "d.csv"
    path.write_bytes(b"X,Y\n" + LATIN1 + b",1\nthe,2\n")
    data = pyquarn.learning.DataSet()
    data.read_file(str(path))
    assert sorted(data.get_state_names(0)) == sorted([LATIN1.decode("latin-1"), "the"])


def test_states_of_diagnostic_targets_carry_labels(small):
    net, _ = small
    net.set_node_diag_type("B", pyquarn.NodeDiagType.FAULT)
    net.set_outcome_label("B", 1, "broken")
    net.set_fault_outcome("B", 1, True)
    nodes = {n.get("id"): n for n in ET.fromstring(net.write_string()).iter() if n.find("state") is not None}
    assert [(s.get("id"), s.get("label"), s.get("fault")) for s in nodes["B"].findall("state")] == [
        ("b0", "b0", None), ("b1", "broken", "true"), ("b2", "b2", None)]
    assert [s.get("label") for s in nodes["C"].findall("state")] == [None, None]


@pytest.mark.parametrize("before", ["evidence", "controlled", "nothing"])
def test_refused_evidence_changes_nothing(net, before):
    # Outcome c1 has probability 0 in every column of C's table, c2 is new
    # and has 0 too: setting either is refused after the old evidence or
    # controlled value was cleared, which must then come back.
    a = net.add_node(NodeType.CPT, "A")
    c = net.add_node(NodeType.CPT, "C")
    net.add_arc(a, c)
    net.set_node_definition(c, [1.0, 0.0, 1.0, 0.0])
    net.add_outcome(c, "c2")
    net.set_evidence(a, 0)
    if before == "evidence":
        net.set_evidence(c, 0)
    elif before == "controlled":
        net.set_controlled_value(c, 0)
    for call in (lambda: net.set_evidence(c, 1), lambda: net.set_evidence("C", "c2"),
                 lambda: net.set_controlled_value(c, 1)):
        assert_refused(net, -2, call)
