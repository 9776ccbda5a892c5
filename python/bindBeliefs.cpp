// Network methods: belief updating, node values, algorithm selection and
// the inference settings.
#include "bindUtil.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

void WrpUpdateBeliefs(VEK_network* net) {
    VEK_logger& logger = Deref(net).Logger();
    ClearLog(logger);
    int res = net->UpdateBeliefs();
    if (res != 0) ThrowQuarnExceptionWithLog(res, "Network.UpdateBeliefs", logger);
}

BayesianAlgorithmType::Value WrpGetBayesianAlgorithm(const VEK_network* net) {
    return static_cast<BayesianAlgorithmType::Value>(Deref(net).GetDefaultBNAlgorithm());
}

// The engine keeps its current algorithm for ids it does not know.
void WrpSetBayesianAlgorithm(VEK_network* net, int algorithm) { Deref(net).SetDefaultBNAlgorithm(algorithm); }

bool WrpIsRelevanceEnabled(const VEK_network* net) { return Deref(net).IsRelevanceEnabled(); }

void WrpSetRelevanceEnabled(VEK_network* net, bool enabled) { Deref(net).EnableRelevance(enabled); }

int WrpGetSampleCount(const VEK_network* net) { return Deref(net).GetNumberOfSamples(); }

void WrpSetSampleCount(VEK_network* net, int count) {
    ValidateResult(Deref(net).SetNumberOfSamples(count), "Network.SetSampleCount");
}

int WrpGetDiscretizationSampleCount(const VEK_network* net) { return Deref(net).GetNumberOfDiscretizationSamples(); }

void WrpSetDiscretizationSampleCount(VEK_network* net, int count) {
    ValidateResult(Deref(net).SetNumberOfDiscretizationSamples(count), "Network.SetDiscretizationSampleCount");
}

bool WrpIsOutlierRejectionEnabled(const VEK_network* net) { return Deref(net).IsOutlierRejectionEnabled(); }

void WrpSetOutlierRejectionEnabled(VEK_network* net, bool enabled) { Deref(net).EnableOutlierRejection(enabled); }

bool WrpIsZeroAvoidanceEnabled(const VEK_network* net) { return Deref(net).IsZeroAvoidanceEnabled(); }

void WrpSetZeroAvoidanceEnabled(VEK_network* net, bool enabled) { Deref(net).EnableZeroAvoidance(enabled); }

std::vector<double> WrpGetNodeValue(VEK_network* net, int handle) {
    EnsureNodeValueValid(Deref(net), handle);
    const VEK_Dmatrix* matrix = GetVal(*net, handle).GetMatrix();
    if (matrix == nullptr) ThrowQuarnException(VEK_WRONG_NODE_TYPE, "Network.GetNodeValue");
    return DoubleArrayToVector(*matrix);
}

bool WrpIsValueValid(VEK_network* net, int handle) { return GetVal(Deref(net), handle).IsValueValid(); }

// Mean and standard deviation of a discrete node over its point values (or
// interval midpoints); evidence given as a number is its own mean.
double WrpGetNodeMean(VEK_network* net, int handle) {
    EnsureNodeValueValid(Deref(net), handle);
    double mean = 0.0;
    ValidateResult(GetVal(*net, handle).GetMean(mean), "Network.GetNodeMean");
    return mean;
}

double WrpGetNodeStdDev(VEK_network* net, int handle) {
    EnsureNodeValueValid(Deref(net), handle);
    double sd = 0.0;
    ValidateResult(GetVal(*net, handle).GetStdDev(sd), "Network.GetNodeStdDev");
    return sd;
}

int WrpGetRandSeed(const VEK_network* net) { return Deref(net).GetRandSeed(); }

void WrpSetRandSeed(VEK_network* net, int seed) { Deref(net).SetRandSeed(seed); }

void WrpSetEPISParams(VEK_network* net, const EPISParams& params) {
    int res = Deref(net).SetEPISParams(EPISParamsToEngine(params));
    if (res != 0) ThrowQuarnException(res, "Network.SetEPISParams", "Invalid EPIS parameters");
}

EPISParams WrpGetEPISParams(const VEK_network* net) { return EPISParamsFromEngine(Deref(net).GetEPISParams()); }

}  // namespace
}  // namespace Wrp

