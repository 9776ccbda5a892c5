// A network as another tool's file describes it, before it becomes a
// VEK_network: nodes by their names in the file, tables by the names of
// their parents. The text readers and the XMLBIF reader fill one of these;
// VEK_buildNetwork checks it as a whole (unknown names, cycles, table sizes)
// and builds a fresh network from it, so a faulty file never touches the
// caller's network.
#pragma once

#include <string>
#include <utility>
#include <vector>

class VEK_network;

struct VEK_descPos {
    int line = 0;
    int column = 0;
};

struct VEK_descNode {
    std::string name;  // the node's name in the file
    VEK_descPos pos;
    int type = 0;  // VEK_CPT, VEK_LIST or VEK_TABLE
    std::vector<std::string> states;
    bool hasLabel = false;  // a display name given apart from the name
    std::string label;
    bool hasPosition = false;
    int x = 0, y = 0;  // centre
    std::vector<double> intervals;    // outcome count + 1 edges, or empty
    std::vector<double> pointValues;  // one per outcome, or empty
    std::vector<std::pair<std::string, std::string>> properties;
};

// One row of a table given per parent configuration.
struct VEK_descRow {
    std::vector<std::string> parentStates;
    std::vector<double> values;
    VEK_descPos pos;
};

// Order of a flat table.
constexpr int VEK_DESC_CHILD_FASTEST = 0;  // the engine's order
constexpr int VEK_DESC_CHILD_SLOWEST = 1;  // child first, then the parents, last fastest

struct VEK_descTable {
    std::string child;
    VEK_descPos pos;
    std::vector<std::string> parents;
    std::vector<VEK_descPos> parentPos;
    bool hasValues = false;  // a flat table
    std::vector<double> values;
    int order = VEK_DESC_CHILD_FASTEST;
    VEK_descPos valuesPos;
    std::vector<VEK_descRow> rows;  // per-configuration rows
    bool hasDefault = false;        // values for every configuration no row names
    std::vector<double> defaultRow;
    VEK_descPos defaultPos;
};

struct VEK_netDesc {
    bool hasName = false;
    std::string name;
    std::vector<std::pair<std::string, std::string>> properties;
    bool hasNodeSize = false;
    int nodeWidth = 0, nodeHeight = 0;
    std::vector<VEK_descNode> nodes;
    std::vector<VEK_descTable> tables;
};

// Receives the faults that VEK_buildNetwork finds.
class VEK_descErrorSink {
public:
    virtual ~VEK_descErrorSink() = default;
    virtual void SpecError(int code, const VEK_descPos& pos, const std::string& message) = 0;
};

// Builds desc into net, which should be a fresh network (ids are made unique
// here, so it may skip its own id checks). Returns 0, or the code of the
// first fault (each fault is reported to errors). Never throws.
[[nodiscard]] int VEK_buildNetwork(const VEK_netDesc& desc, VEK_network& net, VEK_descErrorSink& errors);

// The identifier a name from another tool's file gets: the text itself when
// it is a valid identifier; otherwise prefix in front when the first
// character may not begin an identifier, then every character that may not
// stand in an identifier turned into '_'. Empty text gives the prefix.
std::string VEK_foreignId(const std::string& text, char prefix);

// Shortest text that reads back as exactly the same double.
void VEK_appendDouble(std::string& out, double value);

// The name a writer puts in a file for an object with this id and name (or
// outcome label): the name when it is the text the id was repaired from
// (so that reading the file gives the id back), otherwise the id.
const char* VEK_foreignName(const char* id, const char* name, char prefix);
