#include "learning/validator.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <new>
#include <numeric>
#include <string>

#include "inference/randGen.h"
#include "learning/dataset.h"
#include "learning/datasetMatcher.h"
#include "learning/em.h"
#include "learning/emStatistics.h"
#include "learning/familyCounts.h"
#include "network/network.h"
#include "network/node.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"
#include "network/status.h"

VEK_validator::VEK_validator(VEK_network& net, const VEK_dataset& data, const std::vector<VEK_datasetMatch>& matching)
    : net_(net), data_(data), matching_(matching) {}

int VEK_validator::AddClassNode(int node) {
    const bool matched =
        std::any_of(matching_.begin(), matching_.end(), [node](const VEK_datasetMatch& m) { return m.node == node; });
    if (!net_.IsValidNode(node) || !matched || net_.GetDef(node)->GetNumberOfOutcomes() < 1) {
        return VEK_OUT_OF_RANGE;
    }
    if (std::find(classNodes_.begin(), classNodes_.end(), node) != classNodes_.end()) return VEK_DUPLICATED_IDENTIFIER;
    classNodes_.push_back(node);
    return VEK_OKAY;
}

// Checks the matching against the network and data as they are now, and
// turns every matched cell into an outcome index.
int VEK_validator::Prepare() {
    VEK_logger& log = net_.Logger();
    hasResults_ = false;
    results_.clear();
    folds_.clear();
    if (classNodes_.empty()) return log.LogError(VEK_NO_ITEM, "Validator: no class node was added");
    const size_t n = static_cast<size_t>(data_.GetNumberOfRecords());
    if (n == 0) return log.LogError(VEK_OUT_OF_RANGE, "Validator: the dataset has no records");
    values_.assign(matching_.size() * n, -1);
    std::vector<int> map;
    for (size_t k = 0; k < matching_.size(); ++k) {
        const VEK_datasetMatch& m = matching_[k];
        if (!net_.IsValidNode(m.node) || !data_.IsValidVariable(m.column) || m.slice != 0) {
            return log.LogError(VEK_OUT_OF_RANGE,
                                "Validator: the matching names a node or column that does not exist, or a time slice");
        }
        for (size_t j = 0; j < k; ++j) {
            if (matching_[j].node == m.node) {
                return log.LogError(VEK_OUT_OF_RANGE, "Validator: the matching names a node twice");
            }
        }
        std::string message;
        const int res = VEK_mapColumnOutcomes(data_, m.column, net_, m.node, map, &message);
        if (res != VEK_OKAY) return log.LogError(res, ("Validator: " + message).c_str());
        const VEK_dataset::Variable& var = data_.GetVariable(m.column);
        int* out = values_.data() + k * n;
        for (size_t r = 0; r < n; ++r) {
            const int v = var.intData[r];
            if (v != var.missingInt) out[r] = map.empty() ? v : map[static_cast<size_t>(v)];
        }
    }
    for (int c : classNodes_) {
        const auto it =
            std::find_if(matching_.begin(), matching_.end(), [c](const VEK_datasetMatch& m) { return m.node == c; });
        Result result;
        result.node = c;
        result.outcomes = net_.GetDef(c)->GetNumberOfOutcomes();
        const int* truth = values_.data() + static_cast<size_t>(it - matching_.begin()) * n;
        result.truth.assign(truth, truth + n);
        result.posteriors.assign(n * static_cast<size_t>(result.outcomes), 0.0);
        results_.push_back(std::move(result));
    }
    return VEK_OKAY;
}

namespace {

constexpr int kTypeCpt = 18;

// A class node's posterior read straight off the tables when its Markov
// blanket is observed: P(c) is proportional to the product of its own table
// and its children's, each read at the observed states.
struct BlanketPlan {
    struct Factor {
        const double* table = nullptr;
        int classStride = 0;
        std::vector<std::pair<size_t, int>> observed;  // (matched column, stride)
    };
    bool usable = false;
    std::vector<Factor> factors;

