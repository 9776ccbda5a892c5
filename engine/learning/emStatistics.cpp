#include "learning/emStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <new>
#include <string>
#include <type_traits>
#include <utility>

#include "learning/expectedCounts.h"
#include "learning/tiedTables.h"
#include "network/discDef.h"
#include "network/idArray.h"
#include "network/network.h"
#include "network/node.h"
#include "network/nodeDef.h"
#include "network/status.h"

namespace {

constexpr int kTypeEquation = 4;
constexpr int kTypeCpt = 18;
constexpr int kTypeTruthTable = 20;
constexpr int kTypeNoisyMax = 146;
constexpr int kTypeNoisyAdder = 274;

// 64-bit finaliser: spreads a record's hash over the bits the table uses.
uint64_t Mix(uint64_t h) {
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdULL;
    h ^= h >> 33;
    h *= 0xc4ceb9fe1a85ec53ULL;
    return h ^ (h >> 33);
}

}  // namespace

bool VEK_emRecords::SameRecord(int a, int b) const {
    for (size_t k = 0; k < columns; ++k)
        if (Column(k)[a] != Column(k)[b]) return false;
    return true;
}

void VEK_emRecords::Group() {
    const size_t n = static_cast<size_t>(records);
    const size_t m = columns;
    cases.clear();
    weights.clear();
    firstRecord.clear();
    std::vector<uint64_t> hash(n, 1469598103934665603ULL);
    for (size_t k = 0; k < m; ++k) {
        const int* col = Column(k);
        for (size_t r = 0; r < n; ++r) hash[r] = (hash[r] ^ static_cast<uint32_t>(col[r] + 1)) * 1099511628211ULL;
    }
    size_t capacity = 16;
    while (capacity < 2 * n) capacity *= 2;
    std::vector<int> slots(capacity, -1);
    std::vector<uint64_t> groupHash;
    for (size_t r = 0; r < n; ++r) {
        for (size_t at = Mix(hash[r]) & (capacity - 1);; at = (at + 1) & (capacity - 1)) {
            const int g = slots[at];
            if (g < 0) {
                slots[at] = static_cast<int>(firstRecord.size());
                firstRecord.push_back(static_cast<int>(r));
                weights.push_back(1.0);
                groupHash.push_back(hash[r]);
                break;
            }
            if (groupHash[static_cast<size_t>(g)] == hash[r] &&
                SameRecord(firstRecord[static_cast<size_t>(g)], static_cast<int>(r))) {
                weights[static_cast<size_t>(g)] += 1.0;
                break;
            }
        }
    }
    cases.resize(firstRecord.size() * m);
    for (size_t g = 0; g < firstRecord.size(); ++g) {
        for (size_t k = 0; k < m; ++k) cases[g * m + k] = Column(k)[firstRecord[g]];
    }
}

// A file's states come sorted by text, seldom in the node's outcome order;
// the outcome id is tried before the label, which keeps names that are no
// valid ids.
int VEK_emRecords::Read(const VEK_dataset& data, VEK_network& net, const std::vector<VEK_datasetMatch>& matching) {
    const size_t n = static_cast<size_t>(data.GetRealRowCount());
    columns = matching.size();
    records = static_cast<int>(n);
    values.resize(columns * n);
    complete.assign(columns, 1);
    for (size_t k = 0; k < columns; ++k) {
        const VEK_datasetMatch& m = matching[k];
        const VEK_dataset::Variable& var = data.GetVariable(m.column);
        const std::vector<std::string>& names = var.stateNames;
        const VEK_discDef* def = dynamic_cast<const VEK_discDef*>(net.GetDef(m.node));
        std::vector<int> byName;
        if (!names.empty() && def) {
            byName.assign(names.size(), -1);
            for (size_t i = 0; i < names.size(); ++i) {
                int o = def->GetOutcomeIds()->FindPosition(names[i].c_str());
                for (int j = 0; o < 0 && j < def->GetNumberOfOutcomes(); ++j) {
                    const char* label = def->GetOutcomeLabel(j);
                    if (label && names[i] == label) o = j;
                }
                byName[i] = o;
            }
        }
        const int outcomes = net.GetDef(m.node)->GetNumberOfOutcomes();
        int* out = values.data() + k * n;
        for (size_t r = 0; r < n; ++r) {
            int v = var.intData[r];
            if (v == var.missingInt) {
                out[r] = -1;
                complete[k] = 0;
                continue;
            }
            if (!byName.empty() && v >= 0 && v < static_cast<int>(byName.size())) {
                const int o = byName[static_cast<size_t>(v)];
                if (o < 0) {
                    return net.Logger().LogError(
                        VEK_OUT_OF_RANGE, ("EM: state '" + names[static_cast<size_t>(v)] + "' of column '" + var.id +
                                           "' is not an outcome of node '" + net.GetNodeId(m.node) + "'")
                                              .c_str());
                }
                v = o;
            }
            if (v < 0 || v >= outcomes) {
                return net.Logger().LogError(VEK_OUT_OF_RANGE,
                                             ("EM: value " + std::to_string(v) + " in record " + std::to_string(r) +
                                              " of column '" + var.id + "' is not an outcome of node '" +
                                              net.GetNodeId(m.node) + "'")
                                                 .c_str());
            }
            out[r] = v;
        }
    }
    return VEK_OKAY;
}

