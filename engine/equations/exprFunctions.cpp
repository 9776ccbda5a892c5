#include "equations/exprFunctions.h"

#include <cmath>
#include <limits>

#include "equations/exprParser.h"
#include "inference/randGen.h"
#include "network/status.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kPi = 3.14159265358979323846;

enum LibId {
    Abs, Sqrt, Exp, Ln, Log, Log10, Pow, Sin, Cos, Tan, ASin, ACos, ATan, ATan2, Sinh, Cosh, Tanh,
    Min, Max, Round, Floor, Ceil, Mod, If, Switch, Choose,
    Normal, Uniform, Triangular, Beta, Gamma, Exponential, Lognormal, Weibull,
    Bernoulli, Binomial, Poisson, Geometric, CustomPDF
};

const std::vector<VEK_libFunction> kTable = {
    {"Abs", 1, 1, false},       {"Sqrt", 1, 1, false},       {"Exp", 1, 1, false},
    {"Ln", 1, 1, false},        {"Log", 1, 2, false},        {"Log10", 1, 1, false},
    {"Pow", 2, 2, false},       {"Sin", 1, 1, false},        {"Cos", 1, 1, false},
    {"Tan", 1, 1, false},       {"ASin", 1, 1, false},       {"ACos", 1, 1, false},
    {"ATan", 1, 1, false},      {"ATan2", 2, 2, false},      {"Sinh", 1, 1, false},
    {"Cosh", 1, 1, false},      {"Tanh", 1, 1, false},       {"Min", 1, -1, false},
    {"Max", 1, -1, false},      {"Round", 1, 1, false},      {"Floor", 1, 1, false},
    {"Ceil", 1, 1, false},      {"Mod", 2, 2, false},        {"If", 3, 3, false},
    {"Switch", 4, -1, false},   {"Choose", 2, -1, false},    {"Normal", 2, 2, true},
    {"Uniform", 2, 2, true},    {"Triangular", 3, 3, true},  {"Beta", 2, 2, true},
    {"Gamma", 2, 2, true},      {"Exponential", 1, 1, true}, {"Lognormal", 2, 2, true},
    {"Weibull", 2, 2, true},    {"Bernoulli", 1, 1, true},   {"Binomial", 2, 2, true},
    {"Poisson", 1, 1, true},    {"Geometric", 1, 1, true},   {"CustomPDF", 2, -1, true},
};

bool IsProb(double p) { return p >= 0.0 && p <= 1.0; }

bool IsCount(double n) { return n >= 0.0 && n == std::floor(n) && n < 2147483647.0; }

// Uniform in (0, 1].
double OpenUniform(VEK_randGen& g) { return 1.0 - g.GetDouble(); }

double SampleTriangular(VEK_randGen& g, double a, double c, double b) {
    if (!(a <= c && c <= b && a < b)) return kNaN;
    const double u = g.GetDouble();
    const double f = (c - a) / (b - a);
    return u < f ? a + std::sqrt(u * (b - a) * (c - a)) : b - std::sqrt((1.0 - u) * (b - a) * (b - c));
}

// Inversion along the probability recurrence: exact for any parameters, in
// time proportional to the drawn value.
double SampleBinomial(VEK_randGen& g, double n, double p) {
    if (!IsCount(n) || !IsProb(p)) return kNaN;
    if (p == 0.0) return 0.0;
    if (p == 1.0) return n;
    if (p > 0.5) return n - SampleBinomial(g, n, 1.0 - p);
    const double q = 1.0 - p;
    double pk = std::exp(n * std::log(q));
    if (pk <= 0.0) {
        // Too many trials for the recurrence from zero: sum Bernoulli draws
        // in blocks through the normal limit would be approximate, so count.
        double k = 0.0;
        for (double i = 0; i < n; ++i) k += g.GetDouble() < p ? 1.0 : 0.0;
        return k;
    }
    double u = g.GetDouble(), k = 0.0;
    while (u > pk && k < n) {
        u -= pk;
        pk *= (n - k) / (k + 1.0) * p / q;
        k += 1.0;
    }
    return k;
}

