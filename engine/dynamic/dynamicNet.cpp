#include "dynamic/dynamicNet.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include "equations/exprFunctions.h"
#include "equations/exprParser.h"
#include "equations/equation.h"

#include "network/network.h"
#include "network/tableDef.h"

namespace {

const std::vector<VEK_temporalArc> kNoArcs;
constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

bool IsEquation(const VEK_network& net, int node) {
    const VEK_nodeDef* d = net.GetDef(node);
    return d && d->GetType() == VEK_EQUATION;
}

bool IsPlate(const VEK_network& net, int node) {
    const VEK_node* n = net.GetNode(node);
    return n && n->GetTemporalType() == VEK_TEMPORAL_PLATE;
}

int OutcomeCount(const VEK_network& net, int node) {
    const VEK_nodeDef* d = net.GetDef(node);
    return d ? d->GetDiscreteOutcomeCount() : -1;
}

}  // namespace

VEK_dynamicNet::VEK_dynamicNet(const VEK_dynamicNet& other, VEK_network& net)
    : net_(&net),
      recs_(other.recs_),
      platePosition_(other.platePosition_),
      leftWidth_(other.leftWidth_),
      rightWidth_(other.rightWidth_) {}

VEK_dynamicNet::NodeRec* VEK_dynamicNet::Rec(int node) {
    if (!net_->IsValidNode(node)) return nullptr;
    if (static_cast<size_t>(node) >= recs_.size()) recs_.resize(node + 1);
    NodeRec& r = recs_[node];
    const size_t slices = static_cast<size_t>(std::max(0, net_->GetNumberOfSlices()));
    if (r.evidence.size() != slices) {
        r.evidence.resize(slices, -1);
        r.virtualEvidence.resize(slices);
        r.contEvidence.resize(slices, kNone);
    }
    return &r;
}

const VEK_dynamicNet::NodeRec* VEK_dynamicNet::Rec(int node) const {
    if (!net_->IsValidNode(node) || static_cast<size_t>(node) >= recs_.size()) return nullptr;
    return &recs_[node];
}

VEK_dynamicNet::Table* VEK_dynamicNet::FindTable(NodeRec& r, int order) {
    for (Table& t : r.tables) {
        if (t.order == order) return &t;
    }
    return nullptr;
}

void VEK_dynamicNet::Changed(int node) {
    net_->OnDefinitionChanged(node);
    net_->InvalidateAllBeliefs();
}

// ---------------------------------------------------------------- layout

bool VEK_dynamicNet::IsStaticDim(int node, int parent) const {
    (void)node;
    const VEK_node* p = net_->GetNode(parent);
    return p && p->GetTemporalType() != VEK_TEMPORAL_ANCHOR;
}

void VEK_dynamicNet::DimOwners(int node, int order, std::vector<int>& owners) const {
    owners.clear();
    const VEK_node* n = net_->GetNode(node);
    if (!n) return;
    for (int p : n->Parents()) {
        if (order == 0 || IsStaticDim(node, p)) owners.push_back(p);
    }
    if (order > 0) {
        if (const NodeRec* r = Rec(node)) {
            for (int k = 1; k <= order; ++k) {
                for (const VEK_temporalArc& a : r->parents) {
                    if (a.order == k) owners.push_back(a.node);
                }
            }
        }
    }
    owners.push_back(node);
}

void VEK_dynamicNet::DimSizes(const std::vector<int>& owners, VEK_intArray& sizes) const {
    sizes.Flush();
    for (int h : owners) sizes.Add(std::max(1, OutcomeCount(*net_, h)));
}