int VEK_emCheckNodes(VEK_network& net, const std::vector<char>& fixed) {
    VEK_logger& log = net.Logger();
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const int type = net.GetDef(h)->GetType();
        const std::string id = net.GetNodeId(h);
        if (net.GetNode(h)->GetTemporalType() != 0) {
            return log.LogError(VEK_WRONG_NODE_TYPE, "EM: dynamic networks are not supported");
        }
        if (type == kTypeEquation || type == kTypeCpt) continue;
        if (type == kTypeNoisyMax) {
            if (!fixed[static_cast<size_t>(h)]) {
                return log.LogError(
                    VEK_WRONG_NODE_TYPE,
                    ("EM: noisy-MAX parameters of node '" + id + "' can't be learnt; fix the node").c_str());
            }
            continue;
        }
        if (type == kTypeTruthTable || type == kTypeNoisyAdder) {
            if (!fixed[static_cast<size_t>(h)]) {
                return log.LogError(VEK_WRONG_NODE_TYPE,
                                    "EM: non-fixed deterministic and Noisy Adder nodes not supported");
            }
            continue;
        }
        return log.LogError(VEK_WRONG_NODE_TYPE, ("EM: node '" + id + "' is of unsupported type").c_str());
    }
    return VEK_OKAY;
}

int VEK_emCheckColumns(VEK_network& net, const VEK_dataset& data, const std::vector<VEK_datasetMatch>& matching) {
    VEK_logger& log = net.Logger();
    bool anyEquation = false;
    bool allEquation = true;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        const bool equation = net.GetDef(h)->GetType() == kTypeEquation;
        anyEquation = anyEquation || equation;
        allEquation = allEquation && equation;
    }
    bool allDiscrete = true;
    bool allContinuous = true;
    std::vector<bool> seen(static_cast<size_t>(net.GetSlotCount()), false);
    for (const VEK_datasetMatch& m : matching) {
        if (!net.IsValidNode(m.node) || !data.IsValidVariable(m.column) || m.slice != 0 ||
            seen[static_cast<size_t>(m.node)]) {
            return log.LogError(VEK_OUT_OF_RANGE,
                                "EM: the matching names a node or column that does not exist, a time slice, "
                                "or a node twice");
        }
        seen[static_cast<size_t>(m.node)] = true;
        if (data.IsDiscrete(m.column)) {
            allContinuous = false;
        } else {
            allDiscrete = false;
        }
    }
    if (allEquation && allContinuous) {
        return log.LogError(VEK_WRONG_NODE_TYPE, "EM: learning of continuous models is not supported");
    }
    if (anyEquation || !allDiscrete) {
        return log.LogError(VEK_INVALID_VALUE,
                            "EM: unsupported mix of discrete and continuous items in network and/or dataset");
    }
    return VEK_OKAY;
}

void VEK_emMaximize(double* counts, const double* prior, int size, int states, double ess) {
    if (ess > 0 && size > 0) {
        for (int i = 0; i < size; ++i) counts[i] += ess * prior[i];
    }
    if (states <= 0) return;
    for (int start = 0; start + states <= size; start += states) {
        double sum = 0.0;
        for (int s = 0; s < states; ++s) sum += counts[start + s];
        if (sum != 0.0) {
            const double scale = 1.0 / sum;
            for (int s = 0; s < states; ++s) {
                double v = counts[start + s] * scale;
                counts[start + s] = std::isfinite(v) ? v : 0.0;
            }
        } else {
            for (int s = 0; s < states; ++s) counts[start + s] = prior[start + s];
        }
    }
}

