// Value of a node with discrete outcomes: the value matrix (beliefs or
// policy values) and hard evidence, set as an outcome or as a number that the
// definition maps to an outcome.
#pragma once

#include <vector>

#include "network/nodeVal.h"

class VEK_discDef;

class VEK_discVal : public VEK_nodeVal {
public:
    VEK_discVal(VEK_network& net, int handle) : VEK_nodeVal(net, handle) {}
    // Takes over the hard evidence that a value of another type carried. The
    // definition is not reachable yet, so the evidence vector is built at
    // first use.
    VEK_discVal(VEK_network& net, int handle, const VEK_valXformContext& ctx);

    const VEK_Dmatrix* GetMatrix() const override;
    // An empty matrix is first sized to the indexing parents' outcome counts
    // followed by the node's own.
    VEK_Dmatrix* GetWriteableMatrix() override;

    int GetEvidence() const override;
    [[nodiscard]] int GetEvidence(double& value) const override;
    const char* GetEvidenceId() const override;
    [[nodiscard]] int SetEvidence(double value) override;
    [[nodiscard]] int SetEvidence(int outcome) override;
    [[nodiscard]] int SetEvidence(const char* outcomeId) override;
    [[nodiscard]] int ClearEvidence() override;
    [[nodiscard]] int ClearPropagatedEvidence() override;
    [[nodiscard]] int SetPropagatedEvidence(int outcome) override;
    [[nodiscard]] int SetPropagatedEvidence(double value) override;
    [[nodiscard]] int GetMean(double& mean) const override;
    [[nodiscard]] int GetStdDev(double& sd) const override;
    void InitXform(VEK_valXformContext& ctx) const override;

    void OnOutcomeInsert(int k) override;
    void OnOutcomeRemove(int k) override;
    void OnOutcomeReorder(const VEK_intArray& order) override;
    void OnOutcomeCountChange() override;

    // True when the evidence was given as a number (see GetEvidence(double&)).
    bool IsEvidenceAsNumber() const { return HasHardEvidence() && asNumber_; }
    // The definition's outcome count; 0 when it has none.
    int GetNumberOfOutcomes() const;

protected:
    [[nodiscard]] int DoSetEvidence(int outcome, bool asNumber, double number = 0.0);
    [[nodiscard]] int DoSetPropagatedEvidence(int outcome, bool asNumber, double number = 0.0);
    void ResetResult() override { matrix_.Clear(); }

    // Evidence of any kind, kept so that an operation refused by the network
    // can put back what it replaced.
    struct SavedEvidence {
        int kind = 0;  // 0, VEK_VALUE_EVIDENCE, VEK_VALUE_PROPAGATED or VEK_VALUE_VIRTUAL
        int outcome = -1;
        bool asNumber = false;
        double number = 0.0;
        bool controlled = false;
        std::vector<double> virtualEvidence;
    };
    SavedEvidence SaveEvidence() const;
    // Best effort: re-applies saved evidence on a value that holds none.
    void RestoreSaved(const SavedEvidence& saved);

private:
    VEK_discDef* DiscDef() const;
    // Outcome for a number through the definition's intervals or point values.
    int OutcomeForNumber(double value) const;
    void StoreEvidence(int outcome, bool asNumber, double number);
    // Builds the one-hot vector over the outcomes for evidence taken over
    // from a type change, once the definition can tell the outcome count.
    void EnsureEvidenceVector() const;
    bool BuildEvidenceVector(int outcomes) const;
    // After an outcome change: evidence moved to newIndex (-1: gone).
    void FollowOutcomeChange(int newIndex);

    int evidence_ = -1;
    bool asNumber_ = false;
    double number_ = 0.0;
    // The matrix holds beliefs or the evidence vector; the vector of evidence
    // that came through a type change is built on first read.
    mutable VEK_Dmatrix matrix_;
    mutable bool vectorPending_ = false;
};
