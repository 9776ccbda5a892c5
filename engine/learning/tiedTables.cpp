#include "learning/tiedTables.h"

#include <algorithm>
#include <string>

#include "dynamic/dynamicNet.h"
#include "dynamic/unroll.h"
#include "learning/emStatistics.h"
#include "learning/expectedCounts.h"
#include "network/logger.h"
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
int CheckStructure(const VEK_network& net, int slices, VEK_logger& log) {
    const VEK_dynamicNet* dyn = net.GetDynamic();
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        if (net.GetDef(h)->GetType() == kTypeNoisyMax) {
            return log.LogError(VEK_WRONG_NODE_TYPE, "EM: noisy-max nodes are not supported in DBNs");
        }
        // Unrolling turns DeMorgan and CAST nodes into tables, which EM
        // would then learn as if they were.
        if (net.GetDef(h)->GetType() == VEK_DEMORGAN || net.GetDef(h)->GetType() == VEK_CAST) {
            return log.VLogError(VEK_WRONG_NODE_TYPE, "EM: node '%s' is of unsupported type", net.GetNodeId(h));
        }
        if (net.GetNode(h)->GetTemporalType() != VEK_TEMPORAL_PLATE || !HasAnchorParent(net, h)) continue;
        if (slices > 1 && (!dyn || dyn->OrderForSlice(h, 1) == 0)) {
            return log.VLogError(VEK_WRONG_NODE_TYPE,
                                 "EM: unsupported DBN structure; plate node '%s' has anchor parents but "
                                 "no temporal arc of order 1",
                                 net.GetNodeId(h));
        }
    }
    return VEK_OKAY;
}

int Forward(VEK_logger& log, int res, const VEK_network& from) {
    return log.LogError(res, from.Logger().GetLastErrorMessage());
}

}  // namespace

bool VEK_emIsDynamic(const VEK_network& net) {
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        if (net.GetNode(h)->GetTemporalType() != VEK_TEMPORAL_CONTEMPORAL) return true;
    }
    return false;
}

int VEK_tiedTables::Unrolled(int node, int slice) const {
    if (node < 0 || node >= static_cast<int>(plateIndex_.size()) || slice < 0 || slice >= slices_) return -1;
    const int i = plateIndex_[static_cast<size_t>(node)];
    if (i < 0) return i == kOutside && slice == 0 ? node : -1;
    return copy_[static_cast<size_t>(i * slices_ + slice)];
}

int VEK_tiedTables::Init(const VEK_network& net, const std::vector<char>& fixed, int slices, bool relevance,
                         VEK_logger& log) {
    tied_.clear();
    slices_ = slices > 0 ? slices : net.GetNumberOfSlices();
    if (slices_ < 1) return log.LogError(VEK_OUT_OF_RANGE, "EM: the dynamic network has no time slices");
    // The slice count may come from a column name ("h_99999999"): refuse
    // it before unrolling rather than run out of memory on the way.
    constexpr long long kMaxUnrolledNodes = 1LL << 22;
    long long plates = 0;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        plates += net.GetNode(h)->GetTemporalType() == VEK_TEMPORAL_PLATE;
    }
    if (plates * slices_ > kMaxUnrolledNodes) {
        return log.LogError(VEK_OUT_OF_MEMORY, ("EM: " + std::to_string(slices_) + " slices unroll to more than " +
                                                std::to_string(kMaxUnrolledNodes) + " nodes")
                                                   .c_str());
    }
    int res = CheckStructure(net, slices_, log);
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

    // Other nodes keep their handles in the unrolled network.
    plateIndex_.assign(static_cast<size_t>(net.GetSlotCount()), kNoNode);
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) plateIndex_[static_cast<size_t>(h)] = kOutside;
    copy_.clear();
    for (const VEK_unrolledNode& m : mapping) {
        if (m.slice != 0) continue;
        plateIndex_[static_cast<size_t>(m.node)] = static_cast<int>(copy_.size() / slices_);
        copy_.resize(copy_.size() + static_cast<size_t>(slices_), -1);
    }
    for (const VEK_unrolledNode& m : mapping) {
        copy_[static_cast<size_t>(plateIndex_[static_cast<size_t>(m.node)] * slices_ + m.slice)] = m.unrolled;
    }

    // The copies of a fixed node are fixed.
    std::vector<char> fixedFlat(static_cast<size_t>(work_.GetSlotCount()), 0);
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        if (!fixed[static_cast<size_t>(h)]) continue;
        for (int t = 0; t < slices_; ++t) {
            if (const int u = Unrolled(h, t); u >= 0) fixedFlat[static_cast<size_t>(u)] = 1;
        }
    }
    if ((res = VEK_emCheckNodes(work_, fixedFlat)) != VEK_OKAY) return Forward(log, res, work_);

    const VEK_dynamicNet* dyn = net.GetDynamic();
    learnable_.assign(static_cast<size_t>(work_.GetSlotCount()), 0);
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        if (fixed[static_cast<size_t>(h)]) continue;
        const size_t first = tied_.size();
        const bool plate = plateIndex_[static_cast<size_t>(h)] >= 0;
        for (int t = 0; t < (plate ? slices_ : 1); ++t) {
            const int order = t > 0 && dyn ? dyn->OrderForSlice(h, t) : 0;
            auto it = std::find_if(tied_.begin() + static_cast<std::ptrdiff_t>(first), tied_.end(),
                                   [order](const Tied& x) { return x.order == order; });
            if (it == tied_.end()) {
                const VEK_Dmatrix& table =
                    order == 0 ? net.GetDef(h)->GetDefinition() : *dyn->GetTemporalDefinition(h, order);
                tied_.push_back({h, order, net.GetNodeId(h), table, table, {}});
                it = tied_.end() - 1;
            }
            const int u = Unrolled(h, t);
            if (!(work_.GetDef(u)->GetDefinition().GetDimensions() == it->table.GetDimensions())) {
                return log.VLogError(VEK_GENERAL_ERROR,
                                     "EM: the table of node '%s' in slice %d does not fit its definition",
                                     net.GetNodeId(h), t);
            }
            it->copies.push_back(u);
            learnable_[static_cast<size_t>(u)] = 1;
        }
    }
    return VEK_OKAY;
}