double SamplePoisson(VEK_randGen& g, double lambda) {
    if (!(lambda >= 0.0) || std::isinf(lambda)) return kNaN;
    if (lambda > 500.0) {
        // Split so that each part's recurrence starts above underflow.
        const double half = std::floor(lambda / 2.0);
        return SamplePoisson(g, half) + SamplePoisson(g, lambda - half);
    }
    double pk = std::exp(-lambda), u = g.GetDouble(), k = 0.0;
    while (u > pk && pk > 0.0) {
        u -= pk;
        k += 1.0;
        pk *= lambda / k;
    }
    return k;
}

// Standard normal quantile by a rational approximation (relative error
// below 1.2e-9): one uniform per draw instead of the polar method's two or
// more.
double NormalQuantile(double p) {
    static const double a[] = {-3.969683028665376e+01, 2.209460984245205e+02, -2.759285104469687e+02,
                               1.383577518672690e+02, -3.066479806614716e+01, 2.506628277459239e+00};
    static const double b[] = {-5.447609879822406e+01, 1.615858368580409e+02, -1.556989798598866e+02,
                               6.680131188771972e+01, -1.328068155288572e+01};
    static const double c[] = {-7.784894002430293e-03, -3.223964580411365e-01, -2.400758277161838e+00,
                               -2.549732539343734e+00, 4.374664141464968e+00, 2.938163982698783e+00};
    static const double d[] = {7.784695709041462e-03, 3.224671290700398e-01, 2.445134137142996e+00,
                               3.754408661907416e+00};
    constexpr double low = 0.02425;
    if (p < low || p > 1.0 - low) {
        const double q = std::sqrt(-2.0 * std::log(p < low ? p : 1.0 - p));
        const double x = (((((c[0] * q + c[1]) * q + c[2]) * q + c[3]) * q + c[4]) * q + c[5]) /
                         ((((d[0] * q + d[1]) * q + d[2]) * q + d[3]) * q + 1.0);
        return p < low ? x : -x;
    }
    const double q = p - 0.5, r = q * q;
    return (((((a[0] * r + a[1]) * r + a[2]) * r + a[3]) * r + a[4]) * r + a[5]) * q /
           (((((b[0] * r + b[1]) * r + b[2]) * r + b[3]) * r + b[4]) * r + 1.0);
}

double StdNormal(VEK_randGen& g) {
    double u;
    do u = g.GetDouble();
    while (u == 0.0);
    return NormalQuantile(u);
}

double LogBeta(double a, double b) { return std::lgamma(a) + std::lgamma(b) - std::lgamma(a + b); }

double LogChoose(double n, double k) { return std::lgamma(n + 1) - std::lgamma(k + 1) - std::lgamma(n - k + 1); }

}  // namespace

const std::vector<VEK_libFunction>& VEK_libFunctions() { return kTable; }

int VEK_findLibFunction(const std::string& name) {
    for (size_t i = 0; i < kTable.size(); ++i) {
        if (name == kTable[i].name) return static_cast<int>(i);
    }
    return -1;
}

