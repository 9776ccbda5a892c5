"""Module attributes, QUARNException, enumerations, records and the Network
identity, copy and settings methods."""
import copy
import os
import subprocess
import sys
import textwrap

import pytest

import pyquarn
from pyquarn import QUARNException

from conftest import build_impossible, describe, quarn_error, refusal_test, type_errors

ENUMS = {
    "NodeType": [
        ("CPT", 18, "Conditional probability table node"), ("TRUTH_TABLE", 20, "Truth table node"),
        ("DECISION", 17, "Decision node"), ("UTILITY", 8, "Utility node"),
        ("MAU", 520, "Multi-attribute utility node"), ("NOISY_MAX", 146, "Noisy-MAX node"),
        ("EQUATION", 4, "Equation-based node"), ("DEMORGAN", 82, "DeMorgan logic node"),
    ],
    "BayesianAlgorithmType": [
        ("LAURITZEN", 0, "Lauritzen's exact inference algorithm"), ("HENRION", 1, "Henrion's algorithm"),
        ("PEARL", 2, "Pearl's exact algorithm"), ("L_SAMPLING", 3, "Likelihood sampling"),
        ("SELF_IMPORTANCE", 4, "Self importance sampling"),
        ("HEURISTIC_IMPORTANCE", 5, "Heuristic importance sampling"),
        ("BACK_SAMPLING", 6, "Backward sampling algorithm"),
        ("AIS_SAMPLING", 7, "Adaptive Importance Sampling algorithm"),
        ("EPIS_SAMPLING", 8, "Evidence Pre-propagation Importance Sampling"),
        ("LBP", 9, "Loopy Belief Propagation algorithm"),
    ],
    "InfluenceDiagramAlgorithmType": [
        ("POLICY_EVALUATION", 0, "Influence diagram policy evaluation"),
        ("FIND_BEST_POLICY", 1, "Policy search algorithm"),
    ],
    "DeMorganParentType": [
        ("INHIBITOR", 0, "Inhibitor logic parent"), ("REQUIREMENT", 1, "Requirement logic parent"),
        ("CAUSE", 2, "Causal parent"), ("BARRIER", 3, "Barrier logic parent"),
    ],
    "NodeTemporalType": [
        ("CONTEMPORAL", 0, "Contemporal node"), ("ANCHOR", 1, "Anchor node"), ("TERMINAL", 2, "Terminal node"),
        ("PLATE", 3, "Plate node"),
    ],
    "NodeDiagType": [
        ("FAULT", 0, "Fault node"), ("OBSERVATION", 1, "Observation node"),
        ("AUXILIARY", 2, "Auxiliary diagnostic node"),
    ],
    "MultiFaultAlgorithmType": [
        ("INDEPENDENCE_AT_LEAST_ONE", 10, "Independence: at least one fault"),
        ("INDEPENDENCE_ONLY_ONE", 18, "Independence: only one fault"),
        ("INDEPENDENCE_ONLY_ALL", 34, "Independence: only all faults together"),
        ("DEPENDENCE_AT_LEAST_ONE", 20, "Dependence: at least one fault"),
        ("DEPENDENCE_ONLY_ONE", 20, "Dependence: only one fault"),
        ("DEPENDENCE_ONLY_ALL", 36, "Dependence: only all faults together"),
        ("MARGINAL_1", 65, "Marginal model #1"), ("MARGINAL_2", 129, "Marginal model #2"),
        ("MAX_PROB_CHANGE", 257, "Maximum probability change"),
        ("L2_NORMALIZED_DISTANCE", 258, "L2 normalized distance"), ("COSINE_DISTANCE", 259, "Cosine distance"),
        ("CITYBLOCK_DISTANCE", 260, "Cityblock (Manhattan) distance"),
        ("AVG_L2_CITY_DISTANCE", 261, "Average of L2 and Cityblock distances"),
    ],
    "SingleFaultAlgorithmType": [
        ("NORM_CROSSENTROPY", 512, "Normalized cross-entropy"), ("CROSSENTROPY", 1024, "Cross-entropy"),
        ("PROB_CHANGE", 2048, "Probability change"),
    ],
    "CaseEvidenceType": [
        ("DISCRETE", 0, "Discrete evidence"), ("CONTINUOUS", 1, "Continuous evidence"),
        ("VIRTUAL", 2, "Virtual evidence"),
    ],
    "EdgeType": [
        ("DIRECTED", 2, "Directed edge"), ("UNDIRECTED", 1, "Undirected edge"),
        ("NONE", 0, "No edge between nodes"),
    ],
    "DiscretizationAlgorithmType": [
        ("HIERARCHICAL", 0, "Hierarchical discretization"), ("UNIFORM_COUNT", 2, "Equal-frequency discretization"),
        ("UNIFORM_WIDTH", 1, "Equal-width discretization"),
    ],
}

