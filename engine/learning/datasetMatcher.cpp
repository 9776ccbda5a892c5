#include "learning/datasetMatcher.h"

#include <new>

#include "learning/dataset.h"
#include "learning/datasetMatch.h"
#include "network/discDef.h"
#include "network/node.h"
#include "network/network.h"
#include "network/nodeDef.h"
#include "network/status.h"

namespace {

constexpr int kTypeEquation = 4;

int Fail(int code, std::string* message, const std::string& text) {
    if (message) *message = text;
    return code;
}

}  // namespace

int VEK_findPlateSlice(const VEK_network& net, const std::string& id, int& slice) {
    const size_t cut = id.rfind('_');
    if (cut == std::string::npos || cut + 1 == id.size() || id.size() - cut > 9) return -1;
    for (size_t i = cut + 1; i < id.size(); ++i)
        if (id[i] < '0' || id[i] > '9') return -1;
    const int h = net.FindNode(id.substr(0, cut).c_str());
    if (h < 0 || net.GetNode(h)->GetTemporalType() != VEK_TEMPORAL_PLATE) return -1;
    slice = std::stoi(id.substr(cut + 1));
    return h;
}

int VEK_mapColumnOutcomes(const VEK_dataset& data, int var, const VEK_network& net, int node, std::vector<int>& map,
                          std::string* message) {
    map.clear();
    const VEK_dataset::Variable& column = data.GetVariable(var);
    const std::string nodeId = net.GetNodeId(node);
    const VEK_discDef* def = dynamic_cast<const VEK_discDef*>(net.GetDef(node));
    if (!def) {
        return Fail(VEK_WRONG_NODE_TYPE, message, "node '" + nodeId + "' has no outcomes");
    }
    if (!column.discrete) {
        return Fail(VEK_OUT_OF_RANGE, message,
                    "column '" + column.id + "' is continuous but node '" + nodeId + "' is discrete");
    }
    const int outcomes = def->GetNumberOfOutcomes();
    if (column.stateNames.empty()) {
        for (int v : column.intData) {
            if (v != column.missingInt && (v < 0 || v >= outcomes)) {
                return Fail(VEK_OUT_OF_RANGE, message,
                            "value " + std::to_string(v) + " of column '" + column.id +
                                "' is not an outcome index of node '" + nodeId + "'");
            }
        }
        return VEK_OKAY;
    }
    map.assign(column.stateNames.size(), -1);
    for (size_t s = 0; s < map.size(); ++s) {
        const std::string& name = column.stateNames[s];
        int o = def->GetOutcomeIds()->FindPosition(name.c_str());
        for (int j = 0; o < 0 && j < outcomes; ++j) {
            const char* label = def->GetOutcomeLabel(j);
            if (label && name == label) o = j;
        }
        if (o < 0) {
            map.clear();
            return Fail(
                VEK_OUT_OF_RANGE, message,
                "state '" + name + "' of column '" + column.id + "' is not an outcome of node '" + nodeId + "'");
        }
        map[s] = o;
    }
    return VEK_OKAY;
}

// A column pairs with the node of the same id; columns naming no node are
// left out (data often holds more than the model). Every pair whose values
// do not fit the node is reported, none is guessed at.
int VEK_dataset::MatchNetwork(const VEK_network& net, std::vector<VEK_datasetMatch>& matching,
                              std::string* errorMessage) const {
    try {
        std::vector<VEK_datasetMatch> found;
        std::string problems;
        std::vector<int> map;
        for (int v = 0; v < GetNumberOfVariables(); ++v) {
            int slice = 0;
            int h = net.FindNode(vars_[static_cast<size_t>(v)].id.c_str());
            if (h < 0) h = VEK_findPlateSlice(net, vars_[static_cast<size_t>(v)].id, slice);
            if (h < 0) continue;
            const Variable& column = vars_[static_cast<size_t>(v)];
            std::string message;
            int res = VEK_OKAY;
            if (net.GetDef(h)->GetType() == kTypeEquation) {
                if (column.discrete) {
                    res = VEK_OUT_OF_RANGE;
                    message =
                        "column '" + column.id + "' is discrete but node '" + net.GetNodeId(h) + "' is continuous";
                }
            } else {
                res = VEK_mapColumnOutcomes(*this, v, net, h, map, &message);
            }
            if (res != VEK_OKAY) {
                problems += (problems.empty() ? "" : "; ") + message;
                continue;
            }
            found.push_back({h, slice, v});
        }
        if (!problems.empty())
            return Fail(VEK_OUT_OF_RANGE, errorMessage, "Columns do not fit their nodes: " + problems);
        if (found.empty()) {
            return Fail(VEK_NO_ITEM, errorMessage, "No column of the dataset has the id of a node in the network");
        }
        matching.swap(found);
        return VEK_OKAY;
    } catch (const std::bad_alloc&) {
        return Fail(VEK_OUT_OF_MEMORY, errorMessage, "Out of memory");
    }
}
