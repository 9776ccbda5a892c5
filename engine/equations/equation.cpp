#include "equations/equation.h"

#include <cmath>

#include "equations/equationEvaluation.h"
#include "equations/exprParser.h"
#include "network/network.h"
#include "network/nodeXformContext.h"
#include "network/status.h"

namespace {

int VariablePosition(const VEK_expression& e, int v) {
    for (int i = 0; i < e.NodeCount(); ++i) {
        if (e.Node(i).kind == VEK_exprKind::Variable && e.Node(i).first == v) return e.Node(i).pos;
    }
    return -1;
}

int Occurrences(const VEK_expression& e, int i, int v) {
    const VEK_exprNode& n = e.Node(i);
    if (n.kind == VEK_exprKind::Variable) return n.first == v ? 1 : 0;
    int count = 0;
    for (int k = 0; n.kind != VEK_exprKind::Number && k < n.argc; ++k) count += Occurrences(e, e.Child(i, k), v);
    return count;
}

}  // namespace

int VEK_solveFor(const VEK_expression& lhs, const VEK_expression& rhs, const std::string& name, VEK_expression& out,
                 std::string& message) {
    VEK_expression w;
    w.SetFunctions(lhs.Functions());
    const int l = w.CopyFrom(lhs, lhs.Root());
    const int r = w.CopyFrom(rhs, rhs.Root());
    const int v = w.FindVariable(name);
    const int count = v < 0 ? 0 : Occurrences(w, l, v) + Occurrences(w, r, v);
    if (count != 1) {
        message = count == 0 ? "The equation does not contain '" + name + "'"
                             : "Cannot solve the equation for '" + name + "': it occurs more than once";
        return VEK_OUT_OF_RANGE;
    }
    // Peel the side holding the variable, applying each inverse to the other.
    int side = Occurrences(w, l, v) ? l : r;
    int other = side == l ? r : l;
    static const int kExp = VEK_findLibFunction("Exp"), kLn = VEK_findLibFunction("Ln"),
                     kLog = VEK_findLibFunction("Log"), kLog10 = VEK_findLibFunction("Log10"),
                     kSqrt = VEK_findLibFunction("Sqrt");
    while (!(w.Node(side).kind == VEK_exprKind::Variable)) {
        const VEK_exprNode n = w.Node(side);
        const int pos = n.pos;
        if (n.kind == VEK_exprKind::Unary && n.op == VEK_exprOp::Neg) {
            other = w.AddUnary(VEK_exprOp::Neg, other, pos);
            side = w.Child(side, 0);
            continue;
        }
        if (n.kind == VEK_exprKind::Call && n.argc == 1) {
            const int a = w.Child(side, 0);
            int inv = -1;
            if (n.func == kExp) inv = w.AddCall(VEK_exprKind::Call, kLn, {other}, pos);
            else if (n.func == kLn || n.func == kLog) inv = w.AddCall(VEK_exprKind::Call, kExp, {other}, pos);
            else if (n.func == kLog10) inv = w.AddBinary(VEK_exprOp::Pow, w.AddNumber(10, pos), other, pos);
            else if (n.func == kSqrt) inv = w.AddBinary(VEK_exprOp::Pow, other, w.AddNumber(2, pos), pos);
            if (inv >= 0) {
                other = inv;
                side = a;
                continue;
            }
        }
        if (n.kind != VEK_exprKind::Binary) {
            message = "Cannot solve the equation for '" + name + "': '" + w.PrintNode(side) + "' has no inverse";
            return VEK_OUT_OF_RANGE;
        }
        const int a = w.Child(side, 0), b = w.Child(side, 1);
        const bool inA = Occurrences(w, a, v) > 0;
        const int known = inA ? b : a;
        switch (n.op) {
            case VEK_exprOp::Add: other = w.AddBinary(VEK_exprOp::Sub, other, known, pos); break;
            case VEK_exprOp::Sub:
                other = inA ? w.AddBinary(VEK_exprOp::Add, other, known, pos)
                            : w.AddBinary(VEK_exprOp::Sub, known, other, pos);
                break;
            case VEK_exprOp::Mul: other = w.AddBinary(VEK_exprOp::Div, other, known, pos); break;
            case VEK_exprOp::Div:
                other = inA ? w.AddBinary(VEK_exprOp::Mul, other, known, pos)
                            : w.AddBinary(VEK_exprOp::Div, known, other, pos);
                break;
            case VEK_exprOp::Pow:
                other = inA ? w.AddBinary(VEK_exprOp::Pow, other,
                                          w.AddBinary(VEK_exprOp::Div, w.AddNumber(1, pos), known, pos), pos)
                            : w.AddBinary(VEK_exprOp::Div, w.AddCall(VEK_exprKind::Call, kLn, {other}, pos),
                                          w.AddCall(VEK_exprKind::Call, kLn, {known}, pos), pos);
                break;
            default:
                message = "Cannot solve the equation for '" + name + "': '" + w.PrintNode(side) + "' has no inverse";
                return VEK_OUT_OF_RANGE;
        }
        side = inA ? a : b;
    }
    w.SetRoot(other);
    out = std::move(w);
    return VEK_OKAY;
}

