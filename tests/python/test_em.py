"""pyquarn.learning.EM and DataMatch: learning the tables of a Network from a
DataSet, with missing values, prior counts and fixed nodes."""
import math

import pytest

import pyquarn
from pyquarn.learning import DataSet, DataMatch, EM
from conftest import quarn_error


def small_network():
    net = pyquarn.Network()
    for node_id, outcomes in (("A", ["a0", "a1"]), ("B", ["b0", "b1"])):
        net.add_node(pyquarn.NodeType.CPT, node_id)
        for index, outcome in enumerate(outcomes):
            net.set_outcome_id(node_id, index, outcome)
    net.add_arc("A", "B")
    net.set_node_definition("A", [0.5, 0.5])
    net.set_node_definition("B", [0.5, 0.5, 0.5, 0.5])
    return net


def ab_dataset(tmp_path, rows):
    path = tmp_path / "ab.csv"
    path.write_text("A,B\n" + "".join(f"{a},{b}\n" for a, b in rows))
    ds = DataSet()
    ds.read_file(str(path))
    return ds


def test_em_counts_complete_data(tmp_path):
    ds = ab_dataset(tmp_path, [("a0", "b0"), ("a0", "b1"), ("a0", "b1"), ("a1", "b0")])
    net = small_network()
    em = EM()
    em.learn(ds, net, [DataMatch(net.get_node("A"), 0, 0), DataMatch(net.get_node("B"), 0, 1)])
    assert net.get_node_definition("A") == pytest.approx([0.75, 0.25])
    assert net.get_node_definition("B") == pytest.approx([1 / 3, 2 / 3, 1.0, 0.0])
    assert em.get_last_score() == pytest.approx(3 * math.log(0.75) + math.log(0.25)
                                                + math.log(1 / 3) + 2 * math.log(2 / 3))


def test_em_settings_and_missing_data(tmp_path):
    ds = ab_dataset(tmp_path, [("a0", "b0"), ("*", "b1"), ("a1", "*"), ("a0", "b1")])
    net = small_network()
    em = EM()
    em.set_eq_sample_size(2)
    matching = [DataMatch(net.get_node("A"), 0, 0), DataMatch(net.get_node("B"), 0, 1)]
    em.learn(ds, net, matching, ["B"])
    assert net.get_node_definition("B") == [0.5, 0.5, 0.5, 0.5]
    a = net.get_node_definition("A")
    assert a[0] > a[1] and sum(a) == pytest.approx(1.0)
    em.set_uniformize_parameters(True)
    with quarn_error(-4, contains="EM.SetEquivalentSampleSize"):
        em.set_eq_sample_size(5)
    em.set_randomize_parameters(True)
    em.set_seed(3)
    assert em.get_randomize_parameters() and em.get_seed() == 3
    em.set_uniformize_parameters(True)
    assert not em.get_randomize_parameters()


def test_em_failures_raise_and_keep_the_network(tmp_path):
    ds = ab_dataset(tmp_path, [("a0", "b0")])
    net = small_network()
    before = net.get_node_definition("B")
    em = EM()
    with quarn_error(-3, "QUARN Error -3 in function EM.Learn. \n"
                         "EM: no matching between node and data were specified"):
        em.learn(ds, net, [])
    with quarn_error(-3, contains="Invalid node handle: 7"):
        em.learn(ds, net, [DataMatch(7, 0, 0)])
    with quarn_error(-2, contains="Invalid dataset column in the matching: 5"):
        em.learn(ds, net, [DataMatch(0, 0, 5)])
    with quarn_error(-3):
        em.learn(ds, net, [DataMatch(0, 0, 0)], ["nope"])
    with pytest.raises(TypeError):
        em.learn(ds, net, [(0, 0)])
    assert net.get_node_definition("B") == before


def test_em_uniform_start_refuses_free_truth_tables(tmp_path):
    ds = ab_dataset(tmp_path, [("a0", "b0"), ("a0", "b0"), ("a0", "b0"), ("a1", "b1")])
    net = small_network()
    net.set_node_type("B", pyquarn.NodeType.TRUTH_TABLE)
    net.set_node_definition("B", [1, 0, 0, 1])
    matching = [DataMatch(net.get_node("A"), 0, 0), DataMatch(net.get_node("B"), 0, 1)]
    em = EM()
    em.set_uniformize_parameters(True)
    with quarn_error(-51):
        em.learn(ds, net, matching)
    assert net.get_node_definition("A") == [0.5, 0.5]
    em.learn(ds, net, matching, ["B"])
    assert net.get_node_definition("B") == [1, 0, 0, 1]
    assert net.get_node_definition("A") == pytest.approx([0.75, 0.25])
