// pyquarn.learning structure learning: BkKnowledge, Pattern and the
// learners BayesianSearch, GreedyThickThinning, PC, NaiveBayes and TAN.
// Learners take their settings as constructor keywords that are also
// attributes; a setting is checked when it is set, so a learner never holds
// a value it would refuse at learning time.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "bindings.h"
#include "inference/randGen.h"
#include "learning/bayesianSearch.h"
#include "learning/dataSampler.h"
#include "learning/greedyThickThinning.h"
#include "learning/naiveBayes.h"
#include "learning/pattern.h"
#include "learning/pc.h"
#include "learning/structureScore.h"
#include "learning/tan.h"
#include "network/node.h"
#include "network/nodeDef.h"
#include "pyDataset.h"
#include "wrpCore.h"

namespace {

class PyBkKnowledge : public PyWrapper {
public:
    VEK_bkKnowledge bk;
};

class PyPattern : public PyWrapper {
public:
    VEK_pattern pattern;
};

// A learner and the BkKnowledge object it was given (None or shared with
// the caller, so that knowledge added later is seen by the next learn).
template <class Learner>
class PyLearner : public PyWrapper {
public:
    Learner learner;
    py::object bk = py::none();
};

class PyBayesianSearch : public PyLearner<VEK_bayesianSearch> {};
class PyGreedyThickThinning : public PyLearner<VEK_greedyThickThinning> {};
class PyPC : public PyLearner<VEK_pc> {};
class PyNaiveBayes : public PyLearner<VEK_naiveBayes> {};
class PyTAN : public PyLearner<VEK_tan> {};

void Raise(int res, const std::string& function, const std::string& message) {
    if (res != VEK_OKAY) Wrp::ThrowQuarnExceptionWithMessage(res, function.c_str(), message);
}

// Constructor from keyword arguments, each set through its attribute.
template <class Py>
void KeywordInit(py::class_<Py>& cls, const char* doc) {
    cls.def(py::init([](const py::kwargs& kwargs) {
                py::object self = py::cast(Py());
                py::object type = py::type::of(self);
                for (auto item : kwargs) {
                    const std::string key = py::str(item.first);
                    py::object attr = py::getattr(type, key.c_str(), py::none());
                    if (!PyObject_TypeCheck(attr.ptr(), &PyProperty_Type)) {
                        throw py::type_error("unexpected keyword argument '" + key + "'");
                    }
                    self.attr(key.c_str()) = item.second;
                }
                return self.cast<Py>();
            }),
            doc);
    cls.def("__copy__", [](const Py& self) { return Py(self); });
    cls.def("__deepcopy__", [](const Py& self, py::dict) { return Py(self); }, py::arg("memo"));
}

// A numeric or boolean setting: set on a copy, checked, then kept.
template <class Py, class L, class V>
void Setting(py::class_<Py>& cls, const char* name, const std::string& owner, V L::*member, const char* doc) {
    cls.def_property(
        name, [member](const Py& self) { return self.learner.*member; },
        [member, owner, name](Py& self, V value) {
            auto copy = self.learner;
            copy.*member = value;
            std::string message;
            Raise(copy.CheckSettings(&message), owner + ".Set_" + name, message);
            self.learner = std::move(copy);
        },
        doc);
}

template <class Py>
void CommonSettings(py::class_<Py>& cls, const std::string& owner) {
    cls.def_property(
        "seed", [](const Py& self) { return static_cast<long long>(self.learner.seed); },
        [owner](Py& self, long long seed) {
            if (seed < 0 || seed > 0xffffffffLL) {
                Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, (owner + ".Set_seed").c_str(),
                                                    "The seed must be within 0..4294967295");
            }
            self.learner.seed = static_cast<unsigned>(seed);
        },
        "Random seed");
    cls.def_property(
        "bk_knowledge", [](const Py& self) { return self.bk; },
        [](Py& self, py::object bk) {
            if (!bk.is_none() && !py::isinstance<PyBkKnowledge>(bk)) {
                throw py::type_error("bk_knowledge must be a pyquarn.learning.BkKnowledge or None");
            }
            self.bk = std::move(bk);
        },
        "Background knowledge (a BkKnowledge, or None)");
}

