#include "inference/sampleNet.h"

#include <algorithm>
#include <cmath>

#include "inference/randGen.h"
#include "inference/samplingAdapter.h"
#include "network/status.h"

namespace {

// A table whose columns sum to 1 within this tolerance is a plain
// conditional distribution; otherwise it also weighs the evidence (virtual
// evidence, summed-out barren children).
constexpr double kColumnTolerance = 1e-9;

}  // namespace

SampleNet::SampleNet(SamplingAdapter& adapter, VEK_randGen& gen) : adapter_(adapter), gen_(gen) {
    n_ = adapter.GetNodeCount();
    samples_ = adapter.GetNumberOfSamples();
    const size_t n = static_cast<size_t>(n_);

    // Parents before children (Kahn's order, stable in adapter order).
    std::vector<int> indeg(n, 0), childCount(n, 0);
    for (int i = 0; i < n_; ++i) {
        indeg[static_cast<size_t>(i)] = adapter.GetParentCount(i);
        for (int k = 0; k < adapter.GetParentCount(i); ++k) ++childCount[static_cast<size_t>(adapter.GetParent(i, k))];
    }
    std::vector<int> cBegin(n + 1, 0);
    for (size_t i = 0; i < n; ++i) cBegin[i + 1] = cBegin[i] + childCount[i];
    std::vector<int> cList(static_cast<size_t>(cBegin[n]));
    std::vector<int> fill(cBegin.begin(), cBegin.end() - 1);
    for (int i = 0; i < n_; ++i)
        for (int k = 0; k < adapter.GetParentCount(i); ++k)
            cList[static_cast<size_t>(fill[static_cast<size_t>(adapter.GetParent(i, k))]++)] = i;
    node_.reserve(n);
    for (int i = 0; i < n_; ++i)
        if (indeg[static_cast<size_t>(i)] == 0) node_.push_back(i);
    for (size_t head = 0; head < node_.size(); ++head) {
        const int i = node_[head];
        for (int c = cBegin[static_cast<size_t>(i)]; c < cBegin[static_cast<size_t>(i) + 1]; ++c) {
            const int ch = cList[static_cast<size_t>(c)];
            if (--indeg[static_cast<size_t>(ch)] == 0) node_.push_back(ch);
        }
    }
    // The reduced network is acyclic; should it not be, the rest is ignored.
    n_ = static_cast<int>(node_.size());
    std::vector<int> posOf(n, -1);
    for (int p = 0; p < n_; ++p) posOf[static_cast<size_t>(node_[static_cast<size_t>(p)])] = p;

    states_.resize(static_cast<size_t>(n_));
    evidence_.resize(static_cast<size_t>(n_));
    tableOff_.assign(static_cast<size_t>(n_) + 1, 0);
    parBegin_.assign(static_cast<size_t>(n_) + 1, 0);
    stateOff_.assign(static_cast<size_t>(n_) + 1, 0);
    weighted_.assign(static_cast<size_t>(n_), 0);
    for (int p = 0; p < n_; ++p) {
        const int i = node_[static_cast<size_t>(p)];
        const size_t up = static_cast<size_t>(p);
        states_[up] = adapter.GetStateCount(i);
        evidence_[up] = adapter.GetEvidence(i);
        tableOff_[up + 1] = tableOff_[up] + static_cast<size_t>(adapter.GetMatrix(i).GetSize());
        parBegin_[up + 1] = parBegin_[up] + adapter.GetParentCount(i);
        stateOff_[up + 1] = stateOff_[up] + states_[up];
        if (evidence_[up] < 0) free_.push_back(p);
    }
    parents_.resize(static_cast<size_t>(parBegin_[static_cast<size_t>(n_)]));
    strides_.resize(parents_.size());
    arcChild_.resize(parents_.size());
    cpt_.resize(tableOff_[static_cast<size_t>(n_)]);
    for (int p = 0; p < n_; ++p) {
        const int i = node_[static_cast<size_t>(p)];
        const int np = adapter.GetParentCount(i);
        size_t stride = 1;
        for (int k = np - 1; k >= 0; --k) {
            const size_t a = static_cast<size_t>(parBegin_[static_cast<size_t>(p)] + k);
            parents_[a] = posOf[static_cast<size_t>(adapter.GetParent(i, k))];
            strides_[a] = stride;
            arcChild_[a] = p;
            stride *= static_cast<size_t>(adapter.GetStateCount(adapter.GetParent(i, k)));
        }
        const VEK_Dmatrix& t = adapter.GetMatrix(i);
        std::copy(t.Items(), t.Items() + t.GetSize(), cpt_.begin() + static_cast<long>(tableOff_[static_cast<size_t>(p)]));
        const int ns = states_[static_cast<size_t>(p)];
        for (int c = 0; c < ColumnCount(p) && !weighted_[static_cast<size_t>(p)]; ++c) {
            const double* col = &cpt_[Base(p, static_cast<size_t>(c))];
            double sum = 0.0;
            for (int s = 0; s < ns; ++s) sum += col[s];
            if (std::fabs(sum - 1.0) > kColumnTolerance) weighted_[static_cast<size_t>(p)] = 1;
        }
    }
    childBegin_.assign(static_cast<size_t>(n_) + 1, 0);
    for (int q : parents_) ++childBegin_[static_cast<size_t>(q) + 1];
    for (int p = 0; p < n_; ++p) childBegin_[static_cast<size_t>(p) + 1] += childBegin_[static_cast<size_t>(p)];
    childArcs_.resize(parents_.size());
    std::vector<int> next(childBegin_.begin(), childBegin_.end() - 1);
    for (size_t a = 0; a < parents_.size(); ++a)
        childArcs_[static_cast<size_t>(next[static_cast<size_t>(parents_[a])]++)] = static_cast<int>(a);

    x_.assign(static_cast<size_t>(n_), 0);
    col_.assign(static_cast<size_t>(n_), 0);
    acc_.assign(static_cast<size_t>(stateOff_[static_cast<size_t>(n_)]), 0.0);
}

