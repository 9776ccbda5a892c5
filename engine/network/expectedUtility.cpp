#include "network/expectedUtility.h"

#include <cmath>

#include "network/network.h"
#include "network/nodeDef.h"
#include "network/status.h"

bool VEK_utilityRange(const VEK_Dmatrix& m, double& lo, double& hi) {
    bool any = false;
    for (double x : m.GetItems()) {
        // NaN compares false and so can neither bound the range.
        if (x == VEK_UNDEFINED_VALUE || std::isnan(x)) continue;
        if (!any) {
            lo = hi = x;
            any = true;
        } else if (x < lo) {
            lo = x;
        } else if (x > hi) {
            hi = x;
        }
    }
    return any;
}

int VEK_normalizeUtilities(VEK_Dmatrix& m, double lo, double hi, double newLo, double newHi) {
    if (!std::isfinite(lo) || !std::isfinite(hi) || !std::isfinite(newLo) || !std::isfinite(newHi)) {
        return VEK_INVALID_VALUE;
    }
    double min = lo;
    double max = hi;
    if (lo != hi) {
        double ownLo = 0.0;
        double ownHi = 0.0;
        if (VEK_utilityRange(m, ownLo, ownHi)) {
            if (ownLo < min) min = ownLo;
            if (ownHi > max) max = ownHi;
        }
    }
    if (min == max) {
        for (double& x : m.GetItems()) {
            if (x != VEK_UNDEFINED_VALUE) x = newHi;
        }
        return VEK_OKAY;
    }
    if (min == newLo && max == newHi) return VEK_OKAY;
    const double scale = (newHi - newLo) / (max - min);
    for (double& x : m.GetItems()) {
        if (x != VEK_UNDEFINED_VALUE) x = (x - min) * scale + newLo;
    }
    return VEK_OKAY;
}

void VEK_sizeUtilityMatrix(VEK_Dmatrix& m, const VEK_nodeVal& val) {
    if (m.GetSize() != 0) return;
    VEK_intArray dims;
    for (int p : val.GetIndexingParents()) {
        VEK_nodeDef* d = val.GetPeerDef(p);
        int n = d ? d->GetNumberOfOutcomes() : 0;
        if (n < 1) return;
        dims.Add(n);
    }
    dims.Add(1);
    (void)m.Setup(dims);  // sizes below 1 returned above
    m.FillWith(0.0);
}

VEK_nodeVal* VEK_expectedUtility::Clone(VEK_network& net) const {
    auto* copy = new VEK_expectedUtility(*this);
    copy->Rebind(net, Handle());
    return copy;
}

VEK_Dmatrix* VEK_expectedUtility::GetWriteableMatrix() {
    VEK_sizeUtilityMatrix(matrix_, *this);
    return &matrix_;
}

double VEK_expectedUtility::GetMinimumUtility() const {
    double lo = 0.0;
    double hi = 0.0;
    VEK_utilityRange(matrix_, lo, hi);
    return lo;
}

double VEK_expectedUtility::GetMaximumUtility() const {
    double lo = 0.0;
    double hi = 0.0;
    VEK_utilityRange(matrix_, lo, hi);
    return hi;
}

int VEK_expectedUtility::NormalizeExpectedUtilities(double lo, double hi, double newLo, double newHi) {
    return VEK_normalizeUtilities(matrix_, lo, hi, newLo, newHi);
}
