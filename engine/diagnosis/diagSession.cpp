#include "diagnosis/diagSession.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <vector>

#include "network/discDef.h"
#include "network/network.h"
#include "network/networkState.h"
#include "network/node.h"
#include "network/nodeVal.h"
#include "network/status.h"

// Borrows the caller's network for one operation: the caller's evidence,
// targets, algorithm and update mode are recorded and put back on
// destruction, and beliefs that were valid are computed again.
class VEK_diagSession::Lease {
public:
    explicit Lease(VEK_network& net)
        : net_(net),
          state_(net, VEK_STATE_VIRTUAL),
          algorithm_(net.GetDefaultBNAlgorithm()),
          immediate_(net.IsUpdateImmediate()) {
        VEK_intArray handles;
        net.GetAllNodes(handles);
        for (int h : handles) {
            if (net.IsTarget(h)) targets_.push_back(h);
            if (net.GetVal(h)->IsValueValid()) valid_.push_back(h);
        }
        if (immediate_) (void)net.SetUpdateImmediate(false);  // turning immediate updating off cannot fail
        if (!targets_.empty()) net.ClearAllTargets();
        // Every measure is defined on exact posteriors.
        net.SetDefaultBNAlgorithm(0);
        net.ClearAllEvidence();
    }

    ~Lease() {
        net_.ClearAllEvidence();
        for (int h : targets_) (void)net_.SetTarget(h, true);  // restoring targets the network had
        net_.SetDefaultBNAlgorithm(algorithm_);
        (void)state_.RestoreEvidence();  // restoring evidence the network had accepted
        if (immediate_) {
            (void)net_.SetUpdateImmediate(true);  // a failed update is logged and leaves the beliefs invalid
            return;
        }
        for (int h : valid_) {
            const VEK_nodeVal* v = net_.GetVal(h);
            if (v && !v->IsValueValid()) {
                (void)net_.UpdateBeliefs();  // a failed update is logged and leaves the beliefs invalid
                break;
            }
        }
    }

    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

private:
    VEK_network& net_;
    VEK_networkState state_;
    int algorithm_;
    bool immediate_;
    std::vector<int> targets_;
    std::vector<int> valid_;
};

namespace {

const VEK_discDef* DiscDef(const VEK_network& net, int node) {
    return dynamic_cast<const VEK_discDef*>(net.GetDef(node));
}

int OutcomeCount(const VEK_network& net, int node) {
    const VEK_nodeDef* def = net.GetDef(node);
    return def ? std::max(0, def->GetNumberOfOutcomes()) : 0;
}

const char* OutcomeId(const VEK_network& net, int node, int outcome) {
    const VEK_idArray* ids = net.GetDef(node)->GetOutcomeIds();
    return ids && ids->IsValidIndex(outcome) ? (*ids)[outcome] : "";
}

// The node's beliefs after an update, or null when they were not computed.
const VEK_Dmatrix* Beliefs(const VEK_network& net, int node) {
    const VEK_nodeVal* v = net.GetVal(node);
    if (!v || !v->IsValueValid()) return nullptr;
    const VEK_Dmatrix* m = v->GetMatrix();
    return m && m->GetSize() == OutcomeCount(net, node) ? m : nullptr;
}

}  // namespace

