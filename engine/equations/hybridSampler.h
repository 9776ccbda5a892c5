// Inference in networks with equation nodes.
//
// Sampling (every algorithm but the exact ones, and the exact ones when some
// equation node has no discretization): likelihood weighting in topological
// order. Discrete nodes draw from their tables, equation nodes evaluate
// their expressions; hard evidence on a discrete node and continuous
// evidence on an equation node fix the value and weigh the sample by its
// probability or density (an equation with evidence must then have a
// density: a distribution, possibly shifted or scaled by deterministic
// terms). A sample in which some expression has no value (division by zero,
// a domain error) is rejected and counted; the run fails with -5 only when
// fewer than one sample in a hundred survives or the weights vanish.
//
// Discretization (the exact algorithms, when every equation node has a
// discretization): each equation node gets a table over its parents' states
// by sampling its expression discretization_sample_count times per parent
// configuration, continuous parents drawn uniformly within their interval;
// the discretized network goes to the join tree.
#pragma once

class VEK_network;

[[nodiscard]] int VEK_updateHybrid(VEK_network& net);

// The discretization method (called by VEK_updateHybrid).
[[nodiscard]] int VEK_updateDiscretized(VEK_network& net);

// Fills the discretized table of every equation node (parents first).
[[nodiscard]] int VEK_discretizeEquations(VEK_network& net);
