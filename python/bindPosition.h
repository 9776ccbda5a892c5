// Rectangles given from Python (x, y, width, height, top-left corner) for
// nodes and submodels. The engine keeps the centre, which must fit in an int:
// a corner so large that the centre would overflow is refused instead of
// wrapping around.
#pragma once

#include <climits>
#include <vector>

#include "network/status.h"
#include "wrpCore.h"

namespace BindPosition {

inline VEK_rectangle CheckedRectangle(int x, int y, int width, int height, const char* function) {
    long long cx = static_cast<long long>(x) + width / 2;
    long long cy = static_cast<long long>(y) + height / 2;
    if (cx < INT_MIN || cx > INT_MAX || cy < INT_MIN || cy > INT_MAX) {
        Wrp::ThrowQuarnException(VEK_OUT_OF_RANGE, function, "Position is out of range");
    }
    return Wrp::MakeRectangle(x, y, width, height);
}

// The list form: exactly four ints, else code 1 naming the Python call
// (sizeFunction); then as above.
inline VEK_rectangle CheckedRectangle(const std::vector<int>& rect, const char* sizeFunction,
                                      const char* function) {
    if (rect.size() != 4) Wrp::ValidateResult(1, sizeFunction);
    return CheckedRectangle(rect[0], rect[1], rect[2], rect[3], function);
}

}  // namespace BindPosition
