// Carries evidence across a definition type change to the new value.
#pragma once

#include <vector>

class VEK_valXformContext {
public:
    int evidence = -1;          // outcome index, -1 for none
    bool evidenceAsNumber = false;
    double number = 0.0;        // evidence given as a number
    bool hasVirtual = false;
    std::vector<double> virtualEvidence;
};
