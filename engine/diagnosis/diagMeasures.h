// How much a test is expected to tell about the pursued faults: the
// single-fault and multi-fault measures, computed from the pursued faults'
// probabilities now and after each outcome of the test. Pure arithmetic; the
// diagnosis session supplies the probabilities.
#pragma once

#include <cstddef>
#include <vector>

// Single-fault measures.
constexpr int VEK_DIAG_NORM_CROSSENTROPY = 512;
constexpr int VEK_DIAG_CROSSENTROPY = 1024;
constexpr int VEK_DIAG_PROB_CHANGE = 2048;

// Multi-fault measures are bit-combined: a family bit (2 independence, 4
// dependence) with an event bit (8 at least one, 16 only one, 32 only all);
// the marginal models (1 + 64, 1 + 128); the distances (256 + kind 1..5).
constexpr int VEK_DIAG_INDEPENDENCE = 2;
constexpr int VEK_DIAG_DEPENDENCE = 4;
constexpr int VEK_DIAG_AT_LEAST_ONE = 8;
constexpr int VEK_DIAG_ONLY_ONE = 16;
constexpr int VEK_DIAG_ONLY_ALL = 32;
constexpr int VEK_DIAG_INDEPENDENCE_AT_LEAST_ONE = VEK_DIAG_INDEPENDENCE | VEK_DIAG_AT_LEAST_ONE;  // 10
constexpr int VEK_DIAG_INDEPENDENCE_ONLY_ONE = VEK_DIAG_INDEPENDENCE | VEK_DIAG_ONLY_ONE;          // 18
constexpr int VEK_DIAG_INDEPENDENCE_ONLY_ALL = VEK_DIAG_INDEPENDENCE | VEK_DIAG_ONLY_ALL;          // 34
constexpr int VEK_DIAG_DEPENDENCE_AT_LEAST_ONE = VEK_DIAG_DEPENDENCE | VEK_DIAG_AT_LEAST_ONE;      // 12
constexpr int VEK_DIAG_DEPENDENCE_ONLY_ONE = VEK_DIAG_DEPENDENCE | VEK_DIAG_ONLY_ONE;              // 20
constexpr int VEK_DIAG_DEPENDENCE_ONLY_ALL = VEK_DIAG_DEPENDENCE | VEK_DIAG_ONLY_ALL;              // 36
constexpr int VEK_DIAG_MARGINAL_1 = 65;
constexpr int VEK_DIAG_MARGINAL_2 = 129;
constexpr int VEK_DIAG_MAX_PROB_CHANGE = 257;
constexpr int VEK_DIAG_L2_NORMALIZED_DISTANCE = 258;
constexpr int VEK_DIAG_COSINE_DISTANCE = 259;
constexpr int VEK_DIAG_CITYBLOCK_DISTANCE = 260;
constexpr int VEK_DIAG_AVG_L2_CITY_DISTANCE = 261;

bool VEK_isSingleFaultAlgorithm(int id);
bool VEK_isMultiFaultAlgorithm(int id);
// The multi-fault measures that combine the pursued faults into one event
// whose probability comes from the joint distribution.
inline bool VEK_isDependenceAlgorithm(int id) { return (id & VEK_DIAG_DEPENDENCE) != 0 && id < 64; }

// Binary entropy in bits; 0 at 0 and 1.
double VEK_binaryEntropy(double p);

// The probability of the combined event (at least one, only one, only all:
// the event bits of the id) from the faults' probabilities, taken as independent.
double VEK_combineIndependent(int algorithm, const double* p, int count);

// What is known of the pursued faults for one test. Each outcome o of the
// test has its probability weight[o] given the evidence; after[o * count + i]
// is the probability of pursued fault i given the evidence and that outcome.
// Outcomes of weight 0 are left out by the caller.
struct VEK_diagOutlook {
    int count = 0;                      // pursued faults
    std::vector<double> now;            // their probabilities now
    std::vector<double> weight;         // per outcome
    std::vector<double> after;          // per outcome, count entries
    double combinedNow = 0.0;           // combined event now (multi-fault event measures)
    std::vector<double> combinedAfter;  // per outcome
    void Clear(int pursued) {
        count = pursued;
        now.assign(static_cast<std::size_t>(pursued), 0.0);
        weight.clear();
        after.clear();
        combinedAfter.clear();
        combinedNow = 0.0;
    }
};

// The single-fault measure of one probability: now, and after each outcome.
double VEK_singleFaultMeasure(int algorithm, double now, const std::vector<double>& weight, const double* after,
                              int stride);

// The measure of the outlook: with one pursued fault the single-fault
// measure; with more the multi-fault measure, whose event variants score the
// combined event (combinedNow, combinedAfter) by the single-fault measure.
double VEK_diagMeasure(int singleAlgorithm, int multiAlgorithm, const VEK_diagOutlook& outlook);
