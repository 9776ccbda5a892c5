// Snapshot of the evidence of a network, to be put back later (around runs
// that set evidence of their own).
#pragma once

#include <vector>

class VEK_network;

// Snapshot option: record virtual evidence as well.
constexpr int VEK_STATE_VIRTUAL = 1;

class VEK_networkState {
public:
    struct Item {
        int handle = -1;
        int kind = 0;  // VEK_VALUE_EVIDENCE, VEK_VALUE_PROPAGATED or VEK_VALUE_VIRTUAL
        int outcome = -1;
        double number = 0.0;  // NaN unless the evidence was given as a number
        bool controlled = false;
        std::vector<double> virtualEvidence;
    };

    // Records, in handle order, every node with evidence or propagated
    // evidence (and with VEK_STATE_VIRTUAL in flag, virtual evidence).
    VEK_networkState(VEK_network& net, int flag = 0);

    // Clears all evidence of the network and sets the recorded evidence
    // again; the first error stops it and is returned. Controlled values go
    // first (an intervention resets derived state elsewhere), then evidence
    // and virtual evidence in handle order, then propagated evidence that
    // the network did not derive again by itself.
    [[nodiscard]] int RestoreEvidence();

    int GetFlag() const { return flag_; }
    int GetCount() const { return static_cast<int>(items_.size()); }
    const std::vector<Item>& GetItems() const { return items_; }

private:
    VEK_network* net_;
    int flag_;
    std::vector<Item> items_;
};
