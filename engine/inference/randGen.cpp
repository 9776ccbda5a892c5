#include "inference/randGen.h"

#include <cmath>
#include <cstdint>
#include <ctime>
#include <limits>

#include "network/status.h"

namespace {

uint32_t HashWord(uint32_t a) {
    a = a * 4097u + 2127912214u;
    a = a ^ 3345072700u ^ (a >> 19);
    a = a * 33u;
    a = (a - 369570787u) ^ ((a + 374761393u) << 9);
    a = a * 9u - 42973499u;
    a = a ^ 3042594569u ^ (a >> 16);
    return a;
}

const double kNaN = std::numeric_limits<double>::quiet_NaN();

}  // namespace

void VEK_randGen::Init(unsigned seed) {
    m_flag = 0;
    m_x = 123456789u;
    m_y = 987654321u;
    uint32_t z = 43219876u;
    const uint32_t c = 6543217u;

    uint32_t s = seed;
    if (s == 0) {
        const uint64_t addr = reinterpret_cast<uintptr_t>(this);
        s = static_cast<uint32_t>(addr) ^ static_cast<uint32_t>(addr >> 32) ^
            static_cast<uint32_t>(std::time(nullptr)) ^ static_cast<uint32_t>(std::clock());
    }

    const uint32_t h1 = HashWord(s);
    m_x ^= h1;
    const uint32_t h2 = HashWord(h1 ^ 3042594569u ^ 285207212u);
    m_y ^= h2;
    const uint32_t h3 = HashWord(h2 ^ 3042594569u ^ 1246457319u);
    z ^= h3;
    m_zc = (static_cast<uint64_t>(c) << 32) | z;

    Spin(7);
}

unsigned VEK_randGen::Next() {
    m_x = 314527869u * m_x + 1234567u;
    m_y ^= m_y << 5;
    m_y ^= m_y >> 7;
    m_y ^= m_y << 22;
    // z * a + c with z the low and c the high half of the state word.
    m_zc = 4294584393ull * (m_zc & 0xffffffffull) + (m_zc >> 32);
    return m_x + m_y + static_cast<uint32_t>(m_zc);
}

void VEK_randGen::Spin(int n) {
    for (int i = 0; i < n; ++i) Next();
}

double VEK_randGen::GetDouble() {
    const uint32_t a = Next() >> 6;
    const uint32_t b = Next() >> 5;
    return (a * 134217728.0 + b) * (1.0 / 9007199254740992.0);
}

unsigned VEK_randGen::GetInt(unsigned n) {
    if (n == 0) return 0;
    return Next() % n;
}

int VEK_randGen::Roulette(double r, const double* p, int n) {
    if (n < 1 || p == nullptr) return -1;
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        sum += p[i];
        if (sum > r) return i;
    }
    return n - 1;
}

void VEK_randGen::Shuffle(int* a, int n) {
    if (a == nullptr) return;
    for (int i = n - 1; i > 0; --i) {
        const int j = static_cast<int>(GetInt(static_cast<unsigned>(i) + 1));
        const int t = a[i];
        a[i] = a[j];
        a[j] = t;
    }
}

double VEK_randGen::Uniform(double a, double b) { return a + (b - a) * GetDouble(); }

double VEK_randGen::Exponential(double lambda) {
    if (!(lambda > 0.0)) return kNaN;
    // 1 - u lies in (0, 1], so the logarithm is finite.
    return -std::log(1.0 - GetDouble()) / lambda;
}

double VEK_randGen::Normal(double mean, double sd) {
    if (!(sd >= 0.0)) return kNaN;
    // Marsaglia's polar method; the second deviate is not kept.
    double u, v, s;
    do {
        u = 2.0 * GetDouble() - 1.0;
        v = 2.0 * GetDouble() - 1.0;
        s = u * u + v * v;
    } while (s >= 1.0 || s == 0.0);
    return mean + sd * u * std::sqrt(-2.0 * std::log(s) / s);
}

double VEK_randGen::Gamma(double shape, double scale) {
    if (!(shape > 0.0) || !(scale > 0.0) || std::isinf(shape)) return kNaN;
    if (shape < 1.0) {
        // Boost the shape by one and correct with a power of a uniform.
        const double g = Gamma(shape + 1.0, 1.0);
        const double u = 1.0 - GetDouble();  // (0, 1]
        return scale * g * std::pow(u, 1.0 / shape);
    }
    // Marsaglia and Tsang.
    const double d = shape - 1.0 / 3.0;
    const double c = 1.0 / std::sqrt(9.0 * d);
    for (;;) {
        double x, v;
        do {
            x = Normal(0.0, 1.0);
            v = 1.0 + c * x;
        } while (v <= 0.0);
        v = v * v * v;
        const double u = 1.0 - GetDouble();
        if (u < 1.0 - 0.0331 * x * x * x * x) return scale * d * v;
        if (std::log(u) < 0.5 * x * x + d * (1.0 - v + std::log(v))) return scale * d * v;
    }
}

int VEK_randGen::Dirichlet(const double* alpha, int n, double* out) {
    if (n < 1 || alpha == nullptr || out == nullptr) return VEK_OUT_OF_RANGE;
    for (int i = 0; i < n; ++i) {
        if (!(alpha[i] > 0.0) || std::isinf(alpha[i])) return VEK_OUT_OF_RANGE;
    }
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        out[i] = Gamma(alpha[i], 1.0);
        sum += out[i];
    }
    if (sum > 0.0) {
        const double k = 1.0 / sum;
        for (int i = 0; i < n; ++i) out[i] *= k;
    } else {
        // Every draw underflowed (tiny alphas): fall back to one random corner.
        for (int i = 0; i < n; ++i) out[i] = 0.0;
        out[GetInt(static_cast<unsigned>(n))] = 1.0;
    }
    return VEK_OKAY;
}

int VEK_randGen::Multinomial(int n, double* out) {
    if (n < 1 || out == nullptr) return VEK_OUT_OF_RANGE;
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        out[i] = Gamma(1.0, 1.0);
        sum += out[i];
    }
    if (sum > 0.0) {
        const double k = 1.0 / sum;
        for (int i = 0; i < n; ++i) out[i] *= k;
    } else {
        for (int i = 0; i < n; ++i) out[i] = 1.0 / n;
    }
    return VEK_OKAY;
}
