#include "network/demorgan.h"

#include <cstring>
#include <vector>

#include "network/canonicalOdometer.h"
#include "network/status.h"

namespace {

const char* const kTypeNames[] = {"inhibitor", "requirement", "cause", "barrier"};

// Raising parents act in one outcome, lowering ones in one outcome: the
// outcome (0 = first) in which a parent of the type is active.
bool Raises(int type) { return type == VEK_demorgan::CAUSE || type == VEK_demorgan::BARRIER; }
int ActiveOutcome(int type) { return type == VEK_demorgan::CAUSE || type == VEK_demorgan::INHIBITOR ? 0 : 1; }

}  // namespace

VEK_demorgan::VEK_demorgan(VEK_network& net, int handle) : VEK_qualDef(net, handle, 1, 0.5) {
    (void)types_.SetSize(GetNumberOfParents());  // a count, never negative
    types_.FillWith(CAUSE);
}

VEK_demorgan::VEK_demorgan(const VEK_nodeXformContext& ctx) : VEK_qualDef(ctx, 1, 0.5) {
    (void)types_.SetSize(GetNumberOfParents());  // a count, never negative
    types_.FillWith(CAUSE);
}

VEK_nodeDef* VEK_demorgan::Clone(VEK_network& net) const {
    VEK_demorgan* copy = new VEK_demorgan(*this);
    copy->Rebind(net, Handle());
    return copy;
}

int VEK_demorgan::DoCopyParameters(const VEK_nodeDef& other) {
    const auto& src = static_cast<const VEK_demorgan&>(other);
    GetWriteableParameters() = src.GetParameters();
    types_ = src.types_;
    Invalidate();
    return VEK_OKAY;
}

bool VEK_demorgan::IsValidWeight(int, double weight) const { return weight >= 0.0 && weight <= 1.0; }

int VEK_demorgan::GetParentType(int parentIndex) const {
    if (parentIndex < 0 || parentIndex >= types_.GetSize()) return VEK_OUT_OF_RANGE;
    return types_[parentIndex];
}

int VEK_demorgan::SetParentType(int parentIndex, int type) {
    if (parentIndex < 0 || parentIndex >= types_.GetSize() || type < INHIBITOR || type > BARRIER) {
        return VEK_OUT_OF_RANGE;
    }
    types_[parentIndex] = type;
    Invalidate();
    return VEK_OKAY;
}

int VEK_demorgan::SetParentTypes(const VEK_intArray& types) {
    if (types.GetSize() != types_.GetSize()) return VEK_OUT_OF_RANGE;
    for (int t : types) {
        if (t < INHIBITOR || t > BARRIER) return VEK_OUT_OF_RANGE;
    }
    types_ = types;
    Invalidate();
    return VEK_OKAY;
}

const char* VEK_demorgan::ParentTypeName(int type) {
    return type >= INHIBITOR && type <= BARRIER ? kTypeNames[type] : nullptr;
}

int VEK_demorgan::ParentTypeFromName(const char* name) {
    if (!name) return VEK_OUT_OF_RANGE;
    for (int t = INHIBITOR; t <= BARRIER; ++t) {
        if (std::strcmp(name, kTypeNames[t]) == 0) return t;
    }
    return VEK_OUT_OF_RANGE;
}

// Positions and orders come from the parent list, which has checked them.
void VEK_demorgan::OnParentInserted(int position) { (void)types_.Insert(position, CAUSE); }
void VEK_demorgan::OnParentDeleted(int position) { (void)types_.Delete(position); }
void VEK_demorgan::OnParentsReordered(const VEK_intArray& order) { (void)types_.ChangeOrder(order); }

double VEK_demorgan::CalculateProbability(const VEK_intArray& coordinates) const {
    const int k = GetNumberOfParents();
    double p = GetPriorBelief();
    for (int j = 0; j < k; ++j) {
        const int t = types_[j];
        if (Raises(t) && coordinates[j] == ActiveOutcome(t)) p = p + (1.0 - p) * Weight(0, j);
    }
    for (int j = 0; j < k; ++j) {
        const int t = types_[j];
        if (!Raises(t) && coordinates[j] == ActiveOutcome(t)) p = p * (1.0 - Weight(0, j));
    }
    return p;
}

void VEK_demorgan::FillProbabilities(double* q) const {
    const int k = GetNumberOfParents();
    const double prior = GetPriorBelief();
    if (k == 0) {
        q[0] = prior;
        return;
    }
    // Per parent and outcome the factors on 1 - p (raise) and p (lower).
    std::vector<double> raise(2 * k), lower(2 * k);
    for (int j = 0; j < k; ++j) {
        const int t = types_[j];
        for (int x = 0; x < 2; ++x) {
            const bool active = x == ActiveOutcome(t);
            const double f = active ? 1.0 - Weight(0, j) : 1.0;
            raise[2 * j + x] = Raises(t) ? f : 1.0;
            lower[2 * j + x] = Raises(t) ? 1.0 : f;
        }
    }
    std::vector<double> a(k), b(k);
    a[0] = 1.0 - prior;
    b[0] = 1.0;
    VEK_intArray sizes(k);
    sizes.FillWith(2);
    const double* r = raise.data();
    const double* l = lower.data();
    VEK_walkParentColumns(
        sizes.Items(), k,
        [&](int j, int x) {
            a[j + 1] = a[j] * r[2 * j + x];
            b[j + 1] = b[j] * l[2 * j + x];
        },
        [&, last = k - 1](int x) { *q++ = (1.0 - a[last] * r[2 * last + x]) * (b[last] * l[2 * last + x]); });
}
