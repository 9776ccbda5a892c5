// Node table, identifiers, arcs, graph walks and the partial order.
#include "network/network.h"

#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include "dynamic/dynamicNet.h"
#include "network/identifier.h"

VEK_network::VEK_network() : randGen_(1) {}

VEK_network::VEK_network(const VEK_network& other) : randGen_(1) {
    CopyFrom(other);
}

VEK_network& VEK_network::operator=(const VEK_network& other) {
    if (this != &other) {
        DeleteAllNodes();
        CopyFrom(other);
    }
    return *this;
}

VEK_network::~VEK_network() {
    // Definitions and values reach the network while they go; clear slots
    // one by one so nothing sees a half-destroyed table.
    for (auto& n : nodes_) n.reset();
}

void VEK_network::CopyFrom(const VEK_network& other) {
    nodes_.clear();
    nodes_.resize(other.nodes_.size());
    for (size_t h = 0; h < other.nodes_.size(); ++h) {
        if (other.nodes_[h]) nodes_[h] = std::make_unique<VEK_node>(*other.nodes_[h], *this);
    }
    nodeCount_ = other.nodeCount_;
    valueFlagsSeen_ = other.valueFlagsSeen_;
    idIndex_ = other.idIndex_;
    options_ = other.options_;
    orderValid_ = false;
    targetCount_ = other.targetCount_;
    settings_ = other.settings_;
    updating_ = 0;
    listener_ = nullptr;
    randGen_ = other.randGen_;
    scopeDepth_ = 0;
    scopeDirty_ = false;
    logger_ = other.logger_;
    header_ = other.header_;
    submodels_ = other.submodels_;
    allocPolicy_ = nullptr;
    cases_ = other.cases_;
    userProperties_ = other.userProperties_;
    documentation_ = other.documentation_;
    textBoxes_ = other.textBoxes_;
    extFunctions_ = other.extFunctions_;
    sliceCount_ = other.sliceCount_;
    dynamic_.reset(other.dynamic_ ? new VEK_dynamicNet(*other.dynamic_, *this) : nullptr);
}

void VEK_network::Clear() {
    DeleteAllNodes();
    nodes_.clear();
    nodeCount_ = 0;
    idIndex_.clear();
    orderValid_ = false;
    targetCount_ = 0;
    settings_ = VEK_inferenceSettings{};
    header_ = VEK_header();
    submodels_.Clear();
    cases_ = VEK_caseManager();
    userProperties_.Clear();
    documentation_.Clear();
    textBoxes_.clear();
    extFunctions_.clear();
    sliceCount_ = 0;
    dynamic_.reset();
}

// ---------------------------------------------------------------- nodes

int VEK_network::AddNode(int type, const char* id) {
    if (!VEK_nodeDef::IsValidType(type)) return VEK_WRONG_NODE_TYPE;
    std::string chosen;
    if (id && id[0] == '@') {
        chosen = id;  // taken as it is, without any test
    } else if (id && VEK_isValidIdentifier(id)) {
        if (!(options_ & VEK_OPT_DUPLICATE_IDS) && IsThisIdentifierInUse(id, -1)) return VEK_OUT_OF_RANGE;
        chosen = id;
    } else {
        if (const int res = CreateUniqueNodeIdentifier(chosen, -1); res < 0) return res;
    }

    int handle;
    if (allocPolicy_) {
        handle = allocPolicy_->AllocateHandle(*this, type, chosen.c_str());
        if (handle < 0) return handle;
        if (handle >= GetSlotCount()) {
            size_t grown = std::max(nodes_.size() * 2, static_cast<size_t>(handle + 1) * 2);
            nodes_.resize(grown);
        }
        if (nodes_[handle]) return VEK_OUT_OF_RANGE;
    } else if (nodeCount_ != GetSlotCount()) {
        handle = 0;
        while (nodes_[handle]) ++handle;
    } else {
        handle = GetSlotCount();
        nodes_.emplace_back();
    }

    auto node = std::make_unique<VEK_node>(type, handle, chosen.c_str(), *this);
    if (!node->Definition() || !node->Value()) return VEK_WRONG_NODE_TYPE;
    orderValid_ = false;
    nodes_[handle] = std::move(node);
    ++nodeCount_;
    IndexNodeId(handle);
    return handle;
}

