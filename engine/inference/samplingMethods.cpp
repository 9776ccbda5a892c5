// The stochastic sampling methods of SampleNet. All of them estimate beliefs
// as normalised sums of sample weights, the weight of a sample being the
// probability of its states and the evidence divided by the probability
// with which the sample was drawn.
#include <algorithm>
#include <cmath>

#include "inference/randGen.h"
#include "inference/sampleNet.h"
#include "inference/samplingAdapter.h"
#include "network/status.h"

namespace {

// Adaptive importance sampling: learning stages, and the learning rate
// a * (b / a)^(k / stages) of stage k.
constexpr int kAisStages = 10;
constexpr double kAisRateStart = 0.4;
constexpr double kAisRateEnd = 0.14;
// Threshold of the small-probability cut-off before learning, for n states.
constexpr double kAisCutOff = 0.08;

// Self-importance: the samples are drawn in this many stages, and revised
// tables keep this share of the conditional table, so that no state the
// model allows becomes impossible to draw.
constexpr int kSelfStages = 10;
constexpr double kSelfPriorShare = 0.1;

// Backward sampling enumerates the unsampled parents of an evidence node;
// beyond this many combinations the node weighs its sample instead.
constexpr int kMaxBackwardCombinations = 4096;

int StageSize(int total, int stages, int k) { return total / stages + (k < total % stages ? 1 : 0); }

}  // namespace

int SampleNet::LogicSampling() {
    if (icpt_.size() != cpt_.size()) SetParameterForImportanceSampling();
    SetTotalTableToZero();
    for (int i = 0; i < samples_; ++i) {
        double w = 1.0;
        weightExp_ = 0;
        for (int p = 0; p < n_ && w != 0.0; ++p) {
            const size_t base = Base(p, Column(p));
            // Tables that do not sum to 1 (virtual evidence) weigh the draw.
            w *= TakeImportanceSample(p, base);
            const int e = evidence_[static_cast<size_t>(p)];
            if (e >= 0 && x_[static_cast<size_t>(p)] != e) w = 0.0;
            if (w != 0.0) KeepInRange(w, weightExp_);
        }
        AddWeight(w);
    }
    return NormalizeWeight();
}

int SampleNet::LikelihoodSampling() {
    SetParameterForImportanceSampling();
    return Sampling();
}

int SampleNet::SelfImportanceSampling() {
    if (icpt_.size() != cpt_.size()) SetParameterForImportanceSampling();
    std::vector<char> learnable;
    MarkEvidenceAncestors(learnable);
    learn_.assign(cpt_.size(), 0.0);
    SetTotalTableToZero();
    for (int k = 0; k < kSelfStages; ++k) {
        const int count = StageSize(samples_, kSelfStages, k);
        for (int i = 0; i < count; ++i) {
            const double w = OneImportanceSample();
            AddWeight(w);
            AddLearningWeight(w);
        }
        if (k + 1 == kSelfStages) break;
        // Every sample's weight is right for the tables it was drawn from,
        // so the samples of all stages are pooled in the estimate; the
        // tables move towards the posterior seen so far.
        for (int p = 0; p < n_; ++p) {
            if (!learnable[static_cast<size_t>(p)]) continue;
            const int ns = states_[static_cast<size_t>(p)];
            for (int c = 0; c < ColumnCount(p); ++c) {
                const size_t base = Base(p, static_cast<size_t>(c));
                double seen = 0.0, prior = 0.0;
                for (int s = 0; s < ns; ++s) {
                    seen += learn_[base + static_cast<size_t>(s)];
                    prior += cpt_[base + static_cast<size_t>(s)];
                }
                if (!(seen > 0.0) || !(prior > 0.0)) continue;
                for (int s = 0; s < ns; ++s) {
                    const size_t e = base + static_cast<size_t>(s);
                    icpt_[e] = (1.0 - kSelfPriorShare) * learn_[e] / seen + kSelfPriorShare * cpt_[e] / prior;
                }
            }
        }
    }
    return NormalizeWeight();
}

