import pytest

import pyquarn
from conftest import node_argument_tests, refusal_test, type_errors, with_nodes_a_b
from describe_util import describe


@pytest.fixture
def net(net):
    return with_nodes_a_b(net)


def test_position_is_stored_by_its_centre_and_reads_back(net):
    # The XML format writes left = centre - width / 2 and right = left + width,
    # so an odd width shows whether the centre was kept.
    net.set_node_position("A", 10, 20, 5, 7)
    net.set_node_position(1, [-11, -3, 4, 6])
    xml = net.write_string()
    assert "<position>10 20 15 27</position>" in xml
    other = pyquarn.Network()
    other.read_string(xml)
    assert [other.get_node_position(h) for h in (0, "B")] == [[10, 20, 5, 7], [-11, -3, 4, 6]]


_NODE_CALLS = [
    ("set_node_position", (1, 2, 3, 4)), ("set_node_position", ([1, 2, 3, 4],)), ("get_node_position", ()),
    ("set_node_bg_color", (5,)), ("get_node_bg_color", ()), ("set_node_text_color", (5,)),
    ("get_node_text_color", ()), ("set_node_border_color", (5,)), ("get_node_border_color", ()),
    ("set_node_border_width", (2,)), ("get_node_border_width", ()), ("is_node_chart_enabled", ()),
    ("set_node_chart_enabled", (True,)), ("get_node_chart_size", ()), ("set_node_chart_size", (3, 4)),
]


test_unknown_node_is_refused, test_node_of_wrong_type_is_refused = node_argument_tests(
    [(m, e, "hi") for m, e in _NODE_CALLS], describe, "net")


RECT = "QUARN Error 1 in function pyquarn.Network.set_node_position(int, list) - rect array has invalid size"
test_refused = refusal_test([("set_node_position", (node, rect), 1, RECT) for rect in ([1, 2, 3], [1, 2, 3, 4, 5], [])
                             for node in (0, "A")] + [
    ("set_node_position", (0, 2**31 - 10, 0, 100, 10), -2,
     "QUARN Error -2 in function Network.SetNodePosition. Position is out of range"),
    ("set_node_position", ("A", [0, -2**31, 10, -10]), -2, "...")] + type_errors([
    ("set_node_position", (0, 1.5, 2, 3, 4)), ("set_node_position", (0, [1, 2, None, 4])),
    ("set_node_position", (0, 1, 2, 3)), ("set_node_bg_color", (0, -1)), ("set_node_bg_color", (0, 2**32)),
    ("set_node_text_color", (0, "red")), ("set_node_border_color", (0, 1.0)), ("set_node_border_width", (0, "2")),
    ("set_node_chart_enabled", (0, 1)), ("set_node_chart_size", (0, 3)), ("set_noisy_decomposition_enabled", (1,)),
    ("set_noisy_decomposition_limit", (2.5,)), ("get_node_position", (1.0,)),
]), "net", describe)