VEK_equation::VEK_equation(VEK_network& net, int handle) : VEK_nodeDef(net, handle) {}

VEK_nodeDef* VEK_equation::Clone(VEK_network& net) const {
    auto* d = new VEK_equation(*this);
    d->Rebind(net, Handle());
    return d;
}

VEK_nodeVal* VEK_equation::CreateValue() const { return new VEK_equationEvaluation(Network(), Handle()); }

VEK_nodeVal* VEK_equation::CreateValue(const VEK_valXformContext&) const { return CreateValue(); }

int VEK_equation::BeforeParentIdChange(int, const char* oldId, const char* newId) {
    const int v = rhs_.FindVariable(oldId ? oldId : "");
    if (v >= 0 && newId) rhs_.RenameVariable(v, newId);
    return VEK_OKAY;
}

void VEK_equation::InitXform(VEK_nodeXformContext& ctx) const {
    VEK_nodeDef::InitXform(ctx);
    if (intervals_.empty()) return;
    ctx.hasOutcomes = true;
    ctx.outcomeIds = ids_;
    ctx.intervals.assign(1, lower_);
    for (const VEK_discInterval& i : intervals_) ctx.intervals.push_back(i.upper);
    if (table_.GetSize()) ctx.table = &table_;
}

int VEK_equation::GetNumberOfOutcomes() const { return static_cast<int>(intervals_.size()); }

const VEK_idArray* VEK_equation::GetOutcomeIds() const { return intervals_.empty() ? nullptr : &ids_; }

int VEK_equation::GetDiscreteOutcomeCount() const {
    return intervals_.empty() ? VEK_WRONG_NODE_TYPE : static_cast<int>(intervals_.size());
}

int VEK_equation::Build(const std::string& text, VEK_expression& rhs, std::shared_ptr<VEK_functionSet>& functions,
                        int& errorPos, std::string& message) const {
    errorPos = -1;
    functions = std::make_shared<VEK_functionSet>();
    int failed = -1;
    int res = functions->Parse(Network().ExtFunctions(), failed, errorPos, message);
    if (res != VEK_OKAY) {
        message = "External function " + std::to_string(failed) + ": " + message;
        errorPos = -1;
        return res;
    }
    VEK_expression lhs, right;
    res = VEK_exprParser::ParseEquation(text, functions.get(), lhs, right, errorPos, message);
    if (res != VEK_OKAY) return res;
    const std::string id = GetNodeId();
    const VEK_exprNode& root = lhs.Node(lhs.Root());
    if (root.kind == VEK_exprKind::Variable && lhs.Variables()[root.first] == id &&
        right.FindVariable(id) < 0) {
        rhs = std::move(right);
    } else if ((res = VEK_solveFor(lhs, right, id, rhs, message)) != VEK_OKAY) {
        return res;
    }
    rhs.SetFunctions(functions.get());
    for (int v = 0; v < static_cast<int>(rhs.Variables().size()); ++v) {
        const int h = Network().FindNode(rhs.Variables()[v].c_str());
        if (h < 0) {
            errorPos = VariablePosition(rhs, v);
            message = "Unknown variable '" + rhs.Variables()[v] + "'";
            return VEK_OUT_OF_RANGE;
        }
    }
    return VEK_OKAY;
}