int VEK_network::DeleteNode(int handle) {
    if (!IsValidNode(handle)) return VEK_OUT_OF_RANGE;
    // Decision and utility values indexed by the node would otherwise keep
    // a dead handle until the next solve; they lose what they computed.
    for (auto& n : nodes_) {
        if (n && n.get() != nodes_[handle].get() && n->Value()->GetIndexingParents().IsInList(handle)) {
            n->Value()->InitIndexingParents();
        }
    }
    return RemoveNodeSlot(handle);
}

int VEK_network::RemoveNodeSlot(int handle) {
    VEK_updateImmediateContext scope(*this);
    orderValid_ = false;
    if (dynamic_) dynamic_->OnNodeDeleting(handle);
    VEK_node* node = nodes_[handle].get();
    // A failed removal must stop the loops rather than spin on the same arc.
    int res = VEK_OKAY;
    while (node->Children().GetSize() > 0) {
        if ((res = RemoveArc(handle, node->Children()[node->Children().GetSize() - 1])) < 0) return res;
    }
    while (node->Parents().GetSize() > 0) {
        if ((res = RemoveArc(node->Parents()[node->Parents().GetSize() - 1], handle)) < 0) return res;
    }
    while (node->CostChildren().GetSize() > 0) {
        if ((res = RemoveObservCostArc(handle, node->CostChildren()[node->CostChildren().GetSize() - 1])) < 0) return res;
    }
    while (node->CostParents().GetSize() > 0) {
        if ((res = RemoveObservCostArc(node->CostParents()[node->CostParents().GetSize() - 1], handle)) < 0) return res;
    }
    if (node->IsTarget()) --targetCount_;
    UnindexNodeId(handle);
    nodes_[handle].reset();
    --nodeCount_;
    cases_.OnNodeDeleted(handle);
    scopeDirty_ = true;
    return VEK_OKAY;
}

void VEK_network::DeleteAllNodes() {
    // Every node goes: indexing lists are dropped once, not once per node.
    for (auto& n : nodes_) {
        if (n) n->Value()->InitIndexingParents();
    }
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (nodes_[h]) (void)RemoveNodeSlot(h);  // removing existing arcs only shrinks tables
    }
    targetCount_ = 0;
}

int VEK_network::FindNode(const char* id) const {
    if (!id) return VEK_OUT_OF_RANGE;
    // With duplicate ids allowed, the lowest handle wins, as a scan would find.
    auto [first, last] = idIndex_.equal_range(id);
    int found = VEK_OUT_OF_RANGE;
    for (auto it = first; it != last; ++it) {
        if (found < 0 || it->second < found) found = it->second;
    }
    return found;
}

void VEK_network::IndexNodeId(int handle) { idIndex_.emplace(nodes_[handle]->GetId(), handle); }

void VEK_network::UnindexNodeId(int handle) {
    auto [first, last] = idIndex_.equal_range(nodes_[handle]->GetId());
    for (auto it = first; it != last; ++it) {
        if (it->second == handle) {
            idIndex_.erase(it);
            return;
        }
    }
}

void VEK_network::RebuildIdIndex() {
    idIndex_.clear();
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (nodes_[h]) IndexNodeId(h);
    }
}

int VEK_network::GetFirstNode() const {
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (nodes_[h]) return h;
    }
    return VEK_OUT_OF_RANGE;
}

int VEK_network::GetNextNode(int handle) const {
    if (handle < 0) return VEK_OUT_OF_RANGE;
    for (int h = handle + 1; h < GetSlotCount(); ++h) {
        if (nodes_[h]) return h;
    }
    return VEK_OUT_OF_RANGE;
}

