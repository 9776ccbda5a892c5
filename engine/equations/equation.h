// Definition of an equation node: "id = expression" over the parents, with
// the variable's bounds, a default value and an optional discretization into
// intervals. An equation written in another form ("x + y = 10") is solved
// for the node's variable when the variable occurs once and every operation
// on its path can be inverted; the solved form is what the node keeps.
//
// Parents are the variables the equation uses: setting an equation adds the
// arcs from the nodes it names (and fails, changing nothing, when one would
// close a cycle or is not allowed); arcs from nodes it does not use stay.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "equations/expression.h"
#include "equations/exprFunctions.h"
#include "network/idArray.h"
#include "network/nodeDef.h"

struct VEK_discInterval {
    std::string label;
    double upper = 0.0;
};

class VEK_equation : public VEK_nodeDef {
public:
    VEK_equation(VEK_network& net, int handle);
    VEK_equation(const VEK_equation& other) = default;

    VEK_nodeDef* Clone(VEK_network& net) const override;
    VEK_nodeVal* CreateValue() const override;
    VEK_nodeVal* CreateValue(const VEK_valXformContext& ctx) const override;
    int GetType() const override { return VEK_EQUATION; }
    const char* GetTypeName() const override { return "EQUATION"; }

    // Arcs come and go freely; the equation is checked against its parents
    // when inference runs.
    [[nodiscard]] int AddParent(int) override { return 0; }
    [[nodiscard]] int RemoveParent(int) override { return 0; }
    [[nodiscard]] int OnParentOutcomeAdd(int, int) override { return 0; }
    [[nodiscard]] int OnParentOutcomeRemove(int, int) override { return 0; }
    [[nodiscard]] int OnParentOutcomeReorder(int, const VEK_intArray&) override { return 0; }
    [[nodiscard]] int OnParentReorder(const VEK_intArray&) override { return 0; }
    [[nodiscard]] int BeforeParentIdChange(int parent, const char* oldId, const char* newId) override;
    // A discretized node passes its intervals on as outcomes.
    void InitXform(VEK_nodeXformContext& ctx) const override;

    // With a discretization the intervals are the node's outcomes.
    int GetNumberOfOutcomes() const override;
    const VEK_idArray* GetOutcomeIds() const override;
    int GetDiscreteOutcomeCount() const override;
    // The discretized table (parents' intervals or outcomes, then the node's
    // intervals), filled by the discretizing inference; empty otherwise.
    const VEK_Dmatrix* GetMatrix() const override { return table_.GetSize() ? &table_ : nullptr; }
    const VEK_Dmatrix& GetParameters() const override { return table_; }
    // The discretized table being computed (parent states, then intervals).
    VEK_Dmatrix& Table() { return table_; }
    VEK_Dmatrix& GetWriteableParameters() override { return table_; }

    // Parses, solves and checks the equation; on failure nothing changes and
    // errorPos / message tell why (errorPos -1 when no position applies).
    [[nodiscard]] int SetEquation(const std::string& text, int& errorPos, std::string& message);
    // "id = expression" in canonical form; empty before an equation is set.
    std::string GetEquation() const;
    const VEK_expression& Expression() const { return rhs_; }
    // Re-parses the equation against the network's current functions.
    [[nodiscard]] int PatchExtFunctions(int& errorPos, std::string& message);
    // Takes the expression and functions of another definition of the node.
    void AdoptExpression(const VEK_equation& other) {
        rhs_ = other.rhs_;
        functions_ = other.functions_;
    }

    double GetLower() const { return lower_; }
    double GetUpper() const { return upper_; }
    // -2 when lower > upper or a bound is not finite, or the discretization
    // would fall outside.
    [[nodiscard]] int SetBounds(double lower, double upper);
    double GetDefaultValue() const { return default_; }
    void SetDefaultValue(double v) { default_ = v; }
    bool HasNominal() const { return hasNominal_; }
    double GetLowerNominal() const { return hasNominal_ ? lowerNominal_ : lower_; }
    double GetUpperNominal() const { return hasNominal_ ? upperNominal_ : upper_; }
    [[nodiscard]] int SetNominal(double lower, double upper);

    const std::vector<VEK_discInterval>& GetDiscretization() const { return intervals_; }
    // Upper bounds strictly increasing, the first above the lower bound and
    // the last at most the upper bound; labels empty or distinct
    // identifiers. The interval count cannot change while the node has
    // children with tables (-51). -2 with a message otherwise.
    [[nodiscard]] int SetDiscretization(const std::vector<VEK_discInterval>& intervals, std::string& message);
    // n intervals of equal width between the bounds.
    [[nodiscard]] int SetUniformDiscretization(int n, std::string& message);
    // The interval holding x (values outside the bounds go to the ends).
    int Discretize(double x) const;
    double IntervalLower(int k) const { return k == 0 ? lower_ : intervals_[k - 1].upper; }

    bool IsDeterministic() const { return rhs_.Empty() || !rhs_.IsStochastic(); }
    bool IsConstant() const { return IsDeterministic() && rhs_.Variables().empty(); }
    // The value of a constant equation (0 for an empty one).
    double GetConstant() const;

    // The node handle of each variable of the expression, in variable order;
    // -2 with a message when a variable is not a parent.
    [[nodiscard]] int BindVariables(std::vector<int>& handles, std::string& message) const;

private:
    [[nodiscard]] int Build(const std::string& text, VEK_expression& rhs, std::shared_ptr<VEK_functionSet>& functions,
              int& errorPos, std::string& message) const;
    void RebuildIds();

    VEK_expression rhs_;
    std::shared_ptr<VEK_functionSet> functions_;
    double lower_ = 0.0;
    double upper_ = 1.0;
    double default_ = 0.0;
    bool hasNominal_ = false;
    double lowerNominal_ = 0.0;
    double upperNominal_ = 0.0;
    std::vector<VEK_discInterval> intervals_;
    VEK_idArray ids_;
    VEK_Dmatrix table_;
};

// Solves "lhs = rhs" for variable name; -2 with a message when the variable
// does not occur exactly once or an operation on its path has no inverse.
[[nodiscard]] int VEK_solveFor(const VEK_expression& lhs, const VEK_expression& rhs, const std::string& name, VEK_expression& out,
                 std::string& message);

// Replaces the network's user functions and re-reads every equation with
// them; when a text does not parse or an equation no longer does, nothing
// changes and message tells why.
[[nodiscard]] int VEK_setExtFunctions(VEK_network& net, const std::vector<std::string>& texts, std::string& message);