    // column: per node handle its matched non-class column, or -1.
    void Build(const VEK_network& net, int c, const std::vector<int>& column) {
        usable = false;
        factors.clear();
        std::vector<int> members = {c};
        const VEK_intArray& children = net.GetNode(c)->Children();
        for (int i = 0; i < children.GetSize(); ++i) members.push_back(children[i]);
        for (int f : members) {
            const VEK_nodeDef* def = net.GetDef(f);
            if (def->GetType() != kTypeCpt || !def->GetMatrix()) return;
            Factor factor;
            factor.table = def->GetMatrix()->Items();
            const VEK_intArray& parents = net.GetNode(f)->Parents();
            for (int i = 0; i <= parents.GetSize(); ++i) {
                const int member = i < parents.GetSize() ? parents[i] : f;
                const int stride = i < parents.GetSize() ? def->GetMatrix()->GetProducts()[i] : 1;
                if (member == c) {
                    factor.classStride = stride;
                } else if (column[static_cast<size_t>(member)] < 0) {
                    return;
                } else {
                    factor.observed.emplace_back(static_cast<size_t>(column[static_cast<size_t>(member)]), stride);
                }
            }
            factors.push_back(std::move(factor));
        }
        usable = true;
    }

    // False when a blanket cell of the record is missing.
    bool Posterior(const int* values, size_t n, size_t r, int outcomes, double* row) const {
        std::fill(row, row + outcomes, 1.0);
        for (const Factor& f : factors) {
            size_t base = 0;
            for (const auto& [k, stride] : f.observed) {
                const int v = values[k * n + r];
                if (v < 0) return false;
                base += static_cast<size_t>(v) * static_cast<size_t>(stride);
            }
            for (int x = 0; x < outcomes; ++x) row[x] *= f.table[base + static_cast<size_t>(x * f.classStride)];
        }
        double sum = 0.0;
        for (int x = 0; x < outcomes; ++x) sum += row[x];
        for (int x = 0; x < outcomes; ++x) row[x] = sum > 0.0 ? row[x] / sum : 1.0 / outcomes;
        return true;
    }
};

}  // namespace

// Records whose class nodes have observed blankets skip belief updating;
// for the others, evidence changes only where a cell differs from the last
// record updated.
int VEK_validator::Predict(VEK_network& work, const std::vector<int>& records) {
    const size_t n = static_cast<size_t>(data_.GetNumberOfRecords());
    (void)work.SetUpdateImmediate(false);  // turning immediate updating off cannot fail
    work.ClearAllEvidence();
    work.ClearAllTargets();
    std::vector<bool> isClass(matching_.size(), false);
    for (int c : classNodes_) {
        (void)work.SetTarget(c, true);  // targets were cleared above
        for (size_t k = 0; k < matching_.size(); ++k) isClass[k] = isClass[k] || matching_[k].node == c;
    }
    std::vector<int> column(static_cast<size_t>(work.GetSlotCount()), -1);
    for (size_t k = 0; k < matching_.size(); ++k) {
        if (!isClass[k]) column[static_cast<size_t>(matching_[k].node)] = static_cast<int>(k);
    }
    std::vector<BlanketPlan> plans(results_.size());
    for (size_t i = 0; i < results_.size(); ++i) plans[i].Build(work, results_[i].node, column);

    std::vector<int> current(matching_.size(), -1);
    for (int r : records) {
        bool direct = true;
        for (size_t i = 0; i < results_.size() && direct; ++i) {
            Result& result = results_[i];
            double* row = result.posteriors.data() + static_cast<size_t>(r) * static_cast<size_t>(result.outcomes);
            direct =
                plans[i].usable && plans[i].Posterior(values_.data(), n, static_cast<size_t>(r), result.outcomes, row);
        }
        if (direct) continue;
        for (size_t k = 0; k < matching_.size(); ++k) {
            const int v = values_[k * n + static_cast<size_t>(r)];
            if (isClass[k] || v == current[k]) continue;
            VEK_nodeVal* val = work.GetVal(matching_[k].node);
            const int res = v < 0 ? val->ClearEvidence() : val->SetEvidence(v);
            if (res != VEK_OKAY) {
                return net_.Logger().LogError(res, ("Validator: evidence can't be set on node '" +
                                                    std::string(work.GetNodeId(matching_[k].node)) + "'")
                                                       .c_str());
            }
            current[k] = v;
        }
        const int res = work.UpdateBeliefs();
        if (res != VEK_OKAY && res != VEK_IMPOSSIBLE_EVIDENCE) {
            return net_.Logger().LogError(
                res, ("Validator: belief updating failed for record " + std::to_string(r)).c_str());
        }
        for (Result& result : results_) {
            double* row = result.posteriors.data() + static_cast<size_t>(r) * static_cast<size_t>(result.outcomes);
            const VEK_nodeVal* val = work.GetVal(result.node);
            if (res == VEK_OKAY && val->IsValueValid() && val->GetMatrix()) {
                std::copy(val->GetMatrix()->Items(), val->GetMatrix()->Items() + result.outcomes, row);
            } else {
                std::fill(row, row + result.outcomes, 1.0 / result.outcomes);
            }
        }
    }
    return VEK_OKAY;
}