template <class Py>
void ScoreSettings(py::class_<Py>& cls, const std::string& owner) {
    cls.def_property(
        "score", [](const Py& self) { return std::string(VEK_structureScore::TypeName(self.learner.scoreType)); },
        [owner](Py& self, const std::string& name) {
            const int type = VEK_structureScore::TypeFromName(name);
            if (type < 0) {
                Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, (owner + ".Set_score").c_str(),
                                                    "Unknown score '" + name + "', use \"bdeu\", \"k2\" or \"bic\"");
            }
            self.learner.scoreType = type;
        },
        "Score: \"bdeu\", \"k2\" or \"bic\"");
    Setting(cls, "ess", owner, &VEK_scoreLearner::ess, "Equivalent sample size of the BDeu score and of the fitted tables");
    Setting(cls, "max_parents", owner, &VEK_scoreLearner::maxParents, "Largest number of parents of a node");
    Setting(cls, "candidate_significance", owner, &VEK_scoreLearner::candidateSignificance,
            "Significance of the independence tests that choose candidate arcs (0: every arc is a candidate)");
    Setting(cls, "candidate_adjacency", owner, &VEK_scoreLearner::candidateAdjacency,
            "Largest conditioning set of the tests that choose candidate arcs");
    Setting(cls, "candidate_orientation", owner, &VEK_scoreLearner::candidateOrientation,
            "Whether candidate arcs follow the directions the independence tests imply");
}

// A learner's copy with the knowledge of its BkKnowledge object.
template <class Py>
auto Prepared(const Py& self) {
    auto learner = self.learner;
    if (!self.bk.is_none()) learner.bk = self.bk.template cast<const PyBkKnowledge&>().bk;
    return learner;
}

template <class Py>
void LearnNetwork(py::class_<Py>& cls, const std::string& owner) {
    cls.def(
        "learn",
        [owner](const Py& self, const PyDataset& data) {
            auto learner = Prepared(self);
            auto net = std::make_unique<PyNetwork>();
            std::string message;
            Raise(learner.Learn(data.data, *net, &message), owner + ".Learn", message);
            return net;
        },
        py::arg("dataset"), "Learns a network with fitted tables from the dataset");
}

int EdgeTypeValue(const py::object& type) {
    if (py::isinstance<py::bool_>(type) || !PyIndex_Check(type.ptr())) {
        throw py::type_error("The edge type must be an EdgeType or an int");
    }
    const long long v = py::int_(type).cast<long long>();
    if (v < 0 || v >= 3) {
        throw quarn_exception(VEK_OUT_OF_RANGE, "Invalid Pattern edge type: " + std::to_string(v));
    }
    return static_cast<int>(v);
}

// Dataset columns in order, with each node's parents as column indices.
std::vector<std::vector<int>> ParentsByColumn(const PyNetwork& net, const VEK_dataset& data, const char* function) {
    const int n = data.GetNumberOfVariables();
    std::vector<std::vector<int>> parents(n);
    std::vector<char> seen(n, 0);
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const int column = data.FindVariable(net.GetNodeId(h));
        if (column < 0) {
            Wrp::ThrowQuarnExceptionWithMessage(VEK_NO_ITEM, function,
                                                "Node '" + std::string(net.GetNodeId(h)) + "' has no column in the data");
        }
        seen[column] = 1;
        const VEK_intArray& pa = net.GetNode(h)->Parents();
        for (int i = 0; i < pa.GetSize(); ++i) parents[column].push_back(data.FindVariable(net.GetNodeId(pa[i])));
    }
    for (int v = 0; v < n; ++v) {
        if (!seen[v]) {
            Wrp::ThrowQuarnExceptionWithMessage(VEK_NO_ITEM, function,
                                                "Column '" + std::string(data.GetId(v)) + "' has no node in the network");
        }
    }
    return parents;
}

}  // namespace

void RegisterBayesianSearch(py::module_& learning) {
    const std::string owner = "BayesianSearch";
    py::class_<PyBayesianSearch> cls(learning, "BayesianSearch",
                                     "Bayesian network structure learning using Bayesian scoring");
    KeywordInit(cls, "Creates the learner; settings may be given as keywords");
    CommonSettings(cls, owner);
    ScoreSettings(cls, owner);
    Setting(cls, "iterations", owner, &VEK_bayesianSearch::iterations, "Number of hill climbs (the first and restarts)");
    Setting(cls, "link_probability", owner, &VEK_bayesianSearch::linkProbability,
            "Probability with which a restart flips each candidate arc of the best structure");
    Setting(cls, "time_limit", owner, &VEK_bayesianSearch::timeLimit, "Time limit in seconds (0: none)");
    LearnNetwork(cls, owner);
}