int VEK_network::GetLastNode() const {
    for (int h = GetSlotCount() - 1; h >= 0; --h) {
        if (nodes_[h]) return h;
    }
    return VEK_OUT_OF_RANGE;
}

int VEK_network::GetAllNodes(VEK_intArray& out) const {
    out.Flush();
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (nodes_[h]) out.Add(h);
    }
    return VEK_OKAY;
}

int VEK_network::GetAllNodeIds(VEK_stringArray& out) const {
    out.Clear();
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (nodes_[h]) out.Add(nodes_[h]->GetId());
    }
    return VEK_OKAY;
}

bool VEK_network::IsThisIdentifierInUse(const char* id, int exceptHandle) const {
    if (!id) return false;
    auto [first, last] = idIndex_.equal_range(id);
    for (auto it = first; it != last; ++it) {
        if (it->second != exceptHandle) return true;
    }
    return submodels_.IsIdInUse(id);
}

int VEK_network::CreateUniqueNodeIdentifier(std::string& out, int start) const {
    long long counter = start < 0 ? nodeCount_ : start;
    do {
        out = "Node" + std::to_string(counter++);
    } while (IsThisIdentifierInUse(out.c_str(), -1));
    return VEK_OKAY;
}

int VEK_network::CreateUniqueSubmodelIdentifier(std::string& out, int start) const {
    long long counter = start < 0 ? submodels_.GetNumberOfSubmodels() : start;
    do {
        out = "Sub" + std::to_string(counter++);
    } while (IsThisIdentifierInUse(out.c_str(), -1));
    return VEK_OKAY;
}

int VEK_network::ChangeNodeId(int handle, const char* id) {
    VEK_node* node = GetNode(handle);
    if (!node) return VEK_OUT_OF_RANGE;
    if (!VEK_isValidIdentifier(id)) return VEK_ILLEGAL_IDENTIFIER;
    if (std::strcmp(node->GetId(), id) == 0) return VEK_OKAY;
    if (!(options_ & VEK_OPT_DUPLICATE_IDS) && IsThisIdentifierInUse(id, handle)) return VEK_DUPLICATED_IDENTIFIER;
    std::string oldId = node->GetId();
    for (int i = 0; i < node->Children().GetSize(); ++i) {
        (void)GetDef(node->Children()[i])->BeforeParentIdChange(handle, oldId.c_str(), id);
    }
    (void)node->Definition()->BeforeIdChange(oldId.c_str(), id);  // renaming a referenced id cannot fail
    UnindexNodeId(handle);
    node->Header().ForceId(id);
    IndexNodeId(handle);
    return VEK_OKAY;
}

int VEK_network::ChangeOrderOfParents(int handle, const VEK_intArray& newOrder) {
    VEK_node* node = GetNode(handle);
    if (!node) return VEK_OUT_OF_RANGE;
    VEK_intArray& parents = node->Parents();
    if (newOrder.GetSize() != parents.GetSize() || !newOrder.IsPermutation()) return VEK_OUT_OF_RANGE;
    if (newOrder.IsIdentityPermutation()) return VEK_OKAY;
    VEK_updateImmediateContext scope(*this);
    int res = node->Definition()->OnParentReorder(newOrder);
    if (res < 0) return res;
    const std::vector<int> oldParents(parents.begin(), parents.end());
    (void)parents.ChangeOrder(newOrder);  // checked to be a permutation above
    if (dynamic_) dynamic_->OnParentsReordered(handle, oldParents);
    RelevanceDefinitionChanged(handle, VEK_REL_DEF_CHANGE_1);
    scopeDirty_ = true;
    return VEK_OKAY;
}

int VEK_network::ChangeNodeType(int handle, int type) {
    VEK_node* node = GetNode(handle);
    if (!node) return VEK_OUT_OF_RANGE;
    int res = node->ChangeType(type);
    if (dynamic_) dynamic_->Conform();
    return res;
}

// ---------------------------------------------------------------- arcs

