#include "inference/cooperSolver.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <exception>
#include <new>
#include <stdexcept>

#include "inference/caughtFailure.h"
#include "network/expectedUtility.h"
#include "network/mau.h"
#include "network/network.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"
#include "network/utility.h"

namespace {

// Enumerating more combinations than this is refused before any work.
constexpr int kMaxCombinations = 1 << 20;
// The per-combination results (weights, utilities and beliefs) may take at
// most this many bytes; the count alone does not bound them, as each
// combination keeps a value per node.
constexpr double kMaxCombinationBytes = double(int64_t(1) << 28);
// Options whose expected utilities differ by rounding only are ties, and the
// first of them is chosen, so that the policy does not depend on the order
// in which inference happened to add things up.
constexpr double kTieTolerance = 1e-9;

bool IsUtilityType(int t) { return t == VEK_TABLE || t == VEK_MAU; }

int TypeOf(const VEK_network& net, int h) {
    const VEK_nodeDef* d = net.GetDef(h);
    return d ? d->GetType() : -1;
}

// Position of every handle in the partial order, for sorting.
std::vector<int> OrderPositions(VEK_network& net) {
    std::vector<int> pos(static_cast<size_t>(net.GetSlotCount()), -1);
    const VEK_intArray& order = net.PartialOrdering();
    for (int i = 0; i < order.GetSize(); ++i) pos[static_cast<size_t>(order[i])] = i;
    return pos;
}

// Odometer coordinates (last variable fastest) of a combination.
void Coordinates(int combination, const std::vector<int>& sizes, VEK_intArray& coords) {
    (void)coords.SetSize(static_cast<int>(sizes.size()));  // a size
    for (int j = static_cast<int>(sizes.size()) - 1; j >= 0; --j) {
        coords[j] = combination % sizes[static_cast<size_t>(j)];
        combination /= sizes[static_cast<size_t>(j)];
    }
}

}  // namespace

void VEK_initializeNodeValues(VEK_network& net) {
    net.InvalidateAllBeliefs();
    for (int h = 0; h < net.GetSlotCount(); ++h) {
        if (VEK_nodeVal* v = net.GetVal(h)) v->InitIndexingParents();
    }
}

VEK_indexingSnapshot::VEK_indexingSnapshot(const VEK_network& net) {
    parents_.resize(static_cast<size_t>(net.GetSlotCount()));
    for (int h = 0; h < net.GetSlotCount(); ++h) {
        if (const VEK_nodeVal* v = net.GetVal(h)) {
            parents_[static_cast<size_t>(h)].assign(v->GetIndexingParents().begin(), v->GetIndexingParents().end());
        }
    }
}

void VEK_indexingSnapshot::Restore(VEK_network& net) const {
    for (int h = 0; h < net.GetSlotCount() && static_cast<size_t>(h) < parents_.size(); ++h) {
        VEK_nodeVal* v = net.GetVal(h);
        if (!v) continue;
        const std::vector<int>& saved = parents_[static_cast<size_t>(h)];
        if (std::equal(saved.begin(), saved.end(), v->GetIndexingParents().begin(), v->GetIndexingParents().end())) {
            continue;
        }
        v->InitIndexingParents();
        // Handles saved from this network during the same solve: still valid.
        for (int p : saved) (void)v->AddIndexingParent(p);
    }
}

VEK_CooperSolver::VEK_CooperSolver() = default;
VEK_CooperSolver::~VEK_CooperSolver() = default;

namespace {

// Restores the diagram's update-immediately flag on every way out. Put back
// as a flag only: setting it through SetUpdateImmediate would start another
// update.
struct ImmediateGuard {
    VEK_network& net;
    const bool was;
    explicit ImmediateGuard(VEK_network& n) : net(n), was(n.IsUpdateImmediate()) {
        if (was) net.SetFlags(net.GetFlags() & ~VEK_FLAG_UPDATE_IMMEDIATELY);
    }
    ~ImmediateGuard() {
        if (was) net.SetFlags(net.GetFlags() | VEK_FLAG_UPDATE_IMMEDIATELY);
    }
};

}  // namespace

