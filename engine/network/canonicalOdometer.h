// Column walk shared by the canonical definitions' table computations.
#pragma once

// Visits the columns of a table over k >= 1 parents with the given outcome
// counts in the table's order (the last parent fastest) in one pass.
// extend(j, x) must derive the running state of level j + 1 from that of
// level j with parent j in outcome x (levels 0..k-1, level 0 set up by the
// caller); emit(x) is called once per column, in order, with the last parent
// in outcome x and the state of level k - 1 current. An odometer step that
// changes parent t recomputes levels t + 1 and up only, so the walk costs
// about one extend per column.
template <class Extend, class Emit>
inline void VEK_walkParentColumns(const int* sizes, int k, Extend&& extend, Emit&& emit) {
    constexpr int kInline = 64;
    int inlineCoords[kInline];
    int* coords = k <= kInline ? inlineCoords : new int[k];
    for (int j = 0; j < k; ++j) coords[j] = 0;
    for (int j = 0; j + 1 < k; ++j) extend(j, 0);
    const int last = sizes[k - 1];
    for (;;) {
        for (int x = 0; x < last; ++x) emit(x);
        int t = k - 2;
        while (t >= 0 && ++coords[t] == sizes[t]) coords[t--] = 0;
        if (t < 0) break;
        for (int j = t; j + 1 < k; ++j) extend(j, coords[j]);
    }
    if (coords != inlineCoords) delete[] coords;
}
