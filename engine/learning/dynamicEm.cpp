#include "learning/dynamicEm.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <new>
#include <string>

#include "dynamic/dynamicNet.h"
#include "dynamic/unroll.h"
#include "learning/em.h"
#include "network/node.h"
#include "network/nodeDef.h"
#include "network/status.h"

namespace {

constexpr int kTypeNoisyMax = 146;

bool HasAnchorParent(const VEK_network& net, int h) {
    for (int p : net.GetNode(h)->Parents()) {
        if (net.GetNode(p)->GetTemporalType() == VEK_TEMPORAL_ANCHOR) return true;
    }
    return false;
}

// Structures whose slices cannot share tables: noisy-MAX parameters are not
// counts, and a plate node with anchor parents has a slice-0 table that the
// later slices cannot use.
int CheckStructure(VEK_network& net, int slices) {
    const VEK_dynamicNet* dyn = net.GetDynamic();
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        if (net.GetDef(h)->GetType() == kTypeNoisyMax) {
            return net.Logger().LogError(VEK_WRONG_NODE_TYPE, "EM: noisy-max nodes are not supported in DBNs");
        }
        if (net.GetNode(h)->GetTemporalType() != VEK_TEMPORAL_PLATE || !HasAnchorParent(net, h)) continue;
        if (slices > 1 && (!dyn || dyn->OrderForSlice(h, 1) == 0)) {
            return net.Logger().VLogError(VEK_WRONG_NODE_TYPE,
                                          "EM: unsupported DBN structure; plate node '%s' has anchor parents but "
                                          "no temporal arc of order 1",
                                          net.GetNodeId(h));
        }
    }
    return VEK_OKAY;
}

}  // namespace

bool VEK_emIsDynamic(const VEK_network& net) {
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        if (net.GetNode(h)->GetTemporalType() != VEK_TEMPORAL_CONTEMPORAL) return true;
    }
    return false;
}

