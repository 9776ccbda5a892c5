// The evidence a node holds, taken so that it can be put back: queries set
// evidence for one call only, and pickling carries it across processes.
#pragma once

#include <vector>

#include "network/network.h"
#include "network/nodeVal.h"

struct EvidenceSnapshot {
    enum Kind { NONE, OUTCOME, NUMBER, VIRTUAL };
    int handle = -1;
    Kind kind = NONE;
    int outcome = -1;
    double number = 0.0;
    std::vector<double> likelihoods;

    static EvidenceSnapshot Take(const VEK_network& net, int handle) {
        EvidenceSnapshot s;
        s.handle = handle;
        const VEK_nodeVal* val = net.GetVal(handle);
        if (val == nullptr) return s;
        if (val->IsVirtualEvidence() && val->GetVirtualEvidence(s.likelihoods) == 0) {
            s.kind = VIRTUAL;
        } else if (val->IsRealEvidence()) {
            // Evidence given as a number keeps the number; the outcome follows from it.
            if (val->GetEvidence(s.number) == 0) {
                s.kind = NUMBER;
            } else {
                s.outcome = val->GetEvidence();
                if (s.outcome >= 0) s.kind = OUTCOME;
            }
        }
        return s;
    }

    // Clears whatever the node holds now, then sets the evidence taken.
    int Restore(VEK_network& net) const {
        VEK_nodeVal* val = net.GetVal(handle);
        if (val == nullptr) return -3;
        if (val->IsVirtualEvidence()) (void)val->ClearVirtualEvidence();  // present, so they clear
        if (val->IsRealEvidence()) (void)val->ClearEvidence();
        switch (kind) {
            case OUTCOME: return val->SetEvidence(outcome);
            case NUMBER: return val->SetEvidence(number);
            case VIRTUAL: return val->SetVirtualEvidence(likelihoods);
            default: return 0;
        }
    }
};
