// Network methods of equation nodes: the equation text, bounds,
// discretization, constant and deterministic queries, and sample results.
#include <cmath>

#include "bindUtil.h"
#include "dynamic/dynamicNet.h"
#include "equations/equation.h"
#include "equations/equationEvaluation.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

VEK_equation& GetEquation(VEK_network& net, int handle, const char* function) {
    auto* eq = dynamic_cast<VEK_equation*>(&GetDef(net, handle));
    if (eq == nullptr) {
        ThrowQuarnExceptionWithMessage(VEK_WRONG_NODE_TYPE, function,
                                       "Node '" + CopyConstCharPtr(net.GetNodeId(handle)) + "' is not an equation node");
    }
    return *eq;
}

void WrpSetNodeEquation(VEK_network* net, int handle, const std::string& text) {
    VEK_equation& eq = GetEquation(Deref(net), handle, "Network.SetNodeEquation");
    ValidateText(text, "Network.SetNodeEquation", "Equation");
    int pos = -1;
    std::string message;
    const int res = eq.SetEquation(text, pos, message);
    if (res != VEK_OKAY) {
        std::string full = "Equation '" + text + "'";
        if (pos >= 0) full += " at position " + std::to_string(pos);
        ThrowQuarnExceptionWithMessage(res, "Network.SetNodeEquation", full + ": " + message);
    }
}

std::string WrpGetNodeEquation(VEK_network* net, int handle) {
    return GetEquation(Deref(net), handle, "Network.GetNodeEquation").GetEquation();
}

void WrpSetNodeEquationDiscretization(VEK_network* net, int handle,
                                      const std::vector<PyDiscretizationInterval>& intervals) {
    VEK_equation& eq = GetEquation(Deref(net), handle, "Network.SetNodeEquationDiscretization");
    std::vector<VEK_discInterval> items;
    for (const DiscretizationInterval& i : intervals) items.push_back({i.id, i.upper_bound});
    std::string message;
    const int res = eq.SetDiscretization(items, message);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithMessage(res, "Network.SetNodeEquationDiscretization", message);
}

std::vector<PyDiscretizationInterval> WrpGetNodeEquationDiscretization(VEK_network* net, int handle) {
    std::vector<PyDiscretizationInterval> out;
    const VEK_equation& eq = GetEquation(Deref(net), handle, "Network.GetNodeEquationDiscretization");
    const VEK_idArray* ids = eq.GetOutcomeIds();
    for (size_t k = 0; k < eq.GetDiscretization().size(); ++k) {
        out.emplace_back(DiscretizationInterval{CopyConstCharPtr((*ids)[static_cast<int>(k)]),
                                                eq.GetDiscretization()[k].upper});
    }
    return out;
}

void WrpSetNodeEquationUniformDiscretization(VEK_network* net, int handle, int count) {
    VEK_equation& eq = GetEquation(Deref(net), handle, "Network.SetNodeEquationUniformDiscretization");
    std::string message;
    const int res = eq.SetUniformDiscretization(count, message);
    if (res != VEK_OKAY) ThrowQuarnExceptionWithMessage(res, "Network.SetNodeEquationUniformDiscretization", message);
}

std::pair<double, double> WrpGetNodeEquationBounds(VEK_network* net, int handle) {
    const VEK_equation& eq = GetEquation(Deref(net), handle, "Network.GetNodeEquationBounds");
    return {eq.GetLower(), eq.GetUpper()};
}

void WrpSetNodeEquationBounds(VEK_network* net, int handle, double lower, double upper) {
    VEK_equation& eq = GetEquation(Deref(net), handle, "Network.SetNodeEquationBounds");
    if (eq.SetBounds(lower, upper) != VEK_OKAY) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.SetNodeEquationBounds",
                                       "Bounds must be finite with the lower at most the upper, and hold the "
                                       "discretization intervals");
    }
}

bool WrpIsNodeEquationConstant(VEK_network* net, int handle) {
    return GetEquation(Deref(net), handle, "Network.IsNodeEquationConstant").IsConstant();
}

bool WrpIsNodeEquationDeterministic(VEK_network* net, int handle) {
    return GetEquation(Deref(net), handle, "Network.IsNodeEquationDeterministic").IsDeterministic();
}