int VEK_CooperSolver::RunSolve(VEK_network* diagram, const char* failure, const std::function<int()>& steps) {
    if (!diagram) return VEK_OUT_OF_RANGE;
    diagram_ = diagram;
    ImmediateGuard guard(*diagram);
    try {
        return steps();
    } catch (const std::bad_alloc&) {
        diagram_->InvalidateAllBeliefs();
        return diagram_->Logger().LogError(VEK_OUT_OF_MEMORY, failure);
    } catch (const std::overflow_error&) {
        diagram_->InvalidateAllBeliefs();
        diagram_->Logger().LogError(VEK_OUT_OF_MEMORY, VEK_kTableTooLarge);
        return diagram_->Logger().LogError(VEK_OUT_OF_MEMORY, failure);
    } catch (const std::exception& ex) {
        diagram_->InvalidateAllBeliefs();
        diagram_->Logger().LogError(VEK_GENERAL_ERROR, ex.what());
        return diagram_->Logger().LogError(VEK_GENERAL_ERROR, failure);
    }
}

int VEK_CooperSolver::Solve(VEK_network* diagram) {
    const char* failure = "Error when running Cooper's algorithm";
    return RunSolve(diagram, failure, [this, failure] {
        int res = FindGlobalUtility();
        if (res != 0) return diagram_->Logger().LogError(res, "Utilities not specified. Policies cannot be evaluated");
        if ((res = FindAllPossibleIndexingParents()) < 0) return res;
        if ((res = LinkDecisionNodes()) < 0) return res;
        if ((res = CopyDiagram()) < 0) return res;
        if ((res = SetAllIndexingParents()) < 0) return res;
        if ((res = PruneIrrelevantParts()) < 0) return res;
        if ((res = TransformIntoBN()) < 0) return res;
        return Evaluate(failure);
    });
}

// The common end of both solvers: inference on the copy, then the values.
int VEK_CooperSolver::Evaluate(const char* failure) {
    bn_->InvalidateAllBeliefs();
    int res = CalcExpectedUtilities(globalUtility_);
    if (res < 0) {
        diagram_->InvalidateAllBeliefs();
        return diagram_->Logger().LogError(res, failure);
    }
    UpdateLeftNodes();
    res = DeNormalizeUtilityNodes();
    if (res < 0) {
        diagram_->InvalidateAllBeliefs();
        return diagram_->Logger().LogError(res, failure);
    }
    CalculateMAUNodes();
    if (decisionTree_) SolveDecisionTree();
    // The global utility that the solver adds up itself is no node of the
    // diagram, so there is nothing to delete here.
    SetUpdatedMarks();
    if (!decisionTree_) InvalidateDecisions();
    if (globalUtility_ >= 0) {
        if (VEK_nodeVal* v = diagram_->GetVal(globalUtility_)) v->SetValueValid();
    }
    return VEK_OKAY;
}

int VEK_CooperSolver::FindAllUtilityNodes() {
    utilityNodes_.Flush();
    mauNodes_.Flush();
    terminalNodes_.Flush();
    const VEK_intArray& order = diagram_->PartialOrdering();
    for (int h : order) {
        const int t = TypeOf(*diagram_, h);
        if (t == VEK_TABLE) utilityNodes_.Add(h);
        if (t == VEK_MAU) mauNodes_.Add(h);
        if (!IsUtilityType(t)) continue;
        bool feedsMau = false;
        for (int c : diagram_->GetNode(h)->Children()) feedsMau |= TypeOf(*diagram_, c) == VEK_MAU;
        if (!feedsMau) terminalNodes_.Add(h);
    }
    return VEK_OKAY;
}

int VEK_CooperSolver::FindGlobalUtility() {
    FindAllUtilityNodes();
    if (terminalNodes_.IsEmpty()) return VEK_NO_ITEM;
    // One sink is the global utility; several are added up (see the header).
    globalAdded_ = terminalNodes_.GetSize() > 1;
    globalUtility_ = globalAdded_ ? -1 : terminalNodes_[0];
    return VEK_OKAY;
}

int VEK_CooperSolver::FindAllPossibleIndexingParents() {
    decisions_.Flush();
    undecided_.Flush();
    for (int h : diagram_->PartialOrdering()) {
        if (TypeOf(*diagram_, h) != VEK_LIST) continue;
        decisions_.Add(h);
        if (!diagram_->GetVal(h)->HasHardEvidence()) undecided_.Add(h);
    }
    return VEK_OKAY;
}

