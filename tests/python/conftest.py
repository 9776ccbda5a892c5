"""Shared fixtures and helpers for the pyquarn tests."""
import contextlib
import json
import os
import re

import pytest

import pyquarn
from pyquarn import NodeType, QUARNException

OCCURED = "QUARN Error Occured. "
SHARED = os.environ.get("QUARN_SHARED_DIR", os.path.join(os.path.dirname(__file__), "..", "..", "..", "shared"))


def shared_network(name):
    """A network of the shared benchmark set, read from its XML file."""
    net = pyquarn.Network()
    net.read_file(shared_xvek(name))
    return net


def reference_scenarios(name):
    """The independently computed evidence scenarios and exact posteriors."""
    with open(os.path.join(SHARED, "networks", "reference", name + ".json"), encoding="utf-8") as f:
        return json.load(f)["scenarios"]


def shared_xvek(name):
    """Path of a shared network in the XML network format."""
    return os.path.join(SHARED, "networks", "xvek", name + ".xvek")


@contextlib.contextmanager
def quarn_error(code, text=None, contains=None):
    """Expects a QUARNException with the given code (read from the instance
    and from the class) and, optionally, exactly the given text or a text
    containing the given fragment."""
    with pytest.raises(QUARNException) as info:
        yield info
    assert info.value.error_code == code
    assert QUARNException.error_code == code
    if text is not None:
        assert str(info.value) == text
    if contains is not None:
        assert contains in str(info.value)


def _call(fn, *args):
    """The result of a call, or the code of the QUARNException it raised."""
    try:
        return ("ok", fn(*args))
    except QUARNException as e:
        return ("error", e.error_code)


def describe(net):
    """Everything a test can observe about a network through the node,
    outcome, definition, evidence and belief methods, as plain data: two
    networks in the same state describe equally."""
    state = {
        "id": net.get_id(),
        "name": net.get_name(),
        "description": net.get_description(),
        "algorithm": int(net.get_bayesian_algorithm()),
        "samples": net.get_sample_count(),
        "discretization_samples": net.get_discretization_sample_count(),
        "relevance": net.is_relevance_enabled(),
        "zero_avoidance": net.is_zero_avoidance_enabled(),
        "outlier_rejection": net.is_outlier_rejection_enabled(),
        "seed": net.get_rand_seed(),
        "epis": repr(net.get_epis_params()),
        "ext_functions": net.get_ext_functions(),
        "node_ids": net.get_all_node_ids(),
        "nodes": [],
    }
    for h in net.get_all_nodes():
        node_id = net.get_node_id(h)
        node = {
            "handle": h,
            "id": node_id,
            "name": net.get_node_name(node_id),
            "description": net.get_node_description(node_id),
            "type": int(net.get_node_type(h)),
            "parents": net.get_parents(h),
            "parent_ids": net.get_parent_ids(h),
            "children": net.get_children(h),
            "outcomes": net.get_outcome_ids(node_id),
            "definition": net.get_node_definition(h),
            "intervals": _call(net.get_intervals, h),
            "point_values": _call(net.get_point_values, h),
            "indexing_parents": net.get_value_indexing_parents(h),
            "target": net.is_target(h),
            "evidence": net.is_evidence(h),
            "real": net.is_real_evidence(h),
            "propagated": net.is_propagated_evidence(h),
            "virtual": net.is_virtual_evidence(h),
            "controlled": net.is_controlled(h),
            "valid": net.is_value_valid(h),
            "evidence_index": _call(net.get_evidence, h),
            "cont_evidence": _call(net.get_cont_evidence, h),
            "virtual_evidence": _call(net.get_virtual_evidence, h),
            "value": _call(net.get_node_value, h),
            "mau": _call(net.get_mau_expressions, node_id),
        }
        state["nodes"].append(node)
    return state


def build_small(net):
    """A: (a0, a1); B: (b0, b1, b2); C: child of A and B with (c0, c1);
    D: a node with point values; U: a utility node. Evidence on A, B a
    target, virtual evidence on D."""
    a, b, c = (net.add_node(NodeType.CPT, node_id) for node_id in "ABC")
    for h, prefix in ((a, "a"), (b, "b"), (c, "c")):
        net.set_outcome_id(h, 0, prefix + "0")
        net.set_outcome_id(h, 1, prefix + "1")
    net.add_outcome(b, "b2")
    net.add_arc(a, c)
    net.add_arc(b, c)
    net.set_node_definition(c, [0.1, 0.9, 0.2, 0.8, 0.3, 0.7, 0.4, 0.6, 0.5, 0.5, 0.6, 0.4])
    net.set_node_definition(b, [0.2, 0.3, 0.5])
    d = net.add_node(NodeType.CPT, "D")
    net.set_point_values(d, [1.5, 2.5])
    u = net.add_node(NodeType.UTILITY, "U")
    net.set_node_name(a, "Node A")
    net.set_node_description(c, "the child")
    net.set_evidence(a, 1)
    net.set_target(b, True)
    net.set_virtual_evidence(d, [0.25, 0.75])
    return {"A": a, "B": b, "C": c, "D": d, "U": u}


