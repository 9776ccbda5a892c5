"""Networks in the other formats: every format number writes a file that
reads back, what a format cannot hold is refused from Python, and broken
files change nothing."""
import os

import pytest

import pyquarn
from pyquarn import NodeType
from conftest import quarn_error, shared_xvek
from describe_util import describe

# number, extension, format name in the refusal, holds decisions and utilities
FORMATS = [(1, "erg", "Ergo", False), (2, "dne", "Netica", True), (3, "dsc", "Microsoft", False),
           (4, "vek", None, True), (5, "net", "Hugin", True), (6, "bif", "XMLBIF", True),
           (7, "dxp", "KI", False), (8, "xvek", None, True)]


def load(path, fmt=0):
    net = pyquarn.Network()
    net.read_file(path, format=fmt)
    return net


def tables(net):
    """Node by node: parents, states and table, keyed by id."""
    out = {}
    for node_id in net.get_all_node_ids():
        out[node_id] = (net.get_parent_ids(node_id), net.get_outcome_ids(node_id),
                        net.get_node_definition(node_id))
    return out


def assert_same_tables(got, want, tol):
    assert sorted(got) == sorted(want)
    for node_id, (parents, states, table) in want.items():
        g_parents, g_states, g_table = got[node_id]
        assert g_parents == parents, node_id
        assert g_states == states, node_id
        assert len(g_table) == len(table), node_id
        worst = max((abs(a - b) for a, b in zip(g_table, table)), default=0.0)
        assert worst <= tol, (node_id, worst)


@pytest.mark.parametrize("number,ext,_name,_decisions", FORMATS)
def test_every_format_writes_what_it_reads(number, ext, _name, _decisions, tmp_path):
    original = load(shared_xvek("alarm"))
    by_ext = str(tmp_path / ("alarm." + ext))
    original.write_file(by_ext)
    by_number = str(tmp_path / "alarm.any")
    original.write_file(by_number, format=number)
    with open(by_ext, "rb") as a, open(by_number, "rb") as b:
        assert a.read() == b.read()
    # Names and states are ids everywhere; the text formats write tables at
    # full precision, so the tables come back exactly.
    assert_same_tables(tables(load(by_ext)), tables(original), 0.0)
    assert_same_tables(tables(load(by_number, number)), tables(original), 0.0)


def decision_network():
    net = pyquarn.Network()
    c = net.add_node(NodeType.CPT, "Weather")
    d = net.add_node(NodeType.DECISION, "Umbrella")
    u = net.add_node(NodeType.UTILITY, "Comfort")
    net.add_arc(c, u)
    net.add_arc(d, u)
    net.set_node_definition(c, [0.3, 0.7])
    net.set_node_definition(u, [10, -5, 0, 8])
    return net


@pytest.mark.parametrize("number,ext,name,decisions", FORMATS)
def test_decisions_and_utilities_are_written_or_refused_whole(number, ext, name, decisions, tmp_path):
    net = decision_network()
    path = str(tmp_path / ("umbrella." + ext))
    if decisions:
        net.write_file(path)
        back = load(path)
        assert back.get_node_type("Umbrella") == NodeType.DECISION
        assert back.get_node_type("Comfort") == NodeType.UTILITY
        assert back.get_node_definition("Comfort") == [10, -5, 0, 8]
        assert back.get_outcome_count("Umbrella") == 2
    else:
        before = describe(net)
        with quarn_error(-2, contains="ERROR: This Network cannot be saved in %s format" % name) as info:
            net.write_file(path)
        assert "Network.WriteFile" in str(info.value)
        assert not os.path.exists(path)
        assert describe(net) == before


@pytest.mark.parametrize("ext", ["bif", "net", "erg", "dne", "dsc", "dxp", "vek", "uai"])
def test_broken_files_raise_and_change_nothing(ext, tmp_path):
    good = str(tmp_path / ("asia." + ext))
    load(shared_xvek("asia")).write_file(good)
    with open(good, "rb") as f:
        text = f.read()
    net = load(shared_xvek("cancer"))
    before = describe(net)
    bad = str(tmp_path / ("broken." + ext))
    refused = 0
    for cut in range(0, len(text), max(1, len(text) // 40)):
        with open(bad, "wb") as f:
            f.write(text[:cut] + b"\x00}{\"" if cut % 2 else text[:cut])
        try:
            net.read_file(bad)
        except pyquarn.QUARNException as e:
            refused += 1
            assert e.error_code in (-100, -103), str(e)
            assert str(e).startswith("QUARN Error %d in function Network.ReadFile. \n" % e.error_code)
            assert describe(net) == before
        else:
            # A prefix that happens to be a whole network replaces the old one.
            net = load(shared_xvek("cancer"))
    assert refused > 30
