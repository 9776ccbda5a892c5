"""Definition tables, value indexing parents and MAU expressions."""
import pytest

from pyquarn import NodeType

from conftest import describe, node_argument_tests, refusal_test, type_errors

DEFINITION_METHODS = [
    ("set_node_definition", ([0.5, 0.5],), "hi"),
    ("get_node_definition", (), "hi"),
    ("get_value_indexing_parents", (), "hi"),
    ("get_value_indexing_parent_ids", (), "hi"),
    ("get_mau_expressions", (), "i"),
    ("set_mau_expressions", (["1"],), "hi"),
]


test_unknown_node_is_refused, test_node_of_wrong_type_is_refused = node_argument_tests(DEFINITION_METHODS)

test_refused = refusal_test([
    ("set_node_definition", ("C", items), -2,
     "QUARN Error -2 in function Network.SetNodeDefinition. Definition of node 'C' needs 12 items, got %d" % len(items))
    for items in ([], [0.5], [0.5] * 11, [0.5] * 13)
] + [(method, ("C",) + args, -51, "QUARN Error -51 in function Network.%s. Node 'C' is not a MAU node" % label)
     for method, args, label in [("get_mau_expressions", (), "GetMauExpressions"),
                                 ("set_mau_expressions", (["x"],), "SetMauExpressions")]]
  + type_errors([("set_node_definition", ("A", items)) for items in ["abc", [None, 0.5], [[0.5], [0.5]], 0.5,
                                                                      ["0.5", "0.5"]]]))


def test_definitions_by_handle_and_by_id(small):
    net, h = small
    table = [0.7, 0.3, 0.6, 0.4, 0.5, 0.5, 0.4, 0.6, 0.3, 0.7, 0.2, 0.8]
    net.set_node_definition("C", table)
    assert net.get_node_definition(h["C"]) == table
    net.set_node_definition(h["A"], [1, 0])
    assert net.get_node_definition("A") == [1.0, 0.0]
    # A utility node's table has one item per parent combination.
    net.add_arc("B", "U")
    net.set_node_definition("U", [10.0, -5.0, 2.5])
    assert net.get_node_definition("U") == [10.0, -5.0, 2.5]


def test_new_definitions_are_uniform(net):
    p = net.add_node(NodeType.CPT, "P")
    net.add_outcome(p, "State2")
    c = net.add_node(NodeType.CPT, "C")
    net.add_arc(p, c)
    assert net.get_node_definition(c) == [0.5] * 6
    t = net.add_node(NodeType.TRUTH_TABLE, "T")
    net.add_arc(p, t)
    assert net.get_node_definition(t) == [1.0, 0.0] * 3


def test_indexing_parents_of_a_chance_node_are_empty(small):
    net, h = small
    assert net.get_value_indexing_parents("C") == []
    assert net.get_value_indexing_parent_ids(h["C"]) == []


def test_mau_expressions(small):
    net, h = small
    m = net.add_node(NodeType.MAU, "M")
    net.add_arc("U", "M")
    assert net.get_mau_expressions("M") == []
    net.set_mau_expressions(m, ["U*2", "U+1"])
    assert net.get_mau_expressions("M") == ["U*2", "U+1"]
    net.set_mau_expressions("M", expressions=[])
    assert net.get_mau_expressions("M") == []


@pytest.mark.parametrize("expressions", ["U*2", [1, 2], [None], None])
def test_mau_expressions_of_the_wrong_type(small, expressions):
    net, _ = small
    net.add_node(NodeType.MAU, "M")
    before = describe(net)
    with pytest.raises(TypeError):
        net.set_mau_expressions("M", expressions)
    assert describe(net) == before


def test_a_new_definition_makes_computed_beliefs_stale(small):
    net, h = small
    net.delete_node("U")
    net.clear_all_targets()
    net.update_beliefs()
    assert net.is_value_valid("C")
    net.set_node_definition("C", [0.5] * 12)
    assert not net.is_value_valid("C")
    # Evidence fixes a value whatever the tables say.
    assert net.is_value_valid("A")
