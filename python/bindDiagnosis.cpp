// pyquarn.DiagNetwork, a troubleshooting session over a Network, and its
// records DiagResults, FaultInfo and ObservationInfo.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string>
#include <utility>
#include <vector>

#include "bindings.h"
#include "diagnosis/diagSession.h"
#include "recordProtocol.h"
#include "wrpCore.h"

namespace Wrp {

struct FaultInfo {
    int index = -1;
    std::string node_id;
    std::string outcome_id;
    double probability = 0.0;
    bool operator==(const FaultInfo&) const = default;
};

struct ObservationInfo {
    std::string node_id;
    double measure = 0.0;
    double cost = 0.0;
    double score = 0.0;
    bool operator==(const ObservationInfo&) const = default;
};

}  // namespace Wrp

using PyFaultInfo = PyRecord<Wrp::FaultInfo>;
using PyObservationInfo = PyRecord<Wrp::ObservationInfo>;

namespace Wrp {

struct DiagResults {
    std::vector<PyFaultInfo> faults;
    std::vector<PyObservationInfo> observations;
    bool operator==(const DiagResults&) const = default;
};

}  // namespace Wrp

using PyDiagResults = PyRecord<Wrp::DiagResults>;

namespace {

// The session refers to the network; holding the Python object keeps the
// network alive as long as the session.
class PyDiagNetwork : public PyWrapper {
public:
    explicit PyDiagNetwork(const py::object& owner) : owner_(owner), net_(&owner.cast<PyNetwork&>()), session_(*net_) {}

    VEK_network& Net() { return *net_; }
    VEK_diagSession& Session() { return session_; }

    // Runs a session operation with the network's logger cleared, raising
    // the logged messages on failure.
    void Check(int res, const char* function) {
        if (res != VEK_OKAY) Wrp::ThrowQuarnExceptionWithLog(res, function, net_->Logger());
    }
    template <class Op>
    void Run(const char* function, Op op) {
        Wrp::ClearLog(net_->Logger());
        Check(op(), function);
    }

private:
    py::object owner_;
    VEK_network* net_;
    VEK_diagSession session_;
};

Wrp::FaultInfo MakeFaultInfo(const VEK_network& net, const VEK_diagFault& f) {
    const VEK_idArray* ids = net.GetDef(f.node)->GetOutcomeIds();
    return Wrp::FaultInfo{f.index, net.GetNodeId(f.node), ids ? (*ids)[f.outcome] : "", f.probability};
}

PyDiagResults WrpUpdate(PyDiagNetwork& self) {
    VEK_diagResults r;
    self.Run("DiagNetwork.Update", [&] { return self.Session().Update(r); });
    Wrp::DiagResults out;
    for (const VEK_diagFault& f : r.faults) out.faults.emplace_back(MakeFaultInfo(self.Net(), f));
    for (const VEK_diagObservation& o : r.observations) {
        out.observations.emplace_back(Wrp::ObservationInfo{self.Net().GetNodeId(o.node), o.measure, o.cost, o.score});
    }
    return PyDiagResults(out);
}

std::vector<PyFaultInfo> WrpGetFaults(PyDiagNetwork& self) {
    std::vector<double> p;
    self.Run("DiagNetwork.GetFaults", [&] { return self.Session().GetFaultProbabilities(p); });
    std::vector<PyFaultInfo> out;
    for (VEK_diagFault f : self.Session().GetFaults()) {
        f.probability = p[static_cast<size_t>(f.index)];
        out.emplace_back(MakeFaultInfo(self.Net(), f));
    }
    return out;
}

void WrpInstantiateObservation(PyDiagNetwork& self, int node, int outcome) {
    Wrp::ValidateNodeHandle(self.Net(), node);
    self.Run("DiagNetwork.InstantiateObservation",
             [&] { return self.Session().InstantiateObservation(node, outcome); });
}

void WrpReleaseObservation(PyDiagNetwork& self, int node) {
    Wrp::ValidateNodeHandle(self.Net(), node);
    self.Run("DiagNetwork.ReleaseObservation", [&] { return self.Session().ReleaseObservation(node); });
}

}  // namespace

