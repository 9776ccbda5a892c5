// The older join tree, run by algorithm id 10 on each sub-network of a
// relevance split with mask 3. It is deliberately independent of TsJoinTree:
// moralisation on an adjacency matrix, triangulation by the smallest
// elimination weight, a maximum spanning tree over the separator sizes,
// evidence entered as 0/1 likelihoods over full potentials, and marginals
// read through precomputed index maps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class VEK_rNetwork;

// Undirected graph of n nodes as an n-by-n byte matrix.
class AdjMatrix {
public:
    explicit AdjMatrix(int n) : n_(n), m_(static_cast<size_t>(n) * static_cast<size_t>(n), 0) {}
    int Size() const { return n_; }
    bool Get(int a, int b) const { return m_[static_cast<size_t>(a) * static_cast<size_t>(n_) + static_cast<size_t>(b)] != 0; }
    void Set(int a, int b) {
        m_[static_cast<size_t>(a) * static_cast<size_t>(n_) + static_cast<size_t>(b)] = 1;
        m_[static_cast<size_t>(b) * static_cast<size_t>(n_) + static_cast<size_t>(a)] = 1;
    }
    // Every arc of the network, and an edge between every two parents of a node.
    void GraphMoralize(const VEK_rNetwork& net);

private:
    int n_;
    std::vector<unsigned char> m_;
};

class JointTree {
public:
    explicit JointTree(VEK_rNetwork& net);

    // Builds the tree, propagates and stores beliefs. Returns the number of
    // potentials (cliques and separators), or -42 when memory is short.
    [[nodiscard]] int Posterior();

private:
    struct Potential {
        std::vector<int> vars;   // node positions, the last varying fastest
        std::vector<int> sizes;
        std::vector<double> values;
        void Setup(const std::vector<int>& v, const std::vector<int>& s);
    };
    struct Link {
        int a = -1, b = -1;  // cliques; a is the parent side
        Potential sep;
        std::vector<int> mapA, mapB;  // clique entry -> separator entry
    };

    [[nodiscard]] bool WeightHeurTriangulate();
    void BuildTree();
    void FindFamilyHost();
    void IncoperateEvidence();
    void Propagate();
    void StoreBeliefs();

    // For every entry of big, the index of the matching entry of small.
    static void MakeMap(const Potential& big, const Potential& small, std::vector<int>& map);
    void PassMessage(Link& link, bool towardsA);

    VEK_rNetwork& net_;
    int n_ = 0;
    std::vector<std::vector<int>> cliques_;  // node positions, ascending
    std::vector<Potential> pots_;
    std::vector<Link> links_;
    std::vector<std::vector<int>> adjacentLinks_;
    std::vector<int> host_;  // per node: the clique holding its family
    std::vector<int> order_; // cliques from the root outwards
    std::vector<int> parentLink_;
};

// Solves one sub-network with JointTree; the number of potentials or -42.
[[nodiscard]] int Infer_Lauritzen_Spiegelhalter(VEK_rNetwork& net);