int VEK_network::TestAddArc(int parent, int child) {
    if (!IsValidNode(parent) || !IsValidNode(child) || parent == child) return VEK_OUT_OF_RANGE;
    if (Related(parent, child)) return VEK_OUT_OF_RANGE;
    if (!(options_ & VEK_OPT_NO_CYCLE_TEST) && !RemainsAcyclic(parent, child)) return VEK_CYCLE;
    return ArcTypesAllowed(parent, child);
}

int VEK_network::ArcTypesAllowed(int parent, int child) const {
    if (!VEK_nodeDef::IsArcAllowedForTypes(GetDef(parent)->GetType(), GetDef(child)->GetType())) {
        return VEK_WRONG_NODE_TYPE;
    }
    int pt = nodes_[parent]->GetTemporalType();
    int ct = nodes_[child]->GetTemporalType();
    if (pt == VEK_TEMPORAL_TERMINAL && ct != VEK_TEMPORAL_TERMINAL) return VEK_WRONG_NODE_TYPE;
    if (pt == VEK_TEMPORAL_PLATE && ct != VEK_TEMPORAL_PLATE && ct != VEK_TEMPORAL_TERMINAL) return VEK_WRONG_NODE_TYPE;
    return VEK_OKAY;
}

int VEK_network::AddArc(int parent, int child, int arcType) {
    if (arcType == 1) return AddObservCostArc(parent, child);
    if (arcType != 0) return VEK_OUT_OF_RANGE;
    int res = TestAddArc(parent, child);
    if (res != VEK_OKAY) return res;
    orderValid_ = false;
    VEK_updateImmediateContext scope(*this);
    VEK_node* p = nodes_[parent].get();
    VEK_node* c = nodes_[child].get();
    p->Children().Add(child);
    c->Parents().Add(parent);
    try {
        res = c->Definition()->AddParent(parent);
    } catch (const std::exception& e) {
        // the entries just added: removing the last ones cannot fail
        (void)p->Children().Delete(p->Children().GetSize() - 1);
        (void)c->Parents().Delete(c->Parents().GetSize() - 1);
        std::string msg = "Can't add arc, exception: ";
        msg += e.what();
        return logger_.LogError(VEK_OUT_OF_MEMORY, msg.c_str());
    }
    if (res < 0) {
        // The lists keep the new entries in this case.
        logger_.LogError(res, "Arc rejected by child node");
        return res;
    }
    if (dynamic_) dynamic_->OnArcAdded(parent, child);
    RelevanceArcAdded(parent, child);
    scopeDirty_ = true;
    return VEK_OKAY;
}

int VEK_network::RemoveArc(int parent, int child, int arcType) {
    if (arcType == 1) return RemoveObservCostArc(parent, child);
    if (arcType != 0) return VEK_OUT_OF_RANGE;
    if (!IsValidNode(parent) || !IsValidNode(child) || parent == child) return VEK_OUT_OF_RANGE;
    VEK_node* p = nodes_[parent].get();
    VEK_node* c = nodes_[child].get();
    int ci = p->Children().FindPosition(child);
    if (ci < 0) return VEK_OUT_OF_RANGE;
    VEK_updateImmediateContext scope(*this);
    orderValid_ = false;
    if (dynamic_) dynamic_->OnArcRemoving(parent, child);
    (void)c->Definition()->RemoveParent(parent);  // an existing parent's dimension can always go
    (void)p->Children().Delete(ci);  // ci and pi are found positions
    int pi = c->Parents().FindPosition(parent);
    if (pi >= 0) (void)c->Parents().Delete(pi);
    RelevanceArcRemoved(parent, child);
    scopeDirty_ = true;
    return VEK_OKAY;
}

void VEK_network::RemoveAllArcs() {
    VEK_updateImmediateContext scope(*this);
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (!nodes_[h]) continue;
        while (nodes_[h]->Parents().GetSize() > 0) {
            // Removing an existing arc only shrinks tables; stop rather than spin if it ever fails.
            if (RemoveArc(nodes_[h]->Parents()[nodes_[h]->Parents().GetSize() - 1], h) < 0) return;
        }
    }
}