int VEK_diagSession::Open() {
    VEK_network& net = *net_;
    faults_.clear();
    observations_.clear();
    evidence_.clear();
    pursued_.clear();
    anyRanked_ = false;
    VEK_intArray handles;
    net.GetAllNodes(handles);
    for (int h : handles) {
        const VEK_node* node = net.GetNode(h);
        if (node->GetDiagType() == VEK_DIAG_FAULT) {
            const VEK_discDef* def = DiscDef(net, h);
            const int n = OutcomeCount(net, h);
            for (int o = 0; def && o < n; ++o) {
                if (!def->IsFaultOutcome(o)) continue;
                VEK_diagFault f;
                f.index = static_cast<int>(faults_.size());
                f.node = h;
                f.outcome = o;
                faults_.push_back(f);
            }
        } else if (node->GetDiagType() == VEK_DIAG_OBSERVATION && OutcomeCount(net, h) > 0) {
            observations_.push_back(h);
            anyRanked_ = anyRanked_ || node->IsRanked();
        }
    }
    if (faults_.empty()) {
        observations_.clear();
        return net.Logger().LogError(VEK_NO_ITEM,
                                     "The network has no faults: no fault node has an outcome marked as a fault");
    }
    if (observations_.empty()) {
        faults_.clear();
        return net.Logger().LogError(VEK_NO_ITEM, "The network has no observation nodes");
    }
    return VEK_OKAY;
}

// The network may have been edited since the session was opened; what the
// session refers to must still be there.
int VEK_diagSession::CheckNetwork() const {
    const VEK_network& net = *net_;
    bool ok = !faults_.empty();
    for (const VEK_diagFault& f : faults_) {
        ok = ok && net.IsValidNode(f.node) && net.GetNode(f.node)->GetDiagType() == VEK_DIAG_FAULT &&
             f.outcome < OutcomeCount(net, f.node);
    }
    for (int h : observations_) {
        ok = ok && net.IsValidNode(h) && net.GetNode(h)->GetDiagType() == VEK_DIAG_OBSERVATION;
    }
    for (const Evidence& e : evidence_) ok = ok && e.outcome < OutcomeCount(net, e.node);
    if (ok) return VEK_OKAY;
    return net_->Logger().LogError(VEK_GENERAL_ERROR,
                                   faults_.empty() ? "The diagnosis session has no faults and observations"
                                                   : "The network has changed since the diagnosis session was opened");
}

int VEK_diagSession::GetObservation(int node) const {
    for (const Evidence& e : evidence_)
        if (e.node == node) return e.outcome;
    return -1;
}

// When some observation nodes are flagged as ranked, only those are offered
// as tests; the others are observations that are entered, not proposed.
bool VEK_diagSession::IsRankedTest(int node) const { return !anyRanked_ || net_->GetNode(node)->IsRanked(); }

void VEK_diagSession::GetUnperformedTests(std::vector<int>& out) const {
    out.clear();
    for (int h : observations_)
        if (net_->IsValidNode(h) && IsRankedTest(h) && GetObservation(h) < 0) out.push_back(h);
}

// Enters the session's observations and updates; only under a lease.
int VEK_diagSession::Propagate(Lease&) {
    VEK_network& net = *net_;
    for (const Evidence& e : evidence_) {
        const int res = net.GetVal(e.node)->SetEvidence(e.outcome);
        if (res < 0) return res;
    }
    const int res = net.UpdateBeliefs();
    if (res == VEK_IMPOSSIBLE_EVIDENCE) {
        return net.Logger().LogError(res, "The observations made in the session are impossible together");
    }
    return res;
}

int VEK_diagSession::GetFaultProbabilities(std::vector<double>& out) {
    int res = CheckNetwork();
    if (res < 0) return res;
    Lease lease(*net_);
    if ((res = Propagate(lease)) < 0) return res;
    std::vector<double> p;
    for (const VEK_diagFault& f : faults_) {
        const VEK_Dmatrix* b = Beliefs(*net_, f.node);
        if (!b) return net_->Logger().LogError(VEK_GENERAL_ERROR, "Fault beliefs were not computed");
        p.push_back((*b)[f.outcome]);
    }
    out.swap(p);
    return VEK_OKAY;
}

