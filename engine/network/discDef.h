// Definitions with discrete outcomes: outcome identifiers, optional interval
// edges or point values, and per-outcome extras (labels, fault flags...).
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "network/nodeDef.h"

struct VEK_outcomeInfo {
    bool fault = false;
    std::string label;
    std::string comment;
    std::string fix;
    std::vector<std::string> docTitles;
    std::vector<std::string> docPaths;
    bool operator==(const VEK_outcomeInfo&) const = default;
};

// Created on first use so plain nodes carry no per-outcome overhead.
struct VEK_discDefExtension {
    int defaultOutcome = -1;
    std::vector<VEK_outcomeInfo> outcomes;
    bool operator==(const VEK_discDefExtension&) const = default;
};

class VEK_discDef : public VEK_nodeDef {
public:
    VEK_discDef(VEK_network& net, int handle);
    VEK_discDef(const VEK_discDef& other);

    // Outcome operations; each runs inside one network update scope and
    // notifies, in order: the definition's own hook, the network, every child,
    // then relevance bookkeeping.
    [[nodiscard]] int AddOutcome(const char* id) override;
    [[nodiscard]] int InsertOutcome(int position, const char* id) override;
    [[nodiscard]] int RemoveOutcome(int position) override;
    int GetNumberOfOutcomes() const override { return outcomeIds_.GetSize(); }
    [[nodiscard]] int RenameOutcome(int position, const char* id) override;
    [[nodiscard]] int RenameOutcomes(const VEK_idArray& ids) override;
    [[nodiscard]] int RenameOutcomes(const std::vector<std::string>& ids) override;
    const VEK_idArray* GetOutcomeIds() const override { return &outcomeIds_; }
    [[nodiscard]] int SetNumberOfOutcomes(int count) override;
    [[nodiscard]] int SetNumberOfOutcomes(const VEK_idArray& ids) override;
    [[nodiscard]] int ChangeOrderOfOutcomes(const VEK_intArray& order) override;
    [[nodiscard]] int ChangeOrderOfOutcomesWithAddAndRemove(const VEK_idArray& ids, const VEK_intArray& order);
    int GetDiscreteOutcomeCount() const override { return GetNumberOfOutcomes(); }
    int FindOutcome(const char* id) const { return outcomeIds_.FindPosition(id); }

    virtual bool HasFixedOutcomes() const { return false; }
    virtual const char* GetOutcomePrefix() const { return "State"; }
    virtual void AfterInsertOutcome(int) {}
    virtual void AfterRemoveOutcome(int) {}
    virtual void AfterReorderOutcomes(const VEK_intArray&) {}
    virtual void AfterOutcomeCountChanged() = 0;

    // Intervals and point values.
    bool HasIntervals() const { return !intervals_.empty(); }
    [[nodiscard]] int SetIntervals(const std::vector<double>& edges, bool adjustCount = true);
    const std::vector<double>& GetIntervals() const { return intervals_; }
    [[nodiscard]] int GetInterval(int outcome, double& lo, double& hi) const;
    void RemoveIntervals() { intervals_.clear(); }
    bool HasPointValues() const { return !pointValues_.empty(); }
    [[nodiscard]] int SetPointValues(const std::vector<double>& values);
    const std::vector<double>& GetPointValues() const { return pointValues_; }
    void RemovePointValues() { pointValues_.clear(); }
    [[nodiscard]] int GetPointValue(int outcome, double& value) const;
    int PointValueToOutcomeIndex(double value) const;
    int Discretize(double value) const;
    [[nodiscard]] int SamplePoint(int outcome, VEK_randGen& gen, double& value) const;
    [[nodiscard]] int GetMean(const double* distribution, double& mean) const;
    [[nodiscard]] int GetStdDev(const double* distribution, double& sd) const;

    // Per-outcome extras (empty, -1 or false without the extension).
    const char* GetOutcomeLabel(int outcome) const;
    const char* GetOutcomeComment(int outcome) const;
    const char* GetOutcomeFix(int outcome) const;
    [[nodiscard]] int GetOutcomeDocumentation(int outcome, std::vector<std::string>& titles, std::vector<std::string>& paths) const;
    bool IsFaultOutcome(int outcome) const;
    int GetDefaultOutcome() const { return ext_ ? ext_->defaultOutcome : -1; }
    [[nodiscard]] int SetOutcomeLabel(int outcome, const char* text);
    [[nodiscard]] int SetOutcomeComment(int outcome, const char* text);
    [[nodiscard]] int SetOutcomeFix(int outcome, const char* text);
    [[nodiscard]] int SetOutcomeDocumentation(int outcome, const std::vector<std::string>& titles, const std::vector<std::string>& paths);
    [[nodiscard]] int SetFaultOutcome(int outcome, bool fault);
    [[nodiscard]] int SetDefaultOutcome(int outcome);
    const VEK_discDefExtension* GetExtension() const { return ext_.get(); }

    void InitXform(VEK_nodeXformContext& ctx) const override;
    // Takes over outcome ids, intervals, point values and extras.
    void TakeOutcomesFrom(const VEK_nodeXformContext& ctx);

protected:
    // Replaces the ids by count ids made from the outcome prefix ("State0"...).
    void InitDefaultOutcomeIds(int count);
    // Steps the count by adding or removing outcomes at the end, one at a
    // time, so that every child follows each step.
    [[nodiscard]] int SetNumberOfOutcomesWithAddAndRemove(int count);
    VEK_idArray& MutableOutcomeIds() { return outcomeIds_; }
    VEK_discDefExtension& Extension();
    bool ValidOutcome(int k) const { return k >= 0 && k < GetNumberOfOutcomes(); }

private:
    // The network, the children and relevance after an own outcome change.
    [[nodiscard]] int NotifyOutcomeInserted(int position);
    [[nodiscard]] int NotifyOutcomeRemoved(int position);
    [[nodiscard]] int NotifyOutcomesReordered(const VEK_intArray& order);
    // Sets the ids of a node without children and resets the table.
    void ReplaceOutcomes(const VEK_idArray& ids);
    bool NodeIsInNetwork() const;

    VEK_idArray outcomeIds_;
    std::vector<double> intervals_;
    std::vector<double> pointValues_;
    std::unique_ptr<VEK_discDefExtension> ext_;
};
