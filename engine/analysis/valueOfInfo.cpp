#include "analysis/valueOfInfo.h"

#include <algorithm>
#include <cmath>

#include "analysis/analysisTree.h"
#include "network/network.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"
#include "network/status.h"

namespace {

constexpr double kMaxConfigurations = 1048576.0;

bool HasTable(const VEK_network& net, int h) {
    const int t = net.GetDef(h)->GetType();
    return t != VEK_LIST && t != VEK_TABLE && t != VEK_MAU && t != VEK_EQUATION;
}

int States(const VEK_network& net, int h) { return net.GetDef(h)->GetNumberOfOutcomes(); }

// Advances the counter over the nodes' outcomes; false after the last.
bool Next(const VEK_network& net, const std::vector<int>& nodes, std::vector<int>& x) {
    for (size_t d = nodes.size(); d-- > 0;) {
        if (++x[d] < States(net, nodes[d])) return true;
        x[d] = 0;
    }
    return false;
}

}  // namespace

int VEK_valueOfInfo::SetDecision(int h) {
    if (!net_->IsValidNode(h)) return net_->Logger().VLogError(VEK_OUT_OF_RANGE, "Invalid node handle %d", h);
    if (net_->GetDef(h)->GetType() != VEK_LIST)
        return net_->Logger().VLogError(VEK_WRONG_NODE_TYPE, "Node [%s] is not a decision node", net_->GetNodeId(h));
    decision_ = h;
    target_ = -1;
    return VEK_OKAY;
}

int VEK_valueOfInfo::SetTarget(int h) {
    if (!net_->IsValidNode(h)) return net_->Logger().VLogError(VEK_OUT_OF_RANGE, "Invalid node handle %d", h);
    if (!HasTable(*net_, h))
        return net_->Logger().VLogError(VEK_WRONG_NODE_TYPE, "Node [%s] is not a chance node", net_->GetNodeId(h));
    target_ = h;
    decision_ = -1;
    return VEK_OKAY;
}

int VEK_valueOfInfo::AddNode(int h) {
    if (!net_->IsValidNode(h)) return net_->Logger().VLogError(VEK_OUT_OF_RANGE, "Invalid node handle %d", h);
    if (!HasTable(*net_, h))
        return net_->Logger().VLogError(VEK_WRONG_NODE_TYPE, "Node [%s] is not a chance node", net_->GetNodeId(h));
    if (std::find(nodes_.begin(), nodes_.end(), h) != nodes_.end())
        return net_->Logger().VLogError(VEK_OUT_OF_RANGE, "Node [%s] is already a candidate", net_->GetNodeId(h));
    nodes_.push_back(h);
    return VEK_OKAY;
}

int VEK_valueOfInfo::CheckNodes() {
    VEK_logger& log = net_->Logger();
    if (decision_ < 0 && target_ < 0) return log.LogError(VEK_OUT_OF_RANGE, "Neither a decision nor a target is set");
    const int focus = decision_ >= 0 ? decision_ : target_;
    if (!net_->IsValidNode(focus)) return log.LogError(VEK_OUT_OF_RANGE, "The decision or target node has been deleted");
    if (nodes_.empty()) return log.LogError(VEK_OUT_OF_RANGE, "No candidate observations have been added");
    VEK_intArray below;
    if (decision_ >= 0) (void)net_->GetDescendants(decision_, below);  // the decision was checked above
    double configs = 1.0;
    for (int h : nodes_) {
        if (!net_->IsValidNode(h) || !HasTable(*net_, h))
            return log.VLogError(VEK_OUT_OF_RANGE, "Candidate node %d has been deleted or changed type", h);
        if (h == target_) return log.VLogError(VEK_OUT_OF_RANGE, "Node [%s] is the target", net_->GetNodeId(h));
        if (below.FindPosition(h) >= 0)
            return log.VLogError(VEK_OUT_OF_RANGE, "Node [%s] cannot be observed before the decision it depends on",
                                 net_->GetNodeId(h));
        configs *= States(*net_, h);
    }
    if (target_ >= 0) configs *= States(*net_, target_);
    if (configs > kMaxConfigurations)
        return log.LogError(VEK_OUT_OF_RANGE, "The candidates have too many joint configurations");
    if (decision_ >= 0 && net_->GetVal(decision_)->HasHardEvidence())
        return log.VLogError(VEK_OUT_OF_RANGE, "Decision [%s] has already been made", net_->GetNodeId(decision_));
    return VEK_OKAY;
}

int VEK_valueOfInfo::Update() {
    values_.clear();
    joint_ = 0.0;
    int res = CheckNodes();
    if (res != VEK_OKAY) return res;
    std::vector<double> values;
    for (int h : nodes_) {
        double v = 0.0;
        res = target_ >= 0 ? MutualInformation({h}, v) : PerfectInformation({h}, v);
        if (res != VEK_OKAY) return res;
        values.push_back(v);
    }
    double joint = 0.0;
    res = target_ >= 0 ? MutualInformation(nodes_, joint) : PerfectInformation(nodes_, joint);
    if (res != VEK_OKAY) return res;
    values_ = std::move(values);
    joint_ = joint;
    return VEK_OKAY;
}