int VEK_diagSession::InstantiateObservation(int node, int outcome) {
    VEK_network& net = *net_;
    int res = CheckNetwork();
    if (res < 0) return res;
    if (!net.IsValidNode(node)) return net.Logger().VLogError(VEK_OUT_OF_RANGE, "Invalid node handle: %d", node);
    if (std::find(observations_.begin(), observations_.end(), node) == observations_.end()) {
        return net.Logger().VLogError(VEK_WRONG_NODE_TYPE, "Node '%s' is not an observation node", net.GetNodeId(node));
    }
    const int n = OutcomeCount(net, node);
    if (outcome < 0 || outcome >= n) {
        return net.Logger().VLogError(VEK_OUT_OF_RANGE,
                                      "Outcome %d of node '%s' is out of range, valid outcomes are 0..%d", outcome,
                                      net.GetNodeId(node), n - 1);
    }
    std::vector<Evidence> next;
    for (const Evidence& e : evidence_)
        if (e.node != node) next.push_back(e);
    next.push_back({node, outcome});
    {
        // Refused when impossible together with the other observations, so
        // that the session always stays able to rank.
        Lease lease(net);
        double p = 0.0;
        for (const Evidence& e : next) {
            if ((res = net.GetVal(e.node)->SetEvidence(e.outcome)) < 0) break;
        }
        if (res >= 0) res = net.ProbEvidence(p);
        if (res >= 0 && !(p > 0.0)) res = VEK_IMPOSSIBLE_EVIDENCE;
        if (res < 0) {
            return net.Logger().VLogError(res, "Outcome '%s' of node '%s' is impossible given the observations made",
                                          OutcomeId(net, node, outcome), net.GetNodeId(node));
        }
    }
    evidence_.swap(next);
    return VEK_OKAY;
}

int VEK_diagSession::ReleaseObservation(int node) {
    VEK_network& net = *net_;
    const auto it =
        std::find_if(evidence_.begin(), evidence_.end(), [node](const Evidence& e) { return e.node == node; });
    if (it == evidence_.end()) {
        if (!net.IsValidNode(node)) return net.Logger().VLogError(VEK_OUT_OF_RANGE, "Invalid node handle: %d", node);
        return net.Logger().VLogError(VEK_NO_ITEM, "Node '%s' has not been observed in this session",
                                      net.GetNodeId(node));
    }
    evidence_.erase(it);
    return VEK_OKAY;
}

int VEK_diagSession::SetPursuedFault(int index) { return SetPursuedFaults(std::vector<int>{index}); }

int VEK_diagSession::SetPursuedFaults(const std::vector<int>& indices) {
    VEK_logger& log = net_->Logger();
    if (indices.empty()) return log.LogError(VEK_INVALID_VALUE, "No fault to pursue was given");
    const int n = static_cast<int>(faults_.size());
    for (size_t i = 0; i < indices.size(); ++i) {
        if (indices[i] < 0 || indices[i] >= n) {
            return log.VLogError(VEK_OUT_OF_RANGE, "Fault index %d is out of range, valid indices are 0..%d",
                                 indices[i], n - 1);
        }
        if (std::find(indices.begin(), indices.begin() + static_cast<long>(i), indices[i]) !=
            indices.begin() + static_cast<long>(i)) {
            return log.VLogError(VEK_INVALID_VALUE, "Fault index %d is given twice", indices[i]);
        }
    }
    pursued_ = indices;
    return VEK_OKAY;
}

int VEK_diagSession::SetSingleFaultAlgorithm(int id) {
    if (!VEK_isSingleFaultAlgorithm(id)) {
        return net_->Logger().VLogError(VEK_OUT_OF_RANGE, "Unknown single-fault algorithm: %d", id);
    }
    single_ = id;
    return VEK_OKAY;
}

int VEK_diagSession::SetMultiFaultAlgorithm(int id) {
    if (!VEK_isMultiFaultAlgorithm(id)) {
        return net_->Logger().VLogError(VEK_OUT_OF_RANGE, "Unknown multi-fault algorithm: %d", id);
    }
    multi_ = id;
    return VEK_OKAY;
}