void RegisterDiagResults(py::module_& m) {
    py::class_<PyDiagResults> cls(m, "DiagResults", "Results of diagnostic reasoning");
    cls.def(py::init([](const std::vector<PyFaultInfo>& faults, const std::vector<PyObservationInfo>& observations) {
                return PyDiagResults(Wrp::DiagResults{faults, observations});
            }),
            py::arg("faults") = std::vector<PyFaultInfo>(), py::arg("observations") = std::vector<PyObservationInfo>());
    cls.def_readwrite("faults", &PyDiagResults::faults, "Faults with their probabilities, most probable first");
    cls.def_readwrite("observations", &PyDiagResults::observations,
                      "Tests not yet performed, with measure, cost and score, best score first");
    AddRecordProtocol(cls, {"faults", "observations"});
}

void RegisterFaultInfo(py::module_& m) {
    py::class_<PyFaultInfo> cls(m, "FaultInfo", "Information about a fault in diagnostic analysis");
    cls.def(py::init([](int index, const std::string& node_id, const std::string& outcome_id, double probability) {
                return PyFaultInfo(Wrp::FaultInfo{index, node_id, outcome_id, probability});
            }),
            py::arg("index") = -1, py::arg("node_id") = "", py::arg("outcome_id") = "", py::arg("probability") = 0.0);
    cls.def_readwrite("index", &PyFaultInfo::index, "Index of the fault in the session's fault list");
    cls.def_readwrite("node_id", &PyFaultInfo::node_id, "Identifier of the fault node");
    cls.def_readwrite("outcome_id", &PyFaultInfo::outcome_id, "Identifier of the fault outcome");
    cls.def_readwrite("probability", &PyFaultInfo::probability, "Probability of the fault given the observations");
    AddRecordProtocol(cls, {"index", "node_id", "outcome_id", "probability"});
}

void RegisterObservationInfo(py::module_& m) {
    py::class_<PyObservationInfo> cls(m, "ObservationInfo", "Information about an observation in diagnostic reasoning");
    cls.def(py::init([](const std::string& node_id, double measure, double cost, double score) {
                return PyObservationInfo(Wrp::ObservationInfo{node_id, measure, cost, score});
            }),
            py::arg("node_id") = "", py::arg("measure") = 0.0, py::arg("cost") = 0.0, py::arg("score") = 0.0);
    cls.def_readwrite("node_id", &PyObservationInfo::node_id, "Identifier of the observation node");
    cls.def_readwrite("measure", &PyObservationInfo::measure, "What the test is expected to tell");
    cls.def_readwrite("cost", &PyObservationInfo::cost, "Expected cost of the test");
    cls.def_readwrite("score", &PyObservationInfo::score, "Measure weighed against cost, used for ranking");
    AddRecordProtocol(cls, {"node_id", "measure", "cost", "score"});
}

