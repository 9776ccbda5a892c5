#include "equations/expression.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

#include "equations/exprFunctions.h"

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Binding strength for printing, loosest first.
int Precedence(VEK_exprOp op) {
    switch (op) {
        case VEK_exprOp::Or: return 1;
        case VEK_exprOp::And: return 2;
        case VEK_exprOp::Add:
        case VEK_exprOp::Sub: return 4;
        case VEK_exprOp::Mul:
        case VEK_exprOp::Div: return 5;
        case VEK_exprOp::Neg:
        case VEK_exprOp::Not: return 6;
        case VEK_exprOp::Pow: return 7;
        default: return 3;  // comparisons
    }
}

const char* OpText(VEK_exprOp op) {
    static const char* const texts[] = {"-", "!", "^", "*", "/", "+", "-", "<", "<=", ">", ">=", "==", "!=", "&&", "||"};
    return texts[static_cast<int>(op)];
}

constexpr int kAtom = 8;

int LibId(const char* name) { return VEK_findLibFunction(name); }

}  // namespace

std::string VEK_formatNumber(double v) {
    if (std::isinf(v)) return v > 0 ? "1e999" : "-1e999";
    char buf[40];
    for (int digits = 15; digits <= 17; ++digits) {
        std::snprintf(buf, sizeof buf, "%.*g", digits, v);
        if (std::strtod(buf, nullptr) == v) break;
    }
    return buf;
}

int VEK_expression::Push(const VEK_exprNode& n) {
    nodes_.push_back(n);
    return Root();
}

int VEK_expression::AddNumber(double v, int pos) {
    VEK_exprNode n;
    n.kind = VEK_exprKind::Number;
    n.value = v;
    n.pos = pos;
    return Push(n);
}

int VEK_expression::FindVariable(const std::string& name) const {
    for (size_t i = 0; i < variables_.size(); ++i) {
        if (variables_[i] == name) return static_cast<int>(i);
    }
    return -1;
}

int VEK_expression::DeclareVariable(const std::string& name) {
    const int v = FindVariable(name);
    if (v >= 0) return v;
    variables_.push_back(name);
    return static_cast<int>(variables_.size()) - 1;
}

int VEK_expression::AddVariable(const std::string& name, int pos) {
    VEK_exprNode n;
    n.kind = VEK_exprKind::Variable;
    n.first = DeclareVariable(name);
    n.pos = pos;
    return Push(n);
}

int VEK_expression::AddUnary(VEK_exprOp op, int a, int pos) {
    VEK_exprNode n;
    n.kind = VEK_exprKind::Unary;
    n.op = op;
    n.first = static_cast<int>(args_.size());
    n.argc = 1;
    n.pos = pos;
    args_.push_back(a);
    return Push(n);
}

int VEK_expression::AddBinary(VEK_exprOp op, int a, int b, int pos) {
    VEK_exprNode n;
    n.kind = VEK_exprKind::Binary;
    n.op = op;
    n.first = static_cast<int>(args_.size());
    n.argc = 2;
    n.pos = pos;
    args_.push_back(a);
    args_.push_back(b);
    return Push(n);
}

int VEK_expression::AddCall(VEK_exprKind kind, int func, const std::vector<int>& args, int pos) {
    VEK_exprNode n;
    n.kind = kind;
    n.func = func;
    n.first = static_cast<int>(args_.size());
    n.argc = static_cast<int>(args.size());
    n.pos = pos;
    args_.insert(args_.end(), args.begin(), args.end());
    return Push(n);
}

int VEK_expression::CopyFrom(const VEK_expression& other, int i) {
    std::vector<int> varMap(other.variables_.size(), -1);
    return other.CopyInto(*this, i, varMap);
}

int VEK_expression::CopyInto(VEK_expression& out, int i, std::vector<int>& varMap) const {
    const VEK_exprNode& n = nodes_[i];
    switch (n.kind) {
        case VEK_exprKind::Number: return out.AddNumber(n.value, n.pos);
        case VEK_exprKind::Variable:
            if (varMap[n.first] < 0) varMap[n.first] = out.DeclareVariable(variables_[n.first]);
            {
                VEK_exprNode v = n;
                v.first = varMap[n.first];
                return out.Push(v);
            }
        default: {
            std::vector<int> args(n.argc);
            for (int k = 0; k < n.argc; ++k) args[k] = CopyInto(out, Child(i, k), varMap);
            if (n.kind == VEK_exprKind::Unary) return out.AddUnary(n.op, args[0], n.pos);
            if (n.kind == VEK_exprKind::Binary) return out.AddBinary(n.op, args[0], args[1], n.pos);
            return out.AddCall(n.kind, n.func, args, n.pos);
        }
    }
}

