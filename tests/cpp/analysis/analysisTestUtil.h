// Shared by the analysis tests: random networks with zeros in their tables,
// random hard and virtual evidence drawn from a joint sample (so that it is
// possible), and the full joint walked configuration by configuration.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "../inference/infTestUtil.h"

namespace antest {

using inftest::AddNode;
using inftest::ForEachJoint;
using inftest::Name;
using inftest::RandomNet;
using inftest::RandomTables;

// Hard evidence on about a third of the nodes and virtual evidence on some
// others, the hard part taken from a configuration of positive probability.
inline void RandomEvidence(VEK_network& net, const std::vector<int>& h, std::mt19937& rng, bool virtualToo = true) {
    std::uniform_real_distribution<double> u(0.0, 1.0);
    const std::vector<int> sample = inftest::PossibleState(net, rng);
    for (int x : h) {
        const double d = u(rng);
        if (d < 0.3) {
            net.GetVal(x)->SetEvidence(sample[static_cast<size_t>(x)]);
        } else if (virtualToo && d < 0.45) {
            std::vector<double> l(static_cast<size_t>(net.GetDef(x)->GetNumberOfOutcomes()));
            for (double& e : l) e = 0.05 + u(rng);
            net.GetVal(x)->SetVirtualEvidence(l);
        }
    }
}

}  // namespace antest