int VEK_tiedTables::Flatten(const VEK_dataset& data, const std::vector<VEK_datasetMatch>& matching,
                            std::vector<VEK_datasetMatch>& flat, VEK_logger& log) {
    flat.clear();
    std::vector<char> seen(static_cast<size_t>(work_.GetSlotCount()), 0);
    for (const VEK_datasetMatch& m : matching) {
        const int u = Unrolled(m.node, m.slice);
        if (u < 0 || !data.IsValidVariable(m.column) || seen[static_cast<size_t>(u)]) {
            return log.LogError(VEK_OUT_OF_RANGE,
                                "EM: the matching names a node or column that does not exist, a slice outside the "
                                "plate's slices, or a node in one slice twice");
        }
        seen[static_cast<size_t>(u)] = 1;
        flat.push_back({u, 0, m.column});
    }
    const int res = VEK_emCheckColumns(work_, data, flat);
    return res == VEK_OKAY ? res : Forward(log, res, work_);
}

void VEK_tiedTables::Fold(const VEK_expectedCounts& counts, size_t i, double* out) const {
    const Tied& t = tied_[i];
    const size_t n = static_cast<size_t>(t.table.GetSize());
    std::fill(out, out + n, 0.0);
    for (int u : t.copies) {
        const double* c = counts.Counts(u);
        for (size_t k = 0; k < n; ++k) out[k] += c[k];
    }
}

void VEK_tiedTables::Publish(const Tied& t) {
    for (int u : t.copies) {
        VEK_nodeDef* def = work_.GetDef(u);
        (void)def->GetWriteableParameters().FillFrom(t.table);  // tied tables share one shape
        def->OnParametersChanged();
        def->TellNetworkOfChange();
    }
}

void VEK_tiedTables::Maximize(size_t i, double* counts, double ess) {
    Tied& t = tied_[i];
    VEK_emMaximize(counts, t.prior.Items(), t.table.GetSize(), t.table.GetLastDimensionSize(), ess);
    t.table.FillFrom(counts);
    Publish(t);
}

void VEK_tiedTables::Set(size_t i, const double* items, bool prior) {
    Tied& t = tied_[i];
    if (prior) {
        t.prior.FillFrom(items);
        return;
    }
    t.table.FillFrom(items);
    Publish(t);
}

void VEK_tiedTables::Restart(bool random, VEK_randGen& gen) {
    for (Tied& t : tied_) {
        const int n = t.table.GetLastDimensionSize();
        double* items = t.table.Items();
        for (int c = 0; n > 0 && c < t.table.GetSize(); c += n) {
            if (random) {
                (void)gen.Multinomial(n, items + c);  // n > 0: cannot fail
            } else {
                std::fill(items + c, items + c + n, 1.0 / n);
            }
        }
        t.prior = t.table;
        Publish(t);
    }
}

int VEK_tiedTables::Commit(VEK_network& net) const {
    std::vector<int> handles;
    std::vector<VEK_Dmatrix> tables;
    std::vector<int> targets;  // by tied index
    VEK_dynamicNet* dyn = net.GetDynamic();
    for (const Tied& t : tied_) {
        const int h = net.FindNode(t.id.c_str());
        if (h < 0) return net.Logger().VLogError(VEK_NO_ITEM, "EM: the network has no node '%s'", t.id.c_str());
        targets.push_back(h);
        if (t.order != 0) {
            const VEK_Dmatrix* m = dyn ? dyn->GetTemporalDefinition(h, t.order) : nullptr;
            if (!m || !(m->GetDimensions() == t.table.GetDimensions())) {
                return net.Logger().VLogError(VEK_GENERAL_ERROR,
                                              "EM: the temporal table of node '%s' changed shape during learning",
                                              t.id.c_str());
            }
            continue;
        }
        handles.push_back(h);
        tables.push_back(t.table);
    }
    int res = VEK_emCommitTables(net, handles, tables);
    for (size_t i = 0; i < tied_.size() && res == VEK_OKAY; ++i) {
        const Tied& t = tied_[i];
        if (t.order == 0) continue;
        res = dyn->SetTemporalDefinition(targets[i], t.order,
                                         std::vector<double>(t.table.Items(), t.table.Items() + t.table.GetSize()));
    }
    return res;
}
