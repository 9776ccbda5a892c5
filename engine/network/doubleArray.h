// Array of doubles with an inline buffer of four (small distributions).
#pragma once

#include "network/intArray.h"
#include "network/numArray.h"

class VEK_doubleArray : public VEK_numArray<double, 4> {
public:
    using Base = VEK_numArray<double, 4>;
    using Base::Base;

    VEK_doubleArray() = default;
    VEK_doubleArray(const Base& other) : Base(other) {}
    VEK_doubleArray(Base&& other) noexcept : Base(static_cast<Base&&>(other)) {}

    double Sum() const {
        double s = 0.0;
        for (double v : *this) s += v;
        return s;
    }
};