int VEK_network::ReverseArc(int parent, int child) {
    if (!IsValidNode(parent) || !IsValidNode(child)) return VEK_OUT_OF_RANGE;
    if (nodes_[parent]->Children().FindPosition(child) < 0) return VEK_OUT_OF_RANGE;
    // What can be known before anything changes is refused first: node
    // types that cannot take the reversed arc, and another path from parent
    // to child, which the reversed arc would close into a cycle.
    int res = ArcTypesAllowed(child, parent);
    if (res < 0) return res;
    if (!(options_ & VEK_OPT_NO_CYCLE_TEST)) {
        for (int c : nodes_[parent]->Children()) {
            if (c != child && Reaches(c, child)) return VEK_CYCLE;
        }
    }
    VEK_updateImmediateContext scope(*this);
    // Both tables change shape on the way; their contents are kept to be put
    // back should a definition refuse the new arc.
    std::unique_ptr<VEK_nodeDef> savedChild(GetDef(child)->Clone(*this));
    std::unique_ptr<VEK_nodeDef> savedParent(GetDef(parent)->Clone(*this));
    res = RemoveArc(parent, child);
    if (res < 0) return res;
    res = AddArc(child, parent);
    if (res >= 0) return VEK_OKAY;
    int restored = VEK_OKAY;
    if (nodes_[parent]->Parents().FindPosition(child) >= 0) {
        // AddArc refused in the definition but kept the list entries.
        restored = RemoveArc(child, parent);
    }
    if (restored >= 0) restored = AddArc(parent, child);
    if (restored >= 0) restored = GetDef(child)->CopyParameters(*savedChild);
    if (restored >= 0) restored = GetDef(parent)->CopyParameters(*savedParent);
    if (restored < 0) {
        logger_.LogError(restored, "Reversing an arc failed and the original arc could not be restored");
        return restored;
    }
    return res;
}

bool VEK_network::Related(int a, int b) const {
    if (!IsValidNode(a) || !IsValidNode(b)) return false;
    return nodes_[a]->Parents().IsInList(b) || nodes_[a]->Children().IsInList(b);
}

bool VEK_network::CycleVisit(int handle) {
    // Depth-first walk over children with an explicit stack, so that long
    // chains cannot exhaust the call stack.
    struct Frame { int handle; int next; };
    std::vector<Frame> stack{{handle, 0}};
    nodes_[handle]->Marks() |= VEK_MARK_ON_PATH;
    while (!stack.empty()) {
        Frame& f = stack.back();
        VEK_node* n = nodes_[f.handle].get();
        const VEK_intArray& ch = n->Children();
        if (ch.GetSize() == 0) n->Marks() |= VEK_MARK_CHILDLESS;
        if (f.next < ch.GetSize()) {
            int c = ch[f.next++];
            unsigned& m = nodes_[c]->Marks();
            if (m & VEK_MARK_ON_PATH) return false;
            if (m & VEK_MARK_FINISHED) continue;
            m |= VEK_MARK_ON_PATH;
            stack.push_back({c, 0});
        } else {
            n->Marks() = (n->Marks() & ~VEK_MARK_ON_PATH) | VEK_MARK_FINISHED;
            stack.pop_back();
        }
    }
    return true;
}

bool VEK_network::IsAcyclic() {
    ClearAllMarks();
    bool ok = true;
    for (int h = 0; h < GetSlotCount() && ok; ++h) {
        if (nodes_[h] && !(nodes_[h]->Marks() & VEK_MARK_FINISHED)) ok = CycleVisit(h);
    }
    ClearAllMarks();
    return ok;
}

bool VEK_network::RemainsAcyclic(int parent, int child) {
    if (parent == child) return false;
    if (!IsValidNode(parent) || !IsValidNode(child)) return false;
    // The graph is acyclic already, so a new arc closes a cycle exactly when
    // the parent descends from the child: only the child's descendants are
    // walked, which keeps building a large network linear.
    return !Reaches(child, parent);
}