// A record's probability must lie in 0..1: beyond it a fixed table is no
// distribution, and the pass stops with the status EM has always given for
// it, -42, and nothing logged.
int VEK_emPass(const VEK_emRecords& records, VEK_expectedCounts& counts, VEK_logger& log, bool relevance,
               double& ll) {
    const size_t m = records.columns;
    counts.StartPass();
    ll = 0.0;
    for (size_t g = 0; g < records.weights.size(); ++g) {
        double pe = 0.0;
        const int res = counts.AddCase(records.cases.data() + g * m, records.weights[g], pe);
        if (res == VEK_IMPOSSIBLE_EVIDENCE) {
            return log.LogError(res, relevance ? "EM: not all counts updated" : "EM: please run with relevance enabled");
        }
        if (res == VEK_OKAY && !(pe >= 0.0 && pe <= 1.0 + 1e-9)) return VEK_OUT_OF_MEMORY;
        if (res != VEK_OKAY) return res;
        ll += records.weights[g] * std::log(pe);
    }
    return VEK_OKAY;
}

// Trees compiled for one set of matched nodes and the columns observed in
// every record; parts of the data alike in that reuse them.
struct VEK_emStatistics::Compiled {
    std::vector<int> matched;
    std::vector<char> complete;
    VEK_expectedCounts counts;
};

VEK_emStatistics::VEK_emStatistics() = default;
VEK_emStatistics::~VEK_emStatistics() = default;

int VEK_emStatistics::Init(const VEK_network& net, const std::vector<int>& fixedNodes, float ess, bool relevance,
                           int slices) {
    compiled_.clear();
    tied_.reset();
    learnable_.clear();
    offsets_.clear();
    priors_.clear();
    size_ = 0;
    work_ = std::make_unique<VEK_network>(net);
    VEK_network& work = *work_;
    (void)work.SetUpdateImmediate(false);  // turning immediate updating off cannot fail
    work.EnableRelevance(relevance);
    work.ClearAllEvidence();
    work.ClearAllTargets();
    work.Cases().EnableSync(false);
    ess_ = ess;
    relevance_ = relevance;

    std::vector<char> fixed(static_cast<size_t>(work.GetSlotCount()), 0);
    for (int h : fixedNodes) {
        if (!work.IsValidNode(h)) {
            return work.Logger().LogError(VEK_OUT_OF_RANGE,
                                          ("EM: invalid fixed node handle " + std::to_string(h)).c_str());
        }
        fixed[static_cast<size_t>(h)] = 1;
    }
    if (VEK_emIsDynamic(work)) {
        auto tied = std::make_unique<VEK_tiedTables>();
        const int res = tied->Init(work, fixed, slices, relevance, work.Logger());
        if (res != VEK_OKAY) return res;
        for (const VEK_tiedTables::Tied& t : tied->Tables()) {
            learnable_.push_back(t.node);
            offsets_.push_back(size_);
            size_ += static_cast<size_t>(t.table.GetSize());
        }
        tied_ = std::move(tied);
        return VEK_OKAY;
    }
    const int res = VEK_emCheckNodes(work, fixed);
    if (res != VEK_OKAY) return res;
    for (int h = work.GetFirstNode(); h >= 0; h = work.GetNextNode(h)) {
        if (fixed[static_cast<size_t>(h)]) continue;
        learnable_.push_back(h);
        offsets_.push_back(size_);
        size_ += static_cast<size_t>(work.GetDef(h)->GetDefinition().GetSize());
        priors_.push_back(work.GetDef(h)->GetDefinition());
    }
    return VEK_OKAY;
}

