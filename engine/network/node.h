// A node: header, definition, value, presentation and graph links.
#pragma once

#include <memory>
#include <string>

#include "network/dmatrix.h"
#include "network/header.h"
#include "network/intArray.h"
#include "network/nodeDef.h"
#include "network/nodeVal.h"
#include "network/screenInfo.h"
#include "network/userProperties.h"

class VEK_network;

struct VEK_nodeInfo {
    VEK_screenInfo screen;
    VEK_barChart barChart;
    VEK_userProperties userProperties;
    VEK_documentation documentation;
};

// Diagnostic roles.
constexpr int VEK_DIAG_FAULT = 0;
constexpr int VEK_DIAG_OBSERVATION = 1;
constexpr int VEK_DIAG_AUXILIARY = 2;

// Temporal types of nodes in dynamic networks.
constexpr int VEK_TEMPORAL_CONTEMPORAL = 0;
constexpr int VEK_TEMPORAL_ANCHOR = 1;
constexpr int VEK_TEMPORAL_TERMINAL = 2;
constexpr int VEK_TEMPORAL_PLATE = 3;

// Traversal marks used by graph walks.
constexpr unsigned VEK_MARK_VISITED = 1;
constexpr unsigned VEK_MARK_ON_PATH = 2;
constexpr unsigned VEK_MARK_FINISHED = 4;
constexpr unsigned VEK_MARK_CHILDLESS = 8;
constexpr unsigned VEK_MARK_USER = 16;

class VEK_node {
public:
    // Creates the definition and value for the type; Definition() is null
    // when the type is unknown (the network checks first).
    VEK_node(int type, int handle, const char* id, VEK_network& net);
    // Deep copy into another network.
    VEK_node(const VEK_node& other, VEK_network& net);
    ~VEK_node();

    int Handle() const { return handle_; }
    VEK_nodeHeader& Header() { return header_; }
    const VEK_nodeHeader& Header() const { return header_; }
    const char* GetId() const { return header_.GetId(); }
    VEK_nodeDef* Definition() const { return def_.get(); }
    VEK_nodeVal* Value() const { return val_.get(); }
    VEK_nodeInfo& Info() { return info_; }
    const VEK_nodeInfo& Info() const { return info_; }

    VEK_intArray& Parents() { return parents_; }
    const VEK_intArray& Parents() const { return parents_; }
    VEK_intArray& Children() { return children_; }
    const VEK_intArray& Children() const { return children_; }
    VEK_intArray& CostParents() { return costParents_; }
    const VEK_intArray& CostParents() const { return costParents_; }
    VEK_intArray& CostChildren() { return costChildren_; }
    const VEK_intArray& CostChildren() const { return costChildren_; }

    // Type change: arcs that the new type cannot keep are removed first.
    [[nodiscard]] int ChangeType(int type);
    // Replaces the value (used after type changes and by the loaders).
    void ReplaceValue(VEK_nodeVal* val);
    void ReplaceDefinition(VEK_nodeDef* def);
    // Moves the node, with its definition and value, under another network
    // at the same handle; the node itself stays where it is.
    void Rebind(VEK_network& net);

    int GetSubmodel() const { return submodel_; }
    [[nodiscard]] int SetSubmodel(int submodelHandle);

    // Diagnostic attributes.
    int GetDiagType() const { return diagType_; }
    [[nodiscard]] int SetDiagType(int t);
    const char* GetQuestion() const { return question_.c_str(); }
    void SetQuestion(const char* q) { question_ = q ? q : ""; }
    bool IsRanked() const { return ranked_; }
    void SetRanked(bool r) { ranked_ = r; }
    bool IsMandatory() const { return mandatory_; }
    void SetMandatory(bool m) { mandatory_ = m; }

    // Observation cost: one entry per combination of cost parents' outcomes.
    const VEK_Dmatrix& GetCost() const { return cost_; }
    [[nodiscard]] int SetCost(const std::vector<double>& values);
    void RebuildCostTable();
    VEK_Dmatrix& MutableCost() { return cost_; }

    bool IsTarget() const { return target_; }
    void SetTargetFlag(bool t) { target_ = t; }
    int GetTemporalType() const { return temporalType_; }
    void SetTemporalType(int t) { temporalType_ = t; }

    unsigned& Marks() { return marks_; }

private:
    VEK_network* net_;
    int handle_;
    VEK_nodeHeader header_;
    std::unique_ptr<VEK_nodeDef> def_;
    std::unique_ptr<VEK_nodeVal> val_;
    VEK_nodeInfo info_;
    VEK_intArray parents_;
    VEK_intArray children_;
    VEK_intArray costParents_;
    VEK_intArray costChildren_;
    VEK_Dmatrix cost_;
    int submodel_;
    int diagType_ = VEK_DIAG_AUXILIARY;
    std::string question_;
    bool ranked_ = false;
    bool mandatory_ = false;
    bool target_ = false;
    int temporalType_ = 0;
    unsigned marks_ = 0;
};