int SampleNet::BackwardSampling() {
    if (icpt_.size() != cpt_.size()) SetParameterForImportanceSampling();
    // Modes of a node within one sample.
    enum : char { kFree = 0, kObserved = 1, kObservedWeighed = 2, kBackward = 3, kBackwardRoot = 4 };
    std::vector<int> observed;
    for (int p = n_ - 1; p >= 0; --p)
        if (evidence_[static_cast<size_t>(p)] >= 0 && parBegin_[static_cast<size_t>(p) + 1] > parBegin_[static_cast<size_t>(p)])
            observed.push_back(p);
    std::vector<double> combo(kMaxBackwardCombinations);
    std::vector<int> freeArcs;
    freeArcs.reserve(parents_.size());
    mode_.assign(static_cast<size_t>(n_), kFree);

    SetTotalTableToZero();
    for (int i = 0; i < samples_; ++i) {
        for (int p = 0; p < n_; ++p) mode_[static_cast<size_t>(p)] = evidence_[static_cast<size_t>(p)] >= 0 ? kObserved : kFree;
        for (int p = 0; p < n_; ++p)
            if (evidence_[static_cast<size_t>(p)] >= 0) x_[static_cast<size_t>(p)] = evidence_[static_cast<size_t>(p)];
        double w = 1.0;
        weightExp_ = 0;
        // Deepest evidence first: its unsampled parents are drawn in
        // proportion to the probability of the evidence, which then weighs
        // the sample by the sum over the parents' combinations.
        for (int e : observed) {
            freeArcs.clear();
            size_t fixedCol = 0;
            int combos = 1;
            for (int k = parBegin_[static_cast<size_t>(e)]; k < parBegin_[static_cast<size_t>(e) + 1]; ++k) {
                const int q = parents_[static_cast<size_t>(k)];
                if (mode_[static_cast<size_t>(q)] == kFree) {
                    freeArcs.push_back(k);
                    combos *= states_[static_cast<size_t>(q)];
                    if (combos > kMaxBackwardCombinations) break;
                } else {
                    fixedCol += static_cast<size_t>(x_[static_cast<size_t>(q)]) * strides_[static_cast<size_t>(k)];
                }
            }
            if (freeArcs.empty() || combos > kMaxBackwardCombinations) continue;
            const int ns = states_[static_cast<size_t>(e)];
            const size_t ev = static_cast<size_t>(evidence_[static_cast<size_t>(e)]);
            // Combinations in odometer order, the last free parent fastest.
            double z = 0.0;
            const int nf = static_cast<int>(freeArcs.size());
            for (int k = 0; k < nf; ++k) x_[static_cast<size_t>(parents_[static_cast<size_t>(freeArcs[static_cast<size_t>(k)])])] = 0;
            for (int c = 0; c < combos; ++c) {
                size_t col = fixedCol;
                for (int k = 0; k < nf; ++k) {
                    const int a = freeArcs[static_cast<size_t>(k)];
                    col += static_cast<size_t>(x_[static_cast<size_t>(parents_[static_cast<size_t>(a)])]) * strides_[static_cast<size_t>(a)];
                }
                // Roots bring their priors into the draw, which then needs
                // no correction for them.
                double pe = cpt_[tableOff_[static_cast<size_t>(e)] + col * static_cast<size_t>(ns) + ev];
                for (int k = 0; k < nf && pe != 0.0; ++k) {
                    const int q = parents_[static_cast<size_t>(freeArcs[static_cast<size_t>(k)])];
                    if (parBegin_[static_cast<size_t>(q) + 1] == parBegin_[static_cast<size_t>(q)])
                        pe *= cpt_[tableOff_[static_cast<size_t>(q)] + static_cast<size_t>(x_[static_cast<size_t>(q)])];
                }
                combo[static_cast<size_t>(c)] = pe;
                z += pe;
                for (int k = nf - 1; k >= 0; --k) {
                    const int q = parents_[static_cast<size_t>(freeArcs[static_cast<size_t>(k)])];
                    if (++x_[static_cast<size_t>(q)] < states_[static_cast<size_t>(q)]) break;
                    x_[static_cast<size_t>(q)] = 0;
                }
            }
            if (!(z > 0.0)) {
                w = 0.0;
                break;
            }
            for (int c = 0; c < combos; ++c) combo[static_cast<size_t>(c)] /= z;
            int pick = Draw(combo.data(), combos);
            for (int k = nf - 1; k >= 0; --k) {
                const int q = parents_[static_cast<size_t>(freeArcs[static_cast<size_t>(k)])];
                x_[static_cast<size_t>(q)] = pick % states_[static_cast<size_t>(q)];
                pick /= states_[static_cast<size_t>(q)];
                mode_[static_cast<size_t>(q)] =
                    parBegin_[static_cast<size_t>(q) + 1] == parBegin_[static_cast<size_t>(q)] ? kBackwardRoot : kBackward;
            }
            mode_[static_cast<size_t>(e)] = kObservedWeighed;
            w *= z;
            KeepInRange(w, weightExp_);
        }
        // Forward: free nodes from their tables, the rest weigh the sample.
        for (int p = 0; p < n_ && w != 0.0; ++p) {
            const size_t base = Base(p, Column(p));
            switch (mode_[static_cast<size_t>(p)]) {
                case kFree: w *= TakeImportanceSample(p, base); break;
                case kObserved:
                case kBackward: w *= cpt_[base + static_cast<size_t>(x_[static_cast<size_t>(p)])]; break;
                default: break;
            }
            if (w != 0.0) KeepInRange(w, weightExp_);
        }
        AddWeight(w);
    }
    return NormalizeWeight();
}

