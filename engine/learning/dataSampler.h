// Records drawn from a network: the data that learning is tested and
// measured on when no real data is at hand.
#pragma once

class VEK_dataset;
class VEK_network;
class VEK_randGen;

// Replaces out with records forward-sampled from net's tables, one int
// column per node (named after it, in handle order), each cell left missing
// with probability missingRate. Every node must have a probability table:
// returns -51 for decisions, utilities and the like, 0 otherwise.
[[nodiscard]] int VEK_sampleDataset(const VEK_network& net, int records, VEK_randGen& gen, double missingRate, VEK_dataset& out);
