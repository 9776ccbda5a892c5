// The reference networks of the shared folder: their names, which of them
// are big, the XML network file of each loaded once per test process, and a
// comparison of a network read from another format against it.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "network/discDef.h"
#include "network/network.h"
#include "foreignNetUtil.h"

namespace shared {

inline std::string NetworksDir() { return foreign::SharedDir() + "/networks"; }

// Every network that has a text BIF file, sorted.
inline std::vector<std::string> Names() {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& e : std::filesystem::directory_iterator(NetworksDir() + "/bif", ec)) {
        if (e.path().extension() == ".bif") names.push_back(e.path().stem().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Loaded at most once per format by the tests, to keep them fast.
inline bool IsBig(const std::string& name) {
    return name.rfind("munin", 0) == 0 || name == "diabetes" || name == "pigs" || name == "link" || name == "barley" ||
           name == "mildew" || name == "pathfinder";
}

inline std::string PathOf(const std::string& folder, const std::string& name, const char* extension) {
    return NetworksDir() + "/" + folder + "/" + name + extension;
}

// The network of xvek/NAME.xvek, read once and kept for the process.
inline const VEK_network* Reference(const std::string& name) {
    static std::map<std::string, std::unique_ptr<VEK_network>> cache;
    auto it = cache.find(name);
    if (it != cache.end()) return it->second.get();
    auto net = std::make_unique<VEK_network>();
    int res = net->ReadFile(PathOf("xvek", name, ".xvek").c_str());
    EXPECT_EQ(res, 0) << name << ": " << foreign::LastMessage(*net);
    if (res != 0) return nullptr;
    return (cache[name] = std::move(net)).get();
}

// got holds the nodes of ref with the same ids, names, parents (in order),
// state ids and labels, and tables equal within tolerance.
inline void ExpectSameAs(const VEK_network& ref, const VEK_network& got, double tolerance, bool labels = true) {
    ASSERT_EQ(got.GetNumberOfNodes(), ref.GetNumberOfNodes());
    int tableMismatches = 0;
    for (int hr = ref.GetFirstNode(); hr >= 0; hr = ref.GetNextNode(hr)) {
        const char* id = ref.GetNodeId(hr);
        SCOPED_TRACE(std::string("node ") + id);
        int hg = got.FindNode(id);
        ASSERT_GE(hg, 0);
        const VEK_node& nr = *ref.GetNode(hr);
        const VEK_node& ng = *got.GetNode(hg);
        EXPECT_STREQ(ng.Header().GetName(), nr.Header().GetName());
        ASSERT_EQ(ng.Definition()->GetType(), nr.Definition()->GetType());
        std::vector<std::string> pr, pg;
        for (int k = 0; k < nr.Parents().GetSize(); ++k) pr.push_back(ref.GetNodeId(nr.Parents()[k]));
        for (int k = 0; k < ng.Parents().GetSize(); ++k) pg.push_back(got.GetNodeId(ng.Parents()[k]));
        ASSERT_EQ(pg, pr);
        const auto* dr = static_cast<const VEK_discDef*>(nr.Definition());
        const auto* dg = static_cast<const VEK_discDef*>(ng.Definition());
        ASSERT_EQ(dg->GetOutcomeIds()->ToVector(), dr->GetOutcomeIds()->ToVector());
        if (labels) {
            for (int k = 0; k < dr->GetNumberOfOutcomes(); ++k) {
                EXPECT_STREQ(dg->GetOutcomeLabel(k), dr->GetOutcomeLabel(k)) << "state " << k;
            }
        }
        const VEK_Dmatrix& mr = *dr->GetMatrix();
        const VEK_Dmatrix& mg = *dg->GetMatrix();
        ASSERT_EQ(mg.GetDimensions().ToVector(), mr.GetDimensions().ToVector());
        for (int i = 0; i < mr.GetSize(); ++i) {
            if (std::fabs(mg[i] - mr[i]) > tolerance && ++tableMismatches <= 5) {
                ADD_FAILURE() << "item " << i << ": " << mg[i] << " vs " << mr[i];
            }
        }
    }
    EXPECT_EQ(tableMismatches, 0);
}

// The smaller networks written in format and read back equal the XML network
// file they came from, exactly.
inline void ExpectSmallNetworksRoundTrip(int format, const char* extension) {
    for (const std::string& name : Names()) {
        if (IsBig(name)) continue;
        SCOPED_TRACE(name);
        const VEK_network* ref = Reference(name);
        ASSERT_TRUE(ref);
        VEK_network copy(*ref), back;
        foreign::RoundTrip(copy, format, extension, back);
        ExpectSameAs(*ref, back, 0.0);
    }
}

}  // namespace shared
