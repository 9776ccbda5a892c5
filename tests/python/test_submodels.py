import pytest

import pyquarn
from conftest import refusal_test, type_errors, with_nodes_a_b
from describe_util import assert_refused, describe

MAIN = 0x8000


@pytest.fixture
def net(net):
    return with_nodes_a_b(net)


def walk(net):
    out, h = [], net.get_first_submodel()
    while h >= 0:
        out.append(h)
        h = net.get_next_submodel(h)
    return out


def test_main_submodel_exists_in_an_empty_network():
    n = pyquarn.Network()
    assert (n.get_main_submodel(), n.get_main_submodel_id(), n.get_submodel("Main")) == (MAIN, "Main", MAIN)
    assert n.get_submodel_count() == 1 and walk(n) == [MAIN]
    assert n.get_submodel_of_submodel(MAIN) < 0


def test_add_by_parent_handle_and_by_parent_id(net):
    s1 = net.add_submodel(MAIN, "S1")
    s2 = net.add_submodel("S1", "S2")
    assert (s1, s2) == (MAIN | 1, MAIN | 2)
    assert (net.get_submodel("S2"), net.get_submodel_id(s2), net.get_submodel_count()) == (s2, "S2", 3)
    assert walk(net) == [MAIN, s1, s2]
    assert (net.get_submodel_of_submodel(s2), net.get_submodel_of_submodel("S1")) == (s1, MAIN)
    # A new submodel's name starts as its id.
    assert net.get_submodel_name("S2") == "S2"


def test_header_fields(net):
    s = net.add_submodel(MAIN, "S")
    net.set_submodel_name("S", "Späte Name")
    net.set_submodel_description(s, "about")
    assert (net.get_submodel_name("S"), net.get_submodel_description("S")) == ("Späte Name", "about")
    net.set_submodel_description("S", "")
    net.set_submodel_id(s, "Renamed")
    assert (net.get_submodel_description("Renamed"), net.get_submodel("Renamed"), net.get_submodel_id(s)) == (
        "", s, "Renamed")


def test_node_membership(net):
    s = net.add_submodel(MAIN, "S")
    assert net.get_submodel_of_node(0) == MAIN
    net.set_submodel_of_node(0, s)
    net.set_submodel_of_node("B", "S")
    assert (net.get_submodel_of_node("A"), net.get_submodel_of_node(1)) == (s, s)


def test_position_uses_the_top_left_corner(net):
    s = net.add_submodel(MAIN, "S")
    net.set_submodel_position(s, 10, 20, 5, 7)
    assert net.get_submodel_position(s) == [10, 20, 5, 7]
    net.set_submodel_position("S", [-11, 3, 81, 2])
    assert net.get_submodel_position("S") == [-11, 3, 81, 2]
    net.set_submodel_position("S", x=1, y=2, width=3, height=4)
    assert net.get_submodel_position(s) == [1, 2, 3, 4]


# Every submodel method given a bad submodel: a node handle, a free entry, a
# negative number, an unknown id or a node's id. All raise code -3 naming the
# handle (-2 for an id). BAD marks where the submodel goes when not first;
# the other submodel named is the same way, by handle or by id.
BAD = object()
_CALLS = [
    ("get_next_submodel", (), "h"), ("add_submodel", ("X",), "hi"), ("delete_submodel", (), "hi"),
    ("set_submodel_id", ("X",), "h"), ("get_submodel_id", (), "h"), ("set_submodel_name", ("x",), "hi"),
    ("set_submodel_description", ("x",), "hi"), ("get_submodel_of_submodel", (), "hi"),
    ("get_submodel_position", (), "hi"), ("set_submodel_position", (1, 2, 3, 4), "hi"),
    ("set_submodel_position", ([1, 2, 3, 4],), "hi"), ("set_submodel_of_submodel", (MAIN,), "hi"),
    ("set_submodel_of_submodel", (MAIN | 1, BAD), "hi"), ("get_submodel", (), "i"), ("get_submodel_name", (), "i"),
    ("get_submodel_description", (), "i")]


@pytest.mark.parametrize("method, extra, bad", [
    (m, e, b) for m, e, forms in _CALLS for b in (0, 1, MAIN | 5, -1, MAIN | 0x10000, "Nope", "A", "S\0")
    if ("i" if isinstance(b, str) else "h") in forms])
def test_bad_submodels(net, method, extra, bad):
    net.add_submodel(MAIN, "S")
    if isinstance(bad, str):
        extra = tuple({MAIN: "Main", MAIN | 1: "S"}.get(a, a) if isinstance(a, int) else a for a in extra)
    args = [bad if a is BAD else a for a in extra] if BAD in extra else [bad, *extra]
    shown = -2 if isinstance(bad, str) else bad
    assert_refused(net, -3, getattr(net, method), *args, text=f"QUARN Error Occured. Invalid submodel handle: {shown}")


@pytest.fixture
def sub(net):
    net.add_submodel(MAIN, "S")
    return net


S = MAIN | 1
RECT = "QUARN Error 1 in function pyquarn.Network.set_submodel_position(int, list) - rect array has invalid size"

# Ids are shared with nodes; a submodel handle is not a node handle; the
# submodel of a node is the engine's to check.
test_refused = refusal_test([
    ("add_submodel", (MAIN, "A"), -32, "..."), ("set_submodel_id", (S, "B"), -32, "..."),
    ("add_submodel", ("Main", "S"), -32, "..."), ("add_node", (pyquarn.NodeType.CPT, "S"), -2, "..."),
    ("set_submodel_position", (S, 2**31 - 10, 0, 100, 10), -2, "..."),
    ("set_submodel_position", (S, [0, -2**31, 10, -10]), -2, "..."),
    ("set_submodel_of_node", (7, S), -3, "..."), ("set_submodel_of_node", ("Nope", "S"), -3, "..."),
    ("get_submodel_of_node", (2,), -3, "..."), ("get_submodel_of_node", ("S",), -3, "..."),
    ("set_submodel_of_node", (S, S), -3, "..."),
    ("delete_submodel", (MAIN,), -2, "QUARN Error -2 in function Network.DeleteSubmodel"),
    ("delete_submodel", ("Main",), -2, "..."),
    # A NUL would cut the text short.
    ("set_submodel_name", (S, "a\0b"), -4, "..."), ("set_submodel_description", ("S", "a\0b"), -4, "..."),
] + [(m, (parent, bad_id), -4, "...") for bad_id in ["", "1abc", "has space", "a-b", "x\0y"]
     for m, parent in [("add_submodel", MAIN), ("set_submodel_id", S)]]
  + [("set_submodel_position", (s, rect), 1, RECT) for rect in ([1, 2, 3], [1, 2, 3, 4, 5], []) for s in (S, "S")]
  + [("set_submodel_of_node", (0, bad), -2, "QUARN Error -2 in function Network.SetSubmodelOfNode")
     for bad in [0, 1, MAIN | 5, -1, MAIN | 0x10000]]
  + type_errors([
      ("add_submodel", (1.5, "X")), ("add_submodel", (MAIN, 3)), ("get_submodel", (MAIN,)),
      ("get_submodel_id", ("Main",)), ("set_submodel_of_node", (0, "Main")),
      ("set_submodel_of_submodel", ("Main", MAIN)), ("set_submodel_position", (MAIN, [1, 2, "3", 4])),
      ("set_submodel_position", (MAIN, 1.0, 2, 3, 4)), ("get_next_submodel", ("Main",))]), "sub", describe)


def test_keeping_its_own_id_is_no_change(sub):
    sub.set_submodel_id(S, "S")
    assert sub.get_submodel("S") == S