int SampleNet::BN_AIS_Sampling() {
    if (icpt_.size() != cpt_.size()) SetParameterForImportanceSampling();
    if (!HasEvidence()) return Sampling();
    std::vector<char> learnable;
    MarkEvidenceAncestors(learnable);

    // Before learning, small probabilities of evidence ancestors are raised
    // so that the first stages can reach states the evidence may favour.
    std::vector<double> eps(static_cast<size_t>(n_));
    for (int p = 0; p < n_; ++p) eps[static_cast<size_t>(p)] = kAisCutOff / states_[static_cast<size_t>(p)];
    CutOffSmall(learnable, eps);

    const int stageSamples = std::max(samples_ / (2 * kAisStages), 100);
    for (int k = 0; k < kAisStages; ++k) {
        learn_.assign(cpt_.size(), 0.0);
        learnTotal_ = 0.0;
        for (int i = 0; i < stageSamples; ++i) AddLearningWeight(OneImportanceSample());
        const double rate = kAisRateStart * std::pow(kAisRateEnd / kAisRateStart, static_cast<double>(k) / kAisStages);
        for (int p = 0; p < n_; ++p) {
            if (!learnable[static_cast<size_t>(p)]) continue;
            const int ns = states_[static_cast<size_t>(p)];
            for (int c = 0; c < ColumnCount(p); ++c) {
                const size_t base = Base(p, static_cast<size_t>(c));
                double seen = 0.0;
                for (int s = 0; s < ns; ++s) seen += learn_[base + static_cast<size_t>(s)];
                if (!(seen > 0.0)) continue;
                // Moving part way keeps every state the table had.
                for (int s = 0; s < ns; ++s) {
                    const size_t e = base + static_cast<size_t>(s);
                    icpt_[e] += rate * (learn_[e] / seen - icpt_[e]);
                }
            }
        }
    }
    return Sampling();
}

void SampleNet::EvidencePrePropagation() {
    const VEK_EPISParams& params = adapter_.GetEPISParams();
    // Loopy propagation brings the evidence to every node; the importance
    // table of a node is its conditional table times the messages from its
    // children.
    InitMessages();
    for (int k = 0; k < params.propagationLength; ++k) {
        PropagationSweep(true);
        PropagationSweep(false);
    }
    for (int p : free_) {
        const int ns = states_[static_cast<size_t>(p)];
        double* lam = lamBuf_.data();
        Lambda(p, lam, -1);
        double top = 0.0;
        for (int s = 0; s < ns; ++s) top = std::max(top, lam[s]);
        if (!(top > 0.0)) continue;  // conflicting messages: keep the conditional table
        for (int c = 0; c < ColumnCount(p); ++c) {
            const size_t base = Base(p, static_cast<size_t>(c));
            double sum = 0.0;
            for (int s = 0; s < ns; ++s) sum += cpt_[base + static_cast<size_t>(s)] * lam[s];
            if (!(sum > 0.0)) continue;
            for (int s = 0; s < ns; ++s) icpt_[base + static_cast<size_t>(s)] = cpt_[base + static_cast<size_t>(s)] * lam[s] / sum;
        }
    }
    std::vector<double> eps(static_cast<size_t>(n_));
    for (int p = 0; p < n_; ++p) {
        const int ns = states_[static_cast<size_t>(p)];
        eps[static_cast<size_t>(p)] = ns <= params.numStateSmall    ? params.stateSmallEpsil
                                      : ns <= params.numStateMedium ? params.stateMediumEpsil
                                      : ns <= params.numStateBig    ? params.stateBigEpsil
                                                                    : params.stateOtherwise;
    }
    std::vector<char> all(static_cast<size_t>(n_), 1);
    CutOffSmall(all, eps);
}

int SampleNet::BN_EPIS_Sampling() {
    if (icpt_.size() != cpt_.size()) SetParameterForImportanceSampling();
    if (!HasEvidence()) return Sampling();
    EvidencePrePropagation();
    return Sampling();
}

bool SampleNet::WeightsCollapsed() const {
    if (!(totalWeight_ > 0.0) || !std::isfinite(totalWeight_) || !(totalSquare_ > 0.0)) return true;
    const double effective = totalWeight_ * totalWeight_ / totalSquare_;
    return effective < kMinEffectiveShare * samples_;
}