CLASS_DOCS = [
    ("AnnealedMapResults", "Results of the annealed MAP algorithm"),
    ("AnnealedMapTuning", "Tuning parameters for the annealed MAP algorithm"),
    ("MpeResults", "Results of the Most Probable Explanation (MPE) inference"),
    ("DiagResults", "Results of diagnostic reasoning"),
    ("DiscretizationInterval", "Information about a discretization interval"),
    ("DocItemInfo", "Information about a documentation item"),
    ("FaultInfo", "Information about a fault in diagnostic analysis"),
    ("Network", "Bayesian network structure and inference engine"),
    ("ObservationInfo", "Information about an observation in diagnostic reasoning"),
    ("TemporalInfo", "Temporal configuration information for dynamic networks"),
    ("UnrollResults", "Results of temporal unrolling of a dynamic network"),
    ("ValueOfInfo", "Value of Information analysis results"),
    ("DiagNetwork", "Wrapper for diagnostic Bayesian networks"),
    ("UserProperty", "User-defined property attached to a network or node"),
    ("SensitivityResults", "Results of sensitivity analysis"),
    ("NodeSensitivity", "Sensitivity of a node to evidence changes"),
    ("CaseEvidenceInfo", "Information about a specific case of evidence"),
    ("EPISParams", "Parameters for EPIS (Evidence Pre-propagation Importance Sampling)"),
]


def test_module_attributes():
    assert pyquarn.__doc__.startswith("PyQUARN: Python wrapper for QUARN")
    assert len(pyquarn.__doc__.splitlines()) == 1
    assert isinstance(pyquarn.__author__, str) and pyquarn.__author__
    assert pyquarn.__version__ == "2.4.7"
    assert pyquarn.learning.__doc__ == (
        "Provides algorithms for learning Bayesian network structures and parameters from data, "
        "including constraint-based, score-based, and EM-based methods."
    )


def test_module_registration_order():
    names = list(vars(pyquarn))
    expected = (
        ["__author__", "__version__", "learning", "QUARNException"]
        + ["NodeType", "BayesianAlgorithmType", "InfluenceDiagramAlgorithmType", "DeMorganParentType",
           "NodeTemporalType", "NodeDiagType", "MultiFaultAlgorithmType", "SingleFaultAlgorithmType",
           "CaseEvidenceType"]
        + [name for name, _ in CLASS_DOCS]
        + ["EdgeType", "DiscretizationAlgorithmType"]
    )
    positions = [names.index(n) for n in expected]
    assert positions == sorted(positions)


def test_module_has_no_functions_of_its_own():
    assert not [n for n, v in vars(pyquarn).items() if callable(v) and type(v).__name__ == "builtin_function_or_method"]


@pytest.mark.parametrize("name, doc", CLASS_DOCS)
def test_class_docstrings(name, doc):
    assert getattr(pyquarn, name).__doc__ == doc


def test_exception_is_a_plain_exception_subclass():
    assert issubclass(QUARNException, Exception)
    assert not issubclass(QUARNException, RuntimeError)
    assert QUARNException.__module__ == "pyquarn"


