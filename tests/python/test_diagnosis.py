"""Diagnosis sessions from Python: the ranking against a closed form, the
caller's network left as it was, and refusals of bad input."""
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
    nodes = [("F", ["ok", "faulty"], [], PRIOR_F, NodeDiagType.FAULT),
             ("G", ["ok", "leak", "crack"], [], [0.7, 0.2, 0.1], NodeDiagType.FAULT),
             ("T1", ["pass", "fail"], ["F", "G"], [0.95, 0.05, 0.4, 0.6, 0.2, 0.8, 0.5, 0.5, 0.1, 0.9, 0.05, 0.95],
              NodeDiagType.OBSERVATION),
             ("T2", ["pass", "fail"], ["F"], T2_GIVEN_F, NodeDiagType.OBSERVATION),
             ("A", ["a0", "a1"], ["T1"], [0.6, 0.4, 0.3, 0.7], NodeDiagType.AUXILIARY)]
    for node_id, outcomes, parents, table, kind in nodes:
        net.add_node(NodeType.CPT, node_id)
        net.set_outcome_id(node_id, 0, outcomes[0])
        net.set_outcome_id(node_id, 1, outcomes[1])
        for o in outcomes[2:]:
            net.add_outcome(node_id, o)
        for parent in parents:
            net.add_arc(parent, node_id)
        net.set_node_definition(node_id, table)
        net.set_node_diag_type(node_id, kind)
        for o in outcomes[1:] if kind == NodeDiagType.FAULT else []:
            net.set_fault_outcome(node_id, o, True)
    net.set_node_cost("T2", [4.0])
    return net


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
    session.set_single_fault_algorithm(SingleFaultAlgorithmType.PROB_CHANGE)
    results = session.update()
    assert [f.probability for f in results.faults] == sorted((f.probability for f in faults), reverse=True)
    t2 = next(o for o in results.observations if o.node_id == "T2")
    p_o = [PRIOR_F[0] * T2_GIVEN_F[o] + PRIOR_F[1] * T2_GIVEN_F[2 + o] for o in (0, 1)]
    after = [PRIOR_F[1] * T2_GIVEN_F[2 + o] / p_o[o] for o in (0, 1)]
    assert t2.measure == pytest.approx(sum(w * abs(a - 0.2) for w, a in zip(p_o, after)), abs=1e-12)
    assert (t2.cost, t2.score) == (4.0, pytest.approx(t2.measure - 0.25, abs=1e-12))
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
    net.set_ranked("T1", True)  # once some tests are ranked, only those are proposed
    assert pyquarn.DiagNetwork(net).get_unperformed_tests() == ["T1"]


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
    net.delete_node("F")  # a session over an edited network refuses rather than guess
    assert "has changed" in assert_refused(net, -1, session.update)
    no_tests = build()
    for node_id in ("T1", "T2"):
        no_tests.set_node_diag_type(node_id, NodeDiagType.AUXILIARY)
    assert "no observation nodes" in assert_refused(no_tests, -3, pyquarn.DiagNetwork, no_tests)
