// The language against an evaluator written here: random trees printed with
// full parentheses, parsed, evaluated at random points; malformed texts and
// their error positions; distributions against their exact CDFs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "equations/exprFunctions.h"
#include "equations/exprParser.h"
#include "equations/expression.h"
#include "inference/randGen.h"

namespace {

struct RefTree {
    std::string text;
    std::function<double(const double*)> eval;
};

const char* const kVars[] = {"a", "b", "c"};

// A random tree: its fully parenthesised text and its value computed with
// the standard library.
RefTree Random(std::mt19937& rng, int depth) {
    auto pick = [&](int n) { return static_cast<int>(rng() % n); };
    if (depth == 0 || pick(4) == 0) {
        if (pick(2)) {
            const int v = pick(3);
            return {kVars[v], [v](const double* x) { return x[v]; }};
        }
        const double k = std::round(std::uniform_real_distribution<double>(0, 5)(rng) * 100) / 100;
        char buf[32];
        std::snprintf(buf, sizeof buf, "%.2f", k);
        return {buf, [k](const double*) { return k; }};
    }
    using F = std::function<double(const double*)>;
    struct Bin { const char* op; std::function<double(double, double)> f; };
    static const std::vector<Bin> bins = {
        {"+", std::plus<double>()}, {"-", std::minus<double>()}, {"*", std::multiplies<double>()},
        {"/", [](double a, double b) { return b == 0 ? NAN : a / b; }},
        {"^", [](double a, double b) { return std::pow(a, b); }},
        {"<", [](double a, double b) { return double(a < b); }},
        {">=", [](double a, double b) { return double(a >= b); }},
        {"==", [](double a, double b) { return double(a == b); }},
        {"<>", [](double a, double b) { return double(a != b); }},
        {"&&", [](double a, double b) { return double(a != 0 && b != 0); }},
        {"or", [](double a, double b) { return double(a != 0 || b != 0); }},
    };
    struct Fn { const char* name; int argc; std::function<double(const double*)> f; };
    static const std::vector<Fn> fns = {
        {"Abs", 1, [](const double* v) { return std::fabs(v[0]); }},
        {"Sqrt", 1, [](const double* v) { return v[0] < 0 ? NAN : std::sqrt(v[0]); }},
        {"Exp", 1, [](const double* v) { return std::exp(v[0]); }},
        {"Ln", 1, [](const double* v) { return v[0] <= 0 ? NAN : std::log(v[0]); }},
        {"Log10", 1, [](const double* v) { return v[0] <= 0 ? NAN : std::log10(v[0]); }},
        {"Sin", 1, [](const double* v) { return std::sin(v[0]); }},
        {"ATan", 1, [](const double* v) { return std::atan(v[0]); }},
        {"Floor", 1, [](const double* v) { return std::floor(v[0]); }},
        {"Round", 1, [](const double* v) { return std::round(v[0]); }},
        {"Max", 2, [](const double* v) { return std::isnan(v[0] + v[1]) ? NAN : std::max(v[0], v[1]); }},
        {"Min", 2, [](const double* v) { return std::isnan(v[0] + v[1]) ? NAN : std::min(v[0], v[1]); }},
        {"Pow", 2, [](const double* v) { return std::pow(v[0], v[1]); }},
        {"Mod", 2, [](const double* v) { return v[1] == 0 ? NAN : std::fmod(v[0], v[1]); }},
        {"Log", 2, [](const double* v) {
             return v[0] <= 0 || v[1] <= 0 || v[1] == 1 ? NAN : std::log(v[0]) / std::log(v[1]); }},
        {"If", 3, [](const double* v) { return v[0] != 0 ? v[1] : v[2]; }},
        {"Choose", 3, [](const double* v) { double k = std::round(v[0]); return k == 0 ? v[1] : k == 1 ? v[2] : NAN; }},
        {"Switch", 4, [](const double* v) { return v[0] == v[1] ? v[2] : v[3]; }},
    };
    const int kind = pick(4);
    if (kind == 0) {
        RefTree a = Random(rng, depth - 1);
        F f = a.eval;
        if (pick(2)) return {"(-" + a.text + ")", [f](const double* x) { return -f(x); }};
        return {"(not " + a.text + ")", [f](const double* x) { return double(f(x) == 0); }};
    }
    if (kind == 1) {
        RefTree l = Random(rng, depth - 1), r = Random(rng, depth - 1);
        const Bin& b = bins[pick(static_cast<int>(bins.size()))];
        F L = l.eval, R = r.eval;
        auto f = b.f;
        return {"(" + l.text + " " + b.op + " " + r.text + ")", [L, R, f](const double* x) { return f(L(x), R(x)); }};
    }
    const Fn& fn = fns[pick(static_cast<int>(fns.size()))];
    std::vector<F> args;
    std::string text = std::string(fn.name) + "(";
    for (int k = 0; k < fn.argc; ++k) {
        RefTree a = Random(rng, depth - 1);
        text += (k ? ", " : "") + a.text;
        args.push_back(a.eval);
    }
    auto f = fn.f;
    return {text + ")", [args, f](const double* x) {
                double v[4];
                for (size_t k = 0; k < args.size(); ++k) v[k] = args[k](x);
                return f(v);
            }};
}

}  // namespace