def test_error_code_lives_on_the_class(net):
    with pytest.raises(QUARNException) as first:
        net.get_node("Missing")
    assert "error_code" not in vars(first.value)
    assert first.value.error_code == QUARNException.error_code == -3
    with pytest.raises(QUARNException):
        net.redirect_log(3)
    # The earlier instance reads the code of the latest raise.
    assert QUARNException.error_code == -2
    assert first.value.error_code == -2


def test_a_copy_does_not_share_the_redirect(tmp_path):
    original = build_impossible(pyquarn.Network())
    original.redirect_log(str(tmp_path / "log.txt"))
    dup = copy.copy(original)
    del original
    # The copy keeps its messages in its own log, so they reach the text.
    with pytest.raises(QUARNException) as info:
        dup.update_beliefs()
    assert str(info.value).startswith("QUARN Error %d in function Network.UpdateBeliefs. \n" % info.value.error_code)


def test_redirect_log_to_an_unwritable_path(net, tmp_path):
    with quarn_error(-103, "QUARN Error -103 in function Network.RedirectLog"):
        net.redirect_log(str(tmp_path / "missing" / "log.txt"))


def test_update_failure_appends_the_logged_messages_and_changes_nothing(net):
    build_impossible(net)
    before = describe(net)
    with pytest.raises(QUARNException) as info:
        net.update_beliefs()
    text = str(info.value)
    assert info.value.error_code < 0
    assert text.startswith("QUARN Error %d in function Network.UpdateBeliefs. \n" % info.value.error_code)
    assert describe(net) == before
    # Only the messages of this call: the logger is cleared first.
    with pytest.raises(QUARNException) as again:
        net.update_beliefs()
    assert str(again.value) == text
    with pytest.raises(QUARNException):
        net.prob_evidence()
    assert describe(net) == before


BAD_ALLOC_SCRIPT = textwrap.dedent(
    """
    import resource, pyquarn
    from pyquarn import NodeType, QUARNException
    net = pyquarn.Network()
    p = net.add_node(NodeType.CPT, "P")
    c = net.add_node(NodeType.CPT, "C")
    net.set_intervals(p, [float(i) for i in range(12001)])
    net.add_arc(p, c)
    with open("/proc/self/status") as f:
        size = next(int(l.split()[1]) for l in f if l.startswith("VmSize:")) * 1024
    limit = size + (600 << 20)
    resource.setrlimit(resource.RLIMIT_AS, (limit, limit))
    try:
        net.set_intervals(c, [float(i) for i in range(12001)])
    except QUARNException as e:
        print(e.error_code, QUARNException.error_code, str(e))
    """
)


def test_exhausted_memory_raises_code_minus_42(tmp_path):
    # A 12000 x 12000 table fits an int but not the address space allowed to
    # the child process, so building it fails with bad_alloc.
    result = subprocess.run([sys.executable, "-c", BAD_ALLOC_SCRIPT], capture_output=True, text=True,
                            env=dict(os.environ), timeout=120)
    assert result.returncode == 0, result.stderr
    code, class_code, text = result.stdout.strip().split(" ", 2)
    assert (code, class_code) == ("-42", "-42")
    assert "alloc" in text


@pytest.mark.parametrize("enum_name", list(ENUMS))
def test_enumeration_members(enum_name):
    enum = getattr(pyquarn, enum_name)
    table = ENUMS[enum_name]
    assert list(enum.__members__) == [name for name, _, _ in table]
    for name, value, doc in table:
        member = getattr(enum, name)
        assert int(member) == value
        assert member == value
        assert "%s : %s" % (name, doc) in enum.__doc__


def test_dependence_only_one_is_an_alias():
    mf = pyquarn.MultiFaultAlgorithmType
    assert mf.DEPENDENCE_ONLY_ONE is mf.DEPENDENCE_AT_LEAST_ONE
    assert mf.__members__["DEPENDENCE_ONLY_ONE"] is mf.DEPENDENCE_AT_LEAST_ONE
    assert mf(20) == mf.DEPENDENCE_ONLY_ONE