void VEK_dynamicNet::Expand(const VEK_Dmatrix& src, const std::vector<int>& srcOwners,
                            const std::vector<int>& dstOwners, VEK_Dmatrix& dst) const {
    VEK_intArray sizes;
    DimSizes(dstOwners, sizes);
    (void)dst.Setup(sizes);  // sizes are at least 1
    // Stride in the source of each destination dimension (0 for new ones);
    // the source's dimensions appear in the destination in the same order.
    const int nd = static_cast<int>(dstOwners.size());
    std::vector<int> srcStride(nd, 0), srcDimOf(srcOwners.size(), -1);
    size_t j = 0;
    for (int d = 0; d < nd && j < srcOwners.size(); ++d) {
        if (dstOwners[d] == srcOwners[j] && (j + 1 < srcOwners.size()) == (d + 1 < nd)) srcDimOf[j++] = d;
    }
    int stride = 1;
    for (int s = static_cast<int>(srcOwners.size()) - 1; s >= 0; --s) {
        if (srcDimOf[s] >= 0) srcStride[srcDimOf[s]] = stride;
        stride *= src.GetSizeOfDimension(s);
    }
    std::vector<int> coord(nd, 0);
    int si = 0;
    for (int i = 0; i < dst.GetSize(); ++i) {
        dst[i] = si < src.GetSize() ? src[si] : 0.0;
        for (int d = nd - 1; d >= 0; --d) {
            si += srcStride[d];
            if (++coord[d] < sizes[d]) break;
            si -= srcStride[d] * coord[d];
            coord[d] = 0;
        }
    }
}

void VEK_dynamicNet::MakeTable(int node, int order, VEK_Dmatrix& out) const {
    const NodeRec* r = Rec(node);
    const Table* base = nullptr;
    if (r) {
        for (const Table& t : r->tables) {
            if (t.order < order) base = &t;
        }
    }
    std::vector<int> dst;
    DimOwners(node, order, dst);
    std::vector<int> src;
    if (base) {
        DimOwners(node, base->order, src);
        Expand(base->matrix, src, dst, out);
        return;
    }
    // From the ordinary definition, its anchor dimensions fixed at their first outcome.
    const VEK_nodeDef* def = net_->GetDef(node);
    const VEK_Dmatrix* m = def ? def->GetMatrix() : nullptr;
    DimOwners(node, 0, src);
    if (!m || m->GetNumberOfDimensions() != static_cast<int>(src.size())) {
        VEK_intArray sizes;
        DimSizes(dst, sizes);
        (void)out.Setup(sizes);  // sizes are at least 1
        out.FillWith(1.0 / sizes[sizes.GetSize() - 1]);
        return;
    }
    VEK_Dmatrix reduced(*m);
    std::vector<int> kept;
    for (int d = static_cast<int>(src.size()) - 1; d >= 0; --d) {
        if (d + 1 < static_cast<int>(src.size()) && !IsStaticDim(node, src[d])) (void)reduced.RemoveDimension(d, 0);  // d is a dimension of m
    }
    for (size_t d = 0; d < src.size(); ++d) {
        if (d + 1 == src.size() || IsStaticDim(node, src[d])) kept.push_back(src[d]);
    }
    Expand(reduced, kept, dst, out);
}

// ---------------------------------------------------------------- arcs

int VEK_dynamicNet::AddTemporalArc(int parent, int child, int order) {
    if (!net_->IsValidNode(parent) || !net_->IsValidNode(child) || order < 1) return VEK_OUT_OF_RANGE;
    if (!IsPlate(*net_, parent) || !IsPlate(*net_, child)) {
        return net_->Logger().LogError(VEK_WRONG_NODE_TYPE, "Temporal arcs connect plate nodes only");
    }
    // An equation node takes any plate node as temporal parent; its tables
    // only keep the layout in step.
    if (!IsEquation(*net_, child) &&
        (OutcomeCount(*net_, parent) < 1 || OutcomeCount(*net_, child) < 1 || !net_->GetDef(child)->GetMatrix())) {
        return net_->Logger().LogError(VEK_WRONG_NODE_TYPE,
                                       "Temporal arcs connect discrete chance nodes, or end at an equation node");
    }
    if (!VEK_nodeDef::IsArcAllowedForTypes(net_->GetDef(parent)->GetType(), net_->GetDef(child)->GetType())) {
        return net_->Logger().LogError(VEK_WRONG_NODE_TYPE, "The node types do not allow this temporal arc");
    }
    if (TemporalArcExists(parent, child, order)) {
        return net_->Logger().LogError(VEK_OUT_OF_RANGE, "Temporal arc already exists");
    }
    NodeRec& r = *Rec(child);
    // Position among the temporal dimensions of every table of order >= order.
    int before = 0;
    for (const VEK_temporalArc& a : r.parents) before += a.order <= order ? 1 : 0;
    std::vector<int> owners;
    DimOwners(child, 0, owners);
    int staticDims = 0;
    for (size_t i = 0; i + 1 < owners.size(); ++i) staticDims += IsStaticDim(child, owners[i]) ? 1 : 0;
    const bool hadOrder = FindTable(r, order) != nullptr;
    r.parents.push_back({parent, order});
    for (Table& t : r.tables) {
        // the tables follow the record's parents, so the dimension is there
        if (t.order >= order) (void)t.matrix.InsertDimension(staticDims + before, std::max(1, OutcomeCount(*net_, parent)));
    }
    if (!hadOrder) {
        Table t;
        t.order = order;
        MakeTable(child, order, t.matrix);
        auto pos = std::find_if(r.tables.begin(), r.tables.end(), [order](const Table& x) { return x.order > order; });
        r.tables.insert(pos, std::move(t));
    }
    Changed(child);
    return VEK_OKAY;
}

