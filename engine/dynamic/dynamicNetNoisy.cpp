// The noisy-MAX side of VEK_dynamicNet: CI weights per temporal order and
// the tables computed from them.
#include <algorithm>

#include "dynamic/dynamicNet.h"
#include "network/network.h"
#include "network/noisyMAX.h"

namespace {

VEK_intArray Identity(int n) {
    VEK_intArray a;
    (void)a.MakeIdentityPermutation(n);  // n is a count
    return a;
}

bool IsPermutationOf(const VEK_intArray& a, int n) { return a.GetSize() == n && a.IsPermutation(); }

}  // namespace

bool VEK_dynamicNet::IsNoisyMax(int node) const {
    const VEK_nodeDef* d = net_->GetDef(node);
    return d && d->GetType() == VEK_NOISY_MAX;
}

VEK_intArray VEK_dynamicNet::TemporalStrengths(const NodeRec& r, const VEK_temporalArc& arc) const {
    const int m = net_->GetDef(arc.node)->GetDiscreteOutcomeCount();
    for (const auto& [a, s] : r.strengths) {
        if (a == arc && IsPermutationOf(s, m)) return s;
    }
    return Identity(m);
}

// Blocks are matched by (parent, order): the columns of a parent that is
// still there with as many outcomes are kept, the rest start uniform. A new
// table starts from the table of the next lower order, the first one from
// the ordinary definition.
void VEK_dynamicNet::ConformCi(int node, const Table& t) const {
    const auto* def = static_cast<const VEK_noisyMAX*>(net_->GetDef(node));
    const int n = def->GetNumberOfOutcomes();
    std::vector<VEK_temporalArc> owners;
    (void)GetUnrolledParents(node, t.order, owners);  // a valid node and a table's order, never negative
    std::vector<int> sizes;
    int columns = 1;
    for (const VEK_temporalArc& o : owners) {
        sizes.push_back(std::max(1, net_->GetDef(o.node)->GetDiscreteOutcomeCount()));
        columns += sizes.back();
    }
    if (t.ciOwners == owners && t.ciSizes == sizes && t.ci.GetSize() == columns * n) return;

    const VEK_Dmatrix* src = &t.ci;
    std::vector<VEK_temporalArc> srcOwners = t.ciOwners;
    std::vector<int> srcSizes = t.ciSizes;
    if (t.ci.GetSize() == 0) {
        const Table* lower = nullptr;
        if (const NodeRec* r = Rec(node)) {
            for (const Table& x : r->tables) {
                if (x.order < t.order) lower = &x;
            }
        }
        if (lower) {
            ConformCi(node, *lower);
            src = &lower->ci;
            srcOwners = lower->ciOwners;
            srcSizes = lower->ciSizes;
        } else {
            src = &def->GetCiWeights();
            srcOwners.clear();
            srcSizes.clear();
            for (int i = 0; i < def->GetNumberOfParents(); ++i) {
                srcOwners.push_back({net_->GetNode(node)->Parents()[i], 0});
                srcSizes.push_back(def->GetParentOutcomeCount(i));
            }
        }
    }
    VEK_Dmatrix ci;
    (void)ci.Setup(VEK_intArray{columns, n});  // both at least 1
    ci.FillWith(1.0 / n);
    const bool sameRows = src->GetNumberOfDimensions() == 2 && src->GetLastDimensionSize() == n;
    int srcColumns = 1;
    for (int s : srcSizes) srcColumns += s;
    if (sameRows && src->GetSize() == srcColumns * n) {
        for (size_t j = 0, base = 0; j < owners.size(); base += sizes[j++]) {
            for (size_t i = 0, from = 0; i < srcOwners.size(); from += srcSizes[i++]) {
                if (srcOwners[i] == owners[j] && srcSizes[i] == sizes[j]) {
                    std::copy_n(src->Items() + from * n, sizes[j] * n, ci.Items() + base * n);
                }
            }
        }
        std::copy_n(src->Items() + (srcColumns - 1) * n, n, ci.Items() + (columns - 1) * n);
    }
    for (size_t j = 0, base = 0; j < owners.size(); base += sizes[j++]) {
        double* c = ci.Items() + (base + sizes[j] - 1) * n;
        std::fill(c, c + n, 0.0);
        c[n - 1] = 1.0;
    }
    t.ci = std::move(ci);
    t.ciOwners = std::move(owners);
    t.ciSizes = std::move(sizes);
}