double WrpGetNodeEquationConstant(VEK_network* net, int handle) {
    const VEK_equation& eq = GetEquation(Deref(net), handle, "Network.GetNodeEquationConstant");
    if (!eq.IsConstant()) {
        ThrowQuarnExceptionWithMessage(VEK_WRONG_NODE_TYPE, "Network.GetNodeEquationConstant",
                                       "The equation of node '" + CopyConstCharPtr(net->GetNodeId(handle)) +
                                           "' is not constant");
    }
    return eq.GetConstant();
}

const VEK_equationEvaluation* EquationValue(VEK_network& net, int handle) {
    return dynamic_cast<const VEK_equationEvaluation*>(&GetVal(net, handle));
}

bool WrpIsValueDiscretized(VEK_network* net, int handle) {
    const VEK_equationEvaluation* v = EquationValue(Deref(net), handle);
    return v && v->IsValueValid() && v->IsDiscretized();
}

// Mean, standard deviation, smallest and largest value.
std::vector<double> WrpGetNodeSampleStats(VEK_network* net, int handle) {
    EnsureNodeValueValid(Deref(net), handle);
    const VEK_equationEvaluation* v = EquationValue(*net, handle);
    if (!v) {
        ThrowQuarnExceptionWithMessage(VEK_WRONG_NODE_TYPE, "Network.GetNodeSampleStats",
                                       "Node '" + CopyConstCharPtr(net->GetNodeId(handle)) + "' is not an equation node");
    }
    double mean = 0.0, sd = 0.0;
    // Plain reads of an evaluation's fields: they cannot fail.
    (void)v->GetMean(mean);
    (void)v->GetStdDev(sd);
    double ev = 0.0;
    if (v->GetEvidence(ev) == VEK_OKAY) return {ev, 0.0, ev, ev};
    return {mean, sd, v->GetMin(), v->GetMax()};
}

// ---- dynamic networks: temporal equations and continuous evidence

VEK_equation& PlateEquation(VEK_network& net, int handle, const char* function) {
    VEK_equation& eq = GetEquation(net, handle, function);
    if (net.GetNode(handle)->GetTemporalType() != VEK_TEMPORAL_PLATE) {
        ThrowQuarnExceptionWithMessage(VEK_WRONG_NODE_TYPE, function,
                                       "Node '" + CopyConstCharPtr(net.GetNodeId(handle)) +
                                           "' is not in the temporal plate");
    }
    return eq;
}

void WrpSetNodeTemporalEquations(VEK_network* net, int handle, const std::vector<std::string>& texts) {
    PlateEquation(Deref(net), handle, "Network.SetNodeTemporalEquations");
    for (const std::string& t : texts) ValidateText(t, "Network.SetNodeTemporalEquations", "Equation");
    int pos = -1;
    std::string message;
    const int res = net->Dynamic().SetTemporalEquations(handle, texts, pos, message);
    if (res != VEK_OKAY) {
        if (pos >= 0) message += " (at position " + std::to_string(pos) + ")";
        ThrowQuarnExceptionWithMessage(res, "Network.SetNodeTemporalEquations", message);
    }
}

std::vector<std::string> WrpGetNodeTemporalEquations(VEK_network* net, int handle) {
    PlateEquation(Deref(net), handle, "Network.GetNodeTemporalEquations");
    return net->Dynamic().GetTemporalEquations(handle);
}

void CheckContSlice(VEK_network* net, int handle, int slice, const char* function) {
    PlateEquation(Deref(net), handle, function);
    ValidateSlice(*net, slice);
}

void WrpSetTemporalContEvidence(VEK_network* net, int handle, int slice, double value) {
    CheckContSlice(net, handle, slice, "Network.SetTemporalContEvidence");
    if (!std::isfinite(value)) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.SetTemporalContEvidence", "Evidence must be finite");
    }
    ValidateResult(net->Dynamic().SetTemporalContEvidence(handle, slice, value), "Network.SetTemporalContEvidence");
}

bool WrpIsTemporalContEvidence(VEK_network* net, int handle, int slice) {
    CheckContSlice(net, handle, slice, "Network.IsTemporalContEvidence");
    double v;
    return net->Dynamic().GetTemporalContEvidence(handle, slice, v);
}

double WrpGetTemporalContEvidence(VEK_network* net, int handle, int slice) {
    CheckContSlice(net, handle, slice, "Network.GetTemporalContEvidence");
    double v = 0.0;
    if (!net->Dynamic().GetTemporalContEvidence(handle, slice, v)) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.GetTemporalContEvidence",
                                       "Node '" + CopyConstCharPtr(net->GetNodeId(handle)) +
                                           "' has no continuous evidence in slice " + std::to_string(slice));
    }
    return v;
}

