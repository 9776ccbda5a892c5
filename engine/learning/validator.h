// Scores a network as a classifier of chosen nodes on the records of a
// dataset: tested as it stands, or by cross-validation with the parameters
// re-learnt from the training folds. Per class node it keeps each record's
// posterior and derives accuracy, the confusion matrix, log-loss and ROC
// and precision-recall curves from them.
#pragma once

#include <utility>
#include <vector>

#include "learning/datasetMatch.h"

class VEK_dataset;
class VEK_network;

class VEK_validator {
public:
    // Points as (x, y) pairs: (false positive rate, true positive rate) for
    // ROC, (recall, precision) for precision-recall.
    struct Curve {
        std::vector<double> points;
        double auc = 0.0;
    };

    // net and data must outlive the validator; neither is changed by it
    // (failures are logged to net's logger).
    VEK_validator(VEK_network& net, const VEK_dataset& data, const std::vector<VEK_datasetMatch>& matching);

    // -2 for a node that is no matched node with outcomes, -32 when already
    // added.
    [[nodiscard]] int AddClassNode(int node);
    const std::vector<int>& GetClassNodes() const { return classNodes_; }

    // Each run replaces the results. Evidence of a record: the values of
    // every matched node other than the class nodes; its missing cells stay
    // unobserved. A record whose evidence is impossible gets a uniform
    // posterior. 0, or a negative status logged to the network.
    [[nodiscard]] int Test();
    // Records shuffled by seed into folds sizes differing by at most one;
    // each fold is predicted by the network with its tables re-learnt by EM
    // from the other folds (the network's own tables weighted as one record
    // of prior, so that no outcome becomes impossible). -2 when folds is
    // below 2 or above the record count.
    [[nodiscard]] int KFold(int folds, int seed);
    // A fold per record, in record order. With complete data and every
    // node a matched table, the whole data are counted once and each fold's
    // tables come from those counts less the record's own, the very tables
    // EM gives on the other records. Otherwise EM runs once per distinct
    // record (copies of a record share their training data) and predicts
    // all its copies.
    [[nodiscard]] int LeaveOneOut();

    bool HasResults() const { return hasResults_; }
    // Fold of each record in the last run; empty after Test.
    const std::vector<int>& GetFolds() const { return folds_; }

    // Results of the last run. -3 for a node that was not a class node then,
    // or before any run; -2 for a bad outcome.
    int GetOutcomeCount(int node) const;
    // One row of outcome probabilities per record.
    const std::vector<double>* GetPosteriors(int node) const;
    // The class value of each record as an outcome index, -1 when missing.
    const std::vector<int>* GetTrueOutcomes(int node) const;
    // Over the records whose class value is known; a record is predicted as
    // its most probable outcome (the first of equals). Accuracy and log-loss
    // are NaN when no record has a known class value.
    [[nodiscard]] int GetAccuracy(int node, double& accuracy) const;
    // Rows true outcomes, columns predicted, row-major.
    [[nodiscard]] int GetConfusionMatrix(int node, std::vector<int>& counts) const;
    // Mean of -ln p(true outcome), natural logarithm.
    [[nodiscard]] int GetLogLoss(int node, double& logLoss) const;
    // outcome is the positive class, scored by its posterior. Points from
    // the highest threshold down, equal scores taken together. ROC runs
    // from (0, 0) to (1, 1), area by trapezoids; precision-recall starts at
    // (0, 1) and its area is the average precision, the sum of each step's
    // recall gain times its precision. -2 when the records with known class
    // value are not of both kinds (positive and negative; positive for PR).
    [[nodiscard]] int GetRocCurve(int node, int outcome, Curve& curve) const;
    [[nodiscard]] int GetPrCurve(int node, int outcome, Curve& curve) const;

private:
    struct Result {
        int node = -1;
        int outcomes = 0;
        std::vector<double> posteriors;
        std::vector<int> truth;
    };
    [[nodiscard]] int Prepare();
    [[nodiscard]] int Predict(VEK_network& work, const std::vector<int>& records);
    [[nodiscard]] int CrossValidate(const std::vector<int>& fold, int folds);
    [[nodiscard]] int LearnAndPredict(const std::vector<char>& train, const std::vector<int>& test);
    bool CanCountFolds() const;
    [[nodiscard]] int LeaveOneOutByCounts();
    [[nodiscard]] int LeaveOneOutByGroups();
    const Result* Find(int node) const;
    [[nodiscard]] int Ranked(int node, int outcome, std::vector<std::pair<double, bool>>& ranked, int& positives) const;

    VEK_network& net_;
    const VEK_dataset& data_;
    std::vector<VEK_datasetMatch> matching_;
    std::vector<int> classNodes_;
    std::vector<int> values_;  // outcome index per matched column and record, column-major; -1 missing
    std::vector<Result> results_;
    bool hasResults_ = false;
    std::vector<int> folds_;
};
