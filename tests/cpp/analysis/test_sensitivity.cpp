// Sensitivity derivatives against finite differences: the test edits the
// table itself (with proportional co-variation of the column) and
// propagates again.
#include "analysis/sensitivity.h"
#include "analysisTestUtil.h"

using namespace antest;

namespace {

// P(target | evidence) with entry i of x's table set to v, the rest of its
// column scaled to keep the sum (shared equally when the entry was 1).
std::vector<double> PosteriorWith(VEK_network& net, int x, int i, double v, int target) {
    const VEK_Dmatrix saved = *net.GetDef(x)->GetMatrix();
    std::vector<double> t(saved.Items(), saved.Items() + saved.GetSize());
    const int k = saved.GetLastDimensionSize(), c = i - i % k;
    const double old = t[static_cast<size_t>(i)];
    for (int s = 0; s < k; ++s) {
        double& e = t[static_cast<size_t>(c + s)];
        if (c + s != i) e = old < 1.0 - 1e-12 ? e * (1.0 - v) / (1.0 - old) : (1.0 - v) / (k - 1);
    }
    t[static_cast<size_t>(i)] = v;
    net.GetDef(x)->SetDefinition(t);
    EXPECT_EQ(net.UpdateBeliefs(), 0);
    std::vector<double> b = inftest::Beliefs(net, target);
    net.GetDef(x)->SetDefinition(std::vector<double>(saved.Items(), saved.Items() + saved.GetSize()));
    return b;
}

TEST(Sensitivity, DerivativesMatchFiniteDifferences) {
    std::mt19937 rng(3);
    int checked = 0;
    for (int trial = 0; trial < 12; ++trial) {
        VEK_network net;
        const std::vector<int> h = RandomNet(net, rng, 4 + trial % 5, 3, 0.2);
        RandomEvidence(net, h, rng);
        if (trial % 2) net.SetTarget(h[rng() % h.size()], true);
        std::vector<VEK_nodeSensitivity> res;
        ASSERT_EQ(VEK_calcSensitivity(net, res), 0);
        const size_t targets = net.GetTargetCount() ? 1 : h.size();
        ASSERT_EQ(res.size(), targets * h.size());
        for (const VEK_nodeSensitivity& ns : res) {
            const int n = net.GetDef(ns.node)->GetMatrix()->GetSize();
            const int k = net.GetDef(ns.target)->GetNumberOfOutcomes();
            ASSERT_EQ(static_cast<int>(ns.derivatives.size()), n * k);
            double maxAbs = 0.0;
            for (double d : ns.derivatives) maxAbs = std::max(maxAbs, std::fabs(d));
            EXPECT_EQ(ns.maxAbsDerivative, maxAbs);
            // Two entries of each table, every outcome of the target.
            for (int pick = 0; pick < 2; ++pick) {
                const int i = static_cast<int>(rng() % static_cast<unsigned>(n));
                const double th = (*net.GetDef(ns.node)->GetMatrix())[i];
                // Central where the entry leaves room, else one-sided of
                // second order away from the bound.
                const double d = 1e-5;
                std::vector<double> fd(static_cast<size_t>(k));
                if (th >= d && th <= 1.0 - d) {
                    const auto up = PosteriorWith(net, ns.node, i, th + d, ns.target);
                    const auto down = PosteriorWith(net, ns.node, i, th - d, ns.target);
                    for (size_t u = 0; u < fd.size(); ++u) fd[u] = (up[u] - down[u]) / (2 * d);
                } else {
                    const double e = th < 0.5 ? d : -d;
                    const auto f0 = PosteriorWith(net, ns.node, i, th, ns.target);
                    const auto f1 = PosteriorWith(net, ns.node, i, th + e, ns.target);
                    const auto f2 = PosteriorWith(net, ns.node, i, th + 2 * e, ns.target);
                    for (size_t u = 0; u < fd.size(); ++u) fd[u] = (-3 * f0[u] + 4 * f1[u] - f2[u]) / (2 * e);
                }
                for (int s = 0; s < k; ++s) {
                    const double exact = ns.derivatives[static_cast<size_t>(s * n + i)];
                    EXPECT_NEAR(exact, fd[static_cast<size_t>(s)], 1e-6 * std::max(1.0, std::fabs(exact)))
                        << "trial " << trial << " target " << ns.target << " node " << ns.node << " entry " << i;
                    ++checked;
                }
            }
        }
    }
    EXPECT_GT(checked, 500);
}

}  // namespace
