// Marginalizing a node keeps the joint over the remaining nodes.
#include <map>

#include "analysis/marginalize.h"
#include "analysisTestUtil.h"

using namespace antest;

namespace {

std::map<std::vector<int>, double> JointWithout(const VEK_network& net, int removed) {
    std::map<std::vector<int>, double> out;
    ForEachJoint(net, [&](const std::vector<int>& x, double p) {
        std::vector<int> key;
        for (int h = 0; h < static_cast<int>(x.size()); ++h)
            if (h != removed && net.IsValidNode(h)) key.push_back(x[static_cast<size_t>(h)]);
        out[key] += p;
    });
    return out;
}

TEST(MarginalizeNode, KeepsTheJointOfTheRest) {
    std::mt19937 rng(17);
    for (int trial = 0; trial < 40; ++trial) {
        VEK_network net;
        const std::vector<int> h = RandomNet(net, rng, 3 + trial % 6, 3, 0.2);
        const int x = h[rng() % h.size()];
        const auto before = JointWithout(net, x);
        ASSERT_EQ(VEK_marginalizeNode(net, x), 0) << trial;
        ASSERT_FALSE(net.IsValidNode(x));
        const auto after = JointWithout(net, x);
        double diff = 0.0;
        for (const auto& [k, p] : before) {
            const auto it = after.find(k);
            diff = std::max(diff, std::fabs(p - (it == after.end() ? 0.0 : it->second)));
        }
        for (const auto& [k, p] : after)
            if (!before.count(k)) diff = std::max(diff, p);
        EXPECT_LT(diff, 1e-12) << trial;
    }
}

}  // namespace