int VEK_valueOfInfo::MutualInformation(const std::vector<int>& nodes, double& out) {
    VEK_analysisTree tree;
    int res = tree.Build(*net_);
    if (res != VEK_OKAY) return res;
    const int kt = States(*net_, target_);
    // p[config][t] = P(nodes = config, target = t, evidence).
    std::vector<std::vector<double>> p;
    std::vector<int> x(nodes.size(), 0);
    do {
        for (size_t j = 0; j < nodes.size(); ++j) tree.Restrict(nodes[j], x[j]);
        std::vector<double>& row = p.emplace_back(static_cast<size_t>(kt), 0.0);
        for (int t = 0; t < kt; ++t) {
            tree.Restrict(target_, t);
            row[static_cast<size_t>(t)] = tree.ProbEvidence();
            if (row[static_cast<size_t>(t)] < 0.0) return VEK_OUT_OF_MEMORY;
        }
        tree.Restrict(target_, -1);
    } while (Next(*net_, nodes, x));
    double pe = 0.0;
    std::vector<double> pt(static_cast<size_t>(kt), 0.0);
    for (const auto& row : p)
        for (int t = 0; t < kt; ++t) {
            pe += row[static_cast<size_t>(t)];
            pt[static_cast<size_t>(t)] += row[static_cast<size_t>(t)];
        }
    if (!(pe > 0.0)) return VEK_reportZeroPotential(*net_, target_);
    double mi = 0.0;
    for (const auto& row : p) {
        double px = 0.0;
        for (double v : row) px += v;
        for (int t = 0; t < kt; ++t) {
            const double j = row[static_cast<size_t>(t)];
            if (j > 0.0) mi += j / pe * std::log2(j * pe / (px * pt[static_cast<size_t>(t)]));
        }
    }
    out = std::max(mi, 0.0);
    return VEK_OKAY;
}

int VEK_valueOfInfo::PerfectInformation(const std::vector<int>& nodes, double& out) {
    // The network's own solution on a copy, once as it stands and once for
    // every configuration of the candidates entered as evidence. Each
    // configuration's probability comes from the chain rule: the beliefs of
    // the next candidate under the evidence of the earlier ones.
    VEK_network work(*net_);
    (void)work.SetUpdateImmediate(false);  // turning immediate updating off cannot fail
    const int kd = States(work, decision_);
    auto best = [&](double& meu) {
        const VEK_Dmatrix* v = work.GetVal(decision_)->GetMatrix();
        if (!v || v->GetSize() != kd)
            return work.Logger().VLogError(VEK_WRONG_NODE_TYPE,
                                           "Decision [%s] depends on nodes that are not observed",
                                           work.GetNodeId(decision_));
        meu = *std::max_element(v->Items(), v->Items() + kd);
        return VEK_OKAY;
    };
    int res = work.UpdateBeliefs();
    double meu0 = 0.0;
    if (res == VEK_OKAY) res = best(meu0);
    if (res != VEK_OKAY) {
        for (int i = 0; i < work.Logger().GetErrorCount(); ++i)
            net_->Logger().LogError(work.Logger().GetError(i), work.Logger().GetErrorMessage(i));
        return res;
    }
    double expected = 0.0;
    // Depth-first over the candidates' outcomes with the probability so far.
    auto visit = [&](auto&& self, size_t depth, double p) -> int {
        if (depth == nodes.size()) {
            double meu = 0.0;
            const int r = best(meu);
            if (r != VEK_OKAY) return r;
            expected += p * meu;
            return VEK_OKAY;
        }
        const int h = nodes[depth];
        const VEK_Dmatrix* b = work.GetVal(h)->GetMatrix();
        if (!work.GetVal(h)->IsValueValid() || !b) return VEK_GENERAL_ERROR;
        const std::vector<double> belief(b->Items(), b->Items() + b->GetSize());
        for (int s = 0; s < static_cast<int>(belief.size()); ++s) {
            if (!(belief[static_cast<size_t>(s)] > 0.0)) continue;
            if (work.GetVal(h)->SetEvidence(s) != VEK_OKAY) continue;
            int r = work.UpdateBeliefs();
            if (r == VEK_OKAY) r = self(self, depth + 1, p * belief[static_cast<size_t>(s)]);
            (void)work.GetVal(h)->ClearEvidence();  // the evidence just set: clearing it cannot fail
            if (r == VEK_IMPOSSIBLE_EVIDENCE) continue;
            if (r != VEK_OKAY) return r;
            r = work.UpdateBeliefs();
            if (r != VEK_OKAY) return r;
        }
        return VEK_OKAY;
    };
    res = visit(visit, 0, 1.0);
    if (res != VEK_OKAY) return res;
    out = std::max(expected - meu0, 0.0);
    return VEK_OKAY;
}
