#include "network/incompleteGamma.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kTiny = 1e-300;

// Below a + 1 the series of P converges fast; above it, the continued
// fraction of Q (modified Lentz). Sets whichever it computes; the other is
// its complement.
void IncompleteGamma(double a, double x, double& p, double& q) {
    const double front = std::exp(-x + a * std::log(x) - std::lgamma(a));
    if (x < a + 1.0) {
        double ap = a, del = 1.0 / a, sum = del;
        for (int n = 0; n < 10000 && std::fabs(del) > std::fabs(sum) * 1e-16; ++n) {
            ap += 1.0;
            del *= x / ap;
            sum += del;
        }
        p = std::min(1.0, sum * front);
        q = 1.0 - p;
        return;
    }
    double b = x + 1.0 - a, c = 1.0 / kTiny, d = 1.0 / b, h = d;
    for (int i = 1; i < 10000; ++i) {
        const double an = -i * (i - a);
        b += 2.0;
        d = an * d + b;
        if (std::fabs(d) < kTiny) d = kTiny;
        c = b + an / c;
        if (std::fabs(c) < kTiny) c = kTiny;
        d = 1.0 / d;
        const double del = d * c;
        h *= del;
        if (std::fabs(del - 1.0) < 1e-16) break;
    }
    q = std::min(1.0, front * h);
    p = std::max(0.0, 1.0 - q);
}

}  // namespace

double VEK_gammaP(double a, double x) {
    if (x <= 0.0) return 0.0;
    double p = 0.0, q = 0.0;
    IncompleteGamma(a, x, p, q);
    return p;
}

double VEK_gammaQ(double a, double x) {
    if (x <= 0.0) return 1.0;
    double p = 0.0, q = 0.0;
    IncompleteGamma(a, x, p, q);
    return q;
}
