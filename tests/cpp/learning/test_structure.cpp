#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "inference/randGen.h"
#include "learning/bayesianSearch.h"
#include "learning/dataSampler.h"
#include "learning/dataset.h"
#include "learning/greedyThickThinning.h"
#include "learning/pattern.h"
#include "learning/pc.h"
#include "network/network.h"
#include "network/node.h"
#include "network/status.h"

namespace {

std::string SharedXvek(const std::string& name) {
    const char* env = std::getenv("QUARN_SHARED_DIR");
    return std::string(env && *env ? env : QUARN_SHARED_DIR) + "/networks/xvek/" + name + ".xvek";
}

// Parent columns of every dataset column in net, matched by id.
std::vector<std::vector<int>> ParentsByColumn(const VEK_network& net, const VEK_dataset& data) {
    std::vector<std::vector<int>> parents(data.GetNumberOfVariables());
    for (int v = 0; v < data.GetNumberOfVariables(); ++v) {
        const VEK_intArray& pa = net.GetNode(net.FindNode(data.GetId(v)))->Parents();
        for (int i = 0; i < pa.GetSize(); ++i) parents[v].push_back(data.FindVariable(net.GetNodeId(pa[i])));
    }
    return parents;
}

struct Alarm {
    VEK_network truth;
    VEK_dataset data;
    VEK_pattern cpdag;
    Alarm(int records) {
        EXPECT_EQ(truth.ReadFile(SharedXvek("alarm").c_str()), 0);
        VEK_randGen gen(7);
        EXPECT_EQ(VEK_sampleDataset(truth, records, gen, 0.0, data), VEK_OKAY);
        cpdag.FromDag(ParentsByColumn(truth, data));
    }
};

TEST(StructureRecovery, Scan) {
    Alarm alarm(20000);
    for (int score = 0; score < 3; ++score)
    for (double ess : {1.0, 10.0})
    for (double lp : {0.0, 0.4})
    for (int it : {1, 100}) {
        std::string line;
        double tsum = 0;
        for (unsigned seed : {1u, 2u, 3u}) {
            auto t0 = std::chrono::steady_clock::now();
            VEK_bayesianSearch bs;
            bs.linkProbability = lp;
            bs.iterations = it;
            bs.scoreType = score;
            bs.ess = ess;
            bs.seed = seed;
            bs.candidateOrientation = true;
            VEK_network net;
            ASSERT_EQ(bs.Learn(alarm.data, net), VEK_OKAY);
            tsum += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
            VEK_pattern p;
            p.FromDag(ParentsByColumn(net, alarm.data));
            line += " " + std::to_string(p.Distance(alarm.cpdag, true)) + "/" + std::to_string(p.Distance(alarm.cpdag, false));
        }
        std::printf("score %d ess %g lp %g it %d: %s  %.3f s\n", score, ess, lp, it, line.c_str(), tsum / 3);
    }
}

TEST(StructureRecovery, Alarm) {
    Alarm alarm(20000);
    auto report = [&](const char* name, const VEK_pattern& p, double secs) {
        std::printf("%s: skeleton %d cpdag %d, %.3f s\n", name, p.Distance(alarm.cpdag, true),
                    p.Distance(alarm.cpdag, false), secs);
    };
    for (int score = 0; score < 3; ++score) {
        for (double ess : {1.0, 10.0}) {
            auto t0 = std::chrono::steady_clock::now();
            VEK_greedyThickThinning gtt;
            gtt.scoreType = score;
            gtt.ess = ess;
            VEK_network net;
            ASSERT_EQ(gtt.Learn(alarm.data, net), VEK_OKAY);
            double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
            VEK_pattern p;
            p.FromDag(ParentsByColumn(net, alarm.data));
            report(("gtt " + std::to_string(score) + " " + std::to_string(ess)).c_str(), p, secs);
            t0 = std::chrono::steady_clock::now();
            VEK_bayesianSearch bs;
            bs.linkProbability = ess == 1.0 ? 0.05 : 0.2;
            bs.iterations = 50;
            bs.scoreType = score;
            bs.ess = ess;
            ASSERT_EQ(bs.Learn(alarm.data, net), VEK_OKAY);
            secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
            p.FromDag(ParentsByColumn(net, alarm.data));
            report(("bs " + std::to_string(score) + " " + std::to_string(ess)).c_str(), p, secs);
        }
    }
    for (double alpha : {0.05, 0.01, 0.001}) {
        auto t0 = std::chrono::steady_clock::now();
        VEK_pc pc;
        pc.significance = alpha;
        VEK_pattern p;
        ASSERT_EQ(pc.Learn(alarm.data, p), VEK_OKAY);
        double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        report(("pc " + std::to_string(alpha)).c_str(), p, secs);
    }
}

}  // namespace
