// Out-of-memory at every allocation of an operation: the n-th call of the
// global operator new throws, for n = 0, 1, ... until the operation runs
// through. Each failed run must report -42 and leave the network as it was.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "../xml/networkDescription.h"
#include "inference/randGen.h"
#include "learning/dataSampler.h"
#include "learning/dataset.h"
#include "learning/em.h"
#include "network/network.h"
#include "network/nodeVal.h"
#include "network/status.h"

namespace {

// Allocations left before the failing one; negative when disarmed.
long g_countdown = -1;
bool g_failed = false;

void* Allocate(std::size_t n) {
    if (g_countdown >= 0 && g_countdown-- == 0) {
        g_failed = true;
        throw std::bad_alloc();
    }
    if (void* p = std::malloc(n ? n : 1)) return p;
    throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t n) { return Allocate(n); }
void* operator new[](std::size_t n) { return Allocate(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
    try {
        return Allocate(n);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t n, const std::nothrow_t& t) noexcept { return operator new(n, t); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }

namespace {

// Runs op on a copy of net with the n-th allocation failing, for every n up
// to the number a run makes (at most kMaxRuns runs, spread evenly). A run
// that meets the failure returns -42 and leaves its copy as it was, or
// recovers (a smaller buffer, a smaller join tree) and then passes
// recovered, when given.
template <class Op>
void FailEveryAllocation(const char* what, const VEK_network& net, Op op,
                         const std::function<void(VEK_network&)>& recovered = nullptr) {
    constexpr long kMaxRuns = 300;
    const std::string before = testnet::Describe(net);
    constexpr long kUnbounded = 1L << 40;
    long total = 0;
    {
        VEK_network copy(net);
        g_countdown = kUnbounded;
        const int res = op(copy);
        total = kUnbounded - g_countdown;
        g_countdown = -1;
        ASSERT_EQ(res, VEK_OKAY) << what;
    }
    const long step = total / kMaxRuns + 1;
    for (long n = 0; n < total; n += step) {
        VEK_network copy(net);
        g_failed = false;
        g_countdown = n;
        int res = 0;
        try {
            res = op(copy);
        } catch (const std::exception& e) {
            g_countdown = -1;
            FAIL() << what << " allocation " << n << " threw " << e.what();
        }
        g_countdown = -1;
        ASSERT_TRUE(g_failed) << what << " allocation " << n;
        if (res == VEK_OKAY && recovered) {
            recovered(copy);
            continue;
        }
        ASSERT_EQ(res, VEK_OUT_OF_MEMORY) << what << " allocation " << n;
        ASSERT_EQ(testnet::Describe(copy), before) << what << " allocation " << n;
    }
}

std::string Shared(const char* rel) { return testnet::SharedDir() + "/networks/" + rel; }

struct Loaded {
    VEK_network net;
    explicit Loaded(const char* rel) { EXPECT_EQ(net.ReadFile(Shared(rel).c_str()), VEK_OKAY) << rel; }
};

TEST(FailureInjection, LoadingLeavesTheNetworkAsItWas) {
    for (const char* file : {"xvek/asia.xvek", "net/asia.net"}) {
        Loaded target("xvek/cancer.xvek");
        const std::string path = Shared(file);
        FailEveryAllocation(file, target.net, [&](VEK_network& n) { return n.ReadFile(path.c_str()); });
    }
}

TEST(FailureInjection, WritingLeavesTheNetworkAsItWas) {
    Loaded src("xvek/asia.xvek");
    const std::string path = ::testing::TempDir() + "failure_write.xvek";
    ASSERT_EQ(src.net.WriteFile(path.c_str()), VEK_OKAY);
    const std::string whole = testnet::ReadText(path);
    FailEveryAllocation(
        "write", src.net, [&](VEK_network& n) { return n.WriteFile(path.c_str()); },
        [&](VEK_network&) { EXPECT_EQ(testnet::ReadText(path), whole); });
    std::remove(path.c_str());
}

TEST(FailureInjection, UpdatingLeavesTheNetworkAsItWas) {
    for (bool relevance : {true, false}) {
        Loaded src("xvek/alarm.xvek");
        src.net.EnableRelevance(relevance);
        ASSERT_EQ(src.net.GetVal(src.net.FindNode("HRBP"))->SetEvidence(0), VEK_OKAY);
        FailEveryAllocation(
            "update", src.net, [](VEK_network& n) { return n.UpdateBeliefs(); },
            [](VEK_network& n) { EXPECT_TRUE(n.GetVal(n.FindNode("LVFAILURE"))->IsValueValid()); });
    }
}

TEST(FailureInjection, LearningLeavesTheTablesAsTheyWere) {
    Loaded src("xvek/asia.xvek");
    VEK_randGen gen(5);
    VEK_dataset data;
    ASSERT_EQ(VEK_sampleDataset(src.net, 60, gen, 0.2, data), VEK_OKAY);
    std::vector<VEK_datasetMatch> matching;
    for (int v = 0; v < data.GetNumberOfVariables(); ++v) matching.push_back({src.net.FindNode(data.GetId(v)), 0, v});
    VEK_network learnt(src.net);
    ASSERT_EQ(VEK_em().Learn(data, learnt, matching), VEK_OKAY);
    // A recovered run may use another join tree: the same tables up to rounding.
    FailEveryAllocation(
        "em", src.net, [&](VEK_network& n) { return VEK_em().Learn(data, n, matching); },
        [&](VEK_network& n) {
            for (int h = n.GetFirstNode(); h >= 0; h = n.GetNextNode(h)) {
                const VEK_Dmatrix& got = n.GetDef(h)->GetDefinition();
                const VEK_Dmatrix& want = learnt.GetDef(h)->GetDefinition();
                for (int i = 0; i < want.GetSize(); ++i) ASSERT_NEAR(got[i], want[i], 1e-12) << h;
            }
        });
}

}  // namespace
