"""Structure learning from Python: learner settings, background knowledge,
patterns, and the refusal of bad input with everything left unchanged."""
import copy

import pytest

import pyquarn
from pyquarn import EdgeType
from pyquarn.learning import (BayesianSearch, BkKnowledge, DataSet, GreedyThickThinning, NaiveBayes, PC, TAN,
                              Pattern)

from conftest import quarn_error, shared_xvek

LEARNING_DOCS = [
    ("DataSet", "Tabular dataset for training and testing"),
    ("BayesianSearch", "Bayesian network structure learning using Bayesian scoring"),
    ("BkKnowledge", "Background knowledge constraints for structure learning"),
    ("DataMatch", "Data and node matching information"),
    ("EM", "Expectation-Maximization (EM) algorithm for parameter learning"),
    ("GreedyThickThinning", "Greedy Thick-Thinning algorithm for structure learning"),
    ("NaiveBayes", "Naive Bayes structure learning"), ("Pattern", "Pattern structure for specifying dependencies"),
    ("PC", "PC (Peter-Clark) algorithm for constraint-based structure learning"),
    ("TAN", "Tree-Augmented Naive Bayes (TAN) learning algorithm"),
]


def test_learning_classes_in_order_with_docstrings():
    names = list(vars(pyquarn.learning))
    assert [names.index(n) for n, _ in LEARNING_DOCS] == sorted(names.index(n) for n, _ in LEARNING_DOCS)
    for name, doc in LEARNING_DOCS:
        assert getattr(pyquarn.learning, name).__doc__ == doc


@pytest.fixture(scope="module")
def asia():
    net = pyquarn.Network()
    net.read_file(shared_xvek("asia"))
    return net, DataSet.from_network(net, 3000, seed=5)


def test_learners_recover_asia_and_fit_tables(asia):
    net, data = asia
    truth = Pattern.from_network(net, data)
    assert data.get_state_names(0) == net.get_outcome_ids(net.get_all_node_ids()[0])
    for learner in (BayesianSearch(seed=1), GreedyThickThinning(score="bic")):
        learnt = learner.learn(data)
        assert learnt.get_all_node_ids() == data.get_variable_ids()
        assert Pattern.from_network(learnt, data).distance(truth, skeleton_only=True) <= 3
    pattern = PC(significance=0.01).learn(data)
    assert pattern.get_size() == 8 and not pattern.has_directed_cycle()
    assert pattern.distance(truth, True) <= 3
    assert pattern.to_network(data).get_all_node_ids() == data.get_variable_ids()


def test_settings_are_keywords_and_attributes():
    bs = BayesianSearch(max_parents=3, score="k2", ess=5.0, iterations=7, seed=9, link_probability=0.5)
    assert (bs.max_parents, bs.score, bs.ess, bs.iterations, bs.seed, bs.link_probability) == (3, "k2", 5.0, 7, 9, 0.5)
    pc = PC(significance=0.01, max_adjacency=2, test="chi2")
    assert (pc.significance, pc.max_adjacency, pc.test) == (0.01, 2, "chi2")
    bk = BkKnowledge()
    nb = NaiveBayes(class_variable="x", bk_knowledge=bk)
    assert nb.class_variable == "x" and nb.bk_knowledge is bk and copy.copy(nb).class_variable == "x"
    refused = [
        (BayesianSearch, "score", "aic"), (BayesianSearch, "iterations", 0), (BayesianSearch, "ess", 0.0),
        (BayesianSearch, "link_probability", 1.5), (GreedyThickThinning, "max_parents", -1),
        (PC, "significance", 1.0), (PC, "max_adjacency", -1), (PC, "test", "z"), (TAN, "ess", -1.0),
        (NaiveBayes, "seed", -1),
    ]
    for cls, name, value in refused:
        learner = cls()
        before = getattr(learner, name)
        with quarn_error(-2):
            setattr(learner, name, value)
        assert getattr(learner, name) == before
        with quarn_error(-2):
            cls(**{name: value})
    with pytest.raises(TypeError):
        PC(unknown=1)
    with pytest.raises(TypeError):
        BayesianSearch(bk_knowledge="forced")


