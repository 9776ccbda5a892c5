// Analysis: most probable explanation, exact and annealed MAP, sensitivity,
// node marginalization and value of information, with their result records.
#include <algorithm>
#include <cmath>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "analysis/map.h"
#include "analysis/marginalize.h"
#include "analysis/mpe.h"
#include "analysis/sensitivity.h"
#include "analysis/valueOfInfo.h"
#include "bindUtil.h"
#include "bindings.h"
#include "wrpCore.h"

namespace Wrp {

// One explanation: nodes with their outcomes, and P(explanation, evidence).
struct Explanation {
    double probability = 0.0;
    double log_probability = 0.0;
    std::vector<std::string> node_ids;
    std::vector<int> outcome_indices;
    std::vector<std::string> outcome_ids;
    bool operator==(const Explanation&) const = default;
};

struct NodeSensitivity {
    std::string target_id;
    std::string node_id;
    std::vector<double> derivatives;
    double max_abs_derivative = 0.0;
    bool operator==(const NodeSensitivity&) const = default;
};

}  // namespace Wrp

class PyMpeResults : public PyRecord<Wrp::Explanation> {
    using PyRecord::PyRecord;
};
class PyAnnealedMapResults : public PyRecord<Wrp::Explanation> {
    using PyRecord::PyRecord;
};
using PyNodeSensitivity = PyRecord<Wrp::NodeSensitivity>;

class PySensitivityResults : public PyWrapper {
public:
    std::vector<PyNodeSensitivity> nodes;
    // (node id, table index, target id, target outcome, derivative) of the
    // k largest derivatives by absolute value.
    std::vector<std::tuple<std::string, int, std::string, int, double>> Top(int k) const {
        std::vector<std::tuple<std::string, int, std::string, int, double>> all;
        for (const PyNodeSensitivity& ns : nodes) {
            const size_t n = ns.derivatives.size();
            // Entries per target outcome: the parameter node's table size.
            const size_t table = tableSizes.at(ns.node_id);
            for (size_t i = 0; i < n; ++i)
                all.emplace_back(ns.node_id, static_cast<int>(i % table), ns.target_id, static_cast<int>(i / table),
                                 ns.derivatives[i]);
        }
        const size_t keep = std::min(all.size(), static_cast<size_t>(std::max(k, 0)));
        std::partial_sort(all.begin(), all.begin() + static_cast<long>(keep), all.end(), [](const auto& a, const auto& b) {
            return std::fabs(std::get<4>(a)) > std::fabs(std::get<4>(b));
        });
        all.resize(keep);
        return all;
    }
    std::map<std::string, size_t> tableSizes;
};

class PyValueOfInfo : public PyWrapper {
public:
    explicit PyValueOfInfo(PyNetwork& net) : net(&net), voi(net) {}
    PyNetwork* net;
    VEK_valueOfInfo voi;
};

