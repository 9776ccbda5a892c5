// Base of every node definition: what a node's outcomes are and how it
// depends on its parents. Definitions follow graph changes through the
// notification operations below, called by the network in a fixed order.
#pragma once

#include <string>
#include <vector>

#include "network/dmatrix.h"
#include "network/doubleArray.h"
#include "network/idArray.h"
#include "network/intArray.h"

class VEK_network;
class VEK_nodeVal;
class VEK_randGen;
class VEK_nodeXformContext;
class VEK_valXformContext;

// Definition type ids. The values are bit sets (16: discrete table, 2:
// probabilistic chance, 4: deterministic, 8: utility, 1: decision).
constexpr int VEK_EQUATION = 4;
constexpr int VEK_TABLE = 8;
constexpr int VEK_LIST = 17;
constexpr int VEK_CPT = 18;
constexpr int VEK_TRUTHTABLE = 20;
constexpr int VEK_CAST = 50;
constexpr int VEK_DEMORGAN = 82;
constexpr int VEK_NOISY_MAX = 146;
constexpr int VEK_NOISY_ADDER = 274;
constexpr int VEK_MAU = 520;

// Marks an undefined table entry; skipped by utility rescaling.
constexpr double VEK_UNDEFINED_VALUE = 4.450147717014403e-308;

class VEK_nodeDef {
public:
    VEK_nodeDef(VEK_network& net, int handle) : net_(&net), handle_(handle) {}
    virtual ~VEK_nodeDef() = default;
    VEK_nodeDef(const VEK_nodeDef&) = default;
    VEK_nodeDef& operator=(const VEK_nodeDef&) = delete;

    virtual VEK_nodeDef* Clone(VEK_network& net) const = 0;
    virtual VEK_nodeVal* CreateValue() const = 0;
    virtual VEK_nodeVal* CreateValue(const VEK_valXformContext& ctx) const = 0;
    virtual int GetType() const = 0;
    virtual const char* GetTypeName() const = 0;

    // Graph notifications. The parent-outcome and parent ones fail with -51
    // in the base so a definition that cannot follow makes the change fail.
    [[nodiscard]] virtual int AddParent(int handle);
    [[nodiscard]] virtual int RemoveParent(int handle);
    [[nodiscard]] virtual int BeforeIdChange(const char* oldId, const char* newId);
    [[nodiscard]] virtual int OnParentOutcomeAdd(int parent, int outcome);
    [[nodiscard]] virtual int OnParentOutcomeRemove(int parent, int outcome);
    [[nodiscard]] virtual int OnParentOutcomeReorder(int parent, const VEK_intArray& order);
    [[nodiscard]] virtual int OnParentReorder(const VEK_intArray& order);
    [[nodiscard]] virtual int BeforeParentIdChange(int parent, const char* oldId, const char* newId);

    [[nodiscard]] virtual int IsParentNecessary(int parent, double epsilon, bool& necessary) const;

    // Outcomes (base: not supported).
    [[nodiscard]] virtual int AddOutcome(const char* id);
    [[nodiscard]] virtual int InsertOutcome(int position, const char* id);
    [[nodiscard]] virtual int RemoveOutcome(int position);
    virtual int GetNumberOfOutcomes() const;
    [[nodiscard]] virtual int RenameOutcome(int position, const char* id);
    [[nodiscard]] virtual int RenameOutcomes(const VEK_idArray& ids);
    [[nodiscard]] virtual int RenameOutcomes(const std::vector<std::string>& ids);
    virtual const VEK_idArray* GetOutcomeIds() const;
    [[nodiscard]] virtual int SetNumberOfOutcomes(int count);
    [[nodiscard]] virtual int SetNumberOfOutcomes(const VEK_idArray& ids);
    [[nodiscard]] virtual int ChangeOrderOfOutcomes(const VEK_intArray& order);

    [[nodiscard]] virtual int MakeUniform();
    [[nodiscard]] virtual int MakeRandom(VEK_randGen& gen);

    // The table (CPT, truth table, utilities, computed canonical CPT) or null.
    virtual const VEK_Dmatrix* GetMatrix() const;
    virtual int GetDiscreteOutcomeCount() const;

    virtual void InitXform(VEK_nodeXformContext& ctx) const;
    [[nodiscard]] virtual int DoCopyParameters(const VEK_nodeDef& other);

    // What files store and learning writes.
    virtual const VEK_Dmatrix& GetParameters() const = 0;
    virtual VEK_Dmatrix& GetWriteableParameters() = 0;
    // Called after the parameters were written through GetWriteableParameters.
    virtual void OnParametersChanged() {}

    // Writes the parameter matrix; -2 when the size does not match. The
    // network hears of the change, so beliefs computed before are stale.
    [[nodiscard]] int SetDefinition(const VEK_Dmatrix& m);
    [[nodiscard]] int SetDefinition(const VEK_doubleArray& items);
    [[nodiscard]] int SetDefinition(const std::vector<double>& items);
    const VEK_Dmatrix& GetDefinition() const { return GetParameters(); }
    [[nodiscard]] int CopyParameters(const VEK_nodeDef& other);

    static bool IsValidType(int type);
    static bool IsArcAllowedForTypes(int parentType, int childType);
    static const char* TypeName(int type);
    // Whether Create can build a definition of the type (a valid type may
    // not have one yet).
    static bool CanCreate(int type);
    // A new definition of the type for a node; null for an unknown type.
    static VEK_nodeDef* Create(int type, VEK_network& net, int handle);
    // A new definition of the type built from a conversion context (the
    // node exists: tables take their dimensions from its parents).
    static VEK_nodeDef* Create(int type, const VEK_nodeXformContext& ctx);
    // A new definition of the type built from this one (outcomes, table).
    VEK_nodeDef* Xform(int type) const;
    bool TypeIsOneOf(const int* ids, int count) const;

    VEK_network& Network() const { return *net_; }
    int Handle() const { return handle_; }
    void Rebind(VEK_network& net, int handle) { net_ = &net; handle_ = handle; }
    // Tells the network that the parameters of the node's definition changed.
    void TellNetworkOfChange();

    const VEK_intArray& GetParents() const;
    const VEK_intArray& GetChildren() const;
    VEK_nodeDef* GetPeerDef(int handle) const;
    const char* GetPeerId(int handle) const;
    int FindParentPosition(int handle) const;
    const char* GetNodeId() const;

protected:
    // Outcome count of a parent's definition; negative for non-discrete.
    int ParentOutcomeCount(int handle) const;
    // Dimensions of a table over the parents plus a last dimension.
    [[nodiscard]] int BuildParentDims(VEK_intArray& dims, int lastSize) const;

private:
    VEK_network* net_;
    int handle_;
};
