// The network's random generator: a combination of a congruential generator,
// a xorshift register and a multiply-with-carry generator. Its arithmetic is
// fixed so that runs with the same seed are reproducible.
#pragma once

#include <cstdint>

class VEK_randGen {
public:
    // Seed 0 picks a seed from the object's address and the clocks.
    explicit VEK_randGen(unsigned seed = 0) { Init(seed); }

    void Init(unsigned seed);

    unsigned Next();
    void Spin(int n);

    // Uniform in [0, 1) with 53 random bits.
    double GetDouble();
    // Next() % n; 0 for n == 0.
    unsigned GetInt(unsigned n);

    // Index of the first entry at which the running sum of p exceeds r;
    // n - 1 when none does, -1 for n < 1.
    static int Roulette(double r, const double* p, int n);

    // Fisher-Yates shuffle of a[0..n-1].
    void Shuffle(int* a, int n);

    // Draws from the Dirichlet distribution with parameters alpha into out;
    // -2 when n < 1 or some alpha is not positive.
    [[nodiscard]] int Dirichlet(const double* alpha, int n, double* out);
    // A random probability distribution over n entries, uniform on the
    // simplex (Dirichlet with every parameter 1); -2 when n < 1.
    [[nodiscard]] int Multinomial(int n, double* out);

    // Continuous draws. Invalid parameters give NaN.
    double Normal(double mean, double sd);
    double Uniform(double a, double b);
    double Gamma(double shape, double scale);
    double Exponential(double lambda);

    // State words, for diagnostics and reproducibility checks.
    uint32_t GetX() const { return m_x; }
    uint32_t GetY() const { return m_y; }
    uint32_t GetZ() const { return static_cast<uint32_t>(m_zc); }
    uint32_t GetC() const { return static_cast<uint32_t>(m_zc >> 32); }
    unsigned char GetFlag() const { return m_flag; }

private:
    uint32_t m_x;
    uint32_t m_y;
    uint64_t m_zc;  // z in the low half, carry c in the high half
    unsigned char m_flag;
};
