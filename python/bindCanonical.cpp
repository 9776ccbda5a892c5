// Network methods of the canonical definitions: noisy-MAX strengths and
// synchronization, the expanded table of noisy nodes, DeMorgan prior,
// parent types and weights.
//
// A parent is named by its index in the node's parent list (int) or by its
// node identifier (str).
#include <stdexcept>
#include <string>
#include <vector>

#include "bindUtil.h"
#include "inference/caughtFailure.h"
#include "network/ciDef.h"
#include "network/demorgan.h"
#include "network/noisyMAX.h"
#include "wrpCore.h"

namespace Wrp {
namespace {

std::string Quoted(const VEK_network& net, int handle) { return "'" + CopyConstCharPtr(net.GetNodeId(handle)) + "'"; }

template <class T>
T& GetDefOf(VEK_network& net, int handle, const char* function, const char* kind) {
    auto* def = dynamic_cast<T*>(&GetDef(net, handle));
    if (def == nullptr) {
        ThrowQuarnExceptionWithMessage(VEK_WRONG_NODE_TYPE, function,
                                       "Node " + Quoted(net, handle) + " is not a " + kind + " node");
    }
    return *def;
}

VEK_noisyMAX& GetNoisyMax(VEK_network& net, int handle, const char* function) {
    return GetDefOf<VEK_noisyMAX>(net, handle, function, "noisy-MAX");
}

VEK_ciDef& GetNoisy(VEK_network& net, int handle, const char* function) {
    return GetDefOf<VEK_ciDef>(net, handle, function, "noisy");
}

VEK_demorgan& GetDeMorgan(VEK_network& net, int handle, const char* function) {
    return GetDefOf<VEK_demorgan>(net, handle, function, "DeMorgan");
}

void ValidateParentIndex(const VEK_network& net, int handle, int parentIndex, const char* function) {
    const int count = GetNode(net, handle).Parents().GetSize();
    if (parentIndex < 0 || parentIndex >= count) {
        std::string message = "Invalid parent index ";
        VEK_appendInt(message, parentIndex);
        message += " for node " + Quoted(net, handle);
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function, message);
    }
}

// The index of the parent bearing parentId in the node's parent list.
int ParentIndexOf(const VEK_network& net, int handle, const std::string& parentId, const char* function) {
    const int parent = ValidateNodeId(net, parentId);
    const int index = GetNode(net, handle).Parents().FindPosition(parent);
    if (index < 0) {
        ThrowQuarnExceptionWithMessage(VEK_OUT_OF_RANGE, function,
                                       "Node '" + parentId + "' is not a parent of node " + Quoted(net, handle));
    }
    return index;
}

// ---- noisy nodes ----------------------------------------------------------------

bool WrpIsNoisySynchronized(VEK_network* net, int handle) {
    return GetNoisyMax(Deref(net), handle, "Network.IsNoisySynchronized").IsSynchronized();
}

void WrpSetNoisySynchronized(VEK_network* net, int handle, bool synchronized) {
    const char* function = "Network.SetNoisySynchronized";
    ValidateResult(GetNoisyMax(Deref(net), handle, function).SetSynchronized(synchronized), function);
    net->OnDefinitionChanged(handle);
}

bool WrpIsNoisyExpanded(VEK_network* net, int handle) {
    return GetNoisy(Deref(net), handle, "Network.IsNoisyExpanded").IsCptValid();
}

std::vector<double> WrpGetNoisyExpandedDefinition(VEK_network* net, int handle) {
    const char* function = "Network.GetNoisyExpandedDefinition";
    const VEK_ciDef& def = GetNoisy(Deref(net), handle, function);
    try {
        return DoubleArrayToVector(*def.GetMatrix());
    } catch (const std::overflow_error&) {
        ThrowQuarnException(VEK_OUT_OF_MEMORY, function, VEK_kTableTooLarge);
    }
}

std::vector<int> WrpGetNoisyParentStrengths(VEK_network* net, int handle, int parentIndex) {
    const char* function = "Network.GetNoisyParentStrengths";
    const VEK_noisyMAX& def = GetNoisyMax(Deref(net), handle, function);
    ValidateParentIndex(*net, handle, parentIndex, function);
    const VEK_intArray* strengths = def.GetParentOutcomeStrengths(parentIndex);
    if (strengths == nullptr) ThrowQuarnException(VEK_OUT_OF_RANGE, function);
    return IntArrayToVector(*strengths);
}

void WrpSetNoisyParentStrengths(VEK_network* net, int handle, int parentIndex, const std::vector<int>& strengths) {
    const char* function = "Network.SetNoisyParentStrengths";
    VEK_noisyMAX& def = GetNoisyMax(Deref(net), handle, function);
    ValidateParentIndex(*net, handle, parentIndex, function);
    int res = def.SetParentOutcomeStrengths(parentIndex, VectorToIntArray(strengths));
    if (res < 0) {
        ThrowQuarnExceptionWithMessage(res, function,
                                       "Strengths must list every outcome of parent " +
                                           Quoted(*net, GetNode(*net, handle).Parents()[parentIndex]) +
                                           " exactly once");
    }
    net->OnDefinitionChanged(handle);
}

// ---- DeMorgan ---------------------------------------------------------------------

void WrpSetDeMorganPriorBelief(VEK_network* net, int handle, double prior) {
    const char* function = "Network.SetDeMorganPriorBelief";
    int res = GetDeMorgan(Deref(net), handle, function).SetPriorBelief(prior);
    if (res < 0) ThrowQuarnExceptionWithMessage(res, function, "Prior belief must be within [0, 1]");
    net->OnDefinitionChanged(handle);
}

double WrpGetDeMorganPriorBelief(VEK_network* net, int handle) {
    return GetDeMorgan(Deref(net), handle, "Network.GetDeMorganPriorBelief").GetPriorBelief();
}

DeMorganParentType::Value WrpGetDeMorganParentType(VEK_network* net, int handle, int parentIndex) {
    const char* function = "Network.GetDeMorganParentType";
    const VEK_demorgan& def = GetDeMorgan(Deref(net), handle, function);
    ValidateParentIndex(*net, handle, parentIndex, function);
    int type = def.GetParentType(parentIndex);
    ValidateResult(type < 0 ? type : 0, function);
    return static_cast<DeMorganParentType::Value>(type);
}

void WrpSetDeMorganParentType(VEK_network* net, int handle, int parentIndex, DeMorganParentType::Value type) {
    const char* function = "Network.SetDeMorganParentType";
    VEK_demorgan& def = GetDeMorgan(Deref(net), handle, function);
    ValidateParentIndex(*net, handle, parentIndex, function);
    int res = def.SetParentType(parentIndex, static_cast<int>(type));
    if (res < 0) ThrowQuarnExceptionWithMessage(res, function, "Unknown DeMorgan parent type");
    net->OnDefinitionChanged(handle);
}

double WrpGetDeMorganParentWeight(VEK_network* net, int handle, int parentIndex) {
    const char* function = "Network.GetDeMorganParentWeight";
    const VEK_demorgan& def = GetDeMorgan(Deref(net), handle, function);
    ValidateParentIndex(*net, handle, parentIndex, function);
    double weight = 0.0;
    ValidateResult(def.GetParentWeight(parentIndex, weight), function);
    return weight;
}

void WrpSetDeMorganParentWeight(VEK_network* net, int handle, int parentIndex, double weight) {
    const char* function = "Network.SetDeMorganParentWeight";
    VEK_demorgan& def = GetDeMorgan(Deref(net), handle, function);
    ValidateParentIndex(*net, handle, parentIndex, function);
    int res = def.SetParentWeight(parentIndex, weight);
    if (res < 0) ThrowQuarnExceptionWithMessage(res, function, "Parent weight must be within [0, 1]");
    net->OnDefinitionChanged(handle);
}

// fn(net, handle, parentIndex, args...) in the four forms (node by handle or
// id) x (parent by index or id). The node is resolved before the parent.
template <class R, class... Args, class... Extra>
void DefNodeParent(PyNetworkClass& cls, const char* name, R (*fn)(VEK_network*, int, int, Args...),
                   const char* label, const char* doc, const Extra&... extra) {
    cls.def(
        name, [fn](PyNetwork& self, int h, int p, Args... a) -> R { return fn(&self, h, p, a...); },
        py::arg("node_handle"), py::arg("parent_index"), extra..., doc);
    cls.def(
        name,
        [fn](PyNetwork& self, const std::string& id, int p, Args... a) -> R {
            return fn(&self, ValidateNodeId(self, id), p, a...);
        },
        py::arg("node_id"), py::arg("parent_index"), extra..., doc);
    cls.def(
        name,
        [fn, label](PyNetwork& self, int h, const std::string& parent, Args... a) -> R {
            ValidateNodeHandle(self, h);
            return fn(&self, h, ParentIndexOf(self, h, parent, label), a...);
        },
        py::arg("node_handle"), py::arg("parent_id"), extra..., doc);
    cls.def(
        name,
        [fn, label](PyNetwork& self, const std::string& id, const std::string& parent, Args... a) -> R {
            int h = ValidateNodeId(self, id);
            return fn(&self, h, ParentIndexOf(self, h, parent, label), a...);
        },
        py::arg("node_id"), py::arg("parent_id"), extra..., doc);
}

}  // namespace
}  // namespace Wrp

