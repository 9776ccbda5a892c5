// Expressions of the equation language: a tree of numbers, variables,
// operators and function calls, stored in one array (children before their
// parent), with a printer that gives canonical text and an evaluator.
#pragma once

#include <string>
#include <vector>

class VEK_randGen;
class VEK_functionSet;

// Operators, in the order of the lexer's token table.
enum class VEK_exprOp : unsigned char {
    Neg, Not, Pow, Mul, Div, Add, Sub, Lt, Le, Gt, Ge, Eq, Ne, And, Or
};

enum class VEK_exprKind : unsigned char { Number, Variable, Unary, Binary, Call, UserCall };

struct VEK_exprNode {
    VEK_exprKind kind = VEK_exprKind::Number;
    VEK_exprOp op = VEK_exprOp::Add;
    // Library function id (Call) or user function index (UserCall).
    int func = 0;
    // Variable index (Variable), first argument's index in args_ (Call,
    // UserCall, Unary, Binary).
    int first = 0;
    int argc = 0;
    // Position in the source text, for messages.
    int pos = 0;
    double value = 0.0;
};

class VEK_expression {
public:
    VEK_expression() = default;

    bool Empty() const { return nodes_.empty(); }
    int Root() const { return static_cast<int>(nodes_.size()) - 1; }
    const VEK_exprNode& Node(int i) const { return nodes_[i]; }
    int NodeCount() const { return static_cast<int>(nodes_.size()); }
    // The index of the k-th child of node i.
    int Child(int i, int k) const { return args_[nodes_[i].first + k]; }
    const std::vector<std::string>& Variables() const { return variables_; }
    const VEK_functionSet* Functions() const { return functions_; }

    // Canonical text: minimal parentheses, operators spaced, numbers in
    // shortest round-trip form.
    std::string Print() const;
    std::string PrintNode(int i) const;

    // Evaluates with vars[k] the value of variable k. Distributions draw from
    // gen; without a generator they are an error (NaN).
    double Evaluate(const double* vars, VEK_randGen* gen) const { return Eval(Root(), vars, gen); }
    double Eval(int i, const double* vars, VEK_randGen* gen) const;

    // A copy in which every subtree that draws nothing is replaced by its
    // value for these variables.
    VEK_expression Fold(const double* vars) const;

    // Whether the subtree draws from a distribution.
    bool IsStochastic(int i) const;
    bool IsStochastic() const { return !Empty() && IsStochastic(Root()); }
    // Whether the subtree uses variable v.
    bool UsesVariable(int i, int v) const;

    // Density of the subtree's value at x when it is a distribution call, or
    // a sum, difference or scaling of one by deterministic parts; false when
    // the subtree has no density this way.
    bool Density(int i, double x, const double* vars, double& density) const;

    // Building (the parser and the solver).
    int AddNumber(double v, int pos);
    int AddVariable(const std::string& name, int pos);
    int AddUnary(VEK_exprOp op, int a, int pos);
    int AddBinary(VEK_exprOp op, int a, int b, int pos);
    int AddCall(VEK_exprKind kind, int func, const std::vector<int>& args, int pos);
    // Copies the subtree rooted at i of another expression; returns its index.
    int CopyFrom(const VEK_expression& other, int i);
    // Makes node i the last one, dropping nodes not reachable from it.
    void SetRoot(int i);
    // The user functions that UserCall nodes index; kept alive by the owner
    // of the expression.
    void SetFunctions(const VEK_functionSet* f) { functions_ = f; }
    int FindVariable(const std::string& name) const;
    void RenameVariable(int v, const std::string& name) { variables_[v] = name; }
    // The index of a variable, added to the list when new.
    int DeclareVariable(const std::string& name);

private:
    int Push(const VEK_exprNode& n);
    int CopyInto(VEK_expression& out, int i, std::vector<int>& varMap) const;
    int FoldInto(VEK_expression& out, int i, const double* vars) const;
    void PrintInto(int i, std::string& out, int parentPrec, bool rightSide) const;

    std::vector<VEK_exprNode> nodes_;
    std::vector<int> args_;
    std::vector<std::string> variables_;
    const VEK_functionSet* functions_ = nullptr;
};

// Shortest text that reads back as the same double.
std::string VEK_formatNumber(double v);