// Decisions follow the partial order, each one seeing what the earlier ones
// saw: the enumerated variables are, decision by decision, its unobserved
// chance parents not listed yet and then the decision when undecided.
// Chance parents of decisions after the last undecided one change no choice
// and are left out.
int VEK_CooperSolver::LinkDecisionNodes() {
    vars_.Flush();
    varSizes_.clear();
    varIsDecision_.clear();
    const std::vector<int> pos = OrderPositions(*diagram_);
    const int last = undecided_.IsEmpty() ? -1 : decisions_.FindPosition(undecided_[undecided_.GetSize() - 1]);
    combinations_ = 1;
    for (int k = 0; k <= last; ++k) {
        const int d = decisions_[k];
        std::vector<int> parents(diagram_->GetNode(d)->Parents().begin(), diagram_->GetNode(d)->Parents().end());
        std::sort(parents.begin(), parents.end(),
                  [&](int a, int b) { return pos[static_cast<size_t>(a)] < pos[static_cast<size_t>(b)]; });
        for (int p : parents) {
            if (TypeOf(*diagram_, p) == VEK_LIST || vars_.IsInList(p)) continue;
            if (diagram_->GetVal(p)->HasHardEvidence()) continue;
            vars_.Add(p);
        }
        if (undecided_.IsInList(d)) vars_.Add(d);
    }
    for (int v : vars_) {
        const int n = diagram_->GetDef(v)->GetNumberOfOutcomes();
        if (n < 1) return diagram_->Logger().VLogError(VEK_GENERAL_ERROR, "Node [%s] has no outcomes", diagram_->GetNodeId(v));
        if (combinations_ > kMaxCombinations / n) {
            return diagram_->Logger().LogError(VEK_OUT_OF_MEMORY,
                                               "Too many combinations of decisions and observations to evaluate");
        }
        combinations_ *= n;
        varSizes_.push_back(n);
        varIsDecision_.push_back(TypeOf(*diagram_, v) == VEK_LIST);
    }
    decisionTree_ = !undecided_.IsEmpty();
    return VEK_OKAY;
}

int VEK_CooperSolver::CopyDiagram() {
    bn_ = std::make_unique<VEK_network>(*diagram_);
    bn_->Logger().Clear();
    bn_->Logger().RedirectToLogger(&diagram_->Logger());
    AfterBNCreated();
    return VEK_OKAY;
}

int VEK_CooperSolver::SetAllIndexingParents() {
    for (int j = 0; j < vars_.GetSize(); ++j) {
        if (!varIsDecision_[static_cast<size_t>(j)]) continue;
        VEK_nodeVal* v = diagram_->GetVal(vars_[j]);
        v->InitIndexingParents();
        // The enumerated variables are nodes of the diagram: adding cannot fail.
        for (int i = 0; i < j; ++i) (void)v->AddIndexingParent(vars_[i]);
    }
    auto byDecisions = [&](const VEK_intArray& nodes) {
        for (int h : nodes) {
            VEK_nodeVal* v = diagram_->GetVal(h);
            v->InitIndexingParents();
            for (int d : undecided_) (void)v->AddIndexingParent(d);  // a decision of the diagram
        }
    };
    byDecisions(utilityNodes_);
    byDecisions(mauNodes_);
    return VEK_OKAY;
}

int VEK_CooperSolver::CompileMauExpressions() {
    mauExpressions_.assign(static_cast<size_t>(mauNodes_.GetSize()), VEK_mauExpressions());
    for (int i = 0; i < mauNodes_.GetSize(); ++i) {
        const VEK_mau* def = dynamic_cast<const VEK_mau*>(diagram_->GetDef(mauNodes_[i]));
        if (!def) return VEK_WRONG_NODE_TYPE;
        const int columns = def->GetWeights().GetSize() / std::max(1, def->GetWeights().GetLastDimensionSize());
        std::string message;
        if (mauExpressions_[static_cast<size_t>(i)].Compile(*diagram_, mauNodes_[i], columns, message) < 0) {
            return diagram_->Logger().LogError(VEK_OUT_OF_RANGE, message.c_str());
        }
    }
    return VEK_OKAY;
}

// MAU nodes are computed from their parents' values afterwards and leave the
// copy; decisions lose their informational arcs, since every decision is set
// as evidence there.
int VEK_CooperSolver::PruneIrrelevantParts() {
    int res = CompileMauExpressions();
    if (res < 0) return res;
    VEK_relevanceDelay delay(*bn_);
    for (int m : mauNodes_) {
        if ((res = bn_->DeleteNode(m)) < 0) return res;
    }
    for (int d : decisions_) {
        VEK_node* node = bn_->GetNode(d);
        while (node->Parents().GetSize() > 0) {
            int res = bn_->RemoveArc(node->Parents()[node->Parents().GetSize() - 1], d);
            if (res < 0) return res;
        }
    }
    return VEK_OKAY;
}