int VEK_dynamicEm::Init(const VEK_dataset& data, VEK_network& net, const std::vector<VEK_datasetMatch>& matching,
                        const std::vector<char>& fixed, int slices, bool relevance) {
    VEK_logger& log = net.Logger();
    tied_.clear();
    slices_ = slices > 0 ? slices : net.GetNumberOfSlices();
    if (slices_ < 1) return log.LogError(VEK_OUT_OF_RANGE, "EM: the dynamic network has no time slices");
    int res = CheckStructure(net, slices_);
    if (res != VEK_OKAY) return res;

    std::vector<VEK_unrolledNode> mapping;
    {
        VEK_network timed(net);
        if (timed.GetNumberOfSlices() != slices_ && (res = timed.SetNumberOfSlices(slices_)) != VEK_OKAY) {
            return log.LogError(res, "EM: the slice count could not be set");
        }
        if ((res = VEK_Unroll(timed, work_, mapping)) != VEK_OKAY) {
            const char* why = timed.Logger().GetLastErrorMessage();
            return log.LogError(res, ("EM: the network could not be unrolled: " + std::string(why ? why : "")).c_str());
        }
    }
    (void)work_.SetUpdateImmediate(false);  // turning immediate updating off cannot fail
    work_.EnableRelevance(relevance);
    work_.ClearAllEvidence();
    work_.ClearAllTargets();
    work_.Cases().EnableSync(false);

    // copy[(plate index) * slices + t]: the node's handle in slice t; other
    // nodes keep their handles.
    std::vector<int> plateIndex(static_cast<size_t>(net.GetSlotCount()), -1);
    std::vector<int> copy;
    for (const VEK_unrolledNode& m : mapping) {
        if (m.slice == 0) plateIndex[static_cast<size_t>(m.node)] = static_cast<int>(copy.size() / slices_);
        if (m.slice == 0) copy.resize(copy.size() + static_cast<size_t>(slices_), -1);
    }
    for (const VEK_unrolledNode& m : mapping) {
        copy[static_cast<size_t>(plateIndex[static_cast<size_t>(m.node)] * slices_ + m.slice)] = m.unrolled;
    }
    auto unrolled = [&](int node, int slice) {
        const int i = plateIndex[static_cast<size_t>(node)];
        return i < 0 ? (slice == 0 ? node : -1) : copy[static_cast<size_t>(i * slices_ + slice)];
    };

    std::vector<VEK_datasetMatch> flat;
    std::vector<char> seen(static_cast<size_t>(work_.GetSlotCount()), 0);
    for (const VEK_datasetMatch& m : matching) {
        const int u = net.IsValidNode(m.node) && m.slice >= 0 && m.slice < slices_ ? unrolled(m.node, m.slice) : -1;
        if (u < 0 || !data.IsValidVariable(m.column) || seen[static_cast<size_t>(u)]) {
            return log.LogError(VEK_OUT_OF_RANGE,
                                "EM: the matching names a node or column that does not exist, a slice outside the "
                                "plate's slices, or a node in one slice twice");
        }
        seen[static_cast<size_t>(u)] = 1;
        flat.push_back({u, 0, m.column});
    }

    // The copies of a fixed node are fixed.
    std::vector<char> fixedFlat(static_cast<size_t>(work_.GetSlotCount()), 0);
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        if (!fixed[static_cast<size_t>(h)]) continue;
        for (int t = 0; t < slices_; ++t) {
            if (const int u = unrolled(h, t); u >= 0) fixedFlat[static_cast<size_t>(u)] = 1;
        }
    }
    if ((res = VEK_emCheckNodes(work_, fixedFlat)) != VEK_OKAY ||
        (res = VEK_emCheckColumns(work_, data, flat)) != VEK_OKAY) {
        return log.LogError(res, work_.Logger().GetLastErrorMessage());
    }

    const VEK_dynamicNet* dyn = net.GetDynamic();
    std::vector<char> learnable(static_cast<size_t>(work_.GetSlotCount()), 0);
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        if (fixed[static_cast<size_t>(h)]) continue;
        const size_t first = tied_.size();
        const bool plate = plateIndex[static_cast<size_t>(h)] >= 0;
        for (int t = 0; t < (plate ? slices_ : 1); ++t) {
            const int order = t > 0 && dyn ? dyn->OrderForSlice(h, t) : 0;
            auto it = std::find_if(tied_.begin() + static_cast<std::ptrdiff_t>(first), tied_.end(),
                                   [order](const Tied& x) { return x.order == order; });
            if (it == tied_.end()) {
                const VEK_Dmatrix& table = order == 0 ? net.GetDef(h)->GetDefinition() : *dyn->GetTemporalDefinition(h, order);
                tied_.push_back({h, order, table, table, {}});
                it = tied_.end() - 1;
            }
            const int u = unrolled(h, t);
            if (!(work_.GetDef(u)->GetDefinition().GetDimensions() == it->table.GetDimensions())) {
                return log.VLogError(VEK_GENERAL_ERROR, "EM: the table of node '%s' in slice %d does not fit its definition",
                                     net.GetNodeId(h), t);
            }
            it->copies.push_back(u);
            learnable[static_cast<size_t>(u)] = 1;
        }
    }

    if ((res = records_.Read(data, work_, flat)) != VEK_OKAY) return log.LogError(res, work_.Logger().GetLastErrorMessage());
    records_.Group();
    std::vector<int> matched;
    for (const VEK_datasetMatch& m : flat) matched.push_back(m.node);
    if ((res = counts_.Init(work_, matched, records_.complete, learnable)) != VEK_OKAY) {
        return log.LogError(res, work_.Logger().GetLastErrorMessage());
    }
    return VEK_OKAY;
}

void VEK_dynamicEm::Publish(const Tied& t) {
    for (int u : t.copies) {
        VEK_nodeDef* def = work_.GetDef(u);
        def->GetWriteableParameters().FillFrom(t.table);
        def->OnParametersChanged();
        def->TellNetworkOfChange();
    }
}

void VEK_dynamicEm::Restart(Start start, VEK_randGen& gen) {
    for (Tied& t : tied_) {
        const int n = t.table.GetLastDimensionSize();
        double* items = t.table.Items();
        for (int c = 0; n > 0 && c < t.table.GetSize(); c += n) {
            if (start == Start::kUniform) std::fill(items + c, items + c + n, 1.0 / n);
            if (start == Start::kRandom) gen.Multinomial(n, items + c);
        }
        t.prior = t.table;
        Publish(t);
    }
}