int VEK_diagSession::SetEntropyCostRatio(double weight, double maxCost) {
    if (!(weight >= 0.0 && std::isfinite(weight))) {
        return net_->Logger().LogError(VEK_INVALID_VALUE, "The cost weight must be a finite number, 0 or more");
    }
    if (!(maxCost > 0.0 && std::isfinite(maxCost))) {
        return net_->Logger().LogError(VEK_INVALID_VALUE, "The cost cap must be a finite number above 0");
    }
    costWeight_ = weight;
    maxCost_ = maxCost;
    return VEK_OKAY;
}

// The cost table holds one entry per combination of the cost parents'
// outcomes. A cost parent observed in the session takes its outcome; the
// others weigh the entries by their current beliefs, taken as independent.
// Entries that were never set count as 0.
double VEK_diagSession::ExpectedCost(int node) const {
    const VEK_network& net = *net_;
    const VEK_node* n = net.GetNode(node);
    const VEK_Dmatrix& table = n->GetCost();
    const VEK_intArray& parents = n->CostParents();
    const int k = parents.GetSize();
    std::vector<std::vector<double>> dist(static_cast<size_t>(k));
    for (int i = 0; i < k; ++i) {
        const int size = i < table.GetNumberOfDimensions() ? table.GetSizeOfDimension(i) : 1;
        std::vector<double>& d = dist[static_cast<size_t>(i)];
        const int seen = GetObservation(parents[i]);
        const VEK_Dmatrix* b = Beliefs(net, parents[i]);
        if (seen >= 0 && seen < size) {
            d.assign(static_cast<size_t>(size), 0.0);
            d[static_cast<size_t>(seen)] = 1.0;
        } else if (b && b->GetSize() == size) {
            d.assign(b->Items(), b->Items() + size);
        } else {
            d.assign(static_cast<size_t>(size), 1.0 / size);
        }
    }
    double cost = 0.0;
    std::vector<int> config(static_cast<size_t>(k), 0);
    for (int idx = 0; idx < table.GetSize(); ++idx) {
        double w = 1.0;
        for (int i = 0; i < k; ++i)
            w *= dist[static_cast<size_t>(i)][static_cast<size_t>(config[static_cast<size_t>(i)])];
        const double c = table[idx];
        if (c != VEK_NOT_AVAILABLE_VALUE && w != 0.0) cost += w * c;
        for (int i = k - 1; i >= 0; --i) {
            if (++config[static_cast<size_t>(i)] < static_cast<int>(dist[static_cast<size_t>(i)].size())) break;
            config[static_cast<size_t>(i)] = 0;
        }
    }
    return cost;
}

// Probability, jointly with the evidence now set, of an event on the pursued
// faults, by one propagation with likelihoods on the pursued fault nodes.
// term -1 is "none of them holds"; term j >= 0 is "the j-th pursued node is
// in a pursued outcome and no other is"; term -2 is "every pursued fault holds".
int VEK_diagSession::JointEventProbability(const std::vector<int>& pursued, int term, double& p) {
    VEK_network& net = *net_;
    std::map<int, std::vector<int>> byNode;
    for (int f : pursued)
        byNode[faults_[static_cast<size_t>(f)].node].push_back(faults_[static_cast<size_t>(f)].outcome);
    p = 0.0;
    if (term == -2) {
        for (const auto& [node, outcomes] : byNode)
            if (outcomes.size() > 1) return VEK_OKAY;  // two outcomes of one node never hold together
    }
    std::vector<int> set;
    double scale = 1.0;
    int res = VEK_OKAY;
    bool possible = true;
    int j = 0;
    for (const auto& [node, outcomes] : byNode) {
        const bool in = term == -2 || term == j;
        ++j;
        std::vector<double> lik(static_cast<size_t>(OutcomeCount(net, node)), in ? 0.0 : 1.0);
        for (int o : outcomes) lik[static_cast<size_t>(o)] = in ? 1.0 : 0.0;
        double given = 0.0;
        for (double v : lik) given += v;
        if (given == 0.0) {
            possible = false;  // every outcome of the node is excluded
            break;
        }
        if ((res = net.GetVal(node)->SetVirtualEvidence(lik)) < 0) break;
        set.push_back(node);
        // Likelihoods that do not sum to 1 are stored normalised.
        std::vector<double> stored;
        (void)net.GetVal(node)->GetVirtualEvidence(stored);  // just set: cannot fail
        double kept = 0.0;
        for (double v : stored) kept += v;
        scale *= given / kept;
    }
    if (res == VEK_OKAY && possible) {
        res = net.ProbEvidence(p);
        if (res == VEK_IMPOSSIBLE_EVIDENCE) {
            p = 0.0;
            res = VEK_OKAY;
        }
        p *= scale;
    }
    // Each node holds the likelihood set above: clearing it cannot fail.
    for (int node : set) (void)net.GetVal(node)->ClearVirtualEvidence();
    return res;
}