VEK_expression VEK_expression::Fold(const double* vars) const {
    VEK_expression out;
    out.functions_ = functions_;
    if (!Empty()) FoldInto(out, Root(), vars);
    return out;
}

int VEK_expression::FoldInto(VEK_expression& out, int i, const double* vars) const {
    const VEK_exprNode& n = nodes_[i];
    if (!IsStochastic(i)) return out.AddNumber(Eval(i, vars, nullptr), n.pos);
    std::vector<int> args(n.argc);
    for (int k = 0; k < n.argc; ++k) args[k] = FoldInto(out, Child(i, k), vars);
    if (n.kind == VEK_exprKind::Unary) return out.AddUnary(n.op, args[0], n.pos);
    if (n.kind == VEK_exprKind::Binary) return out.AddBinary(n.op, args[0], args[1], n.pos);
    return out.AddCall(n.kind, n.func, args, n.pos);
}

void VEK_expression::SetRoot(int i) {
    VEK_expression e;
    e.functions_ = functions_;
    e.CopyFrom(*this, i);
    *this = std::move(e);
}

// ---------------------------------------------------------------- printing

std::string VEK_expression::Print() const { return Empty() ? std::string() : PrintNode(Root()); }

std::string VEK_expression::PrintNode(int i) const {
    std::string out;
    PrintInto(i, out, 0, false);
    return out;
}

void VEK_expression::PrintInto(int i, std::string& out, int parentPrec, bool rightSide) const {
    const VEK_exprNode& n = nodes_[i];
    int prec = kAtom;
    if (n.kind == VEK_exprKind::Unary || n.kind == VEK_exprKind::Binary) prec = Precedence(n.op);
    if (n.kind == VEK_exprKind::Number && std::signbit(n.value)) prec = Precedence(VEK_exprOp::Neg);
    // Left-associative operators keep a right operand of equal strength in
    // parentheses; the power keeps its left operand so.
    const bool paren = prec < parentPrec || (prec == parentPrec && rightSide != (prec == 7));
    if (paren) out += '(';
    switch (n.kind) {
        case VEK_exprKind::Number: out += VEK_formatNumber(n.value); break;
        case VEK_exprKind::Variable: out += variables_[n.first]; break;
        case VEK_exprKind::Unary:
            out += OpText(n.op);
            PrintInto(Child(i, 0), out, prec, true);
            break;
        case VEK_exprKind::Binary: {
            // The exponent is read as a unary operand, so it needs no
            // parentheses for a sign or another power.
            const bool pow = n.op == VEK_exprOp::Pow;
            PrintInto(Child(i, 0), out, prec, false);
            out += ' ';
            out += OpText(n.op);
            out += ' ';
            PrintInto(Child(i, 1), out, pow ? Precedence(VEK_exprOp::Neg) : prec, !pow);
            break;
        }
        default:
            out += n.kind == VEK_exprKind::Call ? VEK_libFunctions()[n.func].name : functions_->Get(n.func).name;
            out += '(';
            for (int k = 0; k < n.argc; ++k) {
                if (k) out += ", ";
                PrintInto(Child(i, k), out, 0, false);
            }
            out += ')';
    }
    if (paren) out += ')';
}

// ---------------------------------------------------------------- evaluation