int VEK_validator::Test() {
    try {
        int res = Prepare();
        if (res != VEK_OKAY) return res;
        VEK_network work(net_);
        work.Logger().Redirect(nullptr);
        std::vector<int> records(static_cast<size_t>(data_.GetNumberOfRecords()));
        std::iota(records.begin(), records.end(), 0);
        res = Predict(work, records);
        hasResults_ = res == VEK_OKAY;
        return res;
    } catch (const std::bad_alloc&) {
        return net_.Logger().LogError(VEK_OUT_OF_MEMORY, "Validator: out of memory");
    }
}

int VEK_validator::KFold(int folds, int seed) {
    const int n = data_.GetNumberOfRecords();
    if (folds < 2 || folds > n) {
        const std::string message = "Validator: the fold count must be between 2 and the record count (" +
                                    std::to_string(n) + "), got " + std::to_string(folds);
        return net_.Logger().LogError(VEK_OUT_OF_RANGE, message.c_str());
    }
    std::vector<int> order(static_cast<size_t>(n));
    std::iota(order.begin(), order.end(), 0);
    VEK_randGen gen(static_cast<unsigned>(seed));
    gen.Shuffle(order.data(), n);
    std::vector<int> fold(static_cast<size_t>(n));
    for (int i = 0; i < n; ++i) fold[static_cast<size_t>(order[static_cast<size_t>(i)])] = i % folds;
    return CrossValidate(fold, folds);
}

int VEK_validator::LeaveOneOut() {
    const int n = data_.GetNumberOfRecords();
    if (n < 2) {
        return net_.Logger().LogError(VEK_OUT_OF_RANGE, "Validator: leave-one-out needs at least 2 records");
    }
    try {
        int res = Prepare();
        if (res != VEK_OKAY) return res;
        res = CanCountFolds() ? LeaveOneOutByCounts() : LeaveOneOutByGroups();
        if (res != VEK_OKAY) return res;
        folds_.resize(static_cast<size_t>(n));
        std::iota(folds_.begin(), folds_.end(), 0);
        hasResults_ = true;
        return VEK_OKAY;
    } catch (const std::bad_alloc&) {
        return net_.Logger().LogError(VEK_OUT_OF_MEMORY, "Validator: out of memory");
    }
}

int VEK_validator::CrossValidate(const std::vector<int>& fold, int folds) {
    try {
        int res = Prepare();
        if (res != VEK_OKAY) return res;
        const size_t n = fold.size();
        std::vector<char> train(n);
        std::vector<int> test;
        for (int f = 0; f < folds; ++f) {
            test.clear();
            for (size_t r = 0; r < n; ++r) {
                train[r] = fold[r] != f;
                if (!train[r]) test.push_back(static_cast<int>(r));
            }
            res = LearnAndPredict(train, test);
            if (res != VEK_OKAY) return res;
        }
        folds_ = fold;
        hasResults_ = true;
        return VEK_OKAY;
    } catch (const std::bad_alloc&) {
        return net_.Logger().LogError(VEK_OUT_OF_MEMORY, "Validator: out of memory");
    }
}