bool VEK_network::Reaches(int source, int target) {
    if (reachStamp_.size() < nodes_.size()) reachStamp_.resize(nodes_.size(), 0);
    if (++reachGeneration_ == 0) {
        std::fill(reachStamp_.begin(), reachStamp_.end(), 0u);
        reachGeneration_ = 1;
    }
    std::vector<int> stack{source};
    while (!stack.empty()) {
        int h = stack.back();
        stack.pop_back();
        if (h == target) return true;
        if (reachStamp_[h] == reachGeneration_) continue;
        reachStamp_[h] = reachGeneration_;
        for (int c : nodes_[h]->Children()) stack.push_back(c);
    }
    return false;
}

void VEK_network::ClearAllMarks() {
    for (auto& n : nodes_) {
        if (n) n->Marks() = 0;
    }
}

int VEK_network::MarkAncestors(int handle) {
    if (!IsValidNode(handle)) return VEK_OUT_OF_RANGE;
    // Iterative walk: deep networks must not exhaust the stack.
    std::vector<int> stack(nodes_[handle]->Parents().begin(), nodes_[handle]->Parents().end());
    while (!stack.empty()) {
        int h = stack.back();
        stack.pop_back();
        unsigned& m = nodes_[h]->Marks();
        if (m & VEK_MARK_USER) continue;
        m |= VEK_MARK_USER;
        for (int p : nodes_[h]->Parents()) stack.push_back(p);
    }
    return VEK_OKAY;
}

int VEK_network::MarkDescendants(int handle) {
    if (!IsValidNode(handle)) return VEK_OUT_OF_RANGE;
    std::vector<int> stack(nodes_[handle]->Children().begin(), nodes_[handle]->Children().end());
    while (!stack.empty()) {
        int h = stack.back();
        stack.pop_back();
        unsigned& m = nodes_[h]->Marks();
        if (m & VEK_MARK_USER) continue;
        m |= VEK_MARK_USER;
        for (int c : nodes_[h]->Children()) stack.push_back(c);
    }
    return VEK_OKAY;
}

int VEK_network::GetAncestors(int handle, VEK_intArray& out) {
    if (!IsValidNode(handle)) return VEK_OUT_OF_RANGE;
    ClearAllMarks();
    (void)MarkAncestors(handle);  // the handle was checked above
    out.Flush();
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (nodes_[h] && (nodes_[h]->Marks() & VEK_MARK_USER)) out.Add(h);
    }
    ClearAllMarks();
    return VEK_OKAY;
}

int VEK_network::GetDescendants(int handle, VEK_intArray& out) {
    if (!IsValidNode(handle)) return VEK_OUT_OF_RANGE;
    ClearAllMarks();
    (void)MarkDescendants(handle);  // the handle was checked above
    out.Flush();
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (nodes_[h] && (nodes_[h]->Marks() & VEK_MARK_USER)) out.Add(h);
    }
    ClearAllMarks();
    return VEK_OKAY;
}

void VEK_network::OrderVisit(int handle, VEK_intArray& out) {
    // Parents first, in parent-list order; an explicit stack keeps deep
    // chains off the call stack.
    struct Frame { int handle; int next; };
    std::vector<Frame> stack{{handle, 0}};
    nodes_[handle]->Marks() |= VEK_MARK_VISITED;
    while (!stack.empty()) {
        Frame& f = stack.back();
        const VEK_intArray& parents = nodes_[f.handle]->Parents();
        if (f.next < parents.GetSize()) {
            int p = parents[f.next++];
            if (!(nodes_[p]->Marks() & VEK_MARK_VISITED)) {
                nodes_[p]->Marks() |= VEK_MARK_VISITED;
                stack.push_back({p, 0});
            }
        } else {
            out.Add(f.handle);
            stack.pop_back();
        }
    }
}

const VEK_intArray& VEK_network::PartialOrdering() {
    if (orderValid_) return order_;
    order_.Flush();
    ClearAllMarks();
    for (int h = 0; h < GetSlotCount(); ++h) {
        if (nodes_[h] && !(nodes_[h]->Marks() & VEK_MARK_VISITED)) OrderVisit(h, order_);
    }
    ClearAllMarks();
    orderValid_ = true;
    return order_;
}