int VEK_emStatistics::Restart(Start start, VEK_randGen& gen) {
    if (tied_) {
        if (start != Start::kAsTheyStand) tied_->Restart(start == Start::kRandom, gen);
        return VEK_OKAY;
    }
    std::vector<VEK_Dmatrix> before;
    before.reserve(learnable_.size());
    for (size_t i = 0; i < learnable_.size(); ++i) {
        VEK_nodeDef* def = work_->GetDef(learnable_[i]);
        before.push_back(def->GetDefinition());
        const int res = start == Start::kUniform  ? def->MakeUniform()
                        : start == Start::kRandom ? def->MakeRandom(gen)
                                                  : VEK_OKAY;
        if (res < 0) {
            // A refused restart leaves every table as it was.
            for (size_t j = 0; j < i; ++j) {
                (void)work_->GetDef(learnable_[j])->SetDefinition(before[j]);  // same shape: cannot fail
            }
            return work_->Logger().VLogError(res, "EM: the start parameters of node '%s' could not be set",
                                             work_->GetNodeId(learnable_[i]));
        }
    }
    for (size_t i = 0; i < learnable_.size(); ++i) priors_[i] = work_->GetDef(learnable_[i])->GetDefinition();
    return VEK_OKAY;
}

int VEK_emStatistics::ReadRecords(const VEK_dataset& data, const std::vector<VEK_datasetMatch>& matching,
                                  VEK_emRecords& records, std::vector<int>& matched) {
    VEK_network& work = *work_;
    if (matching.empty()) {
        return work.Logger().LogError(VEK_NO_ITEM, "EM: no matching between node and data were specified");
    }
    // A dynamic network's records are read on its unrolled copy, whose
    // messages are passed on to the working copy.
    std::vector<VEK_datasetMatch> flat;
    int res = tied_ ? tied_->Flatten(data, matching, flat, work.Logger()) : VEK_emCheckColumns(work, data, matching);
    if (res != VEK_OKAY) return res;
    const std::vector<VEK_datasetMatch>& columns = tied_ ? flat : matching;
    VEK_network& net = tied_ ? tied_->Work() : work;
    res = records.Read(data, net, columns);
    if (res != VEK_OKAY) return Failed(res);
    matched.clear();
    for (const VEK_datasetMatch& m : columns) matched.push_back(m.node);
    return VEK_OKAY;
}

int VEK_emStatistics::Failed(int code) {
    return tied_ ? work_->Logger().LogError(code, tied_->Work().Logger().GetLastErrorMessage()) : code;
}

int VEK_emStatistics::EStep(const VEK_dataset& data, const std::vector<VEK_datasetMatch>& matching,
                            std::vector<double>& counts, double& ll) {
    VEK_emRecords records;
    std::vector<int> matched;
    const int res = ReadRecords(data, matching, records, matched);
    if (res != VEK_OKAY) return res;
    records.Group();
    return EStep(records, matched, counts, ll);
}

int VEK_emStatistics::EStep(const VEK_emRecords& records, const std::vector<int>& matched,
                            std::vector<double>& counts, double& ll) {
    VEK_network& work = *work_;
    VEK_network& net = tied_ ? tied_->Work() : work;
    Compiled* compiled = nullptr;
    for (auto& c : compiled_) {
        if (c->matched == matched && c->complete == records.complete) compiled = c.get();
    }
    int res = VEK_OKAY;
    if (compiled == nullptr) {
        auto fresh = std::make_unique<Compiled>();
        fresh->matched = matched;
        fresh->complete = records.complete;
        std::vector<char> isLearnable(static_cast<size_t>(work.GetSlotCount()), 0);
        for (int h : learnable_) isLearnable[static_cast<size_t>(h)] = 1;
        res = fresh->counts.Init(net, matched, records.complete, tied_ ? tied_->Learnable() : isLearnable);
        if (res != VEK_OKAY) return Failed(res);
        compiled_.push_back(std::move(fresh));
        compiled = compiled_.back().get();
    }
    res = VEK_emPass(records, compiled->counts, work.Logger(), relevance_, ll);
    if (res != VEK_OKAY) return res;
    counts.resize(size_);
    for (size_t i = 0; tied_ && i < learnable_.size(); ++i) tied_->Fold(compiled->counts, i, counts.data() + offsets_[i]);
    for (size_t i = 0; !tied_ && i < learnable_.size(); ++i) {
        const double* c = compiled->counts.Counts(learnable_[i]);
        std::copy(c, c + priors_[i].GetSize(), counts.begin() + static_cast<std::ptrdiff_t>(offsets_[i]));
    }
    return VEK_OKAY;
}