namespace {

VEK_expression MustParse(const std::string& text, const VEK_functionSet* fs = nullptr) {
    VEK_expression e;
    int pos = -1;
    std::string message;
    EXPECT_EQ(VEK_exprParser::Parse(text, fs, e, pos, message), 0) << text << ": " << message << " at " << pos;
    return e;
}

double Value(const VEK_expression& e, const std::vector<std::string>& names, const double* x) {
    std::vector<double> vars;
    for (const std::string& v : e.Variables()) vars.push_back(x[std::find(names.begin(), names.end(), v) - names.begin()]);
    return e.Evaluate(vars.data(), nullptr);
}

void ExpectSame(double want, double got, const std::string& text) {
    if (std::isnan(want)) {
        EXPECT_TRUE(std::isnan(got)) << text;
    } else if (std::isinf(want)) {
        EXPECT_EQ(want, got) << text;
    } else {
        EXPECT_NEAR(want, got, 1e-9 * (1 + std::fabs(want))) << text;
    }
}

}  // namespace

TEST(Expression, RandomTreesMatchTheStandardLibraryAndPrintCanonically) {
    std::mt19937 rng(7);
    const std::vector<std::string> names = {"a", "b", "c"};
    for (int t = 0; t < 400; ++t) {
        const RefTree ref = Random(rng, 4);
        const VEK_expression e = MustParse(ref.text);
        const std::string canonical = e.Print();
        const VEK_expression again = MustParse(canonical);
        EXPECT_EQ(canonical, again.Print()) << ref.text;
        EXPECT_EQ(e.NodeCount(), again.NodeCount()) << canonical;
        for (int p = 0; p < 3; ++p) {
            double x[3];
            for (double& v : x) v = std::round(std::uniform_real_distribution<double>(-3, 3)(rng) * 4) / 4;
            const double want = ref.eval(x);
            ExpectSame(want, Value(e, names, x), ref.text);
            ExpectSame(want, Value(again, names, x), canonical);
        }
    }
}

TEST(Expression, PrecedenceNumbersAndUserFunctions) {
    struct Case { const char* text; double value; };
    const Case cases[] = {
        {"-2^2", -4}, {"2^3^2", 512}, {"2^-1", 0.5}, {"1 + 2 * 3 - 4 / 2", 5}, {"1 < 2 == 1", 1},
        {"!0 && 1 || 0", 1}, {"not 1 or 0 and 1", 0}, {"0x1F + 017 + 1e2 + .5 + 5. + 2.5e-1f + 7UL", 31 + 15 + 100 + 0.5 + 5 + 0.25 + 7},
        {"0x1.8p1", 3}, {"Switch(2, 1, 10, 2, 20, 30)", 20}, {"Switch(5, 1, 10, 30)", 30}, {"Max(1, 7, 3)", 7},
        {"If(0, 1/0, 4)", 4}, {"sq(3) + cube(2)", 17},
    };
    VEK_functionSet fs;
    int failed = -1, pos = -1;
    std::string message;
    ASSERT_EQ(fs.Parse({"sq(x) = x * x", "cube(x) = x * sq(x)"}, failed, pos, message), 0) << message;
    for (const Case& c : cases) {
        const VEK_expression e = MustParse(c.text, &fs);
        EXPECT_DOUBLE_EQ(e.Evaluate(nullptr, nullptr), c.value) << c.text;
        EXPECT_DOUBLE_EQ(MustParse(e.Print(), &fs).Evaluate(nullptr, nullptr), c.value) << e.Print();
    }
    EXPECT_NE(fs.Parse({"f(x) = y"}, failed, pos, message), 0);
    EXPECT_EQ(fs.Count(), 0);
}

