#include "network/nodeDef.h"

#include <cmath>

#include "equations/equation.h"
#include "network/canonicalFactory.h"
#include "network/cpt.h"
#include "network/decision.h"
#include "network/mau.h"
#include "network/network.h"
#include "network/node.h"
#include "network/nodeXformContext.h"
#include "network/status.h"
#include "network/truthTable.h"
#include "network/utility.h"

namespace {

const VEK_intArray& EmptyHandleList() {
    static const VEK_intArray empty;
    return empty;
}

}  // namespace

// ---------------------------------------------------------------- graph

int VEK_nodeDef::AddParent(int) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::RemoveParent(int) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::BeforeIdChange(const char*, const char*) { return VEK_OKAY; }
int VEK_nodeDef::OnParentOutcomeAdd(int, int) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::OnParentOutcomeRemove(int, int) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::OnParentOutcomeReorder(int, const VEK_intArray&) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::OnParentReorder(const VEK_intArray&) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::BeforeParentIdChange(int, const char*, const char*) { return VEK_OKAY; }

// A parent is unnecessary when every slice of the table along its dimension
// equals the slice at its first outcome within epsilon. Definitions without
// a table over their parents report every parent as necessary.
int VEK_nodeDef::IsParentNecessary(int parent, double epsilon, bool& necessary) const {
    int pos = FindParentPosition(parent);
    if (pos < 0) return pos;
    necessary = true;
    const VEK_Dmatrix* m = GetMatrix();
    if (!m || pos >= m->GetNumberOfDimensions() - 1) return VEK_OKAY;
    const int size = m->GetSizeOfDimension(pos);
    const int stride = m->GetProducts()[pos];
    const int n = m->GetSize();
    for (int i = 0; i < n; ++i) {
        int c = (i / stride) % size;
        if (c == 0) continue;
        if (!(std::fabs((*m)[i] - (*m)[i - c * stride]) <= epsilon)) return VEK_OKAY;
    }
    necessary = false;
    return VEK_OKAY;
}

// ---------------------------------------------------------------- outcomes

int VEK_nodeDef::AddOutcome(const char*) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::InsertOutcome(int, const char*) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::RemoveOutcome(int) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::GetNumberOfOutcomes() const { return 0; }
int VEK_nodeDef::RenameOutcome(int, const char*) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::RenameOutcomes(const VEK_idArray&) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::RenameOutcomes(const std::vector<std::string>&) { return VEK_WRONG_NODE_TYPE; }
const VEK_idArray* VEK_nodeDef::GetOutcomeIds() const { return nullptr; }
int VEK_nodeDef::SetNumberOfOutcomes(int) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::SetNumberOfOutcomes(const VEK_idArray&) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::ChangeOrderOfOutcomes(const VEK_intArray&) { return VEK_WRONG_NODE_TYPE; }