void BindBeliefs(PyNetworkClass& cls) {
    using namespace Wrp;
    using namespace BindUtil;

    cls.def("update_beliefs", [](PyNetwork& self) { WrpUpdateBeliefs(&self); }, "Updates all node beliefs");
    cls.def("get_bayesian_algorithm", [](const PyNetwork& self) { return WrpGetBayesianAlgorithm(&self); },
            "Returns the Bayesian algorithm used");
    // prob_evidence is registered by BindInference, from the join tree.
    cls.def("is_relevance_enabled", [](const PyNetwork& self) { return WrpIsRelevanceEnabled(&self); },
            "Returns true if relevance is enabled");
    cls.def("get_sample_count", [](const PyNetwork& self) { return WrpGetSampleCount(&self); },
            "Returns number of samples for inference");
    cls.def("is_outlier_rejection_enabled",
            [](const PyNetwork& self) { return WrpIsOutlierRejectionEnabled(&self); },
            "Returns true if outlier rejection is enabled");
    cls.def("get_discretization_sample_count",
            [](const PyNetwork& self) { return WrpGetDiscretizationSampleCount(&self); },
            "Returns sample count used for discretization");
    cls.def("is_zero_avoidance_enabled", [](const PyNetwork& self) { return WrpIsZeroAvoidanceEnabled(&self); },
            "Returns true if zero-avoidance is enabled");
    DefNode(cls, "get_node_value", &WrpGetNodeValue, "Returns belief value of node");
    cls.def(
        "set_bayesian_algorithm",
        [](PyNetwork& self, BayesianAlgorithmType::Value algorithm) { WrpSetBayesianAlgorithm(&self, algorithm); },
        py::arg("bayesian_algorithm"), "Sets the Bayesian inference algorithm");
    cls.def(
        "set_relevance_enabled", [](PyNetwork& self, bool enabled) { WrpSetRelevanceEnabled(&self, enabled); },
        py::arg("enabled").noconvert(), "Enables relevance propagation");
    cls.def(
        "set_sample_count", [](PyNetwork& self, int count) { WrpSetSampleCount(&self, count); },
        py::arg("sample_count"), "Sets sample count");
    cls.def(
        "set_outlier_rejection_enabled",
        [](PyNetwork& self, bool enabled) { WrpSetOutlierRejectionEnabled(&self, enabled); },
        py::arg("enabled").noconvert(), "Enables outlier rejection");
    cls.def(
        "set_discretization_sample_count",
        [](PyNetwork& self, int count) { WrpSetDiscretizationSampleCount(&self, count); },
        py::arg("discretization_sample_count"), "Sets sample count for discretization");
    cls.def(
        "set_zero_avoidance_enabled",
        [](PyNetwork& self, bool enabled) { WrpSetZeroAvoidanceEnabled(&self, enabled); },
        py::arg("enabled").noconvert(), "Enables zero-avoidance");
    DefNode(cls, "is_value_valid", &WrpIsValueValid, "Returns true if node value is valid");
    // is_value_discretized, annealed_map, distributed_helper_em and
    // calc_sensitivity are registered here once the engine offers them.
    cls.def("get_rand_seed", [](const PyNetwork& self) { return WrpGetRandSeed(&self); },
            "Returns the current random seed");
    cls.def(
        "set_rand_seed", [](PyNetwork& self, int seed) { WrpSetRandSeed(&self, seed); }, py::arg("seed"),
        "Sets the random seed");
    DefNode(cls, "get_node_mean", &WrpGetNodeMean, "Returns mean value of a continuous node");
    DefNode(cls, "get_node_std_dev", &WrpGetNodeStdDev, "Returns standard deviation for continuous node");
    // most_probable_explanation and marginalize_node follow here once the
    // engine offers them.
    cls.def(
        "set_epis_params", [](PyNetwork& self, const PyEPISParams& params) { WrpSetEPISParams(&self, params); },
        py::arg("params"), "Sets EPIS sampling parameters");
    cls.def("get_epis_params", [](const PyNetwork& self) { return PyEPISParams(WrpGetEPISParams(&self)); },
            "Returns the current EPIS sampling parameters");
}
