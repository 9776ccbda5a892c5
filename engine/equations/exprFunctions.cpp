#include "equations/exprFunctions.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "equations/exprParser.h"
#include "inference/randGen.h"
#include "network/incompleteGamma.h"
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

// ---------------------------------------------------------------- exact laws

namespace {

constexpr double kTiny = 1e-300;

// Continued fraction of the regularized incomplete beta function (modified
// Lentz).
double BetaFraction(double a, double b, double x) {
    const double qab = a + b, qap = a + 1.0, qam = a - 1.0;
    double c = 1.0, d = 1.0 - qab * x / qap;
    if (std::fabs(d) < kTiny) d = kTiny;
    d = 1.0 / d;
    double h = d;
    for (int m = 1; m < 10000; ++m) {
        const int m2 = 2 * m;
        double aa = m * (b - m) * x / ((qam + m2) * (a + m2));
        d = 1.0 + aa * d;
        if (std::fabs(d) < kTiny) d = kTiny;
        c = 1.0 + aa / c;
        if (std::fabs(c) < kTiny) c = kTiny;
        d = 1.0 / d;
        h *= d * c;
        aa = -(a + m) * (qab + m) * x / ((a + m2) * (qap + m2));
        d = 1.0 + aa * d;
        if (std::fabs(d) < kTiny) d = kTiny;
        c = 1.0 + aa / c;
        if (std::fabs(c) < kTiny) c = kTiny;
        d = 1.0 / d;
        const double del = d * c;
        h *= del;
        if (std::fabs(del - 1.0) < 1e-16) break;
    }
    return h;
}

double BetaI(double a, double b, double x) {
    if (x <= 0.0) return 0.0;
    if (x >= 1.0) return 1.0;
    const double front = std::exp(a * std::log(x) + b * std::log1p(-x) - LogBeta(a, b));
    // The fraction converges fast on the side of the mean it is used on.
    if (x < (a + 1.0) / (a + b + 2.0)) return front * BetaFraction(a, b, x) / a;
    return 1.0 - front * BetaFraction(b, a, 1.0 - x) / b;
}

double StdNormalCdf(double z) { return 0.5 * std::erfc(-z / std::sqrt(2.0)); }

// A + B * (distribution call) as the subtree i, with the call's index.
bool Affine(const VEK_expression& e, int i, double& a, double& b, int& call) {
    const VEK_exprNode& n = e.Node(i);
    if (n.kind == VEK_exprKind::Call && kTable[n.func].stochastic) {
        for (int k = 0; k < n.argc; ++k) {
            if (e.Node(e.Child(i, k)).kind != VEK_exprKind::Number) return false;
        }
        call = i;
        a = 0.0;
        b = 1.0;
        return true;
    }
    if (n.kind == VEK_exprKind::Unary && n.op == VEK_exprOp::Neg) {
        if (!Affine(e, e.Child(i, 0), a, b, call)) return false;
        a = -a;
        b = -b;
        return true;
    }
    if (n.kind != VEK_exprKind::Binary) return false;
    const int l = e.Child(i, 0), r = e.Child(i, 1);
    const bool leftNumber = e.Node(l).kind == VEK_exprKind::Number;
    const bool rightNumber = e.Node(r).kind == VEK_exprKind::Number;
    if (leftNumber == rightNumber) return false;
    const double c = e.Node(leftNumber ? l : r).value;
    if (!Affine(e, leftNumber ? r : l, a, b, call)) return false;
    switch (n.op) {
        case VEK_exprOp::Add: a += c; return true;
        case VEK_exprOp::Sub:
            if (leftNumber) {
                a = c - a;
                b = -b;
            } else {
                a -= c;
            }
            return true;
        case VEK_exprOp::Mul:
            a *= c;
            b *= c;
            return true;
        case VEK_exprOp::Div:
            if (leftNumber || c == 0.0) return false;
            a /= c;
            b /= c;
            return true;
        default: return false;
    }
}

}  // namespace

