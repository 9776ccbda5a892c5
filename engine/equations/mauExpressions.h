// The expressions of a multi-attribute utility node, compiled for the
// influence diagram solvers. Either one expression serves every combination
// of the node's decision parents, or there is one per combination (in the
// order of the weights table's columns). A utility or MAU parent stands for
// its utility, any other parent for the index of its outcome.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "equations/exprFunctions.h"
#include "equations/expression.h"

class VEK_network;

class VEK_mauExpressions {
public:
    // -2 with a message when an expression does not parse, names a node that
    // is not a parent, draws from a distribution, or the count is wrong.
    [[nodiscard]] int Compile(const VEK_network& net, int handle, int columns, std::string& message);
    bool Empty() const { return expressions_.empty(); }
    double Evaluate(int column, const std::vector<double>& values, const std::vector<int>& stateOf) const;

private:
    struct Compiled {
        VEK_expression expr;
        std::vector<int> handles;
        std::vector<char> isUtility;
    };
    std::vector<Compiled> expressions_;
    std::shared_ptr<VEK_functionSet> functions_;
};
