#include "learning/expectedCounts.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "inference/tsAdapter.h"
#include "network/network.h"
#include "network/node.h"
#include "network/nodeDef.h"
#include "network/status.h"

namespace {

// Calibrating a tree costs about this many entries' work per node it would
// take to build one: beyond it, a tree made for each case's observations
// (left out of its cliques) is cheaper than one tree over all nodes.
constexpr uint64_t kEntriesPerNodeOfABuild = 256;

}  // namespace

struct VEK_expectedCounts::Part {
    explicit Part(VEK_rNetwork& net) : adapter(net), tree(std::make_unique<VEK_essJoinTree>(adapter)) {}
    TsAdapter adapter;
    std::unique_ptr<VEK_essJoinTree> tree;
    bool perCase = false;        // a tree built for each case
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
        part.readers.resize(part.learnable.size());
        for (size_t j = 0; j < part.learnable.size(); ++j) {
            nodes_[static_cast<size_t>(part.learnable[j])].reader = static_cast<int>(j);
        }
        const uint64_t budget = kEntriesPerNodeOfABuild * static_cast<uint64_t>(part.handles.size());
        part.perCase = !part.tree->Compile(static_cast<int64_t>(budget)) ||
                       static_cast<uint64_t>(part.tree->ArenaSize()) > budget;
        if (part.perCase) {
            part.tree.reset();
            for (int h : part.handles) {
                Node& n = nodes_[static_cast<size_t>(h)];
                n.instantiate = n.observation != kNever;
            }
            continue;
        }
        part.tree->KeepMaps();
        for (int h : part.handles) {
            Node& n = nodes_[static_cast<size_t>(h)];
            n.instantiate = n.observation == kAlways;
            if (n.observation == kSometimes) n.rnode->WritableTable();
        }
        for (size_t j = 0; j < part.learnable.size(); ++j) {
            if (!PlanFamily(part, part.learnable[j], part.readers[j])) return VEK_GENERAL_ERROR;
        }
    }
    counts_.assign(total, 0.0);
    return VEK_OKAY;
}

bool VEK_expectedCounts::PlanFamily(Part& part, int handle, VEK_essJoinTree::FamilyReader& reader) {
    VEK_intArray family;
    for (int q : nodes_[static_cast<size_t>(handle)].parents) family.Add(q);
    family.Add(handle);
    if (part.tree->PlanFamily(family, reader)) return true;
    work_->Logger().VLogError(VEK_GENERAL_ERROR, "EM: no clique holds the family of node '%s'",
                              work_->GetNodeId(handle));
    return false;
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

// Instantiates the node, or keeps only the observed outcome's entries of
// its own table (all of them when missing).
void VEK_expectedCounts::EnterState(Node& n, int state) {
    if (n.instantiate) {
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
        if (part.perCase) {
            part.tree = std::make_unique<VEK_essJoinTree>(part.adapter);
            if (!part.tree->Compile()) {
                return work_->Logger().LogError(VEK_OUT_OF_MEMORY, "EM: the join tree does not fit in memory");
            }
        }
        if (!part.tree->Calibrate()) {
            return work_->Logger().LogError(VEK_OUT_OF_MEMORY, "EM: the join tree could not be calibrated");
        }
        pe = part.tree->GetProbEvidence();
    }
    if (std::isnan(pe)) return VEK_INVALID_VALUE;
    if (!(pe > 0.0)) return VEK_IMPOSSIBLE_EVIDENCE;
    for (int h : part.learnable) {
        Node& n = nodes_[static_cast<size_t>(h)];
        double* counts = counts_.data() + n.offset;
        if (FamilyObserved(n, h)) {
            counts[FamilyItem(n, h)] += weight;
            continue;
        }
        VEK_essJoinTree::FamilyReader& reader = part.readers[static_cast<size_t>(n.reader)];
        if (part.perCase && !PlanFamily(part, h, reader)) return VEK_GENERAL_ERROR;
        if (!part.tree->AddFamily(reader, weight, counts)) return VEK_IMPOSSIBLE_EVIDENCE;
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
