// The steps of EM taken apart, so that the data may be split into parts
// that are counted separately (in other processes or on other machines) and
// whose expected counts are then added: the records read as outcome
// indices and grouped, one expectation pass, the maximization of one table,
// and VEK_emStatistics, a working copy of a network that computes the
// expected counts of any part of the data and turns a total into tables.
// VEK_em runs on the same pieces, so one pass over all the data here gives
// the very tables one EM iteration gives.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "inference/randGen.h"
#include "learning/dataset.h"
#include "learning/datasetMatch.h"
#include "network/dmatrix.h"

class VEK_network;
class VEK_logger;
class VEK_expectedCounts;
class VEK_tiedTables;

// The matched cells of a dataset as outcome indices (-1 when missing),
// column by column, and the distinct records with their counts.
struct VEK_emRecords {
    // Every matched value must be an outcome of its node. A column with
    // state names is paired with its node by name: outcome id first, then
    // label. Bare numbers are outcome indices. 0 or a logged status.
    [[nodiscard]] int Read(const VEK_dataset& data, VEK_network& net, const std::vector<VEK_datasetMatch>& matching);
    // Equal records have equal posteriors: each distinct one is visited
    // once, weighted by how often it occurs (found by hashing).
    void Group();

    const int* Column(size_t k) const { return values.data() + k * static_cast<size_t>(records); }
    bool SameRecord(int a, int b) const;

    size_t columns = 0;
    int records = 0;
    std::vector<int> values;
    std::vector<char> complete;  // per column: no missing cell
    std::vector<int> cases;      // the distinct records, one after the other
    std::vector<double> weights;
    std::vector<int> firstRecord;
};

// Only tables can be learnt; other chance nodes must be fixed (by handle).
[[nodiscard]] int VEK_emCheckNodes(VEK_network& net, const std::vector<char>& fixed);
// Discrete data for a discrete network, a valid one-to-one matching.
[[nodiscard]] int VEK_emCheckColumns(VEK_network& net, const VEK_dataset& data, const std::vector<VEK_datasetMatch>& matching);

// Adds ess times the prior to the counts, then makes every column (the
// node's own outcomes, the last dimension) a distribution. A column that
// no record reached keeps the prior's.
void VEK_emMaximize(double* counts, const double* prior, int size, int states, double ess);

// Puts learnt tables, made beforehand, into the network: either all of
// them or, when one does not fit its node, none. The swaps cannot fail, so
// a run that failed earlier has left every table alone.
[[nodiscard]] int VEK_emCommitTables(VEK_network& net, const std::vector<int>& handles, std::vector<VEK_Dmatrix>& tables);

// One expectation pass over the grouped records into counts; ll receives
// the log-likelihood. 0 or a status (logged, but for -42).
[[nodiscard]] int VEK_emPass(const VEK_emRecords& records, VEK_expectedCounts& counts, VEK_logger& log, bool relevance,
               double& ll);

class VEK_emStatistics {
public:
    enum class Start { kAsTheyStand, kUniform, kRandom };

    VEK_emStatistics();
    ~VEK_emStatistics();
    VEK_emStatistics(const VEK_emStatistics&) = delete;
    VEK_emStatistics& operator=(const VEK_emStatistics&) = delete;

    // Copies the network without evidence or targets; every node not fixed
    // is learnt, its current table being its prior. A dynamic network is
    // also unrolled to slices slices (0: its own count) and its tied tables
    // are learnt: each node's ordinary definition, then its temporal ones
    // (see VEK_tiedTables). 0 or a status, logged to the working copy.
    [[nodiscard]] int Init(const VEK_network& net, const std::vector<int>& fixedNodes, float ess, bool relevance, int slices = 0);

    // New start tables for the learnt nodes, which become their priors.
    // A table that cannot be restarted (logged) leaves them all as they were.
    [[nodiscard]] int Restart(Start start, VEK_randGen& gen);

    // The node of each learnt table (handles of the working copy), the
    // table's temporal order (0: the ordinary definition), and where the
    // counts of each begin in a flat array of CountSize() items.
    const std::vector<int>& Learnable() const { return learnable_; }
    int TableOrder(size_t i) const;
    const std::vector<size_t>& Offsets() const { return offsets_; }
    size_t CountSize() const { return size_; }

    // The expected counts of the data (flat, as above) under the current
    // tables, and their log-likelihood; a dynamic network's matching names
    // plate nodes with their slices. The trees are compiled once per set
    // of matched nodes and observation pattern, then reused. 0 or a status
    // logged to the working copy.
    [[nodiscard]] int EStep(const VEK_dataset& data, const std::vector<VEK_datasetMatch>& matching, std::vector<double>& counts,
              double& ll);
    // The same in two steps: the matched columns read into records (the
    // only step that touches the data set), with the nodes they fill in
    // matched (of the unrolled copy for a dynamic network), then, once the
    // records are grouped, the pass.
    [[nodiscard]] int ReadRecords(const VEK_dataset& data, const std::vector<VEK_datasetMatch>& matching, VEK_emRecords& records,
                    std::vector<int>& matched);
    [[nodiscard]] int EStep(const VEK_emRecords& records, const std::vector<int>& matched, std::vector<double>& counts, double& ll);
    // Turns a total of counts into the current tables; total is consumed.
    void MStep(std::vector<double>& total);

    // The current tables or priors, flat as the counts.
    void GetTables(std::vector<double>& out, bool priors) const;
    // -2 when the size is wrong.
    [[nodiscard]] int SetTables(const std::vector<double>& in, bool priors);

    // Writes the current tables of the learnt nodes into net, which must have
    // the working copy's nodes (by id) and table shapes: all or none.
    [[nodiscard]] int Apply(VEK_network& net) const;

    // The slices a dynamic network is unrolled to; 0 for a static one.
    int GetSliceCount() const;

    VEK_network& Work() { return *work_; }
    const VEK_network& Work() const { return *work_; }
    float GetEquivalentSampleSize() const { return ess_; }
    bool GetRelevance() const { return relevance_; }

private:
    // A status of the unrolled copy, its message passed on to the working copy.
    int Failed(int code);
    struct Compiled;
    std::unique_ptr<VEK_network> work_;
    float ess_ = 0.0f;
    bool relevance_ = true;
    std::vector<int> learnable_;
    std::vector<size_t> offsets_;
    size_t size_ = 0;
    std::vector<VEK_Dmatrix> priors_;
    std::vector<std::unique_ptr<Compiled>> compiled_;
    std::unique_ptr<VEK_tiedTables> tied_;  // only for dynamic networks
};