int VEK_CooperSolver::TransformUtility(int handle) {
    VEK_utility* u = dynamic_cast<VEK_utility*>(bn_->GetDef(handle));
    if (!u) return VEK_WRONG_NODE_TYPE;
    if (const int res = u->Normalize(); res < 0) return res;
    const VEK_Dmatrix table = u->GetParameters();
    int res = bn_->ChangeNodeType(handle, VEK_CPT);
    if (res < 0) return res;
    VEK_nodeDef* def = bn_->GetDef(handle);
    if (def->GetNumberOfOutcomes() != 2 && (res = def->SetNumberOfOutcomes(2)) < 0) return res;
    std::vector<double> cpt;
    cpt.reserve(static_cast<size_t>(table.GetSize()) * 2);
    for (int i = 0; i < table.GetSize(); ++i) {
        double x = table[i];
        // An undefined utility weighs nothing.
        if (x == VEK_UNDEFINED_VALUE) x = 0.0;
        x = std::clamp(x, 0.0, 1.0);
        cpt.push_back(x);
        cpt.push_back(1.0 - x);
    }
    if ((res = def->SetDefinition(cpt)) < 0) return res;
    if (bn_->GetTargetCount() > 0) bn_->SetTargetQuiet(handle, true);
    return VEK_OKAY;
}

int VEK_CooperSolver::TransformIntoBN() {
    VEK_relevanceDelay delay(*bn_);
    const VEK_intArray order = bn_->PartialOrdering();
    for (int h : order) {
        const int t = TypeOf(*bn_, h);
        int res = VEK_OKAY;
        if (t == VEK_LIST) {
            // A uniform root chance node; a choice already made stays as
            // evidence.
            VEK_nodeVal* v = bn_->GetVal(h);
            const int chosen = v->HasHardEvidence() ? v->GetEvidence() : -1;
            if ((res = bn_->ChangeNodeType(h, VEK_CPT)) < 0) return res;
            if ((res = bn_->GetDef(h)->MakeUniform()) < 0) return res;
            v = bn_->GetVal(h);
            if (chosen >= 0 && v->GetEvidence() != chosen && (res = v->SetEvidence(chosen)) < 0) return res;
        } else if (t == VEK_TABLE) {
            res = TransformUtility(h);
        }
        if (res < 0) return res;
    }
    return VEK_OKAY;
}

int VEK_CooperSolver::PerformBNInference(bool) { return bn_->UpdateBeliefs(); }

// One inference run per combination of the enumerated variables, each set as
// evidence on the copy. A combination that the evidence rules out is no
// failure: it gets weight 0, and its messages stay in the scratch log.
int VEK_CooperSolver::EnumerateOne(int combination, VEK_logger& scratch, bool& possible) {
    possible = false;
    scratch.Clear();
    VEK_intArray coords;
    Coordinates(combination, varSizes_, coords);
    for (int j = 0; j < vars_.GetSize(); ++j) {
        const int res = bn_->GetVal(vars_[j])->SetEvidence(coords[j]);
        if (res == VEK_OUT_OF_RANGE || res == VEK_EVIDENCE_CONFLICT) return VEK_OKAY;
        if (res < 0) return res;
    }
    const bool first = combination == 0;
    BeforeBNInference(first);
    int res = PerformBNInference(first);
    AfterBNInference(first);
    if (res == VEK_IMPOSSIBLE_EVIDENCE) return VEK_OKAY;
    if (res < 0) return res;
    double p = 0.0;
    if ((res = bn_->ProbEvidence(p)) < 0) return res;
    // Hard evidence replaced a variable's soft evidence on the copy; its
    // likelihood still weighs the combination.
    for (int j = 0; j < vars_.GetSize(); ++j) {
        const std::vector<double>& l = likelihood_[static_cast<size_t>(j)];
        if (!l.empty()) p *= l[static_cast<size_t>(coords[j])];
    }
    if (!(p > 0.0)) return VEK_OKAY;
    possible = true;
    weight_[static_cast<size_t>(combination)] = p;
    std::vector<double>& u = utilities_[static_cast<size_t>(combination)];
    u.assign(static_cast<size_t>(bn_->GetSlotCount()), 0.0);
    auto read = [&](int h) {
        const VEK_Dmatrix* m = bn_->GetVal(h)->GetMatrix();
        u[static_cast<size_t>(h)] = m && m->GetSize() == 2 ? m->Subscript(0) : 0.0;
    };
    for (int h : utilityNodes_) read(h);
    if (mergedNode_ >= 0 && !utilityNodes_.IsInList(mergedNode_)) read(mergedNode_);
    std::vector<double>& b = beliefs_[static_cast<size_t>(combination)];
    b.assign(beliefOffset_.empty() ? 0 : static_cast<size_t>(beliefOffset_.back()), 0.0);
    for (int i = 0; i < chanceNodes_.GetSize(); ++i) {
        const VEK_nodeVal* v = bn_->GetVal(chanceNodes_[i]);
        const VEK_Dmatrix* m = v ? v->GetMatrix() : nullptr;
        const int at = beliefOffset_[static_cast<size_t>(i)];
        const int n = beliefOffset_[static_cast<size_t>(i) + 1] - at;
        if (!m || !v->IsValueValid() || m->GetSize() != n) continue;
        for (int s = 0; s < n; ++s) b[static_cast<size_t>(at + s)] = (*m)[s];
    }
    return VEK_OKAY;
}

