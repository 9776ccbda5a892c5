"""Nodes and arcs: enumeration, identity, types, adding and deleting."""
from pyquarn import NodeType

from conftest import OCCURED, describe, node_argument_tests, quarn_error, refusal_test, type_errors

NODE_METHODS = [
    ("get_next_node", (), "hi"), ("get_next_node_id", (), "hi"), ("get_node_name", (), "i"),
    ("get_node_type", (), "hi"), ("get_parents", (), "hi"), ("get_parent_ids", (), "hi"),
    ("get_children", (), "hi"), ("get_child_ids", (), "hi"), ("set_node_name", ("New name",), "hi"),
    ("get_node_id", (), "h"), ("set_node_id", ("Fresh",), "hi"), ("delete_node", (), "i"),
    ("set_node_type", (int(NodeType.TRUTH_TABLE),), "hi"), ("set_node_description", ("text",), "hi"),
    ("get_node_description", (), "i"),
]


test_unknown_node_is_refused, test_node_of_wrong_type_is_refused = node_argument_tests(NODE_METHODS)

test_refused = refusal_test([
    ("add_node", (NodeType.CPT, "C"), -2, "QUARN Error -2 in function Network.AddNode"),
    ("add_node", (NodeType(99), "X"), -51, "QUARN Error -51 in function Network.AddNode"),
    ("add_arc", ("A", "C"), -2, "QUARN Error -2 in function Network.AddArc"),  # already there
    ("add_arc", ("C", "A"), -2, "QUARN Error -2 in function Network.AddArc"),  # the other way round
    ("add_arc", ("C", "C"), -2, "QUARN Error -2 in function Network.AddArc"),
    ("add_arc", ("U", "C"), -51, "QUARN Error -51 in function Network.AddArc"),  # a utility feeds no chance node
] + [("set_node_id", (0, new_id), code, "QUARN Error %d in function Network.SetNodeId..." % code)
     for new_id, code in [("2fast", -30), ("a-b", -30), ("", -30), ("a\x00b", -4), ("B", -32)]]
  + [("set_node_type", (2, bad), -51, "QUARN Error -51 in function Network.SetNodeType") for bad in (99, 0, -1, 19)]
  + [("delete_arc", arc, -2, "QUARN Error -2 in function Network.DeleteArc") for arc in (("C", "A"), ("A", "B"),
                                                                                         ("A", "A"))]
  + [("delete_node", (h,), -2, "QUARN Error -2 in function Network.DeleteNode") for h in (99, -1, 5)]
  # Arcs take two handles or two ids; add_node a type and an id.
  + type_errors([(m, args) for m in ("add_arc", "delete_arc")
                 for args in [(0, "C"), ("A", 2), (0.0, 2), (0, None), (None, None)]])
  + type_errors([("add_node", args) for args in [(18, "X"), (18,), (None,), ("X", NodeType.CPT), (NodeType.CPT, 5),
                                                 (NodeType.CPT, None), (b"X", NodeType.CPT)]])
  + type_errors([("set_node_type", (2, bad)) for bad in (18.0, None, "CPT")])
  # get_node_id takes only a handle, get_node only an id.
  + type_errors([("get_node_id", ("A",)), ("get_node", (0,))]))


# Both nodes of an arc are named the same way: handles with handles, ids with ids.
test_arcs_with_an_unknown_node_are_refused = refusal_test([
    (method, nodes, -3, OCCURED + "Invalid node handle: " + text) for method in ("add_arc", "delete_arc")
    for nodes, text in [((99, 2), "99"), ((0, 99), "99"), ((-4, 2), "-4"), (("Nope", "C"), "-2"), (("A", "Nope"), "-2")]])


def test_add_node_forms(net):
    assert net.add_node(NodeType.DECISION, "Choice") == 0
    assert net.add_node(NodeType.UTILITY) == 1
    assert net.add_node("Plain") == 2
    assert net.add_node() == 3
    assert net.get_all_node_ids() == ["Choice", "Node1", "Plain", "Node3"]
    assert [net.get_node_type(h) for h in range(4)] == [NodeType.DECISION, NodeType.UTILITY, NodeType.CPT,
                                                       NodeType.CPT]
    assert net.add_node(node_type=NodeType.TRUTH_TABLE, node_id="T") == 4
    assert net.get_node_type("T") == 20
    assert net.get_node_count() == 5


# Ids are checked before the engine sees them.
test_add_node_refuses_invalid_ids = refusal_test([
    ("add_node", args, -4, "Identifier '%s' is invalid - it should start with a letter and contain only letters, "
                           "digits and underscores" % bad_id)
    for bad_id in ["1abc", "a-b", "", "a b", "@node", "x.y", "a\x00b", "_a"] for args in ((NodeType.CPT, bad_id), (bad_id,))])


def test_add_node_accepts_non_ascii_ids(net):
    h = net.add_node(NodeType.CPT, "Gr\u00f6\u00dfe_\u6e29\u5ea6")
    assert net.get_node("Gr\u00f6\u00dfe_\u6e29\u5ea6") == h
    assert net.get_node_id(h) == "Gr\u00f6\u00dfe_\u6e29\u5ea6"


def test_walking_the_nodes(small):
    net, h = small
    net.delete_node(h["B"])
    walked, ids = [], []
    node = net.get_first_node()
    node_id = net.get_first_node_id()
    while node >= 0:
        walked.append(node)
        ids.append(node_id)
        node, node_id = net.get_next_node(node), net.get_next_node_id(node_id)
    assert walked == net.get_all_nodes() == [h["A"], h["C"], h["D"], h["U"]]
    assert ids == net.get_all_node_ids()
    assert node_id is None


def test_empty_network_walk(net):
    assert net.get_first_node() == -2
    assert net.get_first_node_id() is None
    assert net.get_all_nodes() == [] and net.get_all_node_ids() == [] and net.get_node_count() == 0


def test_names_and_descriptions(small):
    net, h = small
    assert net.get_node_name("A") == "Node A"
    assert net.get_node_name("B") == "B"
    net.set_node_name("B", new_name="Be \u00e9")
    net.set_node_description(h["B"], new_description="")
    assert net.get_node_name("B") == "Be \u00e9" and net.get_node_description("B") == ""
    assert net.get_node_description("C") == "the child"


def test_rename_a_node(small):
    net, h = small
    net.set_node_id(h["A"], "Alpha")
    assert net.get_node("Alpha") == h["A"]
    assert net.get_parent_ids("C") == ["Alpha", "B"]
    with quarn_error(-3):
        net.get_node("A")
    net.set_node_id("Alpha", new_id="Alpha")
    assert net.get_node_id(h["A"]) == "Alpha"


def test_arcs_by_handle_and_by_id(small):
    net, h = small
    net.add_arc("D", "C")
    assert net.get_parents(h["C"]) == [h["A"], h["B"], h["D"]]
    assert net.get_parent_ids("C") == ["A", "B", "D"]
    assert net.get_children("D") == [h["C"]] and net.get_child_ids(h["A"]) == ["C"]
    assert len(net.get_node_definition("C")) == 24
    net.delete_arc(h["B"], h["C"])
    assert net.get_parent_ids("C") == ["A", "D"]
    assert len(net.get_node_definition("C")) == 8


def test_arc_closing_a_cycle(small):
    net, h = small
    net.add_arc("C", "D")
    before = describe(net)
    with quarn_error(-11, "QUARN Error -11 in function Network.AddArc"):
        net.add_arc(h["D"], h["A"])
    assert describe(net) == before
