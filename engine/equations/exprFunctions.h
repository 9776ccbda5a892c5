// The function library of the equation language: mathematical functions,
// selection functions and probability distributions, and the user-defined
// functions of a network.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "equations/expression.h"

class VEK_randGen;

struct VEK_libFunction {
    const char* name;
    int minArgs;
    int maxArgs;  // -1: any number from minArgs on
    bool stochastic;
};

// Library ids index the table returned by VEK_libFunctions.
const std::vector<VEK_libFunction>& VEK_libFunctions();
// Library id of a name (case-sensitive), or -1.
int VEK_findLibFunction(const std::string& name);
// Applies library function id to argc arguments; distributions draw from
// gen (NaN without one). Domain errors give NaN.
double VEK_callLibFunction(int id, const double* args, int argc, VEK_randGen* gen);
// Density (or probability, for discrete distributions) of a distribution at
// x; false when id is not a distribution with a density.
bool VEK_libDensity(int id, const double* args, int argc, double x, double& density);

// Functions a network defines in its own text, "name(a, b) = expression".
// A function may call the library and the functions defined before it.
struct VEK_userFunction {
    std::string name;
    std::vector<std::string> params;
    VEK_expression body;  // variable k is parameter k
};

class VEK_functionSet {
public:
    // Parses the texts in order; on failure tells which text, the position
    // in it and why, and leaves the set empty.
    [[nodiscard]] int Parse(const std::vector<std::string>& texts, int& failedText, int& errorPos, std::string& message);
    int Find(const std::string& name) const;
    const VEK_userFunction& Get(int i) const { return functions_[i]; }
    int Count() const { return static_cast<int>(functions_.size()); }
    double Call(int i, const double* args, VEK_randGen* gen) const;

private:
    std::vector<VEK_userFunction> functions_;
};

// Cumulative distribution function of a continuous distribution at x; false
// when id is not one or the parameters are invalid or degenerate.
bool VEK_libCdf(int id, const double* args, int argc, double x, double& cdf);
// The support points of a discrete distribution with their probabilities
// (tails below 1e-15 left out); false when id is not one, the parameters are
// invalid or the support is too large to list.
bool VEK_libSupport(int id, const double* args, int argc, std::vector<double>& points, std::vector<double>& probs);

// Probabilities of the intervals (-inf, uppers[0]), [uppers[0], uppers[1]),
// ..., [uppers[count - 2], +inf) for an expression that is a + b * D, D a
// distribution call with numeric arguments (an expression folded for its
// variables has that form when its parameters depend on nothing random);
// false for any other form.
bool VEK_exactIntervalProbabilities(const VEK_expression& e, const double* uppers, int count, double* out);
