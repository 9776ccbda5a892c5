"""Diagnosis sessions from Python: the ranking against a closed form, the
caller's network left as it was, and refusals of bad input."""
import math

import pytest

import pyquarn
from pyquarn import MultiFaultAlgorithmType, NodeDiagType, NodeType, SingleFaultAlgorithmType
from describe_util import assert_refused, describe

PRIOR_F = [0.8, 0.2]
T2_GIVEN_F = [0.9, 0.1, 0.3, 0.7]  # P(T2 | F): rows F=ok, F=faulty


def build():
    """Faults F (ok, faulty) and G (ok, leak, crack); observations T1 (child
    of F and G) and T2 (child of F); A auxiliary, child of T1."""
    net = pyquarn.Network()
    for node_id, outcomes in [("F", ["ok", "faulty"]), ("G", ["ok", "leak", "crack"]),
                              ("T1", ["pass", "fail"]), ("T2", ["pass", "fail"]), ("A", ["a0", "a1"])]:
        net.add_node(NodeType.CPT, node_id)
        for i, o in enumerate(outcomes):
            (net.set_outcome_id if i < 2 else net.add_outcome)(node_id, *([i, o] if i < 2 else [o]))
    for parent, child in [("F", "T1"), ("G", "T1"), ("F", "T2"), ("T1", "A")]:
        net.add_arc(parent, child)
    net.set_node_definition("F", PRIOR_F)
    net.set_node_definition("G", [0.7, 0.2, 0.1])
    net.set_node_definition("T1", [0.95, 0.05, 0.4, 0.6, 0.2, 0.8, 0.5, 0.5, 0.1, 0.9, 0.05, 0.95])
    net.set_node_definition("T2", T2_GIVEN_F)
    net.set_node_definition("A", [0.6, 0.4, 0.3, 0.7])
    for node_id, kind in [("F", NodeDiagType.FAULT), ("G", NodeDiagType.FAULT),
                          ("T1", NodeDiagType.OBSERVATION), ("T2", NodeDiagType.OBSERVATION)]:
        net.set_node_diag_type(node_id, kind)
    net.set_fault_outcome("F", "faulty", True)
    net.set_fault_outcome("G", "leak", True)
    net.set_fault_outcome("G", "crack", True)
    net.set_node_cost("T2", [4.0])
    return net


def h2(p):
    return -sum(x * math.log2(x) for x in (p, 1 - p) if x > 0)


def test_ranking_matches_the_closed_form_and_leaves_the_network_alone():
    net = build()
    net.set_evidence("A", "a1")
    net.update_beliefs()
    before = describe(net)
    session = pyquarn.DiagNetwork(net)
    faults = session.get_faults()
    assert [(f.index, f.node_id, f.outcome_id) for f in faults] == [
        (0, "F", "faulty"), (1, "G", "leak"), (2, "G", "crack")]
    assert faults[0].probability == pytest.approx(0.2, abs=1e-12)  # the caller's evidence is not the session's
    session.set_pursued_fault(0)
    session.set_entropy_cost_ratio(0.5, 8.0)
    for algorithm in SingleFaultAlgorithmType.__members__.values():
        session.set_single_fault_algorithm(algorithm)
        results = session.update()
        t2 = next(o for o in results.observations if o.node_id == "T2")
        p_o = [PRIOR_F[0] * T2_GIVEN_F[o] + PRIOR_F[1] * T2_GIVEN_F[2 + o] for o in (0, 1)]
        after = [PRIOR_F[1] * T2_GIVEN_F[2 + o] / p_o[o] for o in (0, 1)]
        gain = h2(0.2) - sum(w * h2(a) for w, a in zip(p_o, after))
        expected = {SingleFaultAlgorithmType.CROSSENTROPY: gain,
                    SingleFaultAlgorithmType.NORM_CROSSENTROPY: gain / h2(0.2),
                    SingleFaultAlgorithmType.PROB_CHANGE: sum(w * abs(a - 0.2) for w, a in zip(p_o, after))}
        assert t2.measure == pytest.approx(expected[algorithm], abs=1e-12)
        assert (t2.cost, t2.score) == (4.0, pytest.approx(t2.measure - 0.25, abs=1e-12))
        assert [f.probability for f in results.faults] == sorted((f.probability for f in faults), reverse=True)
    session.instantiate_observation("T2", "fail")
    assert session.get_unperformed_tests() == ["T1"]
    assert [o.node_id for o in session.update().observations] == ["T1"]
    session.set_pursued_faults([0, 2])
    # The shared value 20 decodes as dependence with only one fault; id 12
    # (dependence, at least one) is reached by the plain id.
    session.set_multi_fault_algorithm(MultiFaultAlgorithmType.DEPENDENCE_ONLY_ONE)
    assert session.get_multi_fault_algorithm() == 20
    session.set_multi_fault_algorithm(12)
    assert session.get_multi_fault_algorithm() == 12
    session.release_observation(3)
    assert session.get_unperformed_tests() == ["T1", "T2"]
    assert describe(net) == before


def test_bad_input_is_refused_and_changes_nothing():
    empty = build()
    for node_id in ("F", "G"):
        empty.set_node_diag_type(node_id, NodeDiagType.AUXILIARY)
    assert "has no faults" in assert_refused(empty, -3, pyquarn.DiagNetwork, empty)
    with pytest.raises(TypeError):
        pyquarn.DiagNetwork("net")

    net = build()
    net.set_evidence("A", 0)
    session = pyquarn.DiagNetwork(net)
    session.set_pursued_faults([1, 2])
    session.instantiate_observation("T1", "fail")
    assert_refused(net, -2, session.set_pursued_fault, 3,
                   text="QUARN Error -2 in function DiagNetwork.SetPursuedFault. \n"
                        "Fault index 3 is out of range, valid indices are 0..2")
    assert_refused(net, -4, session.set_pursued_faults, [0, 0])
    assert_refused(net, -51, session.instantiate_observation, "A", 0,
                   text="QUARN Error -51 in function DiagNetwork.InstantiateObservation. \n"
                        "Node 'A' is not an observation node")
    assert_refused(net, -4, session.instantiate_observation, "T2", "broken")
    assert_refused(net, -2, session.instantiate_observation, "T2", 2)
    assert_refused(net, -3, session.instantiate_observation, 42, 0)
    assert_refused(net, -3, session.release_observation, "T2")
    assert_refused(net, -4, session.set_entropy_cost_ratio, 1.0, 0.0)
    assert_refused(net, -2, session.set_multi_fault_algorithm, 11)
    net.set_mandatory("T2", True)
    assert "Mandatory observation 'T2'" in assert_refused(net, -4, session.update)
    assert session.get_pursued_faults() == [1, 2]
    assert session.get_unperformed_tests() == ["T2"]
