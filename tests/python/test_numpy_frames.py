"""numpy tables and posteriors, dict queries, batch inference over
DataFrames, pickling, sampling and the container protocol of Network."""
import copy
import pathlib
import pickle

import numpy as np
import pytest

import pyquarn
from pyquarn import NodeType, QUARNException

from conftest import quarn_error, reference_scenarios, shared_network
from describe_util import describe

pd = pytest.importorskip("pandas")


@pytest.fixture(scope="module")
def alarm():
    return shared_network("alarm")


@pytest.mark.parametrize("name", ["asia", "alarm", "mildew", "hailfinder"])
def test_arrays_agree_with_lists_and_follow_parent_order(name):
    net = shared_network(name)
    net.update_beliefs()
    for h in net.get_all_nodes():
        table = net.get_node_definition_array(h)
        dims = [net.get_outcome_count(p) for p in net.get_parents(h)] + [net.get_outcome_count(h)]
        assert table.shape == tuple(dims)
        assert table.ravel().tolist() == net.get_node_definition(h)
        assert net.get_node_value_array(h).tolist() == net.get_node_value(h)


def test_setting_a_table_from_an_array(small):
    net, h = small
    table = np.arange(12, dtype=float).reshape(2, 3, 2) / 10
    table[..., 1] = 1 - table[..., 0]
    net.set_node_definition_array("C", table)
    assert net.get_node_definition(h["C"]) == pytest.approx(table.ravel().tolist())
    before = describe(net)
    with quarn_error(-2, contains="has shape (2, 3, 2), got an array of shape (3, 2, 2)"):
        net.set_node_definition_array(h["C"], table.reshape(3, 2, 2))
    with pytest.raises(TypeError):
        net.set_node_definition_array("C", [["x"]])
    assert describe(net) == before


@pytest.mark.parametrize("name", ["asia", "alarm"])
def test_query_matches_reference_and_leaves_the_network_as_it_was(name):
    net = shared_network(name)
    before = describe(net)
    for scenario in reference_scenarios(name)[:4]:
        result = net.query(evidence=scenario["evidence"])
        for node, expected in scenario["marginals"].items():
            assert result[node] == pytest.approx(expected, abs=1e-6)
    assert describe(net) == before


def test_query_virtual_evidence_targets_and_refusals():
    net = shared_network("asia")
    net.set_evidence("smoke", 0)
    assert net.query(evidence={"smoke": "no"})["lung"] != pytest.approx(net.query()["lung"])
    assert net.get_evidence("smoke") == 0
    # Virtual evidence (l, 1-l) on a binary root equals reweighting its prior by hand.
    prior = net.get_node_definition_array("asia")
    posterior = net.query(virtual_evidence={"asia": np.array([0.8, 0.2])}, targets=["asia"])
    assert list(posterior) == ["asia"]
    assert posterior["asia"] == pytest.approx(prior * [0.8, 0.2] / (prior @ [0.8, 0.2]))
    before = describe(net)
    for bad in ({"xray": "maybe"}, {"nope": 0}, {"xray": 5}):
        with pytest.raises(QUARNException):
            net.query(evidence=bad)
    with quarn_error(-2, contains="needs 2 likelihoods"):
        net.query(virtual_evidence={"asia": [1.0, 0.5, 0.2]})
    with quarn_error(-2, contains="given evidence twice"):
        net.query(evidence={"asia": 0}, virtual_evidence={"asia": [1, 1]})
    with pytest.raises(QUARNException):
        net.query(evidence={"either": "no", "tub": "yes"})  # impossible: 'either' is the logical or
    with pytest.raises(TypeError):
        net.query(evidence={1.5: 0})
    assert describe(net) == before


def sample_frame(net, rows, seed):
    """Sampled records with about half the cells blanked, outcome ids mixed
    with indices."""
    frame = net.sample(rows, seed=seed, as_dataframe=True)
    mask = np.random.default_rng(seed).random(frame.shape) < 0.5
    frame = frame.astype(object).mask(mask)
    first = frame.columns[0]
    frame[first] = frame[first].map(lambda v: np.nan if pd.isna(v) else net.get_outcome_ids(first).index(v))
    return frame


def test_batch_equals_row_by_row_update(alarm):
    frame = sample_frame(alarm, 1000, seed=3).iloc[:, :12]
    batch = alarm.query_batch(frame)
    mpe = alarm.query_batch(frame, kind="mpe", targets=["HR", "CO"])
    targets = list(dict.fromkeys(batch.columns.get_level_values(0)))
    net = copy.copy(alarm)
    for i, (_, row) in enumerate(frame.iterrows()):
        net.clear_all_evidence()
        for node, value in row.dropna().items():
            net.set_evidence(node, value if isinstance(value, str) else int(value))
        net.update_beliefs()
        expected = np.concatenate([net.get_node_value(t) for t in targets])
        assert batch.iloc[i].to_numpy() == pytest.approx(expected, abs=1e-9)
        for t in ("HR", "CO"):
            assert mpe[t].iloc[i] == net.get_outcome_ids(t)[int(np.argmax(net.get_node_value(t)))]
    assert describe(alarm)["nodes"] == describe(shared_network("alarm"))["nodes"]


