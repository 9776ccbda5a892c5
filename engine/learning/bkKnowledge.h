// Background knowledge for structure learning, by column id: arcs that
// must be present, arcs that must be absent, and tiers (an arc never goes
// from a higher tier to a lower one; columns without a tier are free).
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

class VEK_dataset;

// The knowledge resolved against a dataset's columns.
struct VEK_bkConstraints {
    int size = 0;
    std::vector<char> forced;     // size * size, [parent * size + child]
    std::vector<char> forbidden;  // same layout
    std::vector<int> tier;        // -1 for none

    void Reset(int n);
    bool IsForced(int parent, int child) const { return forced[parent * size + child] != 0; }
    // Whether an arc parent -> child may be present.
    bool Allows(int parent, int child) const {
        if (forbidden[parent * size + child]) return false;
        return tier[parent] < 0 || tier[child] < 0 || tier[parent] <= tier[child];
    }
};

class VEK_bkKnowledge {
public:
    using Arc = std::pair<std::string, std::string>;

    // Each returns 0, or a negative code with a message and leaves the
    // knowledge unchanged: -4 for an arc from a column to itself, an arc
    // both forced and forbidden or a forced arc against the tiers, -11 for
    // forced arcs that would form a cycle, -2 for a negative tier.
    [[nodiscard]] int AddForcedArc(const std::string& parent, const std::string& child, std::string* errorMessage = nullptr);
    [[nodiscard]] int AddForbiddenArc(const std::string& parent, const std::string& child, std::string* errorMessage = nullptr);
    [[nodiscard]] int SetTier(const std::string& column, int tier, std::string* errorMessage = nullptr);
    void Clear();

    const std::vector<Arc>& ForcedArcs() const { return forced_; }
    const std::vector<Arc>& ForbiddenArcs() const { return forbidden_; }
    const std::map<std::string, int>& Tiers() const { return tiers_; }

    // The whole knowledge is consistent (see the adders).
    [[nodiscard]] int Check(std::string* errorMessage = nullptr) const;
    // Resolves column ids against data; -3 for an id the data does not have.
    [[nodiscard]] int Resolve(const VEK_dataset& data, VEK_bkConstraints& out, std::string* errorMessage = nullptr) const;

private:
    std::vector<Arc> forced_;
    std::vector<Arc> forbidden_;
    std::map<std::string, int> tiers_;
};