double VEK_expression::Eval(int i, const double* vars, VEK_randGen* gen) const {
    static const int kIf = LibId("If"), kSwitch = LibId("Switch"), kChoose = LibId("Choose");
    const VEK_exprNode& n = nodes_[i];
    switch (n.kind) {
        case VEK_exprKind::Number: return n.value;
        case VEK_exprKind::Variable: return vars[n.first];
        case VEK_exprKind::Unary: {
            const double a = Eval(Child(i, 0), vars, gen);
            return n.op == VEK_exprOp::Neg ? -a : (a == 0.0 ? 1.0 : 0.0);
        }
        case VEK_exprKind::Binary: {
            const double a = Eval(Child(i, 0), vars, gen);
            // The logical operators do not evaluate what cannot matter.
            if (n.op == VEK_exprOp::And && a == 0.0) return 0.0;
            if (n.op == VEK_exprOp::Or && a != 0.0) return 1.0;
            const double b = Eval(Child(i, 1), vars, gen);
            switch (n.op) {
                case VEK_exprOp::Pow: return std::pow(a, b);
                case VEK_exprOp::Mul: return a * b;
                case VEK_exprOp::Div: return b == 0.0 ? kNaN : a / b;
                case VEK_exprOp::Add: return a + b;
                case VEK_exprOp::Sub: return a - b;
                case VEK_exprOp::Lt: return a < b;
                case VEK_exprOp::Le: return a <= b;
                case VEK_exprOp::Gt: return a > b;
                case VEK_exprOp::Ge: return a >= b;
                case VEK_exprOp::Eq: return a == b;
                case VEK_exprOp::Ne: return a != b;
                default: return b != 0.0;  // And, Or: the first operand did not decide
            }
        }
        default: break;
    }
    // Selections evaluate only the chosen argument.
    if (n.kind == VEK_exprKind::Call && n.func == kIf) {
        return Eval(Child(i, Eval(Child(i, 0), vars, gen) != 0.0 ? 1 : 2), vars, gen);
    }
    if (n.kind == VEK_exprKind::Call && n.func == kChoose) {
        const double k = std::round(Eval(Child(i, 0), vars, gen));
        return k >= 0.0 && k < n.argc - 1 ? Eval(Child(i, static_cast<int>(k) + 1), vars, gen) : kNaN;
    }
    if (n.kind == VEK_exprKind::Call && n.func == kSwitch) {
        const double x = Eval(Child(i, 0), vars, gen);
        for (int k = 1; k + 1 < n.argc; k += 2) {
            if (Eval(Child(i, k), vars, gen) == x) return Eval(Child(i, k + 1), vars, gen);
        }
        return Eval(Child(i, n.argc - 1), vars, gen);
    }
    double small[8];
    std::vector<double> large;
    double* args = small;
    if (n.argc > 8) {
        large.resize(n.argc);
        args = large.data();
    }
    for (int k = 0; k < n.argc; ++k) args[k] = Eval(Child(i, k), vars, gen);
    if (n.kind == VEK_exprKind::UserCall) return functions_->Call(n.func, args, gen);
    return VEK_callLibFunction(n.func, args, n.argc, gen);
}

bool VEK_expression::IsStochastic(int i) const {
    const VEK_exprNode& n = nodes_[i];
    if (n.kind == VEK_exprKind::Call && VEK_libFunctions()[n.func].stochastic) return true;
    if (n.kind == VEK_exprKind::UserCall && functions_->Get(n.func).body.IsStochastic()) return true;
    if (n.kind == VEK_exprKind::Number || n.kind == VEK_exprKind::Variable) return false;
    for (int k = 0; k < n.argc; ++k) {
        if (IsStochastic(Child(i, k))) return true;
    }
    return false;
}

bool VEK_expression::UsesVariable(int i, int v) const {
    const VEK_exprNode& n = nodes_[i];
    if (n.kind == VEK_exprKind::Variable) return n.first == v;
    if (n.kind == VEK_exprKind::Number) return false;
    for (int k = 0; k < n.argc; ++k) {
        if (UsesVariable(Child(i, k), v)) return true;
    }
    return false;
}

bool VEK_expression::Density(int i, double x, const double* vars, double& density) const {
    const VEK_exprNode& n = nodes_[i];
    if (n.kind == VEK_exprKind::Call && VEK_libFunctions()[n.func].stochastic) {
        double small[8];
        std::vector<double> large;
        double* args = small;
        if (n.argc > 8) {
            large.resize(n.argc);
            args = large.data();
        }
        for (int k = 0; k < n.argc; ++k) {
            if (IsStochastic(Child(i, k))) return false;
            args[k] = Eval(Child(i, k), vars, nullptr);
        }
        return VEK_libDensity(n.func, args, n.argc, x, density);
    }
    if (n.kind == VEK_exprKind::Unary && n.op == VEK_exprOp::Neg) return Density(Child(i, 0), -x, vars, density);
    if (n.kind != VEK_exprKind::Binary) return false;
    const int a = Child(i, 0), b = Child(i, 1);
    const bool sa = IsStochastic(a), sb = IsStochastic(b);
    if (sa == sb) return false;
    const double fixed = Eval(sa ? b : a, vars, nullptr);
    const int random = sa ? a : b;
    switch (n.op) {
        case VEK_exprOp::Add: return Density(random, x - fixed, vars, density);
        case VEK_exprOp::Sub: return sa ? Density(random, x + fixed, vars, density)
                                        : Density(random, fixed - x, vars, density);
        case VEK_exprOp::Mul:
            if (!(fixed != 0.0) || !std::isfinite(fixed)) return false;
            if (!Density(random, x / fixed, vars, density)) return false;
            density /= std::fabs(fixed);
            return true;
        case VEK_exprOp::Div:
            if (!sa || !(fixed != 0.0) || !std::isfinite(fixed)) return false;
            if (!Density(random, x * fixed, vars, density)) return false;
            density *= std::fabs(fixed);
            return true;
        default: return false;
    }
}
