#include "equations/mauExpressions.h"

#include "equations/exprParser.h"
#include "network/mau.h"
#include "network/network.h"
#include "network/status.h"

int VEK_mauExpressions::Compile(const VEK_network& net, int handle, int columns, std::string& message) {
    expressions_.clear();
    const auto* def = dynamic_cast<const VEK_mau*>(net.GetDef(handle));
    if (!def) return VEK_WRONG_NODE_TYPE;
    const std::vector<std::string>& texts = def->GetExpressions();
    const std::string id = net.GetNodeId(handle);
    if (texts.empty()) return VEK_OKAY;
    if (texts.size() != 1 && static_cast<int>(texts.size()) != columns) {
        message = "MAU node '" + id + "' has " + std::to_string(texts.size()) + " expressions for " +
                  std::to_string(columns) + " combinations of its decision parents";
        return VEK_OUT_OF_RANGE;
    }
    functions_ = std::make_shared<VEK_functionSet>();
    int failed = -1, pos = -1;
    if (functions_->Parse(net.ExtFunctions(), failed, pos, message) != VEK_OKAY) {
        message = "External function " + std::to_string(failed) + ": " + message;
        return VEK_OUT_OF_RANGE;
    }
    const VEK_intArray& parents = net.GetNode(handle)->Parents();
    for (const std::string& text : texts) {
        Compiled c;
        if (VEK_exprParser::Parse(text, functions_.get(), c.expr, pos, message) != VEK_OKAY) {
            message = "Expression '" + text + "' of MAU node '" + id + "' at position " + std::to_string(pos) +
                      ": " + message;
            expressions_.clear();
            return VEK_OUT_OF_RANGE;
        }
        if (c.expr.IsStochastic()) {
            message = "Expression '" + text + "' of MAU node '" + id + "' draws from a distribution";
            expressions_.clear();
            return VEK_OUT_OF_RANGE;
        }
        for (const std::string& name : c.expr.Variables()) {
            const int p = net.FindNode(name.c_str());
            if (p < 0 || parents.FindPosition(p) < 0) {
                message = "Expression '" + text + "' of MAU node '" + id + "' uses '" + name +
                          "', which is not a parent";
                expressions_.clear();
                return VEK_OUT_OF_RANGE;
            }
            c.handles.push_back(p);
            c.isUtility.push_back(def->GetUtilityParents().IsInList(p) ? 1 : 0);
        }
        expressions_.push_back(std::move(c));
    }
    return VEK_OKAY;
}

double VEK_mauExpressions::Evaluate(int column, const std::vector<double>& values,
                                    const std::vector<int>& stateOf) const {
    const Compiled& c = expressions_[expressions_.size() == 1 ? 0 : static_cast<size_t>(column)];
    double vars[16];
    std::vector<double> many;
    double* v = vars;
    if (c.handles.size() > 16) {
        many.resize(c.handles.size());
        v = many.data();
    }
    for (size_t k = 0; k < c.handles.size(); ++k) {
        const auto h = static_cast<size_t>(c.handles[k]);
        v[k] = c.isUtility[k] ? values[h] : stateOf[h];
    }
    return c.expr.Evaluate(v, nullptr);
}
