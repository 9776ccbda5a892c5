// Parameter learning by Expectation-Maximization: fills the probability
// tables of an existing network from a dataset whose columns are matched to
// nodes, records with missing values included. Works on a copy of the
// network and writes the learnt tables back only at the end of a run.
#pragma once

#include <vector>

#include "learning/dataset.h"
#include "learning/datasetMatch.h"

class VEK_network;
class VEK_Dmatrix;

// Told of every iteration; returning false cancels the run.
class VEK_emProgress {
public:
    virtual ~VEK_emProgress() = default;
    virtual bool Tick(int iteration, double logLikelihood) = 0;
};

class VEK_em {
public:
    // -4, unchanged, while uniformize or randomize is set.
    [[nodiscard]] int SetEquivalentSampleSize(float ess);
    float GetEquivalentSampleSize() const { return ess_; }
    // Setting it clears randomize.
    void SetUniformizeParameters(bool on);
    bool GetUniformizeParameters() const { return uniformize_; }
    void SetRandomizeParameters(bool on) { randomize_ = on; }
    bool GetRandomizeParameters() const { return randomize_; }
    void SetSeed(int seed) { seed_ = seed; }
    int GetSeed() const { return seed_; }
    void SetRestartCount(int n) { restarts_ = n; }
    int GetRestartCount() const { return restarts_; }
    void SetTimeLimit(int seconds) { timeLimit_ = seconds; }
    int GetTimeLimit() const { return timeLimit_; }
    void SetRelevance(bool on) { relevance_ = on; }
    bool GetRelevance() const { return relevance_; }
    void SetAutoSlices(bool on) { autoSlices_ = on; }
    bool GetAutoSlices() const { return autoSlices_; }

    // 0 or a negative status (logged to the network). score, when given,
    // receives the log-likelihood of the data (natural logarithm, summed
    // over records). On failure the network keeps its tables.
    [[nodiscard]] int Learn(const VEK_dataset& data, VEK_network& net, const std::vector<VEK_datasetMatch>& matching,
              const std::vector<int>& fixedNodes = {}, double* score = nullptr, VEK_emProgress* progress = nullptr);

private:
    struct Run;
    [[nodiscard]] int LearnDisc(Run& run, double* score);
    bool CanCount(const Run& run) const;
    [[nodiscard]] int Count(Run& run, double* score);
    [[nodiscard]] int RandomRestarts(Run& run, double* best);
    [[nodiscard]] int StartTables(Run& run, VEK_network& work, std::vector<int>& learnable,
                                  std::vector<char>& isLearnable, std::vector<VEK_Dmatrix>& priors);
    static bool Converged(double previous, double ll);
    [[nodiscard]] int ExpMaxUntilConverged(Run& run, double* bestScore);

    float ess_ = 0.0f;
    bool uniformize_ = false;
    bool randomize_ = false;
    int seed_ = 0;
    int restarts_ = 1;
    int timeLimit_ = 0;
    bool relevance_ = true;
    bool autoSlices_ = false;
};