TEST(Expression, MalformedTextsReportTheirPosition) {
    struct Case { const char* text; int pos; const char* words; };
    const Case cases[] = {
        {"1 +", 3, "end"}, {"(a + b", 6, "')'"}, {"a + * b", 4, "Expected"}, {"a # b", 2, "'#'"},
        {"Normal(1)", 0, "takes 2"}, {"Foo(1)", 0, "Unknown function"}, {"1 2", 2, "after"},
        {"089", 0, "octal"}, {"12abc", 0, "Malformed"}, {"Max()", 0, "at least 1"}, {"Switch(1, 2, 3)", 0, "at least 4"}, {"Switch(1, 2, 3, 4, 5)", 0, "even"},
        {"", 0, "end"}, {"f(1,)", 4, "Expected"},
    };
    for (const Case& c : cases) {
        VEK_expression e;
        int pos = -1;
        std::string message;
        EXPECT_LT(VEK_exprParser::Parse(c.text, nullptr, e, pos, message), 0) << c.text;
        EXPECT_EQ(pos, c.pos) << c.text << ": " << message;
        EXPECT_NE(message.find(c.words), std::string::npos) << c.text << ": " << message;
    }
}

namespace {

double NormalCdf(double x) { return 0.5 * std::erfc(-x / std::sqrt(2.0)); }

struct DistCase {
    const char* text;
    std::function<double(double)> cdf;
    double mean, variance;
    bool discrete;
};

double Fact(int k) { return std::tgamma(k + 1.0); }

}  // namespace

