#include "learning/structureFit.h"

#include <cctype>
#include <new>
#include <set>

#include "learning/dataset.h"
#include "learning/familyCounts.h"
#include "network/dmatrix.h"
#include "network/idArray.h"
#include "network/network.h"
#include "network/nodeDef.h"
#include "network/status.h"

namespace {

constexpr int kCpt = 18;

std::string Unique(std::string id, std::set<std::string>& used) {
    std::string candidate = id;
    for (int k = 2; used.count(candidate); ++k) candidate = id + "_" + std::to_string(k);
    used.insert(candidate);
    return candidate;
}

}  // namespace

std::string VEK_makeIdentifier(const std::string& text, const char* prefix) {
    std::string id;
    for (unsigned char ch : text) id += std::isalnum(ch) || ch == '_' ? static_cast<char>(ch) : '_';
    if (id.empty() || !std::isalpha(static_cast<unsigned char>(id[0]))) id = prefix + id;
    return id;
}

int VEK_fitStructure(const VEK_dataset& data, const VEK_familyCounts& counts,
                     const std::vector<std::vector<int>>& parents, double ess, VEK_network& out,
                     std::string* errorMessage) {
    const int n = counts.GetColumnCount();
    try {
        VEK_network net;
        std::vector<int> handles(n);
        std::set<std::string> usedIds;
        for (int v = 0; v < n; ++v) {
            const std::string id = Unique(VEK_makeIdentifier(data.GetId(v), "N_"), usedIds);
            handles[v] = net.AddNode(kCpt, id.c_str());
            if (handles[v] < 0) return handles[v];
            const std::vector<std::string>& names = data.GetStateNames(v);
            VEK_idArray ids;
            std::set<std::string> usedStates;
            for (int s = 0; s < counts.GetStateCount(v); ++s) {
                const std::string name = s < static_cast<int>(names.size()) ? names[s] : std::to_string(s);
                (void)ids.Add(Unique(VEK_makeIdentifier(name, "State"), usedStates).c_str());  // made valid and unique
            }
            const int res = net.GetDef(handles[v])->SetNumberOfOutcomes(ids);
            if (res != VEK_OKAY) return res;
        }
        for (int v = 0; v < n; ++v) {
            for (int p : parents[v]) {
                const int res = net.AddArc(handles[p], handles[v]);
                if (res != VEK_OKAY) {
                    if (errorMessage) *errorMessage = "The learnt structure has a cycle";
                    return res;
                }
            }
        }
        std::vector<int> c;
        for (int v = 0; v < n; ++v) {
            const int np = static_cast<int>(parents[v].size());
            const int r = counts.GetStateCount(v);
            const int q = counts.Count(v, parents[v].data(), np, c);
            VEK_Dmatrix table = net.GetDef(handles[v])->GetDefinition();
            double* t = table.Items();
            const double a = ess / (static_cast<double>(q) * r);
            for (int j = 0; j < q; ++j) {
                double nj = 0.0;
                for (int k = 0; k < r; ++k) nj += c[j * r + k];
                for (int k = 0; k < r; ++k) {
                    t[j * r + k] = nj + a * r > 0 ? (c[j * r + k] + a) / (nj + a * r) : 1.0 / r;
                }
            }
            const int res = net.GetDef(handles[v])->SetDefinition(table);
            if (res != VEK_OKAY) return res;
        }
        out = std::move(net);
        return VEK_OKAY;
    } catch (const std::bad_alloc&) {
        if (errorMessage) *errorMessage = "Out of memory while building the network";
        return VEK_OUT_OF_MEMORY;
    }
}