int VEK_equation::SetEquation(const std::string& text, int& errorPos, std::string& message) {
    VEK_expression rhs;
    std::shared_ptr<VEK_functionSet> functions;
    int res = Build(text, rhs, functions, errorPos, message);
    if (res != VEK_OKAY) return res;
    // Every new arc is tested before the first is added: arcs that all end
    // here cannot close a cycle together that none closes alone.
    VEK_network& net = Network();
    std::vector<int> added;
    for (int v = 0; v < static_cast<int>(rhs.Variables().size()); ++v) {
        const int h = net.FindNode(rhs.Variables()[v].c_str());
        if (GetParents().FindPosition(h) >= 0) continue;
        res = net.RemainsAcyclic(h, Handle()) ? net.TestAddArc(h, Handle()) : VEK_CYCLE;
        if (res != VEK_OKAY) {
            errorPos = VariablePosition(rhs, v);
            message = res == VEK_CYCLE ? "The arc from '" + rhs.Variables()[v] + "' would close a cycle"
                                       : "Node '" + rhs.Variables()[v] + "' cannot be a parent of this node";
            return res;
        }
        added.push_back(h);
    }
    for (int h : added) {
        res = net.AddArc(h, Handle());
        if (res != VEK_OKAY) {
            for (int done : added) {
                if (done == h) break;
                (void)net.RemoveArc(done, Handle());  // undoing arcs added just above
            }
            errorPos = -1;
            message = "Adding the arc from '" + std::string(net.GetNodeId(h)) + "' failed";
            return res;
        }
    }
    rhs_ = std::move(rhs);
    functions_ = std::move(functions);
    TellNetworkOfChange();
    return VEK_OKAY;
}

std::string VEK_equation::GetEquation() const {
    const char* id = GetNodeId();
    return std::string(id ? id : "") + " = " + (rhs_.Empty() ? VEK_formatNumber(default_) : rhs_.Print());
}

int VEK_equation::PatchExtFunctions(int& errorPos, std::string& message) {
    if (rhs_.Empty()) return VEK_OKAY;
    VEK_expression rhs;
    std::shared_ptr<VEK_functionSet> functions;
    const int res = Build(GetEquation(), rhs, functions, errorPos, message);
    if (res != VEK_OKAY) return res;
    rhs_ = std::move(rhs);
    functions_ = std::move(functions);
    return VEK_OKAY;
}

int VEK_equation::SetBounds(double lower, double upper) {
    if (!std::isfinite(lower) || !std::isfinite(upper) || lower > upper) return VEK_OUT_OF_RANGE;
    if (!intervals_.empty() && (intervals_.front().upper <= lower || intervals_.back().upper > upper)) {
        return VEK_OUT_OF_RANGE;
    }
    lower_ = lower;
    upper_ = upper;
    TellNetworkOfChange();
    return VEK_OKAY;
}

int VEK_equation::SetNominal(double lower, double upper) {
    if (!std::isfinite(lower) || !std::isfinite(upper) || lower > upper) return VEK_OUT_OF_RANGE;
    hasNominal_ = lower != lower_ || upper != upper_;
    lowerNominal_ = lower;
    upperNominal_ = upper;
    return VEK_OKAY;
}