const VEK_equationEvaluation& TemporalValue(VEK_network* net, int handle, const char* function) {
    PlateEquation(Deref(net), handle, function);
    EnsureNodeValueValid(*net, handle);
    const VEK_equationEvaluation* v = EquationValue(*net, handle);
    if (!v->IsTemporal()) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function,
                                       "Node '" + CopyConstCharPtr(net->GetNodeId(handle)) + "' has no samples per slice");
    }
    return *v;
}

std::vector<int> WrpGetNodeSliceSampleCounts(VEK_network* net, int handle) {
    return TemporalValue(net, handle, "Network.GetNodeSliceSampleCounts").GetSliceSampleCounts();
}

std::vector<double> WrpGetNodeTemporalMean(VEK_network* net, int handle) {
    return TemporalValue(net, handle, "Network.GetNodeTemporalMean").GetTemporalMeans();
}

std::vector<double> WrpGetNodeTemporalStdDev(VEK_network* net, int handle) {
    return TemporalValue(net, handle, "Network.GetNodeTemporalStdDev").GetTemporalStdDevs();
}

}  // namespace
}  // namespace Wrp

void BindEquations(PyNetworkClass& cls) {
    using namespace Wrp;
    using namespace BindUtil;

    DefNode(cls, "set_node_equation", &WrpSetNodeEquation, "Sets node equation", py::arg("equation"));
    DefNodeById(cls, "get_node_equation", &WrpGetNodeEquation, "Returns node equation");
    DefNode(cls, "set_node_equation_discretization", &WrpSetNodeEquationDiscretization, "Sets discretization method",
            py::arg("intervals"));
    DefNode(cls, "get_node_equation_discretization", &WrpGetNodeEquationDiscretization,
            "Returns the discretization intervals of an equation node");
    DefNode(cls, "is_node_equation_constant", &WrpIsNodeEquationConstant, "Returns true if node equation is constant");
    DefNode(cls, "is_node_equation_deterministic", &WrpIsNodeEquationDeterministic,
            "Returns true if node equation is deterministic");
    DefNode(cls, "get_node_equation_constant", &WrpGetNodeEquationConstant, "Returns constant flag for node equation");
    DefNode(cls, "set_node_equation_uniform_discretization", &WrpSetNodeEquationUniformDiscretization,
            "Discretizes a continuous equation node using uniform intervals", py::arg("interval_count"));
    DefNode(cls, "get_node_equation_bounds", &WrpGetNodeEquationBounds, "Returns the bounds of an equation node");
    DefNode(cls, "set_node_equation_bounds", &WrpSetNodeEquationBounds, "Sets the bounds of an equation node",
            py::arg("lower"), py::arg("upper"));
    DefNode(cls, "is_value_discretized", &WrpIsValueDiscretized, "Returns true if node values are discretized");
    DefNode(cls, "get_node_sample_stats", &WrpGetNodeSampleStats,
            "Returns the mean, standard deviation, minimum and maximum of a continuous node's samples");
    DefNode(cls, "set_node_temporal_equations", &WrpSetNodeTemporalEquations,
            "Sets the temporal equations for the specified node", py::arg("equations"));
    DefNodeById(cls, "get_node_temporal_equations", &WrpGetNodeTemporalEquations,
                "Returns the temporal equations for the specified node");
    DefNode(cls, "set_temporal_cont_evidence", &WrpSetTemporalContEvidence, "Sets temporal continuous evidence",
            py::arg("slice"), py::arg("value"));
    DefNode(cls, "is_temporal_cont_evidence", &WrpIsTemporalContEvidence,
            "Returns true if node has temporal continuous evidence", py::arg("slice"));
    DefNode(cls, "get_temporal_cont_evidence", &WrpGetTemporalContEvidence,
            "Returns temporal continuous evidence values", py::arg("slice"));
    DefNode(cls, "get_node_slice_sample_counts", &WrpGetNodeSliceSampleCounts,
            "Returns the temporal slice sample count for the specified node");
    DefNode(cls, "get_node_temporal_mean", &WrpGetNodeTemporalMean,
            "Returns the sample mean of the specified node in every time slice");
    DefNode(cls, "get_node_temporal_std_dev", &WrpGetNodeTemporalStdDev,
            "Returns the sample standard deviation of the specified node in every time slice");
}
