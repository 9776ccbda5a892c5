#include "diagnosis/diagMeasures.h"

#include <algorithm>
#include <cmath>

bool VEK_isSingleFaultAlgorithm(int id) {
    return id == VEK_DIAG_NORM_CROSSENTROPY || id == VEK_DIAG_CROSSENTROPY || id == VEK_DIAG_PROB_CHANGE;
}

bool VEK_isMultiFaultAlgorithm(int id) {
    switch (id) {
        case VEK_DIAG_INDEPENDENCE_AT_LEAST_ONE:
        case VEK_DIAG_INDEPENDENCE_ONLY_ONE:
        case VEK_DIAG_INDEPENDENCE_ONLY_ALL:
        case VEK_DIAG_DEPENDENCE_AT_LEAST_ONE:
        case VEK_DIAG_DEPENDENCE_ONLY_ONE:
        case VEK_DIAG_DEPENDENCE_ONLY_ALL:
        case VEK_DIAG_MARGINAL_1:
        case VEK_DIAG_MARGINAL_2:
        case VEK_DIAG_MAX_PROB_CHANGE:
        case VEK_DIAG_L2_NORMALIZED_DISTANCE:
        case VEK_DIAG_COSINE_DISTANCE:
        case VEK_DIAG_CITYBLOCK_DISTANCE:
        case VEK_DIAG_AVG_L2_CITY_DISTANCE:
            return true;
        default:
            return false;
    }
}

namespace {

// Probabilities computed by propagation may stray from [0, 1] by rounding.
double Clamp01(double p) { return std::min(1.0, std::max(0.0, p)); }

double PlogP(double p) { return p > 0.0 ? p * std::log2(p) : 0.0; }

// Shannon entropy (bits) of the faults' probabilities normalised to sum 1;
// 0 when they sum to 0.
double NormalisedEntropy(const double* p, int count) {
    double sum = 0.0;
    for (int i = 0; i < count; ++i) sum += Clamp01(p[i]);
    if (!(sum > 0.0)) return 0.0;
    double h = 0.0;
    for (int i = 0; i < count; ++i) h -= PlogP(Clamp01(p[i]) / sum);
    return h;
}

// Distance between the pursued faults' probabilities now (a) and after an outcome (b).
double Distance(int algorithm, const double* a, const double* b, int count) {
    double maxAbs = 0.0, sumAbs = 0.0, sumSq = 0.0, dot = 0.0, na = 0.0, nb = 0.0;
    for (int i = 0; i < count; ++i) {
        const double d = std::fabs(b[i] - a[i]);
        maxAbs = std::max(maxAbs, d);
        sumAbs += d;
        sumSq += d * d;
        dot += a[i] * b[i];
        na += a[i] * a[i];
        nb += b[i] * b[i];
    }
    const double l2 = std::sqrt(sumSq / count);
    const double city = sumAbs / count;
    switch (algorithm) {
        case VEK_DIAG_MAX_PROB_CHANGE:
            return maxAbs;
        case VEK_DIAG_L2_NORMALIZED_DISTANCE:
            return l2;
        case VEK_DIAG_CITYBLOCK_DISTANCE:
            return city;
        case VEK_DIAG_AVG_L2_CITY_DISTANCE:
            return 0.5 * (l2 + city);
        case VEK_DIAG_COSINE_DISTANCE:
            // Two zero vectors are the same direction; a zero and a non-zero
            // vector are as far apart as orthogonal ones.
            if (na == 0.0 || nb == 0.0) return na == nb ? 0.0 : 1.0;
            return std::max(0.0, 1.0 - dot / std::sqrt(na * nb));
        default:
            return 0.0;
    }
}

}  // namespace

double VEK_binaryEntropy(double p) {
    p = Clamp01(p);
    return -PlogP(p) - PlogP(1.0 - p);
}

double VEK_combineIndependent(int algorithm, const double* p, int count) {
    if (algorithm & VEK_DIAG_AT_LEAST_ONE) {
        double none = 1.0;
        for (int i = 0; i < count; ++i) none *= 1.0 - Clamp01(p[i]);
        return 1.0 - none;
    }
    if (algorithm & VEK_DIAG_ONLY_ALL) {
        double all = 1.0;
        for (int i = 0; i < count; ++i) all *= Clamp01(p[i]);
        return all;
    }
    double one = 0.0;
    for (int i = 0; i < count; ++i) {
        double term = Clamp01(p[i]);
        for (int j = 0; j < count; ++j)
            if (j != i) term *= 1.0 - Clamp01(p[j]);
        one += term;
    }
    return one;
}

double VEK_singleFaultMeasure(int algorithm, double now, const std::vector<double>& weight, const double* after,
                              int stride) {
    const size_t outcomes = weight.size();
    if (algorithm == VEK_DIAG_PROB_CHANGE) {
        double change = 0.0;
        for (size_t o = 0; o < outcomes; ++o)
            change += weight[o] * std::fabs(Clamp01(after[o * stride]) - Clamp01(now));
        return change;
    }
    const double h = VEK_binaryEntropy(now);
    double expected = 0.0;
    for (size_t o = 0; o < outcomes; ++o) expected += weight[o] * VEK_binaryEntropy(after[o * stride]);
    const double gain = h - expected;
    if (algorithm == VEK_DIAG_NORM_CROSSENTROPY) return h > 0.0 ? gain / h : 0.0;
    return gain;
}

double VEK_diagMeasure(int singleAlgorithm, int multiAlgorithm, const VEK_diagOutlook& outlook) {
    const int k = outlook.count;
    const size_t outcomes = outlook.weight.size();
    if (k == 1) return VEK_singleFaultMeasure(singleAlgorithm, outlook.now[0], outlook.weight, outlook.after.data(), 1);
    if (multiAlgorithm < 64) {
        return VEK_singleFaultMeasure(singleAlgorithm, outlook.combinedNow, outlook.weight,
                                      outlook.combinedAfter.data(), 1);
    }
    double total = 0.0;
    if (multiAlgorithm == VEK_DIAG_MARGINAL_1) {
        for (int i = 0; i < k; ++i)
            total +=
                VEK_singleFaultMeasure(singleAlgorithm, outlook.now[i], outlook.weight, outlook.after.data() + i, k);
        return total;
    }
    if (multiAlgorithm == VEK_DIAG_MARGINAL_2) {
        total = NormalisedEntropy(outlook.now.data(), k);
        for (size_t o = 0; o < outcomes; ++o)
            total -= outlook.weight[o] * NormalisedEntropy(outlook.after.data() + o * k, k);
        return total;
    }
    for (size_t o = 0; o < outcomes; ++o)
        total += outlook.weight[o] * Distance(multiAlgorithm, outlook.now.data(), outlook.after.data() + o * k, k);
    return total;
}
