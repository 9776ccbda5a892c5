#include "network/intArray.h"

#include "inference/randGen.h"

bool VEK_intArray::IsPermutation() const {
    const int n = GetSize();
    VEK_numArray<unsigned char, 64> seen(n);
    for (int v : *this) {
        if (v < 0 || v >= n || seen[v]) return false;
        seen[v] = 1;
    }
    return true;
}

bool VEK_intArray::IsIdentityPermutation() const {
    const int n = GetSize();
    for (int i = 0; i < n; ++i) {
        if ((*this)[i] != i) return false;
    }
    return true;
}

int VEK_intArray::MakeIdentityPermutation(int n) {
    int res = SetSize(n);
    if (res < 0) return res;
    int* p = Items();
    for (int i = 0; i < n; ++i) p[i] = i;
    return VEK_OKAY;
}

void VEK_intArray::RandomShuffle(VEK_randGen& gen) { gen.Shuffle(Items(), GetSize()); }

int VEK_intArray::NextCombination(int n) {
    const int k = GetSize();
    int* a = Items();
    if (k > n) return VEK_OUT_OF_RANGE;
    for (int i = 0; i < k; ++i) {
        if (a[i] < 0 || a[i] >= n || (i > 0 && a[i] <= a[i - 1])) return VEK_OUT_OF_RANGE;
    }
    // The rightmost value that is not yet at its highest possible place.
    int i = k - 1;
    while (i >= 0 && a[i] == n - k + i) --i;
    if (i < 0) return VEK_OUT_OF_RANGE;
    ++a[i];
    for (int j = i + 1; j < k; ++j) a[j] = a[j - 1] + 1;
    return VEK_OKAY;
}

int VEK_intArray::NextCoordinates(const VEK_intArray& dims) {
    const int n = GetSize();
    if (dims.GetSize() < n) return VEK_OUT_OF_RANGE;
    int* c = Items();
    int i = n - 1;
    while (i >= 0 && c[i] >= dims[i] - 1) --i;
    if (i < 0) return VEK_OUT_OF_RANGE;
    ++c[i];
    for (int j = i + 1; j < n; ++j) c[j] = 0;
    return VEK_OKAY;
}

int VEK_intArray::PrevCoordinates(const VEK_intArray& dims) {
    const int n = GetSize();
    if (dims.GetSize() < n) return VEK_OUT_OF_RANGE;
    int* c = Items();
    int i = n - 1;
    while (i >= 0 && c[i] <= 0) --i;
    if (i < 0) return VEK_OUT_OF_RANGE;
    --c[i];
    for (int j = i + 1; j < n; ++j) c[j] = dims[j] - 1;
    return VEK_OKAY;
}
