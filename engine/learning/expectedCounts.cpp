#include "learning/expectedCounts.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "inference/tsAdapter.h"
#include "network/network.h"
#include "network/node.h"
#include "network/nodeDef.h"
#include "network/status.h"

struct VEK_expectedCounts::Part {
    explicit Part(VEK_rNetwork& net) : adapter(net), tree(adapter) {}
    TsAdapter adapter;
    VEK_essJoinTree tree;
    std::vector<int> handles;    // every node of the sub-network
    std::vector<int> learnable;  // those learnt, with a reader each
    std::vector<VEK_essJoinTree::FamilyReader> readers;
};

VEK_expectedCounts::VEK_expectedCounts() = default;
VEK_expectedCounts::~VEK_expectedCounts() = default;

int VEK_expectedCounts::Init(VEK_network& work, const std::vector<int>& matched,
                             const std::vector<char>& alwaysObserved, const std::vector<char>& learnable) {
    work_ = &work;
    matched_ = matched;
    const int slots = work.GetSlotCount();
    nodes_.assign(static_cast<size_t>(slots), Node());
    state_.assign(static_cast<size_t>(slots), -1);
    for (size_t k = 0; k < matched.size(); ++k) {
        nodes_[static_cast<size_t>(matched[k])].observation = alwaysObserved[k] ? kAlways : kSometimes;
    }

    // Targets are cleared, so relevance prunes nothing: with it on the
    // network is only cut into its connected parts.
    if (!split_.DoRelevance(work, VEK_RSPLIT_COMPONENTS | VEK_RSPLIT_PRUNE)) {
        const int status = split_.GetStatus();
        return status == VEK_OUT_OF_MEMORY ? work.Logger().LogError(status, "EM: out of memory") : status;
    }
    size_t total = 0;
    for (int p = 0; p < split_.GetCount(); ++p) {
        VEK_rNetwork& rnet = *split_.GetAt(p);
        parts_.push_back(std::make_unique<Part>(rnet));
        Part& part = *parts_.back();
        for (int i = 0; i < rnet.GetNodeCount(); ++i) {
            VEK_rNode* r = rnet.GetNode(i);
            if (r->handle < 0) continue;
            Node& n = nodes_[static_cast<size_t>(r->handle)];
            n.part = p;
            n.rnode = r;
            n.source = &r->Table();
            // The tree is laid out for the nodes observed now; the states
            // themselves are entered case by case.
            if (n.observation == kAlways) r->evidence = 0;
            if (n.observation == kSometimes) r->WritableTable();
            const VEK_intArray& parents = work.GetNode(r->handle)->Parents();
            n.parents.assign(parents.begin(), parents.end());
            part.handles.push_back(r->handle);
            if (learnable[static_cast<size_t>(r->handle)]) {
                n.learnable = true;
                n.offset = total;
                total += static_cast<size_t>(n.source->GetSize());
                part.learnable.push_back(r->handle);
            }
        }
        if (!part.tree.Compile()) {
            return work.Logger().LogError(VEK_OUT_OF_MEMORY, "EM: the join tree of the network does not fit in memory");
        }
        part.readers.resize(part.learnable.size());
        for (size_t j = 0; j < part.learnable.size(); ++j) {
            const int h = part.learnable[j];
            VEK_intArray family;
            for (int q : nodes_[static_cast<size_t>(h)].parents) family.Add(q);
            family.Add(h);
            if (!part.tree.PlanFamily(family, part.readers[j])) {
                return work.Logger().VLogError(VEK_GENERAL_ERROR, "EM: no clique holds the family of node '%s'",
                                               work.GetNodeId(h));
            }
            nodes_[static_cast<size_t>(h)].reader = static_cast<int>(j);
        }
    }
    counts_.assign(total, 0.0);
    return VEK_OKAY;
}

void VEK_expectedCounts::StartPass() {
    std::fill(counts_.begin(), counts_.end(), 0.0);
    for (Node& n : nodes_) n.lastState = -2;
}

int VEK_expectedCounts::FamilyItem(const Node& n, int handle) const {
    const VEK_intArray& prods = n.source->GetProducts();
    int at = state_[static_cast<size_t>(handle)];
    for (size_t k = 0; k < n.parents.size(); ++k) {
        at += state_[static_cast<size_t>(n.parents[k])] * prods[static_cast<int>(k)];
    }
    return at;
}

bool VEK_expectedCounts::FamilyObserved(const Node& n, int handle) const {
    if (state_[static_cast<size_t>(handle)] < 0) return false;
    for (int q : n.parents)
        if (state_[static_cast<size_t>(q)] < 0) return false;
    return true;
}

// Instantiates a node observed in every case; otherwise keeps only the
// observed outcome's entries of its own table (all of them when missing).
void VEK_expectedCounts::EnterState(Node& n, int state) {
    if (n.observation == kAlways) {
        n.rnode->evidence = state;
        return;
    }
    if (n.lastState == state) return;
    n.lastState = state;
    double* to = n.rnode->table.Items();
    const double* from = n.source->Items();
    const int size = n.source->GetSize();
    if (state < 0) {
        std::memcpy(to, from, sizeof(double) * static_cast<size_t>(size));
        return;
    }
    std::fill(to, to + size, 0.0);
    const int states = n.source->GetLastDimensionSize();
    for (int c = state; c < size; c += states) to[c] = from[c];
}

int VEK_expectedCounts::AddPart(Part& part, double weight, double& pe) {
    bool observed = true;
    for (int h : part.handles) {
        if (state_[static_cast<size_t>(h)] < 0) {
            observed = false;
            break;
        }
    }
    if (observed) {
        // Every node observed: the probability is a product of table entries.
        pe = 1.0;
        for (int h : part.handles) {
            const Node& n = nodes_[static_cast<size_t>(h)];
            pe *= (*n.source)[FamilyItem(n, h)];
        }
    } else {
        if (!part.tree.Calibrate()) {
            return work_->Logger().LogError(VEK_OUT_OF_MEMORY, "EM: the join tree could not be calibrated");
        }
        pe = part.tree.GetProbEvidence();
    }
    if (std::isnan(pe)) return VEK_INVALID_VALUE;
    if (!(pe > 0.0)) return VEK_IMPOSSIBLE_EVIDENCE;
    for (int h : part.learnable) {
        Node& n = nodes_[static_cast<size_t>(h)];
        double* counts = counts_.data() + n.offset;
        if (FamilyObserved(n, h)) {
            counts[FamilyItem(n, h)] += weight;
        } else if (!part.tree.AddFamily(part.readers[static_cast<size_t>(n.reader)], weight, counts)) {
            return VEK_IMPOSSIBLE_EVIDENCE;
        }
    }
    return VEK_OKAY;
}

int VEK_expectedCounts::AddCase(const int* values, double weight, double& pe) {
    for (size_t k = 0; k < matched_.size(); ++k) {
        const int h = matched_[k];
        state_[static_cast<size_t>(h)] = values[k];
        Node& n = nodes_[static_cast<size_t>(h)];
        if (n.part >= 0) EnterState(n, values[k]);
    }
    pe = 1.0;
    for (auto& part : parts_) {
        double p = 1.0;
        const int status = AddPart(*part, weight, p);
        pe *= p;
        if (status != VEK_OKAY) return status;
    }
    return VEK_OKAY;
}