void BindCanonical(PyNetworkClass& cls) {
    using namespace Wrp;
    using namespace BindUtil;

    DefNode(cls, "is_noisy_synchronized", &WrpIsNoisySynchronized, "Returns true if noisy strengths are synchronized");
    DefNode(cls, "is_noisy_expanded", &WrpIsNoisyExpanded, "Returns true if noisy OR is expanded");
    DefNode(cls, "set_noisy_synchronized", &WrpSetNoisySynchronized, "Synchronizes noisy strengths",
            py::arg("synchronized"));
    DefNode(cls, "get_noisy_expanded_definition", &WrpGetNoisyExpandedDefinition,
            "Returns expanded noisy-OR definition");
    DefNode(cls, "set_de_morgan_prior_belief", &WrpSetDeMorganPriorBelief, "Sets DeMorgan prior belief",
            py::arg("prior_belief"));
    DefNode(cls, "get_de_morgan_prior_belief", &WrpGetDeMorganPriorBelief, "Returns DeMorgan prior belief");
    DefNodeParent(cls, "get_de_morgan_parent_type", &WrpGetDeMorganParentType, "Network.GetDeMorganParentType",
                  "Returns DeMorgan parent type");
    DefNodeParent(cls, "get_de_morgan_parent_weight", &WrpGetDeMorganParentWeight, "Network.GetDeMorganParentWeight",
                  "Returns DeMorgan parent weight");
    DefNodeParent(cls, "set_de_morgan_parent_type", &WrpSetDeMorganParentType, "Network.SetDeMorganParentType",
                  "Sets DeMorgan parent type", py::arg("parent_type"));
    DefNodeParent(cls, "set_de_morgan_parent_weight", &WrpSetDeMorganParentWeight, "Network.SetDeMorganParentWeight",
                  "Sets DeMorgan parent weight", py::arg("weight"));
    DefNodeParent(cls, "get_noisy_parent_strengths", &WrpGetNoisyParentStrengths, "Network.GetNoisyParentStrengths",
                  "Returns noisy parent outcome strengths");
    DefNodeParent(cls, "set_noisy_parent_strengths", &WrpSetNoisyParentStrengths, "Network.SetNoisyParentStrengths",
                  "Sets noisy parent outcome strengths", py::arg("strengths"));
}
