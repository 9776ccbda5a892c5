// The inference settings of a network, held and copied as one value.
#pragma once

#include "inference/algorithmParams.h"

struct VEK_inferenceSettings {
    // What network files hold: a successful read takes these over, the rest
    // stays with the network that reads.
    struct Stored {
        int numSamples = 10000;
        int numDiscSamples = 10000;
        VEK_EPISParams epis;
        bool zeroAvoidance = true;
        bool outlierRejection = false;
        bool noisyDecomp = false;
        int noisyDecompLimit = 4;
        int randSeed = 0;
    };

    // The defaults use the algorithm ids, flag bits and relevance events,
    // which network.h defines.
    VEK_inferenceSettings();

    int bnAlgorithm;
    int idAlgorithm;
    unsigned flags;
    unsigned relevanceMask;
    VEK_LBPParams lbp;
    VEK_AnnealedMAPParams annealedMap;
    Stored stored;
};
