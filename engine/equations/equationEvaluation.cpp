#include "equations/equationEvaluation.h"

#include <algorithm>
#include <cmath>

#include "equations/equation.h"
#include "network/network.h"
#include "network/status.h"

VEK_nodeVal* VEK_equationEvaluation::Clone(VEK_network& net) const {
    auto* v = new VEK_equationEvaluation(*this);
    v->Rebind(net, Handle());
    return v;
}

const VEK_Dmatrix* VEK_equationEvaluation::GetMatrix() const { return &result_; }

int VEK_equationEvaluation::GetEvidence() const {
    if (!IsEvidence()) return VEK_OUT_OF_RANGE;
    const auto* eq = dynamic_cast<const VEK_equation*>(Def());
    return eq && !eq->GetDiscretization().empty() ? eq->Discretize(evidence_) : VEK_OUT_OF_RANGE;
}

int VEK_equationEvaluation::GetEvidence(double& value) const {
    if (!IsEvidence()) return VEK_OUT_OF_RANGE;
    value = evidence_;
    return VEK_OKAY;
}

int VEK_equationEvaluation::SetEvidence(double value) {
    if (!std::isfinite(value)) return VEK_OUT_OF_RANGE;
    VEK_updateImmediateContext scope(Network());
    const bool had = IsEvidence();
    const double old = evidence_;
    evidence_ = value;
    SetFlags(VEK_VALUE_EVIDENCE);
    ClearFlags(VEK_VALUE_VALID);
    ResetResult();
    const int res = Network().RelevanceContEvidenceChanged(Handle());
    if (res < 0) {
        evidence_ = old;
        if (!had) ClearFlags(VEK_VALUE_EVIDENCE);
        return res;
    }
    return VEK_OKAY;
}

int VEK_equationEvaluation::SetEvidence(int outcome) {
    const auto* eq = dynamic_cast<const VEK_equation*>(Def());
    if (!eq || eq->GetDiscretization().empty()) return VEK_WRONG_NODE_TYPE;
    if (outcome < 0 || outcome >= static_cast<int>(eq->GetDiscretization().size())) return VEK_OUT_OF_RANGE;
    return SetEvidence(0.5 * (eq->IntervalLower(outcome) + eq->GetDiscretization()[outcome].upper));
}

int VEK_equationEvaluation::ClearEvidence() {
    if (!IsEvidence()) return VEK_OUT_OF_RANGE;
    VEK_updateImmediateContext scope(Network());
    ClearFlags(VEK_VALUE_EVIDENCE | VEK_VALUE_VALID);
    ResetResult();
    (void)Network().RelevanceContEvidenceChanged(Handle());  // the node's own handle is valid
    return VEK_OKAY;
}

int VEK_equationEvaluation::GetMean(double& mean) const {
    mean = IsEvidence() ? evidence_ : mean_;
    return VEK_OKAY;
}

int VEK_equationEvaluation::GetStdDev(double& sd) const {
    sd = IsEvidence() ? 0.0 : sd_;
    return VEK_OKAY;
}

void VEK_equationEvaluation::SetSamples(std::vector<double> samples, double mean, double sd, double lo, double hi) {
    samples_ = std::move(samples);
    sliceCounts_.clear();
    mean_ = mean;
    sd_ = sd;
    min_ = lo;
    max_ = hi;
    discretized_ = false;
    const int n = sd == 0.0 ? 1 : static_cast<int>(samples_.size());
    if (result_.Setup(&n, 1) < 0) result_.Clear();  // no samples: an empty result
    if (sd == 0.0) result_[0] = mean;
    else result_.FillFrom(samples_.data());
}

void VEK_equationEvaluation::SetTemporalSamples(std::vector<std::vector<double>> slices, std::vector<double> means,
                                                std::vector<double> sds) {
    samples_.clear();
    sliceCounts_.clear();
    for (const std::vector<double>& s : slices) {
        samples_.insert(samples_.end(), s.begin(), s.end());
        sliceCounts_.push_back(static_cast<int>(s.size()));
    }
    discretized_ = false;
    mean_ = sd_ = 0.0;
    min_ = max_ = samples_.empty() ? 0.0 : samples_[0];
    for (double x : samples_) {
        mean_ += x;
        min_ = std::min(min_, x);
        max_ = std::max(max_, x);
    }
    mean_ /= std::max<size_t>(1, samples_.size());
    for (double x : samples_) sd_ += (x - mean_) * (x - mean_);
    sd_ = std::sqrt(sd_ / std::max<size_t>(1, samples_.size()));
    sliceMeans_ = std::move(means);
    sliceSds_ = std::move(sds);
    const int n = static_cast<int>(samples_.size());
    if (result_.Setup(&n, 1) < 0) result_.Clear();  // no samples: an empty result
    result_.FillFrom(samples_.data());
}

void VEK_equationEvaluation::SetDiscretized(const std::vector<double>& probabilities) {
    discretized_ = true;
    samples_.clear();
    const int count = static_cast<int>(probabilities.size());
    if (result_.Setup(&count, 1) < 0) result_.Clear();  // no probabilities: an empty result
    result_.FillFrom(probabilities.data());
    // Mean and deviation over the interval midpoints.
    const auto* eq = dynamic_cast<const VEK_equation*>(Def());
    mean_ = sd_ = 0.0;
    double sq = 0.0;
    for (size_t k = 0; eq && k < probabilities.size(); ++k) {
        const double mid = 0.5 * (eq->IntervalLower(static_cast<int>(k)) + eq->GetDiscretization()[k].upper);
        mean_ += probabilities[k] * mid;
        sq += probabilities[k] * mid * mid;
    }
    sd_ = std::sqrt(std::max(0.0, sq - mean_ * mean_));
    min_ = eq ? eq->GetLower() : 0.0;
    max_ = eq ? eq->GetUpper() : 0.0;
}

void VEK_equationEvaluation::ResetResult() {
    samples_.clear();
    sliceCounts_.clear();
    sliceMeans_.clear();
    sliceSds_.clear();
    samples_.shrink_to_fit();
    result_.Clear();
    discretized_ = false;
    mean_ = sd_ = min_ = max_ = 0.0;
}
