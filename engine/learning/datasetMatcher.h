// Pairing dataset columns with network nodes, and a column's values with a
// node's outcomes: what EM, validation and the Python matching share.
#pragma once

#include <string>
#include <vector>

class VEK_dataset;
class VEK_network;

// The outcome of node for each state of column var (by outcome id, then by
// label), or an empty map when the column holds bare numbers, which are
// outcome indices. 0; -2 with a message when a state names no outcome, a
// number is no outcome index, or the column is continuous; -51 when the
// node has no outcomes.
[[nodiscard]] int VEK_mapColumnOutcomes(const VEK_dataset& data, int var, const VEK_network& net, int node, std::vector<int>& map,
                          std::string* message = nullptr);

// A column id + "_" + t names plate node id in slice t, as unrolling names
// the node's copies: the node's handle, or -1.
[[nodiscard]] int VEK_findPlateSlice(const VEK_network& net, const std::string& id, int& slice);
