#include "network/nodeVal.h"

#include "network/network.h"
#include "network/nodeDef.h"
#include "network/status.h"
#include "network/valXformContext.h"

void VEK_nodeVal::SetFlags(int f) {
    flags_ |= f;
    net_->NoteValueFlags(f);
}

int VEK_nodeVal::AddIndexingParent(int handle) {
    if (!Network().IsValidNode(handle)) return VEK_OUT_OF_RANGE;
    if (indexingParents_.IsInList(handle)) return VEK_OKAY;
    indexingParents_.Add(handle);
    return VEK_OKAY;
}

// The list goes and so does whatever was computed over it; evidence stays,
// since the solvers re-index values on every run.
void VEK_nodeVal::InitIndexingParents() {
    indexingParents_.Flush();
    Invalidate();
}

// Values without evidence support all refuse the evidence operations.
int VEK_nodeVal::GetEvidence() const { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::GetEvidence(double&) const { return VEK_WRONG_NODE_TYPE; }
const char* VEK_nodeVal::GetEvidenceId() const { return nullptr; }
int VEK_nodeVal::SetEvidence(double) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::SetEvidence(int) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::SetEvidence(const char*) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::ClearEvidence() { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::ClearPropagatedEvidence() { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::SetPropagatedEvidence(int) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::SetPropagatedEvidence(double) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::GetVirtualEvidence(std::vector<double>&) const { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::GetVirtualEvidence(VEK_doubleArray&) const { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::SetVirtualEvidence(const std::vector<double>&) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::SetVirtualEvidence(const VEK_doubleArray&) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::ClearVirtualEvidence() { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::GetMean(double&) const { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::GetStdDev(double&) const { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::ControlValue(int) { return VEK_WRONG_NODE_TYPE; }
int VEK_nodeVal::ClearControlledValue() { return VEK_WRONG_NODE_TYPE; }

// Nothing carries over from a value that holds no evidence.
void VEK_nodeVal::InitXform(VEK_valXformContext&) const {}

void VEK_nodeVal::OnOutcomeInsert(int) { Invalidate(); }
void VEK_nodeVal::OnOutcomeRemove(int) { Invalidate(); }
void VEK_nodeVal::OnOutcomeReorder(const VEK_intArray&) { Invalidate(); }
void VEK_nodeVal::OnOutcomeCountChange() { Invalidate(); }

void VEK_nodeVal::Invalidate() {
    if (HasFlag(VEK_VALUE_EVIDENCE | VEK_VALUE_PROPAGATED)) return;
    ClearFlags(VEK_VALUE_VALID);
    stamp_ = 0;
    ResetResult();
}

VEK_nodeDef* VEK_nodeVal::Def() const { return Network().GetDef(Handle()); }
VEK_nodeDef* VEK_nodeVal::GetPeerDef(int handle) const { return Network().GetDef(handle); }
VEK_nodeVal* VEK_nodeVal::GetPeerVal(int handle) const { return Network().GetVal(handle); }