def build_impossible(net):
    """Evidence that the model rules out (C is c0 whenever A is a0), so that
    updating beliefs fails and logs why."""
    a = net.add_node(NodeType.CPT, "A")
    c = net.add_node(NodeType.CPT, "C")
    net.add_arc(a, c)
    net.set_node_definition(c, [1.0, 0.0, 0.0, 1.0])
    net.set_evidence(a, 0)
    net.set_evidence(c, 1)
    return net


def with_nodes_a_b(net):
    """Two unconnected CPT nodes A and B."""
    net.add_node(NodeType.CPT, "A")
    net.add_node(NodeType.CPT, "B")
    return net


@pytest.fixture
def net():
    return pyquarn.Network()


@pytest.fixture
def small(net):
    handles = build_small(net)
    return net, handles


def refusal_test(rows, fixture="small", picture=None):
    """A test over rows (method, arguments, code, text): the call on the
    fixture's network raises QUARNException with the code and exactly that
    text, "..." standing for any run of characters (or raises TypeError where
    the code is TypeError), and leaves the network as it was, as picture (by
    default describe) draws it."""
    picture = picture or describe

    @pytest.mark.parametrize("method, args, code, text", rows)
    def test_refused(request, method, args, code, text):
        net = request.getfixturevalue(fixture)
        net = net[0] if isinstance(net, tuple) else net
        before = picture(net)
        if code is TypeError:
            with pytest.raises(TypeError):
                getattr(net, method)(*args)
        else:
            with quarn_error(code) as info:
                getattr(net, method)(*args)
            pattern = ".*".join(re.escape(part) for part in text.split("..."))
            assert re.fullmatch(pattern, str(info.value), re.S), str(info.value)
        assert picture(net) == before

    return test_refused


def type_errors(calls):
    """Rows for refusal_test of (method, arguments) calls that raise TypeError."""
    return [(method, args, TypeError, None) for method, args in calls]


def bad_node_cases(table):
    """Parameters for the bad-node rule over a table of (method, extra
    arguments, forms), forms holding "h" for the handle form and "i" for the
    identifier form. Each case: method, how the node is named, the extra
    arguments and the expected message."""
    for method, extra, forms in table:
        if "h" in forms:
            yield pytest.param(method, 99, extra, OCCURED + "Invalid node handle: 99", id=method + "-h99")
            yield pytest.param(method, -1, extra, OCCURED + "Invalid node handle: -1", id=method + "-h-1")
            # The main submodel's handle and id name no node.
            yield pytest.param(method, 0x8000, extra, OCCURED + "Invalid node handle: 32768", id=method + "-main")
            yield pytest.param(method, "deleted", extra, None, id=method + "-deleted")
        if "i" in forms:
            yield pytest.param(method, "Nope", extra, OCCURED + "Invalid node handle: -2", id=method + "-id")
            yield pytest.param(method, "Main", extra, OCCURED + "Invalid node handle: -2", id=method + "-Main")
            # The part before a NUL names a node; the whole id does not.
            yield pytest.param(method, "C\x00x", extra, OCCURED + "Invalid node handle: -2", id=method + "-nul")


def wrong_type_cases(table):
    """Parameters for the wrong-type rule: the node given as a float, None or
    a list."""
    for method, extra, _ in table:
        for bad in (1.0, None, [0]):
            yield pytest.param(method, bad, extra, id="%s-%s" % (method, type(bad).__name__))


def node_argument_tests(table, picture=None, fixture="small"):
    """The two tests every table of node methods gets: a node that does not
    exist is refused with code -3 and its text, a node of the wrong Python
    type with TypeError; the fixture's network is unchanged either way, as
    picture (by default describe) draws it."""
    picture = picture or describe

    def network(request):
        net = request.getfixturevalue(fixture)
        return net[0] if isinstance(net, tuple) else net

    @pytest.mark.parametrize("method, node, extra, text", list(bad_node_cases(table)))
    def test_unknown_node_is_refused(request, method, node, extra, text):
        net = network(request)
        if node == "deleted":
            node = net.get_all_nodes()[-1]
            net.delete_node(node)
            text = OCCURED + "Invalid node handle: %d" % node
        before = picture(net)
        with quarn_error(-3, text):
            getattr(net, method)(node, *extra)
        assert picture(net) == before

    @pytest.mark.parametrize("method, node, extra", list(wrong_type_cases(table)))
    def test_node_of_wrong_type_is_refused(request, method, node, extra):
        net = network(request)
        before = picture(net)
        with pytest.raises(TypeError):
            getattr(net, method)(node, *extra)
        assert picture(net) == before

    return test_unknown_node_is_refused, test_node_of_wrong_type_is_refused
