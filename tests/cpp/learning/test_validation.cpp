#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "../inference/infTestUtil.h"
#include "emTestUtil.h"
#include "learning/dataset.h"
#include "learning/discretizer.h"
#include "learning/validator.h"
#include "network/status.h"

namespace {

using inftest::AddNode;
using inftest::SetTable;

// A numeric column of the given cells; NaN is missing.
VEK_dataset Numbers(const std::vector<float>& cells) {
    VEK_dataset d;
    d.AddFloatVariable("x");
    for (size_t r = 0; r < cells.size(); ++r) {
        d.AddEmptyRecord();
        if (!std::isnan(cells[r])) d.SetFloat(0, static_cast<int>(r), cells[r]);
    }
    return d;
}

TEST(Discretize, EdgesAndCellsOfEachAlgorithm) {
    const float nan = std::nanf("");
    const std::vector<float> cells = {11, 1, 20, nan, 3, 10, 2};
    // Ward merges 1|2, then 10|11, then {1,2}|3 (increases 0.5, 0.5, 1.5;
    // the next, 3|{10,11}, would cost 37.5).
    const struct {
        int algorithm;
        std::vector<double> edges;
        std::vector<int> intervals;
    } cases[] = {
        {VEK_DISCRETIZE_HIERARCHICAL, {6.5, 15.5}, {1, 0, 2, -1, 0, 1, 0}},
        {VEK_DISCRETIZE_UNIFORM_WIDTH, {1 + 19.0 / 3, 1 + 38.0 / 3}, {1, 0, 2, -1, 0, 1, 0}},
        {VEK_DISCRETIZE_UNIFORM_COUNT, {2.5, 10.5}, {2, 0, 2, -1, 1, 1, 0}},
    };
    for (const auto& c : cases) {
        VEK_dataset d = Numbers(cells);
        std::vector<double> edges;
        ASSERT_EQ(d.Discretize(0, c.algorithm, 3, "bin", edges), VEK_OKAY);
        ASSERT_EQ(edges.size(), 2u);
        for (size_t i = 0; i < 2; ++i) EXPECT_NEAR(edges[i], c.edges[i], 1e-12) << c.algorithm;
        EXPECT_TRUE(d.IsDiscrete(0));
        EXPECT_EQ(d.GetVariable(0).intData, c.intervals) << c.algorithm;
        EXPECT_EQ(d.GetStateNames(0), (std::vector<std::string>{"bin0", "bin1", "bin2"}));
    }
    // Ties stay together: the gap nearest to the middle of 1,1,1,1,2,3 is 1|2.
    VEK_dataset tied = Numbers({1, 1, 1, 1, 2, 3});
    std::vector<double> edges;
    ASSERT_EQ(tied.Discretize(0, VEK_DISCRETIZE_UNIFORM_COUNT, 2, "", edges), VEK_OKAY);
    EXPECT_EQ(edges, std::vector<double>{1.5});
    EXPECT_TRUE(tied.GetStateNames(0).empty());
}

TEST(Discretize, RefusesAndKeepsTheColumn) {
    VEK_dataset d = Numbers({1, 2, 3});
    d.AddFloatVariable("one");
    d.AddFloatVariable("none");
    d.AddIntVariable("named");
    for (int r = 0; r < 3; ++r) d.SetFloat(1, r, 4.0f);
    d.SetStateNames(3, {"a", "b"});
    std::vector<double> edges;
    std::string message;
    EXPECT_EQ(d.Discretize(0, VEK_DISCRETIZE_HIERARCHICAL, 1, "", edges, &message), VEK_OUT_OF_RANGE);
    EXPECT_EQ(d.Discretize(0, 3, 2, "", edges, &message), VEK_OUT_OF_RANGE);
    EXPECT_EQ(d.Discretize(1, VEK_DISCRETIZE_HIERARCHICAL, 2, "", edges, &message), VEK_OUT_OF_RANGE);
    EXPECT_EQ(message, "Variable 'one' holds a single value and can't be split into intervals");
    EXPECT_EQ(d.Discretize(2, VEK_DISCRETIZE_UNIFORM_WIDTH, 2, "", edges, &message), VEK_OUT_OF_RANGE);
    EXPECT_EQ(message, "Variable 'none' has no values to discretize");
    EXPECT_EQ(d.Discretize(3, VEK_DISCRETIZE_UNIFORM_WIDTH, 2, "", edges, &message), VEK_WRONG_NODE_TYPE);
    EXPECT_EQ(d.Discretize(4, VEK_DISCRETIZE_UNIFORM_WIDTH, 2, "", edges, &message), VEK_OUT_OF_RANGE);
    for (int v = 0; v < 3; ++v) EXPECT_FALSE(d.IsDiscrete(v));
    EXPECT_EQ(d.GetVariable(0).floatData, (std::vector<float>{1, 2, 3}));
    EXPECT_TRUE(edges.empty());
}

// A -> C <- B, C -> D: C is the class, predicted from A, B and D.
struct Classified {
    VEK_network net;
    int a, b, c, d;
    Classified() {
        a = AddNode(net, "A", 2);
        b = AddNode(net, "B", 3);
        c = AddNode(net, "C", 2);
        d = AddNode(net, "D", 2);
        net.AddArc(a, c);
        net.AddArc(b, c);
        net.AddArc(c, d);
        SetTable(net, a, {0.4, 0.6});
        SetTable(net, b, {0.2, 0.5, 0.3});
        SetTable(net, c, {0.9, 0.1, 0.6, 0.4, 0.3, 0.7, 0.8, 0.2, 0.5, 0.5, 0.1, 0.9});
        SetTable(net, d, {0.75, 0.25, 0.2, 0.8});
    }
    VEK_dataset Sample(int records, double missingRate) { return emtest::Sample(net, records, 7, missingRate); }
    std::vector<VEK_datasetMatch> Match(const VEK_dataset& data) {
        std::vector<VEK_datasetMatch> m;
        EXPECT_EQ(data.MatchNetwork(net, m), VEK_OKAY);
        return m;
    }
    // P(C | the record's other observed cells), by enumeration.
    std::vector<double> Posterior(const VEK_network& model, const VEK_dataset& data, int r) {
        std::map<int, int> evidence;
        for (int h : {a, b, d}) {
            if (!data.IsMissing(h, r)) evidence[h] = data.GetInt(h, r);
        }
        return inftest::Enumerate(model, evidence).posterior.at(c);
    }
};

TEST(MatchNetwork, PairsByIdAndReportsEveryMismatch) {
    Classified m;
    VEK_dataset data;
    data.AddIntVariable("extra");
    data.AddIntVariable("D");
    data.AddIntVariable("C");
    data.AddFloatVariable("A");
    data.AddIntVariable("B");
    data.AddEmptyRecord();
    data.SetStateNames(2, {"s1", "s0"});
    data.SetStateNames(4, {"s0", "other"});
    std::vector<VEK_datasetMatch> matching = {{9, 9, 9}};
    std::string message;
    EXPECT_EQ(data.MatchNetwork(m.net, matching, &message), VEK_OUT_OF_RANGE);
    EXPECT_EQ(message, "Columns do not fit their nodes: column 'A' is continuous but node 'A' is discrete; "
                       "state 'other' of column 'B' is not an outcome of node 'B'");
    EXPECT_EQ(matching, (std::vector<VEK_datasetMatch>{{9, 9, 9}}));
    data.RemoveVariable(4);
    data.RemoveVariable(3);
    data.SetInt(1, 0, 2);  // D has two outcomes
    EXPECT_EQ(data.MatchNetwork(m.net, matching, &message), VEK_OUT_OF_RANGE);
    data.SetInt(1, 0, 1);
    ASSERT_EQ(data.MatchNetwork(m.net, matching), VEK_OKAY);
    EXPECT_EQ(matching, (std::vector<VEK_datasetMatch>{{m.d, 0, 1}, {m.c, 0, 2}}));
    data.SetId(1, "x");
    data.SetId(2, "y");
    EXPECT_EQ(data.MatchNetwork(m.net, matching), VEK_NO_ITEM);
}

TEST(Validator, TestPosteriorsAndScoresAgreeWithEnumeration) {
    Classified m;
    const VEK_dataset data = m.Sample(400, 0.15);
    VEK_validator v(m.net, data, m.Match(data));
    EXPECT_EQ(v.Test(), VEK_NO_ITEM);  // no class node yet
    EXPECT_EQ(v.AddClassNode(m.c), VEK_OKAY);
    EXPECT_EQ(v.AddClassNode(m.c), VEK_DUPLICATED_IDENTIFIER);
    ASSERT_EQ(v.Test(), VEK_OKAY);
    const std::vector<double>& post = *v.GetPosteriors(m.c);
    int known = 0, correct = 0;
    double loss = 0.0, wins = 0.0;
    std::vector<int> confusion(4, 0);
    std::vector<double> pos, neg;  // scores of outcome 1
    for (int r = 0; r < data.GetNumberOfRecords(); ++r) {
        const std::vector<double> p = m.Posterior(m.net, data, r);
        EXPECT_NEAR(post[2 * r], p[0], 1e-9);
        EXPECT_NEAR(post[2 * r + 1], p[1], 1e-9);
        if (data.IsMissing(m.c, r)) continue;
        const int truth = data.GetInt(m.c, r), predicted = p[1] > p[0] ? 1 : 0;
        ++known;
        correct += truth == predicted;
        ++confusion[2 * truth + predicted];
        loss -= std::log(p[truth]);
        (truth == 1 ? pos : neg).push_back(p[1]);
    }
    // AUC as the chance that a positive outranks a negative (ties half).
    for (double x : pos) {
        for (double y : neg) wins += std::abs(x - y) < 1e-12 ? 0.5 : x > y;
    }
    double accuracy, logLoss;
    std::vector<int> counts;
    VEK_validator::Curve roc, pr;
    ASSERT_EQ(v.GetAccuracy(m.c, accuracy), VEK_OKAY);
    ASSERT_EQ(v.GetConfusionMatrix(m.c, counts), VEK_OKAY);
    ASSERT_EQ(v.GetLogLoss(m.c, logLoss), VEK_OKAY);
    ASSERT_EQ(v.GetRocCurve(m.c, 1, roc), VEK_OKAY);
    ASSERT_EQ(v.GetPrCurve(m.c, 1, pr), VEK_OKAY);
    EXPECT_DOUBLE_EQ(accuracy, static_cast<double>(correct) / known);
    EXPECT_EQ(counts, confusion);
    EXPECT_NEAR(logLoss, loss / known, 1e-9);
    EXPECT_NEAR(roc.auc, wins / (pos.size() * neg.size()), 1e-9);
    EXPECT_EQ(std::vector<double>(roc.points.end() - 2, roc.points.end()), (std::vector<double>{1.0, 1.0}));
    EXPECT_DOUBLE_EQ(pr.points[pr.points.size() - 2], 1.0);  // full recall at the lowest threshold
    EXPECT_DOUBLE_EQ(pr.points.back(), static_cast<double>(pos.size()) / known);
    EXPECT_EQ(v.GetRocCurve(m.c, 2, roc), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v.GetRocCurve(m.a, 0, roc), VEK_NO_ITEM);
}

// Each fold is predicted by tables counted from the other folds, with the
// original tables as one record of prior.
TEST(Validator, KFoldPartitionsAndRelearnsFromTheOtherFolds) {
    Classified m;
    const VEK_dataset data = m.Sample(50, 0.0);
    VEK_validator v(m.net, data, m.Match(data));
    v.AddClassNode(m.c);
    EXPECT_EQ(v.KFold(1, 3), VEK_OUT_OF_RANGE);
    EXPECT_EQ(v.KFold(51, 3), VEK_OUT_OF_RANGE);
    ASSERT_EQ(v.KFold(3, 3), VEK_OKAY);
    const std::vector<int>& folds = v.GetFolds();
    ASSERT_EQ(folds.size(), 50u);
    std::vector<int> sizes(3, 0);
    for (int f : folds) ++sizes.at(static_cast<size_t>(f));
    std::sort(sizes.begin(), sizes.end());
    EXPECT_EQ(sizes, (std::vector<int>{16, 17, 17}));

    for (int f = 0; f < 3; ++f) {
        VEK_network learnt(m.net);
        for (int h : {m.a, m.b, m.c, m.d}) {
            const VEK_Dmatrix& prior = *m.net.GetDef(h)->GetMatrix();
            const int own = prior.GetLastDimensionSize();
            std::vector<double> table(prior.Items(), prior.Items() + prior.GetSize());
            for (int r = 0; r < 50; ++r) {
                if (folds[r] == f) continue;
                int column = 0;
                const VEK_intArray& parents = m.net.GetNode(h)->Parents();
                for (int k = 0; k < parents.GetSize(); ++k) {
                    column = column * m.net.GetDef(parents[k])->GetNumberOfOutcomes() + data.GetInt(parents[k], r);
                }
                table[static_cast<size_t>(column * own + data.GetInt(h, r))] += 1.0;
            }
            for (size_t i = 0; i < table.size(); i += own) {
                double sum = 0.0;
                for (int j = 0; j < own; ++j) sum += table[i + j];
                for (int j = 0; j < own; ++j) table[i + j] /= sum;
            }
            SetTable(learnt, h, table);
        }
        for (int r = 0; r < 50; ++r) {
            if (folds[r] != f) continue;
            const std::vector<double> p = m.Posterior(learnt, data, r);
            EXPECT_NEAR((*v.GetPosteriors(m.c))[2 * r], p[0], 1e-9) << r;
        }
    }
}

// Leave-one-out by subtracting each record's counts (complete data) or by
// one EM per distinct record (missing cells) against k-fold with a fold
// per record, which runs EM on the other records for each one. With D a
// class node too, C's blanket is not observed and beliefs are updated.
TEST(Validator, LeaveOneOutEqualsOneFoldPerRecord) {
    const struct {
        double missing;
        bool twoClasses;
    } cases[] = {{0.0, false}, {0.0, true}, {0.2, true}};
    for (const auto& t : cases) {
        Classified m;
        const VEK_dataset data = m.Sample(40, t.missing);
        VEK_validator v(m.net, data, m.Match(data));
        std::vector<int> classes = {m.c};
        if (t.twoClasses) classes.push_back(m.d);
        for (int c : classes) v.AddClassNode(c);
        ASSERT_EQ(v.KFold(40, 5), VEK_OKAY);
        std::vector<std::vector<double>> slow;
        for (int c : classes) slow.push_back(*v.GetPosteriors(c));
        ASSERT_EQ(v.LeaveOneOut(), VEK_OKAY);
        for (size_t k = 0; k < classes.size(); ++k) {
            const std::vector<double>& fast = *v.GetPosteriors(classes[k]);
            for (size_t i = 0; i < fast.size(); ++i) EXPECT_NEAR(fast[i], slow[k][i], 1e-12) << t.missing << " " << i;
        }
        for (int r = 0; r < 40; ++r) EXPECT_EQ(v.GetFolds()[r], r);
    }
}

}  // namespace
