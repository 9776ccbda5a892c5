#include "network/cast.h"

#include <vector>

#include "network/canonicalOdometer.h"
#include "network/status.h"

namespace {

// N: product of (1 + w) over the negative influences, P: of (1 - w) over
// the others.
double Combine(double n, double p, double baseline) {
    if (n + p == 0.0) return baseline;
    const double r = n <= p ? n / p - 1.0 : 1.0 - p / n;
    return r >= 0.0 ? baseline + (1.0 - baseline) * r : baseline * (1.0 + r);
}

}  // namespace

VEK_cast::VEK_cast(VEK_network& net, int handle) : VEK_qualDef(net, handle, 2, 0.5) {}

VEK_cast::VEK_cast(const VEK_nodeXformContext& ctx) : VEK_qualDef(ctx, 2, 0.5) {}

VEK_nodeDef* VEK_cast::Clone(VEK_network& net) const {
    VEK_cast* copy = new VEK_cast(*this);
    copy->Rebind(net, Handle());
    return copy;
}

bool VEK_cast::IsValidWeight(int, double weight) const { return weight >= -1.0 && weight <= 1.0; }

int VEK_cast::GetWeight(int parentIndex, bool positive, double& weight) const {
    if (parentIndex < 0 || parentIndex >= GetNumberOfParents()) return VEK_OUT_OF_RANGE;
    weight = Weight(positive ? 0 : 1, parentIndex);
    return VEK_OKAY;
}

double VEK_cast::CalculateProbability(const VEK_intArray& coordinates) const {
    double n = 1.0;
    double p = 1.0;
    for (int j = 0; j < GetNumberOfParents(); ++j) {
        const double w = Weight(coordinates[j] == 0 ? 0 : 1, j);
        if (w < 0.0) {
            n *= 1.0 + w;
        } else {
            p *= 1.0 - w;
        }
    }
    return Combine(n, p, GetBaseline());
}

void VEK_cast::FillProbabilities(double* q) const {
    const int k = GetNumberOfParents();
    const double baseline = GetBaseline();
    if (k == 0) {
        q[0] = baseline;
        return;
    }
    // Per parent and outcome the factors on N and P.
    std::vector<double> fn(2 * k), fp(2 * k);
    for (int j = 0; j < k; ++j) {
        for (int x = 0; x < 2; ++x) {
            const double w = Weight(x == 0 ? 0 : 1, j);
            fn[2 * j + x] = w < 0.0 ? 1.0 + w : 1.0;
            fp[2 * j + x] = w < 0.0 ? 1.0 : 1.0 - w;
        }
    }
    std::vector<double> n(k), p(k);
    n[0] = 1.0;
    p[0] = 1.0;
    VEK_intArray sizes(k);
    sizes.FillWith(2);
    VEK_walkParentColumns(
        sizes.Items(), k,
        [&](int j, int x) {
            n[j + 1] = n[j] * fn[2 * j + x];
            p[j + 1] = p[j] * fp[2 * j + x];
        },
        [&, last = k - 1](int x) {
            *q++ = Combine(n[last] * fn[2 * last + x], p[last] * fp[2 * last + x], baseline);
        });
}