// The training records become a dataset of the matched columns alone,
// holding outcome indices, which EM reads as they are; the network's own
// tables weigh as one record of prior.
int VEK_validator::LearnAndPredict(const std::vector<char>& train, const std::vector<int>& test) {
    const size_t n = train.size();
    std::vector<VEK_datasetMatch> trainMatching;
    VEK_dataset data;
    std::vector<VEK_dataset::Variable>& vars = data.Variables();
    vars.resize(matching_.size());
    for (size_t k = 0; k < matching_.size(); ++k) {
        trainMatching.push_back({matching_[k].node, 0, static_cast<int>(k)});
        vars[k].id = data_.GetId(matching_[k].column);
        const int* column = values_.data() + k * n;
        for (size_t r = 0; r < n; ++r) {
            if (train[r]) vars[k].intData.push_back(column[r]);
        }
    }
    data.SetRecordCount(static_cast<int>(vars.empty() ? 0 : vars[0].intData.size()));
    VEK_em em;
    (void)em.SetEquivalentSampleSize(1.0f);  // a fresh run has no start setting to refuse it
    VEK_network work(net_);
    work.Logger().RedirectToLogger(&net_.Logger());
    int res = em.Learn(data, work, trainMatching);
    work.Logger().Redirect(nullptr);
    if (res == VEK_OKAY) res = Predict(work, test);
    return res;
}

// The cases where EM on the training records only counts them: no missing
// cell, every node a matched table whose outcomes fit the counting core.
bool VEK_validator::CanCountFolds() const {
    if (static_cast<int>(matching_.size()) != net_.GetNumberOfNodes()) return false;
    for (int h = net_.GetFirstNode(); h >= 0; h = net_.GetNextNode(h)) {
        const VEK_nodeDef* def = net_.GetDef(h);
        if (def->GetType() != kTypeCpt || def->GetNumberOfOutcomes() > VEK_familyCounts::kMaxStates ||
            net_.GetNode(h)->GetTemporalType() != 0) {
            return false;
        }
    }
    return std::find(values_.begin(), values_.end(), -1) == values_.end();
}

// A record adds one to one cell of every table, so a fold's tables differ
// from those of all the data in one column per node: that column is made
// again from the counts less the record, the record predicted, and the
// column put back. Each column is maximized as EM maximizes a whole table,
// so the results are EM's to the last bit.
int VEK_validator::LeaveOneOutByCounts() {
    const size_t n = static_cast<size_t>(data_.GetNumberOfRecords());
    const size_t m = matching_.size();
    std::vector<int> column(static_cast<size_t>(net_.GetSlotCount()), -1);
    std::vector<const int*> columns;
    std::vector<int> cards;
    for (size_t k = 0; k < m; ++k) {
        column[static_cast<size_t>(matching_[k].node)] = static_cast<int>(k);
        columns.push_back(values_.data() + k * n);
        cards.push_back(net_.GetDef(matching_[k].node)->GetNumberOfOutcomes());
    }
    VEK_familyCounts core;
    if (core.InitColumns(columns, static_cast<int>(n), cards) != VEK_OKAY) {
        return net_.Logger().LogError(VEK_OUT_OF_MEMORY, "Validator: out of memory");
    }
    struct Family {
        VEK_nodeDef* def;
        std::vector<std::pair<const int*, int>> parents;  // (column, stride in the table)
        const int* own;
        int states;
        std::vector<int> counts;
        std::vector<double> prior, full;
    };
    VEK_network work(net_);
    work.Logger().Redirect(nullptr);
    std::vector<Family> families;
    std::vector<int> parents;
    for (int h = work.GetFirstNode(); h >= 0; h = work.GetNextNode(h)) {
        Family f;
        f.def = work.GetDef(h);
        const VEK_Dmatrix& table = f.def->GetDefinition();
        const VEK_intArray& pa = work.GetNode(h)->Parents();
        parents.clear();
        for (int i = 0; i < pa.GetSize(); ++i) {
            const int k = column[static_cast<size_t>(pa[i])];
            parents.push_back(k);
            f.parents.emplace_back(columns[static_cast<size_t>(k)], table.GetProducts()[i]);
        }
        f.own = columns[static_cast<size_t>(column[static_cast<size_t>(h)])];
        f.states = table.GetLastDimensionSize();
        core.Count(column[static_cast<size_t>(h)], parents.data(), static_cast<int>(parents.size()), f.counts);
        f.prior.assign(table.Items(), table.Items() + table.GetSize());
        f.full.assign(f.counts.begin(), f.counts.end());
        VEK_emMaximize(f.full.data(), f.prior.data(), table.GetSize(), f.states, 1.0);
        f.def->GetWriteableParameters().FillFrom(f.full.data());
        families.push_back(std::move(f));
    }
    std::vector<double> cells;
    for (size_t r = 0; r < n; ++r) {
        for (int pass = 0; pass < 2; ++pass) {  // the fold's columns, then the full data's again
            for (Family& f : families) {
                size_t at = 0;
                for (const auto& [col, stride] : f.parents) at += static_cast<size_t>(col[r]) * stride;
                double* out = f.def->GetWriteableParameters().Items() + at;
                if (pass == 0) {
                    cells.assign(f.counts.begin() + static_cast<std::ptrdiff_t>(at),
                                 f.counts.begin() + static_cast<std::ptrdiff_t>(at) + f.states);
                    cells[static_cast<size_t>(f.own[r])] -= 1.0;
                    VEK_emMaximize(cells.data(), f.prior.data() + at, f.states, f.states, 1.0);
                    std::copy(cells.begin(), cells.end(), out);
                } else {
                    std::copy(f.full.begin() + static_cast<std::ptrdiff_t>(at),
                              f.full.begin() + static_cast<std::ptrdiff_t>(at) + f.states, out);
                }
                f.def->OnParametersChanged();
                f.def->TellNetworkOfChange();
            }
            if (pass == 0) {
                const int res = Predict(work, {static_cast<int>(r)});
                if (res != VEK_OKAY) return res;
            }
        }
    }
    return VEK_OKAY;
}