int VEK_equation::SetDiscretization(const std::vector<VEK_discInterval>& intervals, std::string& message) {
    VEK_idArray ids;
    double prev = lower_;
    for (size_t k = 0; k < intervals.size(); ++k) {
        const double u = intervals[k].upper;
        if (!(u > prev) || u > upper_) {
            message = "Interval " + std::to_string(k) + " ends at " + VEK_formatNumber(u) +
                      (u > upper_ ? ", above the upper bound " + VEK_formatNumber(upper_)
                                  : ", not above " + VEK_formatNumber(prev));
            return VEK_OUT_OF_RANGE;
        }
        prev = u;
        const std::string id = intervals[k].label.empty() ? "State" + std::to_string(k) : intervals[k].label;
        if (ids.Add(id.c_str()) < 0) {
            message = "Interval label '" + id + "' is not a valid, distinct identifier";
            return VEK_OUT_OF_RANGE;
        }
    }
    const bool countChanges = intervals.size() != intervals_.size();
    for (int c : GetChildren()) {
        const VEK_nodeDef* child = GetPeerDef(c);
        if (countChanges && child && child->GetType() != VEK_EQUATION) {
            message = "The number of intervals cannot change while the node has children with tables";
            return VEK_WRONG_NODE_TYPE;
        }
    }
    intervals_ = intervals;
    ids_ = std::move(ids);
    table_.Clear();
    if (countChanges && Network().GetDef(Handle()) == this) Network().OnOutcomeCountChanged(Handle());
    TellNetworkOfChange();
    return VEK_OKAY;
}

int VEK_equation::SetUniformDiscretization(int n, std::string& message) {
    if (n < 1) {
        message = "The number of intervals must be at least 1";
        return VEK_OUT_OF_RANGE;
    }
    if (!(upper_ > lower_)) {
        message = "The bounds enclose no interval";
        return VEK_OUT_OF_RANGE;
    }
    std::vector<VEK_discInterval> intervals(n);
    for (int k = 0; k < n; ++k) {
        intervals[k].label = "State" + std::to_string(k);
        intervals[k].upper = k + 1 == n ? upper_ : lower_ + (upper_ - lower_) * (k + 1) / n;
    }
    return SetDiscretization(intervals, message);
}

int VEK_equation::Discretize(double x) const {
    const int n = static_cast<int>(intervals_.size());
    int lo = 0, hi = n - 1;
    while (lo < hi) {
        const int mid = (lo + hi) / 2;
        if (x < intervals_[mid].upper) hi = mid;
        else lo = mid + 1;
    }
    return lo;
}

double VEK_equation::GetConstant() const { return rhs_.Empty() ? default_ : rhs_.Evaluate(nullptr, nullptr); }

int VEK_equation::BindVariables(std::vector<int>& handles, std::string& message) const {
    handles.clear();
    for (const std::string& name : rhs_.Variables()) {
        const int h = Network().FindNode(name.c_str());
        if (h < 0 || GetParents().FindPosition(h) < 0) {
            message = "The equation of node '" + std::string(GetNodeId()) + "' uses '" + name +
                      "', which is not its parent";
            return VEK_OUT_OF_RANGE;
        }
        handles.push_back(h);
    }
    return VEK_OKAY;
}

int VEK_setExtFunctions(VEK_network& net, const std::vector<std::string>& texts, std::string& message) {
    VEK_functionSet check;
    int failed = -1, pos = -1;
    int res = check.Parse(texts, failed, pos, message);
    if (res != VEK_OKAY) {
        message = "Function " + std::to_string(failed) + " at position " + std::to_string(pos) + ": " + message;
        return res;
    }
    // Every equation is re-read on copies first, so a failure changes nothing.
    const std::vector<std::string> old = net.ExtFunctions();
    net.ExtFunctions() = texts;
    std::vector<std::pair<VEK_equation*, VEK_equation>> patched;
    for (int h = net.GetFirstNode(); h >= 0; h = net.GetNextNode(h)) {
        auto* eq = dynamic_cast<VEK_equation*>(net.GetDef(h));
        if (!eq) continue;
        VEK_equation copy(*eq);
        res = copy.PatchExtFunctions(pos, message);
        if (res != VEK_OKAY) {
            net.ExtFunctions() = old;
            message = "The equation of node '" + std::string(net.GetNodeId(h)) + "' fails: " + message;
            return res;
        }
        patched.emplace_back(eq, std::move(copy));
    }
    for (auto& [eq, copy] : patched) eq->AdoptExpression(copy);
    return VEK_OKAY;
}
