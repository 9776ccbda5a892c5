// Checked setup for the benchmarks: a step that failed unnoticed would leave
// a benchmark timing something other than what it describes.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>

// Stops the benchmark with `what` as its error when status is a failure;
// returns whether the step succeeded.
inline bool Must(benchmark::State& state, int status, const char* what) {
    if (status != 0) state.SkipWithError(what);
    return status == 0;
}

// For setup shared between benchmarks, outside any of them: a failure ends
// the run.
inline void Must(int status, const char* what) {
    if (status == 0) return;
    std::fprintf(stderr, "benchmark setup failed (status %d): %s\n", status, what);
    std::exit(1);
}