// ---------------------------------------------------------------- importance tables

void SampleNet::SetParameterForImportanceSampling() {
    icpt_ = cpt_;
    NormalizeImportanceColumns();
}

void SampleNet::ClearImportanceParameter() {
    std::vector<double>().swap(icpt_);
    std::vector<double>().swap(learn_);
}

void SampleNet::NormalizeImportanceColumns() {
    for (int p = 0; p < n_; ++p) {
        const int ns = states_[static_cast<size_t>(p)];
        for (int c = 0; c < ColumnCount(p); ++c) {
            double* q = &icpt_[Base(p, static_cast<size_t>(c))];
            double sum = 0.0;
            for (int s = 0; s < ns; ++s) sum += q[s];
            // A column of zeros can only give samples of weight 0; any
            // distribution does.
            if (!(sum > 0.0) || !std::isfinite(sum)) {
                for (int s = 0; s < ns; ++s) q[s] = 1.0 / ns;
                continue;
            }
            const double inv = 1.0 / sum;
            for (int s = 0; s < ns; ++s) q[s] *= inv;
        }
    }
}

void SampleNet::CutOffSmall(const std::vector<char>& which, const std::vector<double>& epsByPos) {
    for (int p = 0; p < n_; ++p) {
        if (!which[static_cast<size_t>(p)] || evidence_[static_cast<size_t>(p)] >= 0) continue;
        const int ns = states_[static_cast<size_t>(p)];
        const double eps = epsByPos[static_cast<size_t>(p)];
        for (int c = 0; c < ColumnCount(p); ++c) {
            const size_t base = Base(p, static_cast<size_t>(c));
            double* q = &icpt_[base];
            double sum = 0.0;
            for (int s = 0; s < ns; ++s) {
                if (cpt_[base + static_cast<size_t>(s)] > 0.0 && q[s] < eps) q[s] = eps;
                sum += q[s];
            }
            if (sum > 0.0)
                for (int s = 0; s < ns; ++s) q[s] /= sum;
        }
    }
}

void SampleNet::MarkEvidenceAncestors(std::vector<char>& out) const {
    out.assign(static_cast<size_t>(n_), 0);
    std::vector<char> seen(static_cast<size_t>(n_), 0);
    std::vector<int> stack;
    for (int p = n_ - 1; p >= 0; --p) {
        if (evidence_[static_cast<size_t>(p)] < 0 && !weighted_[static_cast<size_t>(p)]) continue;
        // A free node whose table carries evidence is its own first ancestor.
        if (evidence_[static_cast<size_t>(p)] < 0) out[static_cast<size_t>(p)] = 1;
        stack.push_back(p);
        while (!stack.empty()) {
            const int v = stack.back();
            stack.pop_back();
            if (seen[static_cast<size_t>(v)]) continue;
            seen[static_cast<size_t>(v)] = 1;
            for (int k = parBegin_[static_cast<size_t>(v)]; k < parBegin_[static_cast<size_t>(v) + 1]; ++k) {
                const int q = parents_[static_cast<size_t>(k)];
                if (evidence_[static_cast<size_t>(q)] < 0) out[static_cast<size_t>(q)] = 1;
                stack.push_back(q);
            }
        }
    }
}

bool SampleNet::HasEvidence() const {
    for (int p = 0; p < n_; ++p)
        if (evidence_[static_cast<size_t>(p)] >= 0 || weighted_[static_cast<size_t>(p)]) return true;
    return false;
}

// ---------------------------------------------------------------- sampling core

int SampleNet::Draw(const double* q, int n) {
    const double r = gen_.GetDouble();
    double sum = 0.0;
    int last = 0;
    for (int s = 0; s < n; ++s) {
        if (!(q[s] > 0.0)) continue;
        sum += q[s];
        last = s;
        if (sum > r) return s;
    }
    // Rounding left the running sum at or below r: the last possible state.
    return last;
}

