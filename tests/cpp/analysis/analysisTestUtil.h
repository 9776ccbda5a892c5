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
using inftest::Name;
using inftest::RandomNet;
using inftest::RandomTables;

// Calls fn(states by handle, P(states) times the likelihoods of virtual
// evidence) for every configuration that agrees with the hard evidence.
// Decision nodes are free (no factor); utility nodes take no part.
inline void ForEachJoint(const VEK_network& net, const std::function<void(const std::vector<int>&, double)>& fn) {
    std::vector<int> handles;
    for (int h = 0; h < net.GetSlotCount(); ++h)
        if (net.IsValidNode(h) && net.GetDef(h)->GetType() != VEK_TABLE) handles.push_back(h);
    std::vector<int> x(static_cast<size_t>(net.GetSlotCount()), 0);
    while (true) {
        double p = 1.0;
        for (int h : handles) {
            const VEK_nodeVal* v = net.GetVal(h);
            if (v->HasHardEvidence() && v->GetEvidence() != x[static_cast<size_t>(h)]) p = 0.0;
            if (net.GetDef(h)->GetType() == VEK_LIST) continue;
            const VEK_Dmatrix* t = net.GetDef(h)->GetMatrix();
            int idx = 0;
            for (int q : net.GetNode(h)->Parents())
                idx = idx * net.GetDef(q)->GetNumberOfOutcomes() + x[static_cast<size_t>(q)];
            p *= (*t)[idx * t->GetLastDimensionSize() + x[static_cast<size_t>(h)]];
            std::vector<double> l;
            if (v->IsVirtualEvidence() && v->GetVirtualEvidence(l) == 0) p *= l[static_cast<size_t>(x[static_cast<size_t>(h)])];
        }
        if (p > 0.0) fn(x, p);
        size_t d = handles.size();
        while (d > 0) {
            const int h = handles[--d];
            if (++x[static_cast<size_t>(h)] < net.GetDef(h)->GetNumberOfOutcomes()) break;
            x[static_cast<size_t>(h)] = 0;
        }
        if (d == 0 && x[static_cast<size_t>(handles[0])] == 0) break;
    }
}

// Hard evidence on about a third of the nodes and virtual evidence on some
// others, the hard part taken from a configuration of positive probability.
inline void RandomEvidence(VEK_network& net, const std::vector<int>& h, std::mt19937& rng, bool virtualToo = true) {
    std::uniform_real_distribution<double> u(0.0, 1.0);
    std::vector<int> sample;
    double best = -1.0;
    ForEachJoint(net, [&](const std::vector<int>& x, double) {
        const double r = u(rng);
        if (r > best) {
            best = r;
            sample = x;
        }
    });
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