void RegisterBkKnowledge(py::module_& learning) {
    py::class_<PyBkKnowledge> cls(learning, "BkKnowledge", "Background knowledge constraints for structure learning");
    cls.def(py::init<>(), "Creates empty background knowledge");
    cls.def("__copy__", [](const PyBkKnowledge& self) { return PyBkKnowledge(self); });
    cls.def("__deepcopy__", [](const PyBkKnowledge& self, py::dict) { return PyBkKnowledge(self); }, py::arg("memo"));
    cls.def(
        "add_forced_arc",
        [](PyBkKnowledge& self, const std::string& parent, const std::string& child) {
            std::string message;
            Raise(self.bk.AddForcedArc(parent, child, &message), "BkKnowledge.AddForcedArc", message);
        },
        py::arg("parent"), py::arg("child"), "Requires the arc parent -> child (column ids)");
    cls.def(
        "add_forbidden_arc",
        [](PyBkKnowledge& self, const std::string& parent, const std::string& child) {
            std::string message;
            Raise(self.bk.AddForbiddenArc(parent, child, &message), "BkKnowledge.AddForbiddenArc", message);
        },
        py::arg("parent"), py::arg("child"), "Forbids the arc parent -> child (column ids)");
    cls.def(
        "set_tier",
        [](PyBkKnowledge& self, const std::string& column, int tier) {
            std::string message;
            Raise(self.bk.SetTier(column, tier, &message), "BkKnowledge.SetTier", message);
        },
        py::arg("column"), py::arg("tier"), "Puts a column in a tier; arcs never go to a lower tier");
    cls.def(
        "get_forced_arcs", [](const PyBkKnowledge& self) { return self.bk.ForcedArcs(); },
        "Gets the forced arcs as (parent, child) pairs");
    cls.def(
        "get_forbidden_arcs", [](const PyBkKnowledge& self) { return self.bk.ForbiddenArcs(); },
        "Gets the forbidden arcs as (parent, child) pairs");
    cls.def(
        "get_tiers", [](const PyBkKnowledge& self) { return self.bk.Tiers(); }, "Gets the tiers by column id");
    cls.def(
        "clear", [](PyBkKnowledge& self) { self.bk.Clear(); }, "Removes all knowledge");
}

void RegisterGreedyThickThinning(py::module_& learning) {
    const std::string owner = "GreedyThickThinning";
    py::class_<PyGreedyThickThinning> cls(learning, "GreedyThickThinning",
                                          "Greedy Thick-Thinning algorithm for structure learning");
    KeywordInit(cls, "Creates the learner; settings may be given as keywords");
    CommonSettings(cls, owner);
    ScoreSettings(cls, owner);
    LearnNetwork(cls, owner);
}

template <class Py>
void ClassifierSettings(py::class_<Py>& cls, const std::string& owner) {
    KeywordInit(cls, "Creates the learner; settings may be given as keywords");
    CommonSettings(cls, owner);
    cls.def_property(
        "class_variable", [](const Py& self) { return self.learner.classVariable; },
        [](Py& self, const std::string& id) { self.learner.classVariable = id; }, "Column id of the class variable");
    Setting(cls, "ess", owner, &VEK_classifierLearner::ess, "Equivalent sample size of the fitted tables");
    LearnNetwork(cls, owner);
}

void RegisterNaiveBayes(py::module_& learning) {
    py::class_<PyNaiveBayes> cls(learning, "NaiveBayes", "Naive Bayes structure learning");
    ClassifierSettings(cls, "NaiveBayes");
}

void RegisterPattern(py::module_& learning) {
    py::class_<PyPattern> cls(learning, "Pattern", "Pattern structure for specifying dependencies");
    cls.def(py::init([](int size) {
                if (size < 0) {
                    Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Pattern.SetSize",
                                                        "The size can't be negative");
                }
                PyPattern p;
                p.pattern.SetSize(size);
                return p;
            }),
            py::arg("size") = 0, "Creates a pattern of the given size without edges");
    cls.def("__copy__", [](const PyPattern& self) { return PyPattern(self); });
    cls.def("__deepcopy__", [](const PyPattern& self, py::dict) { return PyPattern(self); }, py::arg("memo"));
    cls.def(
        "set_size",
        [](PyPattern& self, int size) {
            if (size < 0) {
                Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Pattern.SetSize", "The size can't be negative");
            }
            self.pattern.SetSize(size);
        },
        py::arg("size"), "Sets the number of columns and removes every edge");
    cls.def(
        "get_size", [](const PyPattern& self) { return self.pattern.GetSize(); }, "Gets the number of columns");
    cls.def(
        "get_edge",
        [](const PyPattern& self, int a, int b) {
            Wrp::ValidatePatternEdgeIndex(a, self.pattern.GetSize());
            Wrp::ValidatePatternEdgeIndex(b, self.pattern.GetSize());
            return static_cast<Wrp::EdgeType::Value>(self.pattern.GetEdge(a, b));
        },
        py::arg("a"), py::arg("b"), "Gets the edge from column a to column b");
    cls.def(
        "set_edge",
        [](PyPattern& self, int a, int b, const py::object& type) {
            Wrp::ValidatePatternEdgeIndex(a, self.pattern.GetSize());
            Wrp::ValidatePatternEdgeIndex(b, self.pattern.GetSize());
            const int t = EdgeTypeValue(type);
            if (a == b) {
                Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Pattern.SetEdge",
                                                    "An edge joins two different columns");
            }
            self.pattern.SetEdge(a, b, t);
        },
        py::arg("a"), py::arg("b"), py::arg("edge_type"), "Sets the edge from column a to column b");
    cls.def(
        "has_directed_cycle", [](const PyPattern& self) { return self.pattern.HasDirectedCycle(); },
        "Checks whether the directed edges form a cycle");
    cls.def(
        "to_network",
        [](const PyPattern& self, const PyDataset& data) {
            auto net = std::make_unique<PyNetwork>();
            std::string message;
            Raise(self.pattern.ToNetwork(data.data, *net, 1.0, &message), "Pattern.ToNetwork", message);
            return net;
        },
        py::arg("dataset"), "Makes a network from a DAG of the pattern, with tables fitted to the dataset");
    cls.def(
        "distance",
        [](const PyPattern& self, const PyPattern& other, bool skeleton_only) {
            if (other.pattern.GetSize() != self.pattern.GetSize()) {
                Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Pattern.Distance",
                                                    "The patterns have different sizes");
            }
            return self.pattern.Distance(other.pattern, skeleton_only);
        },
        py::arg("other"), py::arg("skeleton_only") = false,
        "Structural Hamming distance: column pairs whose edges differ (in presence only, or also in direction)");
    cls.def_static(
        "from_network",
        [](const PyNetwork& net, const PyDataset& data) {
            PyPattern p;
            p.pattern.FromDag(ParentsByColumn(net, data.data, "Pattern.FromNetwork"));
            return p;
        },
        py::arg("net"), py::arg("dataset"),
        "The equivalence class of a network's structure, over the dataset's columns matched by node id");
}