def test_background_knowledge_refuses_contradictions_unchanged():
    bk = BkKnowledge()
    bk.add_forced_arc("a", "b")
    bk.add_forced_arc("b", "c")
    with quarn_error(-11, text="QUARN Error -11 in function BkKnowledge.AddForcedArc. The forced arcs form a cycle"):
        bk.add_forced_arc("c", "a")
    bk.set_tier("a", 0)
    bk.set_tier("c", 1)
    state = (bk.get_forced_arcs(), bk.get_forbidden_arcs(), bk.get_tiers())
    with quarn_error(-4, contains="is both forced and forbidden"):
        bk.add_forbidden_arc("a", "b")
    with quarn_error(-4, contains="is a loop"):
        bk.add_forbidden_arc("a", "a")
    with quarn_error(-4, contains="goes from tier 2 to tier 1"):
        bk.set_tier("b", 2)
    with quarn_error(-2):
        bk.set_tier("b", -1)
    assert (bk.get_forced_arcs(), bk.get_forbidden_arcs(), bk.get_tiers()) == state
    assert state == ([("a", "b"), ("b", "c")], [], {"a": 0, "c": 1})


def test_knowledge_of_unknown_columns_is_refused(asia):
    _, data = asia
    ids = data.get_variable_ids()
    bk = BkKnowledge()
    bk.add_forced_arc("nowhere", ids[0])
    for learner in (BayesianSearch(bk_knowledge=bk), PC(bk_knowledge=bk), TAN(class_variable=ids[0], bk_knowledge=bk)):
        with quarn_error(-3, contains="Background knowledge names column 'nowhere', which is not in the data"):
            learner.learn(data)


def test_pattern_edges_and_refusals():
    p = Pattern(3)
    p.set_edge(0, 1, EdgeType.DIRECTED)
    p.set_edge(1, 2, EdgeType.UNDIRECTED)
    assert (p.get_edge(0, 1), p.get_edge(1, 0), p.get_edge(2, 1)) == (EdgeType.DIRECTED, EdgeType.NONE,
                                                                       EdgeType.UNDIRECTED)
    for a, b, bad in ((3, 0, 3), (0, -1, -1)):
        with quarn_error(-2, text="Invalid Pattern edge index: %d" % bad):
            p.set_edge(a, b, EdgeType.NONE)
        with quarn_error(-2, text="Invalid Pattern edge index: %d" % bad):
            p.get_edge(a, b)
    for bad in (3, 7, -1):
        with quarn_error(-2, text="Invalid Pattern edge type: %d" % bad):
            p.set_edge(0, 2, bad)
    assert p.get_edge(0, 2) == EdgeType.NONE and not p.has_directed_cycle()
    p.set_edge(1, 2, 2)
    p.set_edge(2, 0, EdgeType.DIRECTED)
    assert p.has_directed_cycle()
    data = DataSet.from_network(small_chain(), 50, seed=1)
    with quarn_error(-11, contains="form a cycle"):
        p.to_network(data)
    with quarn_error(-2, contains="The pattern has 2 columns and the data 3"):
        Pattern(2).to_network(data)


def small_chain():
    net = pyquarn.Network()
    for i in range(3):
        net.add_node(pyquarn.NodeType.CPT, "n%d" % i)
    return net


def bad_dataset(kind):
    d = DataSet()
    if kind == "empty":
        return d
    d.add_int_variable("a")
    d.add_int_variable("b")
    d.add_float_variable("f") if kind == "float" else None
    for r in range(4):
        d.add_empty_record()
        d.set_int(0, r, r % 2)
        if kind != "all missing":
            d.set_int(1, r, 0 if kind == "one value" else (r // 2))
        if kind == "float":
            d.set_float(2, r, 0.5 * r)
    return d


@pytest.mark.parametrize("kind, code, text", [
    ("empty", -2, "The dataset is empty"),
    ("one value", -2, "Column 'b' holds a single value; every column needs at least two states"),
    ("all missing", -4, "Column 'b' has missing values; structure learning needs complete data"),
    ("float", -51, "Column 'f' is continuous; discretize it before structure learning"),
])
def test_learners_refuse_unusable_data_unchanged(kind, code, text):
    data = bad_dataset(kind)
    before = [data.get_int_data(v) if data.is_discrete(v) else data.get_float_data(v)
              for v in range(data.get_number_of_variables())]
    for learner, name in ((BayesianSearch(), "BayesianSearch"), (GreedyThickThinning(), "GreedyThickThinning"),
                          (PC(), "PC"), (NaiveBayes(class_variable="a"), "NaiveBayes"),
                          (TAN(class_variable="a"), "TAN")):
        with quarn_error(code, text="QUARN Error %d in function %s.Learn. %s" % (code, name, text)):
            learner.learn(data)
    assert before == [data.get_int_data(v) if data.is_discrete(v) else data.get_float_data(v)
                      for v in range(data.get_number_of_variables())]


def test_classifiers_need_their_class_variable(asia):
    _, data = asia
    for learner in (NaiveBayes(class_variable="nothing"), TAN()):
        with quarn_error(-3, contains="is not in the data"):
            learner.learn(data)
