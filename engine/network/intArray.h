// Array of ints; also used as a permutation, a combination and an odometer
// of coordinates within a list of dimension sizes.
#pragma once

#include "network/numArray.h"

class VEK_randGen;

class VEK_intArray : public VEK_numArray<int, 8> {
public:
    using Base = VEK_numArray<int, 8>;
    using Base::Base;
    using Base::ChangeOrder;

    VEK_intArray() = default;
    VEK_intArray(const Base& other) : Base(other) {}
    VEK_intArray(Base&& other) noexcept : Base(static_cast<Base&&>(other)) {}

    // Every value 0..n-1 exactly once (n = size); true for an empty array.
    bool IsPermutation() const;
    // Element i equals i everywhere; true for an empty array.
    bool IsIdentityPermutation() const;
    // Size n, values 0..n-1; -3 for n < 0.
    [[nodiscard]] int MakeIdentityPermutation(int n);
    void RandomShuffle(VEK_randGen& gen);

    // The array holds k strictly increasing values out of 0..n-1; moves to the
    // next such combination in lexicographic order. -2 (unchanged) after the
    // last one or when the array is not such a combination.
    int NextCombination(int n);

    // Odometer steps over the coordinates of a matrix with the given
    // dimension sizes; the last coordinate moves fastest. -2, unchanged, when
    // no step is possible.
    int NextCoordinates(const VEK_intArray& dims);
    int PrevCoordinates(const VEK_intArray& dims);
};

template <typename T, int N>
inline int VEK_numArray<T, N>::ChangeOrder(const VEK_intArray& perm) {
    return ChangeOrder(perm.Items(), perm.GetSize());
}