namespace Wrp {
namespace {

Explanation MakeExplanation(const VEK_network& net, const std::vector<int>& handles, const std::vector<int>& outcomes,
                            double p, double logp) {
    Explanation e;
    e.probability = p;
    e.log_probability = logp;
    for (size_t i = 0; i < handles.size(); ++i) {
        e.node_ids.push_back(CopyConstCharPtr(net.GetNodeId(handles[i])));
        e.outcome_indices.push_back(outcomes[i]);
        const VEK_idArray* ids = net.GetDef(handles[i])->GetOutcomeIds();
        e.outcome_ids.push_back(ids && outcomes[i] >= 0 && outcomes[i] < ids->GetSize() ? CopyConstCharPtr((*ids)[outcomes[i]])
                                                                                      : std::string());
    }
    return e;
}

PyMpeResults WrpMostProbableExplanation(VEK_network* net) {
    VEK_logger& logger = Deref(net).Logger();
    Wrp::ClearLog(logger);
    VEK_mpeResult r;
    const int res = VEK_mostProbableExplanation(*net, r);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.MostProbableExplanation", logger);
    return PyMpeResults(MakeExplanation(*net, r.handles, r.outcomes, r.probability, r.logProbability));
}

std::vector<int> CheckHandles(const VEK_network& net, const std::vector<int>& handles) {
    for (int h : handles) ValidateNodeHandle(net, h);
    return handles;
}

PyAnnealedMapResults WrpAnnealedMap(VEK_network* net, const std::vector<int>& nodes, const AnnealedMapTuning& tuning) {
    VEK_logger& logger = Deref(net).Logger();
    Wrp::ClearLog(logger);
    VEK_mapResult r;
    const int res = VEK_annealedMap(*net, nodes, AnnealedMapTuningToEngine(tuning), r);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.AnnealedMap", logger);
    return PyAnnealedMapResults(MakeExplanation(*net, r.handles, r.outcomes, r.probability, r.logProbability));
}

PyAnnealedMapResults WrpExactMap(VEK_network* net, const std::vector<int>& nodes) {
    VEK_logger& logger = Deref(net).Logger();
    Wrp::ClearLog(logger);
    VEK_mapResult r;
    const int res = VEK_exactMap(*net, nodes, r);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.ExactMap", logger);
    return PyAnnealedMapResults(MakeExplanation(*net, r.handles, r.outcomes, r.probability, r.logProbability));
}

PySensitivityResults WrpCalcSensitivity(VEK_network* net) {
    VEK_logger& logger = Deref(net).Logger();
    Wrp::ClearLog(logger);
    std::vector<VEK_nodeSensitivity> items;
    const int res = VEK_calcSensitivity(*net, items);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.CalcSensitivity", logger);
    PySensitivityResults out;
    for (VEK_nodeSensitivity& ns : items) {
        NodeSensitivity r;
        r.target_id = CopyConstCharPtr(net->GetNodeId(ns.target));
        r.node_id = CopyConstCharPtr(net->GetNodeId(ns.node));
        r.derivatives = std::move(ns.derivatives);
        r.max_abs_derivative = ns.maxAbsDerivative;
        out.tableSizes[r.node_id] = static_cast<size_t>(net->GetDef(ns.node)->GetMatrix()->GetSize());
        out.nodes.emplace_back(r);
    }
    return out;
}

void WrpMarginalizeNode(VEK_network* net, int handle) {
    VEK_logger& logger = Deref(net).Logger();
    ValidateNodeHandle(*net, handle);
    Wrp::ClearLog(logger);
    const int res = VEK_marginalizeNode(*net, handle);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, "Network.MarginalizeNode", logger);
}

// ValueOfInfo operations: failures are labelled with the class's name and
// carry what the engine logged.
template <class Fn>
void VoiCall(PyValueOfInfo& self, const char* function, Fn&& fn) {
    VEK_logger& logger = self.net->Logger();
    Wrp::ClearLog(logger);
    const int res = fn();
    if (res != VEK_OKAY) ThrowQuarnExceptionWithLog(res, function, logger);
}

int VoiNode(PyValueOfInfo& self, const py::object& node) {
    if (py::isinstance<py::str>(node)) return ValidateNodeId(*self.net, node.cast<std::string>());
    if (py::isinstance<py::int_>(node) && !py::isinstance<py::bool_>(node)) {
        const int h = node.cast<int>();
        ValidateNodeHandle(*self.net, h);
        return h;
    }
    throw py::type_error("A node is given by its handle (int) or its identifier (str)");
}

py::dict AsDict(const Explanation& e) {
    py::dict d;
    for (size_t i = 0; i < e.node_ids.size(); ++i) d[py::str(e.node_ids[i])] = e.outcome_ids[i];
    return d;
}

template <class T>
void RegisterExplanation(py::module_& m, const char* name, const char* doc) {
    py::class_<T> cls(m, name, doc);
    cls.def(py::init<>());
    cls.def_readonly("probability", &T::probability, "P(assignment, evidence)");
    cls.def_readonly("log_probability", &T::log_probability, "Natural logarithm of the probability");
    cls.def_readonly("node_ids", &T::node_ids, "Identifiers of the nodes of the assignment");
    cls.def_readonly("outcome_indices", &T::outcome_indices, "Outcome index of each node");
    cls.def_readonly("outcome_ids", &T::outcome_ids, "Outcome identifier of each node");
    cls.def("as_dict", [](const T& self) { return AsDict(self); }, "Maps each node id to its outcome id");
    cls.def("__repr__", [name](const T& self) {
        return std::string(name) + "(probability=" + std::string(py::repr(py::float_(self.probability))) +
               ", assignment=" + std::string(py::repr(AsDict(self))) + ")";
    });
    cls.def("__eq__", [](const T& a, const T& b) { return a == b; }, py::is_operator());
    cls.def("__copy__", [](const T& self) { return T(self); });
    cls.def("__deepcopy__", [](const T& self, py::dict) { return T(self); }, py::arg("memo"));
}

}  // namespace
}  // namespace Wrp