RECORDS = [
    ("UserProperty", {"name": "", "value": ""}, {"name": "colour", "value": "red"}),
    ("DocItemInfo", {"title": "", "path": ""}, {"title": "Manual", "path": "/doc/m.pdf"}),
    ("DiscretizationInterval", {"id": "", "upper_bound": 0.0}, {"id": "low", "upper_bound": 2.5}),
    ("TemporalInfo", {"parent_handle": -1, "parent_id": "", "order": 0},
     {"parent_handle": 3, "parent_id": "P", "order": 2}),
    ("CaseEvidenceInfo",
     {"type": pyquarn.CaseEvidenceType.DISCRETE, "outcome": -1, "value": 0.0, "virtual_evidence": [], "slice": -1},
     {"type": pyquarn.CaseEvidenceType.VIRTUAL, "outcome": 1, "value": 1.5, "virtual_evidence": [0.3, 0.7],
      "slice": 2}),
    ("EPISParams",
     {"propagation_length": 5, "num_state_small": 5, "num_state_medium": 8, "num_state_big": 20,
      "state_small_epsil": 0.006, "state_medium_epsil": 0.0001, "state_big_epsil": 5e-05, "state_otherwise": 5e-05},
     {"propagation_length": 7, "num_state_small": 3, "num_state_medium": 6, "num_state_big": 30,
      "state_small_epsil": 0.01, "state_medium_epsil": 0.001, "state_big_epsil": 1e-05, "state_otherwise": 2e-05}),
    ("AnnealedMapTuning",
     {"speed": 1.1, "t_min": 0.02, "t_init": 0.1, "k_reheat": 0.1, "k_map": 1, "k_r_factor": 0.98,
      "stop_after": 3000, "iterations_per_temperature": 100},
     {"speed": 1.5, "t_min": 0.01, "t_init": 0.5, "k_reheat": 0.2, "k_map": 3, "k_r_factor": 0.9,
      "stop_after": 10, "iterations_per_temperature": 7}),
]


@pytest.mark.parametrize("name, defaults, values", RECORDS, ids=[r[0] for r in RECORDS])
def test_record_fields_equality_and_copies(name, defaults, values):
    cls = getattr(pyquarn, name)
    blank = cls()
    assert {k: getattr(blank, k) for k in defaults} == defaults
    filled = cls(**values)
    assert {k: getattr(filled, k) for k in values} == values
    assert filled != blank and filled == cls(**values)
    assert filled != "not a record"
    for field, value in values.items():
        setattr(blank, field, value)
    assert blank == filled
    text = repr(filled)
    assert text.startswith(name + "(") and all("%s=" % k in text for k in values)
    for dup in (copy.copy(filled), copy.deepcopy(filled)):
        assert dup == filled and dup is not filled
        field = next(iter(defaults))
        setattr(dup, field, defaults[field])
        assert getattr(filled, field) == values[field]


@pytest.mark.parametrize("name, field, bad", [
    ("UserProperty", "name", 5), ("DocItemInfo", "path", None), ("TemporalInfo", "order", 1.5),
    ("CaseEvidenceInfo", "type", 1), ("CaseEvidenceInfo", "virtual_evidence", "abc"),
    ("EPISParams", "num_state_big", "20"), ("AnnealedMapTuning", "k_map", None),
])
def test_record_fields_refuse_wrong_types(name, field, bad):
    cls = getattr(pyquarn, name)
    with pytest.raises(TypeError):
        setattr(cls(), field, bad)
    with pytest.raises(TypeError):
        cls(**{field: bad})


def test_epis_field_docstrings():
    docs = {
        "propagation_length": "Number of steps for evidence propagation (sampling depth)",
        "num_state_small": "Maximum number of states considered 'small'",
        "num_state_medium": "Maximum number of states considered 'medium'",
        "num_state_big": "Maximum number of states considered 'big'",
        "state_small_epsil": "Epsilon threshold for small state groups",
        "state_medium_epsil": "Epsilon threshold for medium state groups",
        "state_big_epsil": "Epsilon threshold for big state groups",
        "state_otherwise": "Epsilon threshold for all other state groups",
    }
    for field, doc in docs.items():
        assert getattr(pyquarn.EPISParams, field).__doc__ == doc


