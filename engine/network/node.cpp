#include "network/node.h"

#include "network/network.h"
#include "network/nodeXformContext.h"
#include "network/status.h"
#include "network/valXformContext.h"

VEK_node::VEK_node(int type, int handle, const char* id, VEK_network& net)
    : net_(&net), handle_(handle), header_(net, handle, id), submodel_(net.Submodels().GetMainSubmodel()) {
    def_.reset(VEK_nodeDef::Create(type, net, handle));
    if (def_) val_.reset(def_->CreateValue());
    RebuildCostTable();
}

VEK_node::VEK_node(const VEK_node& other, VEK_network& net)
    : net_(&net),
      handle_(other.handle_),
      header_(other.header_),
      info_(other.info_),
      parents_(other.parents_),
      children_(other.children_),
      costParents_(other.costParents_),
      costChildren_(other.costChildren_),
      cost_(other.cost_),
      submodel_(other.submodel_),
      diagType_(other.diagType_),
      question_(other.question_),
      ranked_(other.ranked_),
      mandatory_(other.mandatory_),
      target_(other.target_),
      temporalType_(other.temporalType_) {
    header_.Rebind(net);
    def_.reset(other.def_->Clone(net));
    val_.reset(other.val_->Clone(net));
}

VEK_node::~VEK_node() = default;

void VEK_node::ReplaceValue(VEK_nodeVal* val) { val_.reset(val); }
void VEK_node::ReplaceDefinition(VEK_nodeDef* def) { def_.reset(def); }

void VEK_node::Rebind(VEK_network& net) {
    net_ = &net;
    header_.Rebind(net);
    if (def_) def_->Rebind(net, handle_);
    if (val_) val_->Rebind(net, handle_);
}

int VEK_node::ChangeType(int type) {
    if (!VEK_nodeDef::IsValidType(type)) return VEK_WRONG_NODE_TYPE;
    if (type == def_->GetType()) return VEK_OKAY;
    // Refused before the arcs below go, so a refusal changes nothing.
    if (!VEK_nodeDef::CanCreate(type)) return VEK_WRONG_NODE_TYPE;
    VEK_network& net = *net_;
    VEK_updateImmediateContext scope(net);

    // Arcs that the new type cannot keep go first.
    for (int i = parents_.GetSize() - 1; i >= 0; --i) {
        int p = parents_[i];
        if (!VEK_nodeDef::IsArcAllowedForTypes(net.GetDef(p)->GetType(), type)) {
            if (const int res = net.RemoveArc(p, handle_); res < 0) return res;
        }
    }
    for (int i = children_.GetSize() - 1; i >= 0; --i) {
        int c = children_[i];
        if (!VEK_nodeDef::IsArcAllowedForTypes(type, net.GetDef(c)->GetType())) {
            if (const int res = net.RemoveArc(handle_, c); res < 0) return res;
        }
    }

    VEK_nodeDef* created = def_->Xform(type);
    if (!created) return VEK_WRONG_NODE_TYPE;
    VEK_valXformContext vctx;
    val_->InitXform(vctx);
    VEK_nodeVal* value = created->CreateValue(vctx);
    if (!value) {
        delete created;
        return VEK_WRONG_NODE_TYPE;
    }
    def_.reset(created);
    val_.reset(value);
    net.InvalidatePartialOrder();
    net.OnDefinitionChanged(handle_);
    return VEK_OKAY;
}

int VEK_node::SetSubmodel(int submodelHandle) {
    if (!net_->Submodels().IsValidSubmodel(submodelHandle)) return VEK_OUT_OF_RANGE;
    submodel_ = submodelHandle;
    return VEK_OKAY;
}

int VEK_node::SetDiagType(int t) {
    if (t < VEK_DIAG_FAULT || t > VEK_DIAG_AUXILIARY) return VEK_OUT_OF_RANGE;
    diagType_ = t;
    return VEK_OKAY;
}

void VEK_node::RebuildCostTable() {
    VEK_intArray dims;
    for (int p : costParents_) {
        VEK_nodeDef* d = net_->GetDef(p);
        int n = d ? d->GetNumberOfOutcomes() : 0;
        dims.Add(n > 0 ? n : 1);
    }
    dims.Add(1);
    if (dims == cost_.GetDimensions()) return;
    (void)cost_.Setup(dims);  // every size is at least 1
    cost_.FillWith(VEK_NOT_AVAILABLE_VALUE);
}

int VEK_node::SetCost(const std::vector<double>& values) {
    if (static_cast<int>(values.size()) != cost_.GetSize()) return VEK_OUT_OF_RANGE;
    (void)cost_.FillFrom(values);  // size checked above
    return VEK_OKAY;
}