double VEK_callLibFunction(int id, const double* a, int argc, VEK_randGen* gen) {
    switch (id) {
        case Abs: return std::fabs(a[0]);
        case Sqrt: return a[0] < 0.0 ? kNaN : std::sqrt(a[0]);
        case Exp: return std::exp(a[0]);
        case Ln: return a[0] <= 0.0 ? kNaN : std::log(a[0]);
        case Log:
            if (a[0] <= 0.0) return kNaN;
            if (argc == 1) return std::log(a[0]);
            if (a[1] <= 0.0 || a[1] == 1.0) return kNaN;
            return std::log(a[0]) / std::log(a[1]);
        case Log10: return a[0] <= 0.0 ? kNaN : std::log10(a[0]);
        case Pow: return std::pow(a[0], a[1]);
        case Sin: return std::sin(a[0]);
        case Cos: return std::cos(a[0]);
        case Tan: return std::tan(a[0]);
        case ASin: return std::fabs(a[0]) > 1.0 ? kNaN : std::asin(a[0]);
        case ACos: return std::fabs(a[0]) > 1.0 ? kNaN : std::acos(a[0]);
        case ATan: return std::atan(a[0]);
        case ATan2: return std::atan2(a[0], a[1]);
        case Sinh: return std::sinh(a[0]);
        case Cosh: return std::cosh(a[0]);
        case Tanh: return std::tanh(a[0]);
        case Min:
        case Max: {
            // A NaN argument (a domain error) makes the result NaN.
            double r = a[0];
            for (int i = 0; i < argc; ++i) {
                if (std::isnan(a[i])) return kNaN;
                if ((id == Min) == (a[i] < r)) r = a[i];
            }
            return r;
        }
        case Round: return std::round(a[0]);
        case Floor: return std::floor(a[0]);
        case Ceil: return std::ceil(a[0]);
        case Mod: return a[1] == 0.0 ? kNaN : std::fmod(a[0], a[1]);
        case If: return a[0] != 0.0 ? a[1] : a[2];
        case Switch:
            for (int i = 1; i + 1 < argc; i += 2) {
                if (a[0] == a[i]) return a[i + 1];
            }
            return a[argc - 1];
        case Choose: {
            const double k = std::round(a[0]);
            return k >= 0.0 && k < argc - 1 ? a[static_cast<int>(k) + 1] : kNaN;
        }
        default: break;
    }
    if (!gen) return kNaN;
    VEK_randGen& g = *gen;
    switch (id) {
        case Normal: return a[1] > 0.0 ? a[0] + a[1] * StdNormal(g) : a[1] == 0.0 ? a[0] : kNaN;
        case Uniform: return a[0] <= a[1] ? a[0] + (a[1] - a[0]) * g.GetDouble() : kNaN;
        case Triangular: return SampleTriangular(g, a[0], a[1], a[2]);
        case Beta: {
            if (!(a[0] > 0.0 && a[1] > 0.0)) return kNaN;
            const double x = g.Gamma(a[0], 1.0), y = g.Gamma(a[1], 1.0);
            return x / (x + y);
        }
        case Gamma: return g.Gamma(a[0], a[1]);
        case Exponential: return a[0] > 0.0 ? -std::log(OpenUniform(g)) / a[0] : kNaN;
        case Lognormal: return a[1] >= 0.0 ? std::exp(a[0] + a[1] * StdNormal(g)) : kNaN;
        case Weibull:
            if (!(a[0] > 0.0 && a[1] > 0.0)) return kNaN;
            return a[1] * std::pow(-std::log(OpenUniform(g)), 1.0 / a[0]);
        case Bernoulli: return IsProb(a[0]) ? (g.GetDouble() < a[0] ? 1.0 : 0.0) : kNaN;
        case Binomial: return SampleBinomial(g, a[0], a[1]);
        case Poisson: return SamplePoisson(g, a[0]);
        case Geometric:
            // Trials up to and including the first success.
            if (!(a[0] > 0.0 && a[0] <= 1.0)) return kNaN;
            if (a[0] == 1.0) return 1.0;
            return 1.0 + std::floor(std::log(OpenUniform(g)) / std::log1p(-a[0]));
        case CustomPDF: {
            if (argc % 2) return kNaN;
            const int k = argc / 2;
            double total = 0.0;
            for (int i = k; i < argc; ++i) {
                if (!(a[i] >= 0.0)) return kNaN;
                total += a[i];
            }
            if (!(total > 0.0)) return kNaN;
            double u = g.GetDouble() * total;
            for (int i = 0; i < k; ++i) {
                if (u < a[k + i]) return a[i];
                u -= a[k + i];
            }
            return a[k - 1];
        }
        default: return kNaN;
    }
}

