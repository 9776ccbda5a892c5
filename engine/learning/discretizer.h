// Interval edges for turning a numeric column into a discrete one.
#pragma once

#include <vector>

enum VEK_discretizationAlgorithm {
    // Bottom-up: every distinct value starts as its own interval, and the
    // adjacent pair whose merge least increases the within-interval sum of
    // squared deviations (Ward's criterion) is merged until intervalCount
    // intervals remain; equal increases merge the leftmost pair first.
    VEK_DISCRETIZE_HIERARCHICAL = 0,
    // intervalCount intervals of equal width between the least and the
    // greatest value.
    VEK_DISCRETIZE_UNIFORM_WIDTH = 1,
    // Edge k falls at the gap between distinct neighbouring values nearest
    // to k * n / intervalCount sorted values (the lower gap on a tie), so
    // equal values always share an interval; heavy ties give fewer
    // intervals.
    VEK_DISCRETIZE_UNIFORM_COUNT = 2,
};

// Interior edges, ascending, for sorted values holding at least two
// distinct ones and intervalCount >= 2. Edges other than the equal-width
// ones lie midway between the neighbouring values they separate.
std::vector<double> VEK_discretizationEdges(const std::vector<double>& sorted, int algorithm, int intervalCount);
