// Base of node values: what inference computed for a node (beliefs,
// expected utilities, policies) and the evidence set on it.
#pragma once

#include <vector>

#include "network/dmatrix.h"
#include "network/doubleArray.h"
#include "network/intArray.h"

class VEK_network;
class VEK_nodeDef;
class VEK_valXformContext;

// Value type ids.
constexpr int VEK_BELIEFVECTOR = 3;
constexpr int VEK_EXPECTEDUTILITY = 4;
constexpr int VEK_POLICYVALUES = 6;
constexpr int VEK_MAUEXPECTEDUTILITY = 7;
constexpr int VEK_EQUATIONEVALUATION = 8;

// Value state flags.
constexpr int VEK_VALUE_EVIDENCE = 1;
constexpr int VEK_VALUE_VALID = 2;
constexpr int VEK_VALUE_PROPAGATED = 4;
constexpr int VEK_VALUE_CONTROLLED = 8;
constexpr int VEK_VALUE_VIRTUAL = 16;

class VEK_nodeVal {
public:
    VEK_nodeVal(VEK_network& net, int handle) : net_(&net), handle_(handle) {}
    virtual ~VEK_nodeVal() = default;
    VEK_nodeVal(const VEK_nodeVal&) = default;
    VEK_nodeVal& operator=(const VEK_nodeVal&) = delete;

    virtual VEK_nodeVal* Clone(VEK_network& net) const = 0;
    virtual int GetType() const = 0;
    [[nodiscard]] virtual int AddIndexingParent(int handle);
    virtual void InitIndexingParents();
    virtual const VEK_Dmatrix* GetMatrix() const { return nullptr; }
    virtual VEK_Dmatrix* GetWriteableMatrix() { return nullptr; }

    // Evidence (base: -51, no evidence on this kind of value).
    virtual int GetEvidence() const;
    [[nodiscard]] virtual int GetEvidence(double& value) const;
    virtual const char* GetEvidenceId() const;
    [[nodiscard]] virtual int SetEvidence(double value);
    [[nodiscard]] virtual int SetEvidence(int outcome);
    [[nodiscard]] virtual int SetEvidence(const char* outcomeId);
    [[nodiscard]] virtual int ClearEvidence();
    [[nodiscard]] virtual int ClearPropagatedEvidence();
    [[nodiscard]] virtual int SetPropagatedEvidence(int outcome);
    [[nodiscard]] virtual int SetPropagatedEvidence(double value);
    [[nodiscard]] virtual int GetVirtualEvidence(std::vector<double>& out) const;
    [[nodiscard]] virtual int GetVirtualEvidence(VEK_doubleArray& out) const;
    [[nodiscard]] virtual int SetVirtualEvidence(const std::vector<double>& values);
    [[nodiscard]] virtual int SetVirtualEvidence(const VEK_doubleArray& values);
    [[nodiscard]] virtual int ClearVirtualEvidence();
    [[nodiscard]] virtual int GetMean(double& mean) const;
    [[nodiscard]] virtual int GetStdDev(double& sd) const;
    virtual void InitXform(VEK_valXformContext& ctx) const;

    // Controlled values (interventions); base: not supported.
    virtual bool IsControllable() const { return false; }
    [[nodiscard]] virtual int ControlValue(int outcome);
    [[nodiscard]] virtual int ClearControlledValue();

    // The node's own outcomes changed (insert at k, remove k, reorder); the
    // value keeps its evidence in step and drops what it computed.
    virtual void OnOutcomeInsert(int k);
    virtual void OnOutcomeRemove(int k);
    virtual void OnOutcomeReorder(const VEK_intArray& order);
    virtual void OnOutcomeCountChange();

    int GetFlags() const { return flags_; }
    bool HasFlag(int f) const { return (flags_ & f) != 0; }
    bool IsValueValid() const { return HasFlag(VEK_VALUE_VALID); }
    bool IsEvidence() const { return HasFlag(VEK_VALUE_EVIDENCE); }
    bool IsRealEvidence() const { return HasFlag(VEK_VALUE_EVIDENCE); }
    bool IsPropagatedEvidence() const { return HasFlag(VEK_VALUE_PROPAGATED); }
    bool IsVirtualEvidence() const { return HasFlag(VEK_VALUE_VIRTUAL); }
    bool IsControlled() const { return HasFlag(VEK_VALUE_CONTROLLED); }
    // Evidence of any kind that fixes the node's outcome.
    bool HasHardEvidence() const { return HasFlag(VEK_VALUE_EVIDENCE | VEK_VALUE_PROPAGATED); }
    // Marks the value computed (set by the update cycle after writing it).
    void SetValueValid() {
        SetFlags(VEK_VALUE_VALID);
        stamp_ = 0;
    }
    // Drops a computed value unless evidence fixes it.
    void Invalidate();

    const VEK_intArray& GetIndexingParents() const { return indexingParents_; }
    int GetStamp() const { return stamp_; }
    void SetStamp(int s) { stamp_ = s; }

    VEK_nodeDef* Def() const;
    VEK_nodeDef* GetPeerDef(int handle) const;
    VEK_nodeVal* GetPeerVal(int handle) const;
    VEK_network& Network() const { return *net_; }
    int Handle() const { return handle_; }
    void Rebind(VEK_network& net, int handle) { net_ = &net; handle_ = handle; }

protected:
    // Also tells the network which flags its values may hold.
    void SetFlags(int f);
    void ClearFlags(int f) { flags_ &= ~f; }
    // Called by Invalidate; a value resets what it computed.
    virtual void ResetResult() {}
    // For operations that act on other nodes' values (interventions).
    static void ClearPeerFlags(VEK_nodeVal& v, int f) { v.flags_ &= ~f; }

    VEK_intArray indexingParents_;

private:
    VEK_network* net_;
    int handle_;
    int flags_ = 0;
    int stamp_ = 0;
};
