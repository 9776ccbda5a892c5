// Message passing over a SampleNet: loopy belief propagation (also the
// pre-pass of EPIS) and, on a sub-network whose arcs form a tree, the exact
// propagation for polytrees. Every arc carries a message from the parent
// (over the parent's states, the parent's support from its side) and one
// from the child (the likelihood of the parent's states from the child's
// side). Messages are normalised to sum to 1.
#include <algorithm>
#include <cmath>

#include "inference/sampleNet.h"
#include "inference/samplingAdapter.h"
#include "network/status.h"

void SampleNet::InitMessages() {
    const size_t arcs = parents_.size();
    msgOff_.assign(arcs + 1, 0);
    for (size_t a = 0; a < arcs; ++a) msgOff_[a + 1] = msgOff_[a] + states_[static_cast<size_t>(parents_[a])];
    piMsg_.assign(static_cast<size_t>(msgOff_[arcs]), 0.0);
    for (size_t a = 0; a < arcs; ++a) {
        const int ns = states_[static_cast<size_t>(parents_[a])];
        for (int s = 0; s < ns; ++s) piMsg_[static_cast<size_t>(msgOff_[a] + s)] = 1.0 / ns;
    }
    lambdaMsg_ = piMsg_;
    pi_.assign(static_cast<size_t>(stateOff_[static_cast<size_t>(n_)]), 0.0);
    int maxStates = 1, maxParents = 0, maxParentStates = 0;
    for (int p = 0; p < n_; ++p) {
        maxStates = std::max(maxStates, states_[static_cast<size_t>(p)]);
        const int np = parBegin_[static_cast<size_t>(p) + 1] - parBegin_[static_cast<size_t>(p)];
        maxParents = std::max(maxParents, np);
        int sum = 0;
        for (int k = parBegin_[static_cast<size_t>(p)]; k < parBegin_[static_cast<size_t>(p) + 1]; ++k)
            sum += states_[static_cast<size_t>(parents_[static_cast<size_t>(k)])];
        maxParentStates = std::max(maxParentStates, sum);
    }
    lamBuf_.assign(static_cast<size_t>(maxStates), 0.0);
    outBuf_.assign(static_cast<size_t>(maxStates), 0.0);
    newLam_.assign(static_cast<size_t>(maxParentStates), 0.0);
    pre_.assign(static_cast<size_t>(maxParents) + 1, 0.0);
    u_.assign(static_cast<size_t>(maxParents), 0);
    newLamOff_.assign(static_cast<size_t>(maxParents) + 1, 0);
}

void SampleNet::Lambda(int p, double* out, int skipArc) const {
    const int ns = states_[static_cast<size_t>(p)];
    const int e = evidence_[static_cast<size_t>(p)];
    for (int s = 0; s < ns; ++s) out[s] = e < 0 || s == e ? 1.0 : 0.0;
    for (int c = childBegin_[static_cast<size_t>(p)]; c < childBegin_[static_cast<size_t>(p) + 1]; ++c) {
        const int a = childArcs_[static_cast<size_t>(c)];
        if (a == skipArc) continue;
        const double* m = &lambdaMsg_[static_cast<size_t>(msgOff_[static_cast<size_t>(a)])];
        for (int s = 0; s < ns; ++s) out[s] *= m[s];
    }
}

namespace {

// Normalises v into the message at dst, keeping the share damping of the
// message's previous value; returns the largest change.
double Send(double* v, double* dst, int n, double damping) {
    double sum = 0.0;
    for (int s = 0; s < n; ++s) sum += v[s];
    // All zero stays all zero: conflicting evidence shows as zero beliefs.
    const double inv = sum > 0.0 && std::isfinite(sum) ? (1.0 - damping) / sum : 0.0;
    const double keep = sum > 0.0 && std::isfinite(sum) ? damping : 0.0;
    double change = 0.0;
    for (int s = 0; s < n; ++s) {
        const double m = v[s] * inv + keep * dst[s];
        change = std::max(change, std::fabs(m - dst[s]));
        dst[s] = m;
    }
    return change;
}

}  // namespace