int VEK_dynamicNet::RemoveTemporalArc(int parent, int child, int order) {
    NodeRec* r = Rec(child);
    if (!r || !net_->IsValidNode(parent)) return VEK_OUT_OF_RANGE;
    auto it = std::find(r->parents.begin(), r->parents.end(), VEK_temporalArc{parent, order});
    if (it == r->parents.end()) return VEK_OUT_OF_RANGE;
    int before = 0;
    for (const VEK_temporalArc& a : r->parents) {
        if (&a == &*it) continue;
        if (a.order < order || (a.order == order && &a < &*it)) ++before;
    }
    std::vector<int> owners;
    DimOwners(child, 0, owners);
    int staticDims = 0;
    for (size_t i = 0; i + 1 < owners.size(); ++i) staticDims += IsStaticDim(child, owners[i]) ? 1 : 0;
    r->parents.erase(it);
    std::erase_if(r->strengths, [&](const auto& s) { return s.first == VEK_temporalArc{parent, order}; });
    for (Table& t : r->tables) {
        if (t.order >= order) (void)t.matrix.RemoveDimension(staticDims + before, 0);  // as on insert
    }
    const bool orderLeft =
        std::any_of(r->parents.begin(), r->parents.end(), [order](const VEK_temporalArc& a) { return a.order == order; });
    if (!orderLeft) {
        std::erase_if(r->tables, [order](const Table& t) { return t.order == order; });
    }
    Changed(child);
    return VEK_OKAY;
}

bool VEK_dynamicNet::TemporalArcExists(int parent, int child, int order) const {
    const NodeRec* r = Rec(child);
    if (!r) return false;
    return std::find(r->parents.begin(), r->parents.end(), VEK_temporalArc{parent, order}) != r->parents.end();
}

const std::vector<VEK_temporalArc>& VEK_dynamicNet::GetTemporalParents(int node) const {
    const NodeRec* r = Rec(node);
    return r ? r->parents : kNoArcs;
}

void VEK_dynamicNet::GetTemporalParents(int node, int order, std::vector<VEK_temporalArc>& out) const {
    out.clear();
    for (const VEK_temporalArc& a : GetTemporalParents(node)) {
        if (a.order == order) out.push_back(a);
    }
}

void VEK_dynamicNet::GetTemporalChildren(int node, std::vector<VEK_temporalArc>& out) const {
    out.clear();
    for (size_t c = 0; c < recs_.size(); ++c) {
        if (!net_->IsValidNode(static_cast<int>(c))) continue;
        for (const VEK_temporalArc& a : recs_[c].parents) {
            if (a.node == node) out.push_back({static_cast<int>(c), a.order});
        }
    }
}

void VEK_dynamicNet::GetTemporalOrders(int node, std::vector<int>& out) const {
    out.clear();
    if (const NodeRec* r = Rec(node)) {
        for (const Table& t : r->tables) out.push_back(t.order);
    }
}

int VEK_dynamicNet::GetMaxNodeTemporalOrder(int node) const {
    const NodeRec* r = Rec(node);
    return r && !r->tables.empty() ? r->tables.back().order : 0;
}

int VEK_dynamicNet::GetMaxTemporalOrder() const {
    int best = 0;
    for (size_t h = 0; h < recs_.size(); ++h) best = std::max(best, GetMaxNodeTemporalOrder(static_cast<int>(h)));
    return best;
}

