// A partially directed graph over dataset columns: the equivalence class
// of DAGs that constraint-based learning yields. Each ordered pair holds
// an edge type: an arc a -> b is DIRECTED at (a, b) and NONE at (b, a); an
// undirected edge is UNDIRECTED both ways.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class VEK_dataset;
class VEK_network;

class VEK_pattern {
public:
    enum EdgeType { NONE = 0, UNDIRECTED = 1, DIRECTED = 2 };

    void SetSize(int size);
    int GetSize() const { return size_; }
    // No range checks: callers validate indices and types.
    int GetEdge(int a, int b) const { return edges_[Slot(a, b)]; }
    void SetEdge(int a, int b, int type);
    bool IsAdjacent(int a, int b) const { return edges_[Slot(a, b)] != NONE || edges_[Slot(b, a)] != NONE; }
    bool HasDirectedCycle() const;
    // Whether directed edges lead from one column to another.
    bool HasDirectedPath(int from, int to) const;
    // Directs a - b as a -> b unless that closes a directed cycle; returns
    // whether it did.
    bool OrientIfAcyclic(int a, int b);
    // Orients undirected edges by Meek's rules 1-3 until none applies.
    void ApplyMeekRules();
    // The equivalence class of a DAG (parents[c] lists c's parents): its
    // skeleton, its v-structures, and what Meek's rules then force.
    void FromDag(const std::vector<std::vector<int>>& parents);
    // Structural Hamming distance: the number of column pairs whose edge
    // differs (in presence only, or in presence and direction); -1 for
    // patterns of different sizes.
    int Distance(const VEK_pattern& other, bool skeletonOnly) const;

    // A DAG whose arcs include every directed edge and which adds no
    // v-structure the pattern lacks, when one exists; otherwise the
    // remaining undirected edges follow the order in which the columns
    // were eliminated. parents[c] lists c's parent columns. -11 when the
    // directed edges form a cycle.
    [[nodiscard]] int ToDag(std::vector<std::vector<int>>& parents) const;
    // That DAG fitted to data, whose columns must match the pattern's.
    [[nodiscard]] int ToNetwork(const VEK_dataset& data, VEK_network& net, double ess = 1.0,
                  std::string* errorMessage = nullptr) const;

private:
    size_t Slot(int a, int b) const { return static_cast<size_t>(a) * size_ + b; }
    int size_ = 0;
    std::vector<std::uint8_t> edges_;
};