def test_batch_over_a_network_with_utilities_sets_its_evidence_aside(small):
    net, _ = small
    before = describe(net)
    frame = pd.DataFrame({"A": ["a0", None, "a1"], "B": [np.nan, 2, 0]})
    batch = net.query_batch(frame, targets=["C"])
    assert describe(net) == before
    for i, row in frame.iterrows():
        ref = copy.copy(net)
        ref.clear_all_evidence()
        ref.clear_all_targets()
        for node, value in row.dropna().items():
            ref.set_evidence(node, value if isinstance(value, str) else int(value))
        ref.update_beliefs()
        assert batch.iloc[i].tolist() == pytest.approx(ref.get_node_value("C"))


def test_batch_refusals_leave_the_network_unchanged(alarm):
    before = describe(alarm)
    for frame, text in [(pd.DataFrame({"nope": ["x"]}), "names no node"),
                        (pd.DataFrame({"HR": ["HUGE"]}), "not an outcome of node 'HR'"),
                        (pd.DataFrame({"HR": [7]}), "not an outcome index"),
                        (pd.DataFrame({"HR": [0]}), "kind must be")]:
        with quarn_error(-2, contains=text):
            alarm.query_batch(frame, kind="odd" if text == "kind must be" else "posteriors")
    assert describe(alarm) == before


def test_pickle_round_trips_networks_and_datasets(alarm):
    net = copy.copy(alarm)
    net.set_evidence("HR", "HIGH")
    net.set_virtual_evidence("CO", [0.2, 0.5, 0.3])
    net.set_target("BP", True)
    net.set_sample_count(777)
    net.set_bayesian_algorithm(pyquarn.BayesianAlgorithmType.PEARL)
    net.update_beliefs()
    clone = pickle.loads(pickle.dumps(net))
    assert describe(clone) == describe(net)
    state = net.__getstate__()
    for bad in [(2,) + state[1:], state[:3] + ([("HR", "x")],) + state[4:], state[:5]]:
        with quarn_error(-4):
            pyquarn.Network.__new__(pyquarn.Network).__setstate__(bad)
    data = net.sample(50, seed=9)
    data.add_float_variable("f")
    data.set_float("f", 3, 2.5)
    back = pickle.loads(pickle.dumps(data))
    assert [back.get_int_data(v) for v in range(37)] == [data.get_int_data(v) for v in range(37)]
    assert back.get_variable_ids() == data.get_variable_ids()
    assert back.get_state_names(0) == data.get_state_names(0)
    assert back.is_missing("f", 0) and back.get_float("f", 3) == 2.5


def test_sample_frequencies_follow_the_exact_marginals(alarm):
    frame = alarm.sample(20000, seed=5, as_dataframe=True)
    exact = reference_scenarios("alarm")[0]["marginals"]
    for node in ("HR", "CO", "BP", "HYPOVOLEMIA"):
        freq = frame[node].value_counts(normalize=True).reindex(alarm.get_outcome_ids(node), fill_value=0)
        assert freq.to_numpy() == pytest.approx(exact[node], abs=0.015)
    assert alarm.sample(30, seed=5).get_int_data(3) == alarm.sample(30, seed=5).get_int_data(3)
    with quarn_error(-2):
        alarm.sample(-1)


def test_container_protocol_paths_and_notes(small, tmp_path):
    net, h = small
    assert len(net) == 5 and list(net) == ["A", "B", "C", "D", "U"]
    assert "C" in net and "Z" not in net and 3 not in net
    assert repr(net) == "<pyquarn.Network '%s' with 5 nodes and 2 arcs>" % net.get_id()
    path = tmp_path / "small.xvek"
    net.write_file(path)
    other = pyquarn.Network()
    other.read_file(pathlib.Path(path))
    assert other.get_all_node_ids() == net.get_all_node_ids()
    data = pyquarn.learning.DataSet()
    data.add_int_variable("x")
    data.write_file(tmp_path / "d.txt")
    data.read_file(tmp_path / "d.txt")
    net.add_arc("C", "D")
    for call, note in [(lambda: net.add_arc("D", "A"), "would close a directed cycle"),
                       (lambda: net.add_arc("C", "A"), "already joined by an arc"),
                       (lambda: net.add_node(NodeType.CPT, "A"), "already used"),
                       (lambda: net.delete_outcome("A", 0), "at least two outcomes")]:
        with pytest.raises(QUARNException) as info:
            call()
        assert "in function" in str(info.value) and note in info.value.__notes__[0]