int VEK_dynamicNet::GetUnrolledParents(int node, int order, std::vector<VEK_temporalArc>& out) const {
    out.clear();
    if (!net_->IsValidNode(node) || order < 0) return VEK_OUT_OF_RANGE;
    for (int p : net_->GetNode(node)->Parents()) {
        if (order == 0 || IsStaticDim(node, p)) out.push_back({p, 0});
    }
    for (int k = 1; k <= order; ++k) {
        for (const VEK_temporalArc& a : GetTemporalParents(node)) {
            if (a.order == k) out.push_back(a);
        }
    }
    return VEK_OKAY;
}

int VEK_dynamicNet::OrderForSlice(int node, int slice) const {
    const NodeRec* r = Rec(node);
    int best = 0;
    if (r) {
        for (const Table& t : r->tables) {
            if (t.order <= slice) best = t.order;
        }
    }
    return best;
}

// ---------------------------------------------------------------- definitions

int VEK_dynamicNet::SetTemporalDefinition(int node, int order, const std::vector<double>& values) {
    if (!net_->IsValidNode(node)) return VEK_OUT_OF_RANGE;
    if (order == 0) return net_->GetDef(node)->SetDefinition(values);
    NodeRec* r = Rec(node);
    Table* t = r ? FindTable(*r, order) : nullptr;
    if (!t) return VEK_OUT_OF_RANGE;
    if (IsNoisyMax(node)) {
        ConformCi(node, *t);
        const int n = t->ci.GetLastDimensionSize();
        if (static_cast<int>(values.size()) != t->ci.GetSize()) return VEK_OUT_OF_RANGE;
        // The constrained columns (each parent block's last) are rewritten.
        std::vector<char> constrained(values.size() / n, 0);
        for (size_t j = 0, base = 0; j < t->ciSizes.size(); base += t->ciSizes[j++]) {
            constrained[base + t->ciSizes[j] - 1] = 1;
        }
        for (size_t c = 0; c < constrained.size(); ++c) {
            double sum = 0.0;
            for (int i = 0; i < n; ++i) {
                const double v = values[c * n + i];
                if (!(v >= 0.0 && v <= 1.0)) return VEK_OUT_OF_RANGE;
                sum += v;
            }
            if (!constrained[c] && std::fabs(sum - 1.0) > 1e-6) return VEK_OUT_OF_RANGE;
        }
        (void)t->ci.FillFrom(values);  // size checked above
        for (size_t c = 0; c < constrained.size(); ++c) {
            if (!constrained[c]) continue;
            for (int i = 0; i < n; ++i) t->ci[static_cast<int>(c) * n + i] = i + 1 == n ? 1.0 : 0.0;
        }
        Changed(node);
        return VEK_OKAY;
    }
    if (IsCanonical(node) && ConformCanonical(node, *t)) return SetCanonicalParameters(node, order, values);
    if (static_cast<int>(values.size()) != t->matrix.GetSize()) return VEK_OUT_OF_RANGE;
    (void)t->matrix.FillFrom(values);  // size checked above
    Changed(node);
    return VEK_OKAY;
}

const VEK_Dmatrix* VEK_dynamicNet::GetTemporalDefinition(int node, int order) const {
    if (!net_->IsValidNode(node)) return nullptr;
    if (order == 0) return net_->GetDef(node)->GetMatrix();
    const NodeRec* r = Rec(node);
    if (!r) return nullptr;
    for (const Table& t : r->tables) {
        if (t.order != order) continue;
        if (IsNoisyMax(node)) ComputeNoisyTable(node, t);
        if (const VEK_nodeDef* d = ConformCanonical(node, t)) return d->GetMatrix();
        return &t.matrix;
    }
    return nullptr;
}

// ---------------------------------------------------------------- evidence

int VEK_dynamicNet::SetTemporalEvidence(int node, int slice, int outcome) {
    NodeRec* r = Rec(node);
    if (!r || !IsPlate(*net_, node)) return VEK_WRONG_NODE_TYPE;
    if (slice < 0 || slice >= static_cast<int>(r->evidence.size())) return VEK_OUT_OF_RANGE;
    if (outcome < 0 || outcome >= OutcomeCount(*net_, node)) return VEK_OUT_OF_RANGE;
    r->evidence[slice] = outcome;
    r->virtualEvidence[slice].clear();
    net_->InvalidateAllBeliefs();
    return VEK_OKAY;
}

