// Multi-attribute utility node: combines the utilities of its utility and
// MAU parents, possibly differently for each combination of its decision
// parents' options.
//
// The weights table has one dimension per parent with discrete outcomes
// (decisions), in parent order, and a last dimension with one weight per
// utility or MAU parent, in parent order (a single unused weight while there
// is none). Expressions, when given, replace the weighted sum; they are kept
// as text.
#pragma once

#include <string>
#include <vector>

#include "network/tableDef.h"

class VEK_mau : public VEK_tableDef<VEK_nodeDef> {
public:
    VEK_mau(VEK_network& net, int handle);
    // Nothing of the old definition carries over: every weight is 1.0.
    explicit VEK_mau(const VEK_nodeXformContext& ctx);
    VEK_mau(const VEK_mau& other) = default;

    VEK_nodeDef* Clone(VEK_network& net) const override;
    VEK_nodeVal* CreateValue() const override;
    VEK_nodeVal* CreateValue(const VEK_valXformContext& ctx) const override;
    int GetType() const override { return VEK_MAU; }
    const char* GetTypeName() const override { return "MAU"; }

    [[nodiscard]] int AddParent(int handle) override;
    [[nodiscard]] int RemoveParent(int handle) override;
    [[nodiscard]] int OnParentReorder(const VEK_intArray& order) override;
    [[nodiscard]] int IsParentNecessary(int parent, double epsilon, bool& necessary) const override;

    // Every weight becomes 1.0.
    [[nodiscard]] int MakeUniform() override;

    [[nodiscard]] int DoCopyParameters(const VEK_nodeDef& other) override;

    const VEK_Dmatrix& GetWeights() const { return Table(); }
    // -2 when the count differs from the table's.
    [[nodiscard]] int SetWeights(const std::vector<double>& weights) { return SetDefinition(weights); }
    // Utility and MAU parents, in parent order: the last dimension's entries.
    const VEK_intArray& GetUtilityParents() const { return utilityParents_; }
    // The weight of a utility parent for one combination of the decision
    // parents (given as linear column index).
    [[nodiscard]] int GetWeight(int column, int utilityParent, double& weight) const;

    const std::vector<std::string>& GetExpressions() const { return expressions_; }
    [[nodiscard]] int SetExpressions(const std::vector<std::string>& expressions);

protected:
    // Decision parents have the dimensions, in parent order; -51 for a
    // utility parent.
    int ParentDimension(int parent) const override;
    // A new option starts with the default weights.
    double NewSliceValue() const override { return 1.0; }

private:
    VEK_intArray utilityParents_;
    std::vector<std::string> expressions_;
};
