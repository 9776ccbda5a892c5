#include "network/truthTable.h"

#include "inference/randGen.h"
#include "network/status.h"

VEK_truthTable::VEK_truthTable(VEK_network& net, int handle) : VEK_cpt(net, handle) { MakeConsistent(); }

VEK_truthTable::VEK_truthTable(const VEK_nodeXformContext& ctx) : VEK_cpt(ctx) { MakeConsistent(); }

VEK_nodeDef* VEK_truthTable::Clone(VEK_network& net) const {
    VEK_truthTable* copy = new VEK_truthTable(*this);
    copy->Rebind(net, Handle());
    return copy;
}

void VEK_truthTable::AfterTableGrew() {
    VEK_cpt::AfterTableGrew();
    MakeConsistent();
}

void VEK_truthTable::AfterRemoveOutcome(int position) {
    VEK_cpt::AfterRemoveOutcome(position);
    // Columns that selected the removed outcome select the first one.
    MakeConsistent();
}

void VEK_truthTable::AfterOutcomeCountChanged() {
    VEK_cpt::AfterOutcomeCountChanged();
    MakeConsistent();
}

int VEK_truthTable::MakeRandom(VEK_randGen& gen) {
    const int n = Table().GetLastDimensionSize();
    if (n < 1) return VEK_WRONG_NUM_STATES;
    const int columns = GetColumnCount();
    for (int c = 0; c < columns; ++c) (void)Table().MakeDeterministicColumn(c, static_cast<int>(gen.GetInt(n)));  // c and the draw are in range
    return VEK_OKAY;
}

int VEK_truthTable::MakeConsistent() {
    const int n = Table().GetLastDimensionSize();
    if (n < 1) return VEK_OKAY;
    double* items = Table().Items();
    for (int start = 0; start < Table().GetSize(); start += n) {
        int best = 0;
        for (int i = 1; i < n; ++i) {
            if (items[start + i] > items[start + best]) best = i;
        }
        for (int i = 0; i < n; ++i) items[start + i] = i == best ? 1.0 : 0.0;
    }
    return VEK_OKAY;
}

int VEK_truthTable::GetResultingStates(VEK_intArray& states) const {
    const int n = Table().GetLastDimensionSize();
    const int columns = GetColumnCount();
    (void)states.SetSize(columns);  // a count
    const double* items = Table().Items();
    for (int c = 0; c < columns; ++c) {
        int state = 0;
        for (int i = 0; i < n; ++i) {
            if (items[c * n + i] == 1.0) {
                state = i;
                break;
            }
        }
        states[c] = state;
    }
    return VEK_OKAY;
}

int VEK_truthTable::GetResultingStates(VEK_stringArray& states) const {
    VEK_intArray indices;
    if (const int res = GetResultingStates(indices); res < 0) return res;
    states.Clear();
    const VEK_idArray& ids = *GetOutcomeIds();
    // Columns repeat outcomes: bypass the uniqueness of an id array.
    for (int s : indices) states.VEK_stringArray::Add(ids[s]);
    return VEK_OKAY;
}

int VEK_truthTable::SetResultingStates(const VEK_intArray& states) {
    const int n = Table().GetLastDimensionSize();
    const int columns = GetColumnCount();
    if (states.GetSize() != columns) return VEK_OUT_OF_RANGE;
    for (int s : states) {
        if (s < 0 || s >= n) return VEK_OUT_OF_RANGE;
    }
    for (int c = 0; c < columns; ++c) (void)Table().MakeDeterministicColumn(c, states[c]);  // checked above
    OnParametersChanged();
    return VEK_OKAY;
}

int VEK_truthTable::SetResultingStates(const VEK_stringArray& states) {
    VEK_intArray indices;
    for (int i = 0; i < states.GetSize(); ++i) {
        int k = FindOutcome(states[i]);
        if (k < 0) return VEK_OUT_OF_RANGE;
        indices.Add(k);
    }
    return SetResultingStates(indices);
}

int VEK_truthTable::SetResultingStates(const std::vector<std::string>& states) {
    VEK_intArray indices;
    for (const std::string& s : states) {
        int k = FindOutcome(s.c_str());
        if (k < 0) return VEK_OUT_OF_RANGE;
        indices.Add(k);
    }
    return SetResultingStates(indices);
}