// Probability of the pursued faults' combined event (the event bits of the
// dependence algorithm) given the evidence now set, whose probability is pe.
int VEK_diagSession::DependentEvent(const std::vector<int>& pursued, double pe, double& q) {
    q = 0.0;
    if (!(pe > 0.0)) return VEK_OKAY;
    double p = 0.0;
    int res = VEK_OKAY;
    if (multi_ & VEK_DIAG_AT_LEAST_ONE) {
        res = JointEventProbability(pursued, -1, p);
        q = 1.0 - p / pe;
    } else if (multi_ & VEK_DIAG_ONLY_ALL) {
        res = JointEventProbability(pursued, -2, p);
        q = p / pe;
    } else {
        std::vector<int> nodes;
        for (int f : pursued) nodes.push_back(faults_[static_cast<size_t>(f)].node);
        std::sort(nodes.begin(), nodes.end());
        const int count = static_cast<int>(std::unique(nodes.begin(), nodes.end()) - nodes.begin());
        for (int j = 0; j < count && res == VEK_OKAY; ++j) {
            res = JointEventProbability(pursued, j, p);
            q += p / pe;
        }
    }
    q = std::min(1.0, std::max(0.0, q));
    return res;
}

// The pursued faults' outlook for one test: for each outcome of the test
// with a non-zero probability, one propagation with the outcome entered as
// a likelihood (which keeps the shape of the network, so every test reuses
// one compiled join tree).
int VEK_diagSession::FillOutlook(int test, const std::vector<double>& weights, const std::vector<int>& pursued,
                                 double pe, VEK_diagOutlook& outlook) {
    VEK_network& net = *net_;
    const int k = static_cast<int>(pursued.size());
    const bool dependence = k > 1 && VEK_isDependenceAlgorithm(multi_);
    outlook.weight.clear();
    outlook.after.clear();
    outlook.combinedAfter.clear();
    std::vector<double> lik(weights.size(), 0.0);
    VEK_nodeVal* val = net.GetVal(test);
    for (size_t o = 0; o < weights.size(); ++o) {
        if (!(weights[o] > 0.0)) continue;
        std::fill(lik.begin(), lik.end(), 0.0);
        lik[o] = 1.0;
        int res = val->SetVirtualEvidence(lik);
        if (res < 0) return res;
        double q = 0.0;
        if (dependence) {
            res = DependentEvent(pursued, pe * weights[o], q);
        } else {
            res = net.UpdateBeliefs();
            for (int i = 0; res == VEK_OKAY && i < k; ++i) {
                const VEK_diagFault& f = faults_[static_cast<size_t>(pursued[static_cast<size_t>(i)])];
                const VEK_Dmatrix* b = Beliefs(net, f.node);
                if (!b)
                    res = net.Logger().LogError(VEK_GENERAL_ERROR, "Fault beliefs were not computed");
                else
                    outlook.after.push_back((*b)[f.outcome]);
            }
            if (res == VEK_OKAY && k > 1)
                q = VEK_combineIndependent(multi_, outlook.after.data() + outlook.after.size() - k, k);
        }
        (void)val->ClearVirtualEvidence();  // the likelihood set above: clearing it cannot fail
        // An outcome whose tiny probability rounds away to impossible tells nothing.
        if (res == VEK_IMPOSSIBLE_EVIDENCE) continue;
        if (res < 0) return res;
        outlook.weight.push_back(weights[o]);
        outlook.combinedAfter.push_back(q);
    }
    return VEK_OKAY;
}