bool VEK_libCdf(int id, const double* a, int, double x, double& f) {
    f = 0.0;
    switch (id) {
        case Normal:
            if (!(a[1] > 0.0)) return false;
            f = StdNormalCdf((x - a[0]) / a[1]);
            return true;
        case Uniform:
            if (!(a[0] < a[1])) return false;
            f = std::clamp((x - a[0]) / (a[1] - a[0]), 0.0, 1.0);
            return true;
        case Triangular: {
            const double lo = a[0], c = a[1], hi = a[2];
            if (!(lo <= c && c <= hi && lo < hi)) return false;
            if (x <= lo) f = 0.0;
            else if (x >= hi) f = 1.0;
            else if (x <= c) f = (x - lo) * (x - lo) / ((hi - lo) * (c - lo));
            else f = 1.0 - (hi - x) * (hi - x) / ((hi - lo) * (hi - c));
            return true;
        }
        case Beta:
            if (!(a[0] > 0.0 && a[1] > 0.0)) return false;
            f = BetaI(a[0], a[1], x);
            return true;
        case Gamma:
            if (!(a[0] > 0.0 && a[1] > 0.0)) return false;
            f = VEK_gammaP(a[0], x / a[1]);
            return true;
        case Exponential:
            if (!(a[0] > 0.0)) return false;
            f = x > 0.0 ? -std::expm1(-a[0] * x) : 0.0;
            return true;
        case Lognormal:
            if (!(a[1] > 0.0)) return false;
            f = x > 0.0 ? StdNormalCdf((std::log(x) - a[0]) / a[1]) : 0.0;
            return true;
        case Weibull:
            if (!(a[0] > 0.0 && a[1] > 0.0)) return false;
            f = x > 0.0 ? -std::expm1(-std::pow(x / a[1], a[0])) : 0.0;
            return true;
        default: return false;
    }
}

bool VEK_libSupport(int id, const double* a, int argc, std::vector<double>& points, std::vector<double>& probs) {
    points.clear();
    probs.clear();
    constexpr double kMaxPoints = 1e6;
    double first = 0.0, last = 0.0;
    switch (id) {
        case Bernoulli:
            if (!IsProb(a[0])) return false;
            points = {0.0, 1.0};
            probs = {1.0 - a[0], a[0]};
            return true;
        case CustomPDF: {
            double unused;
            if (!VEK_libDensity(id, a, argc, a[0], unused)) return false;
            const int k = argc / 2;
            points.assign(a, a + k);
            probs.assign(a + k, a + argc);
            return true;
        }
        case Binomial:
            if (!IsCount(a[0]) || !IsProb(a[1]) || a[0] > kMaxPoints) return false;
            last = a[0];
            break;
        case Poisson:
            if (!(a[0] > 0.0) || a[0] > kMaxPoints) return false;
            last = std::ceil(a[0] + 40.0 * std::sqrt(a[0]) + 40.0);
            break;
        case Geometric:
            if (!(a[0] > 0.0 && a[0] <= 1.0)) return false;
            first = 1.0;
            // The tail beyond k trials is (1 - p)^k.
            last = a[0] == 1.0 ? 1.0 : std::ceil(std::log(1e-17) / std::log1p(-a[0]));
            if (last > kMaxPoints) return false;
            break;
        default: return false;
    }
    for (double k = first; k <= last; k += 1.0) {
        double p = 0.0;
        VEK_libDensity(id, a, argc, k, p);
        if (p < 1e-300) continue;
        points.push_back(k);
        probs.push_back(p);
    }
    return !points.empty();
}

bool VEK_exactIntervalProbabilities(const VEK_expression& e, const double* uppers, int count, double* out) {
    if (e.Empty() || count < 1) return false;
    double shift = 0.0, scale = 1.0;
    int call = -1;
    if (!Affine(e, e.Root(), shift, scale, call) || !std::isfinite(shift) || !std::isfinite(scale) || scale == 0.0) {
        return false;
    }
    const VEK_exprNode& n = e.Node(call);
    double args[64];
    if (n.argc > 64) return false;
    for (int k = 0; k < n.argc; ++k) args[k] = e.Node(e.Child(call, k)).value;
    std::vector<double> points, probs;
    if (VEK_libSupport(n.func, args, n.argc, points, probs)) {
        std::fill(out, out + count, 0.0);
        double total = 0.0;
        for (size_t i = 0; i < points.size(); ++i) {
            const double y = shift + scale * points[i];
            if (!std::isfinite(y)) return false;
            const int bin = static_cast<int>(std::upper_bound(uppers, uppers + count - 1, y) - uppers);
            out[bin] += probs[i];
            total += probs[i];
        }
        if (!(total > 0.0)) return false;
        for (int k = 0; k < count; ++k) out[k] /= total;
        return true;
    }
    // P(shift + scale * X < u), through the CDF of X.
    double previous = 0.0;
    for (int k = 0; k < count; ++k) {
        double g = 1.0;
        if (k + 1 < count) {
            double f;
            if (!VEK_libCdf(n.func, args, n.argc, (uppers[k] - shift) / scale, f)) return false;
            g = scale > 0.0 ? f : 1.0 - f;
        }
        out[k] = std::max(0.0, g - previous);
        previous = std::max(previous, g);
    }
    return true;
}