int VEK_nodeDef::MakeUniform() { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeDef::MakeRandom(VEK_randGen&) { return VEK_WRONG_NODE_TYPE; }

const VEK_Dmatrix* VEK_nodeDef::GetMatrix() const { return nullptr; }
int VEK_nodeDef::GetDiscreteOutcomeCount() const { return VEK_WRONG_NODE_TYPE; }

void VEK_nodeDef::InitXform(VEK_nodeXformContext& ctx) const {
    ctx.net = net_;
    ctx.handle = handle_;
}

int VEK_nodeDef::DoCopyParameters(const VEK_nodeDef& other) {
    GetWriteableParameters() = other.GetParameters();
    OnParametersChanged();
    return VEK_OKAY;
}

// ---------------------------------------------------------------- parameters

void VEK_nodeDef::TellNetworkOfChange() {
    // Only the definition a node holds: one being built for a type change
    // is not part of the model yet.
    if (net_ && net_->GetDef(handle_) == this) net_->OnDefinitionChanged(handle_);
}

int VEK_nodeDef::SetDefinition(const VEK_Dmatrix& m) {
    VEK_Dmatrix& params = GetWriteableParameters();
    if (params.GetSize() != m.GetSize()) return VEK_OUT_OF_RANGE;
    if (params.GetSize() > 0) params.FillFrom(m.Items());
    OnParametersChanged();
    TellNetworkOfChange();
    return VEK_OKAY;
}

int VEK_nodeDef::SetDefinition(const VEK_doubleArray& items) {
    VEK_Dmatrix& params = GetWriteableParameters();
    if (params.GetSize() != items.GetSize()) return VEK_OUT_OF_RANGE;
    if (params.GetSize() > 0) params.FillFrom(items.Items());
    OnParametersChanged();
    TellNetworkOfChange();
    return VEK_OKAY;
}

int VEK_nodeDef::SetDefinition(const std::vector<double>& items) {
    VEK_Dmatrix& params = GetWriteableParameters();
    if (params.GetSize() != static_cast<int>(items.size())) return VEK_OUT_OF_RANGE;
    if (params.GetSize() > 0) params.FillFrom(items.data());
    OnParametersChanged();
    TellNetworkOfChange();
    return VEK_OKAY;
}

int VEK_nodeDef::CopyParameters(const VEK_nodeDef& other) {
    if (&other == this) return VEK_OKAY;
    if (other.GetType() != GetType()) return VEK_WRONG_NODE_TYPE;
    if (!(other.GetParameters().GetDimensions() == GetParameters().GetDimensions())) return VEK_OUT_OF_RANGE;
    return DoCopyParameters(other);
}

// ---------------------------------------------------------------- types

bool VEK_nodeDef::IsValidType(int type) {
    switch (type) {
        case VEK_EQUATION:
        case VEK_TABLE:
        case VEK_LIST:
        case VEK_CPT:
        case VEK_TRUTHTABLE:
        case VEK_CAST:
        case VEK_DEMORGAN:
        case VEK_NOISY_MAX:
        case VEK_NOISY_ADDER:
        case VEK_MAU:
            return true;
        default:
            return false;
    }
}

bool VEK_nodeDef::IsArcAllowedForTypes(int parentType, int childType) {
    if (childType == VEK_CAST || childType == VEK_DEMORGAN) return parentType == childType;
    if (childType == VEK_MAU) return parentType == VEK_LIST || parentType == VEK_TABLE || parentType == VEK_MAU;
    if (parentType == VEK_LIST) return childType != VEK_EQUATION;
    if (parentType == VEK_EQUATION) return childType != VEK_TABLE && childType != VEK_LIST;
    if (parentType == VEK_TABLE) return false;
    if (parentType == VEK_DEMORGAN || parentType == VEK_CAST) return parentType == childType;
    if (parentType == VEK_MAU) return false;
    return true;
}

const char* VEK_nodeDef::TypeName(int type) {
    switch (type) {
        case VEK_EQUATION: return "EQUATION";
        case VEK_TABLE: return "TABLE";
        case VEK_LIST: return "LIST";
        case VEK_CPT: return "CPT";
        case VEK_TRUTHTABLE: return "TRUTHTABLE";
        case VEK_CAST: return "CAST";
        case VEK_DEMORGAN: return "DEMORGAN";
        case VEK_NOISY_MAX: return "NOISY_MAX";
        case VEK_NOISY_ADDER: return "NOISY_ADDER";
        case VEK_MAU: return "MAU";
        default: return nullptr;
    }
}

bool VEK_nodeDef::TypeIsOneOf(const int* ids, int count) const {
    if (!ids) return false;
    const int type = GetType();
    for (int i = 0; i < count; ++i) {
        if (ids[i] == type) return true;
    }
    return false;
}

// Canonical definitions come from their own factory.
bool VEK_nodeDef::CanCreate(int type) {
    switch (type) {
        case VEK_EQUATION:
        case VEK_CPT:
        case VEK_TRUTHTABLE:
        case VEK_LIST:
        case VEK_TABLE:
        case VEK_MAU:
        case VEK_CAST:
        case VEK_DEMORGAN:
        case VEK_NOISY_MAX:
        case VEK_NOISY_ADDER: return true;
        default: return false;
    }
}

VEK_nodeDef* VEK_nodeDef::Create(int type, VEK_network& net, int handle) {
    switch (type) {
        case VEK_CPT: return new VEK_cpt(net, handle);
        case VEK_TRUTHTABLE: return new VEK_truthTable(net, handle);
        case VEK_LIST: return new VEK_decision(net, handle);
        case VEK_TABLE: return new VEK_utility(net, handle);
        case VEK_MAU: return new VEK_mau(net, handle);
        case VEK_EQUATION: return new VEK_equation(net, handle);
        case VEK_CAST:
        case VEK_DEMORGAN:
        case VEK_NOISY_MAX:
        case VEK_NOISY_ADDER: return VEK_createCanonicalDef(type, net, handle);
        default: return nullptr;
    }
}

VEK_nodeDef* VEK_nodeDef::Create(int type, const VEK_nodeXformContext& ctx) {
    switch (type) {
        case VEK_CPT: return new VEK_cpt(ctx);
        case VEK_TRUTHTABLE: return new VEK_truthTable(ctx);
        case VEK_LIST: return new VEK_decision(ctx);
        case VEK_TABLE: return new VEK_utility(ctx);
        case VEK_MAU: return new VEK_mau(ctx);
        // Nothing of a discrete definition carries over to an equation.
        case VEK_EQUATION: return new VEK_equation(*ctx.net, ctx.handle);
        case VEK_CAST:
        case VEK_DEMORGAN:
        case VEK_NOISY_MAX:
        case VEK_NOISY_ADDER: return VEK_createCanonicalDef(type, ctx);
        default: return nullptr;
    }
}

VEK_nodeDef* VEK_nodeDef::Xform(int type) const {
    if (!IsValidType(type)) return nullptr;
    VEK_nodeXformContext ctx(*net_, handle_);
    InitXform(ctx);
    return Create(type, ctx);
}

// ---------------------------------------------------------------- peers

const VEK_intArray& VEK_nodeDef::GetParents() const {
    const VEK_node* node = net_->GetNode(handle_);
    return node ? node->Parents() : EmptyHandleList();
}

const VEK_intArray& VEK_nodeDef::GetChildren() const {
    const VEK_node* node = net_->GetNode(handle_);
    return node ? node->Children() : EmptyHandleList();
}

VEK_nodeDef* VEK_nodeDef::GetPeerDef(int handle) const { return net_->GetDef(handle); }

const char* VEK_nodeDef::GetPeerId(int handle) const { return net_->GetNodeId(handle); }

int VEK_nodeDef::FindParentPosition(int handle) const {
    int pos = GetParents().FindPosition(handle);
    return pos < 0 ? VEK_OUT_OF_RANGE : pos;
}

const char* VEK_nodeDef::GetNodeId() const { return net_->GetNodeId(handle_); }

int VEK_nodeDef::ParentOutcomeCount(int handle) const {
    const VEK_nodeDef* def = GetPeerDef(handle);
    if (!def) return VEK_OUT_OF_RANGE;
    return def->GetDiscreteOutcomeCount();
}

int VEK_nodeDef::BuildParentDims(VEK_intArray& dims, int lastSize) const {
    dims.Flush();
    for (int p : GetParents()) {
        int count = ParentOutcomeCount(p);
        if (count < 1) {
            dims.Flush();
            return count < 0 ? count : VEK_OUT_OF_RANGE;
        }
        dims.Add(count);
    }
    dims.Add(lastSize);
    return VEK_OKAY;
}