int VEK_CooperSolver::CalcExpectedUtilities(int) {
    // Chance nodes whose beliefs the diagram gets: all of them, or the
    // targets when there are any; those with evidence keep it.
    chanceNodes_.Flush();
    beliefOffset_.assign(1, 0);
    const bool targets = diagram_->GetTargetCount() > 0;
    for (int h = 0; h < diagram_->GetSlotCount(); ++h) {
        const int t = TypeOf(*diagram_, h);
        if (t < 0 || t == VEK_LIST || IsUtilityType(t)) continue;
        const VEK_nodeVal* v = diagram_->GetVal(h);
        if (v->HasHardEvidence() || (targets && !diagram_->IsTarget(h))) continue;
        const int outcomes = diagram_->GetDef(h)->GetNumberOfOutcomes();
        if (outcomes < 1) continue;
        chanceNodes_.Add(h);
        beliefOffset_.push_back(beliefOffset_.back() + outcomes);
    }
    const double perCombination =
        2.0 * sizeof(double) + 2.0 * sizeof(std::vector<double>) +
        sizeof(double) * (static_cast<double>(bn_->GetSlotCount()) + static_cast<double>(beliefOffset_.back()));
    const double bytes = perCombination * static_cast<double>(combinations_);
    if (bytes > kMaxCombinationBytes) {
        return diagram_->Logger().VLogError(
            VEK_OUT_OF_MEMORY,
            "Evaluating %d combinations of decisions and observations would need %.0f MB, more than the %.0f MB allowed",
            combinations_, std::ceil(bytes / 1048576.0), kMaxCombinationBytes / 1048576.0);
    }
    const size_t n = static_cast<size_t>(combinations_);
    weight_.assign(n, 0.0);
    utilities_.assign(n, {});
    beliefs_.assign(n, {});
    global_.assign(n, VEK_UNDEFINED_VALUE);
    likelihood_.assign(static_cast<size_t>(vars_.GetSize()), {});
    for (int j = 0; j < vars_.GetSize(); ++j) {
        const VEK_nodeVal* v = diagram_->GetVal(vars_[j]);
        if (v->IsVirtualEvidence()) (void)v->GetVirtualEvidence(likelihood_[static_cast<size_t>(j)]);  // present: cannot fail
    }
    VEK_logger scratch;
    bn_->Logger().RedirectToLogger(&scratch);
    bool any = false;
    int res = VEK_OKAY;
    for (int c = 0; c < combinations_ && res >= 0; ++c) {
        bool possible = false;
        res = EnumerateOne(c, scratch, possible);
        any |= possible;
    }
    bn_->Logger().RedirectToLogger(&diagram_->Logger());
    if (res >= 0 && !any) res = VEK_IMPOSSIBLE_EVIDENCE;
    if (res < 0) {
        // What the failing run logged belongs to the diagram's log.
        for (int i = 0; i < scratch.GetErrorCount(); ++i) {
            diagram_->Logger().LogError(scratch.GetError(i), scratch.GetErrorMessage(i));
        }
    }
    return res;
}

int VEK_CooperSolver::DecisionIndex(const VEK_intArray& coords) const {
    int index = 0;
    for (int j = 0; j < vars_.GetSize(); ++j) {
        if (varIsDecision_[static_cast<size_t>(j)]) index = index * varSizes_[static_cast<size_t>(j)] + coords[j];
    }
    return index;
}

