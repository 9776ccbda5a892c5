#include "network/caseManager.h"

#include <cmath>
#include <string>

#include "dynamic/dynamicNet.h"
#include "network/discVal.h"
#include "network/network.h"

int VEK_case::FindEvidence(int node, int slice) const {
    for (size_t i = 0; i < evidence.size(); ++i) {
        if (evidence[i].node == node && evidence[i].slice == slice) return static_cast<int>(i);
    }
    return VEK_OUT_OF_RANGE;
}

int VEK_case::SetEvidence(const VEK_caseEvidence& item) {
    int i = FindEvidence(item.node, item.slice);
    if (i >= 0) {
        evidence[i] = item;
    } else {
        evidence.push_back(item);
    }
    return VEK_OKAY;
}

int VEK_case::DeleteEvidence(int node) {
    size_t before = evidence.size();
    std::erase_if(evidence, [node](const VEK_caseEvidence& e) { return e.node == node; });
    return evidence.size() == before ? VEK_OUT_OF_RANGE : VEK_OKAY;
}

int VEK_caseManager::Find(const char* name) const {
    if (!name) return VEK_OUT_OF_RANGE;
    for (size_t i = 0; i < cases_.size(); ++i) {
        if (cases_[i].name == name) return static_cast<int>(i);
    }
    return VEK_OUT_OF_RANGE;
}

int VEK_caseManager::Add(const char* name) {
    if (!name || !*name || Find(name) >= 0) return VEK_OUT_OF_RANGE;
    VEK_case c;
    c.name = name;
    cases_.push_back(std::move(c));
    return GetCount() - 1;
}

int VEK_caseManager::Delete(int i) {
    if (!IsValid(i)) return VEK_OUT_OF_RANGE;
    cases_.erase(cases_.begin() + i);
    return VEK_OKAY;
}

int VEK_caseManager::SetName(int i, const char* name) {
    if (!IsValid(i) || !name || !*name) return VEK_OUT_OF_RANGE;
    int other = Find(name);
    if (other >= 0 && other != i) return VEK_OUT_OF_RANGE;
    cases_[i].name = name;
    return VEK_OKAY;
}

void VEK_caseManager::OnNodeDeleted(int handle) {
    for (auto& c : cases_) {
        std::erase_if(c.evidence, [handle](const VEK_caseEvidence& e) { return e.node == handle; });
        std::erase(c.targets, handle);
    }
}

int VEK_caseManager::ApplyToNetwork(int i, VEK_network& net) const {
    const VEK_case* c = Get(i);
    if (!c) return VEK_OUT_OF_RANGE;
    // Check everything first so a case that no longer fits changes nothing.
    for (const auto& e : c->evidence) {
        VEK_nodeDef* def = net.GetDef(e.node);
        if (!def) return VEK_OUT_OF_RANGE;
        int n = def->GetNumberOfOutcomes();
        if (e.type == VEK_CASE_DISCRETE && (e.outcome < 0 || e.outcome >= n)) return VEK_OUT_OF_RANGE;
        if (e.type == VEK_CASE_VIRTUAL && static_cast<int>(e.virtualEvidence.size()) != n) return VEK_OUT_OF_RANGE;
    }
    for (int t : c->targets) {
        if (!net.IsValidNode(t)) return VEK_OUT_OF_RANGE;
    }
    VEK_updateImmediateContext scope(net);
    net.ClearAllEvidence();
    int first = VEK_OKAY;
    for (const auto& e : c->evidence) {
        int res = VEK_OKAY;
        if (e.slice >= 0) {
            // Numeric temporal evidence belongs to continuous nodes, not read here.
            if (e.type == VEK_CASE_DISCRETE) res = net.Dynamic().SetTemporalEvidence(e.node, e.slice, e.outcome);
            if (e.type == VEK_CASE_VIRTUAL) res = net.Dynamic().SetTemporalVirtualEvidence(e.node, e.slice, e.virtualEvidence);
            if (res < 0 && first == VEK_OKAY) first = res;
            continue;
        }
        VEK_nodeVal* v = net.GetVal(e.node);
        switch (e.type) {
            case VEK_CASE_DISCRETE: res = v->SetEvidence(e.outcome); break;
            case VEK_CASE_CONTINUOUS: res = v->SetEvidence(e.value); break;
            case VEK_CASE_VIRTUAL: res = v->SetVirtualEvidence(e.virtualEvidence); break;
            default: res = VEK_OUT_OF_RANGE;
        }
        if (res < 0 && first == VEK_OKAY) first = res;
    }
    net.ClearAllTargets();
    for (int t : c->targets) {
        const int res = net.SetTarget(t, true);
        if (res < 0 && first == VEK_OKAY) first = res;
    }
    return first;
}

int VEK_caseManager::SaveFromNetwork(int i, const VEK_network& net) {
    VEK_case* c = Get(i);
    if (!c) return VEK_OUT_OF_RANGE;
    c->evidence.clear();
    c->targets.clear();
    for (int h = 0; h < net.GetSlotCount(); ++h) {
        const VEK_node* n = net.GetNode(h);
        if (!n) continue;
        const VEK_nodeVal* v = n->Value();
        VEK_caseEvidence e;
        e.node = h;
        if (v->IsEvidence()) {
            e.outcome = v->GetEvidence();
            const auto* dv = dynamic_cast<const VEK_discVal*>(v);
            if (dv && dv->IsEvidenceAsNumber()) {
                e.type = VEK_CASE_CONTINUOUS;
                (void)v->GetEvidence(e.value);  // evidence given as a number is present
            } else {
                e.type = VEK_CASE_DISCRETE;
            }
            c->evidence.push_back(e);
        } else if (v->IsVirtualEvidence()) {
            e.type = VEK_CASE_VIRTUAL;
            (void)v->GetVirtualEvidence(e.virtualEvidence);  // present, so it is read
            c->evidence.push_back(e);
        }
        if (n->IsTarget()) c->targets.push_back(h);
        const VEK_dynamicNet* dyn = net.GetDynamic();
        if (!dyn || n->GetTemporalType() != VEK_TEMPORAL_PLATE) continue;
        for (int t = 0; t < net.GetNumberOfSlices(); ++t) {
            VEK_caseEvidence te;
            te.node = h;
            te.slice = t;
            te.outcome = dyn->GetTemporalEvidence(h, t);
            if (te.outcome >= 0) {
                te.type = VEK_CASE_DISCRETE;
                c->evidence.push_back(te);
            } else if (const std::vector<double>* ve = dyn->GetTemporalVirtualEvidence(h, t)) {
                te.outcome = -1;
                te.type = VEK_CASE_VIRTUAL;
                te.virtualEvidence = *ve;
                c->evidence.push_back(te);
            }
        }
    }
    return VEK_OKAY;
}
