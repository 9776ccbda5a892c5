// One sub-network laid out for sampling and message passing: nodes in an
// order with parents first, every table copied into one contiguous array
// with its offsets and parent strides precomputed, and the working arrays of
// a sample allocated once. The methods write normalised beliefs into the
// network's values through the adapter.
#pragma once

#include <cmath>
#include <cstddef>
#include <vector>

class SamplingAdapter;
class VEK_randGen;

class SampleNet {
public:
    SampleNet(SamplingAdapter& adapter, VEK_randGen& gen);
    SampleNet(const SampleNet&) = delete;
    SampleNet& operator=(const SampleNet&) = delete;

    // Importance tables start as the normalised conditional tables.
    void SetParameterForImportanceSampling();
    void ClearImportanceParameter();

    // The methods; 0, or -5 when some node got no usable sample (for the
    // message-passing ones: when evidence turned every belief of a node to
    // zero).
    [[nodiscard]] int Sampling();                 // importance sampling with the current importance tables
    [[nodiscard]] int LogicSampling();            // forward sampling, rejecting samples that contradict evidence
    [[nodiscard]] int LikelihoodSampling();       // importance tables = conditional tables
    [[nodiscard]] int SelfImportanceSampling();   // importance tables revised from the samples as they come
    [[nodiscard]] int BackwardSampling();         // parents of evidence drawn backwards from the evidence
    [[nodiscard]] int BN_AIS_Sampling();          // importance tables learnt in stages, then Sampling
    [[nodiscard]] int BN_EPIS_Sampling();         // importance tables from loopy propagation, then Sampling
    [[nodiscard]] int LBP();                      // loopy belief propagation

    // True when the last run's weights rest on too few samples to be of use:
    // no weight at all, or an effective sample size (the squared sum of the
    // weights over the sum of their squares) below kMinEffectiveShare of
    // the samples drawn. Evidence far out in the tails does this to every
    // importance function that does not look at the evidence first.
    bool WeightsCollapsed() const;
    static constexpr double kMinEffectiveShare = 0.05;

    // Exact message passing; only for a sub-network whose arcs form a tree.
    // 0, or -43 (logged) when the evidence is impossible.
    [[nodiscard]] int PearlPolytree();
    bool IsPolytree() const;


private:
    // ---- layout
    size_t Column(int p) const {
        size_t col = 0;
        for (int k = parBegin_[p]; k < parBegin_[p + 1]; ++k) col += static_cast<size_t>(x_[parents_[k]]) * strides_[k];
        return col;
    }
    size_t Base(int p, size_t col) const { return tableOff_[p] + col * static_cast<size_t>(states_[p]); }
    int ColumnCount(int p) const { return static_cast<int>((tableOff_[p + 1] - tableOff_[p]) / states_[p]); }

    // ---- sampling core
    // Draws the node's state from its importance column; returns the ratio of
    // the conditional to the importance probability of the draw.
    double TakeImportanceSample(int p, size_t base);
    double OneImportanceSample();
    void SetTotalTableToZero();
    void AddWeight(double w);
    // Normalised accumulated weights into the values; -5 when some node (or
    // the whole run) has no weight.
    [[nodiscard]] int NormalizeWeight();
    // Index of a state drawn from the distribution q (which sums to 1),
    // never one of probability 0 unless all are.
    int Draw(const double* q, int n);
    void NormalizeImportanceColumns();
    // Raises the positive entries of the marked nodes' importance tables
    // that lie below the node's threshold (eps, by position).
    void CutOffSmall(const std::vector<char>& which, const std::vector<double>& eps);
    // Marks the free nodes that are ancestors of some evidence.
    void MarkEvidenceAncestors(std::vector<char>& out) const;
    // Weighted counts of every (parent column, state) pair, for learning.
    void AddLearningWeight(double w);
    // A sample's weight is w * 2^weightExp_: products over hundreds of nodes
    // leave the range of a double. Keeps w within range.
    static void KeepInRange(double& w, int& e) {
        if (w < 0x1p-500) {
            w = std::ldexp(w, 600);
            e -= 600;
        } else if (w > 0x1p500) {
            w = std::ldexp(w, -600);
            e += 600;
        }
    }
    // The weight w * 2^weightExp_ on the scale 2^scale of an accumulator;
    // a larger weight first moves the accumulator (and its total) to its own
    // scale.
    double ToScale(double w, std::vector<double>& table, double& total, int& scale) const;
    bool HasEvidence() const;

    // ---- message passing (loopyBelief.cpp)
    void InitMessages();
    // The importance tables of EPIS: the conditional tables weighed by the
    // evidence that a few sweeps of loopy propagation bring to each node,
    // small probabilities raised to the EPIS thresholds.
    void EvidencePrePropagation();
    // One sweep over all nodes in order (forward) or reverse order; returns
    // the largest change of any message.
    double PropagationSweep(bool forward);
    double UpdateNode(int p);
    // Product of the messages from the children (and the evidence indicator).
    void Lambda(int p, double* out, int skipArc) const;
    [[nodiscard]] int WriteMessageBeliefs(bool reportZero);

    SamplingAdapter& adapter_;
    VEK_randGen& gen_;
    int n_ = 0;
    int samples_ = 0;

    // Per position in the sampling order.
    std::vector<int> node_;       // position in the adapter
    std::vector<int> states_;
    std::vector<int> evidence_;
    std::vector<size_t> tableOff_;  // n_ + 1 entries
    std::vector<int> parBegin_;     // n_ + 1 entries
    std::vector<int> parents_;      // positions, per arc
    std::vector<size_t> strides_;   // per arc
    std::vector<int> stateOff_;     // n_ + 1 entries, into per-state arrays
    std::vector<int> free_;         // positions of the unobserved nodes
    std::vector<int> childBegin_;   // n_ + 1 entries
    std::vector<int> childArcs_;    // arc ids, grouped by parent
    std::vector<int> arcChild_;     // per arc
    std::vector<char> weighted_;    // columns that do not sum to 1: the table carries evidence

    std::vector<double> cpt_;
    std::vector<double> icpt_;
    std::vector<double> learn_;

    // Working state of one sample.
    std::vector<int> x_;
    std::vector<size_t> col_;
    std::vector<double> acc_;
    double totalWeight_ = 0.0;
    double totalSquare_ = 0.0;  // sum of the squared weights, on the scale of acc_ squared
    int weightExp_ = 0;
    int accExp_ = 0;
    double learnTotal_ = 0.0;
    int learnExp_ = 0;

    // Messages, per arc over the parent's states.
    std::vector<int> msgOff_;
    std::vector<double> piMsg_;
    std::vector<double> lambdaMsg_;
    std::vector<double> pi_;       // per state
    std::vector<double> lamBuf_;   // per state of the largest node
    std::vector<double> outBuf_;   // per state of the largest node
    std::vector<double> newLam_;   // per parent state of the node being updated
    std::vector<double> pre_;      // per parent, running products
    std::vector<int> u_;           // parent states of the current column
    std::vector<int> newLamOff_;   // per parent
    std::vector<char> mode_;       // per node, state of a backward sample
    double damping_ = 0.0;         // share of a message's old value kept on update
};