// Copies of a record leave the same training data, so EM runs once per
// distinct record, without its first copy, and predicts every copy.
int VEK_validator::LeaveOneOutByGroups() {
    const size_t n = static_cast<size_t>(data_.GetNumberOfRecords());
    const size_t m = matching_.size();
    std::vector<int> order(n);
    std::iota(order.begin(), order.end(), 0);
    auto less = [&](int a, int b) {
        for (size_t k = 0; k < m; ++k) {
            const int x = values_[k * n + static_cast<size_t>(a)], y = values_[k * n + static_cast<size_t>(b)];
            if (x != y) return x < y;
        }
        return false;
    };
    std::stable_sort(order.begin(), order.end(), less);
    std::vector<char> train(n, 1);
    std::vector<int> copies;
    for (size_t i = 0; i < n;) {
        copies.clear();
        for (size_t j = i; j < n && !less(order[i], order[j]); ++j) copies.push_back(order[j]);
        i += copies.size();
        train[static_cast<size_t>(copies[0])] = 0;
        const int res = LearnAndPredict(train, copies);
        train[static_cast<size_t>(copies[0])] = 1;
        if (res != VEK_OKAY) return res;
    }
    return VEK_OKAY;
}

const VEK_validator::Result* VEK_validator::Find(int node) const {
    if (!hasResults_) return nullptr;
    for (const Result& r : results_) {
        if (r.node == node) return &r;
    }
    return nullptr;
}

int VEK_validator::GetOutcomeCount(int node) const {
    const Result* r = Find(node);
    return r ? r->outcomes : VEK_NO_ITEM;
}

const std::vector<double>* VEK_validator::GetPosteriors(int node) const {
    const Result* r = Find(node);
    return r ? &r->posteriors : nullptr;
}

const std::vector<int>* VEK_validator::GetTrueOutcomes(int node) const {
    const Result* r = Find(node);
    return r ? &r->truth : nullptr;
}

namespace {

int Predicted(const double* row, int outcomes) { return static_cast<int>(std::max_element(row, row + outcomes) - row); }

}  // namespace

int VEK_validator::GetAccuracy(int node, double& accuracy) const {
    const Result* r = Find(node);
    if (!r) return VEK_NO_ITEM;
    size_t known = 0, correct = 0;
    for (size_t i = 0; i < r->truth.size(); ++i) {
        if (r->truth[i] < 0) continue;
        ++known;
        if (Predicted(r->posteriors.data() + i * static_cast<size_t>(r->outcomes), r->outcomes) == r->truth[i]) {
            ++correct;
        }
    }
    accuracy = known ? static_cast<double>(correct) / static_cast<double>(known) : std::nan("");
    return VEK_OKAY;
}