bool VEK_libDensity(int id, const double* a, int argc, double x, double& d) {
    d = 0.0;
    switch (id) {
        case Normal:
            if (!(a[1] > 0.0)) return false;
            d = std::exp(-0.5 * (x - a[0]) * (x - a[0]) / (a[1] * a[1])) / (a[1] * std::sqrt(2.0 * kPi));
            return true;
        case Uniform:
            if (!(a[0] < a[1])) return false;
            d = x >= a[0] && x <= a[1] ? 1.0 / (a[1] - a[0]) : 0.0;
            return true;
        case Triangular: {
            const double lo = a[0], c = a[1], hi = a[2];
            if (!(lo <= c && c <= hi && lo < hi)) return false;
            if (x < lo || x > hi) return true;
            d = x < c ? 2.0 * (x - lo) / ((hi - lo) * (c - lo)) : x > c ? 2.0 * (hi - x) / ((hi - lo) * (hi - c))
                                                                   : 2.0 / (hi - lo);
            return true;
        }
        case Beta:
            if (!(a[0] > 0.0 && a[1] > 0.0)) return false;
            if (x > 0.0 && x < 1.0) d = std::exp((a[0] - 1) * std::log(x) + (a[1] - 1) * std::log1p(-x) - LogBeta(a[0], a[1]));
            return true;
        case Gamma:
            if (!(a[0] > 0.0 && a[1] > 0.0)) return false;
            if (x > 0.0) d = std::exp((a[0] - 1) * std::log(x) - x / a[1] - std::lgamma(a[0]) - a[0] * std::log(a[1]));
            return true;
        case Exponential:
            if (!(a[0] > 0.0)) return false;
            if (x >= 0.0) d = a[0] * std::exp(-a[0] * x);
            return true;
        case Lognormal:
            if (!(a[1] > 0.0)) return false;
            if (x > 0.0) {
                const double z = (std::log(x) - a[0]) / a[1];
                d = std::exp(-0.5 * z * z) / (x * a[1] * std::sqrt(2.0 * kPi));
            }
            return true;
        case Weibull:
            if (!(a[0] > 0.0 && a[1] > 0.0)) return false;
            if (x >= 0.0) d = a[0] / a[1] * std::pow(x / a[1], a[0] - 1) * std::exp(-std::pow(x / a[1], a[0]));
            return true;
        case Bernoulli:
            if (!IsProb(a[0])) return false;
            d = x == 1.0 ? a[0] : x == 0.0 ? 1.0 - a[0] : 0.0;
            return true;
        case Binomial:
            if (!IsCount(a[0]) || !IsProb(a[1])) return false;
            if (IsCount(x) && x <= a[0]) {
                d = a[1] == 0.0 ? (x == 0.0) : a[1] == 1.0 ? (x == a[0])
                    : std::exp(LogChoose(a[0], x) + x * std::log(a[1]) + (a[0] - x) * std::log1p(-a[1]));
            }
            return true;
        case Poisson:
            if (!(a[0] > 0.0)) return false;
            if (IsCount(x)) d = std::exp(x * std::log(a[0]) - a[0] - std::lgamma(x + 1));
            return true;
        case Geometric:
            if (!(a[0] > 0.0 && a[0] <= 1.0)) return false;
            if (IsCount(x) && x >= 1.0) d = a[0] * std::pow(1.0 - a[0], x - 1.0);
            return true;
        case CustomPDF: {
            if (argc % 2) return false;
            const int k = argc / 2;
            double total = 0.0, hit = 0.0;
            for (int i = 0; i < k; ++i) {
                total += a[k + i];
                if (a[i] == x) hit += a[k + i];
            }
            if (!(total > 0.0)) return false;
            d = hit / total;
            return true;
        }
        default: return false;
    }
}

int VEK_functionSet::Parse(const std::vector<std::string>& texts, int& failedText, int& errorPos,
                           std::string& message) {
    functions_.clear();
    for (size_t t = 0; t < texts.size(); ++t) {
        VEK_userFunction f;
        int res = VEK_exprParser::ParseFunction(texts[t], *this, f, errorPos, message);
        if (res == VEK_OKAY && (Find(f.name) >= 0 || VEK_findLibFunction(f.name) >= 0)) {
            res = VEK_SYNTAX_ERROR;
            errorPos = 0;
            message = "Function '" + f.name + "' is already defined";
        }
        if (res != VEK_OKAY) {
            functions_.clear();
            failedText = static_cast<int>(t);
            return res;
        }
        functions_.push_back(std::move(f));
    }
    return VEK_OKAY;
}

int VEK_functionSet::Find(const std::string& name) const {
    for (size_t i = 0; i < functions_.size(); ++i) {
        if (functions_[i].name == name) return static_cast<int>(i);
    }
    return -1;
}

double VEK_functionSet::Call(int i, const double* args, VEK_randGen* gen) const {
    return functions_[i].body.Evaluate(args, gen);
}