// Kolmogorov-Smirnov distance against the exact CDF, sample mean and
// variance against the exact moments, and the density against the CDF's
// slope (probabilities against its steps for discrete distributions).
TEST(Expression, DistributionsMatchTheirExactLaws) {
    const std::vector<DistCase> cases = {
        {"Normal(1, 2)", [](double x) { return NormalCdf((x - 1) / 2); }, 1, 4, false},
        {"Uniform(-1, 3)", [](double x) { return std::clamp((x + 1) / 4, 0.0, 1.0); }, 1, 16.0 / 12, false},
        {"Triangular(0, 1, 4)", [](double x) { return x <= 0 ? 0 : x <= 1 ? x * x / 4 : x >= 4 ? 1 : 1 - (4 - x) * (4 - x) / 12; },
         5.0 / 3, (0 + 1 + 16 - 0 - 0 - 4) / 18.0, false},
        {"Beta(2, 3)", [](double x) { x = std::clamp(x, 0.0, 1.0); return 6 * x * x - 8 * x * x * x + 3 * x * x * x * x; }, 0.4, 0.04, false},
        {"Gamma(3, 2)", [](double x) { if (x <= 0) return 0.0; double y = x / 2; return 1 - std::exp(-y) * (1 + y + y * y / 2); }, 6, 12, false},
        {"Gamma(0.5, 1)", [](double x) { return x <= 0 ? 0 : std::erf(std::sqrt(x)); }, 0.5, 0.5, false},
        {"Exponential(2)", [](double x) { return x <= 0 ? 0 : 1 - std::exp(-2 * x); }, 0.5, 0.25, false},
        {"Lognormal(0, 0.5)", [](double x) { return x <= 0 ? 0 : NormalCdf(std::log(x) / 0.5); }, std::exp(0.125), (std::exp(0.25) - 1) * std::exp(0.25), false},
        {"Weibull(2, 3)", [](double x) { return x <= 0 ? 0 : 1 - std::exp(-(x / 3) * (x / 3)); }, 3 * std::sqrt(M_PI) / 2, 9 * (1 - M_PI / 4), false},
        {"Bernoulli(0.3)", [](double x) { return x < 0 ? 0 : x < 1 ? 0.7 : 1; }, 0.3, 0.21, true},
        {"Binomial(10, 0.3)", [](double x) { double s = 0; for (int k = 0; k <= std::floor(x) && k <= 10; ++k) s += Fact(10) / (Fact(k) * Fact(10 - k)) * std::pow(0.3, k) * std::pow(0.7, 10 - k); return s; }, 3, 2.1, true},
        {"Binomial(20, 0.8)", [](double x) { double s = 0; for (int k = 0; k <= std::floor(x) && k <= 20; ++k) s += Fact(20) / (Fact(k) * Fact(20 - k)) * std::pow(0.8, k) * std::pow(0.2, 20 - k); return s; }, 16, 3.2, true},
        {"Poisson(3.5)", [](double x) { double s = 0; for (int k = 0; k <= std::floor(x); ++k) s += std::exp(-3.5) * std::pow(3.5, k) / Fact(k); return s; }, 3.5, 3.5, true},
        {"Geometric(0.25)", [](double x) { return x < 1 ? 0 : 1 - std::pow(0.75, std::floor(x)); }, 4, 0.75 / 0.0625, true},
        {"CustomPDF(1, 5, 9, 0.2, 0.5, 0.3)", [](double x) { return x < 1 ? 0 : x < 5 ? 0.2 : x < 9 ? 0.7 : 1; }, 5.4, 7.84, true},
    };
    const int n = 20000;
    VEK_randGen gen(12345);
    for (const DistCase& c : cases) {
        const VEK_expression e = MustParse(c.text);
        std::vector<double> xs(n);
        double sum = 0, sq = 0;
        for (double& x : xs) {
            x = e.Evaluate(nullptr, &gen);
            sum += x;
            sq += x * x;
        }
        const double mean = sum / n, var = sq / n - mean * mean;
        EXPECT_NEAR(mean, c.mean, 4 * std::sqrt(c.variance / n)) << c.text;
        EXPECT_NEAR(var, c.variance, 0.05 * c.variance) << c.text;
        std::sort(xs.begin(), xs.end());
        double ks = 0;
        for (int i = 0; i < n; ++i) {
            // At ties only the last of a run is a step of the empirical CDF.
            if (i + 1 < n && xs[i + 1] == xs[i]) continue;
            const double f = c.cdf(xs[i]);
            ks = std::max({ks, std::fabs((i + 1.0) / n - f), c.discrete ? 0.0 : std::fabs(double(i) / n - f)});
        }
        EXPECT_LT(ks, 1.63 / std::sqrt(n)) << c.text;
        // Interval probabilities of the law and of 2 - 3 times it, cut at
        // sample quantiles: Y < u holds when X > (2 - u) / 3.
        std::vector<double> cuts;
        for (double q : {0.1, 0.35, 0.6, 0.9}) cuts.push_back(xs[static_cast<int>(q * n)]);
        auto below = [&](double u) { return c.discrete ? c.cdf(u - 1e-9) : c.cdf(u); };
        for (bool flipped : {false, true}) {
            const VEK_expression f = MustParse(flipped ? std::string("2 - 3 * ") + c.text : c.text).Fold(nullptr);
            std::vector<double> uppers(cuts), got(uppers.size() + 1);
            if (flipped) for (double& u : uppers) u = 2 - 3 * u;
            std::sort(uppers.begin(), uppers.end());
            ASSERT_TRUE(VEK_exactIntervalProbabilities(f, uppers.data(), static_cast<int>(got.size()), got.data())) << c.text;
            double prev = 0;
            for (size_t k = 0; k < got.size(); ++k) {
                const double g = k == uppers.size() ? 1 : flipped ? 1 - c.cdf((2 - uppers[k]) / 3) : below(uppers[k]);
                EXPECT_NEAR(got[k], g - prev, 1e-7) << c.text << (flipped ? " flipped" : "") << " interval " << k;
                prev = g;
            }
        }
        for (double q : {0.2, 0.5, 0.8}) {
            const double x = xs[static_cast<int>(q * n)];
            double d = -1;
            ASSERT_TRUE(e.Density(e.Root(), x, nullptr, d)) << c.text;
            const double want = c.discrete ? c.cdf(x) - c.cdf(x - 1e-9) : (c.cdf(x + 1e-5) - c.cdf(x - 1e-5)) / 2e-5;
            EXPECT_NEAR(d, want, 1e-4 * (1 + want)) << c.text << " at " << x;
        }
    }
}
