#include "inference/samplingAdapter.h"

#include "inference/rNetwork.h"
#include "network/network.h"
#include "network/nodeVal.h"

SamplingAdapter::SamplingAdapter(VEK_rNetwork& net) : net_(&net) {}

int SamplingAdapter::GetNodeCount() const { return net_->GetNodeCount(); }

int SamplingAdapter::GetStateCount(int i) const { return net_->GetNode(i)->numStates; }

int SamplingAdapter::GetParentCount(int i) const { return static_cast<int>(net_->GetNode(i)->parents.size()); }

int SamplingAdapter::GetParent(int i, int k) const { return net_->GetNode(i)->parents[static_cast<size_t>(k)]->index; }

const VEK_Dmatrix& SamplingAdapter::GetMatrix(int i) const { return net_->GetNode(i)->Table(); }

int SamplingAdapter::GetEvidence(int i) const {
    const VEK_rNode* r = net_->GetNode(i);
    if (r->handle < 0 && r->numStates == 1) return 0;
    return r->evidence;
}

int SamplingAdapter::GetNodeHandle(int i) const { return net_->GetNode(i)->handle; }

int SamplingAdapter::GetNumberOfSamples() const { return net_->Network().GetNumberOfSamples(); }

const VEK_EPISParams& SamplingAdapter::GetEPISParams() const { return net_->Network().GetEPISParams(); }

const VEK_LBPParams& SamplingAdapter::GetLBPParams() const { return net_->Network().GetLBPParams(); }

VEK_randGen& SamplingAdapter::GetRandGen() const { return net_->Network().GetRandGen(); }

VEK_network& SamplingAdapter::GetNetwork() const { return net_->Network(); }

void SamplingAdapter::SetBeliefs(int i, const double* beliefs) {
    const VEK_rNode* r = net_->GetNode(i);
    if (r->handle < 0) return;
    VEK_nodeVal* v = net_->Network().GetVal(r->handle);
    VEK_Dmatrix* m = v ? v->GetWriteableMatrix() : nullptr;
    if (!m) return;
    if (m->GetSize() != r->numStates || m->GetNumberOfDimensions() != 1) (void)m->SetSingleDimension(r->numStates);  // state counts are at least 1
    for (int s = 0; s < r->numStates; ++s) (*m)[s] = beliefs[s];
    v->SetValueValid();
}

void SamplingAdapter::EnsureEvidenceValue(int i) {
    VEK_writeEvidenceBeliefs(*net_, i);
}

void SamplingAdapter::ReportZeroPotential(int i) { VEK_reportZeroPotential(net_->Network(), net_->GetNode(i)->source); }
