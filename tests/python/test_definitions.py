"""Definition tables, value indexing parents and MAU expressions."""
import pytest

from pyquarn import NodeType

from conftest import describe, node_argument_tests, refusal_test, type_errors

DEFINITION_METHODS = [
    ("set_node_definition", ([0.5, 0.5],), "hi"), ("get_node_definition", (), "hi"),
    ("get_value_indexing_parents", (), "hi"), ("get_value_indexing_parent_ids", (), "hi"),
    ("get_mau_expressions", (), "i"), ("set_mau_expressions", (["1"],), "hi"),
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


@pytest.mark.parametrize("expressions", ["U*2", [1, 2], [None], None])
def test_mau_expressions_of_the_wrong_type(small, expressions):
    net, _ = small
    net.add_node(NodeType.MAU, "M")
    before = describe(net)
    with pytest.raises(TypeError):
        net.set_mau_expressions("M", expressions)
    assert describe(net) == before