void RegisterAnnealedMapResults(py::module_& m) {
    Wrp::RegisterExplanation<PyAnnealedMapResults>(m, "AnnealedMapResults", "Results of the annealed MAP algorithm");
}

void RegisterMpeResults(py::module_& m) {
    Wrp::RegisterExplanation<PyMpeResults>(m, "MpeResults",
                                           "Results of the Most Probable Explanation (MPE) inference");
}

void RegisterValueOfInfo(py::module_& m) {
    using namespace Wrp;
    py::class_<PyValueOfInfo> cls(m, "ValueOfInfo", "Value of Information analysis results");
    cls.def(py::init<PyNetwork&>(), py::arg("network"), py::keep_alive<1, 2>(),
            "Creates a value-of-information analysis over the network");
    cls.def(
        "set_decision",
        [](PyValueOfInfo& self, const py::object& node) {
            const int h = VoiNode(self, node);
            VoiCall(self, "ValueOfInfo.SetDecision", [&] { return self.voi.SetDecision(h); });
        },
        py::arg("node"), "Sets the decision node whose choice the observations would inform");
    cls.def(
        "set_target",
        [](PyValueOfInfo& self, const py::object& node) {
            const int h = VoiNode(self, node);
            VoiCall(self, "ValueOfInfo.SetTarget", [&] { return self.voi.SetTarget(h); });
        },
        py::arg("node"), "Sets the target node, whose entropy the observations would reduce");
    cls.def(
        "add_node",
        [](PyValueOfInfo& self, const py::object& node) {
            const int h = VoiNode(self, node);
            VoiCall(self, "ValueOfInfo.AddNode", [&] { return self.voi.AddNode(h); });
        },
        py::arg("node"), "Adds a candidate observation");
    cls.def(
        "get_node_ids",
        [](const PyValueOfInfo& self) { return HandlesToIds(*self.net, self.voi.GetNodes()); },
        "Returns the identifiers of the candidate observations");
    cls.def(
        "update",
        [](PyValueOfInfo& self) { VoiCall(self, "ValueOfInfo.Update", [&] { return self.voi.Update(); }); },
        "Computes the value of observing each candidate, and all of them together");
    cls.def(
        "get_values", [](const PyValueOfInfo& self) { return self.voi.GetValues(); },
        "Returns the value of observing each candidate, aligned with get_node_ids()");
    cls.def(
        "get_joint_value", [](const PyValueOfInfo& self) { return self.voi.GetJointValue(); },
        "Returns the value of observing all the candidates together");
}