// A value indexed by the undecided decisions: for each of their
// combinations, the expectation given the evidence.
void VEK_CooperSolver::WriteAggregated(int handle, const std::vector<double>& perCombination) {
    VEK_nodeVal* v = diagram_->GetVal(handle);
    VEK_Dmatrix* m = v ? v->GetWriteableMatrix() : nullptr;
    if (!m) return;
    std::vector<double> num(static_cast<size_t>(m->GetSize()), 0.0);
    std::vector<double> den(num.size(), 0.0);
    VEK_intArray coords;
    for (int c = 0; c < combinations_; ++c) {
        const double w = weight_[static_cast<size_t>(c)];
        if (w <= 0.0) continue;
        Coordinates(c, varSizes_, coords);
        const size_t at = static_cast<size_t>(DecisionIndex(coords));
        if (at >= num.size()) return;
        num[at] += w * perCombination[static_cast<size_t>(c)];
        den[at] += w;
    }
    for (size_t i = 0; i < num.size(); ++i) (*m)[static_cast<int>(i)] = den[i] > 0.0 ? num[i] / den[i] : VEK_UNDEFINED_VALUE;
    v->SetValueValid();
}

int VEK_CooperSolver::UpdateNode(int handle) {
    std::vector<double> column(static_cast<size_t>(combinations_), 0.0);
    for (int c = 0; c < combinations_; ++c) {
        const std::vector<double>& u = utilities_[static_cast<size_t>(c)];
        if (static_cast<size_t>(handle) < u.size()) column[static_cast<size_t>(c)] = u[static_cast<size_t>(handle)];
    }
    WriteAggregated(handle, column);
    return VEK_OKAY;
}

// The MAU nodes' values, once their parents' are known.
int VEK_CooperSolver::UpdateValues() {
    for (int h : mauNodes_) UpdateNode(h);
    return VEK_OKAY;
}

// Without undecided decisions there is one run, whose beliefs are the
// chance nodes' values; otherwise they wait for the policy.
int VEK_CooperSolver::UpdateLeftNodes() {
    if (decisionTree_ || combinations_ != 1 || weight_[0] <= 0.0) return VEK_OKAY;
    reach_.assign(1, 1.0);
    for (int i = 0; i < chanceNodes_.GetSize(); ++i) {
        VEK_nodeVal* v = diagram_->GetVal(chanceNodes_[i]);
        VEK_Dmatrix* m = v->GetWriteableMatrix();
        const int at = beliefOffset_[static_cast<size_t>(i)];
        const int n = beliefOffset_[static_cast<size_t>(i) + 1] - at;
        if (!m || m->GetSize() != n) continue;
        for (int s = 0; s < n; ++s) (*m)[s] = beliefs_[0][static_cast<size_t>(at + s)];
        v->SetValueValid();
    }
    return VEK_OKAY;
}

int VEK_CooperSolver::DeNormalizeUtilityNodes() {
    auto denormalize = [&](int h, double lo, double hi) -> int {
        VEK_Dmatrix m;
        if (varSizes_.empty()) {
            (void)m.SetSingleDimension(1);  // a valid size
        } else if (const int res = m.Setup(varSizes_.data(), static_cast<int>(varSizes_.size())); res < 0) {
            return res;
        }
        m.FillWith(VEK_UNDEFINED_VALUE);
        for (int c = 0; c < combinations_; ++c) {
            if (weight_[static_cast<size_t>(c)] > 0.0) {
                m[c] = std::clamp(utilities_[static_cast<size_t>(c)][static_cast<size_t>(h)], 0.0, 1.0);
            }
        }
        if (const int res = VEK_normalizeUtilities(m, 0.0, 1.0, lo, hi); res < 0) return res;
        for (int c = 0; c < combinations_; ++c) {
            if (weight_[static_cast<size_t>(c)] > 0.0) utilities_[static_cast<size_t>(c)][static_cast<size_t>(h)] = m[c];
        }
        return VEK_OKAY;
    };
    for (int h : utilityNodes_) {
        const VEK_utility* def = dynamic_cast<const VEK_utility*>(diagram_->GetDef(h));
        if (!def) continue;
        if (const int res = denormalize(h, def->GetMinimumUtility(), def->GetMaximumUtility()); res < 0) return res;
        if (const int res = UpdateNode(h); res < 0) return res;
    }
    if (mergedNode_ >= 0 && !utilityNodes_.IsInList(mergedNode_)) {
        if (const int res = denormalize(mergedNode_, mergedLo_, mergedHi_); res < 0) return res;
    }
    if (mergedNode_ >= 0) {
        for (int c = 0; c < combinations_; ++c) {
            if (weight_[static_cast<size_t>(c)] > 0.0) {
                global_[static_cast<size_t>(c)] = utilities_[static_cast<size_t>(c)][static_cast<size_t>(mergedNode_)];
            }
        }
    }
    return VEK_OKAY;
}