int VEK_network::OrderPartially(VEK_intArray& out) {
    out = PartialOrdering();
    return VEK_OKAY;
}

int VEK_network::AddObservCostArc(int parent, int child) {
    if (!IsValidNode(parent) || !IsValidNode(child) || parent == child) return VEK_OUT_OF_RANGE;
    VEK_node* p = nodes_[parent].get();
    VEK_node* c = nodes_[child].get();
    if (p->CostChildren().IsInList(child) || c->CostChildren().IsInList(parent)) return VEK_OUT_OF_RANGE;
    if (GetDef(parent)->GetOutcomeIds() == nullptr) return VEK_WRONG_NODE_TYPE;
    // Cost arcs form their own acyclic graph.
    std::vector<int> stack{child};
    std::vector<char> seen(GetSlotCount(), 0);
    while (!stack.empty()) {
        int h = stack.back();
        stack.pop_back();
        if (h == parent) return VEK_CYCLE;
        if (seen[h]) continue;
        seen[h] = 1;
        for (int x : nodes_[h]->CostChildren()) stack.push_back(x);
    }
    p->CostChildren().Add(child);
    c->CostParents().Add(parent);
    c->RebuildCostTable();
    return VEK_OKAY;
}

int VEK_network::RemoveObservCostArc(int parent, int child) {
    if (!IsValidNode(parent) || !IsValidNode(child)) return VEK_OUT_OF_RANGE;
    VEK_node* p = nodes_[parent].get();
    VEK_node* c = nodes_[child].get();
    int ci = p->CostChildren().FindPosition(child);
    if (ci < 0) return VEK_OUT_OF_RANGE;
    (void)p->CostChildren().Delete(ci);  // ci and pi are found positions
    int pi = c->CostParents().FindPosition(parent);
    if (pi >= 0) (void)c->CostParents().Delete(pi);
    c->RebuildCostTable();
    return VEK_OKAY;
}

// ---------------------------------------------------------------- submodels

int VEK_network::AddSubmodel(int parentSubmodel, const char* id) {
    if (!submodels_.IsValidSubmodel(parentSubmodel)) return VEK_OUT_OF_RANGE;
    std::string generated;
    if (id) {
        if (!VEK_isValidIdentifier(id)) return VEK_ILLEGAL_IDENTIFIER;
        if (IsThisIdentifierInUse(id, -1)) return VEK_DUPLICATED_IDENTIFIER;
    } else {
        if (const int res = CreateUniqueSubmodelIdentifier(generated, -1); res < 0) return res;
    }
    return submodels_.CreateSubmodel(parentSubmodel, id, generated);
}

int VEK_network::DeleteSubmodel(int handle) {
    if (!submodels_.IsValidSubmodel(handle) || handle == submodels_.GetMainSubmodel()) return VEK_OUT_OF_RANGE;
    int parent = submodels_.GetParent(handle);
    for (auto& n : nodes_) {
        if (n && n->GetSubmodel() == handle) (void)n->SetSubmodel(parent);  // the parent submodel is valid
    }
    for (auto& t : textBoxes_) {
        if (t.submodel == handle) t.submodel = parent;
    }
    return submodels_.DeleteSubmodel(handle);
}

int VEK_network::SetSubmodelId(int handle, const char* id) {
    VEK_submodel* s = submodels_.Get(handle);
    if (!s) return VEK_OUT_OF_RANGE;
    if (!VEK_isValidIdentifier(id)) return VEK_ILLEGAL_IDENTIFIER;
    if (std::strcmp(s->header.GetId(), id) == 0) return VEK_OKAY;
    if (IsThisIdentifierInUse(id, -1)) return VEK_DUPLICATED_IDENTIFIER;
    return s->header.SetId(id);
}

int VEK_network::MoveSubmodel(int handle, int newParent) { return submodels_.MoveSubmodel(handle, newParent); }

