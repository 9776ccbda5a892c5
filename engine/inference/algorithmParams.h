// Parameter records of the sampling, loopy propagation and annealed MAP
// algorithms, stored with each network.
#pragma once

struct VEK_EPISParams {
    int propagationLength = 5;
    int numStateSmall = 5;
    int numStateMedium = 8;
    int numStateBig = 20;
    double stateSmallEpsil = 0.006;
    double stateMediumEpsil = 0.0001;
    double stateBigEpsil = 5e-05;
    double stateOtherwise = 5e-05;

    // The epsilon for "otherwise" is deliberately not checked.
    bool IsValid() const {
        return propagationLength >= 1 && numStateSmall < numStateMedium && numStateMedium < numStateBig &&
               stateSmallEpsil >= stateMediumEpsil && stateMediumEpsil >= stateBigEpsil;
    }
    bool Equals(const VEK_EPISParams& o) const {
        return propagationLength == o.propagationLength && numStateSmall == o.numStateSmall &&
               numStateMedium == o.numStateMedium && numStateBig == o.numStateBig &&
               stateSmallEpsil == o.stateSmallEpsil && stateMediumEpsil == o.stateMediumEpsil &&
               stateBigEpsil == o.stateBigEpsil && stateOtherwise == o.stateOtherwise;
    }
};

// Loopy belief propagation runs sweeps (forward and backward over the nodes)
// until no message moves by more than the tolerance, or the sweep cap is
// reached. Damping keeps that share of each message's previous value, which
// settles oscillating messages on graphs with strong loops.
struct VEK_LBPParams {
    int propagationLength = 5;
    int maxIterations = 1000;
    double tolerance = 1e-9;
    double damping = 0.0;
    bool IsValid() const {
        return propagationLength >= 1 && maxIterations >= 1 && tolerance >= 0.0 && damping >= 0.0 && damping < 1.0;
    }
};

struct VEK_AnnealedMAPParams {
    double speed = 1.1;
    double tMin = 0.02;
    double tInit = 0.1;
    double kReheat = 0.1;
    int kMAP = 1;
    double kRFactor = 0.98;
    int stopAfter = 3000;
    int iterationsPerTemperature = 100;
};