int VEK_validator::GetConfusionMatrix(int node, std::vector<int>& counts) const {
    const Result* r = Find(node);
    if (!r) return VEK_NO_ITEM;
    const size_t m = static_cast<size_t>(r->outcomes);
    counts.assign(m * m, 0);
    for (size_t i = 0; i < r->truth.size(); ++i) {
        if (r->truth[i] < 0) continue;
        const int p = Predicted(r->posteriors.data() + i * m, r->outcomes);
        ++counts[static_cast<size_t>(r->truth[i]) * m + static_cast<size_t>(p)];
    }
    return VEK_OKAY;
}

int VEK_validator::GetLogLoss(int node, double& logLoss) const {
    const Result* r = Find(node);
    if (!r) return VEK_NO_ITEM;
    double sum = 0.0;
    size_t known = 0;
    for (size_t i = 0; i < r->truth.size(); ++i) {
        if (r->truth[i] < 0) continue;
        ++known;
        sum -= std::log(r->posteriors[i * static_cast<size_t>(r->outcomes) + static_cast<size_t>(r->truth[i])]);
    }
    logLoss = known ? sum / static_cast<double>(known) : std::nan("");
    return VEK_OKAY;
}

// Records with a known class value by descending score of outcome.
int VEK_validator::Ranked(int node, int outcome, std::vector<std::pair<double, bool>>& ranked, int& positives) const {
    const Result* r = Find(node);
    if (!r) return VEK_NO_ITEM;
    if (outcome < 0 || outcome >= r->outcomes) return VEK_OUT_OF_RANGE;
    ranked.clear();
    positives = 0;
    for (size_t i = 0; i < r->truth.size(); ++i) {
        if (r->truth[i] < 0) continue;
        const bool positive = r->truth[i] == outcome;
        positives += positive ? 1 : 0;
        ranked.emplace_back(r->posteriors[i * static_cast<size_t>(r->outcomes) + static_cast<size_t>(outcome)],
                            positive);
    }
    std::sort(ranked.begin(), ranked.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
    return VEK_OKAY;
}

int VEK_validator::GetRocCurve(int node, int outcome, Curve& curve) const {
    std::vector<std::pair<double, bool>> ranked;
    int positives = 0;
    const int res = Ranked(node, outcome, ranked, positives);
    if (res != VEK_OKAY) return res;
    const double p = positives, q = static_cast<double>(ranked.size()) - positives;
    if (p == 0.0 || q == 0.0) return VEK_OUT_OF_RANGE;
    curve.points.assign({0.0, 0.0});
    curve.auc = 0.0;
    double tp = 0.0, fp = 0.0;
    for (size_t i = 0; i < ranked.size();) {
        const double score = ranked[i].first;
        for (; i < ranked.size() && ranked[i].first == score; ++i) (ranked[i].second ? tp : fp) += 1.0;
        const double x0 = curve.points[curve.points.size() - 2], y0 = curve.points.back();
        const double x = fp / q, y = tp / p;
        curve.auc += (x - x0) * (y + y0) / 2.0;
        curve.points.push_back(x);
        curve.points.push_back(y);
    }
    return VEK_OKAY;
}

int VEK_validator::GetPrCurve(int node, int outcome, Curve& curve) const {
    std::vector<std::pair<double, bool>> ranked;
    int positives = 0;
    const int res = Ranked(node, outcome, ranked, positives);
    if (res != VEK_OKAY) return res;
    if (positives == 0) return VEK_OUT_OF_RANGE;
    curve.points.assign({0.0, 1.0});
    curve.auc = 0.0;
    double tp = 0.0, all = 0.0;
    for (size_t i = 0; i < ranked.size();) {
        const double score = ranked[i].first;
        for (; i < ranked.size() && ranked[i].first == score; ++i) {
            tp += ranked[i].second ? 1.0 : 0.0;
            all += 1.0;
        }
        const double recall = tp / positives, precision = tp / all;
        curve.auc += (recall - curve.points[curve.points.size() - 2]) * precision;
        curve.points.push_back(recall);
        curve.points.push_back(precision);
    }
    return VEK_OKAY;
}
