import pytest

import pyquarn
from conftest import node_argument_tests, refusal_test, type_errors, with_nodes_a_b
from describe_util import describe, props as pairs

UP = pyquarn.UserProperty
DOC = pyquarn.DocItemInfo


@pytest.fixture
def net(net):
    return with_nodes_a_b(net)


def test_network_properties_replace_the_whole_list(net):
    assert net.get_user_properties() == []
    net.set_user_properties([UP("b", "2"), UP("a", "1"), UP("VEK_TRIANG_HEUR", "3")])
    assert pairs(net.get_user_properties()) == [("b", "2"), ("a", "1"), ("VEK_TRIANG_HEUR", "3")]
    net.set_user_properties([UP("c", "")])
    assert pairs(net.get_user_properties()) == [("c", "")]
    net.set_user_properties([])
    assert net.get_user_properties() == []


def test_node_properties_belong_to_their_node(net):
    net.set_node_user_properties(0, [UP("x", "1"), UP("ünï", "wert")])
    net.set_node_user_properties("B", [UP("y", "2")])
    assert pairs(net.get_node_user_properties("A")) == [("x", "1"), ("ünï", "wert")]
    assert pairs(net.get_node_user_properties(1)) == [("y", "2")]
    assert net.get_user_properties() == []
    # A deleted node's properties do not pass to the node that reuses its handle.
    net.delete_node(0)
    net.add_node(pyquarn.NodeType.CPT, "C")
    assert net.get_node_user_properties("C") == []


test_unknown_node_is_refused, test_node_of_wrong_type_is_refused = node_argument_tests([
    ("get_node_user_properties", (), "hi"), ("set_node_user_properties", ([UP("a", "1")],), "hi"),
    ("get_node_documentation", (), "hi"), ("set_node_documentation", ([DOC("t", "p")],), "hi"),
], describe, "net")


@pytest.fixture
def kept(net):
    net.set_user_properties([UP("keep", "me")])
    net.set_node_user_properties(0, [UP("keep", "node")])
    net.set_node_documentation(0, [DOC("keep", "me")])
    return net


# A bad item refuses the whole list.
test_refused = refusal_test([
    row for items in ([UP("", "x")], [UP("ok", "1"), UP("", "2")], [UP("a\0b", "1")], [UP("a", "1\0")])
    for row in [("set_user_properties", (items,), -4,
                 "QUARN Error -4 in function Network.SetUserProperties. Property name ..."),
                ("set_node_user_properties", (0, items), -4, "..."), ("set_node_user_properties", ("A", items), -4, "...")]
] + [("set_node_documentation", (0, [DOC("t", "p"), DOC("t\0", "p")]), -4, "..."),
     ("set_node_documentation", ("A", [DOC("t", "p\0")]), -4, "...")] + type_errors([
    ("set_user_properties", ([("a", "1")],)), ("set_user_properties", (UP("a", "1"),)),
    ("set_user_properties", ([DOC("a", "1")],)), ("set_node_user_properties", (0, [1])),
    ("set_node_documentation", (0, [UP("a", "1")])), ("set_node_documentation", (0.0, [])),
    ("get_node_documentation", (None,)),
]), "kept", describe)
