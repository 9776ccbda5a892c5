// Turning a learnt structure over dataset columns into a network: one CPT
// node per column (ids from the column ids, outcomes from the state names,
// both made valid identifiers), the arcs, and tables estimated from the
// counts with a BDeu-style prior of ess spread evenly over each table.
#pragma once

#include <string>
#include <vector>

class VEK_dataset;
class VEK_familyCounts;
class VEK_network;

// parents[c] lists the parent columns of column c, in table order; the
// structure must be acyclic. Replaces out on success.
[[nodiscard]] int VEK_fitStructure(const VEK_dataset& data, const VEK_familyCounts& counts,
                     const std::vector<std::vector<int>>& parents, double ess, VEK_network& out,
                     std::string* errorMessage = nullptr);

// A valid identifier made from text: other characters become underscores,
// and prefix goes first when the text does not start with a letter.
std::string VEK_makeIdentifier(const std::string& text, const char* prefix);