double SampleNet::TakeImportanceSample(int p, size_t base) {
    const double* q = &icpt_[base];
    const int s = Draw(q, states_[static_cast<size_t>(p)]);
    x_[static_cast<size_t>(p)] = s;
    return q[s] > 0.0 ? cpt_[base + static_cast<size_t>(s)] / q[s] : 0.0;
}

double SampleNet::OneImportanceSample() {
    double w = 1.0;
    int e = 0;
    for (int p = 0; p < n_; ++p) {
        const size_t col = Column(p);
        col_[static_cast<size_t>(p)] = col;
        const size_t base = Base(p, col);
        const int ev = evidence_[static_cast<size_t>(p)];
        if (ev >= 0) {
            x_[static_cast<size_t>(p)] = ev;
            w *= cpt_[base + static_cast<size_t>(ev)];
        } else {
            w *= TakeImportanceSample(p, base);
        }
        if (w == 0.0) return 0.0;
        KeepInRange(w, e);
    }
    weightExp_ = e;
    return w;
}

void SampleNet::SetTotalTableToZero() {
    std::fill(acc_.begin(), acc_.end(), 0.0);
    totalWeight_ = 0.0;
    totalSquare_ = 0.0;
    accExp_ = 0;
    learnTotal_ = 0.0;
    learnExp_ = 0;
}

double SampleNet::ToScale(double w, std::vector<double>& table, double& total, int& scale) const {
    const int e = weightExp_;
    if (total == 0.0) {
        scale = e;
    } else if (e > scale) {
        const int d = scale - e;
        for (double& a : table) a = std::ldexp(a, d);
        total = std::ldexp(total, d);
        scale = e;
    }
    return e == scale ? w : std::ldexp(w, e - scale);
}

void SampleNet::AddWeight(double w) {
    if (!(w > 0.0) || !std::isfinite(w)) return;
    const int before = accExp_;
    const bool first = totalWeight_ == 0.0;
    w = ToScale(w, acc_, totalWeight_, accExp_);
    if (first) {
        totalSquare_ = 0.0;
    } else if (accExp_ != before) {
        totalSquare_ = std::ldexp(totalSquare_, 2 * (before - accExp_));
    }
    if (!(w > 0.0)) return;  // negligible next to the samples so far
    totalWeight_ += w;
    totalSquare_ += w * w;
    for (int p : free_) acc_[static_cast<size_t>(stateOff_[static_cast<size_t>(p)] + x_[static_cast<size_t>(p)])] += w;
}

void SampleNet::AddLearningWeight(double w) {
    if (!(w > 0.0) || !std::isfinite(w)) return;
    w = ToScale(w, learn_, learnTotal_, learnExp_);
    if (!(w > 0.0)) return;
    learnTotal_ += w;
    for (int p : free_)
        learn_[Base(p, col_[static_cast<size_t>(p)]) + static_cast<size_t>(x_[static_cast<size_t>(p)])] += w;
}

int SampleNet::NormalizeWeight() {
    if (!(totalWeight_ > 0.0) || !std::isfinite(totalWeight_)) return VEK_NO_USEFUL_SAMPLES;
    std::vector<double>& out = outBuf_;
    for (int p : free_) {
        const int ns = states_[static_cast<size_t>(p)];
        const double* a = &acc_[static_cast<size_t>(stateOff_[static_cast<size_t>(p)])];
        double sum = 0.0;
        for (int s = 0; s < ns; ++s) sum += a[s];
        if (!(sum > 0.0)) return VEK_NO_USEFUL_SAMPLES;
        out.resize(static_cast<size_t>(ns));
        for (int s = 0; s < ns; ++s) out[static_cast<size_t>(s)] = a[s] / sum;
        adapter_.SetBeliefs(node_[static_cast<size_t>(p)], out.data());
    }
    for (int p = 0; p < n_; ++p)
        if (evidence_[static_cast<size_t>(p)] >= 0) adapter_.EnsureEvidenceValue(node_[static_cast<size_t>(p)]);
    return VEK_OKAY;
}

int SampleNet::Sampling() {
    if (icpt_.size() != cpt_.size()) SetParameterForImportanceSampling();
    SetTotalTableToZero();
    for (int i = 0; i < samples_; ++i) AddWeight(OneImportanceSample());
    return NormalizeWeight();
}

bool SampleNet::IsPolytree() const {
    // Union-find over the arcs: an arc between nodes already connected
    // closes an undirected cycle.
    std::vector<int> root(static_cast<size_t>(n_));
    for (int p = 0; p < n_; ++p) root[static_cast<size_t>(p)] = p;
    auto find = [&root](int v) {
        while (root[static_cast<size_t>(v)] != v) {
            root[static_cast<size_t>(v)] = root[static_cast<size_t>(root[static_cast<size_t>(v)])];
            v = root[static_cast<size_t>(v)];
        }
        return v;
    };
    for (size_t a = 0; a < parents_.size(); ++a) {
        const int r1 = find(parents_[a]);
        const int r2 = find(arcChild_[a]);
        if (r1 == r2) return false;
        root[static_cast<size_t>(r1)] = r2;
    }
    return true;
}