// F(y | x) = cL(y) * prod_j C_j(x_j, y) on cumulative columns (sums from
// each outcome to the last), then back to probabilities.
void VEK_dynamicNet::ComputeNoisyTable(int node, const Table& t) const {
    ConformCi(node, t);
    const auto* def = static_cast<const VEK_noisyMAX*>(net_->GetDef(node));
    const NodeRec* r = Rec(node);
    const int n = def->GetNumberOfOutcomes();
    const size_t k = t.ciOwners.size();
    std::vector<double> cum(static_cast<size_t>(t.ci.GetSize()));
    for (int c = 0; c < t.ci.GetSize(); c += n) {
        double run = 0.0;
        for (int i = n - 1; i >= 0; --i) cum[c + i] = run += t.ci[c + i];
    }
    // column[j][x]: the cumulative column of parent j in its outcome x.
    std::vector<std::vector<const double*>> column(k);
    VEK_intArray dims;
    const VEK_intArray& parents = net_->GetNode(node)->Parents();
    for (size_t j = 0, base = 0; j < k; base += t.ciSizes[j++]) {
        const VEK_temporalArc& o = t.ciOwners[j];
        VEK_intArray strengths;
        if (o.order == 0) {
            const VEK_intArray* s = def->GetParentOutcomeStrengths(parents.FindPosition(o.node));
            strengths = s ? *s : Identity(t.ciSizes[j]);
        } else {
            strengths = TemporalStrengths(*r, o);
        }
        column[j].resize(static_cast<size_t>(t.ciSizes[j]));
        for (int p = 0; p < strengths.GetSize(); ++p) column[j][strengths[p]] = cum.data() + (base + p) * n;
        dims.Add(t.ciSizes[j]);
    }
    dims.Add(n);
    (void)t.matrix.Setup(dims);  // sizes are at least 1
    const double* leak = cum.data() + cum.size() - n;
    std::vector<int> x(k, 0);
    std::vector<double> f(static_cast<size_t>(n));
    for (int at = 0; at < t.matrix.GetSize(); at += n) {
        std::copy_n(leak, n, f.begin());
        for (size_t j = 0; j < k; ++j) {
            for (int i = 0; i < n; ++i) f[i] *= column[j][x[j]][i];
        }
        double* out = t.matrix.Items() + at;
        for (int i = 0; i + 1 < n; ++i) out[i] = std::max(0.0, f[i] - f[i + 1]);
        out[n - 1] = std::max(0.0, f[n - 1]);
        for (size_t j = k; j-- > 0;) {
            if (++x[j] < t.ciSizes[j]) break;
            x[j] = 0;
        }
    }
}

const VEK_Dmatrix* VEK_dynamicNet::GetTemporalParameters(int node, int order) const {
    if (!net_->IsValidNode(node)) return nullptr;
    if (order == 0) return &net_->GetDef(node)->GetParameters();
    if (const VEK_nodeDef* d = GetTemporalCanonical(node, order)) return &d->GetParameters();
    if (!IsNoisyMax(node)) return GetTemporalDefinition(node, order);
    const NodeRec* r = Rec(node);
    if (!r) return nullptr;
    for (const Table& t : r->tables) {
        if (t.order != order) continue;
        ConformCi(node, t);
        return &t.ci;
    }
    return nullptr;
}

int VEK_dynamicNet::GetNoisyTemporalStrengths(int node, int order, std::vector<VEK_intArray>& out) const {
    out.clear();
    const NodeRec* r = Rec(node);
    if (!r || !IsNoisyMax(node)) return VEK_OUT_OF_RANGE;
    for (const VEK_temporalArc& a : r->parents) {
        if (a.order == order) out.push_back(TemporalStrengths(*r, a));
    }
    return out.empty() ? VEK_OUT_OF_RANGE : VEK_OKAY;
}

int VEK_dynamicNet::SetNoisyTemporalStrengths(int node, int order, const std::vector<VEK_intArray>& strengths) {
    std::vector<VEK_intArray> current;
    if (GetNoisyTemporalStrengths(node, order, current) != VEK_OKAY || current.size() != strengths.size()) {
        return VEK_OUT_OF_RANGE;
    }
    for (size_t i = 0; i < strengths.size(); ++i) {
        if (!IsPermutationOf(strengths[i], current[i].GetSize())) return VEK_OUT_OF_RANGE;
    }
    NodeRec& r = *Rec(node);
    size_t i = 0;
    for (const VEK_temporalArc& a : r.parents) {
        if (a.order != order) continue;
        std::erase_if(r.strengths, [&a](const auto& s) { return s.first == a; });
        r.strengths.emplace_back(a, strengths[i++]);
    }
    Changed(node);
    return VEK_OKAY;
}