void RegisterDiagNetwork(py::module_& m) {
    py::class_<PyDiagNetwork> cls(m, "DiagNetwork", "Wrapper for diagnostic Bayesian networks");
    cls.def(py::init([](const py::object& net) {
                if (!py::isinstance<PyNetwork>(net)) throw py::type_error("DiagNetwork needs a pyquarn.Network");
                auto self = std::make_unique<PyDiagNetwork>(net);
                self->Run("DiagNetwork.Open", [&] { return self->Session().Open(); });
                return self;
            }),
            py::arg("net"), "Opens a diagnosis session over the network");
    cls.def("__copy__", [](const PyDiagNetwork& self) { return PyDiagNetwork(self); });
    cls.def(
        "__deepcopy__", [](const PyDiagNetwork& self, py::dict) { return PyDiagNetwork(self); }, py::arg("memo"));

    cls.def("update", &WrpUpdate, "Ranks the faults and the tests not yet performed");
    cls.def("get_faults", &WrpGetFaults, "Returns every fault with its probability, in index order");
    cls.def(
        "get_unperformed_tests",
        [](PyDiagNetwork& self) {
            std::vector<int> tests;
            self.Session().GetUnperformedTests(tests);
            return Wrp::HandlesToIds(self.Net(), tests);
        },
        "Returns the identifiers of the tests not yet performed");

    cls.def("instantiate_observation", &WrpInstantiateObservation, py::arg("node_handle"), py::arg("outcome_index"),
            "Records the outcome of a test");
    cls.def(
        "instantiate_observation",
        [](PyDiagNetwork& self, int node, const std::string& outcome) {
            Wrp::ValidateNodeHandle(self.Net(), node);
            WrpInstantiateObservation(self, node, Wrp::ValidateOutcomeId(self.Net(), node, outcome));
        },
        py::arg("node_handle"), py::arg("outcome_id"), "Records the outcome of a test");
    cls.def(
        "instantiate_observation",
        [](PyDiagNetwork& self, const std::string& node, int outcome) {
            WrpInstantiateObservation(self, Wrp::ValidateNodeId(self.Net(), node), outcome);
        },
        py::arg("node_id"), py::arg("outcome_index"), "Records the outcome of a test");
    cls.def(
        "instantiate_observation",
        [](PyDiagNetwork& self, const std::string& node, const std::string& outcome) {
            const int h = Wrp::ValidateNodeId(self.Net(), node);
            WrpInstantiateObservation(self, h, Wrp::ValidateOutcomeId(self.Net(), h, outcome));
        },
        py::arg("node_id"), py::arg("outcome_id"), "Records the outcome of a test");
    cls.def("release_observation", &WrpReleaseObservation, py::arg("node_handle"), "Forgets the outcome of a test");
    cls.def(
        "release_observation",
        [](PyDiagNetwork& self, const std::string& node) {
            WrpReleaseObservation(self, Wrp::ValidateNodeId(self.Net(), node));
        },
        py::arg("node_id"), "Forgets the outcome of a test");

    cls.def(
        "set_pursued_fault",
        [](PyDiagNetwork& self, int index) {
            self.Run("DiagNetwork.SetPursuedFault", [&] { return self.Session().SetPursuedFault(index); });
        },
        py::arg("index"), "Pursues one fault, by its index");
    cls.def(
        "set_pursued_faults",
        [](PyDiagNetwork& self, const std::vector<int>& indices) {
            self.Run("DiagNetwork.SetPursuedFaults", [&] { return self.Session().SetPursuedFaults(indices); });
        },
        py::arg("indices"), "Pursues several faults together, by their indices");
    cls.def(
        "get_pursued_faults", [](PyDiagNetwork& self) { return self.Session().GetPursuedFaults(); },
        "Returns the indices of the pursued faults (empty: the most probable fault is pursued)");

    cls.def(
        "set_single_fault_algorithm",
        [](PyDiagNetwork& self, Wrp::SingleFaultAlgorithmType::Value algorithm) {
            self.Run("DiagNetwork.SetSingleFaultAlgorithm",
                     [&] { return self.Session().SetSingleFaultAlgorithm(algorithm); });
        },
        py::arg("algorithm"), "Sets the measure used with one pursued fault");
    cls.def(
        "get_single_fault_algorithm",
        [](PyDiagNetwork& self) {
            return static_cast<Wrp::SingleFaultAlgorithmType::Value>(self.Session().GetSingleFaultAlgorithm());
        },
        "Returns the measure used with one pursued fault");
    // The engine ids decode by bits, so the enumeration's shared value 20 is
    // dependence with only one fault; dependence with at least one fault is
    // id 12, reached by passing the id.
    auto setMulti = [](PyDiagNetwork& self, int algorithm) {
        self.Run("DiagNetwork.SetMultiFaultAlgorithm",
                 [&] { return self.Session().SetMultiFaultAlgorithm(algorithm); });
    };
    cls.def(
        "set_multi_fault_algorithm",
        [setMulti](PyDiagNetwork& self, Wrp::MultiFaultAlgorithmType::Value algorithm) { setMulti(self, algorithm); },
        py::arg("algorithm"), "Sets the measure used with several pursued faults");
    cls.def("set_multi_fault_algorithm", setMulti, py::arg("algorithm_id"),
            "Sets the measure used with several pursued faults by its engine id");
    cls.def(
        "get_multi_fault_algorithm", [](PyDiagNetwork& self) { return self.Session().GetMultiFaultAlgorithm(); },
        "Returns the engine id of the measure used with several pursued faults");
    cls.def(
        "set_entropy_cost_ratio",
        [](PyDiagNetwork& self, double weight, double max_cost) {
            self.Run("DiagNetwork.SetEntropyCostRatio",
                     [&] { return self.Session().SetEntropyCostRatio(weight, max_cost); });
        },
        py::arg("weight"), py::arg("max_cost"),
        "Sets the weight of a test's cost against its measure, and the cost that counts in full");
}