double SampleNet::UpdateNode(int p) {
    const size_t up = static_cast<size_t>(p);
    const int ns = states_[up];
    const int first = parBegin_[up];
    const int np = parBegin_[up + 1] - first;
    double* lam = lamBuf_.data();
    Lambda(p, lam, -1);

    double* pi = &pi_[static_cast<size_t>(stateOff_[up])];
    std::fill(pi, pi + ns, 0.0);
    newLamOff_[0] = 0;
    for (int k = 0; k < np; ++k)
        newLamOff_[static_cast<size_t>(k) + 1] =
            newLamOff_[static_cast<size_t>(k)] + states_[static_cast<size_t>(parents_[static_cast<size_t>(first + k)])];
    std::fill(newLam_.begin(), newLam_.begin() + newLamOff_[static_cast<size_t>(np)], 0.0);
    std::fill(u_.begin(), u_.begin() + np, 0);

    // One pass over the columns gives the node's support from its parents
    // and, with prefix and suffix products, the message to every parent.
    const double* row = &cpt_[tableOff_[up]];
    const int cols = ColumnCount(p);
    pre_[0] = 1.0;
    for (int c = 0; c < cols; ++c, row += ns) {
        for (int k = 0; k < np; ++k) {
            const size_t a = static_cast<size_t>(first + k);
            pre_[static_cast<size_t>(k) + 1] = pre_[static_cast<size_t>(k)] * piMsg_[static_cast<size_t>(msgOff_[a] + u_[static_cast<size_t>(k)])];
        }
        const double weight = pre_[static_cast<size_t>(np)];
        double toParents = 0.0;
        for (int s = 0; s < ns; ++s) {
            pi[s] += weight * row[s];
            toParents += lam[s] * row[s];
        }
        if (toParents != 0.0) {
            double suffix = 1.0;
            for (int k = np - 1; k >= 0; --k) {
                const size_t a = static_cast<size_t>(first + k);
                const int uk = u_[static_cast<size_t>(k)];
                newLam_[static_cast<size_t>(newLamOff_[static_cast<size_t>(k)] + uk)] += toParents * pre_[static_cast<size_t>(k)] * suffix;
                suffix *= piMsg_[static_cast<size_t>(msgOff_[a] + uk)];
            }
        }
        for (int k = np - 1; k >= 0; --k) {
            if (++u_[static_cast<size_t>(k)] < states_[static_cast<size_t>(parents_[static_cast<size_t>(first + k)])]) break;
            u_[static_cast<size_t>(k)] = 0;
        }
    }
    double sum = 0.0;
    for (int s = 0; s < ns; ++s) sum += pi[s];
    if (sum > 0.0 && std::isfinite(sum))
        for (int s = 0; s < ns; ++s) pi[s] /= sum;

    double change = 0.0;
    for (int k = 0; k < np; ++k) {
        const size_t a = static_cast<size_t>(first + k);
        change = std::max(change, Send(&newLam_[static_cast<size_t>(newLamOff_[static_cast<size_t>(k)])],
                                       &lambdaMsg_[static_cast<size_t>(msgOff_[a])], newLamOff_[static_cast<size_t>(k) + 1] -
                                                                                         newLamOff_[static_cast<size_t>(k)], damping_));
    }
    double* out = outBuf_.data();
    for (int c = childBegin_[up]; c < childBegin_[up + 1]; ++c) {
        const int a = childArcs_[static_cast<size_t>(c)];
        Lambda(p, out, a);
        for (int s = 0; s < ns; ++s) out[s] *= pi[s];
        change = std::max(change, Send(out, &piMsg_[static_cast<size_t>(msgOff_[static_cast<size_t>(a)])], ns, damping_));
    }
    return change;
}

double SampleNet::PropagationSweep(bool forward) {
    double change = 0.0;
    if (forward) {
        for (int p = 0; p < n_; ++p) change = std::max(change, UpdateNode(p));
    } else {
        for (int p = n_ - 1; p >= 0; --p) change = std::max(change, UpdateNode(p));
    }
    return change;
}

int SampleNet::WriteMessageBeliefs(bool reportZero) {
    double* lam = lamBuf_.data();
    double* out = outBuf_.data();
    for (int p : free_) {
        const int ns = states_[static_cast<size_t>(p)];
        const double* pi = &pi_[static_cast<size_t>(stateOff_[static_cast<size_t>(p)])];
        Lambda(p, lam, -1);
        double sum = 0.0;
        for (int s = 0; s < ns; ++s) sum += out[s] = pi[s] * lam[s];
        if (!(sum > 0.0) || !std::isfinite(sum)) {
            if (!reportZero) return VEK_NO_USEFUL_SAMPLES;
            adapter_.ReportZeroPotential(node_[static_cast<size_t>(p)]);
            return VEK_IMPOSSIBLE_EVIDENCE;
        }
        for (int s = 0; s < ns; ++s) out[s] /= sum;
        adapter_.SetBeliefs(node_[static_cast<size_t>(p)], out);
    }
    // Evidence nodes: the evidence must be possible under their own tables.
    for (int p = 0; p < n_; ++p) {
        const int e = evidence_[static_cast<size_t>(p)];
        if (e < 0) continue;
        if (!(pi_[static_cast<size_t>(stateOff_[static_cast<size_t>(p)] + e)] > 0.0)) {
            if (!reportZero) return VEK_NO_USEFUL_SAMPLES;
            adapter_.ReportZeroPotential(node_[static_cast<size_t>(p)]);
            return VEK_IMPOSSIBLE_EVIDENCE;
        }
        adapter_.EnsureEvidenceValue(node_[static_cast<size_t>(p)]);
    }
    return VEK_OKAY;
}

int SampleNet::LBP() {
    const VEK_LBPParams& params = adapter_.GetLBPParams();
    InitMessages();
    damping_ = params.damping;
    for (int k = 0; k < params.maxIterations; ++k) {
        const double change = std::max(PropagationSweep(true), PropagationSweep(false));
        if (change <= params.tolerance) break;
    }
    damping_ = 0.0;
    return WriteMessageBeliefs(false);
}

int SampleNet::PearlPolytree() {
    InitMessages();
    // On a tree the messages settle after at most as many sweeps as the
    // longest path is long; then a sweep changes nothing at all.
    for (int k = 0; k <= n_ + 1; ++k) {
        if (std::max(PropagationSweep(true), PropagationSweep(false)) == 0.0) break;
    }
    return WriteMessageBeliefs(true);
}
