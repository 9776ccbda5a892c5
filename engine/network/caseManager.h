// Named evidence cases stored with a network.
#pragma once

#include <string>
#include <vector>

class VEK_network;

constexpr int VEK_CASE_DISCRETE = 0;
constexpr int VEK_CASE_CONTINUOUS = 1;
constexpr int VEK_CASE_VIRTUAL = 2;

struct VEK_caseEvidence {
    int node = -1;
    int slice = -1;  // 0 or more for plate nodes of dynamic networks
    int type = VEK_CASE_DISCRETE;
    int outcome = -1;
    double value = 0.0;
    std::vector<double> virtualEvidence;
    bool operator==(const VEK_caseEvidence&) const = default;
};

struct VEK_case {
    std::string name;
    std::string description;
    std::string category;
    long long created = 0;
    long long lastModified = 0;
    std::vector<VEK_caseEvidence> evidence;  // in the order set
    std::vector<int> targets;
    bool operator==(const VEK_case&) const = default;

    int FindEvidence(int node, int slice = -1) const;
    int SetEvidence(const VEK_caseEvidence& item);  // replaces an item of the same node and slice
    [[nodiscard]] int DeleteEvidence(int node);                   // all items of the node; -2 when none
};

class VEK_caseManager {
public:
    int GetCount() const { return static_cast<int>(cases_.size()); }
    bool IsValid(int i) const { return i >= 0 && i < GetCount(); }
    VEK_case* Get(int i) { return IsValid(i) ? &cases_[i] : nullptr; }
    const VEK_case* Get(int i) const { return IsValid(i) ? &cases_[i] : nullptr; }
    int Find(const char* name) const;  // index or -2
    // Returns the new index; -2 for an empty or duplicated name.
    [[nodiscard]] int Add(const char* name);
    [[nodiscard]] int Delete(int i);
    void DeleteAll() { cases_.clear(); }
    [[nodiscard]] int SetName(int i, const char* name);

    // A deleted node disappears from every case.
    void OnNodeDeleted(int handle);
    // Applies a case's evidence and targets to a network / stores a network's.
    [[nodiscard]] int ApplyToNetwork(int i, VEK_network& net) const;
    [[nodiscard]] int SaveFromNetwork(int i, const VEK_network& net);

    bool IsSyncEnabled() const { return sync_; }
    void EnableSync(bool on) { sync_ = on; }
    bool operator==(const VEK_caseManager& o) const { return cases_ == o.cases_ && sync_ == o.sync_; }

private:
    std::vector<VEK_case> cases_;
    bool sync_ = false;
};
