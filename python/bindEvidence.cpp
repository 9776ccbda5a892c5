// Network methods: hard, continuous and virtual evidence, targets and
// controlled values.
#include "bindUtil.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

std::string NodeText(const VEK_network& net, int handle) {
    return "'" + CopyConstCharPtr(net.GetNodeId(handle)) + "'";
}

void WrpClearAllEvidence(VEK_network* net) { ValidateResult(Deref(net).ClearAllEvidence(), "Network.ClearAllEvidence"); }

void WrpClearAllTargets(VEK_network* net) { ValidateResult(Deref(net).ClearAllTargets(), "Network.ClearAllTargets"); }

void WrpSetEvidence(VEK_network* net, int handle, int outcome) {
    VEK_nodeVal& val = GetVal(Deref(net), handle);
    ValidateOutcomeIndex(*net, handle, outcome);
    ValidateResult(val.SetEvidence(outcome), "Network.SetEvidence");
}

// The outcome index of the node's evidence (propagated evidence included).
int WrpGetEvidence(VEK_network* net, int handle) {
    VEK_nodeVal& val = GetVal(Deref(net), handle);
    int res = val.GetEvidence();
    if (res < 0) {
        ThrowQuarnExceptionWithMessage(res, "Network.GetEvidence", "Node " + NodeText(*net, handle) + " has no evidence");
    }
    return res;
}

std::string WrpGetEvidenceId(VEK_network* net, int handle) {
    const char* id = GetVal(Deref(net), handle).GetEvidenceId();
    if (id == nullptr) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, "Network.GetEvidenceId",
                                       "Node " + NodeText(*net, handle) + " has no evidence");
    }
    return id;
}

bool WrpIsEvidence(VEK_network* net, int handle) { return GetVal(Deref(net), handle).IsEvidence(); }

void WrpClearEvidence(VEK_network* net, int handle) {
    ValidateResult(GetVal(Deref(net), handle).ClearEvidence(), "Network.ClearEvidence");
}

void WrpSetTarget(VEK_network* net, int handle, bool target) {
    ValidateNodeHandle(Deref(net), handle);
    ValidateResult(net->SetTarget(handle, target), "Network.SetTarget");
}

bool WrpIsTarget(VEK_network* net, int handle) {
    ValidateNodeHandle(Deref(net), handle);
    return net->IsTarget(handle);
}

void WrpSetVirtualEvidence(VEK_network* net, int handle, const std::vector<double>& evidence) {
    ValidateResult(GetVal(Deref(net), handle).SetVirtualEvidence(evidence), "Network.SetVirtualEvidence");
}

std::vector<double> WrpGetVirtualEvidence(VEK_network* net, int handle) {
    std::vector<double> out;
    ValidateResult(GetVal(Deref(net), handle).GetVirtualEvidence(out), "Network.GetVirtualEvidence");
    return out;
}

// Continuous evidence on a discrete node is a number that the node's
// intervals or point values map to an outcome.
void WrpSetContEvidence(VEK_network* net, int handle, double value) {
    ValidateResult(GetVal(Deref(net), handle).SetEvidence(value), "Network.SetContEvidence");
}

double WrpGetContEvidence(VEK_network* net, int handle) {
    double value = 0.0;
    ValidateResult(GetVal(Deref(net), handle).GetEvidence(value), "Network.GetContEvidence");
    return value;
}

bool WrpIsRealEvidence(VEK_network* net, int handle) { return GetVal(Deref(net), handle).IsRealEvidence(); }

bool WrpIsPropagatedEvidence(VEK_network* net, int handle) {
    return GetVal(Deref(net), handle).IsPropagatedEvidence();
}

bool WrpIsVirtualEvidence(VEK_network* net, int handle) { return GetVal(Deref(net), handle).IsVirtualEvidence(); }

bool WrpIsControlled(VEK_network* net, int handle) { return GetVal(Deref(net), handle).IsControlled(); }

