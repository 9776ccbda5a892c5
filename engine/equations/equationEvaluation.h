// Value of an equation node: the weighted samples that inference drew, their
// statistics, the probabilities of the intervals when the node was
// discretized, and continuous evidence.
#pragma once

#include <vector>

#include "network/nodeVal.h"

class VEK_equationEvaluation : public VEK_nodeVal {
public:
    VEK_equationEvaluation(VEK_network& net, int handle) : VEK_nodeVal(net, handle) {}

    VEK_nodeVal* Clone(VEK_network& net) const override;
    int GetType() const override { return VEK_EQUATIONEVALUATION; }

    // In this order: the interval probabilities when discretized; the mean
    // alone when every sample is the same; otherwise the samples.
    const VEK_Dmatrix* GetMatrix() const override;

    int GetEvidence() const override;
    [[nodiscard]] int GetEvidence(double& value) const override;
    [[nodiscard]] int SetEvidence(double value) override;
    // An interval of a discretized node, as its lower bound's midpoint value.
    [[nodiscard]] int SetEvidence(int outcome) override;
    [[nodiscard]] int ClearEvidence() override;
    [[nodiscard]] int GetMean(double& mean) const override;
    [[nodiscard]] int GetStdDev(double& sd) const override;

    // Written by inference.
    void SetSamples(std::vector<double> samples, double mean, double sd, double lo, double hi);
    void SetDiscretized(const std::vector<double>& probabilities);
    // A plate node of a dynamic network: the samples, mean and deviation of
    // every slice; the value is the samples of all slices joined.
    void SetTemporalSamples(std::vector<std::vector<double>> slices, std::vector<double> means,
                            std::vector<double> sds);
    bool IsTemporal() const { return !sliceCounts_.empty(); }
    const std::vector<int>& GetSliceSampleCounts() const { return sliceCounts_; }
    const std::vector<double>& GetTemporalMeans() const { return sliceMeans_; }
    const std::vector<double>& GetTemporalStdDevs() const { return sliceSds_; }
    bool IsDiscretized() const { return discretized_; }
    const std::vector<double>& GetSamples() const { return samples_; }
    double GetMin() const { return min_; }
    double GetMax() const { return max_; }

protected:
    void ResetResult() override;

private:
    std::vector<double> samples_;
    double mean_ = 0.0, sd_ = 0.0, min_ = 0.0, max_ = 0.0;
    bool discretized_ = false;
    std::vector<int> sliceCounts_;
    std::vector<double> sliceMeans_, sliceSds_;
    double evidence_ = 0.0;
    VEK_Dmatrix result_;
};
