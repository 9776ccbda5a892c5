"""Networks in the other formats from Python: the format number chooses the
writer and the reader, what a format cannot hold is refused, and broken
files change nothing (the engine's tests check each format's content)."""
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


@pytest.mark.parametrize("number,ext,name,decisions", FORMATS)
def test_format_numbers_choose_the_format_and_refusals_write_nothing(number, ext, name, decisions, tmp_path):
    original = load(shared_xvek("alarm"))
    by_ext, by_number = str(tmp_path / ("alarm." + ext)), str(tmp_path / "alarm.any")
    original.write_file(by_ext)
    original.write_file(by_number, format=number)
    with open(by_ext, "rb") as a, open(by_number, "rb") as b:
        assert a.read() == b.read()
    back = load(by_number, number)
    assert [back.get_node_definition(n) for n in original.get_all_node_ids()] == \
        [original.get_node_definition(n) for n in original.get_all_node_ids()]
    # Weather -> Comfort <- Umbrella: a decision and a utility.
    net = pyquarn.Network()
    for kind, node_id in ((NodeType.CPT, "Weather"), (NodeType.DECISION, "Umbrella"), (NodeType.UTILITY, "Comfort")):
        net.add_node(kind, node_id)
    net.add_arc("Weather", "Comfort")
    net.add_arc("Umbrella", "Comfort")
    path = str(tmp_path / ("umbrella." + ext))
    if decisions:
        net.write_file(path)
        assert load(path).get_node_type("Umbrella") == NodeType.DECISION
    else:
        before = describe(net)
        with quarn_error(-2, contains="ERROR: This Network cannot be saved in %s format" % name) as info:
            net.write_file(path)
        assert "Network.WriteFile" in str(info.value)
        assert not os.path.exists(path) and describe(net) == before


@pytest.mark.parametrize("ext", ["bif", "net", "dne", "vek", "uai"])
def test_broken_files_raise_and_change_nothing(ext, tmp_path):
    good = str(tmp_path / ("asia." + ext))
    load(shared_xvek("asia")).write_file(good)
    with open(good, "rb") as f:
        text = f.read()
    net = load(shared_xvek("cancer"))
    before = describe(net)
    bad = str(tmp_path / ("broken." + ext))
    refused = 0
    for cut in range(0, len(text), max(1, len(text) // 20)):
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
    assert refused > 15