test_identity_methods_refuse_bad_input = refusal_test(
    [("set_id", (bad_id,), -30, "QUARN Error -30 in function Network.SetId") for bad_id in ["1net", "a-b", "", "a b"]]
    + [("redirect_log", (fd,), -2, "QUARN Error -2 in function Network.RedirectLog. Invalid file descriptor, only 1 "
        "(stdout) or 2 (stderr) are valid") for fd in (0, 3, -1)]
    + [("set_epis_params", (pyquarn.EPISParams(**changes),), -4,
        "QUARN Error -4 in function Network.SetEPISParams. Invalid EPIS parameters")
       for changes in [{"num_state_medium": 5}, {"num_state_big": 8}, {"propagation_length": 0},
                       {"state_medium_epsil": 0.01}, {"state_big_epsil": 0.001}]]
    + type_errors([("set_id", (5,)), ("set_name", (None,)), ("set_description", (1.5,)), ("redirect_log", ([],)),
                   ("redirect_log", (1.0,)), ("set_ext_functions", ("f(x)=x",)), ("set_ext_functions", ([1, 2],))]),
    "net")


@pytest.mark.parametrize("how", [copy.copy, copy.deepcopy, lambda n: n.__deepcopy__({})])
def test_copies_are_full_and_independent(small, how):
    net, h = small
    net.set_id("Orig")
    before = describe(net)
    dup = how(net)
    assert type(dup) is pyquarn.Network
    assert describe(dup) == before
    dup.delete_node("C")
    dup.set_id("Copy")
    dup.clear_all_evidence()
    assert describe(net) == before
    assert "C" not in dup.get_all_node_ids()


@pytest.mark.parametrize("value", [13, 14, 1000, -1])
def test_unknown_bayesian_algorithms_are_ignored(net, value):
    net.set_bayesian_algorithm(pyquarn.BayesianAlgorithmType.PEARL)
    net.set_bayesian_algorithm(pyquarn.BayesianAlgorithmType(value))
    assert net.get_bayesian_algorithm() == pyquarn.BayesianAlgorithmType.PEARL


test_setting_methods_refuse_bad_values = refusal_test([
    (method, (value,), -2, "QUARN Error -2 in function Network.%s" % label) for method, value, label in [
        ("set_sample_count", 0, "SetSampleCount"), ("set_sample_count", -5, "SetSampleCount"),
        ("set_discretization_sample_count", 0, "SetDiscretizationSampleCount")]
] + type_errors([
    ("set_sample_count", (1.5,)), ("set_sample_count", (None,)), ("set_rand_seed", ("1",)),
    ("set_relevance_enabled", (1,)), ("set_relevance_enabled", (None,)), ("set_zero_avoidance_enabled", (0,)),
    ("set_outlier_rejection_enabled", ("yes",)), ("set_bayesian_algorithm", (3,)),
    ("set_epis_params", (None,)), ("set_sample_count", (2 ** 40,)),
    ("set_bayesian_algorithm", (pyquarn.InfluenceDiagramAlgorithmType.FIND_BEST_POLICY,)),
]), "net")


def test_epis_params_round_trip(net):
    params = pyquarn.EPISParams(propagation_length=9, num_state_small=2, num_state_medium=3, num_state_big=4,
                                state_small_epsil=0.5, state_medium_epsil=0.5, state_big_epsil=0.25,
                                state_otherwise=7.0)
    net.set_epis_params(params)  # the last epsilon is not checked
    assert net.get_epis_params() == params
    assert net.get_epis_params() is not net.get_epis_params()


def test_describe_sees_the_small_network(small):
    net, h = small
    state = describe(net)
    assert state["node_ids"] == ["A", "B", "C", "D", "U"]
    c = state["nodes"][h["C"]]
    assert c["parents"] == [h["A"], h["B"]] and c["description"] == "the child"
    assert state["nodes"][h["A"]]["evidence_index"] == ("ok", 1)
    assert describe(pyquarn.Network()) != state