double VEK_CooperSolver::CombineUtilities(std::vector<double>& values, const std::vector<int>& stateOf) const {
    for (int i = 0; i < mauNodes_.GetSize(); ++i) {
        const int m = mauNodes_[i];
        const VEK_mau* def = dynamic_cast<const VEK_mau*>(diagram_->GetDef(m));
        if (!def) continue;
        int column = 0;
        for (int p : diagram_->GetNode(m)->Parents()) {
            if (def->GetUtilityParents().IsInList(p)) continue;
            const int n = diagram_->GetDef(p)->GetNumberOfOutcomes();
            const int s = stateOf[static_cast<size_t>(p)];
            column = column * n + (s >= 0 ? s : 0);
        }
        if (static_cast<size_t>(i) < mauExpressions_.size() && !mauExpressions_[static_cast<size_t>(i)].Empty()) {
            values[static_cast<size_t>(m)] = mauExpressions_[static_cast<size_t>(i)].Evaluate(column, values, stateOf);
            continue;
        }
        double sum = 0.0;
        for (int up : def->GetUtilityParents()) {
            double w = 0.0;
            (void)def->GetWeight(column, up, w);  // column and parent come from the definition itself
            sum += w * values[static_cast<size_t>(up)];
        }
        values[static_cast<size_t>(m)] = sum;
    }
    double global = 0.0;
    for (int t : terminalNodes_) global += values[static_cast<size_t>(t)];
    return global;
}

int VEK_CooperSolver::CalculateMAUNodes() {
    std::vector<int> stateOf(static_cast<size_t>(diagram_->GetSlotCount()), -1);
    for (int d : decisions_) {
        const VEK_nodeVal* v = diagram_->GetVal(d);
        if (v->HasHardEvidence()) stateOf[static_cast<size_t>(d)] = v->GetEvidence();
    }
    VEK_intArray coords;
    for (int c = 0; c < combinations_; ++c) {
        if (weight_[static_cast<size_t>(c)] <= 0.0) continue;
        Coordinates(c, varSizes_, coords);
        for (int j = 0; j < vars_.GetSize(); ++j) stateOf[static_cast<size_t>(vars_[j])] = coords[j];
        std::vector<double>& u = utilities_[static_cast<size_t>(c)];
        if (u.size() < static_cast<size_t>(diagram_->GetSlotCount())) u.resize(static_cast<size_t>(diagram_->GetSlotCount()), 0.0);
        const double g = CombineUtilities(u, stateOf);
        if (mergedNode_ < 0) global_[static_cast<size_t>(c)] = g;
    }
    UpdateValues();
    return VEK_OKAY;
}

// Backward induction over the enumerated variables, last first: a decision
// keeps its best option (the first on ties, within kTieTolerance), a chance
// variable averages over
// its outcomes weighted by their probability given what comes before. Each
// undecided decision's value is the table it maximised over.
int VEK_CooperSolver::PropagateHighestUtilities() {
    const int m = vars_.GetSize();
    levelW_.assign(static_cast<size_t>(m) + 1, {});
    levelV_.assign(static_cast<size_t>(m) + 1, {});
    levelChoice_.assign(static_cast<size_t>(m) + 1, {});
    levelW_[static_cast<size_t>(m)] = weight_;
    levelV_[static_cast<size_t>(m)] = global_;
    int prefix = combinations_;
    for (int j = m - 1; j >= 0; --j) {
        const int n = varSizes_[static_cast<size_t>(j)];
        prefix /= n;
        const std::vector<double>& W = levelW_[static_cast<size_t>(j) + 1];
        const std::vector<double>& V = levelV_[static_cast<size_t>(j) + 1];
        std::vector<double>& w = levelW_[static_cast<size_t>(j)];
        std::vector<double>& val = levelV_[static_cast<size_t>(j)];
        std::vector<int>& choice = levelChoice_[static_cast<size_t>(j)];
        w.assign(static_cast<size_t>(prefix), 0.0);
        val.assign(static_cast<size_t>(prefix), VEK_UNDEFINED_VALUE);
        choice.assign(static_cast<size_t>(prefix), -1);
        const bool decision = varIsDecision_[static_cast<size_t>(j)];
        VEK_Dmatrix* table = nullptr;
        if (decision) {
            VEK_nodeVal* dv = diagram_->GetVal(vars_[j]);
            table = dv->GetWriteableMatrix();
            if (!table || table->GetSize() != prefix * n) table = nullptr;
        }
        for (int p = 0; p < prefix; ++p) {
            const size_t base = static_cast<size_t>(p) * static_cast<size_t>(n);
            if (decision) {
                int best = -1;
                for (int d = 0; d < n; ++d) {
                    const bool possible = W[base + static_cast<size_t>(d)] > 0.0;
                    if (table) (*table)[static_cast<int>(base) + d] = possible ? V[base + static_cast<size_t>(d)] : VEK_UNDEFINED_VALUE;
                    if (!possible) continue;
                    const double x = V[base + static_cast<size_t>(d)];
                    const double b = best < 0 ? 0.0 : V[base + static_cast<size_t>(best)];
                    if (best < 0 || x > b + kTieTolerance * (1.0 + std::fabs(b))) best = d;
                }
                choice[static_cast<size_t>(p)] = best;
                if (best >= 0) {
                    w[static_cast<size_t>(p)] = W[base + static_cast<size_t>(best)];
                    val[static_cast<size_t>(p)] = V[base + static_cast<size_t>(best)];
                }
            } else {
                double sw = 0.0;
                double sv = 0.0;
                for (int o = 0; o < n; ++o) {
                    const double x = W[base + static_cast<size_t>(o)];
                    if (x <= 0.0) continue;
                    sw += x;
                    sv += x * V[base + static_cast<size_t>(o)];
                }
                w[static_cast<size_t>(p)] = sw;
                if (sw > 0.0) val[static_cast<size_t>(p)] = sv / sw;
            }
        }
        if (table) diagram_->GetVal(vars_[j])->SetValueValid();
    }
    return VEK_OKAY;
}