int WrpGetControlledValue(VEK_network* net, int handle, const char* function) {
    VEK_nodeVal& val = GetVal(Deref(net), handle);
    if (!val.IsControlled()) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function,
                                       "Node " + NodeText(*net, handle) + " has no controlled value");
    }
    return val.GetEvidence();
}

int WrpGetControlledValue(VEK_network* net, int handle) {
    return WrpGetControlledValue(net, handle, "Network.GetControlledValue");
}

std::string WrpGetControlledValueId(VEK_network* net, int handle) {
    int outcome = WrpGetControlledValue(net, handle, "Network.GetControlledValueId");
    return CopyConstCharPtr((*GetDef(*net, handle).GetOutcomeIds())[outcome]);
}

void WrpSetControlledValue(VEK_network* net, int handle, int outcome) {
    VEK_nodeVal& val = GetVal(Deref(net), handle);
    ValidateOutcomeIndex(*net, handle, outcome);
    ValidateResult(val.ControlValue(outcome), "Network.SetControlledValue");
}

void WrpClearControlledValue(VEK_network* net, int handle) {
    ValidateResult(GetVal(Deref(net), handle).ClearControlledValue(), "Network.ClearControlledValue");
}

}  // namespace
}  // namespace Wrp

void BindEvidence(PyNetworkClass& cls) {
    using namespace Wrp;
    using namespace BindUtil;

    cls.def("clear_all_evidence", [](PyNetwork& self) { WrpClearAllEvidence(&self); },
            "Clears all evidence in the network");
    cls.def("clear_all_targets", [](PyNetwork& self) { WrpClearAllTargets(&self); },
            "Clears all target flags in the network");
    DefNodeOutcome(cls, "set_evidence", &WrpSetEvidence, "Sets evidence on a node", {kIH, kHI, kII, kHH});
    DefNode(cls, "get_evidence", &WrpGetEvidence, "Returns evidence for a node");
    DefNodeById(cls, "get_evidence_id", &WrpGetEvidenceId, "Returns evidence outcome ID");
    DefNode(cls, "is_evidence", &WrpIsEvidence, "Returns true if node has evidence set");
    DefNode(cls, "clear_evidence", &WrpClearEvidence, "Clears evidence from a node");
    DefNode(cls, "set_target", &WrpSetTarget, "Marks node as target", py::arg("target").noconvert());
    DefNode(cls, "is_target", &WrpIsTarget, "Returns true if node is a target");
    DefNode(cls, "set_virtual_evidence", &WrpSetVirtualEvidence, "Sets virtual evidence on a node",
            py::arg("virtual_evidence"));
    DefNode(cls, "set_cont_evidence", &WrpSetContEvidence, "Sets continuous evidence", py::arg("value"));
    DefNode(cls, "get_cont_evidence", &WrpGetContEvidence, "Returns continuous evidence for a node");
    DefNode(cls, "get_virtual_evidence", &WrpGetVirtualEvidence, "Returns virtual evidence for node");
    DefNode(cls, "is_real_evidence", &WrpIsRealEvidence, "Returns true if real evidence is set");
    DefNode(cls, "is_propagated_evidence", &WrpIsPropagatedEvidence,
            "Returns true if node has propagated evidence");
    DefNode(cls, "is_virtual_evidence", &WrpIsVirtualEvidence, "Returns true if node has virtual evidence");
    DefNode(cls, "is_controlled", &WrpIsControlled, "Returns true if node is controlled");
    DefNode(cls, "get_controlled_value", static_cast<int (*)(VEK_network*, int)>(&WrpGetControlledValue),
            "Returns controlled value of a node");
    DefNodeById(cls, "get_controlled_value_id", &WrpGetControlledValueId, "Returns ID of the controlled value");
    DefNodeOutcome(cls, "set_controlled_value", &WrpSetControlledValue, "Sets controlled value for decision node",
                   {kHH, kHI, kIH, kII});
    DefNode(cls, "clear_controlled_value", &WrpClearControlledValue, "Clears a node controlled value");
}
