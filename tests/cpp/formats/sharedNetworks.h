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
inline void ExpectSameAs(const VEK_network& ref, const VEK_network& got, double tolerance) {
    foreign::ExpectSameNetwork(ref, got, {.names = true, .labels = true, .tolerance = tolerance});
}

}  // namespace shared