void RegisterPC(py::module_& learning) {
    const std::string owner = "PC";
    py::class_<PyPC> cls(learning, "PC", "PC (Peter-Clark) algorithm for constraint-based structure learning");
    KeywordInit(cls, "Creates the learner; settings may be given as keywords");
    CommonSettings(cls, owner);
    Setting(cls, "significance", owner, &VEK_pc::significance, "Significance level of the independence tests");
    Setting(cls, "max_adjacency", owner, &VEK_pc::maxAdjacency, "Largest conditioning set size");
    cls.def_property(
        "test", [](const PyPC& self) { return std::string(self.learner.test == VEK_pc::G_TEST ? "g" : "chi2"); },
        [](PyPC& self, const std::string& name) {
            if (name != "g" && name != "chi2") {
                Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "PC.Set_test",
                                                    "Unknown test '" + name + "', use \"g\" or \"chi2\"");
            }
            self.learner.test = name == "g" ? VEK_pc::G_TEST : VEK_pc::CHI_SQUARE;
        },
        "Independence test: \"g\" (G-test) or \"chi2\" (Pearson's chi-square)");
    cls.def(
        "learn",
        [](const PyPC& self, const PyDataset& data) {
            auto learner = Prepared(self);
            PyPattern p;
            std::string message;
            Raise(learner.Learn(data.data, p.pattern, &message), "PC.Learn", message);
            return p;
        },
        py::arg("dataset"), "Learns the pattern (equivalence class) of the dataset's structure");
}

void RegisterTAN(py::module_& learning) {
    py::class_<PyTAN> cls(learning, "TAN", "Tree-Augmented Naive Bayes (TAN) learning algorithm");
    ClassifierSettings(cls, "TAN");
}

void BindDataSetSampling(py::module_& learning) {
    auto cls = py::reinterpret_borrow<py::class_<PyDataset>>(learning.attr("DataSet"));
    cls.def_static(
        "from_network",
        [](const PyNetwork& net, int records, long long seed, double missing_rate) {
            const char* function = "DataSet.FromNetwork";
            if (records < 0) Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, "Negative record count");
            if (!(missing_rate >= 0.0 && missing_rate <= 1.0)) {
                Wrp::ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, "The missing rate must be within 0..1");
            }
            VEK_randGen gen(static_cast<unsigned>(seed));
            PyDataset out;
            const int res = VEK_sampleDataset(net, records, gen, missing_rate, out.data);
            if (res != VEK_OKAY) {
                Wrp::ThrowQuarnExceptionWithMessage(res, function, "Every node needs a probability table");
            }
            int v = 0;
            for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h), ++v) {
                const VEK_idArray* ids = net.GetDef(h)->GetOutcomeIds();
                // outcome ids are distinct and every drawn state is one of them
                if (ids) (void)out.data.SetStateNames(v, Wrp::IdArrayToVector(*ids));
            }
            return out;
        },
        py::arg("net"), py::arg("records"), py::arg("seed") = 0, py::arg("missing_rate") = 0.0,
        "Draws records from a network's tables: one discrete column per node, named after it");
}