int VEK_network::SetNodeSubmodel(int node, int submodel) {
    VEK_node* n = GetNode(node);
    if (!n) return VEK_OUT_OF_RANGE;
    return n->SetSubmodel(submodel);
}

// ---------------------------------------------------------------- settings

int VEK_network::SetNumberOfSamples(int n) {
    if (n < 1) return VEK_OUT_OF_RANGE;
    settings_.stored.numSamples = n;
    return VEK_OKAY;
}

int VEK_network::SetNumberOfDiscretizationSamples(int n) {
    if (n < 1) return VEK_OUT_OF_RANGE;
    settings_.stored.numDiscSamples = n;
    return VEK_OKAY;
}

int VEK_network::SetEPISParams(const VEK_EPISParams& p) {
    if (!p.IsValid()) return VEK_INVALID_VALUE;
    settings_.stored.epis = p;
    return VEK_OKAY;
}

int VEK_network::SetLBPParams(const VEK_LBPParams& p) {
    if (!p.IsValid()) return VEK_INVALID_VALUE;
    settings_.lbp = p;
    return VEK_OKAY;
}

int VEK_network::SetNumberOfSlices(int n) {
    if (n < 0) return VEK_OUT_OF_RANGE;
    if (n == sliceCount_) return VEK_OKAY;
    sliceCount_ = n;
    if (dynamic_) dynamic_->OnSliceCountChanged(n);
    InvalidateAllBeliefs();
    return VEK_OKAY;
}

VEK_dynamicNet& VEK_network::Dynamic() {
    if (!dynamic_) dynamic_ = std::make_unique<VEK_dynamicNet>(*this);
    return *dynamic_;
}

bool VEK_network::HasPlateNodes() const {
    for (const auto& n : nodes_) {
        if (n && n->GetTemporalType() == VEK_TEMPORAL_PLATE) return true;
    }
    return false;
}

namespace {
// Temporal types that allow an arc from parent to child.
bool TemporalArcAllowed(int pt, int ct) {
    if (pt == VEK_TEMPORAL_TERMINAL) return ct == VEK_TEMPORAL_TERMINAL;
    if (pt == VEK_TEMPORAL_PLATE) return ct == VEK_TEMPORAL_PLATE || ct == VEK_TEMPORAL_TERMINAL;
    return true;
}
}  // namespace

int VEK_network::SetTemporalType(int handle, int type) {
    VEK_node* node = GetNode(handle);
    if (!node || type < VEK_TEMPORAL_CONTEMPORAL || type > VEK_TEMPORAL_PLATE) return VEK_OUT_OF_RANGE;
    const int old = node->GetTemporalType();
    if (old == type) return VEK_OKAY;
    for (int p : node->Parents()) {
        if (!TemporalArcAllowed(nodes_[p]->GetTemporalType(), type)) {
            return logger_.VLogError(VEK_WRONG_NODE_TYPE, "Parent '%s' does not allow this temporal type", GetNodeId(p));
        }
    }
    for (int c : node->Children()) {
        if (!TemporalArcAllowed(type, nodes_[c]->GetTemporalType())) {
            return logger_.VLogError(VEK_WRONG_NODE_TYPE, "Child '%s' does not allow this temporal type", GetNodeId(c));
        }
    }
    VEK_updateImmediateContext scope(*this);
    node->SetTemporalType(type);
    if (dynamic_) {
        if (old == VEK_TEMPORAL_PLATE) dynamic_->OnTemporalTypeChanged(handle);
        dynamic_->Conform();
    }
    RelevanceDefinitionChanged(handle, VEK_REL_DEF_CHANGE_1);
    InvalidateAllBeliefs();
    scopeDirty_ = true;
    return VEK_OKAY;
}

int VEK_network::GetIntProperty(const char* name, int defaultValue) const {
    const char* v = userProperties_.FindProperty(name);
    if (!v || !*v) return defaultValue;
    char* end = nullptr;
    long x = std::strtol(v, &end, 10);
    if (end == v) return defaultValue;
    return static_cast<int>(x);
}