int VEK_dynamicNet::GetTemporalEvidence(int node, int slice) const {
    const NodeRec* r = Rec(node);
    if (!r || slice < 0 || slice >= static_cast<int>(r->evidence.size())) return -1;
    return r->evidence[slice];
}

int VEK_dynamicNet::SetTemporalVirtualEvidence(int node, int slice, const std::vector<double>& likelihoods) {
    NodeRec* r = Rec(node);
    if (!r || !IsPlate(*net_, node)) return VEK_WRONG_NODE_TYPE;
    if (slice < 0 || slice >= static_cast<int>(r->evidence.size())) return VEK_OUT_OF_RANGE;
    if (static_cast<int>(likelihoods.size()) != OutcomeCount(*net_, node)) return VEK_OUT_OF_RANGE;
    double sum = 0.0;
    for (double x : likelihoods) {
        if (!(x >= 0.0 && x <= 1.0)) return VEK_OUT_OF_RANGE;
        sum += x;
    }
    if (sum <= 0.0) return VEK_OUT_OF_RANGE;
    r->virtualEvidence[slice] = likelihoods;
    r->evidence[slice] = -1;
    net_->InvalidateAllBeliefs();
    return VEK_OKAY;
}

const std::vector<double>* VEK_dynamicNet::GetTemporalVirtualEvidence(int node, int slice) const {
    const NodeRec* r = Rec(node);
    if (!r || slice < 0 || slice >= static_cast<int>(r->evidence.size())) return nullptr;
    return r->virtualEvidence[slice].empty() ? nullptr : &r->virtualEvidence[slice];
}

bool VEK_dynamicNet::IsTemporalEvidence(int node, int slice) const {
    double v;
    return GetTemporalEvidence(node, slice) >= 0 || GetTemporalVirtualEvidence(node, slice) != nullptr ||
           GetTemporalContEvidence(node, slice, v);
}

bool VEK_dynamicNet::HasTemporalEvidence(int node) const {
    const NodeRec* r = Rec(node);
    if (!r) return false;
    for (size_t s = 0; s < r->evidence.size(); ++s) {
        if (r->evidence[s] >= 0 || !r->virtualEvidence[s].empty() || !std::isnan(r->contEvidence[s])) return true;
    }
    return false;
}

int VEK_dynamicNet::ClearTemporalEvidence(int node, int slice) {
    NodeRec* r = Rec(node);
    if (!r || slice < 0 || slice >= static_cast<int>(r->evidence.size())) return VEK_OUT_OF_RANGE;
    if (r->evidence[slice] < 0 && r->virtualEvidence[slice].empty() && std::isnan(r->contEvidence[slice])) {
        return VEK_OKAY;
    }
    r->evidence[slice] = -1;
    r->virtualEvidence[slice].clear();
    r->contEvidence[slice] = kNone;
    net_->InvalidateAllBeliefs();
    return VEK_OKAY;
}

void VEK_dynamicNet::ClearAllTemporalEvidence() {
    for (NodeRec& r : recs_) {
        std::fill(r.evidence.begin(), r.evidence.end(), -1);
        for (auto& v : r.virtualEvidence) v.clear();
        std::fill(r.contEvidence.begin(), r.contEvidence.end(), kNone);
    }
}

int VEK_dynamicNet::SetTemporalContEvidence(int node, int slice, double value) {
    NodeRec* r = Rec(node);
    if (!r || !IsPlate(*net_, node) || !IsEquation(*net_, node)) return VEK_WRONG_NODE_TYPE;
    if (slice < 0 || slice >= static_cast<int>(r->contEvidence.size()) || !std::isfinite(value)) return VEK_OUT_OF_RANGE;
    r->contEvidence[slice] = value;
    net_->InvalidateAllBeliefs();
    return VEK_OKAY;
}

bool VEK_dynamicNet::GetTemporalContEvidence(int node, int slice, double& value) const {
    const NodeRec* r = Rec(node);
    if (!r || slice < 0 || slice >= static_cast<int>(r->contEvidence.size()) || std::isnan(r->contEvidence[slice])) {
        return false;
    }
    value = r->contEvidence[slice];
    return true;
}

