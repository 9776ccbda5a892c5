"""DataSet.match_network and discretize, and pyquarn.learning.Validator:
a network scored as a classifier, results as numpy arrays."""
import copy

import numpy as np
import pytest

import pyquarn
from pyquarn import DiscretizationAlgorithmType as Alg
from pyquarn.learning import DataMatch, DataSet, Validator
from conftest import describe, quarn_error
from test_em import ab_dataset, small_network

# A -> B with P(B = b1 | a0) = 0.2, P(B = b1 | a1) = 0.7.
ROWS = [("a0", "b0"), ("a0", "b1"), ("a1", "b1"), ("a1", "b0"), ("a1", "b1"), ("*", "b0"), ("a0", "*")]
P_B1 = {"a0": 0.2, "a1": 0.7, "*": 0.5 * 0.2 + 0.5 * 0.7}


@pytest.fixture
def ab(tmp_path):
    net = small_network()
    net.set_node_definition("B", [0.8, 0.2, 0.3, 0.7])
    return net, ab_dataset(tmp_path, ROWS)


def test_discretize_converts_in_place_and_refuses_bad_requests():
    ds = DataSet()
    ds.add_float_variable("x")
    for r, value in enumerate([11, 1, 20, 3, 10, 2]):
        ds.add_empty_record()
        ds.set_float("x", r, value)
    before = ds.get_float_data("x")
    for args, text in (((Alg.UNIFORM_COUNT, 1), "The interval count must be at least 2, got 1"),
                       ((Alg.UNIFORM_COUNT, 2, "a\0"), None)):
        with quarn_error(-2 if text else -4, contains=text):
            ds.discretize("x", *args)
    assert ds.get_float_data("x") == before
    with pytest.raises(TypeError):
        ds.discretize("x", 2, 3)
    assert ds.discretize("x", Alg.UNIFORM_COUNT, 3, "q") == [2.5, 10.5]
    assert ds.get_int_data("x") == [2, 0, 2, 1, 1, 0]
    assert ds.get_state_names("x") == ["q0", "q1", "q2"]


def test_validator_results_match_the_tables(ab):
    assert Validator.__doc__ == "Cross-validation and model evaluation utilities"
    assert Validator.Curve.__doc__ == "ROC or precision-recall curve data"
    net, ds = ab
    v = Validator(net, ds, ds.match_network(net))
    v.add_class_node("B")
    v.test()
    post = v.get_posteriors("B")
    expected_b1 = np.array([P_B1[a] for a, _ in ROWS])
    np.testing.assert_allclose(post, np.column_stack([1 - expected_b1, expected_b1]))

    # Scores as numpy values: the confusion matrix counts the predictions by the 0.5 cut.
    known = [(P_B1[a] > 0.5, b == "b1") for a, b in ROWS if b != "*"]
    confusion = v.get_confusion_matrix(net.get_node("B"))
    assert confusion.dtype == np.int64
    np.testing.assert_array_equal(confusion, [[sum(t == i and p == j for p, t in known) for j in (0, 1)]
                                              for i in (0, 1)])
    roc = v.get_roc_curve("B", "b1")
    assert isinstance(roc, Validator.Curve) and roc.points.shape[1] == 2
    np.testing.assert_allclose(roc.points[[0, -1]], [[0, 0], [1, 1]])
    assert v.get_pr_curve("B", 1).points[-1, 0] == 1.0

    v.k_fold(3, seed=4)
    assert v.get_posteriors("B").shape == (len(ROWS), 2)
    assert copy.copy(v).get_accuracy("B") == v.get_accuracy("B")


def test_validator_refuses_bad_input_and_keeps_its_inputs(ab):
    net, ds = ab
    before, cells = describe(net), (ds.get_int_data(0), ds.get_int_data(1))
    matching = ds.match_network(net)
    for bad in ([], [DataMatch(7, 0, 0)], [DataMatch(0, 0, 5)]):
        with pytest.raises(pyquarn.QUARNException):
            Validator(net, ds, bad)
    with pytest.raises(TypeError):
        Validator(net, ds, [(0, 0, 0)])
    v = Validator(net, ds, matching[1:])
    with quarn_error(-3, contains="no class node was added"):
        v.test()
    with quarn_error(-2, contains="Node 'A' is not matched to a dataset column"):
        v.add_class_node("A")
    v.add_class_node("B")
    with quarn_error(-3, contains="No results: run test, k_fold or leave_one_out first"):
        v.get_accuracy("B")
    for k in (1, len(ROWS) + 1):
        with quarn_error(-2, contains="the fold count must be between 2 and the record count (7)"):
            v.k_fold(k, 0)
    v.leave_one_out()
    with quarn_error(-3, contains="Node 'A' was not a class node of the last run"):
        v.get_posteriors("A")
    with quarn_error(-2):
        v.get_roc_curve("B", 2)
    assert describe(net) == before and (ds.get_int_data(0), ds.get_int_data(1)) == cells
    ds.set_state_names("B", ["b0", "b1", "b9"])
    with quarn_error(-2, contains="in function DataSet.MatchNetwork. Columns do not fit their nodes: state 'b9'"):
        ds.match_network(net)
