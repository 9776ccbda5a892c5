#include "network/mauExpectedUtility.h"

#include "network/expectedUtility.h"
#include "network/network.h"
#include "network/status.h"

VEK_nodeVal* VEK_mauExpectedUtility::Clone(VEK_network& net) const {
    auto* copy = new VEK_mauExpectedUtility(*this);
    copy->Rebind(net, Handle());
    return copy;
}

VEK_Dmatrix* VEK_mauExpectedUtility::GetWriteableMatrix() {
    VEK_sizeUtilityMatrix(matrix_, *this);
    return &matrix_;
}

double VEK_mauExpectedUtility::GetMinimumUtility() const {
    double lo = 0.0;
    double hi = 0.0;
    VEK_utilityRange(matrix_, lo, hi);
    return lo;
}

double VEK_mauExpectedUtility::GetMaximumUtility() const {
    double lo = 0.0;
    double hi = 0.0;
    VEK_utilityRange(matrix_, lo, hi);
    return hi;
}

int VEK_mauExpectedUtility::NormalizeExpectedUtilities(double lo, double hi, double newLo, double newHi) {
    return VEK_normalizeUtilities(matrix_, lo, hi, newLo, newHi);
}

int VEK_mauExpectedUtility::CalculateMAU() { return VEK_WRONG_NODE_TYPE; }
