// Unrolling a dynamic network into a static one.
//
// Every plate node becomes one node per slice, named id + "_" + slice (made
// unique with a further suffix when that id is taken); the other nodes keep
// their ids, handles, definitions and evidence. The copy of slice 0 is the
// plate node itself (same handle) with its static parents, anchor parents
// included. A copy in slice t >= 1 is a CPT node whose parents are the static
// parents other than anchors (plate ones from slice t) followed by the
// temporal parents of orders up to the order used in slice t (from slices
// t - order); its table is that order's temporal definition. Terminal nodes
// take their plate parents from the last slice. Evidence per slice becomes
// the copies' evidence.
#pragma once

#include <vector>

class VEK_network;

struct VEK_unrolledNode {
    int node;      // plate node in the dynamic network
    int slice;
    int unrolled;  // its handle in the unrolled network
};

// out receives the unrolled network; mapping one entry per plate node and
// slice, slice after slice, nodes in handle order within a slice.
[[nodiscard]] int VEK_Unroll(VEK_network& net, VEK_network& out, std::vector<VEK_unrolledNode>& mapping);