void RegisterSensitivityResults(py::module_& m) {
    py::class_<PySensitivityResults> cls(m, "SensitivityResults", "Results of sensitivity analysis");
    cls.def_readonly("nodes", &PySensitivityResults::nodes, "One entry per pair of target and parameter node");
    cls.def("top", &PySensitivityResults::Top, py::arg("k"),
            "Returns the k (node id, table index, target id, target outcome index, derivative) tuples of largest "
            "absolute derivative");
    cls.def("__len__", [](const PySensitivityResults& self) { return self.nodes.size(); });
}

void RegisterNodeSensitivity(py::module_& m) {
    py::class_<PyNodeSensitivity> cls(m, "NodeSensitivity", "Sensitivity of a node to evidence changes");
    cls.def_readonly("target_id", &PyNodeSensitivity::target_id, "Identifier of the target node");
    cls.def_readonly("node_id", &PyNodeSensitivity::node_id, "Identifier of the node whose table is varied");
    cls.def_readonly("derivatives", &PyNodeSensitivity::derivatives,
                     "Derivatives of the target's posterior, target outcome slowest, then the table's order");
    cls.def_readonly("max_abs_derivative", &PyNodeSensitivity::max_abs_derivative,
                     "Largest absolute derivative");
    cls.def("__repr__", [](const PyNodeSensitivity& self) {
        return "NodeSensitivity(target_id=" + std::string(py::repr(py::str(self.target_id))) +
               ", node_id=" + std::string(py::repr(py::str(self.node_id))) +
               ", max_abs_derivative=" + std::string(py::repr(py::float_(self.max_abs_derivative))) + ")";
    });
}

void BindAnalysis(PyNetworkClass& cls) {
    using namespace Wrp;
    cls.def("most_probable_explanation", [](PyNetwork& self) { return WrpMostProbableExplanation(&self); },
            "Computes the Most Probable Explanation (MPE) for the current evidence");
    const char* annealedDoc = "Performs MAP inference using simulated annealing";
    cls.def(
        "annealed_map",
        [](PyNetwork& self, const std::vector<int>& nodes, const PyAnnealedMapTuning& tuning) {
            return WrpAnnealedMap(&self, CheckHandles(self, nodes), tuning);
        },
        py::arg("map_nodes"), py::arg("tuning"), annealedDoc);
    cls.def(
        "annealed_map",
        [](PyNetwork& self, const std::vector<std::string>& nodes, const PyAnnealedMapTuning& tuning) {
            return WrpAnnealedMap(&self, IdsToHandles(self, nodes), tuning);
        },
        py::arg("map_nodes"), py::arg("tuning"), annealedDoc);
    cls.def(
        "annealed_map",
        [](PyNetwork& self, const std::vector<int>& nodes) {
            return WrpAnnealedMap(&self, CheckHandles(self, nodes), AnnealedMapTuning());
        },
        py::arg("map_nodes"), annealedDoc);
    cls.def(
        "annealed_map",
        [](PyNetwork& self, const std::vector<std::string>& nodes) {
            return WrpAnnealedMap(&self, IdsToHandles(self, nodes), AnnealedMapTuning());
        },
        py::arg("map_nodes"), annealedDoc);
    const char* exactDoc = "Computes the exact MAP assignment of the nodes (at most 2^20 joint configurations)";
    cls.def(
        "exact_map",
        [](PyNetwork& self, const std::vector<int>& nodes) { return WrpExactMap(&self, CheckHandles(self, nodes)); },
        py::arg("map_nodes"), exactDoc);
    cls.def(
        "exact_map",
        [](PyNetwork& self, const std::vector<std::string>& nodes) {
            return WrpExactMap(&self, IdsToHandles(self, nodes));
        },
        py::arg("map_nodes"), exactDoc);
    cls.def("calc_sensitivity", [](PyNetwork& self) { return WrpCalcSensitivity(&self); },
            "Performs sensitivity analysis for a node");
    BindUtil::DefNode(cls, "marginalize_node", &WrpMarginalizeNode,
                      "Remove node from the network, and modify the definitions of the remaining nodes, so that the "
                      "joint probability distribution over the remaining variables in the network is unchanged");
}