// ---------------------------------------------------------------- temporal equations

int VEK_dynamicNet::SetTemporalEquations(int node, const std::vector<std::string>& texts, int& errorPos,
                                         std::string& message) {
    errorPos = -1;
    NodeRec* r = Rec(node);
    if (!r || !IsPlate(*net_, node) || !IsEquation(*net_, node)) {
        message = "Temporal equations belong to equation nodes in the temporal plate";
        return VEK_WRONG_NODE_TYPE;
    }
    if (texts.size() != r->tables.size()) {
        message = "Expected " + std::to_string(r->tables.size()) + " equations, one per temporal order, got " +
                  std::to_string(texts.size());
        return VEK_OUT_OF_RANGE;
    }
    VEK_functionSet functions;
    int failed = -1;
    if (functions.Parse(net_->ExtFunctions(), failed, errorPos, message) != VEK_OKAY) {
        errorPos = -1;
        message = "External function " + std::to_string(failed) + ": " + message;
        return VEK_SYNTAX_ERROR;
    }
    const std::string id = net_->GetNodeId(node);
    const VEK_intArray& parents = net_->GetNode(node)->Parents();
    std::vector<std::string> canonical(texts.size());
    for (size_t i = 0; i < texts.size(); ++i) {
        if (texts[i].empty()) continue;
        const int order = r->tables[i].order;
        VEK_expression lhs, rhs, solved;
        int res = VEK_exprParser::ParseEquation(texts[i], &functions, lhs, rhs, errorPos, message);
        if (res == VEK_OKAY) {
            const VEK_exprNode& root = lhs.Node(lhs.Root());
            if (root.kind == VEK_exprKind::Variable && lhs.Variables()[root.first] == id && rhs.FindVariable(id) < 0) {
                solved = rhs;
            } else if (VEK_solveFor(lhs, rhs, id, solved, message) != VEK_OKAY) {
                res = VEK_OUT_OF_RANGE;
            }
        }
        solved.SetFunctions(&functions);
        for (size_t v = 0; res == VEK_OKAY && v < solved.Variables().size(); ++v) {
            const std::string& name = solved.Variables()[v];
            const size_t bracket = name.find("[-");
            bool known;
            if (bracket == std::string::npos) {
                const int h = net_->FindNode(name.c_str());
                known = h >= 0 && parents.FindPosition(h) >= 0;
            } else {
                const int h = net_->FindNode(name.substr(0, bracket).c_str());
                const int k = std::atoi(name.c_str() + bracket + 2);
                known = h >= 0 && k >= 1 && k <= order && TemporalArcExists(h, node, k);
            }
            if (!known) {
                message = "Equation of order " + std::to_string(order) + ": '" + name +
                          "' is neither a parent nor a temporal parent of at most that order";
                res = VEK_OUT_OF_RANGE;
            }
        }
        if (res != VEK_OKAY) {
            message = "Equation " + std::to_string(i) + ": " + message;
            return res;
        }
        canonical[i] = id + " = " + solved.Print();
    }
    for (size_t i = 0; i < texts.size(); ++i) r->tables[i].equation = std::move(canonical[i]);
    Changed(node);
    return VEK_OKAY;
}

std::vector<std::string> VEK_dynamicNet::GetTemporalEquations(int node) const {
    std::vector<std::string> out;
    if (const NodeRec* r = Rec(node)) {
        for (const Table& t : r->tables) out.push_back(t.equation);
    }
    return out;
}

const std::string* VEK_dynamicNet::GetTemporalEquation(int node, int order) const {
    const NodeRec* r = Rec(node);
    if (!r) return nullptr;
    for (const Table& t : r->tables) {
        if (t.order == order) return t.equation.empty() ? nullptr : &t.equation;
    }
    return nullptr;
}

// ---------------------------------------------------------------- reactions

void VEK_dynamicNet::OnArcAdded(int parent, int child) {
    NodeRec* r = Rec(child);
    if (!r || r->tables.empty() || !IsStaticDim(child, parent)) return;
    std::vector<int> owners;
    DimOwners(child, 1, owners);
    const int pos = static_cast<int>(std::find(owners.begin(), owners.end(), parent) - owners.begin());
    for (Table& t : r->tables) (void)t.matrix.InsertDimension(pos, std::max(1, OutcomeCount(*net_, parent)));  // pos is the parent's dimension
}

