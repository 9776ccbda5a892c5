// Helpers shared by the EM tests: tables as vectors, matching by id, the
// log-likelihoods of every run, and EM by enumeration of the joint.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "inference/randGen.h"
#include "learning/dataSampler.h"
#include "learning/dataset.h"
#include "learning/datasetMatch.h"
#include "learning/em.h"
#include "network/network.h"
#include "network/node.h"
#include "network/nodeDef.h"

namespace emtest {

// records forward-sampled from net, cells missing at the given rate.
inline VEK_dataset Sample(VEK_network& net, int records, unsigned seed, double missingRate = 0.0) {
    VEK_randGen gen(seed);
    VEK_dataset data;
    EXPECT_EQ(VEK_sampleDataset(net, records, gen, missingRate, data), VEK_OKAY);
    return data;
}

inline std::vector<double> Table(const VEK_network& net, int h) {
    const VEK_Dmatrix& m = net.GetDef(h)->GetDefinition();
    return std::vector<double>(m.Items(), m.Items() + m.GetSize());
}

inline std::vector<VEK_datasetMatch> MatchById(const VEK_network& net, const VEK_dataset& data) {
    std::vector<VEK_datasetMatch> m;
    for (int v = 0; v < data.GetNumberOfVariables(); ++v) {
        int h = net.FindNode(data.GetId(v));
        if (h >= 0) m.push_back({h, 0, v});
    }
    return m;
}

class LogLikelihoods : public VEK_emProgress {
public:
    bool Tick(int iteration, double ll) override {
        if (iteration == 0) runs.emplace_back();
        runs.back().push_back(ll);
        return true;
    }
    std::vector<std::vector<double>> runs;
};

// EM by enumeration of every joint state, for networks of a few nodes: the
// record's posterior over the joint, summed family by family; the same
// prior counts, normalisation and stopping rule. Returns the tables of all
// nodes by handle and fills the log-likelihood of every iteration. tie, when
// given, names by handle the node whose table each node shares: the counts
// of all sharers are added up there.
inline std::vector<std::vector<double>> BruteForceEm(const VEK_network& net, const VEK_dataset& data,
                                                     const std::vector<VEK_datasetMatch>& matching,
                                                     const std::vector<int>& fixed, double ess,
                                                     std::vector<double>& lls, std::vector<int> tie = {}) {
    std::vector<int> nodes;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) nodes.push_back(h);
    if (tie.empty())
        for (int h = 0; h < net.GetSlotCount(); ++h) tie.push_back(h);
    std::vector<std::vector<double>> tables(net.GetSlotCount()), priors;
    for (int h : nodes) tables[h] = Table(net, h);
    priors = tables;
    auto item = [&](int h, const std::vector<int>& x) {
        const VEK_Dmatrix& t = net.GetDef(h)->GetDefinition();
        int at = x[h];
        for (int k = 0; k < net.GetNode(h)->Parents().GetSize(); ++k)
            at += x[net.GetNode(h)->Parents()[k]] * t.GetProducts()[k];
        return at;
    };
    double previous = 0.0;
    for (;;) {
        std::vector<std::vector<double>> counts(tables.size());
        for (int h : nodes) counts[h].assign(tables[h].size(), 0.0);
        double ll = 0.0;
        for (int r = 0; r < data.GetNumberOfRecords(); ++r) {
            std::vector<std::pair<std::vector<int>, double>> joint;  // states consistent with the record
            std::vector<int> x(net.GetSlotCount(), 0);
            double pe = 0.0;
            for (bool more = true; more;) {
                bool consistent = true;
                for (const VEK_datasetMatch& m : matching)
                    if (!data.IsMissing(m.column, r) && data.GetInt(m.column, r) != x[m.node]) consistent = false;
                double p = consistent ? 1.0 : 0.0;
                for (int h : nodes) p *= tables[h][item(h, x)];
                if (p > 0) joint.emplace_back(x, p);
                pe += p;
                more = false;
                for (int h : nodes) {
                    if (++x[h] < net.GetDef(h)->GetNumberOfOutcomes()) { more = true; break; }
                    x[h] = 0;
                }
            }
            ll += std::log(pe);
            for (const auto& [state, p] : joint)
                for (int h : nodes) counts[tie[h]][item(h, state)] += p / pe;
        }
        lls.push_back(ll);
        for (int h : nodes) {
            if (tie[h] != h || std::find(fixed.begin(), fixed.end(), h) != fixed.end()) continue;
            const size_t s = net.GetDef(h)->GetNumberOfOutcomes();
            for (size_t c = 0; c < counts[h].size(); c += s) {
                double sum = 0.0;
                for (size_t q = c; q < c + s; ++q) sum += counts[h][q] += ess * priors[h][q];
                for (size_t q = c; q < c + s; ++q) tables[h][q] = sum > 0 ? counts[h][q] / sum : priors[h][q];
            }
        }
        for (int h : nodes) tables[h] = tables[tie[h]];
        if (ll == 0.0 || (previous != 0.0 && (previous / ll < 1.0001 || previous >= ll))) return tables;
        previous = ll;
    }
}

}  // namespace emtest