void VEK_emStatistics::MStep(std::vector<double>& total) {
    for (size_t i = 0; tied_ && i < learnable_.size(); ++i) tied_->Maximize(i, total.data() + offsets_[i], ess_);
    if (tied_) return;
    for (size_t i = 0; i < learnable_.size(); ++i) {
        VEK_nodeDef* def = work_->GetDef(learnable_[i]);
        double* c = total.data() + offsets_[i];
        VEK_emMaximize(c, priors_[i].Items(), priors_[i].GetSize(), priors_[i].GetLastDimensionSize(), ess_);
        def->GetWriteableParameters().FillFrom(c);
        def->OnParametersChanged();
        def->TellNetworkOfChange();
    }
}

void VEK_emStatistics::GetTables(std::vector<double>& out, bool priors) const {
    out.resize(size_);
    for (size_t i = 0; i < learnable_.size(); ++i) {
        const VEK_tiedTables::Tied* t = tied_ ? &tied_->Tables()[i] : nullptr;
        const VEK_Dmatrix& m = t ? (priors ? t->prior : t->table)
                                 : priors ? priors_[i] : work_->GetDef(learnable_[i])->GetDefinition();
        std::copy(m.Items(), m.Items() + m.GetSize(), out.begin() + static_cast<std::ptrdiff_t>(offsets_[i]));
    }
}

int VEK_emStatistics::SetTables(const std::vector<double>& in, bool priors) {
    if (in.size() != size_) return VEK_OUT_OF_RANGE;
    for (size_t i = 0; i < learnable_.size(); ++i) {
        const double* from = in.data() + offsets_[i];
        if (tied_) {
            tied_->Set(i, from, priors);
            continue;
        }
        if (priors) {
            priors_[i].FillFrom(from);
            continue;
        }
        VEK_nodeDef* def = work_->GetDef(learnable_[i]);
        def->GetWriteableParameters().FillFrom(from);
        def->OnParametersChanged();
        def->TellNetworkOfChange();
    }
    return VEK_OKAY;
}

int VEK_emStatistics::TableOrder(size_t i) const { return tied_ ? tied_->Tables()[i].order : 0; }

int VEK_emStatistics::GetSliceCount() const { return tied_ ? tied_->GetSliceCount() : 0; }

int VEK_emStatistics::Apply(VEK_network& net) const {
    if (tied_) return tied_->Commit(net);
    std::vector<int> handles;
    std::vector<VEK_Dmatrix> tables;
    for (int h : learnable_) {
        const char* id = work_->GetNodeId(h);
        const int target = net.FindNode(id);
        if (target < 0) {
            return net.Logger().VLogError(VEK_NO_ITEM, "EM: the network has no node '%s'", id);
        }
        handles.push_back(target);
        tables.push_back(work_->GetDef(h)->GetDefinition());
    }
    return VEK_emCommitTables(net, handles, tables);
}

int VEK_emCommitTables(VEK_network& net, const std::vector<int>& handles, std::vector<VEK_Dmatrix>& tables) {
    static_assert(std::is_nothrow_swappable_v<VEK_Dmatrix>);
    for (size_t i = 0; i < handles.size(); ++i) {
        if (!(net.GetDef(handles[i])->GetParameters().GetDimensions() == tables[i].GetDimensions())) {
            return net.Logger().VLogError(VEK_GENERAL_ERROR, "EM: the table of node '%s' changed shape during learning",
                                          net.GetNodeId(handles[i]));
        }
    }
    auto swapAll = [&]() {
        for (size_t i = 0; i < handles.size(); ++i) {
            using std::swap;
            swap(net.GetDef(handles[i])->GetWriteableParameters(), tables[i]);
        }
    };
    auto notifyAll = [&]() {
        for (int h : handles) {
            net.GetDef(h)->OnParametersChanged();
            net.GetDef(h)->TellNetworkOfChange();
        }
    };
    swapAll();
    // Telling the network may need memory; when it fails the old tables go
    // back, so that the failed run still leaves every table alone.
    try {
        notifyAll();
    } catch (const std::bad_alloc&) {
        swapAll();
        try {
            notifyAll();
        } catch (const std::bad_alloc&) {
        }
        throw;
    }
    return VEK_OKAY;
}