void VEK_dynamicNet::OnArcRemoving(int parent, int child) {
    NodeRec* r = Rec(child);
    if (!r || r->tables.empty() || !IsStaticDim(child, parent)) return;
    std::vector<int> owners;
    DimOwners(child, 1, owners);
    const int pos = static_cast<int>(std::find(owners.begin(), owners.end(), parent) - owners.begin());
    for (Table& t : r->tables) (void)t.matrix.RemoveDimension(pos, 0);  // pos is the parent's dimension
}

void VEK_dynamicNet::OnParentsReordered(int node, const std::vector<int>& oldParents) {
    NodeRec* r = Rec(node);
    if (!r || r->tables.empty()) return;
    std::vector<int> oldStatic, newStatic;
    for (int p : oldParents) {
        if (IsStaticDim(node, p)) oldStatic.push_back(p);
    }
    for (int p : net_->GetNode(node)->Parents()) {
        if (IsStaticDim(node, p)) newStatic.push_back(p);
    }
    for (Table& t : r->tables) {
        VEK_intArray perm;
        for (int p : newStatic) perm.Add(static_cast<int>(std::find(oldStatic.begin(), oldStatic.end(), p) - oldStatic.begin()));
        for (int d = static_cast<int>(newStatic.size()); d < t.matrix.GetNumberOfDimensions(); ++d) perm.Add(d);
        (void)t.matrix.ChangeOrderOfDimensions(perm);  // a permutation of the dimensions
    }
}

void VEK_dynamicNet::OnNodeDeleting(int node) {
    if (static_cast<size_t>(node) >= recs_.size() && GetMaxTemporalOrder() == 0) return;
    std::vector<VEK_temporalArc> children;
    GetTemporalChildren(node, children);
    // Each arc comes from the node's own list of children: it exists.
    for (const VEK_temporalArc& c : children) (void)RemoveTemporalArc(node, c.node, c.order);
    if (static_cast<size_t>(node) < recs_.size()) recs_[node] = NodeRec();
}

void VEK_dynamicNet::OnTemporalTypeChanged(int node) {
    if (IsPlate(*net_, node)) return;
    NodeRec* r = Rec(node);
    if (!r) return;
    // The arc is the last of the node's own parents: it exists, so each pass removes one.
    while (!r->parents.empty()) (void)RemoveTemporalArc(r->parents.back().node, node, r->parents.back().order);
    OnNodeDeleting(node);
}

void VEK_dynamicNet::OnOutcomeInsert(int node, int position) {
    for (size_t c = 0; c < recs_.size(); ++c) {
        for (Table& t : recs_[c].tables) {
            std::vector<int> owners;
            DimOwners(static_cast<int>(c), t.order, owners);
            for (size_t d = 0; d < owners.size(); ++d) {
                if (owners[d] != node || t.matrix.GetNumberOfDimensions() != static_cast<int>(owners.size())) continue;
                if (const int res = VEK_insertSlices(t.matrix, static_cast<int>(d), position, 1, 0.0); res < 0) {
                    net_->Logger().LogError(res, "A temporal table could not take the new outcome");
                }
            }
            // Columns of a new parent outcome are zero and become uniform;
            // the others still sum to 1.
            t.matrix.Normalize();
        }
    }
    MirrorOutcomes(node, [position](VEK_nodeDef& d) { (void)d.InsertOutcome(position, nullptr); });
}

void VEK_dynamicNet::OnOutcomeRemove(int node, int position) {
    for (size_t c = 0; c < recs_.size(); ++c) {
        for (Table& t : recs_[c].tables) {
            std::vector<int> owners;
            DimOwners(static_cast<int>(c), t.order, owners);
            if (t.matrix.GetNumberOfDimensions() != static_cast<int>(owners.size())) continue;
            for (size_t d = 0; d < owners.size(); ++d) {
                if (owners[d] != node) continue;
                if (const int res = VEK_removeSlices(t.matrix, static_cast<int>(d), position, 1); res < 0) {
                    net_->Logger().LogError(res, "A temporal table could not drop the outcome");
                }
            }
        }
    }
    MirrorOutcomes(node, [position](VEK_nodeDef& d) { (void)d.RemoveOutcome(position); });
    if (static_cast<size_t>(node) < recs_.size()) {
        NodeRec& r = recs_[node];
        for (size_t s = 0; s < r.evidence.size(); ++s) {
            if (r.evidence[s] == position) r.evidence[s] = -1;
            if (r.evidence[s] > position) --r.evidence[s];
            r.virtualEvidence[s].clear();
        }
    }
}