int VEK_dynamicEm::Iterate(double ess, VEK_logger& log, double& ll) {
    const int res = VEK_emPass(records_, counts_, log, work_.IsRelevanceEnabled(), ll);
    if (res != VEK_OKAY) return res;
    for (Tied& t : tied_) {
        sum_.assign(static_cast<size_t>(t.table.GetSize()), 0.0);
        for (int u : t.copies) {
            const double* c = counts_.Counts(u);
            for (size_t i = 0; i < sum_.size(); ++i) sum_[i] += c[i];
        }
        VEK_emMaximize(sum_.data(), t.prior.Items(), t.table.GetSize(), t.table.GetLastDimensionSize(), ess);
        t.table.FillFrom(sum_.data());
        Publish(t);
    }
    return VEK_OKAY;
}

int VEK_dynamicEm::Commit(VEK_network& net) {
    std::vector<int> handles;
    std::vector<VEK_Dmatrix> tables;
    VEK_dynamicNet* dyn = net.GetDynamic();
    for (const Tied& t : tied_) {
        if (t.order != 0) {
            const VEK_Dmatrix* m = dyn ? dyn->GetTemporalDefinition(t.node, t.order) : nullptr;
            if (!m || !(m->GetDimensions() == t.table.GetDimensions())) {
                return net.Logger().VLogError(VEK_GENERAL_ERROR,
                                              "EM: the temporal table of node '%s' changed shape during learning",
                                              net.GetNodeId(t.node));
            }
            continue;
        }
        handles.push_back(t.node);
        tables.push_back(t.table);
    }
    int res = VEK_emCommitTables(net, handles, tables);
    for (const Tied& t : tied_) {
        if (res != VEK_OKAY) break;
        if (t.order == 0) continue;
        res = dyn->SetTemporalDefinition(t.node, t.order,
                                         std::vector<double>(t.table.Items(), t.table.Items() + t.table.GetSize()));
    }
    return res;
}

// The restarts and the stopping rule of static EM, on the unrolled network.
int VEK_learnDynamic(const VEK_dynamicEmSettings& s, const VEK_dataset& data, VEK_network& net,
                     const std::vector<VEK_datasetMatch>& matching, const std::vector<char>& fixed, double* score,
                     VEK_emProgress* progress) {
    int slices = 0;
    if (s.autoSlices) {
        for (const VEK_datasetMatch& m : matching) slices = std::max(slices, m.slice + 1);
    }
    VEK_updateImmediateContext scope(net);
    VEK_dynamicEm em;
    int res = em.Init(data, net, matching, fixed, slices, s.relevance);
    if (res != VEK_OKAY) return res;
    VEK_randGen gen;
    gen.Init(static_cast<unsigned>(s.seed));
    double best = -std::numeric_limits<double>::infinity();
    auto run = [&]() {
        if (s.uniformize || s.randomize) {
            em.Restart(s.uniformize ? VEK_dynamicEm::Start::kUniform : VEK_dynamicEm::Start::kRandom, gen);
        }
        double previous = 0.0;
        double ll = 0.0;
        for (int iteration = 0;; ++iteration) {
            const int r = em.Iterate(s.ess, net.Logger(), ll);
            if (r != VEK_OKAY) return r;
            if (progress != nullptr && !progress->Tick(iteration, ll)) {
                return net.Logger().LogError(VEK_GENERAL_ERROR, "EM: cancelled");
            }
            if (ll == 0.0) break;
            if (previous != 0.0 && (previous / ll < 1.0001 || previous >= ll)) break;
            previous = ll;
        }
        if (std::isfinite(best) && ll <= best) return VEK_OKAY;
        const int r = em.Commit(net);
        if (r == VEK_OKAY) best = ll;
        return r;
    };
    if (!s.randomize) {
        res = run();
    } else if (s.timeLimit < 1) {
        for (int i = 0; i < s.restarts && res == VEK_OKAY; ++i) res = run();
    } else {
        const auto start = std::chrono::steady_clock::now();
        while ((res = run()) == VEK_OKAY) {
            auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
            if (elapsed.count() >= s.timeLimit) break;
        }
    }
    if (res == VEK_OKAY && score != nullptr) *score = best;
    return res;
}