// The policy found by PropagateHighestUtilities gives every combination its
// probability; the chance nodes' beliefs are averaged with it.
int VEK_CooperSolver::SolveDecisionTree() {
    PropagateHighestUtilities();
    const int m = vars_.GetSize();
    std::vector<double> reach(1, 1.0);
    for (int j = 0; j < m; ++j) {
        const int n = varSizes_[static_cast<size_t>(j)];
        const std::vector<double>& W = levelW_[static_cast<size_t>(j) + 1];
        const std::vector<double>& w = levelW_[static_cast<size_t>(j)];
        std::vector<double> next(reach.size() * static_cast<size_t>(n), 0.0);
        for (size_t p = 0; p < reach.size(); ++p) {
            if (reach[p] <= 0.0) continue;
            for (int o = 0; o < n; ++o) {
                const size_t at = p * static_cast<size_t>(n) + static_cast<size_t>(o);
                if (varIsDecision_[static_cast<size_t>(j)]) {
                    if (levelChoice_[static_cast<size_t>(j)][p] == o) next[at] = reach[p];
                } else if (w[p] > 0.0) {
                    next[at] = reach[p] * W[at] / w[p];
                }
            }
        }
        reach.swap(next);
    }
    reach_ = reach;
    for (int i = 0; i < chanceNodes_.GetSize(); ++i) {
        VEK_nodeVal* v = diagram_->GetVal(chanceNodes_[i]);
        VEK_Dmatrix* mat = v->GetWriteableMatrix();
        const int at = beliefOffset_[static_cast<size_t>(i)];
        const int n = beliefOffset_[static_cast<size_t>(i) + 1] - at;
        if (!mat || mat->GetSize() != n) continue;
        mat->FillWith(0.0);
        for (int c = 0; c < combinations_; ++c) {
            const double r = reach_[static_cast<size_t>(c)];
            if (r <= 0.0) continue;
            for (int s = 0; s < n; ++s) (*mat)[s] += r * beliefs_[static_cast<size_t>(c)][static_cast<size_t>(at + s)];
        }
        v->SetValueValid();
    }
    return VEK_OKAY;
}

// Every value written above was marked valid as it was written; the stamp
// tells later readers that this run computed it.
int VEK_CooperSolver::SetUpdatedMarks() {
    for (int h = 0; h < diagram_->GetSlotCount(); ++h) {
        VEK_nodeVal* v = diagram_->GetVal(h);
        if (v && v->IsValueValid() && !v->HasHardEvidence()) v->SetStamp(1);
    }
    return VEK_OKAY;
}

// Decisions without evidence that got no policy values are not valid.
int VEK_CooperSolver::InvalidateDecisions() {
    for (int d : decisions_) {
        VEK_nodeVal* v = diagram_->GetVal(d);
        if (!v->HasHardEvidence() && !vars_.IsInList(d)) v->Invalidate();
    }
    return VEK_OKAY;
}