void VEK_dynamicNet::OnOutcomeReorder(int node, const VEK_intArray& order) {
    for (size_t c = 0; c < recs_.size(); ++c) {
        for (Table& t : recs_[c].tables) {
            std::vector<int> owners;
            DimOwners(static_cast<int>(c), t.order, owners);
            if (t.matrix.GetNumberOfDimensions() != static_cast<int>(owners.size())) continue;
            for (size_t d = 0; d < owners.size(); ++d) {
                if (owners[d] == node) (void)t.matrix.ChangeOrderWithinDimension(static_cast<int>(d), order);  // d has the node's outcomes
            }
        }
    }
    MirrorOutcomes(node, [&order](VEK_nodeDef& d) { (void)d.ChangeOrderOfOutcomes(order); });
    // Noisy-MAX: strengths name the parent's outcomes anew, and the node's
    // own outcomes are the rows of every CI column.
    VEK_intArray renamed(order.GetSize());
    for (int i = 0; i < order.GetSize(); ++i) renamed[order[i]] = i;
    for (NodeRec& r : recs_) {
        for (auto& [arc, strengths] : r.strengths) {
            if (arc.node != node || strengths.GetSize() != order.GetSize()) continue;
            for (int& o : strengths) o = renamed[o];
        }
    }
    if (static_cast<size_t>(node) < recs_.size() && IsNoisyMax(node)) {
        const int n = order.GetSize();
        for (Table& t : recs_[node].tables) {
            if (t.ci.GetLastDimensionSize() != n) continue;
            std::vector<double> column(static_cast<size_t>(n));
            for (int c = 0; c < t.ci.GetSize(); c += n) {
                for (int i = 0; i < n; ++i) column[i] = t.ci[c + order[i]];
                std::copy(column.begin(), column.end(), t.ci.Items() + c);
            }
            for (size_t j = 0, base = 0; j < t.ciSizes.size(); base += t.ciSizes[j++]) {
                double* c = t.ci.Items() + (base + t.ciSizes[j] - 1) * n;
                std::fill(c, c + n, 0.0);
                c[n - 1] = 1.0;
            }
        }
    }
    if (static_cast<size_t>(node) < recs_.size()) {
        NodeRec& r = recs_[node];
        for (size_t s = 0; s < r.evidence.size(); ++s) {
            if (r.evidence[s] >= 0) r.evidence[s] = order.FindPosition(r.evidence[s]);
            r.virtualEvidence[s].clear();
        }
    }
}

void VEK_dynamicNet::OnOutcomeCountChanged(int node) {
    if (static_cast<size_t>(node) < recs_.size()) {
        NodeRec& r = recs_[node];
        std::fill(r.evidence.begin(), r.evidence.end(), -1);
        for (auto& v : r.virtualEvidence) v.clear();
    }
    Conform();
}

void VEK_dynamicNet::OnSliceCountChanged(int count) {
    for (size_t h = 0; h < recs_.size(); ++h) {
        if (net_->IsValidNode(static_cast<int>(h))) Rec(static_cast<int>(h));
    }
    (void)count;
}

void VEK_dynamicNet::Conform() {
    for (size_t c = 0; c < recs_.size(); ++c) {
        for (Table& t : recs_[c].tables) {
            DropCanonical(static_cast<int>(c), t);
            std::vector<int> owners;
            DimOwners(static_cast<int>(c), t.order, owners);
            VEK_intArray sizes;
            DimSizes(owners, sizes);
            if (t.matrix.GetDimensions() == sizes) continue;
            (void)t.matrix.Setup(sizes);  // sizes are at least 1
            t.matrix.FillWith(1.0 / sizes[sizes.GetSize() - 1]);
        }
    }
}