int VEK_diagSession::Update(VEK_diagResults& out) {
    VEK_network& net = *net_;
    int res = CheckNetwork();
    if (res < 0) return res;
    for (int h : observations_) {
        if (net.GetNode(h)->IsMandatory() && GetObservation(h) < 0) {
            return net.Logger().VLogError(VEK_INVALID_VALUE,
                                          "Mandatory observation '%s' must be made before the tests are ranked",
                                          net.GetNodeId(h));
        }
    }
    VEK_diagResults results;
    Lease lease(net);
    if ((res = Propagate(lease)) < 0) return res;
    double pe = 0.0;
    if ((res = net.ProbEvidence(pe)) < 0) return res;

    for (const VEK_diagFault& f : faults_) {
        const VEK_Dmatrix* b = Beliefs(net, f.node);
        if (!b) return net.Logger().LogError(VEK_GENERAL_ERROR, "Fault beliefs were not computed");
        VEK_diagFault r = f;
        r.probability = (*b)[f.outcome];
        results.faults.push_back(r);
    }
    std::vector<int> pursued = pursued_;
    if (pursued.empty()) {
        int best = 0;
        for (const VEK_diagFault& f : results.faults)
            if (f.probability > results.faults[static_cast<size_t>(best)].probability) best = f.index;
        pursued.push_back(best);
    }
    const int k = static_cast<int>(pursued.size());

    // What the ranking needs from the current beliefs, read before the
    // propagations for each outcome overwrite them.
    std::vector<int> tests;
    GetUnperformedTests(tests);
    std::vector<std::vector<double>> weights(tests.size());
    results.observations.resize(tests.size());
    for (size_t t = 0; t < tests.size(); ++t) {
        const VEK_Dmatrix* b = Beliefs(net, tests[t]);
        if (!b) return net.Logger().LogError(VEK_GENERAL_ERROR, "Test beliefs were not computed");
        weights[t].assign(b->Items(), b->Items() + b->GetSize());
        results.observations[t].node = tests[t];
        results.observations[t].cost = ExpectedCost(tests[t]);
    }

    VEK_diagOutlook outlook;
    outlook.Clear(k);
    for (int i = 0; i < k; ++i)
        outlook.now[static_cast<size_t>(i)] =
            results.faults[static_cast<size_t>(pursued[static_cast<size_t>(i)])].probability;
    if (k > 1 && VEK_isDependenceAlgorithm(multi_)) {
        if ((res = DependentEvent(pursued, pe, outlook.combinedNow)) < 0) return res;
    } else if (k > 1) {
        outlook.combinedNow = VEK_combineIndependent(multi_, outlook.now.data(), k);
    }
    for (size_t t = 0; t < tests.size(); ++t) {
        if ((res = FillOutlook(tests[t], weights[t], pursued, pe, outlook)) < 0) return res;
        VEK_diagObservation& r = results.observations[t];
        r.measure = VEK_diagMeasure(single_, multi_, outlook);
        r.score = r.measure - costWeight_ * std::min(r.cost, maxCost_) / maxCost_;
    }

    std::stable_sort(results.faults.begin(), results.faults.end(),
                     [](const VEK_diagFault& a, const VEK_diagFault& b) { return a.probability > b.probability; });
    std::stable_sort(results.observations.begin(), results.observations.end(),
                     [](const VEK_diagObservation& a, const VEK_diagObservation& b) { return a.score > b.score; });
    out.faults.swap(results.faults);
    out.observations.swap(results.observations);
    return VEK_OKAY;
}
